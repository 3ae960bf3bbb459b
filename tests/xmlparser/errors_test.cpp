// Input that is not one document: NULL with a description naming the offset
// of the fault, never a crash or a read past the text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "dom_support.h"

namespace {

XMLParseContext fail(const std::string& text) {
    XMLParseContext ctx;
    std::memset(&ctx, 0x5A, sizeof ctx);  // every field must be set
    EXPECT_FALSE(parse(text, &ctx)) << text;
    EXPECT_NE(ctx.status, 0) << text;
    EXPECT_NE(std::string(getErrorText(&ctx)).find(" at offset " + std::to_string(ctx.offset)), std::string::npos)
        << getErrorText(&ctx);
    return ctx;
}

TEST(DomErrors, NoTextOrNoElement) {
    XMLParseContext ctx;
    EXPECT_EQ(parseText(&ctx, nullptr), nullptr);
    EXPECT_NE(ctx.status, 0);
    EXPECT_EQ(parseTextLength(&ctx, nullptr, 10), nullptr);
    EXPECT_EQ(parseText(nullptr, nullptr), nullptr);
    EXPECT_EQ(parseText(nullptr, "<a"), nullptr);
    EXPECT_STREQ(getErrorText(nullptr), "");
    freeXMLDoc(nullptr);
    for (const char* t : {"", "  \n", "<?xml version='1.0'?>", "<!-- only --><?pi?>", "<!DOCTYPE a>", "text"})
        EXPECT_NE(std::string(fail(t).errorText).find("No document element"), std::string::npos) << t;
}

TEST(DomErrors, MessageNamesTheOffsetOfTheFault) {
    XMLParseContext ctx = fail("<a>\n  <b></c>\n</a>");
    EXPECT_STREQ(ctx.errorText, "Error parsing XML: Start-end tags mismatch at offset 11");
    EXPECT_EQ(fail("<a x='1></a>").offset, 6u);
    EXPECT_EQ(fail("<a><![CDATA[x</a>").offset, 12u);
    EXPECT_EQ(fail("<a/>\n<b/>").offset, 5u);                        // a second root
    EXPECT_EQ(fail(std::string("<a>x\0y</a>", 10)).offset, 4u);      // a NUL byte

    // A later success clears the error.
    ASSERT_TRUE(parse("<a/>", &ctx));
    EXPECT_TRUE(ctx.status == 0 && ctx.offset == 0 && *getErrorText(&ctx) == '\0');
}

TEST(DomErrors, EveryTruncationIsRejected) {
    const std::string doc =
        "<?xml version=\"1.0\"?><CIM V=\"2.0\"><MESSAGE ID=\"1\"><IMETHODRESPONSE NAME=\"X\">"
        "<IRETURNVALUE><VALUE>a&amp;b</VALUE><VALUE><![CDATA[c]]></VALUE><!-- c --></IRETURNVALUE>"
        "</IMETHODRESPONSE></MESSAGE></CIM>";
    for (size_t n = 0; n < doc.size(); ++n) EXPECT_LE(fail(doc.substr(0, n)).offset, n);
    EXPECT_TRUE(parse(doc));
}

TEST(DomErrors, DocumentIsIndependentOfTheCallersText) {
    std::string text = "<a n='v'><b>x&amp;y</b><![CDATA[cd]]></a><b/>garbage";
    DocPtr d(parseTextLength(nullptr, text.data(), 41));  // length bounds the text
    ASSERT_TRUE(d);
    EXPECT_EQ(text, "<a n='v'><b>x&amp;y</b><![CDATA[cd]]></a><b/>garbage");  // left untouched
    text.assign(text.size(), 'X');
    EXPECT_EQ(render(d->root), "<a n='v'><b>x&y</b>[cd]</a>");
}

}  // namespace
