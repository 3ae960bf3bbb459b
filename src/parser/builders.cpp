// The builders: one generic routine driven by the element rules, the content
// readers of VALUE, KEYVALUE and HOST, and the exported Create<X> wrappers.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "XMLParser.h"
#include "cimxml/parser.h"
#include "model/alloc.h"
#include "parser/parser_internal.h"
#include "parser/rules.h"

namespace cimxml::parser {
namespace {

using model::RecordId;

// Kept deliberately: value and host texts get this much room past their end.
constexpr std::size_t kTextSlack = 128;

char*& stringAt(void* record, std::uint16_t offset) {
    return *reinterpret_cast<char**>(static_cast<char*>(record) + offset);
}

void*& pointerAt(void* record, std::uint16_t offset) {
    return *reinterpret_cast<void**>(static_cast<char*>(record) + offset);
}

void setInt16(void* record, std::uint16_t offset, long v) {
    std::int16_t n = static_cast<std::int16_t>(v);
    std::memcpy(static_cast<char*>(record) + offset, &n, sizeof n);
}

void setInt32(void* record, std::uint16_t offset, long v) {
    std::int32_t n = static_cast<std::int32_t>(v);
    std::memcpy(static_cast<char*>(record) + offset, &n, sizeof n);
}

char* copyWithSlack(const char* text) {
    std::size_t n = std::strlen(text);
    char* s = static_cast<char*>(xmalloc(n + 1 + kTextSlack));
    if (s) std::memcpy(s, text, n + 1);
    return s;
}

// The text of an element's first child; "" when there is no child or the
// child carries no text (an element).
const char* firstChildText(const XMLNode* node) {
    const XMLNode* c = node->firstChild;
    return c && c->value ? c->value : "";
}

void applyAttribute(const ResolvedElement& e, void* record, const XMLNode* attr) {
    const char* name = attr->name ? attr->name : "";
    const char* text = attr->value ? attr->value : "";
    for (std::uint8_t i = 0; i < e.attrCount; ++i) {
        const ResolvedAttr& a = e.attrs[i];
        if (a.attr[0] != name[0] || std::strcmp(a.attr, name) != 0) continue;  // most differ at once
        switch (a.conv) {
            case Conv::Text: {
                char*& field = stringAt(record, a.offset);
                std::free(field);  // a repeated attribute: the earlier copy is nobody's
                field = dupString(text);
                break;
            }
            case Conv::Int16:
                setInt16(record, a.offset, std::strtol(text, nullptr, 10));
                break;
            case Conv::Int32:
                setInt32(record, a.offset, std::strtol(text, nullptr, 10));
                break;
            case Conv::Flag:
                if (std::strcmp(text, "TRUE") == 0) setInt32(record, a.offset, 1);
                else if (std::strcmp(text, "FALSE") == 0) setInt32(record, a.offset, 0);
                break;
            case Conv::SortDir:
                if (std::strcmp(text, "ASC") == 0) setInt16(record, a.offset, 1);
                else if (std::strcmp(text, "DESC") == 0) setInt16(record, a.offset, 2);
                break;
            case Conv::Flavor: {
                void*& field = pointerAt(record, a.offset);
                std::free(field);
                field = newRecord<QualifierFlavor>();
                break;
            }
            case Conv::FirstClassName:
                if (pointerAt(record, a.offset)) break;
                [[fallthrough]];
            case Conv::ClassName: {
                ClassName* cn = newRecord<ClassName>();
                if (cn && !(cn->name = dupString(text))) {
                    std::free(cn);
                    cn = nullptr;
                }
                void*& field = pointerAt(record, a.offset);
                model::freeRecord(RecordId::ClassName, field);
                field = cn;
                break;
            }
        }
        return;
    }
}

// Standard replies carry an embedded instance as escaped text, with
// EmbeddedObject="instance" (or "object") on the property or parameter.
bool embeddedText(const XMLNode* node, const XMLNode* text) {
    if (!standardReading() || !node->parent || !text->value) return false;
    bool marked = false;
    for (const XMLNode* a = node->parent->attributes; a && !marked; a = a->nextSibling)
        marked = a->name && strcasecmp(a->name, "EmbeddedObject") == 0;
    const char* t = text->value;
    while (*t == ' ' || *t == '\t' || *t == '\r' || *t == '\n') ++t;
    return marked && std::strncmp(t, "<INSTANCE", 9) == 0;
}

void readValue(XMLNode* node, Value* v) {
    XMLNode* c = node->firstChild;
    if (!c) {
        v->value = dupString("");
    } else if (c->type == XML_CDATA_SECTION_NODE || embeddedText(node, c)) {
        // An embedded instance; when it does not parse the value stays empty.
        ParseCDataContent(c->value ? c->value : "", &v->instance);
    } else {
        v->value = copyWithSlack(firstChildText(node));
    }
}

// Links `record` into `parentRecord` by the rule for `parentId`. Returns
// false when it stays unlinked.
bool link(const ResolvedElement& e, void* record, ElementId parentId, void* parentRecord) {
    if (!parentRecord || parentId == ElementId::None) return false;
    for (std::uint8_t i = 0; i < e.linkCount; ++i) {
        const ResolvedLink& l = e.links[i];
        if (l.parent != parentId) continue;
        if (l.how == Link::NoSlot) return false;
        void*& slot = pointerAt(parentRecord, l.offset);
        if (l.how == Link::Append) {
            ListEnd* end = walkActive() ? listEndOf(parentRecord, &slot) : nullptr;
            void** at = end && end->lastNext && slot ? end->lastNext : &slot;
            while (*at) at = &pointerAt(*at, e.nextOffset);
            *at = record;
            if (end) end->lastNext = &pointerAt(record, e.nextOffset);
        } else {
            void* displaced = slot;
            slot = record;
            // Within the walk the displaced record is unreachable (its stack
            // entries went with the Pop that found this parent); a direct
            // caller may still hold it, so it is left alone then.
            if (displaced && walkActive()) {
                forgetListEnds();
                if (e.record == RecordId::Count) std::free(displaced);
                else model::freeRecord(e.record, displaced);
            }
        }
        return true;
    }
    return false;
}

Built buildHost(XMLNode* node, ElementId parentId, const char* parentName, void* parentRecord) {
    Built result{parentRecord, parentName};
    char* host = copyWithSlack(firstChildText(node));
    if (!host) return result;
    ResolvedElement e;  // a plain string in NAMESPACEPATH's host slot
    e.linkCount = 1;
    e.links[0] = ResolvedLink{ElementId::NamespacePath, static_cast<std::uint16_t>(offsetof(NamespacePath, host)), Link::Set};
    if (!link(e, host, parentId, parentRecord) && walkActive()) keepUnlinked(RecordId::Count, host);
    if (node->firstChild) result = Built{host, node->name ? node->name : ""};
    return result;
}

}  // namespace

Built build(ElementId id, XMLNode* node, ElementId parentId, const char* parentName, void* parentRecord) {
    Built result{parentRecord, parentName};
    const ResolvedElement& e = resolvedElement(id);  // callers pass dispatched elements only
    if (e.content == Content::Host) return buildHost(node, parentId, parentName, parentRecord);

    // An allocation failure builds nothing: the element reads as childless.
    void* record = zalloc(e.size);
    if (!record) return result;
    for (const XMLNode* a = node->attributes; a; a = a->nextSibling) applyAttribute(e, record, a);
    if (e.content == Content::Value) readValue(node, static_cast<Value*>(record));
    else if (e.content == Content::KeyValue) static_cast<KeyValue*>(record)->value = dupString(firstChildText(node));

    if (!link(e, record, parentId, parentRecord) && walkActive()) keepUnlinked(e.record, record);
    if (node->firstChild) result = Built{record, node->name ? node->name : ""};
    return result;
}

Built buildNullValue(XMLNode* node, ElementId parentId, const char* parentName, void* parentRecord) {
    Built result{parentRecord, parentName};
    const ResolvedElement& e = resolvedElement(ElementId::Value);
    auto* record = newRecord<Value>();
    if (!record) return result;
    if (!link(e, record, parentId, parentRecord) && walkActive()) keepUnlinked(e.record, record);
    if (node->firstChild) result = Built{record, node->name ? node->name : ""};
    return result;
}

namespace {

ElementStackEntry buildEntry(ElementId id, XMLNode* node, void* parentRecord) {
    ElementStackEntry entry{};
    entry.address = parentRecord;
    if (!node) return entry;
    char parentBuf[CIMXML_ELEMENT_NAME_SIZE];
    const char* parentName = "";
    if (node->parent && node->parent->name) {
        copyName(parentBuf, node->parent->name);
        parentName = parentBuf;
    }
    Built b = build(id, node, lookupElement(parentName), parentName, parentRecord);
    entry.address = b.address;
    copyName(entry.name, b.name);
    return entry;
}

}  // namespace
}  // namespace cimxml::parser

extern "C" {

#define ELEMENT(B, N)                                                         \
    ElementStackEntry Create##B(XMLNode* node, void* parentRecord) {          \
        return cimxml::parser::buildEntry(cimxml::parser::ElementId::B, node, parentRecord); \
    }
#include "parser/elements.def"
#undef ELEMENT

}  // extern "C"
