// The walk, the element stack and parseXML's handling of odd input.
#include "parser_support.h"
#include "parser/parser_internal.h"

using namespace parsertest;

namespace {

const char* kUnknownLine = "\n\n hey what iss thisssssssssssssssssssssssssssssss\n\n";

std::string enumerateReply() {
    std::string one =
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"Id\"><KEYVALUE VALUETYPE=\"string\">1"
        "</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Ref\"><VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"B\">"
        "<KEYBINDING NAME=\"Id\"><KEYVALUE>2</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></KEYBINDING>"
        "</INSTANCENAME><INSTANCE CLASSNAME=\"A\"><QUALIFIER NAME=\"Q\" TYPE=\"string\"><VALUE>q</VALUE></QUALIFIER>"
        "<PROPERTY NAME=\"Empty\" TYPE=\"string\"></PROPERTY><PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>x</VALUE>"
        "</PROPERTY><PROPERTY.ARRAY NAME=\"Arr\" TYPE=\"uint8\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE>"
        "</VALUE.ARRAY></PROPERTY.ARRAY><PROPERTY NAME=\"Last\" TYPE=\"string\"></PROPERTY></INSTANCE>"
        "</VALUE.NAMEDINSTANCE>";
    return imethodReply("EnumerateInstances", one + one);
}

TEST(Layout, CompactAndLineBrokenGiveEqualTrees) {
    std::string compact = enumerateReply();
    Parsed a = parseCapturing(compact);
    ASSERT_NE(a.root, nullptr);
    ASSERT_EQ(chainLength(returnValueOf(a.root)->namedInstance), 2);
    // Indentation adds nothing more: the DOM drops whitespace between elements.
    Parsed b = parseCapturing(lineBroken(compact));
    ASSERT_NE(b.root, nullptr);
    ASSERT_NE(b.root, a.root);
    EXPECT_EQ(dump(RecordId::CIM, b.root), dump(RecordId::CIM, a.root));
    EXPECT_EQ(b.out, "");
    Free_CIM(b.root);
    Free_CIM(a.root);
}

TEST(Layout, NestedSameNameElementsAttachToTheirOwnParents) {
    Parsed p = parseCapturing(enumerateReply());
    EXPECT_EQ(dump(RecordId::InstanceName, returnValueOf(p.root)->namedInstance->instanceName),
              "{keyBindings={keyValue={value='1' valueType='string'} name='Id'}{valueReference={instanceName={keyBindings="
              "{keyValue={value='2'} name='Id'} className={name='B'}}} name='Ref'} className={name='A'}}");
    // The instance after the name still finds the named instance.
    ASSERT_NE(returnValueOf(p.root)->namedInstance->instance, nullptr);
    EXPECT_EQ(chainLength(returnValueOf(p.root)->namedInstance->instance->properties), 3);
    Free_CIM(p.root);
}

TEST(ParseXML, FindsTheDocumentBehindAHeaderOrWithoutADeclaration) {
    std::string body = imethodReply("EnumerateClassNames", "<CLASSNAME NAME=\"X\"/>");
    Parsed withHeader = parseCapturing("HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=\"utf-8\"\r\n"
                                       "CIMOperation: MethodResponse\r\n\r\n" + body);
    ASSERT_NE(withHeader.root, nullptr);
    EXPECT_STREQ(returnValueOf(withHeader.root)->className->name, "X");
    Free_CIM(withHeader.root);

    std::string bare = body.substr(body.find("<CIM "));
    Parsed noDecl = parseCapturing("junk before " + bare);
    ASSERT_NE(noDecl.root, nullptr);
    EXPECT_STREQ(noDecl.root->cimVersion, "2.0");
    Free_CIM(noDecl.root);

    // "<CIM>" without the blank is not searched for.
    Parsed none = parseCapturing("<CIM><MESSAGE/></CIM>");
    EXPECT_EQ(none.root, nullptr);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(parseXML(nullptr), nullptr);
}

TEST(ParseXML, MalformedXmlPrintsTheParserErrorAndReturnsNull) {
    Parsed p = parseCapturing("<?xml version=\"1.0\"?><CIM CIMVERSION=\"2.0\"><MESSAGE></CIM>");
    EXPECT_EQ(p.root, nullptr);
    EXPECT_EQ(p.out.rfind("\n Invalid XML... ", 0), 0u) << p.out;
    EXPECT_GT(p.out.size(), std::strlen("\n Invalid XML... "));
}

TEST(ParseXML, ANeverClosedCimReturnsThePreviousRoot) {
    Parsed first = parseCapturing(imethodReply("EnumerateClassNames", "<CLASSNAME NAME=\"X\"/>"));
    ASSERT_NE(first.root, nullptr);
    EXPECT_EQ(returnAddress, first.root);

    // A lone CIM element is never pushed, so its entry is never closed.
    Parsed lone = parseCapturing("<CIM CIMVERSION=\"2.0\"/>");
    EXPECT_EQ(lone.root, first.root);

    // An unknown element with content before CIM's last child loses the CIM
    // entry: the same.
    Parsed lost = parseCapturing(
        "<CIM CIMVERSION=\"2.0\"><BOGUS><CLASSNAME NAME=\"x\"/></BOGUS><MESSAGE ID=\"1\"><SIMPLERSP/></MESSAGE></CIM>");
    EXPECT_EQ(lost.root, first.root);
    EXPECT_EQ(lost.out, kUnknownLine);
    // Only a last child named CIM leaves its parent open: CIMX closes it.
    Parsed closed = parseCapturing("<CIM CIMVERSION=\"2.0\"><CIMX/></CIM>");
    EXPECT_NE(closed.root, first.root);
    if (closed.root != first.root) Free_CIM(closed.root);
    Free_CIM(first.root);
    returnAddress = nullptr;
}

TEST(Walk, UnknownElementOrphansItsChildrenAndLaterSiblings) {
    // SCOPE is not dispatched: its child's Pop empties the stack, so it and
    // everything after it find no parent. CIM was closed early (by MESSAGE).
    std::string text = imethodReply(
        "GetClass", "<CLASS NAME=\"C\"><PROPERTY NAME=\"a\" TYPE=\"string\"/><SCOPE><QUALIFIER NAME=\"inner\"/>"
                    "</SCOPE><PROPERTY NAME=\"b\" TYPE=\"string\"/></CLASS>");
    Parsed p = parseCapturing(text);
    ASSERT_NE(p.root, nullptr);
    EXPECT_EQ(p.out, kUnknownLine);
    EXPECT_EQ(dump(RecordId::Class, returnValueOf(p.root)->cimClass), "{properties={name='a' type='string'} name='C'}");
    EXPECT_EQ(cimxml::parser::unlinkedCount(), 2u);  // QUALIFIER and PROPERTY b, released by the next parse
    Free_CIM(p.root);

    // A childless unknown element in the middle harms nothing.
    Parsed q = parseCapturing(imethodReply(
        "GetClass", "<CLASS NAME=\"C\"><PROPERTY NAME=\"a\" TYPE=\"string\"/><SCOPE CLASS=\"true\"/>"
                    "<PROPERTY NAME=\"b\" TYPE=\"string\"/></CLASS>"));
    ASSERT_NE(q.root, nullptr);
    EXPECT_EQ(cimxml::parser::unlinkedCount(), 0u);
    EXPECT_EQ(q.out, kUnknownLine);
    EXPECT_EQ(chainLength(returnValueOf(q.root)->cimClass->properties), 2);
    Free_CIM(q.root);

    // VALUE.NULL is known to the standard reading only.
    Parsed n = parseCapturing(imethodReply("x", "<VALUE.ARRAY><VALUE>1</VALUE><VALUE.NULL/></VALUE.ARRAY>"));
    EXPECT_EQ(n.out, kUnknownLine);
    Free_CIM(n.root);
}

TEST(Walk, UnlinkedRecordsAreReleasedByTheNextParse) {
    // TABLE links nowhere; DECLARATION and DECLGROUP have no slot in their
    // listed parents. The sanitizer build checks that none of it leaks.
    Parsed p = parseCapturing(
        "<CIM CIMVERSION=\"2.0\"><DECLARATION><DECLGROUP><LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/>"
        "</LOCALNAMESPACEPATH><VALUE.OBJECT><CLASS NAME=\"X\"/></VALUE.OBJECT></DECLGROUP></DECLARATION>"
        "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"x\"><IRETURNVALUE>"
        "<TABLE><TABLEROW><VALUE>1</VALUE></TABLEROW></TABLE></IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP>"
        "</MESSAGE></CIM>");
    ASSERT_NE(p.root, nullptr);
    EXPECT_EQ(p.root->declaration, nullptr);
    EXPECT_STREQ(p.root->message->id, "1");
    EXPECT_EQ(cimxml::parser::unlinkedCount(), 3u);  // DECLARATION, DECLGROUP, TABLE
    Free_CIM(p.root);
    EXPECT_EQ(parseXML("no document"), nullptr);
    EXPECT_EQ(cimxml::parser::unlinkedCount(), 0u);
}

TEST(Stack, PushPopAndRemoveParent) {
    top = -1;
    int a = 0, b = 0, c = 0;
    ElementStackEntry e{};
    e.address = &a;
    std::strcpy(e.name, "CIM");
    Push(e);
    e.address = &b;
    std::strcpy(e.name, "MESSAGE");
    Push(e);
    Push(e);  // the same address again is dropped
    EXPECT_EQ(top, 1);
    e.address = &c;
    std::strcpy(e.name, "SIMPLERSP");
    Push(e);
    EXPECT_EQ(Pop("MESSAGE"), &b);  // discards SIMPLERSP
    EXPECT_EQ(top, 1);
    EXPECT_EQ(map[2].address, nullptr);

    void* before = returnAddress;
    removeParent("MESSAGE");  // found at the top: CIM is not passed
    EXPECT_EQ(returnAddress, before);
    EXPECT_STREQ(map[1].name, "");
    EXPECT_EQ(Pop("MESSAGE"), nullptr);  // nameless now: the whole stack goes
    EXPECT_EQ(top, -1);

    Push(ElementStackEntry{&a, "CIM"});
    Push(ElementStackEntry{&b, "X"});
    removeParent("CIM");
    EXPECT_EQ(returnAddress, &a);
    EXPECT_EQ(top, 1);
    returnAddress = nullptr;
    EXPECT_EQ(printStack(), 0);
}

TEST(Stack, PushBeyondTheLastEntryIsDropped) {
    top = -1;
    static char records[CIMXML_ELEMENT_STACK_SIZE + 10];
    for (int i = 0; i < CIMXML_ELEMENT_STACK_SIZE + 10; ++i) {
        ElementStackEntry e{};
        e.address = &records[i];
        std::strcpy(e.name, "X");
        Push(e);
    }
    EXPECT_EQ(top, CIMXML_ELEMENT_STACK_SIZE - 1);
    EXPECT_EQ(map[CIMXML_ELEMENT_STACK_SIZE - 1].address, &records[CIMXML_ELEMENT_STACK_SIZE - 1]);
    top = 100000;  // an outside write to the exported index stays in bounds
    EXPECT_EQ(Pop("nothing"), nullptr);
    EXPECT_EQ(top, -1);
}

TEST(Stack, AParseClearsEveryEntryEarlierPushesWrote) {
    // A parse clears only the entries used since the last one: a deep stack
    // left behind must still be gone, up to its highest entry.
    top = -1;
    static char records[300];
    for (char& r : records) Push(ElementStackEntry{&r, "X"});
    top = 2;  // the entries above top are stale, not cleared
    EXPECT_EQ(parseXML("no document"), nullptr);
    for (int i = 0; i < CIMXML_ELEMENT_STACK_SIZE; ++i) {
        ASSERT_EQ(map[i].address, nullptr) << i;
        ASSERT_EQ(map[i].name[0], '\0') << i;
    }
    Push(ElementStackEntry{&records[0], "Y"});  // one entry, the first since that parse
    parseXML("no document");
    EXPECT_EQ(map[0].address, nullptr);
}

TEST(Stack, DeepDocumentIsCutAtTheStackSizeWithoutLeaks) {
    // Nested references: INSTANCENAME > KEYBINDING > VALUE.REFERENCE > ...
    const int levels = 1500;  // 4,500 nested elements
    std::string open, close;
    for (int i = 0; i < levels; ++i) {
        open += "<INSTANCENAME CLASSNAME=\"L\"><KEYBINDING NAME=\"k\"><VALUE.REFERENCE>";
        close = "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>" + close;
    }
    Parsed p = parseCapturing(imethodReply("x", open + close));
    ASSERT_NE(p.root, nullptr);
    int depth = 0;
    for (const InstanceName* in = returnValueOf(p.root)->instanceName; in;) {
        ++depth;
        const KeyBinding* kb = in->keyBindings;
        in = kb && kb->valueReference ? kb->valueReference->instanceName : nullptr;
    }
    EXPECT_GT(depth, 1300);
    EXPECT_LT(depth, levels);  // the content past the stack's end is not read
    EXPECT_LE(top, CIMXML_ELEMENT_STACK_SIZE - 1);
    Free_CIM(p.root);
}

TEST(Stack, NamesOfAnyLengthStayWithinTheEntry) {
    std::string longName(300, 'N');
    Parsed p = parseCapturing(imethodReply(
        "x", "<" + longName + "><CLASSNAME NAME=\"lost\"/><" + longName + "><VALUE>1</VALUE></" + longName + "></" +
                 longName + ">"));
    EXPECT_NE(p.out.find(kUnknownLine), std::string::npos);
    for (int i = 0; i <= top; ++i) EXPECT_LT(std::strlen(map[i].name), 256u);
    Free_CIM(p.root);

    ElementStackEntry e{};
    std::memset(e.name, 'Z', sizeof e.name);  // not terminated
    Push(e);
    EXPECT_EQ(std::strlen(map[top].name), 255u);
    EXPECT_EQ(Pop(longName.c_str()), nullptr);
}

}  // namespace
