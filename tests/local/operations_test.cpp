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
    inst->properties = property("InstanceID", "string", id);
    inst->properties->next = more;
    return inst;
}
ObjectName* objectName(InstanceName* path) {
    auto* on = make<ObjectName>();
    on->instanceName = path;
    return on;
}

// Runs an operation in namespace `ns`, frees what it gave back and says
// whether it gave anything.
using Run = std::function<int(const char* ns, Error** error, bool* produced)>;
template <class R, class F, class Free>
Run op(F call, Free free) {
    return [=](const char* ns, Error** e, bool* produced) {
        R* r = nullptr;
        int rc = call(&r, ns, e);
        *produced = r != nullptr;
        free(r);
        return rc;
    };
}
struct Operation {
    std::string entering;  // Entering category; empty with `leaving` NULL: nothing is logged
    const char* leaving;
    Run run;
    int silent;  // the result when the broker fails without a message
};

// Each operation's records are built and freed inside its run.
template <class T, class F>
auto with(T* (*build)(), int (*free)(T*), F call) {
    T* arg = build();
    int rc = call(arg);
    free(arg);
    return rc;
}
ObjectName* cpuName() { return objectName(cpu0()); }
NamedInstance* modification() {
    NamedInstance* ni = make<NamedInstance>();
    ni->instanceName = allTypes("mock:alltypes:2");
    ni->instance = allTypesInstance("mock:alltypes:2", property("PUint8", "uint8", "1"));
    return ni;
}
Instance* creation() { return allTypesInstance("local:never", nullptr); }
InstanceName* absent() { return allTypes("local:absent"); }
InstanceName* allTypes1() { return allTypes("mock:alltypes:1"); }

std::vector<Operation> operations() {
    using R = NamedInstance;  // result type of the operations that give none
    return {
        {"EnumInstances: classname: Mock_Processor", "EnumInstances", op<NamedInstance>([](auto r, auto ns, auto e) {
             return CIMC_EnumInstances(r, "Mock_Processor", "h", "u", "p", 1, e, ns); }, Free_NamedInstance), 0},
        {"EnumInstanceNames: classname: Mock_Processor", "EnumInstanceNames", op<InstanceName>([](auto r, auto ns, auto e) {
             return CIMC_EnumInstanceNames(r, "Mock_Processor", "h", "u", "p", e, ns); }, Free_InstanceName), 0},
        {"GetInstance: classname: Mock_Processor", "GetInstance", op<Instance>([](auto r, auto ns, auto e) {
             return with(cpu0, Free_InstanceName, [&](InstanceName* n) {
                 return CIMC_GetInstance(r, n, "h", "u", "p", e, ns); }); }, Free_Instance), 0},
        {"GetClass: classname: Mock_Processor", "GetClass", op<Class>([](auto r, auto ns, auto e) {
             return CIMC_GetClass(r, "Mock_Processor", "h", "u", "p", e, ns); }, Free_Class), 0},
        {"Associators: classname: Mock_ComputerSystem, assoc: CIM_SystemDevice, result: (null)", "Associators",
         op<ObjectWithPath>([](auto r, auto ns, auto e) {
             return with(server, Free_InstanceName, [&](InstanceName* n) {
                 return CIMC_Associators(r, n, "CIM_SystemDevice", nullptr, nullptr, nullptr, "h", "u", "p", e, ns);
             }); }, Free_ObjectWithPath), 0},
        {"AssociatorNames: classname: Mock_ComputerSystem, assoc: (null), result: Mock_Processor", "AssociatorNames",
         op<ObjectPath>([](auto r, auto ns, auto e) {
             return with(server, Free_InstanceName, [&](InstanceName* n) {
                 return CIMC_AssociatorNames(r, n, "Mock_ComputerSystem", nullptr, "Mock_Processor", nullptr,
                                             nullptr, "h", "u", "p", e, ns);
             }); }, Free_ObjectPath), 0},
        {"References classname: Mock_Processor", "References", op<ObjectWithPath>([](auto r, auto ns, auto e) {
             return with(cpuName, Free_ObjectName, [&](ObjectName* n) {
                 return CIMC_References(r, n, nullptr, nullptr, 1, 1, nullptr, ns, "u", "p", e); });
         }, Free_ObjectWithPath), 0},
        {"ReferenceNames classname: Mock_Processor", "ReferenceNames", op<ObjectPath>([](auto r, auto ns, auto e) {
             return with(cpuName, Free_ObjectName, [&](ObjectName* n) {
                 return CIMC_ReferenceNames(r, n, nullptr, nullptr, ns, "u", "p", e); });
         }, Free_ObjectPath), 0},
        {"", nullptr, op<InstanceName>([](auto r, auto ns, auto e) {
             return with(creation, Free_Instance, [&](Instance* i) {
                 return CIMC_CreateInstance(r, i, ns, "u", "p", e); }); }, Free_InstanceName), 0},
        {"ModifyInstance: classname: Mock_AllTypes", "ModifyInstance", op<R>([](auto, auto ns, auto e) {
             return with(modification, Free_NamedInstance, [&](NamedInstance* ni) {
                 return CIMC_ModifyInstance(ni, 0, ns, "u", "p", e); }); }, Free_NamedInstance), 0},
        {"", nullptr, op<R>([](auto, auto ns, auto e) {
             return with(absent, Free_InstanceName, [&](InstanceName* n) {
                 return CIMC_DeleteInstance(n, ns, "u", "p", e); }); }, Free_NamedInstance), -1},
        {"InvokeMethod classname: Mock_AllTypes", "InvokeMethod", op<ParamValue>([](auto r, auto ns, auto e) {
             *r = reinterpret_cast<ParamValue*>(0x1);  // cleared first
             return with(allTypes1, Free_InstanceName, [&](InstanceName* n) {
                 return CIMC_InvokeMethod(n, "ReturnCode", ns, nullptr, r, "u", "p", e); }); }, Free_ParamValue), 0},
    };
}

TEST(Frame, EveryOperationSharesTheFrame) {
    enum Logged { Both, LeavingOnly };
    const struct { const char* fault; bool withNamespace; bool silent; const char* code; Logged logged; const char* out; }
        scenarios[] = {
            {"fail:12:x", true, false, "1", Both, ""},       // code text cut to the message's size
            {"fail-silent:6", true, true, nullptr, Both, ""},  // no message: no result, no error
            {"fail:12:x", false, false, nullptr, Both, ""},  // no namespace: the broker is never called
            {"connect", true, false, nullptr, LeavingOnly, " failed the call to connect \n"},
        };
    for (const auto& s : scenarios) {
        Fault fault(s.fault);
        for (const auto& o : operations()) {
            SCOPED_TRACE(std::string(s.fault) + (s.withNamespace ? "" : " without namespace") + " " + o.entering);
            LogCapture log;
            Error* error = nullptr;
            bool produced = true;
            testing::internal::CaptureStdout();
            EXPECT_EQ(o.run(s.withNamespace ? kNs : nullptr, &error, &produced), s.silent ? o.silent : -1);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), s.out);
            EXPECT_FALSE(produced);
            if (s.code) {
                ASSERT_NE(error, nullptr);
                EXPECT_STREQ(error->code, s.code);
                EXPECT_STREQ(error->description, "x");
                Free_Error(error);
            } else {
                EXPECT_EQ(error, nullptr);
            }
            std::vector<std::string> expected;
            if (o.leaving && s.logged == Both) expected = {entering(o.entering), leaving(o.leaving)};
            if (o.leaving && s.logged == LeavingOnly) expected = {leaving(o.leaving)};
            EXPECT_EQ(log.lines(), expected);
        }
    }
}

TEST(Frame, ErrorTextsAreBothSizedFromTheMessage) {
    const struct { const char* fault; const char* code; const char* description; } cases[] = {
        {"fail:1234:abc", "123", "abc"}, {"fail:100:ab", "10", "ab"}, {"fail:6:no such thing", "6", "no such thing"}};
    for (const auto& c : cases) {
        Fault fault(c.fault);
        Error* error = nullptr;
        NamedInstance* result = nullptr;
        EXPECT_EQ(CIMC_EnumInstances(&result, "Mock_Processor", nullptr, "u", "p", 0, &error, kNs), -1);
        ASSERT_NE(error, nullptr) << c.fault;
        EXPECT_STREQ(error->code, c.code);
        EXPECT_STREQ(error->description, c.description);
        Free_Error(error);
    }
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
    NamedInstance* instances = nullptr;
    InstanceName* names = nullptr;
    Error* error = nullptr;
    EXPECT_EQ(CIMC_EnumInstances(&instances, "Mock_Settings", nullptr, "u", "p", 1, &error, kNs), 0);
    EXPECT_EQ(CIMC_EnumInstanceNames(&names, "Mock_Settings", nullptr, "u", "p", &error, kNs), 0);
    EXPECT_EQ(instances, nullptr);
    EXPECT_EQ(names, nullptr);

    Fault fault("enum-half");  // has-next keeps answering true after half the items
    EXPECT_EQ(CIMC_EnumInstances(&instances, "CIM_LogicalDevice", nullptr, "u", "p", 1, &error, kNs), -1);
    EXPECT_EQ(CIMC_EnumInstanceNames(&names, "CIM_LogicalDevice", nullptr, "u", "p", &error, kNs), -1);
    EXPECT_EQ(instances, nullptr);
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(error, nullptr);
}

// A failed allocation anywhere in the mapping ends the operation with -1 and
// no result; the records built so far are kept unfreed.
TEST(Frame, AllocationFailuresLeaveNoResult) {
    InstanceName* path = allTypes("mock:alltypes:1");
    ParamValue* in = chain<ParamValue>({param("S", "string", "x"), param("U32", "uint32", "7")});
    const std::function<int(bool*)> runs[] = {
        [](bool* produced) {
            NamedInstance* r = nullptr;
            Error* e = nullptr;
            int rc = CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", 1, &e, kNs);
            *produced = r != nullptr || e != nullptr;
            Free_NamedInstance(r);
            return rc;
        },
        [&](bool* produced) {
            ParamValue* out = nullptr;
            Error* e = nullptr;
            int rc = CIMC_InvokeMethod(path, "Echo", kNs, in, &out, "u", "p", &e);
            *produced = out != nullptr || e != nullptr;
            Free_ParamValue(out);
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
    Free_ParamValue(in);
    Free_InstanceName(path);
}

// Each reading operation calls its own broker operation and keeps the
// broker's order.
TEST(Results, ReadingOperations) {
    Error* error = nullptr;
    InstanceName* sys = server();
    ObjectName* cpu = objectName(cpu0());
    NamedInstance* instances = nullptr;
    ObjectWithPath* associators = nullptr;
    ObjectPath* associatorNames = nullptr;
    ObjectWithPath* references = nullptr;
    EXPECT_EQ(CIMC_EnumInstances(&instances, "CIM_LogicalDevice", nullptr, "u", "p", 1, &error, kNs), 0);
    EXPECT_EQ(CIMC_Associators(&associators, sys, "CIM_SystemDevice", nullptr, nullptr, nullptr, nullptr, "u", "p",
                               &error, kNs), 0);
    EXPECT_EQ(CIMC_AssociatorNames(&associatorNames, sys, "Mock_ComputerSystem", "CIM_SystemDevice",
                                   "Mock_Processor", nullptr, nullptr, nullptr, "u", "p", &error, kNs), 0);
    EXPECT_EQ(CIMC_References(&references, cpu, nullptr, nullptr, 0, 0, nullptr, kNs, "u", "p", &error), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(count(instances), 6);
    ASSERT_NE(instances, nullptr);
    EXPECT_NE(instances->instance->className, instances->instanceName->className);  // two records, one name each
    EXPECT_EQ(count(associators), 6);
    EXPECT_EQ(count(associatorNames), 2);
    EXPECT_EQ(count(references), 1);
    Free_NamedInstance(instances);
    Free_ObjectWithPath(associators);
    Free_ObjectPath(associatorNames);
    Free_ObjectWithPath(references);
    Free_InstanceName(sys);
    Free_ObjectName(cpu);
}

const char* propertyText(const Instance* inst, const char* name) {
    for (const Property* p = inst ? inst->properties : nullptr; p; p = p->next)
        if (p->name && std::strcmp(p->name, name) == 0) return p->value ? p->value->value : nullptr;
    return nullptr;
}

TEST(Results, DeepInheritanceOnlyWhenExactlyOne) {
    for (int deep : {0, 1, 2}) {
        NamedInstance* r = nullptr;
        Error* e = nullptr;
        ASSERT_EQ(CIMC_EnumInstances(&r, "CIM_LogicalDevice", nullptr, "u", "p", deep, &e, kNs), 0);
        bool subclassProperty = false;
        for (NamedInstance* ni = r; ni; ni = ni->next)
            subclassProperty = subclassProperty || propertyText(ni->instance, "MaxClockSpeed");
        EXPECT_EQ(subclassProperty, deep == 1) << deep;
        Free_NamedInstance(r);
    }
}

TEST(Results, CreateModifyDelete) {
    Error* error = nullptr;
    InstanceName* created = nullptr;
    Instance* fresh = allTypesInstance("local:rt", chain<Property>({property("PUint32", "uint32", "4294967295"),
                                                                    property("PBoolean", "boolean", "TRUE"),
                                                                    property("PString", "string", "made")}));
    ASSERT_EQ(CIMC_CreateInstance(&created, fresh, kNs, "u", "p", &error), 0);
    ASSERT_NE(created, nullptr);
    EXPECT_STREQ(created->className->name, "Mock_AllTypes");
    InstanceName* name = allTypes("local:rt");
    NamedInstance* change = make<NamedInstance>();
    change->instanceName = allTypes("local:rt");
    change->instance = allTypesInstance("local:rt", property("PString", "string", "changed"));
    EXPECT_EQ(CIMC_ModifyInstance(change, 0, kNs, "u", "p", &error), 0);
    Instance* read = nullptr;
    ASSERT_EQ(CIMC_GetInstance(&read, name, nullptr, "u", "p", &error, kNs), 0);
    EXPECT_STREQ(propertyText(read, "PUint32"), "2147483647");
    EXPECT_STREQ(propertyText(read, "PBoolean"), "TRUE");
    EXPECT_STREQ(propertyText(read, "PString"), "changed");
    EXPECT_EQ(CIMC_DeleteInstance(name, kNs, "u", "p", &error), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(CIMC_DeleteInstance(name, kNs, "u", "p", &error), -1);  // gone: the broker's error
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->code, "6");
    Free_Error(error);
    Free_Instance(read);
    Free_NamedInstance(change);
    Free_InstanceName(name);
    Free_InstanceName(created);
    Free_Instance(fresh);
}

const ParamValue* findParam(const ParamValue* list, const char* name) {
    for (; list; list = list->next)
        if (list->name && std::strcmp(list->name, name) == 0) return list;
    return nullptr;
}

TEST(Results, InvokeMethod) {
    Error* error = nullptr;
    InstanceName* path = allTypes("mock:alltypes:1");
    ParamValue* out = nullptr;
    ASSERT_EQ(CIMC_InvokeMethod(path, "ReturnCode", kNs, nullptr, &out, "u", "p", &error), 0);
    ASSERT_TRUE(out && out->value);
    EXPECT_STREQ(out->name, "ReturnValue");
    EXPECT_STREQ(out->value->value, "4096");
    Free_ParamValue(out);

    // The in-parameters reach the broker through the builders.
    ParamValue* in = chain<ParamValue>({param("S", "string", "echoed"), param("U32", "uint32", "4294967295"),
                                        param("U16Array", "uint16", nullptr)});
    in->next->next->valueArray = make<ValueArray>();
    in->next->next->valueArray->value = values({"1", "2"});
    ASSERT_EQ(CIMC_InvokeMethod(path, "Echo", kNs, in, &out, "u", "p", &error), 0);
    const ParamValue* s = findParam(out, "S");
    const ParamValue* u32 = findParam(out, "U32");
    const ParamValue* u16 = findParam(out, "U16Array");
    ASSERT_TRUE(s && s->value && u32 && u32->value && u16 && u16->valueArray);
    EXPECT_STREQ(s->value->value, "echoed");
    EXPECT_STREQ(u32->value->value, "2147483647");
    EXPECT_EQ(count(u16->valueArray->value), 2);
    Free_ParamValue(out);
    Free_ParamValue(in);

    EXPECT_EQ(CIMC_InvokeMethod(path, "Fail", kNs, nullptr, &out, "u", "p", &error), -1);
    EXPECT_EQ(out, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->code, "1");
    Free_Error(error);
    Free_InstanceName(path);
}

}  // namespace
