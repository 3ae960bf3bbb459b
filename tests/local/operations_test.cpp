// The local operations through the mock broker: the shared frame (Error
// records and their sizes, silent failures, guards, log lines, console
// text) for every operation, then results end to end.
#include <functional>

#include "local_support.h"
#include "model/alloc.h"

namespace {

using namespace localtest;

const char* const kNs = "root/cimv2";

InstanceName* cpu0() {
    return instanceName("Mock_Processor", {{"SystemCreationClassName", "Mock_ComputerSystem"},
                                           {"SystemName", "mock-server.example.com"},
                                           {"CreationClassName", "Mock_Processor"}, {"DeviceID", "CPU0"}});
}
InstanceName* server() {
    return instanceName("Mock_ComputerSystem",
                        {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
}
InstanceName* allTypes(const char* id) { return instanceName("Mock_AllTypes", {{"InstanceID", id}}); }
Instance* allTypesInstance(const char* id, Property* more) {
    auto* inst = make<Instance>();
    inst->className = className("Mock_AllTypes");
    inst->properties = chain<Property>({property("InstanceID", "string", id), more});
    return inst;
}
ObjectName* objectName(InstanceName* path) {
    auto* on = make<ObjectName>();
    on->instanceName = path;
    return on;
}
// Frees what an operation gave back (read once it returned) and says whether it gave anything.
template <class R>
int done(int rc, R** result, int (*free)(R*), bool* produced) {
    *produced = *result != nullptr;
    free(*result);
    return rc;
}

TEST(Frame, EveryOperationSharesTheFrame) {
    InstanceName* cpu = cpu0();
    InstanceName* sys = server();
    InstanceName* absent = allTypes("local:absent");
    InstanceName* target = allTypes("mock:alltypes:1");
    ObjectName* cpuName = objectName(cpu0());
    Instance* creation = allTypesInstance("local:never", nullptr);
    NamedInstance* modification = make<NamedInstance>();
    modification->instanceName = allTypes("mock:alltypes:2");
    modification->instance = allTypesInstance("mock:alltypes:2", property("PUint8", "uint8", "1"));
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
             return done(CIMC_InvokeMethod(target, "ReturnCode", ns, nullptr, &r, "u", "p", e), &r, Free_ParamValue, p); }},
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
    const std::function<int(bool*)> runs[] = {
        [](bool* produced) {
            NamedInstance* r = nullptr;
            Error* e = nullptr;
            int rc = CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", 1, &e, kNs);
            *produced = r != nullptr || e != nullptr;
            Free_NamedInstance(r);
            return rc;
        },
    };
    for (const auto& run : runs) {
        for (long n = 0;; ++n) {
            bool produced = false;
            cimxml::g_allocFailCountdown = n;
            int rc = run(&produced);
            cimxml::g_allocFailCountdown = -1;
            ASSERT_TRUE(rc == 0 || rc == -1);
            if (rc == 0) {
                EXPECT_TRUE(produced);
                EXPECT_GT(n, 2);
                break;
            }
            EXPECT_FALSE(produced) << "failing allocation " << n;
            ASSERT_LT(n, 5000);
        }
    }
}

template <class T>
const T* find(const T* list, const char* name) {
    while (list && !(list->name && std::strcmp(list->name, name) == 0)) list = list->next;
    return list;
}
const char* propertyText(const Instance* inst, const char* name) {
    const Property* p = find(inst ? inst->properties : nullptr, name);
    return p && p->value ? p->value->value : nullptr;
}

// Each reading operation calls its own broker operation; deep inheritance
// reaches the broker only as 1.
TEST(Results, ReadingOperations) {
    InstanceName* sys = server();
    ObjectName* cpu = objectName(cpu0());
    ObjectWithPath* associators = nullptr;
    ObjectPath* associatorNames = nullptr;
    ObjectWithPath* references = nullptr;
    Error* e = nullptr;
    EXPECT_EQ(CIMC_Associators(&associators, sys, "CIM_SystemDevice", nullptr, nullptr, nullptr, nullptr, "u", "p",
                               &e, kNs), 0);
    EXPECT_EQ(CIMC_AssociatorNames(&associatorNames, sys, "Mock_ComputerSystem", "CIM_SystemDevice",
                                   "Mock_Processor", nullptr, nullptr, nullptr, "u", "p", &e, kNs), 0);
    EXPECT_EQ(CIMC_References(&references, cpu, nullptr, nullptr, 0, 0, nullptr, kNs, "u", "p", &e), 0);
    EXPECT_EQ(count(associators), 6);
    EXPECT_EQ(count(associatorNames), 2);
    EXPECT_EQ(count(references), 1);
    Free_ObjectWithPath(associators);
    Free_ObjectPath(associatorNames);
    Free_ObjectWithPath(references);
    Free_InstanceName(sys);
    Free_ObjectName(cpu);
    for (int deep : {0, 1, 2}) {
        NamedInstance* r = nullptr;
        ASSERT_EQ(CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", deep, &e, kNs), 0);
        EXPECT_EQ(count(r), 6);
        ASSERT_NE(r, nullptr);
        EXPECT_NE(r->instance->className, r->instanceName->className);  // two records, one name each
        bool subclassProperty = false;
        for (NamedInstance* ni = r; ni; ni = ni->next) subclassProperty |= propertyText(ni->instance, "MaxClockSpeed") != nullptr;
        EXPECT_EQ(subclassProperty, deep == 1) << deep;
        Free_NamedInstance(r);
    }
    EXPECT_EQ(e, nullptr);
}

TEST(Results, CreateModifyDeleteAndInvoke) {
    Error* error = nullptr;
    InstanceName* created = nullptr;
    Instance* fresh = allTypesInstance("local:rt", chain<Property>({property("PUint32", "uint32", "4294967295"),
                                                                    property("PBoolean", "boolean", "TRUE"),
                                                                    property("PString", "string", "made")}));
    ASSERT_EQ(CIMC_CreateInstance(&created, fresh, kNs, "u", "p", &error), 0);
    ASSERT_NE(created, nullptr);
    EXPECT_STREQ(created->className->name, "Mock_AllTypes");
    NamedInstance* change = make<NamedInstance>();
    change->instanceName = allTypes("local:rt");
    change->instance = allTypesInstance("local:rt", property("PString", "string", "changed"));
    EXPECT_EQ(CIMC_ModifyInstance(change, 0, kNs, "u", "p", &error), 0);
    Instance* read = nullptr;
    ASSERT_EQ(CIMC_GetInstance(&read, change->instanceName, nullptr, "u", "p", &error, kNs), 0);
    EXPECT_STREQ(propertyText(read, "PUint32"), "2147483647");
    EXPECT_STREQ(propertyText(read, "PBoolean"), "TRUE");
    EXPECT_STREQ(propertyText(read, "PString"), "changed");
    EXPECT_EQ(CIMC_DeleteInstance(change->instanceName, kNs, "u", "p", &error), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(CIMC_DeleteInstance(change->instanceName, kNs, "u", "p", &error), -1);  // gone: the broker's error
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->code, "6");
    Free_Error(error);
    error = nullptr;
    Free_Instance(read);
    Free_NamedInstance(change);
    Free_InstanceName(created);
    Free_Instance(fresh);

    // The in-parameters reach the broker through the builders and come back.
    InstanceName* path = allTypes("mock:alltypes:1");
    ParamValue* in = chain<ParamValue>({param("S", "string", "echoed"), param("U32", "uint32", "4294967295"),
                                        param("U16Array", "uint16", nullptr)});
    in->next->next->valueArray = make<ValueArray>();
    in->next->next->valueArray->value = values({"1", "2"});
    ParamValue* out = nullptr;
    ASSERT_EQ(CIMC_InvokeMethod(path, "Echo", kNs, in, &out, "u", "p", &error), 0);
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out->name, "ReturnValue");
    const ParamValue* s = find(out, "S");
    const ParamValue* u32 = find(out, "U32");
    const ParamValue* u16 = find(out, "U16Array");
    ASSERT_TRUE(s && s->value && u32 && u32->value && u16 && u16->valueArray);
    EXPECT_STREQ(s->value->value, "echoed");
    EXPECT_STREQ(u32->value->value, "2147483647");
    EXPECT_EQ(count(u16->valueArray->value), 2);
    Free_ParamValue(out);
    Free_ParamValue(in);
    EXPECT_EQ(CIMC_InvokeMethod(path, "ReturnCode", kNs, nullptr, &out, "u", "p", &error), 0);
    ASSERT_TRUE(out && out->value);
    EXPECT_STREQ(out->value->value, "4096");
    Free_ParamValue(out);
    EXPECT_EQ(CIMC_InvokeMethod(path, "Fail", kNs, nullptr, &out, "u", "p", &error), -1);
    EXPECT_EQ(out, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->code, "1");
    Free_Error(error);
    Free_InstanceName(path);
}

}  // namespace
