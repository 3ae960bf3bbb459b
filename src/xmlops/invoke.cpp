// The extrinsic method call over CIM-XML: one METHODCALL on the target's
// instance path (keys given) or class path (no keys), the reply's
// METHODRESPONSE handed back as one ParamValue chain.
#include <cstdlib>
#include <cstring>
#include <string>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "cimxml/writer.h"
#include "model/alloc.h"
#include "writer/document.h"
#include "xmlops/frame.h"

namespace cimxml::xmlops {
namespace {

bool hasKeys(const InstanceName* name) {
    return name->keyBindings || name->keyValue || name->valueReference;
}

// The METHODCALL text, or NULL when memory ran out. The target and the
// parameters are the caller's and are only borrowed for the writing.
char* writeMethodCall(ClientHandle* handle, bool wireStandard, InstanceName* target, const char* methodName,
                      ParamValue* inParams) {
    CIM* cim = newRequestEnvelope();
    if (!cim) return nullptr;
    MethodCall* methodCall = newRecord<MethodCall>();
    cim->message->simpleReq->methodCall = methodCall;
    LocalClassPath* classPath = nullptr;

    bool ok = methodCall && (methodCall->name = dupString(methodName));
    if (ok && hasKeys(target)) {
        auto* instancePath = newRecord<LocalInstancePath>();
        methodCall->localInstancePath = instancePath;
        ok = instancePath && (instancePath->localNamespacePath = newNamespacePath(handle->nameSpace));
        if (ok) instancePath->instanceName = target;
    } else if (ok) {
        classPath = newRecord<LocalClassPath>();
        methodCall->localClassPath = classPath;
        ok = classPath && (classPath->localNamespacePath = newNamespacePath(handle->nameSpace));
        if (ok) classPath->className = target->className;
    }

    char* text = nullptr;
    if (ok) {
        methodCall->paramValues = inParams;
        // Only the first node names the target, whatever follows it.
        InstanceName* rest = target->next;
        target->next = nullptr;
        writer::writeDocument(cim, &text, wireStandard);
        target->next = rest;
    }
    // The envelope release leaves a class path alone; the class name in it
    // is the caller's.
    if (classPath) {
        Free_LocalNamespacePath(classPath->localNamespacePath);
        std::free(classPath);
        methodCall->localClassPath = nullptr;
    }
    Free_Header(cim);
    return text;
}

// A key value as an object path writes it: strings and references quoted
// (with " and \ escaped), numbers and booleans bare.
void appendKeyValue(std::string& out, const char* text, bool quoted) {
    if (!quoted) {
        out += text ? text : "";
        return;
    }
    out += '"';
    for (const char* c = text ? text : ""; *c; ++c) {
        if (*c == '"' || *c == '\\') out += '\\';
        out += *c;
    }
    out += '"';
}

// "Class.Key1=\"a\",Key2=3" for an instance, "Class" alone for a class.
std::string modelPath(const InstanceName* name) {
    std::string out = name->className && name->className->name ? name->className->name : "";
    char separator = '.';
    for (const KeyBinding* k = name->keyBindings; k; k = k->next, separator = ',') {
        out += separator;
        out += k->name ? k->name : "";
        out += '=';
        if (k->keyValue) {
            const char* type = k->keyValue->valueType;
            appendKeyValue(out, k->keyValue->value, !type || std::strcmp(type, "string") == 0);
        } else if (k->valueReference && k->valueReference->instanceName) {
            appendKeyValue(out, modelPath(k->valueReference->instanceName).c_str(), true);
        }
    }
    return out;
}

// The standard CIMObject value of an extrinsic call: "namespace:path".
std::string targetObject(ClientHandle* handle, InstanceName* target) {
    std::string out = handle->nameSpace ? handle->nameSpace : "";
    out += ':';
    out += modelPath(target);  // the class alone when there are no key bindings
    return out;
}

// The method's results as one chain: a "ReturnValue" node (when the reply
// has a RETURNVALUE) followed by the output parameters. Detached from the
// response; NULL on a failed allocation.
ParamValue* takeResults(MethodResponse* response, bool* failed) {
    ParamValue* results = response->paramValues;
    response->paramValues = nullptr;
    ReturnValue* returned = response->returnValue;
    if (!returned) return results;

    auto* head = newRecord<ParamValue>();
    if (!head || !(head->name = dupString("ReturnValue"))) {
        std::free(head);
        Free_ParamValue(results);
        *failed = true;
        return nullptr;
    }
    head->paramType = returned->paramType;
    head->value = returned->value;
    head->valueReference = returned->valueReference;
    returned->paramType = nullptr;
    returned->value = nullptr;
    returned->valueReference = nullptr;
    head->next = results;
    return head;
}

int invoke(ClientHandle* handle, InstanceName* target, const char* methodName, ParamValue* inParams,
           ParamValue** outParams, Error** errorOut) {
    const WireSettings wire = wireSettingsOf(handle);
    const std::string object = wire.standard ? targetObject(handle, target) : std::string();
    char* text = writeMethodCall(handle, wire.standard, target, methodName, inParams);
    if (!text) return -1;
    CIM* reply = exchange(handle, wire, text, errorOut, methodName, object.c_str());
    SimpleRsp* rsp = simpleResponse(reply);
    MethodResponse* response = rsp ? rsp->methodResponse : nullptr;
    if (!response && reply && wire.standard)
        storeNewError(CIMXML_ERROR_REPLY, "the reply holds no METHODRESPONSE", errorOut);

    int rc = -1;
    if (response && response->error) {
        storeError(response->error, errorOut);
        response->error = nullptr;
    } else if (response) {
        bool failed = false;
        ParamValue* results = takeResults(response, &failed);
        if (!failed) {
            if (outParams)
                *outParams = results;
            else
                Free_ParamValue(results);
            rc = 0;
        }
    }
    Free_CIM(reply);
    return rc;
}

}  // namespace
}  // namespace cimxml::xmlops

extern "C" int CIMC_XML_invokeMethod(ClientHandle* handle, InstanceName* objectPath, const char* methodName,
                                     ParamValue* inParams, ParamValue** outParams, Error** errorOut) {
    if (outParams) *outParams = nullptr;
    if (!handle || !objectPath || !methodName) return -1;
    try {
        return cimxml::xmlops::invoke(handle, objectPath, methodName, inParams, outParams, errorOut);
    } catch (...) {
        return -1;
    }
}
