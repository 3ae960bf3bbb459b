// Record trees with every owned field filled, straight from the record table,
// so one loop covers every record kind; and a flat text of a tree to compare
// a clone with its original.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/record_table.h"

namespace testtree {

using cimxml::model::describe;
using cimxml::model::FieldKind;
using cimxml::model::RecordId;

// Distinct texts and numbers; owned records down to `depth`; lists of `chain` nodes.
inline void* build(RecordId id, int depth, int chain = 2) {
    static int counter = 0;
    const auto& d = describe(id);
    void* head = nullptr;
    void** link = &head;
    for (int n = 0; n < (d.isList ? chain : 1); ++n) {
        char* node = static_cast<char*>(std::calloc(1, d.size));
        *link = node;
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            char* at = node + f.offset;
            ++counter;
            if (f.kind == FieldKind::String || f.kind == FieldKind::StringFirst || f.kind == FieldKind::StringNoClone)
                *reinterpret_cast<char**>(at) = strdup((std::string(f.name) + "#" + std::to_string(counter)).c_str());
            else if (f.kind == FieldKind::Record && depth > 0)
                *reinterpret_cast<void**>(at) = build(f.child, depth - 1, chain);
            else if (f.kind == FieldKind::Int16)
                *reinterpret_cast<std::int16_t*>(at) = static_cast<std::int16_t>(1 + counter % 3);
            else if (f.kind == FieldKind::Int32)
                *reinterpret_cast<std::int32_t*>(at) = counter;
        }
        if (d.isList) link = reinterpret_cast<void**>(node + d.nextOffset);
    }
    return head;
}

// Every text and number of a tree in walk order. `asClone` renders what a
// clone keeps: the first character of StringFirst fields, none of StringNoClone.
inline std::string dump(RecordId id, const void* record, bool asClone = false) {
    const auto& d = describe(id);
    std::string out = "{";
    for (auto* node = static_cast<const char*>(record); node;
         node = d.isList ? *reinterpret_cast<const char* const*>(node + d.nextOffset) : nullptr) {
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            const char* at = node + f.offset;
            if (f.kind == FieldKind::Int16) {
                out += std::to_string(*reinterpret_cast<const std::int16_t*>(at));
            } else if (f.kind == FieldKind::Int32) {
                out += std::to_string(*reinterpret_cast<const std::int32_t*>(at));
            } else if (f.kind != FieldKind::Next) {
                const char* p = *reinterpret_cast<const char* const*>(at);
                if (f.kind == FieldKind::Record || f.kind == FieldKind::Borrowed) out += dump(f.child, p, asClone);
                else if (!p || (asClone && f.kind == FieldKind::StringNoClone)) out += '-';
                else out += asClone && f.kind == FieldKind::StringFirst ? std::string(1, *p) : std::string(p);
            }
            out += ' ';
        }
        out += ';';
    }
    return out + '}';
}

}  // namespace testtree
