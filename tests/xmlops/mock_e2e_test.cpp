// Entry points over HTTP against the mock object manager, checked against its
// repository: classes, query, methods and failures. The instance and
// association operations are compared with the local back end by the
// scenario suite.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cimmock/repository.h"
#include "cimmock/server.h"
#include "records.h"

namespace {

using namespace opt;

const char* const kNs = "root/cimv2";
using Names = std::set<std::string>;

class MockCimom : public ::testing::Test {
protected:
    void start(cimmock::ServerOptions options = {}) {
        options.repoDir = cimmock::sampleRepositoryDir();
        server_ = std::make_unique<cimmock::Server>(options);
        std::string err;
        ASSERT_TRUE(server_->start(&err)) << err;
        handle_ = connect("user", "secret");
    }
    ClientHandle* connect(const char* user, const char* password) {
        ClientHandle* h = client_Configuration("127.0.0.1", server_->port(), kNs, 5000, user, password);
        h->interfaceType = 0;  // whatever the machine's marker file says
        return h;
    }
    void SetUp() override { start(); }
    void TearDown() override {
        Free_client_Configuration(handle_);
        EXPECT_EQ(error_, nullptr) << takeError(&error_);
    }
    cimmock::Repository& repo() { return server_->repository(); }
    Names want(const std::vector<std::string>& names) { return Names(names.begin(), names.end()); }

    std::unique_ptr<cimmock::Server> server_;
    ClientHandle* handle_ = nullptr;
    Error* error_ = nullptr;
};

template <typename T>
Names namesOf(const T* chain) {
    Names out;
    for (; chain; chain = chain->next) out.insert(chain->name);
    return out;
}

// The class names against the repository; the records whole against data/trees/.
TEST_F(MockCimom, Classes) {
    ClassName* all = EnumerateClassNames(handle_, nullptr, 1, &error_);
    EXPECT_EQ(namesOf(all), want(repo().enumerateClassNames(kNs, "", true)));
    ClassName* device = className("CIM_LogicalDevice");
    ClassName* direct = EnumerateClassNames(handle_, device, 0, &error_);
    EXPECT_EQ(namesOf(direct), (Names{"CIM_Processor", "CIM_DiskDrive", "CIM_NetworkPort"}));
    Class* classes = CIM_EnumerateClasses(handle_, device, 1, 0, 1, 2, &error_);
    EXPECT_EQ(namesOf(classes), want(repo().enumerateClassNames(kNs, "CIM_LogicalDevice", true)));
    expectTree("enumerate_classes", classes);
    ClassName* processor = className("Mock_Processor");
    Class* cls = CIM_GetClass(handle_, processor, 0, 1, 1, nullptr, &error_);
    expectTree("get_class", cls);
    for (ClassName* c : {all, direct, device, processor}) Free_ClassName(c);
    Free_Class(classes);
    Free_Class(cls);
}

// The embedded instance, whose content the scenario suite leaves out when it
// compares every operation with the local back end.
TEST_F(MockCimom, EmbeddedInstanceIsReadWhole) {
    InstanceName* all = instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:1"}});
    Instance* inst = GetInstance(handle_, all, 0, 0, 0, nullptr, &error_);
    const Property* embedded = named(inst ? inst->properties : nullptr, "PEmbedded");
    ASSERT_TRUE(embedded && embedded->value);
    expectTree("embedded_instance", embedded->value->instance);
    Free_Instance(inst);
    Free_InstanceName(all);
}

TEST_F(MockCimom, QueryAndMethods) {
    ObjectWithPath* busy = ExecQuery(handle_, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", &error_);
    expectTree("exec_query", busy);
    Free_ObjectWithPath(busy);

    // A static method on the class path: out is reset, the in-parameters stay the caller's.
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    ParamValue* in = param("S", "hello", "string", param("U32", "42", "uint32"));
    ParamValue* out = reinterpret_cast<ParamValue*>(&out);
    ASSERT_EQ(invokeMethod(handle_, cls, "Echo", in, &out, &error_), 0);
    expectTree("echo", out);
    EXPECT_STREQ(in->value->value, "hello");
    Free_ParamValue(out);
    Free_ParamValue(in);
    ASSERT_EQ(invokeMethod(handle_, cls, "ReturnCode", nullptr, &out, &error_), 0);
    expectTree("return_code", out);
    Free_ParamValue(out);
    Free_InstanceName(cls);

    // An instance method on the instance path changes that instance.
    InstanceName* system = computerSystem();
    in = param("ElementName", "Renamed by method", "string");
    ASSERT_EQ(invokeMethod(handle_, system, "SetElementName", in, nullptr, &error_), 0);
    Instance* inst = GetInstance(handle_, system, 2, 2, 2, nullptr, &error_);
    EXPECT_EQ(text(inst, "ElementName"), "Renamed by method");
    Free_Instance(inst);
    Free_ParamValue(in);
    Free_InstanceName(system);
}

// Each call fails; errorOut carries the expected "code:" start ("" for none).
using Failing = std::function<void(ClientHandle*, Error**)>;
void expectFailures(ClientHandle* h, const std::vector<std::pair<std::string, Failing>>& cases) {
    for (const auto& [code, call] : cases) {
        Error* error = nullptr;
        call(h, &error);
        std::string e = takeError(&error);
        EXPECT_EQ(e.substr(0, code.size()), code) << e;
        EXPECT_EQ(e.empty(), code.empty()) << e;
    }
}

TEST_F(MockCimom, FailuresReachErrorOut) {
    ClassName* missing = className("No_Such_Class");
    ClassName* cpu = className("CIM_Processor");
    ClassName* leaf = className("Mock_Settings");
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    InstanceName* gone = processor("CPU9");
    ParamValue* out = nullptr;
    auto invoke = [&](const char* method) {
        return [&, method](ClientHandle* h, Error** e) {
            EXPECT_EQ(invokeMethod(h, cls, method, nullptr, &out, e), -1);
            EXPECT_EQ(out, nullptr);
        };
    };
    expectFailures(handle_, {
        {"6:", [&](auto h, auto e) { EXPECT_EQ(CIM_GetClass(h, missing, 2, 2, 2, nullptr, e), nullptr); }},
        {"5:", [&](auto h, auto e) { EXPECT_EQ(EnumerateInstances(h, missing, 2, 2, 2, 2, nullptr, e), nullptr); }},
        {"15:", [&](auto h, auto e) { EXPECT_EQ(ExecQuery(h, "WQL", "SELECT * FROM CIM_Processor WHERE", e), nullptr); }},
        {"14:", [&](auto h, auto e) { EXPECT_EQ(ExecQuery(h, "SQL-99", "SELECT * FROM CIM_Processor", e), nullptr); }},
        {"1:", invoke("Fail")},
        {"6:", [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, gone, e), nullptr); }},
        {"17:", invoke("NoSuchMethod")},
        {"", [&](auto h, auto e) { EXPECT_EQ(EnumerateClassNames(h, leaf, 1, e), nullptr); }},  // empty, no error
        {"3:", [&](auto h, auto e) {
             CIMC_SetNamespace(h, "root/nowhere");
             EXPECT_EQ(EnumerateInstanceNames(h, cpu, e), nullptr);
             CIMC_SetNamespace(h, kNs);
         }},
    });
    server_->stop();  // a transport failure leaves errorOut alone
    expectFailures(handle_, {{"", [&](auto h, auto e) { EXPECT_EQ(EnumerateInstanceNames(h, cpu, e), nullptr); }},
                             {"", invoke("ReturnCode")}});
    cimmock::ServerOptions options;
    options.user = "admin";
    options.password = "right";
    Free_client_Configuration(handle_);
    start(options);
    ClientHandle* wrong = connect("admin", "wrong");
    expectFailures(wrong, {
        {"401:Unauthorized User", [&](auto h, auto e) { EnumerateInstances(h, cpu, 2, 2, 2, 2, nullptr, e); }},
        {"401:Unauthorized User", invoke("ReturnCode")},
        {"401:Unauthorized User", [&](auto h, auto e) { DeleteInstance(h, cls, e); }},
    });
    ClientHandle* good = connect("admin", "right");
    InstanceName* names = EnumerateInstanceNames(good, cpu, &error_);
    EXPECT_EQ(count(names), 2);
    Free_InstanceName(names);
    for (ClientHandle* h : {good, wrong}) Free_client_Configuration(h);
    for (ClassName* c : {missing, cpu, leaf}) Free_ClassName(c);
    Free_InstanceName(cls);
    Free_InstanceName(gone);
}

}  // namespace
