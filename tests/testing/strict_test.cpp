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
std::string request(const std::string& call) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"7\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" + call + "</SIMPLEREQ></MESSAGE></CIM>";
}
std::string imethod(const std::string& name, const std::string& param, const std::string& content) {
  return request("<IMETHODCALL NAME=\"" + name + "\">" + kNs + "<IPARAMVALUE NAME=\"" + param + "\">" + content +
                 "</IPARAMVALUE></IMETHODCALL>");
}
std::string with(std::string s, const std::string& from, const std::string& to) {
  return s.replace(s.find(from), from.size(), to);
}
const std::string kSystem =
    "<INSTANCENAME CLASSNAME=\"Mock_ComputerSystem\"><KEYBINDING NAME=\"CreationClassName\"><KEYVALUE "
    "VALUETYPE=\"string\" TYPE=\"string\">Mock_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Name\">"
    "<KEYVALUE>mock-server.example.com</KEYVALUE></KEYBINDING></INSTANCENAME>";

// A standard request for `body`, one line of its head changed by `edit`:
// "Name: value" replaces a header ("POST ..." the request line), "-Name"
// leaves it out.
std::string framed(const std::string& body, const std::string& edit) {
  size_t call = body.find("NAME=\"", body.find("<SIMPLEREQ>")) + 6;
  std::string head = "POST /cimom HTTP/1.1\nHost: 127.0.0.1\nContent-Type: application/xml; charset=\"utf-8\"\n"
                     "CIMOperation: MethodCall\nCIMMethod: " + body.substr(call, body.find('"', call) - call) +
                     "\nCIMObject: root%2Fcimv2\nCIMProtocolVersion: 1.0\nContent-Length: " +
                     std::to_string(body.size()) + "\n";
  std::string out;
  for (size_t b = 0, e; (e = head.find('\n', b)) != std::string::npos; b = e + 1) {
    std::string line = head.substr(b, e - b), name = line.substr(0, line.find_first_of(" :"));
    if (edit == "-" + name) continue;
    if (edit.compare(0, name.size(), name) == 0 && edit.find_first_of(" :") == name.size()) line = edit;
    out += line + "\r\n";
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
  const std::string names = imethod("EnumerateInstanceNames", "ClassName", "<CLASSNAME NAME=\"CIM_DiskDrive\"/>");
  const std::string value = imethod("ExecQuery", "Query", "<VALUE>v</VALUE>");
  const std::string key = imethod("GetInstance", "InstanceName", with(kSystem, "<KEYVALUE>", "<KEYVALUE VALUETYPE=\"numeric\">"));
  const std::string setName = request("<METHODCALL NAME=\"SetElementName\"><LOCALINSTANCEPATH>" + kNs + kSystem +
                                      "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"ElementName\" PARAMTYPE=\"string\">"
                                      "<VALUE>a &amp; b</VALUE></PARAMVALUE></METHODCALL>");
  std::string deep;  // deeper than the decoders go
  for (int i = 0; i < 300; ++i) deep = "<VALUE.ARRAY>" + deep + "</VALUE.ARRAY>";
  const std::string system = "CIMObject: root/cimv2:Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                             "Name=\"mock-server.example.com\"";
  const struct {
    std::string body, edit;
    int status;
    const char* cimError;  // null: served
  } cases[] = {
      {names, "", 200, nullptr},
      {names, "CIMObject: root/cimv2", 200, nullptr},
      {setName, system, 200, nullptr},
      {names, "POST  /cimom HTTP/1.1 ", 400, ""},  // the default client's request line
      {names, "-Host", 400, ""},
      {names, "-Content-Length", 411, ""},
      {names, "Content-Type: text/plain", 400, "request-not-valid"},
      {names, "-CIMOperation", 400, "unsupported-operation"},
      {names, "-CIMProtocolVersion", 400, "header-mismatch"},
      {names, "-CIMObject", 400, "header-mismatch"},
      {names, "CIMMethod: EnumerateInstances", 400, "header-mismatch"},
      {names, "CIMObject: root%2Finterop", 400, "header-mismatch"},
      {setName, with(system, "Mock_", "CIM_"), 400, "header-mismatch"},
      {setName, "CIMObject: root/cimv2:Mock_ComputerSystem", 400, "header-mismatch"},
      {"\r" + names, "", 400, "request-not-well-formed"},  // the default client's "\n\r" framing
      {with(value, ">v<", ">a & b<"), "", 400, "request-not-well-formed"},
      {with(value, ">v<", ">\xff<"), "", 400, "request-not-well-formed"},
      {with(names, "CIM_DiskDrive", "a<b"), "", 400, "request-not-well-formed"},
      {with(names, "\"CIM_DiskDrive\"", "CIM_DiskDrive"), "", 400, "request-not-well-formed"},
      {with(key, "\">mock", "\" CIMTYPE=\"string\">mock"), "", 400, "request-not-valid"},
      {with(key, "numeric", "number"), "", 400, "request-not-valid"},
      {with(names, "\"root\"/><NAMESPACE NAME=\"", "\"root/"), "", 400, "request-not-valid"},
      {with(names, "</IMETHODCALL>", "<EXTRA/></IMETHODCALL>"), "", 400, "request-not-valid"},
      {imethod("CreateInstance", "NewInstance",  // an embedded PROPERTY without TYPE
               "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"PEmbedded\" TYPE=\"string\" EmbeddedObject=\"instance\">"
               "<VALUE>&lt;INSTANCE CLASSNAME=\"M\"&gt;&lt;PROPERTY NAME=\"Mode\"/&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY></INSTANCE>"),
       "", 400, "request-not-valid"},
      {with(names, "</IMETHODCALL>", "x</IMETHODCALL>"), "", 400, "request-not-valid"},
      {with(names, "</IMETHODCALL>", deep + "</IMETHODCALL>"), "", 400, "request-not-valid"},
      {with(with(names, "<SIMPLEREQ>", "<MULTIREQ><SIMPLEREQ>"), "</SIMPLEREQ>", "</SIMPLEREQ></MULTIREQ>"), "", 501,
       "multiple-requests-unsupported"},
      {with(names, "PROTOCOLVERSION=\"1.0\"", "PROTOCOLVERSION=\"2.0\""), "", 501, "unsupported-protocol-version"},
  };
  auto server = started(true);
  uint64_t refused = 0;
  for (const auto& c : cases) {
    Reply r = httpExchange(server->port(), framed(c.body, c.edit));
    EXPECT_EQ(r.status, c.status) << c.edit << "\n" << r.raw;
    EXPECT_EQ(r.headers.count("cimerror") ? r.headers["cimerror"] : "none", c.cimError && *c.cimError ? c.cimError : "none")
        << c.edit;
    refused += c.cimError != nullptr;
    if (!c.cimError) {
      EXPECT_EQ(r.body.find("<ERROR"), std::string::npos) << r.body;
    }
  }
  EXPECT_EQ(server->stats().refused, refused);
}

// Escaped text, KEYVALUE TYPE, an embedded instance as escaped text marked
// EmbeddedObject="instance", ObjectName alone: answered with and without
// --strict.
TEST(StrictTest, AnswersStandardFormsInEitherMode) {
  const std::string name = "<INSTANCENAME CLASSNAME=\"Mock_AllTypes\"><KEYBINDING NAME=\"InstanceID\"><KEYVALUE "
                           "VALUETYPE=\"string\" TYPE=\"string\">std:1</KEYVALUE></KEYBINDING></INSTANCENAME>";
  auto create = [](const std::string& mark, const std::string& array) {
    return imethod("CreateInstance", "NewInstance",
                   "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"InstanceID\" TYPE=\"string\"><VALUE>std:1"
                   "</VALUE></PROPERTY><PROPERTY NAME=\"PString\" TYPE=\"string\"><VALUE>a &amp; b &lt; c</VALUE>"
                   "</PROPERTY><PROPERTY NAME=\"PEmbedded\" TYPE=\"string\"" + mark + "><VALUE>&lt;INSTANCE "
                   "CLASSNAME=&quot;Mock_Settings&quot;&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY><PROPERTY.ARRAY "
                   "NAME=\"PStringArray\" TYPE=\"string\"><VALUE.ARRAY><VALUE>x</VALUE>" + array +
                   "</VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>");
  };
  const std::string marked = " EmbeddedObject=\"instance\"";
  const char* const created = "concat(//ERROR/@CODE, //KEYVALUE)";
  for (bool strict : {false, true}) {
    auto server = started(strict);
    const struct {
      std::string body;
      const char* xpath;
      const char* want;
    } rows[] = {
        {create(marked, "<VALUE.NULL/>"), created, "4"},
        // Unmarked, the embedded instance is refused when strict, guessed otherwise.
        {create("", ""), created, strict ? "13" : "std:1"},
        {create(marked, ""), created, strict ? "std:1" : "11"},
        {imethod("GetInstance", "InstanceName", name),
         "concat(//PROPERTY[@NAME='PString'], '|', //PROPERTY[@NAME='PEmbedded']/@EmbeddedObject)", "a & b < c|instance"},
        {with(imethod("AssociatorNames", "ObjectName", kSystem), "</IMETHODCALL>",
              "<IPARAMVALUE NAME=\"AssocClass\"><CLASSNAME NAME=\"CIM_SystemDevice\"/></IPARAMVALUE></IMETHODCALL>"),
         "count(//IRETURNVALUE/OBJECTPATH/INSTANCEPATH)", "6"},
    };
    for (const auto& row : rows) {
      Reply r = httpExchange(server->port(), framed(row.body, ""));
      pugi::xml_document d;
      ASSERT_TRUE(d.load_string(r.body.c_str())) << r.raw;
      EXPECT_EQ(pugi::xpath_query(row.xpath).evaluate_string(d), row.want) << strict << " " << row.xpath;
    }
  }
}
