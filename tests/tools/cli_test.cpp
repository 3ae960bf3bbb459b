// The cimxml program, run as a child process against the mock object
// manager: one round trip, and the exit code of each class of outcome. What
// the commands ask is the library's, tested through it elsewhere.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "cimmock/repository.h"
#include "cimmock/server.h"

namespace {

struct Result {
    int code = -1;
    std::string out, err;
};

// Runs cimxml with args and extra environment (CIMXML_URL and
// CIMXML_PASSWORD cleared first), stdin from /dev/null.
Result runCli(const std::vector<std::string>& args, const std::map<std::string, std::string>& env = {}) {
    auto quote = [](const std::string& s) { return "'" + std::regex_replace(s, std::regex("'"), "'\\''") + "'"; };
    const std::string errPath = ::testing::TempDir() + "cimxml_err_" + std::to_string(getpid());
    std::string command = "env -u CIMXML_URL -u CIMXML_PASSWORD";
    for (const auto& [k, v] : env) command += " " + quote(k + "=" + v);
    command += " " + quote(CIMXML_EXE);
    for (const auto& a : args) command += " " + quote(a);
    Result r;
    FILE* pipe = popen((command + " </dev/null 2>" + quote(errPath)).c_str(), "r");
    if (!pipe) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) r.out.append(buf, n);
    int status = pclose(pipe);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::stringstream err;
    err << std::ifstream(errPath).rdbuf();
    r.err = err.str();
    std::remove(errPath.c_str());
    return r;
}

const std::string kSystem =
    R"(Mock_ComputerSystem.CreationClassName="Mock_ComputerSystem",Name="mock-server.example.com")";

// Servers for the whole program, one open and one that asks admin:secret.
int serverPort(bool auth) {
    static std::unique_ptr<cimmock::Server> servers[2];
    if (!servers[auth]) {
        cimmock::ServerOptions opt;
        opt.repoDir = cimmock::sampleRepositoryDir();
        if (auth) opt.user = "admin", opt.password = "secret";
        servers[auth] = std::make_unique<cimmock::Server>(opt);
        EXPECT_TRUE(servers[auth]->start());
    }
    return servers[auth]->port();
}
// cimxml against the open server, connection first.
Result cli(std::vector<std::string> args) {
    args.insert(args.begin(), {"--port", std::to_string(serverPort(false))});
    return runCli(args);
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Values are typed from the class (property names in any case); text output
// escapes what it quotes; NULL clears a property.
TEST(Cli, CreateGetModifyDeleteRoundTrip) {
    Result r = cli({"instance", "create", "Mock_AllTypes", "InstanceID=cli:1", "PUint8Array=[1, 2,255]",
                    R"(PStringArray=["x,y", z])", "PBoolean=false", "PSint64=-7", "PReference=" + kSystem,
                    R"(pstring=a <b> & "c", d)", "PUint32=1000"});
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string path = R"(Mock_AllTypes.InstanceID="cli:1")";
    EXPECT_EQ(r.out, path + "\n");
    r = cli({"instance", "get", path});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, R"(PString = "a <b> & \"c\", d";)")) << r.out;
    EXPECT_TRUE(contains(r.out, "PUint8Array = {1, 2, 255};"));

    r = cli({"instance", "modify", path, "PString=renamed", "PUint32=2000", "PSint64=NULL"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "");
    r = cli({"instance", "get", path, "-o", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto props = nlohmann::json::parse(r.out)["properties"];
    EXPECT_EQ(props["PString"]["value"], "renamed");
    EXPECT_EQ(props["PUint32"]["value"], 2000);
    EXPECT_TRUE(props["PSint64"]["value"].is_null());
    EXPECT_EQ(props["PUint8Array"]["value"], nlohmann::json::array({1, 2, 255}));
    EXPECT_EQ(props["PStringArray"]["value"], nlohmann::json::array({"x,y", "z"}));
    EXPECT_EQ(props["PBoolean"]["value"], false);
    EXPECT_EQ(props["PReference"]["value"]["keys"]["Name"], "mock-server.example.com");

    ASSERT_EQ(cli({"instance", "delete", path}).code, 0);
    r = cli({"instance", "get", path});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(contains(r.err, "CIM error 6 CIM_ERR_NOT_FOUND: ")) << r.err;
}

// Each class of outcome has its exit code: 0 done, 1 CIM error, 2 usage,
// 3 authentication, 4 connection; a failure says what went wrong.
TEST(Cli, OutcomesHaveTheirExitCodes) {
    struct Case {
        std::string name;
        std::vector<std::string> args;
        std::map<std::string, std::string> env;
        int code;
        std::string message;
    };
    const std::string port = std::to_string(serverPort(false)), authPort = std::to_string(serverPort(true));
    const Case cases[] = {
        {"done", {"--port", port, "instance", "names", "CIM_Processor"}, {{"CIMXML_WIRE", "standard"}}, 0, ""},
        {"url and password", {"instance", "names", "CIM_ObjectManager"},
         {{"CIMXML_URL", "http://admin@localhost:" + authPort + "/root/interop"}, {"CIMXML_PASSWORD", "secret"}}, 0, ""},
#ifdef CIMXML_BROKER_DIR
        {"local broker", {"--local", "instance", "names", "CIM_Processor"}, {{"LD_LIBRARY_PATH", CIMXML_BROKER_DIR}}, 0,
         ""},
#endif
        {"no such class", {"--port", port, "instance", "enumerate", "No_Such"}, {}, 1,
         "CIM error 5 CIM_ERR_INVALID_CLASS: class No_Such"},
        {"method fails", {"--port", port, "method", "invoke", "Mock_AllTypes", "Fail"}, {}, 1, "CIM_ERR_FAILED"},
        {"wrong password", {"--port", authPort, "-u", "admin", "class", "names"}, {{"CIMXML_PASSWORD", "wrong"}}, 3,
         "authentication failed for user 'admin'"},
        {"no password", {"--port", authPort, "-u", "admin", "class", "names"}, {}, 3, "HTTP 401"},
        {"closed port", {"--port", "1", "class", "names"}, {}, 4, "no reply from 127.0.0.1:1"},
        {"unknown host", {"--host", "no-such-host.invalid", "class", "names"}, {}, 4, "cannot resolve host"},
        {"no local broker", {"--local", "class", "names"}, {{"LD_LIBRARY_PATH", "/nonexistent"}}, 4,
         "libcimcClientSfcbLocal.so cannot be loaded"},
        {"bad option", {"--bogus", "class", "names"}, {}, 2, "--bogus"},
        {"bad output", {"-o", "yaml", "class", "names"}, {}, 2, "yaml"},
        {"bad path", {"--port", port, "instance", "get", "CIM_Foo.Name=x"}, {}, 2, "strings need double quotes"},
        {"class as path", {"--port", port, "instance", "delete", "CIM_Foo"}, {}, 2, "names a class"},
        {"create, unknown property", {"--port", port, "instance", "create", "Mock_Processor", "Nope=1"}, {}, 2,
         "class Mock_Processor has no property Nope"},
        {"bad value", {"--port", port, "method", "invoke", "Mock_AllTypes", "Echo", "U32=-1"}, {}, 2, "not a uint32"},
        {"no method", {"--port", port, "method", "invoke", "Mock_AllTypes", "Nope", "X=1"}, {}, 2,
         "declares no method Nope"},
        {"bad url", {"class", "names"}, {{"CIMXML_URL", "http://u:pw@h/"}}, 2, "CIMXML_PASSWORD"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Result r = runCli(c.args, c.env);
        EXPECT_EQ(r.code, c.code) << r.err;
        EXPECT_TRUE(c.code ? contains(r.err, c.message) : r.err.empty()) << r.err;
        EXPECT_EQ(r.out.empty(), c.code != 0) << r.out;
    }
}

}  // namespace
