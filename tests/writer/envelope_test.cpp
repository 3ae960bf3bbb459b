#include <gtest/gtest.h>

#include <string>

#include "model/alloc.h"
#include "tree.h"

using namespace wt;

namespace {

IParamValue* param(const char* name, IParamValue* next = nullptr) { return rec<IParamValue>({{"name", name}, {"next", next}}); }

TEST(Envelope, EnumerateInstancesRequestIsTheWireText) {
    auto* call = rec<IMethodCall>({{"name", "EnumerateInstances"}, {"localNamespacePath", localNamespace({"root", "cimv2"})}});
    // A chain of three parameters, back to back in chain order.
    call->iParamValues = param("ClassName", param("LocalOnly", param("DeepInheritance")));
    call->iParamValues->className = className("CIM_ComputerSystem");
    call->iParamValues->next->value = value("FALSE");
    call->iParamValues->next->next->value = value("TRUE");
    CIM* cim = request(call);

    std::string text = gen(Gen_CIM, cim);
    EXPECT_EQ(text, golden("enumerate_instances.xml"));
    EXPECT_EQ(text.find('\n'), std::string::npos);
    freeRequest(cim);
}

TEST(Envelope, CreateInstanceKeepsThePropertyAttributeForms) {
    auto* call = rec<IMethodCall>({{"name", "CreateInstance"}, {"localNamespacePath", localNamespace({"root", "cimv2"})},
                                   {"iParamValues", param("NewInstance")}});
    Instance* inst = call->iParamValues->instance = instance("CIM_Foo", property("Name", "string", value("x")));
    inst->properties->classOrigin = s("CIM_Foo");
    inst->properties->propagated = 1;
    inst->propertyArrays = propertyArray("List", "uint8", valueArray({"1", "2"}));
    inst->propertyArrays->arraySize = 2;
    inst->propertyArrays->propagated = 1;
    inst->propertyReferences = rec<PropertyReference>(
        {{"name", "Ref"}, {"referenceClass", "CIM_Bar"}, {"propagated", 1},
         {"valueReference", rec<ValueReference>({{"className", className("CIM_Bar")}})}});
    CIM* cim = request(call);

    EXPECT_EQ(gen(Gen_CIM, cim), golden("create_instance.xml"));
    freeRequest(cim);
}

TEST(Envelope, MethodCallWritesArrayBeforeReferenceAndTheMixedCaseClose) {
    auto* setting = rec<ParamValue>({{"name", "Setting"}, {"paramType", "instance"},
                                     {"value", embedded(instance("CIM_Setting", property("Mode", "string", value("fast"))))}});
    auto* targets = rec<ParamValue>({{"name", "Targets"}, {"valueArray", valueArray({"a", "b"})}, {"next", setting},
                                     {"valueReference", rec<ValueReference>({{"className", className("CIM_Target")}})}});
    auto* call = rec<MethodCall>(
        {{"name", "Reboot"},
         {"localInstancePath", rec<LocalInstancePath>({{"localNamespacePath", localNamespace({"root", "cimv2"})},
                                                       {"instanceName", instanceName("CIM_ComputerSystem", "Name", "h1")}})},
         {"paramValues", rec<ParamValue>({{"name", "Delay"}, {"paramType", "uint16"}, {"value", value("5")}, {"next", targets}})},
         {"responseDestination", rec<ResponseDestination>({{"instance", instance("CIM_Listener")}})}});
    CIM* cim = request(nullptr, call);

    Property* mode = setting->value->instance->properties;  // detached by the write, still ours
    EXPECT_EQ(gen(Gen_CIM, cim), golden("invoke_method.xml"));
    Free_CIM(cim);
    Free_Property(mode);
}

TEST(Envelope, MessageWithOnlyExportFieldsIsAnEmptyElement) {
    auto* m = rec<Message>({{"id", "7"}, {"protocolVersion", "1.0"}, {"simpleExpReq", make<SimpleExpReq>()},
                            {"simpleExpRsp", make<SimpleExpRsp>()}});
    EXPECT_EQ(gen(Gen_Message, m), "<MESSAGE ID=\"7\" PROTOCOLVERSION=\"1.0\"></MESSAGE>");
    Free_Message(m);

    // Always-written attributes whose string is missing stay empty.
    auto* e = make<Error>();
    EXPECT_EQ(gen(Gen_Error, e), "<ERROR CODE=\"\" DESCRIPTION=\"\"></ERROR>");
    Free_Error(e);
}

TEST(Envelope, ResponseSideWriters) {
    auto* rsp = make<MultiRsp>();
    rsp->simpleRsps = make<SimpleRsp>();
    rsp->simpleRsps->iMethodResponse = rec<IMethodResponse>(
        {{"name", "EnumerateClassNames"}, {"error", rec<Error>({{"code", "6"}, {"description", "not found"}})},
         {"iReturnValue", rec<IReturnValue>({{"className", className("A", className("B"))}})}});  // bare quoted names
    rsp->simpleRsps->methodResponse = rec<MethodResponse>(
        {{"name", "M"}, {"returnValue", rec<ReturnValue>({{"paramType", "uint32"}, {"value", value("0")}})}});
    rsp->simpleRsps->simpleReqAck = make<SimpleReqAck>();  // never written

    EXPECT_EQ(gen(Gen_MultiRsp, rsp), golden("multi_rsp.xml"));
    Free_MultiRsp(rsp);
}

TEST(Frame, NullRecordLeavesTheCallersPointerAlone) {
    char* text = nullptr;
    EXPECT_EQ(Gen_CIM(nullptr, &text), 0);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(Gen_Instance(nullptr, &text), 0);
    EXPECT_EQ(Gen_CIMName(nullptr, &text), 0);
    EXPECT_EQ(text, nullptr);

    char* kept = s("abc");
    text = kept;
    EXPECT_EQ(Gen_Value(nullptr, &text), 0);
    EXPECT_EQ(text, kept);
    EXPECT_STREQ(text, "abc");
    std::free(kept);

    // A NULL text address is refused, not dereferenced.
    auto* n = make<Namespace>();
    EXPECT_EQ(Gen_Namespace(n, nullptr), 0);
    Free_Namespace(n);
}

TEST(Frame, AppendsAfterTheCallersText) {
    char* text = s("prefix:");
    auto* n = make<Namespace>();
    n->name = s("root");
    ASSERT_EQ(Gen_Namespace(n, &text), 0);
    ASSERT_EQ(Gen_CIMName("x", &text), 0);
    ASSERT_EQ(Gen_CIMType("uint8", &text), 0);
    EXPECT_STREQ(text, "prefix:<NAMESPACE NAME=\"root\"/>\"x\" TYPE=\"uint8\"");
    std::free(text);
    Free_Namespace(n);
}

TEST(Frame, FailedAllocationLeavesTheTextAsItWas) {
    // Two large values: after a failure, the second must not be written either.
    Value* big = value(std::string(100000, 'v').c_str(), value(std::string(300000, 'w').c_str()));
    const std::string whole = "keep<VALUE>" + std::string(100000, 'v') + "</VALUE><VALUE>" + std::string(300000, 'w') +
                              "</VALUE>";
    for (long failAt = 0; failAt < 4; ++failAt) {
        char* text = s("keep");
        char* fresh = nullptr;
        cimxml::g_allocFailCountdown = failAt;
        EXPECT_EQ(Gen_Value(big, &text), 0);
        cimxml::g_allocFailCountdown = failAt;
        EXPECT_EQ(Gen_Value(big, &fresh), 0);
        cimxml::g_allocFailCountdown = -1;
        EXPECT_TRUE(std::string(text) == "keep" || std::string(text) == whole) << failAt;
        EXPECT_TRUE(!fresh || std::string(fresh) == whole.substr(4)) << failAt;
        std::free(text);
        std::free(fresh);
    }
    Free_Value(big);
}

TEST(FrameDeathTest, GenCimExitsWithSuccessWhenItsFirstAllocationFails) {
    CIM* cim = request(nullptr);
    EXPECT_EXIT(
        {
            cimxml::g_allocFailCountdown = 0;
            char* text = nullptr;
            Gen_CIM(cim, &text);
            std::abort();
        },
        ::testing::ExitedWithCode(0), "");
    Free_CIM(cim);
}

}  // namespace
