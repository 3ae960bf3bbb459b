// One scenario, two back ends: each operation both have runs against the same
// fixture over HTTP (the mock object manager, in both wire modes; the
// standard one strict and writing its headers and body apart) and through the
// local broker (the mock broker library), and the two record trees are
// compared field by field. Differences on purpose are stated and asserted.
// What only HTTP has is compared with recorded trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "../xmlops/records.h"

namespace {

using namespace opt;

const char* const kNs = "root/cimv2";

enum Backend { kHttp = 0, kLocal = 1 };
enum Wire { kDefaultWire = 0, kStandardWire = 1 };

// What an instance holds decides which known differences show: null
// properties, arrays of types the broker does not name, references, odd
// scalars.
enum Content { kPlain = 0, kNulls = 1, kArrays = 2, kReferences = 4, kOdd = 8 };

// A field the back ends fill differently on purpose, as a rewrite of the
// HTTP tree's dump lines into what the local back end gives there ("" drops
// the line). `local`, when set, rewrites matching local lines the same way,
// for values the two back ends take from different sources. Each rule must
// still apply: a difference that went away fails the test.
struct Known {
    int when;
    const char *why, *pattern, *replacement;
    bool local = false;
};
const Known kKnown[] = {
    // Only the broker's uint16, sint8 and string array codes have type names.
    {kArrays, "array type names", R"re(^(.*\.propertyArrays\[\w+\]\.type = )"(?!uint16"|sint8"|string")\w+"$)re", R"($1"")"},
    // HTTP names the declared class of a reference, local the referenced one's.
    {kReferences, "reference class", R"re(^(.*\.propertyReferences\[\w+\]\.referenceClass = ).*$)re", "$1<class>", true},
    // A local reference property is a local path whose one namespace component
    // holds the broker's namespace text: no host, no CIMTYPE. (Reference keys
    // of returned paths agree.)
    {kReferences, "reference host", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.instancePath\.namespacePath\.host = .*$)re", ""},
    {kReferences, "reference namespace", R"re(^(.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.)instancePath\.namespacePath\.(localNamespacePath\.namespaces\[0\]\.name = )"root"$)re",
     R"($1localInstancePath.$2"root/cimv2")"},
    {kReferences, "reference namespace tail", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.instancePath\.namespacePath\.localNamespacePath\.namespaces\[1\].*$)re", ""},
    {kReferences, "reference key CIMTYPE", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\..*\.keyValue\.cimType = .*$)re", ""},
    {kReferences, "reference instance path", R"re(^(.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.)instancePath\.)re", "$1localInstancePath."},
    // Values with no text form on the broker's side: reals are written with
    // "%g", char16 and embedded instances have no text, and their type codes
    // no type name. Property names are the fixture's (Mock_AllTypes).
    {kOdd, "real and char16 type names", R"re(^(.*\.properties\[\w+\]\.type = )"(real32|real64|char16)"$)re", R"($1"")"},
    {kOdd, "reals as %g", R"re(^(.*\.value = "-?[0-9.]+e)([0-9]+")$)re", "$1+$2"},
    {kOdd, "char16 text", R"re(^(.*\.properties\[PChar16\]\.value\[0\]\.value = ).*$)re", R"($1"")"},
    {kOdd, "embedded instance type", R"re(^(.*\.properties\[PEmbedded\]\.type = )"string"$)re", R"($1"")"},
    {kOdd, "embedded instance text", R"re(^(.*\.properties\[PEmbedded\]\.value\[0\]\.)instance\[0\]\.className.*$)re",
     R"($1value = "")"},
    {kOdd, "embedded instance content", R"re(^.*\.properties\[PEmbedded\]\.value\[0\]\.instance\[0\]\..*$)re", ""},
};

std::vector<std::string> rewrite(std::vector<std::string> lines, const Known& k, bool* hit) {
    const std::regex re(k.pattern);
    std::vector<std::string> out;
    for (const auto& line : lines) {
        std::string r = line;
        if (std::regex_search(line, re)) *hit = true, r = std::regex_replace(line, re, k.replacement);
        if (!r.empty()) out.push_back(r);
    }
    return out;
}

// Null scalars and null references: HTTP keeps the property without a value,
// the local back end leaves it out. Drops their lines from HTTP's dump and
// says how many there were.
int dropNulls(std::vector<std::string>& lines) {
    static const std::regex member(R"(^(.*\.(properties|propertyReferences)\[\w+\])\.name = )");
    std::vector<std::string> nulls;
    for (const auto& line : lines) {
        std::smatch m;
        if (!std::regex_search(line, m, member)) continue;
        const std::string valued = m[1].str() + (m[2] == "properties" ? ".value[" : ".valueReference");
        if (std::none_of(lines.begin(), lines.end(), [&](const std::string& l) { return !l.rfind(valued, 0); }))
            nulls.push_back(m[1].str() + ".");
    }
    const auto isNull = [&](const std::string& l) {
        return std::any_of(nulls.begin(), nulls.end(), [&](const std::string& n) { return !l.rfind(n, 0); });
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isNull), lines.end());
    return static_cast<int>(nulls.size());
}

// Compares two trees field by field after the known differences.
void expectSameTrees(std::vector<std::string> h, std::vector<std::string> l, int content = kPlain) {
    EXPECT_GT(content & kNulls ? dropNulls(h) : 1, 0) << "no null property left out";
    for (const Known& k : kKnown) {
        if (!(content & k.when)) continue;
        bool hit = false;
        h = rewrite(std::move(h), k, &hit);
        if (k.local) l = rewrite(std::move(l), k, &hit);
        EXPECT_TRUE(hit) << "known difference no longer seen: " << k.why;
    }
    EXPECT_EQ(joined(h), joined(l));  // gtest shows the lines that differ
}

// Both back ends, one fixture: the mock object manager in this process (one
// per wire mode) and the mock broker library, each with the sample repository.
class Backends : public ::testing::TestWithParam<Wire> {
protected:
    static void SetUpTestSuite() {
        for (Wire w : {kDefaultWire, kStandardWire}) {
            cimmock::ServerOptions options;
            options.repoDir = cimmock::sampleRepositoryDir();
            // Default mode: instance names straight under IRETURNVALUE, the
            // only ReferenceNames reply form it reads.
            options.referenceNamesAsInstanceNames = w == kDefaultWire;
            options.strict = w == kStandardWire;
            options.faults.splitWritesMs = w == kStandardWire ? 20 : 0;
            server_[w] = std::make_unique<cimmock::Server>(options);
            std::string err;
            ASSERT_TRUE(server_[w]->start(&err)) << err;
        }
    }
    static void TearDownTestSuite() {
        for (auto& s : server_) s.reset();
    }
    Wire wire() const { return GetParam(); }
    // A handle on the given back end, rather than the machine's marker file's.
    ClientHandle* connect(int backend, int port, const char* user = "user", const char* password = "secret") {
        ClientHandle* h = client_Configuration("127.0.0.1", port, kNs, 5000, user, password);
        h->interfaceType = backend;
        EXPECT_EQ(CIMC_SetWireMode(h, wire() ? CIMXML_WIRE_STANDARD : CIMXML_WIRE_DEFAULT, "http"), 0);
        return h;
    }
    void SetUp() override {
        for (int b : {kHttp, kLocal}) handle_[b] = connect(b, server_[wire()]->port());
    }
    void TearDown() override {
        for (int b : {kHttp, kLocal}) {
            Free_client_Configuration(handle_[b]);
            EXPECT_EQ(takeError(&error_[b]), "") << "back end " << b;
        }
    }

    static std::unique_ptr<cimmock::Server> server_[2];
    ClientHandle* handle_[2] = {};
    Error* error_[2] = {};
};
std::unique_ptr<cimmock::Server> Backends::server_[2];

ParamValue* arrayParam(const char* name, const char* type, std::initializer_list<const char*> items, ParamValue* next) {
    ParamValue* p = param(name, nullptr, type, next);
    Free_Value(p->value);
    p->value = nullptr;
    p->valueArray = make<ValueArray>();
    Value** tail = &p->valueArray->value;
    for (const char* item : items) *tail = value(item), tail = &(*tail)->next;
    return p;
}

// Echo's in-parameters: scalars, arrays and a reference as the local back end
// hands out every reference it maps back, with host and namespace.
ParamValue* echoArguments() {
    ParamValue* ref = arrayParam("U16Array", "uint16", {"1", "65535"}, param("Ref", nullptr, "reference"));
    Free_Value(ref->next->value);
    ref->next->value = nullptr;
    InstancePath* ip = make<InstancePath>();
    ip->namespacePath = make<NamespacePath>();
    ip->namespacePath->host = s("localhost");
    ip->namespacePath->localNamespacePath = make<LocalNamespacePath>();
    Namespace** ns = &ip->namespacePath->localNamespacePath->namespaces;
    for (const char* part : {"root", "cimv2"}) *ns = make<Namespace>(), (*ns)->name = s(part), ns = &(*ns)->next;
    ip->instanceName = computerSystem();
    ref->next->valueReference = make<ValueReference>();
    ref->next->valueReference->instancePath = ip;
    return param("S", "hello", "string", param("U32", "42", "uint32", param("B", "TRUE", "boolean",
                 param("S64", "-5", "sint64", param("DT", "20240305070809.000000+060", "datetime",
                 arrayParam("SArray", "string", {"x", "y"}, ref))))));
}

TEST_P(Backends, EveryOperationGivesTheSameTree) {
    ClassName* system = className("CIM_ComputerSystem");
    ClassName* device = className("CIM_LogicalDevice");
    ClassName* allTypes = className("Mock_AllTypes");
    InstanceName* first = instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:1"}});
    InstanceName* second = instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:2"}});
    InstanceName* computer = computerSystem();
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    ObjectName* target = objectName(computerSystem());
    ClassName* assoc = className("CIM_SystemDevice");
    ParamValue* in = echoArguments();
    InstanceName* missing = instanceName("Mock_AllTypes", {{"InstanceID", "no such instance"}});
    ClassName* unknown = className("No_Such_Class");
    using Tree = std::vector<std::string>;
    auto enumerate = [&](ClassName* c) {
        return [&, c](auto h, auto e) {
            return taken(EnumerateInstances(h, c, 0, 1, 0, 0, nullptr, e), Free_NamedInstance);
        };
    };
    auto get = [&](InstanceName* n) {
        return [&, n](auto h, auto e) { return taken(GetInstance(h, n, 0, 0, 0, nullptr, e), Free_Instance); };
    };
    const struct {
        const char* name;
        int content;
        std::function<Tree(ClientHandle*, Error**)> call;
    } ops[] = {
        {"EnumerateInstances, plain", kPlain, enumerate(system)},
        {"EnumerateInstances, nulls", kNulls, enumerate(device)},
        {"EnumerateInstances, every type", kNulls | kArrays | kReferences | kOdd, enumerate(allTypes)},
        {"EnumerateInstanceNames", kPlain,
         [&](auto h, auto e) { return taken(EnumerateInstanceNames(h, device, e), Free_InstanceName); }},
        {"GetInstance, every type", kNulls | kArrays | kReferences | kOdd, get(first)},
        {"GetInstance, arrays", kNulls | kArrays, get(second)},
        {"GetInstance, plain", kPlain, get(computer)},
        {"Associators", kNulls, [&](auto h, auto e) {
             return taken(Associators(h, target, assoc, nullptr, nullptr, nullptr, 0, 0, nullptr, e),
                          Free_ObjectWithPath); }},
        {"AssociatorNames", kPlain, [&](auto h, auto e) {
             return taken(AssociatorNames(h, target, assoc, nullptr, nullptr, nullptr, e), Free_ObjectPath); }},
        {"References", kReferences, [&](auto h, auto e) {
             return taken(References(h, target, nullptr, nullptr, 0, 0, nullptr, e), Free_ObjectWithPath); }},
        {"invokeMethod", kPlain, [&](auto h, auto e) {
             ParamValue* out = nullptr;
             EXPECT_EQ(invokeMethod(h, cls, "Echo", in, &out, e), 0);
             return taken(out, Free_ParamValue); }},
        {"ReferenceNames", kPlain, [&](auto h, auto e) {
             ObjectPath* got = ReferenceNames(h, target, nullptr, nullptr, e);
             if (wire() == kStandardWire) return taken(got, Free_ObjectPath);
             // Default mode wraps the reply's bare names in one ObjectPath (the
             // frame tests pin that), the local back end gives one per name: the
             // names agree.
             Tree names;
             int n = 0;
             for (ObjectPath* p = got; p; p = p->next, ++n)
                 for (auto& line : dump(p->instancePath->instanceName))
                     names.push_back(h == handle_[kHttp] ? line : "[" + std::to_string(n) + "]" + line.substr(3));
             Free_ObjectPath(got);
             return names; }},
        // Errors: the two mocks word a missing path differently (the broker's
        // carries its namespace); both give code 6 and name the instance.
        {"GetInstance, missing", kPlain, [&](auto h, auto e) {
             EXPECT_EQ(GetInstance(h, missing, 0, 0, 0, nullptr, e), nullptr);
             const std::string error = takeError(e);
             return Tree{error.substr(0, 2), std::to_string(error.find("Mock_AllTypes.InstanceID=\"no such instance\"") !=
                                                            std::string::npos)}; }},
        {"EnumerateInstances, unknown class", kPlain, [&](auto h, auto e) {
             EXPECT_EQ(EnumerateInstances(h, unknown, 0, 1, 0, 0, nullptr, e), nullptr);
             return Tree{takeError(e)}; }},
        {"invokeMethod, failing", kPlain, [&](auto h, auto e) {
             ParamValue* out = nullptr;
             EXPECT_EQ(invokeMethod(h, cls, "Fail", nullptr, &out, e), -1);
             EXPECT_EQ(out, nullptr);
             return Tree{takeError(e)}; }},
    };
    for (const auto& op : ops) {
        SCOPED_TRACE(op.name);
        Tree got[2];
        for (int b : {kHttp, kLocal}) got[b] = op.call(handle_[b], &error_[b]);
        ASSERT_FALSE(got[kHttp].empty() || got[kHttp][0].empty());
        expectSameTrees(got[kHttp], got[kLocal], op.content);
    }
    for (ClassName* c : {system, device, allTypes, assoc, unknown}) Free_ClassName(c);
    for (InstanceName* n : {first, second, computer, cls, missing}) Free_InstanceName(n);
    Free_ParamValue(in);
    Free_ObjectName(target);
}

// What only HTTP has: classes, query and methods, against the trees in
// data/trees/.
TEST_P(Backends, HttpClassesQueryAndMethods) {
    ClientHandle* h = handle_[kHttp];
    Error** e = &error_[kHttp];
    ClassName* device = className("CIM_LogicalDevice");
    expectTree("class_names_deep", taken(EnumerateClassNames(h, nullptr, 1, e), Free_ClassName));
    expectTree("class_names_direct", taken(EnumerateClassNames(h, device, 0, e), Free_ClassName));
    expectTree("enumerate_classes", taken(CIM_EnumerateClasses(h, device, 1, 0, 1, 2, e), Free_Class));
    ClassName* processor = className("Mock_Processor");
    expectTree("get_class", taken(CIM_GetClass(h, processor, 0, 1, 1, nullptr, e), Free_Class));
    for (ClassName* c : {device, processor}) Free_ClassName(c);

    // Every type whole, with the embedded instance whose content the comparison leaves out.
    InstanceName* allTypes = instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:1"}});
    expectTree("all_types", taken(GetInstance(h, allTypes, 0, 0, 0, nullptr, e), Free_Instance));
    Free_InstanceName(allTypes);

    expectTree("exec_query", taken(ExecQuery(h, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", e),
                                   Free_ObjectWithPath));
    // A static method on the class path: out is reset, the in-parameters stay the caller's.
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    ParamValue* in = param("S", "hello", "string", param("U32", "42", "uint32"));
    ParamValue* out = reinterpret_cast<ParamValue*>(&out);
    ASSERT_EQ(invokeMethod(h, cls, "Echo", in, &out, e), 0);
    expectTree("echo", taken(out, Free_ParamValue));
    EXPECT_STREQ(in->value->value, "hello");
    Free_ParamValue(in);
    ASSERT_EQ(invokeMethod(h, cls, "ReturnCode", nullptr, &out, e), 0);
    expectTree("return_code", taken(out, Free_ParamValue));
    Free_InstanceName(cls);
}

// Each call fails; errorOut starts with the code given ("" for none).
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

TEST_P(Backends, HttpFailuresReachErrorOut) {
    ClassName* missing = className("No_Such_Class");
    ClassName* cpu = className("CIM_Processor");
    ClassName* leaf = className("Mock_Settings");
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    InstanceName* gone = processor("CPU9");
    auto invoke = [&](const char* method) {
        return [&, method](ClientHandle* h, Error** e) {
            ParamValue* out = nullptr;
            EXPECT_EQ(invokeMethod(h, cls, method, nullptr, &out, e), -1);
            EXPECT_EQ(out, nullptr);
        };
    };
    expectFailures(handle_[kHttp], {
        {"6:", [&](auto h, auto e) { EXPECT_EQ(CIM_GetClass(h, missing, 2, 2, 2, nullptr, e), nullptr); }},
        {"15:", [&](auto h, auto e) { EXPECT_EQ(ExecQuery(h, "WQL", "SELECT * FROM CIM_Processor WHERE", e), nullptr); }},
        {"6:", [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, gone, e), nullptr); }},
        {"17:", invoke("NoSuchMethod")},
        {"", [&](auto h, auto e) { EXPECT_EQ(EnumerateClassNames(h, leaf, 1, e), nullptr); }},  // empty, no error
        {"3:", [&](auto h, auto e) {
             CIMC_SetNamespace(h, "root/nowhere");
             EXPECT_EQ(EnumerateInstanceNames(h, cpu, e), nullptr);
             CIMC_SetNamespace(h, kNs);
         }},
    });
    cimmock::ServerOptions options;
    options.repoDir = cimmock::sampleRepositoryDir();
    options.user = "admin";
    options.password = "right";
    cimmock::Server guarded(options);
    ASSERT_TRUE(guarded.start());
    ClientHandle* wrong = connect(kHttp, guarded.port(), "admin", "wrong");
    const std::string unauthorized = "401:Unauthorized User";
    expectFailures(wrong, {
        {unauthorized, [&](auto h, auto e) { EnumerateInstances(h, cpu, 2, 2, 2, 2, nullptr, e); }},
        {unauthorized, invoke("ReturnCode")},
        {unauthorized, [&](auto h, auto e) { DeleteInstance(h, cls, e); }},
    });
    ClientHandle* good = connect(kHttp, guarded.port(), "admin", "right");
    EXPECT_FALSE(taken(EnumerateInstanceNames(good, cpu, &error_[kHttp]), Free_InstanceName).empty());
    guarded.stop();  // a transport failure: only the standard mode tells errorOut
    const std::string refused = wire() ? "1001:" : "";
    expectFailures(good, {{refused, [&](auto h, auto e) { EXPECT_EQ(EnumerateInstanceNames(h, cpu, e), nullptr); }},
                          {refused, invoke("ReturnCode")}});
    for (ClientHandle* h : {good, wrong}) Free_client_Configuration(h);
    for (ClassName* c : {missing, cpu, leaf}) Free_ClassName(c);
    Free_InstanceName(cls);
    Free_InstanceName(gone);
}

Instance* allTypes(const char* id, const char* pString) {
    return instance("Mock_AllTypes", property("InstanceID", id, "string",
                    property("PString", pString, "string", property("PBoolean", "TRUE", "boolean"))));
}

// The same life of one instance on each back end, checked against what was
// written (each back end has its own copy of the repository).
TEST_P(Backends, CreateGetModifyDelete) {
    for (int b : {kHttp, kLocal}) {
        SCOPED_TRACE(b ? "local" : "HTTP");
        ClientHandle* h = handle_[b];
        Error** err = &error_[b];
        auto pString = [&](InstanceName* name) {
            Instance* inst = GetInstance(h, name, 0, 0, 0, nullptr, err);
            const Property* p = named(inst ? inst->properties : nullptr, "PString");
            std::string out = !inst ? "<no instance>" : p && p->value && p->value->value ? p->value->value : "<null>";
            Free_Instance(inst);
            return out;
        };
        const std::string id = "scenario:" + std::to_string(wire()) + std::to_string(b);
        Instance* created = allTypes(id.c_str(), "created");
        InstanceName* name = CIM_CreateInstance(h, created, err);
        Free_Instance(created);
        ASSERT_NE(name, nullptr) << takeError(err);
        ASSERT_TRUE(name->keyBindings && !name->keyBindings->next);  // only the key, whatever else the instance holds
        EXPECT_STREQ(name->keyBindings->keyValue->value, id.c_str());
        EXPECT_EQ(pString(name), "created");

        auto* modified = make<NamedInstance>();
        modified->instanceName = name;
        modified->instance = allTypes(id.c_str(), "modified");
        ModifyInstance(h, modified, 0, nullptr, err);
        ASSERT_EQ(takeError(err), "");
        EXPECT_EQ(pString(name), "modified");

        DeleteInstance(h, name, err);
        ASSERT_EQ(takeError(err), "");
        EXPECT_EQ(pString(name), "<no instance>");
        EXPECT_EQ(takeError(err).substr(0, 2), "6:");
        Free_NamedInstance(modified);
    }
}

INSTANTIATE_TEST_SUITE_P(EachWire, Backends, ::testing::Values(kDefaultWire, kStandardWire),
                         [](const auto& info) { return info.param ? "Standard" : "Default"; });

}  // namespace
