// Internals shared by the walk, the builders and the element rules.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cimxml/parser.h"
#include "model/record_table.h"

namespace cimxml::parser {

enum class ElementId : std::uint8_t {
#define ELEMENT(B, N) B,
#include "parser/elements.def"
#undef ELEMENT
    Count,
    None = Count,
};

constexpr std::size_t kDispatchedCount = 65;
constexpr std::size_t kMaxName = CIMXML_ELEMENT_NAME_SIZE - 1;  // longest name a stack entry keeps

// The dispatched element of that name, or None (unknown, or one of the three
// builders nothing calls).
ElementId lookupElement(const char* name);
const char* elementName(ElementId id);

// What a builder hands back to the walk: the entry to push. `name` points to
// a string that outlives the push (a DOM name or a table literal).
struct Built {
    void* address;
    const char* name;
};

// Builds the record of `node` and links it into `parentRecord` by the rules of
// `id`. `parentId` is the element id of the DOM parent's name.
Built build(ElementId id, XMLNode* node, ElementId parentId, const char* parentName, void* parentRecord);

// Set while the walk runs. Only then are records that end up linked nowhere,
// and records displaced from a single slot, collected for release: they are
// unreachable to anyone but the walk.
struct WalkScope {
    explicit WalkScope(bool standard);
    ~WalkScope();
    WalkScope(const WalkScope&) = delete;
    WalkScope& operator=(const WalkScope&) = delete;
    bool outer;
    bool outerStandard;
};
bool walkActive();
// The walk remembers, per element-stack entry, where the lists of that
// entry's record end, so appending the 20,000th instance does not walk the
// 19,999 before it. listEndOf gives the memory of the list headed at `head`
// (lastNext: the next-field of its last record, NULL when not known), or NULL
// when `parentRecord` is not the record of the current top entry; for every
// link the walk makes, it is. A freed record forgets everything (its address
// may come back).
struct ListEnd {
    void** head;
    void** lastNext;
    std::uint64_t generation;
};
ListEnd* listEndOf(void* parentRecord, void** head);
void forgetListEnds();

// A record built during the walk that nothing links. Kept until the next
// parseXML (after `map` is cleared), then released; RecordId::Count marks a
// plain string (HOST text).
void keepUnlinked(model::RecordId id, void* record);
// Drops `record` from the kept list (the root handed back through returnAddress).
void claimUnlinked(void* record);
void releaseUnlinked();
std::size_t unlinkedCount();  // test seam

// recursiveParseCIM; with `releasing`, the DOM document of `node`, whose
// node blocks are released as the walk passes them.
int walkTree(XMLNode* node, struct XMLDoc* releasing, bool standard = false);

// parseXML; with `scratch` (the same text, writable and no longer needed
// by the caller) the text is parsed where it stands instead of copied.
// `standard` adds the readings of the standard wire mode: VALUE.NULL is a
// Value whose text is NULL (in every parent a VALUE may have), and an
// embedded instance sent as escaped text is read as one in CDATA is.
CIM* parseDocument(const char* text, char* scratch, bool standard = false);

// True while a parse with the standard readings runs.
bool standardReading();

// A VALUE.NULL read as a Value without text, linked as a VALUE would be.
Built buildNullValue(XMLNode* node, ElementId parentId, const char* parentName, void* parentRecord);

// True when every rule of the element table names a field of the right kind.
// A rule that does not resolve is skipped at run time.
bool rulesResolved();

// Copies at most kMaxName bytes of `name` and a terminator into `out`.
void copyName(char* out, const char* name);

}  // namespace cimxml::parser
