// Releasing node blocks (and text) behind a front-to-back walk: ancestors, the current
// node and everything after it stay readable (the sanitizer build turns any
// read of a released block into a failure), and memory really goes back.
#include <malloc.h>

#include <string>
#include <vector>

#include "dom_support.h"

namespace {

// <R><A> many small elements </A><B><C> many more </C><D k='v'>tail</D></B></R>:
// A spans many blocks and is left behind; R and B stay ancestors throughout.
std::string manyBlocks(int perList) {
    std::string s = "<R r='1'><A>";
    for (int i = 0; i < perList; ++i) s += "<E n='" + std::to_string(i) + "'>t" + std::to_string(i) + "</E>";
    s += "</A><B><C>";
    for (int i = 0; i < perList; ++i) s += "<F m='x'><G/></F>";
    s += "</C><D k='v'>tail</D></B></R>";
    return s;
}

// Walks in document order, reading what a walk may still read: the node, its
// attributes and children, its ancestors. With `releasing`, the blocks behind
// each node are released before it is read.
std::string walk(XMLDoc* doc, bool releasing) {
    std::string seen;
    for (XMLNode* n = doc->root; n;) {
        if (releasing) releaseXMLNodesBefore(doc, n);
        if (n->type == XML_ELEMENT_NODE) {
            seen += n->name;
            for (const XMLNode* a = n->attributes; a; a = a->nextSibling) seen += std::string(a->name) + a->value;
            // Their text may have been released: they must read the same.
            for (const XMLNode* up = n->parent; up; up = up->parent) {
                seen += up->name;
                for (const XMLNode* a = up->attributes; a; a = a->nextSibling) seen += a->value;
            }
        } else {
            seen += n->value;
        }
        if (n->firstChild) {
            n = n->firstChild;
            continue;
        }
        while (n && !n->nextSibling) n = n->parent;
        if (n) n = n->nextSibling;
    }
    return seen;
}

TEST(DomRelease, WalkReadsEveryNodeWhileBlocksBehindItGo) {
    const std::string text = manyBlocks(60000);  // over a megabyte: its text is released too
    DocPtr whole = parse(text);
    ASSERT_TRUE(whole);
    const std::string expected = walk(whole.get(), false);
    whole.reset();
    // Heap and mapped blocks: a large text copy may be either.
    auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t empty = inUse();
    parse(text).reset();
    const std::size_t freed = inUse();

    DocPtr doc = parse(text);
    ASSERT_TRUE(doc);
    const std::size_t before = mallinfo2().uordblks;
    EXPECT_EQ(walk(doc.get(), true), expected);
    const std::size_t after = mallinfo2().uordblks;
    // 80,000 nodes were released: well over a megabyte; and a freed document,
    // text copy included, gave everything back. (The sanitizer's allocator
    // keeps no malloc statistics; there the reads above are the test.)
    if (before != 0) {
        EXPECT_GT(before, after + (1u << 20));
        EXPECT_LT(freed, empty + text.size() / 2);
    }
}

// A's attributes fill blocks of their own, held while the walk goes through
// A's children and given back once it has left A: at the end only the last
// blocks remain.
TEST(DomRelease, BlocksHeldForAnAncestorGoOnceTheWalkLeavesIt) {
    std::string text = "<R><A";
    for (int i = 0; i < 40000; ++i) text += " a" + std::to_string(i) + "='v'";
    text += ">";
    for (int i = 0; i < 40000; ++i) text += "<E/>";
    text += "</A><B>";
    for (int i = 0; i < 40000; ++i) text += "<F/>";
    DocPtr doc = parse(text + "</B></R>");
    ASSERT_TRUE(doc);
    const std::size_t before = mallinfo2().uordblks;
    for (XMLNode* n = doc->root->firstChild; n; n = n->nextSibling)  // A, B
        for (XMLNode* c = n->firstChild; c; c = c->nextSibling) releaseXMLNodesBefore(doc.get(), c);
    if (before == 0) return;  // the sanitizer's allocator keeps no statistics
    EXPECT_GT(before - mallinfo2().uordblks, 110000 * sizeof(XMLNode));
}

TEST(DomRelease, EarlierForeignAndNullNodesAreIgnored) {
    DocPtr doc = parse(manyBlocks(5000));
    DocPtr other = parse(manyBlocks(10));
    ASSERT_TRUE(doc && other);
    XMLNode* root = doc->root;
    XMLNode* b = root->firstChild->nextSibling;  // B, far into the document
    ASSERT_STREQ(b->name, "B");
    releaseXMLNodesBefore(doc.get(), b->firstChild->firstChild);
    // Going back, or naming a node of another document, releases nothing more.
    releaseXMLNodesBefore(doc.get(), root);
    releaseXMLNodesBefore(doc.get(), other->root->firstChild->firstChild);
    releaseXMLNodesBefore(doc.get(), nullptr);
    releaseXMLNodesBefore(nullptr, root);
    EXPECT_STREQ(root->name, "R");
    EXPECT_STREQ(root->attributes->value, "1");
    EXPECT_STREQ(b->firstChild->nextSibling->firstChild->value, "tail");
    EXPECT_EQ(render(other->root).substr(0, 12), "<R r='1'><A>");
}

}  // namespace
