// Type codes and value text: broker type codes to CIM type names and back,
// one typed value to its text, array values to value lists, and the datetime
// and interval records to their CIM-XML text.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "mapping/mapping.h"

namespace cimxml {
namespace mapping {

namespace {

// At most size - 1 bytes and the terminator; no text leaves the buffer as it was.
void copyCut(char* text, std::size_t size, const char* from) {
    if (!size || !from) return;
    const std::size_t n = std::min(std::strlen(from), size - 1);
    std::memcpy(text, from, n);
    text[n] = '\0';
}

bool isStringCode(unsigned int code) {
    return code == CIMC_string || code == 5634 || code == 5884 || code == CIMC_chars || code == 7680;
}

// Formats an integer or real scalar; false for any other code.
bool numberText(unsigned int code, const CIMCValue* v, char* text, std::size_t size) {
    switch (code) {
        case CIMC_boolean: std::snprintf(text, size, "%s", v->boolean ? "true" : "false"); return true;
        case CIMC_uint8: std::snprintf(text, size, "%u", static_cast<unsigned>(v->uint8)); return true;
        case CIMC_uint16: std::snprintf(text, size, "%u", static_cast<unsigned>(v->uint16)); return true;
        case CIMC_uint32: std::snprintf(text, size, "%u", v->uint32); return true;
        case CIMC_uint64: std::snprintf(text, size, "%llu", static_cast<unsigned long long>(v->uint64)); return true;
        case CIMC_sint8: std::snprintf(text, size, "%d", static_cast<int>(v->sint8)); return true;
        case CIMC_sint16: std::snprintf(text, size, "%d", static_cast<int>(v->sint16)); return true;
        case CIMC_sint32: std::snprintf(text, size, "%d", v->sint32); return true;
        case CIMC_sint64: std::snprintf(text, size, "%lld", static_cast<long long>(v->sint64)); return true;
        case CIMC_real32: std::snprintf(text, size, "%g", static_cast<double>(v->real32)); return true;
        case CIMC_real64: std::snprintf(text, size, "%g", v->real64); return true;
        default: return false;
    }
}

}  // namespace

const char* chars(const CIMCString* s) {
    return s && s->ft && s->ft->getCharPtr ? s->ft->getCharPtr(s, nullptr) : nullptr;
}

void release(CIMCString* s) {
    if (s && s->ft && s->ft->release) s->ft->release(s);
}

void release(CIMCObjectPath* op) {
    if (op && op->ft && op->ft->release) op->ft->release(op);
}

void release(CIMCArray* a) {
    if (a && a->ft && a->ft->release) a->ft->release(a);
}

void valueText(CIMCType type, const CIMCValue* value, char* text, std::size_t size) {
    if (!text) return;
    ScalarText scalar(type, value);
    copyCut(text, size, scalar.get());
}

ScalarText::ScalarText(CIMCType type, const CIMCValue* value) {
    small_[0] = '\0';
    // Array codes match none of the scalar cases below and leave no text.
    if (!value) return;
    const unsigned int code = type & 0xFFFFu;
    if (numberText(code, value, small_, sizeof small_)) {
        text_ = small_;
    } else if (isStringCode(code)) {
        text_ = chars(value->string);
    } else if (code == CIMC_ref) {
        const CIMCObjectPath* op = value->ref;
        if (op && op->ft && op->ft->toString) owned_ = op->ft->toString(op, nullptr);
        text_ = chars(owned_);
    } else if (code == CIMC_dateTime) {
        const CIMCDateTime* dt = value->dateTime;
        if (dt && dt->ft && dt->ft->getStringFormat) owned_ = dt->ft->getStringFormat(dt, nullptr);
        text_ = chars(owned_);
    }
}

ScalarText::~ScalarText() { release(owned_); }

int arrayTexts(Value** valueList, CIMCType type, CIMCArray* array) {
    if (!valueList || !array || !array->ft) return 0;
    unsigned int code = type & 0xFFFFu;
    unsigned int element = code & ~static_cast<unsigned int>(CIMC_ARRAY);
    CIMCCount size = array->ft->getSize ? array->ft->getSize(array, nullptr) : 0;
    char text[kElementBuffer];
    for (CIMCCount i = 0; i < size; ++i) {
        CIMCStatus status{0, nullptr};
        CIMCData d{};
        if (array->ft->getElementAt) d = array->ft->getElementAt(array, i, &status);
        const CIMCValue& v = d.value;
        text[0] = '\0';
        switch (code) {
            // The unsigned 8- and 16-bit elements use "%d", unlike value2Chars.
            case 8320: std::snprintf(text, sizeof text, "%d", static_cast<int>(v.uint8)); break;
            case 8336: std::snprintf(text, sizeof text, "%d", static_cast<int>(v.uint16)); break;
            case 8352: std::snprintf(text, sizeof text, "%u", v.uint32); break;
            case 8368: std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(v.uint64)); break;
            case 8384: std::snprintf(text, sizeof text, "%d", static_cast<int>(v.sint8)); break;
            case 8400: std::snprintf(text, sizeof text, "%d", static_cast<int>(v.sint16)); break;
            case 8416: std::snprintf(text, sizeof text, "%d", v.sint32); break;
            case 8432: std::snprintf(text, sizeof text, "%lld", static_cast<long long>(v.sint64)); break;
            case 13824:
            case 14080:  // chars elements read as strings
                if (status.rc != 0) return kReadFailed;
                if (d.state != 0) continue;
                valueText(CIMC_string, &v, text, sizeof text);
                break;
            default:
                // Booleans, reals, datetimes and references: the element's
                // value2Chars text, booleans upper-cased as in properties.
                if (d.state != 0) continue;
                if (element == CIMC_boolean) {
                    std::snprintf(text, sizeof text, "%s", v.boolean ? "TRUE" : "FALSE");
                } else {
                    valueText(static_cast<CIMCType>(element), &v, text, sizeof text);
                }
                break;
        }
        if (AddToValueList(valueList, text) != 0) return kAllocFailed;
    }
    return 0;
}

const char* fullTypeName(unsigned int code) {
    code &= 0xFFFFu;
    unsigned int element = code & ~static_cast<unsigned int>(CIMC_ARRAY);
    switch (element) {
        case CIMC_char16: return "char16";
        case CIMC_real32: return "real32";
        case CIMC_real64: return "real64";
        case CIMC_ref: return "reference";
        case CIMC_instance: return "instance";
        case CIMC_chars: return "string";
        default: return CIMC_getDataType(element);
    }
}

}  // namespace mapping
}  // namespace cimxml

using cimxml::mapping::kElementBuffer;
using cimxml::mapping::kValueBuffer;

extern "C" {

const char* CIMC_getDataType(unsigned int code) {
    switch (code & 0xFFFFu) {
        case 2: return "boolean";
        case 128: return "uint8";
        case 144: return "uint16";
        case 160: return "uint32";
        case 176: return "uint64";
        case 192: return "sint8";
        case 208: return "sint16";
        case 224: return "sint32";
        case 240: return "sint64";
        case 5632: return "string";
        case 6144: return "datetime";
        // Of the arrays only these three are named, by their element type.
        case 8336: return "uint16";
        case 8384: return "sint8";
        case 13824: return "string";
        default: return "";
    }
}

CIMCType cimc_getCMPIType(const char* name) {
    static const struct {
        const char* name;
        CIMCType code;
    } kCodes[] = {
        {"boolean", 2}, {"uint8", 128},  {"uint16", 144}, {"uint32", 160},
        {"uint64", 176}, {"sint8", 192}, {"sint16", 208}, {"sint32", 224},
        {"sint64", 240},
        // "string" comes back as the chars code, not the string code.
        {"string", 5888}, {"datetime", 6144},
    };
    if (!name) return 0;
    for (const auto& e : kCodes)
        if (std::strcmp(name, e.name) == 0) return e.code;
    return 0;
}

// Callers pass 512- or 1024-byte buffers; longer texts are cut at 511 bytes.
void value2Chars(CIMCType type, CIMCValue* value, char* text) {
    cimxml::mapping::valueText(type, value, text, kValueBuffer);
}

int getPropertyArrayData(Value** valueList, CIMCType type, Property* /*unused1*/, void* /*unused2*/,
                         CIMCArray* array) {
    return cimxml::mapping::arrayTexts(valueList, type, array) == 0 ? 0 : -1;
}

int CIMC_ConvertDateTimeToString(const CIMCDateTimeRecord* dateTime, char* text) {
    if (!dateTime || !text) return -1;
    const CIMCDateTimeRecord& d = *dateTime;
    char out[96];  // every field at its widest still fits
    std::snprintf(out, sizeof out, "%.4d%.2d%.2d%.2d%.2d%.2d.000000", d.year, d.month, d.day, d.hour, d.minute,
                  d.second);
    std::size_t n = std::strlen(out);
    // A negative offset brings its own sign.
    std::snprintf(out + n, sizeof out - n, d.utcOffset >= 0 ? "+%.3d" : "%.3d", d.utcOffset);
    std::strcat(text, out);
    return 0;
}

int CIMC_ConvertIntervalToString(const CIMCIntervalRecord* interval, char* text) {
    if (!interval || !text) return -1;
    const CIMCIntervalRecord& i = *interval;
    char out[64];
    std::snprintf(out, sizeof out, "%.8d%.2d%.2d%.2d.000000:000", i.days, i.hours, i.minutes, i.seconds);
    std::strcat(text, out);
    return 0;
}

}  // extern "C"
