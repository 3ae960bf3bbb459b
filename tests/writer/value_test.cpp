#include <gtest/gtest.h>

#include <string>

#include "tree.h"

using namespace wt;

namespace {

// Properties and arrays of every shape the embedded form distinguishes,
// plus parts it leaves out (qualifiers, references).
Instance* richInstance() {
    Instance* i = instance("C", property("A", "string", value("1"),
                                         property(nullptr, "x", value("2"), property("C", "uint8", nullptr))));
    i->propertyArrays = propertyArray("L", "string", valueArray({"x", "y", "z"}),
                                      propertyArray("M", "uint8", valueArray({"p", "q", "r"}),
                                                    propertyArray("N", "uint8", valueArray({nullptr, "s"}),
                                                                  propertyArray("O", "uint8", nullptr))));
    i->qualifiers = rec<Qualifier>({{"name", "Q"}});
    i->propertyReferences = rec<PropertyReference>({{"name", "R"}});
    return i;
}

// A caller's view of an embedded instance's lists, kept across the write
// that detaches them, and freed through these references afterwards.
struct KeptLists {
    explicit KeptLists(const Instance* i) : properties(i->properties), arrays(i->propertyArrays) {}
    ~KeptLists() {
        Free_Property(properties);
        Free_PropertyArray(arrays);
    }
    Property* properties;
    PropertyArray* arrays;
};

TEST(Values, PlainChainsArraysAndNulls) {
    // The middle node has no text and writes nothing; nothing is escaped.
    Value* chain = value("a<b&c\"", value(nullptr, value("z")));
    EXPECT_EQ(gen(Gen_Value, chain), "<VALUE>a<b&c\"</VALUE><VALUE>z</VALUE>");
    Free_Value(chain);

    ValueArray* arrays = valueArray({"1", "2", "3"});
    arrays->next = valueArray({});
    EXPECT_EQ(gen(Gen_ValueArray, arrays),
              "<VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE><VALUE>3</VALUE></VALUE.ARRAY>"
              "<VALUE.ARRAY></VALUE.ARRAY>");
    Free_ValueArray(arrays);

    auto* nulls = rec<ValueNull>({{"value", "never written"}, {"next", rec<ValueNull>({{"next", make<ValueNull>()}})}});
    EXPECT_EQ(gen(Gen_ValueNull, nulls), "<VALUE.NULL/><VALUE.NULL/><VALUE.NULL/>");
    Free_ValueNull(nulls);
}

TEST(Values, EmbeddedInstanceIsAReducedCdataDocumentThatDetachesItsLists) {
    Value* v = embedded(richInstance());
    Instance* inst = v->instance;
    KeptLists kept(inst);
    EXPECT_EQ(gen(Gen_Value, v), golden("embedded_instance.xml"));
    EXPECT_EQ(inst->properties, nullptr);
    EXPECT_EQ(inst->propertyArrays, nullptr);
    EXPECT_NE(inst->propertyReferences, nullptr);
    EXPECT_EQ(gen(Gen_Value, v), "<VALUE><![CDATA[\n<INSTANCE CLASSNAME=\"C\"></INSTANCE>]]></VALUE>");
    Free_Value(v);
    // The detached records are still whole and still the caller's (a freed
    // list reads as a use-after-free in the sanitizer build).
    EXPECT_STREQ(kept.properties->name, "A");
    EXPECT_STREQ(kept.properties->value->value, "1");
    EXPECT_STREQ(kept.arrays->next->valueArray->value->value, "p");

    Value* bare = embedded(nullptr, embedded(make<Instance>()));
    EXPECT_EQ(gen(Gen_Value, bare),
              "<VALUE><![CDATA[\n</INSTANCE>]]></VALUE><VALUE><![CDATA[\n</INSTANCE>]]></VALUE>");
    Free_Value(bare);
}

TEST(Values, MixedChainKeepsChainOrder) {
    Value* chain = value("first", embedded(instance("E", property("P", "string", value("v"))), value("last")));
    KeptLists kept(chain->next->instance);
    EXPECT_EQ(gen(Gen_Value, chain),
              "<VALUE>first</VALUE><VALUE><![CDATA[\n<INSTANCE CLASSNAME=\"E\">"
              "<PROPERTY NAME=\"P\" TYPE= \"string\"><VALUE>v</VALUE></PROPERTY></INSTANCE>]]></VALUE>"
              "<VALUE>last</VALUE>");
    Free_Value(chain);
}

TEST(Values, HugePiecesAreWrittenWhole) {
    const std::string mb(1 << 20, 'm');
    Value* big = value(mb.c_str());
    EXPECT_EQ(gen(Gen_Value, big), "<VALUE>" + mb + "</VALUE>");
    Free_Value(big);

    const std::string name(10 * 1024, 'n');
    Property* p = property(name.c_str(), "string", nullptr);
    EXPECT_EQ(gen(Gen_Property, p), "<PROPERTY NAME=\"" + name + "\" TYPE=\"string\"></PROPERTY>");
    Free_Property(p);

    // Well past the 8 KiB the embedded form was once confined to.
    Property* props = nullptr;
    std::string expected = "<VALUE><![CDATA[\n<INSTANCE CLASSNAME=\"Big\">";
    const std::string text(100, 't');
    for (int i = 0; i < 100; ++i) {
        std::string n = "P" + std::to_string(i);
        expected += "<PROPERTY NAME=\"" + n + "\" TYPE= \"string\"><VALUE>" + text + "</VALUE></PROPERTY>";
    }
    for (int i = 99; i >= 0; --i) props = property(("P" + std::to_string(i)).c_str(), "string", value(text.c_str()), props);
    expected += "</INSTANCE>]]></VALUE>";
    Value* v = embedded(instance("Big", props));
    KeptLists kept(v->instance);
    std::string written = gen(Gen_Value, v);
    EXPECT_GT(written.size(), 8192u);
    EXPECT_EQ(written, expected);
    Free_Value(v);
}

TEST(ListChains, ThreeNodesWriteThreeElements) {
    auto* multi = rec<MultiReq>({{"simpleReqs", rec<SimpleReq>({{"next", rec<SimpleReq>({{"next", make<SimpleReq>()}})}})}});
    EXPECT_EQ(gen(Gen_MultiReq, multi),
              "<MULTIREQ><SIMPLEREQ></SIMPLEREQ><SIMPLEREQ></SIMPLEREQ><SIMPLEREQ></SIMPLEREQ></MULTIREQ>");
    Free_MultiReq(multi);
}

}  // namespace
