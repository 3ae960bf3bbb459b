#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "rtlog.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

class RtLog : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = ::testing::TempDir() + "rtlog_" + std::to_string(::getpid()) + ".log";
        std::remove(path_.c_str());
        setenv("RT_LOG_FILE", path_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("RT_LOG_LEVEL");
        unsetenv("RT_LOG_FILE");
        rt_log_init();
        std::remove(path_.c_str());
    }
    std::string path_;
};

// Unset, 0 and 2 in turn: only the level-2 call under "2" is written.
TEST_F(RtLog, OneLinePerCallAtOrBelowTheThreshold) {
    for (const char* level : {static_cast<const char*>(nullptr), "0", "2"}) {
        level ? setenv("RT_LOG_LEVEL", level, 1) : unsetenv("RT_LOG_LEVEL");
        rt_log_init();
        _rt_log("src/CIMC_SendRequest", 295, "CIMCLIENT", "network", 2, "Request:\n%s", "<CIM/>");
        _rt_log("src/CIMC_SendRequest", 296, "CIMCLIENT", "network", 3, "too detailed");
        EXPECT_EQ(std::filesystem::exists(path_), level && *level == '2');  // no file made while quiet
    }
    std::string text = readFile(path_);
    // The stamp is UTC: today's date, as strftime gives it (or yesterday's, just after midnight).
    auto day = [](std::time_t t) { char d[16]; std::strftime(d, sizeof d, "%Y-%m-%d", std::gmtime(&t)); return std::string(d); };
    const std::time_t now = std::time(nullptr);
    EXPECT_TRUE(text.rfind(day(now), 0) == 0 || text.rfind(day(now - 60), 0) == 0) << text;
    std::regex line(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \[\d+\] CIMCLIENT network src/CIMC_SendRequest:295: Request:
<CIM/>
$)");
    EXPECT_TRUE(std::regex_match(text, line)) << text;
}

// Each init re-reads the environment and closes the file it replaces.
TEST_F(RtLog, ReinitLeaksNoDescriptor) {
    setenv("RT_LOG_LEVEL", "1", 1);
    rt_log_init();
    using std::filesystem::directory_iterator;
    auto openFds = [] { return std::distance(directory_iterator("/proc/self/fd"), directory_iterator()); };
    const auto before = openFds();
    for (int i = 0; i < 3; ++i) rt_log_init();
    EXPECT_EQ(openFds(), before);
}

TEST_F(RtLog, ConcurrentAppendsNeverInterleave) {
    setenv("RT_LOG_LEVEL", "4", 1);
    rt_log_init();
    const int threads = 4, lines = 300;
    std::string payload(200, 'x');
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) _rt_log("f", i, "C", "c", 1, "t%d %s", t, payload.c_str());
        });
    for (auto& th : pool) th.join();
    std::istringstream in(readFile(path_));
    std::string l;
    int count = 0;
    while (std::getline(in, l)) {
        ++count;
        ASSERT_NE(l.find(" C c f:"), std::string::npos) << l;
        ASSERT_EQ(l.substr(l.size() - payload.size()), payload) << l;
    }
    EXPECT_EQ(count, threads * lines);
}

}  // namespace
