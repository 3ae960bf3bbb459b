// The operation frame against canned replies: what is taken from unusual
// answers, what reaches errorOut, and that nothing is sent without a handle.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "peer_call.h"

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

// Runs one call against a server that answers with the given body.
void withReply(const std::string& body, const std::function<void(ClientHandle*, Error**)>& run) {
    callAgainst(cimtest::okReply(body), run);
}

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

TEST(Frame, ReturnValueWinsOverAnErrorAndExtraChildrenAreDropped) {
    withReply(intrinsic(kError + "<IRETURNVALUE>" + kInstanceName +
                        "<CLASSNAME NAME=\"Extra\"/><INSTANCE CLASSNAME=\"Extra\"/></IRETURNVALUE>"),
              [](ClientHandle* h, Error** error) {
                  InstanceName* names = CIMC_XML_EnumerateInstanceNames(h, nullptr, error);
                  ASSERT_EQ(count(names), 1);
                  EXPECT_EQ(key(names, "K"), "v");
                  Free_InstanceName(names);
              });
}

TEST(Frame, ErrorReplies) {
    withReply(intrinsic(kError), [](ClientHandle* h, Error** error) {  // with its instances
        EXPECT_EQ(CIMC_XML_ExecQuery(h, "WQL", "q", error), nullptr);
        ASSERT_NE(*error, nullptr);
        EXPECT_EQ(count((*error)->instance), 1);
        EXPECT_EQ(takeError(error), "6:gone");
    });
    // Delete looks only for the error, even next to a return value.
    withReply(intrinsic(kError + "<IRETURNVALUE>" + kInstanceName + "</IRETURNVALUE>"), [](ClientHandle* h, Error** error) {
        EXPECT_EQ(CIMC_XML_DeleteInstance(h, nullptr, error), nullptr);
        EXPECT_EQ(takeError(error), "6:gone");
    });
    // Nowhere to store it: dropped, not a crash.
    withReply(intrinsic(kError), [](ClientHandle* h, Error**) {
        EXPECT_EQ(CIMC_XML_EnumerateClassNames(h, nullptr, 2, nullptr), nullptr);
    });
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
        withReply(body, [](ClientHandle* h, Error** error) {
            EXPECT_EQ(CIMC_XML_EnumerateInstanceNames(h, nullptr, error), nullptr);
            EXPECT_EQ(CIMC_XML_ReferenceNames(h, nullptr, nullptr, nullptr, error), nullptr);
        });
    }
    withReply(intrinsic("<IRETURNVALUE>" + kInstanceName + kInstanceName + "</IRETURNVALUE>"),
              [](ClientHandle* h, Error** error) {
                  ObjectPath* path = CIMC_XML_ReferenceNames(h, nullptr, nullptr, nullptr, error);
                  ASSERT_TRUE(path && path->instancePath);
                  EXPECT_EQ(count(path->instancePath->instanceName), 2);
                  Free_ObjectPath(path);
              });
}

TEST(Frame, MethodResponseShapes) {
    InstanceName* target = instanceName("C", {{"K", "v"}});
    // No RETURNVALUE: the output parameters alone.
    withReply(extrinsic("<PARAMVALUE NAME=\"A\" PARAMTYPE=\"string\"><VALUE>x</VALUE></PARAMVALUE>"
                        "<PARAMVALUE NAME=\"B\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY>"
                        "</PARAMVALUE>"),
              [&](ClientHandle* h, Error** error) {
                  ParamValue* out = nullptr;
                  ASSERT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, error), 0);
                  ASSERT_EQ(count(out), 2);
                  EXPECT_STREQ(out->name, "A");
                  EXPECT_STREQ(out->paramType, "string");
                  EXPECT_EQ(count(out->next->valueArray->value), 2);
                  Free_ParamValue(out);
              });
    // A reference return value; with no place for the results they are freed.
    withReply(extrinsic("<RETURNVALUE PARAMTYPE=\"reference\"><VALUE.REFERENCE>" + kInstanceName +
                        "</VALUE.REFERENCE></RETURNVALUE>"),
              [&](ClientHandle* h, Error** error) {
                  ParamValue* out = nullptr;
                  ASSERT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, error), 0);
                  ASSERT_EQ(count(out), 1);
                  EXPECT_STREQ(out->paramType, "reference");
                  ASSERT_NE(out->valueReference, nullptr);
                  EXPECT_EQ(key(out->valueReference->instanceName, "K"), "v");
                  Free_ParamValue(out);
                  EXPECT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, nullptr, error), 0);
              });
    // An intrinsic answer is no method response.
    withReply(intrinsic("<IRETURNVALUE/>"), [&](ClientHandle* h, Error** error) {
        ParamValue* out = nullptr;
        EXPECT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, error), -1);
        EXPECT_EQ(out, nullptr);
    });
    Free_InstanceName(target);
}

}  // namespace
