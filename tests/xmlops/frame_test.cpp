// The operation frame against canned replies: what is taken from unusual
// answers, what reaches errorOut, and that nothing is sent without a handle.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "../transport/raw_server.h"
#include "records.h"

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

const char* const kError = "<ERROR CODE=\"6\" DESCRIPTION=\"gone\"><INSTANCE CLASSNAME=\"CIM_Error\"/></ERROR>";
const char* const kInstanceName = "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE VALUETYPE=\"string\">"
                                  "v</KEYVALUE></KEYBINDING></INSTANCENAME>";

// Runs one call against a server that answers with the given body.
void withReply(const std::string& body, const std::function<void(ClientHandle*)>& run) {
    cimtest::RawServer server(cimtest::okReply(body));
    ASSERT_TRUE(server.start());
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "u", "p");
    handle->interfaceType = 0;
    run(handle);
    Free_client_Configuration(handle);
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
    withReply(intrinsic(std::string(kError) + "<IRETURNVALUE>" + kInstanceName +
                        "<CLASSNAME NAME=\"Extra\"/><INSTANCE CLASSNAME=\"Extra\"/></IRETURNVALUE>"),
              [](ClientHandle* h) {
                  Error* error = nullptr;
                  InstanceName* names = CIMC_XML_EnumerateInstanceNames(h, nullptr, &error);
                  ASSERT_EQ(count(names), 1);
                  EXPECT_EQ(key(names, "K"), "v");
                  EXPECT_EQ(error, nullptr);
                  Free_InstanceName(names);
              });
}

TEST(Frame, ErrorReplies) {
    // The parsed error with its instances reaches errorOut.
    withReply(intrinsic(kError), [](ClientHandle* h) {
        Error* error = nullptr;
        EXPECT_EQ(CIMC_XML_ExecQuery(h, "WQL", "q", &error), nullptr);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(count(error->instance), 1);
        EXPECT_EQ(takeError(&error), "6:gone");
    });
    // Delete and Modify look only for the error, even next to a return value.
    withReply(intrinsic(std::string(kError) + "<IRETURNVALUE>" + kInstanceName + "</IRETURNVALUE>"),
              [](ClientHandle* h) {
                  Error* error = nullptr;
                  EXPECT_EQ(CIMC_XML_DeleteInstance(h, nullptr, &error), nullptr);
                  EXPECT_EQ(takeError(&error), "6:gone");
              });
    // Nowhere to store it: dropped, not a crash.
    withReply(intrinsic(kError), [](ClientHandle* h) {
        EXPECT_EQ(CIMC_XML_EnumerateClassNames(h, nullptr, 2, nullptr), nullptr);
    });
}

TEST(Frame, RepliesOutsideThePathGiveNull) {
    const std::string replies[] = {
        intrinsic("<IRETURNVALUE/>"),
        envelope("<MULTIRSP><SIMPLERSP><IMETHODRESPONSE NAME=\"X\"><IRETURNVALUE>" + std::string(kInstanceName) +
                 "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MULTIRSP>"),
        extrinsic("<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE>"),
        "<?xml version=\"1.0\"?><CIM><unclosed",
    };
    for (const std::string& body : replies) {
        SCOPED_TRACE(body);
        withReply(body, [](ClientHandle* h) {
            Error* error = nullptr;
            EXPECT_EQ(CIMC_XML_EnumerateInstanceNames(h, nullptr, &error), nullptr);
            EXPECT_EQ(error, nullptr);
        });
    }
}

TEST(Frame, ReferenceNamesTakesOnlyInstanceNames) {
    withReply(intrinsic("<IRETURNVALUE><OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH>"
                        "<NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>" +
                        std::string(kInstanceName) + "</INSTANCEPATH></OBJECTPATH></IRETURNVALUE>"),
              [](ClientHandle* h) {
                  Error* error = nullptr;
                  EXPECT_EQ(CIMC_XML_ReferenceNames(h, nullptr, nullptr, nullptr, &error), nullptr);
                  EXPECT_EQ(error, nullptr);
              });
    withReply(intrinsic("<IRETURNVALUE>" + std::string(kInstanceName) + kInstanceName + "</IRETURNVALUE>"),
              [](ClientHandle* h) {
                  Error* error = nullptr;
                  ObjectPath* path = CIMC_XML_ReferenceNames(h, nullptr, nullptr, nullptr, &error);
                  ASSERT_TRUE(path && path->instancePath);
                  EXPECT_EQ(count(path->instancePath->instanceName), 2);
                  Free_ObjectPath(path);
              });
}

TEST(Frame, MethodResponseShapes) {
    InstanceName* target = instanceName("C", {{"K", "v", "string"}});
    // No RETURNVALUE: the output parameters alone.
    withReply(extrinsic("<PARAMVALUE NAME=\"A\" PARAMTYPE=\"string\"><VALUE>x</VALUE></PARAMVALUE>"
                        "<PARAMVALUE NAME=\"B\"><VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY>"
                        "</PARAMVALUE>"),
              [&](ClientHandle* h) {
                  ParamValue* out = nullptr;
                  Error* error = nullptr;
                  ASSERT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, &error), 0);
                  ASSERT_EQ(count(out), 2);
                  EXPECT_STREQ(out->name, "A");
                  EXPECT_STREQ(out->paramType, "string");
                  EXPECT_EQ(count(out->next->valueArray->value), 2);
                  Free_ParamValue(out);
              });
    // A reference return value, and no place for the results: freed.
    withReply(extrinsic("<RETURNVALUE PARAMTYPE=\"reference\"><VALUE.REFERENCE>" + std::string(kInstanceName) +
                        "</VALUE.REFERENCE></RETURNVALUE>"),
              [&](ClientHandle* h) {
                  ParamValue* out = nullptr;
                  Error* error = nullptr;
                  ASSERT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, &error), 0);
                  ASSERT_EQ(count(out), 1);
                  EXPECT_STREQ(out->paramType, "reference");
                  ASSERT_NE(out->valueReference, nullptr);
                  EXPECT_EQ(key(out->valueReference->instanceName, "K"), "v");
                  Free_ParamValue(out);
                  EXPECT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, nullptr, &error), 0);
              });
    // An intrinsic answer is no method response.
    withReply(intrinsic("<IRETURNVALUE/>"), [&](ClientHandle* h) {
        ParamValue* out = nullptr;
        Error* error = nullptr;
        EXPECT_EQ(CIMC_XML_invokeMethod(h, target, "M", nullptr, &out, &error), -1);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(error, nullptr);
    });
    Free_InstanceName(target);
}

}  // namespace
