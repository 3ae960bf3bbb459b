// The MOF loader's errors, with file, line and column. What it reads well is
// the sample repository, loaded and queried through the client library by
// the scenario, xmlops and CLI tests.
#include <gtest/gtest.h>

#include "cimmock/mof.h"

using namespace cimmock;

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
    MofError e("", 0, 0, "");
    try {
      Repository r;  // the line before the case declares Key
      loadMofText(r, "Qualifier Key : boolean = false, Scope(property, reference);\n" + c.text, "t.mof");
      ADD_FAILURE() << "no error for: " << c.text;
    } catch (const MofError& thrown) {
      e = thrown;
    }
    std::string prefix = "t.mof:" + std::to_string(c.line + 1) + ":" + std::to_string(c.col) + ": ";
    EXPECT_EQ(std::string(e.what()).rfind(prefix, 0), 0u) << c.text.substr(0, 80) << " -> " << e.what();
    EXPECT_NE(e.message.find(c.needle), std::string::npos) << e.what();
  }
  Repository r;
  EXPECT_THROW(loadMofFile(r, "/nonexistent/x.mof"), MofError);
}
