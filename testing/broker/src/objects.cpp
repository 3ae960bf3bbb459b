// The function tables of the data objects: string, datetime, object path,
// instance, class, array, argument list and enumeration.
#include <cstdlib>
#include <cstring>
#include <new>

#include "broker.h"

namespace broker {

using cimmock::CimError;

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

// A member of a named list (keys, class properties, arguments) by name or by
// position, as a data item owned by env; `what` names the member in errors.
CIMCData namedData(EnvNode* env, const Named& list, const char* name, const char* what) {
  const Val* v = name ? findNamed(list, name) : nullptr;
  if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no ") + what + " " + (name ? name : "(null)"));
  return dataOut(env, *v);
}
CIMCData namedDataAt(EnvNode* env, const Named& list, CIMCCount index, CIMCString** name, const char* what) {
  if (index < 0 || static_cast<std::size_t>(index) >= list.size())
    throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string(what) + " index " + std::to_string(index) + " out of range");
  const auto& member = list[static_cast<std::size_t>(index)];
  CIMCData d = dataOut(env, member.second);
  if (name) *name = makeString(env, member.first);
  return d;
}

// ---- function tables -----------------------------------------------------------

extern "C" {

// Strings.
static CIMCStatus strRelease(CIMCString* s);
static CIMCString* strClone(const CIMCString* s, CIMCStatus* rc) {
  return entry(Kind::String, s, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.text()); });
}
static char* strChars(const CIMCString* s, CIMCStatus* rc) {
  return entry(Kind::String, s, rc, (char*)nullptr, [&](Node& n) { return static_cast<char*>(n.pub.string.hdl); });
}
static const CIMCStringFT kStringFT = {1, strRelease, strClone, strChars};

// Datetimes.
static CIMCStatus dtRelease(CIMCDateTime* d);
static CIMCDateTime* dtClone(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry(Kind::DateTime, d, rc, (CIMCDateTime*)nullptr, [&](Node& n) { return makeDateTime(n.env, n.text()); });
}
static uint64_t dtBinary(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry(Kind::DateTime, d, rc, (uint64_t)0, [&](Node& n) { return dateTimeMicros(n.text()); });
}
static CIMCString* dtString(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry(Kind::DateTime, d, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.text()); });
}
static CIMCBoolean dtInterval(const CIMCDateTime* d, CIMCStatus* rc) {
  return entry(Kind::DateTime, d, rc, (CIMCBoolean)0,
                             [&](Node& n) { return CIMCBoolean(isIntervalText(n.text()) ? 1 : 0); });
}
static const CIMCDateTimeFT kDateTimeFT = {1, dtRelease, dtClone, dtBinary, dtString, dtInterval};

// Object paths.
static CIMCStatus opRelease(CIMCObjectPath* p);
static CIMCObjectPath* opClone(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCObjectPath*)nullptr, [&](Node& n) { return makePath(n.env, n.body.path); });
}
static CIMCStatus opSetNameSpace(CIMCObjectPath* p, const char* ns) {
  return statusEntry(Kind::Path, p, [&](Node& n) { n.pathForWrite().ns = ns ? ns : ""; });
}
static CIMCString* opGetNameSpace(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.path().ns); });
}
static CIMCStatus opSetHostname(CIMCObjectPath* p, const char* hn) {
  return statusEntry(Kind::Path, p, [&](Node& n) { n.pathForWrite().host = hn ? hn : ""; });
}
static CIMCString* opGetHostname(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.path().host); });
}
static CIMCStatus opSetClassName(CIMCObjectPath* p, const char* cn) {
  return statusEntry(Kind::Path, p, [&](Node& n) { n.pathForWrite().cls = cn ? cn : ""; });
}
static CIMCString* opGetClassName(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.path().cls); });
}
static CIMCStatus opAddKey(CIMCObjectPath* p, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry(Kind::Path, p, [&](Node& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "key without a name");
    // The value first: a reference to this very path then shares the data as
    // it was, and the write below copies it instead of making a cycle.
    Val v = valueIn(value, type);
    putNamed(n.pathForWrite().keys, name, std::move(v));
  });
}
static CIMCData opGetKey(const CIMCObjectPath* p, const char* name, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, nullData(0, CIMC_badValue), [&](Node& n) { return namedData(n.env, n.path().keys, name, "key"); });
}
static CIMCData opGetKeyAt(const CIMCObjectPath* p, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry(Kind::Path, p, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    return namedDataAt(n.env, n.path().keys, index, name, "key");
  });
}
static CIMCCount opGetKeyCount(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCCount)0, [&](Node& n) { return static_cast<CIMCCount>(n.path().keys.size()); });
}
static CIMCString* opToString(const CIMCObjectPath* p, CIMCStatus* rc) {
  return entry(Kind::Path, p, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, pathText(n.path())); });
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
  if (!d.filtered) return index >= 0 && static_cast<std::size_t>(index) < d.props.size() ? &d.props[static_cast<std::size_t>(index)] : nullptr;
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
  return entry(Kind::Instance, i, rc, (CIMCInstance*)nullptr, [&](Node& n) { return makeInstance(n.env, n.body.inst); });
}
static CIMCData instGetProperty(const CIMCInstance* i, const char* name, CIMCStatus* rc) {
  return entry(Kind::Instance, i, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    const Val* v = name && visible(n.inst(), name) ? findNamed(n.inst().props, name) : nullptr;
    if (!v) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, std::string("no property ") + (name ? name : "(null)"));
    return dataOut(n.env, *v);
  });
}
static CIMCData instGetPropertyAt(const CIMCInstance* i, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry(Kind::Instance, i, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    const auto* p = visibleAt(n.inst(), index);
    if (!p) throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "property index " + std::to_string(index) + " out of range");
    CIMCData d = dataOut(n.env, p->second);
    if (name) *name = makeString(n.env, p->first);
    return d;
  });
}
static CIMCCount instGetPropertyCount(const CIMCInstance* i, CIMCStatus* rc) {
  return entry(Kind::Instance, i, rc, (CIMCCount)0, [&](Node& n) {
    CIMCCount c = 0;
    const InstData& d = n.inst();
    for (const auto& p : d.props) c += visible(d, p.first) ? 1 : 0;
    return c;
  });
}
static CIMCStatus instSetProperty(const CIMCInstance* i, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry(Kind::Instance, i, [&](Node& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "property without a name");
    if (!visible(n.inst(), name)) return;  // filtered out: ignored, as a filter promises
    Val v = valueIn(value, type);
    InstData& d = n.instForWrite();
    putNamed(d.props, name, std::move(v));
    d.path.reset();  // a key may have changed
  });
}
static CIMCObjectPath* instGetObjectPath(const CIMCInstance* i, CIMCStatus* rc) {
  return entry(Kind::Instance, i, rc, (CIMCObjectPath*)nullptr,
                         [&](Node& n) { return makePath(n.env, instancePath(n.inst())); });
}
static CIMCStatus instSetPropertyFilter(CIMCInstance* i, const char** properties, const char** keys) {
  return statusEntry(Kind::Instance, i, [&](Node& n) {
    InstData& d = n.instForWrite();
    d.filtered = properties != nullptr;
    d.filter.clear();
    if (!properties) return;
    for (const char** p = properties; *p; ++p) d.filter.emplace_back(*p);
    for (const char** k = keys; k && *k; ++k) d.filter.emplace_back(*k);  // keys always stay
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
  return entry(Kind::Class, c, rc, (CIMCClass*)nullptr, [&](Node& n) { return makeClass(n.env, n.body.cls); });
}
static CIMCString* clsGetClassName(const CIMCClass* c, CIMCStatus* rc) {
  return entry(Kind::Class, c, rc, (CIMCString*)nullptr, [&](Node& n) { return makeString(n.env, n.cls().name); });
}
static CIMCData clsGetProperty(const CIMCClass* c, const char* name, CIMCStatus* rc) {
  return entry(Kind::Class, c, rc, nullData(0, CIMC_badValue), [&](Node& n) { return namedData(n.env, n.cls().props, name, "property"); });
}
static CIMCData clsGetPropertyAt(const CIMCClass* c, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry(Kind::Class, c, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    return namedDataAt(n.env, n.cls().props, index, name, "property");
  });
}
static CIMCCount clsGetPropertyCount(const CIMCClass* c, CIMCStatus* rc) {
  return entry(Kind::Class, c, rc, (CIMCCount)0, [&](Node& n) { return static_cast<CIMCCount>(n.cls().props.size()); });
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
  return entry(Kind::Array, a, rc, (CIMCArray*)nullptr, [&](Node& n) { return makeArray(n.env, n.elem, n.body.items); });
}
static CIMCCount arGetSize(const CIMCArray* a, CIMCStatus* rc) {
  return entry(Kind::Array, a, rc, (CIMCCount)0, [&](Node& n) { return static_cast<CIMCCount>(n.body.items.size()); });
}
static CIMCType arGetSimpleType(const CIMCArray* a, CIMCStatus* rc) {
  return entry(Kind::Array, a, rc, (CIMCType)0, [&](Node& n) { return n.elem; });
}
static CIMCData arGetElementAt(const CIMCArray* a, CIMCCount index, CIMCStatus* rc) {
  return entry(Kind::Array, a, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.body.items.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "array index " + std::to_string(index) + " out of range");
    return dataOut(n.env, n.body.items[static_cast<std::size_t>(index)]);
  });
}
static CIMCStatus arSetElementAt(CIMCArray* a, CIMCCount index, const CIMCValue* value, CIMCType type) {
  return statusEntry(Kind::Array, a, [&](Node& n) {
    if (index < 0 || static_cast<std::size_t>(index) >= n.body.items.size())
      throw CimError(cimmock::CIM_ERR_NO_SUCH_PROPERTY, "array index " + std::to_string(index) + " out of range");
    if (normalType(type) != n.elem)
      throw CimError(cimmock::CIM_ERR_TYPE_MISMATCH, "element of type " + std::to_string(type) +
                                                         " in an array of type " + std::to_string(n.elem));
    n.body.items[static_cast<std::size_t>(index)] = valueIn(value, type);
  });
}
static const CIMCArrayFT kArrayFT = {1, arRelease, arClone, arGetSize, arGetSimpleType, arGetElementAt, arSetElementAt};

// Argument lists.
static CIMCStatus argsRelease(CIMCArgs* a);
static CIMCArgs* argsClone(const CIMCArgs* a, CIMCStatus* rc) {
  return entry(Kind::Args, a, rc, (CIMCArgs*)nullptr, [&](Node& n) { return makeArgs(n.env, n.body.args); });
}
static CIMCStatus argsAdd(CIMCArgs* a, const char* name, const CIMCValue* value, CIMCType type) {
  return statusEntry(Kind::Args, a, [&](Node& n) {
    if (!name) throw CimError(cimmock::CIM_ERR_INVALID_PARAMETER, "argument without a name");
    putNamed(n.body.args, name, valueIn(value, type));
  });
}
static CIMCData argsGet(const CIMCArgs* a, const char* name, CIMCStatus* rc) {
  return entry(Kind::Args, a, rc, nullData(0, CIMC_badValue), [&](Node& n) { return namedData(n.env, n.body.args, name, "argument"); });
}
static CIMCData argsGetAt(const CIMCArgs* a, CIMCCount index, CIMCString** name, CIMCStatus* rc) {
  if (name) *name = nullptr;
  return entry(Kind::Args, a, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    return namedDataAt(n.env, n.body.args, index, name, "argument");
  });
}
static CIMCCount argsCount(const CIMCArgs* a, CIMCStatus* rc) {
  return entry(Kind::Args, a, rc, (CIMCCount)0, [&](Node& n) { return static_cast<CIMCCount>(n.body.args.size()); });
}
static const CIMCArgsFT kArgsFT = {1, argsRelease, argsClone, argsAdd, argsGet, argsGetAt, argsCount};

// Enumerations.
static CIMCStatus enRelease(CIMCEnumeration* e);
static CIMCEnumeration* enClone(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry(Kind::Enum, e, rc, (CIMCEnumeration*)nullptr, [&](Node& n) {
    const EnumData& from = *n.body.en;
    CIMCEnumeration* c = makeEnum(n.env, from.items);
    EnumData& copy = *findAs(Kind::Enum, c)->body.en;
    copy.next = from.next;
    copy.cut = from.cut;
    copy.limit = from.limit;
    return c;
  });
}
static CIMCData enGetNext(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry(Kind::Enum, e, rc, nullData(0, CIMC_badValue), [&](Node& n) {
    EnumData& en = *n.body.en;
    if (en.cut && en.next >= en.limit) {
      CIMCType type = en.items.empty() ? CIMCType(CIMC_instance) : en.items.front().type;
      setStatus(rc, failStatus(n.env, cimmock::CIM_ERR_FAILED, "enumeration broken off (enum-half)"));
      return nullData(type, CIMC_badValue);
    }
    if (en.next >= en.items.size()) throw CimError(cimmock::CIM_ERR_NOT_FOUND, "no more elements");
    CIMCData d = dataOut(n.env, en.items[en.next]);
    ++en.next;
    return d;
  });
}
static CIMCBoolean enHasNext(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry(Kind::Enum, e, rc, (CIMCBoolean)0, [&](Node& n) {
    const EnumData& en = *n.body.en;
    return CIMCBoolean(en.cut || en.next < en.items.size() ? 1 : 0);
  });
}
static CIMCArray* enToArray(const CIMCEnumeration* e, CIMCStatus* rc) {
  return entry(Kind::Enum, e, rc, (CIMCArray*)nullptr, [&](Node& n) {
    const EnumData& en = *n.body.en;
    if (en.cut) throw CimError(cimmock::CIM_ERR_FAILED, "enumeration broken off (enum-half)");
    CIMCType type = en.items.empty() ? CIMCType(CIMC_instance) : en.items.front().type;
    return makeArray(n.env, type, en.items);
  });
}
static const CIMCEnumerationFT kEnumFT = {1, enRelease, enClone, enGetNext, enHasNext, enToArray};

}  // extern "C"

// ---- release ---------------------------------------------------------------------

namespace {
// A second release, or a pointer the broker never handed out, is refused
// with a status instead of touching memory.
CIMCStatus releaseAs(Kind kind, const void* self) {
  std::lock_guard<BrokerLock> guard(brokerLock());
  Node* n = findAs(kind, self);
  if (!n) return CIMCStatus{kInvalidHandle, nullptr};
  releaseNode(n);
  return okStatus();
}
}  // namespace

extern "C" {
static CIMCStatus strRelease(CIMCString* s) { return releaseAs(Kind::String, s); }
static CIMCStatus dtRelease(CIMCDateTime* d) { return releaseAs(Kind::DateTime, d); }
static CIMCStatus opRelease(CIMCObjectPath* p) { return releaseAs(Kind::Path, p); }
static CIMCStatus instRelease(CIMCInstance* i) { return releaseAs(Kind::Instance, i); }
static CIMCStatus clsRelease(CIMCClass* c) { return releaseAs(Kind::Class, c); }
static CIMCStatus arRelease(CIMCArray* a) { return releaseAs(Kind::Array, a); }
static CIMCStatus argsRelease(CIMCArgs* a) { return releaseAs(Kind::Args, a); }
static CIMCStatus enRelease(CIMCEnumeration* e) { return releaseAs(Kind::Enum, e); }
}  // extern "C"

// ---- constructors ----------------------------------------------------------------
// Each builds the body in a new slot, then marks it live; a body that fails
// to build leaves a dead slot, freed with the environment.

namespace {
// Text of a string or datetime: in the slot when short, else one malloc.
void setText(Node* n, std::string_view text) {
  if (text.size() < sizeof n->body.small) {
    std::memcpy(n->body.small, text.data(), text.size());
    n->body.small[text.size()] = '\0';
    return;
  }
  char* heap = static_cast<char*>(std::malloc(text.size() + 1));
  if (!heap) throw std::bad_alloc();
  std::memcpy(heap, text.data(), text.size());
  heap[text.size()] = '\0';
  n->body.heap = heap;
  n->longText = true;
}
}  // namespace

CIMCString* makeString(EnvNode* env, std::string_view text) {
  Node* n = newNode(env, Kind::String);
  setText(n, text);
  n->pub.string = CIMCString{const_cast<char*>(n->text()), &kStringFT};  // the text never changes after this
  n->dead = false;
  return &n->pub.string;
}

CIMCDateTime* makeDateTime(EnvNode* env, std::string_view text) {
  Node* n = newNode(env, Kind::DateTime);
  setText(n, text);
  n->pub.dateTime = CIMCDateTime{nullptr, &kDateTimeFT};
  n->dead = false;
  return &n->pub.dateTime;
}

CIMCObjectPath* makePath(EnvNode* env, std::shared_ptr<const PathData> d) {
  Node* n = newNode(env, Kind::Path);
  new (&n->body.path) std::shared_ptr<const PathData>(std::move(d));
  n->pub.path = CIMCObjectPath{nullptr, &kPathFT};
  n->dead = false;
  return &n->pub.path;
}

CIMCInstance* makeInstance(EnvNode* env, std::shared_ptr<const InstData> d) {
  Node* n = newNode(env, Kind::Instance);
  new (&n->body.inst) std::shared_ptr<const InstData>(std::move(d));
  n->pub.inst = CIMCInstance{nullptr, &kInstanceFT};
  n->dead = false;
  return &n->pub.inst;
}

CIMCClass* makeClass(EnvNode* env, std::shared_ptr<const ClassData> d) {
  Node* n = newNode(env, Kind::Class);
  new (&n->body.cls) std::shared_ptr<const ClassData>(std::move(d));
  n->pub.cls = CIMCClass{nullptr, &kClassFT};
  n->dead = false;
  return &n->pub.cls;
}

CIMCArray* makeArray(EnvNode* env, CIMCType elem, std::vector<Val> items) {
  Node* n = newNode(env, Kind::Array);
  new (&n->body.items) std::vector<Val>(std::move(items));
  n->elem = normalType(static_cast<CIMCType>(elem & ~CIMC_ARRAY));
  n->pub.array = CIMCArray{nullptr, &kArrayFT};
  n->dead = false;
  return &n->pub.array;
}

CIMCArgs* makeArgs(EnvNode* env, Named args) {
  Node* n = newNode(env, Kind::Args);
  new (&n->body.args) Named(std::move(args));
  n->pub.args = CIMCArgs{nullptr, &kArgsFT};
  n->dead = false;
  return &n->pub.args;
}

CIMCEnumeration* makeEnum(EnvNode* env, std::vector<Val> items) {
  auto data = std::make_unique<EnumData>();
  data->items = std::move(items);
  if (env->faults.mode == Faults::EnumHalf) {
    data->cut = true;
    data->limit = data->items.size() / 2;
  }
  Node* n = newNode(env, Kind::Enum);
  new (&n->body.en) std::unique_ptr<EnumData>(std::move(data));
  n->pub.en = CIMCEnumeration{nullptr, &kEnumFT};
  n->dead = false;
  return &n->pub.en;
}

}  // namespace broker
