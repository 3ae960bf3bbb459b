#include <gtest/gtest.h>

#include "tree.h"

using namespace wt;

namespace {

const char* const kRootNs = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH>";

NamespacePath* namespacePath(const char* host) {
    auto* p = make<NamespacePath>();
    p->host = s(host);
    p->localNamespacePath = localNamespace({"root"});
    return p;
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
    auto* cp = make<ClassPath>();
    cp->namespacePath = namespacePath("h.example");
    cp->className = className("CIM_A");
    EXPECT_EQ(gen(Gen_ClassPath, cp), std::string("<CLASSPATH><NAMESPACEPATH><HOST>h.example</HOST>") +
                                          kRootNs + "</NAMESPACEPATH><CLASSNAME NAME=\"CIM_A\"/></CLASSPATH>");
    Free_ClassPath(cp);

    auto* np = namespacePath(nullptr);
    EXPECT_EQ(gen(Gen_NamespacePath, np), std::string("<NAMESPACEPATH>") + kRootNs + "</NAMESPACEPATH>");
    Free_NamespacePath(np);

    auto* lcp = make<LocalClassPath>();
    lcp->localNamespacePath = localNamespace({"root"});
    lcp->className = className("CIM_A");
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

    auto* ip = make<InstancePath>();
    ip->namespacePath = namespacePath("h");
    ip->instanceName = instanceName("C", "K", "v");
    auto* lip = make<LocalInstancePath>();
    lip->localNamespacePath = localNamespace({"root"});
    lip->instanceName = instanceName("C", "K", "v");
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
    auto* op = make<ObjectPath>();
    op->instancePath = make<InstancePath>();
    op->classPath = make<ClassPath>();
    op->classPath->className = className("C");
    EXPECT_EQ(gen(Gen_ObjectPath, op),
              "<VALUE.OBJECTPATH><CLASSPATH><CLASSNAME NAME=\"C\"/></CLASSPATH>"
              "<INSTANCEPATH></INSTANCEPATH></VALUE.OBJECTPATH>");
    Free_ObjectPath(op);
}

TEST(Paths, ReferencesAndReferenceArrays) {
    auto* ra = make<ValueRefArray>();
    ra->valueReference = make<ValueReference>();
    ra->valueReference->className = className("C");
    ra->valueReference->next = make<ValueReference>();
    ra->valueReference->next->instanceName = instanceName("D", "K", "1");
    ra->valueReference->next->next = make<ValueReference>();
    ra->valueReference->next->next->localClassPath = make<LocalClassPath>();
    EXPECT_EQ(gen(Gen_ValueRefArray, ra), golden("value_ref_array.xml"));
    Free_ValueRefArray(ra);
}

}  // namespace
