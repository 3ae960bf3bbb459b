// mock-cimom --strict: what it turns away, with which status and CIMError.
// The forms it answers are sent by the library's standard mode in
// tests/scenario, against a strict server.
#include <gtest/gtest.h>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "raw_http.h"

using namespace cimmock;

namespace {

std::string imethod(const std::string& name, const std::string& param, const std::string& content) {
  return imethod(name, "<IPARAMVALUE NAME=\"" + param + "\">" + content + "</IPARAMVALUE>");
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

}  // namespace

TEST(StrictTest, TurnsAwayWhatTheStandardDoesNotAllow) {
  const std::string names = imethod("EnumerateInstanceNames", "ClassName", "<CLASSNAME NAME=\"CIM_DiskDrive\"/>");
  const std::string value = imethod("ExecQuery", "Query", "<VALUE>v</VALUE>");
  const std::string key = imethod("GetInstance", "InstanceName", with(kSystem, "<KEYVALUE>", "<KEYVALUE VALUETYPE=\"numeric\">"));
  const std::string setName = cimRequest("<METHODCALL NAME=\"SetElementName\"><LOCALINSTANCEPATH>" + kCimv2 + kSystem +
                                      "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"ElementName\" PARAMTYPE=\"string\">"
                                      "<VALUE>a &amp; b</VALUE></PARAMVALUE></METHODCALL>");
  std::string deep;  // deeper than the decoders go
  for (int i = 0; i < 300; ++i) deep = "<VALUE.ARRAY>" + deep + "</VALUE.ARRAY>";
  const std::string system = "CIMObject: root/cimv2:Mock_ComputerSystem.CreationClassName=\"Mock_ComputerSystem\","
                             "Name=\"mock-server.example.com\"";
  const struct {
    std::string body, edit;
    int status;
    const char* cimError;            // null: served
    const char* errorCode = nullptr;  // the CIM error of a served request
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
      // An embedded instance as escaped text, not marked EmbeddedObject: not guessed at.
      {imethod("CreateInstance", "NewInstance",
               "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"InstanceID\" TYPE=\"string\"><VALUE>s:1</VALUE>"
               "</PROPERTY><PROPERTY NAME=\"PEmbedded\" TYPE=\"string\"><VALUE>&lt;INSTANCE CLASSNAME=&quot;"
               "Mock_Settings&quot;&gt;&lt;/INSTANCE&gt;</VALUE></PROPERTY></INSTANCE>"),
       "", 200, nullptr, "13"},
      {with(names, "</IMETHODCALL>", "x</IMETHODCALL>"), "", 400, "request-not-valid"},
      {with(names, "</IMETHODCALL>", deep + "</IMETHODCALL>"), "", 400, "request-not-valid"},
      {with(with(names, "<SIMPLEREQ>", "<MULTIREQ><SIMPLEREQ>"), "</SIMPLEREQ>", "</SIMPLEREQ></MULTIREQ>"), "", 501,
       "multiple-requests-unsupported"},
      {with(names, "PROTOCOLVERSION=\"1.0\"", "PROTOCOLVERSION=\"2.0\""), "", 501, "unsupported-protocol-version"},
  };
  ServerOptions o;
  o.repoDir = sampleRepositoryDir();
  o.strict = true;
  auto server = std::make_unique<Server>(o);
  ASSERT_TRUE(server->start(nullptr));
  uint64_t refused = 0;
  for (const auto& c : cases) {
    Reply r = httpExchange(server->port(), framed(c.body, c.edit));
    EXPECT_EQ(r.status, c.status) << c.edit << "\n" << r.raw;
    EXPECT_EQ(r.header("CIMError"), c.cimError ? c.cimError : "")
        << c.edit;
    refused += c.cimError != nullptr;
    if (!c.cimError) {
      const std::string code = c.errorCode ? std::string("CODE=\"") + c.errorCode + "\"" : "<ERROR";
      EXPECT_EQ(r.body.find(code) != std::string::npos, c.errorCode != nullptr) << r.body;
    }
  }
  EXPECT_EQ(server->stats().refused, refused);
}
