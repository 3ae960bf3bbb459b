#include <gtest/gtest.h>

#include "tree.h"

using namespace wt;

namespace {

QualifierFlavor* flavor(int16_t overridable, int16_t toSubclass, int16_t toInstance, int16_t translatable) {
    auto* f = make<QualifierFlavor>();
    *f = {overridable, toSubclass, toInstance, translatable};
    return f;
}

Qualifier* qualifier(const char* name, const char* type, const char* text) {
    return rec<Qualifier>({{"name", name}, {"type", type}, {"value", value(text)}});
}

TEST(Instances, PropertiesNamelessAndAbsentFlags) {
    Property* p = property(nullptr, "string", nullptr);
    p->propagated = 2;
    EXPECT_EQ(gen(Gen_Property, p), "<PROPERTY TYPE=\"string\"></PROPERTY>");
    Free_Property(p);

    PropertyArray* a = propertyArray("A", nullptr, nullptr, propertyArray("B", nullptr, nullptr));
    a->arraySize = 0;
    a->next->arraySize = -4;
    a->next->propagated = 0;
    EXPECT_EQ(gen(Gen_PropertyArray, a),
              "<PROPERTY.ARRAY NAME=\"A\"></PROPERTY.ARRAY><PROPERTY.ARRAY NAME=\"B\"></PROPERTY.ARRAY>");
    Free_PropertyArray(a);

    auto* ni = make<NamedInstance>();
    ni->instanceName = make<InstanceName>();
    ni->instanceName->className = className("C");
    ni->instance = instance("C", property("P", "uint8", value("1")));
    ni->instance->qualifiers = qualifier("Q", nullptr, "q");
    EXPECT_EQ(gen(Gen_NamedInstance, ni), golden("named_instance.xml"));
    Free_NamedInstance(ni);
}

TEST(Classes, ClassWithMethodAndEveryParameterKind) {
    Class* c = rec<Class>({{"name", "CIM_A"}, {"superClass", "CIM_Base"}, {"properties", property("P", "string", nullptr)}});
    c->methods = rec<Method>(
        {{"name", "Go"}, {"type", "uint32"}, {"classOrigin", "CIM_A"}, {"propagated", 1},
         {"parameters", rec<Parameter>({{"name", "In"}, {"type", "string"}})},
         {"parameterReferences", rec<ParameterReference>({{"name", "Ref"}, {"referenceClass", "CIM_B"}})},
         {"parameterArrays", rec<ParameterArray>({{"name", "Arr"}, {"type", "uint8"}, {"arraySize", 12}})},
         {"parameterRefArrays", rec<ParameterRefArray>({{"name", "Refs"}, {"referenceClass", "CIM_C"}, {"arraySize", 3},
                                                        {"qualifiers", qualifier("Q", nullptr, "x")}})}});

    // PARAMETER.REFARRAY is left open: "</METHOD>" follows its content.
    EXPECT_EQ(gen(Gen_Class, c), golden("class_with_method.xml"));
    Free_Class(c);
}

TEST(Qualifiers, FlavorSitsInTheContentWithItsIrregularMarker) {
    Qualifier* q = qualifier("Key", "boolean", "TRUE");
    q->propagated = 1;
    q->qualifierFlavor = flavor(0, 1, 2, -1);
    EXPECT_EQ(gen(Gen_Qualifier, q),
              "<QUALIFIER NAME=\"Key\" TYPE=\"boolean\" PROPAGATED=TRUE><VALUE>TRUE</VALUE>"
              " QUALIFIERFLAVOR'TRUE' OVERRIDABLE='FALSE' TOSUBCLASS='TRUE'</QUALIFIER>");
    Free_Qualifier(q);

    QualifierFlavor* none = flavor(2, 2, 2, 2);
    EXPECT_EQ(gen(Gen_QualifierFlavor, none), " QUALIFIERFLAVOR'TRUE'");
    *none = {1, 0, 1, 0};
    EXPECT_EQ(gen(Gen_QualifierFlavor, none),
              " QUALIFIERFLAVOR'TRUE' OVERRIDABLE='TRUE' TOSUBCLASS='FALSE' TOINSTANCE='TRUE' TRANSLATABLE='FALSE'");
    Free_QualifierFlavor(none);

    auto* scope = make<Scope>();
    EXPECT_EQ(gen(Gen_Scope, scope), "<SCOPE/>");
    *scope = {1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(gen(Gen_Scope, scope),
              "<SCOPE CLASS \"TRUE\" ASSOCIATION \"TRUE\" REFERENCE \"TRUE\" PROPERTY \"TRUE\""
              " METHOD \"TRUE\" PARAMETER \"TRUE\" INDICATION \"TRUE\"/>");
    Free_Scope(scope);
}

TEST(Qualifiers, DeclarationOpensTypeTwice) {
    // arraySize is never written.
    auto* d = rec<QualifierDecl>({{"name", "Key"}, {"type", "boolean"}, {"arraySize", 5},
                                  {"qualifierFlavor", flavor(0, 2, 2, 2)}, {"value", value("FALSE")},
                                  {"scope", rec<Scope>({{"reference", 1}, {"property", 1}})},
                                  {"next", rec<QualifierDecl>({{"isArray", 1}, {"next", rec<QualifierDecl>({{"isArray", 3}})}})}});
    EXPECT_EQ(gen(Gen_QualifierDecl, d), golden("qualifier_declarations.xml"));
    Free_QualifierDecl(d);
}

TEST(Declarations, EveryGroupKind) {
    auto* decl = rec<Declaration>(
        {{"declGroup", rec<DeclGroup>({{"localNamespacePath", localNamespace({"root"})},
                                       {"qualifierDecls", make<QualifierDecl>()},
                                       {"objects", rec<Object>({{"instance", instance("I")}})}})},
         {"declGroupWithName", rec<DeclGroupWithName>({{"namedObjects", rec<NamedObject>({{"cimClass", make<Class>()}})}})},
         {"declGroupWithPath",
          rec<DeclGroupWithPath>({{"objectWithPaths", rec<ObjectWithPath>({{"instancePath", make<InstancePath>()}})},
                                  {"objectWithLocalPaths", rec<ObjectWithLocalPath>({{"localClassPath", make<LocalClassPath>()},
                                                                                     {"cimClass", make<Class>()}})}})}});

    auto* cim = make<CIM>();
    cim->declaration = decl;
    // The zero-filled QUALIFIER.DECLARATION is written with ISARRAY="FALSE".
    EXPECT_EQ(gen(Gen_CIM, cim), golden("declaration.xml"));
    Free_CIM(cim);
}

}  // namespace
