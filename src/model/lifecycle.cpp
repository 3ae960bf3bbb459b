// Exported Free_ and Clone_ families. The generic walkers do the work; the
// functions whose reach differs from "everything the record owns" are
// written out below the generated ones.
#include <cstdlib>
#include <cstring>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"
#include "model/record_table.h"

using cimxml::model::cloneRecord;
using cimxml::model::freeRecord;
using cimxml::model::releaseBlock;
using cimxml::model::RecordId;

namespace cimxml {
long g_allocFailCountdown = -1;
}

extern "C" {

#define RECORD(T, L, ...)             \
    int Free_##T(T* record) {         \
        freeRecord(RecordId::T, record); \
        return 0;                     \
    }
#include "model/records.def"
#undef RECORD

#define CIMXML_FREE_TEXT(K)    \
    int Free_##K(char* text) { \
        releaseBlock(text);    \
        return 0;              \
    }
CIMXML_FREE_TEXT(CIMName)
CIMXML_FREE_TEXT(CIMType)
CIMXML_FREE_TEXT(ClassOrigin)
CIMXML_FREE_TEXT(ReferenceClass)
CIMXML_FREE_TEXT(ParamType)
CIMXML_FREE_TEXT(ValueType)
CIMXML_FREE_TEXT(Host)
CIMXML_FREE_TEXT(PCData)
#undef CIMXML_FREE_TEXT

#define CIMXML_CLONE_RECORD(T)                                                   \
    int Clone_##T(const T* source, T** destination) {                           \
        return cloneRecord(RecordId::T, source, reinterpret_cast<void**>(destination)); \
    }
CIMXML_CLONE_RECORD(QualifierFlavor)
CIMXML_CLONE_RECORD(ClassName)
CIMXML_CLONE_RECORD(Namespace)
CIMXML_CLONE_RECORD(LocalNamespacePath)
CIMXML_CLONE_RECORD(NamespacePath)
CIMXML_CLONE_RECORD(ClassPath)
CIMXML_CLONE_RECORD(LocalClassPath)
CIMXML_CLONE_RECORD(KeyValue)
CIMXML_CLONE_RECORD(KeyBinding)
CIMXML_CLONE_RECORD(InstanceName)
CIMXML_CLONE_RECORD(LocalInstancePath)
CIMXML_CLONE_RECORD(InstancePath)
CIMXML_CLONE_RECORD(ValueReference)
CIMXML_CLONE_RECORD(PropertyReference)
CIMXML_CLONE_RECORD(Instance)
CIMXML_CLONE_RECORD(Value)
CIMXML_CLONE_RECORD(ValueArray)
CIMXML_CLONE_RECORD(Qualifier)
CIMXML_CLONE_RECORD(PropertyArray)
CIMXML_CLONE_RECORD(Property)
CIMXML_CLONE_RECORD(NamedInstance)
#undef CIMXML_CLONE_RECORD

static int cloneText(const char* source, char** destination) {
    if (!destination) return -1;
    *destination = nullptr;
    if (!source) return 0;
    return (*destination = cimxml::dupString(source)) ? 0 : -1;
}

// Kept deliberately: only the first character is copied. The block gets a
// terminator as well so that nothing reading it runs past the allocation.
static int cloneFirstCharacter(const char* source, char** destination) {
    if (!destination) return -1;
    *destination = nullptr;
    if (!source) return 0;
    char* one = static_cast<char*>(cimxml::zalloc(2));
    if (!one) return -1;
    one[0] = source[0];
    *destination = one;
    return 0;
}

int Clone_CIMName(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_CIMType(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_Host(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_PCData(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_ValueType(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_ParamType(const char* source, char** destination) { return cloneText(source, destination); }
int Clone_ClassOrigin(const char* source, char** destination) { return cloneFirstCharacter(source, destination); }
int Clone_ReferenceClass(const char* source, char** destination) {
    return cloneFirstCharacter(source, destination);
}

int Free_InstanceName_New(InstanceName* record) {
    if (!record) return 0;
    Free_KeyBinding(record->keyBindings);
    Free_KeyValue(record->keyValue);
    Free_ValueReference(record->valueReference);
    Free_ClassName(record->className);
    releaseBlock(record);
    return 0;
}

int Free_IParamValue_New(IParamValue* record) {
    while (record) {
        IParamValue* next = record->next;
        releaseBlock(record->name);
        if (record->value) {
            // The operations allocate only the Value node and its text; the
            // rest of a parameter is the caller's.
            releaseBlock(record->value->value);
            releaseBlock(record->value);
        }
        releaseBlock(record);
        record = next;
    }
    return 0;
}

int Free_Header(CIM* cim) {
    if (!cim) return 0;
    releaseBlock(cim->cimVersion);
    releaseBlock(cim->dtdVersion);
    if (Message* message = cim->message) {
        releaseBlock(message->id);
        releaseBlock(message->protocolVersion);
        if (SimpleRsp* rsp = message->simpleRsp) {
            if (IMethodResponse* imr = rsp->iMethodResponse) {
                releaseBlock(imr->name);
                releaseBlock(imr->iReturnValue);  // the bare node: its children were handed out
                releaseBlock(imr);
            }
            if (MethodResponse* mr = rsp->methodResponse) {
                releaseBlock(mr->name);
                releaseBlock(mr->returnValue);
                releaseBlock(mr);
            }
            releaseBlock(rsp);
        }
        if (SimpleReq* req = message->simpleReq) {
            if (IMethodCall* call = req->iMethodCall) {
                releaseBlock(call->name);
                Free_LocalNamespacePath(call->localNamespacePath);
                releaseBlock(call);
            }
            if (MethodCall* call = req->methodCall) {
                releaseBlock(call->name);
                if (LocalInstancePath* path = call->localInstancePath) {
                    Free_LocalNamespacePath(path->localNamespacePath);
                    releaseBlock(path);  // the instance name is the caller's
                }
                releaseBlock(call);
            }
            releaseBlock(req);
        }
        releaseBlock(message);
    }
    releaseBlock(cim);
    return 0;
}

}  // extern "C"
