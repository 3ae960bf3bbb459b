// Free and Clone over every record kind, and the few functions whose reach
// differs from "everything the record owns". The sanitizer build turns a
// leak, a double free or a read of freed memory here into a failure.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"
#include "model/record_table.h"
#include "tree_builder.h"

using cimxml::model::describe;
using cimxml::model::freeRecord;
using cimxml::model::RecordId;

namespace {

template <typename T>
T* make() {
    return static_cast<T*>(calloc(1, sizeof(T)));
}
template <typename T>
T* built(int depth, int chain = 1) {
    return static_cast<T*>(testtree::build(cimxml::model::RecordIdOf<T>::value, depth, chain));
}

TEST(Free, EveryRecordKindReleasesEverythingItOwns) {
    for (int i = 0; i < static_cast<int>(RecordId::Count); ++i)
        freeRecord(static_cast<RecordId>(i), testtree::build(static_cast<RecordId>(i), 3));
    EXPECT_EQ(Free_CIM(nullptr), 0);
}

// Parameters borrow their records; the _New variants free only what the
// operations allocate (the first node of an instance name, a parameter's
// Value node and its text).
TEST(Free, BorrowedRecordsStayTheCallers) {
    auto* instance = built<Instance>(2);
    auto* cls = built<ClassName>(0);
    const std::string clsName = cls->name;
    IParamValue* params = nullptr;
    for (int i = 0; i < 3; ++i) {
        auto* p = make<IParamValue>();
        p->name = strdup("P");
        p->next = params;
        params = p;
    }
    params->instance = instance;
    params->next->value = make<Value>();
    params->next->value->value = strdup("TRUE");
    params->next->value->instance = instance;
    params->next->next->className = cls;
    Free_IParamValue_New(params);
    auto* borrowing = make<IParamValue>();
    borrowing->className = cls;
    borrowing->instance = instance;
    Free_IParamValue(borrowing);
    EXPECT_EQ(cls->name, clsName);
    EXPECT_NE(instance->className, nullptr);
    Free_Instance(instance);
    Free_ClassName(cls);

    auto* first = built<InstanceName>(2, 2);
    InstanceName* second = first->next;
    Free_InstanceName_New(first);
    ASSERT_NE(second->className, nullptr);
    EXPECT_NE(second->className->name, nullptr);
    Free_InstanceName(second);
}

// The envelope goes; the result, the error and the request's parameters and
// instance name were handed out and stay.
TEST(Free, HeaderLeavesWhatWasHandedOut) {
    auto* cim = built<CIM>(0);
    cim->message = built<Message>(0);
    auto* rsp = cim->message->simpleRsp = make<SimpleRsp>();
    rsp->iMethodResponse = built<IMethodResponse>(0);
    rsp->iMethodResponse->iReturnValue = make<IReturnValue>();
    auto* result = rsp->iMethodResponse->iReturnValue->namedInstance = built<NamedInstance>(3, 2);
    auto* error = rsp->iMethodResponse->error = built<Error>(2);
    rsp->methodResponse = built<MethodResponse>(0);
    auto* req = cim->message->simpleReq = make<SimpleReq>();
    req->iMethodCall = built<IMethodCall>(0);
    req->iMethodCall->localNamespacePath = built<LocalNamespacePath>(1, 2);
    auto* params = req->iMethodCall->iParamValues = built<IParamValue>(0);
    req->methodCall = built<MethodCall>(0);
    req->methodCall->localInstancePath = make<LocalInstancePath>();
    req->methodCall->localInstancePath->localNamespacePath = built<LocalNamespacePath>(1);
    auto* name = req->methodCall->localInstancePath->instanceName = built<InstanceName>(2);

    EXPECT_EQ(Free_Header(cim), 0);
    EXPECT_EQ(Free_Header(nullptr), 0);
    EXPECT_TRUE(result->instance && result->next && error->code && params->name && name->className);
    Free_NamedInstance(result);
    Free_Error(error);
    Free_IParamValue_New(params);
    Free_InstanceName(name);
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
        const std::string expected = testtree::dump(c.id, original, true);
        freeRecord(c.id, original);  // the copy outlives it: the sanitizer sees anything shared
        EXPECT_EQ(testtree::dump(c.id, copy), expected) << describe(c.id).name;
        freeRecord(c.id, copy);
    }
}

TEST(Clone, NullsAndTextFamilies) {
    Property* dst = reinterpret_cast<Property*>(0x1);
    EXPECT_EQ(Clone_Property(nullptr, &dst), 0);
    EXPECT_EQ(dst, nullptr);
    Property p{};
    EXPECT_EQ(Clone_Property(&p, nullptr), -1);
    // Deliberate: a class origin or reference class keeps its first character only.
    const std::pair<int (*)(const char*, char**), const char*> texts[] = {
        {Clone_CIMName, "CIM_System"}, {Clone_ReferenceClass, "C"}, {Clone_ClassOrigin, "C"}};
    for (const auto& [clone, expected] : texts) {
        char* s = reinterpret_cast<char*>(0x1);
        EXPECT_EQ(clone(nullptr, &s), 0);
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(clone("CIM_System", nullptr), -1);
        ASSERT_EQ(clone("CIM_System", &s), 0);
        EXPECT_STREQ(s, expected);
        free(s);
    }
}

// Fails the Nth allocation for every N until the clone succeeds: each
// failure must return -1 and leave a partial copy that frees cleanly.
TEST(Clone, EveryAllocationFailureLeavesAFreeablePartialCopy) {
    auto* original = built<NamedInstance>(3, 2);
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
