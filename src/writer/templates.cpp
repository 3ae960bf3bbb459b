// The element template of every writer, one entry per record.
//
// Read each entry top to bottom as the text it writes. Irregular forms are
// kept on purpose (the object managers we talk to accept exactly this text);
// each has a name in the block below so that none is "fixed" by accident.
// The standard wire mode shares every entry: a defaultOnly step is a kept
// form, and the standardOnly step beside it is what DSP0201 asks for.
#include <cstddef>
#include <iterator>

#include "writer/template.h"

namespace cimxml::writer {
namespace {

// ---- kept irregular forms ------------------------------------------------
constexpr Lit kFlavorMarker = " QUALIFIERFLAVOR'TRUE'";        // no "=", single quotes
constexpr Lit kPropagatedBare = " PROPAGATED=TRUE";            // unquoted
constexpr Lit kPropagatedSpaced = " PROPAGATED 'TRUE'";        // no "=", single quotes
constexpr Lit kArraySizeBare = " ARRAYSIZE=";                  // unquoted decimal follows
constexpr Lit kDoubledType = " TYPE=\" TYPE=\"";               // TYPE opened twice, first quote left open
constexpr Lit kLocalClassNameOpen = "<CLASSNAME NAME =";       // blank before "="
constexpr Lit kValueTypeSpaced = " VALUETYPE = \"";            // blanks around "="
constexpr Lit kCimTypeSpaced = " CIMTYPE = \"";                // blanks around "="
constexpr Lit kResponseDestinationClose = "</ResponseDestination>"; // mixed case
// SCOPE attributes: a blank and no "=" between name and value.
constexpr Lit kScopeClass = " CLASS \"TRUE\"";
constexpr Lit kScopeAssociation = " ASSOCIATION \"TRUE\"";
constexpr Lit kScopeReference = " REFERENCE \"TRUE\"";
constexpr Lit kScopeProperty = " PROPERTY \"TRUE\"";
constexpr Lit kScopeMethod = " METHOD \"TRUE\"";
constexpr Lit kScopeParameter = " PARAMETER \"TRUE\"";
constexpr Lit kScopeIndication = " INDICATION \"TRUE\"";

constexpr Lit kClassNameOpen = "<CLASSNAME NAME=";
constexpr Lit kEmptyClose = "/>";

// ---- their standard (DSP0201) counterparts -----------------------------------
constexpr Lit kPropagatedStd = " PROPAGATED=\"true\"";
constexpr Lit kArraySizeStd = " ARRAYSIZE=\"";
constexpr Lit kValueTypeStd = " VALUETYPE=\"";
constexpr Lit kKeyTypeStd = " TYPE=\"";
constexpr Lit kEmbeddedStd = " EmbeddedObject=\"instance\"";

#define S(T, f) fieldAt<decltype(T::f), char*>(offsetof(T, f))
#define F16(T, f) fieldAt<decltype(T::f), std::int16_t>(offsetof(T, f))
#define F32(T, f) fieldAt<decltype(T::f), std::int32_t>(offsetof(T, f))
#define R(T, f, C) fieldAt<decltype(T::f), C*>(offsetof(T, f)), &k##C
// A ClassName field written with another of the class-name templates.
#define RC(T, f, Tmpl) fieldAt<decltype(T::f), ClassName*>(offsetof(T, f)), &Tmpl
#define P(T, f, C) fieldAt<decltype(T::f), C*>(offsetof(T, f))

// Gen_CIMName: the name in double quotes, nothing when it is NULL.
constexpr Step cimName(std::uint16_t at) { return attrIf("\"", at, "\""); }
// [if name] " NAME=" and the quoted name.
constexpr Step nameAttr(std::uint16_t at) { return attrIf(" NAME=\"", at, "\""); }
constexpr Step typeAttr(std::uint16_t at) { return attrIf(" TYPE=\"", at, "\""); }
constexpr Step classOriginAttr(std::uint16_t at) { return attrIf(" CLASSORIGIN=\"", at, "\""); }
constexpr Step referenceClassAttr(std::uint16_t at) { return attrIf(" REFERENCECLASS=\"", at, "\""); }
constexpr Step classNameElement(std::uint16_t at, const Template* t) {
    return child(kClassNameOpen, at, t, kEmptyClose);
}
// PROPAGATED as each mode writes it.
constexpr Step propagatedDefault(Lit form, std::uint16_t at) { return defaultOnly(flagIf(form, at)); }
constexpr Step propagatedStandard(std::uint16_t at) { return standardOnly(flagIf(kPropagatedStd, at)); }

// ---- envelope --------------------------------------------------------------

constexpr Step sCIM[] = {
    text("<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM"),
    attr(" CIMVERSION=\"", S(CIM, cimVersion), "\""),
    attr(" DTDVERSION=\"", S(CIM, dtdVersion), "\">"),
    child(R(CIM, message, Message)),
    child(R(CIM, declaration, Declaration)),
    text("</CIM>"),
};
// The export-side fields of MESSAGE are never written.
constexpr Step sMessage[] = {
    text("<MESSAGE"),
    attr(" ID=\"", S(Message, id), "\""),
    attr(" PROTOCOLVERSION=\"", S(Message, protocolVersion), "\">"),
    child(R(Message, simpleReq, SimpleReq)),
    child(R(Message, multiReq, MultiReq)),
    child(R(Message, simpleRsp, SimpleRsp)),
    child(R(Message, multiRsp, MultiRsp)),
    text("</MESSAGE>"),
};
constexpr Step sSimpleReq[] = {
    text("<SIMPLEREQ>"),
    child(R(SimpleReq, iMethodCall, IMethodCall)),
    child(R(SimpleReq, methodCall, MethodCall)),
    text("</SIMPLEREQ>"),
};
constexpr Step sMultiReq[] = {
    text("<MULTIREQ>"),
    child(R(MultiReq, simpleReqs, SimpleReq)),
    text("</MULTIREQ>"),
};
constexpr Step sIMethodCall[] = {
    text("<IMETHODCALL NAME="),
    cimName(S(IMethodCall, name)),
    text(">"),
    child(R(IMethodCall, localNamespacePath, LocalNamespacePath)),
    child(R(IMethodCall, iParamValues, IParamValue)),
    child(R(IMethodCall, responseDestination, ResponseDestination)),
    text("</IMETHODCALL>"),
};
constexpr Step sMethodCall[] = {
    text("<METHODCALL NAME="),
    cimName(S(MethodCall, name)),
    text(">"),
    child(R(MethodCall, localClassPath, LocalClassPath)),
    child(R(MethodCall, localInstancePath, LocalInstancePath)),
    child(R(MethodCall, paramValues, ParamValue)),
    child(R(MethodCall, responseDestination, ResponseDestination)),
    text("</METHODCALL>"),
};
constexpr Step sIParamValue[] = {
    text("<IPARAMVALUE NAME="),
    cimName(S(IParamValue, name)),
    text(">"),
    child(R(IParamValue, value, Value)),
    child(R(IParamValue, valueArray, ValueArray)),
    child(R(IParamValue, valueReference, ValueReference)),
    defaultOnly(classNameElement(R(IParamValue, className, ClassName))),
    standardOnly(classNameElement(RC(IParamValue, className, kClassNameOne))),
    child(R(IParamValue, instanceName, InstanceName)),
    child(R(IParamValue, qualifierDecl, QualifierDecl)),
    child(R(IParamValue, cimClass, Class)),
    child(R(IParamValue, instance, Instance)),
    child(R(IParamValue, namedInstance, NamedInstance)),
    text("</IPARAMVALUE>"),
};
constexpr Step sParamValue[] = {
    text("<PARAMVALUE NAME="),
    cimName(S(ParamValue, name)),
    attrIf(" PARAMTYPE=\"", S(ParamValue, paramType), "\""),
    standardOnly(embedded(kEmbeddedStd, P(ParamValue, value, Value), false)),
    text(">"),
    child(R(ParamValue, value, Value)),
    // Deliberately the array before the reference, unlike the record's order.
    child(R(ParamValue, valueArray, ValueArray)),
    child(R(ParamValue, valueReference, ValueReference)),
    child(R(ParamValue, valueRefArray, ValueRefArray)),
    text("</PARAMVALUE>"),
};
constexpr Step sResponseDestination[] = {
    text("<RESPONSEDESTINATION>"),
    child(R(ResponseDestination, instance, Instance)),
    defaultOnly(text(kResponseDestinationClose)),
    standardOnly(text("</RESPONSEDESTINATION>")),
};
// SIMPLEREQACK is never written.
constexpr Step sSimpleRsp[] = {
    text("<SIMPLERSP>"),
    child(R(SimpleRsp, methodResponse, MethodResponse)),
    child(R(SimpleRsp, iMethodResponse, IMethodResponse)),
    text("</SIMPLERSP>"),
};
constexpr Step sMultiRsp[] = {
    text("<MULTIRSP>"),
    child(R(MultiRsp, simpleRsps, SimpleRsp)),
    text("</MULTIRSP>"),
};
constexpr Step sIMethodResponse[] = {
    text("<IMETHODRESPONSE NAME="),
    cimName(S(IMethodResponse, name)),
    text(">"),
    child(R(IMethodResponse, error, Error)),
    child(R(IMethodResponse, iReturnValue, IReturnValue)),
    text("</IMETHODRESPONSE>"),
};
constexpr Step sMethodResponse[] = {
    text("<METHODRESPONSE NAME="),
    cimName(S(MethodResponse, name)),
    text(">"),
    child(R(MethodResponse, error, Error)),
    child(R(MethodResponse, returnValue, ReturnValue)),
    child(R(MethodResponse, paramValues, ParamValue)),
    text("</METHODRESPONSE>"),
};
constexpr Step sIReturnValue[] = {
    text("<IRETURNVALUE>"),
    defaultOnly(child(R(IReturnValue, className, ClassName))), // bare quoted names, deliberately
    standardOnly(child(RC(IReturnValue, className, kClassNameElement))),
    child(R(IReturnValue, instanceName, InstanceName)),
    child(R(IReturnValue, value, Value)),
    child(R(IReturnValue, objectWithPath, ObjectWithPath)),
    child(R(IReturnValue, objectWithLocalPath, ObjectWithLocalPath)),
    child(R(IReturnValue, object, Object)),
    child(R(IReturnValue, objectPath, ObjectPath)),
    child(R(IReturnValue, qualifierDecl, QualifierDecl)),
    child(R(IReturnValue, valueArray, ValueArray)),
    child(R(IReturnValue, valueReference, ValueReference)),
    child(R(IReturnValue, cimClass, Class)),
    child(R(IReturnValue, instance, Instance)),
    child(R(IReturnValue, namedInstance, NamedInstance)),
    text("</IRETURNVALUE>"),
};
constexpr Step sReturnValue[] = {
    text("<RETURNVALUE"),
    attrIf(" PARAMTYPE=\"", S(ReturnValue, paramType), "\""),
    text(">"),
    child(R(ReturnValue, value, Value)),
    child(R(ReturnValue, valueReference, ValueReference)),
    text("</RETURNVALUE>"),
};
constexpr Step sError[] = {
    text("<ERROR"),
    attr(" CODE=\"", S(Error, code), "\""),
    attr(" DESCRIPTION=\"", S(Error, description), "\">"),
    child(R(Error, instance, Instance)),
    text("</ERROR>"),
};

// ---- names and paths -------------------------------------------------------

constexpr Step sLocalNamespacePath[] = {
    text("<LOCALNAMESPACEPATH>"),
    child(R(LocalNamespacePath, namespaces, Namespace)),
    text("</LOCALNAMESPACEPATH>"),
};
// Standard: one NAMESPACE per component, "root/cimv2" as root and cimv2.
constexpr Step sNamespace[] = {
    defaultOnly(text("<NAMESPACE NAME=")),
    defaultOnly(cimName(S(Namespace, name))),
    defaultOnly(text("/>")),
    standardOnly(split("<NAMESPACE NAME=\"", S(Namespace, name), "\"/>")),
};
constexpr Step sNamespacePath[] = {
    text("<NAMESPACEPATH>"),
    attrIf("<HOST>", S(NamespacePath, host), "</HOST>"),
    child(R(NamespacePath, localNamespacePath, LocalNamespacePath)),
    text("</NAMESPACEPATH>"),
};
// Quoted names back to back: the text that follows CLASSNAME= and NAME=.
constexpr Step sClassName[] = {
    cimName(S(ClassName, name)),
};
constexpr Step sClassNameElement[] = {
    attrIf("<CLASSNAME NAME=\"", S(ClassName, name), "\"/>"),
};
constexpr Step sClassPath[] = {
    text("<CLASSPATH>"),
    child(R(ClassPath, namespacePath, NamespacePath)),
    defaultOnly(classNameElement(R(ClassPath, className, ClassName))),
    standardOnly(classNameElement(RC(ClassPath, className, kClassNameOne))),
    text("</CLASSPATH>"),
};
constexpr Step sLocalClassPath[] = {
    text("<LOCALCLASSPATH>"),
    child(R(LocalClassPath, localNamespacePath, LocalNamespacePath)),
    defaultOnly(child(kLocalClassNameOpen, R(LocalClassPath, className, ClassName), kEmptyClose)),
    standardOnly(classNameElement(RC(LocalClassPath, className, kClassNameOne))),
    text("</LOCALCLASSPATH>"),
};
constexpr Step sInstancePath[] = {
    text("<INSTANCEPATH>"),
    child(R(InstancePath, namespacePath, NamespacePath)),
    child(R(InstancePath, instanceName, InstanceName)),
    text("</INSTANCEPATH>"),
};
constexpr Step sLocalInstancePath[] = {
    text("<LOCALINSTANCEPATH>"),
    child(R(LocalInstancePath, localNamespacePath, LocalNamespacePath)),
    child(R(LocalInstancePath, instanceName, InstanceName)),
    text("</LOCALINSTANCEPATH>"),
};
constexpr Step sInstanceName[] = {
    text("<INSTANCENAME CLASSNAME="),
    defaultOnly(child(R(InstanceName, className, ClassName))),
    standardOnly(child(RC(InstanceName, className, kClassNameOne))),
    text(">"),
    child(R(InstanceName, keyBindings, KeyBinding)),
    child(R(InstanceName, keyValue, KeyValue)),
    child(R(InstanceName, valueReference, ValueReference)),
    text("</INSTANCENAME>"),
};
constexpr Step sKeyBinding[] = {
    text("<KEYBINDING NAME="),
    cimName(S(KeyBinding, name)),
    text(">"),
    child(R(KeyBinding, keyValue, KeyValue)),
    child(R(KeyBinding, valueReference, ValueReference)),
    text("</KEYBINDING>"),
};
constexpr Step sKeyValue[] = {
    text("<KEYVALUE"),
    defaultOnly(attrIf(kValueTypeSpaced, S(KeyValue, valueType), "\"")),
    defaultOnly(attrIf(kCimTypeSpaced, S(KeyValue, cimType), "\"")),
    standardOnly(attrIf(kValueTypeStd, S(KeyValue, valueType), "\"")),
    standardOnly(attrIf(kKeyTypeStd, S(KeyValue, cimType), "\"")),
    text(">"),
    attrIf("", S(KeyValue, value), ""),
    text("</KEYVALUE>"),
};
// Deliberately the class path before the instance path.
constexpr Step sObjectPath[] = {
    text("<VALUE.OBJECTPATH>"),
    child(R(ObjectPath, classPath, ClassPath)),
    child(R(ObjectPath, instancePath, InstancePath)),
    text("</VALUE.OBJECTPATH>"),
};

// ---- values ----------------------------------------------------------------

constexpr Step sValueArray[] = {
    text("<VALUE.ARRAY>"),
    child(R(ValueArray, value, Value)),
    text("</VALUE.ARRAY>"),
};
constexpr Step sValueNull[] = {
    text("<VALUE.NULL/>"),
};
constexpr Step sValueReference[] = {
    text("<VALUE.REFERENCE>"),
    child(R(ValueReference, classPath, ClassPath)),
    child(R(ValueReference, localClassPath, LocalClassPath)),
    defaultOnly(classNameElement(R(ValueReference, className, ClassName))),
    standardOnly(classNameElement(RC(ValueReference, className, kClassNameOne))),
    child(R(ValueReference, instancePath, InstancePath)),
    child(R(ValueReference, localInstancePath, LocalInstancePath)),
    child(R(ValueReference, instanceName, InstanceName)),
    text("</VALUE.REFERENCE>"),
};
constexpr Step sValueRefArray[] = {
    text("<VALUE.REFARRAY>"),
    child(R(ValueRefArray, valueReference, ValueReference)),
    text("</VALUE.REFARRAY>"),
};
constexpr Step sNamedInstance[] = {
    text("<VALUE.NAMEDINSTANCE>"),
    child(R(NamedInstance, instanceName, InstanceName)),
    child(R(NamedInstance, instance, Instance)),
    text("</VALUE.NAMEDINSTANCE>"),
};
constexpr Step sObject[] = {
    text("<VALUE.OBJECT>"),
    child(R(Object, cimClass, Class)),
    child(R(Object, instance, Instance)),
    text("</VALUE.OBJECT>"),
};
constexpr Step sObjectWithPath[] = {
    text("<VALUE.OBJECTWITHPATH>"),
    child(R(ObjectWithPath, classPath, ClassPath)),
    child(R(ObjectWithPath, cimClass, Class)),
    child(R(ObjectWithPath, instancePath, InstancePath)),
    child(R(ObjectWithPath, instance, Instance)),
    text("</VALUE.OBJECTWITHPATH>"),
};
constexpr Step sObjectWithLocalPath[] = {
    text("<VALUE.OBJECTWITHLOCALPATH>"),
    child(R(ObjectWithLocalPath, localClassPath, LocalClassPath)),
    child(R(ObjectWithLocalPath, cimClass, Class)),
    child(R(ObjectWithLocalPath, localInstancePath, LocalInstancePath)),
    child(R(ObjectWithLocalPath, instance, Instance)),
    text("</VALUE.OBJECTWITHLOCALPATH>"),
};
constexpr Step sNamedObject[] = {
    text("<VALUE.NAMEDOBJECT>"),
    child(R(NamedObject, cimClass, Class)),
    child(R(NamedObject, instanceName, InstanceName)),
    child(R(NamedObject, instance, Instance)),
    text("</VALUE.NAMEDOBJECT>"),
};

// ---- schema objects --------------------------------------------------------

constexpr Step sInstance[] = {
    text("<INSTANCE CLASSNAME="),
    defaultOnly(child(R(Instance, className, ClassName))),
    standardOnly(child(RC(Instance, className, kClassNameOne))),
    text(">"),
    child(R(Instance, qualifiers, Qualifier)),
    child(R(Instance, properties, Property)),
    child(R(Instance, propertyArrays, PropertyArray)),
    child(R(Instance, propertyReferences, PropertyReference)),
    text("</INSTANCE>"),
};
constexpr Step sClass[] = {
    text("<CLASS"),
    nameAttr(S(Class, name)),
    attrIf(" SUPERCLASS=\"", S(Class, superClass), "\""),
    text(">"),
    child(R(Class, qualifiers, Qualifier)),
    child(R(Class, properties, Property)),
    child(R(Class, propertyArrays, PropertyArray)),
    child(R(Class, propertyReferences, PropertyReference)),
    child(R(Class, methods, Method)),
    text("</CLASS>"),
};
constexpr Step sProperty[] = {
    text("<PROPERTY"),
    nameAttr(S(Property, name)),
    typeAttr(S(Property, type)),
    classOriginAttr(S(Property, classOrigin)),
    propagatedDefault(kPropagatedBare, F16(Property, propagated)),
    propagatedStandard(F16(Property, propagated)),
    standardOnly(embedded(kEmbeddedStd, P(Property, value, Value), false)),
    text(">"),
    child(R(Property, qualifiers, Qualifier)),
    child(R(Property, value, Value)),
    text("</PROPERTY>"),
};
constexpr Step sPropertyArray[] = {
    text("<PROPERTY.ARRAY"),
    nameAttr(S(PropertyArray, name)),
    typeAttr(S(PropertyArray, type)),
    classOriginAttr(S(PropertyArray, classOrigin)),
    defaultOnly(countIf(kArraySizeBare, F32(PropertyArray, arraySize))),
    standardOnly(countIf(kArraySizeStd, F32(PropertyArray, arraySize), "\"")),
    propagatedDefault(kPropagatedSpaced, F16(PropertyArray, propagated)),
    propagatedStandard(F16(PropertyArray, propagated)),
    standardOnly(embedded(kEmbeddedStd, P(PropertyArray, valueArray, ValueArray), true)),
    text(">"),
    child(R(PropertyArray, qualifiers, Qualifier)),
    child(R(PropertyArray, valueArray, ValueArray)),
    text("</PROPERTY.ARRAY>"),
};
constexpr Step sPropertyReference[] = {
    text("<PROPERTY.REFERENCE"),
    nameAttr(S(PropertyReference, name)),
    referenceClassAttr(S(PropertyReference, referenceClass)),
    classOriginAttr(S(PropertyReference, classOrigin)),
    propagatedDefault(kPropagatedSpaced, F16(PropertyReference, propagated)),
    propagatedStandard(F16(PropertyReference, propagated)),
    text(">"),
    child(R(PropertyReference, qualifiers, Qualifier)),
    child(R(PropertyReference, valueReference, ValueReference)),
    text("</PROPERTY.REFERENCE>"),
};
// The flavor's attribute text lands in the element content, after the value
// (standard: attributes of the opening tag).
constexpr Step sQualifier[] = {
    text("<QUALIFIER NAME="),
    cimName(S(Qualifier, name)),
    typeAttr(S(Qualifier, type)),
    propagatedDefault(kPropagatedBare, F16(Qualifier, propagated)),
    propagatedStandard(F16(Qualifier, propagated)),
    standardOnly(child(R(Qualifier, qualifierFlavor, QualifierFlavor))),
    text(">"),
    child(R(Qualifier, value, Value)),
    child(R(Qualifier, valueArray, ValueArray)),
    defaultOnly(child(R(Qualifier, qualifierFlavor, QualifierFlavor))),
    text("</QUALIFIER>"),
};
constexpr Step sQualifierFlavor[] = {
    defaultOnly(text(kFlavorMarker)),
    defaultOnly(bool16(F16(QualifierFlavor, overridable), " OVERRIDABLE='TRUE'", " OVERRIDABLE='FALSE'")),
    defaultOnly(bool16(F16(QualifierFlavor, toSubclass), " TOSUBCLASS='TRUE'", " TOSUBCLASS='FALSE'")),
    defaultOnly(bool16(F16(QualifierFlavor, toInstance), " TOINSTANCE='TRUE'", " TOINSTANCE='FALSE'")),
    defaultOnly(bool16(F16(QualifierFlavor, translatable), " TRANSLATABLE='TRUE'", " TRANSLATABLE='FALSE'")),
    standardOnly(bool16(F16(QualifierFlavor, overridable), " OVERRIDABLE=\"true\"", " OVERRIDABLE=\"false\"")),
    standardOnly(bool16(F16(QualifierFlavor, toSubclass), " TOSUBCLASS=\"true\"", " TOSUBCLASS=\"false\"")),
    standardOnly(bool16(F16(QualifierFlavor, toInstance), " TOINSTANCE=\"true\"", " TOINSTANCE=\"false\"")),
    standardOnly(bool16(F16(QualifierFlavor, translatable), " TRANSLATABLE=\"true\"", " TRANSLATABLE=\"false\"")),
};
// arraySize is never written.
constexpr Step sQualifierDecl[] = {
    text("<QUALIFIER.DECLARATION NAME="),
    cimName(S(QualifierDecl, name)),
    defaultOnly(attrIf(kDoubledType, S(QualifierDecl, type), "\"")),
    standardOnly(typeAttr(S(QualifierDecl, type))),
    defaultOnly(bool32(F32(QualifierDecl, isArray), " ISARRAY=\"TRUE\"", " ISARRAY=\"FALSE\"")),
    standardOnly(bool32(F32(QualifierDecl, isArray), " ISARRAY=\"true\"", " ISARRAY=\"false\"")),
    defaultOnly(child(" QUALIFIERFLAVOR=\"", R(QualifierDecl, qualifierFlavor, QualifierFlavor), "\"")),
    standardOnly(child(R(QualifierDecl, qualifierFlavor, QualifierFlavor))),
    text(">"),
    child(R(QualifierDecl, scope, Scope)),
    child(R(QualifierDecl, value, Value)),
    child(R(QualifierDecl, valueArray, ValueArray)),
    text("</QUALIFIER.DECLARATION>"),
};
// One scope flag: its kept form in the default mode, the regular one in the standard mode.
#define SCOPE_FLAG(kept, regular, f) \
    defaultOnly(flagIf(kept, F16(Scope, f))), standardOnly(flagIf(regular, F16(Scope, f)))
constexpr Step sScope[] = {
    text("<SCOPE"),
    SCOPE_FLAG(kScopeClass, " CLASS=\"true\"", cimClass),
    SCOPE_FLAG(kScopeAssociation, " ASSOCIATION=\"true\"", association),
    SCOPE_FLAG(kScopeReference, " REFERENCE=\"true\"", reference),
    SCOPE_FLAG(kScopeProperty, " PROPERTY=\"true\"", property),
    SCOPE_FLAG(kScopeMethod, " METHOD=\"true\"", method),
    SCOPE_FLAG(kScopeParameter, " PARAMETER=\"true\"", parameter),
    SCOPE_FLAG(kScopeIndication, " INDICATION=\"true\"", indication),
    text("/>"),
};
#undef SCOPE_FLAG
constexpr Step sMethod[] = {
    text("<METHOD"),
    nameAttr(S(Method, name)),
    typeAttr(S(Method, type)),
    classOriginAttr(S(Method, classOrigin)),
    propagatedDefault(kPropagatedSpaced, F16(Method, propagated)),
    propagatedStandard(F16(Method, propagated)),
    text(">"),
    child(R(Method, qualifiers, Qualifier)),
    child(R(Method, parameters, Parameter)),
    child(R(Method, parameterReferences, ParameterReference)),
    child(R(Method, parameterArrays, ParameterArray)),
    child(R(Method, parameterRefArrays, ParameterRefArray)),
    text("</METHOD>"),
};
constexpr Step sParameter[] = {
    text("<PARAMETER"),
    nameAttr(S(Parameter, name)),
    typeAttr(S(Parameter, type)),
    text(">"),
    child(R(Parameter, qualifiers, Qualifier)),
    text("</PARAMETER>"),
};
constexpr Step sParameterReference[] = {
    text("<PARAMETER.REFERENCE"),
    nameAttr(S(ParameterReference, name)),
    referenceClassAttr(S(ParameterReference, referenceClass)),
    text(">"),
    child(R(ParameterReference, qualifiers, Qualifier)),
    text("</PARAMETER.REFERENCE>"),
};
constexpr Step sParameterArray[] = {
    text("<PARAMETER.ARRAY"),
    nameAttr(S(ParameterArray, name)),
    typeAttr(S(ParameterArray, type)),
    defaultOnly(countIf(kArraySizeBare, F32(ParameterArray, arraySize))),
    standardOnly(countIf(kArraySizeStd, F32(ParameterArray, arraySize), "\"")),
    text(">"),
    child(R(ParameterArray, qualifiers, Qualifier)),
    text("</PARAMETER.ARRAY>"),
};
// Deliberately left open: no closing tag is written (but in the standard mode).
constexpr Step sParameterRefArray[] = {
    text("<PARAMETER.REFARRAY"),
    nameAttr(S(ParameterRefArray, name)),
    referenceClassAttr(S(ParameterRefArray, referenceClass)),
    defaultOnly(countIf(kArraySizeBare, F32(ParameterRefArray, arraySize))),
    standardOnly(countIf(kArraySizeStd, F32(ParameterRefArray, arraySize), "\"")),
    text(">"),
    child(R(ParameterRefArray, qualifiers, Qualifier)),
    standardOnly(text("</PARAMETER.REFARRAY>")),
};

// ---- declarations ------------------------------------------------------------

constexpr Step sDeclaration[] = {
    text("<DECLARATION>"),
    child(R(Declaration, declGroup, DeclGroup)),
    child(R(Declaration, declGroupWithName, DeclGroupWithName)),
    child(R(Declaration, declGroupWithPath, DeclGroupWithPath)),
    text("</DECLARATION>"),
};
constexpr Step sDeclGroup[] = {
    text("<DECLGROUP>"),
    child(R(DeclGroup, localNamespacePath, LocalNamespacePath)),
    child(R(DeclGroup, namespacePath, NamespacePath)),
    child(R(DeclGroup, qualifierDecls, QualifierDecl)),
    child(R(DeclGroup, objects, Object)),
    text("</DECLGROUP>"),
};
constexpr Step sDeclGroupWithName[] = {
    text("<DECLGROUP.WITHNAME>"),
    child(R(DeclGroupWithName, localNamespacePath, LocalNamespacePath)),
    child(R(DeclGroupWithName, namespacePath, NamespacePath)),
    child(R(DeclGroupWithName, qualifierDecls, QualifierDecl)),
    child(R(DeclGroupWithName, namedObjects, NamedObject)),
    text("</DECLGROUP.WITHNAME>"),
};
constexpr Step sDeclGroupWithPath[] = {
    text("<DECLGROUP.WITHPATH>"),
    child(R(DeclGroupWithPath, objectWithPaths, ObjectWithPath)),
    child(R(DeclGroupWithPath, objectWithLocalPaths, ObjectWithLocalPath)),
    text("</DECLGROUP.WITHPATH>"),
};

#undef S
#undef F16
#undef F32
#undef R
#undef RC
#undef P

}  // namespace

#define SINGLE(T) const Template k##T = {#T, false, 0, s##T, std::size(s##T), nullptr};
#define LIST(T) const Template k##T = {#T, true, offsetof(T, next), s##T, std::size(s##T), nullptr};

SINGLE(CIM)
SINGLE(Message)
LIST(SimpleReq)
SINGLE(MultiReq)
SINGLE(IMethodCall)
SINGLE(MethodCall)
LIST(IParamValue)
LIST(ParamValue)
SINGLE(LocalNamespacePath)
LIST(Namespace)
SINGLE(NamespacePath)
LIST(SimpleRsp)
SINGLE(MultiRsp)
SINGLE(IMethodResponse)
SINGLE(MethodResponse)
SINGLE(IReturnValue)
SINGLE(ReturnValue)
SINGLE(Error)
LIST(ClassName)
SINGLE(QualifierFlavor)
SINGLE(Scope)
LIST(ValueArray)
LIST(ValueNull)
LIST(ValueReference)
LIST(ValueRefArray)
SINGLE(KeyValue)
LIST(KeyBinding)
LIST(InstanceName)
SINGLE(ClassPath)
SINGLE(LocalClassPath)
SINGLE(InstancePath)
SINGLE(LocalInstancePath)
LIST(ObjectPath)
LIST(Instance)
LIST(NamedInstance)
LIST(Property)
LIST(PropertyArray)
LIST(PropertyReference)
LIST(Qualifier)
LIST(QualifierDecl)
LIST(Class)
LIST(Method)
LIST(Parameter)
LIST(ParameterReference)
LIST(ParameterArray)
LIST(ParameterRefArray)
SINGLE(ResponseDestination)
LIST(Object)
LIST(ObjectWithPath)
LIST(ObjectWithLocalPath)
LIST(NamedObject)
SINGLE(Declaration)
SINGLE(DeclGroup)
SINGLE(DeclGroupWithName)
SINGLE(DeclGroupWithPath)

// The first class name alone, and each one as a CLASSNAME element.
const Template kClassNameOne = {"ClassName", false, 0, sClassName, std::size(sClassName), nullptr};
const Template kClassNameElement = {"ClassName", true, offsetof(ClassName, next), sClassNameElement,
                                    std::size(sClassNameElement), nullptr};

// VALUE is code, not data: see value_writer.cpp.
const Template kValue = {"Value", true, offsetof(Value, next), nullptr, 0, writeValues};

#undef SINGLE
#undef LIST

}  // namespace cimxml::writer
