// Loading the broker library: failure messages and their buffers, the
// environment's first field, the trace variables, the log line.
#include <dlfcn.h>

#include <climits>

#include "local_support.h"

namespace {

using namespace localtest;

TEST(Loading, FailuresLeaveACallerOwned1025ByteMessage) {
    const std::string longId(1500, 'q');
    const struct { const char* id; int rc; std::string start; const char* contains; size_t length; } cases[] = {
        {"Missing", 1, "Unable to load libcimcClientMissing.so library ",
         "libcimcClientMissing.so: cannot open shared object file", 0},
        // The file name stops at 511 bytes, the message at 1024 with its terminator.
        {longId.c_str(), 1, "Unable to load libcimcClient" + std::string(498, 'q') + " library ", "", 1023},
        {"NoEntry", 2, "Unable to locate entry _Create_NoEntry_Env in libcimcClientNoEntry.so", "", 69},
    };
    for (const auto& c : cases) {
        int rc = -1;
        char* msg = nullptr;
        EXPECT_EQ(getCIMCEnv(c.id, 0, &rc, &msg), nullptr);
        EXPECT_EQ(rc, c.rc);
        ASSERT_NE(msg, nullptr);
        std::string text = msg;
        EXPECT_EQ(text.compare(0, c.start.size(), c.start), 0) << text;
        EXPECT_NE(text.find(c.contains), std::string::npos) << text;
        if (c.length) {
            EXPECT_EQ(text.size(), c.length);
        }
        for (size_t i = text.size(); i < 1025; ++i) ASSERT_EQ(msg[i], '\0') << "byte " << i;
        std::free(msg);
    }
}

TEST(Loading, FactoryOutcomeIsPassedBackAndTheHandleStored) {
    int rc = -1;
    char* msg = nullptr;
    EXPECT_EQ(getCIMCEnv("TraceOnly", 0, &rc, &msg), nullptr);  // its factory gives no environment
    EXPECT_EQ(rc, 1);
    EXPECT_STREQ(msg, "TraceOnly: no environment");
    std::free(msg);

    // A loaded environment: the handle stored, the message cleared, the trace set.
    EnvScope trace("SFCB_TRACE", "0");
    auto* debug = static_cast<int*>(dlsym(dlopen("libcimcClientSfcbLocal.so", RTLD_NOW), "_sfcb_debug"));
    msg = reinterpret_cast<char*>(0x1);
    CIMCEnv* env = getCIMCEnv("SfcbLocal", 0, &rc, &msg);
    ASSERT_NE(env, nullptr);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(msg, nullptr);
    EXPECT_EQ(env->hdl, dlopen("libcimcClientSfcbLocal.so", RTLD_NOW | RTLD_NOLOAD));
    EXPECT_EQ(*debug, 1);
    *debug = 0;
    env->ft->release(env);
}

TEST(Loading, TraceVariablesAreWrittenOnlyWhenBothExist) {
    const struct { const char* library; const char* setting; long mask; int debug; } cases[] = {
        {"libcimcClientSfcbLocal.so", "12345", 12345, 1},
        {"libcimcClientSfcbLocal.so", "  -3x", -3, 1},
        {"libcimcClientSfcbLocal.so", "abc", 0, 1},  // does not parse: 0, still switched on
        {"libcimcClientSfcbLocal.so", "99999999999999999999999", LONG_MAX, 1},
        {"libcimcClientSfcbLocal.so", nullptr, -7, 0},  // unset
        {"libcimcClientTraceOnly.so", "5", -7, 0},      // no _sfcb_debug: neither is written
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.library) + " " + (c.setting ? c.setting : "(unset)"));
        EnvScope trace("SFCB_TRACE", c.setting);
        void* handle = dlopen(c.library, RTLD_NOW);
        auto* mask = static_cast<long*>(dlsym(handle, "_sfcb_trace_mask"));
        auto* debug = static_cast<int*>(dlsym(handle, "_sfcb_debug"));
        ASSERT_NE(mask, nullptr);
        int unused = 0;
        if (!debug) debug = &unused;
        *mask = -7;
        *debug = 0;
        setSFCBTrace(handle);
        EXPECT_EQ(*mask, c.mask);
        EXPECT_EQ(*debug, c.debug);
        *debug = 0;
    }
}

TEST(Loading, DebugLinesCarryTheCategoryAndPid) {
    LogCapture log;
    cimc_debug(1, "Some: category %s");
    cimc_debug(0, "Op");
    cimc_debug(7, "");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{entering("Some: category %s"), leaving("Op"), entering("")}));
}

}  // namespace
