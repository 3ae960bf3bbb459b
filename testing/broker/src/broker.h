// The mock local broker's internals: values, object nodes, the registry of
// live objects, and the glue between broker values and cimmock::Repository.
//
// Every object handed out is a C++ node whose `pub` member is the
// { hdl; ft } shape the caller sees. The caller only ever holds &node->pub;
// a process-wide registry maps that address back to the node, so an unknown
// or released pointer is refused instead of dereferenced.
#pragma once

#include <cimxml/local.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cimmock/repository.h"

namespace broker {

struct PathData;
struct InstData;
struct ClassData;

// A broker value: a scalar or an array of one type code. Strings given as
// chars (5888) are kept as strings (5632).
struct Val {
  CIMCType type = 0;  // array bit 8192 for arrays
  bool null = true;
  CIMCValue num{};    // integers, reals, boolean, char16
  std::string text;   // string, datetime
  std::shared_ptr<const PathData> ref;
  std::shared_ptr<const InstData> inst;
  std::shared_ptr<const ClassData> cls;
  std::vector<Val> items;  // array elements, each typed type & ~8192
};
inline Val nullVal(CIMCType type) {
  Val v;
  v.type = type;
  return v;
}
using Named = std::vector<std::pair<std::string, Val>>;

struct PathData {
  std::string host, ns, cls;
  Named keys;
};
struct InstData {
  std::string ns, cls;
  Named props;
  // The repository's path for an instance it returned (kept so that
  // null-values cannot blank the keys); otherwise computed from the class.
  std::shared_ptr<const PathData> path;
  bool filtered = false;
  std::vector<std::string> filter;
};
struct ClassData {
  std::string name;
  Named props;
};

// ---- fault injection, read at each factory call -------------------------
struct Faults {
  enum Mode { None, Connect, Fail, FailSilent, NullValues, EnumHalf, Unknown } mode = None;
  int code = 0;
  std::string message;  // Fail: the message; Unknown: the raw setting
};

// ---- nodes ----------------------------------------------------------------
struct EnvNode;
struct Node {
  virtual ~Node() = default;
  // Drops the contents at release; the shell stays registered (dead) until
  // its environment goes, so a second release finds it and does nothing,
  // and its address cannot be handed out again meanwhile.
  virtual void clear() {}
  EnvNode* env = nullptr;
  bool dead = false;
};
struct StringNode : Node {
  CIMCString pub{};
  std::string text;
  void clear() override { pub.hdl = nullptr; std::string().swap(text); }
};
struct DateTimeNode : Node {
  CIMCDateTime pub{};
  std::string text;  // 25-character form
  void clear() override { std::string().swap(text); }
};
struct PathNode : Node {
  CIMCObjectPath pub{};
  PathData d;
  void clear() override { d = PathData(); }
};
struct InstNode : Node {
  CIMCInstance pub{};
  InstData d;
  void clear() override { d = InstData(); }
};
struct ClassNode : Node {
  CIMCClass pub{};
  ClassData d;
  void clear() override { d = ClassData(); }
};
struct ArrayNode : Node {
  CIMCArray pub{};
  CIMCType elem = 0;
  std::vector<Val> items;
  void clear() override { std::vector<Val>().swap(items); }
};
struct ArgsNode : Node {
  CIMCArgs pub{};
  Named args;
  void clear() override { Named().swap(args); }
};
struct EnumNode : Node {
  CIMCEnumeration pub{};
  std::vector<Val> items;
  std::size_t next = 0;
  bool cut = false;        // enum-half: broken off after half the items
  std::size_t limit = 0;   // with cut: items delivered before the break
  void clear() override { std::vector<Val>().swap(items); }
};
struct ClientNode : Node {
  CIMCClient pub{};
};
struct EnvNode : Node {
  CIMCEnv pub{};  // pub.hdl belongs to the loader: it stores its dlopen handle there
  std::unordered_set<Node*> owned;
  Faults faults;
  bool checkUser = false, checkPassword = false;
  std::string user, password;
  std::string loadError;  // non-empty: the repository did not load
};

// ---- registry and lock ----------------------------------------------------
std::recursive_mutex& brokerLock();
Node* findNode(const void* pub);  // nullptr when unknown or released
template <class T> T* findAs(const void* pub) { return dynamic_cast<T*>(findNode(pub)); }
void adopt(EnvNode* env, Node* n, const void* pub);
void releaseNode(Node* n);
void destroyEnv(EnvNode* env);
void registerEnv(EnvNode* env);

// Constructors: the new node is owned by env.
CIMCString* makeString(EnvNode* env, const std::string& text);
CIMCDateTime* makeDateTime(EnvNode* env, const std::string& text);
CIMCObjectPath* makePath(EnvNode* env, PathData d);
CIMCInstance* makeInstance(EnvNode* env, InstData d);
CIMCClass* makeClass(EnvNode* env, ClassData d);
CIMCArray* makeArray(EnvNode* env, CIMCType elem, std::vector<Val> items);
CIMCArgs* makeArgs(EnvNode* env, Named args);
CIMCEnumeration* makeEnum(EnvNode* env, std::vector<Val> items);
CIMCClient* makeClient(EnvNode* env);
EnvNode* makeEnv();

// ---- statuses and errors --------------------------------------------------
// A failure without a message (fail-silent).
struct SilentError {
  int rc;
};
CIMCStatus okStatus();
CIMCStatus failStatus(EnvNode* env, int rc, const std::string& msg);
inline void setStatus(CIMCStatus* st, const CIMCStatus& v) {
  if (st) *st = v;
}
constexpr int kInvalidHandle = 60;  // an object pointer the broker does not know

// Runs body(node) under the broker lock with st set to success first. Any
// exception becomes a status (CIM code and message) and `onError` is
// returned: nothing escapes to the C caller.
template <class T, class R, class F>
R entry(const void* self, CIMCStatus* st, R onError, F&& body) {
  std::lock_guard<std::recursive_mutex> guard(brokerLock());
  T* node = findAs<T>(self);
  if (!node) {
    setStatus(st, CIMCStatus{kInvalidHandle, nullptr});
    return onError;
  }
  EnvNode* env = node->env;
  try {
    setStatus(st, okStatus());
    return body(*node);
  } catch (const cimmock::CimError& e) {
    setStatus(st, failStatus(env, e.code, e.what()));
  } catch (const SilentError& e) {
    setStatus(st, CIMCStatus{e.rc, nullptr});
  } catch (const std::exception& e) {
    setStatus(st, failStatus(env, 1, e.what()));
  } catch (...) {
    setStatus(st, failStatus(env, 1, "unexpected failure"));
  }
  return onError;
}
// The same for functions that return their status.
template <class T, class F>
CIMCStatus statusEntry(const void* self, F&& body) {
  CIMCStatus st{0, nullptr};
  entry<T>(self, &st, 0, [&](T& n) { body(n); return 0; });
  return st;
}

// ---- values ---------------------------------------------------------------
CIMCType normalType(CIMCType type);  // chars -> string, for scalars and arrays
// Copies a caller's value of the given type (NULL value = null).
Val valueIn(const CIMCValue* value, CIMCType type);
// A data item for a value; objects in it are new and owned by env.
CIMCData dataOut(EnvNode* env, const Val& v);
CIMCData nullData(CIMCType type, CIMCValueState state);
// Finds a name (case-insensitive) in a list; nullptr when absent.
const Val* findNamed(const Named& list, const std::string& name);
void putNamed(Named& list, const std::string& name, Val v);

// ---- datetimes ------------------------------------------------------------
bool validDateTime(const std::string& text);
bool isIntervalText(const std::string& text);
std::uint64_t dateTimeMicros(const std::string& text);
std::string dateTimeFromMicros(std::uint64_t micros, bool interval);
std::string dateTimeNow();

// ---- paths ----------------------------------------------------------------
std::string pathText(const PathData& p);

// ---- the repository -------------------------------------------------------
cimmock::Repository& repository();
// Loads the repository once; returns the load error ("" when it loaded).
const std::string& loadRepository();
const char* const kDefaultNamespace = "root/cimv2";

cimmock::Value toRepo(const Val& v);
cimmock::ObjectPath toRepoPath(const PathData& p);
cimmock::Instance toRepoInstance(const InstData& d);
// A repository value of a declared type; `embedded` marks an
// EmbeddedInstance string, returned as instances (4096).
Val fromRepo(const cimmock::Value& v, cimmock::Type declared, bool isArray, bool embedded, const std::string& ns,
             bool nullValues = false);
PathData fromRepoPath(const cimmock::ObjectPath& p, const std::string& ns);
InstData fromRepoInstance(const cimmock::Instance& inst, const cimmock::ObjectPath& path, const std::string& ns,
                          bool nullValues);
ClassData fromRepoClass(const cimmock::Class& c, const std::string& ns);
// The path of an instance: its repository path, or the class's key
// properties taken from the instance.
PathData instancePath(const InstData& d);

// Trace output when the loader has set _sfcb_debug and _sfcb_trace_mask.
void trace(const char* what);

}  // namespace broker
