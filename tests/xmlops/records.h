// Record builders and readers for the operation tests. Records are calloc'd and
// strings strdup'd as the library's own builders make them, so the Free_
// functions release them and the sanitizer build sees any leak. A record tree
// reads as "path = value" lines; callAgainst runs one call on a raw peer.
#pragma once

#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../transport/raw_server.h"
#include "cimxml/client.h"
#include "cimxml/lifecycle.h"
#include "model/record_table.h"

namespace opt {

template <typename T>
T* make() { return static_cast<T*>(std::calloc(1, sizeof(T))); }
inline char* s(const char* text) { return text ? strdup(text) : nullptr; }

// A record with fields set by name through the record table: texts copied,
// numbers stored at their field's width, records linked as given.
struct Set {
    const char* field;
    const char* text = nullptr;
    long number = 0;
    void* record = nullptr;
    Set(const char* f, const char* t) : field(f), text(t) {}
    Set(const char* f, long n) : field(f), number(n) {}
    template <typename R>
    Set(const char* f, R* r) : field(f), record(r) {}
};
template <typename T>
T* rec(std::initializer_list<Set> fields) {
    using cimxml::model::FieldKind;
    T* r = make<T>();
    for (const Set& set : fields) {
        const auto* f = cimxml::model::findField(cimxml::model::RecordIdOf<T>::value, set.field);
        EXPECT_NE(f, nullptr) << set.field;
        if (!f) continue;
        char* at = reinterpret_cast<char*>(r) + f->offset;
        const std::int16_t n16 = static_cast<std::int16_t>(set.number);
        const std::int32_t n32 = static_cast<std::int32_t>(set.number);
        void* pointer = set.text ? s(set.text) : set.record;
        if (f->kind == FieldKind::Int16) std::memcpy(at, &n16, sizeof n16);
        else if (f->kind == FieldKind::Int32) std::memcpy(at, &n32, sizeof n32);
        else std::memcpy(at, &pointer, sizeof pointer);
    }
    return r;
}

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
inline Instance* instance(const char* cls, Property* properties) {
    auto* i = make<Instance>();
    i->className = className(cls);
    i->properties = properties;
    return i;
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
const T* named(const T* chain, const char* name) {
    while (chain && !(chain->name && strcasecmp(chain->name, name) == 0)) chain = chain->next;
    return chain;
}
template <typename T>
int count(const T* chain) {
    int n = 0;
    for (; chain; chain = chain->next) ++n;
    return n;
}

// Takes the error out of *slot as "code:description" ("" when none).
inline std::string takeError(Error** slot) {
    const Error* e = *slot;
    std::string out = e ? std::string(e->code ? e->code : "") + ":" + (e->description ? e->description : "") : "";
    Free_Error(std::exchange(*slot, nullptr));
    return out;
}

using cimxml::model::FieldKind;
using cimxml::model::RecordId;

// A record tree as "path = value" lines through the record table, so that two
// trees compare field by field and a difference names its field. Lists of
// named members are keyed by name ("properties[Caption]"), so that a member
// one tree lacks does not shift the others; other lists by position.
inline const char* memberName(RecordId id, const char* node) {
    const RecordId named[] = {RecordId::Property, RecordId::PropertyArray, RecordId::PropertyReference,
                              RecordId::KeyBinding, RecordId::ParamValue};
    const auto* f = std::count(named, named + 5, id) ? cimxml::model::findField(id, "name") : nullptr;
    return f ? *reinterpret_cast<char* const*>(node + f->offset) : nullptr;
}

inline void dumpRecord(RecordId id, const char* node, const std::string& path, std::vector<std::string>& out) {
    const auto& desc = cimxml::model::describe(id);
    for (int index = 0; node; ++index) {
        const char* key = memberName(id, node);
        const std::string at = !desc.isList ? path : path + "[" + (key ? key : std::to_string(index)) + "]";
        for (std::uint8_t i = 0; i < desc.fieldCount; ++i) {
            const auto& f = desc.fields[i];
            const char* field = node + f.offset;
            const std::string name = at + "." + f.name;
            std::int16_t n16 = 0;
            std::int32_t n32 = 0;
            if (f.kind == FieldKind::Record) {
                if (const char* child = *reinterpret_cast<char* const*>(field)) dumpRecord(f.child, child, name, out);
            } else if (f.kind == FieldKind::Int16 || f.kind == FieldKind::Int32) {
                if (f.kind == FieldKind::Int16) std::memcpy(&n16, field, sizeof n16), n32 = n16;
                else std::memcpy(&n32, field, sizeof n32);
                if (n32) out.push_back(name + " = " + std::to_string(n32));
            } else if (f.kind != FieldKind::Borrowed && f.kind != FieldKind::Next) {
                if (const char* text = *reinterpret_cast<char* const*>(field)) out.push_back(name + " = \"" + text + "\"");
            }
        }
        node = desc.isList ? *reinterpret_cast<char* const*>(node + desc.nextOffset) : nullptr;
    }
}

template <typename T>
std::vector<std::string> dump(const T* record) {
    std::vector<std::string> out;
    dumpRecord(cimxml::model::RecordIdOf<T>::value, reinterpret_cast<const char*>(record), "", out);
    return out;
}

// One call's record tree as dump lines; the tree is freed.
template <typename T>
std::vector<std::string> taken(T* record, int (*release)(T*)) {
    std::vector<std::string> lines = dump(record);
    release(record);
    return lines;
}

inline std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const auto& l : lines) s += l + "\n";
    return s;
}

#ifdef XMLOPS_DATA_DIR
// `got` against the file data/<name>; XMLOPS_UPDATE=1 rewrites the file after
// a deliberate change (review the diff).
inline void expectGolden(const std::string& name, const std::string& got) {
    const std::string path = std::string(XMLOPS_DATA_DIR) + "/" + name;
    if (std::getenv("XMLOPS_UPDATE")) std::ofstream(path, std::ios::binary) << got;
    std::stringstream want;
    want << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_EQ(got, want.str()) << path;
}
inline void expectTree(const std::string& name, const std::vector<std::string>& tree) {
    expectGolden("trees/" + name + ".tree", joined(tree));
}
#endif

// One call through a handle in the default (or standard) wire mode on a raw
// peer that plays `reply`: the call must leave no error, so `run` takes any it
// expects. Returns the bytes it sent, the peer's port written as PORT.
inline std::string callAgainst(cimtest::Reply reply, const std::function<void(ClientHandle*, Error**)>& run,
                               bool standard = false) {
    cimtest::RawServer server(std::move(reply));
    EXPECT_TRUE(server.start());
    ClientHandle* handle = client_Configuration("127.0.0.1", server.port(), "root/cimv2", 5000, "user", "secret");
    handle->interfaceType = 0;
    EXPECT_EQ(standard ? CIMC_SetWireMode(handle, CIMXML_WIRE_STANDARD, nullptr) : 0, 0);
    Error* error = nullptr;
    run(handle, &error);
    EXPECT_EQ(takeError(&error), "");
    Free_client_Configuration(handle);
    std::string sent = server.request(0);
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    if (std::size_t at = sent.find(host); at != std::string::npos) sent.replace(at, host.size(), "127.0.0.1:PORT");
    return sent;
}

}  // namespace opt
