// Types, canonical value texts, object paths.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>

#include "cimmock/repository.h"

namespace cimmock {

namespace {
struct TypeEntry { Type t; const char* name; };
const TypeEntry kTypes[] = {
    {Type::Boolean, "boolean"}, {Type::String, "string"},   {Type::Char16, "char16"},
    {Type::DateTime, "datetime"}, {Type::Uint8, "uint8"},   {Type::Sint8, "sint8"},
    {Type::Uint16, "uint16"},   {Type::Sint16, "sint16"},   {Type::Uint32, "uint32"},
    {Type::Sint32, "sint32"},   {Type::Uint64, "uint64"},   {Type::Sint64, "sint64"},
    {Type::Real32, "real32"},   {Type::Real64, "real64"},   {Type::Reference, "reference"},
};

std::string trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

[[noreturn]] void mismatch(Type t, const std::string& text) {
  throw CimError(CIM_ERR_TYPE_MISMATCH, "value '" + text + "' is not a valid " + typeName(t));
}

// Parses decimal or 0x-hex integer text; false on syntax error or overflow.
bool parseInteger(const std::string& s, bool* negative, unsigned long long* mag) {
  if (s.empty()) return false;
  size_t i = 0;
  *negative = false;
  if (s[i] == '+' || s[i] == '-') { *negative = s[i] == '-'; ++i; }
  if (i >= s.size()) return false;
  int base = 10;
  if (s.size() - i > 2 && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X')) { base = 16; i += 2; }
  unsigned long long v = 0;
  for (; i < s.size(); ++i) {
    int d;
    char c = s[i];
    if (c >= '0' && c <= '9') d = c - '0';
    else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
    else if (base == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
    else return false;
    if (v > (std::numeric_limits<unsigned long long>::max() - d) / base) return false;
    v = v * base + d;
  }
  *mag = v;
  return true;
}

void intRange(Type t, long double* lo, long double* hi) {
  switch (t) {
    case Type::Uint8: *lo = 0; *hi = 255; break;
    case Type::Sint8: *lo = -128; *hi = 127; break;
    case Type::Uint16: *lo = 0; *hi = 65535; break;
    case Type::Sint16: *lo = -32768; *hi = 32767; break;
    case Type::Uint32: *lo = 0; *hi = 4294967295.0L; break;
    case Type::Sint32: *lo = -2147483648.0L; *hi = 2147483647.0L; break;
    case Type::Uint64: *lo = 0; *hi = 18446744073709551615.0L; break;
    default: *lo = -9223372036854775808.0L; *hi = 9223372036854775807.0L; break;
  }
}

size_t utf8Count(const std::string& s) {
  size_t n = 0;
  for (unsigned char c : s)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}
}  // namespace

const char* typeName(Type t) {
  for (const auto& e : kTypes)
    if (e.t == t) return e.name;
  return "string";
}

bool parseTypeName(const std::string& name, Type* out) {
  for (const auto& e : kTypes)
    if (iequals(name, e.name)) { *out = e.t; return true; }
  if (iequals(name, "ref")) { *out = Type::Reference; return true; }
  return false;
}

bool isIntegerType(Type t) { return t >= Type::Uint8 && t <= Type::Sint64; }
bool isSignedType(Type t) {
  return t == Type::Sint8 || t == Type::Sint16 || t == Type::Sint32 || t == Type::Sint64;
}
bool isRealType(Type t) { return t == Type::Real32 || t == Type::Real64; }

bool iequals(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

std::string toLower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string canonicalText(Type t, const std::string& text) {
  switch (t) {
    case Type::String:
      return text;
    case Type::Char16:
      if (utf8Count(text) != 1) mismatch(t, text);
      return text;
    case Type::Boolean: {
      std::string s = trim(text);
      if (iequals(s, "true")) return "TRUE";
      if (iequals(s, "false")) return "FALSE";
      mismatch(t, text);
    }
    case Type::DateTime: {
      std::string s = trim(text);
      if (s.size() != 25 || s[14] != '.' || (s[21] != '+' && s[21] != '-' && s[21] != ':')) mismatch(t, text);
      for (size_t i = 0; i < 25; ++i) {
        if (i == 14 || i == 21) continue;
        if (!std::isdigit(static_cast<unsigned char>(s[i])) && s[i] != '*') mismatch(t, text);
      }
      return s;
    }
    case Type::Real32:
    case Type::Real64: {
      std::string s = trim(text);
      if (s.empty()) mismatch(t, text);
      char* end = nullptr;
      errno = 0;
      std::strtod(s.c_str(), &end);
      if (end != s.c_str() + s.size()) mismatch(t, text);
      return s;
    }
    case Type::Reference:
      return ObjectPath::parse(text).toString();
    default: {
      std::string s = trim(text);
      bool neg;
      unsigned long long mag;
      if (!parseInteger(s, &neg, &mag)) mismatch(t, text);
      long double lo, hi;
      intRange(t, &lo, &hi);
      long double v = neg ? -static_cast<long double>(mag) : static_cast<long double>(mag);
      if (v < lo || v > hi) mismatch(t, text);
      if (neg && mag != 0) return "-" + std::to_string(mag);
      return std::to_string(mag);
    }
  }
}

int compareValues(Type t, const std::string& a, const std::string& b) {
  if (isIntegerType(t)) {
    bool na, nb;
    unsigned long long ma, mb;
    if (parseInteger(trim(a), &na, &ma) && parseInteger(trim(b), &nb, &mb)) {
      if (ma == 0) na = false;
      if (mb == 0) nb = false;
      if (na != nb) return na ? -1 : 1;
      if (ma == mb) return 0;
      bool less = ma < mb;
      if (na) less = !less;
      return less ? -1 : 1;
    }
  } else if (isRealType(t)) {
    char *ea, *eb;
    double da = std::strtod(a.c_str(), &ea), db = std::strtod(b.c_str(), &eb);
    return da < db ? -1 : (da > db ? 1 : 0);
  } else if (t == Type::Boolean) {
    bool ba = iequals(trim(a), "true"), bb = iequals(trim(b), "true");
    return ba == bb ? 0 : (ba ? 1 : -1);
  } else if (t == Type::Reference) {
    try {
      return samePath(ObjectPath::parse(a), ObjectPath::parse(b)) ? 0 : (a < b ? -1 : 1);
    } catch (const CimError&) {
    }
  }
  return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
}

// ---- KeyBinding / ObjectPath -------------------------------------------------

const char* KeyBinding::valueType() const {
  if (type == Type::Boolean) return "boolean";
  if (isIntegerType(type) || isRealType(type)) return "numeric";
  return "string";
}

namespace {
std::string quote(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}
}  // namespace

std::string ObjectPath::toString() const {
  std::string out;
  if (!host.empty()) out += "//" + host + "/";
  if (!nameSpace.empty()) out += nameSpace + ":";
  out += className;
  std::vector<const KeyBinding*> sorted;
  for (const auto& k : keys) sorted.push_back(&k);
  std::sort(sorted.begin(), sorted.end(),
            [](const KeyBinding* a, const KeyBinding* b) { return toLower(a->name) < toLower(b->name); });
  for (size_t i = 0; i < sorted.size(); ++i) {
    const KeyBinding& k = *sorted[i];
    out += i == 0 ? "." : ",";
    out += k.name + "=";
    if (k.type == Type::Reference && k.ref) out += quote(k.ref->toString());
    else if (k.type == Type::Boolean || isIntegerType(k.type) || isRealType(k.type)) out += k.text;
    else out += quote(k.text);
  }
  return out;
}

ObjectPath ObjectPath::parse(const std::string& textIn) {
  std::string text = trim(textIn);
  ObjectPath p;
  size_t i = 0;
  auto bad = [&](const char* why) -> CimError {
    return CimError(CIM_ERR_INVALID_PARAMETER, std::string("bad object path '") + textIn + "': " + why);
  };
  if (text.compare(0, 2, "//") == 0) {
    size_t slash = text.find('/', 2);
    if (slash == std::string::npos) throw bad("host without namespace");
    p.host = text.substr(2, slash - 2);
    i = slash + 1;
  }
  // namespace: up to ':' that comes before any '.' or '"'
  size_t colon = text.find(':', i);
  size_t dot = text.find('.', i);
  size_t quoteAt = text.find('"', i);
  if (colon != std::string::npos && (dot == std::string::npos || colon < dot) &&
      (quoteAt == std::string::npos || colon < quoteAt)) {
    p.nameSpace = text.substr(i, colon - i);
    i = colon + 1;
  }
  size_t end = text.find('.', i);
  p.className = trim(text.substr(i, end == std::string::npos ? std::string::npos : end - i));
  if (p.className.empty()) throw bad("no class name");
  if (end == std::string::npos) return p;
  i = end + 1;
  while (i < text.size()) {
    size_t eq = text.find('=', i);
    if (eq == std::string::npos) throw bad("key without '='");
    KeyBinding kb;
    kb.name = trim(text.substr(i, eq - i));
    if (kb.name.empty()) throw bad("empty key name");
    i = eq + 1;
    while (i < text.size() && text[i] == ' ') ++i;
    if (i < text.size() && (text[i] == '"' || text[i] == '\'')) {
      char q = text[i++];
      std::string v;
      while (i < text.size() && text[i] != q) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        v += text[i++];
      }
      if (i >= text.size()) throw bad("unterminated string");
      ++i;
      kb.type = Type::String;
      kb.text = v;
    } else {
      size_t comma = text.find(',', i);
      std::string v = trim(text.substr(i, comma == std::string::npos ? std::string::npos : comma - i));
      i = comma == std::string::npos ? text.size() : comma;
      if (iequals(v, "true") || iequals(v, "false")) {
        kb.type = Type::Boolean;
        kb.text = iequals(v, "true") ? "TRUE" : "FALSE";
      } else {
        try {
          kb.type = !v.empty() && v[0] == '-' ? Type::Sint64 : Type::Uint64;
          kb.text = canonicalText(kb.type, v);
        } catch (const CimError&) {
          kb.type = Type::Real64;
          kb.text = canonicalText(Type::Real64, v);
        }
      }
    }
    p.keys.push_back(kb);
    while (i < text.size() && text[i] == ' ') ++i;
    if (i < text.size()) {
      if (text[i] != ',') throw bad("expected ','");
      ++i;
    }
  }
  return p;
}

namespace {
bool sameKeyValue(const KeyBinding& a, const KeyBinding& b) {
  auto pathOfKey = [](const KeyBinding& k) -> ObjectPath {
    if (k.ref) return *k.ref;
    return ObjectPath::parse(k.text);
  };
  try {
    if (a.type == Type::Reference || b.type == Type::Reference) return samePath(pathOfKey(a), pathOfKey(b));
    Type t = a.type;
    if (t == Type::String && b.type != Type::String) t = b.type;
    if (t == Type::String || t == Type::DateTime || t == Type::Char16) return a.text == b.text;
    return compareValues(t, canonicalText(t, a.text), canonicalText(t, b.text)) == 0;
  } catch (const CimError&) {
    return a.text == b.text;
  }
}
}  // namespace

bool samePath(const ObjectPath& a, const ObjectPath& b) {
  if (!iequals(a.className, b.className)) return false;
  if (!a.nameSpace.empty() && !b.nameSpace.empty() && !iequals(a.nameSpace, b.nameSpace)) return false;
  if (a.keys.size() != b.keys.size()) return false;
  for (const auto& ka : a.keys) {
    bool found = false;
    for (const auto& kb : b.keys)
      if (iequals(ka.name, kb.name)) { found = sameKeyValue(ka, kb); break; }
    if (!found) return false;
  }
  return true;
}

// ---- Value ---------------------------------------------------------------------

Value Value::null(Type t, bool array) {
  Value v;
  v.type = t;
  v.isArray = array;
  return v;
}
Value Value::str(const std::string& s) { return text(Type::String, s); }
Value Value::boolean(bool b) { return text(Type::Boolean, b ? "TRUE" : "FALSE"); }
Value Value::uint(Type t, std::uint64_t v) { return text(t, std::to_string(v)); }
Value Value::sint(Type t, std::int64_t v) { return text(t, std::to_string(v)); }
Value Value::text(Type t, const std::string& canonical) {
  Value v;
  v.type = t;
  v.isNull = false;
  v.texts.push_back(canonical);
  return v;
}
Value Value::reference(const ObjectPath& p) {
  Value v;
  v.type = Type::Reference;
  v.isNull = false;
  v.refs.push_back(p);
  return v;
}
Value Value::embeddedInstance(const Instance& inst) {
  Value v;
  v.type = Type::String;
  v.isNull = false;
  v.embedded.push_back(std::make_shared<Instance>(inst));
  return v;
}
std::size_t Value::size() const {
  if (type == Type::Reference) return refs.size();
  if (!embedded.empty()) return embedded.size();
  return texts.size();
}
std::string Value::asText() const {
  if (isNull) return "";
  if (type == Type::Reference) return refs.empty() ? "" : refs[0].toString();
  return texts.empty() ? "" : texts[0];
}

}  // namespace cimmock
