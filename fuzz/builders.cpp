// The Create builders fed a DOM: the walk started at any element of the
// document, and each builder called directly on elements it was not meant for.
#include <cstdint>
#include <string>
#include <vector>

#include "XMLParser.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "input.h"

namespace {

using Builder = ElementStackEntry (*)(XMLNode*, void*);
using Release = void (*)(void*);

struct Entry {
    Builder build;
    Release release;
};

// HOST builds a bare string; every other builder a record of its own name.
using Host = char;
#define ELEMENT(B, N) {Create##B, [](void* p) { Free_##B(static_cast<B*>(p)); }},
const Entry kBuilders[] = {
#include "parser/elements.def"
};
#undef ELEMENT
constexpr unsigned kBuilderCount = sizeof kBuilders / sizeof kBuilders[0];

// Elements in document order, without recursion (the nesting is the input's).
void elements(XMLNode* n, std::vector<XMLNode*>& out) {
    while (n) {
        if (n->type == XML_ELEMENT_NODE) out.push_back(n);
        if (n->firstChild) {
            n = n->firstChild;
            continue;
        }
        while (n && !n->nextSibling) n = n->parent;
        if (n) n = n->nextSibling;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cimfuzz::Input in(data, size);
    const unsigned start = in.byte();
    std::vector<std::uint8_t> choices;
    for (int i = 0; i < 8; ++i) choices.push_back(in.byte());
    std::string text = in.rest();

    XMLDoc* doc = parseTextLength(nullptr, text.data(), text.size());
    if (!doc) return 0;
    std::vector<XMLNode*> nodes;
    elements(doc->root, nodes);
    if (!nodes.empty()) {
        // The walk from one element on, with whatever stack the last one left.
        returnAddress = nullptr;
        recursiveParseCIM(nodes[start % nodes.size()]);
        Free_CIM(static_cast<CIM*>(returnAddress));
        returnAddress = nullptr;
        // Builders with no parent record: an element with children hands its
        // record back, and it is the caller's to free.
        for (std::size_t i = 0; i < nodes.size() && i < choices.size(); ++i) {
            if (!nodes[i]->firstChild) continue;
            const Entry& e = kBuilders[choices[i] % kBuilderCount];
            ElementStackEntry got = e.build(nodes[i], nullptr);
            if (got.address) e.release(got.address);
        }
    }
    freeXMLDoc(doc);
    // The next parse releases what the walk left unlinked.
    parseXML("");
    return 0;
}
