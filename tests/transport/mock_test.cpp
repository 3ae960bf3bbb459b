// The exchange against the mock object manager and its fault modes.
#ifdef CIMXML_HAVE_MOCKCIMOM

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "cimmock/server.h"
#include "cimxml/client.h"

namespace {

const char kEnumerateClassNames[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
    "<MESSAGE ID=\"1234\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"EnumerateClassNames\">"
    "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>"
    "<IPARAMVALUE NAME=\"DeepInheritance\"><VALUE>TRUE</VALUE></IPARAMVALUE>"
    "</IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";

class MockExchange : public ::testing::Test {
protected:
    void start(const std::string& user = "", const std::string& password = "") {
        cimmock::ServerOptions opt;
        opt.mofFiles = cimmock::sampleMofFiles();
        opt.user = user;
        opt.password = password;
        server_.reset(new cimmock::Server(opt));
        std::string error;
        ASSERT_TRUE(server_->start(&error)) << error;
    }
    int send(const char* user = "u", const char* password = "p") {
        std::free(body_);
        body_ = nullptr;
        return CIMSendRequest(kEnumerateClassNames, &body_, "127.0.0.1", server_->port(), user, password, 1000);
    }
    std::string body() const { return body_ ? body_ : "<none>"; }
    void TearDown() override { std::free(body_); }

    std::unique_ptr<cimmock::Server> server_;
    char* body_ = nullptr;
};

TEST_F(MockExchange, LargeReplyInSegmentsArrivesWholeAndTheRequestParses) {
    start();
    cimmock::FaultOptions f;
    f.splitSegments = 4;
    f.splitDelayMs = 30;
    f.largeReplyBytes = 10000;
    server_->setFaults(f);
    ASSERT_EQ(send(), 0);
    EXPECT_EQ(server_->lastRequestBody(), "\r" + std::string(kEnumerateClassNames));
    EXPECT_EQ(server_->stats().badRequests, 0u);
    EXPECT_GE(std::strlen(body_), 10000u);
    EXPECT_EQ(body().compare(0, 5, "<?xml"), 0);
    EXPECT_NE(body().find("<CLASSNAME"), std::string::npos);
    EXPECT_NE(body().find("</CIM>"), std::string::npos);
}

TEST_F(MockExchange, BasicCredentialsAreCheckedByThePeer) {
    start("admin", "s3cret:x");
    EXPECT_EQ(send("admin", "s3cret:x"), 0);
    EXPECT_EQ(send("admin", "wrong"), 401);
    EXPECT_EQ(send("admin", nullptr), 401);
}

TEST_F(MockExchange, FaultModes) {
    start();
    cimmock::FaultOptions f;
    f.force401 = true;
    server_->setFaults(f);
    EXPECT_EQ(send(), 401);

    f = cimmock::FaultOptions();
    f.omitContentLength = true;
    server_->setFaults(f);
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(body_, nullptr);

    f = cimmock::FaultOptions();
    f.noXmlDeclaration = true;
    server_->setFaults(f);
    EXPECT_EQ(send(), -1);
    ASSERT_NE(body_, nullptr);
    EXPECT_EQ(body(), "");

    f = cimmock::FaultOptions();
    f.largeReplyBytes = 50000;
    f.closeAfterBytes = 5000;
    f.splitSegments = 2;
    f.splitDelayMs = 20;
    server_->setFaults(f);
    EXPECT_EQ(send(), 0);  // the peer's close ends the wait
    EXPECT_LT(std::strlen(body_), 5000u);
    EXPECT_GT(std::strlen(body_), 2000u);
}

}  // namespace

#endif
