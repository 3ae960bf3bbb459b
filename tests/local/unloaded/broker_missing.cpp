// The local operations in a process whose loader cannot find the broker
// library: the exact stderr text, -1, and only the Leaving line.
#include <gtest/gtest.h>

#include "local_support.h"

namespace {

using namespace localtest;

// First in this process: the first Entering/Leaving line initialises the
// logger by itself (LogCapture would initialise it for us).
TEST(BrokerMissing, FirstLogLineInitialisesLogging) {
    const std::string path = "/tmp/local_first_log_" + std::to_string(getpid());
    unlink(path.c_str());
    EnvScope level("RT_LOG_LEVEL", "2");
    EnvScope file("RT_LOG_FILE", path.c_str());
    cimc_debug(0, "First");
    std::ifstream in(path);
    std::string line;
    EXPECT_TRUE(std::getline(in, line));
    EXPECT_NE(line.find(" BINCIMCLIENT First src/clientapi:103: "), std::string::npos) << line;
    unlink(path.c_str());
}

TEST(BrokerMissing, OperationsReportTheLoadFailureOnStderr) {
    LogCapture log;
    NamedInstance* result = nullptr;
    Error* error = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CIMC_EnumInstances(&result, "CIM_Processor", "host", "u", "p", 1, &error, "root/cimv2"), -1);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(error, nullptr);
    const std::string prefix = " local connect failed [Unable to load libcimcClientSfcbLocal.so library ";
    ASSERT_EQ(err.compare(0, prefix.size(), prefix), 0) << err;
    EXPECT_NE(err.find("libcimcClientSfcbLocal.so: cannot open shared object file"), std::string::npos) << err;
    EXPECT_EQ(err.substr(err.size() - 3), "] \n");
    EXPECT_EQ(log.lines(), std::vector<std::string>{leaving("EnumInstances")});
}

TEST(BrokerMissing, UnloggedOperationsStaySilentInTheLog) {
    LogCapture log;
    InstanceName* name = instanceName("C", {{"K", "v"}});
    Error* error = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CIMC_DeleteInstance(name, "root/cimv2", "u", "p", &error), -1);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind(" local connect failed [", 0), 0u) << err;
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(error, nullptr);
    Free_InstanceName(name);
}

}  // namespace
