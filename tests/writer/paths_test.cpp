#include <gtest/gtest.h>

#include "tree.h"

using namespace wt;

namespace {

const char* const kRootNs = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH>";

NamespacePath* namespacePath(const char* host) {
    return rec<NamespacePath>({{"host", host}, {"localNamespacePath", localNamespace({"root"})}});
}

TEST(Names, StringWritersQuoteOrPrefixAndNeverEscape) {
    EXPECT_EQ(gen(Gen_CIMName, "a\"<&b"), "\"a\"<&b\"");
    EXPECT_EQ(gen(Gen_CIMType, "uint8"), " TYPE=\"uint8\"");
    EXPECT_EQ(gen(Gen_ClassOrigin, "CIM_A"), " CLASSORIGIN=\"CIM_A\"");
    EXPECT_EQ(gen(Gen_ReferenceClass, "CIM_B"), " REFERENCECLASS=\"CIM_B\"");
    EXPECT_EQ(gen(Gen_CIMType, nullptr), "");

    ClassName* three = className("A", className("B", className("C")));
    EXPECT_EQ(gen(Gen_ClassName, three), "\"A\"\"B\"\"C\"");
    Free_ClassName(three);
}

TEST(Paths, ClassPathsAndTheBlankInLocalClassPath) {
    auto* cp = rec<ClassPath>({{"namespacePath", namespacePath("h.example")}, {"className", className("CIM_A")}});
    EXPECT_EQ(gen(Gen_ClassPath, cp), std::string("<CLASSPATH><NAMESPACEPATH><HOST>h.example</HOST>") +
                                          kRootNs + "</NAMESPACEPATH><CLASSNAME NAME=\"CIM_A\"/></CLASSPATH>");
    Free_ClassPath(cp);

    auto* np = namespacePath(nullptr);
    EXPECT_EQ(gen(Gen_NamespacePath, np), std::string("<NAMESPACEPATH>") + kRootNs + "</NAMESPACEPATH>");
    Free_NamespacePath(np);

    auto* lcp = rec<LocalClassPath>({{"localNamespacePath", localNamespace({"root"})}, {"className", className("CIM_A")}});
    EXPECT_EQ(gen(Gen_LocalClassPath, lcp),
              std::string("<LOCALCLASSPATH>") + kRootNs + "<CLASSNAME NAME =\"CIM_A\"/></LOCALCLASSPATH>");
    Free_LocalClassPath(lcp);
}

TEST(Paths, InstanceNamesKeysAndSpacedKeyValueAttributes) {
    InstanceName* n = instanceName("CIM_A", "Name", "h1");
    n->keyBindings->keyValue->cimType = s("string");
    n->next = make<InstanceName>();
    n->next->keyValue = keyValue(nullptr, nullptr);
    EXPECT_EQ(gen(Gen_InstanceName, n), golden("instance_names.xml"));
    Free_InstanceName(n);

    auto* ip = rec<InstancePath>({{"namespacePath", namespacePath("h")}, {"instanceName", instanceName("C", "K", "v")}});
    auto* lip = rec<LocalInstancePath>(
        {{"localNamespacePath", localNamespace({"root"})}, {"instanceName", instanceName("C", "K", "v")}});
    const std::string name =
        "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE VALUETYPE = \"string\">v</KEYVALUE>"
        "</KEYBINDING></INSTANCENAME>";
    EXPECT_EQ(gen(Gen_InstancePath, ip), std::string("<INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST>") + kRootNs +
                                             "</NAMESPACEPATH>" + name + "</INSTANCEPATH>");
    EXPECT_EQ(gen(Gen_LocalInstancePath, lip),
              std::string("<LOCALINSTANCEPATH>") + kRootNs + name + "</LOCALINSTANCEPATH>");
    Free_InstancePath(ip);
    Free_LocalInstancePath(lip);
}

TEST(Paths, ObjectPathWritesTheClassPathFirst) {
    auto* op = rec<ObjectPath>({{"instancePath", make<InstancePath>()},
                                {"classPath", rec<ClassPath>({{"className", className("C")}})}});
    EXPECT_EQ(gen(Gen_ObjectPath, op),
              "<VALUE.OBJECTPATH><CLASSPATH><CLASSNAME NAME=\"C\"/></CLASSPATH>"
              "<INSTANCEPATH></INSTANCEPATH></VALUE.OBJECTPATH>");
    Free_ObjectPath(op);
}

TEST(Paths, ReferencesAndReferenceArrays) {
    auto* last = rec<ValueReference>({{"localClassPath", make<LocalClassPath>()}});
    auto* ra = rec<ValueRefArray>({{"valueReference", rec<ValueReference>(
        {{"className", className("C")},
         {"next", rec<ValueReference>({{"instanceName", instanceName("D", "K", "1")}, {"next", last}})}})}});
    EXPECT_EQ(gen(Gen_ValueRefArray, ra), golden("value_ref_array.xml"));
    Free_ValueRefArray(ra);
}

}  // namespace
