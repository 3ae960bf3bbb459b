// Names and paths: broker object paths become InstanceName, KeyBinding and
// ValueReference records shaped as the HTTP back end parses them.
#include <cstdlib>
#include <cstring>

#include "mapping/mapping.h"
#include "model/alloc.h"
#include "model/namespace_tail.h"

using cimxml::dupString;
using cimxml::newRecord;
using namespace cimxml::mapping;

namespace cimxml {
namespace mapping {

ClassName* newClassName(const char* name) {
    ClassName* cn = newRecord<ClassName>();
    if (cn && name && !(cn->name = dupString(name))) {
        std::free(cn);
        return nullptr;
    }
    return cn;
}

NamespacePath* newNamespacePath(const char* nameSpace) {
    NamespacePath* path = newRecord<NamespacePath>();
    if (!path) return nullptr;
    bool ok = false;
    do {
        if (!(path->host = dupString("localhost"))) break;
        if (!(path->localNamespacePath = newRecord<LocalNamespacePath>())) break;
        Namespace* root = newRecord<Namespace>();
        if (!(path->localNamespacePath->namespaces = root)) break;
        if (!(root->name = dupString("root"))) break;
        if (!(root->next = newRecord<Namespace>())) break;
        if (!(root->next->name = dupString(namespaceTail(nameSpace)))) break;
        ok = true;
    } while (false);
    if (!ok) {
        Free_NamespacePath(path);
        return nullptr;
    }
    return path;
}

InstanceName* newInstanceName(const CIMCObjectPath* op, bool* failed) {
    if (!op || !op->ft) return nullptr;
    InstanceName* name = newRecord<InstanceName>();
    if (!name) {
        *failed = true;
        return nullptr;
    }
    CIMCString* cls = op->ft->getClassName ? op->ft->getClassName(op, nullptr) : nullptr;
    const char* clsChars = chars(cls);
    if ((clsChars && !(name->className = newClassName(clsChars))) ||
        GetKeyBindingValues(const_cast<CIMCObjectPath*>(op), &name->keyBindings) < 0) {
        Free_InstanceName(name);
        name = nullptr;
        *failed = true;
    }
    release(cls);
    return name;
}

ValueReference* newValueReference(const CIMCObjectPath* op) {
    ValueReference* ref = newRecord<ValueReference>();
    if (!ref) return nullptr;
    CIMCString* ns = op->ft->getNameSpace ? op->ft->getNameSpace(op, nullptr) : nullptr;
    const char* nsChars = chars(ns);
    bool failed = false;
    InstanceName* name = newInstanceName(op, &failed);
    if (!failed && nsChars && *nsChars) {
        InstancePath* path = newRecord<InstancePath>();
        if (path) {
            path->instanceName = name;
            name = nullptr;
            ref->instancePath = path;
            failed = !(path->namespacePath = newNamespacePath(nsChars));
        } else {
            failed = true;
        }
    } else {
        ref->instanceName = name;
        name = nullptr;
    }
    Free_InstanceName(name);
    release(ns);
    if (failed) {
        Free_ValueReference(ref);
        return nullptr;
    }
    return ref;
}

}  // namespace mapping
}  // namespace cimxml

namespace {

KeyBinding* lastOf(KeyBinding* head) {
    while (head && head->next) head = head->next;
    return head;
}

// One key of a broker path appended as a KeyBinding: a reference key carries
// a ValueReference, any other key a KeyValue with its type name.
int appendKey(KeyBinding** head, const char* name, const CIMCData& key) {
    if ((key.type & 0xFFFFu) == CIMC_ref && key.state == 0 && key.value.ref) {
        if (AddToKeyBindingListRef(head, name, nullptr, nullptr, nullptr) != 0) return -1;
        ValueReference* ref = newValueReference(key.value.ref);
        if (!ref) return -1;
        lastOf(*head)->valueReference = ref;
        return 0;
    }
    ScalarText text(key.type, &key.value);
    const char* value = key.state == 0 ? text.get() : nullptr;
    // Booleans read as the HTTP back end hands them out.
    if (value && (key.type & 0xFFFFu) == CIMC_boolean) value = key.value.boolean ? "TRUE" : "FALSE";
    const char* typeName = CIMC_getDataType(key.type);
    if (AddToKeyBindingListRef(head, name, value, typeName, nullptr) != 0) return -1;
    KeyValue* kv = lastOf(*head)->keyValue;
    if (kv && *typeName && !(kv->cimType = dupString(typeName))) return -1;
    return 0;
}

}  // namespace

extern "C" {

int GetKeyBindingValues(CIMCObjectPath* objectPath, KeyBinding** keyBindingsOut) {
    if (!keyBindingsOut) return -1;
    if (!objectPath || !objectPath->ft || !objectPath->ft->getKeyCount || !objectPath->ft->getKeyAt) return 0;
    CIMCCount count = objectPath->ft->getKeyCount(objectPath, nullptr);
    for (CIMCCount i = 0; i < count; ++i) {
        CIMCString* name = nullptr;
        CIMCData key = objectPath->ft->getKeyAt(objectPath, i, &name, nullptr);
        int rc = appendKey(keyBindingsOut, chars(name), key);
        release(name);
        if (rc != 0) return -1;
    }
    return 0;
}

int GetKeysFromObjectPath(CIMCObjectPath* objectPath, InstanceName** instanceNameOut) {
    if (!instanceNameOut) return -1;
    bool failed = false;
    InstanceName* name = newInstanceName(objectPath, &failed);
    if (failed) return -1;
    if (!name) return 0;
    InstanceName** at = instanceNameOut;
    while (*at) at = &(*at)->next;
    *at = name;
    return 0;
}

int mapEnumInstanceNames(CIMCObjectPath* objectPath, InstanceName* instanceName) {
    if (!instanceName) return -1;
    if (!objectPath || !objectPath->ft) return 0;
    CIMCString* cls = objectPath->ft->getClassName ? objectPath->ft->getClassName(objectPath, nullptr) : nullptr;
    int rc = 0;
    if (const char* name = chars(cls)) {
        if (!(instanceName->className = newClassName(name))) rc = -1;
    }
    release(cls);
    if (rc == 0 && GetKeyBindingValues(objectPath, &instanceName->keyBindings) < 0) rc = -1;
    return rc;
}

int AddToEnumInstanceNameList(InstanceName** head, CIMCObjectPath* objectPath) {
    if (!head) return -1;
    if (!objectPath) return 0;
    InstanceName* node = newRecord<InstanceName>();
    if (!node) return -1;
    InstanceName** at = head;
    while (*at) at = &(*at)->next;
    *at = node;
    return mapEnumInstanceNames(objectPath, node);
}

int mapCreateinstance(CIMCObjectPath* objectPath, InstanceName* instanceName) {
    return mapEnumInstanceNames(objectPath, instanceName);
}

}  // extern "C"
