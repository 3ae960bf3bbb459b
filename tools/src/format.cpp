#include "format.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <vector>

#include "cimxml/writer.h"
#include "records.h"
#include "syntax.h"

namespace cimcli {
namespace {

using Json = nlohmann::ordered_json;

std::string text(const char* s) { return s ? s : ""; }

bool isQuotedType(const std::string& type) {
    return type.empty() || type == "string" || type == "datetime" || type == "char16";
}

// ---- values -----------------------------------------------------------------

std::string scalarText(const char* value, const std::string& type) {
    if (!value) return "NULL";
    return isQuotedType(type) ? quote(value) : std::string(value);
}

Json scalarJson(const char* value, const std::string& type) {
    if (!value) return nullptr;
    std::string v = value;
    char* end = nullptr;
    errno = 0;
    if (type == "boolean") {
        if (strcasecmp(value, "true") == 0) return true;
        if (strcasecmp(value, "false") == 0) return false;
    } else if (type.rfind("uint", 0) == 0 && !v.empty() && v[0] != '-') {
        unsigned long long n = std::strtoull(value, &end, 10);
        if (!errno && end && !*end) return n;
    } else if (type.rfind("sint", 0) == 0 && !v.empty()) {
        long long n = std::strtoll(value, &end, 10);
        if (!errno && end && !*end) return n;
    } else if (type.rfind("real", 0) == 0 && !v.empty()) {
        double d = std::strtod(value, &end);
        if (!errno && end && !*end) return d;
    }
    return v;
}

Json keyJson(const Key& k);

Json pathJson(const Path& p) {
    Json j;
    j["text"] = formatPath(p);
    j["host"] = p.host.empty() ? Json(nullptr) : Json(p.host);
    j["namespace"] = p.nameSpace.empty() ? Json(nullptr) : Json(p.nameSpace);
    j["className"] = p.className;
    Json keys = Json::object();
    for (const auto& k : p.keys) keys[k.name] = keyJson(k);
    j["keys"] = keys;
    return j;
}

Json keyJson(const Key& k) {
    switch (k.kind) {
        case Key::Kind::Number: return scalarJson(k.text.c_str(), k.text.find_first_of(".eE") != std::string::npos ? "real64" : (k.text[0] == '-' ? "sint64" : "uint64"));
        case Key::Kind::Boolean: return k.text == "true";
        case Key::Kind::Reference: return k.ref ? pathJson(*k.ref) : Json(nullptr);
        default: return k.text;
    }
}

// ---- qualifiers -----------------------------------------------------------------

std::string qualifierText(const Qualifier* list) {
    std::string out;
    for (const Qualifier* q = list; q; q = q->next) {
        out += out.empty() ? "[" : ", ";
        out += text(q->name);
        std::string type = text(q->type);
        if (q->valueArray) {
            out += "{";
            for (const ::Value* v = q->valueArray->value; v; v = v->next)
                out += (v == q->valueArray->value ? "" : ", ") + scalarText(v->value, type);
            out += "}";
        } else if (q->value && q->value->value && !(type == "boolean" && strcasecmp(q->value->value, "true") == 0)) {
            out += "(" + scalarText(q->value->value, type) + ")";
        }
    }
    return out.empty() ? out : out + "] ";
}

Json qualifierJson(const Qualifier* list) {
    Json j = Json::object();
    for (const Qualifier* q = list; q; q = q->next) {
        std::string type = text(q->type);
        if (q->valueArray) {
            Json a = Json::array();
            for (const ::Value* v = q->valueArray->value; v; v = v->next) a.push_back(scalarJson(v->value, type));
            j[text(q->name)] = a;
        } else {
            j[text(q->name)] = scalarJson(q->value ? q->value->value : nullptr, type);
        }
    }
    return j;
}

// ---- instances ------------------------------------------------------------------

void instanceText(std::ostream& out, const Instance* inst, const std::string& indent);

std::string valueArrayText(const ValueArray* array, const std::string& type) {
    if (!array) return "NULL";
    std::string out = "{";
    for (const ::Value* v = array->value; v; v = v->next)
        out += (v == array->value ? "" : ", ") + scalarText(v->value, type);
    return out + "}";
}

void instanceText(std::ostream& out, const Instance* inst, const std::string& indent) {
    out << "instance of " << (inst->className ? text(inst->className->name) : "?") << " {\n";
    std::string in = indent + "    ";
    for (const Property* p = inst->properties; p; p = p->next) {
        out << in << text(p->name) << " = ";
        if (p->value && p->value->embedded == 1 && p->value->instance) {
            instanceText(out, p->value->instance, in);
        } else {
            out << scalarText(p->value ? p->value->value : nullptr, text(p->type)) << ";\n";
        }
    }
    for (const PropertyArray* a = inst->propertyArrays; a; a = a->next)
        out << in << text(a->name) << " = " << valueArrayText(a->valueArray, text(a->type)) << ";\n";
    for (const PropertyReference* r = inst->propertyReferences; r; r = r->next)
        out << in << text(r->name) << " = " << (r->valueReference ? quote(formatPath(pathOf(r->valueReference))) : "NULL")
            << ";\n";
    out << indent << "};\n";
}

Json instanceJson(const Instance* inst, const Path* path) {
    Json j;
    j["path"] = path ? pathJson(*path) : Json(nullptr);
    j["className"] = inst->className ? text(inst->className->name) : "";
    Json props = Json::object();
    for (const Property* p = inst->properties; p; p = p->next) {
        Json v;
        v["type"] = text(p->type);
        v["array"] = false;
        if (p->value && p->value->embedded == 1 && p->value->instance) {
            v["embedded"] = true;
            v["value"] = instanceJson(p->value->instance, nullptr);
        } else {
            v["value"] = scalarJson(p->value ? p->value->value : nullptr, text(p->type));
        }
        props[text(p->name)] = v;
    }
    for (const PropertyArray* a = inst->propertyArrays; a; a = a->next) {
        Json v;
        v["type"] = text(a->type);
        v["array"] = true;
        if (!a->valueArray) {
            v["value"] = nullptr;
        } else {
            Json arr = Json::array();
            for (const ::Value* e = a->valueArray->value; e; e = e->next) arr.push_back(scalarJson(e->value, text(a->type)));
            v["value"] = arr;
        }
        props[text(a->name)] = v;
    }
    for (const PropertyReference* r = inst->propertyReferences; r; r = r->next) {
        Json v;
        v["type"] = "reference";
        v["array"] = false;
        v["referenceClass"] = r->referenceClass ? Json(text(r->referenceClass)) : Json(nullptr);
        v["value"] = r->valueReference ? pathJson(pathOf(r->valueReference)) : Json(nullptr);
        props[text(r->name)] = v;
    }
    j["properties"] = props;
    return j;
}

// ---- classes ------------------------------------------------------------------------

void classText(std::ostream& out, const Class* c) {
    std::string q = qualifierText(c->qualifiers);
    if (!q.empty()) out << q.substr(0, q.size() - 1) << "\n";
    out << "class " << text(c->name);
    if (c->superClass) out << " : " << c->superClass;
    out << " {\n";
    auto origin = [](const char* o) { return o ? std::string("   // from ") + o : std::string(); };
    for (const Property* p = c->properties; p; p = p->next) {
        out << "    " << qualifierText(p->qualifiers) << text(p->type) << " " << text(p->name);
        if (p->value && p->value->value) out << " = " << scalarText(p->value->value, text(p->type));
        out << ";" << origin(p->classOrigin) << "\n";
    }
    for (const PropertyArray* a = c->propertyArrays; a; a = a->next) {
        out << "    " << qualifierText(a->qualifiers) << text(a->type) << " " << text(a->name) << "[]";
        if (a->valueArray) out << " = " << valueArrayText(a->valueArray, text(a->type));
        out << ";" << origin(a->classOrigin) << "\n";
    }
    for (const PropertyReference* r = c->propertyReferences; r; r = r->next)
        out << "    " << qualifierText(r->qualifiers) << text(r->referenceClass) << " REF " << text(r->name) << ";"
            << origin(r->classOrigin) << "\n";
    for (const Method* m = c->methods; m; m = m->next) {
        out << "    " << qualifierText(m->qualifiers) << text(m->type) << " " << text(m->name) << "(";
        bool first = true;
        auto sep = [&] {
            if (!first) out << ", ";
            first = false;
        };
        for (const Parameter* p = m->parameters; p; p = p->next) {
            sep();
            out << qualifierText(p->qualifiers) << text(p->type) << " " << text(p->name);
        }
        for (const ParameterArray* p = m->parameterArrays; p; p = p->next) {
            sep();
            out << qualifierText(p->qualifiers) << text(p->type) << " " << text(p->name) << "[]";
        }
        for (const ParameterReference* p = m->parameterReferences; p; p = p->next) {
            sep();
            out << qualifierText(p->qualifiers) << text(p->referenceClass) << " REF " << text(p->name);
        }
        for (const ParameterRefArray* p = m->parameterRefArrays; p; p = p->next) {
            sep();
            out << qualifierText(p->qualifiers) << text(p->referenceClass) << " REF " << text(p->name) << "[]";
        }
        out << ");" << origin(m->classOrigin) << "\n";
    }
    out << "};\n";
}

Json featureJson(const char* name, const std::string& type, bool array, const char* refClass, const Qualifier* q,
                 const char* origin) {
    Json j;
    j["name"] = text(name);
    j["type"] = type;
    j["array"] = array;
    j["referenceClass"] = refClass ? Json(text(refClass)) : Json(nullptr);
    j["classOrigin"] = origin ? Json(text(origin)) : Json(nullptr);
    j["qualifiers"] = qualifierJson(q);
    return j;
}

Json classJson(const Class* c) {
    Json j;
    j["name"] = text(c->name);
    j["superClass"] = c->superClass ? Json(text(c->superClass)) : Json(nullptr);
    j["qualifiers"] = qualifierJson(c->qualifiers);
    Json props = Json::array();
    for (const Property* p = c->properties; p; p = p->next) {
        Json f = featureJson(p->name, text(p->type), false, nullptr, p->qualifiers, p->classOrigin);
        f["default"] = scalarJson(p->value ? p->value->value : nullptr, text(p->type));
        props.push_back(f);
    }
    for (const PropertyArray* a = c->propertyArrays; a; a = a->next) {
        Json f = featureJson(a->name, text(a->type), true, nullptr, a->qualifiers, a->classOrigin);
        Json d = nullptr;
        if (a->valueArray) {
            d = Json::array();
            for (const ::Value* v = a->valueArray->value; v; v = v->next) d.push_back(scalarJson(v->value, text(a->type)));
        }
        f["default"] = d;
        props.push_back(f);
    }
    for (const PropertyReference* r = c->propertyReferences; r; r = r->next) {
        Json f = featureJson(r->name, "reference", false, r->referenceClass, r->qualifiers, r->classOrigin);
        f["default"] = nullptr;
        props.push_back(f);
    }
    j["properties"] = props;
    Json methods = Json::array();
    for (const Method* m = c->methods; m; m = m->next) {
        Json jm = featureJson(m->name, text(m->type), false, nullptr, m->qualifiers, m->classOrigin);
        Json params = Json::array();
        for (const Parameter* p = m->parameters; p; p = p->next)
            params.push_back(featureJson(p->name, text(p->type), false, nullptr, p->qualifiers, nullptr));
        for (const ParameterArray* p = m->parameterArrays; p; p = p->next)
            params.push_back(featureJson(p->name, text(p->type), true, nullptr, p->qualifiers, nullptr));
        for (const ParameterReference* p = m->parameterReferences; p; p = p->next)
            params.push_back(featureJson(p->name, "reference", false, p->referenceClass, p->qualifiers, nullptr));
        for (const ParameterRefArray* p = m->parameterRefArrays; p; p = p->next)
            params.push_back(featureJson(p->name, "reference", true, p->referenceClass, p->qualifiers, nullptr));
        for (auto& p : params) p.erase("classOrigin");
        jm["parameters"] = params;
        methods.push_back(jm);
    }
    j["methods"] = methods;
    return j;
}

// ---- method results -------------------------------------------------------------

Json paramJson(const ParamValue* p) {
    Json j;
    std::string type = text(p->paramType);
    if (p->valueReference || p->valueRefArray) type = "reference";
    j["type"] = type;
    j["array"] = p->valueArray != nullptr || p->valueRefArray != nullptr;
    if (p->valueReference) {
        j["value"] = pathJson(pathOf(p->valueReference));
    } else if (p->valueRefArray) {
        Json a = Json::array();
        for (const ValueReference* r = p->valueRefArray->valueReference; r; r = r->next) a.push_back(pathJson(pathOf(r)));
        j["value"] = a;
    } else if (p->valueArray) {
        Json a = Json::array();
        for (const ::Value* v = p->valueArray->value; v; v = v->next) a.push_back(scalarJson(v->value, type));
        j["value"] = a;
    } else if (p->value && p->value->embedded == 1 && p->value->instance) {
        j["embedded"] = true;
        j["value"] = instanceJson(p->value->instance, nullptr);
    } else {
        j["value"] = scalarJson(p->value ? p->value->value : nullptr, type);
    }
    return j;
}

std::string paramText(const ParamValue* p) {
    std::string type = text(p->paramType);
    std::string out = (type.empty() ? "" : type + " ") + text(p->name) + " = ";
    if (p->valueReference) return out + quote(formatPath(pathOf(p->valueReference))) + ";";
    if (p->valueRefArray) {
        out += "{";
        for (const ValueReference* r = p->valueRefArray->valueReference; r; r = r->next)
            out += (r == p->valueRefArray->valueReference ? "" : ", ") + quote(formatPath(pathOf(r)));
        return out + "};";
    }
    if (p->valueArray) return out + valueArrayText(p->valueArray, type) + ";";
    return out + scalarText(p->value ? p->value->value : nullptr, type) + ";";
}

// ---- XML ------------------------------------------------------------------------------

// Writing an embedded instance detaches its property lists; this puts them
// back afterwards so the records are freed as a whole.
class EmbeddedGuard {
public:
    void collect(Instance* inst) {
        for (; inst; inst = inst->next) {
            for (Property* p = inst->properties; p; p = p->next) collectValues(p->value);
            for (PropertyArray* a = inst->propertyArrays; a; a = a->next)
                if (a->valueArray) collectValues(a->valueArray->value);
        }
    }
    void collectValues(::Value* v) {
        for (; v; v = v->next) {
            if (v->embedded == 1 && v->instance) {
                saved_.push_back({v->instance, v->instance->properties, v->instance->propertyArrays});
                collect(v->instance);
            }
        }
    }
    ~EmbeddedGuard() {
        for (auto& s : saved_) {
            s.instance->properties = s.properties;
            s.instance->propertyArrays = s.arrays;
        }
    }

private:
    struct Saved {
        Instance* instance;
        Property* properties;
        PropertyArray* arrays;
    };
    std::vector<Saved> saved_;
};

// The writer puts text out as it stands and parsed records hold plain
// text: escape it in place first, so the printed XML is well-formed.
void esc(char*& text) {
    if (!text || !std::strpbrk(text, "<>&\"'")) return;
    char* escaped = dupText(xmlEscape(text));
    std::free(text);
    text = escaped;
}
void esc(Instance* inst);
void esc(InstanceName* name);
void esc(::Value* v) {
    for (; v; v = v->next) {
        esc(v->value);
        esc(v->instance);
    }
}
void esc(ValueArray* a) {
    for (; a; a = a->next) esc(a->value);
}
void esc(Qualifier* q) {
    for (; q; q = q->next) {
        esc(q->value);
        esc(q->valueArray);
    }
}
void esc(NamespacePath* np) {
    if (np) esc(np->host);
}
void esc(ValueReference* r) {
    for (; r; r = r->next) {
        if (r->classPath) esc(r->classPath->namespacePath);
        if (r->instancePath) {
            esc(r->instancePath->namespacePath);
            esc(r->instancePath->instanceName);
        }
        if (r->localInstancePath) esc(r->localInstancePath->instanceName);
        esc(r->instanceName);
    }
}
void esc(InstanceName* name) {
    for (; name; name = name->next) {
        for (KeyBinding* kb = name->keyBindings; kb; kb = kb->next) {
            if (kb->keyValue) esc(kb->keyValue->value);
            esc(kb->valueReference);
        }
        if (name->keyValue) esc(name->keyValue->value);
        esc(name->valueReference);
    }
}
void esc(Instance* inst) {
    for (; inst; inst = inst->next) {
        esc(inst->qualifiers);
        for (Property* p = inst->properties; p; p = p->next) {
            esc(p->qualifiers);
            esc(p->value);
        }
        for (PropertyArray* a = inst->propertyArrays; a; a = a->next) {
            esc(a->qualifiers);
            esc(a->valueArray);
        }
        for (PropertyReference* r = inst->propertyReferences; r; r = r->next) {
            esc(r->qualifiers);
            esc(r->valueReference);
        }
    }
}
void esc(Class* c) {
    for (; c; c = c->next) {
        esc(c->qualifiers);
        for (Property* p = c->properties; p; p = p->next) {
            esc(p->qualifiers);
            esc(p->value);
        }
        for (PropertyArray* a = c->propertyArrays; a; a = a->next) {
            esc(a->qualifiers);
            esc(a->valueArray);
        }
        for (PropertyReference* r = c->propertyReferences; r; r = r->next) esc(r->qualifiers);
        for (Method* m = c->methods; m; m = m->next) {
            esc(m->qualifiers);
            for (Parameter* p = m->parameters; p; p = p->next) esc(p->qualifiers);
            for (ParameterArray* p = m->parameterArrays; p; p = p->next) esc(p->qualifiers);
            for (ParameterReference* p = m->parameterReferences; p; p = p->next) esc(p->qualifiers);
            for (ParameterRefArray* p = m->parameterRefArrays; p; p = p->next) esc(p->qualifiers);
        }
    }
}
void esc(ClassName*) {}  // names are identifiers
void esc(NamedInstance* n) {
    for (; n; n = n->next) {
        esc(n->instanceName);
        esc(n->instance);
    }
}
void esc(ObjectPath* o) {
    for (; o; o = o->next) {
        if (o->classPath) esc(o->classPath->namespacePath);
        if (o->instancePath) {
            esc(o->instancePath->namespacePath);
            esc(o->instancePath->instanceName);
        }
    }
}
void esc(ObjectWithPath* o) {
    for (; o; o = o->next) {
        if (o->classPath) esc(o->classPath->namespacePath);
        if (o->instancePath) {
            esc(o->instancePath->namespacePath);
            esc(o->instancePath->instanceName);
        }
        esc(o->cimClass);
        esc(o->instance);
    }
}
void esc(ParamValue* p) {
    for (; p; p = p->next) {
        esc(p->value);
        esc(p->valueArray);
        esc(p->valueReference);
        for (ValueRefArray* a = p->valueRefArray; a; a = a->next) esc(a->valueReference);
    }
}

template <typename T>
void writeXml(std::ostream& out, T* record, int (*gen)(T*, char**)) {
    esc(record);
    char* xml = nullptr;
    gen(record, &xml);
    if (xml) out << xml << "\n";
    std::free(xml);
}

}  // namespace

void Printer::classes(Class* list) {
    if (format_ == Format::Xml) return writeXml(out_, list, Gen_Class);
    if (format_ == Format::Json) {
        Json a = Json::array();
        for (const Class* c = list; c; c = c->next) a.push_back(classJson(c));
        out_ << a.dump(2) << "\n";
        return;
    }
    for (const Class* c = list; c; c = c->next) {
        if (c != list) out_ << "\n";
        classText(out_, c);
    }
}

void Printer::classNames(ClassName* list) {
    if (format_ == Format::Xml) return writeXml(out_, list, Gen_ClassName);
    if (format_ == Format::Json) {
        Json a = Json::array();
        for (const ClassName* c = list; c; c = c->next) a.push_back(text(c->name));
        out_ << a.dump(2) << "\n";
        return;
    }
    for (const ClassName* c = list; c; c = c->next) out_ << text(c->name) << "\n";
}

void Printer::namedInstances(NamedInstance* list) {
    if (format_ == Format::Xml) {
        EmbeddedGuard guard;
        for (NamedInstance* n = list; n; n = n->next) guard.collect(n->instance);
        return writeXml(out_, list, Gen_NamedInstance);
    }
    Json a = Json::array();
    for (const NamedInstance* n = list; n; n = n->next) {
        Path p = pathOf(n->instanceName);
        if (format_ == Format::Json) {
            if (n->instance) a.push_back(instanceJson(n->instance, n->instanceName ? &p : nullptr));
            continue;
        }
        if (n != list) out_ << "\n";
        if (n->instanceName) out_ << "// " << formatPath(p) << "\n";
        if (n->instance) instanceText(out_, n->instance, "");
    }
    if (format_ == Format::Json) out_ << a.dump(2) << "\n";
}

void Printer::instance(Instance* inst, InstanceName* name) {
    if (format_ == Format::Xml) {
        EmbeddedGuard guard;
        guard.collect(inst);
        return writeXml(out_, inst, Gen_Instance);
    }
    Path p = pathOf(name);
    if (format_ == Format::Json) {
        out_ << instanceJson(inst, name ? &p : nullptr).dump(2) << "\n";
        return;
    }
    if (name) out_ << "// " << formatPath(p) << "\n";
    instanceText(out_, inst, "");
}

void Printer::instanceNames(InstanceName* list) {
    if (format_ == Format::Xml) return writeXml(out_, list, Gen_InstanceName);
    Json a = Json::array();
    for (const InstanceName* n = list; n; n = n->next) {
        if (format_ == Format::Json)
            a.push_back(pathJson(pathOf(n)));
        else
            out_ << formatPath(pathOf(n)) << "\n";
    }
    if (format_ == Format::Json) out_ << a.dump(2) << "\n";
}

void Printer::objectsWithPath(ObjectWithPath* list) {
    if (format_ == Format::Xml) {
        EmbeddedGuard guard;
        for (ObjectWithPath* o = list; o; o = o->next) guard.collect(o->instance);
        return writeXml(out_, list, Gen_ObjectWithPath);
    }
    Json a = Json::array();
    for (const ObjectWithPath* o = list; o; o = o->next) {
        Path p;
        if (o->instancePath) p = pathOf(o->instancePath->instanceName, o->instancePath->namespacePath);
        if (o->classPath) {
            ObjectPath op{nullptr, o->classPath, nullptr};
            p = pathOf(&op);
        }
        if (format_ == Format::Json) {
            if (o->instance) {
                a.push_back(instanceJson(o->instance, &p));
            } else if (o->cimClass) {
                Json c = classJson(o->cimClass);
                c["path"] = pathJson(p);
                a.push_back(c);
            }
            continue;
        }
        if (o != list) out_ << "\n";
        out_ << "// " << formatPath(p) << "\n";
        if (o->instance) instanceText(out_, o->instance, "");
        if (o->cimClass) classText(out_, o->cimClass);
    }
    if (format_ == Format::Json) out_ << a.dump(2) << "\n";
}

void Printer::paths(ObjectWithPath* list) {
    // Borrowed nodes: the ObjectPath records are only views on the list.
    std::vector<ObjectPath> views;
    for (ObjectWithPath* o = list; o; o = o->next) views.push_back(ObjectPath{o->instancePath, o->classPath, nullptr});
    for (size_t i = 0; i + 1 < views.size(); ++i) views[i].next = &views[i + 1];
    objectPaths(views.empty() ? nullptr : &views[0]);
}

void Printer::objectPaths(ObjectPath* list) {
    if (format_ == Format::Xml) return writeXml(out_, list, Gen_ObjectPath);
    Json a = Json::array();
    auto emit = [&](const Path& p) {
        if (format_ == Format::Json)
            a.push_back(pathJson(p));
        else
            out_ << formatPath(p) << "\n";
    };
    for (const ObjectPath* o = list; o; o = o->next) {
        // A bare instance name list comes back under one instance path.
        if (o->instancePath && o->instancePath->instanceName && o->instancePath->instanceName->next) {
            for (const InstanceName* n = o->instancePath->instanceName; n; n = n->next)
                emit(pathOf(n, o->instancePath->namespacePath));
        } else {
            emit(pathOf(o));
        }
    }
    if (format_ == Format::Json) out_ << a.dump(2) << "\n";
}

void Printer::methodResult(ParamValue* results) {
    if (format_ == Format::Xml) return writeXml(out_, results, Gen_ParamValue);
    if (format_ == Format::Json) {
        Json j;
        j["returnValue"] = nullptr;
        Json outs = Json::object();
        for (const ParamValue* p = results; p; p = p->next) {
            if (p == results && text(p->name) == "ReturnValue")
                j["returnValue"] = paramJson(p);
            else
                outs[text(p->name)] = paramJson(p);
        }
        j["out"] = outs;
        out_ << j.dump(2) << "\n";
        return;
    }
    for (const ParamValue* p = results; p; p = p->next) out_ << paramText(p) << "\n";
}

std::string cimErrorName(const std::string& code) {
    static const char* const names[] = {nullptr,
                                        "CIM_ERR_FAILED",
                                        "CIM_ERR_ACCESS_DENIED",
                                        "CIM_ERR_INVALID_NAMESPACE",
                                        "CIM_ERR_INVALID_PARAMETER",
                                        "CIM_ERR_INVALID_CLASS",
                                        "CIM_ERR_NOT_FOUND",
                                        "CIM_ERR_NOT_SUPPORTED",
                                        "CIM_ERR_CLASS_HAS_CHILDREN",
                                        "CIM_ERR_CLASS_HAS_INSTANCES",
                                        "CIM_ERR_INVALID_SUPERCLASS",
                                        "CIM_ERR_ALREADY_EXISTS",
                                        "CIM_ERR_NO_SUCH_PROPERTY",
                                        "CIM_ERR_TYPE_MISMATCH",
                                        "CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED",
                                        "CIM_ERR_INVALID_QUERY",
                                        "CIM_ERR_METHOD_NOT_AVAILABLE",
                                        "CIM_ERR_METHOD_NOT_FOUND"};
    char* end = nullptr;
    errno = 0;
    long n = std::strtol(code.c_str(), &end, 10);
    if (!code.empty() && !errno && *end == '\0' && n > 0 && n < static_cast<long>(std::size(names)))
        return names[n];
    return "CIM_ERR_" + (code.empty() ? std::string("UNKNOWN") : code);
}

}  // namespace cimcli
