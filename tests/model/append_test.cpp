// The AddTo*List family: what is copied, what is taken over, what stays the
// caller's, on success and at every failed allocation.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"

namespace {

Namespace* newNamespace(const char* name) {
    auto* ns = static_cast<Namespace*>(calloc(1, sizeof(Namespace)));
    ns->name = strdup(name);
    return ns;
}

TEST(AddToProeprtyList, RewritesExactBooleanWordsInTheCallersBuffer) {
    Property* list = nullptr;
    char t[6] = "true", f[6] = "false", mixed[6] = "True";
    ASSERT_EQ(AddToProeprtyList(&list, "A", t, "boolean"), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "B", f, "boolean"), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "C", mixed, nullptr), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "E", nullptr, "string"), 0);
    EXPECT_STREQ(t, "TRUE");
    EXPECT_STREQ(f, "FALSE");
    EXPECT_STREQ(mixed, "True");
    Property* p = list;
    EXPECT_STREQ(p->value->value, "TRUE");
    EXPECT_STREQ((p = p->next)->value->value, "FALSE");
    EXPECT_EQ((p = p->next)->type, nullptr);
    EXPECT_STREQ(p->value->value, "True");
    p = p->next;
    EXPECT_TRUE(!strcmp(p->name, "E") && !strcmp(p->type, "string") && !p->value && !p->next);
    Free_Property(list);
}

TEST(AddToInstanceNameList, TakesClassAndKeysOnlyWithANamedClass) {
    InstanceName* list = nullptr;
    KeyBinding* keys = nullptr;
    ASSERT_EQ(AddToKeyBindingListRef(&keys, "Name", "host1", "string", nullptr), 0);
    auto* cn = static_cast<ClassName*>(calloc(1, sizeof(ClassName)));
    cn->name = strdup("CIM_ComputerSystem");
    ASSERT_EQ(AddToInstanceNameList(&list, keys, cn), 0);
    auto* unnamed = static_cast<ClassName*>(calloc(1, sizeof(ClassName)));
    ASSERT_EQ(AddToInstanceNameList(&list, nullptr, unnamed), 0);
    ASSERT_NE(list->next, nullptr);
    EXPECT_EQ(list->next->className, nullptr);  // appended empty
    EXPECT_STREQ(list->keyBindings->keyValue->value, "host1");
    EXPECT_STREQ(list->keyBindings->keyValue->valueType, "string");
    Free_InstanceName(list);
    Free_ClassName(unnamed);  // not taken over
}

// A reference key's path is root plus the tail of the namespace from its
// first "interop", else its first "cimv2", in 32-byte blocks.
TEST(AddToKeyBindingList, ReferenceKeysGetRootPlusTheNamespaceTail) {
    const std::pair<const char*, const char*> cases[] = {
        {"root/interop", "interop"},       {"root/cimv2/extra", "cimv2/extra"}, {"x/cimv2-interop", "interop"},
        {"root/other", ""},                {nullptr, ""},
        {"root/cimv2_with_a_very_long_tail_that_does_not_fit", "cimv2_with_a_very_long_tail_tha"},
    };
    for (const auto& [text, tail] : cases) {
        SCOPED_TRACE(text ? text : "NULL");
        KeyBinding* refKeys = nullptr;
        ASSERT_EQ(AddToKeyBindingListRef(&refKeys, "CreationClassName", "Linux_CS", "string", nullptr), 0);
        KeyBinding* list = nullptr;
        ASSERT_EQ(AddToKeyBindingList(&list, "Antecedent", nullptr, nullptr, "Linux_CS", text, refKeys), 0);
        ASSERT_TRUE(list->valueReference && list->valueReference->localInstancePath);
        EXPECT_EQ(list->keyValue, nullptr);
        LocalInstancePath* path = list->valueReference->localInstancePath;
        Namespace* ns = path->localNamespacePath->namespaces;
        EXPECT_STREQ(ns->name, "root");
        ASSERT_NE(ns->next, nullptr);
        EXPECT_STREQ(ns->next->name, tail);
        EXPECT_EQ(ns->next->next, nullptr);
        EXPECT_STREQ(path->instanceName->className->name, "Linux_CS");
        EXPECT_EQ(path->instanceName->keyBindings, refKeys);
        Free_KeyBinding(list);
    }
}

TEST(AddToPropertyReferenceList, FillsTheReferenceOnlyWithANamespace) {
    PropertyReference* list = nullptr;
    KeyBinding* keys = nullptr;
    ASSERT_EQ(AddToKeyBindingListRef(&keys, "Name", "sys", "string", nullptr), 0);
    Namespace* nsChain = newNamespace("root/cimv2");
    Namespace* rest = nsChain->next = newNamespace("cut off");
    ASSERT_EQ(AddToPropertyReferenceList(&list, keys, nsChain, "CIM_System", "GroupComponent"), 0);
    EXPECT_STREQ(list->name, "GroupComponent");
    EXPECT_STREQ(list->referenceClass, "CIM_System");
    LocalInstancePath* path = list->valueReference->localInstancePath;
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->localNamespacePath->namespaces, nsChain);
    EXPECT_EQ(nsChain->next, nullptr);  // cut after the first node
    EXPECT_STREQ(path->instanceName->className->name, "CIM_System");
    EXPECT_EQ(path->instanceName->keyBindings, keys);

    KeyBinding* keys2 = nullptr;
    ASSERT_EQ(AddToKeyBindingListRef(&keys2, "Name", "sys", "string", nullptr), 0);
    ASSERT_EQ(AddToPropertyReferenceList(&list, keys2, nullptr, "CIM_System", nullptr), 0);
    ASSERT_NE(list->next->valueReference, nullptr);
    EXPECT_EQ(list->next->valueReference->localInstancePath, nullptr);  // stays empty
    EXPECT_EQ(list->next->name, nullptr);
    Free_PropertyReference(list);
    // What the call left with the caller is still whole, and the caller frees it.
    EXPECT_STREQ(rest->name, "cut off");
    EXPECT_STREQ(keys2->keyValue->value, "sys");
    Free_Namespace(rest);
    Free_KeyBinding(keys2);
}

// Every append fails cleanly at every allocation: -1, what was linked frees
// without a leak or a double free, and records handed in are attached only
// on success (after a failure they are still the caller's).
TEST(AddToList, AllocationFailuresAreReportedAndFreeable) {
    auto failingAt = [](long n, auto call) {
        cimxml::g_allocFailCountdown = n;
        int rc = call();
        cimxml::g_allocFailCountdown = -1;
        EXPECT_TRUE(rc == 0 || rc == -1) << rc;
        return rc;
    };
    for (long n = 0, rc = -1; rc != 0; ++n) {
        ASSERT_LT(n, 1000);
        KeyBinding *list = nullptr, *refKeys = nullptr;
        ASSERT_EQ(AddToKeyBindingListRef(&refKeys, "Name", "x", "string", nullptr), 0);
        rc = failingAt(n, [&] { return AddToKeyBindingList(&list, "Ref", "v", "string", "CIM_X", "root/cimv2", refKeys); });
        const LocalInstancePath* path = list && list->valueReference ? list->valueReference->localInstancePath : nullptr;
        if (rc == 0) {
            ASSERT_TRUE(path && path->localNamespacePath->namespaces->next && path->instanceName->className);
            EXPECT_STREQ(path->localNamespacePath->namespaces->next->name, "cimv2");
            EXPECT_STREQ(path->instanceName->className->name, "CIM_X");
            EXPECT_EQ(path->instanceName->keyBindings, refKeys);
        } else {
            EXPECT_TRUE(!list || !list->valueReference);
            Free_KeyBinding(refKeys);
        }
        Free_KeyBinding(list);
    }
    for (long n = 0, rc = -1; rc != 0; ++n) {
        ASSERT_LT(n, 1000);
        Property* list = nullptr;
        char value[] = "true";
        rc = failingAt(n, [&] { return AddToProeprtyList(&list, "P", value, "boolean"); });
        Free_Property(list);
    }
    for (long n = 0, rc = -1; rc != 0; ++n) {
        ASSERT_LT(n, 1000);
        PropertyReference* list = nullptr;
        KeyBinding* keys = nullptr;
        ASSERT_EQ(AddToKeyBindingListRef(&keys, "Name", "x", "string", nullptr), 0);
        Namespace* ns = newNamespace("root/cimv2");
        rc = failingAt(n, [&] { return AddToPropertyReferenceList(&list, keys, ns, "CIM_X", "Ref"); });
        if (rc == 0) {
            const LocalInstancePath* path = list->valueReference ? list->valueReference->localInstancePath : nullptr;
            ASSERT_TRUE(path && path->instanceName && path->instanceName->className);
            EXPECT_EQ(path->instanceName->keyBindings, keys);
            EXPECT_EQ(path->localNamespacePath->namespaces, ns);
        } else {
            Free_KeyBinding(keys);
            Free_Namespace(ns);
        }
        Free_PropertyReference(list);
    }
}

}  // namespace
