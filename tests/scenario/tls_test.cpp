// HTTPS in both wire modes through the public entry points, against the mock
// object manager with certificates made here by the openssl command: a server
// the client cannot verify is refused, unless CIMXML_CA_FILE names its
// certificate or CIMXML_TLS_INSECURE=1 says not to verify.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "../xmlops/records.h"

namespace {

// A server on 127.0.0.1 whose certificate names `name` ("IP:..." or "DNS:...").
struct TlsServer {
    std::string base, cert = base + "-cert.pem";
    std::unique_ptr<cimmock::Server> server;
    explicit TlsServer(const char* name)
        : base(::testing::TempDir() + "/scenario-" + std::to_string(::getpid()) + "-" + name) {
        const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 "
                                 "-subj /CN=cimxml-test -addext subjectAltName=" + std::string(name) + " -keyout " +
                                 base + "-key.pem -out " + cert + " >/dev/null 2>&1";
        EXPECT_EQ(std::system(make.c_str()), 0) << make;
        cimmock::ServerOptions options;
        options.repoDir = cimmock::sampleRepositoryDir();
        options.tlsCertFile = cert;
        options.tlsKeyFile = base + "-key.pem";
        server = std::make_unique<cimmock::Server>(options);
        EXPECT_TRUE(server->start());
    }
    ~TlsServer() {
        server.reset();
        std::remove(cert.c_str());
        std::remove((base + "-key.pem").c_str());
    }
};

TEST(Https, RefusedUnlessTrustedForTheHostOrNotVerified) {
    TlsServer good("IP:127.0.0.1"), otherHost("IP:127.0.0.2"), named("DNS:localhost"), otherName("DNS:elsewhere.test");
    const struct {
        const char* name;
        bool standard;
        TlsServer& server;
        const char *caFile, *insecure;
        std::string want;  // "served", or the start of errorOut (default mode leaves it empty)
        const char* host = "127.0.0.1";
    } cases[] = {
        {"standard, system store", true, good, nullptr, nullptr,
         "1006:TLS handshake with 127.0.0.1 failed: server certificate not trusted"},
        {"standard, the CA file", true, good, good.cert.c_str(), nullptr, "served"},
        {"standard, another host's certificate", true, otherHost, otherHost.cert.c_str(), nullptr,
         "1006:TLS handshake with 127.0.0.1 failed: server certificate not trusted (IP address mismatch)"},
        {"standard, not verified", true, good, nullptr, "1", "served"},
        {"default, system store", false, good, nullptr, nullptr, ""},
        {"default, the CA file", false, good, good.cert.c_str(), nullptr, "served"},
        {"default, another host's certificate", false, otherHost, otherHost.cert.c_str(), nullptr, ""},
        {"default, not verified", false, good, nullptr, "1", "served"},
        {"a name", true, named, named.cert.c_str(), nullptr, "served", "localhost"},
        {"another name", true, otherName, otherName.cert.c_str(), nullptr,
         "1006:TLS handshake with localhost failed: server certificate not trusted (hostname mismatch)", "localhost"},
        {"no such CA file", true, named, "/nonexistent/ca.pem", nullptr,
         "1006:cannot load trusted certificates from /nonexistent/ca.pem: "},
    };
    ::setenv("CIMXML_TLS", "1", 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        c.standard ? ::setenv("CIMXML_WIRE", "standard", 1) : ::unsetenv("CIMXML_WIRE");
        c.caFile ? ::setenv("CIMXML_CA_FILE", c.caFile, 1) : ::unsetenv("CIMXML_CA_FILE");
        c.insecure ? ::setenv("CIMXML_TLS_INSECURE", c.insecure, 1) : ::unsetenv("CIMXML_TLS_INSECURE");
        ClientHandle* h = client_Configuration(c.host, c.server.server->port(), "root/cimv2", 5000, "u", "p");
        h->interfaceType = 0;
        ClassName processors = {const_cast<char*>("CIM_Processor"), nullptr};
        Error* error = nullptr;
        const bool served = !opt::taken(EnumerateInstanceNames(h, &processors, &error), Free_InstanceName).empty();
        const std::string got = error ? opt::takeError(&error) : served ? "served" : "";
        EXPECT_EQ(got.substr(0, c.want.size()), c.want);
        EXPECT_EQ(got.empty(), c.want.empty()) << got;
        Free_client_Configuration(h);
    }
    for (const char* v : {"CIMXML_WIRE", "CIMXML_TLS", "CIMXML_CA_FILE", "CIMXML_TLS_INSECURE"}) ::unsetenv(v);
    // The server counts a refused handshake on its own thread, maybe after the client has moved on.
    for (TlsServer* t : {&good, &otherHost}) {
        for (int i = 0; i < 500 && t->server->stats().tlsFailures < 2; ++i) ::usleep(10000);
        EXPECT_EQ(t->server->stats().tlsFailures, 2u);
    }
}

}  // namespace
