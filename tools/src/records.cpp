#include "records.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace cimcli {
namespace {

template <typename T>
T* newRecord() {
    T* r = static_cast<T*>(std::calloc(1, sizeof(T)));
    if (!r) throw std::bad_alloc();
    return r;
}

template <typename T>
void append(T** head, T* node) {
    while (*head) head = &(*head)->next;
    *head = node;
}

const char* valueTypeOf(Key::Kind kind) {
    switch (kind) {
        case Key::Kind::Number: return "numeric";
        case Key::Kind::Boolean: return "boolean";
        default: return "string";
    }
}

LocalNamespacePath* newLocalNamespacePath(const std::string& nameSpace) {
    auto* lnp = newRecord<LocalNamespacePath>();
    size_t start = 0;
    while (start <= nameSpace.size()) {
        size_t slash = nameSpace.find('/', start);
        if (slash == std::string::npos) slash = nameSpace.size();
        auto* ns = newRecord<Namespace>();
        append(&lnp->namespaces, ns);
        ns->name = dupText(nameSpace.substr(start, slash - start));
        start = slash + 1;
    }
    return lnp;
}

::Value* newValues(const cimcli::Value& value) {
    ::Value* head = nullptr;
    try {
        for (const auto& t : value.texts) {
            auto* v = newRecord<::Value>();
            append(&head, v);
            v->value = dupText(requestText(t));
        }
    } catch (...) {
        Free_Value(head);
        throw;
    }
    return head;
}

std::string text(const char* s) { return s ? s : ""; }

Key::Kind kindOf(const KeyValue* kv) {
    std::string vt = kv && kv->valueType ? kv->valueType : "string";
    if (vt == "numeric") return Key::Kind::Number;
    if (vt == "boolean") return Key::Kind::Boolean;
    return Key::Kind::String;
}

std::string namespaceText(const LocalNamespacePath* lnp) {
    std::string out;
    for (const Namespace* n = lnp ? lnp->namespaces : nullptr; n; n = n->next)
        out += (out.empty() ? "" : "/") + text(n->name);
    return out;
}

}  // namespace

char* dupText(const std::string& s) {
    char* p = static_cast<char*>(std::malloc(s.size() + 1));
    if (!p) throw std::bad_alloc();
    std::memcpy(p, s.c_str(), s.size() + 1);
    return p;
}

ClassName* newClassName(const std::string& name) {
    auto* cn = newRecord<ClassName>();
    try {
        cn->name = dupText(name);
    } catch (...) {
        Free_ClassName(cn);
        throw;
    }
    return cn;
}

InstanceName* newInstanceName(const Path& path) {
    InstanceNamePtr name(newRecord<InstanceName>());
    name->className = newClassName(path.className);
    for (const Key& k : path.keys) {
        auto* kb = newRecord<KeyBinding>();
        append(&name->keyBindings, kb);
        kb->name = dupText(k.name);
        if (k.kind == Key::Kind::Reference) {
            kb->valueReference = newValueReference(*k.ref);
        } else {
            kb->keyValue = newRecord<KeyValue>();
            kb->keyValue->valueType = dupText(valueTypeOf(k.kind));
            kb->keyValue->value = dupText(requestText(k.text));
        }
    }
    return name.release();
}

ValueReference* newValueReference(const Path& path) {
    Owned<ValueReference, Free_ValueReference> ref(newRecord<ValueReference>());
    if (path.nameSpace.empty()) {
        ref->instanceName = newInstanceName(path);
    } else if (path.host.empty()) {
        ref->localInstancePath = newRecord<LocalInstancePath>();
        ref->localInstancePath->localNamespacePath = newLocalNamespacePath(path.nameSpace);
        ref->localInstancePath->instanceName = newInstanceName(path);
    } else {
        ref->instancePath = newRecord<InstancePath>();
        ref->instancePath->namespacePath = newRecord<NamespacePath>();
        ref->instancePath->namespacePath->host = dupText(path.host);
        ref->instancePath->namespacePath->localNamespacePath = newLocalNamespacePath(path.nameSpace);
        ref->instancePath->instanceName = newInstanceName(path);
    }
    return ref.release();
}

void addProperty(Instance* instance, const std::string& name, const Type& type, const cimcli::Value& value) {
    if (type.name == "reference") {
        if (type.array) throw InputError("property " + name + ": reference arrays cannot be written");
        auto* pr = newRecord<PropertyReference>();
        append(&instance->propertyReferences, pr);
        pr->name = dupText(name);
        if (!type.referenceClass.empty()) pr->referenceClass = dupText(type.referenceClass);
        if (!value.isNull) pr->valueReference = newValueReference(value.refs.at(0));
    } else if (type.array) {
        auto* pa = newRecord<PropertyArray>();
        append(&instance->propertyArrays, pa);
        pa->name = dupText(name);
        pa->type = dupText(type.name);
        if (!value.isNull) {
            pa->valueArray = newRecord<ValueArray>();
            pa->valueArray->value = newValues(value);
        }
    } else {
        auto* p = newRecord<Property>();
        append(&instance->properties, p);
        p->name = dupText(name);
        p->type = dupText(type.name);
        if (!value.isNull) p->value = newValues(value);
    }
}

void addParam(ParamValue** head, const std::string& name, const Type& type, const cimcli::Value& value) {
    auto* p = newRecord<ParamValue>();
    append(head, p);
    p->name = dupText(name);
    p->paramType = dupText(type.name);
    if (value.isNull) return;
    if (type.name == "reference") {
        if (type.array) {
            p->valueRefArray = newRecord<ValueRefArray>();
            for (const auto& r : value.refs) append(&p->valueRefArray->valueReference, newValueReference(r));
        } else {
            p->valueReference = newValueReference(value.refs.at(0));
        }
    } else if (type.array) {
        p->valueArray = newRecord<ValueArray>();
        p->valueArray->value = newValues(value);
    } else {
        p->value = newValues(value);
    }
}

Path pathOf(const InstanceName* name, const NamespacePath* where) {
    Path p;
    if (!name) return p;
    if (where) {
        p.host = text(where->host);
        p.nameSpace = namespaceText(where->localNamespacePath);
    }
    if (name->className) p.className = text(name->className->name);
    for (const KeyBinding* kb = name->keyBindings; kb; kb = kb->next) {
        Key k;
        k.name = text(kb->name);
        if (kb->valueReference) {
            k.kind = Key::Kind::Reference;
            k.ref = std::make_shared<Path>(pathOf(kb->valueReference));
        } else {
            k.kind = kindOf(kb->keyValue);
            k.text = kb->keyValue ? text(kb->keyValue->value) : "";
        }
        p.keys.push_back(std::move(k));
    }
    return p;
}

Path pathOf(const ValueReference* ref) {
    if (!ref) return Path{};
    if (ref->instancePath) return pathOf(ref->instancePath->instanceName, ref->instancePath->namespacePath);
    if (ref->localInstancePath) {
        Path p = pathOf(ref->localInstancePath->instanceName);
        p.nameSpace = namespaceText(ref->localInstancePath->localNamespacePath);
        return p;
    }
    if (ref->instanceName) return pathOf(ref->instanceName);
    Path p;
    if (ref->classPath) {
        if (ref->classPath->className) p.className = text(ref->classPath->className->name);
        if (ref->classPath->namespacePath) {
            p.host = text(ref->classPath->namespacePath->host);
            p.nameSpace = namespaceText(ref->classPath->namespacePath->localNamespacePath);
        }
    } else if (ref->localClassPath) {
        if (ref->localClassPath->className) p.className = text(ref->localClassPath->className->name);
        p.nameSpace = namespaceText(ref->localClassPath->localNamespacePath);
    } else if (ref->className) {
        p.className = text(ref->className->name);
    }
    return p;
}

Path pathOf(const ObjectPath* objectPath) {
    if (!objectPath) return Path{};
    if (objectPath->instancePath)
        return pathOf(objectPath->instancePath->instanceName, objectPath->instancePath->namespacePath);
    Path p;
    if (const ClassPath* cp = objectPath->classPath) {
        if (cp->className) p.className = text(cp->className->name);
        if (cp->namespacePath) {
            p.host = text(cp->namespacePath->host);
            p.nameSpace = namespaceText(cp->namespacePath->localNamespacePath);
        }
    }
    return p;
}

}  // namespace cimcli
