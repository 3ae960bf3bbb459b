// The element rule table and its resolved form (field offsets).
#pragma once

#include <cstdint>

#include "parser/parser_internal.h"

namespace cimxml::parser {

// How an attribute's text is stored.
enum class Conv : std::uint8_t {
    Text,            // a copy of the text
    Int16,           // strtol base 10, kept in 16 bits (PROPAGATED, CELLPOS, SORTPOS)
    Int32,           // strtol base 10 (ARRAYSIZE)
    Flag,            // exactly "TRUE" 1, exactly "FALSE" 0, anything else leaves the field
    SortDir,         // exactly "ASC" 1, exactly "DESC" 2, anything else leaves the field
    Flavor,          // an empty QualifierFlavor record; the text is dropped
    ClassName,       // a ClassName record holding a copy; a later one replaces it
    FirstClassName,  // the same, but only the first such attribute counts
};

enum class Link : std::uint8_t {
    Set,     // the single slot takes the record (what was there is released)
    Append,  // appended at the tail of the slot's chain
    NoSlot,  // a listed parent whose record has no slot for this one
};

enum class Content : std::uint8_t { None, Value, KeyValue, Host };

constexpr int kMaxAttrs = 7;
constexpr int kMaxLinks = 10;

struct AttrRule {
    const char* attr;
    const char* field;
    Conv conv;
};

struct LinkRule {
    const char* parent;  // the DOM parent's element name
    const char* field;   // slot in the parent's record
    Link how;
};

struct ElementRule {
    const char* element;
    model::RecordId record;  // Count for HOST, which builds a plain string
    Content content;
    AttrRule attrs[kMaxAttrs];
    LinkRule links[kMaxLinks];
};

struct ResolvedAttr {
    const char* attr;
    std::uint16_t offset;
    Conv conv;
};

struct ResolvedLink {
    ElementId parent;
    std::uint16_t offset;
    Link how;
};

struct ResolvedElement {
    model::RecordId record = model::RecordId::Count;
    Content content = Content::None;
    bool isList = false;
    std::uint16_t size = 0;
    std::uint16_t nextOffset = 0;
    std::uint8_t attrCount = 0;
    std::uint8_t linkCount = 0;
    ResolvedAttr attrs[kMaxAttrs] = {};
    ResolvedLink links[kMaxLinks] = {};
};

const ResolvedElement& resolvedElement(ElementId id);

}  // namespace cimxml::parser
