// The mock local broker (libcimcClientSfcbLocal.so), loaded with dlopen and
// driven through its function tables only, as the library's local back end
// drives it. The sample repository is shared by the whole process, so every
// test that changes it puts it back. Whole operations (enumerations,
// associations, create/modify/delete, methods) are compared with the HTTP
// mock through the library in tests/scenario; values of every type reach the
// broker's containers through the library in tests/local.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <cimxml/local.h>

namespace {

// Character data goes to the broker as the text itself, in place of a value.
CIMCValue* asChars(const char* text) { return reinterpret_cast<CIMCValue*>(const_cast<char*>(text)); }

const std::string kDir = MOCK_BROKER_DIR;
const std::string kLib = kDir + "/libcimcClientSfcbLocal.so";

void* openLib(const std::string& path) {
  void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);  // never closed: keeps leak reports readable
  EXPECT_NE(h, nullptr) << dlerror();
  return h;
}
CIMCEnvFactory factory() {
  static CIMCEnvFactory f = reinterpret_cast<CIMCEnvFactory>(dlsym(openLib(kLib), "_Create_SfcbLocal_Env"));
  return f;
}

std::string text(const CIMCString* s) { return s && s->hdl ? static_cast<const char*>(s->hdl) : "<null>"; }
std::string text(CIMCDateTime* d) { return d ? text(d->ft->getStringFormat(d, nullptr)) : "<null>"; }
void setOrUnset(const char* var, const char* value) { value ? setenv(var, value, 1) : unsetenv(var); }
const char* const kVars[] = {"CIMMOCK_BROKER_FAULT", "CIMMOCK_BROKER_USER", "CIMMOCK_BROKER_PASSWORD"};

// A scalar value and the number of its leading bytes that carry it.
struct Scalar {
  CIMCType type;
  CIMCValue v;
  std::size_t size;
};
template <class T>
Scalar scalar(CIMCType type, T x) {
  Scalar s{type, {}, sizeof x};
  std::memcpy(&s.v, &x, sizeof x);
  return s;
}
bool same(const CIMCData& d, const Scalar& s) {
  return d.type == s.type && d.state == CIMC_goodValue && std::memcmp(&d.value, &s.v, s.size) == 0;
}

class Broker : public ::testing::Test {
protected:
  void SetUp() override {
    for (const char* v : kVars) unsetenv(v);
    env = newEnv();
    ASSERT_NE(env, nullptr);
  }
  void TearDown() override {
    for (CIMCEnv* e : extra) e->ft->release(e);
    if (env) env->ft->release(env);
    for (const char* v : kVars) unsetenv(v);
  }
  // A further environment, as the library makes one per operation.
  CIMCEnv* newEnv() {
    int rc = -1;
    char* msg = nullptr;
    CIMCEnv* e = factory()("SfcbLocal", 0, &rc, &msg);
    EXPECT_EQ(rc, 0) << (msg ? msg : "");
    free(msg);
    if (e && env) extra.push_back(e);
    return e;
  }
  CIMCClient* connect(CIMCEnv* e = nullptr, const char* user = "root", const char* pwd = "pw") {
    e = e ? e : env;
    last = CIMCStatus{};
    return e->ft->connect(e, "localhost", "SfcbLocal", nullptr, user, pwd, &last);
  }
  CIMCObjectPath* path(const char* cls, std::vector<std::pair<const char*, const char*>> keys = {},
                       const char* ns = "root/cimv2", CIMCEnv* e = nullptr) {
    e = e ? e : env;
    CIMCObjectPath* op = e->ft->newObjectPath(e, ns, cls, nullptr);
    for (auto& [k, v] : keys) op->ft->addKey(op, k, asChars(v), CIMC_chars);
    return op;
  }
  CIMCObjectPath* system() {
    return path("Mock_ComputerSystem", {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
  }
  CIMCObjectPath* allTypes(const char* id) { return path("Mock_AllTypes", {{"InstanceID", id}}); }
  static std::string className(const CIMCData& d) {
    CIMCObjectPath* op = d.type == CIMC_instance ? d.value.inst->ft->getObjectPath(d.value.inst, nullptr) : d.value.ref;
    return text(op->ft->getClassName(op, nullptr));
  }
  static CIMCData prop(CIMCInstance* i, const char* name, CIMCStatus* st = nullptr) { return i->ft->getProperty(i, name, st); }

  CIMCEnv* env = nullptr;
  std::vector<CIMCEnv*> extra;
  CIMCStatus last{};
};

// ---- the library file -------------------------------------------------------

std::set<std::string> exported(const std::string& lib) {
  std::set<std::string> out;
  FILE* p = popen(("nm -D --defined-only " + lib + " 2>/dev/null").c_str(), "r");
  char line[512], addr[64], type[8], name[400];
  while (p && fgets(line, sizeof line, p))
    if (sscanf(line, "%63s %7s %399s", addr, type, name) == 3) out.insert(name);
  if (p) pclose(p);
  return out;
}

TEST(BrokerLibrary, ExportsExactlyTheInterface) {
  static_assert(sizeof(CIMCData) == 24 && offsetof(CIMCData, value) == 8, "data items: 24 bytes, value at 8");
  std::set<std::string> names = exported(kLib);
  if (names.empty()) GTEST_SKIP() << "nm is not available";
  EXPECT_EQ(names, (std::set<std::string>{"_Create_SfcbLocal_Env", "_sfcb_debug", "_sfcb_trace_mask"}));
  EXPECT_EQ(exported(kDir + "/libcimcClientNoEntry.so"), std::set<std::string>{});
  EXPECT_EQ(exported(kDir + "/libcimcClientTraceOnly.so"), (std::set<std::string>{"_Create_TraceOnly_Env", "_sfcb_trace_mask"}));
}

// A factory that fails, and one whose MOF folder has an error: that one
// reports it and still gives an environment, whose connect fails. The
// repository is per process, so a private copy of the library loads it.
TEST(BrokerLibrary, FactoryFailuresAreReported) {
  auto traceOnly = reinterpret_cast<CIMCEnvFactory>(dlsym(openLib(kDir + "/libcimcClientTraceOnly.so"), "_Create_TraceOnly_Env"));
  ASSERT_NE(traceOnly, nullptr);
  int rc = 0;
  char* msg = nullptr;
  EXPECT_EQ(traceOnly("TraceOnly", 0, &rc, &msg), nullptr);
  EXPECT_EQ(rc, 1);
  EXPECT_STREQ(msg, "TraceOnly: no environment");
  free(msg);

  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("broker_test_" + std::to_string(getpid()));
  fs::create_directories(dir / "repo");
  std::ofstream(dir / "repo" / "a.mof") << "class Broken {\n  string ;\n};\n";
  fs::copy_file(kLib, dir / "libcopy.so", fs::copy_options::overwrite_existing);
  setenv("CIMMOCK_BROKER_REPO", (dir / "repo").c_str(), 1);
  auto f = reinterpret_cast<CIMCEnvFactory>(dlsym(openLib((dir / "libcopy.so").string()), "_Create_SfcbLocal_Env"));
  CIMCEnv* env = f ? f("SfcbLocal", 0, &rc, &msg) : nullptr;  // the repository loads here
  unsetenv("CIMMOCK_BROKER_REPO");
  fs::remove_all(dir);
  ASSERT_NE(env, nullptr);
  EXPECT_EQ(rc, 1);
  EXPECT_NE(std::string(msg ? msg : "").find("a.mof:2:"), std::string::npos);
  free(msg);
  CIMCStatus st{};
  EXPECT_EQ(env->ft->connect(env, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, &st), nullptr);
  EXPECT_EQ(st.rc, 1);
  EXPECT_NE(text(st.msg).find("a.mof"), std::string::npos);
  env->ft->release(env);
}

// ---- objects -----------------------------------------------------------------

TEST_F(Broker, DateTimesValidateAndConvert) {
  struct Case {
    const char* text;
    uint64_t micros;
    bool interval;
  } cases[] = {
      {"20240229235959.123456-300", 1709269199123456ull, false},  // 04:59:59 UTC next day
      {"99999999235959.999999:000", (99999999ull * 86400 + 86399) * 1000000 + 999999, true},
  };
  for (const auto& c : cases) {
    CIMCDateTime* dt = env->ft->newDateTimeFromChars(env, c.text, nullptr);
    ASSERT_NE(dt, nullptr) << c.text;
    EXPECT_EQ(dt->ft->getBinaryFormat(dt, nullptr), c.micros) << c.text;
    EXPECT_EQ(dt->ft->isInterval(dt, nullptr), c.interval ? 1 : 0) << c.text;
    EXPECT_EQ(text(dt), c.text);
  }
  for (const char* bad : {"2024", "20241301000000.000000+000", "00000001020304.000000:001", "20240229235959,123456-300",
                          static_cast<const char*>(nullptr)}) {
    CIMCStatus st{};
    EXPECT_EQ(env->ft->newDateTimeFromChars(env, bad, &st), nullptr) << (bad ? bad : "NULL");
    EXPECT_NE(st.rc, 0) << (bad ? bad : "NULL");
  }
  EXPECT_EQ(text(env->ft->newDateTimeFromBinary(env, 1709269199123456ull, 0, nullptr)), "20240301045959.123456+000");
}

TEST_F(Broker, ObjectPathKeysAndText) {
  CIMCObjectPath* op = path("Mock_Processor", {{"DeviceID", "CPU \"0\""}});
  CIMCValue v{};
  v.boolean = 1;
  op->ft->addKey(op, "On", &v, CIMC_boolean);
  CIMCObjectPath* inner = path("CIM_X", {{"K", "a"}});
  v.ref = inner;
  op->ft->addKey(op, "Ref", &v, CIMC_ref);
  inner->ft->release(inner);  // the key holds its own copy
  EXPECT_EQ(op->ft->getKeyCount(op, nullptr), 3);
  EXPECT_EQ(text(op->ft->toString(op, nullptr)), R"(root/cimv2:Mock_Processor.DeviceID="CPU \"0\"",On=TRUE,Ref="root/cimv2:CIM_X.K=\"a\"")");
  CIMCString* name = nullptr;
  CIMCData ref = op->ft->getKeyAt(op, 2, &name, nullptr);
  EXPECT_EQ(text(name), "Ref");
  EXPECT_EQ(ref.type == CIMC_ref ? className(ref) : "not a reference", "CIM_X");
  EXPECT_EQ(text(op->ft->getKey(op, "deviceid", nullptr).value.string), "CPU \"0\"");  // names are case-insensitive
  CIMCStatus st{};
  EXPECT_EQ(op->ft->getKeyAt(op, 3, &name, &st).state, CIMC_badValue);
  EXPECT_EQ(st.rc, 12);
  EXPECT_EQ(name, nullptr);
}

// Objects made from one another may share their data until one changes:
// the change must stay with the object it was made on.
TEST_F(Broker, ObjectsMadeFromOneAnotherChangeAlone) {
  CIMCClient* cl = connect();
  CIMCEnumeration* en = cl->ft->enumInstances(cl, path("Mock_Processor"), 2, nullptr, &last);
  ASSERT_NE(en, nullptr);
  CIMCEnumeration* twin = en->ft->clone(en, nullptr);
  CIMCInstance* a = en->ft->getNext(en, nullptr).value.inst;
  CIMCInstance* b = twin->ft->getNext(twin, nullptr).value.inst;
  CIMCInstance* copy = a->ft->clone(a, nullptr);
  ASSERT_EQ(a->ft->setProperty(a, "ElementName", asChars("changed"), CIMC_chars).rc, 0);
  EXPECT_EQ(text(prop(a, "ElementName").value.string), "changed");
  EXPECT_NE(text(prop(b, "ElementName").value.string), "changed");
  EXPECT_NE(text(prop(copy, "ElementName").value.string), "changed");

  // A path taken from an instance, and a reference value taken from a path.
  CIMCObjectPath* op = b->ft->getObjectPath(b, nullptr);
  ASSERT_EQ(op->ft->addKey(op, "DeviceID", asChars("CPU9"), CIMC_chars).rc, 0);
  CIMCObjectPath* again = b->ft->getObjectPath(b, nullptr);
  EXPECT_EQ(text(again->ft->getKey(again, "DeviceID", nullptr).value.string), "CPU0");
  CIMCInstance* holder = env->ft->newInstance(env, path("Mock_AllTypes"), nullptr);
  CIMCValue v{};
  v.ref = again;
  ASSERT_EQ(holder->ft->setProperty(holder, "PReference", &v, CIMC_ref).rc, 0);
  again->ft->setClassName(again, "Other");
  EXPECT_EQ(className(prop(holder, "PReference")), "Mock_Processor");
}

// ---- client operations on the sample repository ----------------------------

TEST_F(Broker, ConnectChecksCredentialsAndConnectFaults) {
  struct Case {
    const char *fault, *wantUser, *wantPwd, *user, *pwd;
    int rc;
    const char* msg;
  } cases[] = {
      {nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr},
      {nullptr, "admin", "secret", "admin", "secret", 0, nullptr},
      {nullptr, "admin", "secret", "admin", "wrong", 2, "access denied"},
      {nullptr, "admin", "secret", nullptr, nullptr, 2, "access denied"},
      {nullptr, "admin", nullptr, "admin", "whatever", 0, nullptr},
      {"connect", nullptr, nullptr, "root", "pw", 1, "connection refused"},
      {"no-such-mode", nullptr, nullptr, "root", "pw", 1, "unknown CIMMOCK_BROKER_FAULT value 'no-such-mode'"},
  };
  for (const auto& c : cases) {
    setOrUnset("CIMMOCK_BROKER_FAULT", c.fault);
    setOrUnset("CIMMOCK_BROKER_USER", c.wantUser);
    setOrUnset("CIMMOCK_BROKER_PASSWORD", c.wantPwd);
    CIMCClient* cl = connect(newEnv(), c.user, c.pwd);
    std::string what = std::string(c.fault ? c.fault : "-") + " " + (c.user ? c.user : "-") + "/" + (c.pwd ? c.pwd : "-");
    EXPECT_EQ(cl != nullptr, c.rc == 0) << what;
    EXPECT_EQ(last.rc, c.rc) << what;
    if (c.msg) {
      EXPECT_EQ(text(last.msg), c.msg) << what;
    }
  }
}

// Repository values as data items: 64-bit limits, char16 and embedded
// instances (which the client-level comparison with the HTTP mock masks),
// nulls, and class defaults.
TEST_F(Broker, InstancesAndClassesCarryRepositoryTypes) {
  CIMCClient* cl = connect();
  CIMCInstance* i = cl->ft->getInstance(cl, allTypes("mock:alltypes:1"), 0, nullptr, &last);
  ASSERT_NE(i, nullptr) << text(last.msg);
  EXPECT_TRUE(same(prop(i, "PUint64"), scalar(CIMC_uint64, uint64_t(UINT64_MAX))));
  EXPECT_TRUE(same(prop(i, "PSint64"), scalar(CIMC_sint64, int64_t(INT64_MIN))));
  EXPECT_TRUE(same(prop(i, "PChar16"), scalar(CIMC_char16, uint16_t('x'))));
  CIMCData emb = prop(i, "PEmbedded");
  ASSERT_EQ(emb.type, CIMC_instance);
  EXPECT_EQ(text(prop(emb.value.inst, "Mode").value.string), "performance");
  CIMCData empty = prop(i, "PEmpty");
  EXPECT_TRUE(empty.type == CIMC_string && empty.state == CIMC_nullValue);

  CIMCClass* c = cl->ft->getClass(cl, path("Mock_ComputerSystem"), 0, nullptr, &last);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(text(c->ft->getProperty(c, "OSName", nullptr).value.string), "MockOS");
  EXPECT_TRUE(same(c->ft->getProperty(c, "EnabledState", nullptr), scalar(CIMC_uint16, uint16_t(2))));
  CIMCData caption = c->ft->getProperty(c, "Caption", nullptr);
  EXPECT_TRUE(caption.type == CIMC_string && caption.state == CIMC_nullValue);
}

// Repository errors pass through as statuses (the scenario suite compares
// them with the HTTP mock's); a missing status address changes nothing.
TEST_F(Broker, RepositoryErrorsBecomeStatuses) {
  CIMCClient* cl = connect();
  struct Case {
    int rc;
    std::function<bool(CIMCStatus*)> run;  // true when the call returned nothing
  } cases[] = {
      {5, [&](CIMCStatus* st) { return !cl->ft->enumInstances(cl, path("No_Such"), 0, nullptr, st); }},
      {17, [&](CIMCStatus* st) { return cl->ft->invokeMethod(cl, path("Mock_AllTypes"), "Nope", nullptr, nullptr, st).state; }},
      {4, [&](CIMCStatus* st) { return !cl->ft->enumInstanceNames(cl, nullptr, st); }},
  };
  for (const auto& c : cases) {
    CIMCStatus st{};
    EXPECT_TRUE(c.run(&st)) << c.rc;
    EXPECT_EQ(st.rc, c.rc);
    EXPECT_NE(text(st.msg), "<null>") << c.rc;
    EXPECT_TRUE(c.run(nullptr)) << c.rc;
  }
}

TEST_F(Broker, TracesOperationsOnlyWhenDebugAndMaskAreSet) {
  void* lib = openLib(kLib);
  auto* mask = static_cast<long*>(dlsym(lib, "_sfcb_trace_mask"));
  auto* debug = static_cast<int*>(dlsym(lib, "_sfcb_debug"));
  ASSERT_TRUE(mask && debug);
  for (int on : {0, 1}) {
    *mask = 5;
    *debug = on;
    testing::internal::CaptureStderr();
    CIMCClient* cl = connect();
    cl->ft->enumInstanceNames(cl, path("CIM_Processor"), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), on ? "[mock broker] connect\n[mock broker] enumInstanceNames\n" : "");
  }
  *mask = 0;
  *debug = 0;
}

// ---- fault injection ---------------------------------------------------------

TEST_F(Broker, FailFaultsFailEveryOperation) {
  struct Mode {
    const char* setting;
    int rc;
    const char* msg;
  } modes[] = {{"fail:7:not today: maybe later", 7, "not today: maybe later"}, {"fail-silent:9", 9, nullptr}};
  for (const auto& m : modes) {
    setenv("CIMMOCK_BROKER_FAULT", m.setting, 1);
    CIMCClient* cl = connect(newEnv());
    ASSERT_NE(cl, nullptr);
    CIMCObjectPath* op = allTypes("mock:alltypes:1");
    CIMCStatus st{};
    std::vector<std::function<bool()>> ops = {  // true when the call returned nothing
        [&] { return !cl->ft->getInstance(cl, op, 0, nullptr, &st); },
        [&] { return !cl->ft->enumInstances(cl, op, 0, nullptr, &st); },
        [&] { return !cl->ft->associators(cl, op, nullptr, nullptr, nullptr, nullptr, 0, nullptr, &st); },
        [&] { return cl->ft->invokeMethod(cl, op, "ReturnCode", nullptr, nullptr, &st).state != CIMC_goodValue; },
        [&] { return cl->ft->getProperty(cl, op, "PString", &st).state != CIMC_goodValue; },
        [&] { return (st = cl->ft->deleteInstance(cl, op)).rc != 0; },
        [&] { return (st = cl->ft->setProperty(cl, op, "PString", nullptr, CIMC_string)).rc != 0; },
    };
    for (std::size_t i = 0; i < ops.size(); ++i) {
      st = CIMCStatus{};
      EXPECT_TRUE(ops[i]()) << m.setting << " op " << i;
      EXPECT_EQ(st.rc, m.rc) << m.setting << " op " << i;
      EXPECT_TRUE(m.msg ? text(st.msg) == m.msg : st.msg == nullptr) << m.setting << " op " << i;
    }
  }
  unsetenv("CIMMOCK_BROKER_FAULT");
  CIMCClient* cl = connect(newEnv());  // read at each factory call: the next one is healthy
  EXPECT_NE(cl->ft->getInstance(cl, allTypes("mock:alltypes:1"), 0, nullptr, nullptr), nullptr);
}

TEST_F(Broker, NullValuesFaultBlanksPropertiesNotPaths) {
  setenv("CIMMOCK_BROKER_FAULT", "null-values", 1);
  CIMCClient* cl = connect(newEnv());
  CIMCEnumeration* en = cl->ft->enumInstances(cl, path("Mock_Processor"), 2, nullptr, &last);
  ASSERT_NE(en, nullptr) << text(last.msg);
  CIMCInstance* i = en->ft->getNext(en, nullptr).value.inst;
  int n = i->ft->getPropertyCount(i, nullptr);
  ASSERT_GT(n, 5);
  for (int k = 0; k < n; ++k) EXPECT_EQ(i->ft->getPropertyAt(i, k, nullptr, nullptr).state, CIMC_nullValue);
  EXPECT_EQ(prop(i, "MaxClockSpeed").type, CIMC_uint32);
  CIMCObjectPath* op = i->ft->getObjectPath(i, nullptr);
  EXPECT_EQ(text(op->ft->getKey(op, "DeviceID", nullptr).value.string), "CPU0");
  EXPECT_EQ(cl->ft->getProperty(cl, op, "DeviceID", nullptr).state, CIMC_nullValue);
}

TEST_F(Broker, EnumHalfFaultBreaksOffEnumerations) {
  setenv("CIMMOCK_BROKER_FAULT", "enum-half", 1);
  CIMCClient* cl = connect(newEnv());
  CIMCEnumeration* en = cl->ft->enumInstanceNames(cl, path("CIM_LogicalDevice"), &last);
  ASSERT_NE(en, nullptr);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(en->ft->getNext(en, nullptr).state, CIMC_goodValue);
  for (int k = 0; k < 3; ++k) {  // it stays broken, with or without a status address
    CIMCStatus st{};
    EXPECT_EQ(en->ft->hasNext(en, nullptr), 1);
    CIMCData d = en->ft->getNext(en, k ? &st : nullptr);
    EXPECT_TRUE(d.state == CIMC_badValue && d.value.ref == nullptr && st.rc == (k ? 1 : 0)) << k;
  }
  EXPECT_EQ(en->ft->toArray(en, nullptr), nullptr);
}

// ---- release discipline --------------------------------------------------------

// Pointers the broker never handed out, or no longer holds, are refused
// without being read: the sanitizer build catches a read of freed memory.
TEST_F(Broker, RefusesPointersItDoesNotHold) {
  CIMCString* s = env->ft->newString(env, "held", nullptr);
  const CIMCStringFT* ft = s->ft;
  CIMCString fake{const_cast<char*>("fake"), ft};
  char* at = reinterpret_cast<char*>(s);
  char* next = reinterpret_cast<char*>(env->ft->newString(env, "next", nullptr));
  CIMCObjectPath* op = env->ft->newObjectPath(env, "root/cimv2", "X", nullptr);
  // Never handed out, inside a live object, where the next object will go, an object of another kind.
  for (void* p : {static_cast<void*>(&fake), static_cast<void*>(at + sizeof(void*)), static_cast<void*>(next + (next - at)),
                  static_cast<void*>(op)}) {
    CIMCStatus st{};
    EXPECT_EQ(ft->getCharPtr(static_cast<CIMCString*>(p), &st), nullptr);
    EXPECT_EQ(st.rc, 60);
    EXPECT_EQ(ft->release(static_cast<CIMCString*>(p)).rc, 60);
  }

  // Everything of a released environment, including the environment.
  CIMCEnv* e = newEnv();
  const CIMCEnvFT* envFt = e->ft;
  CIMCString* gone = e->ft->newString(e, "gone", nullptr);
  for (int k = 0; k < 100000; ++k) e->ft->newString(e, "filler", nullptr);  // several chunks of the store
  ASSERT_EQ(envFt->release(e).rc, 0);
  extra.pop_back();
  EXPECT_EQ(ft->release(gone).rc, 60);
  EXPECT_EQ(envFt->release(e).rc, 60);
  CIMCStatus st{};
  EXPECT_EQ(envFt->newString(e, "x", &st), nullptr);
  EXPECT_EQ(st.rc, 60);
  EXPECT_EQ(text(s), "held");  // the other environment's objects stay
}

TEST_F(Broker, ReleasesAreIdempotentAndEnvironmentReleaseFreesTheRest) {
  CIMCEnv* e = newEnv();
  CIMCClient* cl = connect(e);
  CIMCObjectPath* op = path("CIM_LogicalDevice", {}, "root/cimv2", e);
  CIMCEnumeration* en = cl->ft->enumInstances(cl, op, 2, nullptr, nullptr);
  CIMCData first = en->ft->getNext(en, nullptr);
  CIMCString* name = nullptr;
  first.value.inst->ft->getPropertyAt(first.value.inst, 0, &name, nullptr);
  CIMCArgs* args = e->ft->newArgs(e, nullptr);
  CIMCArray* arr = e->ft->newArray(e, 1, CIMC_uint8, nullptr);
  CIMCDateTime* dt = e->ft->newDateTime(e, nullptr);
  auto twice = [](auto* o) {  // the second release is refused and touches nothing
    auto* ft = o->ft;
    return ft->release(o).rc == 0 && ft->release(o).rc == 60;
  };
  EXPECT_TRUE(twice(name) && twice(first.value.inst) && twice(en) && twice(op));
  EXPECT_TRUE(twice(args) && twice(arr) && twice(dt) && twice(cl));
  // Left unreleased on purpose: the environment's release frees them (the
  // sanitizer build checks that nothing leaks).
  for (int k = 0; k < 3; ++k) {
    CIMCClient* kept = connect(e);
    EXPECT_NE(kept->ft->getInstance(kept, system(), 0, nullptr, nullptr), nullptr);
  }
  e->ft->newString(e, "kept", nullptr);
}

}  // namespace
