// A lenient pre-pass that turns the XML dialect real CIM clients write into
// well-formed XML before it reaches pugixml.  Deployed object managers
// tolerate these forms, and CimXmlClient writes several of them on purpose:
//   <KEYVALUE VALUETYPE = "string">      blanks around '='
//   <CLASSNAME NAME ="x"/>               blank before '='
//   <PROPERTY ... PROPAGATED=TRUE>       unquoted value
//   <PROPERTY.ARRAY ... PROPAGATED 'TRUE' ARRAYSIZE=3>  no '=', single quotes
//   <RESPONSEDESTINATION>...</ResponseDestination>      closing tag in other case
//   <PARAMETER.REFARRAY ...> never closed
//   bare '&' and '<' in text and attribute values (nothing is escaped)
#include <cctype>
#include <string>
#include <vector>

#include "internal.h"

namespace cimmock {
namespace detail {

namespace {
bool nameStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == ':'; }
bool nameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':' || c == '.' || c == '-';
}
bool ieq(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}
void appendEscaped(std::string& out, const std::string& s, bool attr) {
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == '&') {
      size_t n = entityLength(s, i);
      if (n) { out.append(s, i, n); i += n - 1; }
      else out += "&amp;";
    } else if (c == '<') out += "&lt;";
    else if (c == '>' && !attr) out += "&gt;";
    else if (c == '"' && attr) out += "&quot;";
    else out += c;
  }
}
}  // namespace

size_t entityLength(const std::string& s, size_t i) {
  size_t j = i + 1;
  if (j < s.size() && s[j] == '#') {
    ++j;
    bool hex = j < s.size() && (s[j] == 'x' || s[j] == 'X');
    if (hex) ++j;
    size_t b = j;
    while (j < s.size() && (hex ? std::isxdigit(static_cast<unsigned char>(s[j]))
                                : std::isdigit(static_cast<unsigned char>(s[j]))))
      ++j;
    if (j == b || j >= s.size() || s[j] != ';') return 0;
    return j - i + 1;
  }
  static const char* names[] = {"amp;", "lt;", "gt;", "quot;", "apos;"};
  for (const char* n : names) {
    std::string nn(n);
    if (s.compare(j, nn.size(), nn) == 0) return 1 + nn.size();
  }
  return 0;
}
std::string normaliseXml(const std::string& s) {
  std::string out;
  out.reserve(s.size() + s.size() / 8 + 16);
  std::vector<std::string> stack;
  size_t i = 0;
  const size_t n = s.size();
  while (i < n) {
    char c = s[i];
    if (c != '<') {
      size_t j = s.find('<', i);
      if (j == std::string::npos) j = n;
      appendEscaped(out, s.substr(i, j - i), false);
      i = j;
      continue;
    }
    // c == '<'
    if (s.compare(i, 4, "<!--") == 0) {
      size_t e = s.find("-->", i + 4);
      e = e == std::string::npos ? n : e + 3;
      if (e <= n && s.compare(e - 3, 3, "-->") == 0) out.append(s, i, e - i);
      i = e;
      continue;
    }
    if (s.compare(i, 9, "<![CDATA[") == 0) {
      size_t e = s.find("]]>", i + 9);
      if (e == std::string::npos) {  // unterminated: keep as text
        appendEscaped(out, s.substr(i + 9), false);
        i = n;
      } else {
        out.append(s, i, e + 3 - i);
        i = e + 3;
      }
      continue;
    }
    if (s.compare(i, 2, "<?") == 0) {
      size_t e = s.find("?>", i + 2);
      e = e == std::string::npos ? n : e + 2;
      if (stack.empty() && out.find_first_not_of(" \t\r\n") == std::string::npos) out.append(s, i, e - i);
      i = e;
      continue;
    }
    if (s.compare(i, 2, "<!") == 0) {  // DOCTYPE and the like: dropped
      size_t e = s.find('>', i);
      i = e == std::string::npos ? n : e + 1;
      continue;
    }
    if (i + 1 < n && s[i + 1] == '/') {
      size_t j = i + 2;
      size_t b = j;
      while (j < n && nameChar(s[j])) ++j;
      std::string name = s.substr(b, j - b);
      size_t e = s.find('>', j);
      i = e == std::string::npos ? n : e + 1;
      for (size_t k = stack.size(); k-- > 0;) {
        if (ieq(stack[k], name)) {
          while (stack.size() > k) {
            out += "</" + stack.back() + ">";
            stack.pop_back();
          }
          break;
        }
      }
      continue;
    }
    if (i + 1 >= n || !nameStart(s[i + 1])) {  // a bare '<' in text
      out += "&lt;";
      ++i;
      continue;
    }
    // start tag
    size_t j = i + 1;
    size_t b = j;
    while (j < n && nameChar(s[j])) ++j;
    std::string name = s.substr(b, j - b);
    out += "<" + name;
    std::vector<std::string> seen;
    bool selfClose = false;
    while (j < n) {
      while (j < n && std::isspace(static_cast<unsigned char>(s[j]))) ++j;
      if (j >= n) break;
      if (s[j] == '>') { ++j; break; }
      if (s[j] == '/' && j + 1 < n && s[j + 1] == '>') { selfClose = true; j += 2; break; }
      if (!nameStart(s[j])) { ++j; continue; }  // junk such as a stray quote
      size_t ab = j;
      while (j < n && nameChar(s[j])) ++j;
      std::string an = s.substr(ab, j - ab);
      size_t k = j;
      while (k < n && std::isspace(static_cast<unsigned char>(s[k]))) ++k;
      bool hasEq = k < n && s[k] == '=';
      if (hasEq) {
        ++k;
        while (k < n && std::isspace(static_cast<unsigned char>(s[k]))) ++k;
      }
      std::string value;
      bool hasValue = false;
      if (k < n && (s[k] == '"' || s[k] == '\'')) {
        char q = s[k];
        size_t e = s.find(q, k + 1);
        if (e == std::string::npos) e = n;
        value = s.substr(k + 1, e - k - 1);
        j = e < n ? e + 1 : n;
        hasValue = true;
      } else if (hasEq) {
        size_t e = k;
        while (e < n && !std::isspace(static_cast<unsigned char>(s[e])) && s[e] != '>' &&
               !(s[e] == '/' && e + 1 < n && s[e + 1] == '>'))
          ++e;
        value = s.substr(k, e - k);
        j = e;
        hasValue = true;
      }
      if (!hasValue) value = "TRUE";  // a bare attribute name
      bool dup = false;
      for (const auto& x : seen)
        if (x == an) dup = true;
      if (dup) continue;
      seen.push_back(an);
      out += " " + an + "=\"";
      appendEscaped(out, value, true);
      out += "\"";
    }
    if (selfClose) out += "/>";
    else {
      out += ">";
      stack.push_back(name);
    }
    i = j;
  }
  while (!stack.empty()) {
    out += "</" + stack.back() + ">";
    stack.pop_back();
  }
  return out;
}

}  // namespace detail
}  // namespace cimmock
