/*
 * CIM-XML records: one plain structure per CIM-XML element.
 *
 * Ownership, for every record:
 *  - each record is one zero-filled heap block (malloc/calloc); an absent
 *    child is NULL, an absent number is 0;
 *  - a pointer field owns what it points to, unless its comment says
 *    "borrowed"; strings are NUL-terminated heap blocks owned by the record;
 *  - a record whose last field is `next` is also a list node: a field that
 *    holds such a record holds the head of a chain, in document order, and
 *    freeing or writing the field frees or writes the whole chain;
 *  - flags are signed 16-bit: 1 TRUE, 0 FALSE, any other value "absent".
 *
 * Records are released with the Free_<Record> function of their type
 * (lifecycle.h), which also releases the rest of the chain for list records.
 *
 * C++ cannot name a member `class`, so the fields the CIM-XML element set
 * calls "class" are spelled `cimClass` throughout.
 */
#ifndef CIMXML_RECORDS_H
#define CIMXML_RECORDS_H

#include <stdint.h>

#include "export.h"

CIMXML_BEGIN_DECLS

typedef struct CIM CIM;
typedef struct Message Message;
typedef struct SimpleReq SimpleReq;
typedef struct MultiReq MultiReq;
typedef struct IMethodCall IMethodCall;
typedef struct MethodCall MethodCall;
typedef struct IParamValue IParamValue;
typedef struct ParamValue ParamValue;
typedef struct ResponseDestination ResponseDestination;
typedef struct SimpleRsp SimpleRsp;
typedef struct MultiRsp MultiRsp;
typedef struct IMethodResponse IMethodResponse;
typedef struct MethodResponse MethodResponse;
typedef struct IReturnValue IReturnValue;
typedef struct ReturnValue ReturnValue;
typedef struct Error Error;
typedef struct SimpleReqAck SimpleReqAck;
typedef struct SimpleExpReq SimpleExpReq;
typedef struct MultiExpReq MultiExpReq;
typedef struct ExpMethodCall ExpMethodCall;
typedef struct ExpParamValue ExpParamValue;
typedef struct SimpleExpRsp SimpleExpRsp;
typedef struct MultiExpRsp MultiExpRsp;
typedef struct ExpMethodResponse ExpMethodResponse;
typedef struct LocalNamespacePath LocalNamespacePath;
typedef struct Namespace Namespace;
typedef struct NamespacePath NamespacePath;
typedef struct ClassPath ClassPath;
typedef struct LocalClassPath LocalClassPath;
typedef struct ClassName ClassName;
typedef struct InstancePath InstancePath;
typedef struct LocalInstancePath LocalInstancePath;
typedef struct InstanceName InstanceName;
typedef struct KeyBinding KeyBinding;
typedef struct KeyValue KeyValue;
typedef struct ObjectPath ObjectPath;
typedef struct ObjectName ObjectName;
typedef struct Value Value;
typedef struct ValueArray ValueArray;
typedef struct ValueReference ValueReference;
typedef struct ValueRefArray ValueRefArray;
typedef struct ValueNull ValueNull;
typedef struct NamedInstance NamedInstance;
typedef struct ObjectWithPath ObjectWithPath;
typedef struct ObjectWithLocalPath ObjectWithLocalPath;
typedef struct Object Object;
typedef struct NamedObject NamedObject;
typedef struct Instance Instance;
typedef struct Class Class;
typedef struct Property Property;
typedef struct PropertyArray PropertyArray;
typedef struct PropertyReference PropertyReference;
typedef struct Qualifier Qualifier;
typedef struct QualifierFlavor QualifierFlavor;
typedef struct QualifierDecl QualifierDecl;
typedef struct Scope Scope;
typedef struct Method Method;
typedef struct Parameter Parameter;
typedef struct ParameterReference ParameterReference;
typedef struct ParameterArray ParameterArray;
typedef struct ParameterRefArray ParameterRefArray;
typedef struct Declaration Declaration;
typedef struct DeclGroup DeclGroup;
typedef struct DeclGroupWithName DeclGroupWithName;
typedef struct DeclGroupWithPath DeclGroupWithPath;
typedef struct Table Table;
typedef struct TableRowDecl TableRowDecl;
typedef struct TableRow TableRow;
typedef struct TableCellDecl TableCellDecl;
typedef struct TableCellReference TableCellReference;

/* ---- root and message records ------------------------------------------ */

struct CIM {
    Message* message;
    Declaration* declaration;
    char* cimVersion; /* CIMVERSION */
    char* dtdVersion; /* DTDVERSION */
};

struct Message {
    char* id;              /* ID */
    char* protocolVersion; /* PROTOCOLVERSION */
    SimpleReq* simpleReq;
    MultiReq* multiReq;
    SimpleRsp* simpleRsp;
    MultiRsp* multiRsp;
    SimpleExpReq* simpleExpReq;
    MultiExpReq* multiExpReq;
    SimpleExpRsp* simpleExpRsp;
    MultiExpRsp* multiExpRsp;
};

struct SimpleReq {
    IMethodCall* iMethodCall;
    MethodCall* methodCall;
    SimpleReq* next;
};

struct MultiReq {
    SimpleReq* simpleReqs;
};

struct IMethodCall {
    LocalNamespacePath* localNamespacePath;
    IParamValue* iParamValues;
    ResponseDestination* responseDestination;
    char* name; /* the operation name */
};

struct MethodCall {
    char* name;
    LocalClassPath* localClassPath;
    LocalInstancePath* localInstancePath;
    ParamValue* paramValues;
    ResponseDestination* responseDestination;
};

/* Free_IParamValue releases only `name`: the value fields are borrowed
 * (request parameters link the caller's records as they are). */
struct IParamValue {
    char* name;
    Value* value;
    ValueArray* valueArray;
    ValueReference* valueReference;
    ClassName* className;
    InstanceName* instanceName;
    QualifierDecl* qualifierDecl;
    Class* cimClass;
    Instance* instance;
    NamedInstance* namedInstance;
    IParamValue* next;
};

struct ParamValue {
    char* name;
    char* paramType; /* PARAMTYPE */
    Value* value;
    ValueReference* valueReference;
    ValueArray* valueArray;
    ValueRefArray* valueRefArray;
    ParamValue* next;
};

struct ResponseDestination {
    Instance* instance;
};

struct SimpleRsp {
    MethodResponse* methodResponse;
    IMethodResponse* iMethodResponse;
    SimpleReqAck* simpleReqAck;
    SimpleRsp* next;
};

struct MultiRsp {
    SimpleRsp* simpleRsps;
};

struct IMethodResponse {
    char* name;
    Error* error;
    IReturnValue* iReturnValue;
};

struct MethodResponse {
    char* name;
    Error* error;
    ReturnValue* returnValue;
    ParamValue* paramValues;
};

struct IReturnValue {
    ClassName* className;
    InstanceName* instanceName;
    Value* value;
    ObjectWithPath* objectWithPath;
    ObjectWithLocalPath* objectWithLocalPath;
    Object* object;
    ObjectPath* objectPath;
    QualifierDecl* qualifierDecl;
    ValueArray* valueArray;
    ValueReference* valueReference;
    Class* cimClass;
    Instance* instance;
    NamedInstance* namedInstance;
};

struct ReturnValue {
    Value* value;
    ValueReference* valueReference;
    char* paramType;
};

struct Error {
    Instance* instance;
    char* code;        /* CODE, as text */
    char* description; /* DESCRIPTION */
};

struct SimpleReqAck {
    Error* error;
    char* instanceId; /* INSTANCEID */
};

struct SimpleExpReq {
    ExpMethodCall* expMethodCall;
    SimpleExpReq* next;
};

struct MultiExpReq {
    SimpleExpReq* simpleExpReqs;
};

struct ExpMethodCall {
    char* name;
    ExpParamValue* expParamValues;
};

struct ExpParamValue {
    char* name;
    Instance* instance;
    Value* value;
    MethodResponse* methodResponse;
    IMethodResponse* iMethodResponse;
    ExpParamValue* next;
};

struct SimpleExpRsp {
    ExpMethodResponse* expMethodResponse;
    SimpleExpRsp* next;
};

struct MultiExpRsp {
    SimpleExpRsp* simpleExpRsp;
};

struct ExpMethodResponse {
    char* name;
    Error* error;
    IReturnValue* iReturnValue;
};

/* ---- names and paths ----------------------------------------------------- */

struct LocalNamespacePath {
    Namespace* namespaces; /* one node per path component */
};

struct Namespace {
    char* name;
    Namespace* next;
};

struct NamespacePath {
    char* host; /* text of HOST */
    LocalNamespacePath* localNamespacePath;
};

struct ClassPath {
    NamespacePath* namespacePath;
    ClassName* className;
};

struct LocalClassPath {
    LocalNamespacePath* localNamespacePath;
    ClassName* className;
};

struct ClassName {
    char* name;
    ClassName* next;
};

struct InstancePath {
    NamespacePath* namespacePath;
    InstanceName* instanceName;
};

struct LocalInstancePath {
    LocalNamespacePath* localNamespacePath;
    InstanceName* instanceName;
};

struct InstanceName {
    KeyBinding* keyBindings;
    KeyValue* keyValue;
    ValueReference* valueReference;
    ClassName* className; /* the CLASSNAME attribute */
    InstanceName* next;
};

struct KeyBinding {
    KeyValue* keyValue;
    ValueReference* valueReference;
    char* name;
    KeyBinding* next;
};

struct KeyValue {
    char* value;     /* the text */
    char* valueType; /* VALUETYPE */
    char* cimType;   /* CIMTYPE */
};

/* VALUE.OBJECTPATH */
struct ObjectPath {
    InstancePath* instancePath;
    ClassPath* classPath;
    ObjectPath* next;
};

/* No element of its own: the pair that names an object in the association
 * operations. */
struct ObjectName {
    ClassName* className;
    InstanceName* instanceName;
};

/* ---- values -------------------------------------------------------------- */

struct Value {
    char* value;        /* the text content */
    Instance* instance; /* an embedded instance */
    int32_t embedded;   /* 1: written as CDATA from `instance` */
    Value* next;
};

struct ValueArray {
    Value* value; /* the array elements */
    ValueArray* next;
};

/* Exactly one of the six paths is set. */
struct ValueReference {
    ClassPath* classPath;
    LocalClassPath* localClassPath;
    ClassName* className;
    InstancePath* instancePath;
    LocalInstancePath* localInstancePath;
    InstanceName* instanceName;
    ValueReference* next;
};

struct ValueRefArray {
    ValueReference* valueReference;
    ValueRefArray* next;
};

struct ValueNull {
    char* value; /* owned, never written */
    ValueNull* next;
};

/* VALUE.NAMEDINSTANCE */
struct NamedInstance {
    InstanceName* instanceName;
    Instance* instance;
    NamedInstance* next;
};

/* VALUE.OBJECTWITHPATH */
struct ObjectWithPath {
    ClassPath* classPath;
    Class* cimClass;
    InstancePath* instancePath;
    Instance* instance;
    ObjectWithPath* next;
};

/* VALUE.OBJECTWITHLOCALPATH */
struct ObjectWithLocalPath {
    LocalClassPath* localClassPath;
    Class* cimClass;
    LocalInstancePath* localInstancePath;
    Instance* instance;
    ObjectWithLocalPath* next;
};

/* VALUE.OBJECT */
struct Object {
    Class* cimClass;
    Instance* instance;
    Object* next;
};

/* VALUE.NAMEDOBJECT */
struct NamedObject {
    Class* cimClass;
    InstanceName* instanceName;
    Instance* instance;
    NamedObject* next;
};

/* ---- schema objects ------------------------------------------------------ */

struct Instance {
    Qualifier* qualifiers;
    ClassName* className;
    Property* properties;
    PropertyArray* propertyArrays;
    PropertyReference* propertyReferences;
    Instance* next;
};

struct Class {
    Qualifier* qualifiers;
    Property* properties;
    PropertyArray* propertyArrays;
    PropertyReference* propertyReferences;
    Method* methods;
    char* name;
    char* superClass; /* SUPERCLASS */
    Class* next;
};

struct Property {
    Qualifier* qualifiers;
    Value* value;
    char* name;
    char* type;        /* TYPE */
    char* classOrigin; /* CLASSORIGIN */
    int16_t propagated;
    Property* next;
};

/* PROPERTY.ARRAY */
struct PropertyArray {
    Qualifier* qualifiers;
    ValueArray* valueArray;
    char* name;
    char* type;
    int32_t arraySize;
    char* classOrigin;
    int16_t propagated;
    PropertyArray* next;
};

/* PROPERTY.REFERENCE */
struct PropertyReference {
    Qualifier* qualifiers;
    ValueReference* valueReference;
    char* name;
    char* referenceClass; /* REFERENCECLASS */
    char* classOrigin;
    int16_t propagated;
    PropertyReference* next;
};

struct Qualifier {
    Value* value;
    ValueArray* valueArray;
    char* name;
    char* type;
    int16_t propagated;
    QualifierFlavor* qualifierFlavor;
    Qualifier* next;
};

/* The flavor attributes of a qualifier. */
struct QualifierFlavor {
    int16_t overridable;
    int16_t toSubclass;
    int16_t toInstance;
    int16_t translatable;
};

/* QUALIFIER.DECLARATION */
struct QualifierDecl {
    Scope* scope;
    Value* value;
    ValueArray* valueArray;
    char* name;
    char* type;
    int32_t isArray; /* 1 TRUE, 0 FALSE, other absent */
    int32_t arraySize;
    QualifierFlavor* qualifierFlavor;
    QualifierDecl* next;
};

struct Scope {
    int16_t cimClass;
    int16_t association;
    int16_t reference;
    int16_t property;
    int16_t method;
    int16_t parameter;
    int16_t indication;
};

struct Method {
    Qualifier* qualifiers;
    Parameter* parameters;
    ParameterReference* parameterReferences;
    ParameterArray* parameterArrays;
    ParameterRefArray* parameterRefArrays;
    char* name;
    char* type;
    char* classOrigin;
    int16_t propagated;
    Method* next;
};

struct Parameter {
    Qualifier* qualifiers;
    char* name;
    char* type;
    Parameter* next;
};

/* PARAMETER.REFERENCE */
struct ParameterReference {
    Qualifier* qualifiers;
    char* name;
    char* referenceClass;
    ParameterReference* next;
};

/* PARAMETER.ARRAY */
struct ParameterArray {
    Qualifier* qualifiers;
    char* name;
    char* type;
    int32_t arraySize;
    ParameterArray* next;
};

/* PARAMETER.REFARRAY */
struct ParameterRefArray {
    Qualifier* qualifiers;
    char* name;
    char* referenceClass;
    int32_t arraySize;
    ParameterRefArray* next;
};

/* ---- declarations and tables --------------------------------------------- */

struct Declaration {
    DeclGroup* declGroup;
    DeclGroupWithName* declGroupWithName;
    DeclGroupWithPath* declGroupWithPath;
};

struct DeclGroup {
    LocalNamespacePath* localNamespacePath;
    NamespacePath* namespacePath;
    QualifierDecl* qualifierDecls;
    Object* objects;
};

/* DECLGROUP.WITHNAME */
struct DeclGroupWithName {
    LocalNamespacePath* localNamespacePath;
    NamespacePath* namespacePath;
    QualifierDecl* qualifierDecls;
    NamedObject* namedObjects;
};

/* DECLGROUP.WITHPATH */
struct DeclGroupWithPath {
    ObjectWithPath* objectWithPaths;
    ObjectWithLocalPath* objectWithLocalPaths;
};

struct Table {
    TableRowDecl* tableRowDecl;
    TableRow* tableRows;
};

/* TABLEROW.DECLARATION */
struct TableRowDecl {
    TableCellDecl* tableCellDecls;
    TableCellReference* tableCellReferences;
};

struct TableRow {
    Value* value;
    ValueArray* valueArray;
    ValueReference* valueReference;
    ValueRefArray* valueRefArray;
    ValueNull* valueNull;
    TableRow* next;
};

/* The numeric words are carried only: neither written nor freed. */
struct TableCellDecl {
    char* name;
    char* type;
    int32_t isArray;   /* ISARRAY: 1 "TRUE", 0 otherwise */
    int32_t arraySize; /* ARRAYSIZE */
    int16_t cellPos;   /* CELLPOS */
    int16_t sortPos;   /* SORTPOS */
    int16_t sortDir;   /* SORTDIR: 1 "ASC", 2 "DESC", 0 otherwise */
    int16_t reserved;
    TableCellDecl* next;
};

/* TABLECELL.REFERENCE */
struct TableCellReference {
    char* name;
    char* referenceClass;
    int32_t isArray;
    int32_t arraySize;
    int16_t cellPos;
    int16_t sortPos;
    int16_t sortDir;
    int16_t reserved;
    TableCellReference* next;
};

CIMXML_END_DECLS

#endif
