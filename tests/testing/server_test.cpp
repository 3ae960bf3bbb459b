// The mock CIM object manager driven with raw HTTP written here, over
// loopback sockets (never through the client library).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <chrono>
#include <cstring>
#include <map>

#include "cimmock/mof.h"
#include "cimmock/repository.h"
#include "cimmock/server.h"

using namespace cimmock;

namespace {

int connectTo(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

struct Reply {
  std::string raw;
  int status = 0;
  std::map<std::string, std::string> headers;  // lower-case names
  std::string body;
  int reads = 0;
  bool closed = false;
};

void parseReply(Reply* r) {
  size_t end = r->raw.find("\r\n\r\n");
  if (end == std::string::npos) return;
  std::string head = r->raw.substr(0, end);
  r->body = r->raw.substr(end + 4);
  if (head.compare(0, 9, "HTTP/1.1 ") == 0) r->status = std::atoi(head.c_str() + 9);
  size_t pos = head.find("\r\n");
  while (pos != std::string::npos) {
    size_t next = head.find("\r\n", pos + 2);
    std::string line = head.substr(pos + 2, next == std::string::npos ? std::string::npos : next - pos - 2);
    size_t colon = line.find(':');
    if (colon != std::string::npos) {
      std::string n = line.substr(0, colon);
      for (auto& c : n) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      size_t v = line.find_first_not_of(' ', colon + 1);
      r->headers[n] = v == std::string::npos ? "" : line.substr(v);
    }
    pos = next;
  }
}

// Reads one reply: until the announced Content-Length is in, the peer
// closes, or the time-out passes.
Reply readReply(int fd, int timeoutMs = 3000) {
  Reply r;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  char buf[65536];
  while (true) {
    int left = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count());
    if (left <= 0) break;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, left) <= 0) break;
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) {
      r.closed = true;
      break;
    }
    ++r.reads;
    r.raw.append(buf, static_cast<size_t>(n));
    size_t end = r.raw.find("\r\n\r\n");
    if (end != std::string::npos) {
      Reply tmp;
      tmp.raw = r.raw;
      parseReply(&tmp);
      auto it = tmp.headers.find("content-length");
      if (it != tmp.headers.end() && tmp.body.size() >= std::stoul(it->second)) break;
    }
  }
  parseReply(&r);
  return r;
}

Reply httpExchange(int port, const std::string& bytes, int timeoutMs = 3000) {
  int fd = connectTo(port);
  EXPECT_GE(fd, 0);
  if (fd < 0) return Reply();
  ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  Reply r = readReply(fd, timeoutMs);
  ::close(fd);
  return r;
}

std::string base64(const std::string& in) {
  static const char* t = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < in.size(); i += 3) {
    unsigned v = static_cast<unsigned char>(in[i]) << 16;
    if (i + 1 < in.size()) v |= static_cast<unsigned char>(in[i + 1]) << 8;
    if (i + 2 < in.size()) v |= static_cast<unsigned char>(in[i + 2]);
    out += t[(v >> 18) & 63];
    out += t[(v >> 12) & 63];
    out += i + 1 < in.size() ? t[(v >> 6) & 63] : '=';
    out += i + 2 < in.size() ? t[v & 63] : '=';
  }
  return out;
}

// Exactly the framing CimXmlClient writes (Parts 4.1 and 4.2).
std::string clientFraming(const std::string& xml, const std::string& user = "u", const std::string& pw = "p") {
  return "POST  /cimom HTTP/1.1 \r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
         std::to_string(xml.size() + 1) + "\r\nAuthorization: Basic " + base64(user + ":" + pw) + "\r\n\n\r" + xml;
}

// The framing of a standard client (DSP0200 headers, CRLF CRLF).
std::string standardFraming(const std::string& xml, const std::string& method, bool keepAlive = true) {
  return "POST /cimom HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/xml; charset=\"utf-8\"\r\n"
         "CIMOperation: MethodCall\r\nCIMMethod: " +
         method + "\r\nCIMObject: root%2Fcimv2\r\n" + (keepAlive ? "" : "Connection: close\r\n") +
         "Content-Length: " + std::to_string(xml.size()) + "\r\n\r\n" + xml;
}

std::string nsPath(const std::string& ns) {
  std::string out = "<LOCALNAMESPACEPATH>";
  size_t b = 0;
  while (b <= ns.size()) {
    size_t e = ns.find('/', b);
    if (e == std::string::npos) e = ns.size();
    out += "<NAMESPACE NAME=\"" + ns.substr(b, e - b) + "\"/>";
    b = e + 1;
  }
  return out + "</LOCALNAMESPACEPATH>";
}

std::string envelope(const std::string& inner) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1234\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" +
         inner + "</SIMPLEREQ></MESSAGE></CIM>";
}

std::string imethod(const std::string& name, const std::string& params, const std::string& ns = "root/cimv2") {
  return envelope("<IMETHODCALL NAME=\"" + name + "\">" + nsPath(ns) + params + "</IMETHODCALL>");
}

// Parameter texts in CimXmlClient's own spelling.
std::string classParam(const std::string& name, const std::string& cls) {
  return "<IPARAMVALUE NAME=\"" + name + "\"><CLASSNAME NAME=\"" + cls + "\"/></IPARAMVALUE>";
}
std::string flagParam(const std::string& name, bool v) {
  return "<IPARAMVALUE NAME=\"" + name + "\"><VALUE>" + (v ? "TRUE" : "FALSE") + "</VALUE></IPARAMVALUE>";
}
std::string textParam(const std::string& name, const std::string& v) {
  return "<IPARAMVALUE NAME=\"" + name + "\"><VALUE>" + v + "</VALUE></IPARAMVALUE>";
}
std::string key(const std::string& name, const std::string& v, const char* vt = "string") {
  return "<KEYBINDING NAME=\"" + name + "\"><KEYVALUE VALUETYPE = \"" + vt + "\">" + v + "</KEYVALUE></KEYBINDING>";
}
std::string deviceName(const std::string& cls, const std::string& id) {
  return "<INSTANCENAME CLASSNAME=\"" + cls + "\">" + key("SystemCreationClassName", "Mock_ComputerSystem") +
         key("SystemName", "mock-server.example.com") + key("CreationClassName", cls) + key("DeviceID", id) +
         "</INSTANCENAME>";
}
std::string systemName() {
  return "<INSTANCENAME CLASSNAME=\"Mock_ComputerSystem\">" + key("CreationClassName", "Mock_ComputerSystem") +
         key("Name", "mock-server.example.com") + "</INSTANCENAME>";
}

class ServerTest : public ::testing::Test {
protected:
  void SetUp() override { start(ServerOptions()); }
  void start(ServerOptions o) {
    server.reset();
    o.repoDir = sampleRepositoryDir();
    server = std::make_unique<Server>(o);
    std::string err;
    ASSERT_TRUE(server->start(&err)) << err;
    port = server->port();
  }
  // Sends one request with the client's framing, checks HTTP 200 and
  // well-formedness, and returns the parsed document.
  Reply call(const std::string& xml) { return httpExchange(port, clientFraming(xml)); }
  pugi::xml_node ok(const std::string& xml, pugi::xml_document& doc, const char* expectedResponse = "IMETHODRESPONSE") {
    Reply r = call(xml);
    EXPECT_EQ(r.status, 200) << r.raw;
    EXPECT_EQ(r.headers["content-length"], std::to_string(r.body.size()));
    EXPECT_EQ(r.body.compare(0, 5, "<?xml"), 0);
    pugi::xml_parse_result pr = doc.load_string(r.body.c_str());
    EXPECT_TRUE(pr) << pr.description() << "\n" << r.body;
    auto resp = doc.child("CIM").child("MESSAGE").child("SIMPLERSP").child(expectedResponse);
    EXPECT_TRUE(resp) << r.body;
    return resp;
  }
  pugi::xml_node rv(const std::string& xml, pugi::xml_document& doc) {
    auto resp = ok(xml, doc);
    EXPECT_FALSE(resp.child("ERROR")) << resp.child("ERROR").attribute("DESCRIPTION").value();
    return resp.child("IRETURNVALUE");
  }
  int errorCode(const std::string& xml, const char* responseElement = "IMETHODRESPONSE") {
    pugi::xml_document doc;
    auto e = ok(xml, doc, responseElement).child("ERROR");
    EXPECT_TRUE(e);
    EXPECT_STRNE(e.attribute("DESCRIPTION").value(), "");
    return e.attribute("CODE").as_int();
  }
  static size_t count(pugi::xml_node n, const char* name) {
    size_t k = 0;
    for (auto c : n.children(name)) (void)c, ++k;
    return k;
  }
  std::unique_ptr<Server> server;
  int port = 0;
};

}  // namespace

TEST_F(ServerTest, EnumerateClassNames) {
  pugi::xml_document d;
  auto r = rv(imethod("EnumerateClassNames", ""), d);
  EXPECT_TRUE(r.find_child_by_attribute("CLASSNAME", "NAME", "CIM_ManagedElement"));
  EXPECT_FALSE(r.find_child_by_attribute("CLASSNAME", "NAME", "CIM_Processor"));
  r = rv(imethod("EnumerateClassNames", classParam("ClassName", "CIM_LogicalDevice") + flagParam("DeepInheritance", true)), d);
  EXPECT_EQ(count(r, "CLASSNAME"), 6u);  // Processor, DiskDrive, NetworkPort + 3 Mock_
  r = rv(imethod("EnumerateClassNames", classParam("ClassName", "CIM_LogicalDevice") + flagParam("DeepInheritance", false)), d);
  EXPECT_EQ(count(r, "CLASSNAME"), 3u);
}

TEST_F(ServerTest, GetClassWithQualifiersPropertiesAndMethods) {
  pugi::xml_document d;
  auto r = rv(imethod("GetClass", classParam("ClassName", "Mock_AllTypes") + flagParam("LocalOnly", false) +
                                      flagParam("IncludeQualifiers", true) + flagParam("IncludeClassOrigin", true)),
              d);
  auto c = r.child("CLASS");
  EXPECT_STREQ(c.attribute("NAME").value(), "Mock_AllTypes");
  EXPECT_TRUE(c.find_child_by_attribute("QUALIFIER", "NAME", "Description"));
  auto p = c.find_child_by_attribute("PROPERTY", "NAME", "PSint64");
  EXPECT_STREQ(p.attribute("TYPE").value(), "sint64");
  EXPECT_STREQ(p.attribute("CLASSORIGIN").value(), "Mock_AllTypes");
  EXPECT_STREQ(c.find_child_by_attribute("PROPERTY.ARRAY", "NAME", "PStringArray").attribute("TYPE").value(), "string");
  EXPECT_STREQ(c.find_child_by_attribute("PROPERTY.REFERENCE", "NAME", "PReference").attribute("REFERENCECLASS").value(),
               "CIM_ManagedElement");
  auto emb = c.find_child_by_attribute("PROPERTY", "NAME", "PEmbedded");
  EXPECT_STREQ(emb.find_child_by_attribute("QUALIFIER", "NAME", "EmbeddedInstance").child_value("VALUE"), "Mock_Settings");
  auto m = c.find_child_by_attribute("METHOD", "NAME", "Echo");
  EXPECT_STREQ(m.attribute("TYPE").value(), "uint32");
  EXPECT_TRUE(m.find_child_by_attribute("PARAMETER", "NAME", "S"));
  EXPECT_TRUE(m.find_child_by_attribute("PARAMETER.ARRAY", "NAME", "SArray"));
  EXPECT_TRUE(m.find_child_by_attribute("PARAMETER.REFERENCE", "NAME", "Ref"));
  EXPECT_TRUE(m.find_child_by_attribute("PARAMETER", "NAME", "S").find_child_by_attribute("QUALIFIER", "NAME", "In"));

  // Defaults: LocalOnly TRUE drops inherited properties.
  r = rv(imethod("GetClass", classParam("ClassName", "Mock_ComputerSystem")), d);
  c = r.child("CLASS");
  EXPECT_STREQ(c.attribute("SUPERCLASS").value(), "CIM_ComputerSystem");
  EXPECT_EQ(count(c, "PROPERTY"), 1u);  // OSName only
  r = rv(imethod("GetClass", classParam("ClassName", "Mock_ComputerSystem") + flagParam("LocalOnly", false) +
                                 flagParam("IncludeQualifiers", false)),
         d);
  c = r.child("CLASS");
  auto name = c.find_child_by_attribute("PROPERTY", "NAME", "Name");
  EXPECT_STREQ(name.attribute("PROPAGATED").value(), "true");
  EXPECT_FALSE(name.child("QUALIFIER"));
  EXPECT_FALSE(c.attribute("CLASSORIGIN"));
  EXPECT_EQ(errorCode(imethod("GetClass", classParam("ClassName", "No_Such"))), 6);
}

TEST_F(ServerTest, EnumerateClasses) {
  pugi::xml_document d;
  auto r = rv(imethod("EnumerateClasses", classParam("ClassName", "CIM_Component") + flagParam("DeepInheritance", true)), d);
  EXPECT_EQ(count(r, "CLASS"), 2u);
}

TEST_F(ServerTest, EnumerateInstancesAndNames) {
  pugi::xml_document d;
  auto r = rv(imethod("EnumerateInstances", classParam("ClassName", "CIM_LogicalDevice") + flagParam("LocalOnly", false) +
                                                flagParam("DeepInheritance", true)),
              d);
  EXPECT_EQ(count(r, "VALUE.NAMEDINSTANCE"), 6u);
  auto ni = r.child("VALUE.NAMEDINSTANCE");
  EXPECT_EQ(count(ni.child("INSTANCENAME"), "KEYBINDING"), 4u);
  EXPECT_STREQ(ni.child("INSTANCE").attribute("CLASSNAME").value(), "Mock_Processor");
  EXPECT_TRUE(ni.child("INSTANCE").find_child_by_attribute("PROPERTY", "NAME", "MaxClockSpeed"));
  // DeepInheritance FALSE: only the properties of the requested class.
  r = rv(imethod("EnumerateInstances", classParam("ClassName", "CIM_LogicalDevice") + flagParam("DeepInheritance", false)), d);
  EXPECT_FALSE(r.child("VALUE.NAMEDINSTANCE").child("INSTANCE").find_child_by_attribute("PROPERTY", "NAME", "MaxClockSpeed"));
  // PropertyList.
  r = rv(imethod("EnumerateInstances", classParam("ClassName", "CIM_DiskDrive") +
                                           "<IPARAMVALUE NAME=\"PropertyList\"><VALUE.ARRAY><VALUE>Capacity</VALUE>"
                                           "</VALUE.ARRAY></IPARAMVALUE>"),
         d);
  auto inst = r.child("VALUE.NAMEDINSTANCE").child("INSTANCE");
  EXPECT_EQ(count(inst, "PROPERTY"), 1u);
  EXPECT_STREQ(inst.child("PROPERTY").child_value("VALUE"), "500107862016");

  r = rv(imethod("EnumerateInstanceNames", classParam("ClassName", "CIM_NetworkPort")), d);
  EXPECT_EQ(count(r, "INSTANCENAME"), 2u);
  EXPECT_STREQ(r.child("INSTANCENAME").find_child_by_attribute("KEYBINDING", "NAME", "DeviceID").child_value("KEYVALUE"), "eth0");
  EXPECT_EQ(errorCode(imethod("EnumerateInstances", classParam("ClassName", "No_Such"))), 5);
  EXPECT_EQ(errorCode(imethod("EnumerateInstances", classParam("ClassName", "CIM_Processor"), "root/none")), 3);
}

TEST_F(ServerTest, ValuesOfEveryTypeAndEmbeddedInstanceInCdata) {
  pugi::xml_document d;
  auto r = rv(imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" +
                                         key("InstanceID", "mock:alltypes:1") + "</INSTANCENAME></IPARAMVALUE>"),
              d);
  auto inst = r.child("INSTANCE");
  auto val = [&](const char* n) { return std::string(inst.find_child_by_attribute("PROPERTY", "NAME", n).child_value("VALUE")); };
  EXPECT_EQ(val("PString"), "Hello <CIM> & \"friends\"");
  EXPECT_EQ(val("PUint64"), "18446744073709551615");
  EXPECT_EQ(val("PSint8"), "-128");
  EXPECT_EQ(val("PBoolean"), "TRUE");
  EXPECT_EQ(val("PDateTime"), "20240229235959.123456-300");
  EXPECT_EQ(count(inst.find_child_by_attribute("PROPERTY.ARRAY", "NAME", "PUint8Array").child("VALUE.ARRAY"), "VALUE"), 3u);
  auto ref = inst.find_child_by_attribute("PROPERTY.REFERENCE", "NAME", "PReference").child("VALUE.REFERENCE");
  EXPECT_STREQ(ref.child("INSTANCEPATH").child("INSTANCENAME").attribute("CLASSNAME").value(), "Mock_ComputerSystem");
  auto emb = inst.find_child_by_attribute("PROPERTY", "NAME", "PEmbedded");
  EXPECT_STREQ(emb.attribute("EmbeddedObject").value(), "instance");
  auto cdata = emb.child("VALUE").first_child();
  ASSERT_EQ(cdata.type(), pugi::node_cdata);
  pugi::xml_document e;
  ASSERT_TRUE(e.load_string(cdata.value()));
  EXPECT_STREQ(e.child("INSTANCE").attribute("CLASSNAME").value(), "Mock_Settings");
  EXPECT_FALSE(inst.find_child_by_attribute("PROPERTY", "NAME", "PEmpty").child("VALUE"));
  // Not found.
  EXPECT_EQ(errorCode(imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" +
                                                  key("InstanceID", "nope") + "</INSTANCENAME></IPARAMVALUE>")),
            6);
}

TEST_F(ServerTest, AssociatorsReferencesAndNames) {
  pugi::xml_document d;
  std::string obj = classParam("ClassName", "Mock_Processor") +
                    "<IPARAMVALUE NAME=\"ObjectName\">" + deviceName("Mock_Processor", "CPU0") + "</IPARAMVALUE>";
  auto r = rv(imethod("Associators", obj + classParam("AssocClass", "CIM_SystemDevice") +
                                         classParam("ResultClass", "CIM_ComputerSystem") + textParam("Role", "PartComponent") +
                                         textParam("ResultRole", "GroupComponent") + flagParam("IncludeQualifiers", false) +
                                         flagParam("IncludeClassOrigin", false)),
              d);
  ASSERT_EQ(count(r, "VALUE.OBJECTWITHPATH"), 1u);
  auto owp = r.child("VALUE.OBJECTWITHPATH");
  EXPECT_STREQ(owp.child("INSTANCEPATH").child("NAMESPACEPATH").child_value("HOST"), "localhost");
  EXPECT_STREQ(owp.child("INSTANCE").attribute("CLASSNAME").value(), "Mock_ComputerSystem");
  r = rv(imethod("Associators", obj + textParam("Role", "GroupComponent")), d);
  EXPECT_EQ(count(r, "VALUE.OBJECTWITHPATH"), 0u);

  std::string sys = classParam("ClassName", "Mock_ComputerSystem") + "<IPARAMVALUE NAME=\"ObjectName\">" + systemName() +
                    "</IPARAMVALUE>";
  r = rv(imethod("AssociatorNames", sys + classParam("AssocClass", "CIM_SystemDevice")), d);
  EXPECT_EQ(count(r, "OBJECTPATH"), 6u);
  EXPECT_TRUE(r.child("OBJECTPATH").child("INSTANCEPATH").child("INSTANCENAME"));
  r = rv(imethod("AssociatorNames", sys + classParam("ResultClass", "CIM_DiskDrive")), d);
  EXPECT_EQ(count(r, "OBJECTPATH"), 2u);

  r = rv(imethod("References", sys + classParam("ResultClass", "CIM_SystemDevice") + flagParam("IncludeQualifiers", false) +
                                   flagParam("IncludeClassOrigin", false) + textParam("Role", "GroupComponent")),
         d);
  EXPECT_EQ(count(r, "VALUE.OBJECTWITHPATH"), 6u);
  EXPECT_STREQ(r.child("VALUE.OBJECTWITHPATH").child("INSTANCE").attribute("CLASSNAME").value(), "CIM_SystemDevice");
  r = rv(imethod("References", sys), d);
  EXPECT_EQ(count(r, "VALUE.OBJECTWITHPATH"), 7u);  // + CIM_DeviceSAPImplementation

  r = rv(imethod("ReferenceNames", sys + classParam("ResultClass", "CIM_SystemDevice") + textParam("Role", "GroupComponent")), d);
  EXPECT_EQ(count(r, "OBJECTPATH"), 6u);
  EXPECT_EQ(count(r, "INSTANCENAME"), 0u);

  // Class-level traversal.
  r = rv(imethod("ReferenceNames", "<IPARAMVALUE NAME=\"ObjectName\"><CLASSNAME NAME=\"CIM_Processor\"/></IPARAMVALUE>"), d);
  EXPECT_TRUE(r.child("OBJECTPATH").child("CLASSPATH"));
}

TEST_F(ServerTest, ReferenceNamesAsInstanceNamesOption) {
  ServerOptions o;
  o.referenceNamesAsInstanceNames = true;
  start(o);
  pugi::xml_document d;
  auto r = rv(imethod("ReferenceNames", classParam("ClassName", "Mock_ComputerSystem") + "<IPARAMVALUE NAME=\"ObjectName\">" +
                                            systemName() + "</IPARAMVALUE>" + classParam("ResultClass", "CIM_SystemDevice")),
              d);
  EXPECT_EQ(count(r, "INSTANCENAME"), 6u);
  EXPECT_EQ(count(r, "OBJECTPATH"), 0u);
}

TEST_F(ServerTest, CreateModifyDeleteWithTheClientsIrregularAttributes) {
  pugi::xml_document d;
  // As CimXmlClient writes them: PROPAGATED=TRUE unquoted, ARRAYSIZE=2
  // unquoted, PROPAGATED 'TRUE' without '=', and an embedded instance in
  // CDATA with TYPE= "string".
  std::string inst =
      "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"InstanceID\" TYPE=\"string\" PROPAGATED=TRUE>"
      "<VALUE>new:1</VALUE></PROPERTY><PROPERTY NAME=\"PUint16\" TYPE=\"uint16\"><VALUE>513</VALUE></PROPERTY>"
      "<PROPERTY NAME=\"PString\" TYPE=\"string\"><VALUE>a & b < c</VALUE></PROPERTY>"
      "<PROPERTY NAME=\"PEmbedded\" TYPE=\"string\"><VALUE><![CDATA[\n<INSTANCE CLASSNAME=\"Mock_Settings\">"
      "<PROPERTY NAME=\"Mode\" TYPE= \"string\"><VALUE>eco</VALUE></PROPERTY></INSTANCE>]]></VALUE></PROPERTY>"
      "<PROPERTY.ARRAY NAME=\"PStringArray\" TYPE=\"string\" ARRAYSIZE=2 PROPAGATED 'TRUE'><VALUE.ARRAY>"
      "<VALUE>x</VALUE><VALUE>y</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
  auto r = rv(imethod("CreateInstance", "<IPARAMVALUE NAME=\"NewInstance\">" + inst + "</IPARAMVALUE>"), d);
  EXPECT_STREQ(r.child("INSTANCENAME").child("KEYBINDING").child_value("KEYVALUE"), "new:1");
  EXPECT_EQ(errorCode(imethod("CreateInstance", "<IPARAMVALUE NAME=\"NewInstance\">" + inst + "</IPARAMVALUE>")), 11);
  std::string name = "<INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" + key("InstanceID", "new:1") + "</INSTANCENAME>";
  {
    auto lock = server->lock();
    const Instance* i = server->repository().findInstance("root/cimv2", ObjectPath::parse("Mock_AllTypes.InstanceID=\"new:1\""));
    ASSERT_NE(i, nullptr);
    EXPECT_EQ(i->findProperty("PString")->value.asText(), "a & b < c");
    EXPECT_EQ(i->findProperty("PStringArray")->value.texts.size(), 2u);
    ASSERT_EQ(i->findProperty("PEmbedded")->value.embedded.size(), 1u);
    EXPECT_EQ(i->findProperty("PEmbedded")->value.embedded[0]->findProperty("Mode")->value.asText(), "eco");
  }
  // ModifyInstance, with the client's parameter order.
  auto resp = ok(imethod("ModifyInstance", flagParam("IncludeQualifiers", false) +
                                               "<IPARAMVALUE NAME=\"ModifiedInstance\"><VALUE.NAMEDINSTANCE>" + name +
                                               "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"PUint16\" "
                                               "TYPE=\"uint16\"><VALUE>7</VALUE></PROPERTY></INSTANCE>"
                                               "</VALUE.NAMEDINSTANCE></IPARAMVALUE>"),
                 d);
  EXPECT_FALSE(resp.first_child());  // empty IMETHODRESPONSE
  auto g = rv(imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" + name + "</IPARAMVALUE>"), d);
  EXPECT_STREQ(g.child("INSTANCE").find_child_by_attribute("PROPERTY", "NAME", "PUint16").child_value("VALUE"), "7");
  EXPECT_EQ(errorCode(imethod("ModifyInstance", "<IPARAMVALUE NAME=\"ModifiedInstance\"><VALUE.NAMEDINSTANCE>" + name +
                                                    "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"PUint16\" "
                                                    "TYPE=\"uint16\"><VALUE>99999</VALUE></PROPERTY></INSTANCE>"
                                                    "</VALUE.NAMEDINSTANCE></IPARAMVALUE>")),
            13);
  resp = ok(imethod("DeleteInstance", "<IPARAMVALUE NAME=\"InstanceName\">" + name + "</IPARAMVALUE>"), d);
  EXPECT_FALSE(resp.first_child());
  EXPECT_EQ(errorCode(imethod("DeleteInstance", "<IPARAMVALUE NAME=\"InstanceName\">" + name + "</IPARAMVALUE>")), 6);
}

TEST_F(ServerTest, ExecQuery) {
  pugi::xml_document d;
  auto r = rv(imethod("ExecQuery", textParam("QueryLanguage", "WQL") +
                                       textParam("Query", "SELECT DeviceID FROM CIM_Processor WHERE LoadPercentage &gt; 50")),
              d);
  ASSERT_EQ(count(r, "VALUE.OBJECTWITHPATH"), 1u);
  auto inst = r.child("VALUE.OBJECTWITHPATH").child("INSTANCE");
  EXPECT_EQ(count(inst, "PROPERTY"), 1u);
  EXPECT_STREQ(inst.child("PROPERTY").child_value("VALUE"), "CPU1");
  EXPECT_EQ(errorCode(imethod("ExecQuery", textParam("QueryLanguage", "WQL") + textParam("Query", "SELEKT"))), 15);
  EXPECT_EQ(errorCode(imethod("ExecQuery", textParam("QueryLanguage", "XQ") + textParam("Query", "x"))), 14);
}

TEST_F(ServerTest, ExtrinsicMethods) {
  pugi::xml_document d;
  // Static method on LOCALCLASSPATH, CLASSNAME written as CimXmlClient does.
  std::string echo = envelope(
      "<METHODCALL NAME=\"Echo\"><LOCALCLASSPATH>" + nsPath("root/cimv2") +
      "<CLASSNAME NAME =\"Mock_AllTypes\"/></LOCALCLASSPATH>"
      "<PARAMVALUE NAME=\"S\" PARAMTYPE=\"string\"><VALUE>hi &amp; bye</VALUE></PARAMVALUE>"
      "<PARAMVALUE NAME=\"U32\"><VALUE>42</VALUE></PARAMVALUE>"
      "<PARAMVALUE NAME=\"SArray\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE>b</VALUE></VALUE.ARRAY></PARAMVALUE>"
      "<PARAMVALUE NAME=\"Ref\"><VALUE.REFERENCE>" + systemName() + "</VALUE.REFERENCE></PARAMVALUE>"
      "</METHODCALL>");
  auto resp = ok(echo, d, "METHODRESPONSE");
  EXPECT_STREQ(resp.attribute("NAME").value(), "Echo");
  EXPECT_STREQ(resp.child("RETURNVALUE").attribute("PARAMTYPE").value(), "uint32");
  EXPECT_STREQ(resp.child("RETURNVALUE").child_value("VALUE"), "0");
  EXPECT_STREQ(resp.find_child_by_attribute("PARAMVALUE", "NAME", "S").child_value("VALUE"), "hi & bye");
  EXPECT_STREQ(resp.find_child_by_attribute("PARAMVALUE", "NAME", "U32").attribute("PARAMTYPE").value(), "uint32");
  EXPECT_EQ(count(resp.find_child_by_attribute("PARAMVALUE", "NAME", "SArray").child("VALUE.ARRAY"), "VALUE"), 2u);
  EXPECT_TRUE(resp.find_child_by_attribute("PARAMVALUE", "NAME", "Ref").child("VALUE.REFERENCE"));

  // A method that changes a property of the instance.
  std::string set = envelope("<METHODCALL NAME=\"SetElementName\"><LOCALINSTANCEPATH>" + nsPath("root/cimv2") + systemName() +
                             "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"ElementName\"><VALUE>Renamed</VALUE></PARAMVALUE>"
                             "</METHODCALL>");
  resp = ok(set, d, "METHODRESPONSE");
  EXPECT_STREQ(resp.child("RETURNVALUE").child_value("VALUE"), "0");
  auto g = rv(imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" + systemName() + "</IPARAMVALUE>"), d);
  EXPECT_STREQ(g.child("INSTANCE").find_child_by_attribute("PROPERTY", "NAME", "ElementName").child_value("VALUE"), "Renamed");
  std::string rsc = envelope("<METHODCALL NAME=\"RequestStateChange\"><LOCALINSTANCEPATH>" + nsPath("root/cimv2") +
                             deviceName("Mock_NetworkPort", "eth1") +
                             "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"RequestedState\"><VALUE>2</VALUE></PARAMVALUE>"
                             "</METHODCALL>");
  ok(rsc, d, "METHODRESPONSE");
  {
    auto lock = server->lock();
    const Instance* i = server->repository().findInstance(
        "root/cimv2", ObjectPath::parse("Mock_NetworkPort.SystemCreationClassName=\"Mock_ComputerSystem\",SystemName=\"mock-"
                                        "server.example.com\",CreationClassName=\"Mock_NetworkPort\",DeviceID=\"eth1\""));
    ASSERT_NE(i, nullptr);
    EXPECT_EQ(i->findProperty("EnabledState")->value.asText(), "2");
  }
  auto callOn = [&](const std::string& method) {
    return envelope("<METHODCALL NAME=\"" + method + "\"><LOCALCLASSPATH>" + nsPath("root/cimv2") +
                    "<CLASSNAME NAME =\"Mock_AllTypes\"/></LOCALCLASSPATH></METHODCALL>");
  };
  EXPECT_EQ(errorCode(callOn("Fail"), "METHODRESPONSE"), 1);
  EXPECT_EQ(errorCode(callOn("NoSuchMethod"), "METHODRESPONSE"), 17);
  resp = ok(callOn("ReturnCode"), d, "METHODRESPONSE");
  EXPECT_STREQ(resp.child("RETURNVALUE").child_value("VALUE"), "4096");
}

TEST_F(ServerTest, UnsupportedOperationAndBadParameters) {
  EXPECT_EQ(errorCode(imethod("CreateClass", "")), 7);
  EXPECT_EQ(errorCode(imethod("GetClass", "")), 4);
  EXPECT_EQ(errorCode(imethod("EnumerateInstances", classParam("ClassName", "CIM_Processor") + textParam("LocalOnly", "maybe"))), 4);
}

TEST_F(ServerTest, RequestBytesAreRecordedAsReceived) {
  pugi::xml_document d;
  rv(imethod("EnumerateClassNames", ""), d);
  std::string raw = server->lastRequest();
  EXPECT_EQ(raw.compare(0, 22, "POST  /cimom HTTP/1.1 "), 0);
  EXPECT_EQ(server->lastRequestBody().compare(0, 6, "\r<?xml"), 0);
  EXPECT_EQ(server->stats().requests, 1u);
}

TEST_F(ServerTest, StandardClientFramingAndKeepAlive) {
  int fd = connectTo(port);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < 3; ++i) {
    std::string req = standardFraming(imethod("EnumerateInstanceNames", classParam("ClassName", "CIM_DiskDrive")),
                                      "EnumerateInstanceNames");
    ::send(fd, req.data(), req.size(), MSG_NOSIGNAL);
    Reply r = readReply(fd);
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.headers["cimoperation"], "MethodResponse");
    EXPECT_NE(r.body.find("disk1"), std::string::npos);
  }
  ::close(fd);
  EXPECT_EQ(server->stats().connections, 1u);
  // Connection: close is honoured.
  Reply r = httpExchange(port, standardFraming(imethod("EnumerateClassNames", ""), "EnumerateClassNames", false));
  EXPECT_EQ(r.status, 200);
  EXPECT_EQ(r.headers["connection"], "close");
}

TEST_F(ServerTest, BasicAuthentication) {
  ServerOptions o;
  o.user = "admin";
  o.password = "secret";
  start(o);
  std::string xml = imethod("EnumerateClassNames", "");
  Reply r = httpExchange(port, clientFraming(xml, "admin", "wrong"));
  EXPECT_EQ(r.status, 401);
  EXPECT_EQ(r.raw.compare(0, 25, "HTTP/1.1 401 Unauthorized"), 0);
  EXPECT_EQ(r.headers["www-authenticate"], "Basic realm=\"cimom\"");
  r = httpExchange(port, standardFraming(xml, "EnumerateClassNames"));  // no Authorization at all
  EXPECT_EQ(r.status, 401);
  r = httpExchange(port, clientFraming(xml, "admin", "secret"));
  EXPECT_EQ(r.status, 200);
  EXPECT_EQ(server->stats().unauthorized, 2u);
}

TEST_F(ServerTest, BadRequestsGet400AndTheServerSurvives) {
  Reply r = httpExchange(port, clientFraming("<?xml version=\"1.0\"?><CIM><MESSAGE"));
  EXPECT_EQ(r.status, 400);
  r = httpExchange(port, clientFraming("this is not xml"));
  EXPECT_EQ(r.status, 400);
  EXPECT_EQ(r.headers["cimerror"], "request-not-well-formed");
  r = httpExchange(port, clientFraming("<?xml version=\"1.0\"?><HTML/>"));
  EXPECT_EQ(r.status, 400);
  EXPECT_EQ(r.headers["cimerror"], "request-not-valid");
  r = httpExchange(port, "GARBAGE\r\n\r\n");
  EXPECT_EQ(r.status, 400);
  r = httpExchange(port, "POST /cimom HTTP/1.1\r\nContent-Length: nope\r\n\r\n");
  EXPECT_EQ(r.status, 400);
  r = httpExchange(port, "GET /cimom HTTP/1.1\r\n\r\n");
  EXPECT_EQ(r.status, 405);
  r = httpExchange(port, "POST /other HTTP/1.1\r\nContent-Length: 0\r\n\r\n");
  EXPECT_EQ(r.status, 404);
  // A client that disconnects mid-request (headers only, then half a body).
  for (int i = 0; i < 3; ++i) {
    int fd = connectTo(port);
    std::string req = clientFraming(imethod("EnumerateClassNames", ""));
    ::send(fd, req.data(), req.size() / 2, MSG_NOSIGNAL);
    ::close(fd);
  }
  pugi::xml_document d;
  rv(imethod("EnumerateClassNames", ""), d);
}

TEST_F(ServerTest, LenientParsingOfIrregularTags) {
  pugi::xml_document d;
  // A closing tag in other case (as the client writes RESPONSEDESTINATION),
  // an unclosed element, and single-quoted attributes.
  std::string xml = envelope("<IMETHODCALL NAME='EnumerateInstanceNames'>" + nsPath("root/cimv2") +
                             classParam("ClassName", "CIM_DiskDrive") +
                             "<RESPONSEDESTINATION><INSTANCE CLASSNAME=\"X\"></INSTANCE></ResponseDestination>"
                             "</IMETHODCALL>");
  auto r = rv(xml, d);
  EXPECT_EQ(count(r, "INSTANCENAME"), 2u);
}

TEST_F(ServerTest, LinesAndIndentedLayouts) {
  server->setLayout(ServerOptions::Layout::Lines);
  std::string xml = imethod("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" +
                                               key("InstanceID", "mock:alltypes:2") + "</INSTANCENAME></IPARAMVALUE>");
  Reply r = call(xml);
  EXPECT_NE(r.body.find("<PROPERTY NAME=\"PEmpty\" TYPE=\"string\">\n</PROPERTY>"), std::string::npos) << r.body;
  EXPECT_NE(r.body.find("\n<INSTANCE CLASSNAME=\"Mock_AllTypes\">\n<PROPERTY"), std::string::npos);
  EXPECT_EQ(r.body.find("\n "), std::string::npos);  // no indentation
  pugi::xml_document d;
  EXPECT_TRUE(d.load_string(r.body.c_str()));
  server->setLayout(ServerOptions::Layout::Indented);
  r = call(xml);
  EXPECT_NE(r.body.find("\n  <MESSAGE"), std::string::npos);
  EXPECT_TRUE(d.load_string(r.body.c_str()));
}

TEST_F(ServerTest, HandleCimXmlWithoutHttp) {
  int status = 0;
  std::string out = server->handleCimXml(imethod("EnumerateClassNames", ""), &status);
  EXPECT_EQ(status, 200);
  EXPECT_NE(out.find("<CLASSNAME NAME=\"CIM_ManagedElement\"/>"), std::string::npos);
  server->handleCimXml("junk", &status);
  EXPECT_EQ(status, 400);
}

// ---- fault injection -----------------------------------------------------------

class FaultTest : public ServerTest {
protected:
  Reply faulty(const FaultOptions& f) {
    server->setFaults(f);
    return httpExchange(port, clientFraming(imethod("EnumerateClassNames", "")));
  }
};

TEST_F(FaultTest, SplitIntoSegmentsWithDelay) {
  FaultOptions f;
  f.splitSegments = 4;
  f.splitDelayMs = 40;
  auto t0 = std::chrono::steady_clock::now();
  Reply r = faulty(f);
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_EQ(r.status, 200);
  EXPECT_GE(ms, 110);
  EXPECT_GE(r.reads, 4);
  EXPECT_EQ(r.headers["content-length"], std::to_string(r.body.size()));
}

TEST_F(FaultTest, WrongAndMissingContentLength) {
  FaultOptions f;
  f.contentLengthDelta = -10;
  Reply r = faulty(f);
  EXPECT_EQ(std::stoul(r.headers["content-length"]) + 10, r.body.size());
  f = FaultOptions();
  f.omitContentLength = true;
  r = faulty(f);
  EXPECT_EQ(r.headers.count("content-length"), 0u);
}

TEST_F(FaultTest, CloseEarly) {
  FaultOptions f;
  f.closeAfterBytes = 30;
  Reply r = faulty(f);
  EXPECT_EQ(r.raw.size(), 30u);
  EXPECT_TRUE(r.closed);
  f.closeAfterBytes = 0;
  r = faulty(f);
  EXPECT_TRUE(r.raw.empty());
  EXPECT_TRUE(r.closed);
}

TEST_F(FaultTest, GarbageBodyAndNoDeclaration) {
  FaultOptions f;
  f.garbageBody = true;
  Reply r = faulty(f);
  EXPECT_EQ(r.status, 200);
  EXPECT_EQ(r.body.find("<?xml"), std::string::npos);
  pugi::xml_document d;
  EXPECT_FALSE(d.load_string(r.body.c_str()));
  f = FaultOptions();
  f.noXmlDeclaration = true;
  r = faulty(f);
  EXPECT_EQ(r.body.find("<?xml"), std::string::npos);
  EXPECT_EQ(r.body.compare(0, 4, "<CIM"), 0);
  EXPECT_TRUE(d.load_string(r.body.c_str()));
}

TEST_F(FaultTest, VeryLargeReply) {
  FaultOptions f;
  f.largeReplyBytes = 3 * 1024 * 1024;
  Reply r = faulty(f);
  EXPECT_EQ(r.body.size(), f.largeReplyBytes);
  pugi::xml_document d;
  EXPECT_TRUE(d.load_string(r.body.c_str()));
}

TEST_F(FaultTest, SlowReply) {
  FaultOptions f;
  f.replyDelayMs = 150;
  auto t0 = std::chrono::steady_clock::now();
  Reply r = faulty(f);
  EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count(), 140);
  EXPECT_EQ(r.status, 200);
}

TEST_F(FaultTest, Forced401CannedReplyAndLimitedCount) {
  FaultOptions f;
  f.force401 = true;
  f.faultyReplies = 1;
  Reply r = faulty(f);
  EXPECT_EQ(r.status, 401);
  EXPECT_TRUE(r.headers.count("www-authenticate"));
  r = httpExchange(port, clientFraming(imethod("EnumerateClassNames", "")));
  EXPECT_EQ(r.status, 200);  // only the first reply was faulty
  f = FaultOptions();
  f.cannedReply = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
  r = faulty(f);
  EXPECT_EQ(r.raw, f.cannedReply);
  server->setFaults(FaultOptions());
  r = httpExchange(port, clientFraming(imethod("EnumerateClassNames", "")));
  EXPECT_EQ(r.status, 200);
}

TEST(ServerLifecycleTest, StartStopAndMofErrors) {
  ServerOptions o;
  o.mofFiles = {"/nonexistent/file.mof"};
  Server bad(o);
  std::string err;
  EXPECT_FALSE(bad.start(&err));
  EXPECT_NE(err.find("/nonexistent/file.mof"), std::string::npos);
  Server s{ServerOptions()};
  ASSERT_TRUE(s.start(&err)) << err;
  EXPECT_TRUE(s.running());
  EXPECT_GT(s.port(), 0);
  EXPECT_FALSE(s.start(&err));  // only once
  s.stop();
  s.stop();
  EXPECT_FALSE(s.running());
  EXPECT_LT(connectTo(s.port()), 0);
}

TEST_F(FaultTest, MissingContentLengthEndsWithTheConnection) {
  FaultOptions f;
  f.omitContentLength = true;
  Reply r = faulty(f);
  EXPECT_TRUE(r.closed);
  EXPECT_EQ(r.headers["connection"], "close");
  EXPECT_NE(r.body.find("</CIM>"), std::string::npos);
}
