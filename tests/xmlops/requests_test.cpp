// The exact bytes each operation puts on the socket (header block and body),
// compared with the files in data/. Run with XMLOPS_UPDATE=1 to rewrite them
// after a deliberate change, and review the diff.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "../transport/raw_server.h"
#include "records.h"

namespace {

using namespace opt;

const std::string kEmptyReturn =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
    "<MESSAGE ID=\"1234\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE/>"
    "</IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";

// Runs one call against a recording server and returns what it sent.
std::string wireOf(const std::function<void(ClientHandle*, Error**)>& run) {
    cimtest::RawServer server(cimtest::okReply(kEmptyReturn));
    EXPECT_TRUE(server.start());
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "user", "secret");
    handle->interfaceType = 0;
    Error* error = nullptr;
    run(handle, &error);
    EXPECT_EQ(error, nullptr);
    Free_client_Configuration(handle);
    return server.request(0);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void expectWire(const char* name, const std::function<void(ClientHandle*, Error**)>& run) {
    SCOPED_TRACE(name);
    std::string path = std::string(XMLOPS_DATA_DIR) + "/" + name + ".request";
    std::string wire = wireOf(run);
    if (std::getenv("XMLOPS_UPDATE")) std::ofstream(path, std::ios::binary) << wire;
    EXPECT_EQ(wire, readFile(path));
}

TEST(Requests, ClassOperations) {
    expectWire("get_class", [](ClientHandle* h, Error** e) {
        ClassName* cn = className("CIM_Processor");
        EXPECT_EQ(CIM_GetClass(h, cn, 1, 0, 1, nullptr, e), nullptr);
        Free_ClassName(cn);
    });
    expectWire("get_class_defaults", [](ClientHandle* h, Error** e) {  // all 2: "ClassName" alone
        ClassName* cn = className("CIM_Processor");
        CIM_GetClass(h, cn, 2, 2, 2, nullptr, e);
        Free_ClassName(cn);
    });
    expectWire("enumerate_classes", [](ClientHandle* h, Error** e) {
        ClassName* cn = className("CIM_LogicalDevice");
        CIM_EnumerateClasses(h, cn, 1, 0, 1, 0, e);
        Free_ClassName(cn);
    });
    expectWire("enumerate_class_names", [](ClientHandle* h, Error** e) {
        ClassName* cn = className("CIM_LogicalDevice");
        EnumerateClassNames(h, cn, 0, e);
        Free_ClassName(cn);
    });
}

TEST(Requests, InstanceOperations) {
    expectWire("enumerate_instances", [](ClientHandle* h, Error** e) {
        ClassName* cn = className("CIM_Processor");
        EnumerateInstances(h, cn, 1, 0, 0, 0, nullptr, e);
        Free_ClassName(cn);
    });
    expectWire("enumerate_instances_no_parameters", [](ClientHandle* h, Error** e) {  // 7 is omitted like 2
        EnumerateInstances(h, nullptr, 2, 7, 2, 0xFFFFFFFFu, nullptr, e);
    });
    expectWire("enumerate_instance_names", [](ClientHandle* h, Error** e) {
        ClassName* cn = className("CIM_Processor");
        EnumerateInstanceNames(h, cn, e);
        Free_ClassName(cn);
    });
    expectWire("get_instance", [](ClientHandle* h, Error** e) {
        InstanceName* in = processor("CPU0");
        GetInstance(h, in, 0, 1, 0, nullptr, e);
        Free_InstanceName(in);
    });
    expectWire("create_instance", [](ClientHandle* h, Error** e) {
        auto* inst = make<Instance>();
        inst->className = className("Mock_Settings");
        inst->properties = property("Mode", "quiet", "string", property("Level", "2", "uint32"));
        CIM_CreateInstance(h, inst, e);
        Free_Instance(inst);
    });
    expectWire("modify_instance", [](ClientHandle* h, Error** e) {  // IncludeQualifiers first
        auto* named = make<NamedInstance>();
        named->instanceName = processor("CPU0");
        named->instance = make<Instance>();
        named->instance->className = className("Mock_Processor");
        named->instance->properties = property("ElementName", "Renamed", "string");
        ModifyInstance(h, named, 1, nullptr, e);
        Free_NamedInstance(named);
    });
    expectWire("delete_instance", [](ClientHandle* h, Error** e) {
        InstanceName* in = processor("CPU0");
        DeleteInstance(h, in, e);
        Free_InstanceName(in);
    });
    expectWire("exec_query", [](ClientHandle* h, Error** e) {
        ExecQuery(h, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", e);
    });
}

TEST(Requests, AssociationOperations) {
    ObjectName* cpu = objectName(processor("CPU0"));
    ClassName* assoc = className("CIM_SystemDevice");
    ClassName* result = className("Mock_ComputerSystem");
    expectWire("associators", [&](ClientHandle* h, Error** e) {
        Associators(h, cpu, assoc, result, "PartComponent", "GroupComponent", 0, 1, nullptr, e);
    });
    expectWire("associator_names", [&](ClientHandle* h, Error** e) {
        AssociatorNames(h, cpu, assoc, result, "PartComponent", "GroupComponent", e);
    });
    expectWire("references", [&](ClientHandle* h, Error** e) {  // "Role" after the flags
        References(h, cpu, assoc, "PartComponent", 1, 1, nullptr, e);
    });
    expectWire("reference_names", [&](ClientHandle* h, Error** e) {
        ReferenceNames(h, cpu, assoc, "PartComponent", e);
    });
    Free_ObjectName(cpu);
    Free_ClassName(assoc);
    Free_ClassName(result);
}

TEST(Requests, ExtrinsicMethodCall) {
    ParamValue* in = param("S", "hi", "string", param("U32", "7", nullptr));
    expectWire("invoke_method_instance", [&](ClientHandle* h, Error** e) {
        InstanceName* system = computerSystem();
        system->next = processor("CPU0");  // only the first node names the target
        invokeMethod(h, system, "SetElementName", in, nullptr, e);
        EXPECT_NE(system->next, nullptr);
        Free_InstanceName(system);
    });
    expectWire("invoke_method_class", [&](ClientHandle* h, Error** e) {
        InstanceName* cls = instanceName("Mock_AllTypes", {});
        invokeMethod(h, cls, "Echo", in, nullptr, e);
        Free_InstanceName(cls);
    });
    Free_ParamValue(in);
}

}  // namespace
