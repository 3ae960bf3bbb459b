// The MOF loader: literals, aliases, inheritance, includes, errors with
// file, line and column. The shipped sample repository is loaded and
// queried by every server and CLI test.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "cimmock/mof.h"

using namespace cimmock;

namespace {

const char* kQuals = R"(
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier Association : boolean = false, Scope(association), Flavor(DisableOverride, ToSubclass);
Qualifier Abstract : boolean = false, Scope(class), Flavor(Restricted);
Qualifier Description : string = null, Scope(any), Flavor(Translatable);
Qualifier Local : string = null, Scope(any), Flavor(Restricted);
Qualifier ValueMap : string[], Scope(property);
Qualifier EmbeddedInstance : string = null, Scope(property);
)";

// Loads and returns the error; fails the test if it loads.
MofError loadError(const std::string& text) {
  Repository r;
  try {
    loadMofText(r, std::string(kQuals) + text, "t.mof");
  } catch (const MofError& e) {
    return e;
  }
  ADD_FAILURE() << "no error for: " << text;
  return MofError("", 0, 0, "");
}

const int kQualLines = 8;  // lines taken by kQuals (it starts with a newline)

}  // namespace

TEST(MofTest, EveryLiteralKind) {
  Repository r;
  loadMofText(r, std::string(kQuals) + R"(
class L {
  [Key] string Id;
  uint8 Dec; uint16 Hex; sint32 Neg; uint32 Oct; uint8 Bin; sint64 Min;
  real32 R1; real64 R2; real64 R3;
  boolean T; boolean F;
  char16 C; char16 CEsc;
  string S; string Cat; string Esc; string N;
  datetime D; datetime I;
  uint16 Arr[]; string SArr[]; boolean BArr[]; real32 Empty[];
};
instance of L {
  Id = "one";
  Dec = 200; Hex = 0xBEEF; Neg = -42; Oct = 017; Bin = 101b; Min = -9223372036854775808;
  R1 = 1.5; R2 = -2.5e-3; R3 = .25;
  T = TRUE; F = false;
  C = 'a'; CEsc = '\n';
  S = "plain"; Cat = "con" "cat" "enated"; Esc = "q\"\\\t\x41\x00e9"; N = NULL;
  D = "20240131120000.000000+060"; I = "00000010020304.000005:000";
  Arr = {1, 0x2, 03}; SArr = {"a", "b"}; BArr = {true, FALSE}; Empty = {};
};
)",
              "lits.mof");
  const Instance* i = r.findInstance("root/cimv2", ObjectPath::parse("L.Id=\"one\""));
  ASSERT_NE(i, nullptr);
  auto v = [&](const char* n) { return i->findProperty(n)->value; };
  const char* texts[][2] = {
      {"Dec", "200"},   {"Hex", "48879"}, {"Neg", "-42"},     {"Oct", "15"},   {"Bin", "5"},
      {"Min", "-9223372036854775808"},    {"R1", "1.5"},      {"R2", "-2.5e-3"}, {"R3", ".25"},
      {"T", "TRUE"},    {"F", "FALSE"},   {"C", "a"},         {"CEsc", "\n"},   {"Cat", "concatenated"},
      {"Esc", "q\"\\\tA\xC3\xA9"},    {"D", "20240131120000.000000+060"}, {"I", "00000010020304.000005:000"},
  };
  for (const auto& t : texts) EXPECT_EQ(v(t[0]).asText(), t[1]) << t[0];
  EXPECT_TRUE(v("N").isNull);
  EXPECT_EQ(v("Arr").texts, (std::vector<std::string>{"1", "2", "3"}));
  EXPECT_TRUE(v("Arr").isArray);
  EXPECT_EQ(v("SArr").texts.size(), 2u);
  EXPECT_EQ(v("BArr").texts, (std::vector<std::string>{"TRUE", "FALSE"}));
  EXPECT_FALSE(v("Empty").isNull);
  EXPECT_EQ(v("Empty").size(), 0u);
}

TEST(MofTest, AliasesReferencesAndEmbeddedInstances) {
  Repository r;
  loadMofText(r, std::string(kQuals) + R"(
class Node { [Key] uint32 Id; };
class Inner { string X; };
[Association] class Edge { [Key] Node REF From; [Key] Node REF To; };
class Holder { [Key] string K; [EmbeddedInstance("Inner")] string E; Node REF Direct; };
instance of Node as $a { Id = 1; };
instance of Node as $b { Id = 2; };
instance of Inner as $in { X = "inside"; };
instance of Edge { From = $a; To = $b; };
instance of Holder { K = "h"; E = $in; Direct = "Node.Id=2"; };
)");
  const std::string ns = "root/cimv2";
  auto edges = r.instancesOf(ns, "Edge");
  ASSERT_EQ(edges.size(), 1u);
  EXPECT_EQ(edges[0].path.toString(), "root/cimv2:Edge.From=\"root/cimv2:Node.Id=1\",To=\"root/cimv2:Node.Id=2\"");
  auto assoc = r.associators(ns, ObjectPath::parse("Node.Id=1"), "", "", "", "");
  ASSERT_EQ(assoc.size(), 1u);
  EXPECT_EQ(assoc[0].instance.findProperty("Id")->value.asText(), "2");
  const Instance* h = r.findInstance(ns, ObjectPath::parse("Holder.K=\"h\""));
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(h->findProperty("E")->value.embedded.size(), 1u);
  EXPECT_EQ(h->findProperty("E")->value.embedded[0]->findProperty("X")->value.asText(), "inside");
  EXPECT_EQ(h->findProperty("Direct")->value.refs[0].keys[0].text, "2");
  EXPECT_TRUE(r.instancesOf(ns, "Inner").empty());  // keyless alias-only instance
}

TEST(MofTest, InheritanceOfPropertiesDefaultsAndQualifiers) {
  Repository r;
  loadMofText(r, std::string(kQuals) + R"(
[Abstract, Description("base"), Local("x")]
class A { [Key, Description("the id")] string Id; uint32 V = 7; [ValueMap{"1","2"}] uint16 M; };
class B : A { uint32 V = 9; string Own; };
class C : B { };
instance of C { Id = "c"; };
)");
  const Class* c = r.findClass("root/cimv2", "C");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->superClass, "B");
  ASSERT_EQ(c->properties.size(), 4u);
  EXPECT_TRUE(c->findProperty("Id")->isKey());
  EXPECT_EQ(c->findProperty("Id")->classOrigin, "A");
  EXPECT_EQ(c->findProperty("V")->classOrigin, "B");
  EXPECT_EQ(c->findProperty("V")->value.asText(), "9");
  EXPECT_EQ(c->findProperty("M")->qualifiers.size(), 1u);
  EXPECT_NE(findQualifier(c->qualifiers, "Description"), nullptr);
  EXPECT_EQ(findQualifier(c->qualifiers, "Abstract"), nullptr);  // restricted
  EXPECT_EQ(findQualifier(c->qualifiers, "Local"), nullptr);     // restricted
  EXPECT_FALSE(c->isAbstract());
  EXPECT_TRUE(r.findClass("root/cimv2", "A")->isAbstract());
  const Instance* i = r.findInstance("root/cimv2", ObjectPath::parse("C.Id=\"c\""));
  ASSERT_NE(i, nullptr);
  EXPECT_EQ(i->findProperty("V")->value.asText(), "9");
}

TEST(MofTest, MethodsParametersAndQualifierDecls) {
  Repository r;
  loadMofText(r, std::string(kQuals) + R"(
Qualifier In : boolean = true, Scope(parameter);
Qualifier Out : boolean = false, Scope(parameter);
Qualifier Tags : string[] = {"x"}, Scope(any);
class T { [Key] string Id;
  uint32 Go([In] string A, [In(false), Out] T REF Result, [Out] uint8 Bytes[], [Out] T REF Many[]);
  boolean Check();
};
)");
  const Class* c = r.findClass("root/cimv2", "T");
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(c->methods.size(), 2u);
  const Method& m = c->methods[0];
  EXPECT_EQ(m.returnType, Type::Uint32);
  ASSERT_EQ(m.parameters.size(), 4u);
  EXPECT_TRUE(m.parameters[0].isIn());
  EXPECT_FALSE(m.parameters[1].isIn());
  EXPECT_TRUE(m.parameters[1].isOut());
  EXPECT_EQ(m.parameters[1].referenceClass, "T");
  EXPECT_TRUE(m.parameters[2].isArray);
  EXPECT_EQ(c->methods[1].returnType, Type::Boolean);
  const QualifierDecl* d = r.qualifierDecl("root/cimv2", "tags");
  ASSERT_NE(d, nullptr);
  EXPECT_TRUE(d->isArray);
  EXPECT_EQ(d->defaultValue.texts, (std::vector<std::string>{"x"}));
  EXPECT_FALSE(r.qualifierDecl("root/cimv2", "Abstract")->flavor.toSubclass);
}

TEST(MofTest, PragmaNamespaceAndInclude) {
  std::string dir = ::testing::TempDir();
  std::string inc = dir + "/cimmock_inc.mof";
  {
    std::ofstream out(inc);
    out << "class Included { [Key] string K; };\n";
  }
  Repository r;
  loadMofText(r, std::string(kQuals) + "#pragma namespace(\"test/ns\")\n#pragma locale(\"en_US\")\n" +
                     "#pragma include(\"cimmock_inc.mof\")\ninstance of Included { K = \"k\"; };\n",
              dir + "/main.mof");
  EXPECT_TRUE(r.hasNamespace("test/ns"));
  EXPECT_NE(r.findClass("test/ns", "Included"), nullptr);
  EXPECT_EQ(r.instanceCount("test/ns"), 1u);
  std::remove(inc.c_str());
}

TEST(MofTest, ErrorsCarryFileLineAndColumn) {
  struct Case {
    std::string text;
    int line, col;
    std::string needle;
  } cases[] = {
      {"class X { string S = \"open; };", 1, 22, "unterminated string"},
      {"class X {\n  strin S;\n};", 2, 3, "unknown type strin"},
      {"class X { [Key] string K; };\ninstance of X { K = \"a\" };", 2, 25, "expected ';'"},
      {"class X : Nowhere { };", 1, 11, "superclass Nowhere"},
      {"class X { [Key] string K; };\ninstance of X { K = \"a\"; Q = 1; };", 2, 26, "has no property Q"},
      {"class X { Y REF R = $missing; };", 1, 21, "undefined alias $missing"},
      {"class X { uint8 V = 256; };", 1, 21, "bad value"},
      {"class X { uint8 V = \"text\"; };", 1, 21, "type mismatch"},
      {"class X { uint8 A[] = 3; };", 1, 23, "scalar value for array"},
      {"class X { datetime D = \"2024\"; };", 1, 24, "datetime"},
      {"instance of Nope { };", 1, 13, "class Nope is not declared"},
      {"class X { [Key] string K; };\ninstance of X { K = \"a\"; };\ninstance of X { K = \"a\"; };", 3, 1, "already exists"},
      {"class X { string S = \"\\q\"; };", 1, 23, "unknown escape"},
      {"/* never closed", 1, 1, "unterminated comment"},
      {"class X { uint8 V = 0x; };", 1, 21, "malformed number"},
      {"class X { [Key] string K; };\nclass X { };", 2, 7, "already exists"},
      {"klass X { };", 1, 1, "expected 'class', 'instance', 'Qualifier' or '#pragma'"},
      // Refused at the outer array, not after 200,000 nested calls (a stack overflow).
      {"class X { string S[] = " + std::string(200000, '{'), 1, 24, "nested arrays"},
  };
  for (const auto& c : cases) {
    MofError e = loadError(c.text);
    EXPECT_EQ(e.file, "t.mof") << c.text;
    EXPECT_EQ(e.line, c.line + kQualLines) << c.text << " -> " << e.what();
    EXPECT_EQ(e.column, c.col) << c.text << " -> " << e.what();
    EXPECT_NE(e.message.find(c.needle), std::string::npos) << c.text << " -> " << e.what();
    std::string expectPrefix = "t.mof:" + std::to_string(e.line) + ":" + std::to_string(e.column) + ": ";
    EXPECT_EQ(std::string(e.what()).rfind(expectPrefix, 0), 0u) << e.what();
  }
  Repository r;
  EXPECT_THROW(loadMofFile(r, "/nonexistent/x.mof"), MofError);
}
