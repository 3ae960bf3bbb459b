// Replies of every operation of the HTTP back end, checked field by field.
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

void expectInstancePath(const InstancePath* p, const char* cls, const char* key) {
    ASSERT_NE(p, nullptr);
    ASSERT_NE(p->namespacePath, nullptr);
    EXPECT_STREQ(p->namespacePath->host, "server.example.com");
    ASSERT_NE(p->namespacePath->localNamespacePath, nullptr);
    const Namespace* ns = p->namespacePath->localNamespacePath->namespaces;
    ASSERT_EQ(chainLength(ns), 2);
    EXPECT_STREQ(ns->name, "root");
    EXPECT_STREQ(ns->next->name, "cimv2");
    ASSERT_NE(p->instanceName, nullptr);
    ASSERT_NE(p->instanceName->className, nullptr);
    EXPECT_STREQ(p->instanceName->className->name, cls);
    ASSERT_EQ(chainLength(p->instanceName->keyBindings), 1);
    EXPECT_STREQ(p->instanceName->keyBindings->name, "Name");
    EXPECT_STREQ(p->instanceName->keyBindings->keyValue->value, key);
}

TEST(Operations, EnumerateInstances) {
    Parsed p = parseCapturing(imethodReply("EnumerateInstances", namedInstance("1") + namedInstance("2")));
    ASSERT_NE(p.root, nullptr);
    EXPECT_EQ(p.out, "");
    EXPECT_STREQ(p.root->cimVersion, "2.0");
    EXPECT_STREQ(p.root->dtdVersion, "2.0");
    EXPECT_STREQ(p.root->message->id, "4711");
    EXPECT_STREQ(p.root->message->protocolVersion, "1.0");
    EXPECT_STREQ(p.root->message->simpleRsp->iMethodResponse->name, "EnumerateInstances");
    IReturnValue* rv = returnValueOf(p.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->namedInstance), 2);

    const char* handles[] = {"1", "2"};
    const NamedInstance* ni = rv->namedInstance;
    for (const char* handle : handles) {
        SCOPED_TRACE(handle);
        const InstanceName* in = ni->instanceName;
        ASSERT_NE(in, nullptr);
        EXPECT_STREQ(in->className->name, "Linux_Process");
        ASSERT_EQ(chainLength(in->keyBindings), 2);
        const KeyBinding* kb = in->keyBindings;
        EXPECT_STREQ(kb->name, "Handle");
        EXPECT_STREQ(kb->keyValue->value, handle);
        EXPECT_STREQ(kb->keyValue->valueType, "string");
        EXPECT_EQ(kb->keyValue->cimType, nullptr);
        EXPECT_STREQ(kb->next->name, "CSName");
        EXPECT_STREQ(kb->next->keyValue->value, "host1");
        EXPECT_STREQ(kb->next->keyValue->cimType, "string");

        const Instance* inst = ni->instance;
        ASSERT_NE(inst, nullptr);
        EXPECT_STREQ(inst->className->name, "Linux_Process");
        ASSERT_EQ(chainLength(inst->properties), 3);
        const Property* pr = inst->properties;
        EXPECT_STREQ(pr->name, "Handle");
        EXPECT_STREQ(pr->type, "string");
        EXPECT_STREQ(pr->value->value, handle);
        EXPECT_EQ(pr->value->next, nullptr);
        EXPECT_EQ(pr->propagated, 0);
        EXPECT_STREQ(pr->next->name, "Priority");
        EXPECT_STREQ(pr->next->value->value, "20");
        EXPECT_EQ(pr->next->propagated, 1);
        EXPECT_STREQ(pr->next->next->name, "Caption");
        EXPECT_EQ(pr->next->next->value, nullptr);
        ASSERT_EQ(chainLength(inst->propertyArrays), 1);
        const PropertyArray* pa = inst->propertyArrays;
        EXPECT_STREQ(pa->name, "Args");
        EXPECT_EQ(pa->arraySize, 2);
        ASSERT_NE(pa->valueArray, nullptr);
        ASSERT_EQ(chainLength(pa->valueArray->value), 2);
        EXPECT_STREQ(pa->valueArray->value->value, "-a");
        EXPECT_STREQ(pa->valueArray->value->next->value, "-b");
        ni = ni->next;
    }
    Free_CIM(p.root);
}

TEST(Operations, GetClassWithQualifiersMethodsAndParameters) {
    std::string cls =
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
    Parsed p = parseCapturing(imethodReply("GetClass", cls));
    IReturnValue* rv = returnValueOf(p.root);
    ASSERT_NE(rv, nullptr);
    const Class* c = rv->cimClass;
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->next, nullptr);
    EXPECT_STREQ(c->name, "CIM_Service");
    EXPECT_STREQ(c->superClass, "CIM_LogicalElement");
    ASSERT_EQ(chainLength(c->qualifiers), 2);
    EXPECT_STREQ(c->qualifiers->name, "Abstract");
    EXPECT_STREQ(c->qualifiers->type, "boolean");
    EXPECT_STREQ(c->qualifiers->value->value, "TRUE");
    EXPECT_EQ(c->qualifiers->qualifierFlavor, nullptr);
    EXPECT_STREQ(c->qualifiers->next->value->value, "2.19.0");

    ASSERT_EQ(chainLength(c->properties), 1);
    const Property* name = c->properties;
    EXPECT_STREQ(name->classOrigin, "CIM_Service");
    EXPECT_EQ(name->propagated, 0);
    ASSERT_EQ(chainLength(name->qualifiers), 2);
    EXPECT_STREQ(name->qualifiers->name, "Key");
    EXPECT_STREQ(name->qualifiers->next->value->value, "256");
    EXPECT_EQ(name->value, nullptr);

    const PropertyArray* pa = c->propertyArrays;
    ASSERT_NE(pa, nullptr);
    EXPECT_STREQ(pa->classOrigin, "CIM_ManagedSystemElement");
    EXPECT_EQ(pa->propagated, 1);
    ASSERT_EQ(chainLength(pa->qualifiers), 1);
    ASSERT_NE(pa->qualifiers->valueArray, nullptr);
    EXPECT_EQ(chainLength(pa->qualifiers->valueArray->value), 2);
    EXPECT_EQ(pa->valueArray, nullptr);

    const PropertyReference* ref = c->propertyReferences;
    ASSERT_NE(ref, nullptr);
    EXPECT_STREQ(ref->name, "Owner");
    EXPECT_STREQ(ref->referenceClass, "CIM_System");

    ASSERT_EQ(chainLength(c->methods), 2);
    const Method* m = c->methods;
    EXPECT_STREQ(m->name, "StartService");
    EXPECT_STREQ(m->type, "uint32");
    EXPECT_STREQ(m->classOrigin, "CIM_Service");
    ASSERT_EQ(chainLength(m->qualifiers), 1);
    EXPECT_STREQ(m->qualifiers->value->value, "Starts it.");
    ASSERT_EQ(chainLength(m->parameters), 1);
    EXPECT_STREQ(m->parameters->name, "Timeout");
    ASSERT_EQ(chainLength(m->parameters->qualifiers), 1);
    EXPECT_STREQ(m->parameters->qualifiers->value->value, "true");
    EXPECT_STREQ(m->parameterReferences->referenceClass, "CIM_ConcreteJob");
    EXPECT_EQ(m->parameterArrays->arraySize, 4);
    EXPECT_STREQ(m->parameterRefArrays->name, "Deps");
    EXPECT_EQ(m->parameterRefArrays->arraySize, 3);
    EXPECT_STREQ(m->next->name, "StopService");
    Free_CIM(p.root);
}

TEST(Operations, EnumerateClassNamesAndInstanceNamesKeepDocumentOrder) {
    Parsed names = parseCapturing(imethodReply(
        "EnumerateClassNames", "<CLASSNAME NAME=\"CIM_A\"/><CLASSNAME NAME=\"CIM_B\"/><CLASSNAME NAME=\"CIM_C\"/>"));
    IReturnValue* rv = returnValueOf(names.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->className), 3);
    EXPECT_STREQ(rv->className->name, "CIM_A");
    EXPECT_STREQ(rv->className->next->next->name, "CIM_C");
    Free_CIM(names.root);

    Parsed inames = parseCapturing(imethodReply(
        "EnumerateInstanceNames",
        "<INSTANCENAME CLASSNAME=\"X\"><KEYBINDING NAME=\"a\"><KEYVALUE VALUETYPE=\"numeric\">42</KEYVALUE></KEYBINDING>"
        "<KEYBINDING NAME=\"b\"><KEYVALUE>y</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"c\"><KEYVALUE/></KEYBINDING>"
        "</INSTANCENAME><INSTANCENAME CLASSNAME=\"Y\"><KEYVALUE>single</KEYVALUE></INSTANCENAME>"));
    rv = returnValueOf(inames.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->instanceName), 2);
    const KeyBinding* kb = rv->instanceName->keyBindings;
    ASSERT_EQ(chainLength(kb), 3);
    EXPECT_STREQ(kb->keyValue->value, "42");  // stays text
    EXPECT_STREQ(kb->keyValue->valueType, "numeric");
    EXPECT_STREQ(kb->next->keyValue->value, "y");
    EXPECT_STREQ(kb->next->next->keyValue->value, "");  // no text: empty, not NULL
    EXPECT_STREQ(rv->instanceName->next->className->name, "Y");
    ASSERT_NE(rv->instanceName->next->keyValue, nullptr);  // the single-key form
    EXPECT_STREQ(rv->instanceName->next->keyValue->value, "single");
    Free_CIM(inames.root);
}

TEST(Operations, AssociatorsWithObjectWithPath) {
    std::string owp = "<VALUE.OBJECTWITHPATH>" + instancePath("CIM_System", "srv") +
                      "<INSTANCE CLASSNAME=\"CIM_System\"><PROPERTY NAME=\"Name\" TYPE=\"string\"><VALUE>srv</VALUE>"
                      "</PROPERTY></INSTANCE></VALUE.OBJECTWITHPATH>";
    Parsed p = parseCapturing(imethodReply("Associators", owp + owp));
    IReturnValue* rv = returnValueOf(p.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->objectWithPath), 2);
    for (const ObjectWithPath* o = rv->objectWithPath; o; o = o->next) {
        expectInstancePath(o->instancePath, "CIM_System", "srv");
        ASSERT_NE(o->instance, nullptr);
        EXPECT_STREQ(o->instance->properties->value->value, "srv");
        EXPECT_EQ(o->classPath, nullptr);
    }
    Free_CIM(p.root);
}

TEST(Operations, AssociatorNamesAndReferenceNamesWithObjectPaths) {
    Parsed an = parseCapturing(imethodReply(
        "AssociatorNames", "<OBJECTPATH>" + instancePath("CIM_A", "1") + "</OBJECTPATH><OBJECTPATH>" +
                               instancePath("CIM_B", "2") + "</OBJECTPATH>"));
    IReturnValue* rv = returnValueOf(an.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->objectPath), 2);
    expectInstancePath(rv->objectPath->instancePath, "CIM_A", "1");
    expectInstancePath(rv->objectPath->next->instancePath, "CIM_B", "2");
    Free_CIM(an.root);

    // An association's name: its keys are references to the two ends.
    std::string refKey = [](const char* role, const char* cls, const char* key) {
        return std::string("<KEYBINDING NAME=\"") + role + "\"><VALUE.REFERENCE>" + instancePath(cls, key) +
               "</VALUE.REFERENCE></KEYBINDING>";
    }("Antecedent", "CIM_A", "1");
    Parsed rn = parseCapturing(imethodReply(
        "ReferenceNames", "<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>server.example.com</HOST><LOCALNAMESPACEPATH>"
                          "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>"
                          "<INSTANCENAME CLASSNAME=\"CIM_Dependency\">" + refKey +
                          "<KEYBINDING NAME=\"Dependent\"><VALUE.REFERENCE>" + instancePath("CIM_B", "2") +
                          "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME></INSTANCEPATH></OBJECTPATH>"));
    rv = returnValueOf(rn.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->objectPath), 1);
    const InstanceName* assoc = rv->objectPath->instancePath->instanceName;
    ASSERT_NE(assoc, nullptr);
    EXPECT_STREQ(assoc->className->name, "CIM_Dependency");
    ASSERT_EQ(chainLength(assoc->keyBindings), 2);
    EXPECT_STREQ(assoc->keyBindings->name, "Antecedent");
    ASSERT_EQ(chainLength(assoc->keyBindings->valueReference), 1);
    expectInstancePath(assoc->keyBindings->valueReference->instancePath, "CIM_A", "1");
    EXPECT_STREQ(assoc->keyBindings->next->name, "Dependent");
    expectInstancePath(assoc->keyBindings->next->valueReference->instancePath, "CIM_B", "2");
    Free_CIM(rn.root);
}

TEST(Operations, CreateInstanceReturnsTheNewName) {
    Parsed p = parseCapturing(imethodReply(
        "CreateInstance", "<INSTANCENAME CLASSNAME=\"Test_Item\"><KEYBINDING NAME=\"Id\">"
                          "<KEYVALUE VALUETYPE=\"string\">item-7</KEYVALUE></KEYBINDING></INSTANCENAME>"));
    IReturnValue* rv = returnValueOf(p.root);
    ASSERT_NE(rv, nullptr);
    ASSERT_EQ(chainLength(rv->instanceName), 1);
    EXPECT_STREQ(rv->instanceName->className->name, "Test_Item");
    EXPECT_STREQ(rv->instanceName->keyBindings->keyValue->value, "item-7");
    Free_CIM(p.root);
}

TEST(Operations, ErrorReply) {
    Parsed p = parseCapturing(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1001\" "
        "PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"GetInstance\"><ERROR CODE=\"6\" "
        "DESCRIPTION=\"CIM_ERR_NOT_FOUND: no such instance\"/></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>");
    ASSERT_NE(p.root, nullptr);
    const IMethodResponse* r = p.root->message->simpleRsp->iMethodResponse;
    ASSERT_NE(r->error, nullptr);
    EXPECT_STREQ(r->error->code, "6");
    EXPECT_STREQ(r->error->description, "CIM_ERR_NOT_FOUND: no such instance");
    EXPECT_EQ(r->error->instance, nullptr);
    EXPECT_EQ(r->iReturnValue, nullptr);
    Free_CIM(p.root);
}

TEST(Operations, ExtrinsicMethodResponse) {
    Parsed p = parseCapturing(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"9\" "
        "PROTOCOLVERSION=\"1.0\"><SIMPLERSP><METHODRESPONSE NAME=\"RequestStateChange\">"
        "<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>4096</VALUE></RETURNVALUE>"
        "<PARAMVALUE NAME=\"Job\" PARAMTYPE=\"reference\"><VALUE.REFERENCE>" + instancePath("CIM_ConcreteJob", "job1") +
        "</VALUE.REFERENCE></PARAMVALUE>"
        "<PARAMVALUE NAME=\"Codes\" PARAMTYPE=\"uint16\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY>"
        "</PARAMVALUE><PARAMVALUE NAME=\"Count\" PARAMTYPE=\"uint32\"><VALUE>3</VALUE></PARAMVALUE>"
        "</METHODRESPONSE></SIMPLERSP></MESSAGE></CIM>");
    ASSERT_NE(p.root, nullptr);
    const MethodResponse* mr = p.root->message->simpleRsp->methodResponse;
    ASSERT_NE(mr, nullptr);
    EXPECT_EQ(p.root->message->simpleRsp->iMethodResponse, nullptr);
    EXPECT_STREQ(mr->name, "RequestStateChange");
    ASSERT_NE(mr->returnValue, nullptr);
    EXPECT_STREQ(mr->returnValue->paramType, "uint32");
    EXPECT_STREQ(mr->returnValue->value->value, "4096");
    ASSERT_EQ(chainLength(mr->paramValues), 3);
    const ParamValue* pv = mr->paramValues;
    EXPECT_STREQ(pv->name, "Job");
    EXPECT_STREQ(pv->paramType, "reference");
    expectInstancePath(pv->valueReference->instancePath, "CIM_ConcreteJob", "job1");
    EXPECT_EQ(chainLength(pv->next->valueArray->value), 2);
    EXPECT_STREQ(pv->next->next->name, "Count");
    EXPECT_STREQ(pv->next->next->value->value, "3");
    Free_CIM(p.root);
}

}  // namespace
