// Builders: attribute conversions, element text, embedded instances, the
// odd parent lists, and direct calls.
#include "XMLParser.h"
#include "model/alloc.h"
#include "parser/parser_internal.h"
#include "parser_support.h"

using namespace parsertest;

namespace {

TEST(Rules, EveryRuleNamesAFieldOfTheRightKind) { EXPECT_TRUE(cimxml::parser::rulesResolved()); }

TEST(Rules, NameLookupFindsEachDispatchedNameAndNothingNearIt) {
    using cimxml::parser::ElementId;
    for (std::size_t i = 0; i < cimxml::parser::kDispatchedCount; ++i) {
        auto id = static_cast<ElementId>(i);
        std::string name = cimxml::parser::elementName(id);
        EXPECT_EQ(cimxml::parser::lookupElement(name.c_str()), id) << name;
        EXPECT_EQ(cimxml::parser::lookupElement((name + "X").c_str()), ElementId::None) << name;
        EXPECT_EQ(cimxml::parser::lookupElement(name.substr(0, name.size() - 1).c_str()), ElementId::None) << name;
    }
    EXPECT_EQ(cimxml::parser::lookupElement("value"), ElementId::None);  // case counts
}

TEST(Conversions, PropagatedArraySizeIsArraySortDirAndFlavor) {
    // PROPAGATED counts only as a number, ISARRAY only as "TRUE", and a
    // QUALIFIERFLAVOR attribute gives an empty flavor record: its text is lost.
    Parsed p = parseCapturing(imethodReply(
        "GetClass",
        "<CLASS NAME=\"C\"><PROPERTY NAME=\"a\" PROPAGATED=\"true\"/><PROPERTY NAME=\"b\" PROPAGATED=\"1\"/>"
        "<PROPERTY NAME=\"c\" PROPAGATED=\"TRUE\"/><PROPERTY.ARRAY NAME=\"d\" ARRAYSIZE=\"12\" PROPAGATED=\"-3\"/>"
        "<PROPERTY.ARRAY NAME=\"e\" ARRAYSIZE=\"many\"/>"
        "<QUALIFIER NAME=\"q\" QUALIFIERFLAVOR=\"whatever\" PROPAGATED=\"1\"><VALUE>v</VALUE></QUALIFIER></CLASS>"
        "<QUALIFIER.DECLARATION NAME=\"d1\" TYPE=\"string\" ISARRAY=\"true\"/>"
        "<QUALIFIER.DECLARATION NAME=\"d2\" ISARRAY=\"TRUE\" ARRAYSIZE=\"5\" QUALIFIERFLAVOR=\"x\"/>"
        "<QUALIFIER.DECLARATION NAME=\"d3\" ISARRAY=\"FALSE\"/>"));
    EXPECT_EQ(dump(RecordId::IReturnValue, returnValueOf(p.root)),
              "{qualifierDecl={name='d1' type='string'}{name='d2' isArray=1 arraySize=5 qualifierFlavor={}}{name='d3'} "
              "cimClass={qualifiers={value={value='v'} name='q' propagated=1 qualifierFlavor={}} properties={name='a'}"
              "{name='b' propagated=1}{name='c'} propertyArrays={name='d' arraySize=12 propagated=-3}{name='e'} name='C'}}");
    Free_CIM(p.root);
}

// The table-cell elements are not dispatched; their builders are called
// directly here, under a TABLEROW.DECLARATION of a parsed document.
TEST(Conversions, TableCellsCalledDirectly) {
    XMLParseContext ctx{};
    XMLDoc* doc = parseText(&ctx,
                            "<TABLEROW.DECLARATION><TABLECELL.DECLARATION NAME=\"n\" TYPE=\"string\" ISARRAY=\"TRUE\" "
                            "ARRAYSIZE=\"3\" CELLPOS=\"2\" SORTPOS=\"7\" SORTDIR=\"DESC\"/>"
                            "<TABLECELL.REFERENCE NAME=\"r\" REFERENCECLASS=\"X\" SORTDIR=\"asc\"/>"
                            "<TABLECELL.DECLARATION NAME=\"m\" SORTDIR=\"ASC\"/></TABLEROW.DECLARATION>");
    ASSERT_NE(doc, nullptr);
    TableRowDecl parent{};
    XMLNode* cell = doc->root->firstChild;
    ElementStackEntry e = CreateTableCellDecl(cell, &parent);
    EXPECT_EQ(e.address, &parent);  // childless: the parent's entry
    EXPECT_STREQ(e.name, "TABLEROW.DECLARATION");
    CreateTableCellReference(cell->nextSibling, &parent);
    CreateTableCellDecl(cell->nextSibling->nextSibling, &parent);
    freeXMLDoc(doc);

    // SORTDIR: "DESC" 2, "ASC" 1, anything else ("asc") 0.
    EXPECT_EQ(dump(RecordId::TableRowDecl, &parent),
              "{tableCellDecls={name='n' type='string' isArray=1 arraySize=3 cellPos=2 sortPos=7 sortDir=2}"
              "{name='m' sortDir=1} tableCellReferences={name='r' referenceClass='X'}}");
    Free_TableCellDecl(parent.tableCellDecls);
    Free_TableCellReference(parent.tableCellReferences);
}

TEST(Values, EmptyTextLongTextAndSlack) {
    std::string big(20000, 'v');  // far past any scratch size
    Parsed p = parseCapturing(imethodReply(
        "x", "<VALUE/><VALUE>" + big + "</VALUE><VALUE> </VALUE><KEYBINDING/>"));
    IReturnValue* rv = returnValueOf(p.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->value), 3);
    EXPECT_STREQ(rv->value->value, "");  // empty string, not NULL
    EXPECT_EQ(rv->value->next->value, big);
    // Room for 128 more bytes past the text, kept for callers that extend it.
    std::memset(rv->value->next->value + big.size(), 'x', 128);
    EXPECT_STREQ(rv->value->next->next->value, " ");
    Free_CIM(p.root);
}

TEST(Values, HostTextIsKeptWhole) {
    std::string host(2000, 'h');
    Parsed p = parseCapturing(imethodReply(
        "x", "<OBJECTPATH><CLASSPATH><NAMESPACEPATH><HOST>" + host + "</HOST><LOCALNAMESPACEPATH><NAMESPACE NAME=\"a\"/>"
             "</LOCALNAMESPACEPATH></NAMESPACEPATH><CLASSNAME NAME=\"K\"/></CLASSPATH></OBJECTPATH>"
             "<OBJECTPATH><CLASSPATH><NAMESPACEPATH><HOST/></NAMESPACEPATH></CLASSPATH></OBJECTPATH>"));
    EXPECT_EQ(dump(RecordId::IReturnValue, returnValueOf(p.root)), "{objectPath={classPath={namespacePath={host='" + host +
                  "' localNamespacePath={namespaces={name='a'}}} className={name='K'}}}{classPath={namespacePath={host=''}}}}");
    Free_CIM(p.root);
}

std::string embedded(const std::string& cdata) {
    return imethodReply("x", "<VALUE.NAMEDINSTANCE><INSTANCE CLASSNAME=\"Outer\"><PROPERTY NAME=\"Emb\" TYPE=\"string\" "
                             "EmbeddedObject=\"instance\"><VALUE><![CDATA[" + cdata +
                             "]]></VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE>");
}

const Value* embeddedValue(CIM* root) {
    IReturnValue* rv = returnValueOf(root);
    return rv && rv->namedInstance ? rv->namedInstance->instance->properties->value : nullptr;
}

TEST(Embedded, OneRecordPerAttributeInDocumentOrder) {
    // NAME and TYPE each get a property of their own, sharing the text; any
    // other attribute a blank one.
    Parsed p = parseCapturing(embedded(
        "<INSTANCE CLASSNAME=\"Inner\"><PROPERTY NAME=\"A\" TYPE=\"string\" PROPAGATED=\"true\"><VALUE>alpha</VALUE></PROPERTY>"
        "<PROPERTY NAME=\"B\" TYPE=\"uint8\"><VALUE>7</VALUE></PROPERTY><PROPERTY/></INSTANCE>"));
    EXPECT_EQ(dump(RecordId::Value, embeddedValue(p.root)),
              "{instance={className={name='Inner'} properties={value={value='alpha'} name='A'}{value={value='alpha'} "
              "type='string'}{value={value='alpha'}}{value={value='7'} name='B'}{value={value='7'} type='uint8'}}}");
    Free_CIM(p.root);
}

TEST(Embedded, ArrayGivesAZeroFilledStringOfTheFirstElementsLength) {
    Parsed p = parseCapturing(embedded(
        "<INSTANCE CLASSNAME=\"Inner\"><PROPERTY.ARRAY NAME=\"L\" TYPE=\"string\"><VALUE.ARRAY><VALUE>abcde</VALUE>"
        "<VALUE>zz</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>"));
    const Value* v = embeddedValue(p.root);
    ASSERT_NE(v, nullptr);
    ASSERT_NE(v->instance, nullptr);
    const PropertyArray* pa = v->instance->propertyArrays;
    ASSERT_EQ(chainLength(pa), 2);
    for (; pa; pa = pa->next) {
        ASSERT_NE(pa->valueArray, nullptr);
        ASSERT_EQ(chainLength(pa->valueArray->value), 1);
        const char* text = pa->valueArray->value->value;
        const char zeros[6] = {};
        EXPECT_EQ(std::memcmp(text, zeros, 6), 0);
    }
    EXPECT_STREQ(v->instance->propertyArrays->name, "L");
    EXPECT_STREQ(v->instance->propertyArrays->next->type, "string");
    Free_CIM(p.root);
}

TEST(Embedded, TwoInstancesBadTextAndNoInstance) {
    Instance* result = nullptr;
    EXPECT_EQ(ParseCDataContent("<X><INSTANCE CLASSNAME=\"One\"><PROPERTY NAME=\"a\"/></INSTANCE>"
                                "<INSTANCE CLASSNAME=\"Two\"><PROPERTY NAME=\"b\"/></INSTANCE></X>",
                                &result),
              0);
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result->className->name, "Two");  // the last one, with both properties
    EXPECT_EQ(chainLength(result->properties), 2);
    Free_Instance(result);

    result = nullptr;
    EXPECT_EQ(ParseCDataContent("<INSTANCE", &result), -1);
    EXPECT_EQ(ParseCDataContent("<PROPERTY NAME=\"a\"/>", &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(ParseCDataContent(nullptr, &result), -1);
    EXPECT_EQ(ParseCDataContent("<INSTANCE CLASSNAME=\"A\"/>", nullptr), -1);

    // An unparsable CDATA value keeps neither text nor instance.
    Parsed p = parseCapturing(embedded("not <xml"));
    const Value* v = embeddedValue(p.root);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->instance, nullptr);
    EXPECT_EQ(v->value, nullptr);
    EXPECT_EQ(p.out, "");
    Free_CIM(p.root);
}

TEST(Embedded, FailedAllocationsReturnMinusOneAndLeakNothing) {
    // Once the countdown runs out every later allocation fails too, so only a
    // failure at the last allocation could pass as success: each text ends
    // in a different one.
    const char* cases[][2] = {
        {"<INSTANCE CLASSNAME=\"I\"><PROPERTY NAME=\"A\" TYPE=\"string\"><VALUE>x</VALUE></PROPERTY>"
         "<PROPERTY.ARRAY NAME=\"L\"><VALUE.ARRAY><VALUE>ab</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>",
         "{className={name='I'} properties={value={value='x'} name='A'}{value={value='x'} type='string'} "
         "propertyArrays={valueArray={value={value=''}} name='L'}}"},
        {"<INSTANCE CLASSNAME=\"I\"/>", "{className={name='I'}}"},
        {"<INSTANCE><PROPERTY NAME=\"A\"><VALUE>x</VALUE></PROPERTY></INSTANCE>", "{properties={value={value='x'} name='A'}}"},
    };
    for (const auto& c : cases) {
        for (long n = 0;; ++n) {
            Instance* result = nullptr;
            cimxml::g_allocFailCountdown = n;
            int rc = ParseCDataContent(c[0], &result);
            cimxml::g_allocFailCountdown = -1;
            if (rc == 0) {  // whole: no failure was taken for success
                EXPECT_EQ(dump(RecordId::Instance, result), c[1]) << n;
                Free_Instance(result);
                break;
            }
            EXPECT_EQ(result, nullptr);
            ASSERT_LT(n, 100);
        }
    }
}

TEST(Builders, FailedAllocationsNeverCorruptTheTree) {
    std::string text = imethodReply(
        "EnumerateInstances",
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><KEYVALUE>1</KEYVALUE></KEYBINDING>"
        "</INSTANCENAME><INSTANCE CLASSNAME=\"A\"><PROPERTY NAME=\"p\" TYPE=\"string\"><VALUE>v</VALUE></PROPERTY>"
        "<PROPERTY.ARRAY NAME=\"q\" TYPE=\"string\"><VALUE.ARRAY><VALUE>w</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>"
        "</INSTANCE></VALUE.NAMEDINSTANCE>");
    for (long n = 0; n < 60; ++n) {
        returnAddress = nullptr;
        cimxml::g_allocFailCountdown = n;
        Parsed p = parseCapturing(text);
        cimxml::g_allocFailCountdown = -1;
        Free_CIM(p.root);
    }
    returnAddress = nullptr;
    EXPECT_EQ(parseXML(""), nullptr);  // releases what the last run left unlinked
}

TEST(ParentLists, OddParentsAreKept) {
    const char* cases[][2] = {
        // CLASSNAME under INSTANCE; INSTANCE under ERROR (appended).
        {"<SIMPLERSP><IMETHODRESPONSE NAME=\"x\"><ERROR CODE=\"1\"><INSTANCE CLASSNAME=\"E1\"/><INSTANCE CLASSNAME=\"E2\">"
         "<CLASSNAME NAME=\"Replaced\"/></INSTANCE></ERROR></IMETHODRESPONSE></SIMPLERSP>",
         "{id='1' simpleRsp={iMethodResponse={name='x' error={instance={className={name='E1'}}{className={name='Replaced'}} "
         "code='1'}}}}"},
        // An export parameter carrying a whole method response.
        {"<SIMPLEEXPREQ><EXPMETHODCALL NAME=\"ExportIndication\"><EXPPARAMVALUE NAME=\"a\">"
         "<INSTANCE CLASSNAME=\"Ind\"/></EXPPARAMVALUE><EXPPARAMVALUE NAME=\"b\"><METHODRESPONSE NAME=\"m\">"
         "<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE></METHODRESPONSE></EXPPARAMVALUE></EXPMETHODCALL></SIMPLEEXPREQ>",
         "{id='1' simpleExpReq={expMethodCall={name='ExportIndication' expParamValues={name='a' instance={className="
         "{name='Ind'}}}{name='b' methodResponse={name='m' returnValue={value={value='0'}}}}}}}"},
        // MULTIRSP holds its SIMPLERSPs in order.
        {"<MULTIRSP><SIMPLERSP><IMETHODRESPONSE NAME=\"a\"/></SIMPLERSP><SIMPLERSP>"
         "<IMETHODRESPONSE NAME=\"b\"/></SIMPLERSP></MULTIRSP>",
         "{id='1' multiRsp={simpleRsps={iMethodResponse={name='a'}}{iMethodResponse={name='b'}}}}"},
    };
    for (const auto& c : cases) {
        Parsed p = parseCapturing(std::string("<CIM CIMVERSION=\"2.0\"><MESSAGE ID=\"1\">") + c[0] +
                                  "</MESSAGE></CIM>");
        ASSERT_NE(p.root, nullptr);
        EXPECT_EQ(dump(RecordId::Message, p.root->message), c[1]);
        Free_CIM(p.root);
    }
}

TEST(Builders, DirectCallsBuildAndLinkLikeTheWalk) {
    EXPECT_EQ(parseXML(""), nullptr);  // clears what earlier parses left
    XMLParseContext ctx{};
    XMLDoc* doc = parseText(&ctx, "<IRETURNVALUE><CLASSNAME NAME=\"a\">x</CLASSNAME><VALUE>t</VALUE></IRETURNVALUE>");
    ASSERT_NE(doc, nullptr);
    XMLNode* cn = doc->root->firstChild;
    ElementStackEntry e = CreateClassName(cn, nullptr);  // no parent record: linked nowhere
    ASSERT_NE(e.address, nullptr);
    EXPECT_STREQ(e.name, "CLASSNAME");
    EXPECT_STREQ(static_cast<ClassName*>(e.address)->name, "a");

    IReturnValue rv{};
    ElementStackEntry v = CreateValue(cn->nextSibling, &rv);
    EXPECT_EQ(v.address, rv.value);
    EXPECT_STREQ(v.name, "VALUE");
    EXPECT_STREQ(rv.value->value, "t");
    ElementStackEntry n = CreateValue(nullptr, &rv);
    EXPECT_EQ(n.address, &rv);
    freeXMLDoc(doc);
    // Outside the walk an unlinked record stays with the caller.
    EXPECT_EQ(cimxml::parser::unlinkedCount(), 0u);
    Free_ClassName(static_cast<ClassName*>(e.address));
    Free_Value(rv.value);
}

}  // namespace
