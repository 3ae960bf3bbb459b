// mock-cimom --strict: what it turns away, with which status and CIMError,
// and the standard request forms it answers in either mode.
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "raw_http.h"

using namespace cimmock;

namespace {

const std::string kNs = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>";

std::string request(const std::string& call, const char* version = "1.0") {
  return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE "
                     "ID=\"7\" PROTOCOLVERSION=\"") +
         version + "\"><SIMPLEREQ>" + call + "</SIMPLEREQ></MESSAGE></CIM>";
}
std::string imethod(const std::string& name, const std::string& params) {
  return request("<IMETHODCALL NAME=\"" + name + "\">" + kNs + params + "</IMETHODCALL>");
}
std::string param(const std::string& name, const std::string& content) {
  return "<IPARAMVALUE NAME=\"" + name + "\">" + content + "</IPARAMVALUE>";
}
const std::string kEnum = imethod("EnumerateInstanceNames", param("ClassName", "<CLASSNAME NAME=\"CIM_DiskDrive\"/>"));
const std::string kSystem =
    "<INSTANCENAME CLASSNAME=\"Mock_ComputerSystem\"><KEYBINDING NAME=\"CreationClassName\"><KEYVALUE "
    "VALUETYPE=\"string\" TYPE=\"string\">Mock_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Name\">"
    "<KEYVALUE>mock-server.example.com</KEYVALUE></KEYBINDING></INSTANCENAME>";
const std::string kSetName = request("<METHODCALL NAME=\"SetElementName\"><LOCALINSTANCEPATH>" + kNs + kSystem +
                                     "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"ElementName\" PARAMTYPE=\"string\">"
                                     "<VALUE>a &amp; b</VALUE></PARAMVALUE></METHODCALL>");
const char* const kSystemObject =
    "root/cimv2:Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\",Name=\"mock-server.example.com\"";

std::string with(std::string s, const std::string& from, const std::string& to) {
  return s.replace(s.find(from), from.size(), to);
}

// A standard request; `header` ("" is the request line) is replaced by
// `value`, or left out when value is null.
std::string framed(const std::string& body, const char* header, const char* value, const std::string& method,
                   const std::string& object) {
  std::pair<std::string, std::string> lines[] = {
      {"", "POST /cimom HTTP/1.1"}, {"Host", "127.0.0.1"}, {"Content-Type", "application/xml; charset=\"utf-8\""},
      {"CIMOperation", "MethodCall"}, {"CIMMethod", method}, {"CIMObject", object}, {"CIMProtocolVersion", "1.0"},
      {"Content-Length", std::to_string(body.size())}};
  std::string out;
  for (auto& [name, v] : lines) {
    if (header && name == header && !value) continue;
    if (header && name == header) v = value;
    out += (name.empty() ? v : name + ": " + v) + "\r\n";
  }
  return out + "\r\n" + body;
}

std::unique_ptr<Server> started(bool strict) {
  ServerOptions o;
  o.repoDir = sampleRepositoryDir();
  o.strict = strict;
  auto s = std::make_unique<Server>(o);
  std::string err;
  EXPECT_TRUE(s->start(&err)) << err;
  return s;
}

}  // namespace

TEST(StrictTest, TurnsAwayWhatDsp0200AndDsp0201DoNotAllow) {
  const std::string keyValue = "<KEYVALUE VALUETYPE=\"numeric\">1</KEYVALUE>";
  const std::string getInstance = imethod(
      "GetInstance",
      param("InstanceName", "<INSTANCENAME CLASSNAME=\"X\"><KEYBINDING NAME=\"K\">" + keyValue + "</KEYBINDING></INSTANCENAME>"));
  const std::string value = with(kEnum, "</IMETHODCALL>", param("X", "<VALUE>v</VALUE>") + "</IMETHODCALL>");
  struct {
    const char* what;
    std::string body;
    const char* header;
    const char* value;
    int status;
    const char* cimError;
    std::string method = "EnumerateInstanceNames";
    std::string object = "root%2Fcimv2";
  } cases[] = {
      {"standard", kEnum, nullptr, nullptr, 200, nullptr},
      {"CIMObject not escaped", kEnum, "CIMObject", "root/cimv2", 200, nullptr},
      {"extrinsic", kSetName, nullptr, nullptr, 200, nullptr, "SetElementName", kSystemObject},
      {"the client's request line", kEnum, "", "POST  /cimom HTTP/1.1 ", 400, ""},
      {"no Host", kEnum, "Host", nullptr, 400, ""},
      {"no Content-Length", kEnum, "Content-Length", nullptr, 411, ""},
      {"text/plain", kEnum, "Content-Type", "text/plain", 400, "request-not-valid"},
      {"no CIMOperation", kEnum, "CIMOperation", nullptr, 400, "unsupported-operation"},
      {"no CIMProtocolVersion", kEnum, "CIMProtocolVersion", nullptr, 400, "header-mismatch"},
      {"no CIMObject", kEnum, "CIMObject", nullptr, 400, "header-mismatch"},
      {"CIMMethod of another call", kEnum, "CIMMethod", "EnumerateInstances", 400, "header-mismatch"},
      {"CIMObject of another namespace", kEnum, "CIMObject", "root%2Finterop", 400, "header-mismatch"},
      {"CIMObject of another class", kSetName, nullptr, nullptr, 400, "header-mismatch", "SetElementName",
       "root/cimv2:CIM_System.CreationClassName=\"Mock_ComputerSystem\",Name=\"mock-server.example.com\""},
      {"the client's CR before the XML", "\r" + kEnum, nullptr, nullptr, 400, "request-not-well-formed"},
      {"bare &", with(value, ">v<", ">a & b<"), nullptr, nullptr, 400, "request-not-well-formed"},
      {"< in an attribute", with(kEnum, "CIM_DiskDrive", "a<b"), nullptr, nullptr, 400, "request-not-well-formed"},
      {"unquoted attribute", with(kEnum, "\"CIM_DiskDrive\"", "CIM_DiskDrive"), nullptr, nullptr, 400,
       "request-not-well-formed"},
      {"not UTF-8", with(value, ">v<", ">\xff<"), nullptr, nullptr, 400, "request-not-well-formed"},
      {"KEYVALUE CIMTYPE", with(getInstance, "\">1", "\" CIMTYPE=\"uint32\">1"), nullptr, nullptr, 400,
       "request-not-valid"},
      {"VALUETYPE out of its list", with(getInstance, "numeric", "number"), nullptr, nullptr, 400, "request-not-valid"},
      {"one NAMESPACE for two components", with(kEnum, kNs, "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root/cimv2\"/></LOCALNAMESPACEPATH>"),
       nullptr, nullptr, 400, "request-not-valid"},
      {"unknown element", with(kEnum, "</IMETHODCALL>", "<EXTRA/></IMETHODCALL>"), nullptr, nullptr, 400,
       "request-not-valid"},
      {"text in a container", with(kEnum, "</IMETHODCALL>", "x</IMETHODCALL>"), nullptr, nullptr, 400,
       "request-not-valid"},
      {"MULTIREQ", with(with(kEnum, "<SIMPLEREQ>", "<MULTIREQ><SIMPLEREQ>"), "</SIMPLEREQ>", "</SIMPLEREQ></MULTIREQ>"),
       nullptr, nullptr, 501, "multiple-requests-unsupported"},
      {"protocol 2.0", with(kEnum, "PROTOCOLVERSION=\"1.0\"", "PROTOCOLVERSION=\"2.0\""), nullptr, nullptr, 501,
       "unsupported-protocol-version"},
  };
  auto server = started(true);
  int refused = 0;
  for (const auto& c : cases) {
    Reply r = httpExchange(server->port(), framed(c.body, c.header, c.value, c.method, c.object));
    EXPECT_EQ(r.status, c.status) << c.what << "\n" << r.raw;
    if (c.cimError) {
      EXPECT_EQ(r.headers.count("cimerror"), *c.cimError ? 1u : 0u) << c.what;
      EXPECT_EQ(r.headers["cimerror"], c.cimError) << c.what;
      EXPECT_GT(r.body.size(), 1u) << c.what;  // says why
      ++refused;
    } else {
      EXPECT_EQ(r.body.find("<ERROR"), std::string::npos) << c.what << "\n" << r.body;
    }
  }
  EXPECT_EQ(server->stats().refused, static_cast<uint64_t>(refused));
}

// Escaped text, TYPE on KEYVALUE, an embedded instance as escaped text
// marked EmbeddedObject="instance", ObjectName alone: the same answers with
// and without --strict.
TEST(StrictTest, AnswersStandardFormsInEitherMode) {
  const std::string id = "<KEYBINDING NAME=\"InstanceID\"><KEYVALUE VALUETYPE=\"string\" TYPE=\"string\">std:1"
                         "</KEYVALUE></KEYBINDING>";
  const std::string name = "<INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" + id + "</INSTANCENAME>";
  auto instance = [](const std::string& embedded, const std::string& array) {
    return "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"InstanceID\" TYPE=\"string\"><VALUE>std:1</VALUE>"
           "</PROPERTY><PROPERTY NAME=\"PString\" TYPE=\"string\"><VALUE>a &amp; b &lt; c</VALUE></PROPERTY>"
           "<PROPERTY NAME=\"PEmbedded\" TYPE=\"string\"" + embedded + "><VALUE>&lt;INSTANCE CLASSNAME=&quot;"
           "Mock_Settings&quot;&gt;&lt;PROPERTY NAME=&quot;Mode&quot; TYPE=&quot;string&quot;&gt;&lt;VALUE&gt;eco"
           "&lt;/VALUE&gt;&lt;/PROPERTY&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY><PROPERTY.ARRAY NAME=\"PStringArray\" "
           "TYPE=\"string\"><VALUE.ARRAY><VALUE>x</VALUE>" + array + "</VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
  };
  const std::string marked = " EmbeddedObject=\"instance\"";
  const std::string code = "string(//ERROR/@CODE)";
  for (bool strict : {false, true}) {
    SCOPED_TRACE(strict ? "strict" : "lenient");
    auto server = started(strict);
    struct {
      std::string method, body;
      const char* xpath;
      std::string want;
    } rows[] = {
        {"CreateInstance", imethod("CreateInstance", param("NewInstance", instance(marked, "<VALUE.NULL/>"))),
         code.c_str(), "4"},
        // Unmarked, the embedded instance is refused when strict, guessed otherwise.
        {"CreateInstance", imethod("CreateInstance", param("NewInstance", instance("", ""))), code.c_str(),
         strict ? "13" : ""},
        {"CreateInstance", imethod("CreateInstance", param("NewInstance", instance(marked, ""))),
         "concat(//ERROR/@CODE, //IRETURNVALUE/INSTANCENAME/KEYBINDING/KEYVALUE)", strict ? "std:1" : "11"},
        {"GetInstance", imethod("GetInstance", param("InstanceName", name)),
         "concat(//PROPERTY[@NAME='PString']/VALUE, '|', //PROPERTY[@NAME='PEmbedded']/@EmbeddedObject)",
         "a & b < c|instance"},
        {"AssociatorNames",
         imethod("AssociatorNames", param("ObjectName", kSystem) + param("AssocClass", "<CLASSNAME NAME=\"CIM_SystemDevice\"/>")),
         "count(//IRETURNVALUE/OBJECTPATH/INSTANCEPATH)", "6"},
    };
    for (const auto& row : rows) {
      Reply r = httpExchange(server->port(), framed(row.body, nullptr, nullptr, row.method, "root%2Fcimv2"));
      pugi::xml_document d;
      ASSERT_TRUE(d.load_string(r.body.c_str())) << r.raw;
      EXPECT_EQ(pugi::xpath_query(row.xpath).evaluate_string(d), row.want) << row.xpath;
    }
    auto lock = server->lock();
    Instance inst = server->repository().getInstance("root/cimv2", ObjectPath::parse("Mock_AllTypes.InstanceID=\"std:1\""));
    EXPECT_TRUE(inst.findProperty("PEmbedded")->value.isEmbedded());
  }
}
