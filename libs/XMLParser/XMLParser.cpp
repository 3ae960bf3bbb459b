// libXMLParser: parses with pugixml in place over a private copy of the text,
// then re-expresses the tree as plain XMLNode records bump-allocated from
// blocks the document owns. Names and values keep pointing into the copy:
// with an in-place UTF-8 buffer pugixml decodes every string where it stands
// and allocates only its node structures, so those are released as soon as
// the conversion has read them.
//
// Status codes kept in XMLParseContext: pugixml's xml_parse_status values for
// faults it finds, and the negative codes below for the ones we add.
#include "XMLParser.h"

#include <sys/mman.h>
#include <unistd.h>

#include <pugixml.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

enum : int {
    kNoText = -1,
    kNulByte = -2,
    kManyRoots = -3,
    kTooLarge = -4,
    kInternal = -5,
};

// A block is a little under 32 KB, the size of a pugixml node page: the pages
// released during the conversion come back from malloc as our blocks, so the
// two trees hardly ever occupy memory at the same time.
constexpr std::size_t kNodesPerBlock = (32 * 1024 - 32) / sizeof(XMLNode);

struct Block {
    XMLNode nodes[kNodesPerBlock];  // set one by one as they are used

    bool holds(const XMLNode* n) const {
        const std::less<const XMLNode*> before;
        return !before(n, nodes) && before(n, nodes + kNodesPerBlock);
    }
};

// Each parse needs a node block and pugixml a page of its own, both around
// 32 KB. A fresh malloc that large makes glibc merge every small chunk freed
// since (for a client, the records of its last reply, mostly), and the next
// small allocations are then carved out of the merged chunks at several times
// the cost. A thread keeps one block and one page from its last document for
// its next one instead.
constexpr std::size_t kSparePageLimit = 64u << 10;

struct Spares {
    Block* block = nullptr;
    char* page = nullptr;  // from the start of its header
    ~Spares() {
        delete block;
        std::free(page);
    }
};

// Behind a plain pointer: a document freed while the thread's destructors
// run finds it cleared rather than an object whose lifetime has ended.
thread_local Spares* t_spares = nullptr;
thread_local bool t_ending = false;

struct SparesReaper {
    bool armed = false;
    ~SparesReaper() {
        t_ending = true;
        delete t_spares;
        t_spares = nullptr;
    }
};
thread_local SparesReaper t_reaper;

Spares* spares() noexcept {
    if (t_ending) return nullptr;
    if (!t_spares) {
        t_reaper.armed = true;  // its first use registers its destructor for this thread
        t_spares = new (std::nothrow) Spares;
    }
    return t_spares;
}

// Set while this thread parses a large document (see deallocatePugi).
thread_local bool t_largeDocument = false;

struct LargeDocument {
    explicit LargeDocument(bool large) : outer(std::exchange(t_largeDocument, large)) {}
    ~LargeDocument() { t_largeDocument = outer; }
    LargeDocument(const LargeDocument&) = delete;
    LargeDocument& operator=(const LargeDocument&) = delete;
    bool outer;
};

#ifdef XMLPARSER_PRIVATE_PUGIXML
// pugixml's allocations in this library's own copy of it, each with its size
// in front so that a page can be kept for the next one.
constexpr std::size_t kPageHeader = alignof(std::max_align_t);

void* allocatePugi(std::size_t size) {
    Spares* s = spares();
    char* p = nullptr;
    if (s && s->page) {
        std::size_t kept;
        std::memcpy(&kept, s->page, sizeof kept);
        if (kept >= size) p = std::exchange(s->page, nullptr);
    }
    if (!p) {
        if (size > SIZE_MAX - kPageHeader) return nullptr;
        p = static_cast<char*>(std::malloc(size + kPageHeader));
        if (!p) return nullptr;
        std::memcpy(p, &size, sizeof size);
    }
    return p + kPageHeader;
}

void deallocatePugi(void* ptr) {
    if (!ptr) return;
    char* p = static_cast<char*>(ptr) - kPageHeader;
    std::size_t size;
    std::memcpy(&size, p, sizeof size);
    // Larger ones (a text too long for a page) are not worth holding on to,
    // nor the pages of a large document, which malloc hands back as its node
    // blocks while the conversion goes on.
    Spares* s = size <= kSparePageLimit && !t_largeDocument ? spares() : nullptr;
    if (s && !s->page) s->page = p;
    else std::free(p);
}

const bool kPugiAllocation = (pugi::set_memory_management_functions(allocatePugi, deallocatePugi), true);
#endif

// A private copy of at least this size gets pages of its own, which the walk
// hands back behind it (releaseText), so the copy and the caller's records
// are not both whole in memory. Released a step at a time.
constexpr std::size_t kMappedText = 1u << 20;
constexpr std::size_t kReleaseStep = 64u << 10;

// From this length on, pugixml's nodes are removed as they are converted.
constexpr std::size_t kReleaseNodes = 256u << 10;

std::size_t pageSize() {
    static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

struct DocImpl {
    XMLDoc doc{nullptr, nullptr};
    char* text = nullptr;  // the parsed text: every string lives here
    bool ownsText = true;  // false when the caller lent its buffer
    std::size_t mapped = 0;      // length of text's own mapping, 0 when it has none
    char* textKept = nullptr;    // the mapping from here on is still in place
    std::vector<char*> copies;   // strings of ancestors moved out of released text
    // In allocation order, which is document order; a released block is NULL.
    std::vector<Block*> blocks;
    std::size_t used = kNodesPerBlock;  // nodes used in the newest block
    std::size_t walked = 0;             // blocks before this one are released or pinned
    std::vector<std::size_t> pinned;    // walked blocks kept for an ancestor

    DocImpl() { doc.impl = this; }
    DocImpl(const DocImpl&) = delete;
    DocImpl& operator=(const DocImpl&) = delete;
    ~DocImpl() {
        for (Block* b : blocks) {
            Spares* s = b ? spares() : nullptr;
            if (s && !s->block) s->block = b;
            else delete b;
        }
        for (char* c : copies) delete[] c;
        if (mapped) munmap(textKept, mapped - static_cast<std::size_t>(textKept - text));
        else if (ownsText) delete[] text;
    }

    // The private copy of `length` bytes and a terminator.
    void allocateText(std::size_t length) {
        const std::size_t page = pageSize();
        std::size_t size = (length + 1 + page - 1) / page * page;
        if (length >= kMappedText) {
            void* m = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (m != MAP_FAILED) {
                text = textKept = static_cast<char*>(m);
                mapped = size;
                return;
            }
        }
        text = new char[length + 1];
    }

    bool inReleasable(const char* s, const char* bound) const {
        const std::less<const char*> before;
        return s && !before(s, textKept) && before(s, bound);
    }

    void keepString(const char*& field, const char* bound) {
        if (!inReleasable(field, bound)) return;
        std::size_t n = std::strlen(field) + 1;
        if (copies.size() == copies.capacity()) copies.reserve(copies.size() * 2 + 16);  // may throw: nothing changed yet
        char* c = new char[n];
        std::memcpy(c, field, n);
        copies.push_back(c);
        field = c;
    }

    // Gives back the pages of a mapped copy that lie wholly before `node`'s
    // own text. The walk goes back to the node's ancestors, so their strings
    // are copied out first; every other string before the node goes.
    void releaseText(XMLNode* node) {
        if (!mapped) return;
        const char* at = node->type == XML_ELEMENT_NODE ? node->name : node->value;
        // Addresses as numbers: `at` may be any node's, of this text or not.
        const std::uintptr_t from = reinterpret_cast<std::uintptr_t>(at);
        const std::uintptr_t kept = reinterpret_cast<std::uintptr_t>(textKept);
        if (!at || from < kept + kReleaseStep || from >= reinterpret_cast<std::uintptr_t>(text) + mapped) return;
        char* bound = textKept + (from - kept) / pageSize() * pageSize();
        for (XMLNode* a = node->parent; a; a = a->parent) {
            keepString(a->name, bound);
            keepString(a->value, bound);
            for (XMLNode* attr = a->attributes; attr; attr = attr->nextSibling) {
                keepString(attr->name, bound);
                keepString(attr->value, bound);
            }
        }
        munmap(textKept, static_cast<std::size_t>(bound - textKept));
        textKept = bound;
    }

    XMLNode* newNode(int type, XMLNode* parent) {
        if (used == kNodesPerBlock) {
            Spares* s = spares();
            std::unique_ptr<Block> b(s && s->block ? std::exchange(s->block, nullptr) : new Block);
            blocks.push_back(b.get());
            b.release();
            used = 0;
        }
        XMLNode* n = &blocks.back()->nodes[used++];
        *n = XMLNode{type, "", nullptr, nullptr, parent, nullptr, nullptr};
        return n;
    }

    // Frees block i unless it holds an ancestor of `node` or one of an
    // ancestor's attributes (they can spill into the next block); true when kept.
    bool keepOrRelease(std::size_t i, const XMLNode* node) {
        for (const XMLNode* a = node->parent; a; a = a->parent) {
            if (blocks[i]->holds(a)) return true;
            for (const XMLNode* attr = a->attributes; attr; attr = attr->nextSibling)
                if (blocks[i]->holds(attr)) return true;
        }
        delete blocks[i];
        blocks[i] = nullptr;
        return false;
    }

    // Called with nodes in document order; does work only when `node` lies
    // past the block of the previous call.
    void releaseBefore(const XMLNode* node) {
        if (walked < blocks.size() && blocks[walked]->holds(node)) return;
        std::size_t at = walked + 1;
        while (at < blocks.size() && !blocks[at]->holds(node)) ++at;
        if (at >= blocks.size()) return;  // not a node of this document, or an earlier one
        pinned.reserve(pinned.size() + (at - walked));  // may throw; nothing is released yet
        auto stillPinned = [&](std::size_t i) { return !keepOrRelease(i, node); };
        pinned.erase(std::remove_if(pinned.begin(), pinned.end(), stillPinned), pinned.end());
        for (std::size_t i = walked; i < at; ++i)
            if (keepOrRelease(i, node)) pinned.push_back(i);
        walked = at;
    }
};

// The default options plus parse_ws_pcdata_single: CDATA as its own node,
// predefined entities and character references decoded, line ends and
// attribute whitespace normalised. No DTD is ever read; a reference to any
// other entity (&custom;) stays in the text exactly as written.
//
// Whitespace between elements is dropped because the response walk closes a
// parent when it meets the parent's last child; a trailing whitespace text
// would become that last child and the walk would attach the next elements
// to the wrong parent. Whitespace that is an element's whole content is data
// (<VALUE> </VALUE>) and is kept.
constexpr unsigned kParseOptions = pugi::parse_default | pugi::parse_ws_pcdata_single;

void setError(XMLParseContext* ctx, int status, std::size_t offset, const char* description) {
    if (!ctx) return;
    ctx->status = status;
    ctx->offset = offset;
    std::snprintf(ctx->errorText, sizeof ctx->errorText, "Error parsing XML: %s at offset %zu", description,
                  offset);
}

void clearError(XMLParseContext* ctx) {
    if (!ctx) return;
    ctx->status = 0;
    ctx->offset = 0;
    ctx->errorText[0] = '\0';
}

void append(XMLNode* parent, XMLNode* last, XMLNode* n) {
    if (last)
        last->nextSibling = n;
    else
        parent->firstChild = n;
}

XMLNode* newElement(DocImpl& impl, pugi::xml_node source, XMLNode* parent) {
    XMLNode* e = impl.newNode(XML_ELEMENT_NODE, parent);
    e->name = source.name();
    XMLNode** link = &e->attributes;
    for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute()) {
        XMLNode* an = impl.newNode(XML_ATTRIBUTE_NODE, e);
        an->name = a.name();
        an->value = a.value();
        *link = an;
        link = &an->nextSibling;
    }
    return e;
}

void removeChild(pugi::xml_node parent, pugi::xml_node child) {
    // Fails only when pugixml cannot reserve memory; stopping here keeps the
    // walk from meeting the same child forever.
    if (!parent.remove_child(child)) throw std::runtime_error("node release failed");
}

// Builds the XMLNode tree of `root` in document order, without recursion or
// a stack: the current element is walked in step with its pugixml source.
// For a large text every pugixml node is removed once converted (an element
// once its children are), so pugixml's pages are freed while ours fill; a
// small one is left whole, as removing costs more than the memory it saves.
XMLNode* convert(DocImpl& impl, pugi::xml_node root, std::size_t length) {
    const bool release = length >= kReleaseNodes;
    const std::less<const char*> before;
    const char* const bufferBegin = impl.text;
    const char* const bufferEnd = impl.text + length + 1;
    XMLNode* top = newElement(impl, root, nullptr);
    XMLNode* cur = top;
    pugi::xml_node src = root;
    pugi::xml_node c = root.first_child();  // next child of src to convert
    XMLNode* last = nullptr;     // last child of cur so far
    char* textEnd = nullptr;     // end of last's value when last is a merged text
    auto appendLeaf = [&](int type, pugi::xml_node source) {
        XMLNode* t = impl.newNode(type, cur);
        t->value = source.value();
        append(cur, last, t);
        last = t;
        textEnd = nullptr;
    };
    for (;;) {
        if (!c) {
            if (cur == top) break;
            pugi::xml_node up = src.parent();
            c = src.next_sibling();
            if (release) removeChild(up, src);
            last = cur;
            cur = cur->parent;
            src = up;
            textEnd = nullptr;
            continue;
        }
        switch (c.type()) {
            case pugi::node_element: {
                XMLNode* e = newElement(impl, c, cur);
                append(cur, last, e);
                cur = e;
                src = c;
                c = c.first_child();
                last = nullptr;
                textEnd = nullptr;
                continue;  // removed after its own children
            }
            case pugi::node_pcdata:
                if (last && last->type == XML_TEXT_NODE) {
                    // Character data split only by a comment or PI is one
                    // text: move the later piece down to the end of the
                    // earlier one. Both lie in our buffer in document order
                    // and the bytes between them are no longer referenced.
                    const char* piece = c.value();
                    if (!textEnd) {
                        const char* v = last->value;
                        if (before(v, bufferBegin) || !before(v, bufferEnd))
                            throw std::runtime_error("text outside the buffer");
                        textEnd = impl.text + (v - bufferBegin) + std::strlen(v);
                    }
                    if (!before(textEnd, piece) || !before(piece, bufferEnd))
                        throw std::runtime_error("text outside the buffer");
                    std::size_t n = std::strlen(piece);
                    std::memmove(textEnd, piece, n + 1);
                    textEnd += n;
                } else {
                    appendLeaf(XML_TEXT_NODE, c);
                }
                break;
            case pugi::node_cdata:
                appendLeaf(XML_CDATA_SECTION_NODE, c);
                break;
            default:  // declarations, comments, PIs, DOCTYPE: not represented
                break;
        }
        pugi::xml_node next = c.next_sibling();
        if (release) removeChild(src, c);
        c = next;
    }
    return top;
}

// Parses `length` bytes of the caller's `text` in place when `lent`, else a
// private copy of them.
XMLDoc* parse(XMLParseContext* ctx, const char* text, std::size_t length, char* lent = nullptr) {
    DocImpl* impl = nullptr;
    try {
        impl = new DocImpl();
        if (lent) {
            impl->text = lent;
            impl->ownsText = false;
        } else {
            impl->allocateText(length);
            std::memcpy(impl->text, text, length);
            impl->text[length] = '\0';
        }

        const LargeDocument large(length >= kReleaseNodes);  // outlives pdoc and its pages
        pugi::xml_document pdoc;
        pugi::xml_parse_result r = pdoc.load_buffer_inplace(impl->text, length, kParseOptions, pugi::encoding_utf8);
        if (!r) {
            setError(ctx, static_cast<int>(r.status), static_cast<std::size_t>(r.offset), r.description());
            delete impl;
            return nullptr;
        }
        pugi::xml_node root = pdoc.document_element();
        pugi::xml_node extra = root.next_sibling();
        while (extra && extra.type() != pugi::node_element) extra = extra.next_sibling();
        if (extra) {
            std::ptrdiff_t at = extra.offset_debug();
            setError(ctx, kManyRoots, at > 0 ? static_cast<std::size_t>(at - 1) : 0,
                     "More than one document element");
            delete impl;
            return nullptr;
        }
        impl->doc.root = convert(*impl, root, length);
        clearError(ctx);
        return &impl->doc;
    } catch (const std::bad_alloc&) {
        setError(ctx, static_cast<int>(pugi::status_out_of_memory), 0, "Could not allocate memory");
    } catch (...) {
        setError(ctx, kInternal, 0, "Internal error");
    }
    delete impl;
    return nullptr;
}

}  // namespace

extern "C" {

XMLDoc* parseTextLength(XMLParseContext* ctx, const char* text, size_t length) {
    if (!text) {
        setError(ctx, kNoText, 0, "No text to parse");
        return nullptr;
    }
    if (length >= static_cast<std::size_t>(PTRDIFF_MAX) / 2) {
        setError(ctx, kTooLarge, 0, "Text too large");
        return nullptr;
    }
    // pugixml would stop at a NUL byte and quietly ignore the rest.
    if (const void* nul = std::memchr(text, '\0', length)) {
        setError(ctx, kNulByte, static_cast<std::size_t>(static_cast<const char*>(nul) - text),
                 "NUL byte in the text");
        return nullptr;
    }
    return parse(ctx, text, length);
}

XMLDoc* parseText(XMLParseContext* ctx, const char* text) {
    if (!text) {
        setError(ctx, kNoText, 0, "No text to parse");
        return nullptr;
    }
    return parse(ctx, text, std::strlen(text));
}

XMLDoc* parseTextInPlace(XMLParseContext* ctx, char* text) {
    if (!text) {
        setError(ctx, kNoText, 0, "No text to parse");
        return nullptr;
    }
    return parse(ctx, text, std::strlen(text), text);
}

const char* getErrorText(XMLParseContext* ctx) { return ctx ? ctx->errorText : ""; }

void releaseXMLNodesBefore(XMLDoc* doc, const XMLNode* node) {
    if (!doc || !node) return;
    try {
        DocImpl* impl = static_cast<DocImpl*>(doc->impl);
        impl->releaseBefore(node);
        impl->releaseText(const_cast<XMLNode*>(node));
    } catch (...) {
        // Out of memory for the pinned list or a copy: nothing more is released this time.
    }
}

void freeXMLDoc(XMLDoc* doc) {
    if (!doc) return;
    delete static_cast<DocImpl*>(doc->impl);
}

}  // extern "C"
