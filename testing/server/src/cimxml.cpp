// CIM-XML (DSP0201/DSP0200) request decoding and reply encoding.
#include <cctype>
#include <sstream>

#include <pugixml.hpp>

#include "internal.h"

namespace cimmock {
namespace detail {

namespace {

// ---- DOM helpers (element names compared case-insensitively) ----------------

bool nameIs(const pugi::xml_node& n, const char* name) { return n.type() == pugi::node_element && iequals(n.name(), name); }
pugi::xml_node child(const pugi::xml_node& n, const char* name) {
  for (auto c : n.children())
    if (nameIs(c, name)) return c;
  return pugi::xml_node();
}
std::string attr(const pugi::xml_node& n, const char* name) {
  for (auto a : n.attributes())
    if (iequals(a.name(), name)) return a.value();
  return "";
}
bool hasAttr(const pugi::xml_node& n, const char* name) {
  for (auto a : n.attributes())
    if (iequals(a.name(), name)) return true;
  return false;
}
// Text content: concatenated PCDATA and CDATA children.
std::string text(const pugi::xml_node& n) {
  std::string s;
  for (auto c : n.children())
    if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) s += c.value();
  return s;
}
std::string trimmed(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

struct BadRequest {
  std::string header;  // CIMError header value
  std::string why;
};

// ---- decoding ------------------------------------------------------------------

std::string namespaceOf(const pugi::xml_node& lnp) {
  std::string ns;
  for (auto c : lnp.children())
    if (nameIs(c, "NAMESPACE")) {
      if (!ns.empty()) ns += "/";
      ns += attr(c, "NAME");
    }
  return ns;
}

ObjectPath parseValueReference(const pugi::xml_node& vr);

KeyBinding keyFromKeyValue(const pugi::xml_node& kv) {
  KeyBinding k;
  std::string t = attr(kv, "TYPE");
  if (t.empty()) t = attr(kv, "CIMTYPE");
  std::string vt = toLower(attr(kv, "VALUETYPE"));
  k.text = text(kv);
  Type ty;
  if (!t.empty() && parseTypeName(t, &ty)) k.type = ty;
  else if (vt == "boolean") k.type = Type::Boolean;
  else if (vt == "numeric") {
    std::string s = trimmed(k.text);
    k.type = s.find_first_of(".eE") != std::string::npos && s.compare(0, 2, "0x") != 0
                 ? Type::Real64
                 : (!s.empty() && s[0] == '-' ? Type::Sint64 : Type::Uint64);
    k.text = s;
  } else k.type = Type::String;
  return k;
}

ObjectPath parseInstanceName(const pugi::xml_node& in) {
  ObjectPath p;
  p.className = attr(in, "CLASSNAME");
  for (auto c : in.children()) {
    if (nameIs(c, "KEYBINDING")) {
      KeyBinding k;
      if (auto kv = child(c, "KEYVALUE")) k = keyFromKeyValue(kv);
      else if (auto vr = child(c, "VALUE.REFERENCE")) {
        k.type = Type::Reference;
        k.ref = std::make_shared<ObjectPath>(parseValueReference(vr));
      }
      k.name = attr(c, "NAME");
      p.keys.push_back(k);
    } else if (nameIs(c, "KEYVALUE")) {
      p.keys.push_back(keyFromKeyValue(c));  // single unnamed key
    } else if (nameIs(c, "VALUE.REFERENCE")) {
      KeyBinding k;
      k.type = Type::Reference;
      k.ref = std::make_shared<ObjectPath>(parseValueReference(c));
      p.keys.push_back(k);
    }
  }
  if (p.className.empty()) throw CimError(CIM_ERR_INVALID_PARAMETER, "INSTANCENAME without CLASSNAME");
  return p;
}

void parseNamespacePath(const pugi::xml_node& nsp, ObjectPath* p) {
  p->host = trimmed(text(child(nsp, "HOST")));
  p->nameSpace = namespaceOf(child(nsp, "LOCALNAMESPACEPATH"));
}

ObjectPath parseValueReference(const pugi::xml_node& vr) {
  ObjectPath p;
  for (auto c : vr.children()) {
    if (nameIs(c, "INSTANCEPATH")) {
      p = parseInstanceName(child(c, "INSTANCENAME"));
      parseNamespacePath(child(c, "NAMESPACEPATH"), &p);
      return p;
    }
    if (nameIs(c, "LOCALINSTANCEPATH")) {
      p = parseInstanceName(child(c, "INSTANCENAME"));
      p.nameSpace = namespaceOf(child(c, "LOCALNAMESPACEPATH"));
      return p;
    }
    if (nameIs(c, "INSTANCENAME")) return parseInstanceName(c);
    if (nameIs(c, "CLASSPATH")) {
      parseNamespacePath(child(c, "NAMESPACEPATH"), &p);
      p.className = attr(child(c, "CLASSNAME"), "NAME");
      return p;
    }
    if (nameIs(c, "LOCALCLASSPATH")) {
      p.nameSpace = namespaceOf(child(c, "LOCALNAMESPACEPATH"));
      p.className = attr(child(c, "CLASSNAME"), "NAME");
      return p;
    }
    if (nameIs(c, "CLASSNAME")) {
      p.className = attr(c, "NAME");
      return p;
    }
  }
  throw CimError(CIM_ERR_INVALID_PARAMETER, "VALUE.REFERENCE without a path");
}

// Whether a VALUE holds an embedded instance: as EmbeddedObject says
// (Marked, Unmarked), or, for clients that do not say, when its text is an
// INSTANCE element (Guess).
enum class Embedding { Guess, Marked, Unmarked };
Embedding embeddingOf(const pugi::xml_node& holder, bool strict) {
  if (hasAttr(holder, "EmbeddedObject")) return Embedding::Marked;
  return strict ? Embedding::Unmarked : Embedding::Guess;
}

// A VALUE's content: plain text, or an embedded instance (CDATA or escaped).
void addValueItem(const pugi::xml_node& v, Value* out, Embedding embedding) {
  std::string t = text(v);
  std::string tt = trimmed(t);
  if (embedding != Embedding::Unmarked) {
    Instance inst;
    if (tt.compare(0, 9, "<INSTANCE") == 0 && parseEmbeddedInstance(tt, &inst)) {
      out->embedded.push_back(std::make_shared<Instance>(inst));
      return;
    }
  }
  out->texts.push_back(t);
}

Value parseValueLike(const pugi::xml_node& holder, Type t, Embedding embedded) {
  Value v = Value::null(t, false);
  for (auto c : holder.children()) {
    if (nameIs(c, "VALUE")) {
      v.isNull = false;
      addValueItem(c, &v, embedded);
    } else if (nameIs(c, "VALUE.ARRAY")) {
      v.isArray = true;
      v.isNull = false;
      for (auto e : c.children()) {
        if (nameIs(e, "VALUE")) addValueItem(e, &v, embedded);
        // The repository has no null array elements (the mock broker refuses them too).
        if (nameIs(e, "VALUE.NULL")) throw CimError(CIM_ERR_INVALID_PARAMETER, "a NULL array element cannot be stored");
      }
    } else if (nameIs(c, "VALUE.REFERENCE")) {
      v.type = Type::Reference;
      v.isNull = false;
      v.refs.push_back(parseValueReference(c));
    } else if (nameIs(c, "VALUE.REFARRAY")) {
      v.type = Type::Reference;
      v.isArray = true;
      v.isNull = false;
      for (auto e : c.children()) {
        if (nameIs(e, "VALUE.REFERENCE")) v.refs.push_back(parseValueReference(e));
        if (nameIs(e, "VALUE.NULL")) throw CimError(CIM_ERR_INVALID_PARAMETER, "a NULL array element cannot be stored");
      }
    }
  }
  if (!v.embedded.empty()) v.texts.clear();
  return v;
}

// strictClass, when given, is the class of a strict request's instance:
// what it declares embedded must come marked.
Instance parseInstance(const pugi::xml_node& in, bool strict = false, const Class* strictClass = nullptr) {
  Instance inst;
  inst.className = attr(in, "CLASSNAME");
  if (inst.className.empty()) throw CimError(CIM_ERR_INVALID_PARAMETER, "INSTANCE without CLASSNAME");
  for (auto c : in.children()) {
    bool scalar = nameIs(c, "PROPERTY"), array = nameIs(c, "PROPERTY.ARRAY"), ref = nameIs(c, "PROPERTY.REFERENCE");
    if (!scalar && !array && !ref) continue;
    Property p;
    p.name = attr(c, "NAME");
    if (ref) p.type = Type::Reference;
    else if (!parseTypeName(trimmed(attr(c, "TYPE")), &p.type)) p.type = Type::String;
    Embedding embedding = embeddingOf(c, strict);
    const Property* decl = strictClass ? strictClass->findProperty(p.name) : nullptr;
    if (decl && !decl->embeddedClass().empty() && embedding != Embedding::Marked && child(c, "VALUE"))
      throw CimError(CIM_ERR_TYPE_MISMATCH, inst.className + "." + p.name +
                                                " holds an embedded instance: its value needs EmbeddedObject=\"instance\"");
    p.value = parseValueLike(c, p.type, embedding);
    p.isArray = array;
    p.value.isArray = array;
    if (!ref) p.value.type = p.type;
    inst.properties.push_back(p);
  }
  return inst;
}

std::vector<std::string> parsePropertyList(const pugi::xml_node& ip) {
  std::vector<std::string> out;
  for (auto va : ip.children())
    if (nameIs(va, "VALUE.ARRAY"))
      for (auto v : va.children())
        if (nameIs(v, "VALUE")) out.push_back(trimmed(text(v)));
  return out;
}

// ---- encoding ------------------------------------------------------------------

struct Writer {
  const XmlConfig& cfg;
  const Repository& repo;

  void namespacePath(pugi::xml_node parent, const std::string& ns, const std::string& host) {
    auto nsp = parent.append_child("NAMESPACEPATH");
    nsp.append_child("HOST").text() = (host.empty() ? cfg.host : host).c_str();
    localNamespacePath(nsp, ns);
  }
  void localNamespacePath(pugi::xml_node parent, const std::string& ns) {
    auto lnp = parent.append_child("LOCALNAMESPACEPATH");
    size_t b = 0;
    while (b <= ns.size()) {
      size_t e = ns.find('/', b);
      if (e == std::string::npos) e = ns.size();
      if (e > b) lnp.append_child("NAMESPACE").append_attribute("NAME") = ns.substr(b, e - b).c_str();
      b = e + 1;
    }
  }
  void instanceName(pugi::xml_node parent, const ObjectPath& p) {
    auto in = parent.append_child("INSTANCENAME");
    in.append_attribute("CLASSNAME") = p.className.c_str();
    for (const auto& k : p.keys) {
      auto kb = in.append_child("KEYBINDING");
      kb.append_attribute("NAME") = k.name.c_str();
      if (k.type == Type::Reference && k.ref) {
        valueReference(kb, *k.ref);
      } else {
        auto kv = kb.append_child("KEYVALUE");
        kv.append_attribute("VALUETYPE") = k.valueType();
        kv.append_attribute("TYPE") = typeName(k.type);
        kv.text() = k.text.c_str();
      }
    }
  }
  void instancePath(pugi::xml_node parent, const ObjectPath& p) {
    auto ip = parent.append_child("INSTANCEPATH");
    namespacePath(ip, p.nameSpace, p.host);
    instanceName(ip, p);
  }
  void classPath(pugi::xml_node parent, const std::string& ns, const std::string& cls) {
    auto cp = parent.append_child("CLASSPATH");
    namespacePath(cp, ns, "");
    cp.append_child("CLASSNAME").append_attribute("NAME") = cls.c_str();
  }
  void valueReference(pugi::xml_node parent, const ObjectPath& p) {
    auto vr = parent.append_child("VALUE.REFERENCE");
    if (p.isClassPath()) {
      if (p.nameSpace.empty()) vr.append_child("CLASSNAME").append_attribute("NAME") = p.className.c_str();
      else classPath(vr, p.nameSpace, p.className);
    } else if (p.nameSpace.empty()) {
      instanceName(vr, p);
    } else {
      instancePath(vr, p);
    }
  }
  void embeddedValue(pugi::xml_node v, const Instance& inst) {
    pugi::xml_document d;
    ReadOptions ro;
    ro.includeQualifiers = false;
    instance(d, inst);
    std::ostringstream os;
    d.save(os, "", pugi::format_raw | pugi::format_no_declaration);
    std::string s = os.str();
    if (s.find("]]>") == std::string::npos) v.append_child(pugi::node_cdata).set_value(s.c_str());
    else v.text() = s.c_str();  // escaped form
  }
  void value(pugi::xml_node parent, const Value& v) {
    if (v.isNull) return;
    if (v.type == Type::Reference) {
      if (!v.isArray) {
        if (!v.refs.empty()) valueReference(parent, v.refs[0]);
      } else {
        auto ra = parent.append_child("VALUE.REFARRAY");
        for (const auto& r : v.refs) valueReference(ra, r);
      }
      return;
    }
    pugi::xml_node holder = parent;
    if (v.isArray) holder = parent.append_child("VALUE.ARRAY");
    if (!v.embedded.empty()) {
      for (const auto& e : v.embedded) {
        auto x = holder.append_child("VALUE");
        embeddedValue(x, *e);
      }
      if (!v.isArray) return;
      return;
    }
    for (const auto& t : v.texts) holder.append_child("VALUE").text() = t.c_str();
  }
  void flavorAttrs(pugi::xml_node q, const Flavor& f) {
    if (!f.overridable) q.append_attribute("OVERRIDABLE") = "false";
    if (!f.toSubclass) q.append_attribute("TOSUBCLASS") = "false";
    if (f.translatable) q.append_attribute("TRANSLATABLE") = "true";
  }
  void qualifier(pugi::xml_node parent, const Qualifier& q) {
    auto x = parent.append_child("QUALIFIER");
    x.append_attribute("NAME") = q.name.c_str();
    x.append_attribute("TYPE") = typeName(q.value.type);
    if (q.propagated) x.append_attribute("PROPAGATED") = "true";
    flavorAttrs(x, q.flavor);
    value(x, q.value);
  }
  void qualifiers(pugi::xml_node parent, const QualifierList& ql) {
    for (const auto& q : ql) qualifier(parent, q);
  }
  void property(pugi::xml_node parent, const Property& p, bool forClass) {
    const char* el = p.type == Type::Reference ? "PROPERTY.REFERENCE" : (p.isArray ? "PROPERTY.ARRAY" : "PROPERTY");
    auto x = parent.append_child(el);
    x.append_attribute("NAME") = p.name.c_str();
    if (p.type == Type::Reference) {
      if (!p.referenceClass.empty()) x.append_attribute("REFERENCECLASS") = p.referenceClass.c_str();
    } else {
      x.append_attribute("TYPE") = typeName(p.type);
    }
    if (!p.classOrigin.empty()) x.append_attribute("CLASSORIGIN") = p.classOrigin.c_str();
    if (p.propagated && forClass) x.append_attribute("PROPAGATED") = "true";
    if (p.isArray && p.arraySize > 0) x.append_attribute("ARRAYSIZE") = p.arraySize;
    // EmbeddedObject="instance" (DSP0201 2.2+) marks an embedded instance;
    // the value itself is an INSTANCE in a CDATA section.
    std::string emb = p.embeddedClass();
    if (p.value.isEmbedded()) emb = "instance";
    if (!emb.empty() && p.type == Type::String) x.append_attribute("EmbeddedObject") = emb == "*" ? "object" : "instance";
    qualifiers(x, p.qualifiers);
    value(x, p.value);
    // The "lines" layout of deployed brokers writes an empty property as
    // an open tag, a line break, and the closing tag.
    if (cfg.layout == ServerOptions::Layout::Lines && !x.first_child()) x.append_child(pugi::node_pcdata).set_value("\n");
  }
  void instance(pugi::xml_node parent, const Instance& inst) {
    auto x = parent.append_child("INSTANCE");
    x.append_attribute("CLASSNAME") = inst.className.c_str();
    qualifiers(x, inst.qualifiers);
    for (const auto& p : inst.properties) property(x, p, false);
  }
  void parameter(pugi::xml_node parent, const Parameter& p) {
    const char* el = p.type == Type::Reference ? (p.isArray ? "PARAMETER.REFARRAY" : "PARAMETER.REFERENCE")
                                               : (p.isArray ? "PARAMETER.ARRAY" : "PARAMETER");
    auto x = parent.append_child(el);
    x.append_attribute("NAME") = p.name.c_str();
    if (p.type == Type::Reference) {
      if (!p.referenceClass.empty()) x.append_attribute("REFERENCECLASS") = p.referenceClass.c_str();
    } else {
      x.append_attribute("TYPE") = typeName(p.type);
    }
    if (p.isArray && p.arraySize > 0) x.append_attribute("ARRAYSIZE") = p.arraySize;
    qualifiers(x, p.qualifiers);
  }
  void cls(pugi::xml_node parent, const Class& c) {
    auto x = parent.append_child("CLASS");
    x.append_attribute("NAME") = c.name.c_str();
    if (!c.superClass.empty()) x.append_attribute("SUPERCLASS") = c.superClass.c_str();
    qualifiers(x, c.qualifiers);
    for (const auto& p : c.properties) property(x, p, true);
    for (const auto& m : c.methods) {
      auto mx = x.append_child("METHOD");
      mx.append_attribute("NAME") = m.name.c_str();
      mx.append_attribute("TYPE") = typeName(m.returnType);
      if (!m.classOrigin.empty()) mx.append_attribute("CLASSORIGIN") = m.classOrigin.c_str();
      if (m.propagated) mx.append_attribute("PROPAGATED") = "true";
      qualifiers(mx, m.qualifiers);
      for (const auto& p : m.parameters) parameter(mx, p);
    }
  }
  void objectWithPath(pugi::xml_node parent, const PathedInstance& pi) {
    auto o = parent.append_child("VALUE.OBJECTWITHPATH");
    instancePath(o, pi.path);
    instance(o, pi.instance);
  }
};

std::string serialise(pugi::xml_document& doc, ServerOptions::Layout layout) {
  std::ostringstream os;
  switch (layout) {
    case ServerOptions::Layout::Compact: doc.save(os, "", pugi::format_raw); break;
    case ServerOptions::Layout::Lines: doc.save(os, "", pugi::format_indent); break;
    case ServerOptions::Layout::Indented: doc.save(os, "  ", pugi::format_indent); break;
  }
  return os.str();
}

pugi::xml_node envelope(pugi::xml_document& doc, const std::string& id) {
  auto decl = doc.append_child(pugi::node_declaration);
  decl.append_attribute("version") = "1.0";
  decl.append_attribute("encoding") = "utf-8";
  auto cim = doc.append_child("CIM");
  cim.append_attribute("CIMVERSION") = "2.0";
  cim.append_attribute("DTDVERSION") = "2.0";
  auto msg = cim.append_child("MESSAGE");
  msg.append_attribute("ID") = id.c_str();
  msg.append_attribute("PROTOCOLVERSION") = "1.0";
  return msg.append_child("SIMPLERSP");
}

void errorElement(pugi::xml_node parent, int code, const std::string& description) {
  auto e = parent.append_child("ERROR");
  e.append_attribute("CODE") = code;
  e.append_attribute("DESCRIPTION") = description.c_str();
}

// ---- intrinsic operations ------------------------------------------------------

struct Params {
  std::vector<std::pair<std::string, pugi::xml_node>> list;
  pugi::xml_node get(const char* name) const {
    for (const auto& p : list)
      if (iequals(p.first, name)) return p.second;
    return pugi::xml_node();
  }
  bool has(const char* name) const { return bool(get(name)); }
  bool flag(const char* name, bool dflt) const {
    auto n = get(name);
    if (!n) return dflt;
    std::string t = trimmed(text(child(n, "VALUE")));
    if (iequals(t, "TRUE")) return true;
    if (iequals(t, "FALSE")) return false;
    if (t.empty() && !child(n, "VALUE")) return dflt;
    throw CimError(CIM_ERR_INVALID_PARAMETER, std::string("parameter ") + name + " is not a boolean: '" + t + "'");
  }
  std::string str(const char* name) const {
    auto n = get(name);
    return n ? trimmed(text(child(n, "VALUE"))) : std::string();
  }
  std::string className(const char* name, bool required) const {
    auto n = get(name);
    if (!n) {
      if (required) throw CimError(CIM_ERR_INVALID_PARAMETER, std::string("missing parameter ") + name);
      return "";
    }
    if (auto c = child(n, "CLASSNAME")) return attr(c, "NAME");
    return trimmed(text(child(n, "VALUE")));
  }
  void propertyList(ReadOptions* ro) const {
    auto n = get("PropertyList");
    if (!n || !child(n, "VALUE.ARRAY")) return;  // absent or NULL: all properties
    ro->hasPropertyList = true;
    ro->propertyList = parsePropertyList(n);
  }
  // ObjectName: an INSTANCENAME or a CLASSNAME.
  ObjectPath objectName() const {
    auto n = get("ObjectName");
    if (!n) {
      // CimXmlClient also sends the class as ClassName; use it alone.
      std::string c = className("ClassName", false);
      if (c.empty()) throw CimError(CIM_ERR_INVALID_PARAMETER, "missing parameter ObjectName");
      ObjectPath p;
      p.className = c;
      return p;
    }
    if (auto in = child(n, "INSTANCENAME")) return parseInstanceName(in);
    if (auto c = child(n, "CLASSNAME")) {
      ObjectPath p;
      p.className = attr(c, "NAME");
      return p;
    }
    if (auto vr = child(n, "VALUE.REFERENCE")) return parseValueReference(vr);
    throw CimError(CIM_ERR_INVALID_PARAMETER, "ObjectName holds no INSTANCENAME or CLASSNAME");
  }
  ObjectPath instanceName(const char* name) const {
    auto n = get(name);
    if (!n) throw CimError(CIM_ERR_INVALID_PARAMETER, std::string("missing parameter ") + name);
    if (auto in = child(n, "INSTANCENAME")) return parseInstanceName(in);
    if (auto vr = child(n, "VALUE.REFERENCE")) return parseValueReference(vr);
    throw CimError(CIM_ERR_INVALID_PARAMETER, std::string("parameter ") + name + " holds no INSTANCENAME");
  }
};

void checkNamespace(const Repository& repo, const std::string& ns) {
  if (ns.empty()) throw CimError(CIM_ERR_INVALID_NAMESPACE, "no namespace given");
  if (!repo.hasNamespace(ns)) throw CimError(CIM_ERR_INVALID_NAMESPACE, "namespace " + ns + " does not exist");
}

// Instance reads: LocalOnly is ignored as DSP0200 allows and as deployed
// object managers do (they return all properties).
ReadOptions instanceReadOptions(const Params& p, bool defaultQualifiers) {
  ReadOptions ro;
  ro.localOnly = false;
  p.flag("LocalOnly", false);  // validated, then ignored
  ro.includeQualifiers = p.flag("IncludeQualifiers", defaultQualifiers);
  ro.includeClassOrigin = p.flag("IncludeClassOrigin", false);
  p.propertyList(&ro);
  return ro;
}

Instance requestInstance(const Repository& repo, const Writer& w, const std::string& ns, const pugi::xml_node& in) {
  return w.cfg.strict ? parseInstance(in, true, repo.findClass(ns, attr(in, "CLASSNAME"))) : parseInstance(in);
}

void intrinsic(Repository& repo, Writer& w, const std::string& op, const std::string& ns, const Params& p,
               pugi::xml_node resp) {
  checkNamespace(repo, ns);
  auto rv = [&]() { return resp.append_child("IRETURNVALUE"); };
  if (iequals(op, "GetClass")) {
    ReadOptions ro;
    ro.localOnly = p.flag("LocalOnly", true);
    ro.includeQualifiers = p.flag("IncludeQualifiers", true);
    ro.includeClassOrigin = p.flag("IncludeClassOrigin", false);
    p.propertyList(&ro);
    Class c = repo.getClass(ns, p.className("ClassName", true), ro);
    w.cls(rv(), c);
  } else if (iequals(op, "EnumerateClasses")) {
    ReadOptions ro;
    bool deep = p.flag("DeepInheritance", false);
    ro.localOnly = p.flag("LocalOnly", true);
    ro.includeQualifiers = p.flag("IncludeQualifiers", true);
    ro.includeClassOrigin = p.flag("IncludeClassOrigin", false);
    auto classes = repo.enumerateClasses(ns, p.className("ClassName", false), deep, ro);
    auto r = rv();
    for (const auto& c : classes) w.cls(r, c);
  } else if (iequals(op, "EnumerateClassNames")) {
    auto names = repo.enumerateClassNames(ns, p.className("ClassName", false), p.flag("DeepInheritance", false));
    auto r = rv();
    for (const auto& n : names) r.append_child("CLASSNAME").append_attribute("NAME") = n.c_str();
  } else if (iequals(op, "GetInstance")) {
    ObjectPath path = p.instanceName("InstanceName");
    ReadOptions ro = instanceReadOptions(p, false);
    Instance inst = repo.getInstance(ns, path);
    w.instance(rv(), repo.filterInstance(ns, inst, inst.className, ro));
  } else if (iequals(op, "EnumerateInstances")) {
    std::string cls = p.className("ClassName", true);
    ReadOptions ro = instanceReadOptions(p, false);
    ro.deepInheritance = p.flag("DeepInheritance", true);
    auto list = repo.instancesOf(ns, cls);
    auto r = rv();
    for (const auto& pi : list) {
      auto ni = r.append_child("VALUE.NAMEDINSTANCE");
      w.instanceName(ni, pi.path);
      w.instance(ni, repo.filterInstance(ns, pi.instance, cls, ro));
    }
  } else if (iequals(op, "EnumerateInstanceNames")) {
    auto names = repo.instanceNames(ns, p.className("ClassName", true));
    auto r = rv();
    for (const auto& n : names) w.instanceName(r, n);
  } else if (iequals(op, "Associators") || iequals(op, "AssociatorNames") || iequals(op, "References") ||
             iequals(op, "ReferenceNames")) {
    bool assoc = iequals(op, "Associators") || iequals(op, "AssociatorNames");
    bool names = iequals(op, "AssociatorNames") || iequals(op, "ReferenceNames");
    ObjectPath obj = p.objectName();
    std::string assocClass = p.className("AssocClass", false), resultClass = p.className("ResultClass", false);
    std::string role = p.str("Role"), resultRole = p.str("ResultRole");
    auto r = rv();
    if (obj.isClassPath()) {
      std::vector<std::string> classes =
          assoc ? repo.associatorClasses(ns, obj.className, assocClass, resultClass, role, resultRole)
                : repo.referenceClasses(ns, obj.className, resultClass, role);
      ReadOptions ro;
      ro.localOnly = false;
      ro.includeQualifiers = names ? false : p.flag("IncludeQualifiers", false);
      ro.includeClassOrigin = names ? false : p.flag("IncludeClassOrigin", false);
      p.propertyList(&ro);
      for (const auto& c : classes) {
        if (names) {
          w.classPath(r.append_child("OBJECTPATH"), ns, c);
        } else {
          auto o = r.append_child("VALUE.OBJECTWITHPATH");
          w.classPath(o, ns, c);
          w.cls(o, repo.getClass(ns, c, ro));
        }
      }
      return;
    }
    ReadOptions ro = names ? ReadOptions() : instanceReadOptions(p, false);
    auto list = assoc ? repo.associators(ns, obj, assocClass, resultClass, role, resultRole)
                      : repo.references(ns, obj, resultClass, role);
    for (const auto& pi : list) {
      if (names) {
        if (!assoc && w.cfg.referenceNamesAsInstanceNames) w.instanceName(r, pi.path);
        else w.instancePath(r.append_child("OBJECTPATH"), pi.path);
      } else {
        w.objectWithPath(r, {pi.path, repo.filterInstance(ns, pi.instance, pi.instance.className, ro)});
      }
    }
  } else if (iequals(op, "CreateInstance")) {
    auto n = p.get("NewInstance");
    if (!n || !child(n, "INSTANCE")) throw CimError(CIM_ERR_INVALID_PARAMETER, "missing parameter NewInstance");
    ObjectPath path = repo.createInstance(ns, requestInstance(repo, w, ns, child(n, "INSTANCE")));
    path.nameSpace.clear();
    w.instanceName(rv(), path);
  } else if (iequals(op, "ModifyInstance")) {
    auto n = p.get("ModifiedInstance");
    pugi::xml_node ni = n ? child(n, "VALUE.NAMEDINSTANCE") : pugi::xml_node();
    if (!ni || !child(ni, "INSTANCENAME") || !child(ni, "INSTANCE"))
      throw CimError(CIM_ERR_INVALID_PARAMETER, "missing parameter ModifiedInstance (VALUE.NAMEDINSTANCE)");
    p.flag("IncludeQualifiers", true);
    ReadOptions ro;
    p.propertyList(&ro);
    ObjectPath path = parseInstanceName(child(ni, "INSTANCENAME"));
    repo.modifyInstance(ns, path, requestInstance(repo, w, ns, child(ni, "INSTANCE")),
                        ro.hasPropertyList ? &ro.propertyList : nullptr);
  } else if (iequals(op, "DeleteInstance")) {
    repo.deleteInstance(ns, p.instanceName("InstanceName"));
  } else if (iequals(op, "ExecQuery")) {
    std::string lang = p.str("QueryLanguage"), query = p.str("Query");
    if (!p.has("QueryLanguage") || !p.has("Query"))
      throw CimError(CIM_ERR_INVALID_PARAMETER, "ExecQuery needs QueryLanguage and Query");
    auto list = repo.execQuery(ns, lang, query);
    auto r = rv();
    for (const auto& pi : list) w.objectWithPath(r, pi);
  } else if (iequals(op, "GetQualifier")) {
    std::string name = p.str("QualifierName");
    const QualifierDecl* d = repo.qualifierDecl(ns, name);
    if (!d) throw CimError(CIM_ERR_NOT_FOUND, "qualifier " + name + " is not declared");
    auto q = rv().append_child("QUALIFIER.DECLARATION");
    q.append_attribute("NAME") = d->name.c_str();
    q.append_attribute("TYPE") = typeName(d->type);
    if (d->isArray) q.append_attribute("ISARRAY") = "true";
    w.flavorAttrs(q, d->flavor);
    w.value(q, d->defaultValue);
  } else {
    throw CimError(CIM_ERR_NOT_SUPPORTED, "operation " + op + " is not supported");
  }
}

void extrinsic(Repository& repo, Writer& w, const pugi::xml_node& call, pugi::xml_node resp) {
  std::string method = attr(call, "NAME");
  ObjectPath target;
  std::string ns;
  if (auto lip = child(call, "LOCALINSTANCEPATH")) {
    ns = namespaceOf(child(lip, "LOCALNAMESPACEPATH"));
    target = parseInstanceName(child(lip, "INSTANCENAME"));
  } else if (auto lcp = child(call, "LOCALCLASSPATH")) {
    ns = namespaceOf(child(lcp, "LOCALNAMESPACEPATH"));
    target.className = attr(child(lcp, "CLASSNAME"), "NAME");
  } else {
    throw BadRequest{"request-not-valid", "METHODCALL without LOCALINSTANCEPATH or LOCALCLASSPATH"};
  }
  checkNamespace(repo, ns);
  target.nameSpace = ns;
  const Class* c = repo.findClass(ns, target.className);
  if (!c) throw CimError(CIM_ERR_INVALID_CLASS, "class " + target.className + " does not exist");
  const Method* m = c->findMethod(method);
  std::vector<ParamValue> in;
  for (auto pv : call.children()) {
    if (!nameIs(pv, "PARAMVALUE")) continue;
    ParamValue x;
    x.name = attr(pv, "NAME");
    const Parameter* decl = m ? m->findParameter(x.name) : nullptr;
    Type t = Type::String;
    if (decl) t = decl->type;
    else parseTypeName(attr(pv, "PARAMTYPE"), &t);
    x.value = parseValueLike(pv, t, embeddingOf(pv, w.cfg.strict));
    in.push_back(x);
  }
  MethodResult r = repo.invokeMethod(ns, target, method, in);
  auto rvx = resp.append_child("RETURNVALUE");
  rvx.append_attribute("PARAMTYPE") = typeName(r.returnValue.type);
  if (r.returnValue.isNull) {
  } else {
    w.value(rvx, r.returnValue);
  }
  for (const auto& o : r.out) {
    auto pv = resp.append_child("PARAMVALUE");
    pv.append_attribute("NAME") = o.name.c_str();
    pv.append_attribute("PARAMTYPE") = typeName(o.value.type);
    w.value(pv, o.value);
  }
}

}  // namespace

bool tooDeep(const pugi::xml_node& n) {
  struct Walker : pugi::xml_tree_walker {
    bool deep = false;
    bool for_each(pugi::xml_node&) override { return !(deep = depth() > kMaxXmlDepth); }
  } w;
  pugi::xml_node copy = n;
  copy.traverse(w);
  return w.deep;
}

bool parseEmbeddedInstance(const std::string& textIn, Instance* out) {
  pugi::xml_document d;
  std::string norm = normaliseXml(textIn);
  if (!d.load_string(norm.c_str(), pugi::parse_default) || tooDeep(d)) return false;
  pugi::xml_node in;
  for (auto c : d.children())
    if (nameIs(c, "INSTANCE")) in = c;
  if (!in) return false;
  try {
    *out = parseInstance(in);
  } catch (const CimError&) {
    return false;
  }
  return true;
}

std::string processCimXml(Repository& repo, const std::string& body, const XmlConfig& cfg, int* httpStatus,
                          std::string* cimErrorHeader) {
  *httpStatus = 200;
  cimErrorHeader->clear();
  try {
    size_t start = body.find('<');
    if (start == std::string::npos) throw BadRequest{"request-not-well-formed", "no XML in the body"};
    std::string norm = normaliseXml(body.substr(start));
    pugi::xml_document req;
    pugi::xml_parse_result pr = req.load_buffer(norm.data(), norm.size(), pugi::parse_default | pugi::parse_declaration);
    if (!pr) throw BadRequest{"request-not-well-formed", std::string("XML error: ") + pr.description()};
    if (tooDeep(req))
      throw BadRequest{"request-not-valid", "elements nested deeper than " + std::to_string(kMaxXmlDepth) + " levels"};
    pugi::xml_node cim = child(req, "CIM");
    pugi::xml_node msg = child(cim, "MESSAGE");
    if (!cim || !msg) throw BadRequest{"request-not-valid", "no CIM/MESSAGE element"};
    if (child(msg, "MULTIREQ")) throw BadRequest{"multiple-requests-unsupported", "MULTIREQ is not supported"};
    pugi::xml_node sreq = child(msg, "SIMPLEREQ");
    if (!sreq) throw BadRequest{"request-not-valid", "no SIMPLEREQ element"};
    std::string id = attr(msg, "ID");
    if (id.empty()) id = "0";
    pugi::xml_document doc;
    pugi::xml_node srsp = envelope(doc, id);
    Writer w{cfg, repo};
    if (auto call = child(sreq, "IMETHODCALL")) {
      std::string op = attr(call, "NAME");
      auto resp = srsp.append_child("IMETHODRESPONSE");
      resp.append_attribute("NAME") = op.c_str();
      Params p;
      for (auto c : call.children())
        if (nameIs(c, "IPARAMVALUE")) p.list.emplace_back(attr(c, "NAME"), c);
      std::string ns = namespaceOf(child(call, "LOCALNAMESPACEPATH"));
      try {
        intrinsic(repo, w, op, ns, p, resp);
      } catch (const CimError& e) {
        for (auto c = resp.first_child(); c; c = resp.first_child()) resp.remove_child(c);
        errorElement(resp, e.code, e.what());
      }
    } else if (auto call = child(sreq, "METHODCALL")) {
      auto resp = srsp.append_child("METHODRESPONSE");
      resp.append_attribute("NAME") = attr(call, "NAME").c_str();
      try {
        extrinsic(repo, w, call, resp);
      } catch (const CimError& e) {
        for (auto c = resp.first_child(); c; c = resp.first_child()) resp.remove_child(c);
        errorElement(resp, e.code, e.what());
      }
    } else {
      throw BadRequest{"request-not-valid", "SIMPLEREQ holds no IMETHODCALL or METHODCALL"};
    }
    return serialise(doc, cfg.layout);
  } catch (const BadRequest& b) {
    *httpStatus = 400;
    *cimErrorHeader = b.header;
    return b.why;
  } catch (const CimError& e) {  // from path decoding outside an operation
    *httpStatus = 400;
    *cimErrorHeader = "request-not-valid";
    return e.what();
  } catch (const std::exception& e) {
    *httpStatus = 500;
    *cimErrorHeader = "";
    return e.what();
  }
}

}  // namespace detail
}  // namespace cimmock
