// Request keys: the KeyBindings of an InstanceName become keys of a broker
// object path, typed from VALUETYPE (and TYPE, when the caller gave one).
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mapping/mapping.h"

using namespace cimxml::mapping;

namespace {

bool iequals(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b)
        if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b))) return false;
    return *a == *b;
}

// A type name as the broker codes it: the cimc_getCMPIType names plus the
// reals and char16, case-insensitive. 0 when unknown.
CIMCType codeOf(const char* name) {
    static const struct {
        const char* name;
        CIMCType code;
    } kNames[] = {
        {"boolean", CIMC_boolean}, {"uint8", CIMC_uint8},   {"uint16", CIMC_uint16}, {"uint32", CIMC_uint32},
        {"uint64", CIMC_uint64},   {"sint8", CIMC_sint8},   {"sint16", CIMC_sint16}, {"sint32", CIMC_sint32},
        {"sint64", CIMC_sint64},   {"real32", CIMC_real32}, {"real64", CIMC_real64}, {"string", CIMC_chars},
        {"char16", CIMC_chars},    {"datetime", CIMC_dateTime},
    };
    if (!name) return 0;
    for (const auto& e : kNames)
        if (iequals(name, e.name)) return e.code;
    return 0;
}

bool isUnsigned(CIMCType t) { return t >= CIMC_uint8 && t <= CIMC_uint64; }
bool isSigned(CIMCType t) { return t >= CIMC_sint8 && t <= CIMC_sint64; }

// The key's type: "string" or no VALUETYPE gives chars; "numeric" takes the
// integer or real TYPE when there is one, else the sign decides; a VALUETYPE
// that is itself a type name (as local results carry) is that type.
CIMCType keyType(const KeyValue* kv) {
    const char* vt = kv->valueType;
    if (!vt || iequals(vt, "string")) return CIMC_chars;
    if (iequals(vt, "numeric")) {
        CIMCType t = codeOf(kv->cimType);
        if (isUnsigned(t) || isSigned(t) || t == CIMC_real32 || t == CIMC_real64) return t;
        const char* s = kv->value;
        while (*s == ' ' || *s == '\t') ++s;
        return static_cast<CIMCType>(*s == '-' ? CIMC_sint64 : CIMC_uint64);
    }
    CIMCType t = codeOf(vt);
    return t ? t : static_cast<CIMCType>(CIMC_chars);
}

// Numbers saturate at the limits of their type; text that is no number fails.
bool parseNumber(const char* text, CIMCType type, CIMCValue* v) {
    char* end = nullptr;
    errno = 0;
    if (type == CIMC_real32 || type == CIMC_real64) {
        double d = std::strtod(text, &end);
        if (end == text) return false;
        if (type == CIMC_real64) v->real64 = d;
        else v->real32 = static_cast<float>(d);
        return true;
    }
    if (isUnsigned(type)) {
        const char* s = text;
        while (*s == ' ' || *s == '\t') ++s;
        unsigned long long u = std::strtoull(s, &end, 10);
        if (end == s) return false;
        if (*s == '-') u = 0;  // strtoull would wrap a negative number
        const unsigned long long max = type == CIMC_uint8 ? UINT8_MAX
                                      : type == CIMC_uint16 ? UINT16_MAX
                                      : type == CIMC_uint32 ? UINT32_MAX
                                                            : UINT64_MAX;
        u = std::min(u, max);
        switch (type) {
            case CIMC_uint8: v->uint8 = static_cast<uint8_t>(u); break;
            case CIMC_uint16: v->uint16 = static_cast<uint16_t>(u); break;
            case CIMC_uint32: v->uint32 = static_cast<uint32_t>(u); break;
            default: v->uint64 = u; break;
        }
        return true;
    }
    long long n = std::strtoll(text, &end, 10);
    if (end == text) return false;
    long long lo = INT64_MIN, hi = INT64_MAX;
    if (type == CIMC_sint8) lo = INT8_MIN, hi = INT8_MAX;
    if (type == CIMC_sint16) lo = INT16_MIN, hi = INT16_MAX;
    if (type == CIMC_sint32) lo = INT32_MIN, hi = INT32_MAX;
    n = std::clamp(n, lo, hi);
    switch (type) {
        case CIMC_sint8: v->sint8 = static_cast<int8_t>(n); break;
        case CIMC_sint16: v->sint16 = static_cast<int16_t>(n); break;
        case CIMC_sint32: v->sint32 = static_cast<int32_t>(n); break;
        default: v->sint64 = n; break;
    }
    return true;
}

// The namespace of a reference as one text ("root/cimv2"); empty names are
// left out.
std::string joined(const LocalNamespacePath* path) {
    std::string ns;
    for (const Namespace* n = path ? path->namespaces : nullptr; n; n = n->next) {
        if (!n->name || !*n->name) continue;
        if (!ns.empty()) ns += '/';
        ns += n->name;
    }
    return ns;
}

const LocalNamespacePath* referencedNamespace(const ValueReference* ref) {
    if (ref->localInstancePath) return ref->localInstancePath->localNamespacePath;
    if (ref->instancePath && ref->instancePath->namespacePath)
        return ref->instancePath->namespacePath->localNamespacePath;
    if (ref->localClassPath) return ref->localClassPath->localNamespacePath;
    if (ref->classPath && ref->classPath->namespacePath) return ref->classPath->namespacePath->localNamespacePath;
    return nullptr;
}

const InstanceName* referencedInstance(const ValueReference* ref) {
    if (ref->instanceName) return ref->instanceName;
    if (ref->localInstancePath) return ref->localInstancePath->instanceName;
    if (ref->instancePath) return ref->instancePath->instanceName;
    return nullptr;
}

const char* referencedClass(const ValueReference* ref, const InstanceName* name) {
    const ClassName* cn = nullptr;
    if (name) cn = name->className;
    else if (ref->className) cn = ref->className;
    else if (ref->localClassPath) cn = ref->localClassPath->className;
    else if (ref->classPath) cn = ref->classPath->className;
    return cn ? cn->name : nullptr;
}

int addKeys(CIMCObjectPath* op, const InstanceName* name, CIMCEnv* env);

// A reference key: the nested path, added and then released. Without a
// namespace of its own the reference lives beside its holder.
int addReferenceKey(CIMCObjectPath* op, const char* keyName, const ValueReference* ref, CIMCEnv* env) {
    std::string holder;
    CIMCString* own = op->ft->getNameSpace ? op->ft->getNameSpace(op, nullptr) : nullptr;
    if (const char* c = chars(own)) holder = c;
    release(own);
    CIMCObjectPath* nested = brokerPath(ref, holder.c_str(), env);
    if (!nested) return -1;
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    v.ref = nested;
    int rc = op->ft->addKey(op, keyName, &v, CIMC_ref).rc == 0 ? 0 : -1;
    release(nested);
    return rc;
}

int addValueKey(CIMCObjectPath* op, const char* keyName, const KeyValue* kv, CIMCEnv* env) {
    if (!kv->value) return -1;
    CIMCType type = keyType(kv);
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    CIMCDateTime* dt = nullptr;
    if (type == CIMC_chars) {
        // Character data goes as the text itself in place of a value union.
        return op->ft->addKey(op, keyName, reinterpret_cast<const CIMCValue*>(kv->value), type).rc == 0 ? 0 : -1;
    } else if (type == CIMC_boolean) {
        if (iequals(kv->value, "TRUE")) v.boolean = 1;
        else if (!iequals(kv->value, "FALSE")) return -1;
    } else if (type == CIMC_dateTime) {
        if (!env || !env->ft || !env->ft->newDateTimeFromChars) return -1;
        if (!(dt = env->ft->newDateTimeFromChars(env, kv->value, nullptr))) return -1;
        v.dateTime = dt;
    } else if (!parseNumber(kv->value, type, &v)) {
        return -1;
    }
    int rc = op->ft->addKey(op, keyName, &v, type).rc == 0 ? 0 : -1;
    if (dt && dt->ft && dt->ft->release) dt->ft->release(dt);
    return rc;
}

// `op` comes from the broker's own newObjectPath, or has been checked.
int addKeys(CIMCObjectPath* op, const InstanceName* name, CIMCEnv* env) {
    for (const KeyBinding* kb = name->keyBindings; kb; kb = kb->next) {
        int rc = -1;
        if (kb->valueReference) rc = addReferenceKey(op, kb->name, kb->valueReference, env);
        else if (kb->keyValue) rc = addValueKey(op, kb->name, kb->keyValue, env);
        if (rc != 0) return -1;
    }
    return 0;
}

}  // namespace

CIMCObjectPath* cimxml::mapping::brokerPath(const ValueReference* ref, const char* defaultNamespace, CIMCEnv* env) {
    const InstanceName* name = referencedInstance(ref);
    const char* className = referencedClass(ref, name);
    if (!className || !env || !env->ft || !env->ft->newObjectPath) return nullptr;
    std::string ns = joined(referencedNamespace(ref));
    CIMCObjectPath* path = env->ft->newObjectPath(env, ns.empty() ? defaultNamespace : ns.c_str(), className, nullptr);
    if (!path) return nullptr;
    if (name && addKeys(path, name, env) != 0) {
        release(path);
        return nullptr;
    }
    return path;
}

extern "C" {

int CIMC_AddKeyValues(CIMCObjectPath* objectPath, InstanceName* instanceName, CIMCEnv* env) {
    if (!objectPath || !objectPath->ft || !objectPath->ft->addKey || !instanceName) return -1;
    try {
        return addKeys(objectPath, instanceName, env);
    } catch (...) {  // a namespace text that could not be built
        return -1;
    }
}

}  // extern "C"
