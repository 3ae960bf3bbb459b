// The operations in the standard wire mode: the exact request bytes (files
// in data/standard/, rewritten with XMLOPS_UPDATE=1), the Error record of
// every failure, and the replies only this mode reads.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "../transport/raw_server.h"
#include "XMLParser.h"
#include "records.h"

namespace {

using namespace opt;
using Call = std::function<void(ClientHandle*, Error**)>;

std::string envelope(const std::string& inner) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"1234\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP>" + inner + "</SIMPLERSP></MESSAGE></CIM>";
}
std::string returning(const std::string& inner) {
    return envelope("<IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE>" + inner + "</IRETURNVALUE></IMETHODRESPONSE>");
}

ClientHandle* standardHandle(int port) {
    ClientHandle* h = client_Configuration("127.0.0.1", port, "root/cimv2", 2000, "user", "secret");
    h->interfaceType = 0;
    EXPECT_EQ(CIMC_SetWireMode(h, CIMXML_WIRE_STANDARD, nullptr), 0);
    return h;
}

// Runs the call against a peer playing `reply`; returns the request sent.
std::string exchange(cimtest::Reply reply, const Call& call, Error** error) {
    cimtest::RawServer server(std::move(reply));
    EXPECT_TRUE(server.start());
    ClientHandle* h = standardHandle(server.port());
    call(h, error);
    Free_client_Configuration(h);
    std::string sent = server.request(0);
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    std::size_t at = sent.find(host);
    if (at != std::string::npos) sent.replace(at, host.size(), "127.0.0.1:PORT");
    return sent;
}

TEST(Standard, EachOperationSendsItsRecordedBytesAsWellFormedXml) {
    InstanceName* cpu0 = processor("CPU0");
    cpu0->keyBindings->next->keyValue->cimType = s("string");
    ObjectName* cpu = objectName(processor("CPU0"));
    ClassName* assoc = className("CIM_SystemDevice");
    auto* created = make<Instance>();
    created->className = className("Mock_Settings");
    created->properties = property("Mode", "a<b & \"c\"", "string", property("Level", "2", "uint32"));
    auto* inner = make<Instance>();
    inner->className = className("Mock_Inner");
    inner->properties = property("Note", "x<y", "string");
    Property* embedded = property("Embedded", nullptr, "string");
    embedded->value->embedded = 1;
    embedded->value->instance = inner;
    created->properties->next->next = embedded;
    InstanceName* system = computerSystem();
    std::free(system->keyBindings->next->keyValue->value);
    system->keyBindings->next->keyValue->value = s("say \"hi\"");
    ParamValue* in = param("S", "hi & bye", "string");

    const std::pair<const char*, Call> cases[] = {
        {"get_instance", [&](auto h, auto e) { GetInstance(h, cpu0, 0, 1, 0, nullptr, e); }},
        {"associator_names", [&](auto h, auto e) { AssociatorNames(h, cpu, assoc, nullptr, "PartComponent", nullptr, e); }},
        {"create_instance", [&](auto h, auto e) { CIM_CreateInstance(h, created, e); }},
        {"invoke_method", [&](auto h, auto e) { invokeMethod(h, system, "SetElementName", in, nullptr, e); }},
    };
    for (const auto& [name, call] : cases) {
        SCOPED_TRACE(name);
        Error* error = nullptr;
        std::string sent = exchange(cimtest::okReply(returning("")), call, &error);
        takeError(&error);
        const std::string path = std::string(XMLOPS_DATA_DIR) + "/standard/" + name + ".request";
        if (std::getenv("XMLOPS_UPDATE")) std::ofstream(path, std::ios::binary) << sent;
        std::stringstream want;
        want << std::ifstream(path, std::ios::binary).rdbuf();
        EXPECT_EQ(sent, want.str());
        std::size_t body = sent.find("\r\n\r\n");
        ASSERT_NE(body, std::string::npos);
        XMLParseContext context{};
        XMLDoc* doc = parseText(&context, sent.c_str() + body + 4);
        EXPECT_NE(doc, nullptr) << getErrorText(&context);
        freeXMLDoc(doc);
    }
    EXPECT_NE(created->properties->next->next->value->instance->properties, nullptr);  // left whole
    Free_InstanceName(cpu0);
    Free_ObjectName(cpu);
    Free_ClassName(assoc);
    Free_Instance(created);
    Free_InstanceName(system);
    Free_ParamValue(in);
}

TEST(Standard, EveryFailureReachesErrorOut) {
    InstanceName* name = processor("CPU0");
    auto* modified = make<NamedInstance>();
    modified->instanceName = processor("CPU0");
    const std::pair<const char*, Call> calls[] = {
        {"ModifyInstance", [&](auto h, auto e) { EXPECT_EQ(ModifyInstance(h, modified, 2, nullptr, e), nullptr); }},
        {"DeleteInstance", [&](auto h, auto e) { EXPECT_EQ(DeleteInstance(h, name, e), nullptr); }},
        {"invokeMethod", [&](auto h, auto e) { EXPECT_EQ(invokeMethod(h, name, "M", nullptr, nullptr, e), -1); }},
    };
    const struct {
        const char* name;
        cimtest::Reply reply;
        std::string want;
    } replies[] = {
        {"closed early", cimtest::reply("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n<?xml"),
         "1004:the connection was closed after 5 of 50 reply bytes"},
        {"refused", cimtest::reply("HTTP/1.1 400 Bad Request\r\nCIMError: request-not-valid\r\n\r\n"),
         "400:HTTP 400 Bad Request (CIMError: request-not-valid)"},
        {"not CIM-XML", cimtest::okReply("<html>busy</html>"),
         "1007:the reply is not a CIM-XML response (no MESSAGE with a SIMPLERSP)"},
    };
    for (const auto& [op, call] : calls) {
        for (const auto& r : replies) {
            SCOPED_TRACE(std::string(op) + ", " + r.name);
            Error* error = nullptr;
            exchange(r.reply, call, &error);
            EXPECT_EQ(takeError(&error), r.want);
        }
    }
    Free_InstanceName(name);
    Free_NamedInstance(modified);
}

TEST(Standard, PathsAreReadInEveryFormAndNullsStayNull) {
    const std::string path = "<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH>"
                             "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>"
                             "</NAMESPACEPATH><INSTANCENAME CLASSNAME=\"A\"/></INSTANCEPATH></OBJECTPATH>";
    const std::string bare = "<INSTANCENAME CLASSNAME=\"B\"/><INSTANCENAME CLASSNAME=\"C\"/>";
    ObjectName* target = objectName(processor("CPU0"));
    const struct {
        const char* name;
        std::string reply;
        const char* want;  // class of each path, '@' marking one with a host
    } cases[] = {
        {"ReferenceNames, OBJECTPATHs", path + path, "A@ A@ "},
        {"ReferenceNames, bare names", bare, "B C "},
        {"AssociatorNames, bare names", bare, "B C "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Error* error = nullptr;
        ObjectPath* got = nullptr;
        exchange(cimtest::okReply(returning(c.reply)), [&](auto h, auto e) {
            got = c.name[0] == 'R' ? ReferenceNames(h, target, nullptr, nullptr, e)
                                   : AssociatorNames(h, target, nullptr, nullptr, nullptr, nullptr, e);
        }, &error);
        std::string seen;
        for (const ObjectPath* p = got; p; p = p->next) {
            const InstancePath* ip = p->instancePath;
            seen += ip && ip->instanceName && ip->instanceName->className ? ip->instanceName->className->name : "?";
            seen += ip && ip->namespacePath && ip->namespacePath->host ? "@ " : " ";
        }
        EXPECT_EQ(seen, c.want);
        EXPECT_EQ(takeError(&error), "");
        Free_ObjectPath(got);
    }

    // Indented, with a null array element and an embedded instance as escaped text.
    Error* error = nullptr;
    Instance* got = nullptr;
    exchange(cimtest::okReply(returning("\n  <INSTANCE CLASSNAME=\"A\">\n    <PROPERTY NAME=\"P\" TYPE=\"string\">\n"
                                        "      <VALUE>x</VALUE>\n    </PROPERTY>\n    <PROPERTY.ARRAY NAME=\"Q\" "
                                        "TYPE=\"uint8\">\n      <VALUE.ARRAY>\n        <VALUE>1</VALUE>\n"
                                        "        <VALUE.NULL/>\n        <VALUE>3</VALUE>\n      </VALUE.ARRAY>\n"
                                        "    </PROPERTY.ARRAY>\n    <PROPERTY NAME=\"E\" TYPE=\"string\" EmbeddedObject=\"instance\"><VALUE>"
                                        "&lt;INSTANCE CLASSNAME=&quot;In&quot;&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY>\n"
                                        "  </INSTANCE>\n")),
             [&](auto h, auto e) { got = GetInstance(h, target->instanceName, 2, 2, 2, nullptr, e); }, &error);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(text(got, "P"), "x");
    ASSERT_NE(got->propertyArrays, nullptr);
    std::string values;
    for (const Value* v = got->propertyArrays->valueArray->value; v; v = v->next) values += v->value ? v->value : "NULL";
    EXPECT_EQ(values, "1NULL3");
    const Property* e = named(got->properties, "E");  // read as a CDATA instance is
    ASSERT_TRUE(e && e->value && e->value->instance && e->value->instance->className);
    EXPECT_STREQ(e->value->instance->className->name, "In");
    Free_Instance(got);
    Free_ObjectName(target);
}

}  // namespace
