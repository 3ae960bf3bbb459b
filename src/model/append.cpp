// AddTo*List: append one new node at the tail of a chain.
//
// The node is linked before its fields are filled, so that a failed
// allocation leaves what was built reachable from the chain (the caller frees
// the chain as usual). Strings are copied; records are taken over.
#include <cstdlib>
#include <cstring>

#include "cimxml/lifecycle.h"
#include "model/alloc.h"
#include "model/namespace_tail.h"

using cimxml::dupString;
using cimxml::namespaceTail;
using cimxml::newRecord;

namespace {

template <typename T>
T* appendNew(T** head) {
    T* node = newRecord<T>();
    if (!node) return nullptr;
    if (!*head) {
        *head = node;
    } else {
        T* last = *head;
        while (last->next) last = last->next;
        last->next = node;
    }
    return node;
}

// Copies `text` into *slot when it is set. False only on a failed copy.
bool copyInto(char** slot, const char* text) {
    if (!text) return true;
    return (*slot = dupString(text)) != nullptr;
}

constexpr std::size_t kNamespaceBuffer = 32;

// The namespace names of a generated reference live in fixed 32-byte blocks;
// a longer text keeps its first 31 bytes.
char* namespaceBuffer(const char* text) {
    char* buffer = static_cast<char*>(cimxml::zalloc(kNamespaceBuffer));
    if (buffer && text) std::strncpy(buffer, text, kNamespaceBuffer - 1);
    return buffer;
}

ClassName* newClassName(const char* name) {
    ClassName* cn = newRecord<ClassName>();
    if (cn && !copyInto(&cn->name, name)) {
        std::free(cn);
        return nullptr;
    }
    return cn;
}

}  // namespace

extern "C" {

int AddToValueList(Value** head, const char* text) {
    Value* node = appendNew(head);
    if (!node) return -1;
    return copyInto(&node->value, text) ? 0 : -1;
}

int AddToProeprtyList(Property** head, const char* name, char* value, const char* type) {
    Property* node = appendNew(head);
    if (!node) return -1;
    if (!copyInto(&node->name, name)) return -1;
    if (value) {
        // Deliberate: boolean text is upper-cased in the caller's own buffer.
        if (std::strcmp(value, "true") == 0) std::memcpy(value, "TRUE", 5);
        else if (std::strcmp(value, "false") == 0) std::memcpy(value, "FALSE", 6);
        Value* v = newRecord<Value>();
        if (!v) return -1;
        node->value = v;
        if (!copyInto(&v->value, value)) return -1;
    }
    return copyInto(&node->type, type) ? 0 : -1;
}

int AddToPropertyArrayList(PropertyArray** head, const char* name, ValueArray* valueArray, const char* type) {
    PropertyArray* node = appendNew(head);
    if (!node) return -1;
    node->valueArray = valueArray;
    if (!copyInto(&node->name, name)) return -1;
    return copyInto(&node->type, type) ? 0 : -1;
}

int AddToInstanceList(Instance** head, ClassName* className, PropertyReference* propertyReferences,
                      PropertyArray* propertyArrays, Property* properties) {
    Instance* node = appendNew(head);
    if (!node) return -1;
    node->className = className;
    node->propertyReferences = propertyReferences;
    node->propertyArrays = propertyArrays;
    node->properties = properties;
    return 0;
}

int AddToInstanceNameList(InstanceName** head, KeyBinding* keyBindings, ClassName* className) {
    InstanceName* node = appendNew(head);
    if (!node) return -1;
    if (className && className->name) {
        node->className = className;
        node->keyBindings = keyBindings;
    }
    return 0;
}

int AddToKeyBindingListRef(KeyBinding** head, const char* name, const char* value, const char* valueType,
                           void* /*unused*/) {
    KeyBinding* node = appendNew(head);
    if (!node) return -1;
    if (!copyInto(&node->name, name)) return -1;
    if (value) {
        KeyValue* kv = newRecord<KeyValue>();
        if (!kv) return -1;
        node->keyValue = kv;
        if (!copyInto(&kv->value, value) || !copyInto(&kv->valueType, valueType)) return -1;
    }
    return 0;
}

int AddToKeyBindingList(KeyBinding** head, const char* name, const char* value, const char* valueType,
                        const char* referenceClassName, const char* nameSpace, KeyBinding* referenceKeyBindings) {
    if (AddToKeyBindingListRef(head, name, value, valueType, nullptr) != 0) return -1;
    if (!referenceKeyBindings) return 0;

    KeyBinding* node = *head;
    while (node->next) node = node->next;

    ValueReference* ref = newRecord<ValueReference>();
    if (!ref) return -1;
    bool ok = false;
    do {
        LocalInstancePath* path = newRecord<LocalInstancePath>();
        if (!(ref->localInstancePath = path)) break;
        LocalNamespacePath* nsPath = newRecord<LocalNamespacePath>();
        if (!(path->localNamespacePath = nsPath)) break;
        Namespace* first = newRecord<Namespace>();
        if (!(nsPath->namespaces = first)) break;
        if (!(first->name = namespaceBuffer("root"))) break;
        Namespace* second = newRecord<Namespace>();
        if (!(first->next = second)) break;
        if (!(second->name = namespaceBuffer(namespaceTail(nameSpace)))) break;
        InstanceName* instanceName = newRecord<InstanceName>();
        if (!(path->instanceName = instanceName)) break;
        if (!(instanceName->className = newClassName(referenceClassName))) break;
        instanceName->keyBindings = referenceKeyBindings;
        ok = true;
    } while (false);
    if (!ok) {
        Free_ValueReference(ref);
        return -1;
    }
    node->valueReference = ref;
    return 0;
}

int AddToPropertyReferenceList(PropertyReference** head, KeyBinding* keyBindings, Namespace* namespaces,
                               const char* referenceClassName, const char* propertyName) {
    PropertyReference* node = appendNew(head);
    if (!node) return -1;
    if (propertyName) {
        if (!copyInto(&node->name, propertyName)) return -1;
        if (!copyInto(&node->referenceClass, referenceClassName)) return -1;
    }
    if (!keyBindings) return 0;

    InstanceName* instanceName = newRecord<InstanceName>();
    ValueReference* ref = newRecord<ValueReference>();
    if (!instanceName || !ref || !(instanceName->className = newClassName(referenceClassName))) {
        Free_InstanceName(instanceName);
        Free_ValueReference(ref);
        return -1;
    }
    instanceName->keyBindings = keyBindings;
    node->valueReference = ref;

    if (!namespaces) {
        // The reference stays empty and the new instance name belongs to
        // nothing. The key bindings stay the caller's, so only our own shell
        // goes.
        instanceName->keyBindings = nullptr;
        Free_InstanceName(instanceName);
        return 0;
    }
    LocalInstancePath* path = newRecord<LocalInstancePath>();
    LocalNamespacePath* nsPath = path ? newRecord<LocalNamespacePath>() : nullptr;
    if (!path || !nsPath) {
        std::free(path);
        // As on every failure, the bindings stay the caller's.
        instanceName->keyBindings = nullptr;
        Free_InstanceName(instanceName);
        node->valueReference = nullptr;
        Free_ValueReference(ref);
        return -1;
    }
    // Only the first namespace node is taken: the cut-off rest of the chain
    // stays the caller's.
    namespaces->next = nullptr;
    nsPath->namespaces = namespaces;
    path->localNamespacePath = nsPath;
    path->instanceName = instanceName;
    ref->localInstancePath = path;
    return 0;
}

}  // extern "C"
