// Every entry point over HTTP against the mock object manager: the record
// trees that come back are compared with the mock's repository.
#include <gtest/gtest.h>

#include <algorithm>
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

class MockCimom : public ::testing::Test {
protected:
    void start(cimmock::ServerOptions options = {}) {
        options.repoDir = cimmock::sampleRepositoryDir();
        server_ = std::make_unique<cimmock::Server>(options);
        std::string err;
        ASSERT_TRUE(server_->start(&err)) << err;
        handle_ = client_Configuration("127.0.0.1", server_->port(), kNs, 5000, "user", "secret");
        ASSERT_NE(handle_, nullptr);
        handle_->interfaceType = 0;  // whatever the machine's marker file says
    }
    void SetUp() override {
        if (!server_) start();
    }
    void TearDown() override {
        Free_client_Configuration(handle_);
        EXPECT_EQ(error_, nullptr) << takeError(&error_);
    }
    cimmock::Repository& repo() { return server_->repository(); }

    // Compares the properties of a returned instance with the repository's.
    void expectSameAsRepository(const Instance* got, const cimmock::Instance& want) {
        ASSERT_NE(got, nullptr);
        ASSERT_NE(got->className, nullptr);
        EXPECT_STREQ(got->className->name, want.className.c_str());
        for (const cimmock::Property& p : want.properties) {
            SCOPED_TRACE(p.name);
            if (p.type == cimmock::Type::Reference || !p.embeddedClass().empty()) continue;
            if (p.isArray) {
                const PropertyArray* a = named(got->propertyArrays, p.name.c_str());
                ASSERT_NE(a, nullptr);
                std::vector<std::string> texts;
                if (a->valueArray)
                    for (const Value* v = a->valueArray->value; v; v = v->next) texts.push_back(v->value ? v->value : "");
                EXPECT_EQ(texts, p.value.isNull ? std::vector<std::string>{} : p.value.texts);
            } else {
                EXPECT_EQ(text(got, p.name.c_str()), p.value.isNull || p.value.texts.empty() ? "<null>" : p.value.texts[0]);
            }
        }
    }

    std::unique_ptr<cimmock::Server> server_;
    ClientHandle* handle_ = nullptr;
    Error* error_ = nullptr;
};

std::set<std::string> names(const ClassName* chain) {
    std::set<std::string> out;
    for (; chain; chain = chain->next) out.insert(chain->name);
    return out;
}

TEST_F(MockCimom, ClassesMatchTheRepository) {
    ClassName* all = EnumerateClassNames(handle_, nullptr, 1, &error_);
    auto want = repo().enumerateClassNames(kNs, "", true);
    EXPECT_EQ(names(all), std::set<std::string>(want.begin(), want.end()));
    Free_ClassName(all);

    ClassName* device = className("CIM_LogicalDevice");
    ClassName* direct = EnumerateClassNames(handle_, device, 0, &error_);
    EXPECT_EQ(names(direct), (std::set<std::string>{"CIM_Processor", "CIM_DiskDrive", "CIM_NetworkPort"}));
    Free_ClassName(direct);

    Class* classes = CIM_EnumerateClasses(handle_, device, 1, 0, 1, 2, &error_);
    std::set<std::string> got;
    for (const Class* c = classes; c; c = c->next) got.insert(c->name);
    want = repo().enumerateClassNames(kNs, "CIM_LogicalDevice", true);
    EXPECT_EQ(got, std::set<std::string>(want.begin(), want.end()));
    Free_Class(classes);
    Free_ClassName(device);

    ClassName* processor = className("Mock_Processor");
    Class* cls = CIM_GetClass(handle_, processor, 0, 1, 1, nullptr, &error_);
    ASSERT_NE(cls, nullptr);
    const cimmock::Class* mock = repo().findClass(kNs, "Mock_Processor");
    EXPECT_STREQ(cls->name, "Mock_Processor");
    EXPECT_STREQ(cls->superClass, "CIM_Processor");
    EXPECT_EQ(count(cls->properties) + count(cls->propertyArrays) + count(cls->propertyReferences),
              static_cast<int>(mock->properties.size()));
    const Property* speed = named(cls->properties, "MaxClockSpeed");
    ASSERT_NE(speed, nullptr);
    EXPECT_STREQ(speed->type, "uint32");
    EXPECT_STREQ(speed->classOrigin, "CIM_Processor");
    EXPECT_NE(named(speed->qualifiers, "Units"), nullptr);
    EXPECT_EQ(count(cls->methods), static_cast<int>(mock->methods.size()));
    Free_Class(cls);
    Free_ClassName(processor);
}

TEST_F(MockCimom, InstancesMatchTheRepository) {
    ClassName* cpu = className("CIM_Processor");
    NamedInstance* list = EnumerateInstances(handle_, cpu, 2, 1, 2, 2, nullptr, &error_);
    auto want = repo().instancesOf(kNs, "CIM_Processor");
    ASSERT_EQ(count(list), static_cast<int>(want.size()));
    for (const NamedInstance* n = list; n; n = n->next) {
        auto it = std::find_if(want.begin(), want.end(), [&](const cimmock::PathedInstance& p) {
            return p.instance.findProperty("DeviceID")->value.texts[0] == key(n->instanceName, "DeviceID");
        });
        ASSERT_NE(it, want.end());
        EXPECT_STREQ(n->instanceName->className->name, "Mock_Processor");
        EXPECT_EQ(count(n->instanceName->keyBindings), 4);
        expectSameAsRepository(n->instance, it->instance);
    }
    Free_NamedInstance(list);
    Free_ClassName(cpu);

    ClassName* device = className("CIM_LogicalDevice");
    InstanceName* namesGot = EnumerateInstanceNames(handle_, device, &error_);
    EXPECT_EQ(count(namesGot), static_cast<int>(repo().instanceNames(kNs, "CIM_LogicalDevice").size()));
    Free_InstanceName(namesGot);
    Free_ClassName(device);

    // Every type, arrays and the embedded instance.
    InstanceName* all = instanceName("Mock_AllTypes", {{"InstanceID", "mock:alltypes:1", "string"}});
    Instance* inst = GetInstance(handle_, all, 0, 0, 0, nullptr, &error_);
    cimmock::ObjectPath path = cimmock::ObjectPath::parse("Mock_AllTypes.InstanceID=\"mock:alltypes:1\"");
    expectSameAsRepository(inst, *repo().findInstance(kNs, path));
    const Property* embedded = named(inst->properties, "PEmbedded");
    ASSERT_TRUE(embedded && embedded->value && embedded->value->instance);
    EXPECT_EQ(text(embedded->value->instance, "Mode"), "performance");
    const PropertyReference* ref = named(inst->propertyReferences, "PReference");
    ASSERT_TRUE(ref && ref->valueReference && ref->valueReference->instancePath);
    EXPECT_EQ(key(ref->valueReference->instancePath->instanceName, "Name"), "mock-server.example.com");
    Free_Instance(inst);
    Free_InstanceName(all);
}

TEST_F(MockCimom, CreateGetModifyGetDeleteGetNotFound) {
    auto* created = make<Instance>();
    created->className = className("Mock_Processor");
    created->properties = property(
        "SystemCreationClassName", "Mock_ComputerSystem", "string",
        property("SystemName", "mock-server.example.com", "string",
                 property("CreationClassName", "Mock_Processor", "string",
                          property("DeviceID", "CPU9", "string", property("ElementName", "Spare", "string")))));
    InstanceName* name = CIM_CreateInstance(handle_, created, &error_);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name->className->name, "Mock_Processor");
    EXPECT_EQ(key(name, "DeviceID"), "CPU9");
    EXPECT_EQ(text(created, "ElementName"), "Spare");  // the caller's record is untouched

    Instance* got = GetInstance(handle_, name, 2, 2, 2, nullptr, &error_);
    EXPECT_EQ(text(got, "ElementName"), "Spare");
    Free_Instance(got);

    auto* modified = make<NamedInstance>();
    modified->instanceName = name;
    modified->instance = created;
    std::free(named(created->properties, "ElementName")->value->value);
    const_cast<Property*>(named(created->properties, "ElementName"))->value->value = s("Renamed");
    EXPECT_EQ(ModifyInstance(handle_, modified, 0, nullptr, &error_), nullptr);
    EXPECT_EQ(error_, nullptr);
    got = GetInstance(handle_, name, 2, 2, 2, nullptr, &error_);
    EXPECT_EQ(text(got, "ElementName"), "Renamed");
    Free_Instance(got);

    EXPECT_EQ(DeleteInstance(handle_, name, &error_), nullptr);
    EXPECT_EQ(error_, nullptr);
    EXPECT_EQ(GetInstance(handle_, name, 2, 2, 2, nullptr, &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "6:");
    // Deleting again and modifying the gone instance report the same way.
    EXPECT_EQ(DeleteInstance(handle_, name, &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "6:");
    ModifyInstance(handle_, modified, 2, nullptr, &error_);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "6:");
    Free_NamedInstance(modified);
}

TEST_F(MockCimom, AssociationsBothWays) {
    ObjectName* system = objectName(computerSystem());
    ClassName* assoc = className("CIM_SystemDevice");
    ObjectWithPath* devices = Associators(handle_, system, assoc, nullptr, "GroupComponent", "PartComponent", 2, 2,
                                          nullptr, &error_);
    EXPECT_EQ(count(devices), 6);
    std::set<std::string> ids;
    for (const ObjectWithPath* o = devices; o; o = o->next) {
        ASSERT_TRUE(o->instancePath && o->instance);
        ids.insert(key(o->instancePath->instanceName, "DeviceID"));
        EXPECT_EQ(text(o->instance, "DeviceID"), key(o->instancePath->instanceName, "DeviceID"));
    }
    EXPECT_EQ(ids, (std::set<std::string>{"CPU0", "CPU1", "disk0", "disk1", "eth0", "eth1"}));
    Free_ObjectWithPath(devices);

    ObjectName* cpu = objectName(processor("CPU0"));
    ObjectWithPath* back = Associators(handle_, cpu, assoc, nullptr, nullptr, nullptr, 2, 2, nullptr, &error_);
    ASSERT_EQ(count(back), 1);
    EXPECT_EQ(text(back->instance, "Name"), "mock-server.example.com");
    Free_ObjectWithPath(back);

    ObjectPath* paths = AssociatorNames(handle_, cpu, nullptr, nullptr, nullptr, nullptr, &error_);
    ASSERT_EQ(count(paths), 1);
    ASSERT_NE(paths->instancePath, nullptr);
    EXPECT_STREQ(paths->instancePath->instanceName->className->name, "Mock_ComputerSystem");
    Free_ObjectPath(paths);

    ObjectWithPath* refs = References(handle_, cpu, assoc, "PartComponent", 2, 2, nullptr, &error_);
    ASSERT_EQ(count(refs), 1);
    EXPECT_STREQ(refs->instance->className->name, "CIM_SystemDevice");
    EXPECT_EQ(count(refs->instance->propertyReferences), 2);
    Free_ObjectWithPath(refs);
    refs = References(handle_, cpu, nullptr, "GroupComponent", 2, 2, nullptr, &error_);
    EXPECT_EQ(refs, nullptr);  // the processor plays no GroupComponent

    // A standard server answers ReferenceNames with OBJECTPATHs, which this
    // client does not take: NULL without an error.
    EXPECT_EQ(ReferenceNames(handle_, system, assoc, nullptr, &error_), nullptr);
    Free_ObjectName(system);
    Free_ObjectName(cpu);
    Free_ClassName(assoc);
}

TEST_F(MockCimom, ExecQuery) {
    ObjectWithPath* busy =
        ExecQuery(handle_, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", &error_);
    ASSERT_EQ(count(busy), 1);
    EXPECT_EQ(text(busy->instance, "DeviceID"), "CPU1");
    EXPECT_EQ(key(busy->instancePath->instanceName, "DeviceID"), "CPU1");
    Free_ObjectWithPath(busy);

    EXPECT_EQ(ExecQuery(handle_, "WQL", "SELECT * FROM CIM_Processor WHERE", &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 3), "15:");
    EXPECT_EQ(ExecQuery(handle_, "SQL-99", "SELECT * FROM CIM_Processor", &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 3), "14:");
}

TEST_F(MockCimom, InvokeMethodWithInAndOutParameters) {
    // Static method on the class path: the in-parameters come back.
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    ParamValue* in = param("S", "hello", "string", param("U32", "42", "uint32"));
    ParamValue* out = reinterpret_cast<ParamValue*>(&out);  // must be reset
    ASSERT_EQ(invokeMethod(handle_, cls, "Echo", in, &out, &error_), 0);
    ASSERT_EQ(count(out), 3);
    EXPECT_STREQ(out->name, "ReturnValue");
    EXPECT_STREQ(out->paramType, "uint32");
    EXPECT_STREQ(out->value->value, "0");
    const ParamValue* s = named(out->next, "S");
    const ParamValue* u = named(out->next, "U32");
    ASSERT_TRUE(s && u);
    EXPECT_STREQ(s->value->value, "hello");
    EXPECT_STREQ(u->value->value, "42");
    EXPECT_STREQ(in->value->value, "hello");  // borrowed, not freed
    Free_ParamValue(out);
    Free_ParamValue(in);

    ASSERT_EQ(invokeMethod(handle_, cls, "ReturnCode", nullptr, &out, &error_), 0);
    ASSERT_EQ(count(out), 1);
    EXPECT_STREQ(out->value->value, "4096");
    Free_ParamValue(out);

    EXPECT_EQ(invokeMethod(handle_, cls, "Fail", nullptr, &out, &error_), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "1:");
    EXPECT_EQ(invokeMethod(handle_, cls, "NoSuchMethod", nullptr, &out, &error_), -1);
    EXPECT_EQ(takeError(&error_).substr(0, 3), "17:");
    Free_InstanceName(cls);

    // Instance method on the instance path changes that instance.
    InstanceName* system = computerSystem();
    in = param("ElementName", "Renamed by method", "string");
    ASSERT_EQ(invokeMethod(handle_, system, "SetElementName", in, nullptr, &error_), 0);
    Instance* inst = GetInstance(handle_, system, 2, 2, 2, nullptr, &error_);
    EXPECT_EQ(text(inst, "ElementName"), "Renamed by method");
    Free_Instance(inst);
    Free_ParamValue(in);
    Free_InstanceName(system);
}

TEST_F(MockCimom, CimErrorsComeThroughErrorOut) {
    ClassName* missing = className("No_Such_Class");
    EXPECT_EQ(CIM_GetClass(handle_, missing, 2, 2, 2, nullptr, &error_), nullptr);
    std::string e = takeError(&error_);
    EXPECT_TRUE(e.rfind("5:", 0) == 0 || e.rfind("6:", 0) == 0) << e;
    EXPECT_EQ(EnumerateInstances(handle_, missing, 2, 2, 2, 2, nullptr, &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "5:");
    Free_ClassName(missing);

    CIMC_SetNamespace(handle_, "root/nowhere");
    ClassName* cpu = className("CIM_Processor");
    EXPECT_EQ(EnumerateInstanceNames(handle_, cpu, &error_), nullptr);
    EXPECT_EQ(takeError(&error_).substr(0, 2), "3:");
    Free_ClassName(cpu);

    // An empty result is NULL with errorOut untouched.
    CIMC_SetNamespace(handle_, kNs);
    ClassName* leaf = className("Mock_Settings");
    EXPECT_EQ(EnumerateClassNames(handle_, leaf, 1, &error_), nullptr);
    EXPECT_EQ(error_, nullptr);
    Free_ClassName(leaf);
}

TEST_F(MockCimom, TransportFailureLeavesErrorOutAlone) {
    server_->stop();
    ClassName* cpu = className("CIM_Processor");
    EXPECT_EQ(EnumerateInstanceNames(handle_, cpu, &error_), nullptr);
    EXPECT_EQ(error_, nullptr);
    ParamValue* out = nullptr;
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    EXPECT_EQ(invokeMethod(handle_, cls, "ReturnCode", nullptr, &out, &error_), -1);
    EXPECT_EQ(error_, nullptr);
    Free_InstanceName(cls);
    Free_ClassName(cpu);
}

class AuthenticatingCimom : public MockCimom {
protected:
    void SetUp() override {
        cimmock::ServerOptions options;
        options.user = "admin";
        options.password = "right";
        start(options);
    }
};

TEST_F(AuthenticatingCimom, WrongCredentialsGive401) {
    ClassName* cpu = className("CIM_Processor");
    EXPECT_EQ(EnumerateInstances(handle_, cpu, 2, 2, 2, 2, nullptr, &error_), nullptr);
    EXPECT_EQ(takeError(&error_), "401:Unauthorized User");
    ParamValue* out = nullptr;
    InstanceName* cls = instanceName("Mock_AllTypes", {});
    EXPECT_EQ(invokeMethod(handle_, cls, "ReturnCode", nullptr, &out, &error_), -1);
    EXPECT_EQ(takeError(&error_), "401:Unauthorized User");
    DeleteInstance(handle_, cls, &error_);
    EXPECT_EQ(takeError(&error_), "401:Unauthorized User");

    ClientHandle* good = client_Configuration("127.0.0.1", server_->port(), kNs, 5000, "admin", "right");
    good->interfaceType = 0;
    InstanceName* names = EnumerateInstanceNames(good, cpu, &error_);
    EXPECT_EQ(count(names), 2);
    Free_InstanceName(names);
    Free_client_Configuration(good);
    Free_InstanceName(cls);
    Free_ClassName(cpu);
}

class InstanceNameReferenceCimom : public MockCimom {
protected:
    void SetUp() override {
        cimmock::ServerOptions options;
        options.referenceNamesAsInstanceNames = true;
        start(options);
    }
};

TEST_F(InstanceNameReferenceCimom, ReferenceNamesWrapsTheInstanceNames) {
    ObjectName* system = objectName(computerSystem());
    ObjectPath* refs = ReferenceNames(handle_, system, nullptr, "GroupComponent", &error_);
    ASSERT_NE(refs, nullptr);
    EXPECT_EQ(refs->next, nullptr);
    EXPECT_EQ(refs->classPath, nullptr);
    ASSERT_NE(refs->instancePath, nullptr);
    EXPECT_EQ(refs->instancePath->namespacePath, nullptr);
    EXPECT_EQ(count(refs->instancePath->instanceName), 6);
    EXPECT_STREQ(refs->instancePath->instanceName->className->name, "CIM_SystemDevice");
    Free_ObjectPath(refs);
    Free_ObjectName(system);
}

}  // namespace
