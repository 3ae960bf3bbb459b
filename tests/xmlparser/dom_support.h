// Shared by the XMLParser tests: an owning handle and a one-line rendering of
// a tree that checks every link on the way.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "XMLParser.h"

struct DocFree {
    void operator()(XMLDoc* d) const { freeXMLDoc(d); }
};
using DocPtr = std::unique_ptr<XMLDoc, DocFree>;

inline DocPtr parse(const std::string& text, XMLParseContext* ctx = nullptr) {
    return DocPtr(parseTextLength(ctx, text.data(), text.size()));
}

// <name a='v'>...</name> for elements, the value for text, [value] for CDATA;
// iterative so deep trees render too.
inline std::string render(const XMLNode* root) {
    std::string out;
    for (const XMLNode* n = root; n;) {
        if (n->type == XML_ELEMENT_NODE) {
            EXPECT_EQ(n->value, nullptr);
            out += std::string("<") + n->name;
            for (const XMLNode* a = n->attributes; a; a = a->nextSibling) {
                EXPECT_TRUE(a->type == XML_ATTRIBUTE_NODE && a->parent == n && !a->firstChild && !a->attributes);
                out += std::string(" ") + a->name + "='" + a->value + "'";
            }
            out += '>';
            if (n->firstChild) {
                EXPECT_EQ(n->firstChild->parent, n);
                n = n->firstChild;
                continue;
            }
        } else {
            EXPECT_TRUE(n->type == XML_TEXT_NODE || n->type == XML_CDATA_SECTION_NODE) << n->type;
            EXPECT_TRUE(*n->name == '\0' && !n->firstChild && !n->attributes);
            out += n->type == XML_TEXT_NODE ? std::string(n->value) : "[" + std::string(n->value) + "]";
        }
        for (;;) {  // close finished elements up to one with a next sibling
            if (n->type == XML_ELEMENT_NODE) out += std::string("</") + n->name + ">";
            if (n == root) return out;
            if (n->nextSibling) {
                EXPECT_EQ(n->nextSibling->parent, n->parent);
                n = n->nextSibling;
                break;
            }
            n = n->parent;
        }
    }
    return out;
}

inline std::string renderText(const std::string& text) {
    XMLParseContext ctx;
    DocPtr d = parse(text, &ctx);
    if (!d) return "ERROR: " + std::string(getErrorText(&ctx));
    EXPECT_TRUE(!d->root->parent && !d->root->nextSibling);
    return render(d->root);
}
