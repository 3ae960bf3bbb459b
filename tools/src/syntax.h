// What users type: instance paths, `Name=value` assignments and typed values.
// Pure text handling, no library calls, so it can be tested on its own.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace cimcli {

// Bad input from the user: a usage error, reported with its message.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Path;

// One key of a path. Strings come unquoted and unescaped.
struct Key {
    enum class Kind { String, Number, Boolean, Reference };
    std::string name;
    Kind kind = Kind::String;
    std::string text;          // String, Number, Boolean
    std::shared_ptr<Path> ref; // Reference
};

// [//host/][namespace:]ClassName[.Key=value,...]
struct Path {
    std::string host;
    std::string nameSpace;
    std::string className;
    std::vector<Key> keys;
};

// Parses a path. Throws InputError naming the column of the fault.
Path parsePath(std::string_view text);
// The canonical text of a path: parsePath(formatPath(p)) gives p back.
std::string formatPath(const Path& path);
// A string between double quotes, with `"` and `\` escaped.
std::string quote(std::string_view text);

// A declared or explicit type: a CIM type name ("uint32", "string", ...) or
// "reference", scalar or array.
struct Type {
    std::string name;
    bool array = false;
    std::string referenceClass;  // references only, may be empty
};
// "uint32", "string[]", "ref", "reference[]" ... Throws InputError.
Type parseType(std::string_view text);
bool isKnownType(std::string_view name);

// `Name=value` or `Name:type=value`, as given on the command line.
struct Assignment {
    std::string name;
    std::optional<Type> type;  // explicit type, when written
    std::string value;         // the raw text after '='
};
Assignment parseAssignment(std::string_view text);

// A value checked against its type. Arrays may be written `a,b,c` or
// `[a,b,c]`; `[]` is the empty array; NULL (bare) is the null value.
// Elements may be double-quoted, which they must be to hold a comma.
struct Value {
    bool isNull = false;
    std::vector<std::string> texts;  // scalars have exactly one
    std::vector<Path> refs;          // reference types, instead of texts
};
Value parseValue(std::string_view text, const Type& type);

// CIMXML_URL: http://[user@]host[:port][/namespace]. Fields not written
// stay empty (port 0). Throws InputError, also for a password in the URL.
struct Url {
    std::string user, host, nameSpace;
    int port = 0;
};
Url parseUrl(std::string_view text);

// XML character escapes.
std::string xmlEscape(std::string_view text);
// Text for a request record: escaped here in the default wire mode, whose
// writer copies text as it stands; as it is when CIMXML_WIRE=standard makes
// the library escape it.
std::string requestText(std::string_view text);

}  // namespace cimcli
