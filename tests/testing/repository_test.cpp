// cimmock::Repository: inheritance, instances and their keys, queries and
// methods, below the HTTP layer (server_test covers the operations).
#include <gtest/gtest.h>

#include <functional>

#include "cimmock/mof.h"
#include "cimmock/repository.h"

using namespace cimmock;

namespace {

class RepositoryTest : public ::testing::Test {
protected:
  void SetUp() override {
    loadMofText(repo, R"(#pragma include("qualifiers.inc")
[Abstract, Description("base")] class T_Base { [Key] string Id; uint32 Count; };
class T_Child : T_Base { uint32 Count = 5; sint16 Extra;
  [MockBehavior("Echo")] uint32 Echo(uint16 X);
  [MockBehavior("SetProperty")] uint32 SetExtra(sint16 Extra); };
[Association] class T_Link { [Key] T_Base REF Left; [Key] T_Base REF Right; };
instance of T_Child as $c0 { Id = "c0"; Extra = 0; };
instance of T_Child as $c1 { Id = "c1"; Extra = -1; };
instance of T_Child { Id = "c2"; Extra = -2; };
instance of T_Link { Left = $c0; Right = $c1; };
)",
                sampleRepositoryDir() + "/t.mof");
  }
  static ObjectPath child(int i) { return ObjectPath::parse("root/cimv2:T_Child.Id=\"c" + std::to_string(i) + "\""); }
  static int code(const std::function<void()>& f) {
    try {
      f();
    } catch (const CimError& e) {
      return e.code;
    }
    return 0;
  }
  Repository repo;
  std::string ns = "root/cimv2";
};

}  // namespace

// Origins and restricted qualifiers are pinned by the MOF tests; here the
// propagated marks, names in any case, property lists and an unknown namespace.
TEST_F(RepositoryTest, ClassesCarryWhatTheyInherit) {
  const Class* c = repo.findClass(ns, "t_child");
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(c->properties.size(), 3u);
  EXPECT_TRUE(c->properties[0].propagated && c->properties[0].isKey());
  EXPECT_FALSE(c->properties[1].propagated);  // Count overridden here
  ASSERT_NE(findQualifier(c->qualifiers, "Description"), nullptr);
  EXPECT_TRUE(findQualifier(c->qualifiers, "Description")->propagated);
  ReadOptions ro;
  ro.hasPropertyList = true;
  ro.propertyList = {"extra"};
  EXPECT_EQ(repo.getClass(ns, "T_Child", ro).properties.size(), 1u);
  EXPECT_EQ(code([&] { repo.getClass("no/such", "T_Child", ro); }), CIM_ERR_INVALID_NAMESPACE);
}

TEST_F(RepositoryTest, InstancesAreKeyedAndFilledWithDefaults) {
  EXPECT_EQ(repo.instancesOf(ns, "T_Base").size(), 3u);
  Instance i = repo.getInstance(ns, ObjectPath::parse("T_Child.Id=\"c2\""));
  EXPECT_EQ(i.findProperty("Count")->value.asText(), "5");
  EXPECT_EQ(i.findProperty("Extra")->value.asText(), "-2");
  // Lookup through the base class works too.
  EXPECT_NE(repo.findInstance(ns, ObjectPath::parse("T_Base.Id=\"c0\"")), nullptr);
  EXPECT_EQ(repo.findInstance(ns, ObjectPath::parse("T_Child.Id=\"zz\"")), nullptr);
  Instance nokey;
  nokey.className = "T_Child";
  EXPECT_THROW(repo.createInstance(ns, nokey), CimError);
  Instance change;
  change.className = "T_Child";
  change.set("Count", Value::str("42"));  // text is coerced to uint32
  repo.modifyInstance(ns, child(0), change);
  EXPECT_EQ(repo.getInstance(ns, child(0)).findProperty("Count")->value.texts[0], "42");
  change.set("Id", Value::str("other"));  // keys never change
  EXPECT_THROW(repo.modifyInstance(ns, child(0), change), CimError);
  // Copies are independent.
  Repository copy = repo;
  copy.deleteInstance(ns, child(0));
  EXPECT_EQ(repo.instanceCount(ns), 4u);
  EXPECT_EQ(copy.instanceCount(ns), 3u);
}

TEST_F(RepositoryTest, ManyInstancesAreFoundByKeyAfterDeletesAndInAnyNumberForm) {
  loadMofText(repo, R"(#pragma include("qualifiers.inc")
class T_Slot { [Key] string Rack; [Key] uint16 Pos; };)", sampleRepositoryDir() + "/slot.mof");
  for (int i = 0; i < 700; ++i) {
    Instance inst;
    inst.className = "T_Slot";
    inst.set("Rack", Value::str("r" + std::to_string(i % 7)));
    inst.set("Pos", Value::text(Type::Uint16, std::to_string(i)));
    repo.createInstance(ns, inst);
  }
  // Numbers compare by value: a key written "0042" names Pos=42.
  EXPECT_NE(repo.findInstance(ns, ObjectPath::parse("T_Slot.Rack=\"r0\",Pos=0042")), nullptr);
  EXPECT_NE(repo.findInstance(ns, ObjectPath::parse("t_slot.pos=42,RACK=\"r0\"")), nullptr);
  EXPECT_EQ(repo.findInstance(ns, ObjectPath::parse("T_Slot.Rack=\"R0\",Pos=42")), nullptr);  // strings are exact
  Instance dup;
  dup.className = "T_Slot";
  dup.set("Rack", Value::str("r1"));
  dup.set("Pos", Value::text(Type::Uint16, "1"));
  EXPECT_THROW(repo.createInstance(ns, dup), CimError);
  // Deleting early instances moves the later ones; they stay reachable.
  for (int i = 0; i < 10; ++i)
    repo.deleteInstance(ns, ObjectPath::parse("T_Slot.Rack=\"r" + std::to_string(i % 7) + "\",Pos=" + std::to_string(i)));
  EXPECT_EQ(repo.findInstance(ns, ObjectPath::parse("T_Slot.Rack=\"r2\",Pos=9")), nullptr);
  const Instance* last = repo.findInstance(ns, ObjectPath::parse("T_Slot.Rack=\"r6\",Pos=699"));
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->findProperty("Pos")->value.asText(), "699");
  EXPECT_EQ(repo.instancesOf(ns, "T_Slot").size(), 690u);
  // A subclass instance with a base instance's keys is a duplicate.
  Instance sub;
  sub.className = "T_Child";
  sub.set("Id", Value::str("c1"));
  EXPECT_THROW(repo.createInstance(ns, sub), CimError);
}

// Instance-level filters are answered over HTTP in server_test.
TEST_F(RepositoryTest, AssociationsByRoleAndClass) {
  EXPECT_TRUE(repo.references(ns, child(0), "", "Right").empty());
  EXPECT_EQ(repo.referenceClasses(ns, "T_Child", "", ""), (std::vector<std::string>{"T_Link"}));
  EXPECT_EQ(repo.associatorClasses(ns, "T_Child", "", "", "", ""), (std::vector<std::string>{"T_Base"}));
}

TEST_F(RepositoryTest, WqlQueries) {
  struct {
    const char* query;
    size_t rows;
  } cases[] = {
      {"SELECT * FROM T_Base", 3},
      {"select Id from T_Child where Extra < -0 AND (Id = 'c1' OR Id = \"c2\")", 2},
      {"SELECT * FROM T_Child WHERE Id LIKE 'c%' AND NOT Extra = 0", 2},
      {"SELECT * FROM T_Child WHERE Count IS NOT NULL", 3},
      {"SELECT * FROM T_Child WHERE Count >= 6", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(repo.execQuery(ns, "WQL", c.query).size(), c.rows) << c.query;
  EXPECT_EQ(repo.execQuery(ns, "WQL", cases[1].query)[0].instance.properties.size(), 1u);
  EXPECT_EQ(code([&] { repo.execQuery(ns, "WQL", "SELECT FROM"); }), CIM_ERR_INVALID_QUERY);
  EXPECT_EQ(code([&] { repo.execQuery(ns, "XPath", "x"); }), CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED);
}

// Echo and SetProperty behaviours are answered over HTTP in server_test; a
// user's own behaviour replaces one for the class and its subclasses.
TEST_F(RepositoryTest, CustomMethodBehaviour) {
  EXPECT_THROW(repo.invokeMethod(ns, child(0), "Echo", {{"X", Value::str("70000")}}), CimError);
  repo.setMethodBehaviour("T_Base", "Echo", [](MethodCall& c) {
    MethodResult m;
    m.returnValue = Value::text(Type::Uint32, "77");
    m.out.push_back({"Target", Value::str(c.target.className)});
    return m;
  });
  MethodResult r = repo.invokeMethod(ns, child(1), "Echo", {});
  EXPECT_EQ(r.returnValue.asText(), "77");
  EXPECT_EQ(r.out.at(0).value.asText(), "T_Child");
}

TEST(ValueTest, CanonicalTexts) {
  struct {
    Type type;
    const char* in;
    const char* out;  // nullptr: rejected
  } cases[] = {
      {Type::Boolean, " true ", "TRUE"}, {Type::Uint8, "0xff", "255"}, {Type::Sint8, "-128", "-128"},
      {Type::Sint8, "128", nullptr},     {Type::Uint32, "-1", nullptr},
      {Type::Uint64, "18446744073709551615", "18446744073709551615"},
      {Type::Uint64, "18446744073709551616", nullptr},
      {Type::DateTime, "2024", nullptr}, {Type::Char16, "ab", nullptr},
  };
  for (const auto& c : cases) {
    if (c.out) {
      EXPECT_EQ(canonicalText(c.type, c.in), c.out) << c.in;
    } else {
      EXPECT_THROW(canonicalText(c.type, c.in), CimError) << c.in;
    }
  }
  EXPECT_EQ(compareValues(Type::Sint32, "-5", "3"), -1);
  EXPECT_EQ(compareValues(Type::Real64, "1e3", "1000"), 0);
}

TEST(ValueTest, ObjectPathsParseAndCompare) {
  ObjectPath p = ObjectPath::parse("//h/root/cimv2:X_Y.B=2,A=\"q\\\"x\",C=true");
  EXPECT_EQ(p.host, "h");
  EXPECT_EQ(p.nameSpace, "root/cimv2");
  EXPECT_EQ(p.className, "X_Y");
  ASSERT_EQ(p.keys.size(), 3u);
  EXPECT_EQ(p.keys[1].text, "q\"x");
  EXPECT_TRUE(samePath(p, ObjectPath::parse("root/cimv2:x_y.a=\"q\\\"x\",c=TRUE,b=0x2")));
  EXPECT_FALSE(samePath(p, ObjectPath::parse("X_Y.A=\"Q\\\"x\",B=2,C=true")));  // string keys are case-sensitive
  EXPECT_THROW(ObjectPath::parse("X.A"), CimError);
  EXPECT_TRUE(ObjectPath::parse("X_Y").isClassPath());
}
