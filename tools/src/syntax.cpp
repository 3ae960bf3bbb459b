#include "syntax.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <limits>

namespace cimcli {
namespace {

bool isIdentStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isIdentChar(char c) { return isIdentStart(c) || (c >= '0' && c <= '9'); }

bool iequals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

[[noreturn]] void fail(std::string_view what, std::string_view text, size_t at) {
    throw InputError(std::string(what) + " at column " + std::to_string(at + 1) + " of '" + std::string(text) +
                     "'");
}

bool looksNumeric(std::string_view s) {
    if (s.empty()) return false;
    char* end = nullptr;
    std::string copy(s);
    errno = 0;
    std::strtod(copy.c_str(), &end);
    return end == copy.c_str() + copy.size() && copy.find_first_of("0123456789") != std::string::npos &&
           copy.find_first_of("xXnN") == std::string::npos;  // no hex floats, inf or nan
}

// Reads a double-quoted string starting at s[i] == '"'; leaves i past the
// closing quote.
std::string readQuoted(std::string_view s, size_t& i) {
    std::string out;
    size_t start = i++;
    while (i < s.size()) {
        char c = s[i++];
        if (c == '"') return out;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (i >= s.size()) break;
        char e = s[i++];
        switch (e) {
            case '"': out += '"'; break;
            case '\\': out += '\\'; break;
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            default: fail(std::string("unknown escape \\") + e, s, i - 2);
        }
    }
    fail("unterminated string", s, start);
}

class PathParser {
public:
    explicit PathParser(std::string_view text) : s_(text) {}

    Path parse() {
        Path p;
        if (s_.substr(0, 2) == "//") {
            size_t slash = s_.find('/', 2);
            if (slash == std::string_view::npos || slash == 2) fail("expected //host/ before the class", s_, 0);
            p.host = std::string(s_.substr(2, slash - 2));
            i_ = slash + 1;
        }
        // A namespace ends at the first ':' that comes before any key.
        size_t colon = s_.find(':', i_);
        size_t dot = s_.find_first_of(".=\"", i_);
        if (colon != std::string_view::npos && (dot == std::string_view::npos || colon < dot)) {
            p.nameSpace = std::string(s_.substr(i_, colon - i_));
            for (size_t k = i_; k < colon; ++k)
                if (!isIdentChar(s_[k]) && s_[k] != '/') fail("bad character in namespace", s_, k);
            if (p.nameSpace.empty() || p.nameSpace.front() == '/' || p.nameSpace.back() == '/' ||
                p.nameSpace.find("//") != std::string::npos)
                fail("bad namespace", s_, i_);
            i_ = colon + 1;
        }
        p.className = identifier("a class name");
        if (i_ == s_.size()) return p;
        if (s_[i_] != '.') fail("expected '.' after the class name", s_, i_);
        ++i_;
        for (;;) {
            p.keys.push_back(key());
            if (i_ == s_.size()) break;
            if (s_[i_] != ',') fail("expected ',' between keys", s_, i_);
            ++i_;
        }
        return p;
    }

private:
    std::string identifier(const char* what) {
        size_t start = i_;
        if (i_ >= s_.size() || !isIdentStart(s_[i_])) fail(std::string("expected ") + what, s_, i_);
        while (i_ < s_.size() && isIdentChar(s_[i_])) ++i_;
        return std::string(s_.substr(start, i_ - start));
    }

    Key key() {
        Key k;
        k.name = identifier("a key name");
        std::string forced;
        if (i_ < s_.size() && s_[i_] == ':') {  // Name:string= or Name:ref=
            ++i_;
            forced = identifier("a key type");
            if (!iequals(forced, "string") && !iequals(forced, "ref") && !iequals(forced, "reference"))
                fail("a key type is string or ref", s_, i_ - forced.size());
        }
        if (i_ >= s_.size() || s_[i_] != '=') fail("expected '=' after the key name", s_, i_);
        ++i_;
        if (i_ < s_.size() && s_[i_] == '"') {
            size_t at = i_;
            k.text = readQuoted(s_, i_);
            bool wantRef = iequals(forced, "ref") || iequals(forced, "reference");
            if (wantRef || (forced.empty() && looksLikeReference(k.text))) {
                try {
                    k.ref = std::make_shared<Path>(parsePath(k.text));
                } catch (const InputError& e) {
                    fail(std::string("bad reference (") + e.what() + ")", s_, at);
                }
                if (k.ref->keys.empty()) fail("a reference key names an instance: it needs keys", s_, at);
                k.kind = Key::Kind::Reference;
                k.text.clear();
            }
            return k;
        }
        if (!forced.empty()) fail("a typed key needs a double-quoted value", s_, i_);
        size_t start = i_;
        while (i_ < s_.size() && s_[i_] != ',') {
            if (s_[i_] == '"') fail("a quote inside an unquoted value", s_, i_);
            ++i_;
        }
        k.text = std::string(s_.substr(start, i_ - start));
        if (iequals(k.text, "true") || iequals(k.text, "false")) {
            k.kind = Key::Kind::Boolean;
            for (auto& c : k.text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (looksNumeric(k.text)) {
            k.kind = Key::Kind::Number;
        } else {
            fail("strings need double quotes", s_, start);
        }
        return k;
    }

  public:
    // A quoted key is read as a reference when its text is a path with keys:
    // "Class.Key=..." (optionally with namespace or host).
    static bool looksLikeReference(const std::string& text) {
        try {
            return !parsePath(text).keys.empty();
        } catch (const InputError&) {
            return false;
        }
    }

  private:
    std::string_view s_;
    size_t i_ = 0;
};

const char* const kTypes[] = {"boolean", "string", "char16", "datetime", "uint8",  "sint8",  "uint16", "sint16",
                              "uint32",  "sint32", "uint64", "sint64",   "real32", "real64", "reference"};

// Splits an array text on the commas outside double quotes.
std::vector<std::string_view> splitTopLevel(std::string_view s) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    bool inQuotes = false;
    for (size_t i = 0; i < s.size(); ++i) {
        if (inQuotes && s[i] == '\\') {
            ++i;
        } else if (s[i] == '"') {
            inQuotes = !inQuotes;
        } else if (!inQuotes && s[i] == ',') {
            parts.push_back(s.substr(start, i - start));
            start = i + 1;
        }
    }
    parts.push_back(s.substr(start));
    return parts;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

// A quoted element is unquoted; a bare one is taken as it stands.
std::string unquoteElement(std::string_view s) {
    if (s.empty() || s.front() != '"') return std::string(s);
    size_t i = 0;
    std::string out = readQuoted(s, i);
    if (i != s.size()) fail("text after the closing quote", s, i);
    return out;
}

bool checkInteger(const std::string& t, const std::string& type) {
    struct Range {
        const char* name;
        bool isSigned;
        int bits;
    };
    static const Range ranges[] = {{"uint8", false, 8},  {"sint8", true, 8},   {"uint16", false, 16},
                                   {"sint16", true, 16}, {"uint32", false, 32}, {"sint32", true, 32},
                                   {"uint64", false, 64}, {"sint64", true, 64}};
    for (const auto& r : ranges) {
        if (type != r.name) continue;
        if (t.empty() || t.find_first_of(" \t") != std::string::npos) return false;
        char* end = nullptr;
        errno = 0;
        int base = (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) ? 16 : 10;
        if (r.isSigned) {
            long long v = std::strtoll(t.c_str(), &end, base);
            if (errno || *end) return false;
            if (r.bits == 64) return true;
            long long lim = 1LL << (r.bits - 1);
            return v >= -lim && v < lim;
        }
        if (t[0] == '-') return false;
        unsigned long long v = std::strtoull(t.c_str(), &end, base);
        if (errno || *end) return false;
        return r.bits == 64 || v < (1ULL << r.bits);
    }
    return false;
}

std::string checkScalar(const std::string& raw, const std::string& type, std::string_view whole) {
    if (type == "string") return raw;
    if (type == "boolean") {
        if (iequals(raw, "true")) return "true";
        if (iequals(raw, "false")) return "false";
        throw InputError("'" + std::string(whole) + "': a boolean is true or false");
    }
    if (type == "real32" || type == "real64") {
        if (!looksNumeric(raw)) throw InputError("'" + std::string(whole) + "': not a number");
        return raw;
    }
    if (type == "char16") {
        if (raw.empty()) throw InputError("'" + std::string(whole) + "': a char16 needs one character");
        return raw;
    }
    if (type == "datetime") {
        // yyyymmddhhmmss.mmmmmmsutc or an interval ddddddddhhmmss.mmmmmm:000
        if (raw.size() != 25 || raw[14] != '.')
            throw InputError("'" + std::string(whole) + "': a datetime has 25 characters, e.g. 20240101120000.000000+000");
        return raw;
    }
    if (!checkInteger(raw, type)) throw InputError("'" + std::string(whole) + "': not a " + type);
    return raw;
}

}  // namespace

Path parsePath(std::string_view text) { return PathParser(text).parse(); }

std::string quote(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default: out += c;
        }
    }
    return out + "\"";
}

std::string formatPath(const Path& path) {
    std::string out;
    if (!path.host.empty()) out += "//" + path.host + "/";
    if (!path.nameSpace.empty()) out += path.nameSpace + ":";
    out += path.className;
    for (size_t i = 0; i < path.keys.size(); ++i) {
        const Key& k = path.keys[i];
        out += i ? "," : ".";
        out += k.name;
        // A string that reads as a path says so, or it would come back a reference.
        if (k.kind == Key::Kind::String && PathParser::looksLikeReference(k.text)) out += ":string";
        out += "=";
        switch (k.kind) {
            case Key::Kind::String: out += quote(k.text); break;
            case Key::Kind::Reference: out += quote(k.ref ? formatPath(*k.ref) : ""); break;
            default: out += k.text;
        }
    }
    return out;
}

bool isKnownType(std::string_view name) {
    for (const char* t : kTypes)
        if (name == t) return true;
    return false;
}

Type parseType(std::string_view text) {
    Type t;
    std::string_view s = text;
    if (s.size() >= 2 && s.substr(s.size() - 2) == "[]") {
        t.array = true;
        s.remove_suffix(2);
    }
    std::string lower;
    for (char c : s) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (lower == "ref") lower = "reference";
    if (!isKnownType(lower))
        throw InputError("unknown type '" + std::string(text) + "' (uint8..uint64, sint8..sint64, real32, real64, "
                         "boolean, string, char16, datetime, ref; add [] for an array)");
    t.name = lower;
    return t;
}

Assignment parseAssignment(std::string_view text) {
    Assignment a;
    size_t eq = text.find('=');
    if (eq == std::string_view::npos) throw InputError("expected Name=value, got '" + std::string(text) + "'");
    std::string_view left = text.substr(0, eq);
    size_t colon = left.find(':');
    std::string_view name = left.substr(0, colon);
    if (name.empty() || !isIdentStart(name[0])) throw InputError("expected a name before '=' in '" + std::string(text) + "'");
    for (char c : name)
        if (!isIdentChar(c)) throw InputError("bad character in the name of '" + std::string(text) + "'");
    a.name = std::string(name);
    if (colon != std::string_view::npos) a.type = parseType(left.substr(colon + 1));
    a.value = std::string(text.substr(eq + 1));
    return a;
}

Value parseValue(std::string_view text, const Type& type) {
    Value v;
    if (text == "NULL") {
        v.isNull = true;
        return v;
    }
    std::vector<std::string_view> elements;
    if (type.array) {
        std::string_view inner = text;
        if (!inner.empty() && inner.front() == '[') {
            if (inner.size() < 2 || inner.back() != ']') throw InputError("'" + std::string(text) + "': missing ']'");
            inner = inner.substr(1, inner.size() - 2);
        }
        if (!trim(inner).empty())
            for (auto part : splitTopLevel(inner)) elements.push_back(trim(part));
    } else {
        elements.push_back(text);
    }
    for (auto element : elements) {
        std::string raw = unquoteElement(element);
        if (type.name == "reference") {
            try {
                v.refs.push_back(parsePath(raw));
            } catch (const InputError& e) {
                throw InputError(std::string("bad reference: ") + e.what());
            }
        } else {
            v.texts.push_back(checkScalar(raw, type.name, text));
        }
    }
    return v;
}

Url parseUrl(std::string_view text) {
    Url u;
    const std::string_view scheme = "http://";
    if (text.substr(0, scheme.size()) != scheme)
        throw InputError("CIMXML_URL '" + std::string(text) + "' must start with http://");
    std::string_view rest = text.substr(scheme.size());
    size_t slash = rest.find('/');
    std::string_view authority = rest.substr(0, slash);
    if (slash != std::string_view::npos) u.nameSpace = std::string(rest.substr(slash + 1));
    size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        std::string_view user = authority.substr(0, at);
        if (user.find(':') != std::string_view::npos)
            throw InputError("CIMXML_URL holds a password: put it in CIMXML_PASSWORD instead");
        u.user = std::string(user);
        authority.remove_prefix(at + 1);
    }
    size_t colon = authority.find(':');
    u.host = std::string(authority.substr(0, colon));
    if (u.host.empty()) throw InputError("CIMXML_URL '" + std::string(text) + "' has no host");
    if (colon != std::string_view::npos) {
        std::string port(authority.substr(colon + 1));
        char* end = nullptr;
        errno = 0;
        long n = std::strtol(port.c_str(), &end, 10);
        if (port.empty() || errno || *end || n < 1 || n > 65535)
            throw InputError("CIMXML_URL '" + std::string(text) + "' has a bad port");
        u.port = static_cast<int>(n);
    }
    while (!u.nameSpace.empty() && u.nameSpace.back() == '/') u.nameSpace.pop_back();
    return u;
}

std::string requestText(std::string_view text) {
    const char* wire = std::getenv("CIMXML_WIRE");
    if (wire && strcasecmp(wire, "standard") == 0) return std::string(text);
    return xmlEscape(text);
}

std::string xmlEscape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

}  // namespace cimcli
