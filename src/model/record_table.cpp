#include "model/record_table.h"

#include <cstdlib>
#include <cstring>

#include "model/alloc.h"

namespace cimxml::model {
namespace {

constexpr std::size_t kindSize(FieldKind k) {
    return k == FieldKind::Int16 ? 2 : k == FieldKind::Int32 ? 4 : sizeof(void*);
}

constexpr std::size_t roundUp(std::size_t n, std::size_t to) { return (n + to - 1) / to * to; }

// Proves at compile time that a descriptor list names every field of its
// struct in order: each field must sit exactly where the previous one ends
// (after alignment), and the last must end the struct.
template <std::size_t N>
constexpr bool coversLayout(const FieldDesc (&fields)[N], std::size_t size, std::size_t align) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < N; ++i) {
        const std::size_t sz = kindSize(fields[i].kind);
        if (fields[i].offset != roundUp(end, sz)) return false;
        end = fields[i].offset + sz;
    }
    return roundUp(end, align) == size;
}

template <std::size_t N>
constexpr std::uint16_t nextOffsetOf(const FieldDesc (&fields)[N]) {
    for (std::size_t i = 0; i < N; ++i)
        if (fields[i].kind == FieldKind::Next) return fields[i].offset;
    return 0;
}

#define F(R, f, k, c) FieldDesc{#f, FieldKind::k, static_cast<std::uint16_t>(offsetof(R, f)), RecordId::c}
#define STR(f) F(Rec, f, String, Count),
#define STR1(f) F(Rec, f, StringFirst, Count),
#define NOCLONE(f) F(Rec, f, StringNoClone, Count),
#define REC(f, T) F(Rec, f, Record, T),
#define BORROW(f, T) F(Rec, f, Borrowed, T),
#define I16(f) F(Rec, f, Int16, Count),
#define I32(f) F(Rec, f, Int32, Count),
#define NEXT F(Rec, next, Next, Count),

#define RECORD(T, L, ...)                                                        \
    namespace fields_##T {                                                       \
    using Rec = ::T;                                                             \
    constexpr FieldDesc list[] = {__VA_ARGS__};                                  \
    static_assert(coversLayout(list, sizeof(Rec), alignof(Rec)), "records.def misses a field of " #T); \
    }
#include "model/records.def"
#undef RECORD

#define RECORD(T, L, ...)                                                             \
    RecordDesc{#T, sizeof(::T), sizeof(#L) == sizeof("List"), nextOffsetOf(fields_##T::list), \
               fields_##T::list, static_cast<std::uint8_t>(sizeof(fields_##T::list) / sizeof(FieldDesc))},
const RecordDesc kRecords[] = {
#include "model/records.def"
};
#undef RECORD

#undef F
#undef STR
#undef STR1
#undef NOCLONE
#undef REC
#undef BORROW
#undef I16
#undef I32
#undef NEXT

static_assert(sizeof(kRecords) / sizeof(kRecords[0]) == static_cast<std::size_t>(RecordId::Count));

void freeFields(const RecordDesc& d, void* node) {
    for (std::uint8_t i = 0; i < d.fieldCount; ++i) {
        const FieldDesc& f = d.fields[i];
        switch (f.kind) {
            case FieldKind::String:
            case FieldKind::StringFirst:
            case FieldKind::StringNoClone:
                releaseBlock(fieldRef<char>(node, f));
                break;
            case FieldKind::Record:
                freeRecord(f.child, fieldRef<void>(node, f));
                break;
            default:
                break;
        }
    }
}

int cloneFields(const RecordDesc& d, const void* src, void* dst) {
    for (std::uint8_t i = 0; i < d.fieldCount; ++i) {
        const FieldDesc& f = d.fields[i];
        void* s = const_cast<void*>(src);
        switch (f.kind) {
            case FieldKind::String:
                if (const char* text = fieldRef<char>(s, f)) {
                    if (!(fieldRef<char>(dst, f) = dupString(text))) return -1;
                }
                break;
            case FieldKind::StringFirst:
                // Kept deliberately: the copy holds only the first character.
                // It is given a terminator so that reading it stays defined.
                if (const char* text = fieldRef<char>(s, f)) {
                    char* one = static_cast<char*>(zalloc(2));
                    if (!(fieldRef<char>(dst, f) = one)) return -1;
                    one[0] = text[0];
                }
                break;
            case FieldKind::Record:
            case FieldKind::Borrowed:
                if (cloneRecord(f.child, fieldRef<void>(s, f), &fieldRef<void>(dst, f)) != 0) return -1;
                break;
            case FieldKind::Int16:
                std::memcpy(static_cast<char*>(dst) + f.offset, static_cast<const char*>(src) + f.offset, 2);
                break;
            case FieldKind::Int32:
                std::memcpy(static_cast<char*>(dst) + f.offset, static_cast<const char*>(src) + f.offset, 4);
                break;
            case FieldKind::StringNoClone:
            case FieldKind::Next:
                break;
        }
    }
    return 0;
}

}  // namespace

const RecordDesc& describe(RecordId id) { return kRecords[static_cast<std::size_t>(id)]; }

const FieldDesc* findField(RecordId id, const char* fieldName) {
    const RecordDesc& d = describe(id);
    for (std::uint8_t i = 0; i < d.fieldCount; ++i)
        if (std::strcmp(d.fields[i].name, fieldName) == 0) return &d.fields[i];
    return nullptr;
}

void freeRecord(RecordId id, void* record) {
    const RecordDesc& d = describe(id);
    while (record) {
        void* next = d.isList ? *reinterpret_cast<void**>(static_cast<char*>(record) + d.nextOffset) : nullptr;
        freeFields(d, record);
        releaseBlock(record);
        record = next;
    }
}

int cloneRecord(RecordId id, const void* source, void** destination) {
    if (!destination) return -1;
    *destination = nullptr;
    const RecordDesc& d = describe(id);
    void** link = destination;
    for (const void* node = source; node;) {
        void* copy = zalloc(d.size);
        if (!copy) return -1;
        *link = copy;  // linked at once: a failure leaves the partial copy reachable
        if (cloneFields(d, node, copy) != 0) return -1;
        if (!d.isList) break;
        link = reinterpret_cast<void**>(static_cast<char*>(copy) + d.nextOffset);
        node = *reinterpret_cast<void* const*>(static_cast<const char*>(node) + d.nextOffset);
    }
    return 0;
}

}  // namespace cimxml::model
