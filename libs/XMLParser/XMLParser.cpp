// libXMLParser: parses with pugixml in place over a private copy of the text,
// then re-expresses the tree as plain XMLNode records bump-allocated from
// blocks the document owns. pugixml's own node pages are released right
// after the conversion; names and values keep pointing into the copy.
#include "XMLParser.h"

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace {

constexpr std::size_t kNodesPerBlock = 8192;

struct DocImpl {
    char* text = nullptr;               // the parsed copy: every string lives here
    std::vector<XMLNode*> blocks;       // node storage
    std::vector<char*> merged;          // texts joined across skipped comments/PIs
    std::size_t used = kNodesPerBlock;  // nodes used in the last block

    ~DocImpl() {
        for (XMLNode* b : blocks) std::free(b);
        for (char* m : merged) std::free(m);
        std::free(text);
    }

    XMLNode* newNode() {
        if (used == kNodesPerBlock) {
            auto* block = static_cast<XMLNode*>(std::malloc(kNodesPerBlock * sizeof(XMLNode)));
            if (!block) throw std::bad_alloc();
            blocks.push_back(block);
            used = 0;
        }
        XMLNode* n = &blocks.back()[used++];
        *n = XMLNode{0, "", nullptr, nullptr, nullptr, nullptr, nullptr};
        return n;
    }
};

// Only these options: CDATA as its own node; predefined entities and
// character references decoded (custom entities are left as they stand and
// no DTD is ever read); line ends normalised; a whitespace-only text kept only
// when it is an element's whole content. Whitespace between elements is
// dropped because the response walk closes a parent at its last child, which
// a trailing whitespace sibling would hide.
constexpr unsigned kParseOptions = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                                   pugi::parse_wconv_attribute | pugi::parse_ws_pcdata_single;

void setError(XMLParseContext* ctx, int status, std::size_t offset, const char* description) {
    if (!ctx) return;
    ctx->status = status;
    ctx->offset = offset;
    std::snprintf(ctx->errorText, sizeof ctx->errorText, "Error parsing XML: %s at offset %zu", description,
                  offset);
}

int typeOf(pugi::xml_node_type t) {
    switch (t) {
        case pugi::node_element: return XML_ELEMENT_NODE;
        case pugi::node_pcdata: return XML_TEXT_NODE;
        case pugi::node_cdata: return XML_CDATA_SECTION_NODE;
        default: return 0;  // declarations, comments, PIs, doctype: not represented
    }
}

// Builds the XMLNode tree of `root` without recursion.
XMLNode* convert(DocImpl& impl, pugi::xml_node root) {
    struct Frame {
        pugi::xml_node source;
        XMLNode* node;
    };
    std::vector<Frame> stack;
    XMLNode* top = impl.newNode();
    top->type = XML_ELEMENT_NODE;
    top->name = root.name();
    stack.push_back({root, top});
    while (!stack.empty()) {
        Frame f = stack.back();
        stack.pop_back();
        XMLNode** attrLink = &f.node->attributes;
        for (pugi::xml_attribute a = f.source.first_attribute(); a; a = a.next_attribute()) {
            XMLNode* an = impl.newNode();
            an->type = XML_ATTRIBUTE_NODE;
            an->name = a.name();
            an->value = a.value();
            an->parent = f.node;
            *attrLink = an;
            attrLink = &an->nextSibling;
        }
        XMLNode** childLink = &f.node->firstChild;
        XMLNode* last = nullptr;
        for (pugi::xml_node c = f.source.first_child(); c; c = c.next_sibling()) {
            int type = typeOf(c.type());
            if (!type) continue;
            if (type == XML_TEXT_NODE && last && last->type == XML_TEXT_NODE) {
                // Character data interrupted only by a comment or PI is one text.
                std::size_t a = std::strlen(last->value), b = std::strlen(c.value());
                char* joined = static_cast<char*>(std::malloc(a + b + 1));
                if (!joined) throw std::bad_alloc();
                impl.merged.push_back(joined);
                std::memcpy(joined, last->value, a);
                std::memcpy(joined + a, c.value(), b + 1);
                last->value = joined;
                continue;
            }
            XMLNode* cn = impl.newNode();
            cn->type = type;
            cn->parent = f.node;
            if (type == XML_ELEMENT_NODE) {
                cn->name = c.name();
                stack.push_back({c, cn});
            } else {
                cn->value = c.value();
            }
            *childLink = cn;
            childLink = &cn->nextSibling;
            last = cn;
        }
    }
    return top;
}

}  // namespace

extern "C" {

XMLDoc* parseTextLength(XMLParseContext* ctx, const char* text, size_t length) {
    if (ctx) setError(ctx, 0, 0, "no error");
    if (ctx) ctx->errorText[0] = '\0';
    if (!text) {
        setError(ctx, -1, 0, "no text");
        return nullptr;
    }
    DocImpl* impl = nullptr;
    XMLDoc* doc = nullptr;
    try {
        impl = new DocImpl();
        impl->text = static_cast<char*>(std::malloc(length + 1));
        if (!impl->text) throw std::bad_alloc();
        std::memcpy(impl->text, text, length);
        impl->text[length] = '\0';

        pugi::xml_node root;
        {
            pugi::xml_document pdoc;
            pugi::xml_parse_result r =
                pdoc.load_buffer_inplace(impl->text, length, kParseOptions, pugi::encoding_utf8);
            if (!r) {
                setError(ctx, static_cast<int>(r.status), static_cast<std::size_t>(r.offset), r.description());
                delete impl;
                return nullptr;
            }
            root = pdoc.document_element();
            if (!root) {
                setError(ctx, static_cast<int>(pugi::status_no_document_element), length,
                         "No document element found");
                delete impl;
                return nullptr;
            }
            doc = static_cast<XMLDoc*>(std::calloc(1, sizeof(XMLDoc)));
            if (!doc) throw std::bad_alloc();
            doc->impl = impl;
            doc->root = convert(*impl, root);
        }  // pugixml's pages go here; the strings stay in impl->text
        return doc;
    } catch (...) {
        setError(ctx, -2, 0, "out of memory");
        std::free(doc);
        delete impl;
        return nullptr;
    }
}

XMLDoc* parseText(XMLParseContext* ctx, const char* text) {
    return parseTextLength(ctx, text, text ? std::strlen(text) : 0);
}

const char* getErrorText(XMLParseContext* ctx) { return ctx ? ctx->errorText : ""; }

void freeXMLDoc(XMLDoc* doc) {
    if (!doc) return;
    delete static_cast<DocImpl*>(doc->impl);
    std::free(doc);
}

}  // extern "C"
