// Embedded instances: the CIM-XML text of a CDATA value read into one
// Instance. A deliberately small reader: three elements, two attributes, no
// element stack.
#include <cstdlib>
#include <cstring>

#include "XMLParser.h"
#include "cimxml/parser.h"
#include "model/alloc.h"
#include "model/record_table.h"

namespace {

using cimxml::dupString;
using cimxml::newRecord;
using cimxml::model::freeRecord;
using cimxml::model::RecordId;

XMLNode* nextInDocumentOrder(XMLNode* n) {
    if (n->firstChild) return n->firstChild;
    while (n && !n->nextSibling) n = n->parent;
    return n ? n->nextSibling : nullptr;
}

const char* grandchildText(const XMLNode* n, int depth) {
    for (int i = 0; i < depth && n; ++i) n = n->firstChild;
    return n ? n->value : nullptr;
}

struct Reader {
    Instance* instance = nullptr;
    Property* properties = nullptr;
    Property** propertyTail = &properties;
    PropertyArray* arrays = nullptr;
    PropertyArray** arrayTail = &arrays;

    ~Reader() {
        freeRecord(RecordId::Instance, instance);
        freeRecord(RecordId::Property, properties);
        freeRecord(RecordId::PropertyArray, arrays);
    }

    bool readInstance(const XMLNode* n) {
        Instance* fresh = newRecord<Instance>();
        if (!fresh) return false;
        freeRecord(RecordId::Instance, instance);  // a later INSTANCE replaces it
        instance = fresh;
        for (const XMLNode* a = n->attributes; a; a = a->nextSibling) {
            if (!a->name || std::strcmp(a->name, "CLASSNAME") != 0) continue;
            ClassName* cn = newRecord<ClassName>();
            if (!cn) return false;
            freeRecord(RecordId::ClassName, instance->className);
            instance->className = cn;
            if (!(cn->name = dupString(a->value ? a->value : ""))) return false;
        }
        return true;
    }

    // Deliberate: one record per attribute, the first holding only the name,
    // the next only the type, each with its own copy of the value.
    bool readProperty(const XMLNode* n) {
        const char* text = grandchildText(n, 2);  // PROPERTY > VALUE > text
        for (const XMLNode* a = n->attributes; a; a = a->nextSibling) {
            Property* p = newRecord<Property>();
            if (!p) return false;
            *propertyTail = p;
            propertyTail = &p->next;
            if (!readNameOrType(a, p->name, p->type)) return false;
            if (!(p->value = newRecord<Value>())) return false;
            if (text && !(p->value->value = dupString(text))) return false;
        }
        return true;
    }

    // Only the first element's length is taken, as a zero-filled string.
    bool readPropertyArray(const XMLNode* n) {
        const char* text = grandchildText(n, 3);  // PROPERTY.ARRAY > VALUE.ARRAY > VALUE > text
        for (const XMLNode* a = n->attributes; a; a = a->nextSibling) {
            PropertyArray* p = newRecord<PropertyArray>();
            if (!p) return false;
            *arrayTail = p;
            arrayTail = &p->next;
            if (!readNameOrType(a, p->name, p->type)) return false;
            if (!text) continue;
            if (!(p->valueArray = newRecord<ValueArray>())) return false;
            if (!(p->valueArray->value = newRecord<Value>())) return false;
            p->valueArray->value->value = static_cast<char*>(cimxml::zalloc(std::strlen(text) + 1));
            if (!p->valueArray->value->value) return false;
        }
        return true;
    }

    static bool readNameOrType(const XMLNode* a, char*& name, char*& type) {
        const char* value = a->value ? a->value : "";
        if (std::strcmp(a->name, "NAME") == 0) return (name = dupString(value)) != nullptr;
        if (std::strcmp(a->name, "TYPE") == 0) return (type = dupString(value)) != nullptr;
        return true;
    }
};

}  // namespace

extern "C" int ParseCDataContent(const char* text, Instance** result) {
    if (!text || !result) return -1;
    XMLParseContext context{};
    XMLDoc* doc = parseText(&context, text);
    if (!doc) return -1;

    // On a failed allocation everything read so far is released with the
    // document; nothing of it has been handed out.
    Reader r;
    bool ok = true;
    for (XMLNode* n = doc->root; n && ok; n = nextInDocumentOrder(n)) {
        if (n->type != XML_ELEMENT_NODE) continue;  // the DOM names every element
        if (std::strcmp(n->name, "INSTANCE") == 0) ok = r.readInstance(n);
        else if (std::strcmp(n->name, "PROPERTY") == 0) ok = r.readProperty(n);
        else if (std::strcmp(n->name, "PROPERTY.ARRAY") == 0) ok = r.readPropertyArray(n);
    }
    freeXMLDoc(doc);
    if (!ok) return -1;

    // Without an INSTANCE element there is nothing to fill: *result is left.
    if (r.instance) {
        r.instance->properties = r.properties;
        r.instance->propertyArrays = r.arrays;
        r.instance->next = nullptr;
        *result = r.instance;
        r.instance = nullptr;
        r.properties = nullptr;
        r.arrays = nullptr;
    }
    return 0;
}
