// The standard exchange: exact request framing, and replies read whole
// however the peer cuts them, or a failure with its code and cause.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "cimxml/client.h"
#include "raw_server.h"
#include "transport/exchange.h"

namespace {

using namespace cimtest;
using cimxml::transport::Call;
using cimxml::transport::Failure;
using cimxml::transport::Peer;

const char kBody[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"/>";

struct Outcome {
    int rc;
    std::string body;  // or the failure as "code: description"
};

Outcome run(int port, int timeoutMs = 2000) {
    Peer peer{"127.0.0.1", port, "a", "p", timeoutMs};
    Failure failure;
    char* body = nullptr;
    int rc = cimxml::transport::sendStandard("<x/>", &body, peer, {}, Call{"GetInstance", "root/cimv2"}, &failure);
    Outcome o{rc, body ? body : std::string(failure.code) + ": " + failure.description};
    std::free(body);
    return o;
}

Outcome against(Reply r, int timeoutMs = 2000) {
    RawServer server(std::move(r));
    EXPECT_TRUE(server.start());
    return run(server.port(), timeoutMs);
}

TEST(StandardExchange, FramesTheRequestWithEveryDsp0200Header) {
    RawServer server(okReply(kBody));
    ASSERT_TRUE(server.start());
    Peer peer{"127.0.0.1", server.port(), "a", "p", 2000};
    Failure failure;
    char* body = nullptr;
    ASSERT_EQ(cimxml::transport::sendStandard("<x a=\"1\"/>", &body, peer, {},
                                              Call{"InvokeMethod", "root/cimv2:C.K=\"a b\""}, &failure), 0);
    std::free(body);
    EXPECT_EQ(server.request(0), "POST /cimom HTTP/1.1\r\n"
                                 "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n"
                                 "Content-Type: application/xml; charset=\"utf-8\"\r\n"
                                 "Content-Length: 10\r\n"
                                 "CIMProtocolVersion: 1.0\r\n"
                                 "CIMOperation: MethodCall\r\n"
                                 "CIMMethod: InvokeMethod\r\n"
                                 "CIMObject: root%2Fcimv2%3AC.K%3D%22a%20b%22\r\n"
                                 "Authorization: Basic YTpw\r\n"
                                 "\r\n"
                                 "<x a=\"1\"/>");
}

TEST(StandardExchange, ReadsTheWholeReplyHoweverItIsCut) {
    const std::string whole = okResponse(kBody);
    const std::size_t headerEnd = whole.find("\r\n\r\n") + 4;
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/xml\r\n", body = kBody;
    ASSERT_EQ(body.size(), 16u + 0x3E);
    const struct {
        const char* name;
        Reply reply;
    } cases[] = {
        {"headers, then the body", splitReply(whole, {headerEnd}, 50)},
        {"every byte its own read", splitReply(whole, {1, 2, 3, 20, 40, headerEnd - 1, headerEnd + 1, headerEnd + 7}, 10)},
        {"chunked, with an extension and a trailer",
         splitReply(head + "Transfer-Encoding: chunked\r\n\r\n10;x=y\r\n" + body.substr(0, 16) + "\r\n" +
                        "3E\r\n" + body.substr(16) + "\r\n0\r\nX-T: 1\r\n\r\n",
                    {head.size() + 30, head.size() + 45}, 30)},
        {"no length: up to the close", reply(head + "\r\n" + kBody)},
        {"an interim 100 Continue first", reply("HTTP/1.1 100 Continue\r\n\r\n" + whole)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Outcome o = against(c.reply);
        EXPECT_EQ(o.rc, 0);
        EXPECT_EQ(o.body, kBody);
    }
}

TEST(StandardExchange, EveryFailureHasACodeAndItsCause) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n";
    Reply slow = okReply(kBody);
    slow.segments[0].delayMs = 800;
    const struct {
        const char* name;
        Reply reply;
        int timeoutMs;
        Outcome want;
    } cases[] = {
        {"closed inside the body", reply(head + "0123456789"), 2000,
         {-1, "1004: the connection was closed after 10 of 100 reply bytes"}},
        {"closed inside the header", reply("HTTP/1.1 200 OK\r\nContent-Le"), 2000,
         {-1, "1004: the connection was closed before the reply header was complete"}},
        {"refused, with CIMError", reply("HTTP/1.1 400 Bad Request\r\nCIMError: request-not-well-formed\r\n\r\n"), 2000,
         {-1, "400: HTTP 400 Bad Request (CIMError: request-not-well-formed)"}},
        {"not implemented", reply("HTTP/1.1 501 Not Implemented\r\ncimerror: unsupported-operation\r\nContent-Length: 0\r\n\r\n"),
         2000, {-1, "501: HTTP 501 Not Implemented (CIMError: unsupported-operation)"}},
        {"not HTTP", reply("SSH-2.0-OpenSSH\r\n\r\n"), 2000, {-1, "1005: not an HTTP reply: \"SSH-2.0-OpenSSH\""}},
        {"length not a number", reply("HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n"), 2000,
         {-1, "1005: the reply's Content-Length is not a number"}},
        {"bad chunk size", reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"), 2000,
         {-1, "1005: the reply has a malformed chunk size"}},
        {"too slow for the time-out", slow, 300, {-1, "1003: no reply data within 300 ms"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Outcome o = against(c.reply, c.timeoutMs);
        EXPECT_EQ(o.rc, c.want.rc);
        EXPECT_EQ(o.body, c.want.body);
    }
    EXPECT_EQ(against(reply("HTTP/1.1 401 Unauthorized\r\n\r\n")).rc, 401);
}

TEST(StandardExchange, NoListenerIsAConnectFailure) {
    int port;
    {
        RawServer gone(okReply(kBody));
        ASSERT_TRUE(gone.start());
        port = gone.port();
    }
    Outcome o = run(port);
    EXPECT_EQ(o.rc, -1);
    EXPECT_EQ(o.body, "1001: cannot connect to 127.0.0.1 port " + std::to_string(port) + ": Connection refused");
}

}  // namespace
