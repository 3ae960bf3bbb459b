// The exported operations: each hands the call to the back end the handle
// chose (0 = CIM-XML over HTTP, 1 = local broker). No logic of their own
// beyond the NULL guards and rearranging the handle's fields for the local
// functions.
#include <cstdint>

#include "cimxml/client.h"
#include "cimxml/local.h"

namespace {

enum Backend { kHttp = 0, kLocal = 1 };

const char* nameOf(const ClassName* className) { return className ? className->name : nullptr; }

}  // namespace

extern "C" {

Class* CIM_GetClass(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                    unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                    Error** errorOut) {
    if (!handle) return nullptr;
    // Over HTTP whatever the back end: there is no local form.
    return CIMC_XML_GetClass(handle, className, localOnly, includeQualifiers, includeClassOrigin, reserved,
                             errorOut);
}

Class* CIM_EnumerateClasses(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                            unsigned int localOnly, unsigned int includeQualifiers, unsigned int includeClassOrigin,
                            Error** errorOut) {
    if (!handle || handle->interfaceType != kHttp) return nullptr;
    return CIMC_XML_EnumerateClasses(handle, className, deepInheritance, localOnly, includeQualifiers,
                                     includeClassOrigin, errorOut);
}

NamedInstance* EnumerateInstances(ClientHandle* handle, ClassName* className, unsigned int localOnly,
                                  unsigned int deepInheritance, unsigned int includeQualifiers,
                                  unsigned int includeClassOrigin, void* /*reserved*/, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_EnumerateInstances(handle, className, localOnly, deepInheritance, includeQualifiers,
                                           includeClassOrigin, errorOut);
    if (handle->interfaceType != kLocal || !nameOf(className)) return nullptr;
    NamedInstance* result = nullptr;
    CIMC_EnumInstances(&result, className->name, handle->host, handle->userName, handle->password,
                       static_cast<int>(deepInheritance), errorOut, handle->nameSpace);
    return result;
}

ClassName* EnumerateClassNames(ClientHandle* handle, ClassName* className, unsigned int deepInheritance,
                               Error** errorOut) {
    if (!handle || handle->interfaceType != kHttp) return nullptr;
    return CIMC_XML_EnumerateClassNames(handle, className, deepInheritance, errorOut);
}

Instance* GetInstance(ClientHandle* handle, InstanceName* instanceName, unsigned int localOnly,
                      unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                      Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_GetInstance(handle, instanceName, localOnly, includeQualifiers, includeClassOrigin,
                                    reserved, errorOut);
    if (handle->interfaceType != kLocal) return nullptr;
    Instance* result = nullptr;
    CIMC_GetInstance(&result, instanceName, handle->host, handle->userName, handle->password, errorOut,
                     handle->nameSpace);
    return result;
}

InstanceName* EnumerateInstanceNames(ClientHandle* handle, ClassName* className, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp) return CIMC_XML_EnumerateInstanceNames(handle, className, errorOut);
    if (handle->interfaceType != kLocal || !nameOf(className)) return nullptr;
    InstanceName* result = nullptr;
    CIMC_EnumInstanceNames(&result, className->name, handle->host, handle->userName, handle->password, errorOut,
                           handle->nameSpace);
    return result;
}

ObjectWithPath* Associators(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                            ClassName* resultClass, const char* role, const char* resultRole,
                            unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                            Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_Associators(handle, objectName, assocClass, resultClass, role, resultRole,
                                    includeQualifiers, includeClassOrigin, reserved, errorOut);
    if (handle->interfaceType != kLocal || !objectName || !objectName->instanceName) return nullptr;
    ObjectWithPath* result = nullptr;
    CIMC_Associators(&result, objectName->instanceName, nameOf(assocClass), nameOf(resultClass), role, resultRole,
                     handle->host, handle->userName, handle->password, errorOut, handle->nameSpace);
    return result;
}

ObjectPath* AssociatorNames(ClientHandle* handle, ObjectName* objectName, ClassName* assocClass,
                            ClassName* resultClass, const char* role, const char* resultRole, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_AssociatorNames(handle, objectName, assocClass, resultClass, role, resultRole, errorOut);
    if (handle->interfaceType != kLocal) return nullptr;
    // The local form needs the object path and its class-name record; without
    // them there is nothing to ask for.
    if (!objectName || !objectName->instanceName || !objectName->instanceName->className) return nullptr;
    ObjectPath* result = nullptr;
    CIMC_AssociatorNames(&result, objectName->instanceName, objectName->instanceName->className->name,
                         nameOf(assocClass), nameOf(resultClass), role, resultRole, handle->host, handle->userName,
                         handle->password, errorOut, handle->nameSpace);
    return result;
}

ObjectWithPath* References(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass, const char* role,
                           unsigned int includeQualifiers, unsigned int includeClassOrigin, void* reserved,
                           Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_References(handle, objectName, resultClass, role, includeQualifiers, includeClassOrigin,
                                   reserved, errorOut);
    if (handle->interfaceType != kLocal || !objectName || !objectName->instanceName) return nullptr;
    ObjectWithPath* result = nullptr;
    CIMC_References(&result, objectName, resultClass, role, includeQualifiers, includeClassOrigin, reserved,
                    handle->nameSpace, handle->userName, handle->password, errorOut);
    return result;
}

ObjectPath* ReferenceNames(ClientHandle* handle, ObjectName* objectName, ClassName* resultClass, const char* role,
                           Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_ReferenceNames(handle, objectName, resultClass, role, errorOut);
    if (handle->interfaceType != kLocal) return nullptr;
    ObjectPath* result = nullptr;
    CIMC_ReferenceNames(&result, objectName, resultClass, role, handle->nameSpace, handle->userName,
                        handle->password, errorOut);
    return result;
}

InstanceName* CIM_CreateInstance(ClientHandle* handle, Instance* newInstance, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp) return CIMC_XML_CreateInstance(handle, newInstance, errorOut);
    if (handle->interfaceType != kLocal) return nullptr;
    InstanceName* result = nullptr;
    CIMC_CreateInstance(&result, newInstance, handle->nameSpace, handle->userName, handle->password, errorOut);
    return result;
}

NamedInstance* ModifyInstance(ClientHandle* handle, NamedInstance* modifiedInstance, unsigned int includeQualifiers,
                              void* reserved, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_ModifyInstance(handle, modifiedInstance, includeQualifiers, reserved, errorOut);
    // Deliberate: an unknown back end hands the argument back.
    if (handle->interfaceType != kLocal) return modifiedInstance;
    int rc = CIMC_ModifyInstance(modifiedInstance, 0, handle->nameSpace, handle->userName, handle->password,
                                 errorOut);
    return reinterpret_cast<NamedInstance*>(static_cast<std::intptr_t>(rc));
}

InstanceName* DeleteInstance(ClientHandle* handle, InstanceName* instanceName, Error** errorOut) {
    if (!handle) return nullptr;
    if (handle->interfaceType == kHttp) return CIMC_XML_DeleteInstance(handle, instanceName, errorOut);
    // Deliberate: an unknown back end hands the argument back.
    if (handle->interfaceType != kLocal) return instanceName;
    int rc = CIMC_DeleteInstance(instanceName, handle->nameSpace, handle->userName, handle->password, errorOut);
    return reinterpret_cast<InstanceName*>(static_cast<std::intptr_t>(rc));
}

int invokeMethod(ClientHandle* handle, InstanceName* objectPath, const char* methodName, ParamValue* inParams,
                 ParamValue** outParams, Error** errorOut) {
    if (!handle) return -1;
    if (handle->interfaceType == kHttp)
        return CIMC_XML_invokeMethod(handle, objectPath, methodName, inParams, outParams, errorOut);
    if (handle->interfaceType != kLocal) return -1;
    return CIMC_InvokeMethod(objectPath, methodName, handle->nameSpace, inParams, outParams, handle->userName,
                             handle->password, errorOut);
}

ObjectWithPath* ExecQuery(ClientHandle* handle, const char* queryLanguage, const char* query, Error** errorOut) {
    if (!handle || handle->interfaceType != kHttp) return nullptr;
    return CIMC_XML_ExecQuery(handle, queryLanguage, query, errorOut);
}

}  // extern "C"
