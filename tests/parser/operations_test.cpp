// Replies of every operation of the HTTP back end: the whole record tree each becomes.
#include "parser_support.h"

using namespace parsertest;

namespace {

// A VALUE.NAMEDINSTANCE as brokers send it for EnumerateInstances.
std::string namedInstance(const std::string& handle) {
    return "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"Linux_Process\">"
           "<KEYBINDING NAME=\"Handle\"><KEYVALUE VALUETYPE=\"string\">" + handle + "</KEYVALUE></KEYBINDING>"
           "<KEYBINDING NAME=\"CSName\"><KEYVALUE VALUETYPE=\"string\" TYPE=\"string\">host1</KEYVALUE></KEYBINDING>"
           "</INSTANCENAME><INSTANCE CLASSNAME=\"Linux_Process\">"
           "<PROPERTY NAME=\"Handle\" TYPE=\"string\"><VALUE>" + handle + "</VALUE></PROPERTY>"
           "<PROPERTY NAME=\"Priority\" TYPE=\"uint32\" PROPAGATED=\"1\"><VALUE>20</VALUE></PROPERTY>"
           "<PROPERTY NAME=\"Caption\" TYPE=\"string\"></PROPERTY>"
           "<PROPERTY.ARRAY NAME=\"Args\" TYPE=\"string\" ARRAYSIZE=\"2\"><VALUE.ARRAY><VALUE>-a</VALUE><VALUE>-b</VALUE>"
           "</VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE></VALUE.NAMEDINSTANCE>";
}

std::string instancePath(const std::string& cls, const std::string& key) {
    return "<INSTANCEPATH><NAMESPACEPATH><HOST>server.example.com</HOST><LOCALNAMESPACEPATH>"
           "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>"
           "<INSTANCENAME CLASSNAME=\"" + cls + "\"><KEYBINDING NAME=\"Name\"><KEYVALUE VALUETYPE=\"string\">" + key +
           "</KEYVALUE></KEYBINDING></INSTANCENAME></INSTANCEPATH>";
}

// The record tree of an intrinsic reply around `content`, as dump writes it.
std::string imethodTree(const std::string& op, const std::string& content) {
    return "{message={id='4711' protocolVersion='1.0' simpleRsp={iMethodResponse={name='" + op + "' iReturnValue={" +
           content + "}}}} cimVersion='2.0' dtdVersion='2.0'}";
}

std::string pathTree(const std::string& cls, const std::string& key) {
    return "{namespacePath={host='server.example.com' localNamespacePath={namespaces={name='root'}{name='cimv2'}}} "
           "instanceName={keyBindings={keyValue={value='" + key + "' valueType='string'} name='Name'} className={name='" +
           cls + "'}}}";
}

// namedInstance(handle) as a tree: TYPE on a KEYVALUE is its CIM type, a
// PROPERTY without VALUE has no value.
std::string namedTree(const std::string& handle) {
    return "{instanceName={keyBindings={keyValue={value='" + handle + "' valueType='string'} name='Handle'}{keyValue="
           "{value='host1' valueType='string' cimType='string'} name='CSName'} className={name='Linux_Process'}} "
           "instance={className={name='Linux_Process'} properties={value={value='" + handle + "'} name='Handle' "
           "type='string'}{value={value='20'} name='Priority' type='uint32' propagated=1}{name='Caption' type='string'} "
           "propertyArrays={valueArray={value={value='-a'}{value='-b'}} name='Args' type='string' arraySize=2}}}";
}

TEST(Operations, RepliesBecomeTheseTrees) {
    const std::string cls =
        "<CLASS NAME=\"CIM_Service\" SUPERCLASS=\"CIM_LogicalElement\">"
        "<QUALIFIER NAME=\"Abstract\" TYPE=\"boolean\" OVERRIDABLE=\"false\"><VALUE>TRUE</VALUE></QUALIFIER>"
        "<QUALIFIER NAME=\"Version\" TYPE=\"string\" TRANSLATABLE=\"true\"><VALUE>2.19.0</VALUE></QUALIFIER>"
        "<PROPERTY NAME=\"Name\" TYPE=\"string\" CLASSORIGIN=\"CIM_Service\" PROPAGATED=\"false\">"
        "<QUALIFIER NAME=\"Key\" TYPE=\"boolean\"><VALUE>TRUE</VALUE></QUALIFIER>"
        "<QUALIFIER NAME=\"MaxLen\" TYPE=\"uint32\"><VALUE>256</VALUE></QUALIFIER></PROPERTY>"
        "<PROPERTY.ARRAY NAME=\"OperationalStatus\" TYPE=\"uint16\" CLASSORIGIN=\"CIM_ManagedSystemElement\" PROPAGATED=\"1\">"
        "<QUALIFIER NAME=\"ValueMap\" TYPE=\"string\"><VALUE.ARRAY><VALUE>0</VALUE><VALUE>1</VALUE></VALUE.ARRAY></QUALIFIER>"
        "</PROPERTY.ARRAY>"
        "<PROPERTY.REFERENCE NAME=\"Owner\" REFERENCECLASS=\"CIM_System\" CLASSORIGIN=\"CIM_Service\"/>"
        "<METHOD NAME=\"StartService\" TYPE=\"uint32\" CLASSORIGIN=\"CIM_Service\">"
        "<QUALIFIER NAME=\"Description\" TYPE=\"string\"><VALUE>Starts it.</VALUE></QUALIFIER>"
        "<PARAMETER NAME=\"Timeout\" TYPE=\"uint32\"><QUALIFIER NAME=\"IN\" TYPE=\"boolean\"><VALUE>true</VALUE></QUALIFIER></PARAMETER>"
        "<PARAMETER.REFERENCE NAME=\"Job\" REFERENCECLASS=\"CIM_ConcreteJob\"/>"
        "<PARAMETER.ARRAY NAME=\"Flags\" TYPE=\"string\" ARRAYSIZE=\"4\"/>"
        "<PARAMETER.REFARRAY NAME=\"Deps\" REFERENCECLASS=\"CIM_Service\" ARRAYSIZE=\"3\"/>"
        "</METHOD><METHOD NAME=\"StopService\" TYPE=\"uint32\"/></CLASS>";
    const std::string owp = "<VALUE.OBJECTWITHPATH>" + instancePath("CIM_System", "srv") +
                            "<INSTANCE CLASSNAME=\"CIM_System\"><PROPERTY NAME=\"Name\" TYPE=\"string\"><VALUE>srv</VALUE>"
                            "</PROPERTY></INSTANCE></VALUE.OBJECTWITHPATH>";
    const std::string owpTree = "{instancePath=" + pathTree("CIM_System", "srv") + " instance={className={name="
                                "'CIM_System'} properties={value={value='srv'} name='Name' type='string'}}}";
    // An association's name: its keys are references to the two ends.
    const std::string assocName =
        "<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>server.example.com</HOST><LOCALNAMESPACEPATH>"
        "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>"
        "<INSTANCENAME CLASSNAME=\"CIM_Dependency\"><KEYBINDING NAME=\"Antecedent\"><VALUE.REFERENCE>" +
        instancePath("CIM_A", "1") + "</VALUE.REFERENCE></KEYBINDING><KEYBINDING NAME=\"Dependent\"><VALUE.REFERENCE>" +
        instancePath("CIM_B", "2") + "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME></INSTANCEPATH></OBJECTPATH>";
    struct {
        std::string reply, tree;
    } cases[] = {
        {imethodReply("EnumerateInstances", namedInstance("1") + namedInstance("2")), imethodTree("EnumerateInstances", "namedInstance=" + namedTree("1") + namedTree("2"))},
        {imethodReply("GetClass", cls), imethodTree("GetClass",
                     "cimClass={qualifiers={value={value='TRUE'} name='Abstract' type='boolean'}{value={value='2.19.0'} "
                     "name='Version' type='string'} properties={qualifiers={value={value='TRUE'} name='Key' type='boolean'}"
                     "{value={value='256'} name='MaxLen' type='uint32'} name='Name' type='string' classOrigin='CIM_Service'} "
                     "propertyArrays={qualifiers={valueArray={value={value='0'}{value='1'}} name='ValueMap' type='string'} "
                     "name='OperationalStatus' type='uint16' classOrigin='CIM_ManagedSystemElement' propagated=1} "
                     "propertyReferences={name='Owner' referenceClass='CIM_System' classOrigin='CIM_Service'} "
                     "methods={qualifiers={value={value='Starts it.'} name='Description' type='string'} "
                     "parameters={qualifiers={value={value='true'} name='IN' type='boolean'} name='Timeout' type='uint32'} "
                     "parameterReferences={name='Job' referenceClass='CIM_ConcreteJob'} parameterArrays={name='Flags' "
                     "type='string' arraySize=4} parameterRefArrays={name='Deps' referenceClass='CIM_Service' arraySize=3} "
                     "name='StartService' type='uint32' classOrigin='CIM_Service'}{name='StopService' type='uint32'} "
                     "name='CIM_Service' superClass='CIM_LogicalElement'}")},
        {imethodReply("EnumerateClassNames",
                      "<CLASSNAME NAME=\"CIM_A\"/><CLASSNAME NAME=\"CIM_B\"/><CLASSNAME NAME=\"CIM_C\"/>"),
         imethodTree("EnumerateClassNames", "className={name='CIM_A'}{name='CIM_B'}{name='CIM_C'}")},
        {imethodReply("EnumerateInstanceNames",
                      "<INSTANCENAME CLASSNAME=\"X\"><KEYBINDING NAME=\"a\"><KEYVALUE VALUETYPE=\"numeric\">42</KEYVALUE>"
                      "</KEYBINDING><KEYBINDING NAME=\"b\"><KEYVALUE>y</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"c\">"
                      "<KEYVALUE/></KEYBINDING></INSTANCENAME><INSTANCENAME CLASSNAME=\"Y\"><KEYVALUE>single</KEYVALUE>"
                      "</INSTANCENAME>"),
         imethodTree("EnumerateInstanceNames",
                     "instanceName={keyBindings={keyValue={value='42' valueType='numeric'} name='a'}{keyValue={value='y'} "
                     "name='b'}{keyValue={value=''} name='c'} className={name='X'}}{keyValue={value='single'} "
                     "className={name='Y'}}")},
        {imethodReply("Associators", owp + owp), imethodTree("Associators", "objectWithPath=" + owpTree + owpTree)},
        {imethodReply("ReferenceNames", assocName), imethodTree("ReferenceNames", "objectPath={instancePath={namespacePath={host='server.example.com' "
                                         "localNamespacePath={namespaces={name='root'}{name='cimv2'}}} instanceName="
                                         "{keyBindings={valueReference={instancePath=" + pathTree("CIM_A", "1") +
                                         "} name='Antecedent'}{valueReference={instancePath=" + pathTree("CIM_B", "2") +
                                         "} name='Dependent'} className={name='CIM_Dependency'}}}}")},
        {"<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1001\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"GetInstance\"><ERROR CODE=\"6\" "
         "DESCRIPTION=\"CIM_ERR_NOT_FOUND: no such instance\"/></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>",
         "{message={id='1001' protocolVersion='1.0' simpleRsp={iMethodResponse={name='GetInstance' error={code='6' "
         "description='CIM_ERR_NOT_FOUND: no such instance'}}}} cimVersion='2.0' dtdVersion='2.0'}"},
        {"<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"9\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLERSP><METHODRESPONSE NAME=\"RequestStateChange\">"
         "<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>4096</VALUE></RETURNVALUE>"
         "<PARAMVALUE NAME=\"Job\" PARAMTYPE=\"reference\"><VALUE.REFERENCE>" + instancePath("CIM_ConcreteJob", "job1") +
         "</VALUE.REFERENCE></PARAMVALUE>"
         "<PARAMVALUE NAME=\"Codes\" PARAMTYPE=\"uint16\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY>"
         "</PARAMVALUE><PARAMVALUE NAME=\"Count\" PARAMTYPE=\"uint32\"><VALUE>3</VALUE></PARAMVALUE>"
         "</METHODRESPONSE></SIMPLERSP></MESSAGE></CIM>",
         "{message={id='9' protocolVersion='1.0' simpleRsp={methodResponse={name='RequestStateChange' returnValue="
         "{value={value='4096'} paramType='uint32'} paramValues={name='Job' paramType='reference' valueReference="
         "{instancePath=" + pathTree("CIM_ConcreteJob", "job1") + "}}{name='Codes' paramType='uint16' valueArray="
         "{value={value='1'}{value='2'}}}{name='Count' paramType='uint32' value={value='3'}}}}} cimVersion='2.0' "
         "dtdVersion='2.0'}"},
    };
    for (const auto& c : cases) {
        Parsed p = parseCapturing(c.reply);
        EXPECT_EQ(p.out, "");
        EXPECT_EQ(dump(RecordId::CIM, p.root), c.tree) << c.reply;
        Free_CIM(p.root);
    }
}

}  // namespace
