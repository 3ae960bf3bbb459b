// cimmock::Repository: classes, inheritance, instances, associations,
// queries and methods, without MOF or HTTP.
#include <gtest/gtest.h>

#include "cimmock/repository.h"

using namespace cimmock;

namespace {

Property prop(const std::string& name, Type t, bool key = false) {
  Property p;
  p.name = name;
  p.type = t;
  p.value = Value::null(t);
  if (key) {
    Qualifier q;
    q.name = "Key";
    q.value = Value::boolean(true);
    p.qualifiers.push_back(q);
  }
  return p;
}
Property refProp(const std::string& name, const std::string& cls) {
  Property p = prop(name, Type::Reference, true);
  p.referenceClass = cls;
  return p;
}
Qualifier qual(const std::string& name, const Value& v, bool toSubclass = true) {
  Qualifier q;
  q.name = name;
  q.value = v;
  q.flavor.toSubclass = toSubclass;
  return q;
}

class RepositoryTest : public ::testing::Test {
protected:
  void SetUp() override {
    Class base;
    base.name = "T_Base";
    base.qualifiers.push_back(qual("Description", Value::str("base")));
    base.qualifiers.push_back(qual("Abstract", Value::boolean(true), false));
    base.properties.push_back(prop("Id", Type::String, true));
    base.properties.push_back(prop("Count", Type::Uint32));
    repo.addClass(ns, base);
    Class child;
    child.name = "T_Child";
    child.superClass = "T_Base";
    child.properties.push_back(prop("Extra", Type::Sint16));
    Property cnt = prop("Count", Type::Uint32);
    cnt.value = Value::text(Type::Uint32, "5");
    child.properties.push_back(cnt);
    Method m;
    m.name = "Echo";
    Parameter p;
    p.name = "X";
    p.type = Type::Uint16;
    m.parameters.push_back(p);
    m.qualifiers.push_back(qual("MockBehavior", Value::str("Echo")));
    child.methods.push_back(m);
    Method set;
    set.name = "SetExtra";
    Parameter e;
    e.name = "Extra";
    e.type = Type::Sint16;
    set.parameters.push_back(e);
    set.qualifiers.push_back(qual("MockBehavior", Value::str("SetProperty")));
    child.methods.push_back(set);
    repo.addClass(ns, child);
    Class assoc;
    assoc.name = "T_Link";
    assoc.qualifiers.push_back(qual("Association", Value::boolean(true)));
    assoc.properties.push_back(refProp("Left", "T_Base"));
    assoc.properties.push_back(refProp("Right", "T_Base"));
    repo.addClass(ns, assoc);
    for (int i = 0; i < 3; ++i) {
      Instance inst;
      inst.className = "T_Child";
      inst.set("Id", Value::str("c" + std::to_string(i)));
      inst.set("Extra", Value::text(Type::Sint16, std::to_string(-i)));
      paths.push_back(repo.createInstance(ns, inst));
    }
    Instance link;
    link.className = "T_Link";
    link.set("Left", Value::reference(paths[0]));
    link.set("Right", Value::reference(paths[1]));
    repo.createInstance(ns, link);
  }
  Repository repo;
  std::string ns = "root/cimv2";
  std::vector<ObjectPath> paths;
};

}  // namespace

TEST_F(RepositoryTest, ResolvesInheritanceOfPropertiesAndQualifiers) {
  const Class* c = repo.findClass(ns, "t_child");  // case-insensitive
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->name, "T_Child");
  ASSERT_EQ(c->properties.size(), 3u);
  EXPECT_EQ(c->properties[0].name, "Id");
  EXPECT_TRUE(c->properties[0].propagated);
  EXPECT_EQ(c->properties[0].classOrigin, "T_Base");
  EXPECT_TRUE(c->properties[0].isKey());
  EXPECT_FALSE(c->properties[1].propagated);  // Count overridden here
  EXPECT_EQ(c->properties[1].classOrigin, "T_Child");
  EXPECT_EQ(c->properties[1].value.asText(), "5");
  // ToSubclass qualifiers propagate, restricted ones (Abstract) do not.
  ASSERT_NE(findQualifier(c->qualifiers, "Description"), nullptr);
  EXPECT_TRUE(findQualifier(c->qualifiers, "Description")->propagated);
  EXPECT_EQ(findQualifier(c->qualifiers, "Abstract"), nullptr);
}

TEST_F(RepositoryTest, GetClassHonoursLocalOnlyQualifiersAndClassOrigin) {
  ReadOptions ro;
  ro.localOnly = true;
  ro.includeQualifiers = false;
  ro.includeClassOrigin = false;
  Class c = repo.getClass(ns, "T_Child", ro);
  ASSERT_EQ(c.properties.size(), 2u);  // Count (overridden) and Extra
  EXPECT_TRUE(c.qualifiers.empty());
  EXPECT_TRUE(c.properties[0].classOrigin.empty());
  ro.localOnly = false;
  ro.hasPropertyList = true;
  ro.propertyList = {"extra"};
  EXPECT_EQ(repo.getClass(ns, "T_Child", ro).properties.size(), 1u);
  try {
    repo.getClass(ns, "Nope", ro);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_NOT_FOUND);
  }
  try {
    repo.getClass("no/such", "T_Child", ro);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_INVALID_NAMESPACE);
  }
}

TEST_F(RepositoryTest, EnumeratesClassNames) {
  EXPECT_EQ(repo.enumerateClassNames(ns, "", false), (std::vector<std::string>{"T_Base", "T_Link"}));
  EXPECT_EQ(repo.enumerateClassNames(ns, "", true), (std::vector<std::string>{"T_Base", "T_Child", "T_Link"}));
  EXPECT_EQ(repo.enumerateClassNames(ns, "T_Base", false), (std::vector<std::string>{"T_Child"}));
  EXPECT_TRUE(repo.isA(ns, "T_Child", "t_base"));
  EXPECT_FALSE(repo.isA(ns, "T_Base", "T_Child"));
}

TEST_F(RepositoryTest, RejectsBadClasses) {
  Class dup;
  dup.name = "T_BASE";
  EXPECT_THROW(repo.addClass(ns, dup), CimError);
  Class orphan;
  orphan.name = "T_Orphan";
  orphan.superClass = "T_Missing";
  try {
    repo.addClass(ns, orphan);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_INVALID_SUPERCLASS);
  }
}

TEST_F(RepositoryTest, InstancesAreKeyedAndFilledWithDefaults) {
  EXPECT_EQ(repo.instancesOf(ns, "T_Base").size(), 3u);
  EXPECT_EQ(paths[1].toString(), "root/cimv2:T_Child.Id=\"c1\"");
  Instance i = repo.getInstance(ns, ObjectPath::parse("T_Child.Id=\"c2\""));
  EXPECT_EQ(i.findProperty("Count")->value.asText(), "5");
  EXPECT_EQ(i.findProperty("Extra")->value.asText(), "-2");
  // Lookup through the base class works too.
  EXPECT_NE(repo.findInstance(ns, ObjectPath::parse("T_Base.Id=\"c0\"")), nullptr);
  EXPECT_EQ(repo.findInstance(ns, ObjectPath::parse("T_Child.Id=\"zz\"")), nullptr);
}

TEST_F(RepositoryTest, CreateModifyDelete) {
  Instance dup;
  dup.className = "T_Child";
  dup.set("Id", Value::str("c0"));
  try {
    repo.createInstance(ns, dup);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_ALREADY_EXISTS);
  }
  Instance nokey;
  nokey.className = "T_Child";
  EXPECT_THROW(repo.createInstance(ns, nokey), CimError);
  Instance bad;
  bad.className = "T_Child";
  bad.set("Id", Value::str("x"));
  bad.set("Extra", Value::str("not a number"));
  try {
    repo.createInstance(ns, bad);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_TYPE_MISMATCH);
  }
  Instance change;
  change.className = "T_Child";
  change.set("Count", Value::str("42"));  // text is coerced to uint32
  repo.modifyInstance(ns, paths[0], change);
  EXPECT_EQ(repo.getInstance(ns, paths[0]).findProperty("Count")->value.texts[0], "42");
  Instance key;
  key.className = "T_Child";
  key.set("Id", Value::str("other"));
  EXPECT_THROW(repo.modifyInstance(ns, paths[0], key), CimError);
  repo.deleteInstance(ns, paths[2]);
  EXPECT_EQ(repo.instancesOf(ns, "T_Child").size(), 2u);
  try {
    repo.deleteInstance(ns, paths[2]);
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_NOT_FOUND);
  }
}

TEST_F(RepositoryTest, ManyInstancesAreFoundByKeyAfterDeletesAndInAnyNumberForm) {
  Class slot;
  slot.name = "T_Slot";
  slot.properties.push_back(prop("Rack", Type::String, true));
  slot.properties.push_back(prop("Pos", Type::Uint16, true));
  repo.addClass(ns, slot);
  for (int i = 0; i < 3000; ++i) {
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
  const Instance* last = repo.findInstance(ns, ObjectPath::parse("T_Slot.Rack=\"r3\",Pos=2999"));
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->findProperty("Pos")->value.asText(), "2999");
  EXPECT_EQ(repo.instancesOf(ns, "T_Slot").size(), 2990u);
  // A subclass instance with a base instance's keys is a duplicate.
  Instance sub;
  sub.className = "T_Child";
  sub.set("Id", Value::str("c1"));
  EXPECT_THROW(repo.createInstance(ns, sub), CimError);
}

TEST_F(RepositoryTest, AssociationsByRoleAndClass) {
  auto refs = repo.references(ns, paths[0], "", "");
  ASSERT_EQ(refs.size(), 1u);
  EXPECT_EQ(refs[0].instance.className, "T_Link");
  EXPECT_TRUE(repo.references(ns, paths[0], "", "Right").empty());
  auto assoc = repo.associators(ns, paths[0], "T_Link", "T_Base", "Left", "Right");
  ASSERT_EQ(assoc.size(), 1u);
  EXPECT_TRUE(samePath(assoc[0].path, paths[1]));
  EXPECT_TRUE(repo.associators(ns, paths[0], "", "", "Right", "").empty());
  EXPECT_TRUE(repo.associators(ns, paths[2], "", "", "", "").empty());
  EXPECT_EQ(repo.referenceClasses(ns, "T_Child", "", ""), (std::vector<std::string>{"T_Link"}));
  EXPECT_EQ(repo.associatorClasses(ns, "T_Child", "", "", "", ""), (std::vector<std::string>{"T_Base"}));
}

TEST_F(RepositoryTest, WqlQueries) {
  EXPECT_EQ(repo.execQuery(ns, "WQL", "SELECT * FROM T_Base").size(), 3u);
  auto r = repo.execQuery(ns, "WQL", "select Id from T_Child where Extra < -0 AND (Id = 'c1' OR Id = \"c2\")");
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[0].instance.properties.size(), 1u);
  EXPECT_EQ(repo.execQuery(ns, "WQL", "SELECT * FROM T_Child WHERE Id LIKE 'c%' AND NOT Extra = 0").size(), 2u);
  EXPECT_EQ(repo.execQuery(ns, "WQL", "SELECT * FROM T_Child WHERE Count IS NOT NULL").size(), 3u);
  EXPECT_EQ(repo.execQuery(ns, "WQL", "SELECT * FROM T_Child WHERE Count >= 6").size(), 0u);
  try {
    repo.execQuery(ns, "WQL", "SELECT FROM");
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_INVALID_QUERY);
  }
  try {
    repo.execQuery(ns, "XPath", "x");
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED);
  }
}

TEST_F(RepositoryTest, MethodsEchoSetAndCustomBehaviour) {
  MethodResult r = repo.invokeMethod(ns, paths[0], "Echo", {{"X", Value::str("7")}});
  EXPECT_EQ(r.returnValue.asText(), "0");
  ASSERT_EQ(r.out.size(), 1u);
  EXPECT_EQ(r.out[0].value.type, Type::Uint16);
  EXPECT_THROW(repo.invokeMethod(ns, paths[0], "Echo", {{"X", Value::str("70000")}}), CimError);
  repo.invokeMethod(ns, paths[0], "SetExtra", {{"Extra", Value::str("9")}});
  EXPECT_EQ(repo.getInstance(ns, paths[0]).findProperty("Extra")->value.asText(), "9");
  try {
    repo.invokeMethod(ns, paths[0], "Nope", {});
    FAIL();
  } catch (const CimError& e) {
    EXPECT_EQ(e.code, CIM_ERR_METHOD_NOT_FOUND);
  }
  repo.setMethodBehaviour("T_Base", "Echo", [](MethodCall& c) {
    MethodResult m;
    m.returnValue = Value::text(Type::Uint32, "77");
    m.out.push_back({"Target", Value::str(c.target.className)});
    return m;
  });
  r = repo.invokeMethod(ns, paths[1], "Echo", {});
  EXPECT_EQ(r.returnValue.asText(), "77");
  EXPECT_EQ(r.out[0].value.asText(), "T_Child");
}

TEST_F(RepositoryTest, CopiesAreIndependent) {
  Repository copy = repo;
  copy.deleteInstance(ns, paths[0]);
  EXPECT_EQ(repo.instanceCount(ns), 4u);
  EXPECT_EQ(copy.instanceCount(ns), 3u);
}

TEST(ValueTest, CanonicalTexts) {
  EXPECT_EQ(canonicalText(Type::Boolean, " true "), "TRUE");
  EXPECT_EQ(canonicalText(Type::Uint8, "0xff"), "255");
  EXPECT_EQ(canonicalText(Type::Sint8, "-128"), "-128");
  EXPECT_THROW(canonicalText(Type::Sint8, "128"), CimError);
  EXPECT_THROW(canonicalText(Type::Uint32, "-1"), CimError);
  EXPECT_EQ(canonicalText(Type::Uint64, "18446744073709551615"), "18446744073709551615");
  EXPECT_THROW(canonicalText(Type::Uint64, "18446744073709551616"), CimError);
  EXPECT_THROW(canonicalText(Type::DateTime, "2024"), CimError);
  EXPECT_THROW(canonicalText(Type::Char16, "ab"), CimError);
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
