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

using namespace cimtest;

const char kXml[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"></CIM>";
const char kUnset[] = "<unset>";

// An XML body of exactly n bytes whose content shows misplaced bytes.
std::string xmlBody(std::size_t n) {
    std::string b = "<?xml version=\"1.0\"?>";
    for (std::size_t i = 0; b.size() < n; ++i) b += static_cast<char>('a' + i % 23);
    b.resize(n);
    return b;
}

struct Exchange {
    int rc = 0;
    char* body = const_cast<char*>(kUnset);  // untouched unless the call sets it
    Exchange() = default;
    Exchange(Exchange&& o) noexcept : rc(o.rc), body(o.body) { o.body = const_cast<char*>(kUnset); }
    std::string text() const { return body == kUnset ? kUnset : body ? body : "<null>"; }
    ~Exchange() {
        if (body != kUnset) std::free(body);
    }
};

// Runs the call on its own thread so a hang fails the run at once.
void exchange(Exchange& e, int port, const char* host = "127.0.0.1", const char* user = "u", int timeout = 1000) {
    auto call = std::async(std::launch::async,
                           [&] { return CIMSendRequest(kXml, &e.body, host, port, user, "p", timeout); });
    if (call.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        std::fputs("CIMSendRequest hangs\n", stderr);
        std::abort();
    }
    e.rc = call.get();
}

// The exchange with a peer that plays r; stderr is compared when given.
Exchange against(Reply r, const char* user = "u", const char* stderrText = nullptr) {
    RawServer server(std::move(r));
    EXPECT_TRUE(server.start());
    Exchange e;
    if (stderrText) ::testing::internal::CaptureStderr();
    exchange(e, server.port(), "127.0.0.1", user);
    if (stderrText) {
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), stderrText);
    }
    return e;
}

TEST(Exchange, RequestBytesOnTheWire) {
    RawServer server(okReply(xmlBody(100)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", "a");
    EXPECT_EQ(e.rc, 0);
    EXPECT_EQ(e.text(), xmlBody(100));
    EXPECT_EQ(server.request(0), "POST  /cimom HTTP/1.1 \r\n"
                                 "Content-Type: application/xml; charset=\"utf-8\"\r\n"
                                 "Content-Length: " + std::to_string(std::strlen(kXml) + 1) + "\r\n"
                                 "Authorization: Basic YTpw\r\n"
                                 "\n\r" + std::string(kXml));
}

TEST(Exchange, VeryLongCredentialsAreCutButTheXmlStillFollows) {
    std::string user(3000, 'u');
    Reply r = okReply(xmlBody(100));
    r.readRequest = false;  // the cut header block never ends
    RawServer server(r);
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", user.c_str());
    EXPECT_EQ(e.rc, 0);
    const std::size_t headerLength = std::strlen(kXml) + 511;  // bounded by the XML's length + 511
    char encoded[8192];
    Encode64(encoded, (user + ":p").c_str(), sizeof encoded);
    std::string wire = server.request(0);
    ASSERT_EQ(wire.size(), headerLength + 2 + std::strlen(kXml));
    EXPECT_EQ(wire.substr(headerLength), "\n\r" + std::string(kXml));
    std::size_t field = wire.find("Authorization: Basic ") + 21;
    EXPECT_EQ(wire.substr(field, headerLength - field), std::string(encoded).substr(0, headerLength - field));
}

TEST(Exchange, ReceiveTimeOutIsAskedForWithLengthZero) {
    static struct { int calls, level, name, result; socklen_t length; timeval value; } seen;
    seen = {};
    auto saved = cimxml::transport::g_setSockOpt;
    cimxml::transport::g_setSockOpt = [](int fd, int level, int name, const void* value, socklen_t length) {
        seen = {seen.calls + 1, level, name, ::setsockopt(fd, level, name, value, length), length,
                *static_cast<const timeval*>(value)};
        return seen.result;
    };
    RawServer server(okReply(xmlBody(100)));
    ASSERT_TRUE(server.start());
    Exchange e;
    exchange(e, server.port(), "127.0.0.1", "u", 2500);
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
    Exchange e = against(okReply(xmlBody(64)));
    unsetenv("RT_LOG_LEVEL");
    unsetenv("RT_LOG_FILE");
    rt_log_init();
    std::stringstream log;
    log << std::ifstream(path).rdbuf();
    std::remove(path.c_str());
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:295: Request:\n" + std::string(kXml) + "\n"),
              std::string::npos) << log.str();
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:397: Respone:\n" + xmlBody(64) + "\n"),
              std::string::npos) << log.str();
}

TEST(Exchange, UnusualReplies) {
    const std::string body = xmlBody(300);
    const struct { const char* name; Reply reply; int rc; std::string body; const char* err; } cases[] = {
        {"401 whatever else it holds", reply("HTTP/1.1 401 Unauthorized\r\nContent-Length: 30\r\n\r\n" + body), 401,
         kUnset, ""},
        {"no Content-Length", reply("HTTP/1.1 200 OK\r\n\r\n" + body), -1, kUnset, ""},
        {"no XML declaration: the empty body is the caller's", okReply("<CIM></CIM>"), -1, "", ""},
        {"negative Content-Length", reply("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" + body), -1, "<null>",
         "src/CIMC_SendRequest 355 could not allocate memory "},
        {"nothing at all", Reply{}, -1, kUnset, ""},
        {"more bytes than announced: cut at the length", reply(okResponse(body, -200)), 0, body.substr(0, 100), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Exchange e = against(c.reply, "u", c.err);
        EXPECT_EQ(e.rc, c.rc);
        EXPECT_EQ(e.text(), c.body);
    }
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
        Exchange e;
        exchange(e, port, host);
        EXPECT_EQ(e.rc, -1) << (host ? host : "(null)");
        EXPECT_EQ(e.text(), kUnset);
    }
    Exchange e;
    EXPECT_EQ(CIMSendRequest(nullptr, &e.body, "127.0.0.1", port, "u", "p", 1000), -1);
}

// Long texts compared without printing them whole.
::testing::AssertionResult sameText(const std::string& got, const std::string& want) {
    if (got == want) return ::testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < got.size() && at < want.size() && got[at] == want[at]) ++at;
    return ::testing::AssertionFailure() << "got " << got.size() << " bytes, want " << want.size()
                                         << ", first difference at " << at;
}

// The body split after its first 200 bytes: the size decides whether the
// rest is waited for.
TEST(Exchange, SizeBandsOfABodyInTwoSegments) {
    const struct { std::size_t size; bool whole; } bands[] = {{300, false},  {512, false},  {513, true}, {2047, true},
                                                              {2048, false}, {2049, true}, {70000, true}};
    for (const auto& b : bands) {
        SCOPED_TRACE(b.size);
        const std::string body = xmlBody(b.size);
        const std::string wire = okResponse(body);
        Exchange e = against(splitReply(wire, {wire.size() - body.size() + 200}, 150));
        EXPECT_EQ(e.rc, 0);
        EXPECT_TRUE(sameText(e.text(), b.whole ? body : body.substr(0, 200)));
    }
}

TEST(Exchange, PeerClosingOrResettingEarlyEndsWithThePartialBody) {
    const std::string body = xmlBody(5000);
    const std::string wire = okResponse(body);
    const std::size_t cut = wire.size() - body.size() + 1000;
    Exchange closed = against(splitReply(wire.substr(0, cut + 1500), {cut}, 50));
    EXPECT_EQ(closed.rc, 0);
    EXPECT_TRUE(sameText(closed.text(), body.substr(0, 2500)));

    Reply r = splitReply(wire.substr(0, cut), {cut}, 200);  // 200 ms of silence, then RST
    r.resetAfter = true;
    Exchange reset = against(r, "u", "ERROR!!! while recv data\n");
    EXPECT_EQ(reset.rc, 0);
    EXPECT_TRUE(sameText(reset.text(), body.substr(0, 1000)));
}

TEST(Exchange, HundredMegabyteBodyArrivesWhole) {
    const std::size_t size = 100u * 1024 * 1024;
    Reply r = reply(okResponse(xmlBody(size)));
    auto start = std::chrono::steady_clock::now();
    Exchange e = against(std::move(r));
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(e.rc, 0);
    ASSERT_TRUE(e.body != kUnset && e.body);
    EXPECT_EQ(std::strlen(e.body), size);
    EXPECT_EQ(std::memcmp(e.body, xmlBody(size).data(), size), 0);
    EXPECT_LT(seconds, 20.0);
}

}  // namespace
