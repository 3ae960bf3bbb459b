// One request/reply exchange against a scripted raw peer, in both wire modes:
// what each makes of the same replies (the operation tests compare the request
// bytes whole). Then the default header block and its base64 credentials, each
// buffer followed by guard bytes that must stay untouched.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cimxml/client.h"
#include "raw_server.h"
#include "rtlog.h"
#include "transport/exchange.h"
#include "transport/seams.h"

namespace {

using namespace cimtest;
using cimxml::transport::Call;
using cimxml::transport::Failure;
using cimxml::transport::Peer;

const char kXml[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"></CIM>";
const char kUnset[] = "<unset>";

// An XML body of exactly n bytes whose content shows misplaced bytes.
std::string xmlBody(std::size_t n) {
    std::string b = "<?xml version=\"1.0\"?>";
    for (std::size_t i = 0; b.size() < n; ++i) b += static_cast<char>('a' + i % 23);
    b.resize(n);
    return b;
}

// "rc|body": the body "<unset>" when the call left it alone, "<null>" when it
// set it null; a standard-mode failure as "code: description". Runs on its
// own thread so a hang fails the run at once.
std::string run(bool standard, int port, int timeoutMs = 2000, const char* user = "u", const char* host = "127.0.0.1") {
    auto call = std::async(std::launch::async, [&] {
        char* body = const_cast<char*>(kUnset);
        Failure failure;
        int rc = standard ? cimxml::transport::sendStandard(kXml, &body, Peer{host, port, user, "p", timeoutMs}, {},
                                                            Call{"InvokeMethod", "root/cimv2:C.K=\"a b\""}, &failure)
                          : CIMSendRequest(kXml, &body, host, port, user, "p", timeoutMs);
        std::string text = body == kUnset ? kUnset : body ? body : "<null>";
        if (standard && rc != 0) text = std::string(failure.code) + ": " + failure.description;
        if (body != kUnset) std::free(body);
        return std::to_string(rc) + "|" + text;
    });
    if (call.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        std::fputs("the exchange hangs\n", stderr);
        std::abort();
    }
    return call.get();
}

// The outcome against a peer playing r, with what went to stderr.
std::string against(bool standard, Reply r, int timeoutMs = 2000) {
    RawServer server(std::move(r));
    EXPECT_TRUE(server.start());
    ::testing::internal::CaptureStderr();
    std::string got = run(standard, server.port(), timeoutMs);
    std::string err = ::testing::internal::GetCapturedStderr();
    return err.empty() ? got : got + " [" + err + "]";
}

TEST(Exchange, VeryLongCredentialsAreCutButTheXmlStillFollows) {
    std::string user(3000, 'u');
    Reply r = okReply(xmlBody(100));
    r.readRequest = false;  // the cut header block never ends
    RawServer server(r);
    ASSERT_TRUE(server.start());
    EXPECT_EQ(run(false, server.port(), 1000, user.c_str()), "0|" + xmlBody(100));
    const std::size_t headerLength = std::strlen(kXml) + 511;  // bounded by the XML's length + 511
    char encoded[8192];
    Encode64(encoded, (user + ":p").c_str(), sizeof encoded);
    std::string wire = server.request(0);
    ASSERT_EQ(wire.size(), headerLength + 2 + std::strlen(kXml));
    EXPECT_EQ(wire.substr(headerLength), "\n\r" + std::string(kXml));
    std::size_t field = wire.find("Authorization: Basic ") + 21;
    EXPECT_EQ(wire.substr(field, headerLength - field), std::string(encoded).substr(0, headerLength - field));
}

// The default mode asks for the receive time-out with length 0, and logs the
// request and the response when logging is on.
TEST(Exchange, DefaultModeTimeOutAndLog) {
    static std::string seen;  // per call: receive time-out?, length, seconds.microseconds -> result
    seen.clear();
    auto saved = cimxml::transport::g_setSockOpt;
    cimxml::transport::g_setSockOpt = [](int fd, int level, int name, const void* value, socklen_t length) {
        const auto* t = static_cast<const timeval*>(value);
        int rc = ::setsockopt(fd, level, name, value, length);
        seen += std::to_string(level == SOL_SOCKET && name == SO_RCVTIMEO) + " " + std::to_string(length) + " " +
                std::to_string(t->tv_sec) + "." + std::to_string(t->tv_usec) + " -> " + std::to_string(rc) + ";";
        return rc;
    };
    std::string path = ::testing::TempDir() + "transport_log_" + std::to_string(::getpid());
    std::remove(path.c_str());
    setenv("RT_LOG_LEVEL", "2", 1);
    setenv("RT_LOG_FILE", path.c_str(), 1);
    EXPECT_EQ(against(false, okReply(xmlBody(64)), 2500), "0|" + xmlBody(64));
    cimxml::transport::g_setSockOpt = saved;
    unsetenv("RT_LOG_LEVEL");
    unsetenv("RT_LOG_FILE");
    rt_log_init();
    EXPECT_EQ(seen, "1 0 2.500 -> -1;");  // refused, so no time-out is in force
    std::stringstream log;
    log << std::ifstream(path).rdbuf();
    std::remove(path.c_str());
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:295: Request:\n" + std::string(kXml) + "\n"),
              std::string::npos) << log.str();
    EXPECT_NE(log.str().find(" CIMCLIENT network src/CIMC_SendRequest:397: Respone:\n" + xmlBody(64) + "\n"),
              std::string::npos) << log.str();
}

struct Case {
    std::string name;
    Reply reply;
    std::string inDefault, inStandard;
    int timeoutMs = 2000;
};

TEST(Exchange, RepliesInBothModes) {
    const std::string body = xmlBody(300), b78 = xmlBody(78), whole = okResponse(b78);
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/xml\r\n";
    const std::size_t headerEnd = whole.find("\r\n\r\n") + 4;
    Reply slow = okReply(b78);
    slow.segments[0].delayMs = 800;
    std::vector<Case> cases = {
        {"401 whatever else it holds", reply("HTTP/1.1 401 Unauthorized\r\nContent-Length: 30\r\n\r\n" + body),
         "401|<unset>", "401|: "},
        {"no length: up to the close", reply("HTTP/1.1 200 OK\r\n\r\n" + body), "-1|<unset>", "0|" + body},
        {"no XML declaration", okReply("<CIM></CIM>"), "-1|", "0|<CIM></CIM>"},
        {"negative Content-Length", reply("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" + body),
         "-1|<null> [src/CIMC_SendRequest 355 could not allocate memory ]",
         "-1|1005: the reply's Content-Length is not a number"},
        {"nothing at all", Reply{}, "-1|<unset>", "-1|1004: the connection was closed without a reply"},
        {"more bytes than announced", reply(okResponse(body, -200)), "0|" + body.substr(0, 100),
         "0|" + body.substr(0, 100)},
        {"headers, then the body", splitReply(whole, {headerEnd}, 50), "-1|", "0|" + b78},
        {"every byte its own read",
         splitReply(whole, {1, 2, 3, 20, 40, headerEnd - 1, headerEnd + 1, headerEnd + 7}, 10), "-1|<unset>",
         "0|" + b78},
        {"chunked, with an extension and a trailer",
         splitReply(head + "Transfer-Encoding: chunked\r\n\r\n10;x=y\r\n" + b78.substr(0, 16) + "\r\n3E\r\n" +
                        b78.substr(16) + "\r\n0\r\nX-T: 1\r\n\r\n",
                    {head.size() + 30, head.size() + 45}, 30),
         "-1|<unset>", "0|" + b78},
        {"LF line ends, a header name as long as Content-Length's",
         reply("HTTP/1.1 200 OK\nAccept-Charset: utf-8\nContent-Length: 78\n\n" + b78), "0|" + b78, "0|" + b78},
        {"an interim 100 Continue first", reply("HTTP/1.1 100 Continue\r\n\r\n" + whole), "0|" + b78, "0|" + b78},
        {"closed inside the body", reply("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789"), "-1|",
         "-1|1004: the connection was closed after 10 of 100 reply bytes"},
        {"closed inside the header", reply("HTTP/1.1 200 OK\r\nContent-Le"), "-1|<unset>",
         "-1|1004: the connection was closed before the reply header was complete"},
        {"400 with CIMError", reply("HTTP/1.1 400 Bad Request\r\nCIMError: request-not-well-formed\r\n\r\n"),
         "-1|<unset>", "-1|400: HTTP 400 Bad Request (CIMError: request-not-well-formed)"},
        {"501, the header name in lower case",
         reply("HTTP/1.1 501 Not Implemented\r\ncimerror: unsupported-operation\r\nContent-Length: 0\r\n\r\n"),
         "-1|", "-1|501: HTTP 501 Not Implemented (CIMError: unsupported-operation)"},
        {"not HTTP", reply("SSH-2.0-OpenSSH\r\n\r\n"), "-1|<unset>", "-1|1005: not an HTTP reply: \"SSH-2.0-OpenSSH\""},
        {"no blank after the version, LF line ends", reply("HTTP/1.1-200 OK\n\n"), "-1|<unset>",
         "-1|1005: not an HTTP reply: \"HTTP/1.1-200 OK\""},
        {"400, LF line ends", reply("HTTP/1.1 400 Bad Request\nCIMError: x\n\n"), "-1|<unset>",
         "-1|400: HTTP 400 Bad Request (CIMError: x)"},
        {"bad chunk size", reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"), "-1|<unset>",
         "-1|1005: the reply has a malformed chunk size"},
        {"closed inside a chunk size line", reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1"), "-1|<unset>",
         "-1|1004: the connection was closed in the middle of a chunked reply"},
        {"a reason longer than its 63 bytes", reply("HTTP/1.1 503 " + std::string(70, 'r') + "\r\nContent-Length: 0\r\n\r\n"),
         "-1|", "-1|503: HTTP 503 " + std::string(63, 'r')},
        {"closed inside a chunk", reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nabc"), "-1|<unset>",
         "-1|1004: the connection was closed in the middle of a chunk of the reply"},
        {"too slow for the time-out", slow, "0|" + b78, "-1|1003: no reply data within 300 ms", 300},
    };
    // Chunk sizes strtoull would take but the chunked syntax does not.
    for (const char* size : {" 5", "+5", "1FFFFFFFFFFFFFFFF", "4000000000000000", "5x"})
        cases.push_back({std::string("chunk size ") + size,
                         reply(head + "Transfer-Encoding: chunked\r\n\r\n" + size + "\r\nabcde\r\n0\r\n\r\n"),
                         "-1|<unset>", "-1|1005: the reply has a malformed chunk size"});
    // Content-Length: the standard mode allows blanks around the number and nothing else.
    for (const char* length : {" \t78 \t", "78x", "", "99999999999999999999"})
        cases.push_back({std::string("Content-Length ") + length,
                         reply("HTTP/1.1 200 OK\r\nContent-Length:" + std::string(length) + "\r\n\r\n" + b78),
                         *length ? "0|" + b78 : "0|",
                         *length == ' ' ? "0|" + b78 : "-1|1005: the reply's Content-Length is not a number"});
    // The body split after its first 200 bytes: in the default mode the size
    // decides whether the rest is waited for.
    for (const auto& [size, whole] : std::vector<std::pair<std::size_t, bool>>{
             {300, false}, {512, false}, {513, true}, {2047, true}, {2048, false}, {2049, true}, {70000, true}}) {
        const std::string b = xmlBody(size), wire = okResponse(b);
        cases.push_back({"split, " + std::to_string(size), splitReply(wire, {wire.size() - size + 200}, 150),
                         "0|" + (whole ? b : b.substr(0, 200)), "0|" + b});
    }
    // The peer closing, or resetting after 200 ms of silence, inside the body.
    const std::string b5000 = xmlBody(5000), wire = okResponse(b5000);
    const std::size_t cut = wire.size() - 5000 + 1000;
    cases.push_back({"closed early", splitReply(wire.substr(0, cut + 1500), {cut}, 50), "0|" + b5000.substr(0, 2500),
                     "-1|1004: the connection was closed after 2500 of 5000 reply bytes"});
    Reply reset = splitReply(wire.substr(0, cut), {cut}, 200);
    reset.resetAfter = true;
    cases.push_back({"reset early", reset, "0|" + b5000.substr(0, 1000) + " [ERROR!!! while recv data\n]",
                     "-1|1004: receiving the reply failed: Connection reset by peer"});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(against(false, c.reply, c.timeoutMs), c.inDefault) << "default";
        EXPECT_EQ(against(true, c.reply, c.timeoutMs), c.inStandard) << "standard";
    }
}

// A peer that hangs up at once, leaving OpenSSL no reason of its own to give.
TEST(Exchange, TlsPeerThatHangsUp) {
    Reply r;
    r.readRequest = false;
    RawServer server(r);
    ASSERT_TRUE(server.start());
    char* body = nullptr;
    Failure failure;
    EXPECT_EQ(cimxml::transport::sendStandard(kXml, &body, Peer{"127.0.0.1", server.port(), "u", "p", 2000},
                                              {true, true, nullptr}, Call{"M", "o"}, &failure), -1);
    EXPECT_EQ(std::string(failure.code) + ": " + failure.description,
              "1006: TLS handshake with 127.0.0.1 failed: the peer closed the connection");
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);  // held back only while OpenSSL writes
    // A SIGPIPE the caller already had pending is not the library's to take.
    sigset_t pipe, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &mask);
    pthread_kill(pthread_self(), SIGPIPE);
    EXPECT_EQ(cimxml::transport::sendStandard(kXml, &body, Peer{"127.0.0.1", server.port(), "u", "p", 2000},
                                              {true, true, nullptr}, Call{"M", "o"}, &failure), -1);
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    const timespec zero{0, 0};
    sigtimedwait(&pipe, nullptr, &zero);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    std::free(body);
}

TEST(Exchange, UnreachablePeersFailWithoutCrashing) {
    auto gone = std::make_unique<RawServer>(okReply(kXml));
    ASSERT_TRUE(gone->start());
    const int port = gone->port();
    gone.reset();
    EXPECT_EQ(CIMC_TcpConnect("127.0.0.1", port), -1);
    EXPECT_EQ(CIMC_TcpConnect(nullptr, port), -1);
    for (const char* host : {"127.0.0.1", "localhost", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(run(false, port, 1000, "u", host), "-1|<unset>") << (host ? host : "(null)");
    EXPECT_EQ(run(true, port), "-1|1001: cannot connect to 127.0.0.1 port " + std::to_string(port) +
                                   ": Connection refused");
    for (const char* host : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(run(true, port, 1000, "u", host), "-1|1001: no host to connect to");
    const std::string unresolved = run(true, port, 1000, "u", "no-such-host.invalid");
    EXPECT_EQ(unresolved.rfind("-1|1001: cannot resolve no-such-host.invalid: ", 0), 0u) << unresolved;
    char* body = nullptr;
    EXPECT_EQ(CIMSendRequest(nullptr, &body, "127.0.0.1", port, "u", "p", 1000), -1);
}

const std::string kGuard(8, '#');

// The header block for host 10.0.0.1 in a buffer of `size` already holding `already`.
std::string headers(int contentLength, const char* user, const char* password, unsigned size, const char* already) {
    std::string buffer(size, '\0');
    buffer += kGuard;
    std::memcpy(&buffer[0], already, std::strlen(already));
    int n = CIMC_CreateStdHttpHeaders("10.0.0.1", contentLength, &buffer[0], size, user, password);
    EXPECT_EQ(buffer.substr(size), kGuard);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buffer.c_str())));
    return buffer.c_str();
}

TEST(HeaderBlock, LinesCredentialsAndTheBufferSize) {
    auto block = [](const char* length, const char* credentials) {  // no Host line
        return std::string("POST  /cimom HTTP/1.1 \r\nContent-Type: application/xml; charset=\"utf-8\"\r\n") +
               "Content-Length: " + length + "\r\nAuthorization: Basic " + credentials + "\r\n";
    };
    const std::string whole = block("1", "YTpi");  // "a:b"
    const struct {
        int length;
        const char *user, *password;
        unsigned size;
        const char* already;
        std::string want;
    } cases[] = {
        {0, "a", nullptr, 1024, "", block("0", "YTo=")},        // an absent password is empty
        {1, nullptr, nullptr, 1024, "", block("1", "Og==")},    // ":"
        {1, "a", "b", 1024, "X", "X" + whole},
        {1, "a", "b", 10, "", "POST  /ci"},
        {1, "a", "b", 10, "ABCDEFGHI", "ABCDEFGHI"},
        {1, "a", "b", 1, "", ""},
        {1, "a", "b", static_cast<unsigned>(whole.size()), "", whole.substr(0, whole.size() - 1)},  // loses only the last LF
    };
    for (const auto& c : cases) EXPECT_EQ(headers(c.length, c.user, c.password, c.size, c.already), c.want) << c.size;
    // A line longer than the 16 KB scratch is cut there, its CR LF with it.
    const std::string h = headers(1, "a", std::string(20000, 'x').c_str(), 40000, "");
    EXPECT_EQ(h.size() - h.find("Authorization: Basic YTp4eHh4"), 16383u);
    EXPECT_EQ(h.substr(h.size() - 4), "h4eH");
    char untouched = '#';
    EXPECT_EQ(CIMC_CreateStdHttpHeaders(nullptr, 1, &untouched, 0, "a", "b"), 0);
    EXPECT_EQ(CIMC_CreateStdHttpHeaders(nullptr, 1, nullptr, 64, "a", "b"), 0);
    EXPECT_EQ(untouched, '#');
}

TEST(Encode64, GroupsAndTheOutputBound) {
    const struct { const char* in; int size; const char* want; } cases[] = {
        {"", 64, ""}, {"a", 64, "YQ=="}, {"ab", 64, "YWI="}, {"abc", 64, "YWJj"}, {"a:b", 64, "YTpi"},
        {"\xfb\xff", 64, "+/8="},
        // Terminated inside the output: the last byte is always the NUL.
        {"a", 5, "YQ=="}, {"a", 4, "YQ="}, {"a", 2, "Y"}, {"abc", 4, "YWJ"}, {"abcdef", 6, "YWJjZ"}, {"abc", 1, ""},
        {"abc", 0, nullptr}};
    for (const auto& c : cases) {
        std::string out(static_cast<size_t>(c.size), '!');
        out += kGuard;
        Encode64(&out[0], c.in, c.size);
        EXPECT_EQ(out.substr(static_cast<size_t>(c.size)), kGuard) << c.in << " " << c.size;
        if (c.want) {
            EXPECT_STREQ(out.c_str(), c.want) << c.in << " " << c.size;
        }
    }
    Encode64(nullptr, "a", 8);
    char out[4] = "zz";
    Encode64(out, nullptr, 4);
    EXPECT_STREQ(out, "");
}

TEST(Decode64, GroupsPaddingAndTheSizeBound) {
    // want: the first bytes of the output (3 at least, as groups may hold NULs).
    const struct { const char* in; int size; int rc; std::string want; } cases[] = {
        {"", 16, 0, std::string(1, '\0')},
        {"=QUJD", 16, 0, std::string(1, '\0')},  // padding first ends the input
        {nullptr, 16, 0, std::string(1, '\0')},
        {"QUJD", 16, 0, std::string("ABC\0", 4)},
        {"YTo=", 16, 0, std::string("a:\0", 3)},
        {"QQ", 16, 0, std::string("A\0", 2)},
        {"QUJDREVG", 7, 0, std::string("ABCDEF\0", 7)},  // 6 bytes and the terminator fit in 7
        {"+AAA", 16, 0, std::string("\xFC\0\0", 3)},
        {"A/AA", 16, 0, std::string("\x0F\xF0\0", 3)},
        {"\x1b\x1f" "AA", 16, 0, std::string("\xFB\xF0\0", 3)},  // ESC and US carry 62 and 63
        {"\x80\x80\x80\x80", 16, 0, "\xFF\xFF\xFF"},               // bytes outside the table decode as 0xFF
        // Too big: reported in the output as far as it fits.
        {"QUJD", 3, -1, std::string("St\0", 3)},
        {"QUJDREVG", 6, -1, std::string("Strin\0", 6)},
        {"QUJDREVG", 15, 0, "ABCDEF"},
        {"QUJDREVGR0hJSktMTU5P", 15, -1, std::string("String too big\0", 15)},
        {"QUJD", 1, -1, std::string(1, '\0')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.in ? c.in : "(null)") + " in " + std::to_string(c.size));
        std::string out(static_cast<size_t>(c.size), '!');
        out += kGuard;
        EXPECT_EQ(Decode64(&out[0], c.in, c.size), c.rc);
        EXPECT_EQ(out.substr(static_cast<size_t>(c.size)), kGuard);
        EXPECT_EQ(out.substr(0, c.want.size()), c.want);
    }
    char untouched = '#';
    EXPECT_EQ(Decode64(&untouched, "QUJD", 0), -1);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(Decode64(nullptr, "QUJD", 16), -1);
}

}  // namespace
