// The wire mode and scheme a handle takes when it is made, from the
// environment or from CIMC_SetWireMode, and what that function refuses.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "api/wire.h"
#include "cimxml/client.h"

namespace {

const char* const kVars[] = {"CIMXML_WIRE", "CIMXML_TLS", "CIMXML_TLS_INSECURE", "CIMXML_CA_FILE"};

// "standard tls insecure ca=<file>", the parts that are set.
std::string describe(const ClientHandle* h) {
    cimxml::WireSettings s = cimxml::wireSettingsOf(h);
    return std::string(s.standard ? "standard" : "default") + (s.tls ? " tls" : "") +
           (s.tlsInsecure ? " insecure" : "") + (s.caFile.empty() ? "" : " ca=" + s.caFile);
}

ClientHandle* newHandle() { return client_Configuration("127.0.0.1", 5989, "root/cimv2", 1000, "u", "p"); }

TEST(WireMode, TheEnvironmentCountsWhenTheHandleIsMade) {
    const struct {
        const char* values[4];  // in the order of kVars, NULL unset
        const char* want;
    } cases[] = {
        {{nullptr, nullptr, nullptr, nullptr}, "default"},
        {{"standard", nullptr, nullptr, nullptr}, "standard"},
        {{"Standard", "1", nullptr, "/etc/ca.pem"}, "standard tls ca=/etc/ca.pem"},
        {{"strict", "yes", "true", nullptr}, "default"},  // only "standard" and "1" count
        {{"default", "1", "1", nullptr}, "default tls insecure"},
    };
    for (const char* v : kVars) unsetenv(v);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.want);
        ClientHandle* before = newHandle();
        for (int i = 0; i < 4; ++i)
            c.values[i] ? setenv(kVars[i], c.values[i], 1) : unsetenv(kVars[i]);
        ClientHandle* h = newHandle();
        for (const char* v : kVars) unsetenv(v);
        EXPECT_EQ(describe(h), c.want);
        EXPECT_EQ(describe(before), "default");
        Free_client_Configuration(before);
        Free_client_Configuration(h);
    }
}

TEST(WireMode, SetWireModeChangesOneHandleOrEveryLaterOne) {
    ClientHandle* h = newHandle();
    ClientHandle own{};  // not made by the library
    EXPECT_EQ(CIMC_SetWireMode(h, 2, nullptr), -1);
    EXPECT_EQ(CIMC_SetWireMode(h, CIMXML_WIRE_STANDARD, "ftp"), -1);
    EXPECT_EQ(CIMC_SetWireMode(h, CIMXML_WIRE_FROM_ENVIRONMENT, nullptr), -1);
    EXPECT_EQ(CIMC_SetWireMode(&own, CIMXML_WIRE_STANDARD, nullptr), -1);
    EXPECT_EQ(describe(h), "default");
    EXPECT_EQ(CIMC_SetWireMode(h, CIMXML_WIRE_STANDARD, "HTTPS"), 0);
    EXPECT_EQ(describe(h), "standard tls");
    EXPECT_EQ(CIMC_SetWireMode(h, CIMXML_WIRE_DEFAULT, nullptr), 0);  // the scheme stays
    EXPECT_EQ(describe(h), "default tls");
    Free_client_Configuration(h);

    ASSERT_EQ(CIMC_SetWireMode(nullptr, CIMXML_WIRE_STANDARD, "https"), 0);
    setenv("CIMXML_WIRE", "default", 1);  // code wins over the environment
    h = newHandle();
    EXPECT_EQ(describe(h), "standard tls");
    Free_client_Configuration(h);
    ASSERT_EQ(CIMC_SetWireMode(nullptr, CIMXML_WIRE_DEFAULT, "http"), 0);
    setenv("CIMXML_WIRE", "standard", 1);
    setenv("CIMXML_TLS", "1", 1);
    h = newHandle();
    unsetenv("CIMXML_TLS");
    EXPECT_EQ(describe(h), "default");
    Free_client_Configuration(h);
    ASSERT_EQ(CIMC_SetWireMode(nullptr, CIMXML_WIRE_FROM_ENVIRONMENT, nullptr), 0);
    setenv("CIMXML_WIRE", "standard", 1);
    h = newHandle();
    unsetenv("CIMXML_WIRE");
    EXPECT_EQ(describe(h), "standard");
    Free_client_Configuration(h);
}

}  // namespace
