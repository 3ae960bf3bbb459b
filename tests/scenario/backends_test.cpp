// One scenario, two back ends: every operation that exists on both runs
// through the public entry points against the same fixture, once over HTTP
// (the mock object manager) and once through the local broker (the mock
// broker library, found by the dynamic loader), and the two record trees are
// compared field by field. Where the back ends differ on purpose, the
// difference is stated and asserted, never skipped. The HTTP side runs in
// both wire modes: the default one against the usual mock, the standard one
// against a mock that turns away anything DSP0200/DSP0201 do not allow and
// writes its headers and body apart.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "cimmock/server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "../xmlops/records.h"
#include "tree_dump.h"

namespace {

using namespace opt;
using scenario::dump;
using scenario::joined;

const char* const kNs = "root/cimv2";

enum Backend { kHttp = 0, kLocal = 1 };
enum Wire { kDefaultWire = 0, kStandardWire = 1 };
using Mode = std::tuple<Wire, Backend>;

// A field the back ends fill differently on purpose, as a rewrite of the
// HTTP tree's dump lines into what the local back end gives there ("" drops
// the line). `local`, when set, rewrites matching local lines the same way,
// for values the two back ends take from different sources. Each rule must
// still apply: a difference that went away fails the test.
struct Known {
    const char* why;
    const char* pattern;
    const char* replacement;
    bool local = false;
};

// Only the broker's uint16, sint8 and string array codes have type names.
const Known kArrayTypes{"array type names", R"re(^(.*\.propertyArrays\[\w+\]\.type = )"(?!uint16"|sint8"|string")\w+"$)re",
                        R"($1"")"};
// HTTP names the declared class of a reference, local the referenced one's.
const Known kReferenceClass{"reference class", R"re(^(.*\.propertyReferences\[\w+\]\.referenceClass = ).*$)re",
                            "$1<class>", true};
// A local reference property is a local path whose one namespace component
// holds the broker's namespace text: no host, no CIMTYPE. (Reference keys of
// returned paths agree.)
const Known kReferencePath[] = {
    {"reference host", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.instancePath\.namespacePath\.host = .*$)re", ""},
    {"reference namespace", R"re(^(.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.)instancePath\.namespacePath\.(localNamespacePath\.namespaces\[0\]\.name = )"root"$)re",
     R"($1localInstancePath.$2"root/cimv2")"},
    {"reference namespace tail", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.instancePath\.namespacePath\.localNamespacePath\.namespaces\[1\].*$)re", ""},
    {"reference key CIMTYPE", R"re(^.*\.propertyReferences\[\w+\]\.valueReference\[0\]\..*\.keyValue\.cimType = .*$)re", ""},
    {"reference instance path", R"re(^(.*\.propertyReferences\[\w+\]\.valueReference\[0\]\.)instancePath\.)re", "$1localInstancePath."},
};

// Values with no text form on the broker's side: reals are written with
// "%g", char16 and embedded instances have no text, and their type codes no
// type name. Property names are the fixture's (Mock_AllTypes).
const Known kOddScalars[] = {
    {"real and char16 type names", R"re(^(.*\.properties\[\w+\]\.type = )"(real32|real64|char16)"$)re", R"($1"")"},
    {"reals as %g", R"re(^(.*\.value = "-?[0-9.]+e)([0-9]+")$)re", "$1+$2"},
    {"char16 text", R"re(^(.*\.properties\[PChar16\]\.value\[0\]\.value = ).*$)re", R"($1"")"},
    {"embedded instance type", R"re(^(.*\.properties\[PEmbedded\]\.type = )"string"$)re", R"($1"")"},
    {"embedded instance text", R"re(^(.*\.properties\[PEmbedded\]\.value\[0\]\.)instance\[0\]\.className.*$)re",
     R"($1value = "")"},
    {"embedded instance content", R"re(^.*\.properties\[PEmbedded\]\.value\[0\]\.instance\[0\]\..*$)re", ""},
};

std::vector<std::string> rewrite(std::vector<std::string> lines, const Known& k, bool* hit) {
    const std::regex re(k.pattern);
    std::vector<std::string> out;
    for (const auto& line : lines) {
        if (!std::regex_search(line, re)) {
            out.push_back(line);
            continue;
        }
        *hit = true;
        std::string r = std::regex_replace(line, re, k.replacement);
        if (!r.empty()) out.push_back(r);
    }
    return out;
}

// Null scalars and null references: the local back end leaves them out,
// HTTP keeps the property without a value. Removes them from an HTTP tree
// and counts them.
template <typename T>
int dropNullProperties(T* tree) {
    int dropped = 0;
    scenario::visit(scenario::RecordIdOf<T>::value, tree, [&](scenario::RecordId id, void* node) {
        if (id != scenario::RecordId::Instance) return;
        auto* inst = static_cast<Instance*>(node);
        for (Property** p = &inst->properties; *p;) {
            if ((*p)->value && ((*p)->value->value || (*p)->value->instance)) {
                p = &(*p)->next;
                continue;
            }
            Property* gone = *p;
            *p = gone->next;
            gone->next = nullptr;
            Free_Property(gone);
            ++dropped;
        }
        for (PropertyReference** r = &inst->propertyReferences; *r;) {
            if ((*r)->valueReference) {
                r = &(*r)->next;
                continue;
            }
            PropertyReference* gone = *r;
            *r = gone->next;
            gone->next = nullptr;
            Free_PropertyReference(gone);
            ++dropped;
        }
    });
    return dropped;
}

// Compares two trees field by field after the known differences.
// What an instance holds decides which differences show: null properties,
// arrays of types the broker does not name, references, odd scalars.
enum Content { kPlain = 0, kNulls = 1, kArrays = 2, kReferences = 4, kOdd = 8 };

std::vector<const Known*> rulesFor(int content) {
    std::vector<const Known*> rules;
    if (content & kOdd)
        for (const Known& k : kOddScalars) rules.push_back(&k);
    if (content & kArrays) rules.push_back(&kArrayTypes);
    if (content & kReferences) {
        rules.push_back(&kReferenceClass);
        for (const Known& k : kReferencePath) rules.push_back(&k);
    }
    return rules;
}

template <typename T>
void expectSameTrees(T* http, const T* local, int content = kPlain) {
    const std::vector<const Known*> known = rulesFor(content);
    if (content & kNulls) {
        EXPECT_GT(dropNullProperties(http), 0) << "no null property left out";
    }
    std::vector<std::string> h = dump(http), l = dump(local);
    for (const Known* k : known) {
        bool hit = false;
        h = rewrite(std::move(h), *k, &hit);
        if (k->local) l = rewrite(std::move(l), *k, &hit);
        EXPECT_TRUE(hit) << "known difference no longer seen: " << k->why;
    }
    if (h == l) return;
    std::multiset<std::string> onlyHttp(h.begin(), h.end()), onlyLocal;
    for (const auto& line : l) {
        auto it = onlyHttp.find(line);
        if (it != onlyHttp.end()) onlyHttp.erase(it);
        else onlyLocal.insert(line);
    }
    ADD_FAILURE() << h.size() << " HTTP lines, " << l.size() << " local lines\nonly HTTP:\n"
                  << joined({onlyHttp.begin(), onlyHttp.end()}) << "only local:\n"
                  << joined({onlyLocal.begin(), onlyLocal.end()});
}

struct ObjectNameDeleter {
    void operator()(ObjectName* o) const { Free_ObjectName(o); }
};
using ObjectNamePtr = std::unique_ptr<ObjectName, ObjectNameDeleter>;

// Both back ends, one fixture: the mock object manager in this process on a
// free loopback port (one per wire mode), and the mock broker library with
// its own copy of the same sample repository.
class Backends : public ::testing::TestWithParam<Mode> {
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
            server_[w] = new cimmock::Server(options);
            std::string err;
            ASSERT_TRUE(server_[w]->start(&err)) << err;
        }
    }
    static void TearDownTestSuite() {
        for (auto*& s : server_) {
            delete s;
            s = nullptr;
        }
    }
    Wire wire() const { return std::get<0>(GetParam()); }
    void SetUp() override {
        for (int b : {kHttp, kLocal}) {
            handle_[b] = client_Configuration("127.0.0.1", server_[wire()]->port(), kNs, 5000, "user", "secret");
            ASSERT_NE(handle_[b], nullptr);
            // The entry points read the back end from the handle: set it here
            // rather than through the machine's marker file.
            handle_[b]->interfaceType = b;
        }
        ASSERT_EQ(CIMC_SetWireMode(handle_[kHttp], wire() == kStandardWire ? CIMXML_WIRE_STANDARD : CIMXML_WIRE_DEFAULT,
                                   "http"),
                  0);
    }
    void TearDown() override {
        for (int b : {kHttp, kLocal}) {
            Free_client_Configuration(handle_[b]);
            EXPECT_EQ(error_[b], nullptr) << "back end " << b << ": " << describe(error_[b]);
            Free_Error(error_[b]);
        }
    }
    static std::string describe(const Error* e) {
        if (!e) return "no error";
        return std::string(e->code ? e->code : "?") + " " + (e->description ? e->description : "");
    }

    static cimmock::Server* server_[2];
    ClientHandle* handle_[2] = {};
    Error* error_[2] = {};
};
cimmock::Server* Backends::server_[2] = {};

std::string modeName(const ::testing::TestParamInfo<Mode>& info) {
    return std::string(std::get<0>(info.param) ? "Standard" : "Default") + (std::get<1>(info.param) ? "Local" : "Http");
}

TEST_P(Backends, EnumerateInstancesGiveTheSameNamedInstances) {
    const struct {
        const char* cls;
        int content;
    } cases[] = {{"CIM_ComputerSystem", kPlain},
                 {"CIM_LogicalDevice", kNulls},
                 {"Mock_AllTypes", kNulls | kArrays | kReferences | kOdd}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cls);
        ClassName* cn = className(c.cls);
        NamedInstance* got[2];
        for (int b : {kHttp, kLocal}) got[b] = EnumerateInstances(handle_[b], cn, 0, 1, 0, 0, nullptr, &error_[b]);
        ASSERT_NE(got[kHttp], nullptr);
        expectSameTrees(got[kHttp], got[kLocal], c.content);
        for (int b : {kHttp, kLocal}) Free_NamedInstance(got[b]);
        Free_ClassName(cn);
    }
}

TEST_P(Backends, EnumerateInstanceNamesGiveTheSameNames) {
    ClassName* cn = className("CIM_LogicalDevice");
    InstanceName* got[2];
    for (int b : {kHttp, kLocal}) got[b] = EnumerateInstanceNames(handle_[b], cn, &error_[b]);
    ASSERT_NE(got[kHttp], nullptr);
    expectSameTrees(got[kHttp], got[kLocal]);
    for (int b : {kHttp, kLocal}) Free_InstanceName(got[b]);
    Free_ClassName(cn);
}

TEST_P(Backends, GetInstanceGivesTheSameInstance) {
    const struct {
        InstanceName* name;
        int content;
    } cases[] = {
        {instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:1"}}), kNulls | kArrays | kReferences | kOdd},
        {instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:2"}}), kNulls | kArrays},
        {computerSystem(), kPlain},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name->keyBindings->keyValue->value);
        Instance* got[2];
        for (int b : {kHttp, kLocal}) got[b] = GetInstance(handle_[b], c.name, 0, 0, 0, nullptr, &error_[b]);
        ASSERT_NE(got[kHttp], nullptr);
        expectSameTrees(got[kHttp], got[kLocal], c.content);
        for (int b : {kHttp, kLocal}) Free_Instance(got[b]);
        Free_InstanceName(c.name);
    }
}

TEST_P(Backends, AssociationsGiveTheSameObjectsAndPaths) {
    ObjectNamePtr system = ObjectNamePtr(objectName(computerSystem()));
    ClassName* assoc = className("CIM_SystemDevice");
    ObjectWithPath* objects[2];
    ObjectPath* paths[2];
    ObjectWithPath* refs[2];
    for (int b : {kHttp, kLocal}) {
        objects[b] = Associators(handle_[b], system.get(), assoc, nullptr, nullptr, nullptr, 0, 0, nullptr, &error_[b]);
        paths[b] = AssociatorNames(handle_[b], system.get(), assoc, nullptr, nullptr, nullptr, &error_[b]);
        refs[b] = References(handle_[b], system.get(), nullptr, nullptr, 0, 0, nullptr, &error_[b]);
    }
    ASSERT_NE(objects[kHttp], nullptr);
    ASSERT_NE(paths[kHttp], nullptr);
    ASSERT_NE(refs[kHttp], nullptr);
    expectSameTrees(objects[kHttp], objects[kLocal], kNulls);
    expectSameTrees(paths[kHttp], paths[kLocal]);
    expectSameTrees(refs[kHttp], refs[kLocal], kReferences);
    for (int b : {kHttp, kLocal}) {
        Free_ObjectWithPath(objects[b]);
        Free_ObjectPath(paths[b]);
        Free_ObjectWithPath(refs[b]);
    }
    Free_ClassName(assoc);
}

TEST_P(Backends, ReferenceNamesGiveTheSameNamesInAnotherWrapping) {
    ObjectNamePtr system = ObjectNamePtr(objectName(computerSystem()));
    ObjectPath* got[2];
    for (int b : {kHttp, kLocal}) got[b] = ReferenceNames(handle_[b], system.get(), nullptr, nullptr, &error_[b]);
    ASSERT_NE(got[kHttp], nullptr);
    ASSERT_NE(got[kLocal], nullptr);
    if (wire() == kStandardWire) {
        // Standard mode reads the OBJECTPATH reply DSP0201 prescribes: one
        // ObjectPath per name with its namespace path, as the local back end.
        expectSameTrees(got[kHttp], got[kLocal]);
        for (int b : {kHttp, kLocal}) Free_ObjectPath(got[b]);
        return;
    }
    // Default mode wraps the reply's bare instance names in one ObjectPath without a
    // namespace path; the local back end gives one ObjectPath per name, each
    // with its namespace path. The names themselves agree.
    EXPECT_EQ(got[kHttp]->next, nullptr);
    EXPECT_EQ(got[kHttp]->instancePath->namespacePath, nullptr);
    std::vector<std::string> http, local;
    int n = 0;
    for (InstanceName* i = got[kHttp]->instancePath->instanceName; i; i = i->next, ++n) {
        InstanceName* rest = i->next;
        i->next = nullptr;
        for (auto& line : dump(i)) http.push_back("[" + std::to_string(n) + "]" + line.substr(3));
        i->next = rest;
    }
    n = 0;
    for (ObjectPath* p = got[kLocal]; p; p = p->next, ++n) {
        ASSERT_NE(p->instancePath->namespacePath, nullptr);
        for (auto& line : dump(p->instancePath->instanceName)) local.push_back("[" + std::to_string(n) + "]" + line.substr(3));
    }
    EXPECT_GT(n, 1);
    EXPECT_EQ(joined(http), joined(local));
    for (int b : {kHttp, kLocal}) Free_ObjectPath(got[b]);
}


TEST_P(Backends, MethodsGiveTheSameResultsAndErrors) {
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    ParamValue* in = param("S", "hello", "string", param("U32", "42", "uint32", param("B", "TRUE", "boolean")));
    ParamValue* out[2] = {};
    for (int b : {kHttp, kLocal}) EXPECT_EQ(invokeMethod(handle_[b], cls, "Echo", in, &out[b], &error_[b]), 0);
    ASSERT_NE(out[kHttp], nullptr);
    expectSameTrees(out[kHttp], out[kLocal]);
    for (int b : {kHttp, kLocal}) Free_ParamValue(out[b]);

    for (int b : {kHttp, kLocal}) {
        out[b] = nullptr;
        EXPECT_EQ(invokeMethod(handle_[b], cls, "Fail", nullptr, &out[b], &error_[b]), -1);
        EXPECT_EQ(out[b], nullptr);
        ASSERT_NE(error_[b], nullptr);
    }
    EXPECT_STREQ(error_[kHttp]->code, "1");
    EXPECT_EQ(dump(error_[kHttp]), dump(error_[kLocal]));
    for (int b : {kHttp, kLocal}) {
        Free_Error(error_[b]);
        error_[b] = nullptr;
    }
    Free_ParamValue(in);
    Free_InstanceName(cls);
}

TEST_P(Backends, ErrorsCarryTheSameCodeAndDescription) {
    InstanceName* missing = instanceName("Mock_AllTypes", {{"InstanceID", "no such instance"}});
    ClassName* unknown = className("No_Such_Class");
    for (int b : {kHttp, kLocal}) EXPECT_EQ(GetInstance(handle_[b], missing, 0, 0, 0, nullptr, &error_[b]), nullptr);
    for (int b : {kHttp, kLocal}) {
        ASSERT_NE(error_[b], nullptr);
        EXPECT_STREQ(error_[b]->code, "6");
        // The two mocks word the path differently (the broker's carries its
        // namespace); both name the missing instance.
        EXPECT_NE(std::strstr(error_[b]->description, "Mock_AllTypes.InstanceID=\"no such instance\""), nullptr);
    }
    for (int b : {kHttp, kLocal}) {
        Free_Error(error_[b]);
        error_[b] = nullptr;
        EXPECT_EQ(EnumerateInstances(handle_[b], unknown, 0, 1, 0, 0, nullptr, &error_[b]), nullptr);
    }
    ASSERT_NE(error_[kHttp], nullptr);
    EXPECT_EQ(dump(error_[kHttp]), dump(error_[kLocal]));
    for (int b : {kHttp, kLocal}) {
        Free_Error(error_[b]);
        error_[b] = nullptr;
    }
    Free_ClassName(unknown);
    Free_InstanceName(missing);
}

// The same life of one instance on each back end, checked against what was
// written (each back end has its own copy of the repository).
class OneBackend : public Backends {
protected:
    Backend backend() const { return std::get<1>(GetParam()); }
    ClientHandle* h() { return handle_[backend()]; }
    Error** err() { return &error_[backend()]; }
    std::string propertyOf(InstanceName* name, const char* property) {
        Instance* inst = GetInstance(h(), name, 0, 0, 0, nullptr, err());
        std::string text = "<no instance>";
        if (inst) {
            text = "<null>";
            for (Property* p = inst->properties; p; p = p->next)
                if (!std::strcmp(p->name, property) && p->value && p->value->value) text = p->value->value;
        }
        Free_Instance(inst);
        return text;
    }
};

Instance* allTypes(const char* id, const char* pString) {
    auto* inst = make<Instance>();
    inst->className = className("Mock_AllTypes");
    char value[] = "TRUE";
    AddToProeprtyList(&inst->properties, "InstanceID", const_cast<char*>(id), "string");
    AddToProeprtyList(&inst->properties, "PString", const_cast<char*>(pString), "string");
    AddToProeprtyList(&inst->properties, "PBoolean", value, "boolean");
    return inst;
}

TEST_P(OneBackend, CreateGetModifyDelete) {
    const std::string id = "scenario:" + modeName({GetParam(), 0});
    Instance* created = allTypes(id.c_str(), "created");
    InstanceName* name = CIM_CreateInstance(h(), created, err());
    Free_Instance(created);
    ASSERT_NE(name, nullptr) << describe(*err());
    ASSERT_NE(name->keyBindings, nullptr);
    EXPECT_STREQ(name->keyBindings->keyValue->value, id.c_str());
    EXPECT_EQ(propertyOf(name, "PString"), "created");

    auto* modified = make<NamedInstance>();
    modified->instanceName = name;
    modified->instance = allTypes(id.c_str(), "modified");
    ModifyInstance(h(), modified, 0, nullptr, err());
    ASSERT_EQ(*err(), nullptr) << describe(*err());
    EXPECT_EQ(propertyOf(name, "PString"), "modified");

    DeleteInstance(h(), name, err());
    ASSERT_EQ(*err(), nullptr) << describe(*err());
    EXPECT_EQ(propertyOf(name, "PString"), "<no instance>");
    ASSERT_NE(*err(), nullptr);
    EXPECT_STREQ((*err())->code, "6");
    Free_Error(*err());
    *err() = nullptr;
    Free_NamedInstance(modified);
}

INSTANTIATE_TEST_SUITE_P(EachWire, Backends, ::testing::Combine(::testing::Values(kDefaultWire, kStandardWire),
                                                                ::testing::Values(kHttp)),
                         modeName);
INSTANTIATE_TEST_SUITE_P(EachBackEnd, OneBackend,
                         ::testing::Values(Mode{kDefaultWire, kHttp}, Mode{kDefaultWire, kLocal},
                                           Mode{kStandardWire, kHttp}),
                         modeName);

}  // namespace
