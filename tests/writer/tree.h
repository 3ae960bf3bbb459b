// Small builders for writer tests: records are calloc'd and strings strdup'd
// exactly as the library's own builders make them, so Free_<Record> releases
// them and the sanitizer build catches anything a writer leaks or frees twice.
#pragma once

#include "../xmlops/records.h"
#include "cimxml/writer.h"

namespace wt {

using opt::make;
using opt::rec;
using opt::s;

template <typename T>
struct Same {
    using type = T;
};

// Writes a record into a fresh buffer and returns the text ("" when the
// writer left the pointer NULL).
template <typename T>
std::string gen(int (*writer)(T*, char**), typename Same<T>::type* record) {
    char* text = nullptr;
    EXPECT_EQ(writer(record, &text), 0);
    std::string out = text ? text : "";
    std::free(text);
    return out;
}

inline ClassName* className(const char* name, ClassName* next = nullptr) {
    return rec<ClassName>({{"name", name}, {"next", next}});
}
inline Value* value(const char* text, Value* next = nullptr) { return rec<Value>({{"value", text}, {"next", next}}); }
inline Value* embedded(Instance* instance, Value* next = nullptr) {
    return rec<Value>({{"instance", instance}, {"embedded", 1}, {"next", next}});
}

inline ValueArray* valueArray(std::initializer_list<const char*> items) {
    auto* a = make<ValueArray>();
    Value** link = &a->value;
    for (const char* item : items) link = &(*link = value(item))->next;
    return a;
}

inline LocalNamespacePath* localNamespace(std::initializer_list<const char*> parts) {
    auto* p = make<LocalNamespacePath>();
    Namespace** link = &p->namespaces;
    for (const char* part : parts) link = &(*link = rec<Namespace>({{"name", part}}))->next;
    return p;
}

inline KeyValue* keyValue(const char* text, const char* valueType, const char* cimType = nullptr) {
    return rec<KeyValue>({{"value", text}, {"valueType", valueType}, {"cimType", cimType}});
}
inline InstanceName* instanceName(const char* cls, const char* key, const char* keyText) {
    return rec<InstanceName>({{"className", className(cls)},
                              {"keyBindings", rec<KeyBinding>({{"name", key}, {"keyValue", keyValue(keyText, "string")}})}});
}
inline Property* property(const char* name, const char* type, Value* v, Property* next = nullptr) {
    return rec<Property>({{"name", name}, {"type", type}, {"value", v}, {"next", next}});
}
inline PropertyArray* propertyArray(const char* name, const char* type, ValueArray* values,
                                    PropertyArray* next = nullptr) {
    return rec<PropertyArray>({{"name", name}, {"type", type}, {"valueArray", values}, {"next", next}});
}
inline Instance* instance(const char* cls, Property* properties = nullptr) {
    return rec<Instance>({{"className", className(cls)}, {"properties", properties}});
}

// IParamValue borrows everything but its name; release what the tests lent.
inline void freeParams(IParamValue* p) {
    for (IParamValue* n = p; n; n = n->next) {
        Free_Value(n->value);
        Free_ValueArray(n->valueArray);
        Free_ValueReference(n->valueReference);
        Free_ClassName(n->className);
        Free_InstanceName(n->instanceName);
        Free_QualifierDecl(n->qualifierDecl);
        Free_Class(n->cimClass);
        Free_Instance(n->instance);
        Free_NamedInstance(n->namedInstance);
    }
    Free_IParamValue(p);
}

// The request envelope the operations build, around one call.
inline CIM* request(IMethodCall* iCall, MethodCall* call = nullptr) {
    auto* cim = make<CIM>();
    cim->cimVersion = s("2.0");
    cim->dtdVersion = s("2.0");
    cim->message = make<Message>();
    cim->message->id = s("1234");
    cim->message->protocolVersion = s("1.0");
    cim->message->simpleReq = make<SimpleReq>();
    cim->message->simpleReq->iMethodCall = iCall;
    cim->message->simpleReq->methodCall = call;
    return cim;
}

inline void freeRequest(CIM* cim) {
    if (IMethodCall* call = cim->message->simpleReq->iMethodCall) {
        freeParams(call->iParamValues);
        call->iParamValues = nullptr;
    }
    Free_CIM(cim);
}

// A golden wire text from tests/writer/data/ (one trailing newline, if an
// editor added one, is not part of it).
inline std::string golden(const char* name) {
    std::ifstream in(std::string(WRITER_DATA_DIR) + "/" + name, std::ios::binary);
    EXPECT_TRUE(in) << name;
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace wt
