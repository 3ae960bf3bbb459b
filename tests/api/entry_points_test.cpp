// Dispatch of the exported operations: NULL handles, the local back end's
// guards, the values an unknown back end gets, and CIM_GetClass always going
// over HTTP. (The HTTP results themselves are tested in tests/xmlops.)
#include <gtest/gtest.h>

#include <cstdint>

#include "../xmlops/records.h"

namespace {

using opt::className;
using opt::make;

const std::string kClassReply =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1234\" "
    "PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"GetClass\"><IRETURNVALUE><CLASS NAME=\"C\"/>"
    "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";

// A recording server that no call should reach (except CIM_GetClass), and a
// handle pointing at it with the given back end.
class Dispatch : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.start());
        handle_ = client_Configuration("127.0.0.1", server_.port(), "root/cimv2", 5000, "u", "p");
        ASSERT_NE(handle_, nullptr);
    }
    void TearDown() override { Free_client_Configuration(handle_); }

    // Runs every entry point but CIM_GetClass; all must give `expected`
    // (NULL, -1 for invokeMethod), except those listed by the caller.
    void expectNothingFromTheOthers() {
        ClassName* cn = className("C");
        ObjectName* on = make<ObjectName>();
        EXPECT_EQ(CIM_EnumerateClasses(handle_, cn, 1, 1, 1, 1, &error_), nullptr);
        EXPECT_EQ(EnumerateClassNames(handle_, cn, 1, &error_), nullptr);
        EXPECT_EQ(ExecQuery(handle_, "WQL", "SELECT * FROM C", &error_), nullptr);
        EXPECT_EQ(EnumerateInstances(handle_, nullptr, 1, 1, 1, 1, nullptr, &error_), nullptr);
        EXPECT_EQ(EnumerateInstanceNames(handle_, nullptr, &error_), nullptr);
        EXPECT_EQ(Associators(handle_, nullptr, cn, cn, "r", "rr", 1, 1, nullptr, &error_), nullptr);
        EXPECT_EQ(Associators(handle_, on, cn, cn, "r", "rr", 1, 1, nullptr, &error_), nullptr);
        EXPECT_EQ(AssociatorNames(handle_, nullptr, cn, cn, "r", "rr", &error_), nullptr);
        EXPECT_EQ(AssociatorNames(handle_, on, cn, cn, "r", "rr", &error_), nullptr);
        EXPECT_EQ(References(handle_, nullptr, cn, "r", 1, 1, nullptr, &error_), nullptr);
        EXPECT_EQ(References(handle_, on, cn, "r", 1, 1, nullptr, &error_), nullptr);
        Free_ObjectName(on);
        Free_ClassName(cn);
    }

    cimtest::RawServer server_{cimtest::okReply(kClassReply)};
    ClientHandle* handle_ = nullptr;
    Error* error_ = nullptr;
};

TEST_F(Dispatch, NullHandle) {
    ClassName* cn = className("C");
    auto* ni = make<NamedInstance>();
    auto* in = make<InstanceName>();
    ParamValue* out = nullptr;
    EXPECT_EQ(CIM_GetClass(nullptr, cn, 1, 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(CIM_EnumerateClasses(nullptr, cn, 1, 1, 1, 1, &error_), nullptr);
    EXPECT_EQ(EnumerateInstances(nullptr, cn, 1, 1, 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(EnumerateClassNames(nullptr, cn, 1, &error_), nullptr);
    EXPECT_EQ(GetInstance(nullptr, in, 1, 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(EnumerateInstanceNames(nullptr, cn, &error_), nullptr);
    EXPECT_EQ(Associators(nullptr, nullptr, cn, cn, "r", "rr", 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(AssociatorNames(nullptr, nullptr, cn, cn, "r", "rr", &error_), nullptr);
    EXPECT_EQ(References(nullptr, nullptr, cn, "r", 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(ReferenceNames(nullptr, nullptr, cn, "r", &error_), nullptr);
    EXPECT_EQ(CIM_CreateInstance(nullptr, nullptr, &error_), nullptr);
    EXPECT_EQ(ModifyInstance(nullptr, ni, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(DeleteInstance(nullptr, in, &error_), nullptr);
    EXPECT_EQ(invokeMethod(nullptr, in, "M", nullptr, &out, &error_), -1);
    EXPECT_EQ(ExecQuery(nullptr, "WQL", "q", &error_), nullptr);
    EXPECT_EQ(error_, nullptr);
    EXPECT_EQ(server_.finishedConnections(), 0u);
    Free_ClassName(cn);
    Free_NamedInstance(ni);
    Free_InstanceName(in);
}

TEST_F(Dispatch, LocalHandleGuardsAndHttpOnlyOperations) {
    handle_->interfaceType = 1;
    Error* untouched = reinterpret_cast<Error*>(&untouched);
    error_ = untouched;
    expectNothingFromTheOthers();
    ClassName* unnamed = className(nullptr);
    EXPECT_EQ(EnumerateInstances(handle_, unnamed, 1, 1, 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(EnumerateInstanceNames(handle_, unnamed, &error_), nullptr);
    Free_ClassName(unnamed);
    EXPECT_EQ(error_, untouched);
    error_ = nullptr;

    // Modify and Delete hand back the local result code.
    auto* ni = make<NamedInstance>();
    auto* in = make<InstanceName>();
    ParamValue* out = reinterpret_cast<ParamValue*>(&out);
    const std::intptr_t failed = -1;  // what the local back end answers until it exists
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(ModifyInstance(handle_, ni, 1, nullptr, &error_)), failed);
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(DeleteInstance(handle_, in, &error_)), failed);
    EXPECT_EQ(invokeMethod(handle_, in, "M", nullptr, &out, &error_), -1);
    EXPECT_EQ(out, nullptr);
    Free_NamedInstance(ni);
    Free_InstanceName(in);
    EXPECT_EQ(server_.finishedConnections(), 0u);
}

TEST_F(Dispatch, UnknownBackEndGivesTheFixedValues) {
    handle_->interfaceType = 2;
    expectNothingFromTheOthers();
    auto* ni = make<NamedInstance>();
    auto* in = make<InstanceName>();
    ParamValue* out = nullptr;
    EXPECT_EQ(ModifyInstance(handle_, ni, 1, nullptr, &error_), ni);
    EXPECT_EQ(DeleteInstance(handle_, in, &error_), in);
    EXPECT_EQ(GetInstance(handle_, in, 1, 1, 1, nullptr, &error_), nullptr);
    EXPECT_EQ(ReferenceNames(handle_, nullptr, nullptr, nullptr, &error_), nullptr);
    EXPECT_EQ(CIM_CreateInstance(handle_, nullptr, &error_), nullptr);
    EXPECT_EQ(invokeMethod(handle_, in, "M", nullptr, &out, &error_), -1);
    EXPECT_EQ(error_, nullptr);
    EXPECT_EQ(server_.finishedConnections(), 0u);
    Free_NamedInstance(ni);
    Free_InstanceName(in);
}

TEST_F(Dispatch, GetClassGoesOverHttpWhateverTheBackEnd) {
    for (int type : {1, 2}) {
        handle_->interfaceType = type;
        ClassName* cn = className("C");
        Class* cls = CIM_GetClass(handle_, cn, 2, 2, 2, nullptr, &error_);
        ASSERT_NE(cls, nullptr);
        EXPECT_STREQ(cls->name, "C");
        Free_Class(cls);
        Free_ClassName(cn);
    }
    EXPECT_NE(server_.request(1).find("<IMETHODCALL NAME=\"GetClass\">"), std::string::npos);
}

}  // namespace
