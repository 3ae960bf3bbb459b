// Replies large enough that the walk gives DOM blocks back as it goes and
// appends to long lists: the tree must equal the one built from a DOM kept
// whole, and every list must stay in document order.
#include "XMLParser.h"
#include "parser_support.h"

using namespace parsertest;

namespace {

std::string namedInstance(int i) {
    std::string id = std::to_string(i);
    return "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"Id\"><KEYVALUE VALUETYPE=\"string\">" +
           id +
           "</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Ref\"><VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"B\">"
           "<KEYBINDING NAME=\"Id\"><KEYVALUE>" +
           id +
           "</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></KEYBINDING></INSTANCENAME>"
           "<INSTANCE CLASSNAME=\"A\"><PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>v" +
           id +
           "</VALUE></PROPERTY><PROPERTY.ARRAY NAME=\"Arr\" TYPE=\"uint8\"><VALUE.ARRAY><VALUE>1</VALUE>"
           "<VALUE>2</VALUE></VALUE.ARRAY></PROPERTY.ARRAY><PROPERTY NAME=\"Q\" TYPE=\"uint32\"><VALUE>" +
           id + "</VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE>";
}

TEST(LargeReply, TreeEqualsTheOneBuiltFromAWholeDomAndKeepsOrder) {
    constexpr int kCount = 5000;
    std::string content;
    for (int i = 0; i < kCount; ++i) content += namedInstance(i);
    const std::string text = lineBroken(imethodReply("EnumerateInstances", content));

    Parsed p = parseCapturing(text);
    ASSERT_NE(p.root, nullptr);
    EXPECT_EQ(p.out, "");

    // Reference: the exported walk over a document nobody releases.
    XMLParseContext ctx{};
    XMLDoc* doc = parseText(&ctx, text.c_str());
    ASSERT_NE(doc, nullptr);
    top = -1;
    returnAddress = nullptr;
    recursiveParseCIM(doc->root);
    freeXMLDoc(doc);
    CIM* reference = static_cast<CIM*>(returnAddress);
    ASSERT_NE(reference, nullptr);
    ASSERT_NE(reference, p.root);

    EXPECT_TRUE(dump(RecordId::CIM, p.root) == dump(RecordId::CIM, reference));  // no 2 MB failure message
    int i = 0;
    for (const NamedInstance* n = returnValueOf(p.root)->namedInstance; n; n = n->next, ++i) {
        ASSERT_STREQ(n->instanceName->keyBindings->keyValue->value, std::to_string(i).c_str());
        ASSERT_STREQ(n->instanceName->keyBindings->next->valueReference->instanceName->keyBindings->keyValue->value,
                     std::to_string(i).c_str());
        ASSERT_EQ(chainLength(n->instance->properties), 2);
        ASSERT_STREQ(n->instance->properties->next->value->value, std::to_string(i).c_str());
    }
    EXPECT_EQ(i, kCount);
    Free_CIM(p.root);
    Free_CIM(reference);
}

TEST(LargeReply, ManyListsOfOneRecordFilledInTurnKeepTheirOrder) {
    // A class fills five lists in rotation, more than the walk remembers
    // ends for at once.
    std::string content = "<CLASS NAME=\"C\">";
    for (int round = 0; round < 40; ++round) {
        std::string r = std::to_string(round);
        content += "<QUALIFIER NAME=\"q" + r + "\" TYPE=\"string\"><VALUE>x</VALUE></QUALIFIER>";
        content += "<PROPERTY NAME=\"p" + r + "\" TYPE=\"string\"/>";
        content += "<PROPERTY.ARRAY NAME=\"a" + r + "\" TYPE=\"string\"/>";
        content += "<PROPERTY.REFERENCE NAME=\"r" + r + "\" REFERENCECLASS=\"X\"/>";
        content += "<METHOD NAME=\"m" + r + "\" TYPE=\"uint32\"><PARAMETER NAME=\"in" + r +
                   "\" TYPE=\"string\"/><PARAMETER NAME=\"out" + r + "\" TYPE=\"string\"/></METHOD>";
    }
    content += "</CLASS>";
    Parsed p = parseCapturing(imethodReply("GetClass", content));
    ASSERT_NE(p.root, nullptr);
    const Class* c = returnValueOf(p.root)->cimClass;
    ASSERT_NE(c, nullptr);
    auto check = [](const auto* head, const char* prefix) {
        int i = 0;
        for (const auto* x = head; x; x = x->next, ++i) EXPECT_EQ(x->name, prefix + std::to_string(i));
        EXPECT_EQ(i, 40) << prefix;
    };
    check(c->qualifiers, "q");
    check(c->properties, "p");
    check(c->propertyArrays, "a");
    check(c->propertyReferences, "r");
    check(c->methods, "m");
    for (const Method* m = c->methods; m; m = m->next) {
        ASSERT_EQ(chainLength(m->parameters), 2);
        EXPECT_EQ(std::string(m->parameters->name), "in" + std::string(m->name + 1));
    }
    Free_CIM(p.root);
}

}  // namespace
