// The operation frame shared by every CIMC_XML_ function.
#include "xmlops/frame.h"

#include <cstdlib>

#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "cimxml/writer.h"
#include "model/alloc.h"
#include "parser/parser_internal.h"
#include "transport/exchange.h"
#include "writer/document.h"

namespace cimxml::xmlops {
namespace {

// A copy of a literal, or false when memory ran out.
bool setText(char** field, const char* text) {
    *field = dupString(text);
    return *field != nullptr;
}

// The request-side IParamValue: owns its name and, for flags and texts, a
// Value with its text; every record it points at is the caller's.
IParamValue* newParam(const ParamSpec& def, const Arg& arg, bool* failed) {
    const char* valueText = nullptr;
    switch (def.kind) {
        case ParamKind::Flag:
            if (arg.flag > 1) return nullptr;
            valueText = arg.flag == 1 ? "TRUE" : "FALSE";
            break;
        case ParamKind::Text:
            if (!arg.text) return nullptr;
            valueText = arg.text;
            break;
        case ParamKind::ObjectClass:
        case ParamKind::ObjectInstance:
        case ParamKind::ObjectTarget: {
            auto* objectName = static_cast<const ObjectName*>(arg.record);
            if (!objectName) return nullptr;
            if (def.kind == ParamKind::ObjectClass ? !objectName->className
                : def.kind == ParamKind::ObjectInstance ? !objectName->instanceName
                : !objectName->instanceName && !objectName->className)
                return nullptr;
            break;
        }
        default:
            if (!arg.record) return nullptr;
            break;
    }

    auto* param = newRecord<IParamValue>();
    if (!param || !setText(&param->name, def.name)) {
        std::free(param);
        *failed = true;
        return nullptr;
    }
    // The writer takes non-const records; none of them is changed by it.
    void* record = const_cast<void*>(arg.record);
    switch (def.kind) {
        case ParamKind::ClassName: param->className = static_cast<ClassName*>(record); break;
        case ParamKind::InstanceName: param->instanceName = static_cast<InstanceName*>(record); break;
        case ParamKind::ObjectClass: param->className = static_cast<ObjectName*>(record)->className; break;
        case ParamKind::ObjectInstance: param->instanceName = static_cast<ObjectName*>(record)->instanceName; break;
        case ParamKind::ObjectTarget: {
            auto* objectName = static_cast<ObjectName*>(record);
            if (objectName->instanceName) param->instanceName = objectName->instanceName;
            else param->className = objectName->className;
            break;
        }
        case ParamKind::Instance: param->instance = static_cast<Instance*>(record); break;
        case ParamKind::NamedInstance: param->namedInstance = static_cast<NamedInstance*>(record); break;
        case ParamKind::Text:
        case ParamKind::Flag:
            param->value = newRecord<Value>();
            if (!param->value || !setText(&param->value->value, valueText)) {
                Free_IParamValue_New(param);
                *failed = true;
                return nullptr;
            }
            break;
    }
    return param;
}

// The IMETHODCALL text of one operation, or NULL when memory ran out.
char* writeRequest(ClientHandle* handle, bool wireStandard, const Operation& op, const Arg* args) {
    CIM* cim = newRequestEnvelope();
    if (!cim) return nullptr;
    IMethodCall* methodCall = newRecord<IMethodCall>();
    cim->message->simpleReq->iMethodCall = methodCall;
    bool failed = !methodCall || !setText(&methodCall->name, op.method) ||
                  !(methodCall->localNamespacePath = newNamespacePath(handle->nameSpace));

    const bool standard = wireStandard && op.standardParams;
    const ParamSpec* params = standard ? op.standardParams : op.params;
    const std::size_t paramCount = standard ? op.standardParamCount : op.paramCount;
    IParamValue** tail = methodCall ? &methodCall->iParamValues : nullptr;
    for (std::size_t i = 0; !failed && i < paramCount; ++i) {
        const ParamSpec& def = params[i];
        if (IParamValue* param = newParam(def, args[def.arg], &failed)) {
            *tail = param;
            tail = &param->next;
        }
    }

    char* text = nullptr;
    if (!failed) writer::writeDocument(cim, &text, wireStandard);
    if (methodCall) Free_IParamValue_New(methodCall->iParamValues);
    Free_Header(cim);
    return text;
}

}  // namespace

CIM* newRequestEnvelope() {
    CIM* cim = newRecord<CIM>();
    if (!cim) return nullptr;
    bool ok = setText(&cim->cimVersion, "2.0") && setText(&cim->dtdVersion, "2.0") &&
              (cim->message = newRecord<Message>()) && setText(&cim->message->id, "1234") &&
              setText(&cim->message->protocolVersion, "1.0") && (cim->message->simpleReq = newRecord<SimpleReq>());
    if (!ok) {
        Free_Header(cim);
        return nullptr;
    }
    return cim;
}

LocalNamespacePath* newNamespacePath(const char* nameSpace) {
    auto* path = newRecord<LocalNamespacePath>();
    if (!path) return nullptr;
    path->namespaces = newRecord<Namespace>();
    if (!path->namespaces || (nameSpace && !setText(&path->namespaces->name, nameSpace))) {
        Free_LocalNamespacePath(path);
        return nullptr;
    }
    return path;
}

void storeError(Error* error, Error** errorOut) {
    if (!error) return;
    if (errorOut)
        *errorOut = error;
    else
        Free_Error(error);
}

bool standardWire(ClientHandle* handle) { return handle && standardWireOf(handle); }

void storeNewError(const char* code, const char* description, Error** errorOut) {
    Error* error = newRecord<Error>();
    if (error && (!setText(&error->code, code) || !setText(&error->description, description))) {
        Free_Error(error);
        error = nullptr;
    }
    storeError(error, errorOut);
}

CIM* exchange(ClientHandle* handle, const WireSettings& wire, char* requestText, Error** errorOut,
              const char* cimMethod, const char* cimObject) {
    const transport::Peer peer{handle->host, handle->port, handle->userName, handle->password, handle->timeout};
    const transport::Security security{wire.tls, wire.tlsInsecure, wire.caFile.c_str()};
    transport::Failure failure;
    char* replyText = nullptr;
    // The body is parsed where it stands and then of no further use.
    transport::KeptBlock* const kept = transport::KeptBlock::ofThread();
    int rc = wire.standard ? transport::sendStandard(requestText, &replyText, peer, security,
                                                     transport::Call{cimMethod, cimObject}, &failure)
                           : transport::sendDefault(requestText, &replyText, peer, security, kept);
    std::free(requestText);

    if (rc == 401) {
        transport::releaseTaken(kept, replyText);
        storeNewError("401", "Unauthorized User", errorOut);
        return nullptr;
    }
    if (rc != 0 || !replyText) {
        // The transport may hand back an empty body even when it fails.
        transport::releaseTaken(kept, replyText);
        EmptyPrintf("\n\n Couldn't send request !!!!!!!\n\n");
        if (wire.standard) storeNewError(failure.code, failure.description, errorOut);
        return nullptr;
    }
    // A reply that builds no root of its own (a lone CIM element, say) would
    // hand back the previous parse's root, which is freed or the caller's by
    // now: only a root built from this reply may come back.
    returnAddress = nullptr;
    CIM* reply = cimxml::parser::parseDocument(replyText, replyText, wire.standard);
    transport::releaseTaken(kept, replyText);
    if (wire.standard && !simpleResponse(reply)) {
        storeNewError(CIMXML_ERROR_REPLY, "the reply is not a CIM-XML response (no MESSAGE with a SIMPLERSP)",
                      errorOut);
        Free_CIM(reply);
        return nullptr;
    }
    return reply;
}

SimpleRsp* simpleResponse(CIM* reply) {
    if (!reply || !reply->message) return nullptr;
    return reply->message->simpleRsp;
}

IReturnValue* call(ClientHandle* handle, const Operation& op, const Arg* args, Error** errorOut) {
    if (!handle) return nullptr;
    const WireSettings wire = wireSettingsOf(handle);
    char* text = writeRequest(handle, wire.standard, op, args);
    if (!text) return nullptr;
    CIM* reply = exchange(handle, wire, text, errorOut, op.method, handle->nameSpace ? handle->nameSpace : "");

    IReturnValue* result = nullptr;
    SimpleRsp* rsp = simpleResponse(reply);
    if (IMethodResponse* imr = rsp ? rsp->iMethodResponse : nullptr) {
        if (op.use == ReplyUse::ReturnValue && imr->iReturnValue) {
            result = imr->iReturnValue;
            imr->iReturnValue = nullptr;
        } else if (imr->error) {
            storeError(imr->error, errorOut);
            imr->error = nullptr;
        }
    } else if (reply && wire.standard) {
        storeNewError(CIMXML_ERROR_REPLY, "the reply holds no IMETHODRESPONSE", errorOut);
    }
    // Whatever was not handed out goes, so replies with extra content
    // (a MULTIRSP, an error next to a return value) leave nothing behind.
    Free_CIM(reply);
    return result;
}

}  // namespace cimxml::xmlops
