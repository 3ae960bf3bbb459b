#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"
#include "model/record_table.h"
#include "tree_builder.h"

using cimxml::model::describe;
using cimxml::model::RecordId;

namespace {

char* dup(const char* s) { return strdup(s); }

// The sanitizer build turns any leak in these frees into a failure.
TEST(Free, EveryRecordKindReleasesEverythingItOwns) {
    for (int i = 0; i < static_cast<int>(RecordId::Count); ++i) {
        auto id = static_cast<RecordId>(i);
        if (id == RecordId::IParamValue) continue;  // borrows its values: covered below
        void* tree = testtree::build(id, 3);
        cimxml::model::freeRecord(id, tree);
    }
    EXPECT_EQ(Free_CIM(nullptr), 0);
}

TEST(Free, IParamValueLeavesBorrowedRecordsAlone) {
    ClassName* borrowed = static_cast<ClassName*>(calloc(1, sizeof(ClassName)));
    borrowed->name = dup("CIM_Foo");
    IParamValue* p = static_cast<IParamValue*>(calloc(1, sizeof(IParamValue)));
    p->name = dup("ClassName");
    p->className = borrowed;
    Free_IParamValue(p);
    EXPECT_STREQ(borrowed->name, "CIM_Foo");  // still alive
    Free_ClassName(borrowed);
}

TEST(Free, InstanceNameNewSparesTheRestOfTheChain) {
    auto* first = static_cast<InstanceName*>(testtree::build(RecordId::InstanceName, 2, 2));
    InstanceName* second = first->next;
    Free_InstanceName_New(first);
    ASSERT_NE(second->className, nullptr);
    EXPECT_NE(second->className->name, nullptr);
    Free_InstanceName(second);  // frees the remaining chain
}

TEST(Free, IParamValueNewFreesOnlyWhatTheOperationsAllocate) {
    Instance* callerInstance = static_cast<Instance*>(testtree::build(RecordId::Instance, 2, 1));
    ClassName* callerClass = static_cast<ClassName*>(testtree::build(RecordId::ClassName, 0, 1));
    IParamValue* params = nullptr;
    for (const char* name : {"ClassName", "LocalOnly", "NewInstance"}) {
        auto* p = static_cast<IParamValue*>(calloc(1, sizeof(IParamValue)));
        p->name = dup(name);
        p->next = params;
        params = p;
    }
    params->instance = callerInstance;           // borrowed
    params->next->value = static_cast<Value*>(calloc(1, sizeof(Value)));
    params->next->value->value = dup("TRUE");
    params->next->value->instance = callerInstance;  // not the Value's to free
    params->next->next->className = callerClass;
    Free_IParamValue_New(params);
    EXPECT_NE(callerInstance->className, nullptr);
    EXPECT_NE(callerClass->name, nullptr);
    Free_Instance(callerInstance);
    Free_ClassName(callerClass);
}

TEST(FreeHeader, LeavesTheReturnValueChildrenAndFreesTheBareNode) {
    auto* cim = static_cast<CIM*>(calloc(1, sizeof(CIM)));
    cim->cimVersion = dup("2.0");
    cim->dtdVersion = dup("2.0");
    cim->message = static_cast<Message*>(calloc(1, sizeof(Message)));
    cim->message->id = dup("1234");
    cim->message->protocolVersion = dup("1.0");
    auto* rsp = static_cast<SimpleRsp*>(calloc(1, sizeof(SimpleRsp)));
    cim->message->simpleRsp = rsp;
    rsp->iMethodResponse = static_cast<IMethodResponse*>(calloc(1, sizeof(IMethodResponse)));
    rsp->iMethodResponse->name = dup("EnumerateInstances");
    auto* irv = static_cast<IReturnValue*>(calloc(1, sizeof(IReturnValue)));
    rsp->iMethodResponse->iReturnValue = irv;
    auto* result = static_cast<NamedInstance*>(testtree::build(RecordId::NamedInstance, 3, 2));
    irv->namedInstance = result;
    auto* error = static_cast<Error*>(testtree::build(RecordId::Error, 2, 1));
    rsp->iMethodResponse->error = error;

    EXPECT_EQ(Free_Header(cim), 0);
    EXPECT_EQ(Free_Header(nullptr), 0);
    // The result and the error were handed out: both must still be intact.
    EXPECT_NE(result->instance, nullptr);
    EXPECT_NE(result->next, nullptr);
    EXPECT_NE(error->code, nullptr);
    Free_NamedInstance(result);
    Free_Error(error);
}

TEST(FreeHeader, RequestEnvelopeKeepsTheCallersParameters) {
    auto* cim = static_cast<CIM*>(calloc(1, sizeof(CIM)));
    cim->message = static_cast<Message*>(calloc(1, sizeof(Message)));
    auto* req = static_cast<SimpleReq*>(calloc(1, sizeof(SimpleReq)));
    cim->message->simpleReq = req;
    req->iMethodCall = static_cast<IMethodCall*>(calloc(1, sizeof(IMethodCall)));
    req->iMethodCall->name = dup("GetInstance");
    req->iMethodCall->localNamespacePath =
        static_cast<LocalNamespacePath*>(testtree::build(RecordId::LocalNamespacePath, 1, 2));
    auto* params = static_cast<IParamValue*>(calloc(1, sizeof(IParamValue)));
    params->name = dup("InstanceName");
    req->iMethodCall->iParamValues = params;
    req->methodCall = static_cast<MethodCall*>(calloc(1, sizeof(MethodCall)));
    req->methodCall->name = dup("Reset");
    req->methodCall->localInstancePath = static_cast<LocalInstancePath*>(calloc(1, sizeof(LocalInstancePath)));
    req->methodCall->localInstancePath->localNamespacePath =
        static_cast<LocalNamespacePath*>(testtree::build(RecordId::LocalNamespacePath, 1, 1));
    auto* callerName = static_cast<InstanceName*>(testtree::build(RecordId::InstanceName, 2, 1));
    req->methodCall->localInstancePath->instanceName = callerName;

    Free_Header(cim);
    EXPECT_STREQ(params->name, "InstanceName");
    EXPECT_NE(callerName->className, nullptr);
    Free_IParamValue_New(params);
    Free_InstanceName(callerName);
}

TEST(Clone, EveryClonableRecordIsDeepAndIndependent) {
    struct Case {
        RecordId id;
        int (*clone)(const void*, void**);
    };
#define CASE(T) \
    Case{RecordId::T, [](const void* s, void** d) { return Clone_##T(static_cast<const T*>(s), reinterpret_cast<T**>(d)); }}
    const Case cases[] = {CASE(QualifierFlavor), CASE(ClassName),         CASE(Namespace),
                          CASE(LocalNamespacePath), CASE(NamespacePath),  CASE(ClassPath),
                          CASE(LocalClassPath),  CASE(KeyValue),          CASE(KeyBinding),
                          CASE(InstanceName),    CASE(LocalInstancePath), CASE(InstancePath),
                          CASE(ValueReference),  CASE(PropertyReference), CASE(Instance),
                          CASE(Value),           CASE(ValueArray),        CASE(Qualifier),
                          CASE(PropertyArray),   CASE(Property),          CASE(NamedInstance)};
#undef CASE
    for (const Case& c : cases) {
        void* original = testtree::build(c.id, 3, 3);
        void* copy = reinterpret_cast<void*>(1);
        ASSERT_EQ(c.clone(original, &copy), 0) << describe(c.id).name;
        std::string why;
        EXPECT_TRUE(testtree::sameAsClone(c.id, original, copy, &why)) << why;
        cimxml::model::freeRecord(c.id, original);
        // The copy must survive its original (the sanitizer sees any sharing).
        void* again = nullptr;
        ASSERT_EQ(c.clone(copy, &again), 0);
        cimxml::model::freeRecord(c.id, copy);
        cimxml::model::freeRecord(c.id, again);
    }
}

TEST(Clone, NullArguments) {
    Property* dst = reinterpret_cast<Property*>(0x1);
    EXPECT_EQ(Clone_Property(nullptr, &dst), 0);
    EXPECT_EQ(dst, nullptr);
    Property p{};
    EXPECT_EQ(Clone_Property(&p, nullptr), -1);
    char* s = nullptr;
    EXPECT_EQ(Clone_CIMName(nullptr, &s), 0);
    EXPECT_EQ(Clone_CIMName("x", nullptr), -1);
}

TEST(Clone, ReferenceClassKeepsOnlyItsFirstCharacter) {
    char* ref = nullptr;
    ASSERT_EQ(Clone_ReferenceClass("CIM_System", &ref), 0);
    EXPECT_STREQ(ref, "C");
    free(ref);
}

TEST(Clone, PropertyReferenceChainLosesItsNames) {
    PropertyReference* chain = nullptr;
    for (const char* name : {"Antecedent", "Dependent"})
        ASSERT_EQ(AddToPropertyReferenceList(&chain, nullptr, nullptr, "CIM_System", name), 0);
    PropertyReference* copy = nullptr;
    ASSERT_EQ(Clone_PropertyReference(chain, &copy), 0);
    ASSERT_NE(copy->next, nullptr);
    EXPECT_EQ(copy->name, nullptr);
    EXPECT_EQ(copy->next->name, nullptr);
    EXPECT_EQ(copy->next->referenceClass[0], 'C');
    Free_PropertyReference(chain);
    Free_PropertyReference(copy);
}

// Fails the Nth allocation for every N until the clone succeeds: each
// failure must return -1 and leave a partial copy that frees cleanly.
TEST(Clone, EveryAllocationFailureLeavesAFreeablePartialCopy) {
    auto* original = static_cast<NamedInstance*>(testtree::build(RecordId::NamedInstance, 3, 2));
    for (long n = 0;; ++n) {
        NamedInstance* copy = nullptr;
        cimxml::g_allocFailCountdown = n;
        int rc = Clone_NamedInstance(original, &copy);
        cimxml::g_allocFailCountdown = -1;
        Free_NamedInstance(copy);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        ASSERT_LT(n, 100000);
    }
    Free_NamedInstance(original);
}

}  // namespace
