// The text users type: instance paths, and values read by their type.
#include "syntax.h"

#include <gtest/gtest.h>

namespace cimcli {
namespace {

// A path as read, every key with its kind: s"text", n12, b:true, ref(path).
std::string describe(const Path& p) {
  std::string out = (p.host.empty() ? "" : "//" + p.host + "/") + (p.nameSpace.empty() ? "" : p.nameSpace + ":") +
                    p.className;
  for (const Key& k : p.keys) {
    out += " " + k.name + "=";
    if (k.kind == Key::Kind::String) out += "s\"" + k.text + "\"";
    if (k.kind == Key::Kind::Number) out += "n" + k.text;
    if (k.kind == Key::Kind::Boolean) out += "b:" + k.text;
    if (k.kind == Key::Kind::Reference) out += "ref(" + (k.ref ? describe(*k.ref) : "null") + ")";
  }
  return out;
}

// Reads a path (no type) or a value of the type; a value shows as <text>
// for each element (refs described), NULL when null; a refusal as its message.
std::string read(const char* input, const char* type) {
  try {
    if (!type) {
      Path p = parsePath(input);
      EXPECT_EQ(describe(parsePath(formatPath(p))), describe(p)) << "what is printed reads back as the same path";
      return describe(p);
    }
    Value v = parseValue(input, parseType(type));
    std::string out = v.isNull ? "NULL" : "";
    for (const std::string& t : v.texts) out += "<" + t + ">";
    for (const Path& p : v.refs) out += "<" + describe(p) + ">";
    return out;
  } catch (const InputError& e) {
    return std::string("error: ") + e.what();
  }
}

TEST(Syntax, ReadsWhatUsersWriteAndRefusesTheRest) {
  const struct {
    const char* input;
    const char* type;  // null: a path
    const char* want;  // "error: <part of the message>" for a refusal
  } cases[] = {
      {"CIM_Foo", nullptr, "CIM_Foo"},
      {R"(CIM_Foo.Name="say \"hi\" \\ a\nb\tc",N=-12,R=1.5e3)", nullptr,
       "CIM_Foo Name=s\"say \"hi\" \\ a\nb\tc\" N=n-12 R=n1.5e3"},
      {"CIM_Foo.On=TRUE,Off=false", nullptr, "CIM_Foo On=b:true Off=b:false"},
      {"//localhost/root/cimv2:CIM_Foo.Id=1", nullptr, "//localhost/root/cimv2:CIM_Foo Id=n1"},
      {R"(CIM_Assoc.A="root/x:CIM_Bar.Id=\"a,b\"",B=2)", nullptr, "CIM_Assoc A=ref(root/x:CIM_Bar Id=s\"a,b\") B=n2"},
      // A reference inside a reference: two levels of escapes.
      {R"(C_A.R="C_B.S=\"C_C.K=\\\"v\\\"\"")", nullptr, "C_A R=ref(C_B S=ref(C_C K=s\"v\"))"},
      // Text that looks like a path stays a string when typed so, or when it has no keys.
      {R"(CIM_Foo.Name:string="CIM_Bar.Id=1")", nullptr, "CIM_Foo Name=s\"CIM_Bar.Id=1\""},
      {R"(CIM_Foo.Name="CIM_Bar")", nullptr, "CIM_Foo Name=s\"CIM_Bar\""},
      {"", nullptr, "error: expected a class name at column 1"},
      {"CIM_Foo.", nullptr, "error: expected a key name at column 9"},
      {"CIM_Foo.Name", nullptr, "error: expected '=' after the key name at column 13"},
      {R"(CIM_Foo.Name="x)", nullptr, "error: unterminated string at column 14"},
      {R"(CIM_Foo.Name="x"Id=1)", nullptr, "error: expected ',' between keys at column 17"},
      {"CIM_Foo.Name=abc", nullptr, "error: strings need double quotes at column 14"},
      {R"(CIM_Foo.Name="\q")", nullptr, "error: unknown escape \\q at column 15"},
      {R"(CIM_Foo.Name=a"b")", nullptr, "error: a quote inside an unquoted value at column 15"},
      {"CIM_Foo Id=1", nullptr, "error: expected '.' after the class name at column 8"},
      {"//host", nullptr, "error: expected //host/ before the class at column 1"},
      {"root//x:CIM_Foo", nullptr, "error: bad namespace at column 1"},
      {"ro ot:CIM_Foo", nullptr, "error: bad character in namespace at column 3"},
      {R"(CIM_A.R:ref="CIM_B")", nullptr, "error: a reference key names an instance"},
      {R"(CIM_A.R:ref="CIM_B.K=")", nullptr, "error: bad reference"},
      {R"(CIM_A.R:int="1")", nullptr, "error: a key type is string or ref"},
      {"hello world", "string", "<hello world>"}, {R"("quoted \"x\"")", "string", "<quoted \"x\">"},
      {"a,b", "string", "<a,b>"},  // a scalar keeps its commas
      {"NULL", "string", "NULL"},  {R"("NULL")", "string", "<NULL>"},  {"0xff", "uint8", "<0xff>"},
      {"TRUE", "boolean", "<true>"}, {"-2.5e3", "real64", "<-2.5e3>"}, {"[]", "uint16[]", ""},
      {"18446744073709551615", "uint64", "<18446744073709551615>"},
      {"20240101120000.000000+000", "datetime", "<20240101120000.000000+000>"},
      {R"([a, "b,c", "d\"e"])", "string[]", "<a><b,c><d\"e>"}, {"1,2,3", "uint16[]", "<1><2><3>"},
      {R"(["A.K=1","B.K=\"2\""])", "ref[]", "<A K=n1><B K=s\"2\">"},
      {"256", "uint8", "error: "},     {"-1", "uint32", "error: "},       {"128", "sint8", "error: "},
      {"12abc", "uint16", "error: "},  {"", "uint32", "error: "},         {"yes", "boolean", "error: "},
      {"1.2.3", "real32", "error: "},  {"nan", "real64", "error: "},      {"2024", "datetime", "error: "},
      {"", "char16", "error: "},       {"[1,x]", "uint8[]", "error: "},   {"[1,2", "uint8[]", "error: "},
      {R"("open)", "string", "error: "}, {R"("x"y)", "string[]", "error: "}, {"Bad Path", "ref", "error: "},
      {"99999999999999999999", "uint64", "error: "},
  };
  for (const auto& c : cases) {
    std::string got = read(c.input, c.type), want = c.want;
    if (want.rfind("error: ", 0) == 0) {
      EXPECT_EQ(got.rfind("error: ", 0), 0u) << c.input << " as " << (c.type ? c.type : "path") << ": " << got;
      EXPECT_NE(got.find(want.substr(7)), std::string::npos) << c.input << ": " << got;
    } else {
      EXPECT_EQ(got, want) << c.input << " as " << (c.type ? c.type : "path");
    }
  }
}

}  // namespace
}  // namespace cimcli
