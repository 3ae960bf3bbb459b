// Method parameters for the local broker: each ParamValue of an
// InvokeMethod call becomes one typed entry of the broker's argument list
// (scalars, embedded instances, arrays and references).
#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "cimxml/local.h"
#include "local/broker_values.h"
#include "mapping/mapping.h"

using namespace cimxml::local;

namespace {

CIMCValue zeroValue() {
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    return v;
}

void addArg(CIMCArgs* args, const char* name, const CIMCValue* value, CIMCType type) {
    args->ft->addArg(args, name, value, type);
}

CIMCValue datetimeValue(CIMCEnv* env, const char* text) {
    CIMCValue v = zeroValue();
    v.dateTime = env->ft->newDateTimeFromChars(env, text, nullptr);
    return v;
}

// A broker instance of `record`'s class in `nameSpace`, with its properties
// set the way embedded instances are. NULL when the class name is missing or
// the broker makes no path or instance.
CIMCInstance* embeddedInstance(const Instance* record, const char* nameSpace, CIMCEnv* env) {
    if (!record || !record->className || !record->className->name) return nullptr;
    CIMCObjectPath* path = env->ft->newObjectPath(env, nameSpace, record->className->name, nullptr);
    if (!path) return nullptr;
    CIMCInstance* instance = env->ft->newInstance(env, path, nullptr);
    CDATASectionHandler(record->properties, record->propertyArrays, instance, env);  // passes over no instance
    release(path);
    return instance;
}

// The broker object path a VALUE.REFERENCE names, in the call's namespace
// unless it carries its own.
CIMCObjectPath* referencePath(const ValueReference* ref, const char* nameSpace, CIMCEnv* env) {
    return cimxml::mapping::brokerPath(ref, nameSpace, env);
}

// A broker array of object paths, one per reference of the chain (an entry
// whose path cannot be made stays unset). -1 when the array cannot be made.
int mapToValueReferenceList(const ValueReference* refs, const char* nameSpace, CIMCEnv* env, CIMCArray** out) {
    int count = 0;
    for (const ValueReference* r = refs; r; r = r->next) ++count;
    CIMCArray* array = env->ft->newArray(env, count, CIMC_ref, nullptr);
    if (!array) return -1;
    int index = 0;
    for (const ValueReference* r = refs; r; r = r->next, ++index) {
        CIMCObjectPath* path = referencePath(r, nameSpace, env);
        if (!path) continue;
        CIMCValue v = zeroValue();
        v.ref = path;
        array->ft->setElementAt(array, index, &v, CIMC_ref);
        release(path);
    }
    *out = array;
    return 0;
}

// Element type of an array parameter: embedded instances by their content,
// everything else by the parameter's type name. 0 when not handled.
CIMCType arrayElementType(const ParamValue* pv) {
    const Value* head = pv->valueArray->value;
    if (head && head->instance) return CIMC_instance;
    if (!pv->paramType) return 0;
    if (CIMCType code = integerTypeCode(pv->paramType)) return code;
    if (std::strcmp(pv->paramType, "string") == 0) return CIMC_string;
    if (std::strcmp(pv->paramType, "boolean") == 0) return CIMC_boolean;
    if (std::strcmp(pv->paramType, "datetime") == 0) return CIMC_dateTime;
    return 0;
}

void setArrayElement(CIMCArray* array, int index, const Value* v, CIMCType type, const char* nameSpace,
                     CIMCEnv* env) {
    CIMCValue element = zeroValue();
    switch (type) {
        case CIMC_instance: {
            CIMCInstance* instance = embeddedInstance(v->instance, nameSpace, env);
            if (!instance) return;
            element.inst = instance;
            array->ft->setElementAt(array, index, &element, type);
            release(instance);
            return;
        }
        case CIMC_string: {
            CIMCString* s = env->ft->newString(env, v->value, nullptr);
            if (!s) return;
            element.string = s;
            array->ft->setElementAt(array, index, &element, type);
            release(s);
            return;
        }
        case CIMC_boolean:
            element.boolean = booleanValue(v->value);
            array->ft->setElementAt(array, index, &element, type);
            return;
        case CIMC_dateTime:
            element = datetimeValue(env, v->value);
            array->ft->setElementAt(array, index, &element, type);
            release(element.dateTime);
            return;
        default:
            integerValue(type, v->value, &element);
            array->ft->setElementAt(array, index, &element, type);
            return;
    }
}

}  // namespace

extern "C" {

int CIMC_CreatePropertyArguments(ParamValue* paramValue, CIMCArgs* args, CIMCEnv* env) {
    if (!paramValue || !paramValue->name || !paramValue->paramType) return -1;
    const char* text = paramValue->value ? paramValue->value->value : nullptr;
    if (!text || !args || !env) return 0;
    const char* name = paramValue->name;
    const char* type = paramValue->paramType;
    CIMCValue value = zeroValue();

    if (CIMCType code = integerTypeCode(type)) {
        integerValue(code, text, &value);
        addArg(args, name, &value, code);
    } else if (std::strcmp(type, "boolean") == 0) {
        // Texts other than "TRUE"/"FALSE" reach the broker as a boolean
        // holding 0 (the value is left at its cleared state).
        value.boolean = booleanValue(text);
        addArg(args, name, &value, CIMC_boolean);
    } else if (std::strcmp(type, "string") == 0) {
        // Kept as it always was: this string object is not released here
        // (the environment's release reclaims it).
        value.string = env->ft->newString(env, text, nullptr);
        addArg(args, name, &value, CIMC_string);
    } else if (std::strcmp(type, "datetime") == 0) {
        value = datetimeValue(env, text);
        addArg(args, name, &value, CIMC_dateTime);
        release(value.dateTime);
    }
    return 0;
}

int CIMC_CreateCDataArgument(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args, CIMCEnv* env) {
    if (!paramValue || !paramValue->value || !paramValue->value->instance ||
        !paramValue->value->instance->className || !paramValue->value->instance->className->name || !env)
        return -1;
    const Instance* record = paramValue->value->instance;
    CIMCObjectPath* path = env->ft->newObjectPath(env, nameSpace, record->className->name, nullptr);
    if (!path) return -1;
    CIMCInstance* instance = env->ft->newInstance(env, path, nullptr);
    if (instance) {
        CDATASectionHandler(record->properties, record->propertyArrays, instance, env);
        if (paramValue->name && args) {
            CIMCValue value = zeroValue();
            value.inst = instance;
            addArg(args, paramValue->name, &value, CIMC_instance);
        }
        release(instance);
    }
    release(path);
    return 0;
}

int CDATASectionHandler(Property* properties, PropertyArray* propertyArrays, CIMCInstance* instance,
                        CIMCEnv* env) {
    if (!instance || !env) return 0;
    for (const Property* p = properties; p; p = p->next) {
        if (!p->name || !p->value || !p->value->value || !p->type) continue;
        const char* text = p->value->value;
        CIMCValue value = zeroValue();
        CIMCType code = 0;
        if (std::strcmp(p->type, "uint16") == 0 || std::strcmp(p->type, "uint8") == 0 ||
            std::strcmp(p->type, "sint8") == 0) {
            code = integerTypeCode(p->type);
            integerValue(code, text, &value);
            instance->ft->setProperty(instance, p->name, &value, code);
        } else if (std::strcmp(p->type, "boolean") == 0) {
            value.boolean = booleanValue(text);
            instance->ft->setProperty(instance, p->name, &value, CIMC_boolean);
        } else if (std::strcmp(p->type, "datetime") == 0) {
            value = datetimeValue(env, text);
            instance->ft->setProperty(instance, p->name, &value, CIMC_dateTime);
            release(value.dateTime);
        } else if (std::strcmp(p->type, "string") == 0) {
            instance->ft->setProperty(instance, p->name, charsArg(text), CIMC_chars);
        }
        // Only these six types are carried into an embedded instance; the
        // other types are left out on purpose.
    }

    // The element count runs on across the arrays of one call, and an empty
    // array reuses the previous array's values: long-standing behaviour that
    // is kept. The element loop stops at the end of the chain it walks.
    int count = 0;
    const Value* previousHead = nullptr;
    for (const PropertyArray* pa = propertyArrays; pa; pa = pa->next) {
        const Value* head = pa->valueArray ? pa->valueArray->value : nullptr;
        if (head) previousHead = head;
        else head = previousHead;
        const int added = countValues(head);
        count = static_cast<int>(std::min<long long>(static_cast<long long>(count) + added, INT_MAX));  // saturates
        if (!pa->name || !pa->type) continue;

        const bool isString = strcasecmp(pa->type, "string") == 0;
        if (!isString && strcasecmp(pa->type, "uint16") != 0) continue;
        CIMCType elementType = isString ? CIMC_string : CIMC_uint16;
        CIMCArray* array = env->ft->newArray(env, count, elementType, nullptr);
        if (!array) continue;
        // The running count is never below this chain's length.
        int index = 0;
        for (const Value* v = head; v; v = v->next, ++index) {
            if (!v->value) continue;
            if (isString) {
                array->ft->setElementAt(array, index, charsArg(v->value), CIMC_chars);
            } else {
                CIMCValue element = zeroValue();
                integerValue(CIMC_uint16, v->value, &element);
                array->ft->setElementAt(array, index, &element, CIMC_uint16);
            }
        }
        CIMCValue value = zeroValue();
        value.array = array;
        instance->ft->setProperty(instance, pa->name, &value, static_cast<CIMCType>(CIMC_ARRAY | elementType));
        release(array);
    }
    return 0;
}

int CIMC_CreatePropertyArrayArguments(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args,
                                      CIMCEnv* env) {
    if (!paramValue || !paramValue->name || !paramValue->valueArray || !args || !env) return -1;
    CIMCType elementType = arrayElementType(paramValue);
    if (!elementType) return 0;
    const Value* head = paramValue->valueArray->value;
    CIMCArray* array = env->ft->newArray(env, countValues(head), elementType, nullptr);
    if (!array) return -1;
    int index = 0;
    for (const Value* v = head; v; v = v->next, ++index) {
        if (elementType == CIMC_instance ? !v->instance : !v->value) continue;
        setArrayElement(array, index, v, elementType, nameSpace, env);
    }
    CIMCValue value = zeroValue();
    value.array = array;
    addArg(args, paramValue->name, &value, static_cast<CIMCType>(CIMC_ARRAY | elementType));
    release(array);
    return 0;
}

int CIMC_CreateValueRefArguments(ParamValue* paramValue, const char* nameSpace, CIMCArgs* args, CIMCEnv* env) {
    if (!paramValue || !paramValue->name || !args || !env) return -1;
    try {
        CIMCValue value = zeroValue();
        if (paramValue->valueReference) {
            CIMCObjectPath* path = referencePath(paramValue->valueReference, nameSpace, env);
            if (!path) return -1;
            value.ref = path;
            addArg(args, paramValue->name, &value, CIMC_ref);
            release(path);
            return 0;
        }
        if (paramValue->valueRefArray) {
            CIMCArray* array = nullptr;
            if (mapToValueReferenceList(paramValue->valueRefArray->valueReference, nameSpace, env, &array) < 0)
                return -1;
            value.array = array;
            addArg(args, paramValue->name, &value, static_cast<CIMCType>(CIMC_ARRAY | CIMC_ref));
            release(array);
            return 0;
        }
        return -1;
    } catch (...) {
        return -1;
    }
}

}  // extern "C"
