// Flattens a record tree into "path = value" lines through the record table,
// so that two trees compare field by field and a difference names its field.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "model/record_table.h"

namespace scenario {

using cimxml::model::FieldKind;
using cimxml::model::RecordId;
using cimxml::model::RecordIdOf;

// Lists of named members are keyed by name ("properties[Caption]"), so that a
// member one tree lacks does not shift the others; other lists by position.
inline const char* memberName(RecordId id, const char* node) {
    switch (id) {
        case RecordId::Property: return reinterpret_cast<const Property*>(node)->name;
        case RecordId::PropertyArray: return reinterpret_cast<const PropertyArray*>(node)->name;
        case RecordId::PropertyReference: return reinterpret_cast<const PropertyReference*>(node)->name;
        case RecordId::KeyBinding: return reinterpret_cast<const KeyBinding*>(node)->name;
        case RecordId::ParamValue: return reinterpret_cast<const ParamValue*>(node)->name;
        default: return nullptr;
    }
}

inline void dumpRecord(RecordId id, const void* record, const std::string& path, std::vector<std::string>& out) {
    const auto& desc = cimxml::model::describe(id);
    int index = 0;
    for (const char* node = static_cast<const char*>(record); node; ++index) {
        const char* key = memberName(id, node);
        const std::string at = !desc.isList ? path
                               : key        ? path + "[" + key + "]"
                                            : path + "[" + std::to_string(index) + "]";
        for (std::uint8_t i = 0; i < desc.fieldCount; ++i) {
            const auto& f = desc.fields[i];
            const char* field = node + f.offset;
            const std::string name = at + "." + f.name;
            switch (f.kind) {
                case FieldKind::String:
                case FieldKind::StringFirst:
                case FieldKind::StringNoClone:
                    if (const char* text = *reinterpret_cast<char* const*>(field))
                        out.push_back(name + " = \"" + text + "\"");
                    break;
                case FieldKind::Record:
                    if (const void* child = *reinterpret_cast<void* const*>(field)) dumpRecord(f.child, child, name, out);
                    break;
                case FieldKind::Int16: {
                    std::int16_t v;
                    std::memcpy(&v, field, sizeof v);
                    if (v) out.push_back(name + " = " + std::to_string(v));
                    break;
                }
                case FieldKind::Int32: {
                    std::int32_t v;
                    std::memcpy(&v, field, sizeof v);
                    if (v) out.push_back(name + " = " + std::to_string(v));
                    break;
                }
                case FieldKind::Borrowed:
                case FieldKind::Next:
                    break;
            }
        }
        node = desc.isList ? *reinterpret_cast<char* const*>(node + desc.nextOffset) : nullptr;
    }
}

// Calls f(id, node) for every record node of a tree, parents first.
template <typename F>
void visit(RecordId id, void* record, F&& f) {
    const auto& desc = cimxml::model::describe(id);
    for (char* node = static_cast<char*>(record); node;) {
        f(id, node);
        for (std::uint8_t i = 0; i < desc.fieldCount; ++i)
            if (desc.fields[i].kind == FieldKind::Record)
                if (void* child = *reinterpret_cast<void**>(node + desc.fields[i].offset)) visit(desc.fields[i].child, child, f);
        node = desc.isList ? *reinterpret_cast<char**>(node + desc.nextOffset) : nullptr;
    }
}

template <typename T>
std::vector<std::string> dump(const T* record) {
    std::vector<std::string> out;
    if (record) dumpRecord(RecordIdOf<T>::value, record, "", out);
    return out;
}

inline std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const auto& l : lines) s += l + "\n";
    return s;
}

}  // namespace scenario
