// Record builders and readers for the operation tests. Records are calloc'd
// and strings strdup'd as the library's own builders make them, so the Free_
// functions release them and the sanitizer build sees any leak.
#pragma once

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "cimxml/client.h"
#include "cimxml/lifecycle.h"

namespace opt {

template <typename T>
T* make() { return static_cast<T*>(std::calloc(1, sizeof(T))); }
inline char* s(const char* text) { return text ? strdup(text) : nullptr; }

inline ClassName* className(const char* name) {
    auto* c = make<ClassName>();
    c->name = s(name);
    return c;
}
struct Key { const char* name; const char* value; const char* valueType = "string"; };
inline InstanceName* instanceName(const char* cls, std::initializer_list<Key> keys) {
    auto* n = make<InstanceName>();
    n->className = className(cls);
    KeyBinding** tail = &n->keyBindings;
    for (const Key& k : keys) {
        *tail = make<KeyBinding>();
        (*tail)->name = s(k.name);
        (*tail)->keyValue = make<KeyValue>();
        (*tail)->keyValue->value = s(k.value);
        (*tail)->keyValue->valueType = s(k.valueType);
        tail = &(*tail)->next;
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
    return instanceName("Mock_Processor", {{"SystemCreationClassName", "Mock_ComputerSystem"},
                                           {"SystemName", "mock-server.example.com"},
                                           {"CreationClassName", "Mock_Processor"}, {"DeviceID", deviceId}});
}
inline InstanceName* computerSystem() {
    return instanceName("Mock_ComputerSystem",
                        {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
}
inline Value* value(const char* text) {
    auto* v = make<Value>();
    v->value = s(text);
    return v;
}
inline Property* property(const char* name, const char* text, const char* type, Property* next = nullptr) {
    auto* p = make<Property>();
    p->name = s(name);
    p->type = s(type);
    p->value = value(text);
    p->next = next;
    return p;
}
inline ParamValue* param(const char* name, const char* text, const char* type, ParamValue* next = nullptr) {
    auto* p = make<ParamValue>();
    p->name = s(name);
    p->paramType = s(type);
    p->value = value(text);
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
    while (chain && !(chain->name && strcasecmp(chain->name, name) == 0)) chain = chain->next;
    return chain;
}
// The text of a scalar property ("<absent>" / "<null>" when missing / empty).
template <typename R>
std::string text(const R* record, const char* name) {
    const Property* p = named(record->properties, name);
    return !p ? "<absent>" : p->value && p->value->value ? p->value->value : "<null>";
}
inline std::string key(const InstanceName* n, const char* name) {
    const KeyBinding* b = named(n ? n->keyBindings : nullptr, name);
    return b && b->keyValue && b->keyValue->value ? b->keyValue->value : "<absent>";
}
// Takes the error out of *slot as "code:description" ("" when none).
inline std::string takeError(Error** slot) {
    if (!*slot) return "";
    std::string out = std::string((*slot)->code ? (*slot)->code : "") + ":" +
                      ((*slot)->description ? (*slot)->description : "");
    Free_Error(*slot);
    *slot = nullptr;
    return out;
}

}  // namespace opt
