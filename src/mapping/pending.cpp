// Placeholders for the result-mapping functions until src/mapping/ defines
// them. Delete each one as its real definition lands; delete the file when
// it is empty.
#include "cimxml/local.h"

extern "C" {
const char* CIMC_getDataType(unsigned int) { return ""; }
CIMCType cimc_getCMPIType(const char*) { return 0; }
void value2Chars(CIMCType, CIMCValue*, char*) {}
int getPropertyArrayData(Value**, CIMCType, Property*, void*, CIMCArray*) { return -1; }
int CIMC_ConvertDateTimeToString(const CIMCDateTimeRecord*, char*) { return -1; }
int CIMC_ConvertIntervalToString(const CIMCIntervalRecord*, char*) { return -1; }
int GetInstanceProperties(CIMCInstance*, CIMCClass*, Property**, PropertyArray**, PropertyReference**) { return -1; }
int mapInstance(CIMCInstance*, NamedInstance*) { return -1; }
int mapGetInstance(Instance*, CIMCInstance*) { return -1; }
int mapGetClass(CIMCClass*, Class*) { return -1; }
int GetKeyBindingValues(CIMCObjectPath*, KeyBinding**) { return -1; }
int GetKeysFromObjectPath(CIMCObjectPath*, InstanceName**) { return -1; }
int CIMC_AddKeyValues(CIMCObjectPath*, InstanceName*, CIMCEnv*) { return -1; }
int mapEnumInstanceNames(CIMCObjectPath*, InstanceName*) { return -1; }
int AddToEnumInstanceNameList(InstanceName**, CIMCObjectPath*) { return -1; }
int util_GetInstanceValues(CIMCInstance*, Instance*) { return -1; }
int mapAssociators(CIMCInstance*, ObjectWithPath*) { return -1; }
int mapReferences(CIMCInstance*, ObjectWithPath*) { return -1; }
int AddToAssociatorList(ObjectWithPath**, CIMCInstance*) { return -1; }
int mapAssociatorNames(CIMCObjectPath*, ObjectPath*) { return -1; }
int mapReferenceNames(CIMCObjectPath*, ObjectPath*) { return -1; }
int mapCreateinstance(CIMCObjectPath*, InstanceName*) { return -1; }
int mapInvokeReturnValue(const char*, CIMCData*, ParamValue**) { return -1; }
int CIMC_Handle_Invoke_ReturnValues(CIMCData*, CIMCArgs*, ParamValue**) { return -1; }
}
