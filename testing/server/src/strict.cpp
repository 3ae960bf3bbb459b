// mock-cimom --strict: turns requests away as a DSP0200 object manager built
// on a validating CIM-XML parser does, with the status and CIMError header
// such a server sends.  The HTTP checks come first, then the body (well-formed
// XML, then DSP0201 elements and attributes), then the CIM headers against
// the body.
#include <cctype>
#include <cstring>

#include <pugixml.hpp>

#include "internal.h"

namespace cimmock {
namespace detail {

namespace {

// The request side of DSP0201: each element's attributes (a trailing '!'
// marks a required one), the elements it may hold, and whether it holds
// character data.  Anything else is refused as request-not-valid.
struct ElementRule {
  const char* name;
  const char* attributes;
  const char* children;
  bool text;
};

#define QUALIFIER_FLAVORS "OVERRIDABLE TOSUBCLASS TOINSTANCE TRANSLATABLE"
#define PROPERTY_CONTENT "QUALIFIER PROPERTY PROPERTY.ARRAY PROPERTY.REFERENCE"
const ElementRule kElements[] = {
    {"CIM", "CIMVERSION! DTDVERSION!", "MESSAGE DECLARATION", false},
    {"MESSAGE", "ID! PROTOCOLVERSION!", "SIMPLEREQ MULTIREQ", false},
    {"MULTIREQ", "", "SIMPLEREQ", false},
    {"SIMPLEREQ", "", "IMETHODCALL METHODCALL", false},
    {"IMETHODCALL", "NAME!", "LOCALNAMESPACEPATH IPARAMVALUE RESPONSEDESTINATION", false},
    {"METHODCALL", "NAME!", "LOCALCLASSPATH LOCALINSTANCEPATH PARAMVALUE RESPONSEDESTINATION", false},
    {"RESPONSEDESTINATION", "", "INSTANCE", false},
    {"IPARAMVALUE", "NAME!",
     "VALUE VALUE.ARRAY VALUE.REFERENCE CLASSNAME INSTANCENAME QUALIFIER.DECLARATION CLASS INSTANCE "
     "VALUE.NAMEDINSTANCE",
     false},
    {"PARAMVALUE", "NAME! PARAMTYPE EmbeddedObject",
     "VALUE VALUE.REFERENCE VALUE.ARRAY VALUE.REFARRAY CLASSNAME INSTANCENAME CLASS INSTANCE VALUE.NAMEDINSTANCE",
     false},
    {"LOCALNAMESPACEPATH", "", "NAMESPACE", false},
    {"NAMESPACE", "NAME!", "", false},
    {"NAMESPACEPATH", "", "HOST LOCALNAMESPACEPATH", false},
    {"HOST", "", "", true},
    {"CLASSPATH", "", "NAMESPACEPATH CLASSNAME", false},
    {"LOCALCLASSPATH", "", "LOCALNAMESPACEPATH CLASSNAME", false},
    {"CLASSNAME", "NAME!", "", false},
    {"INSTANCEPATH", "", "NAMESPACEPATH INSTANCENAME", false},
    {"LOCALINSTANCEPATH", "", "LOCALNAMESPACEPATH INSTANCENAME", false},
    {"INSTANCENAME", "CLASSNAME!", "KEYBINDING KEYVALUE VALUE.REFERENCE", false},
    {"KEYBINDING", "NAME!", "KEYVALUE VALUE.REFERENCE", false},
    {"KEYVALUE", "VALUETYPE TYPE", "", true},
    {"VALUE", "", "", true},
    {"VALUE.ARRAY", "", "VALUE VALUE.NULL", false},
    {"VALUE.NULL", "", "", false},
    {"VALUE.REFERENCE", "", "CLASSPATH LOCALCLASSPATH CLASSNAME INSTANCEPATH LOCALINSTANCEPATH INSTANCENAME", false},
    {"VALUE.REFARRAY", "", "VALUE.REFERENCE VALUE.NULL", false},
    {"VALUE.NAMEDINSTANCE", "", "INSTANCENAME INSTANCE", false},
    {"VALUE.OBJECT", "", "CLASS INSTANCE", false},
    {"VALUE.NAMEDOBJECT", "", "CLASS INSTANCENAME INSTANCE", false},
    {"VALUE.OBJECTWITHPATH", "", "CLASSPATH CLASS INSTANCEPATH INSTANCE", false},
    {"VALUE.OBJECTWITHLOCALPATH", "", "LOCALCLASSPATH CLASS LOCALINSTANCEPATH INSTANCE", false},
    {"INSTANCE", "CLASSNAME! xml:lang", PROPERTY_CONTENT, false},
    {"CLASS", "NAME! SUPERCLASS", PROPERTY_CONTENT " METHOD", false},
    {"PROPERTY", "NAME! TYPE! CLASSORIGIN PROPAGATED EmbeddedObject xml:lang", "QUALIFIER VALUE", false},
    {"PROPERTY.ARRAY", "NAME! TYPE! ARRAYSIZE CLASSORIGIN PROPAGATED EmbeddedObject xml:lang", "QUALIFIER VALUE.ARRAY",
     false},
    {"PROPERTY.REFERENCE", "NAME! REFERENCECLASS CLASSORIGIN PROPAGATED", "QUALIFIER VALUE.REFERENCE", false},
    {"QUALIFIER", "NAME! TYPE! PROPAGATED " QUALIFIER_FLAVORS " xml:lang", "VALUE VALUE.ARRAY", false},
    {"QUALIFIER.DECLARATION", "NAME! TYPE! ISARRAY ARRAYSIZE " QUALIFIER_FLAVORS, "SCOPE VALUE VALUE.ARRAY", false},
    {"SCOPE", "CLASS ASSOCIATION REFERENCE PROPERTY METHOD PARAMETER INDICATION", "", false},
    {"METHOD", "NAME! TYPE CLASSORIGIN PROPAGATED",
     "QUALIFIER PARAMETER PARAMETER.REFERENCE PARAMETER.ARRAY PARAMETER.REFARRAY", false},
    {"PARAMETER", "NAME! TYPE!", "QUALIFIER", false},
    {"PARAMETER.REFERENCE", "NAME! REFERENCECLASS", "QUALIFIER", false},
    {"PARAMETER.ARRAY", "NAME! TYPE! ARRAYSIZE", "QUALIFIER", false},
    {"PARAMETER.REFARRAY", "NAME! REFERENCECLASS ARRAYSIZE", "QUALIFIER", false},
    {"DECLARATION", "", "DECLGROUP DECLGROUP.WITHNAME DECLGROUP.WITHPATH", false},
    {"DECLGROUP", "", "LOCALNAMESPACEPATH NAMESPACEPATH QUALIFIER.DECLARATION VALUE.OBJECT", false},
    {"DECLGROUP.WITHNAME", "", "LOCALNAMESPACEPATH NAMESPACEPATH QUALIFIER.DECLARATION VALUE.NAMEDOBJECT", false},
    {"DECLGROUP.WITHPATH", "", "VALUE.OBJECTWITHPATH VALUE.OBJECTWITHLOCALPATH", false},
};

// Attributes whose values the DTD enumerates.  "#" is a decimal number.
#define CIM_TYPES "boolean string char16 uint8 sint8 uint16 sint16 uint32 sint32 uint64 sint64 datetime real32 real64"
const struct {
  const char* attribute;
  const char* values;
} kValues[] = {
    {"TYPE", CIM_TYPES},
    {"PARAMTYPE", CIM_TYPES " reference"},
    {"VALUETYPE", "string boolean numeric"},
    {"EmbeddedObject", "object instance"},
    {"ARRAYSIZE", "#"},
    {"PROPAGATED", "true false"},
    {"ISARRAY", "true false"},
    {"OVERRIDABLE", "true false"},
    {"TOSUBCLASS", "true false"},
    {"TOINSTANCE", "true false"},
    {"TRANSLATABLE", "true false"},
    {"CLASS", "true false"},
    {"ASSOCIATION", "true false"},
    {"REFERENCE", "true false"},
    {"PROPERTY", "true false"},
    {"METHOD", "true false"},
    {"PARAMETER", "true false"},
    {"INDICATION", "true false"},
};

// The words of a space-separated list; a trailing '!' is taken off and
// reported as `required`.
template <typename F>
void forEachWord(const char* list, F f) {
  for (const char* p = list; *p;) {
    size_t len = std::strcspn(p, " ");
    bool required = len > 0 && p[len - 1] == '!';
    f(std::string(p, len - required), required);
    p += len;
    p += std::strspn(p, " ");
  }
}
bool listHas(const char* list, const std::string& word) {
  bool found = false;
  forEachWord(list, [&](const std::string& w, bool) { found = found || w == word; });
  return found;
}

const ElementRule* ruleFor(const char* name) {
  for (const auto& r : kElements)
    if (std::strcmp(r.name, name) == 0) return &r;
  return nullptr;
}

bool allowedValue(const char* attribute, const char* value) {
  for (const auto& v : kValues) {
    if (std::strcmp(v.attribute, attribute) != 0) continue;
    if (std::strcmp(v.values, "#") == 0) {
      if (!*value) return false;
      for (const char* p = value; *p; ++p)
        if (!std::isdigit(static_cast<unsigned char>(*p))) return false;
      return true;
    }
    return *value && !std::strchr(value, ' ') && listHas(v.values, value);
  }
  return true;
}

struct Refused {
  int status;
  const char* cimError;
  std::string why;
};
Refused notWellFormed(const std::string& why) { return {400, "request-not-well-formed", why}; }
Refused notValid(const std::string& why) { return {400, "request-not-valid", why}; }
Refused mismatch(const std::string& why) { return {400, "header-mismatch", why}; }

bool blank(const char* s) {
  for (; *s; ++s)
    if (!std::isspace(static_cast<unsigned char>(*s))) return false;
  return true;
}

// What pugixml lets through but XML does not: bytes that are not UTF-8, a
// bare '&' and a '<' inside an attribute value.
void checkCharacters(const std::string& s) {
  for (size_t i = 0; i < s.size();) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    int more = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
    if (more < 0 || (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || (more && c < 0xC2 && more == 1))
      throw notWellFormed("byte " + std::to_string(i) + " is not allowed in UTF-8 XML text");
    for (int k = 1; k <= more; ++k)
      if (i + k >= s.size() || (static_cast<unsigned char>(s[i + k]) >> 6) != 2)
        throw notWellFormed("byte " + std::to_string(i) + " starts a broken UTF-8 sequence");
    i += static_cast<size_t>(more) + 1;
  }
  auto skip = [&](size_t i, const char* open, const char* close) -> size_t {
    if (s.compare(i, std::strlen(open), open) != 0) return 0;
    size_t e = s.find(close, i + std::strlen(open));
    return e == std::string::npos ? s.size() : e + std::strlen(close);
  };
  char quote = 0;
  bool inTag = false;
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (!inTag && c == '<') {
      size_t e = skip(i, "<!--", "-->");
      if (!e) e = skip(i, "<![CDATA[", "]]>");
      if (!e) e = skip(i, "<?", "?>");
      if (e) {
        i = e - 1;
        continue;
      }
      inTag = true;
    } else if (inTag && !quote && c == '>') {
      inTag = false;
    } else if (inTag && (c == '"' || c == '\'')) {
      quote = quote == c ? 0 : quote ? quote : c;
    } else if (quote && c == '<') {
      throw notWellFormed("'<' in an attribute value at byte " + std::to_string(i));
    }
    if (c == '&' && (!inTag || quote) && entityLength(s, i) == 0)
      throw notWellFormed("'&' that starts no entity reference at byte " + std::to_string(i));
  }
}

void checkElement(const pugi::xml_node& n, bool embedded = false);

// The text of a VALUE marked EmbeddedObject: a document of its own that must
// hold one valid INSTANCE (or CLASS).
void checkEmbedded(const std::string& text) {
  try {
    checkCharacters(text);
    pugi::xml_document d;
    pugi::xml_parse_result pr = d.load_buffer(text.data(), text.size());
    if (!pr) throw notValid(pr.description());
    if (tooDeep(d)) throw notValid("elements nested too deep");
    pugi::xml_node root = d.document_element();
    if (std::strcmp(root.name(), "INSTANCE") != 0 && std::strcmp(root.name(), "CLASS") != 0)
      throw notValid("it holds no INSTANCE or CLASS");
    checkElement(root);
  } catch (const Refused& r) {
    throw notValid("embedded object: " + r.why);
  }
}

void checkElement(const pugi::xml_node& n, bool embedded) {
  const ElementRule* rule = ruleFor(n.name());
  if (!rule) throw notValid(std::string("element ") + n.name() + " is not a DSP0201 request element");
  for (auto a = n.first_attribute(); a; a = a.next_attribute()) {
    for (auto b = n.first_attribute(); b != a; b = b.next_attribute())
      if (std::strcmp(a.name(), b.name()) == 0)
        throw notWellFormed(std::string("attribute ") + a.name() + " appears twice on " + n.name());
    if (!listHas(rule->attributes, a.name()))
      throw notValid(std::string(n.name()) + " has no attribute " + a.name());
    if (!allowedValue(a.name(), a.value()))
      throw notValid(std::string(n.name()) + " " + a.name() + "=\"" + a.value() + "\" is not an allowed value");
  }
  forEachWord(rule->attributes, [&](const std::string& word, bool required) {
    if (required && !n.attribute(word.c_str())) throw notValid(std::string(n.name()) + " needs the attribute " + word);
  });
  if (std::strcmp(n.name(), "NAMESPACE") == 0) {
    std::string name = n.attribute("NAME").value();
    if (name.empty() || name.find('/') != std::string::npos)
      throw notValid("NAMESPACE NAME=\"" + name + "\": one NAMESPACE element per namespace component");
  }
  // EmbeddedObject marks the VALUE (or VALUE.ARRAY of VALUEs) below.
  embedded = embedded || n.attribute("EmbeddedObject");
  if (embedded && std::strcmp(n.name(), "VALUE") == 0) {
    std::string text;
    for (auto c : n.children())
      if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) text += c.value();
    checkEmbedded(text);
  }
  for (auto c : n.children()) {
    if (c.type() == pugi::node_element) {
      if (!listHas(rule->children, c.name()))
        throw notValid(std::string(c.name()) + " is not allowed in " + n.name());
      checkElement(c, embedded);
    } else if ((c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) && !rule->text && !blank(c.value())) {
      throw notValid(std::string(n.name()) + " holds text");
    }
  }
}

bool majorIs(const char* version, char major) { return version[0] == major && (version[1] == '.' || !version[1]); }

std::string percentDecoded(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
      out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

std::string namespaceOf(const pugi::xml_node& lnp) {
  std::string ns;
  for (auto c : lnp.children("NAMESPACE")) ns += (ns.empty() ? "" : "/") + std::string(c.attribute("NAME").value());
  return ns;
}

// CIMObject names the namespace of an intrinsic call, and the class or
// instance path ("ns:Class.Key=...") of an extrinsic one.
void checkCimObject(const HttpRequest& r, const pugi::xml_node& call) {
  if (!r.hasHeader("cimobject")) throw mismatch("no CIMObject header");
  std::string object = percentDecoded(r.header("cimobject"));
  auto fail = [&](const std::string& want) { throw mismatch("CIMObject \"" + object + "\" does not name " + want); };
  if (std::strcmp(call.name(), "IMETHODCALL") == 0) {
    std::string ns = namespaceOf(call.child("LOCALNAMESPACEPATH"));
    if (!iequals(object, ns)) fail("namespace " + ns);
    return;
  }
  pugi::xml_node path = call.child("LOCALINSTANCEPATH");
  pugi::xml_node name = path.child("INSTANCENAME");
  if (!path) path = call.child("LOCALCLASSPATH");
  std::string cls = name ? name.attribute("CLASSNAME").value() : path.child("CLASSNAME").attribute("NAME").value();
  std::string want = namespaceOf(path.child("LOCALNAMESPACEPATH")) + ":" + cls;
  if (object.size() < want.size() || !iequals(object.substr(0, want.size()), want)) fail(want);
  std::string keys = toLower(object.substr(want.size()));
  if (!name) {
    if (!keys.empty()) fail("class path " + want);
    return;
  }
  if (keys.empty() || keys[0] != '.') fail("an instance of " + cls);
  for (auto kb : name.children("KEYBINDING"))
    if (keys.find(toLower(kb.attribute("NAME").value()) + "=") == std::string::npos)
      fail(std::string("key ") + kb.attribute("NAME").value());
}

void check(const HttpRequest& r) {
  // HTTP: one blank between the three parts of the request line, a Host.
  if (r.requestLine != r.method + " " + r.target + " " + r.version)
    throw Refused{400, "", "request line \"" + r.requestLine + "\" is not METHOD SP TARGET SP VERSION"};
  if (r.version == "HTTP/1.1" && !r.hasHeader("host")) throw Refused{400, "", "HTTP/1.1 request without Host"};
  if (!r.hasHeader("content-length")) throw Refused{411, "", "no Content-Length"};
  std::string type = toLower(r.header("content-type"));
  std::string media = type.substr(0, type.find(';'));
  while (!media.empty() && media.back() == ' ') media.pop_back();
  if (media != "application/xml" && media != "text/xml")
    throw notValid("Content-Type \"" + r.header("content-type") + "\" is not application/xml or text/xml");
  size_t cs = type.find("charset=");
  if (cs != std::string::npos) {
    std::string charset = type.substr(cs + 8);
    charset.erase(0, charset.find_first_not_of("\" "));
    if (charset.compare(0, 5, "utf-8") != 0) throw notValid("charset is not utf-8");
  }
  if (r.header("cimoperation") != "MethodCall")
    throw Refused{400, "unsupported-operation", "CIMOperation is \"" + r.header("cimoperation") + "\", not MethodCall"};

  // The body: an XML document from its first byte, well-formed, valid.
  const std::string& body = r.body;
  if (body.compare(0, 5, "<?xml") != 0) throw notWellFormed("XML or text declaration not at start of entity");
  checkCharacters(body);
  pugi::xml_document doc;
  pugi::xml_parse_result pr = doc.load_buffer(body.data(), body.size(), pugi::parse_default | pugi::parse_declaration);
  if (!pr)
    throw notWellFormed(std::string(pr.description()) + " at byte " + std::to_string(pr.offset));
  pugi::xml_node decl = doc.first_child();
  std::string encoding = toLower(decl.attribute("encoding").value());
  if (!encoding.empty() && encoding != "utf-8") throw notWellFormed("encoding \"" + encoding + "\" is not utf-8");
  int roots = 0;
  for (auto c : doc.children()) {
    if (c.type() == pugi::node_element) ++roots;
    if (c.type() == pugi::node_pcdata && !blank(c.value())) throw notWellFormed("text outside the document element");
  }
  pugi::xml_node cim = doc.child("CIM");
  if (roots != 1 || !cim) throw notValid("the document element must be the one CIM element");
  if (tooDeep(doc)) throw notValid("elements nested deeper than " + std::to_string(kMaxXmlDepth) + " levels");
  checkElement(cim);
  pugi::xml_node msg = cim.child("MESSAGE");
  if (!msg) throw notValid("CIM holds no MESSAGE");
  if (!majorIs(cim.attribute("CIMVERSION").value(), '2'))
    throw Refused{501, "unsupported-cim-version", "CIMVERSION is not 2.x"};
  if (!majorIs(cim.attribute("DTDVERSION").value(), '2'))
    throw Refused{501, "unsupported-dtd-version", "DTDVERSION is not 2.x"};
  if (!majorIs(msg.attribute("PROTOCOLVERSION").value(), '1'))
    throw Refused{501, "unsupported-protocol-version", "PROTOCOLVERSION is not 1.x"};
  if (msg.child("MULTIREQ")) throw Refused{501, "multiple-requests-unsupported", "MULTIREQ is not served"};
  pugi::xml_node req = msg.child("SIMPLEREQ");
  pugi::xml_node call;
  int calls = 0;
  for (auto c : req.children())
    if (c.type() == pugi::node_element) call = c, ++calls;
  if (calls != 1) throw notValid("SIMPLEREQ must hold one IMETHODCALL or METHODCALL");
  if (std::strcmp(call.name(), "IMETHODCALL") == 0 ? !call.child("LOCALNAMESPACEPATH")
                                                    : !call.child("LOCALINSTANCEPATH") && !call.child("LOCALCLASSPATH"))
    throw notValid(std::string(call.name()) + " has no target path");

  // The CIM headers say what the body says.
  if (!r.hasHeader("cimprotocolversion")) throw mismatch("no CIMProtocolVersion header");
  if (r.header("cimprotocolversion") != msg.attribute("PROTOCOLVERSION").value())
    throw mismatch("CIMProtocolVersion differs from PROTOCOLVERSION");
  if (!iequals(r.header("cimmethod"), call.attribute("NAME").value()))
    throw mismatch("CIMMethod \"" + r.header("cimmethod") + "\" is not " + call.attribute("NAME").value());
  checkCimObject(r, call);
}

const char* reasonOf(int status) {
  switch (status) {
    case 411: return "Length Required";
    case 501: return "Not Implemented";
    default: return "Bad Request";
  }
}

}  // namespace

bool strictAccepts(const HttpRequest& request, Refusal* refusal) {
  try {
    check(request);
    return true;
  } catch (const Refused& r) {
    *refusal = {r.status, reasonOf(r.status), r.cimError, r.why};
  }
  return false;
}

}  // namespace detail
}  // namespace cimmock
