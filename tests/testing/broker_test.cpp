// The mock local broker (libcimcClientSfcbLocal.so), loaded with dlopen and
// driven through its function tables, for what the library's local back end
// never meets: a broken repository, refused connects and pointers the
// broker does not hold. Operations, the fail, fail-silent,
// connect and enum-half faults and the TraceOnly library are driven through
// the library in tests/local and tests/scenario.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <cimxml/local.h>

namespace {

const std::string kDir = MOCK_BROKER_DIR;

CIMCEnvFactory factoryIn(const std::string& lib) {
  void* h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);  // never closed: keeps leak reports readable
  EXPECT_NE(h, nullptr) << dlerror();
  return h ? reinterpret_cast<CIMCEnvFactory>(dlsym(h, "_Create_SfcbLocal_Env")) : nullptr;
}
CIMCEnv* newEnv() {
  static CIMCEnvFactory f = factoryIn(kDir + "/libcimcClientSfcbLocal.so");
  int rc = -1;
  char* msg = nullptr;
  CIMCEnv* e = f("SfcbLocal", 0, &rc, &msg);
  EXPECT_EQ(rc, 0) << (msg ? msg : "");
  free(msg);
  return e;
}
std::string text(const CIMCString* s) { return s && s->hdl ? static_cast<const char*>(s->hdl) : "<null>"; }

}  // namespace

// A MOF error in the repository folder is reported by the factory, which
// still gives an environment whose connect fails. The repository is loaded
// once per process, so a private copy of the library loads this one.
TEST(Broker, RepositoryErrorsReachFactoryAndConnect) {
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("broker_test_" + std::to_string(getpid()));
  fs::create_directories(dir / "repo");
  std::ofstream(dir / "repo" / "a.mof") << "class Broken {\n  string ;\n};\n";
  fs::copy_file(kDir + "/libcimcClientSfcbLocal.so", dir / "libcopy.so", fs::copy_options::overwrite_existing);
  setenv("CIMMOCK_BROKER_REPO", (dir / "repo").c_str(), 1);
  CIMCEnvFactory f = factoryIn((dir / "libcopy.so").string());
  int rc = 0;
  char* msg = nullptr;
  CIMCEnv* env = f ? f("SfcbLocal", 0, &rc, &msg) : nullptr;
  unsetenv("CIMMOCK_BROKER_REPO");
  fs::remove_all(dir);
  ASSERT_NE(env, nullptr);
  EXPECT_EQ(rc, 1);
  EXPECT_NE(std::string(msg ? msg : "").find("a.mof:2:"), std::string::npos) << (msg ? msg : "");
  free(msg);
  CIMCStatus st{};
  EXPECT_EQ(env->ft->connect(env, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, &st), nullptr);
  EXPECT_EQ(st.rc, 1);
  EXPECT_NE(text(st.msg).find("a.mof"), std::string::npos);
  env->ft->release(env);
}

// Refusals the library's tests never ask for: credentials it was told to
// want, and a fault name it does not know (a misspelt fault must not pass
// for a healthy broker).
TEST(Broker, ConnectRefusals) {
  const struct {
    const char *var, *value, *user, *pwd;
    int rc;
    const char* msg;
  } cases[] = {
      {"CIMMOCK_BROKER_PASSWORD", "secret", "root", "wrong", 2, "access denied"},
      {"CIMMOCK_BROKER_USER", "admin", nullptr, nullptr, 2, "access denied"},
      {"CIMMOCK_BROKER_FAULT", "fial:1:x", "root", "pw", 1, "unknown CIMMOCK_BROKER_FAULT value 'fial:1:x'"},
  };
  for (const auto& c : cases) {
    setenv(c.var, c.value, 1);
    CIMCEnv* e = newEnv();  // the variables are read here
    unsetenv(c.var);
    CIMCStatus st{};
    EXPECT_EQ(e->ft->connect(e, "localhost", "SfcbLocal", nullptr, c.user, c.pwd, &st), nullptr) << c.msg;
    EXPECT_EQ(st.rc, c.rc) << c.msg;
    EXPECT_EQ(text(st.msg), c.msg);
    e->ft->release(e);
  }
}

// Pointers the broker never handed out or no longer holds are refused with
// 60 without being read, so that a release the library gets wrong shows up
// as a status here, and as a read of freed memory in the sanitizer build.
TEST(Broker, RefusesPointersItDoesNotHold) {
  CIMCEnv* env = newEnv();
  CIMCString* held = env->ft->newString(env, "held", nullptr);
  const CIMCStringFT* ft = held->ft;
  CIMCString fake{const_cast<char*>("fake"), ft};
  char* at = reinterpret_cast<char*>(held);
  char* next = reinterpret_cast<char*>(env->ft->newString(env, "next", nullptr));
  CIMCObjectPath* op = env->ft->newObjectPath(env, "root/cimv2", "X", nullptr);
  CIMCString* twice = env->ft->newString(env, "twice", nullptr);
  ASSERT_EQ(ft->release(twice).rc, 0);
  // Never handed out, inside a live object, where the next object will go,
  // an object of another kind, released already.
  for (void* p : {static_cast<void*>(&fake), static_cast<void*>(at + sizeof(void*)),
                  static_cast<void*>(next + (next - at)), static_cast<void*>(op), static_cast<void*>(twice)}) {
    CIMCStatus st{};
    EXPECT_EQ(ft->getCharPtr(static_cast<CIMCString*>(p), &st), nullptr);
    EXPECT_EQ(st.rc, 60);
    EXPECT_EQ(ft->release(static_cast<CIMCString*>(p)).rc, 60);
  }
  // Everything of a released environment, the environment included; what it
  // still held is freed with it (the sanitizer build checks nothing leaks).
  CIMCEnv* e = newEnv();
  const CIMCEnvFT* envFt = e->ft;
  CIMCString* gone = e->ft->newString(e, "gone", nullptr);
  for (int k = 0; k < 100000; ++k) e->ft->newString(e, "filler", nullptr);  // several chunks of the store
  CIMCStatus st{};
  EXPECT_NE(e->ft->connect(e, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, &st), nullptr);
  ASSERT_EQ(envFt->release(e).rc, 0);
  EXPECT_EQ(ft->release(gone).rc, 60);
  EXPECT_EQ(envFt->release(e).rc, 60);
  EXPECT_EQ(envFt->newString(e, "x", &st), nullptr);
  EXPECT_EQ(st.rc, 60);
  EXPECT_EQ(text(held), "held");  // the other environment's objects stay
  env->ft->release(env);
}
