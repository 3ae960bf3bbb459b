// The registry of live objects and the function tables of the data objects:
// string, datetime, object path, instance, class, array, argument list and
// enumeration.
#include <unordered_map>

#include "broker.h"

namespace broker {

using cimmock::CimError;

// ---- registry ----------------------------------------------------------------

std::recursive_mutex& brokerLock() {
  static std::recursive_mutex m;
  return m;
}

namespace {
std::unordered_map<const void*, Node*>& registry() {
  static std::unordered_map<const void*, Node*> r;
  return r;
}
}  // namespace

Node* findNode(const void* pub) {
  if (!pub) return nullptr;
  auto it = registry().find(pub);
  return it == registry().end() || it->second->dead ? nullptr : it->second;
}

void adopt(EnvNode* env, Node* n, const void* pub) {
  std::unique_ptr<Node> hold(n);
  n->env = env;
  registry().emplace(pub, n);
  try {
    env->owned.insert(n);
  } catch (...) {
    registry().erase(pub);
    throw;
  }
  hold.release();
}

void releaseNode(Node* n) {
  n->clear();
  n->dead = true;
}

void registerEnv(EnvNode* env) {
  env->env = env;
  registry().emplace(&env->pub, env);
}

namespace {
const void* pubOf(Node* n);
}

void destroyEnv(EnvNode* env) {
  for (Node* n : env->owned) {
    registry().erase(pubOf(n));
    delete n;
  }
  env->owned.clear();
  registry().erase(&env->pub);
  delete env;
}

// ---- status ----------------------------------------------------------------

CIMCStatus okStatus() { return CIMCStatus{0, nullptr}; }

CIMCStatus failStatus(EnvNode* env, int rc, const std::string& msg) {
  CIMCStatus st{rc, nullptr};
  if (env) {
    try {
      st.msg = makeString(env, msg);
    } catch (...) {
      st.msg = nullptr;  // out of memory: the code alone still tells
    }
  }
  return st;
}

// ---- function tables -----------------------------------------------------------

extern "C" {

// Strings.
static CIMCStatus strRelease(CIMCString* s);
static CIMCString* strClone(const CIMCString* s, CIMCStatus* rc) {
  return entry<StringNode>(s, rc, (CIMCString*)nullptr, [&](StringNode& n) { return makeString(n.env, n.text); });
}
static char* strChars(const CIMCString* s, CIMCStatus* rc) {
  return entry<StringNode>(s, rc, (char*)nullptr, [&](StringNode& n) { return static_cast<char*>(n.pub.hdl); });
}
static const CIMCStringFT kStringFT = {1, strRelease, strClone, strChars};

// Datetimes.
static CIMCStatus dtRelease(CIMCDateTime* d);
static CIMCDateTime* dtClone(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry<DateTimeNode>(d, rc, (CIMCDateTime*)nullptr, [&](DateTimeNode& n) { return makeDateTime(n.env, n.text); });
}
static uint64_t dtBinary(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry<DateTimeNode>(d, rc, (uint64_t)0, [&](DateTimeNode& n) { return dateTimeMicros(n.text); });
}
static CIMCString* dtString(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry<DateTimeNode>(d, rc, (CIMCString*)nullptr, [&](DateTimeNode& n) { return makeString(n.env, n.text); });
}
static CIMCBoolean dtInterval(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry<DateTimeNode>(d, rc, (CIMCBoolean)0,
                             [&](DateTimeNode& n) { return CIMCBoolean(isIntervalText(n.text) ? 1 : 0); });
}
static const CIMCDateTimeFT kDateTimeFT = {1, dtRelease, dtClone, dtBinary, dtString, dtInterval};

// Object paths.
static CIMCStatus opRelease(CIMCObjectPath* p);
static CIMCObjectPath* opClone(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCObjectPath*)nullptr, [&](PathNode& n) { return makePath(n.env, n.d); });
}
static CIMCStatus opSetNameSpace(CIMCObjectPath* p, const char* ns) {
  return statusEntry<PathNode>(p, [&](PathNode& n) { n.d.ns = ns ? ns : ""; });
}
static CIMCString* opGetNameSpace(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCString*)nullptr, [&](PathNode& n) { return makeString(n.env, n.d.ns); });
}
static CIMCStatus opSetHostname(CIMCObjectPath* p, const char* hn) {
  return statusEntry<PathNode>(p, [&](PathNode& n) { n.d.host = hn ? hn : ""; });
}
static CIMCString* opGetHostname(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCString*)nullptr, [&](PathNode& n) { return makeString(n.env, n.d.host); });
}
static CIMCStatus opSetClassName(CIMCObjectPath* p, const char* cn) {
  return statusEntry<PathNode>(p, [&](PathNode& n) { n.d.cls = cn ? cn : ""; });
}
static CIMCString* opGetClassName(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCString*)nullptr, [&](PathNode& n) { return makeString(n.env, n.d.cls); });
}
static CIMCStatus opAddKey(CIMCObjectPath* p, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry<PathNode>(p, [&](PathNode& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "key without a name");
    putNamed(n.d.keys, name, valueIn(value, type));
  });
}
static CIMCData opGetKey(const CIMCObjectPath* p, const char* name, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, nullData(0, CIMC_badValue), [&](PathNode& n) {
    const Val* v = name ? findNamed(n.d.keys, name) : nullptr;
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no key ") + (name ? name : "(null)"));
    return dataOut(n.env, *v);
  });
}
static CIMCData opGetKeyAt(const CIMCObjectPath* p, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry<PathNode>(p, rc, nullData(0, CIMC_badValue), [&](PathNode& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.d.keys.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "key index " + std::to_string(index) + " out of range");
    const auto& k = n.d.keys[static_cast<std::size_t>(index)];
    CIMCData d = dataOut(n.env, k.second);
    if (name) *name = makeString(n.env, k.first);
    return d;
  });
}
static CIMCCount opGetKeyCount(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCCount)0, [&](PathNode& n) { return static_cast<CIMCCount>(n.d.keys.size()); });
}
static CIMCString* opToString(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry<PathNode>(p, rc, (CIMCString*)nullptr, [&](PathNode& n) { return makeString(n.env, pathText(n.d)); });
}
static const CIMCObjectPathFT kPathFT = {1,
                                         opRelease,
                                         opClone,
                                         opSetNameSpace,
                                         opGetNameSpace,
                                         opSetHostname,
                                         opGetHostname,
                                         opSetClassName,
                                         opGetClassName,
                                         opAddKey,
                                         opGetKey,
                                         opGetKeyAt,
                                         opGetKeyCount,
                                         {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
                                         opToString};

}  // extern "C"

namespace {
bool visible(const InstData& d, const std::string& name) {
  if (!d.filtered) return true;
  for (const auto& f : d.filter)
    if (cimmock::iequals(f, name)) return true;
  return false;
}
const std::pair<std::string, Val>* visibleAt(const InstData& d, CIMCCount index) {
  CIMCCount i = 0;
  for (const auto& p : d.props)
    if (visible(d, p.first) && i++ == index) return &p;
  return nullptr;
}
}  // namespace

extern "C" {

// Instances.
static CIMCStatus instRelease(CIMCInstance* i);
static CIMCInstance* instClone(const CIMCInstance* i, CIMCStatus* rc) {
  return entry<InstNode>(i, rc, (CIMCInstance*)nullptr, [&](InstNode& n) { return makeInstance(n.env, n.d); });
}
static CIMCData instGetProperty(const CIMCInstance* i, const char* name, CIMCStatus* rc) {
  return entry<InstNode>(i, rc, nullData(0, CIMC_badValue), [&](InstNode& n) {
    const Val* v = name && visible(n.d, name) ? findNamed(n.d.props, name) : nullptr;
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no property ") + (name ? name : "(null)"));
    return dataOut(n.env, *v);
  });
}
static CIMCData instGetPropertyAt(const CIMCInstance* i, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry<InstNode>(i, rc, nullData(0, CIMC_badValue), [&](InstNode& n) {
    const auto* p = visibleAt(n.d, index);
    if (!p) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "property index " + std::to_string(index) + " out of range");
    CIMCData d = dataOut(n.env, p->second);
    if (name) *name = makeString(n.env, p->first);
    return d;
  });
}
static CIMCCount instGetPropertyCount(const CIMCInstance* i, CIMCStatus* rc) {
  return entry<InstNode>(i, rc, (CIMCCount)0, [&](InstNode& n) {
    CIMCCount c = 0;
    for (const auto& p : n.d.props) c += visible(n.d, p.first) ? 1 : 0;
    return c;
  });
}
static CIMCStatus instSetProperty(const CIMCInstance* i, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry<InstNode>(i, [&](InstNode& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "property without a name");
    if (!visible(n.d, name)) return;  // filtered out: ignored, as a filter promises
    putNamed(n.d.props, name, valueIn(value, type));
    n.d.path.reset();  // a key may have changed
  });
}
static CIMCObjectPath* instGetObjectPath(const CIMCInstance* i, CIMCStatus* rc) {
  return entry<InstNode>(i, rc, (CIMCObjectPath*)nullptr,
                         [&](InstNode& n) { return makePath(n.env, instancePath(n.d)); });
}
static CIMCStatus instSetPropertyFilter(CIMCInstance* i, const char** properties, const char** keys) {
  return statusEntry<InstNode>(i, [&](InstNode& n) {
    n.d.filtered = properties != nullptr;
    n.d.filter.clear();
    if (!properties) return;
    for (const char** p = properties; *p; ++p) n.d.filter.emplace_back(*p);
    for (const char** k = keys; k && *k; ++k) n.d.filter.emplace_back(*k);  // keys always stay
  });
}
static const CIMCInstanceFT kInstanceFT = {1,
                                           instRelease,
                                           instClone,
                                           instGetProperty,
                                           instGetPropertyAt,
                                           instGetPropertyCount,
                                           instSetProperty,
                                           instGetObjectPath,
                                           instSetPropertyFilter};

// Classes.
static CIMCStatus clsRelease(CIMCClass* c);
static CIMCClass* clsClone(const CIMCClass* c, CIMCStatus* rc) {
  return entry<ClassNode>(c, rc, (CIMCClass*)nullptr, [&](ClassNode& n) { return makeClass(n.env, n.d); });
}
static CIMCString* clsGetClassName(const CIMCClass* c, CIMCStatus* rc) {
  return entry<ClassNode>(c, rc, (CIMCString*)nullptr, [&](ClassNode& n) { return makeString(n.env, n.d.name); });
}
static CIMCData clsGetProperty(const CIMCClass* c, const char* name, CIMCStatus* rc) {
  return entry<ClassNode>(c, rc, nullData(0, CIMC_badValue), [&](ClassNode& n) {
    const Val* v = name ? findNamed(n.d.props, name) : nullptr;
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no property ") + (name ? name : "(null)"));
    return dataOut(n.env, *v);
  });
}
static CIMCData clsGetPropertyAt(const CIMCClass* c, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry<ClassNode>(c, rc, nullData(0, CIMC_badValue), [&](ClassNode& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.d.props.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "property index " + std::to_string(index) + " out of range");
    const auto& p = n.d.props[static_cast<std::size_t>(index)];
    CIMCData d = dataOut(n.env, p.second);
    if (name) *name = makeString(n.env, p.first);
    return d;
  });
}
static CIMCCount clsGetPropertyCount(const CIMCClass* c, CIMCStatus* rc) {
  return entry<ClassNode>(c, rc, (CIMCCount)0, [&](ClassNode& n) { return static_cast<CIMCCount>(n.d.props.size()); });
}
static const CIMCClassFT kClassFT = {1,
                                     clsRelease,
                                     clsClone,
                                     clsGetClassName,
                                     clsGetProperty,
                                     clsGetPropertyAt,
                                     clsGetPropertyCount,
                                     nullptr,
                                     nullptr,
                                     nullptr};

// Arrays.
static CIMCStatus arRelease(CIMCArray* a);
static CIMCArray* arClone(const CIMCArray* a, CIMCStatus* rc) {
  return entry<ArrayNode>(a, rc, (CIMCArray*)nullptr, [&](ArrayNode& n) { return makeArray(n.env, n.elem, n.items); });
}
static CIMCCount arGetSize(const CIMCArray* a, CIMCStatus* rc) {
  return entry<ArrayNode>(a, rc, (CIMCCount)0, [&](ArrayNode& n) { return static_cast<CIMCCount>(n.items.size()); });
}
static CIMCType arGetSimpleType(const CIMCArray* a, CIMCStatus* rc) {
  return entry<ArrayNode>(a, rc, (CIMCType)0, [&](ArrayNode& n) { return n.elem; });
}
static CIMCData arGetElementAt(const CIMCArray* a, CIMCCount index, CIMCStatus* rc) {
  return entry<ArrayNode>(a, rc, nullData(0, CIMC_badValue), [&](ArrayNode& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.items.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "array index " + std::to_string(index) + " out of range");
    return dataOut(n.env, n.items[static_cast<std::size_t>(index)]);
  });
}
static CIMCStatus arSetElementAt(CIMCArray* a, CIMCCount index, const CIMCValue* value, CIMCType type) {
  return statusEntry<ArrayNode>(a, [&](ArrayNode& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.items.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "array index " + std::to_string(index) + " out of range");
    if (normalType(type) != n.elem)
      throw CimError(cimmock::CIM_ERR_TYPE_MISMATCH, "element of type " + std::to_string(type) +
                                                         " in an array of type " + std::to_string(n.elem));
    n.items[static_cast<std::size_t>(index)] = valueIn(value, type);
  });
}
static const CIMCArrayFT kArrayFT = {1, arRelease, arClone, arGetSize, arGetSimpleType, arGetElementAt, arSetElementAt};

// Argument lists.
static CIMCStatus argsRelease(CIMCArgs* a);
static CIMCArgs* argsClone(const CIMCArgs* a, CIMCStatus* rc) {
  return entry<ArgsNode>(a, rc, (CIMCArgs*)nullptr, [&](ArgsNode& n) { return makeArgs(n.env, n.args); });
}
static CIMCStatus argsAdd(CIMCArgs* a, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry<ArgsNode>(a, [&](ArgsNode& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "argument without a name");
    putNamed(n.args, name, valueIn(value, type));
  });
}
static CIMCData argsGet(const CIMCArgs* a, const char* name, CIMCStatus* rc) {
  return entry<ArgsNode>(a, rc, nullData(0, CIMC_badValue), [&](ArgsNode& n) {
    const Val* v = name ? findNamed(n.args, name) : nullptr;
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no argument ") + (name ? name : "(null)"));
    return dataOut(n.env, *v);
  });
}
static CIMCData argsGetAt(const CIMCArgs* a, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry<ArgsNode>(a, rc, nullData(0, CIMC_badValue), [&](ArgsNode& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.args.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "argument index " + std::to_string(index) + " out of range");
    const auto& p = n.args[static_cast<std::size_t>(index)];
    CIMCData d = dataOut(n.env, p.second);
    if (name) *name = makeString(n.env, p.first);
    return d;
  });
}
static CIMCCount argsCount(const CIMCArgs* a, CIMCStatus* rc) {
  return entry<ArgsNode>(a, rc, (CIMCCount)0, [&](ArgsNode& n) { return static_cast<CIMCCount>(n.args.size()); });
}
static const CIMCArgsFT kArgsFT = {1, argsRelease, argsClone, argsAdd, argsGet, argsGetAt, argsCount};

// Enumerations.
static CIMCStatus enRelease(CIMCEnumeration* e);
static CIMCEnumeration* enClone(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry<EnumNode>(e, rc, (CIMCEnumeration*)nullptr, [&](EnumNode& n) {
    CIMCEnumeration* c = makeEnum(n.env, n.items);
    auto* copy = findAs<EnumNode>(c);
    copy->next = n.next;
    copy->cut = n.cut;
    copy->limit = n.limit;
    return c;
  });
}
static CIMCData enGetNext(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry<EnumNode>(e, rc, nullData(0, CIMC_badValue), [&](EnumNode& n) {
    if (n.cut && n.next >= n.limit) {
      CIMCType type = n.items.empty() ? CIMCType(CIMC_instance) : n.items.front().type;
      setStatus(rc, failStatus(n.env, cimmock::CIM_ERR_FAILED, "enumeration broken off (enum-half)"));
      return nullData(type, CIMC_badValue);
    }
    if (n.next >= n.items.size()) throw CimError(cimmock::CIM_ERR_NOT_FOUND, "no more elements");
    return dataOut(n.env, n.items[n.next++]);
  });
}
static CIMCBoolean enHasNext(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry<EnumNode>(e, rc, (CIMCBoolean)0,
                         [&](EnumNode& n) { return CIMCBoolean(n.cut || n.next < n.items.size() ? 1 : 0); });
}
static CIMCArray* enToArray(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry<EnumNode>(e, rc, (CIMCArray*)nullptr, [&](EnumNode& n) {
    if (n.cut) throw CimError(cimmock::CIM_ERR_FAILED, "enumeration broken off (enum-half)");
    CIMCType type = n.items.empty() ? CIMCType(CIMC_instance) : n.items.front().type;
    return makeArray(n.env, type, n.items);
  });
}
static const CIMCEnumerationFT kEnumFT = {1, enRelease, enClone, enGetNext, enHasNext, enToArray};

}  // extern "C"

// ---- release -------------------------------------------------------------------

namespace {
// A second release, or a pointer the broker never handed out, is refused
// with a status instead of touching memory.
template <class T>
CIMCStatus releaseAs(const void* self) {
  std::lock_guard<std::recursive_mutex> guard(brokerLock());
  T* n = findAs<T>(self);
  if (!n) return CIMCStatus{kInvalidHandle, nullptr};
  releaseNode(n);
  return okStatus();
}

const void* pubOf(Node* n) {
  if (auto* x = dynamic_cast<StringNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<DateTimeNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<PathNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<InstNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<ClassNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<ArrayNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<ArgsNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<EnumNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<ClientNode*>(n)) return &x->pub;
  if (auto* x = dynamic_cast<EnvNode*>(n)) return &x->pub;
  return nullptr;
}
}  // namespace

extern "C" {
static CIMCStatus strRelease(CIMCString* s) { return releaseAs<StringNode>(s); }
static CIMCStatus dtRelease(CIMCDateTime* d) { return releaseAs<DateTimeNode>(d); }
static CIMCStatus opRelease(CIMCObjectPath* p) { return releaseAs<PathNode>(p); }
static CIMCStatus instRelease(CIMCInstance* i) { return releaseAs<InstNode>(i); }
static CIMCStatus clsRelease(CIMCClass* c) { return releaseAs<ClassNode>(c); }
static CIMCStatus arRelease(CIMCArray* a) { return releaseAs<ArrayNode>(a); }
static CIMCStatus argsRelease(CIMCArgs* a) { return releaseAs<ArgsNode>(a); }
static CIMCStatus enRelease(CIMCEnumeration* e) { return releaseAs<EnumNode>(e); }
}  // extern "C"

// ---- constructors ----------------------------------------------------------------

namespace {
template <class T, class FT>
T* build(EnvNode* env, const FT* ft) {
  auto* n = new T();
  n->pub.ft = ft;
  adopt(env, n, &n->pub);
  return n;
}
}  // namespace

CIMCString* makeString(EnvNode* env, const std::string& text) {
  auto* n = new StringNode();
  std::unique_ptr<StringNode> hold(n);
  n->text = text;
  n->pub.hdl = const_cast<char*>(n->text.c_str());  // the text never changes after this
  n->pub.ft = &kStringFT;
  hold.release();
  adopt(env, n, &n->pub);
  return &n->pub;
}

CIMCDateTime* makeDateTime(EnvNode* env, const std::string& text) {
  auto* n = build<DateTimeNode>(env, &kDateTimeFT);
  n->text = text;
  return &n->pub;
}

CIMCObjectPath* makePath(EnvNode* env, PathData d) {
  auto* n = build<PathNode>(env, &kPathFT);
  n->d = std::move(d);
  return &n->pub;
}

CIMCInstance* makeInstance(EnvNode* env, InstData d) {
  auto* n = build<InstNode>(env, &kInstanceFT);
  n->d = std::move(d);
  return &n->pub;
}

CIMCClass* makeClass(EnvNode* env, ClassData d) {
  auto* n = build<ClassNode>(env, &kClassFT);
  n->d = std::move(d);
  return &n->pub;
}

CIMCArray* makeArray(EnvNode* env, CIMCType elem, std::vector<Val> items) {
  auto* n = build<ArrayNode>(env, &kArrayFT);
  n->elem = normalType(static_cast<CIMCType>(elem & ~CIMC_ARRAY));
  n->items = std::move(items);
  return &n->pub;
}

CIMCArgs* makeArgs(EnvNode* env, Named args) {
  auto* n = build<ArgsNode>(env, &kArgsFT);
  n->args = std::move(args);
  return &n->pub;
}

CIMCEnumeration* makeEnum(EnvNode* env, std::vector<Val> items) {
  auto* n = build<EnumNode>(env, &kEnumFT);
  n->items = std::move(items);
  if (env->faults.mode == Faults::EnumHalf) {
    n->cut = true;
    n->limit = n->items.size() / 2;
  }
  return &n->pub;
}

}  // namespace broker
