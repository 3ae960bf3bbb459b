// Writing a caller's property records into a broker instance for
// ModifyInstance (and CreateInstance): each value text is converted by its
// CIM type name and set with the broker's type code.
#include <cstring>

#include "cimxml/local.h"
#include "local/broker_values.h"

using namespace cimxml::local;

namespace {

constexpr size_t kStringElementBuffer = 512;

CIMCStatus setProperty(CIMCInstance* instance, const char* name, const CIMCValue* value, CIMCType type) {
    return instance->ft->setProperty(instance, name, value, type);
}

}  // namespace

extern "C" {

int CIMC_Handle_Modify_Properties(Property* property, CIMCInstance* instance, CIMCEnv* env) {
    if (!property || !property->name || !property->type || !instance) return -1;
    const char* name = property->name;
    const char* type = property->type;
    const char* text = property->value ? property->value->value : nullptr;
    CIMCValue value;
    std::memset(&value, 0, sizeof value);

    if (CIMCType code = integerTypeCode(type)) {
        if (!text) {
            setProperty(instance, name, nullptr, code);
            return 0;
        }
        integerValue(code, text, &value);
        setProperty(instance, name, &value, code);
    } else if (std::strcmp(type, "boolean") == 0) {
        if (!text) {
            setProperty(instance, name, nullptr, CIMC_boolean);
            return 0;
        }
        value.boolean = booleanValue(text);
        setProperty(instance, name, &value, CIMC_boolean);
    } else if (std::strcmp(type, "datetime") == 0) {
        if (!text) {
            setProperty(instance, name, nullptr, CIMC_dateTime);
            return 0;
        }
        CIMCDateTime* dt = env ? env->ft->newDateTimeFromChars(env, text, nullptr) : nullptr;
        value.dateTime = dt;
        setProperty(instance, name, &value, CIMC_dateTime);
        release(dt);
    } else if (std::strcmp(type, "string") == 0) {
        setProperty(instance, name, text ? charsArg(text) : nullptr, CIMC_chars);
    }
    // Real, char16 and reference types are not written by this path.
    return 0;
}

int CIMC_Handle_Modify_PropertieArray(PropertyArray* property, CIMCInstance* instance, CIMCEnv* env) {
    if (!property || !property->name || !property->type || !property->valueArray ||
        !property->valueArray->value || !property->valueArray->value->value || !instance || !env)
        return -1;
    const Value* head = property->valueArray->value;
    const int count = countValues(head);

    CIMCType elementType = integerTypeCode(property->type);
    const bool isString = !elementType && std::strcmp(property->type, "string") == 0;
    if (!elementType && !isString) return 0;

    CIMCArray* array = env->ft->newArray(env, count, isString ? static_cast<CIMCType>(CIMC_string) : elementType,
                                         nullptr);
    if (!array) return -1;

    int index = 0;
    for (const Value* v = head; v; v = v->next, ++index) {
        if (!v->value) continue;  // skipped, but its index is used up
        if (isString) {
            // Elements go through a fixed 512-byte buffer; a longer text is
            // cut to 511 bytes rather than overrun it.
            char buffer[kStringElementBuffer] = {0};
            std::strncpy(buffer, v->value, sizeof buffer - 1);
            array->ft->setElementAt(array, index, charsArg(buffer), CIMC_chars);
        } else {
            CIMCValue element;
            std::memset(&element, 0, sizeof element);
            integerValue(elementType, v->value, &element);
            array->ft->setElementAt(array, index, &element, elementType);
        }
    }

    CIMCValue value;
    std::memset(&value, 0, sizeof value);
    value.array = array;
    CIMCType arrayType = isString ? static_cast<CIMCType>(CIMC_ARRAY | CIMC_string)
                                  : static_cast<CIMCType>(CIMC_ARRAY | elementType);
    CIMCStatus status = setProperty(instance, property->name, &value, arrayType);
    if (status.rc != 0) return -1;  // kept as it always was: the array is not released on a failed set
    release(array);
    return 0;
}

}  // extern "C"
