// Size and shape: deep nesting must not recurse, large documents span many
// storage blocks.
#include <gtest/gtest.h>

#include <string>

#include "dom_support.h"

namespace {

TEST(DomLimits, DeepNestingNeitherRecursesNorCrashes) {
    const size_t depth = 100000;
    std::string doc;
    for (size_t i = 0; i < depth; ++i) doc += "<e>";
    doc += "leaf";
    for (size_t i = 0; i < depth; ++i) doc += "</e>";

    DocPtr d = parse(doc);
    ASSERT_TRUE(d);
    size_t levels = 1;
    const XMLNode* n = d->root;
    for (; n->firstChild->type == XML_ELEMENT_NODE; ++levels) n = n->firstChild;
    EXPECT_EQ(levels, depth);
    EXPECT_STREQ(n->firstChild->value, "leaf");
    EXPECT_EQ(render(d->root), doc);

    XMLParseContext ctx;  // the same nesting left open
    EXPECT_EQ(parseTextLength(&ctx, doc.data(), depth * 3 + 4), nullptr);
    EXPECT_NE(ctx.status, 0);
}

TEST(DomLimits, LargeDocumentKeepsEveryNodeInOrder) {
    const int count = 200000;
    std::string doc = "<r>\n";
    for (int i = 0; i < count; ++i)
        doc += "  <V N=\"" + std::to_string(i) + "\">" + std::to_string(i) + "<!---->&amp;</V>\n";
    doc += "</r>";

    DocPtr d = parse(doc);
    ASSERT_TRUE(d);
    int i = 0;
    for (const XMLNode* v = d->root->firstChild; v; v = v->nextSibling, ++i) {
        ASSERT_LT(i, count);
        ASSERT_STREQ(v->attributes->value, std::to_string(i).c_str());
        ASSERT_STREQ(v->firstChild->value, (std::to_string(i) + "&").c_str());
        ASSERT_EQ(v->firstChild->nextSibling, nullptr);
    }
    EXPECT_EQ(i, count);
}

}  // namespace
