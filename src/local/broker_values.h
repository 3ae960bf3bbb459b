// Small helpers shared by the argument builders, the modify setters and the
// local operations: text-to-number conversion with the broker's historical
// 32-bit long semantics, and null-tolerant release of broker objects.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "cimxml/local.h"

namespace cimxml {
namespace local {

// strtol base 10 as it behaves with a 32-bit long: out-of-range numbers
// saturate at INT32_MIN / INT32_MAX and text that does not parse gives 0.
// The broker's callers depend on this saturation even on LP64 hosts.
inline int32_t strtol32(const char* text) {
    if (!text) return 0;
    long long v = std::strtoll(text, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// The text stored at the width of a CIM integer type. Narrow types keep the
// low bits of the 32-bit result; 64-bit types get it sign-extended.
// Returns false when `code` is not an integer type code.
inline bool integerValue(CIMCType code, const char* text, CIMCValue* out) {
    int32_t v = strtol32(text);
    uint32_t bits = static_cast<uint32_t>(v);
    switch (code) {
        case CIMC_uint8: case CIMC_sint8: out->uint8 = static_cast<uint8_t>(bits); return true;
        case CIMC_uint16: case CIMC_sint16: out->uint16 = static_cast<uint16_t>(bits); return true;
        case CIMC_uint32: case CIMC_sint32: out->uint32 = bits; return true;
        case CIMC_uint64: case CIMC_sint64: out->sint64 = static_cast<int64_t>(v); return true;
        default: return false;
    }
}

// Integer type code for a CIM type name (exact case), 0 for anything else.
inline CIMCType integerTypeCode(const char* name) {
    static const struct { const char* name; CIMCType code; } kTypes[] = {
        {"uint8", CIMC_uint8},   {"uint16", CIMC_uint16}, {"uint32", CIMC_uint32}, {"uint64", CIMC_uint64},
        {"sint8", CIMC_sint8},   {"sint16", CIMC_sint16}, {"sint32", CIMC_sint32}, {"sint64", CIMC_sint64},
    };
    if (!name) return 0;
    for (const auto& t : kTypes)
        if (std::strcmp(name, t.name) == 0) return t.code;
    return 0;
}

// "TRUE" -> 1, anything else 0 ("FALSE", other texts, lower case).
inline CIMCBoolean booleanValue(const char* text) {
    return text && std::strcmp(text, "TRUE") == 0 ? 1 : 0;
}

// Character data (the chars type) goes to the broker as the text itself in
// place of a value union, as brokers read it.
inline const CIMCValue* charsArg(const char* text) { return reinterpret_cast<const CIMCValue*>(text); }

template <typename T>
inline void release(T* object) {
    if (object && object->ft && object->ft->release) object->ft->release(object);
}

inline int countValues(const Value* head) {
    int n = 0;
    for (; head; head = head->next) ++n;
    return n;
}

}  // namespace local
}  // namespace cimxml
