// The mock local broker (libcimcClientSfcbLocal.so), loaded with dlopen and
// driven through its function tables only, as the library's local back end
// drives it. The sample repository is shared by the whole process, so every
// test that changes it puts it back.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
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
CIMCValue* asChars(char* text) { return reinterpret_cast<CIMCValue*>(text); }

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

const char* const kVars[] = {"CIMMOCK_BROKER_FAULT", "CIMMOCK_BROKER_USER", "CIMMOCK_BROKER_PASSWORD"};

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
  CIMCEnv* newEnv(int* rcOut = nullptr) {
    int rc = -1;
    char* msg = nullptr;
    CIMCEnv* e = factory()("SfcbLocal", 0, &rc, &msg);
    EXPECT_EQ(rc, 0) << (msg ? msg : "");
    free(msg);
    if (rcOut) *rcOut = rc;
    if (e && env) extra.push_back(e);
    return e;
  }
  CIMCClient* connect(CIMCEnv* e = nullptr, const char* user = "root", const char* pwd = "pw") {
    e = e ? e : env;
    CIMCStatus st{};
    CIMCClient* cl = e->ft->connect(e, "localhost", "SfcbLocal", nullptr, user, pwd, &st);
    last = st;
    return cl;
  }
  CIMCObjectPath* path(const char* cls, std::vector<std::pair<const char*, const char*>> keys = {},
                       const char* ns = "root/cimv2", CIMCEnv* e = nullptr) {
    e = e ? e : env;
    CIMCObjectPath* op = e->ft->newObjectPath(e, ns, cls, nullptr);
    for (auto& [k, v] : keys) {
      CIMCValue val{};
      val.chars = const_cast<char*>(v);
      op->ft->addKey(op, k, asChars(val.chars), CIMC_chars);
    }
    return op;
  }
  CIMCObjectPath* system() {
    return path("Mock_ComputerSystem", {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
  }
  CIMCObjectPath* allTypes(const char* id) { return path("Mock_AllTypes", {{"InstanceID", id}}); }
  // Every item of an enumeration (the items stay the environment's).
  std::vector<CIMCData> drain(CIMCEnumeration* en) {
    std::vector<CIMCData> out;
    EXPECT_NE(en, nullptr) << text(last.msg);
    for (int guard = 0; en && guard < 1000 && en->ft->hasNext(en, nullptr); ++guard) out.push_back(en->ft->getNext(en, nullptr));
    if (en) en->ft->release(en);
    return out;
  }
  static std::string className(const CIMCData& d) {
    CIMCObjectPath* op = d.type == CIMC_instance ? d.value.inst->ft->getObjectPath(d.value.inst, nullptr) : d.value.ref;
    return text(op->ft->getClassName(op, nullptr));
  }
  static CIMCData prop(CIMCInstance* i, const char* name, CIMCStatus* st = nullptr) {
    return i->ft->getProperty(i, name, st);
  }

  CIMCEnv* env = nullptr;
  std::vector<CIMCEnv*> extra;
  CIMCStatus last{};
};

// ---- the library file -------------------------------------------------------

std::set<std::string> exported(const std::string& lib) {
  std::set<std::string> out;
  FILE* p = popen(("nm -D --defined-only " + lib + " 2>/dev/null").c_str(), "r");
  if (!p) return out;
  char line[512];
  while (fgets(line, sizeof line, p)) {
    char addr[64], type[8], name[400];
    if (sscanf(line, "%63s %7s %399s", addr, type, name) == 3) out.insert(name);
  }
  pclose(p);
  return out;
}

TEST(BrokerLibrary, ExportsExactlyTheInterface) {
  std::set<std::string> names = exported(kLib);
  if (names.empty()) GTEST_SKIP() << "nm is not available";
  EXPECT_EQ(names, (std::set<std::string>{"_Create_SfcbLocal_Env", "_sfcb_debug", "_sfcb_trace_mask"}));
  EXPECT_EQ(exported(kDir + "/libcimcClientNoEntry.so"), std::set<std::string>{});
  EXPECT_EQ(exported(kDir + "/libcimcClientTraceOnly.so"),
            (std::set<std::string>{"_Create_TraceOnly_Env", "_sfcb_trace_mask"}));
}

TEST(BrokerLibrary, TraceOnlyFactoryFailsWithAMessage) {
  void* h = openLib(kDir + "/libcimcClientTraceOnly.so");
  auto f = reinterpret_cast<CIMCEnvFactory>(dlsym(h, "_Create_TraceOnly_Env"));
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(dlsym(h, "_sfcb_debug"), nullptr);
  int rc = 0;
  char* msg = nullptr;
  EXPECT_EQ(f("TraceOnly", 0, &rc, &msg), nullptr);
  EXPECT_EQ(rc, 1);
  EXPECT_STREQ(msg, "TraceOnly: no environment");
  free(msg);
}

// A fixture folder with a MOF error: the factory reports it and still gives
// an environment, whose connect fails. The repository is per process, so a
// private copy of the library loads it.
TEST(BrokerLibrary, MofErrorIsReportedAndConnectFails) {
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("broker_test_" + std::to_string(getpid()));
  fs::create_directories(dir / "repo");
  std::ofstream(dir / "repo" / "a.mof") << "class Broken {\n  string ;\n};\n";
  fs::copy_file(kLib, dir / "libcopy.so", fs::copy_options::overwrite_existing);
  setenv("CIMMOCK_BROKER_REPO", (dir / "repo").c_str(), 1);
  auto f = reinterpret_cast<CIMCEnvFactory>(dlsym(openLib((dir / "libcopy.so").string()), "_Create_SfcbLocal_Env"));
  ASSERT_NE(f, nullptr);
  int rc = 0;
  char* msg = nullptr;
  CIMCEnv* env = f("SfcbLocal", 0, &rc, &msg);  // the repository loads here
  unsetenv("CIMMOCK_BROKER_REPO");
  fs::remove_all(dir);
  ASSERT_NE(env, nullptr);
  EXPECT_EQ(rc, 1);
  ASSERT_NE(msg, nullptr);
  EXPECT_NE(std::string(msg).find("a.mof:2:"), std::string::npos) << msg;
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
    bool valid;
    uint64_t micros;
    bool interval;
  } cases[] = {
      {"20240229235959.123456-300", true, 1709269199123456ull, false},  // 04:59:59 UTC next day
      {"19700101000000.000000+000", true, 0, false},
      {"20240101013000.000000+090", true, 1704067200000000ull, false},
      {"00000001020304.000000:000", true, 93784000000ull, true},
      {"99999999235959.999999:000", true, (99999999ull * 86400 + 86399) * 1000000 + 999999, true},
      {"2024", false, 0, false},
      {"20241301000000.000000+000", false, 0, false},
      {"20240100000000.000000+000", false, 0, false},
      {"20240101250000.000000+000", false, 0, false},
      {"00000001020304.000000:001", false, 0, false},
      {"2024022923595a.123456-300", false, 0, false},
      {"20240229235959,123456-300", false, 0, false},
      {"20240229235959.123456*300", false, 0, false},
  };
  for (const auto& c : cases) {
    CIMCStatus st{};
    CIMCDateTime* dt = env->ft->newDateTimeFromChars(env, c.text, &st);
    ASSERT_EQ(dt != nullptr, c.valid) << c.text;
    if (!dt) {
      EXPECT_NE(st.rc, 0);
      continue;
    }
    EXPECT_EQ(dt->ft->getBinaryFormat(dt, nullptr), c.micros) << c.text;
    EXPECT_EQ(dt->ft->isInterval(dt, nullptr), c.interval ? 1 : 0) << c.text;
    EXPECT_EQ(text(dt->ft->getStringFormat(dt, nullptr)), c.text);
  }
  EXPECT_EQ(env->ft->newDateTimeFromChars(env, nullptr, nullptr), nullptr);
  CIMCDateTime* fromBin = env->ft->newDateTimeFromBinary(env, 1709269199123456ull, 0, nullptr);
  EXPECT_EQ(text(fromBin->ft->getStringFormat(fromBin, nullptr)), "20240301045959.123456+000");
  CIMCDateTime* span = env->ft->newDateTimeFromBinary(env, 93784000001ull, 1, nullptr);
  EXPECT_EQ(text(span->ft->getStringFormat(span, nullptr)), "00000001020304.000001:000");
  CIMCDateTime* now = env->ft->newDateTime(env, nullptr);
  EXPECT_GT(now->ft->getBinaryFormat(now, nullptr), 1709269199123456ull);
}

TEST_F(Broker, ObjectPathKeysAndText) {
  CIMCObjectPath* op = env->ft->newObjectPath(env, "root/cimv2", "Mock_Processor", nullptr);
  CIMCValue v{};
  v.chars = const_cast<char*>("CPU \"0\"");
  op->ft->addKey(op, "DeviceID", asChars(v.chars), CIMC_chars);
  v.uint32 = 3;
  op->ft->addKey(op, "Num", &v, CIMC_uint32);
  v.boolean = 1;
  op->ft->addKey(op, "On", &v, CIMC_boolean);
  CIMCObjectPath* inner = env->ft->newObjectPath(env, "root/cimv2", "CIM_X", nullptr);
  v.chars = const_cast<char*>("a");
  inner->ft->addKey(inner, "K", asChars(v.chars), CIMC_chars);
  v.ref = inner;
  op->ft->addKey(op, "Ref", &v, CIMC_ref);
  inner->ft->release(inner);  // the key holds its own copy
  op->ft->setHostname(op, "localhost");

  EXPECT_EQ(op->ft->getKeyCount(op, nullptr), 4);
  EXPECT_EQ(text(op->ft->toString(op, nullptr)),
            R"(root/cimv2:Mock_Processor.DeviceID="CPU \"0\"",Num=3,On=TRUE,Ref="root/cimv2:CIM_X.K=\"a\"")");
  EXPECT_EQ(text(op->ft->getHostname(op, nullptr)), "localhost");
  CIMCString* name = nullptr;
  CIMCData ref = op->ft->getKeyAt(op, 3, &name, nullptr);
  EXPECT_EQ(text(name), "Ref");
  ASSERT_EQ(ref.type, CIMC_ref);
  EXPECT_EQ(text(ref.value.ref->ft->getClassName(ref.value.ref, nullptr)), "CIM_X");
  CIMCData id = op->ft->getKey(op, "deviceid", nullptr);  // names are case-insensitive
  EXPECT_EQ(id.type, CIMC_string);
  EXPECT_EQ(text(id.value.string), "CPU \"0\"");
  CIMCStatus st{};
  EXPECT_EQ(op->ft->getKey(op, "Nope", &st).state, CIMC_badValue);
  EXPECT_EQ(st.rc, 12);
  EXPECT_EQ(op->ft->getKeyAt(op, 4, &name, &st).state, CIMC_badValue);
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
  CIMCValue v{};
  v.chars = const_cast<char*>("changed");
  ASSERT_EQ(a->ft->setProperty(a, "ElementName", asChars(v.chars), CIMC_chars).rc, 0);
  EXPECT_EQ(text(prop(a, "ElementName").value.string), "changed");
  EXPECT_NE(text(prop(b, "ElementName").value.string), "changed");
  EXPECT_NE(text(prop(copy, "ElementName").value.string), "changed");
  const char* only[] = {"ElementName", nullptr};
  copy->ft->setPropertyFilter(copy, only, nullptr);
  EXPECT_EQ(copy->ft->getPropertyCount(copy, nullptr), 1);
  EXPECT_GT(b->ft->getPropertyCount(b, nullptr), 1);

  // A path taken from an instance, and a reference value taken from a path.
  CIMCObjectPath* op = b->ft->getObjectPath(b, nullptr);
  v.chars = const_cast<char*>("CPU9");
  ASSERT_EQ(op->ft->addKey(op, "DeviceID", asChars(v.chars), CIMC_chars).rc, 0);
  CIMCObjectPath* again = b->ft->getObjectPath(b, nullptr);
  EXPECT_EQ(text(again->ft->getKey(again, "DeviceID", nullptr).value.string), "CPU0");
  CIMCInstance* holder = env->ft->newInstance(env, path("Mock_AllTypes"), nullptr);
  v.ref = again;
  ASSERT_EQ(holder->ft->setProperty(holder, "PReference", &v, CIMC_ref).rc, 0);
  again->ft->setClassName(again, "Other");
  CIMCObjectPath* held = prop(holder, "PReference").value.ref;
  EXPECT_EQ(text(held->ft->getClassName(held, nullptr)), "Mock_Processor");
}

// One value per type, at its limits, through each container that copies
// values by type code: argument list, instance, object path key, array.
TEST_F(Broker, ValuesRoundTripAtTypeLimits) {
  CIMCString* str = env->ft->newString(env, "string object", nullptr);
  CIMCDateTime* dt = env->ft->newDateTimeFromChars(env, "20240229235959.123456-300", nullptr);
  struct Case {
    CIMCType type, expectType;
    std::function<void(CIMCValue&)> set;
    std::function<bool(const CIMCValue&)> check;
  };
  const std::vector<Case> cases = {
      {CIMC_uint8, CIMC_uint8, [](CIMCValue& v) { v.uint8 = 255; }, [](const CIMCValue& v) { return v.uint8 == 255; }},
      {CIMC_uint16, CIMC_uint16, [](CIMCValue& v) { v.uint16 = 65535; }, [](const CIMCValue& v) { return v.uint16 == 65535; }},
      {CIMC_uint32, CIMC_uint32, [](CIMCValue& v) { v.uint32 = UINT32_MAX; }, [](const CIMCValue& v) { return v.uint32 == UINT32_MAX; }},
      {CIMC_uint64, CIMC_uint64, [](CIMCValue& v) { v.uint64 = UINT64_MAX; }, [](const CIMCValue& v) { return v.uint64 == UINT64_MAX; }},
      {CIMC_sint8, CIMC_sint8, [](CIMCValue& v) { v.sint8 = -128; }, [](const CIMCValue& v) { return v.sint8 == -128; }},
      {CIMC_sint16, CIMC_sint16, [](CIMCValue& v) { v.sint16 = INT16_MIN; }, [](const CIMCValue& v) { return v.sint16 == INT16_MIN; }},
      {CIMC_sint32, CIMC_sint32, [](CIMCValue& v) { v.sint32 = INT32_MIN; }, [](const CIMCValue& v) { return v.sint32 == INT32_MIN; }},
      {CIMC_sint64, CIMC_sint64, [](CIMCValue& v) { v.sint64 = INT64_MIN; }, [](const CIMCValue& v) { return v.sint64 == INT64_MIN; }},
      {CIMC_boolean, CIMC_boolean, [](CIMCValue& v) { v.boolean = 1; }, [](const CIMCValue& v) { return v.boolean == 1; }},
      {CIMC_boolean, CIMC_boolean, [](CIMCValue& v) { v.boolean = 0; }, [](const CIMCValue& v) { return v.boolean == 0; }},
      {CIMC_real32, CIMC_real32, [](CIMCValue& v) { v.real32 = 1.5f; }, [](const CIMCValue& v) { return v.real32 == 1.5f; }},
      {CIMC_real64, CIMC_real64, [](CIMCValue& v) { v.real64 = -2.25e10; }, [](const CIMCValue& v) { return v.real64 == -2.25e10; }},
      {CIMC_char16, CIMC_char16, [](CIMCValue& v) { v.char16 = 0x20AC; }, [](const CIMCValue& v) { return v.char16 == 0x20AC; }},
      {CIMC_chars, CIMC_string, [](CIMCValue& v) { v.chars = const_cast<char*>("chars"); },
       [](const CIMCValue& v) { return text(v.string) == "chars"; }},
      {CIMC_string, CIMC_string, [&](CIMCValue& v) { v.string = str; },
       [](const CIMCValue& v) { return text(v.string) == "string object"; }},
      {CIMC_dateTime, CIMC_dateTime, [&](CIMCValue& v) { v.dateTime = dt; },
       [](const CIMCValue& v) { return text(v.dateTime->ft->getStringFormat(v.dateTime, nullptr)) == "20240229235959.123456-300"; }},
  };
  CIMCArgs* args = env->ft->newArgs(env, nullptr);
  CIMCInstance* inst = env->ft->newInstance(env, path("Mock_AllTypes"), nullptr);
  CIMCObjectPath* op = path("Mock_AllTypes");
  using Put = std::function<void(const char*, CIMCValue*, CIMCType)>;
  using Get = std::function<CIMCData(const char*)>;
  struct Container {
    const char* what;
    Put put;
    Get get;
  } containers[] = {
      {"args", [&](const char* n, CIMCValue* v, CIMCType t) { args->ft->addArg(args, n, v, t); },
       [&](const char* n) { return args->ft->getArg(args, n, nullptr); }},
      {"instance", [&](const char* n, CIMCValue* v, CIMCType t) { inst->ft->setProperty(inst, n, v, t); },
       [&](const char* n) { return inst->ft->getProperty(inst, n, nullptr); }},
      {"key", [&](const char* n, CIMCValue* v, CIMCType t) { op->ft->addKey(op, n, v, t); },
       [&](const char* n) { return op->ft->getKey(op, n, nullptr); }},
      {"array",
       [&](const char* n, CIMCValue* v, CIMCType t) {
         CIMCArray* a = env->ft->newArray(env, 2, t, nullptr);
         a->ft->setElementAt(a, 1, v, t);
         CIMCValue av{};
         av.array = a;
         args->ft->addArg(args, n, &av, CIMCType(CIMC_ARRAY | t));
         a->ft->setElementAt(a, 1, nullptr, t);  // the argument holds a copy
       },
       [&](const char* n) {
         CIMCData d = args->ft->getArg(args, n, nullptr);
         EXPECT_EQ(d.value.array->ft->getElementAt(d.value.array, 0, nullptr).state, CIMC_nullValue);
         return d.value.array->ft->getElementAt(d.value.array, 1, nullptr);
       }},
  };
  for (const auto& c : containers) {
    for (std::size_t i = 0; i < cases.size(); ++i) {
      std::string name = "P" + std::to_string(i) + c.what;
      CIMCValue v{};
      cases[i].set(v);
      c.put(name.c_str(), cases[i].type == CIMC_chars ? asChars(v.chars) : &v, cases[i].type);
      CIMCData d = c.get(name.c_str());
      EXPECT_EQ(d.type, cases[i].expectType) << c.what << " case " << i;
      EXPECT_EQ(d.state, CIMC_goodValue) << c.what << " case " << i;
      EXPECT_TRUE(d.state == CIMC_goodValue && cases[i].check(d.value)) << c.what << " case " << i;
      // A NULL value pointer is a null of that type.
      c.put(name.c_str(), nullptr, cases[i].type);
      EXPECT_EQ(c.get(name.c_str()).state, CIMC_nullValue) << c.what << " case " << i;
    }
  }
}

TEST_F(Broker, StringArraysHoldNullsAndCheckTypes) {
  CIMCArray* a = env->ft->newArray(env, 3, CIMC_string, nullptr);
  CIMCValue v{};
  v.chars = const_cast<char*>("first");
  EXPECT_EQ(a->ft->setElementAt(a, 0, asChars(v.chars), CIMC_chars).rc, 0);
  v.string = env->ft->newString(env, "third", nullptr);
  EXPECT_EQ(a->ft->setElementAt(a, 2, &v, CIMC_string).rc, 0);
  v.uint32 = 1;
  EXPECT_EQ(a->ft->setElementAt(a, 1, &v, CIMC_uint32).rc, 13);
  EXPECT_EQ(a->ft->setElementAt(a, 3, asChars(v.chars), CIMC_chars).rc, 12);
  EXPECT_EQ(a->ft->getSize(a, nullptr), 3);
  EXPECT_EQ(a->ft->getSimpleType(a, nullptr), CIMC_string);
  const char* expect[] = {"first", nullptr, "third"};
  for (int i = 0; i < 3; ++i) {
    CIMCData d = a->ft->getElementAt(a, i, nullptr);
    EXPECT_EQ(d.type, CIMC_string);
    EXPECT_EQ(d.state, expect[i] ? CIMC_goodValue : CIMC_nullValue);
    if (expect[i]) {
      EXPECT_EQ(text(d.value.string), expect[i]);
    }
  }
  CIMCStatus st{};
  EXPECT_EQ(a->ft->getElementAt(a, -1, &st).state, CIMC_badValue);
  EXPECT_EQ(st.rc, 12);
}

TEST_F(Broker, InstanceFilterAndPathFromClassKeys) {
  CIMCInstance* inst = env->ft->newInstance(env, allTypes("x:1"), nullptr);
  CIMCValue v{};
  v.uint32 = 7;
  inst->ft->setProperty(inst, "PUint32", &v, CIMC_uint32);
  v.chars = const_cast<char*>("s");
  inst->ft->setProperty(inst, "PString", asChars(v.chars), CIMC_chars);
  CIMCObjectPath* op = inst->ft->getObjectPath(inst, nullptr);
  EXPECT_EQ(text(op->ft->toString(op, nullptr)), R"(root/cimv2:Mock_AllTypes.InstanceID="x:1")");

  const char* props[] = {"PString", nullptr};
  const char* keys[] = {"InstanceID", nullptr};
  inst->ft->setPropertyFilter(inst, props, keys);
  EXPECT_EQ(inst->ft->getPropertyCount(inst, nullptr), 2);
  CIMCStatus st{};
  EXPECT_EQ(prop(inst, "PUint32", &st).state, CIMC_badValue);
  EXPECT_EQ(st.rc, 12);
  CIMCString* name = nullptr;
  inst->ft->getPropertyAt(inst, 1, &name, nullptr);
  EXPECT_EQ(text(name), "PString");
  inst->ft->setPropertyFilter(inst, nullptr, nullptr);
  EXPECT_EQ(inst->ft->getPropertyCount(inst, nullptr), 3);
}

// ---- client operations on the sample repository ----------------------------

TEST_F(Broker, ConnectChecksCredentialsWhenConfigured) {
  struct Case {
    const char *wantUser, *wantPwd, *user, *pwd;
    bool ok;
  } cases[] = {
      {nullptr, nullptr, nullptr, nullptr, true}, {nullptr, nullptr, "any", "thing", true},
      {"admin", "secret", "admin", "secret", true}, {"admin", "secret", "admin", "wrong", false},
      {"admin", "secret", nullptr, nullptr, false}, {"admin", nullptr, "admin", "whatever", true},
  };
  for (const auto& c : cases) {
    if (c.wantUser) setenv("CIMMOCK_BROKER_USER", c.wantUser, 1);
    else unsetenv("CIMMOCK_BROKER_USER");
    if (c.wantPwd) setenv("CIMMOCK_BROKER_PASSWORD", c.wantPwd, 1);
    else unsetenv("CIMMOCK_BROKER_PASSWORD");
    CIMCClient* cl = connect(newEnv(), c.user, c.pwd);
    EXPECT_EQ(cl != nullptr, c.ok) << (c.user ? c.user : "-") << "/" << (c.pwd ? c.pwd : "-");
    if (!c.ok) {
      EXPECT_EQ(last.rc, 2);
      EXPECT_EQ(text(last.msg), "access denied");
    }
  }
}

TEST_F(Broker, EnumeratesInstancesDeepAndShallow) {
  CIMCClient* cl = connect();
  for (CIMCFlags flags : {CIMCFlags(CIMC_FLAG_DeepInheritance), CIMCFlags(0)}) {
    auto items = drain(cl->ft->enumInstances(cl, path("CIM_ComputerSystem"), flags, nullptr, &last));
    ASSERT_EQ(items.size(), 1u);
    CIMCInstance* i = items[0].value.inst;
    CIMCStatus st{};
    prop(i, "OSName", &st);  // declared by the subclass Mock_ComputerSystem
    EXPECT_EQ(st.rc, flags ? 0 : 12);
    EXPECT_EQ(text(prop(i, "Name").value.string), "mock-server.example.com");
    CIMCObjectPath* op = i->ft->getObjectPath(i, nullptr);
    EXPECT_EQ(text(op->ft->getNameSpace(op, nullptr)), "root/cimv2");
    EXPECT_EQ(text(op->ft->getHostname(op, nullptr)), "localhost");
  }
  char* list[] = {const_cast<char*>("ElementName"), nullptr};
  auto cpus = drain(cl->ft->enumInstances(cl, path("CIM_Processor"), 2, list, &last));
  ASSERT_EQ(cpus.size(), 2u);
  EXPECT_EQ(cpus[0].value.inst->ft->getPropertyCount(cpus[0].value.inst, nullptr), 1);
  auto names = drain(cl->ft->enumInstanceNames(cl, path("CIM_LogicalDevice"), &last));
  EXPECT_EQ(names.size(), 6u);
  for (const auto& n : names) EXPECT_EQ(n.type, CIMC_ref);
  auto cls = drain(cl->ft->enumClassNames(cl, path("CIM_LogicalDevice"), 2, &last));
  EXPECT_EQ(cls.size(), 6u);  // three CIM_ and three Mock_ device classes
  auto classes = drain(cl->ft->enumClasses(cl, path("CIM_LogicalDevice"), 0, &last));
  ASSERT_EQ(classes.size(), 3u);
  EXPECT_EQ(classes[0].type, CIMC_class);
}

// An enumeration over several classes shapes each instance as getInstance
// does (deep), or keeps only what the requested class declares (shallow).
TEST_F(Broker, EnumeratedInstancesMatchTheirGetInstance) {
  CIMCClient* cl = connect();
  CIMCClass* base = cl->ft->getClass(cl, path("CIM_LogicalDevice"), 0, nullptr, &last);
  ASSERT_NE(base, nullptr);
  std::set<std::string> declared;
  for (int k = 0, n = base->ft->getPropertyCount(base, nullptr); k < n; ++k) {
    CIMCString* name = nullptr;
    base->ft->getPropertyAt(base, k, &name, nullptr);
    declared.insert(text(name));
  }
  auto namesAndTypes = [](CIMCInstance* i) {
    std::vector<std::pair<std::string, CIMCType>> out;
    for (int k = 0, n = i->ft->getPropertyCount(i, nullptr); k < n; ++k) {
      CIMCString* name = nullptr;
      CIMCData d = i->ft->getPropertyAt(i, k, &name, nullptr);
      out.emplace_back(text(name), d.type);
    }
    return out;
  };
  std::set<std::string> classes;
  for (CIMCFlags flags : {CIMCFlags(CIMC_FLAG_DeepInheritance), CIMCFlags(0)}) {
    auto items = drain(cl->ft->enumInstances(cl, path("CIM_LogicalDevice"), flags, nullptr, &last));
    ASSERT_EQ(items.size(), 6u);
    for (const auto& item : items) {
      CIMCInstance* i = item.value.inst;
      CIMCObjectPath* op = i->ft->getObjectPath(i, nullptr);
      classes.insert(text(op->ft->getClassName(op, nullptr)));
      CIMCInstance* single = cl->ft->getInstance(cl, op, 0, nullptr, &last);
      ASSERT_NE(single, nullptr) << text(last.msg);
      auto want = namesAndTypes(single);
      if (!flags) {
        want.erase(std::remove_if(want.begin(), want.end(), [&](const auto& p) { return !declared.count(p.first); }),
                   want.end());
      }
      EXPECT_EQ(namesAndTypes(i), want) << className(item) << (flags ? " deep" : " shallow");
    }
  }
  EXPECT_EQ(classes.size(), 3u);
}

TEST_F(Broker, GetInstanceTypesEveryProperty) {
  CIMCClient* cl = connect();
  CIMCInstance* i = cl->ft->getInstance(cl, allTypes("mock:alltypes:1"), 0, nullptr, &last);
  ASSERT_NE(i, nullptr) << text(last.msg);
  struct Case {
    const char* name;
    CIMCType type;
    std::function<bool(const CIMCData&)> check;
  } cases[] = {
      {"PUint64", CIMC_uint64, [](const CIMCData& d) { return d.value.uint64 == UINT64_MAX; }},
      {"PSint64", CIMC_sint64, [](const CIMCData& d) { return d.value.sint64 == INT64_MIN; }},
      {"PSint8", CIMC_sint8, [](const CIMCData& d) { return d.value.sint8 == -128; }},
      {"PUint32", CIMC_uint32, [](const CIMCData& d) { return d.value.uint32 == UINT32_MAX; }},
      {"PBoolean", CIMC_boolean, [](const CIMCData& d) { return d.value.boolean == 1; }},
      {"PReal64", CIMC_real64, [](const CIMCData& d) { return d.value.real64 == -2.25e10; }},
      {"PChar16", CIMC_char16, [](const CIMCData& d) { return d.value.char16 == 'x'; }},
      {"PString", CIMC_string, [](const CIMCData& d) { return text(d.value.string) == "Hello <CIM> & \"friends\""; }},
      {"PDateTime", CIMC_dateTime,
       [](const CIMCData& d) { return text(d.value.dateTime->ft->getStringFormat(d.value.dateTime, nullptr)) == "20240229235959.123456-300"; }},
      {"PStringArray", CIMC_ARRAY | CIMC_string,
       [](const CIMCData& d) {
         CIMCArray* a = d.value.array;
         return a->ft->getSize(a, nullptr) == 3 && text(a->ft->getElementAt(a, 2, nullptr).value.string) == "three";
       }},
      {"PUint64Array", CIMC_ARRAY | CIMC_uint64,
       [](const CIMCData& d) { return d.value.array->ft->getElementAt(d.value.array, 2, nullptr).value.uint64 == UINT64_MAX; }},
      {"PReference", CIMC_ref, [](const CIMCData& d) { return className(d) == "Mock_ComputerSystem"; }},
      {"PEmbedded", CIMC_instance,
       [](const CIMCData& d) { return text(prop(d.value.inst, "Mode").value.string) == "performance"; }},
  };
  for (const auto& c : cases) {
    CIMCData d = prop(i, c.name);
    EXPECT_EQ(d.type, c.type) << c.name;
    EXPECT_TRUE(d.state == CIMC_goodValue && c.check(d)) << c.name;
  }
  CIMCData empty = prop(i, "PEmpty");
  EXPECT_EQ(empty.type, CIMC_string);
  EXPECT_EQ(empty.state, CIMC_nullValue);
}

TEST_F(Broker, ClassesCarryDefaults) {
  CIMCClient* cl = connect();
  CIMCClass* c = cl->ft->getClass(cl, path("Mock_ComputerSystem"), 0, nullptr, &last);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(text(c->ft->getClassName(c, nullptr)), "Mock_ComputerSystem");
  EXPECT_EQ(text(c->ft->getProperty(c, "OSName", nullptr).value.string), "MockOS");
  CIMCData enabled = c->ft->getProperty(c, "EnabledState", nullptr);
  EXPECT_EQ(enabled.type, CIMC_uint16);
  EXPECT_EQ(enabled.value.uint16, 2);
  CIMCData caption = c->ft->getProperty(c, "Caption", nullptr);
  EXPECT_EQ(caption.type, CIMC_string);
  EXPECT_EQ(caption.state, CIMC_nullValue);
  CIMCString* name = nullptr;
  c->ft->getPropertyAt(c, c->ft->getPropertyCount(c, nullptr) - 1, &name, nullptr);
  EXPECT_EQ(text(name), "OSName");
}

// Create, modify, read and delete, each step from a fresh environment as the
// library does it.
TEST_F(Broker, CreateModifyDeleteAcrossEnvironments) {
  auto step = [&](auto fn) {
    CIMCEnv* e = newEnv();
    CIMCClient* cl = connect(e);
    fn(e, cl);
  };
  auto makeInst = [&](CIMCEnv* e, uint32_t n) {
    CIMCInstance* inst = e->ft->newInstance(e, path("Mock_AllTypes", {{"InstanceID", "broker:test:1"}}, "root/cimv2", e), nullptr);
    CIMCValue v{};
    v.uint32 = n;
    inst->ft->setProperty(inst, "PUint32", &v, CIMC_uint32);
    return inst;
  };
  step([&](CIMCEnv* e, CIMCClient* cl) {
    CIMCStatus st{};
    CIMCObjectPath* made = cl->ft->createInstance(cl, path("Mock_AllTypes", {}, "root/cimv2", e), makeInst(e, 1), &st);
    ASSERT_NE(made, nullptr) << text(st.msg);
    EXPECT_EQ(text(made->ft->toString(made, nullptr)), R"(root/cimv2:Mock_AllTypes.InstanceID="broker:test:1")");
    EXPECT_EQ(text(made->ft->getHostname(made, nullptr)), "localhost");
    EXPECT_EQ(cl->ft->createInstance(cl, made, makeInst(e, 1), &st), nullptr);
    EXPECT_EQ(st.rc, 11);
  });
  step([&](CIMCEnv* e, CIMCClient* cl) {
    CIMCObjectPath* op = path("Mock_AllTypes", {{"InstanceID", "broker:test:1"}}, "root/cimv2", e);
    EXPECT_EQ(cl->ft->setInstance(cl, op, makeInst(e, 42), 0, nullptr).rc, 0);
    CIMCValue v{};
    v.chars = const_cast<char*>("via setProperty");
    EXPECT_EQ(cl->ft->setProperty(cl, op, "PString", asChars(v.chars), CIMC_chars).rc, 0);
  });
  step([&](CIMCEnv* e, CIMCClient* cl) {
    CIMCObjectPath* op = path("Mock_AllTypes", {{"InstanceID", "broker:test:1"}}, "root/cimv2", e);
    EXPECT_EQ(cl->ft->getProperty(cl, op, "PUint32", nullptr).value.uint32, 42u);
    EXPECT_EQ(text(cl->ft->getProperty(cl, op, "PString", nullptr).value.string), "via setProperty");
    EXPECT_EQ(cl->ft->deleteInstance(cl, op).rc, 0);
    CIMCStatus st = cl->ft->deleteInstance(cl, op);
    EXPECT_EQ(st.rc, 6);
    EXPECT_NE(st.msg, nullptr);
  });
}

TEST_F(Broker, FollowsAssociations) {
  CIMCClient* cl = connect();
  struct Case {
    const char *assoc, *result, *role, *resultRole;
    std::size_t count;
  } cases[] = {
      {nullptr, nullptr, nullptr, nullptr, 6},  // eth0 is reached twice, returned once
      {"CIM_SystemDevice", nullptr, nullptr, nullptr, 6},
      {nullptr, "CIM_Processor", nullptr, nullptr, 2},
      {"CIM_DeviceSAPImplementation", nullptr, "Dependent", "Antecedent", 1},
      {nullptr, nullptr, "PartComponent", nullptr, 0},
  };
  for (const auto& c : cases) {
    auto objs = drain(cl->ft->associators(cl, system(), c.assoc, c.result, c.role, c.resultRole, 0, nullptr, &last));
    auto names = drain(cl->ft->associatorNames(cl, system(), c.assoc, c.result, c.role, c.resultRole, &last));
    EXPECT_EQ(objs.size(), c.count) << (c.assoc ? c.assoc : "-") << (c.result ? c.result : "-");
    ASSERT_EQ(names.size(), objs.size());
    for (std::size_t i = 0; i < objs.size(); ++i) EXPECT_EQ(className(objs[i]), className(names[i]));
  }
  EXPECT_EQ(drain(cl->ft->references(cl, system(), nullptr, nullptr, 0, nullptr, &last)).size(), 7u);
  auto deps = drain(cl->ft->referenceNames(cl, system(), nullptr, "Dependent", &last));
  ASSERT_EQ(deps.size(), 1u);
  EXPECT_EQ(className(deps[0]), "CIM_DeviceSAPImplementation");
  auto query = drain(cl->ft->execQuery(cl, path("CIM_Processor"), "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50",
                                       "WQL", &last));
  ASSERT_EQ(query.size(), 1u);
  EXPECT_EQ(text(prop(query[0].value.inst, "DeviceID").value.string), "CPU1");
}

TEST_F(Broker, InvokesMethodsWithTypedArguments) {
  CIMCClient* cl = connect();
  CIMCArgs* in = env->ft->newArgs(env, nullptr);
  CIMCArgs* out = env->ft->newArgs(env, nullptr);
  CIMCValue v{};
  v.chars = const_cast<char*>("hi");
  in->ft->addArg(in, "S", asChars(v.chars), CIMC_chars);
  v.chars = const_cast<char*>("4000000000");  // typed by the parameter's declaration (uint32)
  in->ft->addArg(in, "U32", asChars(v.chars), CIMC_chars);
  v.sint64 = INT64_MIN;
  in->ft->addArg(in, "S64", &v, CIMC_sint64);
  v.ref = system();
  in->ft->addArg(in, "Ref", &v, CIMC_ref);
  CIMCArray* arr = env->ft->newArray(env, 2, CIMC_string, nullptr);
  v.chars = const_cast<char*>("a");
  arr->ft->setElementAt(arr, 0, asChars(v.chars), CIMC_chars);
  arr->ft->setElementAt(arr, 1, asChars(v.chars), CIMC_chars);
  v.array = arr;
  in->ft->addArg(in, "SArray", &v, CIMC_ARRAY | CIMC_string);
  CIMCData rv = cl->ft->invokeMethod(cl, path("Mock_AllTypes"), "Echo", in, out, &last);
  ASSERT_EQ(last.rc, 0) << text(last.msg);
  EXPECT_EQ(rv.type, CIMC_uint32);
  EXPECT_EQ(rv.value.uint32, 0u);
  EXPECT_EQ(out->ft->getArgCount(out, nullptr), 5);
  CIMCData u32 = out->ft->getArg(out, "U32", nullptr);
  EXPECT_EQ(u32.type, CIMC_uint32);
  EXPECT_EQ(u32.value.uint32, 4000000000u);
  EXPECT_EQ(out->ft->getArg(out, "S64", nullptr).value.sint64, INT64_MIN);
  EXPECT_EQ(className(out->ft->getArg(out, "Ref", nullptr)), "Mock_ComputerSystem");
  EXPECT_EQ(out->ft->getArg(out, "SArray", nullptr).type, CIMC_ARRAY | CIMC_string);

  EXPECT_EQ(cl->ft->invokeMethod(cl, allTypes("mock:alltypes:1"), "ReturnCode", nullptr, nullptr, &last).value.uint32, 4096u);
  // SetElementName changes the system; put the old name back.
  CIMCArgs* setIn = env->ft->newArgs(env, nullptr);
  for (const char* name : {"Renamed", "Mock Server"}) {
    v.chars = const_cast<char*>(name);
    setIn->ft->addArg(setIn, "ElementName", asChars(v.chars), CIMC_chars);
    cl->ft->invokeMethod(cl, system(), "SetElementName", setIn, nullptr, &last);
    EXPECT_EQ(text(cl->ft->getProperty(cl, system(), "ElementName", nullptr).value.string), name);
  }
}

TEST_F(Broker, RepositoryErrorsBecomeStatuses) {
  CIMCClient* cl = connect();
  CIMCArgs* badArg = env->ft->newArgs(env, nullptr);
  CIMCValue v{};
  v.chars = const_cast<char*>("x");
  badArg->ft->addArg(badArg, "NoSuchParameter", asChars(v.chars), CIMC_chars);
  struct Case {
    const char* what;
    int rc;
    std::function<bool(CIMCStatus*)> run;  // true when the call returned nothing
  } cases[] = {
      {"unknown class", 5, [&](CIMCStatus* st) { return !cl->ft->enumInstances(cl, path("No_Such"), 0, nullptr, st); }},
      {"unknown class get", 6, [&](CIMCStatus* st) { return !cl->ft->getClass(cl, path("No_Such"), 0, nullptr, st); }},
      {"missing instance", 6, [&](CIMCStatus* st) { return !cl->ft->getInstance(cl, allTypes("none"), 0, nullptr, st); }},
      {"bad namespace", 3, [&](CIMCStatus* st) { return !cl->ft->enumInstanceNames(cl, path("CIM_System", {}, "root/none"), st); }},
      {"unknown method", 17,
       [&](CIMCStatus* st) { return cl->ft->invokeMethod(cl, path("Mock_AllTypes"), "Nope", nullptr, nullptr, st).state != 0; }},
      {"unknown parameter", 4,
       [&](CIMCStatus* st) { return cl->ft->invokeMethod(cl, path("Mock_AllTypes"), "Echo", badArg, nullptr, st).state != 0; }},
      {"failing method", 1,
       [&](CIMCStatus* st) { return cl->ft->invokeMethod(cl, allTypes("mock:alltypes:1"), "Fail", nullptr, nullptr, st).state != 0; }},
      {"bad query", 15, [&](CIMCStatus* st) { return !cl->ft->execQuery(cl, path("CIM_System"), "SELECT FROM", "WQL", st); }},
      {"no path", 4, [&](CIMCStatus* st) { return !cl->ft->enumInstanceNames(cl, nullptr, st); }},
  };
  for (const auto& c : cases) {
    CIMCStatus st{};
    EXPECT_TRUE(c.run(&st)) << c.what;
    EXPECT_EQ(st.rc, c.rc) << c.what;
    EXPECT_NE(text(st.msg), "<null>") << c.what;
    EXPECT_TRUE(c.run(nullptr)) << c.what;  // no status address: same result, no crash
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
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              on ? "[mock broker] connect\n[mock broker] enumInstanceNames\n" : "");
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
    CIMCEnv* e = newEnv();
    CIMCClient* cl = connect(e);
    ASSERT_NE(cl, nullptr);
    CIMCObjectPath* op = allTypes("mock:alltypes:1");
    std::vector<std::function<CIMCStatus()>> ops = {
        [&] { CIMCStatus st{}; cl->ft->getInstance(cl, op, 0, nullptr, &st); return st; },
        [&] { CIMCStatus st{}; cl->ft->enumInstances(cl, op, 0, nullptr, &st); return st; },
        [&] { CIMCStatus st{}; cl->ft->getClass(cl, op, 0, nullptr, &st); return st; },
        [&] { CIMCStatus st{}; cl->ft->associators(cl, op, nullptr, nullptr, nullptr, nullptr, 0, nullptr, &st); return st; },
        [&] { CIMCStatus st{}; cl->ft->invokeMethod(cl, op, "ReturnCode", nullptr, nullptr, &st); return st; },
        [&] { CIMCStatus st{}; cl->ft->getProperty(cl, op, "PString", &st); return st; },
        [&] { return cl->ft->deleteInstance(cl, op); },
        [&] { return cl->ft->setProperty(cl, op, "PString", nullptr, CIMC_string); },
    };
    for (std::size_t i = 0; i < ops.size(); ++i) {
      CIMCStatus st = ops[i]();
      EXPECT_EQ(st.rc, m.rc) << m.setting << " op " << i;
      if (m.msg) EXPECT_EQ(text(st.msg), m.msg) << "op " << i;
      else EXPECT_EQ(st.msg, nullptr) << "op " << i;
    }
  }
  unsetenv("CIMMOCK_BROKER_FAULT");
  CIMCClient* cl = connect(newEnv());  // read at each factory call: the next one is healthy
  EXPECT_NE(cl->ft->getInstance(cl, allTypes("mock:alltypes:1"), 0, nullptr, nullptr), nullptr);
}

TEST_F(Broker, ConnectFaults) {
  struct Case {
    const char* setting;
    const char* msg;
  } cases[] = {{"connect", "connection refused"}, {"no-such-mode", "unknown CIMMOCK_BROKER_FAULT value 'no-such-mode'"}};
  for (const auto& c : cases) {
    setenv("CIMMOCK_BROKER_FAULT", c.setting, 1);
    EXPECT_EQ(connect(newEnv()), nullptr);
    EXPECT_EQ(last.rc, 1);
    EXPECT_EQ(text(last.msg), c.msg);
  }
}

TEST_F(Broker, NullValuesFaultBlanksPropertiesNotPaths) {
  setenv("CIMMOCK_BROKER_FAULT", "null-values", 1);
  CIMCClient* cl = connect(newEnv());
  auto items = drain(cl->ft->enumInstances(cl, path("Mock_Processor"), 2, nullptr, &last));
  ASSERT_EQ(items.size(), 2u);
  CIMCInstance* i = items[0].value.inst;
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
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(en->ft->hasNext(en, nullptr), 1);
    CIMCStatus st{};
    CIMCData d = en->ft->getNext(en, &st);
    EXPECT_EQ(d.state, CIMC_badValue);
    EXPECT_EQ(d.value.ref, nullptr);
    EXPECT_EQ(st.rc, 1);
  }
  EXPECT_EQ(en->ft->getNext(en, nullptr).state, CIMC_badValue);
  EXPECT_EQ(en->ft->toArray(en, nullptr), nullptr);
}

// ---- release discipline --------------------------------------------------------

// Pointers the broker never handed out, or no longer holds, are refused
// without being read: the sanitizer build catches a read of freed memory.
TEST_F(Broker, RefusesPointersItDoesNotHold) {
  CIMCString* s = env->ft->newString(env, "held", nullptr);
  const CIMCStringFT* ft = s->ft;
  CIMCStatus st{};
  CIMCString fake{const_cast<char*>("fake"), ft};
  EXPECT_EQ(ft->getCharPtr(&fake, &st), nullptr);
  EXPECT_EQ(st.rc, 60);
  // Inside a live object, but not at its start.
  auto* inside = reinterpret_cast<CIMCString*>(reinterpret_cast<char*>(s) + sizeof(void*));
  EXPECT_EQ(ft->release(inside).rc, 60);
  // Where the next object will go, before it exists.
  CIMCString* t = env->ft->newString(env, "next", nullptr);
  std::ptrdiff_t step = reinterpret_cast<char*>(t) - reinterpret_cast<char*>(s);
  auto* ahead = reinterpret_cast<CIMCString*>(reinterpret_cast<char*>(t) + step);
  EXPECT_EQ(ft->release(ahead).rc, 60);
  // An object of another kind.
  CIMCObjectPath* op = env->ft->newObjectPath(env, "root/cimv2", "X", nullptr);
  EXPECT_EQ(ft->getCharPtr(reinterpret_cast<CIMCString*>(op), &st), nullptr);
  EXPECT_EQ(st.rc, 60);
  EXPECT_EQ(op->ft->getKeyCount(op, &st), 0);
  EXPECT_EQ(st.rc, 0);

  // Everything of a released environment, including the environment.
  CIMCEnv* e = newEnv();
  const CIMCEnvFT* envFt = e->ft;
  CIMCString* gone = e->ft->newString(e, "gone", nullptr);
  for (int k = 0; k < 100000; ++k) e->ft->newString(e, "filler", nullptr);  // several chunks of the store
  ASSERT_EQ(envFt->release(e).rc, 0);
  extra.pop_back();
  EXPECT_EQ(ft->release(gone).rc, 60);
  EXPECT_EQ(ft->getCharPtr(gone, &st), nullptr);
  EXPECT_EQ(st.rc, 60);
  EXPECT_EQ(envFt->release(e).rc, 60);
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
  std::vector<std::function<CIMCStatus()>> releases = {
      [&] { return name->ft->release(name); },  [&] { return first.value.inst->ft->release(first.value.inst); },
      [&] { return en->ft->release(en); },      [&] { return op->ft->release(op); },
      [&] { return args->ft->release(args); },  [&] { return arr->ft->release(arr); },
      [&] { return dt->ft->release(dt); },      [&] { return cl->ft->release(cl); },
  };
  for (std::size_t i = 0; i < releases.size(); ++i) {
    EXPECT_EQ(releases[i]().rc, 0) << i;
    EXPECT_NE(releases[i]().rc, 0) << i;  // second release: refused, nothing touched
  }
  // Left unreleased on purpose: the environment's release frees them (the
  // sanitizer build checks that nothing leaks).
  for (int k = 0; k < 3; ++k) {
    CIMCClient* kept = connect(e);
    EXPECT_NE(kept->ft->getInstance(kept, system(), 0, nullptr, nullptr), nullptr);
  }
  e->ft->newString(e, "kept", nullptr);
}

}  // namespace
