// The mock local broker's internals: values, object nodes, the registry of
// live objects, and the glue between broker values and cimmock::Repository.
//
// Every object handed out is a node whose `pub` member is the { hdl; ft }
// shape the caller sees; the nodes live in their environment's store.
#pragma once

#include <cimxml/local.h>

#include <cstddef>
#include <memory>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
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

enum class Kind : std::uint8_t { String = 1, DateTime, Path, Instance, Class, Array, Args, Enum, Client };

struct EnumData {
  std::vector<Val> items;
  std::size_t next = 0;
  bool cut = false;        // enum-half: broken off after half the items
  std::size_t limit = 0;   // with cut: items delivered before the break
};

// One object handed out: a fixed-size slot in its environment's node store
// (see store.cpp). The caller only ever holds &pub; the store maps such an
// address back to its slot by arithmetic, so an unknown or released pointer
// is refused without being read. The body is the member `kind` names; paths,
// instances and classes share their data until one of the sharers changes
// it, so handing out an enumerated instance or its path copies nothing.
struct Node {
  Kind kind = Kind::Client;
  // No body: not built yet, or released. A released slot stays in the store
  // until its environment goes, so a second release finds it and does
  // nothing, and its address cannot be handed out again meanwhile.
  bool dead = true;
  bool longText = false;  // String, DateTime: the text is in body.heap
  CIMCType elem = 0;      // Array: the element type
  EnvNode* env = nullptr;
  union Pub {
    CIMCString string;
    CIMCDateTime dateTime;
    CIMCObjectPath path;
    CIMCInstance inst;
    CIMCClass cls;
    CIMCArray array;
    CIMCArgs args;
    CIMCEnumeration en;
    CIMCClient client;
  } pub{};
  union Body {
    Body() {}
    ~Body() {}
    char small[32];  // String, DateTime: texts shorter than 32 bytes
    char* heap;      // longer ones (malloc)
    std::shared_ptr<const PathData> path;
    std::shared_ptr<const InstData> inst;
    std::shared_ptr<const ClassData> cls;
    std::vector<Val> items;  // Array
    Named args;
    std::unique_ptr<EnumData> en;
  } body;

  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  const char* text() const { return longText ? body.heap : body.small; }
  const PathData& path() const { return *body.path; }
  const InstData& inst() const { return *body.inst; }
  const ClassData& cls() const { return *body.cls; }
  // Writable data: a private copy first when it is shared.
  PathData& pathForWrite();
  InstData& instForWrite();
};

struct EnvNode {
  CIMCEnv pub{};  // pub.hdl belongs to the loader: it stores its dlopen handle there
  struct Chunk;
  std::vector<std::unique_ptr<Chunk>> chunks;  // the node store, filled in order
  Faults faults;
  bool checkUser = false, checkPassword = false;
  std::string user, password;
  std::string loadError;  // non-empty: the repository did not load
  EnvNode();
  ~EnvNode();  // destroys every node of the store
  EnvNode(const EnvNode&) = delete;
  EnvNode& operator=(const EnvNode&) = delete;
};

// Shares a new, writable object as read-only data: only objects made here
// (never const objects) go into the shared_ptrs that *ForWrite may copy or
// write through.
template <class T>
std::shared_ptr<const T> share(T&& data) {
  return std::make_shared<T>(std::forward<T>(data));
}

// ---- the store and the lock -------------------------------------------------
// The one lock every entry point takes while it works. Uncontended it costs
// one atomic exchange and a plain store (a mutex took two atomic operations
// per call, a tenth of an enumeration); a waiter yields its time slice. Not
// recursive: entry points never call one another.
class BrokerLock {
public:
  void lock() {
    while (held_.exchange(true, std::memory_order_acquire))
      while (held_.load(std::memory_order_relaxed)) std::this_thread::yield();
  }
  void unlock() { held_.store(false, std::memory_order_release); }

private:
  std::atomic<bool> held_{false};
};
BrokerLock& brokerLock();
Node* findNode(const void* pub);  // nullptr when unknown or released
inline Node* findAs(Kind kind, const void* pub) {
  Node* n = findNode(pub);
  return n && n->kind == kind ? n : nullptr;
}
EnvNode* findEnv(const void* pub);  // nullptr when unknown or released
// A new slot of env's store with an empty body (dead until the caller has
// built one). Throws std::bad_alloc.
Node* newNode(EnvNode* env, Kind kind);
void releaseNode(Node* n);  // drops the body
void destroyEnv(EnvNode* env);
void registerEnv(EnvNode* env);

// Constructors: the new node is owned by env.
CIMCString* makeString(EnvNode* env, std::string_view text);
CIMCDateTime* makeDateTime(EnvNode* env, std::string_view text);
CIMCObjectPath* makePath(EnvNode* env, std::shared_ptr<const PathData> d);
CIMCInstance* makeInstance(EnvNode* env, std::shared_ptr<const InstData> d);
CIMCClass* makeClass(EnvNode* env, std::shared_ptr<const ClassData> d);
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
template <class N, class R, class F>
R guarded(N* node, EnvNode* env, CIMCStatus* st, R onError, F& body) {
  if (!node) {
    setStatus(st, CIMCStatus{kInvalidHandle, nullptr});
    return onError;
  }
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
template <class R, class F>
R entry(Kind kind, const void* self, CIMCStatus* st, R onError, F&& body) {
  std::lock_guard<BrokerLock> guard(brokerLock());
  Node* node = findAs(kind, self);
  return guarded(node, node ? node->env : nullptr, st, onError, body);
}
template <class R, class F>
R envEntry(const CIMCEnv* self, CIMCStatus* st, R onError, F&& body) {
  std::lock_guard<BrokerLock> guard(brokerLock());
  EnvNode* env = findEnv(self);
  return guarded(env, env, st, onError, body);
}
// The same for functions that return their status.
template <class F>
CIMCStatus statusEntry(Kind kind, const void* self, F&& body) {
  CIMCStatus st{0, nullptr};
  entry(kind, self, &st, 0, [&](Node& n) { body(n); return 0; });
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
std::shared_ptr<const PathData> instancePath(const InstData& d);

// Trace output when the loader has set _sfcb_debug and _sfcb_trace_mask.
void trace(const char* what);

}  // namespace broker
