// The operation frame against canned replies, in both wire modes: the record
// trees taken from unusual answers (data/trees/), what reaches errorOut, and
// that nothing is sent without a handle.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

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
    EXPECT_EQ(error, nullptr);
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
    const struct {
        const char* name;
        bool standard;
        std::string reply;
        Tree call;
    } cases[] = {
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
             "EmbeddedObject=\"instance\"><VALUE>&lt;INSTANCE CLASSNAME=&quot;In&quot;&gt;&lt;/INSTANCE&gt;</VALUE>"
             "</PROPERTY>\n  </INSTANCE>\n"), [&](auto h, auto e) {
             return joined(taken(GetInstance(h, object->instanceName, 2, 2, 2, nullptr, e), Free_Instance)); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        callAgainst(cimtest::okReply(c.reply), [&](auto h, auto e) { expectGolden(std::string("trees/") + c.name + ".tree", c.call(h, e)); },
                  c.standard);
    }
    Free_InstanceName(target);
    Free_ObjectName(object);
}

TEST(Frame, RepliesOutsideThePathGiveNull) {
    const std::string replies[] = {
        intrinsic("<IRETURNVALUE/>"),
        envelope("<MULTIRSP><SIMPLERSP><IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE>" + kInstanceName +
                 "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MULTIRSP>"),
        extrinsic("<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE>"),
        "<?xml version=\"1.0\"?><CIM><unclosed",
        // ReferenceNames takes only bare instance names.
        intrinsic("<IRETURNVALUE><OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH>"
                  "<NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>" + kInstanceName +
                  "</INSTANCEPATH></OBJECTPATH></IRETURNVALUE>"),
    };
    for (const std::string& body : replies) {
        SCOPED_TRACE(body);
        callAgainst(cimtest::okReply(body), [](ClientHandle* h, Error** error) {
            EXPECT_EQ(CIMC_XML_EnumerateInstanceNames(h, nullptr, error), nullptr);
            EXPECT_EQ(CIMC_XML_ReferenceNames(h, nullptr, nullptr, nullptr, error), nullptr);
        });
    }
}

// Standard mode: each failure reaches errorOut as an Error record.
TEST(Standard, FailuresReachErrorOut) {
    InstanceName* name = processor("CPU0");
    auto* modified = make<NamedInstance>();
    modified->instanceName = processor("CPU0");
    const cimtest::Reply closed = cimtest::reply("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n<?xml"),
                         refused = cimtest::reply("HTTP/1.1 400 Bad Request\r\nCIMError: request-not-valid\r\n\r\n"),
                         notCimXml = cimtest::okReply("<html>busy</html>");
    const std::string closedText = "1004:the connection was closed after 5 of 50 reply bytes",
                      refusedText = "400:HTTP 400 Bad Request (CIMError: request-not-valid)",
                      notCimXmlText = "1007:the reply is not a CIM-XML response (no MESSAGE with a SIMPLERSP)";
    const struct {
        const cimtest::Reply& reply;
        const std::string& want;
        std::function<void(ClientHandle*, Error**)> call;
    } cases[] = {
        {notCimXml, notCimXmlText, [&](auto h, auto e) { EXPECT_EQ(ModifyInstance(h, modified, 2, nullptr, e), nullptr); }},
        {closed, closedText, [&](auto h, auto e) { EXPECT_EQ(ModifyInstance(h, modified, 2, nullptr, e), nullptr); }},
        {refused, refusedText, [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, name, e), nullptr); }},
        {notCimXml, notCimXmlText, [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, name, e), nullptr); }},
        {closed, closedText, [&](auto h, auto e) { EXPECT_EQ(invokeMethod(h, name, "M", nullptr, nullptr, e), -1); }},
        {notCimXml, notCimXmlText, [&](auto h, auto e) { EXPECT_EQ(invokeMethod(h, name, "M", nullptr, nullptr, e), -1); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.want);
        callAgainst(c.reply, [&](auto h, auto e) { c.call(h, e); EXPECT_EQ(takeError(e), c.want); }, true);
    }
    Free_InstanceName(name);
    Free_NamedInstance(modified);
}

}  // namespace
