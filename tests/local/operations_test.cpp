// The local operations through the mock broker: the shared frame (Error
// records and their sizes, silent failures, guards, log lines, console
// text) for every operation, then results end to end.
#include <dlfcn.h>

#include <functional>
#include "local_support.h"
#include "model/alloc.h"

namespace {

using namespace localtest;

const char* const kNs = "root/cimv2";

InstanceName* allTypes(const char* id) { return instanceName("Mock_AllTypes", {{"InstanceID", id}}); }
Instance* allTypesInstance(const char* id, Property* more) {
    auto* inst = make<Instance>();
    inst->className = className("Mock_AllTypes");
    inst->properties = property("InstanceID", "string", id);
    inst->properties->next = more;
    return inst;
}
// Frees what an operation gave back (read once it returned) and says whether it gave anything.
template <class R>
int done(int rc, R** result, int (*free)(R*), bool* produced) {
    *produced = *result != nullptr;
    free(*result);
    return rc;
}

TEST(Frame, EveryOperationSharesTheFrame) {
    InstanceName* cpu = opt::processor("CPU0");
    InstanceName* sys = opt::computerSystem();
    InstanceName* absent = allTypes("local:absent");
    InstanceName* target = allTypes("mock:alltypes:1");
    ObjectName* cpuName = opt::objectName(opt::processor("CPU0"));
    Instance* creation = allTypesInstance("local:never", property(nullptr, "string", "x"));  // a nameless one is passed over
    NamedInstance* modification = make<NamedInstance>();
    modification->instanceName = allTypes("mock:alltypes:2");
    modification->instance = allTypesInstance("mock:alltypes:2", property("PUint8", "uint8", "1"));
    Free_ClassName(modification->instance->className);  // the instance name's class is the one used
    modification->instance->className = className("Other_Class");
    ParamValue* unset = param("Unset", "string", nullptr);  // no value: not passed on
    using Run = std::function<int(const char* ns, Error** e, bool* produced)>;
    const struct { std::string entering; const char* leaving; int silent; Run run; } operations[] = {
        // entering "" with leaving NULL: nothing is logged; silent: the result
        // when the broker fails without a message.
        {"EnumInstances: classname: Mock_Processor", "EnumInstances", 0, [](auto ns, auto e, auto p) {
             NamedInstance* r = nullptr;
             return done(CIMC_EnumInstances(&r, "Mock_Processor", "h", "u", "p", 1, e, ns), &r, Free_NamedInstance, p); }},
        {"EnumInstanceNames: classname: Mock_Processor", "EnumInstanceNames", 0, [](auto ns, auto e, auto p) {
             InstanceName* r = nullptr;
             return done(CIMC_EnumInstanceNames(&r, "Mock_Processor", "h", "u", "p", e, ns), &r, Free_InstanceName, p); }},
        {"GetInstance: classname: Mock_Processor", "GetInstance", 0, [&](auto ns, auto e, auto p) {
             Instance* r = nullptr;
             return done(CIMC_GetInstance(&r, cpu, "h", "u", "p", e, ns), &r, Free_Instance, p); }},
        {"GetClass: classname: Mock_Processor", "GetClass", 0, [](auto ns, auto e, auto p) {
             Class* r = nullptr;
             return done(CIMC_GetClass(&r, "Mock_Processor", "h", "u", "p", e, ns), &r, Free_Class, p); }},
        {"Associators: classname: Mock_ComputerSystem, assoc: CIM_SystemDevice, result: (null)", "Associators", 0,
         [&](auto ns, auto e, auto p) {
             ObjectWithPath* r = nullptr;
             return done(CIMC_Associators(&r, sys, "CIM_SystemDevice", nullptr, nullptr, nullptr, "h", "u", "p", e, ns),
                         &r, Free_ObjectWithPath, p); }},
        {"AssociatorNames: classname: Mock_ComputerSystem, assoc: (null), result: Mock_Processor", "AssociatorNames", 0,
         [&](auto ns, auto e, auto p) {
             ObjectPath* r = nullptr;
             return done(CIMC_AssociatorNames(&r, sys, "Mock_ComputerSystem", nullptr, "Mock_Processor", nullptr,
                                              nullptr, "h", "u", "p", e, ns), &r, Free_ObjectPath, p); }},
        {"References classname: Mock_Processor", "References", 0, [&](auto ns, auto e, auto p) {
             ObjectWithPath* r = nullptr;
             return done(CIMC_References(&r, cpuName, nullptr, nullptr, 1, 1, nullptr, ns, "u", "p", e), &r,
                         Free_ObjectWithPath, p); }},
        {"ReferenceNames classname: Mock_Processor", "ReferenceNames", 0, [&](auto ns, auto e, auto p) {
             ObjectPath* r = nullptr;
             return done(CIMC_ReferenceNames(&r, cpuName, nullptr, nullptr, ns, "u", "p", e), &r, Free_ObjectPath, p); }},
        {"", nullptr, 0, [&](auto ns, auto e, auto p) {
             InstanceName* r = nullptr;
             return done(CIMC_CreateInstance(&r, creation, ns, "u", "p", e), &r, Free_InstanceName, p); }},
        {"ModifyInstance: classname: Mock_AllTypes", "ModifyInstance", 0, [&](auto ns, auto e, auto p) {
             *p = false;
             return CIMC_ModifyInstance(modification, 0, ns, "u", "p", e); }},
        {"", nullptr, -1, [&](auto ns, auto e, auto p) {
             *p = false;
             return CIMC_DeleteInstance(absent, ns, "u", "p", e); }},
        {"InvokeMethod classname: Mock_AllTypes", "InvokeMethod", 0, [&](auto ns, auto e, auto p) {
             ParamValue* r = reinterpret_cast<ParamValue*>(0x1);  // cleared first
             return done(CIMC_InvokeMethod(target, "ReturnCode", ns, unset, &r, "u", "p", e), &r, Free_ParamValue, p); }},
    };
    enum Logged { Both, LeavingOnly };
    const struct { const char* fault; bool withNamespace; bool silent; const char* code; const char* description;
                   Logged logged; const char* out; } scenarios[] = {
        {"fail:12:x", true, false, "1", "x", Both, ""},          // code text cut to the message's size
        {"fail:1234:abc", true, false, "123", "abc", Both, ""},
        {"fail-silent:6", true, true, nullptr, nullptr, Both, ""},  // no message: no result, no error
        {"fail:12:x", false, false, nullptr, nullptr, Both, ""},   // no namespace: the broker is never called
        {"connect", true, false, nullptr, nullptr, LeavingOnly, " failed the call to connect \n"},
    };
    for (const auto& s : scenarios) {
        Fault fault(s.fault);
        for (const auto& o : operations) {
            SCOPED_TRACE(std::string(s.fault) + (s.withNamespace ? "" : " without namespace") + " " + o.entering);
            LogCapture log;
            Error* error = nullptr;
            bool produced = true;
            testing::internal::CaptureStdout();
            EXPECT_EQ(o.run(s.withNamespace ? kNs : nullptr, &error, &produced), s.silent ? o.silent : -1);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), s.out);
            EXPECT_FALSE(produced);
            EXPECT_EQ(error != nullptr, s.code != nullptr);
            if (error) {
                EXPECT_STREQ(error->code, s.code);
                EXPECT_STREQ(error->description, s.description);
                Free_Error(error);
            }
            std::vector<std::string> expected;
            if (o.leaving && s.logged == Both) expected = {entering(o.entering), leaving(o.leaving)};
            if (o.leaving && s.logged == LeavingOnly) expected = {leaving(o.leaving)};
            EXPECT_EQ(log.lines(), expected);
        }
    }
    for (InstanceName* n : {cpu, sys, absent, target}) Free_InstanceName(n);
    Free_ObjectName(cpuName);
    Free_Instance(creation);
    Free_NamedInstance(modification);
    Free_ParamValue(unset);
}

TEST(Frame, MissingClassNameLogsAnEmptyCategory) {
    LogCapture log;
    Error* error = nullptr;
    NamedInstance* result = nullptr;
    Instance* instance = nullptr;
    InstanceName* classless = make<InstanceName>();
    EXPECT_EQ(CIMC_EnumInstances(&result, nullptr, nullptr, "u", "p", 0, &error, kNs), -1);
    EXPECT_EQ(CIMC_GetInstance(&instance, classless, nullptr, "u", "p", &error, kNs), -1);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{entering(""), leaving("EnumInstances"), entering(""),
                                                     leaving("GetInstance")}));
    Free_InstanceName(classless);
}

TEST(Frame, EmptyAndBrokenOffEnumerations) {
    const struct { const char* fault; const char* cls; int rc; } cases[] = {
        {nullptr, "Mock_Settings", 0}, {"enum-half", "CIM_LogicalDevice", -1}};  // has-next stays true after half
    for (const auto& c : cases) {
        Fault fault(c.fault);
        NamedInstance* instances = nullptr;
        InstanceName* names = nullptr;
        Error* error = nullptr;
        EXPECT_EQ(CIMC_EnumInstances(&instances, c.cls, nullptr, "u", "p", 1, &error, kNs), c.rc);
        EXPECT_EQ(CIMC_EnumInstanceNames(&names, c.cls, nullptr, "u", "p", &error, kNs), c.rc);
        EXPECT_TRUE(!instances && !names && !error) << c.cls;
    }
}

// A failed allocation anywhere in the mapping ends the operation with -1 and
// no result; the records built so far are kept unfreed.
TEST(Frame, AllocationFailuresLeaveNoResult) {
    for (long n = 0;; ++n) {
        NamedInstance* r = nullptr;
        Error* e = nullptr;
        cimxml::g_allocFailCountdown = n;
        int rc = CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", 1, &e, kNs);
        cimxml::g_allocFailCountdown = -1;
        ASSERT_TRUE(rc == 0 || rc == -1);
        EXPECT_EQ(rc == 0 ? 6 : 0, count(r)) << "failing allocation " << n;  // success only with the whole list
        EXPECT_EQ(e, nullptr);
        Free_NamedInstance(r);
        if (rc == 0) {
            EXPECT_GT(n, 2);
            break;
        }
        ASSERT_LT(n, 5000);
    }
}

// The path a local CreateInstance hands the broker carries the instance's
// creation keys (SFCB's four names), whatever the class's own keys are.
TEST(Results, CreationKeysGoOnThePath) {
    Instance* created = make<Instance>();
    created->className = className("Mock_ComputerSystem");
    created->properties = chain<Property>({property("Name", "string", "trace-host"), property("OSName", "string", "x"),
                                           property("CreationClassName", "string", "Mock_ComputerSystem")});
    InstanceName* name = nullptr;
    Error* e = nullptr;
    EnvScope trace("SFCB_TRACE", "1");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(CIMC_CreateInstance(&name, created, kNs, "u", "p", &e), 0);
    const std::string said = ::testing::internal::GetCapturedStderr();
    *static_cast<int*>(dlsym(dlopen("libcimcClientSfcbLocal.so", RTLD_NOW), "_sfcb_debug")) = 0;
    EXPECT_NE(said.find("createInstance path keys: Name CreationClassName\n"), std::string::npos) << said;
    EXPECT_EQ(CIMC_DeleteInstance(name, kNs, "u", "p", &e), 0);
    EXPECT_EQ(e, nullptr);
    Free_InstanceName(name);
    Free_Instance(created);
}

// Deep inheritance reaches the broker only as 1. (Results as records are
// compared with the HTTP back end's by the scenario suite.)
TEST(Results, DeepInheritanceOnlyWhenExactlyOne) {
    Error* e = nullptr;
    for (int deep : {0, 1, 2}) {
        NamedInstance* r = nullptr;
        ASSERT_EQ(CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", deep, &e, kNs), 0);
        EXPECT_EQ(count(r), 6);
        ASSERT_NE(r, nullptr);
        EXPECT_NE(r->instance->className, r->instanceName->className);  // two records, one name each
        bool subclassProperty = false;
        for (NamedInstance* ni = r; ni; ni = ni->next) subclassProperty |= opt::named(ni->instance->properties, "MaxClockSpeed") != nullptr;
        EXPECT_EQ(subclassProperty, deep == 1) << deep;
        Free_NamedInstance(r);
    }
    EXPECT_EQ(e, nullptr);
}

}  // namespace
