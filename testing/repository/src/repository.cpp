// The in-memory repository: namespaces, classes, instances, associations,
// methods.
#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

#include "cimmock/repository.h"

namespace cimmock {

// ---- element helpers -----------------------------------------------------------

const Qualifier* findQualifier(const QualifierList& q, const std::string& name) {
  for (const auto& x : q)
    if (iequals(x.name, name)) return &x;
  return nullptr;
}

namespace {
bool qualifierTrue(const QualifierList& q, const std::string& name) {
  const Qualifier* x = findQualifier(q, name);
  return x && !x->value.isNull && !x->value.isArray && x->value.asText() == "TRUE";
}
bool qualifierTrueOr(const QualifierList& q, const std::string& name, bool dflt) {
  const Qualifier* x = findQualifier(q, name);
  if (!x || x->value.isNull) return x ? true : dflt;
  return x->value.asText() == "TRUE";
}
std::string qualifierText(const QualifierList& q, const std::string& name) {
  const Qualifier* x = findQualifier(q, name);
  return x ? x->value.asText() : std::string();
}
}  // namespace

bool Property::isKey() const { return qualifierTrue(qualifiers, "Key"); }
std::string Property::embeddedClass() const {
  if (const Qualifier* q = findQualifier(qualifiers, "EmbeddedInstance")) return q->value.asText();
  if (qualifierTrue(qualifiers, "EmbeddedObject")) return "*";
  return "";
}
bool Parameter::isIn() const { return qualifierTrueOr(qualifiers, "In", true); }
bool Parameter::isOut() const { return qualifierTrueOr(qualifiers, "Out", false); }
const Parameter* Method::findParameter(const std::string& n) const {
  for (const auto& p : parameters)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}
bool Class::isAssociation() const { return qualifierTrue(qualifiers, "Association"); }
bool Class::isAbstract() const { return qualifierTrue(qualifiers, "Abstract"); }
const Property* Class::findProperty(const std::string& n) const {
  for (const auto& p : properties)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}
Property* Class::findProperty(const std::string& n) {
  for (auto& p : properties)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}
const Method* Class::findMethod(const std::string& n) const {
  for (const auto& m : methods)
    if (iequals(m.name, n)) return &m;
  return nullptr;
}
std::vector<std::string> Class::keyNames() const {
  std::vector<std::string> out;
  for (const auto& p : properties)
    if (p.isKey()) out.push_back(p.name);
  return out;
}
const Property* Instance::findProperty(const std::string& n) const {
  for (const auto& p : properties)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}
Property* Instance::findProperty(const std::string& n) {
  for (auto& p : properties)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}
void Instance::set(const std::string& n, const Value& v) {
  if (Property* p = findProperty(n)) {
    p->value = v;
    return;
  }
  Property p;
  p.name = n;
  p.type = v.type;
  p.isArray = v.isArray;
  p.value = v;
  properties.push_back(p);
}
const ParamValue* MethodCall::findIn(const std::string& n) const {
  for (const auto& p : in)
    if (iequals(p.name, n)) return &p;
  return nullptr;
}

// ---- data -----------------------------------------------------------------------

struct NsData {
  std::string name;
  std::map<std::string, QualifierDecl> quals;  // lower-case name
  std::vector<std::string> qualOrder;
  std::map<std::string, Class> classes;        // lower-case name -> resolved
  std::vector<std::string> classOrder;         // lower-case names, declaration order
  std::vector<Instance> instances;
  // Positions in `instances` by keySignature of their paths.
  std::unordered_multimap<std::string, std::size_t> byKeys;
};

struct Repository::Data {
  std::map<std::string, NsData> ns;
  std::map<std::string, MethodBehaviour> behaviours;        // lower-case name
  std::map<std::string, MethodBehaviour> methodBehaviours;  // "class.method" lower-case
};

namespace {
NsData& needNs(Repository::Data& d, const std::string& ns) {
  auto it = d.ns.find(toLower(ns));
  if (it == d.ns.end()) throw CimError(CIM_ERR_INVALID_NAMESPACE, "namespace " + ns + " does not exist");
  return it->second;
}
const Class& needClass(const NsData& n, const std::string& name, int code = CIM_ERR_INVALID_CLASS) {
  auto it = n.classes.find(toLower(name));
  if (it == n.classes.end()) throw CimError(code, "class " + name + " does not exist in " + n.name);
  return it->second;
}
bool isAIn(const NsData& n, const std::string& cls, const std::string& base) {
  std::string c = toLower(cls), b = toLower(base);
  for (int guard = 0; guard < 256 && !c.empty(); ++guard) {
    if (c == b) return true;
    auto it = n.classes.find(c);
    if (it == n.classes.end()) return false;
    c = toLower(it->second.superClass);
  }
  return false;
}
// A reference property (named `role`, when given) that can point at an
// instance of className: the class-level form of an association's end.
bool canReferTo(const NsData& n, const Property& p, const std::string& className, const std::string& role) {
  if (p.type != Type::Reference || (!role.empty() && !iequals(p.name, role))) return false;
  return isAIn(n, className, p.referenceClass) || isAIn(n, p.referenceClass, className);
}
void applyReadOptionsToQualifiers(QualifierList& q, const ReadOptions& ro) {
  if (!ro.includeQualifiers) { q.clear(); return; }
  if (ro.localOnly) q.erase(std::remove_if(q.begin(), q.end(), [](const Qualifier& x) { return x.propagated; }), q.end());
}
bool inPropertyList(const ReadOptions& ro, const std::string& name) {
  if (!ro.hasPropertyList) return true;
  for (const auto& p : ro.propertyList)
    if (iequals(p, name)) return true;
  return false;
}
QualifierList inherit(const QualifierList& parent) {
  QualifierList out;
  for (const auto& q : parent) {
    if (!q.flavor.toSubclass || iequals(q.name, "Abstract")) continue;
    Qualifier c = q;
    c.propagated = true;
    out.push_back(c);
  }
  return out;
}
void mergeQualifiers(QualifierList& into, const QualifierList& local) {
  for (const auto& q : local) {
    bool replaced = false;
    for (auto& x : into)
      if (iequals(x.name, q.name)) { x = q; x.propagated = false; replaced = true; break; }
    if (!replaced) {
      Qualifier c = q;
      c.propagated = false;
      into.push_back(c);
    }
  }
}
Value coerce(const Value& v, Type t, bool isArray, const std::string& what) {
  if (v.isNull) return Value::null(t, isArray);
  Value out = v;
  out.type = t;
  out.isArray = isArray;
  if (!v.embedded.empty()) {
    if (t != Type::String) throw CimError(CIM_ERR_TYPE_MISMATCH, what + ": embedded instance for a non-string");
    return out;
  }
  if (t == Type::Reference) {
    if (v.type != Type::Reference) {
      out.refs.clear();
      for (const auto& s : v.texts) out.refs.push_back(ObjectPath::parse(s));
      out.texts.clear();
    }
    return out;
  }
  if (v.type == Type::Reference) throw CimError(CIM_ERR_TYPE_MISMATCH, what + ": reference for a non-reference");
  out.texts.clear();
  for (const auto& s : v.texts) out.texts.push_back(canonicalText(t, s));
  return out;
}
}  // namespace

Repository::Repository() : d_(new Data) {
  addNamespace("root/cimv2");
}
Repository::~Repository() = default;
Repository::Repository(const Repository& o) : d_(new Data(*o.d_)) {}
Repository& Repository::operator=(const Repository& o) {
  if (this != &o) *d_ = *o.d_;
  return *this;
}

// ---- namespaces / qualifiers -----------------------------------------------------

namespace {
// Instances are indexed by the exact text of their string-like keys, so that
// a lookup or createInstance's duplicate check does not compare every
// instance. Other keys (numbers compare by value, references by path) only
// count in the signature: the index narrows, instanceMatches decides.
std::string keySignature(const ObjectPath& p) {
  std::vector<std::pair<std::string, std::string>> parts;
  for (const auto& k : p.keys) {
    bool exact = !k.ref && (k.type == Type::String || k.type == Type::Char16 || k.type == Type::DateTime);
    parts.emplace_back(toLower(k.name), exact ? "=" + k.text : "*");
  }
  std::sort(parts.begin(), parts.end());
  std::string sig = std::to_string(parts.size());
  for (const auto& [name, value] : parts) {
    sig += '\n' + std::to_string(name.size()) + ':' + name + std::to_string(value.size()) + ':';
    sig += value;
  }
  return sig;
}

void reindex(NsData& n, const Repository& repo) {
  n.byKeys.clear();
  for (std::size_t i = 0; i < n.instances.size(); ++i) n.byKeys.emplace(keySignature(repo.pathOf(n.name, n.instances[i])), i);
}

}  // namespace

void Repository::addNamespace(const std::string& ns) {
  std::string key = toLower(ns);
  if (d_->ns.count(key)) return;
  d_->ns[key].name = ns;
}
bool Repository::hasNamespace(const std::string& ns) const { return d_->ns.count(toLower(ns)) != 0; }
std::vector<std::string> Repository::namespaces() const {
  std::vector<std::string> out;
  for (const auto& e : d_->ns) out.push_back(e.second.name);
  return out;
}
void Repository::addQualifierDecl(const std::string& ns, const QualifierDecl& decl) {
  NsData& n = needNs(*d_, ns);
  std::string key = toLower(decl.name);
  if (!n.quals.count(key)) n.qualOrder.push_back(key);
  n.quals[key] = decl;
}
const QualifierDecl* Repository::qualifierDecl(const std::string& ns, const std::string& name) const {
  auto it = d_->ns.find(toLower(ns));
  if (it == d_->ns.end()) return nullptr;
  auto q = it->second.quals.find(toLower(name));
  return q == it->second.quals.end() ? nullptr : &q->second;
}
std::vector<QualifierDecl> Repository::qualifierDecls(const std::string& ns) const {
  const NsData& n = needNs(*d_, ns);
  std::vector<QualifierDecl> out;
  for (const auto& k : n.qualOrder) out.push_back(n.quals.at(k));
  return out;
}

// ---- classes ----------------------------------------------------------------------

void Repository::addClass(const std::string& ns, const Class& local) {
  NsData& n = needNs(*d_, ns);
  std::string key = toLower(local.name);
  if (local.name.empty()) throw CimError(CIM_ERR_INVALID_PARAMETER, "class without a name");
  if (n.classes.count(key)) throw CimError(CIM_ERR_ALREADY_EXISTS, "class " + local.name + " already exists");
  Class c;
  c.name = local.name;
  c.superClass = local.superClass;
  if (!local.superClass.empty()) {
    auto sit = n.classes.find(toLower(local.superClass));
    if (sit == n.classes.end())
      throw CimError(CIM_ERR_INVALID_SUPERCLASS, "superclass " + local.superClass + " of " + local.name + " does not exist");
    const Class& s = sit->second;
    c.superClass = s.name;
    c.qualifiers = inherit(s.qualifiers);
    for (const auto& p : s.properties) {
      Property ip = p;
      ip.propagated = true;
      ip.qualifiers = inherit(p.qualifiers);
      c.properties.push_back(ip);
    }
    for (const auto& m : s.methods) {
      Method im = m;
      im.propagated = true;
      im.qualifiers = inherit(m.qualifiers);
      c.methods.push_back(im);
    }
  }
  mergeQualifiers(c.qualifiers, local.qualifiers);
  for (const auto& p : local.properties) {
    Property lp = p;
    lp.classOrigin = c.name;
    lp.propagated = false;
    if (Property* inh = c.findProperty(p.name)) {
      QualifierList q = inh->qualifiers;
      mergeQualifiers(q, p.qualifiers);
      lp.qualifiers = q;
      if (lp.value.isNull && !inh->value.isNull && lp.type == inh->type) lp.value = inh->value;
      *inh = lp;
    } else {
      for (auto& q : lp.qualifiers) q.propagated = false;
      c.properties.push_back(lp);
    }
  }
  for (const auto& m : local.methods) {
    Method lm = m;
    lm.classOrigin = c.name;
    lm.propagated = false;
    bool replaced = false;
    for (auto& im : c.methods)
      if (iequals(im.name, m.name)) {
        QualifierList q = im.qualifiers;
        mergeQualifiers(q, m.qualifiers);
        lm.qualifiers = q;
        im = lm;
        replaced = true;
        break;
      }
    if (!replaced) c.methods.push_back(lm);
  }
  // Coerce defaults to the declared types.
  for (auto& p : c.properties) {
    if (!p.value.isNull && p.value.type != p.type && p.value.embedded.empty())
      p.value = coerce(p.value, p.type, p.isArray, c.name + "." + p.name);
  }
  n.classes[key] = c;
  n.classOrder.push_back(key);
  if (!n.instances.empty()) reindex(n, *this);  // a class given again may key its instances anew
}

const Class* Repository::findClass(const std::string& ns, const std::string& name) const {
  auto it = d_->ns.find(toLower(ns));
  if (it == d_->ns.end()) return nullptr;
  auto c = it->second.classes.find(toLower(name));
  return c == it->second.classes.end() ? nullptr : &c->second;
}

Class Repository::getClass(const std::string& ns, const std::string& name, const ReadOptions& ro) const {
  const NsData& n = needNs(*d_, ns);
  Class c = needClass(n, name, CIM_ERR_NOT_FOUND);
  applyReadOptionsToQualifiers(c.qualifiers, ro);
  std::vector<Property> props;
  for (auto& p : c.properties) {
    if (ro.localOnly && p.propagated) continue;
    if (!inPropertyList(ro, p.name)) continue;
    applyReadOptionsToQualifiers(p.qualifiers, ro);
    if (!ro.includeClassOrigin) p.classOrigin.clear();
    props.push_back(p);
  }
  c.properties = props;
  std::vector<Method> methods;
  for (auto& m : c.methods) {
    if (ro.localOnly && m.propagated) continue;
    applyReadOptionsToQualifiers(m.qualifiers, ro);
    for (auto& p : m.parameters)
      if (!ro.includeQualifiers) p.qualifiers.clear();
    if (!ro.includeClassOrigin) m.classOrigin.clear();
    methods.push_back(m);
  }
  c.methods = methods;
  return c;
}

std::vector<std::string> Repository::enumerateClassNames(const std::string& ns, const std::string& className,
                                                         bool deep) const {
  const NsData& n = needNs(*d_, ns);
  if (!className.empty()) needClass(n, className);
  std::vector<std::string> out;
  for (const auto& key : n.classOrder) {
    const Class& c = n.classes.at(key);
    if (iequals(c.name, className)) continue;
    bool take;
    if (deep) take = className.empty() || isAIn(n, c.name, className);
    else take = iequals(c.superClass, className);
    if (take) out.push_back(c.name);
  }
  return out;
}

std::vector<Class> Repository::enumerateClasses(const std::string& ns, const std::string& className, bool deep,
                                                const ReadOptions& ro) const {
  std::vector<Class> out;
  for (const auto& name : enumerateClassNames(ns, className, deep)) out.push_back(getClass(ns, name, ro));
  return out;
}

bool Repository::isA(const std::string& ns, const std::string& cls, const std::string& base) const {
  auto it = d_->ns.find(toLower(ns));
  if (it == d_->ns.end()) return false;
  return isAIn(it->second, cls, base);
}

// ---- instances ---------------------------------------------------------------------

ObjectPath Repository::pathOf(const std::string& ns, const Instance& inst) const {
  ObjectPath p;
  p.nameSpace = ns;
  const Class* c = findClass(ns, inst.className);
  p.className = c ? c->name : inst.className;
  const std::vector<Property>& props = c ? c->properties : inst.properties;
  for (const auto& cp : props) {
    if (!cp.isKey()) continue;
    const Property* ip = inst.findProperty(cp.name);
    KeyBinding kb;
    kb.name = cp.name;
    kb.type = cp.type;
    if (ip && !ip->value.isNull) {
      if (cp.type == Type::Reference && !ip->value.refs.empty())
        kb.ref = std::make_shared<ObjectPath>(ip->value.refs[0]);
      else
        kb.text = ip->value.asText();
    }
    p.keys.push_back(kb);
  }
  return p;
}

std::vector<PathedInstance> Repository::instancesOf(const std::string& ns, const std::string& className) const {
  std::vector<PathedInstance> out;
  visitInstancesOf(ns, className, [&](const std::string& nsName, const Instance& i) {
    out.push_back({pathOf(nsName, i), i});
  });
  return out;
}

void Repository::visitInstancesOf(const std::string& ns, const std::string& className,
                                  const std::function<void(const std::string&, const Instance&)>& fn) const {
  const NsData& n = needNs(*d_, ns);
  needClass(n, className);
  // Instances of one class sit together: the class test is done once per run.
  const std::string* last = nullptr;
  bool lastIs = false;
  for (const auto& i : n.instances) {
    if (!last || i.className != *last) {
      lastIs = isAIn(n, i.className, className);
      last = &i.className;
    }
    if (lastIs) fn(n.name, i);
  }
}

std::vector<ObjectPath> Repository::instanceNames(const std::string& ns, const std::string& className) const {
  std::vector<ObjectPath> out;
  for (auto& pi : instancesOf(ns, className)) out.push_back(pi.path);
  return out;
}

Instance Repository::filterInstance(const std::string& ns, const Instance& inst, const std::string& requestedClass,
                                    const ReadOptions& ro) const {
  Instance out;
  out.className = inst.className;
  const Class* req = requestedClass.empty() ? nullptr : findClass(ns, requestedClass);
  const Class* own = findClass(ns, inst.className);
  if (ro.includeQualifiers) out.qualifiers = own ? own->qualifiers : inst.qualifiers;
  for (const auto& p : inst.properties) {
    if (!inPropertyList(ro, p.name)) continue;
    const Property* cp = own ? own->findProperty(p.name) : nullptr;
    if (req && !ro.deepInheritance && !req->findProperty(p.name)) continue;
    if (ro.localOnly && cp && req && !iequals(cp->classOrigin, req->name)) continue;
    Property q = p;
    q.propagated = false;
    q.qualifiers.clear();
    q.classOrigin.clear();
    if (cp) {
      if (ro.includeQualifiers) {
        q.qualifiers = cp->qualifiers;
        for (auto& x : q.qualifiers) x.propagated = true;
      }
      if (ro.includeClassOrigin) q.classOrigin = cp->classOrigin;
    }
    out.properties.push_back(q);
  }
  return out;
}

namespace {
// Gives the wanted key `name` the class's type, references aside.
void typeKey(ObjectPath& want, const std::string& name, Type type) {
  for (auto& k : want.keys)
    if (iequals(k.name, name) && type != Type::Reference && k.type != Type::Reference) k.type = type;
}

bool instanceMatches(const NsData& n, const Instance& i, const ObjectPath& path, const Repository& repo) {
  if (!isAIn(n, i.className, path.className) && !isAIn(n, path.className, i.className)) return false;
  ObjectPath mine = repo.pathOf(n.name, i);
  ObjectPath want = path;
  want.className = mine.className;
  want.nameSpace.clear();
  want.host.clear();
  mine.nameSpace.clear();
  if (want.keys.size() == 1 && mine.keys.size() == 1 && want.keys[0].name.empty()) want.keys[0].name = mine.keys[0].name;
  // Type the wanted keys by the class.
  for (const auto& m : mine.keys) typeKey(want, m.name, m.type);
  return samePath(mine, want);
}
}  // namespace

namespace {
constexpr std::size_t kNoInstance = static_cast<std::size_t>(-1);

// The first instance in creation order that `path` names.
std::size_t indexOf(const NsData& n, const ObjectPath& path, const Repository& repo) {
  const Class* c = repo.findClass(n.name, path.className);
  bool unnamedKey = path.keys.size() == 1 && path.keys[0].name.empty();
  if (c && !unnamedKey) {
    // Typed by the class, as instanceMatches types them.
    ObjectPath typed = path;
    for (const auto& cp : c->properties)
      if (cp.isKey()) typeKey(typed, cp.name, cp.type);
    std::size_t best = kNoInstance;
    auto range = n.byKeys.equal_range(keySignature(typed));
    for (auto it = range.first; it != range.second; ++it)
      if (it->second < best && instanceMatches(n, n.instances[it->second], path, repo)) best = it->second;
    if (best != kNoInstance) return best;
  }
  // Not narrowed, or not found by the signature: every instance decides.
  for (std::size_t i = 0; i < n.instances.size(); ++i)
    if (instanceMatches(n, n.instances[i], path, repo)) return i;
  return kNoInstance;
}
}  // namespace

const Instance* Repository::findInstance(const std::string& ns, const ObjectPath& path) const {
  auto it = d_->ns.find(toLower(ns));
  if (it == d_->ns.end()) return nullptr;
  std::size_t i = indexOf(it->second, path, *this);
  return i == kNoInstance ? nullptr : &it->second.instances[i];
}

Instance Repository::getInstance(const std::string& ns, const ObjectPath& path) const {
  const NsData& n = needNs(*d_, ns);
  needClass(n, path.className);
  const Instance* i = findInstance(ns, path);
  if (!i) throw CimError(CIM_ERR_NOT_FOUND, "instance " + path.toString() + " does not exist");
  return *i;
}

ObjectPath Repository::createInstance(const std::string& ns, const Instance& given) {
  NsData& n = needNs(*d_, ns);
  const Class& c = needClass(n, given.className);
  Instance inst;
  inst.className = c.name;
  inst.qualifiers = given.qualifiers;
  for (const auto& cp : c.properties) {
    Property p;
    p.name = cp.name;
    p.type = cp.type;
    p.isArray = cp.isArray;
    p.arraySize = cp.arraySize;
    p.referenceClass = cp.referenceClass;
    p.classOrigin = cp.classOrigin;
    p.value = cp.value;
    if (p.value.isNull) p.value = Value::null(cp.type, cp.isArray);
    inst.properties.push_back(p);
  }
  for (const auto& gp : given.properties) {
    Property* p = inst.findProperty(gp.name);
    if (!p) throw CimError(CIM_ERR_INVALID_PARAMETER, "class " + c.name + " has no property " + gp.name);
    p->value = coerce(gp.value, p->type, p->isArray, c.name + "." + p->name);
  }
  for (const auto& cp : c.properties)
    if (cp.isKey() && inst.findProperty(cp.name)->value.isNull)
      throw CimError(CIM_ERR_INVALID_PARAMETER, "key property " + cp.name + " of " + c.name + " has no value");
  ObjectPath path = pathOf(n.name, inst);
  std::string signature = keySignature(path);
  if (!c.keyNames().empty()) {
    auto range = n.byKeys.equal_range(signature);
    for (auto it = range.first; it != range.second; ++it) {
      const Instance& i = n.instances[it->second];
      if (iequals(i.className, inst.className) || isAIn(n, i.className, inst.className) ||
          isAIn(n, inst.className, i.className)) {
        ObjectPath other = pathOf(n.name, i);
        other.className = path.className;
        if (samePath(other, path))
          throw CimError(CIM_ERR_ALREADY_EXISTS, "instance " + path.toString() + " already exists");
      }
    }
  }
  n.instances.push_back(inst);
  n.byKeys.emplace(std::move(signature), n.instances.size() - 1);
  return path;
}

void Repository::modifyInstance(const std::string& ns, const ObjectPath& path, const Instance& given,
                                const std::vector<std::string>* propertyList) {
  NsData& n = needNs(*d_, ns);
  needClass(n, path.className);
  std::size_t at = indexOf(n, path, *this);
  Instance* target = at == kNoInstance ? nullptr : &n.instances[at];
  if (!target) throw CimError(CIM_ERR_NOT_FOUND, "instance " + path.toString() + " does not exist");
  for (const auto& gp : given.properties) {
    if (propertyList) {
      bool listed = false;
      for (const auto& name : *propertyList)
        if (iequals(name, gp.name)) listed = true;
      if (!listed) continue;
    }
    Property* p = target->findProperty(gp.name);
    if (!p) throw CimError(CIM_ERR_NO_SUCH_PROPERTY, "class " + target->className + " has no property " + gp.name);
    Value v = coerce(gp.value, p->type, p->isArray, target->className + "." + p->name);
    const Class* c = findClass(ns, target->className);
    const Property* cp = c ? c->findProperty(p->name) : nullptr;
    if (cp && cp->isKey()) {
      // Keys cannot change; an equal value is accepted.
      bool same = v.isNull == p->value.isNull &&
                  (p->type == Type::Reference ? (v.refs.size() == p->value.refs.size() &&
                                                 (v.refs.empty() || samePath(v.refs[0], p->value.refs[0])))
                                              : v.texts == p->value.texts);
      if (!same) throw CimError(CIM_ERR_INVALID_PARAMETER, "key property " + p->name + " cannot be modified");
      continue;
    }
    p->value = v;
  }
}

void Repository::deleteInstance(const std::string& ns, const ObjectPath& path) {
  NsData& n = needNs(*d_, ns);
  needClass(n, path.className);
  std::size_t at = indexOf(n, path, *this);
  if (at != kNoInstance) {
    n.instances.erase(n.instances.begin() + static_cast<std::ptrdiff_t>(at));
    reindex(n, *this);  // positions after it have moved
    return;
  }
  throw CimError(CIM_ERR_NOT_FOUND, "instance " + path.toString() + " does not exist");
}

std::size_t Repository::instanceCount(const std::string& ns) const { return needNs(*d_, ns).instances.size(); }

// ---- associations -------------------------------------------------------------------

namespace {
bool refersTo(const Property& p, const ObjectPath& object) {
  if (p.type != Type::Reference || p.value.isNull) return false;
  for (const auto& r : p.value.refs) {
    ObjectPath a = r, b = object;
    a.host.clear();
    b.host.clear();
    if (samePath(a, b)) return true;
  }
  return false;
}
}  // namespace

std::vector<PathedInstance> Repository::references(const std::string& ns, const ObjectPath& object,
                                                   const std::string& resultClass, const std::string& role) const {
  const NsData& n = needNs(*d_, ns);
  if (!resultClass.empty()) needClass(n, resultClass, CIM_ERR_INVALID_PARAMETER);
  std::vector<PathedInstance> out;
  for (const auto& i : n.instances) {
    const Class* c = findClass(ns, i.className);
    if (!c || !c->isAssociation()) continue;
    if (!resultClass.empty() && !isAIn(n, i.className, resultClass)) continue;
    for (const auto& p : i.properties) {
      if (!role.empty() && !iequals(p.name, role)) continue;
      if (refersTo(p, object)) {
        out.push_back({pathOf(n.name, i), i});
        break;
      }
    }
  }
  return out;
}

std::vector<PathedInstance> Repository::associators(const std::string& ns, const ObjectPath& object,
                                                    const std::string& assocClass, const std::string& resultClass,
                                                    const std::string& role, const std::string& resultRole) const {
  const NsData& n = needNs(*d_, ns);
  if (!assocClass.empty()) needClass(n, assocClass, CIM_ERR_INVALID_PARAMETER);
  if (!resultClass.empty()) needClass(n, resultClass, CIM_ERR_INVALID_PARAMETER);
  std::vector<PathedInstance> out;
  for (const auto& a : n.instances) {
    const Class* c = findClass(ns, a.className);
    if (!c || !c->isAssociation()) continue;
    if (!assocClass.empty() && !isAIn(n, a.className, assocClass)) continue;
    for (const auto& near : a.properties) {
      if (!role.empty() && !iequals(near.name, role)) continue;
      if (!refersTo(near, object)) continue;
      for (const auto& far : a.properties) {
        if (&far == &near || far.type != Type::Reference || far.value.isNull) continue;
        if (!resultRole.empty() && !iequals(far.name, resultRole)) continue;
        for (const auto& target : far.value.refs) {
          if (!target.nameSpace.empty() && !iequals(target.nameSpace, ns)) continue;
          const Instance* t = findInstance(ns, target);
          if (!t) continue;
          if (!resultClass.empty() && !isAIn(n, t->className, resultClass)) continue;
          ObjectPath tp = pathOf(n.name, *t);
          bool dup = false;
          for (const auto& o : out)
            if (samePath(o.path, tp)) dup = true;
          if (!dup) out.push_back({tp, *t});
        }
      }
    }
  }
  return out;
}

std::vector<std::string> Repository::referenceClasses(const std::string& ns, const std::string& className,
                                                      const std::string& resultClass, const std::string& role) const {
  const NsData& n = needNs(*d_, ns);
  needClass(n, className);
  std::vector<std::string> out;
  for (const auto& key : n.classOrder) {
    const Class& c = n.classes.at(key);
    if (!c.isAssociation()) continue;
    if (!resultClass.empty() && !isAIn(n, c.name, resultClass)) continue;
    for (const auto& p : c.properties) {
      if (canReferTo(n, p, className, role)) {
        out.push_back(c.name);
        break;
      }
    }
  }
  return out;
}

std::vector<std::string> Repository::associatorClasses(const std::string& ns, const std::string& className,
                                                       const std::string& assocClass, const std::string& resultClass,
                                                       const std::string& role, const std::string& resultRole) const {
  const NsData& n = needNs(*d_, ns);
  needClass(n, className);
  std::vector<std::string> out;
  for (const auto& key : n.classOrder) {
    const Class& c = n.classes.at(key);
    if (!c.isAssociation()) continue;
    if (!assocClass.empty() && !isAIn(n, c.name, assocClass)) continue;
    for (const auto& near : c.properties) {
      if (!canReferTo(n, near, className, role)) continue;
      for (const auto& far : c.properties) {
        if (&far == &near || far.type != Type::Reference) continue;
        if (!resultRole.empty() && !iequals(far.name, resultRole)) continue;
        const Class* fc = findClass(ns, far.referenceClass);
        if (!fc) continue;
        if (!resultClass.empty() && !isAIn(n, fc->name, resultClass) && !isAIn(n, resultClass, fc->name)) continue;
        if (std::find(out.begin(), out.end(), fc->name) == out.end()) out.push_back(fc->name);
      }
    }
  }
  return out;
}

// ---- methods ----------------------------------------------------------------------

void Repository::registerBehaviour(const std::string& name, MethodBehaviour fn) {
  d_->behaviours[toLower(name)] = std::move(fn);
}
void Repository::setMethodBehaviour(const std::string& className, const std::string& method, MethodBehaviour fn) {
  d_->methodBehaviours[toLower(className) + "." + toLower(method)] = std::move(fn);
}

namespace {
Value returnZero(const Method& m) {
  if (isIntegerType(m.returnType)) return Value::text(m.returnType, "0");
  if (m.returnType == Type::Boolean) return Value::boolean(true);
  return Value::null(m.returnType);
}

MethodResult builtinEcho(MethodCall& call) {
  MethodResult r;
  r.returnValue = returnZero(call.method);
  for (const auto& p : call.in) r.out.push_back(p);
  return r;
}

MethodResult builtinSetProperty(MethodCall& call) {
  if (call.target.isClassPath())
    throw CimError(CIM_ERR_INVALID_PARAMETER, "method " + call.method.name + " needs an instance");
  Instance change;
  change.className = call.target.className;
  std::vector<std::string> names;
  std::string target = qualifierText(call.method.qualifiers, "MockProperty");
  for (const auto& p : call.in) {
    std::string prop = target.empty() ? p.name : target;
    if (!call.cls.findProperty(prop)) continue;
    change.set(prop, p.value);
    names.push_back(prop);
    if (!target.empty()) break;
  }
  call.repo.modifyInstance(call.nameSpace, call.target, change, &names);
  MethodResult r;
  r.returnValue = returnZero(call.method);
  return r;
}

MethodResult builtinReturn(MethodCall& call) {
  MethodResult r;
  const Qualifier* q = findQualifier(call.method.qualifiers, "MockReturn");
  r.returnValue = q ? coerce(q->value, call.method.returnType, false, call.method.name) : returnZero(call.method);
  return r;
}

MethodResult builtinFail(MethodCall& call) {
  throw CimError(CIM_ERR_FAILED, "method " + call.method.name + " failed (MockBehavior Fail)");
}
}  // namespace

MethodResult Repository::invokeMethod(const std::string& ns, const ObjectPath& target, const std::string& method,
                                      const std::vector<ParamValue>& in) {
  NsData& n = needNs(*d_, ns);
  const Class& c = needClass(n, target.className);
  const Method* m = c.findMethod(method);
  if (!m) throw CimError(CIM_ERR_METHOD_NOT_FOUND, "class " + c.name + " has no method " + method);
  if (!target.isClassPath() && !findInstance(ns, target))
    throw CimError(CIM_ERR_NOT_FOUND, "instance " + target.toString() + " does not exist");
  MethodCall call{*this, n.name, target, c, *m, {}};
  for (const auto& p : in) {
    const Parameter* decl = m->findParameter(p.name);
    if (!decl) throw CimError(CIM_ERR_INVALID_PARAMETER, "method " + m->name + " has no parameter " + p.name);
    ParamValue pv;
    pv.name = decl->name;
    pv.value = coerce(p.value, decl->type, decl->isArray, m->name + "." + decl->name);
    call.in.push_back(pv);
  }
  // Explicit registration (walking up the class chain), then MockBehavior.
  MethodBehaviour fn;
  std::string cls = c.name;
  for (int guard = 0; guard < 256 && !cls.empty() && !fn; ++guard) {
    auto it = d_->methodBehaviours.find(toLower(cls) + "." + toLower(m->name));
    if (it != d_->methodBehaviours.end()) fn = it->second;
    const Class* cc = findClass(ns, cls);
    cls = cc ? cc->superClass : "";
  }
  if (!fn) {
    std::string b = toLower(qualifierText(m->qualifiers, "MockBehavior"));
    auto it = d_->behaviours.find(b);
    if (it != d_->behaviours.end()) fn = it->second;
    else if (b == "echo") fn = builtinEcho;
    else if (b == "setproperty") fn = builtinSetProperty;
    else if (b == "return") fn = builtinReturn;
    else if (b == "fail") fn = builtinFail;
    else if (!b.empty()) throw CimError(CIM_ERR_METHOD_NOT_AVAILABLE, "no behaviour named " + b);
  }
  MethodResult r;
  if (fn) r = fn(call);
  else r.returnValue = returnZero(*m);
  if (!r.returnValue.isNull || r.returnValue.type != m->returnType)
    r.returnValue = coerce(r.returnValue, m->returnType, false, m->name);
  // Type the out parameters by their declarations where there is one.
  for (auto& p : r.out)
    if (const Parameter* decl = m->findParameter(p.name)) {
      p.name = decl->name;
      p.value = coerce(p.value, decl->type, decl->isArray, m->name + "." + decl->name);
    }
  return r;
}

}  // namespace cimmock
