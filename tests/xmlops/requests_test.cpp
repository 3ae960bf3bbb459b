// The exact bytes each operation puts on the socket (header block and body),
// compared with the files in data/ (data/standard/ for the standard wire
// mode), and parsed as XML.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "XMLParser.h"
#include "records.h"

namespace {

using namespace opt;

TEST(Requests, EachOperationSendsItsRecordedBytesAsWellFormedXml) {
    ClassName* processorClass = className("CIM_Processor");
    ClassName* device = className("CIM_LogicalDevice");
    InstanceName* cpu0 = processor("CPU0");
    cpu0->keyBindings->next->keyValue->cimType = s("string");
    ObjectName* cpu = objectName(processor("CPU0"));
    ClassName* assoc = className("CIM_SystemDevice");
    ClassName* result = className("Mock_ComputerSystem");
    ParamValue* in = param("S", "hi & bye", "string", param("U32", "7", nullptr));
    Instance* created = instance("Mock_Settings", property("Mode", "quiet", "string", property("Level", "2", "uint32")));
    // For the standard mode, text to escape and an embedded instance (the
    // default mode's writer takes an embedded instance apart).
    Property* embedded = property("Embedded", nullptr, "string");
    embedded->value->embedded = 1;
    embedded->value->instance = instance("Mock_Inner", property("Note", "x<y", "string"));
    Instance* escaped = instance("Mock_Settings", property("Mode", "a<b & \"c\"", "string",
                                                          property("Level", "2", "uint32", embedded)));
    auto* modified = make<NamedInstance>();
    modified->instanceName = processor("CPU0");
    modified->instance = instance("Mock_Processor", property("ElementName", "Renamed", "string"));
    InstanceName* system = computerSystem();
    std::free(system->keyBindings->next->keyValue->value);
    system->keyBindings->next->keyValue->value = s("say \"hi\"");
    system->next = processor("CPU0");  // only the first node names the target
    InstanceName* allTypes = instanceName("Mock_AllTypes", {});
    using Call = std::function<void(ClientHandle*, Error**)>;
    const std::pair<const char*, Call> cases[] = {
        {"get_class", [&](auto h, auto e) { EXPECT_EQ(CIM_GetClass(h, processorClass, 1, 0, 1, nullptr, e), nullptr); }},
        {"get_class_defaults", [&](auto h, auto e) { CIM_GetClass(h, processorClass, 2, 2, 2, nullptr, e); }},
        {"enumerate_classes", [&](auto h, auto e) { CIM_EnumerateClasses(h, device, 1, 0, 1, 0, e); }},
        {"enumerate_class_names", [&](auto h, auto e) { EnumerateClassNames(h, device, 0, e); }},
        {"enumerate_instances", [&](auto h, auto e) { EnumerateInstances(h, processorClass, 1, 0, 0, 0, nullptr, e); }},
        // 7 is left out like 2.
        {"enumerate_instances_no_parameters",
         [&](auto h, auto e) { EnumerateInstances(h, nullptr, 2, 7, 2, 0xFFFFFFFFu, nullptr, e); }},
        {"enumerate_instance_names", [&](auto h, auto e) { EnumerateInstanceNames(h, processorClass, e); }},
        {"get_instance", [&](auto h, auto e) { GetInstance(h, cpu0, 0, 1, 0, nullptr, e); }},
        {"create_instance", [&](auto h, auto e) { CIM_CreateInstance(h, created, e); }},
        {"modify_instance", [&](auto h, auto e) { ModifyInstance(h, modified, 1, nullptr, e); }},  // IncludeQualifiers first
        {"delete_instance", [&](auto h, auto e) { DeleteInstance(h, cpu0, e); }},
        {"exec_query",
         [&](auto h, auto e) { ExecQuery(h, "WQL", "SELECT * FROM CIM_Processor WHERE LoadPercentage > 50", e); }},
        {"associators", [&](auto h, auto e) {
             Associators(h, cpu, assoc, result, "PartComponent", "GroupComponent", 0, 1, nullptr, e); }},
        {"associator_names", [&](auto h, auto e) {
             AssociatorNames(h, cpu, assoc, result, "PartComponent", "GroupComponent", e); }},
        {"references", [&](auto h, auto e) { References(h, cpu, assoc, "PartComponent", 1, 1, nullptr, e); }},  // Role after the flags
        {"reference_names", [&](auto h, auto e) { ReferenceNames(h, cpu, assoc, "PartComponent", e); }},
        {"invoke_method_instance", [&](auto h, auto e) { invokeMethod(h, system, "SetElementName", in, nullptr, e); }},
        {"invoke_method_class", [&](auto h, auto e) { invokeMethod(h, allTypes, "Echo", in, nullptr, e); }},
        {"standard/get_instance", [&](auto h, auto e) { GetInstance(h, cpu0, 0, 1, 0, nullptr, e); }},
        {"standard/associator_names", [&](auto h, auto e) {
             AssociatorNames(h, cpu, assoc, nullptr, "PartComponent", nullptr, e); }},
        {"standard/create_instance", [&](auto h, auto e) { CIM_CreateInstance(h, escaped, e); takeError(e); }},
        {"standard/invoke_method", [&](auto h, auto e) {
             invokeMethod(h, system, "SetElementName", in, nullptr, e); takeError(e); }},
    };
    const std::string emptyReturn =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
        "<MESSAGE ID=\"1234\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE/>"
        "</IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";
    for (const auto& [name, call] : cases) {
        SCOPED_TRACE(name);
        const std::string sent = callAgainst(cimtest::okReply(emptyReturn), call, !std::strncmp(name, "standard/", 9));
        expectGolden(std::string(name) + ".request", sent);
        XMLParseContext context{};
        XMLDoc* doc = parseText(&context, sent.c_str() + sent.find("<?xml"));
        EXPECT_NE(doc, nullptr) << getErrorText(&context);
        freeXMLDoc(doc);
    }
    EXPECT_NE(system->next, nullptr);  // the caller's records stay as they were
    EXPECT_NE(embedded->value->instance->properties, nullptr);
    for (ClassName* c : {processorClass, device, assoc, result}) Free_ClassName(c);
    for (InstanceName* n : {cpu0, system, allTypes}) Free_InstanceName(n);
    Free_ObjectName(cpu);
    Free_ParamValue(in);
    Free_Instance(created);
    Free_Instance(escaped);
    Free_NamedInstance(modified);
}

}  // namespace
