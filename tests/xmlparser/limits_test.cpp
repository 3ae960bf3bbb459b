// Deep nesting must not recurse; the tree spans many storage blocks and
// renders back to the very text.
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

}  // namespace
