#include <gtest/gtest.h>

#include <string>

#include "model/alloc.h"
#include "tree.h"

using namespace wt;

namespace {

IParamValue* param(const char* name, IParamValue* next = nullptr) {
    auto* p = make<IParamValue>();
    p->name = s(name);
    p->next = next;
    return p;
}

TEST(Envelope, EnumerateInstancesRequestIsTheWireText) {
    auto* call = make<IMethodCall>();
    call->name = s("EnumerateInstances");
    call->localNamespacePath = localNamespace({"root", "cimv2"});
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
    auto* call = make<IMethodCall>();
    call->name = s("CreateInstance");
    call->localNamespacePath = localNamespace({"root", "cimv2"});
    call->iParamValues = param("NewInstance");
    Instance* inst = instance("CIM_Foo", property("Name", "string", value("x")));
    inst->properties->classOrigin = s("CIM_Foo");
    inst->properties->propagated = 1;
    inst->propertyArrays = propertyArray("List", "uint8", valueArray({"1", "2"}));
    inst->propertyArrays->arraySize = 2;
    inst->propertyArrays->propagated = 1;
    inst->propertyReferences = make<PropertyReference>();
    inst->propertyReferences->name = s("Ref");
    inst->propertyReferences->referenceClass = s("CIM_Bar");
    inst->propertyReferences->propagated = 1;
    inst->propertyReferences->valueReference = make<ValueReference>();
    inst->propertyReferences->valueReference->className = className("CIM_Bar");
    call->iParamValues->instance = inst;
    CIM* cim = request(call);

    EXPECT_EQ(gen(Gen_CIM, cim), golden("create_instance.xml"));
    freeRequest(cim);
}

TEST(Envelope, MethodCallWritesArrayBeforeReferenceAndTheMixedCaseClose) {
    auto* call = make<MethodCall>();
    call->name = s("Reboot");
    call->localInstancePath = make<LocalInstancePath>();
    call->localInstancePath->localNamespacePath = localNamespace({"root", "cimv2"});
    call->localInstancePath->instanceName = instanceName("CIM_ComputerSystem", "Name", "h1");
    auto* delay = make<ParamValue>();
    delay->name = s("Delay");
    delay->paramType = s("uint16");
    delay->value = value("5");
    auto* targets = make<ParamValue>();
    targets->name = s("Targets");
    targets->valueReference = make<ValueReference>();
    targets->valueReference->className = className("CIM_Target");
    targets->valueArray = valueArray({"a", "b"});
    auto* setting = make<ParamValue>();
    setting->name = s("Setting");
    setting->paramType = s("instance");
    setting->value = embedded(instance("CIM_Setting", property("Mode", "string", value("fast"))));
    call->paramValues = delay;
    delay->next = targets;
    targets->next = setting;
    call->responseDestination = make<ResponseDestination>();
    call->responseDestination->instance = instance("CIM_Listener");
    CIM* cim = request(nullptr, call);

    Property* mode = setting->value->instance->properties;  // detached by the write, still ours
    EXPECT_EQ(gen(Gen_CIM, cim), golden("invoke_method.xml"));
    Free_CIM(cim);
    Free_Property(mode);
}

TEST(Envelope, MessageWithOnlyExportFieldsIsAnEmptyElement) {
    auto* m = make<Message>();
    m->id = s("7");
    m->protocolVersion = s("1.0");
    m->simpleExpReq = make<SimpleExpReq>();
    m->simpleExpRsp = make<SimpleExpRsp>();
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
    auto* imr = rsp->simpleRsps->iMethodResponse = make<IMethodResponse>();
    imr->name = s("EnumerateClassNames");
    imr->error = make<Error>();
    imr->error->code = s("6");
    imr->error->description = s("not found");
    imr->iReturnValue = make<IReturnValue>();
    imr->iReturnValue->className = className("A", className("B"));  // bare quoted names
    auto* mr = rsp->simpleRsps->methodResponse = make<MethodResponse>();
    mr->name = s("M");
    mr->returnValue = make<ReturnValue>();
    mr->returnValue->paramType = s("uint32");
    mr->returnValue->value = value("0");
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
    Value* big = value(std::string(100000, 'v').c_str());
    const std::string whole = "keep<VALUE>" + std::string(100000, 'v') + "</VALUE>";
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
