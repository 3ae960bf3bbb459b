// The tree a document becomes: node kinds, links, text merging, whitespace
// and entities.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dom_support.h"

namespace {

TEST(Dom, ReplyBecomesElementsAttributesAndTexts) {
    const char* reply =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!DOCTYPE CIM SYSTEM \"cim.dtd\">\n<!-- reply -->\n"
        "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
        "  <INSTANCE CLASSNAME=\"CIM_Foo\">\n"
        "    <PROPERTY NAME=\"Name\" TYPE=\"string\">\n      <VALUE>foo</VALUE>\n    </PROPERTY>\n"
        "    <?pi data?>\n"
        "    <PROPERTY.ARRAY NAME=\"A\" TYPE=\"uint8\">\n"
        "      <VALUE.ARRAY><VALUE>1</VALUE><VALUE/></VALUE.ARRAY>\n    </PROPERTY.ARRAY>\n"
        "  </INSTANCE>\n</CIM>\n";
    // Declaration, DOCTYPE, comment, PI and indentation leave no trace.
    EXPECT_EQ(renderText(reply),
              "<CIM CIMVERSION='2.0' DTDVERSION='2.0'><INSTANCE CLASSNAME='CIM_Foo'>"
              "<PROPERTY NAME='Name' TYPE='string'><VALUE>foo</VALUE></PROPERTY>"
              "<PROPERTY.ARRAY NAME='A' TYPE='uint8'><VALUE.ARRAY><VALUE>1</VALUE><VALUE></VALUE>"
              "</VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE></CIM>");
}

TEST(Dom, CharacterDataMergesAndCdataStandsAlone) {
    // Pieces split by comments or PIs are one text, joined after decoding.
    EXPECT_EQ(renderText("<a>x<!--c-->y<?pi z?>z</a>"), "<a>xyz</a>");
    EXPECT_EQ(renderText("<a>&lt;&lt;<!---->&amp;<!---->&#x20AC;!</a>"), "<a><<&\xE2\x82\xAC!</a>");
    EXPECT_EQ(renderText("<a><b>1<!---->2</b><b>3<!---->4</b>5</a>"), "<a><b>12</b><b>34</b>5</a>");
    DocPtr d = parse("<a>x<![CDATA[<b>&amp;]]>y<![CDATA[]]><![CDATA[z]]></a>");
    ASSERT_TRUE(d);
    std::vector<std::pair<int, std::string>> kids;
    for (const XMLNode* c = d->root->firstChild; c; c = c->nextSibling) kids.emplace_back(c->type, c->value);
    EXPECT_EQ(kids, (std::vector<std::pair<int, std::string>>{{XML_TEXT_NODE, "x"},
                                                              {XML_CDATA_SECTION_NODE, "<b>&amp;"},
                                                              {XML_TEXT_NODE, "y"},
                                                              {XML_CDATA_SECTION_NODE, ""},
                                                              {XML_CDATA_SECTION_NODE, "z"}}));
}

TEST(Dom, WhitespaceBetweenElementsIsDroppedWholeContentKept) {
    const std::string compact = "<I C='X'><P N='a'><V>1</V></P><A><V>x y</V><V>2</V></A></I>";
    const std::string indented =
        "<I C='X'>\n  <P N='a'>\n    <V>1</V>\n  </P>\n  <A>\n    <V>x y</V>\n    <V>2</V>\n  </A>\n</I>\n";
    EXPECT_EQ(renderText(indented), renderText(compact));
    EXPECT_EQ(renderText("<r>\n  <V>\t</V>\n  <V>  a b  </V>\n</r>"), "<r><V>\t</V><V>  a b  </V></r>");
    // Line ends normalised in text; whitespace in attribute values becomes spaces.
    EXPECT_EQ(renderText("<V a='1\t2\r\n3'>x\r\ny\rz</V>"), "<V a='1 2 3'>x\ny\nz</V>");
}

TEST(Dom, OnlyPredefinedEntitiesAndCharacterReferencesAreDecoded) {
    EXPECT_EQ(renderText("<v a='&lt;&quot;&apos;&#65;'>&lt;&gt;&amp;&quot;&apos;&#65;&#x42;&#x20AC;</v>"),
              "<v a='<\"'A'><>&\"'AB\xE2\x82\xAC</v>");
    EXPECT_EQ(renderText("<v n='\xC3\xA9'>\xF0\x9F\x98\x80</v>"), "<v n='\xC3\xA9'>\xF0\x9F\x98\x80</v>");

    // Internal, external and exponential declarations: every reference stays as written.
    std::string doc = "<!DOCTYPE r [<!ENTITY e \"boom\"><!ENTITY x SYSTEM \"file:///etc/passwd\"><!ENTITY a0 \"lol\">";
    for (int i = 1; i < 30; ++i) {
        doc += "<!ENTITY a" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) doc += "&a" + std::to_string(i - 1) + ";";
        doc += "\">";
    }
    doc += "]>\n<r a='&e;'>&e;|&x;|&a29;|&undeclared;</r>";
    EXPECT_EQ(renderText(doc), "<r a='&e;'>&e;|&x;|&a29;|&undeclared;</r>");
}

TEST(Dom, InPlaceParseGivesTheSameTreeAndErrors) {
    const std::string text =
        "<?xml version=\"1.0\"?><CIM><A x='1 &amp; 2'>t<!-- c -->u</A><B><![CDATA[<x/>]]></B></CIM>";
    DocPtr copied = parse(text);
    ASSERT_TRUE(copied);
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('\0');
    XMLParseContext ctx{};
    DocPtr inPlace(parseTextInPlace(&ctx, buffer.data()));
    ASSERT_TRUE(inPlace);
    EXPECT_EQ(render(inPlace->root), render(copied->root));
    // The strings live in the caller's buffer.
    const char* value = inPlace->root->firstChild->attributes->value;
    EXPECT_TRUE(value >= buffer.data() && value < buffer.data() + buffer.size());

    char broken[] = "<CIM><A></CIM>";
    EXPECT_EQ(parseTextInPlace(&ctx, broken), nullptr);
    EXPECT_NE(std::string(getErrorText(&ctx)).find("at offset"), std::string::npos);
    EXPECT_EQ(parseTextInPlace(&ctx, nullptr), nullptr);
}

// A thread keeps the node block and pugixml page of a freed document for its
// next one: documents alive at once, freed out of order or on another thread
// keep their own trees (the sanitizer run sees a block held twice or leaked).
TEST(Dom, DocumentsSharingAThreadsBlocksKeepTheirTrees) {
    std::string large = "<R>", small = "<CIM><A x='1'>t</A></CIM>";
    for (int i = 0; i < 2000; ++i) large += "<E n='" + std::to_string(i) + "'/>";
    large += "</R>";
    const std::string largeTree = renderText(large), smallTree = renderText(small);
    DocPtr a = parse(large), b = parse(small);
    a.reset();  // its blocks and pages go to the thread's spares, then to c
    DocPtr c = parse(large);
    EXPECT_EQ(render(b->root), smallTree);
    std::thread([&] { b.reset(); EXPECT_EQ(renderText(small), smallTree); }).join();
    EXPECT_EQ(render(c->root), largeTree);
}

}  // namespace
