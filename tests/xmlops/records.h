// Small record builders and readers for the operation tests. Records are
// calloc'd and strings strdup'd as the library's own builders make them, so
// the Free_ functions release them and the sanitizer build sees any leak.
#pragma once

#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <initializer_list>
#include <string>
#include <utility>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

namespace opt {

template <typename T>
T* make() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

inline char* s(const char* text) { return text ? strdup(text) : nullptr; }

inline ClassName* className(const char* name) {
    auto* c = make<ClassName>();
    c->name = s(name);
    return c;
}

struct Key {
    const char* name;
    const char* value;
    const char* valueType;
};

inline InstanceName* instanceName(const char* cls, std::initializer_list<Key> keys) {
    auto* n = make<InstanceName>();
    n->className = className(cls);
    KeyBinding** tail = &n->keyBindings;
    for (const Key& k : keys) {
        auto* b = make<KeyBinding>();
        b->name = s(k.name);
        b->keyValue = make<KeyValue>();
        b->keyValue->value = s(k.value);
        b->keyValue->valueType = s(k.valueType);
        *tail = b;
        tail = &b->next;
    }
    return n;
}

// An ObjectName owning its instance name and a ClassName of the same class.
inline ObjectName* objectName(InstanceName* name) {
    auto* o = make<ObjectName>();
    o->instanceName = name;
    o->className = className(name->className->name);
    return o;
}

inline InstanceName* processor(const char* deviceId) {
    return instanceName("Mock_Processor", {{"SystemCreationClassName", "Mock_ComputerSystem", "string"},
                                           {"SystemName", "mock-server.example.com", "string"},
                                           {"CreationClassName", "Mock_Processor", "string"},
                                           {"DeviceID", deviceId, "string"}});
}

inline InstanceName* computerSystem() {
    return instanceName("Mock_ComputerSystem", {{"CreationClassName", "Mock_ComputerSystem", "string"},
                                                {"Name", "mock-server.example.com", "string"}});
}

inline Property* property(const char* name, const char* value, const char* type, Property* next = nullptr) {
    auto* p = make<Property>();
    p->name = s(name);
    p->type = s(type);
    if (value) {
        p->value = make<Value>();
        p->value->value = s(value);
    }
    p->next = next;
    return p;
}

inline ParamValue* param(const char* name, const char* value, const char* type, ParamValue* next = nullptr) {
    auto* p = make<ParamValue>();
    p->name = s(name);
    p->paramType = s(type);
    p->value = make<Value>();
    p->value->value = s(value);
    p->next = next;
    return p;
}

template <typename T>
int count(const T* chain) {
    int n = 0;
    for (; chain; chain = chain->next) ++n;
    return n;
}

template <typename T>
const T* named(const T* chain, const char* name) {
    for (; chain; chain = chain->next)
        if (chain->name && strcasecmp(chain->name, name) == 0) return chain;
    return nullptr;
}

// The text of a scalar property ("<absent>" / "<null>" when missing / empty).
template <typename R>
std::string text(const R* record, const char* name) {
    const Property* p = named(record->properties, name);
    if (!p) return "<absent>";
    return p->value && p->value->value ? p->value->value : "<null>";
}

inline std::string key(const InstanceName* n, const char* name) {
    const KeyBinding* b = named(n ? n->keyBindings : nullptr, name);
    return b && b->keyValue && b->keyValue->value ? b->keyValue->value : "<absent>";
}

// Takes the error out of *slot, returning "code:description" ("" when none).
inline std::string takeError(Error** slot) {
    if (!*slot) return "";
    std::string out = std::string((*slot)->code ? (*slot)->code : "") + ":" +
                      ((*slot)->description ? (*slot)->description : "");
    Free_Error(*slot);
    *slot = nullptr;
    return out;
}

}  // namespace opt
