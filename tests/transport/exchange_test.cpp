// One request/reply exchange against a scripted raw peer.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <sstream>
#include <string>

#include "cimxml/client.h"
#include "raw_server.h"
#include "rtlog.h"
#include "transport/seams.h"

namespace {

using cimtest::okReply;
using cimtest::okResponse;
using cimtest::RawServer;
using cimtest::Reply;
using cimtest::splitReply;

const char kXml[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"></CIM>";

// An XML body of exactly n bytes, with content that shows misplaced bytes.
std::string xmlBody(std::size_t n) {
    std::string b = "<?xml version=\"1.0\"?>";
    for (std::size_t i = 0; b.size() < n; ++i) b += static_cast<char>('a' + i % 23);
    b.resize(n);
    return b;
}

// Long texts compared without printing them whole.
::testing::AssertionResult sameText(const std::string& got, const std::string& want) {
    if (got == want) return ::testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < got.size() && at < want.size() && got[at] == want[at]) ++at;
    return ::testing::AssertionFailure() << "got " << got.size() << " bytes, want " << want.size()
                                         << ", first difference at " << at << ": \"" << got.substr(at, 40)
                                         << "\" vs \"" << want.substr(at, 40) << "\"";
}

struct Exchange {
    int rc = 0;
    char* body = &sentinel;  // untouched unless the call sets it
    static char sentinel;

    bool bodySet() const { return body != &sentinel; }
    std::string text() const { return bodySet() && body ? body : "<none>"; }
    ~Exchange() {
        if (bodySet()) std::free(body);
    }
};
char Exchange::sentinel;

// Runs the call on its own thread so a hang fails the test instead of the run.
void exchange(Exchange& e, int port, const char* host = "127.0.0.1", const char* xml = kXml,
              const char* user = "u", const char* password = "p", int timeout = 1000) {
    auto call = std::async(std::launch::async,
                           [&] { return CIMSendRequest(xml, &e.body, host, port, user, password, timeout); });
    if (call.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        std::fputs("CIMSendRequest hangs\n", stderr);
        std::abort();  // the future would wait for it forever
    }
    e.rc = call.get();
}

TEST(Exchange, RequestBytesOnTheWire) {
    RawServer server(okReply(xmlBody(100)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", kXml, "a", "b");
    EXPECT_EQ(e.rc, 0);
    EXPECT_EQ(e.text(), xmlBody(100));
    EXPECT_EQ(server.request(0), "POST  /cimom HTTP/1.1 \r\n"
                                 "Content-Type: application/xml; charset=\"utf-8\"\r\n"
                                 "Content-Length: " + std::to_string(std::strlen(kXml) + 1) + "\r\n"
                                 "Authorization: Basic YTpi\r\n"
                                 "\n\r" + std::string(kXml));
}

TEST(Exchange, VeryLongCredentialsAreCutButTheXmlStillFollows) {
    std::string user(3000, 'u');
    Reply r = okReply(xmlBody(100));
    r.readRequest = false;  // the cut header block never ends
    RawServer server(r);
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", kXml, user.c_str(), "p");
    EXPECT_EQ(e.rc, 0);
    // The header block is bounded by the XML's length + 511.
    const std::size_t headerLength = std::strlen(kXml) + 511;
    char encoded[8192];
    Encode64(encoded, (user + ":p").c_str(), sizeof encoded);
    std::string wire = server.request(0);
    ASSERT_EQ(wire.size(), headerLength + 2 + std::strlen(kXml));
    EXPECT_EQ(wire.substr(headerLength), "\n\r" + std::string(kXml));
    std::size_t field = wire.find("Authorization: Basic ");
    ASSERT_NE(field, std::string::npos);
    EXPECT_EQ(wire.substr(field + 21, headerLength - field - 21), std::string(encoded).substr(0, headerLength - field - 21));
}

TEST(Exchange, ReceiveTimeOutIsAskedForWithLengthZero) {
    struct Seen {
        int calls = 0, level = 0, name = 0, result = 0;
        socklen_t length = 99;
        timeval value{};
    };
    static Seen seen;
    seen = Seen();
    auto saved = cimxml::transport::g_setSockOpt;
    cimxml::transport::g_setSockOpt = [](int fd, int level, int name, const void* value, socklen_t length) {
        ++seen.calls;
        seen.level = level;
        seen.name = name;
        seen.length = length;
        std::memcpy(&seen.value, value, sizeof seen.value);
        seen.result = ::setsockopt(fd, level, name, value, length);
        return seen.result;
    };
    RawServer server(okReply(xmlBody(100)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", kXml, "u", "p", 2500);
    cimxml::transport::g_setSockOpt = saved;
    EXPECT_EQ(e.rc, 0);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.level, SOL_SOCKET);
    EXPECT_EQ(seen.name, SO_RCVTIMEO);
    EXPECT_EQ(seen.length, 0u);
    EXPECT_EQ(seen.value.tv_sec, 2);
    EXPECT_EQ(seen.value.tv_usec, 500);
    EXPECT_EQ(seen.result, -1);  // refused, so no time-out is in force
}

TEST(Exchange, LogsRequestAndResponseWhenLoggingIsOn) {
    std::string path = ::testing::TempDir() + "transport_log_" + std::to_string(::getpid());
    std::remove(path.c_str());
    setenv("RT_LOG_LEVEL", "2", 1);
    setenv("RT_LOG_FILE", path.c_str(), 1);
    RawServer server(okReply(xmlBody(64)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port());
    unsetenv("RT_LOG_LEVEL");
    unsetenv("RT_LOG_FILE");
    rt_log_init();
    std::ifstream in(path);
    std::stringstream log;
    log << in.rdbuf();
    std::remove(path.c_str());
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:295: Request:\n" + std::string(kXml) + "\n"),
              std::string::npos)
        << log.str();
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:397: Respone:\n" + xmlBody(64) + "\n"),
              std::string::npos)
        << log.str();
}

TEST(Exchange, UnauthorizedWhateverElseTheReplyHolds) {
    RawServer server(cimtest::reply("HTTP/1.1 401 Unauthorized\r\nContent-Length: 30\r\n\r\n" + xmlBody(30)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port());
    EXPECT_EQ(e.rc, 401);
    EXPECT_FALSE(e.bodySet());
}

TEST(Exchange, MalformedRepliesFail) {
    {
        SCOPED_TRACE("no Content-Length");
        RawServer server(cimtest::reply("HTTP/1.1 200 OK\r\n\r\n" + xmlBody(30)));
        ASSERT_TRUE(server.start());
        Exchange e;
        exchange(e, server.port());
        EXPECT_EQ(e.rc, -1);
        EXPECT_FALSE(e.bodySet());
    }
    {
        SCOPED_TRACE("no XML declaration: the empty body is the caller's");
        RawServer server(okReply("<CIM></CIM>"));
        ASSERT_TRUE(server.start());
        Exchange e;
        exchange(e, server.port());
        EXPECT_EQ(e.rc, -1);
        ASSERT_TRUE(e.bodySet());
        ASSERT_NE(e.body, nullptr);
        EXPECT_EQ(e.text(), "");
    }
    {
        SCOPED_TRACE("negative Content-Length");
        RawServer server(cimtest::reply("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" + xmlBody(30)));
        ASSERT_TRUE(server.start());
        Exchange e;
        ::testing::internal::CaptureStderr();
        exchange(e, server.port());
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "src/CIMC_SendRequest 355 could not allocate memory ");
        EXPECT_EQ(e.rc, -1);
        EXPECT_EQ(e.body, nullptr);
    }
    {
        SCOPED_TRACE("nothing at all");
        RawServer server(Reply{});
        ASSERT_TRUE(server.start());
        Exchange e;
        exchange(e, server.port());
        EXPECT_EQ(e.rc, -1);
        EXPECT_FALSE(e.bodySet());
    }
}

TEST(Exchange, MoreBytesThanAnnouncedAreCutAtTheLength) {
    std::string body = xmlBody(300);
    RawServer server(cimtest::reply(okResponse(body, -200)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port());
    EXPECT_EQ(e.rc, 0);
    EXPECT_EQ(e.text(), body.substr(0, 100));
}

TEST(Exchange, UnreachablePeersFailWithoutCrashing) {
    int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ASSERT_EQ(::bind(probe, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    ASSERT_EQ(::getsockname(probe, reinterpret_cast<sockaddr*>(&a), &len), 0);
    int port = ntohs(a.sin_port);
    ::close(probe);  // nobody listens there now

    EXPECT_EQ(CIMC_TcpConnect("127.0.0.1", port), -1);
    EXPECT_EQ(CIMC_TcpConnect(nullptr, port), -1);
    for (const char* host : {"127.0.0.1", "localhost", "", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(host ? host : "(null)");
        Exchange e;
        exchange(e, port, host);
        EXPECT_EQ(e.rc, -1);
        EXPECT_FALSE(e.bodySet());
    }
    Exchange e;
    EXPECT_EQ(CIMSendRequest(nullptr, &e.body, "127.0.0.1", port, "u", "p", 1000), -1);
}

// The body split after its first 200 bytes: the size decides whether the
// rest is waited for.
struct Band {
    std::size_t bodySize;
    bool whole;
};
class SizeBands : public ::testing::TestWithParam<Band> {};

TEST_P(SizeBands, BodySplitOverTwoSegments) {
    const Band band = GetParam();
    const std::string body = xmlBody(band.bodySize);
    const std::string wire = okResponse(body);
    RawServer server(splitReply(wire, {wire.size() - body.size() + 200}, 150));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port());
    EXPECT_EQ(e.rc, 0);
    EXPECT_TRUE(sameText(e.text(), band.whole ? body : body.substr(0, 200)));
}

INSTANTIATE_TEST_SUITE_P(Transport, SizeBands,
                         ::testing::Values(Band{300, false}, Band{512, false}, Band{513, true}, Band{2047, true},
                                           Band{2048, false}, Band{2049, true}, Band{70000, true}),
                         [](const ::testing::TestParamInfo<Band>& info) {
                             return "Body" + std::to_string(info.param.bodySize);
                         });

TEST(Exchange, PeerClosingOrResettingEarlyEndsWithThePartialBody) {
    const std::string body = xmlBody(5000);
    const std::string wire = okResponse(body);
    const std::size_t cut = wire.size() - body.size() + 1000;
    {
        SCOPED_TRACE("closed");
        Reply r = splitReply(wire.substr(0, cut + 1500), {cut}, 50);
        RawServer server(r);
        ASSERT_TRUE(server.start());
        Exchange e;
        exchange(e, server.port());
        EXPECT_EQ(e.rc, 0);
        EXPECT_TRUE(sameText(e.text(), body.substr(0, 2500)));
    }
    {
        SCOPED_TRACE("reset");
        Reply r = splitReply(wire.substr(0, cut), {}, 0);
        r.segments.push_back(cimtest::Segment{"", 200});
        r.resetAfter = true;
        RawServer server(r);
        ASSERT_TRUE(server.start());
        Exchange e;
        ::testing::internal::CaptureStderr();
        exchange(e, server.port());
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ERROR!!! while recv data\n");
        EXPECT_EQ(e.rc, 0);
        EXPECT_TRUE(sameText(e.text(), body.substr(0, 1000)));
    }
}

TEST(Exchange, HundredMegabyteBodyArrivesWhole) {
    const std::size_t size = 100u * 1024 * 1024;
    std::string wire = okResponse(xmlBody(size));
    RawServer server(cimtest::reply(wire));
    wire = std::string();
    ASSERT_TRUE(server.start());
    Exchange e;
    auto start = std::chrono::steady_clock::now();
    exchange(e, server.port());
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(e.rc, 0);
    ASSERT_TRUE(e.bodySet());
    ASSERT_NE(e.body, nullptr);
    const std::string expected = xmlBody(size);
    EXPECT_EQ(std::strlen(e.body), size);
    EXPECT_EQ(std::memcmp(e.body, expected.data(), size), 0);
    EXPECT_LT(seconds, 20.0);
}

}  // namespace
