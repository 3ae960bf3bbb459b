#include <gtest/gtest.h>

#include <string>

#include "XMLParser.h"

namespace {

struct Doc {
    explicit Doc(const std::string& text) : doc(parseText(&ctx, text.c_str())) {}
    ~Doc() { freeXMLDoc(doc); }
    XMLParseContext ctx{};
    XMLDoc* doc;
};

// Serialises the node model so layouts can be compared as text.
std::string dump(const XMLNode* n) {
    std::string out;
    for (; n; n = n->nextSibling) {
        if (n->type == XML_ELEMENT_NODE) {
            out += "<" + std::string(n->name);
            for (const XMLNode* a = n->attributes; a; a = a->nextSibling) {
                EXPECT_EQ(a->type, XML_ATTRIBUTE_NODE);
                EXPECT_EQ(a->parent, n);
                out += " " + std::string(a->name) + "=" + a->value;
            }
            out += ">";
            for (const XMLNode* c = n->firstChild; c; c = c->nextSibling) EXPECT_EQ(c->parent, n);
            out += dump(n->firstChild) + "</>";
        } else {
            out += (n->type == XML_CDATA_SECTION_NODE ? "[C:" : "[T:") + std::string(n->value) + "]";
        }
    }
    return out;
}

TEST(Dom, NodeModelAndLinks) {
    Doc d("<?xml version=\"1.0\"?><!-- c --><CIM V=\"2.0\" D='x'><A>te&amp;xt</A><B/></CIM>");
    ASSERT_NE(d.doc, nullptr);
    XMLNode* root = d.doc->root;
    EXPECT_EQ(root->parent, nullptr);
    EXPECT_STREQ(root->name, "CIM");
    EXPECT_EQ(dump(root), "<CIM V=2.0 D=x><A>[T:te&xt]</><B></></>");
}

TEST(Dom, LayoutsGiveTheSameTreeButWholeContentWhitespaceStays) {
    const std::string compact = "<R><P N=\"a\"><V>1</V></P><P N=\"b\"> </P></R>";
    const std::string lines = "<R>\n<P N=\"a\">\n<V>1</V>\n</P>\n<P N=\"b\"> </P>\n</R>\n";
    const std::string indented = "<R>\n  <P N=\"a\">\n    <V>1</V>\n  </P>\n  <P N=\"b\"> </P>\n</R>";
    Doc a(compact), b(lines), c(indented);
    EXPECT_EQ(dump(a.doc->root), "<R><P N=a><V>[T:1]</></><P N=b>[T: ]</></>");
    EXPECT_EQ(dump(b.doc->root), dump(a.doc->root));
    EXPECT_EQ(dump(c.doc->root), dump(a.doc->root));
    Doc empty("<PROPERTY NAME=\"x\" TYPE=\"string\">\n</PROPERTY>");
    EXPECT_EQ(dump(empty.doc->root), "<PROPERTY NAME=x TYPE=string>[T:\n]</>");
}

TEST(Dom, CdataIsOneNodeAndTextAcrossCommentsMerges) {
    Doc d("<V><![CDATA[\n<INSTANCE CLASSNAME=\"X\"/>]]></V>");
    EXPECT_EQ(dump(d.doc->root), "<V>[C:\n<INSTANCE CLASSNAME=\"X\"/>]</>");
    Doc m("<V>ab<!-- x -->cd<?pi?>ef</V>");
    EXPECT_EQ(dump(m.doc->root), "<V>[T:abcdef]</>");
}

TEST(Dom, CustomEntitiesAreNeverExpanded) {
    Doc d("<!DOCTYPE r [<!ENTITY big \"xxxxxxxxxxxxxxxx\">]><r>&big;&lt;&#65;</r>");
    ASSERT_NE(d.doc, nullptr);
    EXPECT_EQ(dump(d.doc->root), "<r>[T:&big;<A]</>");
}

TEST(Dom, ErrorsNameTheOffsetAndNeverCrash) {
    for (const char* bad : {"", "<?xml version=\"1.0\"?>", "<a><b></a>", "<a", "<a x=\"1></a>", "plain"}) {
        XMLParseContext ctx{};
        XMLDoc* doc = parseText(&ctx, bad);
        EXPECT_EQ(doc, nullptr) << bad;
        EXPECT_NE(std::string(getErrorText(&ctx)).find("at offset"), std::string::npos) << bad;
    }
    XMLParseContext ctx{};
    EXPECT_EQ(parseText(&ctx, "<a><b></a>"), nullptr);
    EXPECT_EQ(ctx.offset, 8u);
    EXPECT_EQ(parseText(nullptr, "<a"), nullptr);
    EXPECT_EQ(parseText(&ctx, nullptr), nullptr);
    freeXMLDoc(nullptr);
}

TEST(Dom, DeepNestingIsWalkedWithoutRecursion) {
    const int depth = 100000;
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<e>";
    for (int i = 0; i < depth; ++i) text += "</e>";
    Doc d(text);
    ASSERT_NE(d.doc, nullptr);
    int levels = 0;
    for (XMLNode* n = d.doc->root; n; n = n->firstChild) ++levels;
    EXPECT_EQ(levels, depth);
}

TEST(Dom, TheDocumentOwnsACopyOfTheText) {
    std::string text = "<a x=\"1\">hello</a>";
    XMLParseContext ctx{};
    XMLDoc* doc = parseTextLength(&ctx, text.data(), text.size());
    text.assign(text.size(), 'z');
    EXPECT_STREQ(doc->root->firstChild->value, "hello");
    EXPECT_STREQ(doc->root->attributes->value, "1");
    freeXMLDoc(doc);
}

}  // namespace
