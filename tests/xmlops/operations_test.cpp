// The operations against canned replies, in both wire modes: the record trees
// taken from unusual answers (data/trees/), what reaches errorOut, that
// nothing is sent without a handle, and the exact request bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "XMLParser.h"
#include "records.h"

namespace {

using namespace opt;

std::string envelope(const std::string& inner) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"1234\" PROTOCOLVERSION=\"1.0\">" + inner + "</MESSAGE></CIM>";
}
std::string intrinsic(const std::string& inner) {
    return envelope("<SIMPLERSP><IMETHODRESPONSE NAME=\"X\">" + inner + "</IMETHODRESPONSE></SIMPLERSP>");
}
std::string extrinsic(const std::string& inner) {
    return envelope("<SIMPLERSP><METHODRESPONSE NAME=\"M\">" + inner + "</METHODRESPONSE></SIMPLERSP>");
}
const std::string kError = "<ERROR CODE=\"6\" DESCRIPTION=\"gone\"><INSTANCE CLASSNAME=\"CIM_Error\"/></ERROR>";
const std::string kInstanceName =
    "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE VALUETYPE=\"string\">v</KEYVALUE></KEYBINDING>"
    "</INSTANCENAME>";

std::string returning(const std::string& inner) { return intrinsic("<IRETURNVALUE>" + inner + "</IRETURNVALUE>"); }

TEST(Frame, NoHandleSendsNothingAndLeavesErrorOutAlone) {
    Error* error = nullptr;
    ClassName* cn = className("C");
    ParamValue* out = reinterpret_cast<ParamValue*>(&out);
    EXPECT_EQ(CIMC_XML_GetClass(nullptr, cn, 1, 1, 1, nullptr, &error), nullptr);
    EXPECT_EQ(CIMC_XML_EnumerateInstances(nullptr, cn, 1, 1, 1, 1, &error), nullptr);
    EXPECT_EQ(CIMC_XML_ExecQuery(nullptr, "WQL", "SELECT", &error), nullptr);
    EXPECT_EQ(CIMC_XML_DeleteInstance(nullptr, nullptr, &error), nullptr);
    EXPECT_EQ(CIMC_XML_invokeMethod(nullptr, nullptr, "M", nullptr, &out, &error), -1);
    EXPECT_EQ(out, nullptr);
    // No target or no method: refused before anything is sent, nothing to report.
    ClientHandle* h = client_Configuration("127.0.0.1", 1, "root/cimv2", 100, "u", "p");
    InstanceName* target = instanceName("C", {});
    EXPECT_EQ(CIMC_XML_invokeMethod(h, nullptr, "M", nullptr, &out, &error), -1);
    EXPECT_EQ(CIMC_XML_invokeMethod(h, target, nullptr, nullptr, &out, &error), -1);
    EXPECT_EQ(error, nullptr);
    Free_InstanceName(target);
    Free_client_Configuration(h);
    Free_ClassName(cn);
}

// The tree each reply gives, against data/trees/<name>.tree; for a method the
// return code first.
TEST(Frame, TreesFromUnusualReplies) {
    InstanceName* target = instanceName("C", {{"K", "v"}});
    ObjectName* object = objectName(processor("CPU0"));
    using Tree = std::function<std::string(ClientHandle*, Error**)>;
    const Tree instanceNames = [](auto h, auto e) {
        return joined(taken(CIMC_XML_EnumerateInstanceNames(h, nullptr, e), Free_InstanceName)); };
    const Tree referenceNames = [&](auto h, auto e) {
        return joined(taken(ReferenceNames(h, object, nullptr, nullptr, e), Free_ObjectPath)); };
    const Tree takeErrorTree = [](auto, auto e) { return joined(taken(std::exchange(*e, nullptr), Free_Error)); };
    const Tree invoke = [&](auto h, auto e) {
        ParamValue* out = nullptr;
        int rc = CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, e);
        return std::to_string(rc) + "\n" + joined(taken(out, Free_ParamValue));
    };
    const std::string path = "<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH>"
                             "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>"
                             "</NAMESPACEPATH><INSTANCENAME CLASSNAME=\"A\"/></INSTANCEPATH></OBJECTPATH>";
    const std::string bare = "<INSTANCENAME CLASSNAME=\"B\"/><INSTANCENAME CLASSNAME=\"C\"/>";
    // Replies outside the path give nothing, to either call.
    const Tree nothing = [&](auto h, auto e) { return instanceNames(h, e) + referenceNames(h, e); };
    const struct {
        const char* name;  // of the file with the tree; "" for none
        bool standard;
        std::string reply;
        Tree call;
    } cases[] = {
        {"", false, intrinsic("<IRETURNVALUE/>"), nothing},
        {"", false, envelope("<MULTIRSP><SIMPLERSP><IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE>" + kInstanceName +
                             "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MULTIRSP>"), nothing},
        {"", false, extrinsic("<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE>"), nothing},
        {"", false, "<?xml version=\"1.0\"?><CIM><unclosed", nothing},
        // ReferenceNames takes only bare instance names.
        {"", false, returning("<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH><NAMESPACE "
                              "NAME=\"root\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>" + kInstanceName +
                              "</INSTANCEPATH></OBJECTPATH>"), nothing},
        {"error_with_instances", false, intrinsic(kError), [&](auto h, auto e) {
             EXPECT_EQ(CIMC_XML_ExecQuery(h, "WQL", "q", e), nullptr);
             EXPECT_EQ(CIMC_XML_EnumerateClassNames(h, nullptr, 2, nullptr), nullptr);  // nowhere to store it
             return takeErrorTree(h, e); }},
        // Delete looks only for the error, even next to a return value.
        {"error_on_delete", false, intrinsic(kError + "<IRETURNVALUE>" + kInstanceName + "</IRETURNVALUE>"),
         [&](auto h, auto e) { EXPECT_EQ(CIMC_XML_DeleteInstance(h, nullptr, e), nullptr); return takeErrorTree(h, e); }},
        {"return_value_wins", false, intrinsic(kError + "<IRETURNVALUE>" + kInstanceName +
             "<CLASSNAME NAME=\"Extra\"/><INSTANCE CLASSNAME=\"Extra\"/></IRETURNVALUE>"), instanceNames},
        {"reference_names_wrapped", false, returning(kInstanceName + kInstanceName), referenceNames},
        {"method_output_parameters", false, extrinsic("<PARAMVALUE NAME=\"A\" PARAMTYPE=\"string\"><VALUE>x</VALUE>"
             "</PARAMVALUE><PARAMVALUE NAME=\"B\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY>"
             "</PARAMVALUE>"), invoke},
        {"method_reference_return", false, extrinsic("<RETURNVALUE PARAMTYPE=\"reference\"><VALUE.REFERENCE>" +
             kInstanceName + "</VALUE.REFERENCE></RETURNVALUE>"), [&](auto h, auto e) {
             EXPECT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, nullptr, e), 0);  // results freed
             return invoke(h, e); }},
        {"method_intrinsic_answer", false, intrinsic("<IRETURNVALUE/>"), invoke},
        {"standard_reference_names_paths", true, returning(path + path), referenceNames},
        {"standard_reference_names_bare", true, returning(bare), referenceNames},
        {"standard_associator_names_bare", true, returning(bare), [&](auto h, auto e) {
             return joined(taken(AssociatorNames(h, object, nullptr, nullptr, nullptr, nullptr, e), Free_ObjectPath)); }},
        // Indented, with a null array element and an embedded instance as escaped text.
        {"standard_indented_instance", true, returning("\n  <INSTANCE CLASSNAME=\"A\">\n    <PROPERTY NAME=\"P\" "
             "TYPE=\"string\">\n      <VALUE>x</VALUE>\n    </PROPERTY>\n    <PROPERTY.ARRAY NAME=\"Q\" TYPE=\"uint8\">\n"
             "      <VALUE.ARRAY>\n        <VALUE>1</VALUE>\n        <VALUE.NULL/>\n        <VALUE>3</VALUE>\n"
             "      </VALUE.ARRAY>\n    </PROPERTY.ARRAY>\n    <PROPERTY NAME=\"E\" TYPE=\"string\" "
             "EmbeddedObject=\"instance\"><VALUE> \t\n&lt;INSTANCE CLASSNAME=&quot;In&quot;&gt;&lt;/INSTANCE&gt;</VALUE>"
             "</PROPERTY>\n    <PROPERTY NAME=\"U\" TYPE=\"string\"><VALUE>&lt;INSTANCE CLASSNAME=&quot;In&quot;&gt;"
             "&lt;/INSTANCE&gt;</VALUE></PROPERTY>\n  </INSTANCE>\n"), [&](auto h, auto e) {
             return joined(taken(GetInstance(h, object->instanceName, 2, 2, 2, nullptr, e), Free_Instance)); }},
        // Read right after a standard reply: the default mode leaves marked escaped text as it is.
        {"default_marked_text", false, returning("<INSTANCE CLASSNAME=\"A\"><PROPERTY NAME=\"E\" TYPE=\"string\" "
             "EmbeddedObject=\"instance\"><VALUE>&lt;INSTANCE CLASSNAME=&quot;In&quot;&gt;&lt;/INSTANCE&gt;</VALUE>"
             "</PROPERTY></INSTANCE>"), [&](auto h, auto e) {
             return joined(taken(GetInstance(h, object->instanceName, 2, 2, 2, nullptr, e), Free_Instance)); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(*c.name ? c.name : c.reply);
        callAgainst(cimtest::okReply(c.reply), [&](auto h, auto e) {
            const std::string tree = c.call(h, e);
            if (*c.name) expectGolden(std::string("trees/") + c.name + ".tree", tree);
            else EXPECT_EQ(tree, "");
        }, c.standard);
    }
    Free_InstanceName(target);
    Free_ObjectName(object);
}

// A reply cut short after the whole of it: the body buffer the thread reuses
// holds zeros past what arrived, never the earlier reply's bytes (the parse
// leaves the blanks and end tags near the end as they were, so those would
// complete the document).
TEST(Frame, ShortReplyAfterALongOneSeesNoStaleBytes) {
    std::string body = returning("<INSTANCE CLASSNAME=\"A\"></INSTANCE>") + "  ";
    body.insert(body.rfind("</MESSAGE>"), 1500, ' ');  // past the first read
    std::string wire = cimtest::okResponse(body);
    InstanceName* name = instanceName("A", {});
    const auto instance = [&](auto h, auto e) {
        return joined(taken(GetInstance(h, name, 2, 2, 2, nullptr, e), Free_Instance)); };
    callAgainst(cimtest::okReply(body), [&](auto h, auto e) { EXPECT_NE(instance(h, e), ""); });
    callAgainst(cimtest::reply(wire.substr(0, wire.size() - 40)), [&](auto h, auto e) { EXPECT_EQ(instance(h, e), ""); });
    Free_InstanceName(name);
}

// Standard mode: each failure reaches errorOut as an Error record.
TEST(Standard, FailuresReachErrorOut) {
    InstanceName* name = processor("CPU0");
    auto* modified = make<NamedInstance>();
    modified->instanceName = processor("CPU0");
    using Failure = std::pair<cimtest::Reply, std::string>;  // the reply, and errorOut from it
    const Failure closed{cimtest::reply("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n<?xml"),
                         "1004:the connection was closed after 5 of 50 reply bytes"},
        refused{cimtest::reply("HTTP/1.1 400 Bad Request\r\nCIMError: request-not-valid\r\n\r\n"),
                "400:HTTP 400 Bad Request (CIMError: request-not-valid)"},
        notCimXml{cimtest::okReply("<html>busy</html>"),
                  "1007:the reply is not a CIM-XML response (no MESSAGE with a SIMPLERSP)"};
    const auto modify = [&](auto h, auto e) { EXPECT_EQ(ModifyInstance(h, modified, 2, nullptr, e), nullptr); };
    const auto remove = [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, name, e), nullptr); };
    const auto invoke = [&](auto h, auto e) { EXPECT_EQ(invokeMethod(h, name, "M", nullptr, nullptr, e), -1); };
    const std::pair<const Failure&, std::function<void(ClientHandle*, Error**)>> cases[] = {
        {notCimXml, modify}, {closed, modify}, {refused, remove}, {notCimXml, remove}, {closed, invoke}, {notCimXml, invoke},
    };
    for (const auto& [failure, call] : cases) {
        SCOPED_TRACE(failure.second);
        callAgainst(failure.first, [&](auto h, auto e) { call(h, e); EXPECT_EQ(takeError(e), failure.second); }, true);
    }
    Free_InstanceName(name);
    Free_NamedInstance(modified);
}

// The exact bytes each operation puts on the socket (header block and body),
// compared with the files in data/ (data/standard/ for the standard wire
// mode), and parsed as XML.
// A class target: the default mode sends only its ClassName, the standard mode an ObjectName.
TEST(Requests, AClassTargetIsNamedByItsClass) {
    ObjectName* cls = rec<ObjectName>({{"className", className("C")}});
    const auto call = [&](auto h, auto e) { Free_ObjectPath(ReferenceNames(h, cls, nullptr, nullptr, e)); };
    EXPECT_EQ(callAgainst(cimtest::okReply(returning("")), call).find("\"ObjectName\""), std::string::npos);
    EXPECT_NE(callAgainst(cimtest::okReply(returning("")), call, true).find("\"ObjectName\""), std::string::npos);
    Free_ObjectName(cls);
}

TEST(Requests, EachOperationSendsItsRecordedBytesAsWellFormedXml) {
    ClassName* processorClass = className("CIM_Processor");
    ClassName* device = className("CIM_LogicalDevice");
    InstanceName* cpu0 = processor("CPU0");
    cpu0->keyBindings->next->keyValue->cimType = s("string");
    ObjectName* cpu = objectName(processor("CPU0"));
    ObjectName* cpuOnly = rec<ObjectName>({{"instanceName", processor("CPU0")}});
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
    KeyBinding* ref = system->keyBindings->next->next = make<KeyBinding>();  // a reference key, quoted whole
    ref->name = s("Part");
    ref->valueReference = make<ValueReference>();
    ref->valueReference->instanceName = instanceName("Mock_Part", {{"Id", "a\\b"}, {"N", "2", "numeric"}});
    KeyBinding* classRef = ref->next = make<KeyBinding>();  // a reference to a class: no path text
    classRef->name = s("Kind");
    classRef->valueReference = make<ValueReference>();
    classRef->valueReference->className = className("Mock_Kind");
    InstanceName* allTypes = instanceName("Mock_AllTypes", {});
    // A key value straight in the instance name, with no binding around it, still names an instance.
    InstanceName* keyed = rec<InstanceName>({{"className", className("Mock_Key")},
                                             {"keyValue", rec<KeyValue>({{"value", "7"}, {"valueType", "numeric"}})}});
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
        {"invoke_method_key_value", [&](auto h, auto e) { invokeMethod(h, keyed, "Echo", nullptr, nullptr, e); }},
        {"standard/get_instance", [&](auto h, auto e) { GetInstance(h, cpu0, 0, 1, 0, nullptr, e); }},
        {"standard/associator_names", [&](auto h, auto e) {  // the instance alone names the target
             AssociatorNames(h, cpuOnly, assoc, nullptr, "PartComponent", nullptr, e); }},
        {"standard/create_instance", [&](auto h, auto e) { CIM_CreateInstance(h, escaped, e); takeError(e); }},
        {"standard/invoke_method", [&](auto h, auto e) {
             invokeMethod(h, system, "SetElementName", in, nullptr, e); takeError(e); }},
    };
    for (const auto& [name, call] : cases) {
        SCOPED_TRACE(name);
        const bool standard = !std::strncmp(name, "standard/", 9);
        const std::string sent = callAgainst(cimtest::okReply(intrinsic("<IRETURNVALUE/>")), call, standard);
        expectGolden(std::string(name) + ".request", sent);
        XMLParseContext context{};
        XMLDoc* doc = parseText(&context, sent.c_str() + sent.find("<?xml"));
        EXPECT_NE(doc, nullptr) << getErrorText(&context);
        freeXMLDoc(doc);
    }
    EXPECT_NE(system->next, nullptr);  // the caller's records stay as they were
    EXPECT_NE(embedded->value->instance->properties, nullptr);
    for (ClassName* c : {processorClass, device, assoc, result}) Free_ClassName(c);
    for (InstanceName* n : {cpu0, system, allTypes, keyed}) Free_InstanceName(n);
    for (ObjectName* o : {cpu, cpuOnly}) Free_ObjectName(o);
    Free_ParamValue(in);
    Free_Instance(created);
    Free_Instance(escaped);
    Free_NamedInstance(modified);
}

}  // namespace
