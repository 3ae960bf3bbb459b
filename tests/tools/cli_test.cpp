// The cimxml program, run as a child process against the mock object
// manager: output, standard error and exit code of each command.
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

#include <pugixml.hpp>

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
const std::string kCpu0 =
    R"(Mock_Processor.SystemCreationClassName="Mock_ComputerSystem",SystemName="mock-server.example.com",)"
    R"(CreationClassName="Mock_Processor",DeviceID="CPU0")";

class Cli : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server_ = startServer({});
        cimmock::ServerOptions auth;
        auth.user = "admin";
        auth.password = "secret";
        authServer_ = startServer(auth);
    }
    static void TearDownTestSuite() {
        server_.reset();
        authServer_.reset();
    }
    static std::unique_ptr<cimmock::Server> startServer(cimmock::ServerOptions opt) {
        opt.repoDir = cimmock::sampleRepositoryDir();
        auto s = std::make_unique<cimmock::Server>(opt);
        std::string err;
        EXPECT_TRUE(s->start(&err)) << err;
        return s;
    }
    // cimxml against the open server, connection first.
    static Result cli(std::vector<std::string> args, std::map<std::string, std::string> env = {}) {
        args.insert(args.begin(), {"--port", std::to_string(server_->port())});
        return runCli(args, env);
    }
    static std::unique_ptr<cimmock::Server> server_, authServer_;
};
std::unique_ptr<cimmock::Server> Cli::server_, Cli::authServer_;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every command once, in text form and in each wire mode: exit 0, a line
// it must print (or nothing).
TEST_F(Cli, EachCommandAnswers) {
    struct Case {
        std::vector<std::string> args;
        std::string expected;
    };
    const Case cases[] = {
        {{"class", "names", "CIM_LogicalDevice", "--deep-inheritance"}, "Mock_NetworkPort\n"},
        {{"class", "get", "Mock_AllTypes", "--include-qualifiers"}, "[In, Out] string S,"},
        {{"class", "enumerate", "CIM_LogicalDevice"}, "class CIM_DiskDrive : CIM_LogicalDevice {"},
        {{"instance", "names", "CIM_Processor"}, kCpu0 + "\n"},
        {{"instance", "enumerate", "CIM_Processor"}, "ElementName = \"Processor 0\";"},
        {{"instance", "get", R"(Mock_AllTypes.InstanceID="mock:alltypes:1")"}, "PUint8Array = {0, 127, 255};"},
        {{"assoc", "associators", kSystem, "--assoc-class", "CIM_SystemDevice", "--result-class", "CIM_DiskDrive"},
         "DeviceID = \"disk1\";"},
        {{"assoc", "associator-names", kSystem, "--role", "GroupComponent", "--result-role", "PartComponent"},
         "Mock_NetworkPort."},
        {{"assoc", "references", kCpu0, "--result-class", "CIM_SystemDevice"}, "instance of CIM_SystemDevice {"},
        {{"assoc", "reference-names", kCpu0}, ":CIM_SystemDevice.GroupComponent="},
        {{"query", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50"}, "DeviceID = \"CPU1\";"},
        {{"instance", "names", "root/interop:CIM_ObjectManager"}, "CIM_ObjectManager."},
        {{"method", "invoke", "Mock_AllTypes", "ReturnCode"}, "uint32 ReturnValue = 4096;"},
        // An empty answer is no failure.
        {{"assoc", "associators", kSystem, "--assoc-class", "CIM_DeviceSAPImplementation", "--role", "Nope"}, ""},
    };
    for (const char* wire : {"default", "standard"})
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(wire) + ": " + c.args[0] + " " + c.args[1]);
            Result r = cli(c.args, {{"CIMXML_WIRE", wire}});
            EXPECT_EQ(r.code, 0) << r.err;
            EXPECT_TRUE(c.expected.empty() ? r.out.empty() : contains(r.out, c.expected)) << r.out;
            EXPECT_EQ(r.err, "");
        }
}

// Values are typed from the class (property names in any case); text output
// escapes what it quotes; NULL clears a property.
TEST_F(Cli, CreateGetModifyDeleteRoundTrip) {
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

TEST_F(Cli, TypedMethodCallReturnsOutParameters) {
    Result r = cli({"method", "invoke", "Mock_AllTypes", "Echo", R"(S=say "hi", twice)", "U32=4294967295",
                    "S64=-5", "B=true", "R64=2.5", "DT=20240101120000.000000+000", R"(SArray=[a,"b,c"])",
                    "U16Array=1,2,3", R"(Ref=Mock_ComputerSystem.CreationClassName="Mock_ComputerSystem",)"
                    R"(Name="mock-server.example.com")",
                    "--output", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["returnValue"]["value"], 0);
    const auto& out = j["out"];
    EXPECT_EQ(out["S"]["value"], R"(say "hi", twice)");
    EXPECT_EQ(out["U32"]["value"], 4294967295u);
    EXPECT_EQ(out["S64"]["value"], -5);
    EXPECT_EQ(out["B"]["value"], true);
    EXPECT_EQ(out["R64"]["value"], 2.5);
    EXPECT_EQ(out["SArray"]["value"], nlohmann::json::array({"a", "b,c"}));
    EXPECT_EQ(out["U16Array"]["value"], nlohmann::json::array({1, 2, 3}));
    EXPECT_EQ(out["Ref"]["value"]["className"], "Mock_ComputerSystem");

    // An instance method that changes the instance; an explicit type needs no lookup.
    const std::string target = R"(Mock_AllTypes.InstanceID="mock:alltypes:2")";
    r = cli({"method", "invoke", target, "SetPString", "Value:string=set by cli"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "uint32 ReturnValue = 0;\n");
    r = cli({"instance", "get", target});
    EXPECT_TRUE(contains(r.out, R"(PString = "set by cli";)")) << r.out;
}

TEST_F(Cli, JsonAndXmlShapes) {
    Result r = cli({"instance", "names", "CIM_Processor", "-o", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto names = nlohmann::json::parse(r.out);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0]["className"], "Mock_Processor");
    EXPECT_EQ(names[0]["keys"]["DeviceID"], "CPU0");
    EXPECT_EQ(names[0]["text"], kCpu0);

    r = cli({"class", "get", "Mock_AllTypes", "-o", "json"});
    auto cls = nlohmann::json::parse(r.out);
    EXPECT_EQ(cls[0]["name"], "Mock_AllTypes");
    bool sawEcho = false;
    for (const auto& m : cls[0]["methods"])
        if (m["name"] == "Echo") sawEcho = m["parameters"].size() == 9;
    EXPECT_TRUE(sawEcho);

    r = cli({"instance", "get", kCpu0, "-o", "xml"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.rfind("<INSTANCE CLASSNAME=\"Mock_Processor\">", 0), 0u) << r.out;
    EXPECT_TRUE(contains(r.out, "<PROPERTY NAME=\"DeviceID\" TYPE=\"string\"><VALUE>CPU0</VALUE></PROPERTY>"));

    // Every XML output is well-formed, text with markup characters included.
    const std::vector<std::vector<std::string>> xmlCommands = {
        {"instance", "enumerate", "Mock_AllTypes"},
        {"class", "get", "Mock_AllTypes", "--include-qualifiers"},
        {"assoc", "associator-names", kSystem},
        {"method", "invoke", "Mock_AllTypes", "Echo", "S=<&>", "Ref=" + kCpu0},
    };
    for (auto args : xmlCommands) {
        SCOPED_TRACE(args[0] + " " + args[1]);
        args.insert(args.end(), {"-o", "xml"});
        r = cli(args);
        EXPECT_EQ(r.code, 0) << r.err;
        pugi::xml_document doc;
        auto parsed = doc.load_string(("<ROOT>" + r.out + "</ROOT>").c_str());
        EXPECT_TRUE(parsed) << parsed.description() << "\n" << r.out;
    }
    r = cli({"instance", "get", R"(Mock_AllTypes.InstanceID="mock:alltypes:1")", "-o", "xml"});
    EXPECT_TRUE(contains(r.out, "<VALUE>Hello &lt;CIM&gt; &amp; &quot;friends&quot;</VALUE>")) << r.out;
}

// Each kind of failure has its own exit code and says what went wrong.
TEST_F(Cli, FailuresHaveTheirExitCodes) {
    struct Case {
        std::string name;
        std::vector<std::string> args;
        std::map<std::string, std::string> env;
        int code;
        std::string message;
    };
    const std::string port = std::to_string(server_->port());
    const std::string authPort = std::to_string(authServer_->port());
    const Case cases[] = {
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
        EXPECT_TRUE(contains(r.err, c.message)) << r.err;
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(Cli, UrlSetsDefaultsAndOptionsOverrideIt) {
    const std::string port = std::to_string(authServer_->port());
    std::map<std::string, std::string> env{{"CIMXML_URL", "http://admin@localhost:" + port + "/root/interop"},
                                           {"CIMXML_PASSWORD", "secret"}};
    Result r = runCli({"instance", "names", "CIM_ObjectManager"}, env);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "CIM_ObjectManager."));
    r = runCli({"-n", "root/cimv2", "instance", "names", "CIM_Processor"}, env);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "DeviceID=\"CPU1\""));
    r = runCli({"-u", "other", "class", "names"}, env);
    EXPECT_EQ(r.code, 3);
}

TEST(CliHelp, EveryCommandHasHelpWithAnExample) {
    const std::vector<std::vector<std::string>> commands = {
        {"class"}, {"instance"}, {"assoc"}, {"method"},
        {"class", "get"},         {"class", "enumerate"},          {"class", "names"},
        {"instance", "get"},      {"instance", "enumerate"},       {"instance", "names"},
        {"instance", "create"},   {"instance", "modify"},          {"instance", "delete"},
        {"assoc", "associators"}, {"assoc", "associator-names"},   {"assoc", "references"},
        {"assoc", "reference-names"}, {"method", "invoke"},        {"query"},
    };
    for (auto args : commands) {
        SCOPED_TRACE(args.back());
        args.push_back("--help");
        Result r = runCli(args);
        EXPECT_EQ(r.code, 0);
        EXPECT_TRUE(contains(r.out, "Example:\n  cimxml " + args[0])) << r.out;
    }
    Result r = runCli({"completion", "bash"});
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(contains(r.out, "[\"assoc\"]=\"associators associator-names references reference-names"));
    EXPECT_TRUE(contains(r.out, "complete -o default -F _cimxml cimxml"));

    // The script completes in bash as generated.
    const std::string script = std::string("source <('") + CIMXML_EXE + "' completion bash) && "
                               "COMP_WORDS=(cimxml --port 5 instance ''); COMP_CWORD=4; _cimxml && "
                               "echo \"${COMPREPLY[*]}\"";
    FILE* pipe = popen(("bash -c '" + std::regex_replace(script, std::regex("'"), "'\\''") + "' 2>&1").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string completed;
    char buf[512];
    while (fgets(buf, sizeof buf, pipe)) completed += buf;
    EXPECT_EQ(pclose(pipe), 0) << completed;
    EXPECT_EQ(completed.rfind("get enumerate names create modify delete --help --host", 0), 0u) << completed;
}

#ifdef CIMXML_BROKER_DIR
TEST(CliLocal, LocalBrokerAnswers) {
    Result r = runCli({"--local", "instance", "names", "CIM_Processor"},
                      {{"LD_LIBRARY_PATH", CIMXML_BROKER_DIR}});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "CIM_Processor") || contains(r.out, "Mock_Processor")) << r.out;
}
#endif

}  // namespace
