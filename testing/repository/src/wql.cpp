// A small WQL subset for ExecQuery.
#include <cctype>
#include <memory>

#include "cimmock/repository.h"

namespace cimmock {

namespace {

struct Tok {
  enum Kind { Ident, Str, Num, Op, LParen, RParen, Comma, Star, End } kind;
  std::string text;
};

[[noreturn]] void invalid(const std::string& why) { throw CimError(CIM_ERR_INVALID_QUERY, "invalid query: " + why); }

std::vector<Tok> lex(const std::string& q) {
  std::vector<Tok> out;
  size_t i = 0;
  while (i < q.size()) {
    char c = q[i];
    if (std::isspace(static_cast<unsigned char>(c))) { ++i; continue; }
    if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
      size_t b = i;
      while (i < q.size() && (std::isalnum(static_cast<unsigned char>(q[i])) || q[i] == '_' || q[i] == '.')) ++i;
      out.push_back({Tok::Ident, q.substr(b, i - b)});
    } else if (std::isdigit(static_cast<unsigned char>(c)) ||
               ((c == '-' || c == '+') && i + 1 < q.size() && std::isdigit(static_cast<unsigned char>(q[i + 1])))) {
      size_t b = i++;
      while (i < q.size() && (std::isalnum(static_cast<unsigned char>(q[i])) || q[i] == '.' ||
                              ((q[i] == '-' || q[i] == '+') && (q[i - 1] == 'e' || q[i - 1] == 'E'))))
        ++i;
      out.push_back({Tok::Num, q.substr(b, i - b)});
    } else if (c == '\'' || c == '"') {
      std::string s;
      ++i;
      while (true) {
        if (i >= q.size()) invalid("unterminated string");
        if (q[i] == c) {
          if (i + 1 < q.size() && q[i + 1] == c) { s += c; i += 2; continue; }
          ++i;
          break;
        }
        if (q[i] == '\\' && i + 1 < q.size()) ++i;
        s += q[i++];
      }
      out.push_back({Tok::Str, s});
    } else if (c == '(') { out.push_back({Tok::LParen, "("}); ++i; }
    else if (c == ')') { out.push_back({Tok::RParen, ")"}); ++i; }
    else if (c == ',') { out.push_back({Tok::Comma, ","}); ++i; }
    else if (c == '*') { out.push_back({Tok::Star, "*"}); ++i; }
    else if (c == '=' ) { out.push_back({Tok::Op, "="}); ++i; }
    else if (c == '<' || c == '>' || c == '!') {
      std::string op(1, c);
      ++i;
      if (i < q.size() && (q[i] == '=' || (c == '<' && q[i] == '>'))) op += q[i++];
      if (op == "!") invalid("'!' alone");
      out.push_back({Tok::Op, op});
    } else {
      invalid(std::string("unexpected character '") + c + "'");
    }
  }
  out.push_back({Tok::End, ""});
  return out;
}

struct Node {
  enum Kind { And, Or, Not, Cmp, IsNull, IsNotNull } kind;
  std::unique_ptr<Node> a, b;
  std::string prop, op;
  Tok lit{Tok::End, ""};
};

struct Parser {
  std::vector<Tok> t;
  size_t i = 0;
  const Tok& peek() const { return t[i]; }
  bool kw(const char* w) const { return t[i].kind == Tok::Ident && iequals(t[i].text, w); }
  Tok take() { return t[i++]; }
  std::unique_ptr<Node> orExpr() {
    auto l = andExpr();
    while (kw("OR")) {
      ++i;
      auto n = std::make_unique<Node>();
      n->kind = Node::Or;
      n->a = std::move(l);
      n->b = andExpr();
      l = std::move(n);
    }
    return l;
  }
  std::unique_ptr<Node> andExpr() {
    auto l = notExpr();
    while (kw("AND")) {
      ++i;
      auto n = std::make_unique<Node>();
      n->kind = Node::And;
      n->a = std::move(l);
      n->b = notExpr();
      l = std::move(n);
    }
    return l;
  }
  std::unique_ptr<Node> notExpr() {
    if (kw("NOT")) {
      ++i;
      auto n = std::make_unique<Node>();
      n->kind = Node::Not;
      n->a = notExpr();
      return n;
    }
    if (peek().kind == Tok::LParen) {
      ++i;
      auto n = orExpr();
      if (peek().kind != Tok::RParen) invalid("expected ')'");
      ++i;
      return n;
    }
    return cmp();
  }
  bool isLiteral(const Tok& x) const {
    return x.kind == Tok::Str || x.kind == Tok::Num ||
           (x.kind == Tok::Ident && (iequals(x.text, "TRUE") || iequals(x.text, "FALSE") || iequals(x.text, "NULL")));
  }
  std::unique_ptr<Node> cmp() {
    auto n = std::make_unique<Node>();
    Tok first = take();
    if (first.kind == Tok::Ident && !isLiteral(first)) {
      n->prop = first.text;
      if (kw("IS")) {
        ++i;
        bool neg = false;
        if (kw("NOT")) { ++i; neg = true; }
        if (!kw("NULL")) invalid("expected NULL after IS");
        ++i;
        n->kind = neg ? Node::IsNotNull : Node::IsNull;
        return n;
      }
      if (peek().kind == Tok::Op) n->op = take().text;
      else if (kw("LIKE")) { ++i; n->op = "LIKE"; }
      else invalid("expected an operator after " + first.text);
      if (!isLiteral(peek())) invalid("expected a literal after " + n->op);
      n->lit = take();
    } else if (isLiteral(first)) {
      // literal op property: flip.
      if (peek().kind != Tok::Op) invalid("expected an operator");
      std::string op = take().text;
      if (peek().kind != Tok::Ident) invalid("expected a property name");
      n->prop = take().text;
      n->lit = first;
      if (op == "<") op = ">";
      else if (op == ">") op = "<";
      else if (op == "<=") op = ">=";
      else if (op == ">=") op = "<=";
      n->op = op;
    } else {
      invalid("expected a condition");
    }
    n->kind = Node::Cmp;
    return n;
  }
};

bool like(const std::string& s, const std::string& pat, size_t si = 0, size_t pi = 0) {
  while (pi < pat.size()) {
    if (pat[pi] == '%') {
      for (size_t k = si; k <= s.size(); ++k)
        if (like(s, pat, k, pi + 1)) return true;
      return false;
    }
    if (si >= s.size()) return false;
    if (pat[pi] != '_' && pat[pi] != s[si]) return false;
    ++si;
    ++pi;
  }
  return si == s.size();
}

bool eval(const Node& n, const Instance& inst) {
  switch (n.kind) {
    case Node::And: return eval(*n.a, inst) && eval(*n.b, inst);
    case Node::Or: return eval(*n.a, inst) || eval(*n.b, inst);
    case Node::Not: return !eval(*n.a, inst);
    case Node::IsNull:
    case Node::IsNotNull: {
      const Property* p = inst.findProperty(n.prop);
      bool isNull = !p || p->value.isNull;
      return n.kind == Node::IsNull ? isNull : !isNull;
    }
    case Node::Cmp: {
      const Property* p = inst.findProperty(n.prop);
      if (!p || p->value.isNull || p->value.isArray) return false;
      if (n.lit.kind == Tok::Ident && iequals(n.lit.text, "NULL")) return false;
      std::string lit = n.lit.text;
      std::string val = p->value.asText();
      if (n.op == "LIKE") return like(val, lit);
      int c;
      try {
        if (p->type == Type::String || p->type == Type::Char16 || p->type == Type::DateTime ||
            p->type == Type::Reference)
          c = val.compare(lit) < 0 ? -1 : (val == lit ? 0 : 1);
        else
          c = compareValues(p->type, val, canonicalText(p->type, lit));
      } catch (const CimError&) {
        return false;
      }
      if (n.op == "=") return c == 0;
      if (n.op == "<>" || n.op == "!=") return c != 0;
      if (n.op == "<") return c < 0;
      if (n.op == "<=") return c <= 0;
      if (n.op == ">") return c > 0;
      if (n.op == ">=") return c >= 0;
      return false;
    }
  }
  return false;
}

}  // namespace

std::vector<PathedInstance> Repository::execQuery(const std::string& ns, const std::string& language,
                                                  const std::string& query) const {
  if (!iequals(language, "WQL") && !iequals(language, "DMTF:CQL") && !iequals(language, "CQL"))
    throw CimError(CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED, "query language " + language + " is not supported");
  if (!hasNamespace(ns)) throw CimError(CIM_ERR_INVALID_NAMESPACE, "namespace " + ns + " does not exist");
  Parser p;
  p.t = lex(query);
  if (!p.kw("SELECT")) invalid("expected SELECT");
  ++p.i;
  bool all = false;
  std::vector<std::string> props;
  if (p.peek().kind == Tok::Star) {
    all = true;
    ++p.i;
  } else {
    while (true) {
      if (p.peek().kind != Tok::Ident) invalid("expected a property name");
      props.push_back(p.take().text);
      if (p.peek().kind != Tok::Comma) break;
      ++p.i;
    }
  }
  if (!p.kw("FROM")) invalid("expected FROM");
  ++p.i;
  if (p.peek().kind != Tok::Ident) invalid("expected a class name");
  std::string cls = p.take().text;
  std::unique_ptr<Node> where;
  if (p.kw("WHERE")) {
    ++p.i;
    where = p.orExpr();
  }
  if (p.peek().kind != Tok::End) invalid("unexpected '" + p.peek().text + "'");
  if (!findClass(ns, cls)) throw CimError(CIM_ERR_INVALID_QUERY, "class " + cls + " does not exist");
  std::vector<PathedInstance> out;
  for (auto& pi : instancesOf(ns, cls)) {
    if (where && !eval(*where, pi.instance)) continue;
    if (!all) {
      Instance proj;
      proj.className = pi.instance.className;
      for (const auto& name : props)
        if (const Property* pr = pi.instance.findProperty(name)) proj.properties.push_back(*pr);
      pi.instance = proj;
    }
    out.push_back(std::move(pi));
  }
  return out;
}

}  // namespace cimmock
