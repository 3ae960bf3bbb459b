// The local operations the entry points dispatch to on a local-broker handle.
// Placeholders until the local broker back end replaces them: each fails
// with -1 and leaves its result NULL.
#include "cimxml/local.h"

extern "C" {

int CIMC_EnumInstances(NamedInstance** result, const char*, const char*, const char*, const char*, int, Error**,
                       const char*) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_EnumInstanceNames(InstanceName** result, const char*, const char*, const char*, const char*, Error**,
                           const char*) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_GetInstance(Instance** result, InstanceName*, const char*, const char*, const char*, Error**, const char*) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_Associators(ObjectWithPath** result, InstanceName*, const char*, const char*, const char*, const char*,
                     const char*, const char*, const char*, Error**, const char*) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_AssociatorNames(ObjectPath** result, InstanceName*, const char*, const char*, const char*, const char*,
                         const char*, const char*, const char*, const char*, Error**, const char*) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_References(ObjectWithPath** result, ObjectName*, ClassName*, const char*, unsigned int, unsigned int, void*,
                    const char*, const char*, const char*, Error**) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_ReferenceNames(ObjectPath** result, ObjectName*, ClassName*, const char*, const char*, const char*,
                        const char*, Error**) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_CreateInstance(InstanceName** result, Instance*, const char*, const char*, const char*, Error**) {
    if (result) *result = nullptr;
    return -1;
}

int CIMC_ModifyInstance(NamedInstance*, int, const char*, const char*, const char*, Error**) { return -1; }

int CIMC_DeleteInstance(InstanceName*, const char*, const char*, const char*, Error**) { return -1; }

int CIMC_InvokeMethod(InstanceName*, const char*, const char*, ParamValue*, ParamValue** outParams, const char*,
                      const char*, Error**) {
    if (outParams) *outParams = nullptr;
    return -1;
}

}  // extern "C"
