// A random response tree written with Gen_CIM and read back with parseXML:
// where the written text is well-formed, writing the parsed tree again must
// give the same text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "XMLParser.h"
#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "cimxml/writer.h"
#include "input.h"

namespace {

template <typename T>
T* make() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// Text without control characters, which the XML parser would normalise,
// and without '<', '&' and '"': written unescaped they are markup, and a
// quote can even end an attribute early and still leave well-formed text.
char* text(cimfuzz::Input& in, std::size_t max = 12) {
    std::string s = in.text(max);
    for (char& c : s)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '<' || c == '&' || c == '"') c = 'x';
    return strdup(s.c_str());
}

const char* const kTypes[] = {"string", "uint8", "sint32", "boolean", "datetime", "uint64"};
char* typeName(cimfuzz::Input& in) { return in.flag() ? strdup(kTypes[in.pick(6)]) : text(in); }

ClassName* className(cimfuzz::Input& in) {
    ClassName* c = make<ClassName>();
    c->name = text(in);
    return c;
}

InstanceName* instanceName(cimfuzz::Input& in) {
    InstanceName* n = make<InstanceName>();
    n->className = className(in);
    KeyBinding** tail = &n->keyBindings;
    for (unsigned k = in.pick(4); k; --k) {
        KeyBinding* b = make<KeyBinding>();
        b->name = text(in);
        b->keyValue = make<KeyValue>();
        b->keyValue->value = text(in);
        b->keyValue->valueType = in.flag() ? strdup("string") : strdup("numeric");
        *tail = b;
        tail = &b->next;
    }
    return n;
}

Instance* instance(cimfuzz::Input& in) {
    Instance* i = make<Instance>();
    i->className = className(in);
    Property** tail = &i->properties;
    for (unsigned k = in.pick(5); k; --k) {
        Property* p = make<Property>();
        p->name = text(in);
        p->type = typeName(in);
        p->propagated = -1;  // absent
        if (in.flag()) {
            p->value = make<Value>();
            p->value->value = text(in, 40);
        }
        *tail = p;
        tail = &p->next;
    }
    return i;
}

CIM* tree(cimfuzz::Input& in) {
    CIM* cim = make<CIM>();
    cim->cimVersion = strdup("2.0");
    cim->dtdVersion = strdup("2.0");
    cim->message = make<Message>();
    cim->message->id = text(in);
    cim->message->protocolVersion = strdup("1.0");
    cim->message->simpleRsp = make<SimpleRsp>();
    IMethodResponse* r = make<IMethodResponse>();
    cim->message->simpleRsp->iMethodResponse = r;
    r->name = text(in);
    if (in.pick(4) == 0) {
        r->error = make<Error>();
        r->error->code = text(in);
        r->error->description = text(in, 40);
        return cim;
    }
    IReturnValue* v = make<IReturnValue>();
    r->iReturnValue = v;
    // Class names straight under IRETURNVALUE are written as bare quoted
    // names, deliberately, so they do not read back; they are left out.
    const unsigned kind = 1 + in.pick(3);
    for (unsigned k = 1 + in.pick(4); k; --k) {
        switch (kind) {
            case 1: {
                InstanceName** at = &v->instanceName;
                while (*at) at = &(*at)->next;
                *at = instanceName(in);
                break;
            }
            case 2: {
                NamedInstance** at = &v->namedInstance;
                while (*at) at = &(*at)->next;
                *at = make<NamedInstance>();
                (*at)->instanceName = instanceName(in);
                (*at)->instance = instance(in);
                break;
            }
            default:
                if (!v->instance) v->instance = instance(in);
                break;
        }
    }
    return cim;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cimfuzz::Input in(data, size);
    CIM* original = tree(in);
    char* first = nullptr;
    Gen_CIM(original, &first);
    Free_CIM(original);

    XMLParseContext ctx{};
    XMLDoc* doc = parseText(&ctx, first);
    // Irregular forms the writer keeps on purpose may still be ill-formed.
    if (doc) {
        freeXMLDoc(doc);
        returnAddress = nullptr;
        CIM* parsed = parseXML(first);
        if (!parsed) __builtin_trap();
        char* second = nullptr;
        Gen_CIM(parsed, &second);
        Free_CIM(parsed);
        if (std::strcmp(first, second) != 0) {
            std::fprintf(stderr, "written:   %s\nreparsed:  %s\n", first, second);
            __builtin_trap();
        }
        std::free(second);
    } else {
        freeXMLDoc(doc);
    }
    std::free(first);
    return 0;
}
