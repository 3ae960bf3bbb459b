// Builds record trees with every field filled, straight from the record
// descriptors, so lifecycle tests cover each record kind without 70
// hand-written fixtures.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

#include "model/record_table.h"

namespace testtree {

using cimxml::model::describe;
using cimxml::model::FieldKind;
using cimxml::model::RecordId;

// Every owned string gets a distinct text; every owned record field gets a
// record down to `depth`; list records get `chain` nodes.
inline void* build(RecordId id, int depth, int chain = 2) {
    static int counter = 0;
    const auto& d = describe(id);
    void* head = nullptr;
    void** link = &head;
    for (int n = 0; n < (d.isList ? chain : 1); ++n) {
        void* node = std::calloc(1, d.size);
        *link = node;
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            char* at = static_cast<char*>(node) + f.offset;
            switch (f.kind) {
                case FieldKind::String:
                case FieldKind::StringFirst:
                case FieldKind::StringNoClone: {
                    std::string text = std::string(d.name) + "." + f.name + "#" + std::to_string(++counter);
                    *reinterpret_cast<char**>(at) = strdup(text.c_str());
                    break;
                }
                case FieldKind::Record:
                    if (depth > 0) *reinterpret_cast<void**>(at) = build(f.child, depth - 1, chain);
                    break;
                case FieldKind::Int16:
                    *reinterpret_cast<int16_t*>(at) = static_cast<int16_t>(1 + counter++ % 3);
                    break;
                case FieldKind::Int32:
                    *reinterpret_cast<int32_t*>(at) = 7 + counter++;
                    break;
                default:
                    break;
            }
        }
        if (d.isList) link = reinterpret_cast<void**>(static_cast<char*>(node) + d.nextOffset);
    }
    return head;
}

// Structural equality as a clone promises it: strings equal (first character
// only for StringFirst; NULL for StringNoClone in the copy), records equal,
// numbers equal, and no pointer shared between the two trees.
inline bool sameAsClone(RecordId id, const void* a, const void* b, std::string* why) {
    const auto& d = describe(id);
    while (a || b) {
        if (!a || !b) return *why = std::string(d.name) + ": chain length differs", false;
        if (a == b) return *why = std::string(d.name) + ": node shared", false;
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            const char* pa = static_cast<const char*>(a) + f.offset;
            const char* pb = static_cast<const char*>(b) + f.offset;
            char* sa = nullptr;
            char* sb = nullptr;
            if (f.kind != FieldKind::Int16 && f.kind != FieldKind::Int32) {
                std::memcpy(&sa, pa, sizeof sa);
                std::memcpy(&sb, pb, sizeof sb);
            }
            std::string where = std::string(d.name) + "." + f.name;
            switch (f.kind) {
                case FieldKind::String:
                    if (!sa != !sb || (sa && (sa == sb || std::strcmp(sa, sb) != 0)))
                        return *why = where + " differs", false;
                    break;
                case FieldKind::StringFirst:
                    if (!sa != !sb || (sa && (sa == sb || sa[0] != sb[0] || sb[1] != '\0')))
                        return *why = where + " is not the first character", false;
                    break;
                case FieldKind::StringNoClone:
                    if (sb) return *why = where + " was copied", false;
                    break;
                case FieldKind::Record:
                case FieldKind::Borrowed:
                    if (!sameAsClone(f.child, sa, sb, why)) return false;
                    break;
                case FieldKind::Int16:
                    if (std::memcmp(pa, pb, 2) != 0) return *why = where + " differs", false;
                    break;
                case FieldKind::Int32:
                    if (std::memcmp(pa, pb, 4) != 0) return *why = where + " differs", false;
                    break;
                case FieldKind::Next:
                    break;
            }
        }
        if (!d.isList) break;
        a = *reinterpret_cast<void* const*>(static_cast<const char*>(a) + d.nextOffset);
        b = *reinterpret_cast<void* const*>(static_cast<const char*>(b) + d.nextOffset);
    }
    return true;
}

}  // namespace testtree
