// The factory, the environment and the client: connection checks, fault
// injection and the CIM operations on the shared repository.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "broker.h"
#include "cimmock/mof.h"

#define BROKER_EXPORT __attribute__((visibility("default")))

extern "C" {
// Set by the loader before the factory runs (see README: SFCB_TRACE).
BROKER_EXPORT long _sfcb_trace_mask = 0;
BROKER_EXPORT int _sfcb_debug = 0;
}

namespace broker {

using cimmock::CimError;

void trace(const char* what) {
  if (_sfcb_debug && _sfcb_trace_mask) std::fprintf(stderr, "[mock broker] %s\n", what);
}

// ---- the repository, loaded once per process -----------------------------

namespace {
struct Shared {
  cimmock::Repository repo;
  bool loaded = false;
  std::string error;
};
Shared& shared() {
  static Shared s;
  return s;
}

std::vector<std::string> fixtureFiles() {
  const char* dir = std::getenv("CIMMOCK_BROKER_REPO");
  if (!dir || !*dir) return cimmock::sampleMofFiles();
  std::vector<std::string> files;
  std::error_code ec;
  std::filesystem::directory_iterator it(dir, ec);
  if (ec) throw cimmock::MofError(dir, 0, 0, "cannot read the directory: " + ec.message());
  for (const auto& e : it)
    if (e.path().extension() == ".mof") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}
}  // namespace

cimmock::Repository& repository() { return shared().repo; }

const std::string& loadRepository() {
  Shared& s = shared();
  if (s.loaded) return s.error;
  s.loaded = true;
  try {
    for (const auto& f : fixtureFiles()) cimmock::loadMofFile(s.repo, f);
  } catch (const std::exception& e) {
    s.error = e.what();
    if (s.error.empty()) s.error = "the repository did not load";
  }
  return s.error;
}

// ---- settings read at each factory call ------------------------------------

namespace {
Faults readFaults() {
  Faults f;
  const char* v = std::getenv("CIMMOCK_BROKER_FAULT");
  if (!v || !*v) return f;
  std::string s = v;
  auto codeAt = [](const std::string& text, int* code) {
    char* end = nullptr;
    long c = std::strtol(text.c_str(), &end, 10);
    *code = static_cast<int>(c);
    return !text.empty() && end && (*end == '\0' || *end == ':');
  };
  if (s == "connect") f.mode = Faults::Connect;
  else if (s == "null-values") f.mode = Faults::NullValues;
  else if (s == "enum-half") f.mode = Faults::EnumHalf;
  else if (s.rfind("fail-silent:", 0) == 0 && codeAt(s.substr(12), &f.code)) f.mode = Faults::FailSilent;
  else if (s.rfind("fail:", 0) == 0 && codeAt(s.substr(5), &f.code)) {
    f.mode = Faults::Fail;
    std::size_t colon = s.find(':', 5);
    f.message = colon == std::string::npos ? "" : s.substr(colon + 1);
  } else {
    f.mode = Faults::Unknown;
    f.message = s;
  }
  return f;
}

const char* orEmpty(const char* s) { return s ? s : ""; }
}  // namespace

EnvNode* makeEnv() {
  auto* env = new EnvNode();
  std::unique_ptr<EnvNode> hold(env);
  env->faults = readFaults();
  if (const char* u = std::getenv("CIMMOCK_BROKER_USER")) {
    env->checkUser = true;
    env->user = u;
  }
  if (const char* p = std::getenv("CIMMOCK_BROKER_PASSWORD")) {
    env->checkPassword = true;
    env->password = p;
  }
  registerEnv(env);
  return hold.release();
}

// ---- client operations ---------------------------------------------------------

namespace {

// Applies the fail and fail-silent faults: every client operation fails.
void checkFaults(const EnvNode& env) {
  if (env.faults.mode == Faults::Fail) throw CimError(env.faults.code, env.faults.message);
  if (env.faults.mode == Faults::FailSilent) throw SilentError{env.faults.code};
}

struct Target {
  std::string ns;
  cimmock::ObjectPath path;
};
Target target(const CIMCObjectPath* op) {
  Node* p = findAs(Kind::Path, op);
  if (!p) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no valid object path");
  Target t;
  t.ns = p->path().ns.empty() ? kDefaultNamespace : p->path().ns;
  t.path = toRepoPath(p->path());
  t.path.nameSpace = t.ns;
  return t;
}

std::string orNone(const char* s) { return s ? s : ""; }

cimmock::ReadOptions readOptions(CIMCFlags flags, char** properties, bool deep) {
  cimmock::ReadOptions ro;
  ro.localOnly = false;  // ignored on instance operations, as deployed brokers do
  ro.includeQualifiers = false;
  ro.includeClassOrigin = (flags & CIMC_FLAG_IncludeClassOrigin) != 0;
  ro.deepInheritance = deep;
  if (properties) {
    ro.hasPropertyList = true;
    for (char** p = properties; *p; ++p) ro.propertyList.emplace_back(*p);
  }
  return ro;
}

bool nullValues(const EnvNode& env) { return env.faults.mode == Faults::NullValues; }

Val instanceItem(const EnvNode& env, const std::string& ns, const cimmock::Instance& inst,
                 const cimmock::ObjectPath& path) {
  Val v;
  v.type = CIMC_instance;
  v.null = false;
  v.inst = share(fromRepoInstance(inst, path, ns, nullValues(env)));
  return v;
}
Val pathItem(const cimmock::ObjectPath& path, const std::string& ns) {
  Val v;
  v.type = CIMC_ref;
  v.null = false;
  v.ref = share(fromRepoPath(path, ns));
  return v;
}
Val classItem(const cimmock::Class& c, const std::string& ns) {
  Val v;
  v.type = CIMC_class;
  v.null = false;
  v.cls = share(fromRepoClass(c, ns));
  return v;
}
cimmock::ObjectPath classPath(const std::string& ns, const std::string& cls) {
  cimmock::ObjectPath p;
  p.nameSpace = ns;
  p.className = cls;
  return p;
}

// Shapes repository instances for one reply, as filterInstance and then
// fromRepoInstance would. What the filter keeps, and each kept property's
// declaration, depend only on the instance's class and property names: they
// are worked out once per such shape, so further instances of it are neither
// copied nor looked up by name again.
class ReplyShaper {
public:
  ReplyShaper(const EnvNode& env, const std::string& ns, const std::string& requestedClass,
              const cimmock::ReadOptions& ro)
      : ns_(ns), requested_(requestedClass), ro_(ro), nullValues_(nullValues(env)) {}

  Val item(const cimmock::Instance& inst, const cimmock::ObjectPath& path) {
    const Shape& shape = shapeOf(inst);
    InstData d;
    d.ns = ns_;
    d.cls = inst.className;
    d.props.reserve(shape.kept);
    for (std::size_t i = 0; i < inst.properties.size(); ++i) {
      const Column& c = shape.columns[i];
      if (!c.keep) continue;
      const cimmock::Property& p = inst.properties[i];
      d.props.emplace_back(p.name, fromRepo(p.value, c.decl ? c.decl->type : p.type,
                                            c.decl ? c.decl->isArray : p.isArray, c.embedded, ns_, nullValues_));
    }
    d.path = share(fromRepoPath(path, ns_));
    Val v;
    v.type = CIMC_instance;
    v.null = false;
    v.inst = share(std::move(d));
    return v;
  }

private:
  struct Column {
    bool keep = false;
    const cimmock::Property* decl = nullptr;  // the class's declaration
    bool embedded = false;
  };
  struct Shape {
    std::string className;
    std::vector<std::string> names;
    std::vector<Column> columns;
    std::size_t kept = 0;
  };
  static bool fits(const Shape& s, const cimmock::Instance& inst) {
    if (s.className != inst.className || s.names.size() != inst.properties.size()) return false;
    for (std::size_t i = 0; i < s.names.size(); ++i)
      if (s.names[i] != inst.properties[i].name) return false;
    return true;
  }
  const Shape& shapeOf(const cimmock::Instance& inst) {
    if (last_ < shapes_.size() && fits(shapes_[last_], inst)) return shapes_[last_];
    for (std::size_t i = 0; i < shapes_.size(); ++i)
      if (fits(shapes_[i], inst)) return shapes_[last_ = i];
    Shape s;
    s.className = inst.className;
    // The filter keeps properties in their order: walk both lists together.
    cimmock::Instance filtered = repository().filterInstance(ns_, inst, requested_, ro_);
    const cimmock::Class* own = repository().findClass(ns_, inst.className);
    std::size_t j = 0;
    for (const auto& p : inst.properties) {
      s.names.push_back(p.name);
      Column c;
      if (j < filtered.properties.size() && filtered.properties[j].name == p.name) {
        const cimmock::Property& q = filtered.properties[j++];
        c.keep = true;
        c.decl = own ? own->findProperty(p.name) : nullptr;
        c.embedded = (c.decl && !c.decl->embeddedClass().empty()) || !q.embeddedClass().empty();
        ++s.kept;
      }
      s.columns.push_back(c);
    }
    // A few shapes per reply at most in practice; a bounded cache keeps an
    // odd repository from making the look-up quadratic.
    constexpr std::size_t kMaxShapes = 32;
    if (shapes_.size() < kMaxShapes) {
      shapes_.push_back(std::move(s));
      last_ = shapes_.size() - 1;
    } else {
      last_ = (last_ + 1) % kMaxShapes;
      shapes_[last_] = std::move(s);
    }
    return shapes_[last_];
  }

  std::string ns_, requested_;
  cimmock::ReadOptions ro_;
  bool nullValues_;
  std::vector<Shape> shapes_;
  std::size_t last_ = 0;
};

// Instances shaped for a reply.
CIMCEnumeration* instanceEnum(EnvNode& env, const std::string& ns, const std::vector<cimmock::PathedInstance>& found,
                              const std::string& requestedClass, const cimmock::ReadOptions& ro) {
  ReplyShaper shaper(env, ns, requestedClass, ro);
  std::vector<Val> items;
  items.reserve(found.size());
  for (const auto& pi : found) items.push_back(shaper.item(pi.instance, pi.path));
  return makeEnum(&env, std::move(items));
}
CIMCEnumeration* pathEnum(EnvNode& env, const std::string& ns, const std::vector<cimmock::PathedInstance>& found) {
  std::vector<Val> items;
  for (const auto& pi : found) items.push_back(pathItem(pi.path, ns));
  return makeEnum(&env, std::move(items));
}
CIMCEnumeration* classEnum(EnvNode& env, const std::string& ns, const std::vector<std::string>& names, bool asPaths) {
  std::vector<Val> items;
  cimmock::ReadOptions ro;
  ro.includeQualifiers = false;
  for (const auto& n : names)
    items.push_back(asPaths ? pathItem(classPath(ns, n), ns) : classItem(repository().getClass(ns, n, ro), ns));
  return makeEnum(&env, std::move(items));
}

// Starts a client operation: trace, faults, and the client's environment.
EnvNode& begin(Node& c, const char* op) {
  trace(op);
  checkFaults(*c.env);
  return *c.env;
}

}  // namespace

extern "C" {

static CIMCStatus clRelease(CIMCClient* cl) {
  std::lock_guard<BrokerLock> guard(brokerLock());
  Node* n = findAs(Kind::Client, cl);
  if (!n) return CIMCStatus{kInvalidHandle, nullptr};
  releaseNode(n);
  return okStatus();
}

static CIMCClient* clClone(CIMCClient* cl, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCClient*)nullptr, [&](Node& c) { return makeClient(c.env); });
}

static CIMCClass* clGetClass(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCClass*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "getClass");
    Target t = target(op);
    cimmock::ReadOptions ro = readOptions(flags, properties, true);
    ro.localOnly = (flags & CIMC_FLAG_LocalOnly) != 0;
    return makeClass(&env, share(fromRepoClass(repository().getClass(t.ns, t.path.className, ro), t.ns)));
  });
}

static CIMCEnumeration* clEnumClassNames(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "enumClassNames");
    Target t = target(op);
    bool deep = (flags & CIMC_FLAG_DeepInheritance) != 0;
    return classEnum(env, t.ns, repository().enumerateClassNames(t.ns, t.path.className, deep), true);
  });
}

static CIMCEnumeration* clEnumClasses(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "enumClasses");
    Target t = target(op);
    bool deep = (flags & CIMC_FLAG_DeepInheritance) != 0;
    return classEnum(env, t.ns, repository().enumerateClassNames(t.ns, t.path.className, deep), false);
  });
}

static CIMCInstance* clGetInstance(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties,
                                   CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCInstance*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "getInstance");
    Target t = target(op);
    cimmock::Instance inst = repository().getInstance(t.ns, t.path);
    cimmock::Instance shaped =
        repository().filterInstance(t.ns, inst, t.path.className, readOptions(flags, properties, true));
    return makeInstance(&env, instanceItem(env, t.ns, shaped, repository().pathOf(t.ns, inst)).inst);
  });
}

static CIMCObjectPath* clCreateInstance(CIMCClient* cl, CIMCObjectPath* op, CIMCInstance* inst, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCObjectPath*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "createInstance");
    Target t = target(op);
    std::string keys = "createInstance path keys:";
    for (const auto& k : t.path.keys) keys += " " + k.name;
    trace(keys.c_str());
    Node* i = findAs(Kind::Instance, inst);
    if (!i) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no valid instance");
    cimmock::Instance given = toRepoInstance(i->inst());
    if (given.className.empty()) given.className = t.path.className;
    return makePath(&env, share(fromRepoPath(repository().createInstance(t.ns, given), t.ns)));
  });
}

static CIMCStatus clSetInstance(CIMCClient* cl, CIMCObjectPath* op, CIMCInstance* inst, CIMCFlags, char** properties) {
  return statusEntry(Kind::Client, cl, [&](Node& c) {
    begin(c, "setInstance");
    Target t = target(op);
    Node* i = findAs(Kind::Instance, inst);
    if (!i) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no valid instance");
    std::vector<std::string> list;
    for (char** p = properties; p && *p; ++p) list.emplace_back(*p);
    repository().modifyInstance(t.ns, t.path, toRepoInstance(i->inst()), properties ? &list : nullptr);
  });
}

static CIMCStatus clDeleteInstance(CIMCClient* cl, CIMCObjectPath* op) {
  return statusEntry(Kind::Client, cl, [&](Node& c) {
    begin(c, "deleteInstance");
    Target t = target(op);
    repository().deleteInstance(t.ns, t.path);
  });
}

static CIMCEnumeration* clExecQuery(CIMCClient* cl, CIMCObjectPath* op, const char* query, const char* lang,
                                    CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "execQuery");
    Target t = target(op);
    std::vector<Val> items;
    for (const auto& pi : repository().execQuery(t.ns, orNone(lang), orNone(query)))
      items.push_back(instanceItem(env, t.ns, pi.instance, pi.path));
    return makeEnum(&env, std::move(items));
  });
}

static CIMCEnumeration* clEnumInstanceNames(CIMCClient* cl, CIMCObjectPath* op, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "enumInstanceNames");
    Target t = target(op);
    return pathEnum(env, t.ns, repository().instancesOf(t.ns, t.path.className));
  });
}

static CIMCEnumeration* clEnumInstances(CIMCClient* cl, CIMCObjectPath* op, CIMCFlags flags, char** properties,
                                        CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "enumInstances");
    Target t = target(op);
    bool deep = (flags & CIMC_FLAG_DeepInheritance) != 0;
    ReplyShaper shaper(env, t.ns, t.path.className, readOptions(flags, properties, deep));
    // Collected small, then moved into items of the exact count.
    std::vector<std::shared_ptr<const InstData>> found;
    repository().visitInstancesOf(t.ns, t.path.className, [&](const std::string& nsName, const cimmock::Instance& i) {
      found.push_back(shaper.item(i, repository().pathOf(nsName, i)).inst);
    });
    std::vector<Val> items(found.size());
    for (std::size_t k = 0; k < found.size(); ++k) {
      items[k].type = CIMC_instance;
      items[k].null = false;
      items[k].inst = std::move(found[k]);
    }
    return makeEnum(&env, std::move(items));
  });
}

static CIMCEnumeration* clAssociators(CIMCClient* cl, CIMCObjectPath* op, const char* assocClass,
                                      const char* resultClass, const char* role, const char* resultRole,
                                      CIMCFlags flags, char** properties, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "associators");
    Target t = target(op);
    if (t.path.isClassPath())
      return classEnum(env, t.ns,
                       repository().associatorClasses(t.ns, t.path.className, orNone(assocClass), orNone(resultClass),
                                                      orNone(role), orNone(resultRole)),
                       false);
    auto found = repository().associators(t.ns, t.path, orNone(assocClass), orNone(resultClass), orNone(role),
                                          orNone(resultRole));
    return instanceEnum(env, t.ns, found, "", readOptions(flags, properties, true));
  });
}

static CIMCEnumeration* clAssociatorNames(CIMCClient* cl, CIMCObjectPath* op, const char* assocClass,
                                          const char* resultClass, const char* role, const char* resultRole,
                                          CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "associatorNames");
    Target t = target(op);
    if (t.path.isClassPath())
      return classEnum(env, t.ns,
                       repository().associatorClasses(t.ns, t.path.className, orNone(assocClass), orNone(resultClass),
                                                      orNone(role), orNone(resultRole)),
                       true);
    return pathEnum(env, t.ns,
                    repository().associators(t.ns, t.path, orNone(assocClass), orNone(resultClass), orNone(role),
                                             orNone(resultRole)));
  });
}

static CIMCEnumeration* clReferences(CIMCClient* cl, CIMCObjectPath* op, const char* resultClass, const char* role,
                                     CIMCFlags flags, char** properties, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "references");
    Target t = target(op);
    if (t.path.isClassPath())
      return classEnum(env, t.ns,
                       repository().referenceClasses(t.ns, t.path.className, orNone(resultClass), orNone(role)), false);
    auto found = repository().references(t.ns, t.path, orNone(resultClass), orNone(role));
    return instanceEnum(env, t.ns, found, "", readOptions(flags, properties, true));
  });
}

static CIMCEnumeration* clReferenceNames(CIMCClient* cl, CIMCObjectPath* op, const char* resultClass, const char* role,
                                         CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, (CIMCEnumeration*)nullptr, [&](Node& c) {
    EnvNode& env = begin(c, "referenceNames");
    Target t = target(op);
    if (t.path.isClassPath())
      return classEnum(env, t.ns,
                       repository().referenceClasses(t.ns, t.path.className, orNone(resultClass), orNone(role)), true);
    return pathEnum(env, t.ns, repository().references(t.ns, t.path, orNone(resultClass), orNone(role)));
  });
}

static CIMCData clInvokeMethod(CIMCClient* cl, CIMCObjectPath* op, const char* method, CIMCArgs* in, CIMCArgs* out,
                               CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, nullData(0, CIMC_nullValue), [&](Node& c) {
    EnvNode& env = begin(c, "invokeMethod");
    Target t = target(op);
    if (!method) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no method name");
    std::vector<cimmock::ParamValue> params;
    if (in) {
      Node* a = findAs(Kind::Args, in);
      if (!a) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no valid in-argument list");
      for (const auto& [name, v] : a->body.args) params.push_back({name, toRepo(v)});
    }
    // The repository types the in-parameters by the method's declaration.
    cimmock::MethodResult r = repository().invokeMethod(t.ns, t.path, method, params);
    const cimmock::Class* cls = repository().findClass(t.ns, t.path.className);
    const cimmock::Method* m = cls ? cls->findMethod(method) : nullptr;
    if (Node* o = findAs(Kind::Args, out)) {
      for (const auto& p : r.out) {
        const cimmock::Parameter* decl = m ? m->findParameter(p.name) : nullptr;
        bool embedded = decl && cimmock::findQualifier(decl->qualifiers, "EmbeddedInstance");
        putNamed(o->body.args, p.name, fromRepo(p.value, p.value.type, p.value.isArray, embedded, t.ns));
      }
    }
    return dataOut(&env, fromRepo(r.returnValue, r.returnValue.type, false, false, t.ns));
  });
}

static CIMCStatus clSetProperty(CIMCClient* cl, CIMCObjectPath* op, const char* name, CIMCValue* value,
                                CIMCType type) {
  return statusEntry(Kind::Client, cl, [&](Node& c) {
    begin(c, "setProperty");
    Target t = target(op);
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no property name");
    cimmock::Instance change;
    change.className = t.path.className;
    change.set(name, toRepo(valueIn(value, type)));
    std::vector<std::string> names{name};
    repository().modifyInstance(t.ns, t.path, change, &names);
  });
}

static CIMCData clGetProperty(CIMCClient* cl, CIMCObjectPath* op, const char* name, CIMCStatus* rc) {
  return entry(Kind::Client, cl, rc, nullData(0, CIMC_nullValue), [&](Node& c) {
    EnvNode& env = begin(c, "getProperty");
    Target t = target(op);
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no property name");
    cimmock::Instance inst = repository().getInstance(t.ns, t.path);
    InstData d = fromRepoInstance(inst, repository().pathOf(t.ns, inst), t.ns, nullValues(env));
    const Val* v = findNamed(d.props, name);
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no property ") + name);
    return dataOut(&env, *v);
  });
}

static const CIMCClientFT kClientFT = {1,
                                       clRelease,
                                       clClone,
                                       clGetClass,
                                       clEnumClassNames,
                                       clEnumClasses,
                                       clGetInstance,
                                       clCreateInstance,
                                       clSetInstance,
                                       clDeleteInstance,
                                       clExecQuery,
                                       clEnumInstanceNames,
                                       clEnumInstances,
                                       clAssociators,
                                       clAssociatorNames,
                                       clReferences,
                                       clReferenceNames,
                                       clInvokeMethod,
                                       clSetProperty,
                                       clGetProperty};

// ---- the environment --------------------------------------------------------------

static CIMCStatus envRelease(CIMCEnv* e) {
  std::lock_guard<BrokerLock> guard(brokerLock());
  EnvNode* env = findEnv(e);
  if (!env) return CIMCStatus{kInvalidHandle, nullptr};
  destroyEnv(env);
  return okStatus();
}

static CIMCClient* envConnect2(CIMCEnv* e, const char*, const char*, const char*, const char* user, const char* pwd,
                               int, const char*, const char*, const char*, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCClient*)nullptr, [&](EnvNode& env) -> CIMCClient* {
    trace("connect");
    if (!env.loadError.empty()) throw CimError(cimmock::CIM_ERR_FAILED, "repository not loaded: " + env.loadError);
    if (env.faults.mode == Faults::Connect) throw CimError(cimmock::CIM_ERR_FAILED, "connection refused");
    if (env.faults.mode == Faults::Unknown)
      throw CimError(cimmock::CIM_ERR_FAILED, "unknown CIMMOCK_BROKER_FAULT value '" + env.faults.message + "'");
    if ((env.checkUser && env.user != orEmpty(user)) || (env.checkPassword && env.password != orEmpty(pwd)))
      throw CimError(cimmock::CIM_ERR_ACCESS_DENIED, "access denied");
    return makeClient(&env);
  });
}

static CIMCClient* envConnect(CIMCEnv* e, const char* host, const char* scheme, const char* port, const char* user,
                              const char* pwd, CIMCStatus* rc) {
  return envConnect2(e, host, scheme, port, user, pwd, 0, nullptr, nullptr, nullptr, rc);
}

static CIMCInstance* envNewInstance(CIMCEnv* e, const CIMCObjectPath* op, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCInstance*)nullptr, [&](EnvNode& env) {
    Node* p = findAs(Kind::Path, op);
    if (!p) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "no valid object path");
    InstData d;
    d.ns = p->path().ns;
    d.cls = p->path().cls;
    d.props = p->path().keys;  // the path's keys are the new instance's first properties
    return makeInstance(&env, share(std::move(d)));
  });
}

static CIMCObjectPath* envNewObjectPath(CIMCEnv* e, const char* ns, const char* cn, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCObjectPath*)nullptr, [&](EnvNode& env) {
    PathData d;
    d.ns = orEmpty(ns);
    d.cls = orEmpty(cn);
    return makePath(&env, share(std::move(d)));
  });
}

static CIMCArgs* envNewArgs(CIMCEnv* e, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCArgs*)nullptr, [&](EnvNode& env) { return makeArgs(&env, Named()); });
}

static CIMCString* envNewString(CIMCEnv* e, const char* text, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCString*)nullptr, [&](EnvNode& env) { return makeString(&env, orEmpty(text)); });
}

static CIMCArray* envNewArray(CIMCEnv* e, CIMCCount count, CIMCType type, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCArray*)nullptr, [&](EnvNode& env) {
    if (count < 0) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "negative array size");
    CIMCType elem = normalType(static_cast<CIMCType>(type & ~CIMC_ARRAY));
    return makeArray(&env, elem, std::vector<Val>(static_cast<std::size_t>(count), nullVal(elem)));
  });
}

static CIMCDateTime* envNewDateTime(CIMCEnv* e, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCDateTime*)nullptr, [&](EnvNode& env) { return makeDateTime(&env, dateTimeNow()); });
}

static CIMCDateTime* envNewDateTimeFromBinary(CIMCEnv* e, uint64_t micros, CIMCBoolean interval, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCDateTime*)nullptr,
                        [&](EnvNode& env) { return makeDateTime(&env, dateTimeFromMicros(micros, interval != 0)); });
}

static CIMCDateTime* envNewDateTimeFromChars(CIMCEnv* e, const char* text, CIMCStatus* rc) {
  return envEntry(e, rc, (CIMCDateTime*)nullptr, [&](EnvNode& env) {
    if (!text || !validDateTime(text))
      throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, std::string("not a CIM datetime: ") + orEmpty(text));
    return makeDateTime(&env, text);
  });
}

static const CIMCEnvFT kEnvFT = {1,
                                 envRelease,
                                 envConnect,
                                 envConnect2,
                                 envNewInstance,
                                 envNewObjectPath,
                                 envNewArgs,
                                 envNewString,
                                 envNewArray,
                                 envNewDateTime,
                                 envNewDateTimeFromBinary,
                                 envNewDateTimeFromChars};

}  // extern "C"

CIMCClient* makeClient(EnvNode* env) {
  Node* n = newNode(env, Kind::Client);
  n->pub.client = CIMCClient{nullptr, &kClientFT};
  n->dead = false;
  return &n->pub.client;
}

}  // namespace broker

// ---- the factory ------------------------------------------------------------------

extern "C" BROKER_EXPORT CIMCEnv* _Create_SfcbLocal_Env(const char*, unsigned int, int* rc, char** msg) {
  using namespace broker;
  if (rc) *rc = 0;
  if (msg) *msg = nullptr;
  try {
    std::lock_guard<BrokerLock> guard(brokerLock());
    const std::string& error = loadRepository();
    EnvNode* env = makeEnv();
    env->pub.ft = &kEnvFT;
    env->loadError = error;
    if (!error.empty()) {
      // Still an environment: the caller sees the failure again at connect.
      if (rc) *rc = 1;
      if (msg) *msg = strdup(error.c_str());
    }
    return &env->pub;
  } catch (...) {
    if (rc) *rc = 1;
    if (msg) *msg = strdup("mock broker: out of memory");
    return nullptr;
  }
}
