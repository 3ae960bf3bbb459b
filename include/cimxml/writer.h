/*
 * Request writer: turns a record tree into CIM-XML text.
 *
 * Every Gen_<Record>(record, &text) appends the record's element (for a list
 * record: one element per chain node) to the heap string *text, reallocating
 * it (so *text may move); when *text is NULL a new string is allocated and
 * stored there. The caller owns and frees the text. A NULL record writes
 * nothing and leaves *text as it was. Always returns 0.
 *
 * Text and attribute values are written as they stand, without escaping, and
 * several irregular attribute forms are kept on purpose: the object managers
 * this library talks to accept exactly this text.
 *
 * Writing a Value with embedded == 1 detaches its instance's property lists:
 * afterwards instance->properties and instance->propertyArrays are NULL. The
 * records that hung there are not freed: they are the caller's to free
 * through the references it kept (or they are lost). Writing the same value
 * again writes the instance without properties.
 */
#ifndef CIMXML_WRITER_H
#define CIMXML_WRITER_H

#include "records.h"

CIMXML_BEGIN_DECLS

CIMXML_API int Gen_CIM(CIM* record, char** text);
CIMXML_API int Gen_Message(Message* record, char** text);
CIMXML_API int Gen_SimpleReq(SimpleReq* record, char** text);
CIMXML_API int Gen_MultiReq(MultiReq* record, char** text);
CIMXML_API int Gen_IMethodCall(IMethodCall* record, char** text);
CIMXML_API int Gen_MethodCall(MethodCall* record, char** text);
CIMXML_API int Gen_IParamValue(IParamValue* record, char** text);
CIMXML_API int Gen_ParamValue(ParamValue* record, char** text);
CIMXML_API int Gen_LocalNamespacePath(LocalNamespacePath* record, char** text);
CIMXML_API int Gen_Namespace(Namespace* record, char** text);
CIMXML_API int Gen_NamespacePath(NamespacePath* record, char** text);
CIMXML_API int Gen_SimpleRsp(SimpleRsp* record, char** text);
CIMXML_API int Gen_MultiRsp(MultiRsp* record, char** text);
CIMXML_API int Gen_IMethodResponse(IMethodResponse* record, char** text);
CIMXML_API int Gen_MethodResponse(MethodResponse* record, char** text);
CIMXML_API int Gen_IReturnValue(IReturnValue* record, char** text);
CIMXML_API int Gen_ReturnValue(ReturnValue* record, char** text);
CIMXML_API int Gen_Error(Error* record, char** text);
CIMXML_API int Gen_ClassName(ClassName* record, char** text);
CIMXML_API int Gen_QualifierFlavor(QualifierFlavor* record, char** text);
CIMXML_API int Gen_Scope(Scope* record, char** text);
CIMXML_API int Gen_Value(Value* record, char** text);
CIMXML_API int Gen_ValueArray(ValueArray* record, char** text);
CIMXML_API int Gen_ValueNull(ValueNull* record, char** text);
CIMXML_API int Gen_ValueReference(ValueReference* record, char** text);
CIMXML_API int Gen_ValueRefArray(ValueRefArray* record, char** text);
CIMXML_API int Gen_KeyValue(KeyValue* record, char** text);
CIMXML_API int Gen_KeyBinding(KeyBinding* record, char** text);
CIMXML_API int Gen_InstanceName(InstanceName* record, char** text);
CIMXML_API int Gen_ClassPath(ClassPath* record, char** text);
CIMXML_API int Gen_LocalClassPath(LocalClassPath* record, char** text);
CIMXML_API int Gen_InstancePath(InstancePath* record, char** text);
CIMXML_API int Gen_LocalInstancePath(LocalInstancePath* record, char** text);
CIMXML_API int Gen_ObjectPath(ObjectPath* record, char** text);
CIMXML_API int Gen_Instance(Instance* record, char** text);
CIMXML_API int Gen_NamedInstance(NamedInstance* record, char** text);
CIMXML_API int Gen_Property(Property* record, char** text);
CIMXML_API int Gen_PropertyArray(PropertyArray* record, char** text);
CIMXML_API int Gen_PropertyReference(PropertyReference* record, char** text);
CIMXML_API int Gen_Qualifier(Qualifier* record, char** text);
CIMXML_API int Gen_QualifierDecl(QualifierDecl* record, char** text);
CIMXML_API int Gen_Class(Class* record, char** text);
CIMXML_API int Gen_Method(Method* record, char** text);
CIMXML_API int Gen_Parameter(Parameter* record, char** text);
CIMXML_API int Gen_ParameterReference(ParameterReference* record, char** text);
CIMXML_API int Gen_ParameterArray(ParameterArray* record, char** text);
CIMXML_API int Gen_ParameterRefArray(ParameterRefArray* record, char** text);
CIMXML_API int Gen_ResponseDestination(ResponseDestination* record, char** text);
CIMXML_API int Gen_Object(Object* record, char** text);
CIMXML_API int Gen_ObjectWithPath(ObjectWithPath* record, char** text);
CIMXML_API int Gen_ObjectWithLocalPath(ObjectWithLocalPath* record, char** text);
CIMXML_API int Gen_NamedObject(NamedObject* record, char** text);
CIMXML_API int Gen_Declaration(Declaration* record, char** text);
CIMXML_API int Gen_DeclGroup(DeclGroup* record, char** text);
CIMXML_API int Gen_DeclGroupWithName(DeclGroupWithName* record, char** text);
CIMXML_API int Gen_DeclGroupWithPath(DeclGroupWithPath* record, char** text);

/* Attribute writers for the string kinds. */
CIMXML_API int Gen_CIMName(const char* name, char** text);
CIMXML_API int Gen_CIMType(const char* type, char** text);
CIMXML_API int Gen_ClassOrigin(const char* classOrigin, char** text);
CIMXML_API int Gen_ReferenceClass(const char* referenceClass, char** text);

CIMXML_END_DECLS

#endif
