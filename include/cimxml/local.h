/*
 * The local broker back end: the broker client library's object interface
 * (loaded at run time as libcimcClient<id>.so), the local operations, and the
 * conversions between the broker's typed values and this library's records.
 *
 * Broker objects are { private first field; function table }. Every function
 * of a table takes the object itself first. Slot 0 of a table is its version.
 */
#ifndef CIMXML_LOCAL_H
#define CIMXML_LOCAL_H

#include <stdint.h>

#include "records.h"

CIMXML_BEGIN_DECLS

typedef uint16_t CIMCType;
typedef uint16_t CIMCValueState;
typedef unsigned int CIMCFlags;
typedef uint8_t CIMCBoolean;
typedef int CIMCCount;

/* Type codes (the array bit is 8192). */
enum {
    CIMC_boolean = 2, CIMC_char16 = 3, CIMC_real32 = 8, CIMC_real64 = 12,
    CIMC_uint8 = 128, CIMC_uint16 = 144, CIMC_uint32 = 160, CIMC_uint64 = 176,
    CIMC_sint8 = 192, CIMC_sint16 = 208, CIMC_sint32 = 224, CIMC_sint64 = 240,
    CIMC_instance = 4096, CIMC_ref = 4352, CIMC_args = 4608, CIMC_class = 4864,
    CIMC_enumeration = 5376, CIMC_string = 5632, CIMC_chars = 5888, CIMC_dateTime = 6144,
    CIMC_ARRAY = 8192
};

/* Value states. */
enum { CIMC_goodValue = 0, CIMC_nullValue = 0x100, CIMC_keyValue = 0x200,
       CIMC_notFound = 0x400, CIMC_badValue = 0x8000 };

/* Flag bits. */
enum { CIMC_FLAG_LocalOnly = 1, CIMC_FLAG_DeepInheritance = 2, CIMC_FLAG_IncludeQualifiers = 4,
       CIMC_FLAG_IncludeClassOrigin = 8 };

typedef struct CIMCEnv CIMCEnv;
typedef struct CIMCClient CIMCClient;
typedef struct CIMCInstance CIMCInstance;
typedef struct CIMCObjectPath CIMCObjectPath;
typedef struct CIMCArgs CIMCArgs;
typedef struct CIMCClass CIMCClass;
typedef struct CIMCEnumeration CIMCEnumeration;
typedef struct CIMCArray CIMCArray;
typedef struct CIMCString CIMCString;
typedef struct CIMCDateTime CIMCDateTime;

typedef union CIMCValue {
    uint64_t uint64; uint32_t uint32; uint16_t uint16; uint8_t uint8;
    int64_t sint64; int32_t sint32; int16_t sint16; int8_t sint8;
    float real32; double real64;
    CIMCBoolean boolean; uint16_t char16;
    CIMCInstance* inst; CIMCObjectPath* ref; CIMCArgs* args; CIMCClass* cls;
    CIMCEnumeration* Enum; CIMCArray* array; CIMCString* string; char* chars;
    CIMCDateTime* dateTime;
    struct { void* ptr; unsigned int length; } dataPtr;
} CIMCValue;

typedef struct CIMCData {
    CIMCType type;
    CIMCValueState state;
    CIMCValue value;
} CIMCData;

typedef struct CIMCStatus {
    int rc; /* 0 = success */
    CIMCString* msg;
} CIMCStatus;

typedef struct CIMCEnvFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCEnv* env);
    CIMCClient* (*connect)(CIMCEnv* env, const char* host, const char* scheme, const char* port,
                           const char* user, const char* pwd, CIMCStatus* rc);
    CIMCClient* (*connect2)(CIMCEnv* env, const char* host, const char* scheme, const char* port,
                            const char* user, const char* pwd, int verifyMode, const char* trustStore,
                            const char* certFile, const char* keyFile, CIMCStatus* rc);
    CIMCInstance* (*newInstance)(CIMCEnv* env, const CIMCObjectPath* op, CIMCStatus* rc);
    CIMCObjectPath* (*newObjectPath)(CIMCEnv* env, const char* ns, const char* cn, CIMCStatus* rc);
    CIMCArgs* (*newArgs)(CIMCEnv* env, CIMCStatus* rc);
    CIMCString* (*newString)(CIMCEnv* env, const char* data, CIMCStatus* rc);
    CIMCArray* (*newArray)(CIMCEnv* env, CIMCCount max, CIMCType type, CIMCStatus* rc);
    CIMCDateTime* (*newDateTime)(CIMCEnv* env, CIMCStatus* rc);
    CIMCDateTime* (*newDateTimeFromBinary)(CIMCEnv* env, uint64_t binTime, CIMCBoolean interval, CIMCStatus* rc);
    CIMCDateTime* (*newDateTimeFromChars)(CIMCEnv* env, const char* utcTime, CIMCStatus* rc);
} CIMCEnvFT;

typedef struct CIMCClientFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCClient* cl);
    CIMCClient* (*clone)(CIMCClient* cl, CIMCStatus* rc);
    CIMCClass* (*getClass)(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties, CIMCStatus* rc);
    CIMCEnumeration* (*enumClassNames)(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, CIMCStatus* rc);
    CIMCEnumeration* (*enumClasses)(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, CIMCStatus* rc);
    CIMCInstance* (*getInstance)(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties,
                                 CIMCStatus* rc);
    CIMCObjectPath* (*createInstance)(CIMCClient* cl, CIMCObjectPath* op, CIMCInstance* inst, CIMCStatus* rc);
    CIMCStatus (*setInstance)(CIMCClient* cl, CIMCObjectPath* op, CIMCInstance* inst, CIMCFlags flags,
                              char** properties);
    CIMCStatus (*deleteInstance)(CIMCClient* cl, CIMCObjectPath* op);
    CIMCEnumeration* (*execQuery)(CIMCClient* cl, CIMCObjectPath* op, const char* query, const char* lang,
                                  CIMCStatus* rc);
    CIMCEnumeration* (*enumInstanceNames)(CIMCClient* cl, CIMCObjectPath* op, CIMCStatus* rc);
    CIMCEnumeration* (*enumInstances)(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties,
                                      CIMCStatus* rc);
    CIMCEnumeration* (*associators)(CIMCClient* cl, CIMCObjectPath* op, const char* assocClass,
                                    const char* resultClass, const char* role, const char* resultRole,
                                    CIMCFlags flags, char** properties, CIMCStatus* rc);
    CIMCEnumeration* (*associatorNames)(CIMCClient* cl, CIMCObjectPath* op, const char* assocClass,
                                        const char* resultClass, const char* role, const char* resultRole,
                                        CIMCStatus* rc);
    CIMCEnumeration* (*references)(CIMCClient* cl, CIMCObjectPath* op, const char* resultClass, const char* role,
                                   CIMCFlags flags, char** properties, CIMCStatus* rc);
    CIMCEnumeration* (*referenceNames)(CIMCClient* cl, CIMCObjectPath* op, const char* resultClass,
                                       const char* role, CIMCStatus* rc);
    CIMCData (*invokeMethod)(CIMCClient* cl, CIMCObjectPath* op, const char* method, CIMCArgs* in, CIMCArgs* out,
                             CIMCStatus* rc);
    CIMCStatus (*setProperty)(CIMCClient* cl, CIMCObjectPath* op, const char* name, CIMCValue* value,
                              CIMCType type);
    CIMCData (*getProperty)(CIMCClient* cl, CIMCObjectPath* op, const char* name, CIMCStatus* rc);
} CIMCClientFT;

typedef struct CIMCObjectPathFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCObjectPath* op);
    CIMCObjectPath* (*clone)(const CIMCObjectPath* op, CIMCStatus* rc);
    CIMCStatus (*setNameSpace)(CIMCObjectPath* op, const char* ns);
    CIMCString* (*getNameSpace)(const CIMCObjectPath* op, CIMCStatus* rc);
    CIMCStatus (*setHostname)(CIMCObjectPath* op, const char* hn);
    CIMCString* (*getHostname)(const CIMCObjectPath* op, CIMCStatus* rc);
    CIMCStatus (*setClassName)(CIMCObjectPath* op, const char* cn);
    CIMCString* (*getClassName)(const CIMCObjectPath* op, CIMCStatus* rc);
    CIMCStatus (*addKey)(CIMCObjectPath* op, const char* name, const CIMCValue* value, CIMCType type);
    CIMCData (*getKey)(const CIMCObjectPath* op, const char* name, CIMCStatus* rc);
    CIMCData (*getKeyAt)(const CIMCObjectPath* op, CIMCCount index, CIMCString** name, CIMCStatus* rc);
    CIMCCount (*getKeyCount)(const CIMCObjectPath* op, CIMCStatus* rc);
    void* unused13_18[6]; /* namespace copy and qualifier look-ups */
    CIMCString* (*toString)(const CIMCObjectPath* op, CIMCStatus* rc);
} CIMCObjectPathFT;

typedef struct CIMCInstanceFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCInstance* inst);
    CIMCInstance* (*clone)(const CIMCInstance* inst, CIMCStatus* rc);
    CIMCData (*getProperty)(const CIMCInstance* inst, const char* name, CIMCStatus* rc);
    CIMCData (*getPropertyAt)(const CIMCInstance* inst, CIMCCount index, CIMCString** name, CIMCStatus* rc);
    CIMCCount (*getPropertyCount)(const CIMCInstance* inst, CIMCStatus* rc);
    CIMCStatus (*setProperty)(const CIMCInstance* inst, const char* name, const CIMCValue* value, CIMCType type);
    CIMCObjectPath* (*getObjectPath)(const CIMCInstance* inst, CIMCStatus* rc);
    CIMCStatus (*setPropertyFilter)(CIMCInstance* inst, const char** properties, const char** keys);
} CIMCInstanceFT;

typedef struct CIMCClassFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCClass* cls);
    CIMCClass* (*clone)(const CIMCClass* cls, CIMCStatus* rc);
    CIMCString* (*getClassName)(const CIMCClass* cls, CIMCStatus* rc);
    CIMCData (*getProperty)(const CIMCClass* cls, const char* name, CIMCStatus* rc);
    CIMCData (*getPropertyAt)(const CIMCClass* cls, CIMCCount index, CIMCString** name, CIMCStatus* rc);
    CIMCCount (*getPropertyCount)(const CIMCClass* cls, CIMCStatus* rc);
    void* getQualifier;
    void* getQualifierAt;
    void* getQualifierCount;
} CIMCClassFT;

typedef struct CIMCEnumerationFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCEnumeration* en);
    CIMCEnumeration* (*clone)(const CIMCEnumeration* en, CIMCStatus* rc);
    CIMCData (*getNext)(const CIMCEnumeration* en, CIMCStatus* rc);
    CIMCBoolean (*hasNext)(const CIMCEnumeration* en, CIMCStatus* rc);
    CIMCArray* (*toArray)(const CIMCEnumeration* en, CIMCStatus* rc);
} CIMCEnumerationFT;

typedef struct CIMCArrayFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCArray* ar);
    CIMCArray* (*clone)(const CIMCArray* ar, CIMCStatus* rc);
    CIMCCount (*getSize)(const CIMCArray* ar, CIMCStatus* rc);
    CIMCType (*getSimpleType)(const CIMCArray* ar, CIMCStatus* rc);
    CIMCData (*getElementAt)(const CIMCArray* ar, CIMCCount index, CIMCStatus* rc);
    CIMCStatus (*setElementAt)(CIMCArray* ar, CIMCCount index, const CIMCValue* value, CIMCType type);
} CIMCArrayFT;

typedef struct CIMCStringFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCString* st);
    CIMCString* (*clone)(const CIMCString* st, CIMCStatus* rc);
    char* (*getCharPtr)(const CIMCString* st, CIMCStatus* rc);
} CIMCStringFT;

typedef struct CIMCArgsFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCArgs* as);
    CIMCArgs* (*clone)(const CIMCArgs* as, CIMCStatus* rc);
    CIMCStatus (*addArg)(CIMCArgs* as, const char* name, const CIMCValue* value, CIMCType type);
    CIMCData (*getArg)(const CIMCArgs* as, const char* name, CIMCStatus* rc);
    CIMCData (*getArgAt)(const CIMCArgs* as, CIMCCount index, CIMCString** name, CIMCStatus* rc);
    CIMCCount (*getArgCount)(const CIMCArgs* as, CIMCStatus* rc);
} CIMCArgsFT;

typedef struct CIMCDateTimeFT {
    int ftVersion;
    CIMCStatus (*release)(CIMCDateTime* dt);
    CIMCDateTime* (*clone)(const CIMCDateTime* dt, CIMCStatus* rc);
    uint64_t (*getBinaryFormat)(const CIMCDateTime* dt, CIMCStatus* rc);
    CIMCString* (*getStringFormat)(const CIMCDateTime* dt, CIMCStatus* rc);
    CIMCBoolean (*isInterval)(const CIMCDateTime* dt, CIMCStatus* rc);
} CIMCDateTimeFT;

struct CIMCEnv { void* hdl; const CIMCEnvFT* ft; };
struct CIMCClient { void* hdl; const CIMCClientFT* ft; };
struct CIMCInstance { void* hdl; const CIMCInstanceFT* ft; };
struct CIMCObjectPath { void* hdl; const CIMCObjectPathFT* ft; };
struct CIMCArgs { void* hdl; const CIMCArgsFT* ft; };
struct CIMCClass { void* hdl; const CIMCClassFT* ft; };
struct CIMCEnumeration { void* hdl; const CIMCEnumerationFT* ft; };
struct CIMCArray { void* hdl; const CIMCArrayFT* ft; };
struct CIMCString { void* hdl; const CIMCStringFT* ft; }; /* hdl is the char* text */
struct CIMCDateTime { void* hdl; const CIMCDateTimeFT* ft; };

/* The broker library's factory: _Create_<id>_Env. */
typedef CIMCEnv* (*CIMCEnvFactory)(const char* id, unsigned int options, int* rc, char** msg);

/* ---- environment loading and tracing ------------------------------------- */

/* Loads libcimcClient<id>.so and returns its environment, or NULL with *rc 1
 * (library not loadable) or 2 (entry missing) and a message in *msg that the
 * caller owns. */
CIMXML_API CIMCEnv* getCIMCEnv(const char* id, unsigned int options, int* rc, char** msg);
CIMXML_API void setSFCBTrace(void* libraryHandle);
CIMXML_API int cimc_debug(int entering, const char* name);

/* ---- local operations ------------------------------------------------------ */
/* Record results go through the first argument; the int result is 0 or -1. */

CIMXML_API int CIMC_EnumInstances(NamedInstance** result, const char* className, const char* host,
                                  const char* userName, const char* password, int deepInheritance,
                                  Error** errorOut, const char* nameSpace);
CIMXML_API int CIMC_EnumInstanceNames(InstanceName** result, const char* className, const char* host,
                                      const char* userName, const char* password, Error** errorOut,
                                      const char* nameSpace);
CIMXML_API int CIMC_GetInstance(Instance** result, InstanceName* instanceName, const char* host,
                                const char* userName, const char* password, Error** errorOut,
                                const char* nameSpace);
CIMXML_API int CIMC_GetClass(Class** result, const char* className, const char* host, const char* userName,
                             const char* password, Error** errorOut, const char* nameSpace);
CIMXML_API int CIMC_Associators(ObjectWithPath** result, InstanceName* objectPath, const char* assocClass,
                                const char* resultClass, const char* role, const char* resultRole,
                                const char* host, const char* userName, const char* password, Error** errorOut,
                                const char* nameSpace);
CIMXML_API int CIMC_AssociatorNames(ObjectPath** result, InstanceName* objectPath, const char* className,
                                    const char* assocClass, const char* resultClass, const char* role,
                                    const char* resultRole, const char* host, const char* userName,
                                    const char* password, Error** errorOut, const char* nameSpace);
CIMXML_API int CIMC_References(ObjectWithPath** result, ObjectName* objectName, ClassName* resultClass,
                               const char* role, unsigned int includeQualifiers, unsigned int includeClassOrigin,
                               void* reserved, const char* nameSpace, const char* userName,
                               const char* password, Error** errorOut);
CIMXML_API int CIMC_ReferenceNames(ObjectPath** result, ObjectName* objectName, ClassName* resultClass,
                                   const char* role, const char* nameSpace, const char* userName,
                                   const char* password, Error** errorOut);
CIMXML_API int CIMC_CreateInstance(InstanceName** result, Instance* newInstance, const char* nameSpace,
                                   const char* userName, const char* password, Error** errorOut);
CIMXML_API int CIMC_ModifyInstance(NamedInstance* modifiedInstance, int flags, const char* nameSpace,
                                   const char* userName, const char* password, Error** errorOut);
CIMXML_API int CIMC_DeleteInstance(InstanceName* instanceName, const char* nameSpace, const char* userName,
                                   const char* password, Error** errorOut);
CIMXML_API int CIMC_InvokeMethod(InstanceName* objectPath, const char* methodName, const char* nameSpace,
                                 ParamValue* inParams, ParamValue** outParams, const char* userName,
                                 const char* password, Error** errorOut);

/* ---- argument builders and property setters ------------------------------ */

CIMXML_API int CIMC_CreatePropertyArguments(ParamValue* paramValue, CIMCArgs* args, CIMCEnv* env);
CIMXML_API int CIMC_CreateCDataArgument(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args,
                                        CIMCEnv* env);
CIMXML_API int CDATASectionHandler(Property* properties, PropertyArray* propertyArrays, CIMCInstance* instance,
                                   CIMCEnv* env);
CIMXML_API int CIMC_CreatePropertyArrayArguments(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args,
                                                 CIMCEnv* env);
CIMXML_API int CIMC_CreateValueRefArguments(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args,
                                            CIMCEnv* env);
CIMXML_API int CIMC_Handle_Modify_Properties(Property* property, CIMCInstance* instance, CIMCEnv* env);
CIMXML_API int CIMC_Handle_Modify_PropertieArray(PropertyArray* property, CIMCInstance* instance, CIMCEnv* env);

/* ---- type codes, value text and mapping ------------------------------------ */
/* Broker objects handed to these functions stay the broker's, with two
 * exceptions named below (GetInstanceProperties releases each property's
 * name text and array object; value2Chars releases the string it asks a
 * reference or datetime for). Records they build belong to the caller, who
 * frees them with the Free_ function of their type. */

/* Datetime: year, month, day, hour, minute, second, sub-second (not read),
 * UTC offset in minutes. */
typedef struct CIMCDateTimeRecord {
    int32_t year, month, day, hour, minute, second, subSecond, utcOffset;
} CIMCDateTimeRecord;

typedef struct CIMCIntervalRecord {
    int32_t days, hours, minutes, seconds;
} CIMCIntervalRecord;

/* Type name for a code ("" when unknown); only the low 16 bits count. Of the
 * arrays only uint16, sint8 and string are named; reals and char16 are not. */
CIMXML_API const char* CIMC_getDataType(unsigned int code);
/* Code for a type name (exact case), 0 when unknown. "string" gives the
 * chars code 5888. */
CIMXML_API CIMCType cimc_getCMPIType(const char* name);
/* Writes the text of one value into text (nothing for an unhandled type,
 * an array, or a NULL string object). text must hold 512 bytes: a longer
 * string, reference or datetime text is cut to 511. */
CIMXML_API void value2Chars(CIMCType type, CIMCValue* value, char* text);
/* Appends one Value per element of array (type: the array's type code) to
 * *valueList. The two middle arguments are not used. 0, or -1 when a string
 * element cannot be read (the elements before it stay) or an append fails. */
CIMXML_API int getPropertyArrayData(Value** valueList, CIMCType type, Property* unused1, void* unused2,
                                    CIMCArray* array);
/* Append to text (zero-terminated). 0, or -1 for NULL arguments. The text is
 * 25 characters for in-range fields; fields out of range widen it, to at
 * most 84 (datetime) or 55 (interval) characters. */
CIMXML_API int CIMC_ConvertDateTimeToString(const CIMCDateTimeRecord* dateTime, char* text);
CIMXML_API int CIMC_ConvertIntervalToString(const CIMCIntervalRecord* interval, char* text);

/* The properties of an instance, or of a class when cimClass is not NULL, as
 * three new chains (NULL when empty): scalars (a null scalar is left out),
 * arrays (a null array gets an empty ValueArray) and references. The chains
 * are stored even on failure. 0, or -1 when an allocation fails. */
CIMXML_API int GetInstanceProperties(CIMCInstance* instance, CIMCClass* cimClass, Property** propertiesOut,
                                     PropertyArray** propertyArraysOut,
                                     PropertyReference** propertyReferencesOut);
/* Fill a zero-filled record: instance and instanceName (each with its own
 * ClassName); the Instance; the Class (name and properties only). 0 or -1. */
CIMXML_API int mapInstance(CIMCInstance* instance, NamedInstance* namedInstance);
CIMXML_API int mapGetInstance(Instance* instanceRecord, CIMCInstance* instance);
CIMXML_API int mapGetClass(CIMCClass* cimClass, Class* classRecord);

/* ---- names, paths and association results ---------------------------------
 * Each map* function fills one zero-filled destination record from a broker
 * object; each AddTo* function appends a new node at the tail of *head and
 * fills it. 0 on success, a negative value when an allocation fails (the
 * records built so far stay in the destination). A NULL broker object is
 * not an error: nothing is filled. Broker objects stay the broker's: nothing
 * here releases the object it was handed.
 *
 * Key bindings come out as KeyValue { value, valueType and cimType both the
 * type name ("string", "uint32", "boolean"...) }, booleans as "TRUE" and
 * "FALSE"; a reference key carries a ValueReference instead. A reference
 * (key or value) whose path has a namespace is an instancePath (host
 * "localhost", namespace path as below), otherwise a bare instanceName.
 * Association results carry the namespace path "root" + the tail of the
 * broker's namespace from its first "interop", else its first "cimv2",
 * else "". */

/* Appends the keys of a broker object path to *keyBindingsOut. */
CIMXML_API int GetKeyBindingValues(CIMCObjectPath* objectPath, KeyBinding** keyBindingsOut);
/* Appends a new InstanceName (class name and key bindings) for a broker
 * object path to the chain at *instanceNameOut. */
CIMXML_API int GetKeysFromObjectPath(CIMCObjectPath* objectPath, InstanceName** instanceNameOut);
/* The reverse, for requests: each KeyBinding of instanceName becomes a key of
 * objectPath. valueType "string" or none: chars; "boolean": TRUE/FALSE in any
 * case; "numeric": the integer or real type of cimType when it has one, else
 * sint64 for a leading '-' and uint64 otherwise, saturating at the type's
 * limits; a valueType that is a type name ("uint32", "datetime"...) gives
 * that type. A reference key becomes an object path made through env (in the
 * reference's namespace, else objectPath's), added and released. 0, or -1
 * for a NULL objectPath or instanceName, a binding without a value, a text
 * that does not convert, or a key the broker refuses. */
CIMXML_API int CIMC_AddKeyValues(CIMCObjectPath* objectPath, InstanceName* instanceName, CIMCEnv* env);
/* Class name and key bindings of objectPath into a zero-filled InstanceName. */
CIMXML_API int mapEnumInstanceNames(CIMCObjectPath* objectPath, InstanceName* instanceName);
CIMXML_API int AddToEnumInstanceNameList(InstanceName** head, CIMCObjectPath* objectPath);
/* The class name and properties of a broker instance into an Instance
 * (mapGetInstance with the arguments the other way round). */
CIMXML_API int util_GetInstanceValues(CIMCInstance* instance, Instance* instanceRecord);
/* An ObjectWithPath for an instance returned by Associators or References:
 * instancePath (namespace path, InstanceName of the instance's path) and the
 * Instance. */
CIMXML_API int mapAssociators(CIMCInstance* instance, ObjectWithPath* objectWithPath);
CIMXML_API int mapReferences(CIMCInstance* instance, ObjectWithPath* objectWithPath);
CIMXML_API int AddToAssociatorList(ObjectWithPath** head, CIMCInstance* instance);
/* An ObjectPath (instancePath as above) for a path returned by
 * AssociatorNames or ReferenceNames. */
CIMXML_API int mapAssociatorNames(CIMCObjectPath* objectPath, ObjectPath* path);
CIMXML_API int mapReferenceNames(CIMCObjectPath* objectPath, ObjectPath* path);
/* The path CreateInstance returned, as an InstanceName. */
CIMXML_API int mapCreateinstance(CIMCObjectPath* objectPath, InstanceName* instanceName);
/* Appends one ParamValue named `name` for a broker data item: paramType the
 * type name (the element type for arrays, "reference", "real64"...), then a
 * Value text (booleans "TRUE"/"FALSE"), a ValueArray for arrays, a
 * ValueReference for references, or a Value holding an embedded Instance.
 * A null item gets name and paramType only; a NULL data pointer the name. */
CIMXML_API int mapInvokeReturnValue(const char* name, CIMCData* data, ParamValue** head);
/* The result of a method call as the HTTP back end hands it back: a node
 * "ReturnValue" for returnValue (none when it is NULL), then one node per
 * output argument in the broker's order. *outParams must be NULL or a chain
 * to append to. */
CIMXML_API int CIMC_Handle_Invoke_ReturnValues(CIMCData* returnValue, CIMCArgs* outArgs, ParamValue** outParams);

CIMXML_END_DECLS

#endif
