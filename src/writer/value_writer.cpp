// VALUE: plain text, or an embedded instance written as a CDATA section.
#include <cstdlib>

#include "writer/template.h"

namespace cimxml::writer {
namespace {

// The embedded document is a reduced INSTANCE: name/type properties, the
// first element of each array, no qualifiers or references. Callers rely on
// this exact text (the " TYPE= " blank and the single line break included).
void writeEmbeddedInstance(OutBuf& out, Instance* inst) noexcept {
    out.lit("<VALUE><![CDATA[\n");
    if (inst) {
        if (inst->className && inst->className->name) {
            out.lit("<INSTANCE CLASSNAME=\"");
            out.append(inst->className->name);
            out.lit("\">");
        }
        for (const Property* p = inst->properties; p; p = p->next) {
            if (p->name && p->type) {
                out.lit("<PROPERTY NAME=\"");
                out.append(p->name);
                out.lit("\" TYPE= \"");
                out.append(p->type);
                out.lit("\">");
            }
            if (p->value && p->value->value) {
                out.lit("<VALUE>");
                out.append(p->value->value);
                out.lit("</VALUE>");
            }
            out.lit("</PROPERTY>");
        }
        for (const PropertyArray* a = inst->propertyArrays; a; a = a->next) {
            if (a->name && a->type) {
                out.lit("<PROPERTY.ARRAY NAME=\"");
                out.append(a->name);
                out.lit("\" TYPE= \"");
                out.append(a->type);
                out.lit("\">");
            }
            const Value* first = a->valueArray ? a->valueArray->value : nullptr;
            if (first && first->value) {
                out.lit("<VALUE.ARRAY><VALUE>");
                out.append(first->value);
                out.lit("</VALUE></VALUE.ARRAY>");
            }
            out.lit("</PROPERTY.ARRAY>");
        }
        // Writing consumes the property lists: a second write of this value
        // shows an instance without properties. The records are only
        // detached: callers free them through the references they kept.
        inst->properties = nullptr;
        inst->propertyArrays = nullptr;
    }
    out.lit("</INSTANCE>]]></VALUE>");
}

// Standard: the whole instance written as DSP0201 text, then escaped into
// the VALUE (EmbeddedObject="instance" is on the property or parameter).
// The instance is left as it is.
void writeEmbeddedStandard(OutBuf& out, const Instance* inst) noexcept {
    if (!inst) return;
    char* inner = nullptr;
    OutBuf doc;
    if (!doc.open(&inner)) return;
    doc.setStandard(true);
    writeRecord(doc, kInstance, inst);
    doc.commit();
    if (!inner) return;
    out.lit("<VALUE>");
    out.escaped(inner);
    out.lit("</VALUE>");
    std::free(inner);
}

}  // namespace

void writeValues(OutBuf& out, const void* record) noexcept {
    // The chain is the caller's; only an embedded instance's lists change.
    for (Value* v = static_cast<Value*>(const_cast<void*>(record)); v; v = v->next) {
        if (v->embedded == 1) {
            if (out.standard()) writeEmbeddedStandard(out, v->instance);
            else writeEmbeddedInstance(out, v->instance);
        } else if (v->value) {
            out.lit("<VALUE>");
            out.text(v->value);
            out.lit("</VALUE>");
        }
    }
}

}  // namespace cimxml::writer
