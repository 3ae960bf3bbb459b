// The mock CIM object manager driven with raw HTTP written here, for what
// the client library never sends or asks for: malformed requests, injected
// faults and the server's life cycle. The operations themselves are checked
// through the library in tests/scenario and tests/xmlops.
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <chrono>
#include <fstream>
#include <functional>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "raw_http.h"

using namespace cimmock;

namespace {

// The framing CimXmlClient writes in its default mode; "dTpw" is u:p.
std::string clientFraming(const std::string& xml) {
  return "POST  /cimom HTTP/1.1 \r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
         std::to_string(xml.size() + 1) + "\r\nAuthorization: Basic dTpw\r\n\n\r" + xml;
}

const std::string kClassNames = clientFraming(imethod("EnumerateClassNames", ""));

std::unique_ptr<Server> started() {
  ServerOptions o;
  o.repoDir = sampleRepositoryDir();
  auto s = std::make_unique<Server>(o);
  std::string err;
  EXPECT_TRUE(s->start(&err)) << err;
  return s;
}

bool wellFormed(const std::string& body) { return static_cast<bool>(pugi::xml_document().load_string(body.c_str())); }

}  // namespace

TEST(ServerTest, BadRequestsGetAnHttpErrorAndTheServerSurvives) {
  std::string deep = "<INSTANCENAME CLASSNAME=\"C\"/>";  // references nested deeper than the decoder goes
  for (int i = 0; i < 100; ++i)
    deep = "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><VALUE.REFERENCE>" + deep +
           "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>";
  const struct {
    std::string request;
    int status;
    const char* cimError;
  } cases[] = {
      {clientFraming(imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" + deep + "</IPARAMVALUE>")), 400,
       "request-not-valid"},
      {clientFraming("<?xml version=\"1.0\"?><CIM><MESSAGE"), 400, nullptr},
      {clientFraming("this is not xml"), 400, "request-not-well-formed"},
      {clientFraming("<?xml version=\"1.0\"?><HTML/>"), 400, "request-not-valid"},
      {"GARBAGE\r\n\r\n", 400, nullptr},
      {"POST /cimom HTTP/1.1\r\nContent-Length: nope\r\n\r\n", 400, nullptr},
      {"GET /cimom HTTP/1.1\r\n\r\n", 405, nullptr},
      {"POST /other HTTP/1.1\r\nContent-Length: 0\r\n\r\n", 404, nullptr},
  };
  auto server = started();
  for (const auto& c : cases) {
    Reply r = httpExchange(server->port(), c.request);
    EXPECT_EQ(r.status, c.status) << c.request;
    if (c.cimError) {
      EXPECT_TRUE(r.has(std::string("CIMError: ") + c.cimError)) << r.head;
    }
  }
  for (int i = 0; i < 3; ++i) {  // clients that leave mid-request
    int fd = connectTo(server->port());
    ::send(fd, kClassNames.data(), kClassNames.size() / 2, MSG_NOSIGNAL);
    ::close(fd);
  }
  Reply r = httpExchange(server->port(), kClassNames);
  EXPECT_EQ(r.status, 200);
  EXPECT_TRUE(wellFormed(r.body)) << r.raw;
}

// Each fault as the client meets it; the server must really misbehave, or
// the client tests that rely on it prove nothing.
TEST(ServerTest, FaultsShapeTheReply) {
  const auto length = [](const Reply& r) {
    std::string n = r.header("Content-Length");
    return n.empty() ? -1L : std::atol(n.c_str());
  };
  const struct {
    const char* name;
    std::function<void(FaultOptions&)> set;
    std::function<bool(const Reply&, long ms)> holds;
  } cases[] = {
      {"split", [](FaultOptions& f) { f.splitSegments = 4, f.splitDelayMs = 40; },
       [&](const Reply& r, long ms) { return ms >= 110 && r.reads >= 2 && length(r) == long(r.body.size()); }},
      {"split writes", [](FaultOptions& f) { f.splitWritesMs = 40; },
       [](const Reply& r, long ms) { return ms >= 35 && r.reads >= 2 && wellFormed(r.body); }},
      {"chunked", [](FaultOptions& f) { f.chunks = 3; },
       [&](const Reply& r, long) { return length(r) < 0 && r.has("Transfer-Encoding: chunked"); }},
      {"length short", [](FaultOptions& f) { f.contentLengthDelta = -10; },
       [&](const Reply& r, long) { return length(r) + 10 == long(r.body.size()); }},
      {"no length", [](FaultOptions& f) { f.omitContentLength = true; },
       [&](const Reply& r, long) { return length(r) < 0 && r.closed && r.has("Connection: close") && wellFormed(r.body); }},
      {"close after 30", [](FaultOptions& f) { f.closeAfterBytes = 30; },
       [](const Reply& r, long) { return r.raw.size() == 30 && r.closed; }},
      {"close at once", [](FaultOptions& f) { f.closeAfterBytes = 0; },
       [](const Reply& r, long) { return r.raw.empty() && r.closed; }},
      {"garbage", [](FaultOptions& f) { f.garbageBody = true; },
       [](const Reply& r, long) { return r.status == 200 && !r.body.empty() && !wellFormed(r.body); }},
      {"no declaration", [](FaultOptions& f) { f.noXmlDeclaration = true; },
       [](const Reply& r, long) { return r.body.compare(0, 4, "<CIM") == 0 && wellFormed(r.body); }},
      {"large", [](FaultOptions& f) { f.largeReplyBytes = 3 << 20; },
       [](const Reply& r, long) { return r.body.size() == 3u << 20 && wellFormed(r.body); }},
      {"slow", [](FaultOptions& f) { f.replyDelayMs = 150; },
       [](const Reply& r, long ms) { return ms >= 140 && r.status == 200; }},
      {"401", [](FaultOptions& f) { f.force401 = true; },
       [](const Reply& r, long) { return r.status == 401 && r.has("WWW-Authenticate: Basic realm=\"cimom\""); }},
      {"canned", [](FaultOptions& f) { f.cannedReply = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"; },
       [](const Reply& r, long) { return r.raw == "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"; }},
  };
  auto server = started();
  for (const auto& c : cases) {
    FaultOptions f;
    c.set(f);
    f.faultyReplies = 1;
    server->setFaults(f);
    auto t0 = std::chrono::steady_clock::now();
    Reply r = httpExchange(server->port(), kClassNames);
    EXPECT_TRUE(c.holds(r, std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count()))
        << c.name << "\n" << r.raw.substr(0, 300);
    r = httpExchange(server->port(), kClassNames);  // only the first reply was faulty
    EXPECT_TRUE(r.status == 200 && length(r) == long(r.body.size()) && wellFormed(r.body)) << c.name << r.raw;
  }
}

TEST(ServerTest, StartsOnceStopsAndReportsBadFiles) {
  ServerOptions o;
  o.mofFiles = {"/nonexistent/file.mof"};
  std::string err;
  EXPECT_FALSE(Server(o).start(&err));
  EXPECT_NE(err.find("/nonexistent/file.mof"), std::string::npos);
  o.mofFiles.clear();
  o.tlsCertFile = o.tlsKeyFile = ::testing::TempDir() + "/not-a-certificate-" + std::to_string(getpid()) + ".pem";
  std::ofstream(o.tlsCertFile) << "not a certificate\n";
  EXPECT_FALSE(Server(o).start(&err));
  std::remove(o.tlsCertFile.c_str());
  EXPECT_EQ(err.rfind("TLS: certificate", 0), 0u) << err;  // TLS serving is driven by tests/scenario/tls_test
  Server s{ServerOptions()};
  ASSERT_TRUE(s.start(&err)) << err;
  EXPECT_FALSE(s.start(&err));
  s.stop();
  s.stop();
  EXPECT_FALSE(s.running());
  EXPECT_LT(connectTo(s.port()), 0);
}
