// Placeholders for the broker loading, argument builders and property
// setters until src/clientapi.cpp and src/local/ define them. Delete each one
// as its real definition lands; delete the file when it is empty.
#include "cimxml/local.h"

extern "C" {
CIMCEnv* getCIMCEnv(const char*, unsigned int, int* rc, char**) { if (rc) *rc = 1; return nullptr; }
void setSFCBTrace(void*) {}
int cimc_debug(int, const char*) { return 0; }
int CIMC_GetClass(Class** result, const char*, const char*, const char*, const char*, Error**, const char*) {
    if (result) *result = nullptr;
    return -1;
}
int CIMC_CreatePropertyArguments(ParamValue*, CIMCArgs*, CIMCEnv*) { return -1; }
int CIMC_CreateCDataArgument(ParamValue*, const char*, CIMCArgs*, CIMCEnv*) { return -1; }
int CDATASectionHandler(Property*, PropertyArray*, CIMCInstance*, CIMCEnv*) { return 0; }
int CIMC_CreatePropertyArrayArguments(ParamValue*, const char*, CIMCArgs*, CIMCEnv*) { return -1; }
int CIMC_CreateValueRefArguments(ParamValue*, const char*, CIMCArgs*, CIMCEnv*) { return -1; }
int CIMC_Handle_Modify_Properties(Property*, CIMCInstance*, CIMCEnv*) { return -1; }
int CIMC_Handle_Modify_PropertieArray(PropertyArray*, CIMCInstance*, CIMCEnv*) { return -1; }
}
