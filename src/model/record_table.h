// Field descriptors for every record, expanded from records.def.
//
// Each record's fields are listed once; the generic walkers below (free,
// clone) and any other code that needs to reach a field by name (the response
// builders) use these descriptors. The irregular lifecycle rules stay next to
// the exported functions in lifecycle.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cimxml/records.h"

namespace cimxml::model {

enum class RecordId : std::uint8_t {
#define RECORD(T, L, ...) T,
#include "model/records.def"
#undef RECORD
    Count
};

enum class FieldKind : std::uint8_t {
    String,        // owned char*
    StringFirst,   // owned char*; a clone keeps the first character only
    StringNoClone, // owned char*; a clone leaves it NULL
    Record,        // owned record (chain) of `child`
    Borrowed,      // record of `child` this record does not own
    Int16,
    Int32,
    Next,          // list link
};

struct FieldDesc {
    const char* name;
    FieldKind kind;
    std::uint16_t offset;
    RecordId child; // for Record / Borrowed
};

struct RecordDesc {
    const char* name;
    std::uint16_t size;
    bool isList;
    std::uint16_t nextOffset; // valid when isList
    const FieldDesc* fields;
    std::uint8_t fieldCount;
};

const RecordDesc& describe(RecordId id);

// Finds a field by name; nullptr when the record has none of that name.
const FieldDesc* findField(RecordId id, const char* fieldName);

// Frees a record (the whole chain for a list record) with what it owns.
void freeRecord(RecordId id, void* record);

// Deep copy; see Clone_<Record> for the contract. Returns 0 or -1.
int cloneRecord(RecordId id, const void* source, void** destination);

template <typename T>
inline T*& fieldRef(void* record, const FieldDesc& f) {
    return *reinterpret_cast<T**>(static_cast<char*>(record) + f.offset);
}

// Maps a record type to its id: RecordIdOf<Property>::value.
template <typename T>
struct RecordIdOf;
#define RECORD(T, L, ...) \
    template <>           \
    struct RecordIdOf<::T> { static constexpr RecordId value = RecordId::T; };
#include "model/records.def"
#undef RECORD

}  // namespace cimxml::model
