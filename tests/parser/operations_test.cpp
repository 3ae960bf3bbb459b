// A class with every kind of member (parameter arrays and reference arrays
// among them, which the sample repository has none of) and named instances:
// the whole record tree each reply becomes. Replies of the other operations
// are compared whole in tests/xmlops and tests/scenario.
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

// The record tree of an intrinsic reply around `content`, as dump writes it.
std::string imethodTree(const std::string& op, const std::string& content) {
    return "{message={id='4711' protocolVersion='1.0' simpleRsp={iMethodResponse={name='" + op + "' iReturnValue={" +
           content + "}}}} cimVersion='2.0' dtdVersion='2.0'}";
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
    };
    for (const auto& c : cases) {
        Parsed p = parseCapturing(c.reply);
        EXPECT_EQ(p.out, "");
        EXPECT_EQ(dump(RecordId::CIM, p.root), c.tree) << c.reply;
        Free_CIM(p.root);
    }
}

}  // namespace
