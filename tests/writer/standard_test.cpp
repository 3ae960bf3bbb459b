// The standard text of every record whose default text is irregular: the
// DSP0201 form, and the default form written unchanged by Gen_.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tree.h"
#include "writer/template.h"

namespace {

using namespace wt;
using cimxml::writer::OutBuf;

template <typename T>
std::string standardText(const cimxml::writer::Template& t, T* record) {
    char* text = nullptr;
    OutBuf out;
    EXPECT_TRUE(out.open(&text));
    out.setStandard(true);
    cimxml::writer::writeRecord(out, t, record);
    out.commit();
    std::string s = text ? text : "";
    std::free(text);
    return s;
}

TEST(StandardWriter, IrregularFormsBecomeRegular) {
    auto* key = rec<KeyValue>({{"valueType", "numeric"}, {"cimType", "uint32"}, {"value", "7"}});
    auto* ns = rec<Namespace>({{"name", "root/a&b//cimv2"}});
    auto* flavor = make<QualifierFlavor>();
    *flavor = QualifierFlavor{1, 0, 2, 1};
    auto* qualifier = rec<Qualifier>({{"name", "Key"}, {"type", "boolean"}, {"propagated", 1}, {"value", value("true")},
                                      {"qualifierFlavor", flavor}});
    auto* decl = rec<QualifierDecl>({{"name", "Key"}, {"type", "boolean"},
                                     {"scope", rec<Scope>({{"property", 1}, {"reference", 1}})}});
    auto* array = rec<PropertyArray>({{"name", "A"}, {"type", "uint8"}, {"arraySize", 3}, {"propagated", 1}});
    auto* refs = rec<ParameterRefArray>({{"name", "R"}, {"arraySize", 2}});
    auto* path = rec<LocalClassPath>({{"className", className("C", className("Extra"))}});
    auto* instance = rec<Instance>({{"className", className("I<1>", className("Extra"))}});
    auto* names = rec<IReturnValue>({{"className", className("A", className("B"))}});

    const struct {
        const char* name;
        std::string standard, dflt;
    } cases[] = {
        {"KEYVALUE", standardText(cimxml::writer::kKeyValue, key),
         "<KEYVALUE VALUETYPE=\"numeric\" TYPE=\"uint32\">7</KEYVALUE>"},
        {"NAMESPACE", standardText(cimxml::writer::kNamespace, ns),
         "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"a&amp;b\"/><NAMESPACE NAME=\"cimv2\"/>"},
        {"QUALIFIER", standardText(cimxml::writer::kQualifier, qualifier),
         "<QUALIFIER NAME=\"Key\" TYPE=\"boolean\" PROPAGATED=\"true\" OVERRIDABLE=\"true\" TOSUBCLASS=\"false\" "
         "TRANSLATABLE=\"true\"><VALUE>true</VALUE></QUALIFIER>"},
        {"QUALIFIER.DECLARATION", standardText(cimxml::writer::kQualifierDecl, decl),
         "<QUALIFIER.DECLARATION NAME=\"Key\" TYPE=\"boolean\" ISARRAY=\"false\"><SCOPE REFERENCE=\"true\" "
         "PROPERTY=\"true\"/></QUALIFIER.DECLARATION>"},
        {"PROPERTY.ARRAY", standardText(cimxml::writer::kPropertyArray, array),
         "<PROPERTY.ARRAY NAME=\"A\" TYPE=\"uint8\" ARRAYSIZE=\"3\" PROPAGATED=\"true\"></PROPERTY.ARRAY>"},
        {"PARAMETER.REFARRAY", standardText(cimxml::writer::kParameterRefArray, refs),
         "<PARAMETER.REFARRAY NAME=\"R\" ARRAYSIZE=\"2\"></PARAMETER.REFARRAY>"},
        {"LOCALCLASSPATH", standardText(cimxml::writer::kLocalClassPath, path),
         "<LOCALCLASSPATH><CLASSNAME NAME=\"C\"/></LOCALCLASSPATH>"},
        {"INSTANCE", standardText(cimxml::writer::kInstance, instance), "<INSTANCE CLASSNAME=\"I&lt;1&gt;\"></INSTANCE>"},
        {"IRETURNVALUE", standardText(cimxml::writer::kIReturnValue, names),
         "<IRETURNVALUE><CLASSNAME NAME=\"A\"/><CLASSNAME NAME=\"B\"/></IRETURNVALUE>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.standard, c.dflt);
    }
    // The default text of the same records is untouched.
    EXPECT_EQ(gen(Gen_KeyValue, key), "<KEYVALUE VALUETYPE = \"numeric\" CIMTYPE = \"uint32\">7</KEYVALUE>");
    EXPECT_EQ(gen(Gen_Namespace, ns), "<NAMESPACE NAME=\"root/a&b//cimv2\"/>");
    EXPECT_EQ(gen(Gen_LocalClassPath, path), "<LOCALCLASSPATH><CLASSNAME NAME =\"C\"\"Extra\"/></LOCALCLASSPATH>");
    EXPECT_EQ(gen(Gen_ParameterRefArray, refs), "<PARAMETER.REFARRAY NAME=\"R\" ARRAYSIZE=2>");
    Free_KeyValue(key);
    Free_Namespace(ns);
    Free_Qualifier(qualifier);
    Free_QualifierDecl(decl);
    Free_PropertyArray(array);
    Free_ParameterRefArray(refs);
    Free_LocalClassPath(path);
    Free_Instance(instance);
    Free_IReturnValue(names);
}

}  // namespace
