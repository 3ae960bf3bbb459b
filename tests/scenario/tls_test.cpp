// HTTPS against the strict mock object manager, with a certificate made
// here by the openssl command: a server the client cannot verify is refused,
// unless CIMXML_CA_FILE names its certificate or CIMXML_TLS_INSECURE=1 says
// not to verify.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

TEST(Https, RefusedUnverifiedServedWithItsCertificateOrWithoutVerifying) {
    const std::string dir = ::testing::TempDir(), cert = dir + "/scenario-cert.pem", key = dir + "/scenario-key.pem";
    const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 "
                             "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " + key + " -out " +
                             cert + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(make.c_str()), 0) << make;
    cimmock::ServerOptions options;
    options.repoDir = cimmock::sampleRepositoryDir();
    options.strict = true;
    options.tlsCertFile = cert;
    options.tlsKeyFile = key;
    cimmock::Server server(options);
    std::string err;
    ASSERT_TRUE(server.start(&err)) << err;

    const struct {
        const char* caFile;
        const char* insecure;
        bool served;
    } cases[] = {{nullptr, nullptr, false}, {cert.c_str(), nullptr, true}, {nullptr, "1", true}};
    ::setenv("CIMXML_WIRE", "standard", 1);
    ::setenv("CIMXML_TLS", "1", 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.caFile ? "CA file" : c.insecure ? "insecure" : "system store");
        c.caFile ? ::setenv("CIMXML_CA_FILE", c.caFile, 1) : ::unsetenv("CIMXML_CA_FILE");
        c.insecure ? ::setenv("CIMXML_TLS_INSECURE", c.insecure, 1) : ::unsetenv("CIMXML_TLS_INSECURE");
        ClientHandle* h = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "user", "secret");
        h->interfaceType = 0;
        ClassName processors = {const_cast<char*>("CIM_Processor"), nullptr};
        Error* error = nullptr;
        InstanceName* names = EnumerateInstanceNames(h, &processors, &error);
        int n = 0;
        for (InstanceName* i = names; i; i = i->next) ++n;
        EXPECT_EQ(n, c.served ? 2 : 0);
        if (c.served) {
            EXPECT_EQ(error, nullptr);
        } else {
            ASSERT_NE(error, nullptr);
            EXPECT_STREQ(error->code, CIMXML_ERROR_TLS) << error->description;
        }
        Free_InstanceName(names);
        Free_Error(error);
        Free_client_Configuration(h);
    }
    for (const char* v : {"CIMXML_WIRE", "CIMXML_TLS", "CIMXML_CA_FILE", "CIMXML_TLS_INSECURE"}) ::unsetenv(v);
    EXPECT_EQ(server.stats().tlsFailures, 1u);
    EXPECT_EQ(server.stats().refused, 0u);
}
