// The shared frame of the CIM-XML operations: build the request envelope,
// write it, send it, parse the reply and hand back what the caller keeps.
// Every intrinsic operation is one row of parameters run through call().
#pragma once

#include <cstddef>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "cimxml/records.h"
#include "api/wire.h"

namespace cimxml::xmlops {

// How one IPARAMVALUE is filled from its argument.
enum class ParamKind : unsigned char {
    ClassName,        // a ClassName record
    InstanceName,     // an InstanceName record
    ObjectClass,      // the className part of an ObjectName
    ObjectInstance,   // the instanceName part of an ObjectName
    ObjectTarget,     // an ObjectName's instanceName, else its className
    Instance,         // an Instance record
    NamedInstance,    // a NamedInstance record
    Text,             // a string, sent as a VALUE
    Flag,             // 0 "FALSE", 1 "TRUE", anything else omitted
};

struct ParamSpec {
    const char* name;
    ParamKind kind;
    unsigned char arg;  // index into the operation's arguments
};

// One caller argument; the parameter's kind says which member counts.
struct Arg {
    const void* record = nullptr;
    const char* text = nullptr;
    unsigned int flag = 2;

    Arg(const char* t) : text(t) {}
    Arg(unsigned int f) : flag(f) {}
    template <typename T>
    Arg(T* r) : record(r) {}
};

// What an operation wants from the reply's IMETHODRESPONSE.
enum class ReplyUse : unsigned char {
    ReturnValue,  // the IRETURNVALUE, else the ERROR through errorOut
    ErrorOnly,    // only the ERROR, when present
};

struct Operation {
    const char* method;
    const ParamSpec* params;
    std::size_t paramCount;
    ReplyUse use;
    // In the standard wire mode, only the parameters DSP0200 defines for the
    // method (NULL: the same as above).
    const ParamSpec* standardParams = nullptr;
    std::size_t standardParamCount = 0;
};

// Runs one intrinsic call. Returns the reply's IRETURNVALUE, detached from
// the response (the caller frees it with Free_IReturnValue), or NULL. Errors
// are stored through errorOut as the operations document.
IReturnValue* call(ClientHandle* handle, const Operation& op, const Arg* args, Error** errorOut);

// Detaches one child of a return value and frees the rest of it.
template <typename T>
T* take(IReturnValue* rv, T* IReturnValue::*child) {
    if (!rv) return nullptr;
    T* result = rv->*child;
    rv->*child = nullptr;
    Free_IReturnValue(rv);
    return result;
}

// ---- pieces shared with the extrinsic call ---------------------------------

// CIM 2.0/2.0 -> MESSAGE 1234/1.0 -> SIMPLEREQ. NULL when memory runs out.
CIM* newRequestEnvelope();
// A LOCALNAMESPACEPATH holding one NAMESPACE with a copy of the text.
LocalNamespacePath* newNamespacePath(const char* nameSpace);
// True when the handle talks in the standard wire mode. Never throws.
bool standardWire(ClientHandle* handle);
// Sends the written request (and frees it) with the settings the call read
// once, before writing it; returns the parsed reply, or NULL after storing
// the 401 error or on any transport or parse failure (in the standard wire
// mode every failure is stored as an Error). cimMethod and cimObject are the
// standard mode's CIMMethod and CIMObject values.
CIM* exchange(ClientHandle* handle, const WireSettings& wire, char* requestText, Error** errorOut,
              const char* cimMethod, const char* cimObject);
// Stores a new Error with these texts (nothing when memory runs out).
void storeNewError(const char* code, const char* description, Error** errorOut);
// The reply's first SIMPLERSP, or NULL when any link is missing.
SimpleRsp* simpleResponse(CIM* reply);
// Stores a detached error through errorOut (freeing it when there is nowhere
// to store it).
void storeError(Error* error, Error** errorOut);

}  // namespace cimxml::xmlops
