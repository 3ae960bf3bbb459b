// The text users type: paths, Name=value assignments, typed values, URLs.
#include "syntax.h"

#include <gtest/gtest.h>

namespace cimcli {
namespace {

using K = Key::Kind;

struct KeyCase {
    std::string name;
    K kind;
    std::string text;  // for a reference: its canonical path
};
struct PathCase {
    const char* input;
    const char* host;
    const char* nameSpace;
    const char* className;
    std::vector<KeyCase> keys;
};

TEST(PathParse, ReadsWhatUsersWrite) {
    const PathCase cases[] = {
        {"CIM_Foo", "", "", "CIM_Foo", {}},
        {R"(CIM_Foo.Name="say \"hi\" \\ a\nb\tc",N=-12,R=1.5e3)", "", "", "CIM_Foo",
         {{"Name", K::String, "say \"hi\" \\ a\nb\tc"}, {"N", K::Number, "-12"}, {"R", K::Number, "1.5e3"}}},
        {"CIM_Foo.On=TRUE,Off=false", "", "", "CIM_Foo", {{"On", K::Boolean, "true"}, {"Off", K::Boolean, "false"}}},
        {R"(root/cimv2:CIM_Foo.Id=1)", "", "root/cimv2", "CIM_Foo", {{"Id", K::Number, "1"}}},
        {R"(//localhost/root/cimv2:CIM_Foo.Id=1)", "localhost", "root/cimv2", "CIM_Foo", {{"Id", K::Number, "1"}}},
        {R"(CIM_Assoc.A="root/x:CIM_Bar.Id=\"a,b\"",B=2)", "", "", "CIM_Assoc",
         {{"A", K::Reference, R"(root/x:CIM_Bar.Id="a,b")"}, {"B", K::Number, "2"}}},
        // A reference inside a reference: two levels of escapes.
        {R"(C_A.R="C_B.S=\"C_C.K=\\\"v\\\"\"")", "", "", "C_A", {{"R", K::Reference, R"(C_B.S="C_C.K=\"v\"")"}}},
        // Text that looks like a path stays a string when typed so.
        {R"(CIM_Foo.Name:string="CIM_Bar.Id=1")", "", "", "CIM_Foo", {{"Name", K::String, "CIM_Bar.Id=1"}}},
        {R"(CIM_Foo.Name="CIM_Bar")", "", "", "CIM_Foo", {{"Name", K::String, "CIM_Bar"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        Path p = parsePath(c.input);
        EXPECT_EQ(p.host, c.host);
        EXPECT_EQ(p.nameSpace, c.nameSpace);
        EXPECT_EQ(p.className, c.className);
        ASSERT_EQ(p.keys.size(), c.keys.size());
        for (size_t i = 0; i < c.keys.size(); ++i) {
            EXPECT_EQ(p.keys[i].name, c.keys[i].name);
            EXPECT_EQ(p.keys[i].kind, c.keys[i].kind);
            if (c.keys[i].kind == K::Reference) {
                ASSERT_TRUE(p.keys[i].ref);
                EXPECT_EQ(formatPath(*p.keys[i].ref), c.keys[i].text);
            } else {
                EXPECT_EQ(p.keys[i].text, c.keys[i].text);
            }
        }
        // What is printed reads back the same.
        EXPECT_EQ(formatPath(parsePath(formatPath(p))), formatPath(p));
    }
}

TEST(PathParse, RejectsBadInputWithItsColumn) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "expected a class name at column 1"},
        {"CIM_Foo.", "expected a key name at column 9"},
        {"CIM_Foo.Name", "expected '=' after the key name at column 13"},
        {R"(CIM_Foo.Name="x)", "unterminated string at column 14"},
        {R"(CIM_Foo.Name="x"Id=1)", "expected ',' between keys at column 17"},
        {"CIM_Foo.Name=abc", "strings need double quotes at column 14"},
        {R"(CIM_Foo.Name="\q")", "unknown escape \\q at column 15"},
        {R"(CIM_Foo.Name=a"b")", "a quote inside an unquoted value at column 15"},
        {"CIM_Foo Id=1", "expected '.' after the class name at column 8"},
        {"//host", "expected //host/ before the class at column 1"},
        {"root//x:CIM_Foo", "bad namespace at column 1"},
        {"ro ot:CIM_Foo", "bad character in namespace at column 3"},
        {R"(CIM_A.R:ref="CIM_B")", "a reference key names an instance"},
        {R"(CIM_A.R:ref="CIM_B.K=")", "bad reference"},
        {R"(CIM_A.R:int="1")", "a key type is string or ref"},
    };
    for (const auto& [input, message] : cases) {
        SCOPED_TRACE(input);
        try {
            parsePath(input);
            ADD_FAILURE() << "accepted";
        } catch (const InputError& e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    }
}

TEST(Assignments, NameTypeAndRawValue) {
    Assignment a = parseAssignment("Count:uint32[]=[1,2]");
    EXPECT_EQ(a.name, "Count");
    ASSERT_TRUE(a.type);
    EXPECT_EQ(a.type->name, "uint32");
    EXPECT_TRUE(a.type->array);
    EXPECT_EQ(a.value, "[1,2]");

    a = parseAssignment("Text=a=b");  // the first '=' ends the name
    EXPECT_EQ(a.name, "Text");
    EXPECT_FALSE(a.type);
    EXPECT_EQ(a.value, "a=b");
    EXPECT_EQ(parseAssignment("R:ref=X.Id=1").type->name, "reference");

    for (const char* bad : {"novalue", "=x", "1a=2", "A b=1", "X:uint33=1", "X:=1"}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(parseAssignment(bad), InputError);
    }
}

struct ValueCase {
    const char* text;
    const char* type;
    std::vector<std::string> texts;  // expected; empty with isNull for NULL
    bool isNull;
};

TEST(Values, TypedByDeclaration) {
    const ValueCase cases[] = {
        {"hello world", "string", {"hello world"}, false},
        {R"("quoted \"x\"")", "string", {"quoted \"x\""}, false},
        {"a,b", "string", {"a,b"}, false},  // a scalar keeps its commas
        {"NULL", "string", {}, true},
        {R"("NULL")", "string", {"NULL"}, false},
        {"0xff", "uint8", {"0xff"}, false},
        {"18446744073709551615", "uint64", {"18446744073709551615"}, false},
        {"TRUE", "boolean", {"true"}, false},
        {"-2.5e3", "real64", {"-2.5e3"}, false},
        {"20240101120000.000000+000", "datetime", {"20240101120000.000000+000"}, false},
        {R"([a, "b,c", "d\"e"])", "string[]", {"a", "b,c", "d\"e"}, false},
        {"[]", "uint16[]", {}, false},
        {"[1,2,3]", "uint16[]", {"1", "2", "3"}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " as " + c.type);
        Value v = parseValue(c.text, parseType(c.type));
        EXPECT_EQ(v.isNull, c.isNull);
        EXPECT_EQ(v.texts, c.texts);
    }
}

TEST(Values, RejectsWhatTheTypeCannotHold) {
    const std::pair<const char*, const char*> cases[] = {
        {"256", "uint8"},   {"-1", "uint32"},     {"128", "sint8"},    {"12abc", "uint16"}, {"", "uint32"},
        {"yes", "boolean"}, {"1.2.3", "real32"},  {"nan", "real64"},   {"2024", "datetime"}, {"", "char16"},
        {"[1,x]", "uint8[]"}, {"[1,2", "uint8[]"}, {R"("open)", "string"}, {"Bad Path", "ref"},
        {R"("x"y)", "string[]"}, {"99999999999999999999", "uint64"},
    };
    for (const auto& [text, type] : cases) {
        SCOPED_TRACE(std::string(text) + " as " + type);
        EXPECT_THROW(parseValue(text, parseType(type)), InputError);
    }
}

TEST(Values, ReferencesReadAsPaths) {
    Value v = parseValue(R"(["A.K=1","B.K=\"2\""])", parseType("ref[]"));
    ASSERT_EQ(v.refs.size(), 2u);
    EXPECT_EQ(formatPath(v.refs[1]), R"(B.K="2")");
}

TEST(Url, FillsWhatItNames) {
    struct Case {
        const char* text;
        const char* user;
        const char* host;
        int port;
        const char* nameSpace;
    };
    const Case cases[] = {
        {"http://admin@cimom.example:5989/root/interop", "admin", "cimom.example", 5989, "root/interop"},
        {"http://127.0.0.1", "", "127.0.0.1", 0, ""},
        {"http://u@h/root/cimv2/", "u", "h", 0, "root/cimv2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Url u = parseUrl(c.text);
        EXPECT_EQ(u.user, c.user);
        EXPECT_EQ(u.host, c.host);
        EXPECT_EQ(u.port, c.port);
        EXPECT_EQ(u.nameSpace, c.nameSpace);
    }
    for (const char* bad : {"https://h", "h:5988", "http://", "http://u:secret@h", "http://h:0", "http://h:99999",
                            "http://h:x/ns"}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(parseUrl(bad), InputError);
    }
}

TEST(XmlEscape, EscapesTheFiveCharacters) {
    EXPECT_EQ(xmlEscape(R"(a<b>&"c"'d')"), "a&lt;b&gt;&amp;&quot;c&quot;&apos;d&apos;");
}

}  // namespace
}  // namespace cimcli
