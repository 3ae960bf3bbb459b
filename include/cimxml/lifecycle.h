/*
 * Record lifecycle: free, deep clone and list append.
 *
 *  - Free_<Record>(r): releases r (and, for a list record, the rest of its
 *    chain from r on) with everything it owns. NULL is accepted. Returns 0.
 *  - Clone_<Record>(src, &dst): deep copy. NULL src stores NULL and returns 0;
 *    NULL dst returns -1. On a failed allocation returns -1 and leaves the
 *    partial copy at *dst for the caller to free with Free_<Record>.
 *  - AddTo*List(&head, ...): appends one new node at the tail of the chain.
 *    String arguments are copied; record arguments are taken over (the chain
 *    owns them afterwards). Returns 0, or -1 when an allocation fails.
 */
#ifndef CIMXML_LIFECYCLE_H
#define CIMXML_LIFECYCLE_H

#include "records.h"

CIMXML_BEGIN_DECLS

/* ---- Free ------------------------------------------------------------------ */

CIMXML_API int Free_CIM(CIM* record);
CIMXML_API int Free_Message(Message* record);
CIMXML_API int Free_SimpleReq(SimpleReq* record);
CIMXML_API int Free_MultiReq(MultiReq* record);
CIMXML_API int Free_IMethodCall(IMethodCall* record);
CIMXML_API int Free_MethodCall(MethodCall* record);
CIMXML_API int Free_IParamValue(IParamValue* record);
CIMXML_API int Free_ParamValue(ParamValue* record);
CIMXML_API int Free_ResponseDestination(ResponseDestination* record);
CIMXML_API int Free_SimpleRsp(SimpleRsp* record);
CIMXML_API int Free_MultiRsp(MultiRsp* record);
CIMXML_API int Free_IMethodResponse(IMethodResponse* record);
CIMXML_API int Free_MethodResponse(MethodResponse* record);
CIMXML_API int Free_IReturnValue(IReturnValue* record);
CIMXML_API int Free_ReturnValue(ReturnValue* record);
CIMXML_API int Free_Error(Error* record);
CIMXML_API int Free_SimpleReqAck(SimpleReqAck* record);
CIMXML_API int Free_SimpleExpReq(SimpleExpReq* record);
CIMXML_API int Free_MultiExpReq(MultiExpReq* record);
CIMXML_API int Free_ExpMethodCall(ExpMethodCall* record);
CIMXML_API int Free_ExpParamValue(ExpParamValue* record);
CIMXML_API int Free_SimpleExpRsp(SimpleExpRsp* record);
CIMXML_API int Free_MultiExpRsp(MultiExpRsp* record);
CIMXML_API int Free_ExpMethodResponse(ExpMethodResponse* record);
CIMXML_API int Free_LocalNamespacePath(LocalNamespacePath* record);
CIMXML_API int Free_Namespace(Namespace* record);
CIMXML_API int Free_NamespacePath(NamespacePath* record);
CIMXML_API int Free_ClassPath(ClassPath* record);
CIMXML_API int Free_LocalClassPath(LocalClassPath* record);
CIMXML_API int Free_ClassName(ClassName* record);
CIMXML_API int Free_InstancePath(InstancePath* record);
CIMXML_API int Free_LocalInstancePath(LocalInstancePath* record);
CIMXML_API int Free_InstanceName(InstanceName* record);
CIMXML_API int Free_KeyBinding(KeyBinding* record);
CIMXML_API int Free_KeyValue(KeyValue* record);
CIMXML_API int Free_ObjectPath(ObjectPath* record);
CIMXML_API int Free_ObjectName(ObjectName* record);
CIMXML_API int Free_Value(Value* record);
CIMXML_API int Free_ValueArray(ValueArray* record);
CIMXML_API int Free_ValueReference(ValueReference* record);
CIMXML_API int Free_ValueRefArray(ValueRefArray* record);
CIMXML_API int Free_ValueNull(ValueNull* record);
CIMXML_API int Free_NamedInstance(NamedInstance* record);
CIMXML_API int Free_ObjectWithPath(ObjectWithPath* record);
CIMXML_API int Free_ObjectWithLocalPath(ObjectWithLocalPath* record);
CIMXML_API int Free_Object(Object* record);
CIMXML_API int Free_NamedObject(NamedObject* record);
CIMXML_API int Free_Instance(Instance* record);
CIMXML_API int Free_Class(Class* record);
CIMXML_API int Free_Property(Property* record);
CIMXML_API int Free_PropertyArray(PropertyArray* record);
CIMXML_API int Free_PropertyReference(PropertyReference* record);
CIMXML_API int Free_Qualifier(Qualifier* record);
CIMXML_API int Free_QualifierFlavor(QualifierFlavor* record);
CIMXML_API int Free_QualifierDecl(QualifierDecl* record);
CIMXML_API int Free_Scope(Scope* record);
CIMXML_API int Free_Method(Method* record);
CIMXML_API int Free_Parameter(Parameter* record);
CIMXML_API int Free_ParameterReference(ParameterReference* record);
CIMXML_API int Free_ParameterArray(ParameterArray* record);
CIMXML_API int Free_ParameterRefArray(ParameterRefArray* record);
CIMXML_API int Free_Declaration(Declaration* record);
CIMXML_API int Free_DeclGroup(DeclGroup* record);
CIMXML_API int Free_DeclGroupWithName(DeclGroupWithName* record);
CIMXML_API int Free_DeclGroupWithPath(DeclGroupWithPath* record);
CIMXML_API int Free_Table(Table* record);
CIMXML_API int Free_TableRowDecl(TableRowDecl* record);
CIMXML_API int Free_TableRow(TableRow* record);
CIMXML_API int Free_TableCellDecl(TableCellDecl* record);
CIMXML_API int Free_TableCellReference(TableCellReference* record);

/* The string kinds: each is one heap block. */
CIMXML_API int Free_CIMName(char* text);
CIMXML_API int Free_CIMType(char* text);
CIMXML_API int Free_ClassOrigin(char* text);
CIMXML_API int Free_ReferenceClass(char* text);
CIMXML_API int Free_ParamType(char* text);
CIMXML_API int Free_ValueType(char* text);
CIMXML_API int Free_Host(char* text);
CIMXML_API int Free_PCData(char* text);

/* Frees one InstanceName node but not the nodes that follow it. */
CIMXML_API int Free_InstanceName_New(InstanceName* record);
/* Frees a request parameter chain as the operations build it: per node the
 * name and the Value node with its text (not its instance, not its next). */
CIMXML_API int Free_IParamValue_New(IParamValue* record);
/* Frees only the envelope of a response or request tree (versions, message
 * attributes, the first SimpleRsp with its bare IMethodResponse/IReturnValue
 * and MethodResponse/ReturnValue nodes, the first SimpleReq with its call
 * nodes and namespace paths): the result subtree and parameters survive. */
CIMXML_API int Free_Header(CIM* record);

/* ---- Clone ----------------------------------------------------------------- */

CIMXML_API int Clone_CIMName(const char* source, char** destination);
CIMXML_API int Clone_CIMType(const char* source, char** destination);
CIMXML_API int Clone_QualifierFlavor(const QualifierFlavor* source, QualifierFlavor** destination);
CIMXML_API int Clone_ClassName(const ClassName* source, ClassName** destination);
CIMXML_API int Clone_ClassOrigin(const char* source, char** destination);
CIMXML_API int Clone_Host(const char* source, char** destination);
CIMXML_API int Clone_Namespace(const Namespace* source, Namespace** destination);
CIMXML_API int Clone_LocalNamespacePath(const LocalNamespacePath* source, LocalNamespacePath** destination);
CIMXML_API int Clone_NamespacePath(const NamespacePath* source, NamespacePath** destination);
CIMXML_API int Clone_ClassPath(const ClassPath* source, ClassPath** destination);
CIMXML_API int Clone_LocalClassPath(const LocalClassPath* source, LocalClassPath** destination);
CIMXML_API int Clone_PCData(const char* source, char** destination);
CIMXML_API int Clone_ValueType(const char* source, char** destination);
CIMXML_API int Clone_KeyValue(const KeyValue* source, KeyValue** destination);
CIMXML_API int Clone_KeyBinding(const KeyBinding* source, KeyBinding** destination);
CIMXML_API int Clone_InstanceName(const InstanceName* source, InstanceName** destination);
CIMXML_API int Clone_LocalInstancePath(const LocalInstancePath* source, LocalInstancePath** destination);
CIMXML_API int Clone_InstancePath(const InstancePath* source, InstancePath** destination);
CIMXML_API int Clone_ValueReference(const ValueReference* source, ValueReference** destination);
CIMXML_API int Clone_ReferenceClass(const char* source, char** destination);
CIMXML_API int Clone_PropertyReference(const PropertyReference* source, PropertyReference** destination);
CIMXML_API int Clone_Instance(const Instance* source, Instance** destination);
CIMXML_API int Clone_Value(const Value* source, Value** destination);
CIMXML_API int Clone_ValueArray(const ValueArray* source, ValueArray** destination);
CIMXML_API int Clone_Qualifier(const Qualifier* source, Qualifier** destination);
CIMXML_API int Clone_PropertyArray(const PropertyArray* source, PropertyArray** destination);
CIMXML_API int Clone_Property(const Property* source, Property** destination);
CIMXML_API int Clone_NamedInstance(const NamedInstance* source, NamedInstance** destination);
CIMXML_API int Clone_ParamType(const char* source, char** destination);

/* Notes kept on purpose:
 *  - Clone_ClassOrigin and Clone_ReferenceClass keep only the first character
 *    of the source (a Property or PropertyReference clone therefore carries a
 *    one-character class origin / reference class);
 *  - Clone_PropertyReference leaves `name` NULL in every copied node;
 *  - Clone_QualifierFlavor copies the four flags as one block. */

/* ---- Append ---------------------------------------------------------------- */

CIMXML_API int AddToValueList(Value** head, const char* text);

/* The name is spelled so on purpose: it is the exported name callers link to.
 * When `value` is exactly "true" or "false" the caller's buffer is first
 * rewritten in place to "TRUE" / "FALSE" (it must hold six bytes). */
CIMXML_API int AddToProeprtyList(Property** head, const char* name, char* value, const char* type);

CIMXML_API int AddToPropertyArrayList(PropertyArray** head, const char* name, ValueArray* valueArray,
                                      const char* type);

CIMXML_API int AddToInstanceList(Instance** head, ClassName* className, PropertyReference* propertyReferences,
                                 PropertyArray* propertyArrays, Property* properties);

/* className and keyBindings are stored only when className has a name;
 * otherwise an empty node is appended (and the arguments stay the caller's). */
CIMXML_API int AddToInstanceNameList(InstanceName** head, KeyBinding* keyBindings, ClassName* className);

/* `unused` is accepted for compatibility and ignored. */
CIMXML_API int AddToKeyBindingListRef(KeyBinding** head, const char* name, const char* value,
                                      const char* valueType, void* unused);

/* With referenceKeyBindings, the binding also gets a ValueReference to
 * referenceClassName under the namespace "root" + the tail of nameSpace from
 * its first "interop" (else "cimv2", else empty). Each namespace name is kept
 * in a 32-byte buffer: a longer tail is cut to its first 31 bytes. */
CIMXML_API int AddToKeyBindingList(KeyBinding** head, const char* name, const char* value, const char* valueType,
                                   const char* referenceClassName, const char* nameSpace,
                                   KeyBinding* referenceKeyBindings);

/* Appends a PropertyReference (name and referenceClass copied when
 * propertyName is set). With keyBindings it also gets a ValueReference and a
 * new InstanceName of referenceClassName holding the bindings. Only with a
 * namespace chain is that reference filled: the chain's first node becomes
 * its namespace path and takes the bindings over; that node's `next` is cut
 * to NULL, and the rest of the chain stays the caller's. Without a namespace
 * chain the reference stays empty and the key bindings stay the caller's.
 * On a failure the new instance name is freed and -1 returned; the key
 * bindings and the namespace chain then stay the caller's. */
CIMXML_API int AddToPropertyReferenceList(PropertyReference** head, KeyBinding* keyBindings, Namespace* namespaces,
                                          const char* referenceClassName, const char* propertyName);

CIMXML_END_DECLS

#endif
