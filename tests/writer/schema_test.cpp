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
    auto* q = make<Qualifier>();
    q->name = s(name);
    q->type = s(type);
    q->value = value(text);
    return q;
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
    auto* c = make<Class>();
    c->name = s("CIM_A");
    c->superClass = s("CIM_Base");
    c->properties = property("P", "string", nullptr);
    auto* m = c->methods = make<Method>();
    m->name = s("Go");
    m->type = s("uint32");
    m->classOrigin = s("CIM_A");
    m->propagated = 1;
    m->parameters = make<Parameter>();
    m->parameters->name = s("In");
    m->parameters->type = s("string");
    m->parameterReferences = make<ParameterReference>();
    m->parameterReferences->name = s("Ref");
    m->parameterReferences->referenceClass = s("CIM_B");
    m->parameterArrays = make<ParameterArray>();
    m->parameterArrays->name = s("Arr");
    m->parameterArrays->type = s("uint8");
    m->parameterArrays->arraySize = 12;
    m->parameterRefArrays = make<ParameterRefArray>();
    m->parameterRefArrays->name = s("Refs");
    m->parameterRefArrays->referenceClass = s("CIM_C");
    m->parameterRefArrays->arraySize = 3;
    m->parameterRefArrays->qualifiers = qualifier("Q", nullptr, "x");

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
    auto* d = make<QualifierDecl>();
    d->name = s("Key");
    d->type = s("boolean");
    d->isArray = 0;
    d->arraySize = 5;  // never written
    d->qualifierFlavor = flavor(0, 2, 2, 2);
    d->scope = make<Scope>();
    d->scope->reference = 1;
    d->scope->property = 1;
    d->value = value("FALSE");
    d->next = make<QualifierDecl>();
    d->next->isArray = 1;
    d->next->next = make<QualifierDecl>();
    d->next->next->isArray = 3;
    EXPECT_EQ(gen(Gen_QualifierDecl, d), golden("qualifier_declarations.xml"));
    Free_QualifierDecl(d);
}

TEST(Declarations, EveryGroupKind) {
    auto* decl = make<Declaration>();
    decl->declGroup = make<DeclGroup>();
    decl->declGroup->localNamespacePath = localNamespace({"root"});
    decl->declGroup->qualifierDecls = make<QualifierDecl>();
    decl->declGroup->objects = make<Object>();
    decl->declGroup->objects->instance = instance("I");
    decl->declGroupWithName = make<DeclGroupWithName>();
    decl->declGroupWithName->namedObjects = make<NamedObject>();
    decl->declGroupWithName->namedObjects->cimClass = make<Class>();
    decl->declGroupWithPath = make<DeclGroupWithPath>();
    decl->declGroupWithPath->objectWithPaths = make<ObjectWithPath>();
    decl->declGroupWithPath->objectWithPaths->instancePath = make<InstancePath>();
    decl->declGroupWithPath->objectWithLocalPaths = make<ObjectWithLocalPath>();
    decl->declGroupWithPath->objectWithLocalPaths->localClassPath = make<LocalClassPath>();
    decl->declGroupWithPath->objectWithLocalPaths->cimClass = make<Class>();

    auto* cim = make<CIM>();
    cim->declaration = decl;
    // The zero-filled QUALIFIER.DECLARATION is written with ISARRAY="FALSE".
    EXPECT_EQ(gen(Gen_CIM, cim), golden("declaration.xml"));
    Free_CIM(cim);
}

}  // namespace
