// The parse driver: parseXML, the iterative walk and the element stack.
//
// Limits of the element stack:
//  - map holds CIMXML_ELEMENT_STACK_SIZE (4096) live entries. A push beyond
//    the last entry is dropped, and the walk then does not read that
//    element's content: the element's record is built and linked, its
//    children are not built at all (nothing is attached to a wrong parent and
//    nothing is allocated that could leak).
//  - Names are kept in 256 bytes. A longer element name is cut to its first
//    255 bytes wherever the walk and the stack hold it; no dispatched name is
//    that long, so such an element is an unknown one.
//
// Records that the walk builds but nothing links (an unknown or unlisted
// parent, a CIM element that is never closed) are unreachable to the caller.
// They are kept on a list and released by the next parseXML once map has
// been cleared, so the process holds at most one parse's worth of them.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string.h>

#include "XMLParser.h"
#include "cimxml/parser.h"
#include "parser/parser_internal.h"

extern "C" {
ElementStackEntry map[CIMXML_ELEMENT_STACK_SIZE];
int top = -1;
void* returnAddress = nullptr;
void* testObjWithPath = nullptr;
}

namespace cimxml::parser {
namespace {

constexpr int kLastEntry = CIMXML_ELEMENT_STACK_SIZE - 1;
constexpr std::size_t kReleaseFrom = 64u << 10;

// `top` is an exported variable; never index outside the array whatever it
// holds (-1 is the empty stack).
int liveTop() { return std::clamp(top, -1, kLastEntry); }

// Names are a few bytes long: a plain loop costs less than the library calls.
bool sameName(const char* entryName, const char* name) {
    for (int i = 0; i < CIMXML_ELEMENT_NAME_SIZE; ++i) {
        if (entryName[i] != name[i]) return false;
        if (!name[i]) break;
    }
    return true;
}

// List ends remembered per stack entry; a record rarely fills more than a
// few lists, and a miss only costs a walk along the list. A way counts only
// in the generation it was taken in, so forgetting them all is one increment.
constexpr int kListEndWays = 4;
ListEnd g_listEnds[CIMXML_ELEMENT_STACK_SIZE][kListEndWays];
unsigned char g_listEndVictim[CIMXML_ELEMENT_STACK_SIZE];
std::uint64_t g_listEndGeneration = 1;

// The stack entry that holds `record`, when it is the current top.
int entryOfTop(const void* record) {
    if (top < 0 || top > kLastEntry || ::map[top].address != record) return -1;
    return top;
}

// One past the highest entry of `map` written since it was last cleared:
// entries above it are still zero, so a parse clears only what was used
// (the whole array is a megabyte, more than a small reply costs to parse).
int g_dirtyEntries = 0;

void storeEntry(int at, void* address, const char* name) {
    if (at >= g_dirtyEntries) g_dirtyEntries = at + 1;
    // Ways left from an earlier use of this entry must not match; the
    // generation alone decides that (a memset here showed in profiles).
    for (ListEnd& e : g_listEnds[at]) e.generation = 0;
    ::map[at].address = address;
    copyName(::map[at].name, name);
}

// Returns false only when the stack is full and the entry was dropped.
bool pushEntry(void* address, const char* name) {
    const int last = liveTop();  // -1 on an empty stack
    // A childless element hands back an entry already held, mostly the top one.
    for (int i = last; i >= 0; --i)
        if (::map[i].address == address) return true;
    if (last >= kLastEntry) return false;
    top = last + 1;
    storeEntry(top, address, name);
    return true;
}

void* popEntry(const char* name) {
    if (top < 0) return nullptr;
    for (int i = liveTop(); i >= 0; --i) {
        if (sameName(::map[i].name, name)) {
            top = i;
            return ::map[i].address;
        }
        ::map[i].address = nullptr;
        std::memset(::map[i].name, 0, 4);
    }
    top = -1;
    return nullptr;
}

void removeParentEntry(const char* name) {
    if (top < 0) return;
    for (int i = liveTop(); i >= 0; --i) {
        // The four bytes of "CIM" and its terminator, as one comparison.
        if (std::memcmp(::map[i].name, "CIM", 4) == 0) returnAddress = ::map[i].address;
        if (sameName(::map[i].name, name)) {
            ::map[i].name[0] = '\0';
            return;
        }
    }
}

// The CIM element, in any case. Asked of every last child: three bytes
// compared here cost less than the locale-aware library call.
bool isCim(const char* name) {
    return (name[0] | 0x20) == 'c' && (name[1] | 0x20) == 'i' && (name[2] | 0x20) == 'm' && name[3] == '\0';
}

// `name` itself when it fits a stack entry, else its first 255 bytes in `buf`.
const char* boundedName(const char* name, char* buf) {
    if (!name) return "";
    if (std::memchr(name, '\0', CIMXML_ELEMENT_NAME_SIZE)) return name;
    copyName(buf, name);
    return buf;
}

// --- records the walk leaves unlinked --------------------------------------

struct Unlinked {
    model::RecordId id;
    void* record;
};

Unlinked* g_unlinked = nullptr;
std::size_t g_unlinkedCount = 0;
std::size_t g_unlinkedCapacity = 0;
int g_walkDepth = 0;
// How VALUE texts are read, for the builders; a direct builder call outside
// any walk reads them the default way.
bool g_standardReading = false;

}  // namespace

void copyName(char* out, const char* name) {
    if (!name) name = "";
    const std::size_t n = strnlen(name, kMaxName);
    std::memcpy(out, name, n);
    out[n] = '\0';
}

ListEnd* listEndOf(void* parentRecord, void** head) {
    int at = entryOfTop(parentRecord);
    if (at < 0) return nullptr;
    for (ListEnd& e : g_listEnds[at])
        if (e.head == head && e.generation == g_listEndGeneration) return &e;
    unsigned char& victim = g_listEndVictim[at];
    ListEnd& e = g_listEnds[at][victim];
    victim = static_cast<unsigned char>((victim + 1) % kListEndWays);
    e = ListEnd{head, nullptr, g_listEndGeneration};
    return &e;
}

void forgetListEnds() { ++g_listEndGeneration; }

WalkScope::WalkScope(bool standard) : outer(g_walkDepth == 0), outerStandard(g_standardReading) {
    if (outer) forgetListEnds();
    ++g_walkDepth;
    g_standardReading = standard;
}
WalkScope::~WalkScope() {
    --g_walkDepth;
    g_standardReading = outerStandard;
}
bool walkActive() { return g_walkDepth > 0; }
bool standardReading() { return g_standardReading; }

void keepUnlinked(model::RecordId id, void* record) {
    if (!record) return;
    if (g_unlinkedCount == g_unlinkedCapacity) {
        std::size_t capacity = g_unlinkedCapacity ? g_unlinkedCapacity * 2 : 16;
        void* grown = std::realloc(g_unlinked, capacity * sizeof(Unlinked));
        if (!grown) return;  // the record is then simply not released
        g_unlinked = static_cast<Unlinked*>(grown);
        g_unlinkedCapacity = capacity;
    }
    g_unlinked[g_unlinkedCount++] = Unlinked{id, record};
}

void claimUnlinked(void* record) {
    if (!record) return;
    for (std::size_t i = 0; i < g_unlinkedCount; ++i) {
        if (g_unlinked[i].record == record) {
            g_unlinked[i] = g_unlinked[--g_unlinkedCount];
            return;
        }
    }
}

void releaseUnlinked() {
    for (std::size_t i = 0; i < g_unlinkedCount; ++i) {
        if (g_unlinked[i].id == model::RecordId::Count) std::free(g_unlinked[i].record);
        else model::freeRecord(g_unlinked[i].id, g_unlinked[i].record);
    }
    g_unlinkedCount = 0;
}

std::size_t unlinkedCount() { return g_unlinkedCount; }

}  // namespace cimxml::parser

using namespace cimxml::parser;

extern "C" {

int Push(ElementStackEntry entry) {
    entry.name[CIMXML_ELEMENT_NAME_SIZE - 1] = '\0';
    pushEntry(entry.address, entry.name);
    return 0;
}

void* Pop(const char* name) {
    char buf[CIMXML_ELEMENT_NAME_SIZE];
    return popEntry(boundedName(name, buf));
}

void removeParent(const char* name) {
    char buf[CIMXML_ELEMENT_NAME_SIZE];
    removeParentEntry(boundedName(name, buf));
}

int printStack(void) { return 0; }

}  // extern "C"

namespace cimxml::parser {

// The walk of recursiveParseCIM. With `releasing`, the document `node` belongs
// to gives back each block of nodes once the walk is past it.
int walkTree(XMLNode* node, XMLDoc* releasing, bool standard) {
    WalkScope scope(standard);
    char nameBuf[CIMXML_ELEMENT_NAME_SIZE];
    char parentBuf[CIMXML_ELEMENT_NAME_SIZE];
    const char* parentName = "";  // kept when a node has no parent
    ElementId parentId = ElementId::None;
    const XMLNode* parentSeen = nullptr;
    // The elements the walk is inside of, with their ids, so that a parent's
    // name is not looked up again for each of its children. A slot counts
    // only while it holds the node's own parent; deeper trees look names up.
    constexpr int kChain = 64;
    const XMLNode* chainNode[kChain] = {};
    ElementId chainId[kChain] = {};
    int depth = 0;

    for (XMLNode* n = node; n;) {
        bool descend = true;
        if (releasing) releaseXMLNodesBefore(releasing, n);
        if (n->type != XML_TEXT_NODE && n->type != XML_CDATA_SECTION_NODE) {
            const char* name = boundedName(n->name, nameBuf);
            if (n->parent) {
                // Read again when the parent's name moved: the DOM copies an
                // ancestor's strings out of text it releases behind the walk.
                if (parentName != n->parent->name) parentName = boundedName(n->parent->name, parentBuf);
                if (n->parent != parentSeen) {
                    parentSeen = n->parent;
                    const bool chained = depth > 0 && depth <= kChain && chainNode[depth - 1] == n->parent;
                    parentId = chained ? chainId[depth - 1] : lookupElement(parentName);
                }
            }
            void* parentRecord = popEntry(parentName);
            ElementId id = lookupElement(name);
            if (id != ElementId::None) {
                Built b = build(id, n, parentId, parentName, parentRecord);
                descend = pushEntry(b.address, b.name);
                printStack();
            } else if (standard && std::strcmp(name, "VALUE.NULL") == 0) {
                Built b = buildNullValue(n, parentId, parentName, parentRecord);
                descend = pushEntry(b.address, b.name);
            } else {
                // Callers rely on this exact line.
                std::puts("\n\n hey what iss thisssssssssssssssssssssssssssssss\n");
            }
            // The parent is closed when its last child is met.
            if (!n->nextSibling && !isCim(name)) removeParentEntry(parentName);
            // depth goes below zero when the walk climbs above its start node.
            if (descend && n->firstChild && static_cast<unsigned>(depth) < kChain) {
                chainNode[depth] = n;
                chainId[depth] = id;
            }
        }
        if (descend && n->firstChild) {
            n = n->firstChild;
            ++depth;
            continue;
        }
        while (n && !n->nextSibling) {
            n = n->parent;
            --depth;
        }
        if (n) n = n->nextSibling;
    }

    // The root handed back through returnAddress is the caller's now.
    if (scope.outer) claimUnlinked(returnAddress);
    return 0;
}

CIM* parseDocument(const char* text, char* scratch, bool standard) {
    top = -1;
    std::memset(::map, 0, static_cast<std::size_t>(g_dirtyEntries) * sizeof ::map[0]);
    g_dirtyEntries = 0;
    releaseUnlinked();
    if (!text) return nullptr;

    const char* start = std::strstr(text, "<?xml");
    if (!start) start = std::strstr(text, "<CIM ");
    if (!start) return nullptr;

    // A shorter text makes a small DOM (a few blocks for a typical reply, a
    // megabyte at worst): handing nodes back as the walk passes them would
    // cost more than the memory it returns. Measured before the parse, which
    // writes terminators into an in-place text.
    const bool large = strnlen(start, kReleaseFrom) == kReleaseFrom;
    XMLParseContext context{};
    XMLDoc* doc = scratch ? parseTextInPlace(&context, scratch + (start - text)) : parseText(&context, start);
    if (!doc) {
        std::printf("\n Invalid XML... %s", getErrorText(&context));
        return nullptr;
    }
    // The tree is read once, front to back: its node blocks are given back
    // as the records grow, so the two are never both whole in memory.
    walkTree(doc->root, large ? doc : nullptr, standard);
    freeXMLDoc(doc);
    printStack();
    return static_cast<CIM*>(returnAddress);
}

}  // namespace cimxml::parser

extern "C" {

int recursiveParseCIM(XMLNode* node) { return walkTree(node, nullptr); }

CIM* parseXML(const char* text) { return parseDocument(text, nullptr); }

}  // extern "C"
