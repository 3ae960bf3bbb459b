#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"

namespace {

TEST(AddToProeprtyList, RewritesExactBooleanWordsInTheCallersBuffer) {
    Property* list = nullptr;
    char t[6] = "true", f[6] = "false", mixed[6] = "True", other[6] = "yes";
    ASSERT_EQ(AddToProeprtyList(&list, "A", t, "boolean"), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "B", f, "boolean"), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "C", mixed, "boolean"), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "D", other, nullptr), 0);
    ASSERT_EQ(AddToProeprtyList(&list, "E", nullptr, "string"), 0);
    EXPECT_STREQ(t, "TRUE");
    EXPECT_STREQ(f, "FALSE");
    EXPECT_STREQ(mixed, "True");
    Property* p = list;
    EXPECT_STREQ(p->value->value, "TRUE");
    EXPECT_STREQ((p = p->next)->value->value, "FALSE");
    EXPECT_STREQ((p = p->next)->value->value, "True");
    EXPECT_EQ((p = p->next)->type, nullptr);
    p = p->next;
    EXPECT_STREQ(p->name, "E");
    EXPECT_EQ(p->value, nullptr);
    EXPECT_EQ(p->next, nullptr);
    Free_Property(list);
}

TEST(AddToInstanceNameList, StoresClassAndKeysOnlyWithANamedClass) {
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

struct NamespaceCase {
    const char* text;
    const char* second;
};

class KeyBindingReference : public ::testing::TestWithParam<NamespaceCase> {};

TEST_P(KeyBindingReference, BuildsRootPlusTheNamespaceTail) {
    KeyBinding* refKeys = nullptr;
    ASSERT_EQ(AddToKeyBindingListRef(&refKeys, "CreationClassName", "Linux_CS", "string", nullptr), 0);
    KeyBinding* list = nullptr;
    ASSERT_EQ(AddToKeyBindingList(&list, "Antecedent", nullptr, nullptr, "Linux_CS", GetParam().text, refKeys), 0);
    ASSERT_NE(list->valueReference, nullptr);
    EXPECT_EQ(list->keyValue, nullptr);
    LocalInstancePath* path = list->valueReference->localInstancePath;
    ASSERT_NE(path, nullptr);
    Namespace* ns = path->localNamespacePath->namespaces;
    EXPECT_STREQ(ns->name, "root");
    ASSERT_NE(ns->next, nullptr);
    EXPECT_STREQ(ns->next->name, GetParam().second);
    EXPECT_EQ(ns->next->next, nullptr);
    EXPECT_STREQ(path->instanceName->className->name, "Linux_CS");
    EXPECT_EQ(path->instanceName->keyBindings, refKeys);
    Free_KeyBinding(list);
}

INSTANTIATE_TEST_SUITE_P(
    Namespaces, KeyBindingReference,
    ::testing::Values(NamespaceCase{"root/interop", "interop"}, NamespaceCase{"root/cimv2", "cimv2"},
                      NamespaceCase{"root/other", ""}, NamespaceCase{nullptr, ""},
                      NamespaceCase{"root/cimv2/extra", "cimv2/extra"},
                      NamespaceCase{"x/interop-cimv2", "interop-cimv2"},
                      // Names live in 32-byte blocks: a longer tail keeps 31 bytes.
                      NamespaceCase{"root/cimv2_with_a_very_long_tail_that_does_not_fit",
                                    "cimv2_with_a_very_long_tail_tha"}));

TEST(AddToKeyBindingList, WithoutReferenceKeysBuildsAPlainBinding) {
    KeyBinding* list = nullptr;
    ASSERT_EQ(AddToKeyBindingList(&list, "DeviceID", "cpu0", "string", "CIM_Processor", "root/cimv2", nullptr), 0);
    EXPECT_EQ(list->valueReference, nullptr);
    EXPECT_STREQ(list->keyValue->value, "cpu0");
    Free_KeyBinding(list);
}

TEST(AddToPropertyReferenceList, FillsTheReferenceOnlyWithANamespace) {
    PropertyReference* list = nullptr;
    KeyBinding* keys = nullptr;
    ASSERT_EQ(AddToKeyBindingListRef(&keys, "Name", "sys", "string", nullptr), 0);
    Namespace* nsChain = nullptr;
    nsChain = static_cast<Namespace*>(calloc(1, sizeof(Namespace)));
    nsChain->name = strdup("root/cimv2");
    Namespace* rest = nsChain->next = static_cast<Namespace*>(calloc(1, sizeof(Namespace)));
    rest->name = strdup("cut off");
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
    // What the call left with the caller is still whole (the sanitizer build
    // turns a freed record into a failure here) and the caller frees it.
    EXPECT_STREQ(rest->name, "cut off");
    EXPECT_STREQ(keys2->name, "Name");
    EXPECT_STREQ(keys2->keyValue->value, "sys");
    Free_Namespace(rest);
    Free_KeyBinding(keys2);
}

// Every append fails cleanly at every allocation: -1, and what was linked
// frees without a leak or a double free.
TEST(AddToList, AllocationFailuresAreReportedAndFreeable) {
    for (long n = 0;; ++n) {
        KeyBinding* list = nullptr;
        KeyBinding* refKeys = nullptr;
        cimxml::g_allocFailCountdown = -1;
        ASSERT_EQ(AddToKeyBindingListRef(&refKeys, "Name", "x", "string", nullptr), 0);
        cimxml::g_allocFailCountdown = n;
        int rc = AddToKeyBindingList(&list, "Ref", "v", "string", "CIM_X", "root/cimv2", refKeys);
        cimxml::g_allocFailCountdown = -1;
        // The referenced bindings are attached last: after any failure they
        // are still the caller's.
        if (rc != 0) {
            EXPECT_TRUE(list == nullptr || list->valueReference == nullptr);
        }
        if (rc == 0) {  // whole: no failure was taken for success
            const LocalInstancePath* path = list->valueReference ? list->valueReference->localInstancePath : nullptr;
            ASSERT_TRUE(path && path->localNamespacePath && path->localNamespacePath->namespaces &&
                        path->localNamespacePath->namespaces->next && path->instanceName && path->instanceName->className);
            EXPECT_STREQ(path->localNamespacePath->namespaces->next->name, "cimv2");
            EXPECT_STREQ(path->instanceName->className->name, "CIM_X");
            EXPECT_EQ(path->instanceName->keyBindings, refKeys);
        }
        Free_KeyBinding(list);
        if (rc != 0) Free_KeyBinding(refKeys);
        if (rc == 0) break;
        ASSERT_LT(n, 1000);
    }
    for (long n = 0;; ++n) {
        Property* list = nullptr;
        char value[] = "true";
        cimxml::g_allocFailCountdown = n;
        int rc = AddToProeprtyList(&list, "P", value, "boolean");
        cimxml::g_allocFailCountdown = -1;
        Free_Property(list);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
    }
    // A reference property: on a failure the bindings and the namespace
    // chain are still the caller's; on success the new reference holds both.
    for (long n = 0;; ++n) {
        PropertyReference* list = nullptr;
        KeyBinding* keys = nullptr;
        ASSERT_EQ(AddToKeyBindingListRef(&keys, "Name", "x", "string", nullptr), 0);
        auto* ns = static_cast<Namespace*>(calloc(1, sizeof(Namespace)));
        ns->name = strdup("root/cimv2");
        cimxml::g_allocFailCountdown = n;
        int rc = AddToPropertyReferenceList(&list, keys, ns, "CIM_X", "Ref");
        cimxml::g_allocFailCountdown = -1;
        if (rc == 0) {
            const LocalInstancePath* path = list->valueReference ? list->valueReference->localInstancePath : nullptr;
            ASSERT_TRUE(path && path->instanceName && path->instanceName->className);
            EXPECT_EQ(path->instanceName->keyBindings, keys);
            EXPECT_EQ(path->localNamespacePath->namespaces, ns);
        } else {
            EXPECT_EQ(rc, -1);
            Free_KeyBinding(keys);
            Free_Namespace(ns);
        }
        Free_PropertyReference(list);
        if (rc == 0) break;
        ASSERT_LT(n, 1000);
    }
}

}  // namespace
