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
#include <map>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "raw_http.h"

using namespace cimmock;

namespace {

// Exactly the framing CimXmlClient writes; "dTpw" is u:p.
std::string clientFraming(const std::string& xml, const std::string& basic = "dTpw") {
  return "POST  /cimom HTTP/1.1 \r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
         std::to_string(xml.size() + 1) + "\r\nAuthorization: Basic " + basic + "\r\n\n\r" + xml;
}

// The framing of a standard client (DSP0200 headers, CRLF CRLF).
std::string standardFraming(const std::string& xml, const std::string& method, bool keepAlive = true) {
  return "POST /cimom HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/xml; charset=\"utf-8\"\r\n"
         "CIMOperation: MethodCall\r\nCIMMethod: " +
         method + "\r\nCIMObject: root%2Fcimv2\r\n" + (keepAlive ? "" : "Connection: close\r\n") +
         "Content-Length: " + std::to_string(xml.size()) + "\r\n\r\n" + xml;
}

std::string nsPath(const std::string& second = "cimv2") {
  return "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"" + second + "\"/></LOCALNAMESPACEPATH>";
}

std::string envelope(const std::string& inner) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1234\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" +
         inner + "</SIMPLEREQ></MESSAGE></CIM>";
}

std::string imethod(const std::string& name, const std::string& params, const std::string& ns = "cimv2") {
  return envelope("<IMETHODCALL NAME=\"" + name + "\">" + nsPath(ns) + params + "</IMETHODCALL>");
}

// Extrinsic call on a class or an instance path, CLASSNAME written as CimXmlClient does.
std::string method(const std::string& name, const std::string& target, const std::string& params = "") {
  bool onClass = target.compare(0, 10, "<CLASSNAME") == 0;
  const char* path = onClass ? "LOCALCLASSPATH>" : "LOCALINSTANCEPATH>";
  return envelope("<METHODCALL NAME=\"" + name + "\"><" + path + nsPath() + target + "</" + path + params +
                  "</METHODCALL>");
}

// Parameter texts in CimXmlClient's own spelling.
std::string param(const std::string& name, const std::string& content) {
  return "<IPARAMVALUE NAME=\"" + name + "\">" + content + "</IPARAMVALUE>";
}
std::string cls(const std::string& name, const std::string& c) { return param(name, "<CLASSNAME NAME=\"" + c + "\"/>"); }
std::string flag(const std::string& name, bool v) { return param(name, v ? "<VALUE>TRUE</VALUE>" : "<VALUE>FALSE</VALUE>"); }
std::string text(const std::string& name, const std::string& v) { return param(name, "<VALUE>" + v + "</VALUE>"); }
std::string key(const std::string& name, const std::string& v) {
  return "<KEYBINDING NAME=\"" + name + "\"><KEYVALUE VALUETYPE = \"string\">" + v + "</KEYVALUE></KEYBINDING>";
}
std::string deviceName(const std::string& c, const std::string& id) {
  return "<INSTANCENAME CLASSNAME=\"" + c + "\">" + key("SystemCreationClassName", "Mock_ComputerSystem") +
         key("SystemName", "mock-server.example.com") + key("CreationClassName", c) + key("DeviceID", id) +
         "</INSTANCENAME>";
}
const std::string kSystem = "<INSTANCENAME CLASSNAME=\"Mock_ComputerSystem\">" +
                            key("CreationClassName", "Mock_ComputerSystem") + key("Name", "mock-server.example.com") +
                            "</INSTANCENAME>";
std::string allTypes(const std::string& id) {
  return "<INSTANCENAME CLASSNAME=\"Mock_AllTypes\">" + key("InstanceID", id) + "</INSTANCENAME>";
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
  // One request with the client's framing: HTTP 200, an exact
  // Content-Length and a well-formed CIM reply, parsed into doc.
  void call(const std::string& xml, pugi::xml_document& doc) {
    Reply r = httpExchange(port, clientFraming(xml));
    EXPECT_EQ(r.status, 200) << r.raw;
    EXPECT_EQ(r.headers["content-length"], std::to_string(r.body.size()));
    EXPECT_EQ(r.body.compare(0, 5, "<?xml"), 0);
    pugi::xml_parse_result pr = doc.load_string(r.body.c_str());
    EXPECT_TRUE(pr) << pr.description() << "\n" << r.body;
    const char* rsp = xml.find("<METHODCALL") != std::string::npos ? "METHODRESPONSE" : "IMETHODRESPONSE";
    EXPECT_TRUE(doc.child("CIM").child("MESSAGE").child("SIMPLERSP").child(rsp)) << r.body;
    if (auto e = doc.select_node("//ERROR")) {
      EXPECT_STRNE(e.node().attribute("DESCRIPTION").value(), "");
    }
  }
  std::unique_ptr<Server> server;
  int port = 0;
};

}  // namespace

// Every operation, in order against one server (later rows see what earlier
// ones changed): a request, an XPath over the reply, and its expected value.
TEST_F(ServerTest, OperationsAnswerAsTheRepositoryHoldsThem) {
  const std::string obj = cls("ClassName", "Mock_Processor") + param("ObjectName", deviceName("Mock_Processor", "CPU0"));
  const std::string sys = cls("ClassName", "Mock_ComputerSystem") + param("ObjectName", kSystem);
  const std::string allClass = "<CLASSNAME NAME =\"Mock_AllTypes\"/>";
  const std::string getAll = imethod("GetClass", cls("ClassName", "Mock_AllTypes") + flag("LocalOnly", false) +
                                                     flag("IncludeQualifiers", true) + flag("IncludeClassOrigin", true));
  const std::string deep = imethod("EnumerateInstances", cls("ClassName", "CIM_LogicalDevice") +
                                                             flag("LocalOnly", false) + flag("DeepInheritance", true));
  const std::string all1 = imethod("GetInstance", param("InstanceName", allTypes("mock:alltypes:1")));
  // As CimXmlClient writes them: PROPAGATED=TRUE unquoted, ARRAYSIZE=2
  // unquoted, PROPAGATED 'TRUE' without '=', and an embedded instance in
  // CDATA with TYPE= "string".
  const std::string created =
      "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY NAME=\"InstanceID\" TYPE=\"string\" PROPAGATED=TRUE>"
      "<VALUE>new:1</VALUE></PROPERTY><PROPERTY NAME=\"PUint16\" TYPE=\"uint16\"><VALUE>513</VALUE></PROPERTY>"
      "<PROPERTY NAME=\"PString\" TYPE=\"string\"><VALUE>a & b < c</VALUE></PROPERTY>"
      "<PROPERTY NAME=\"PEmbedded\" TYPE=\"string\"><VALUE><![CDATA[\n<INSTANCE CLASSNAME=\"Mock_Settings\">"
      "<PROPERTY NAME=\"Mode\" TYPE= \"string\"><VALUE>eco</VALUE></PROPERTY></INSTANCE>]]></VALUE></PROPERTY>"
      "<PROPERTY.ARRAY NAME=\"PStringArray\" TYPE=\"string\" ARRAYSIZE=2 PROPAGATED 'TRUE'><VALUE.ARRAY>"
      "<VALUE>x</VALUE><VALUE>y</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
  auto modified = [](const char* v) {
    return imethod("ModifyInstance", flag("IncludeQualifiers", false) +  // the client's parameter order
                                         param("ModifiedInstance", "<VALUE.NAMEDINSTANCE>" + allTypes("new:1") +
                                                                       "<INSTANCE CLASSNAME=\"Mock_AllTypes\"><PROPERTY "
                                                                       "NAME=\"PUint16\" TYPE=\"uint16\"><VALUE>" +
                                                                       v + "</VALUE></PROPERTY></INSTANCE>"
                                                                           "</VALUE.NAMEDINSTANCE>"));
  };
  const std::string getNew = imethod("GetInstance", param("InstanceName", allTypes("new:1")));
  const std::string query = text("QueryLanguage", "WQL");
  const std::string echo =
      method("Echo", allClass,
             "<PARAMVALUE NAME=\"S\" PARAMTYPE=\"string\"><VALUE>hi &amp; bye</VALUE></PARAMVALUE>"
             "<PARAMVALUE NAME=\"U32\"><VALUE>42</VALUE></PARAMVALUE>"
             "<PARAMVALUE NAME=\"SArray\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE>b</VALUE></VALUE.ARRAY></PARAMVALUE>"
             "<PARAMVALUE NAME=\"Ref\"><VALUE.REFERENCE>" + kSystem + "</VALUE.REFERENCE></PARAMVALUE>");
  const std::string getEth1 = imethod("GetInstance", param("InstanceName", deviceName("Mock_NetworkPort", "eth1")));
  const std::string code = "string(//ERROR/@CODE)";
  struct Row {
    std::string request;
    const char* xpath;
    const char* want;
    bool again = false;  // send even when the previous row sent the same request
  } rows[] = {
      {imethod("EnumerateClassNames", ""), "count(//CLASSNAME[@NAME='CIM_ManagedElement'])", "1"},
      {imethod("EnumerateClassNames", ""), "count(//CLASSNAME[@NAME='CIM_Processor'])", "0"},
      {getAll, "string(//PROPERTY.REFERENCE[@NAME='PReference']/@REFERENCECLASS)", "CIM_ManagedElement"},
      {getAll, "string(//PROPERTY[@NAME='PEmbedded']/QUALIFIER[@NAME='EmbeddedInstance']/VALUE)", "Mock_Settings"},
      {getAll,
       "count(//METHOD[@NAME='Echo']/*[(self::PARAMETER and @NAME='S' and QUALIFIER[@NAME='In']) or "
       "(self::PARAMETER.ARRAY and @NAME='SArray') or (self::PARAMETER.REFERENCE and @NAME='Ref')])",
       "3"},
      // Defaults: LocalOnly TRUE drops inherited properties.
      {imethod("GetClass", cls("ClassName", "Mock_ComputerSystem")),
       "concat(//CLASS/@SUPERCLASS, ' ', count(//CLASS/PROPERTY))", "CIM_ComputerSystem 1"},  // OSName only
      {imethod("GetClass", cls("ClassName", "Mock_ComputerSystem") + flag("LocalOnly", false) +
                               flag("IncludeQualifiers", false)),
       "concat(//PROPERTY[@NAME='Name']/@PROPAGATED, count(//PROPERTY[@NAME='Name']/QUALIFIER), count(//CLASS/@CLASSORIGIN))",
       "true00"},
      {imethod("GetClass", cls("ClassName", "No_Such")), code.c_str(), "6"},
      {deep, "count(//VALUE.NAMEDINSTANCE)", "6"},
      {deep, "count(//VALUE.NAMEDINSTANCE[1]/INSTANCENAME/KEYBINDING)", "4"},
      {deep, "string(//VALUE.NAMEDINSTANCE[1]/INSTANCE/@CLASSNAME)", "Mock_Processor"},
      {deep, "count(//VALUE.NAMEDINSTANCE[1]/INSTANCE/PROPERTY[@NAME='MaxClockSpeed'])", "1"},
      // DeepInheritance FALSE: only the properties of the requested class.
      {imethod("EnumerateInstances", cls("ClassName", "CIM_LogicalDevice") + flag("DeepInheritance", false)),
       "count(//VALUE.NAMEDINSTANCE[1]/INSTANCE/PROPERTY[@NAME='MaxClockSpeed'])", "0"},
      {imethod("EnumerateInstances",
               cls("ClassName", "CIM_DiskDrive") +
                   param("PropertyList", "<VALUE.ARRAY><VALUE>Capacity</VALUE></VALUE.ARRAY>")),
       "concat(count(//VALUE.NAMEDINSTANCE[1]/INSTANCE/PROPERTY), ' ', //VALUE.NAMEDINSTANCE[1]/INSTANCE/PROPERTY/VALUE)",
       "1 500107862016"},
      {imethod("EnumerateInstances", cls("ClassName", "CIM_Processor"), "none"), code.c_str(), "3"},
      // An embedded instance is marked and sent in CDATA (checked below).
      {all1, "string(//PROPERTY[@NAME='PEmbedded']/@EmbeddedObject)", "instance"},
      {imethod("Associators", obj + cls("AssocClass", "CIM_SystemDevice") + cls("ResultClass", "CIM_ComputerSystem") +
                                  text("Role", "PartComponent") + text("ResultRole", "GroupComponent") +
                                  flag("IncludeQualifiers", false) + flag("IncludeClassOrigin", false)),
       "concat(count(//VALUE.OBJECTWITHPATH), ' ', //VALUE.OBJECTWITHPATH/INSTANCEPATH/NAMESPACEPATH/HOST, ' ', "
       "//VALUE.OBJECTWITHPATH/INSTANCE/@CLASSNAME)",
       "1 localhost Mock_ComputerSystem"},
      {imethod("AssociatorNames", sys + cls("AssocClass", "CIM_SystemDevice")),
       "concat(count(//IRETURNVALUE/OBJECTPATH), count(//OBJECTPATH[1]/INSTANCEPATH/INSTANCENAME))", "61"},
      {imethod("ReferenceNames", param("ObjectName", "<CLASSNAME NAME=\"CIM_Processor\"/>")),
       "boolean(//OBJECTPATH/CLASSPATH)", "true"},
      {imethod("CreateInstance", param("NewInstance", created)), "string(//IRETURNVALUE/INSTANCENAME/KEYBINDING/KEYVALUE)",
       "new:1"},
      {imethod("CreateInstance", param("NewInstance", created)), code.c_str(), "11", true},
      {getNew, "string(//PROPERTY[@NAME='PString']/VALUE)", "a & b < c"},
      {getNew, "count(//PROPERTY.ARRAY[@NAME='PStringArray']/VALUE.ARRAY/VALUE)", "2"},
      {getNew, "contains(//PROPERTY[@NAME='PEmbedded']/VALUE, 'CLASSNAME=\"Mock_Settings\"') and "
               "contains(//PROPERTY[@NAME='PEmbedded']/VALUE, '>eco<')",
       "true"},
      {modified("7"), "count(//IMETHODRESPONSE/node())", "0"},
      {getNew, "string(//PROPERTY[@NAME='PUint16']/VALUE)", "7"},
      {modified("99999"), code.c_str(), "13"},
      {imethod("DeleteInstance", param("InstanceName", allTypes("new:1"))), "count(//IMETHODRESPONSE/node())", "0"},
      {imethod("DeleteInstance", param("InstanceName", allTypes("new:1"))), code.c_str(), "6", true},
      {imethod("ExecQuery", query + text("Query", "SELECT DeviceID FROM CIM_Processor WHERE LoadPercentage &gt; 50")),
       "concat(count(//VALUE.OBJECTWITHPATH), count(//VALUE.OBJECTWITHPATH/INSTANCE/PROPERTY), "
       "//VALUE.OBJECTWITHPATH/INSTANCE/PROPERTY/VALUE)",
       "11CPU1"},
      {echo, "concat(//METHODRESPONSE/@NAME, ' ', //RETURNVALUE/@PARAMTYPE, ' ', //RETURNVALUE/VALUE)", "Echo uint32 0"},
      {echo, "string(//PARAMVALUE[@NAME='S']/VALUE)", "hi & bye"},
      {echo, "string(//PARAMVALUE[@NAME='U32']/@PARAMTYPE)", "uint32"},
      // A method that changes the property its MockProperty names.
      {method("RequestStateChange", deviceName("Mock_NetworkPort", "eth1"),
              "<PARAMVALUE NAME=\"RequestedState\"><VALUE>2</VALUE></PARAMVALUE>"),
       "count(//METHODRESPONSE/ERROR)", "0"},
      {getEth1, "string(//PROPERTY[@NAME='EnabledState']/VALUE)", "2"},
      {imethod("CreateClass", ""), code.c_str(), "7"},
      {imethod("GetClass", ""), code.c_str(), "4"},
      {imethod("EnumerateInstances", cls("ClassName", "CIM_Processor") + text("LocalOnly", "maybe")), code.c_str(), "4"},
      // A closing tag in other case (as the client writes RESPONSEDESTINATION),
      // an unclosed element, and single-quoted attributes.
      {envelope("<IMETHODCALL NAME='EnumerateInstanceNames'>" + nsPath() + cls("ClassName", "CIM_DiskDrive") +
                "<RESPONSEDESTINATION><INSTANCE CLASSNAME=\"X\"></INSTANCE></ResponseDestination></IMETHODCALL>"),
       "count(//IRETURNVALUE/INSTANCENAME)", "2"},
  };
  std::string last;
  pugi::xml_document doc;
  for (const Row& row : rows) {
    if (row.again || row.request != last) call(row.request, doc);
    last = row.request;
    EXPECT_EQ(pugi::xpath_query(row.xpath).evaluate_string(doc), row.want) << row.xpath << "\n" << row.request;
  }
  // The embedded instance travels as a CDATA section holding an INSTANCE.
  call(all1, doc);
  auto cdata = doc.select_node("//PROPERTY[@NAME='PEmbedded']/VALUE").node().first_child();
  ASSERT_EQ(cdata.type(), pugi::node_cdata);
  pugi::xml_document e;
  ASSERT_TRUE(e.load_string(cdata.value()));
  EXPECT_STREQ(e.child("INSTANCE").attribute("CLASSNAME").value(), "Mock_Settings");
}

TEST_F(ServerTest, StandardClientFramingAndKeepAlive) {
  int fd = connectTo(port);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < 3; ++i) {
    std::string req = standardFraming(imethod("EnumerateInstanceNames", cls("ClassName", "CIM_DiskDrive")),
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
  Reply r = httpExchange(port, clientFraming(xml, "YWRtaW46d3Jvbmc="));  // admin:wrong
  EXPECT_EQ(r.raw.compare(0, 25, "HTTP/1.1 401 Unauthorized"), 0);
  EXPECT_EQ(r.headers["www-authenticate"], "Basic realm=\"cimom\"");
  r = httpExchange(port, standardFraming(xml, "EnumerateClassNames"));  // no Authorization at all
  EXPECT_EQ(r.status, 401);
  r = httpExchange(port, clientFraming(xml, "YWRtaW46c2VjcmV0"));  // admin:secret
  EXPECT_EQ(r.status, 200);
  EXPECT_EQ(server->stats().unauthorized, 2u);
}

TEST_F(ServerTest, BadRequestsGetAnHttpErrorAndTheServerSurvives) {
  std::string deep = kSystem;  // a reference key in a reference key ..., deeper than the decoder goes
  for (int i = 0; i < 100; ++i) deep = "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><VALUE.REFERENCE>" + deep +
                                       "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>";
  struct {
    std::string request;
    int status;
    const char* cimError;
  } cases[] = {
      {clientFraming(imethod("GetInstance", param("InstanceName", deep))), 400, "request-not-valid"},
      {clientFraming("<?xml version=\"1.0\"?><CIM><MESSAGE"), 400, nullptr},
      {clientFraming("this is not xml"), 400, "request-not-well-formed"},
      {clientFraming("<?xml version=\"1.0\"?><HTML/>"), 400, "request-not-valid"},
      {"GARBAGE\r\n\r\n", 400, nullptr},
      {"POST /cimom HTTP/1.1\r\nContent-Length: nope\r\n\r\n", 400, nullptr},
      {"GET /cimom HTTP/1.1\r\n\r\n", 405, nullptr},
      {"POST /other HTTP/1.1\r\nContent-Length: 0\r\n\r\n", 404, nullptr},
  };
  for (const auto& c : cases) {
    Reply r = httpExchange(port, c.request);
    EXPECT_EQ(r.status, c.status) << c.request;
    if (c.cimError) {
      EXPECT_EQ(r.headers["cimerror"], c.cimError);
    }
  }
  // A client that disconnects mid-request (headers only, then half a body).
  for (int i = 0; i < 3; ++i) {
    int fd = connectTo(port);
    std::string req = clientFraming(imethod("EnumerateClassNames", ""));
    ::send(fd, req.data(), req.size() / 2, MSG_NOSIGNAL);
    ::close(fd);
  }
  pugi::xml_document d;
  call(imethod("EnumerateClassNames", ""), d);
}

TEST_F(ServerTest, LinesAndIndentedLayouts) {
  server->setLayout(ServerOptions::Layout::Lines);
  std::string xml = imethod("GetInstance", param("InstanceName", allTypes("mock:alltypes:2")));
  Reply r = httpExchange(port, clientFraming(xml));
  EXPECT_NE(r.body.find("<PROPERTY NAME=\"PEmpty\" TYPE=\"string\">\n</PROPERTY>"), std::string::npos) << r.body;
  EXPECT_NE(r.body.find("\n<INSTANCE CLASSNAME=\"Mock_AllTypes\">\n<PROPERTY"), std::string::npos);
  EXPECT_EQ(r.body.find("\n "), std::string::npos);  // no indentation
  pugi::xml_document d;
  EXPECT_TRUE(d.load_string(r.body.c_str()));
  server->setLayout(ServerOptions::Layout::Indented);
  r = httpExchange(port, clientFraming(xml));
  EXPECT_NE(r.body.find("\n  <MESSAGE"), std::string::npos);
  EXPECT_TRUE(d.load_string(r.body.c_str()));
}

TEST_F(ServerTest, FaultInjection) {
  auto faulty = [&](const FaultOptions& f) {
    server->setFaults(f);
    return httpExchange(port, clientFraming(imethod("EnumerateClassNames", "")));
  };
  auto ms = [](std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
  };
  pugi::xml_document d;
  FaultOptions f;
  f.splitSegments = 4;
  f.splitDelayMs = 40;
  auto t0 = std::chrono::steady_clock::now();
  Reply r = faulty(f);
  EXPECT_GE(ms(t0), 110);
  EXPECT_EQ(r.status, 200);
  EXPECT_GE(r.reads, 4);
  EXPECT_EQ(r.headers["content-length"], std::to_string(r.body.size()));

  // Legal shapes: headers, then body (or each chunk), in their own writes.
  f = FaultOptions();
  f.splitWritesMs = 40;
  for (int chunks : {0, 3}) {
    f.chunks = chunks;
    r = faulty(f);
    EXPECT_GE(r.reads, 2);
    EXPECT_GE(r.spanMs, 35);
    EXPECT_EQ(r.chunks, chunks ? chunks : -1);
    EXPECT_EQ(r.headers.count("content-length"), chunks ? 0u : 1u);
    EXPECT_TRUE(d.load_string(r.body.c_str())) << r.raw;
  }

  f = FaultOptions();
  f.contentLengthDelta = -10;
  r = faulty(f);
  EXPECT_EQ(std::stoul(r.headers["content-length"]) + 10, r.body.size());

  // Without a Content-Length the reply ends with the connection.
  f = FaultOptions();
  f.omitContentLength = true;
  r = faulty(f);
  EXPECT_EQ(r.headers.count("content-length"), 0u);
  EXPECT_TRUE(r.closed);
  EXPECT_EQ(r.headers["connection"], "close");
  EXPECT_NE(r.body.find("</CIM>"), std::string::npos);

  for (size_t after : {30u, 0u}) {
    f = FaultOptions();
    f.closeAfterBytes = after;
    r = faulty(f);
    EXPECT_EQ(r.raw.size(), after);
    EXPECT_TRUE(r.closed);
  }

  f = FaultOptions();
  f.garbageBody = true;
  r = faulty(f);
  EXPECT_EQ(r.status, 200);
  EXPECT_EQ(r.body.find("<?xml"), std::string::npos);
  EXPECT_FALSE(d.load_string(r.body.c_str()));

  f = FaultOptions();
  f.noXmlDeclaration = true;
  r = faulty(f);
  EXPECT_EQ(r.body.compare(0, 4, "<CIM"), 0);
  EXPECT_TRUE(d.load_string(r.body.c_str()));

  f = FaultOptions();
  f.largeReplyBytes = 3 * 1024 * 1024;
  r = faulty(f);
  EXPECT_EQ(r.body.size(), f.largeReplyBytes);
  EXPECT_TRUE(d.load_string(r.body.c_str()));

  f = FaultOptions();
  f.replyDelayMs = 150;
  t0 = std::chrono::steady_clock::now();
  r = faulty(f);
  EXPECT_GE(ms(t0), 140);
  EXPECT_EQ(r.status, 200);

  f = FaultOptions();
  f.force401 = true;
  f.faultyReplies = 1;
  r = faulty(f);
  EXPECT_EQ(r.status, 401);
  EXPECT_TRUE(r.headers.count("www-authenticate"));
  r = httpExchange(port, clientFraming(imethod("EnumerateClassNames", "")));
  EXPECT_EQ(r.status, 200);  // only the first reply was faulty

  f = FaultOptions();
  f.cannedReply = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
  r = faulty(f);
  EXPECT_EQ(r.raw, f.cannedReply);
  server->setFaults(FaultOptions());
  EXPECT_EQ(httpExchange(port, clientFraming(imethod("EnumerateClassNames", ""))).status, 200);
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
  EXPECT_FALSE(s.start(&err));  // only once
  s.stop();
  s.stop();
  EXPECT_FALSE(s.running());
  EXPECT_LT(connectTo(s.port()), 0);
}
