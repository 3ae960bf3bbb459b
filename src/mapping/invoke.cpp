// Method results: the broker's return value and output arguments become the
// ParamValue chain CIMC_XML_invokeMethod hands out ("ReturnValue" first).
#include <cstdlib>

#include "mapping/mapping.h"
#include "model/alloc.h"

using cimxml::dupString;
using cimxml::newRecord;
using namespace cimxml::mapping;

namespace {

// The value of one data item into an existing node. Objects in the item stay
// the item's.
int fillValue(ParamValue* node, const CIMCData& data) {
    unsigned int code = data.type & 0xFFFFu;
    if (code & CIMC_ARRAY) {
        if (!(node->valueArray = newRecord<ValueArray>())) return -1;
        return arrayTexts(&node->valueArray->value, data.type, data.value.array) == kAllocFailed ? -1 : 0;
    }
    if (code == CIMC_ref) {
        if (!data.value.ref) return 0;
        return (node->valueReference = newValueReference(data.value.ref)) ? 0 : -1;
    }
    if (code == CIMC_instance) {
        // An embedded instance, as the HTTP parser keeps one: in the Value.
        if (!data.value.inst) return 0;
        if (!(node->value = newRecord<Value>())) return -1;
        if (!(node->value->instance = newRecord<Instance>())) return -1;
        return util_GetInstanceValues(data.value.inst, node->value->instance);
    }
    ScalarText text(data.type, &data.value);
    if (text.null()) return 0;
    const char* value = text.get();
    if (code == CIMC_boolean) value = data.value.boolean ? "TRUE" : "FALSE";
    if (!(node->value = newRecord<Value>())) return -1;
    return (node->value->value = dupString(value)) ? 0 : -1;
}

}  // namespace

extern "C" {

int mapInvokeReturnValue(const char* name, CIMCData* data, ParamValue** head) {
    if (!head) return -1;
    ParamValue* node = newRecord<ParamValue>();
    if (!node) return -1;
    ParamValue** at = head;
    while (*at) at = &(*at)->next;
    *at = node;
    if (name && !(node->name = dupString(name))) return -1;
    if (!data) return 0;
    if (!(node->paramType = dupString(fullTypeName(data->type)))) return -1;
    if (data->state != 0) return 0;
    return fillValue(node, *data);
}

int CIMC_Handle_Invoke_ReturnValues(CIMCData* returnValue, CIMCArgs* outArgs, ParamValue** outParams) {
    if (!outParams) return -1;
    if (returnValue && mapInvokeReturnValue("ReturnValue", returnValue, outParams) != 0) return -1;
    if (!outArgs || !outArgs->ft || !outArgs->ft->getArgCount || !outArgs->ft->getArgAt) return 0;
    CIMCCount count = outArgs->ft->getArgCount(outArgs, nullptr);
    for (CIMCCount i = 0; i < count; ++i) {
        CIMCString* name = nullptr;
        CIMCData data = outArgs->ft->getArgAt(outArgs, i, &name, nullptr);
        int rc = mapInvokeReturnValue(chars(name), &data, outParams);
        release(name);
        if (rc != 0) return -1;
    }
    return 0;
}

}  // extern "C"
