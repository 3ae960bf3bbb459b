// MOF loader (DSP0221 subset used by hand-written fixtures).
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "cimmock/mof.h"

namespace cimmock {

MofError::MofError(const std::string& f, int l, int c, const std::string& m)
    : std::runtime_error(f + ":" + std::to_string(l) + ":" + std::to_string(c) + ": " + m),
      file(f), line(l), column(c), message(m) {}

namespace {

struct Tok {
  enum Kind { Ident, Int, Real, Str, Char, Alias, Punct, Pragma, End } kind = End;
  std::string text;  // Int: decimal text with sign; Str: unescaped; Punct: the character
  int line = 1, col = 1;
};

std::string describe(const Tok& t) {
  switch (t.kind) {
    case Tok::End: return "end of file";
    case Tok::Str: return "string \"" + t.text + "\"";
    case Tok::Alias: return "$" + t.text;
    case Tok::Pragma: return "#pragma";
    default: return "'" + t.text + "'";
  }
}

class Lexer {
public:
  Lexer(const std::string& text, const std::string& file) : s_(text), file_(file) {}

  [[noreturn]] void fail(int line, int col, const std::string& msg) const { throw MofError(file_, line, col, msg); }

  std::vector<Tok> run() {
    std::vector<Tok> out;
    while (true) {
      skipSpace();
      Tok t;
      t.line = line_;
      t.col = col_;
      if (i_ >= s_.size()) {
        t.kind = Tok::End;
        out.push_back(t);
        return out;
      }
      char c = s_[i_];
      if (c == '#') {
        size_t b = i_;
        while (i_ < s_.size() && (std::isalpha(static_cast<unsigned char>(s_[i_])) || s_[i_] == '#')) adv();
        std::string w = s_.substr(b, i_ - b);
        if (w != "#pragma") fail(t.line, t.col, "expected #pragma, found '" + w + "'");
        t.kind = Tok::Pragma;
        t.text = w;
      } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
        size_t b = i_;
        while (i_ < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[i_])) || s_[i_] == '_')) adv();
        t.kind = Tok::Ident;
        t.text = s_.substr(b, i_ - b);
      } else if (c == '$') {
        adv();
        size_t b = i_;
        while (i_ < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[i_])) || s_[i_] == '_')) adv();
        if (i_ == b) fail(t.line, t.col, "expected an alias name after '$'");
        t.kind = Tok::Alias;
        t.text = s_.substr(b, i_ - b);
      } else if (std::isdigit(static_cast<unsigned char>(c)) || c == '.' ||
                 ((c == '-' || c == '+') && i_ + 1 < s_.size() &&
                  (std::isdigit(static_cast<unsigned char>(s_[i_ + 1])) || s_[i_ + 1] == '.'))) {
        number(t);
      } else if (c == '"') {
        t.kind = Tok::Str;
        t.text = quoted('"');
      } else if (c == '\'') {
        t.kind = Tok::Char;
        t.text = quoted('\'');
        if (t.text.empty()) fail(t.line, t.col, "empty char16 literal");
      } else if (std::string("{}[]();,:=").find(c) != std::string::npos) {
        adv();
        t.kind = Tok::Punct;
        t.text = std::string(1, c);
      } else {
        fail(t.line, t.col, std::string("unexpected character '") + c + "'");
      }
      out.push_back(t);
    }
  }

private:
  void adv() {
    if (s_[i_] == '\n') { ++line_; col_ = 1; }
    else ++col_;
    ++i_;
  }
  void skipSpace() {
    while (i_ < s_.size()) {
      char c = s_[i_];
      if (std::isspace(static_cast<unsigned char>(c))) { adv(); continue; }
      if (c == '/' && i_ + 1 < s_.size() && s_[i_ + 1] == '/') {
        while (i_ < s_.size() && s_[i_] != '\n') adv();
        continue;
      }
      if (c == '/' && i_ + 1 < s_.size() && s_[i_ + 1] == '*') {
        int l = line_, co = col_;
        adv();
        adv();
        while (i_ + 1 < s_.size() && !(s_[i_] == '*' && s_[i_ + 1] == '/')) adv();
        if (i_ + 1 >= s_.size()) fail(l, co, "unterminated comment");
        adv();
        adv();
        continue;
      }
      break;
    }
  }
  void number(Tok& t) {
    size_t b = i_;
    bool neg = false;
    if (s_[i_] == '-' || s_[i_] == '+') { neg = s_[i_] == '-'; adv(); }
    size_t digitsStart = i_;
    while (i_ < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[i_])) || s_[i_] == '.' ||
                              ((s_[i_] == '-' || s_[i_] == '+') && (s_[i_ - 1] == 'e' || s_[i_ - 1] == 'E'))))
      adv();
    std::string body = s_.substr(digitsStart, i_ - digitsStart);
    std::string all = s_.substr(b, i_ - b);
    auto bad = [&]() { fail(t.line, t.col, "malformed number '" + all + "'"); };
    unsigned long long v = 0;
    auto accum = [&](int base, const std::string& digits) {
      if (digits.empty()) bad();
      for (char c : digits) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else { bad(); return; }
        if (d >= base) bad();
        if (v > (std::numeric_limits<unsigned long long>::max() - d) / base)
          fail(t.line, t.col, "integer '" + all + "' is too large");
        v = v * base + d;
      }
    };
    bool isReal = body.find('.') != std::string::npos ||
                  (body.find_first_of("eE") != std::string::npos && body.compare(0, 2, "0x") != 0 &&
                   body.compare(0, 2, "0X") != 0);
    if (isReal) {
      char* end = nullptr;
      std::strtod(all.c_str(), &end);
      if (end != all.c_str() + all.size()) bad();
      t.kind = Tok::Real;
      t.text = all;
      return;
    }
    if (body.size() > 2 && body[0] == '0' && (body[1] == 'x' || body[1] == 'X')) accum(16, body.substr(2));
    else if (body.size() > 1 && (body.back() == 'b' || body.back() == 'B')) accum(2, body.substr(0, body.size() - 1));
    else if (body.size() > 1 && body[0] == '0') accum(8, body.substr(1));
    else accum(10, body);
    t.kind = Tok::Int;
    t.text = (neg && v != 0 ? "-" : "") + std::to_string(v);
  }
  std::string quoted(char q) {
    int l = line_, c = col_;
    adv();
    std::string out;
    while (true) {
      if (i_ >= s_.size() || s_[i_] == '\n') fail(l, c, q == '"' ? "unterminated string" : "unterminated char16 literal");
      char ch = s_[i_];
      if (ch == q) { adv(); break; }
      if (ch == '\\') {
        int el = line_, ec = col_;
        adv();
        if (i_ >= s_.size()) fail(el, ec, "unterminated escape");
        char e = s_[i_];
        adv();
        switch (e) {
          case 'b': out += '\b'; break;
          case 't': out += '\t'; break;
          case 'n': out += '\n'; break;
          case 'f': out += '\f'; break;
          case 'r': out += '\r'; break;
          case '"': out += '"'; break;
          case '\'': out += '\''; break;
          case '\\': out += '\\'; break;
          case 'x':
          case 'X': {
            unsigned cp = 0;
            int n = 0;
            while (n < 4 && i_ < s_.size() && std::isxdigit(static_cast<unsigned char>(s_[i_]))) {
              char h = s_[i_];
              cp = cp * 16 + (std::isdigit(static_cast<unsigned char>(h)) ? h - '0' : (std::tolower(h) - 'a' + 10));
              adv();
              ++n;
            }
            if (n == 0) fail(el, ec, "expected hex digits after \\x");
            if (cp < 0x80) out += static_cast<char>(cp);
            else if (cp < 0x800) {
              out += static_cast<char>(0xC0 | (cp >> 6));
              out += static_cast<char>(0x80 | (cp & 0x3F));
            } else {
              out += static_cast<char>(0xE0 | (cp >> 12));
              out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
              out += static_cast<char>(0x80 | (cp & 0x3F));
            }
            break;
          }
          default: fail(el, ec, std::string("unknown escape '\\") + e + "'");
        }
        continue;
      }
      out += ch;
      adv();
    }
    return out;
  }

  const std::string& s_;
  std::string file_;
  size_t i_ = 0;
  int line_ = 1, col_ = 1;
};

// An untyped literal, converted once the target type is known.
struct Lit {
  enum Kind { Null, Int, Real, Str, Char, Bool, Alias, Array } kind = Null;
  std::string text;
  std::vector<Lit> items;
  int line = 0, col = 0;
};

struct RawQualifier {
  std::string name;
  bool hasValue = false;
  Lit value;
  std::vector<std::string> flavors;
  int line = 0, col = 0;
};

class Loader {
public:
  Loader(Repository& repo, const std::string& file, const MofOptions& opt, std::map<std::string, ObjectPath>* aliases,
         std::map<std::string, Instance>* aliasInstances, int depth)
      : repo_(repo), file_(file), ns_(opt.defaultNamespace), opt_(opt), aliases_(aliases),
        aliasInstances_(aliasInstances), depth_(depth) {}

  void load(const std::string& text) {
    toks_ = Lexer(text, file_).run();
    repo_.addNamespace(ns_);
    while (peek().kind != Tok::End) production();
  }

private:
  // ---- token helpers ----
  const Tok& peek(size_t k = 0) const { return toks_[std::min(p_ + k, toks_.size() - 1)]; }
  Tok take() {
    Tok t = peek();
    if (p_ < toks_.size() - 1) ++p_;
    return t;
  }
  [[noreturn]] void fail(const Tok& at, const std::string& msg) const { throw MofError(file_, at.line, at.col, msg); }
  [[noreturn]] void expected(const std::string& what) const { fail(peek(), "expected " + what + ", found " + describe(peek())); }
  bool isPunct(char c, size_t k = 0) const { return peek(k).kind == Tok::Punct && peek(k).text[0] == c; }
  bool isKw(const char* w, size_t k = 0) const { return peek(k).kind == Tok::Ident && iequals(peek(k).text, w); }
  void expect(char c) {
    if (!isPunct(c)) expected(std::string("'") + c + "'");
    take();
  }
  Tok ident(const std::string& what) {
    if (peek().kind != Tok::Ident) expected(what);
    return take();
  }

  // ---- productions ----
  void production() {
    if (peek().kind == Tok::Pragma) return pragma();
    if (isKw("qualifier")) return qualifierDecl();
    std::vector<RawQualifier> quals;
    if (isPunct('[')) quals = qualifierList();
    if (isKw("class")) return classDecl(quals);
    if (isKw("instance")) return instanceDecl(quals);
    expected("'class', 'instance', 'Qualifier' or '#pragma'");
  }

  void pragma() {
    take();
    Tok name = ident("a pragma name");
    expect('(');
    if (peek().kind != Tok::Str) expected("a string");
    Tok arg = take();
    while (peek().kind == Tok::Str) arg.text += take().text;
    expect(')');
    if (iequals(name.text, "namespace")) {
      std::string ns = arg.text;
      while (!ns.empty() && ns[0] == '/') ns.erase(0, 1);
      if (ns.empty()) fail(arg, "empty namespace name");
      ns_ = ns;
      repo_.addNamespace(ns_);
    } else if (iequals(name.text, "include")) {
      if (depth_ > 16) fail(name, "#pragma include nested too deeply");
      std::string path = arg.text;
      if (!path.empty() && path[0] != '/') {
        size_t slash = file_.rfind('/');
        if (slash != std::string::npos) path = file_.substr(0, slash + 1) + path;
      }
      std::ifstream in(path, std::ios::binary);
      if (!in) fail(arg, "cannot read included file " + path);
      std::stringstream ss;
      ss << in.rdbuf();
      MofOptions o = opt_;
      o.defaultNamespace = ns_;
      Loader sub(repo_, path, o, aliases_, aliasInstances_, depth_ + 1);
      sub.load(ss.str());
    }
    // other pragmas (locale, instancelocale, ...) are accepted and ignored
  }

  Lit literal() {
    Lit l;
    const Tok& t = peek();
    l.line = t.line;
    l.col = t.col;
    if (isPunct('{')) {
      take();
      l.kind = Lit::Array;
      if (!isPunct('}')) {
        while (true) {
          // Refused before descending: a long run of '{' must not exhaust the stack.
          if (isPunct('{')) fail(t, "nested arrays are not allowed");
          Lit item = literal();
          l.items.push_back(item);
          if (isPunct(',')) { take(); continue; }
          break;
        }
      }
      expect('}');
      return l;
    }
    switch (t.kind) {
      case Tok::Int: l.kind = Lit::Int; l.text = take().text; return l;
      case Tok::Real: l.kind = Lit::Real; l.text = take().text; return l;
      case Tok::Char: l.kind = Lit::Char; l.text = take().text; return l;
      case Tok::Alias: l.kind = Lit::Alias; l.text = take().text; return l;
      case Tok::Str:
        l.kind = Lit::Str;
        l.text = take().text;
        while (peek().kind == Tok::Str) l.text += take().text;  // "a" "b" concatenates
        return l;
      case Tok::Ident:
        if (iequals(t.text, "true") || iequals(t.text, "false")) {
          l.kind = Lit::Bool;
          l.text = iequals(take().text, "true") ? "TRUE" : "FALSE";
          return l;
        }
        if (iequals(t.text, "null")) { take(); l.kind = Lit::Null; return l; }
        break;
      default: break;
    }
    expected("a value");
  }

  Lit inferTyped(const Lit& l, Type* t) const {
    switch (l.kind) {
      case Lit::Int: *t = l.text[0] == '-' ? Type::Sint64 : Type::Uint64; break;
      case Lit::Real: *t = Type::Real64; break;
      case Lit::Bool: *t = Type::Boolean; break;
      case Lit::Alias: *t = Type::Reference; break;
      case Lit::Array:
        *t = Type::String;
        if (!l.items.empty()) inferTyped(l.items[0], t);
        break;
      default: *t = Type::String; break;
    }
    return l;
  }

  [[noreturn]] void litFail(const Lit& l, const std::string& msg) const { throw MofError(file_, l.line, l.col, msg); }

  [[noreturn]] void mismatch(const Lit& l, Type t, const std::string& what) const {
    static const char* names[] = {"NULL", "integer", "real", "string", "char16", "boolean", "alias", "array"};
    litFail(l, "type mismatch for " + what + ": " + names[l.kind] + " value for a " + typeName(t));
  }

  std::string scalarText(const Lit& l, Type t, const std::string& what) const {
    try {
      switch (l.kind) {
        case Lit::Int:
          if (isIntegerType(t)) return canonicalText(t, l.text);
          if (isRealType(t)) return l.text;
          mismatch(l, t, what);
        case Lit::Real:
          if (isRealType(t)) return l.text;
          mismatch(l, t, what);
        case Lit::Bool:
          if (t == Type::Boolean) return l.text;
          mismatch(l, t, what);
        case Lit::Char:
          if (t == Type::Char16 || t == Type::String) return canonicalText(Type::Char16, l.text);
          mismatch(l, t, what);
        case Lit::Str:
          if (t == Type::String || t == Type::DateTime || t == Type::Char16) return canonicalText(t, l.text);
          mismatch(l, t, what);
        default: mismatch(l, t, what);
      }
    } catch (const CimError& e) {
      litFail(l, "bad value for " + what + ": " + e.what());
    }
  }

  // Converts a literal for a target of type t (array or scalar).
  // embedded: the target is an EmbeddedInstance/EmbeddedObject string.
  Value toValue(const Lit& l, Type t, bool isArray, const std::string& what, bool embedded = false) const {
    Value v = Value::null(t, isArray);
    if (l.kind == Lit::Null) return v;
    std::vector<const Lit*> items;
    if (l.kind == Lit::Array) {
      if (!isArray) litFail(l, "array value for scalar " + what);
      for (const auto& x : l.items) items.push_back(&x);
    } else {
      if (isArray) litFail(l, "scalar value for array " + what + " (use { ... })");
      items.push_back(&l);
    }
    v.isNull = false;
    for (const Lit* x : items) {
      if (x->kind == Lit::Null) litFail(*x, "NULL inside an array");
      if (t == Type::Reference) {
        if (x->kind == Lit::Alias) v.refs.push_back(aliasPath(*x));
        else if (x->kind == Lit::Str) {
          try {
            ObjectPath p = ObjectPath::parse(x->text);
            v.refs.push_back(p);
          } catch (const CimError& e) {
            litFail(*x, e.what());
          }
        } else litFail(*x, "type mismatch for " + what + ": expected an alias or an object path string");
      } else if (embedded && x->kind == Lit::Alias) {
        auto it = aliasInstances_->find(toLower(x->text));
        if (it == aliasInstances_->end()) litFail(*x, "undefined alias $" + x->text);
        v.embedded.push_back(std::make_shared<Instance>(it->second));
      } else {
        if (x->kind == Lit::Alias) litFail(*x, "alias $" + x->text + " used for non-reference " + what);
        v.texts.push_back(scalarText(*x, t, what));
      }
    }
    return v;
  }

  ObjectPath aliasPath(const Lit& l) const {
    auto it = aliases_->find(toLower(l.text));
    if (it == aliases_->end()) litFail(l, "undefined alias $" + l.text);
    return it->second;
  }

  std::vector<RawQualifier> qualifierList() {
    expect('[');
    std::vector<RawQualifier> out;
    while (true) {
      RawQualifier q;
      Tok n = ident("a qualifier name");
      q.name = n.text;
      q.line = n.line;
      q.col = n.col;
      if (isPunct('(')) {
        take();
        q.hasValue = true;
        q.value = literal();
        expect(')');
      } else if (isPunct('{')) {
        q.hasValue = true;
        q.value = literal();
      }
      if (isPunct(':')) {
        take();
        while (peek().kind == Tok::Ident) q.flavors.push_back(take().text);
      }
      out.push_back(q);
      if (isPunct(',')) { take(); continue; }
      break;
    }
    expect(']');
    return out;
  }

  void applyFlavors(Flavor& f, const std::vector<std::string>& names, const Tok* at) const {
    for (const auto& n : names) {
      if (iequals(n, "EnableOverride")) f.overridable = true;
      else if (iequals(n, "DisableOverride")) f.overridable = false;
      else if (iequals(n, "ToSubclass")) f.toSubclass = true;
      else if (iequals(n, "Restricted")) f.toSubclass = false;
      else if (iequals(n, "Translatable")) f.translatable = true;
      else if (iequals(n, "ToInstance")) {
      } else if (at) fail(*at, "unknown flavor " + n);
    }
  }

  QualifierList resolveQualifiers(const std::vector<RawQualifier>& raw) const {
    QualifierList out;
    for (const auto& r : raw) {
      Qualifier q;
      const QualifierDecl* d = repo_.qualifierDecl(ns_, r.name);
      q.name = d ? d->name : r.name;
      if (d) q.flavor = d->flavor;
      applyFlavors(q.flavor, r.flavors, nullptr);
      Type t;
      bool arr;
      if (d) {
        t = d->type;
        arr = d->isArray;
      } else {
        inferTyped(r.value, &t);
        arr = r.value.kind == Lit::Array;
        if (!r.hasValue) t = Type::Boolean;
      }
      if (!r.hasValue) {
        if (t == Type::Boolean && !arr) q.value = Value::boolean(true);
        else if (d) q.value = d->defaultValue;
        else q.value = Value::null(t, arr);
      } else {
        Lit v = r.value;
        if (arr && v.kind != Lit::Array && v.kind != Lit::Null) {  // Qualifier(x) for an array qualifier
          Lit a;
          a.kind = Lit::Array;
          a.line = v.line;
          a.col = v.col;
          a.items.push_back(v);
          v = a;
        }
        q.value = toValue(v, t, arr, "qualifier " + r.name);
      }
      for (const auto& x : out)
        if (iequals(x.name, q.name)) throw MofError(file_, r.line, r.col, "duplicate qualifier " + r.name);
      out.push_back(q);
    }
    return out;
  }

  void qualifierDecl() {
    take();  // Qualifier
    Tok n = ident("a qualifier name");
    QualifierDecl d;
    d.name = n.text;
    expect(':');
    Tok t = ident("a type");
    if (!parseTypeName(t.text, &d.type) || d.type == Type::Reference) fail(t, "unknown type " + t.text);
    if (isPunct('[')) {
      take();
      d.isArray = true;
      if (peek().kind == Tok::Int) d.arraySize = std::stoi(take().text);
      expect(']');
    }
    d.defaultValue = Value::null(d.type, d.isArray);
    if (isPunct('=')) {
      take();
      d.defaultValue = toValue(literal(), d.type, d.isArray, "qualifier " + d.name);
    }
    while (isPunct(',')) {
      take();
      Tok kw = ident("Scope or Flavor");
      expect('(');
      std::vector<std::string> names;
      while (peek().kind == Tok::Ident) {
        names.push_back(take().text);
        if (isPunct(',')) take();
      }
      expect(')');
      if (iequals(kw.text, "scope")) {
        for (auto& s : names) d.scopes.push_back(toLower(s));
      } else if (iequals(kw.text, "flavor")) {
        applyFlavors(d.flavor, names, &kw);
      } else {
        fail(kw, "expected Scope or Flavor, found '" + kw.text + "'");
      }
    }
    expect(';');
    repo_.addQualifierDecl(ns_, d);
  }

  bool hasBoolQualifier(const QualifierList& q, const char* name) const {
    const Qualifier* x = findQualifier(q, name);
    return x && x->value.asText() == "TRUE";
  }

  void classDecl(const std::vector<RawQualifier>& rawQuals) {
    take();  // class
    Tok name = ident("a class name");
    Class c;
    c.name = name.text;
    c.qualifiers = resolveQualifiers(rawQuals);
    Tok superTok = name;
    if (isPunct(':')) {
      take();
      superTok = ident("a superclass name");
      c.superClass = superTok.text;
    }
    const Class* super = c.superClass.empty() ? nullptr : repo_.findClass(ns_, c.superClass);
    if (!c.superClass.empty() && !super) fail(superTok, "superclass " + c.superClass + " of " + c.name + " is not declared");
    expect('{');
    while (!isPunct('}')) feature(c, super);
    expect('}');
    expect(';');
    try {
      repo_.addClass(ns_, c);
    } catch (const CimError& e) {
      fail(name, e.what());
    }
  }

  void feature(Class& c, const Class* super) {
    std::vector<RawQualifier> raw;
    if (isPunct('[')) raw = qualifierList();
    QualifierList quals = resolveQualifiers(raw);
    Tok typeTok = ident("a type or a class name");
    Type t;
    std::string refClass;
    if (isKw("ref")) {
      take();
      t = Type::Reference;
      refClass = typeTok.text;
    } else if (!parseTypeName(typeTok.text, &t) || t == Type::Reference) {
      fail(typeTok, "unknown type " + typeTok.text);
    }
    Tok n = ident("a property or method name");
    if (isPunct('(')) {
      take();
      Method m;
      m.name = n.text;
      m.returnType = t;
      m.qualifiers = quals;
      if (t == Type::Reference) fail(typeTok, "methods returning references are not supported");
      while (!isPunct(')')) {
        std::vector<RawQualifier> praw;
        if (isPunct('[')) praw = qualifierList();
        Parameter p;
        p.qualifiers = resolveQualifiers(praw);
        Tok pt = ident("a parameter type");
        if (isKw("ref")) {
          take();
          p.type = Type::Reference;
          p.referenceClass = pt.text;
        } else if (!parseTypeName(pt.text, &p.type) || p.type == Type::Reference) {
          fail(pt, "unknown type " + pt.text);
        }
        p.name = ident("a parameter name").text;
        if (isPunct('[')) {
          take();
          p.isArray = true;
          if (peek().kind == Tok::Int) p.arraySize = std::stoi(take().text);
          expect(']');
        }
        m.parameters.push_back(p);
        if (isPunct(',')) { take(); continue; }
        if (!isPunct(')')) expected("',' or ')'");
      }
      expect(')');
      expect(';');
      for (const auto& x : c.methods)
        if (iequals(x.name, m.name)) fail(n, "duplicate method " + m.name);
      c.methods.push_back(m);
      return;
    }
    Property p;
    p.name = n.text;
    p.type = t;
    p.referenceClass = refClass;
    p.qualifiers = quals;
    if (isPunct('[')) {
      take();
      p.isArray = true;
      if (peek().kind == Tok::Int) p.arraySize = std::stoi(take().text);
      expect(']');
    }
    // Qualifiers inherited from an overridden property count for typing.
    bool embedded = findQualifier(quals, "EmbeddedInstance") || findQualifier(quals, "EmbeddedObject");
    if (super)
      if (const Property* sp = super->findProperty(p.name))
        embedded = embedded || !sp->embeddedClass().empty();
    p.value = Value::null(t, p.isArray);
    if (isPunct('=')) {
      take();
      p.value = toValue(literal(), t, p.isArray, "property " + c.name + "." + p.name, embedded);
    }
    expect(';');
    for (const auto& x : c.properties)
      if (iequals(x.name, p.name)) fail(n, "duplicate property " + p.name);
    c.properties.push_back(p);
  }

  void instanceDecl(const std::vector<RawQualifier>& rawQuals) {
    Tok start = take();  // instance
    if (!isKw("of")) expected("'of'");
    take();
    Tok cn = ident("a class name");
    const Class* c = repo_.findClass(ns_, cn.text);
    if (!c) fail(cn, "class " + cn.text + " is not declared in namespace " + ns_);
    Instance inst;
    inst.className = c->name;
    inst.qualifiers = resolveQualifiers(rawQuals);
    std::string alias;
    Tok aliasTok;
    if (isKw("as")) {
      take();
      if (peek().kind != Tok::Alias) expected("an alias ($name)");
      aliasTok = take();
      alias = aliasTok.text;
      if (aliases_->count(toLower(alias))) fail(aliasTok, "alias $" + alias + " is already defined");
    }
    expect('{');
    while (!isPunct('}')) {
      if (isPunct('[')) qualifierList();  // property qualifiers in instances are ignored
      Tok pn = ident("a property name");
      const Property* cp = c->findProperty(pn.text);
      if (!cp) fail(pn, "class " + c->name + " has no property " + pn.text);
      expect('=');
      Value v = toValue(literal(), cp->type, cp->isArray, "property " + c->name + "." + cp->name,
                        !cp->embeddedClass().empty());
      if (inst.findProperty(cp->name)) fail(pn, "property " + cp->name + " is set twice");
      Property ip;
      ip.name = cp->name;
      ip.type = cp->type;
      ip.isArray = cp->isArray;
      ip.value = v;
      inst.properties.push_back(ip);
      expect(';');
    }
    expect('}');
    expect(';');
    ObjectPath path;
    if (c->keyNames().empty() && !alias.empty()) {
      // Keyless instances (typically embedded-instance values) are kept as
      // alias values only; they are not stored in the repository.
      path.nameSpace = ns_;
      path.className = c->name;
    } else {
      try {
        path = repo_.createInstance(ns_, inst);
      } catch (const CimError& e) {
        fail(start, e.what());
      }
    }
    if (!alias.empty()) {
      (*aliases_)[toLower(alias)] = path;
      Instance full = inst;
      (*aliasInstances_)[toLower(alias)] = full;
    }
  }

  Repository& repo_;
  std::string file_;
  std::string ns_;
  MofOptions opt_;
  std::map<std::string, ObjectPath>* aliases_;
  std::map<std::string, Instance>* aliasInstances_;
  int depth_;
  std::vector<Tok> toks_;
  size_t p_ = 0;
};

}  // namespace

void loadMofText(Repository& repo, const std::string& text, const std::string& fileName, const MofOptions& options) {
  std::map<std::string, ObjectPath> aliases;
  std::map<std::string, Instance> aliasInstances;
  Loader l(repo, fileName, options, &aliases, &aliasInstances, 0);
  l.load(text);
}

void loadMofFile(Repository& repo, const std::string& path, const MofOptions& options) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw MofError(path, 0, 0, "cannot read file");
  std::stringstream ss;
  ss << in.rdbuf();
  loadMofText(repo, ss.str(), path, options);
}

std::string sampleRepositoryDir() {
  if (const char* e = std::getenv("CIMMOCK_SAMPLE_DIR"))
    if (*e) return e;
#ifdef CIMMOCK_SAMPLE_DIR
  const std::string built = CIMMOCK_SAMPLE_DIR;
#else
  const std::string built = "testing/mof";
#endif
  std::error_code ec;
  if (std::filesystem::is_directory(built, ec)) return built;
  // An installed copy: <prefix>/bin/<program> next to <prefix>/share/cimxmlclient/mof.
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const auto installed = exe.parent_path().parent_path() / "share" / "cimxmlclient" / "mof";
    if (std::filesystem::is_directory(installed, ec)) return installed.string();
  }
  return built;
}

std::vector<std::string> sampleMofFiles() {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(sampleRepositoryDir(), ec))
    if (e.path().extension() == ".mof") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace cimmock
