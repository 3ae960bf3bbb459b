// The template walker and the exported Gen_ family.
//
// Nothing here throws (the buffer is plain malloc/realloc), so the extern "C"
// functions need no catch. An allocation failure leaves the caller's text as
// it was and still returns 0: no writer reports failures.
#include <cstdlib>
#include <cstring>

#include "cimxml/writer.h"
#include "writer/document.h"
#include "writer/template.h"

namespace cimxml::writer {
namespace {

// Loads a pointer-typed field. memcpy keeps this clear of aliasing rules
// whatever the field's pointee type is.
inline const void* loadPointer(const char* base, std::uint16_t offset) noexcept {
    const void* p;
    std::memcpy(&p, base + offset, sizeof p);
    return p;
}

inline const char* loadString(const char* base, std::uint16_t offset) noexcept {
    return static_cast<const char*>(loadPointer(base, offset));
}

template <typename Int>
inline Int loadInt(const char* base, std::uint16_t offset) noexcept {
    Int v;
    std::memcpy(&v, base + offset, sizeof v);
    return v;
}

inline void put(OutBuf& out, const Lit& l) noexcept {
    if (l.n) out.append(l.s, l.n);
}

bool embeddedValue(const Step& s, const char* base) noexcept {
    const void* p = loadPointer(base, s.offset);
    if (p && s.child) p = static_cast<const ValueArray*>(p)->value;
    return p && static_cast<const Value*>(p)->embedded == 1;
}

void writeParts(OutBuf& out, const Step& s, const char* text) noexcept {
    if (!text) return;
    for (const char* part = text; *part;) {
        const char* end = std::strchr(part, '/');
        std::size_t n = end ? static_cast<std::size_t>(end - part) : std::strlen(part);
        if (n) {
            put(out, s.pre);
            out.text(part, n);
            put(out, s.post);
        }
        if (!end) break;
        part = end + 1;
    }
}

void writeSteps(OutBuf& out, const Template& t, const char* base) noexcept {
    const Only skipped = out.standard() ? Only::Default : Only::Standard;
    for (std::size_t i = 0; i < t.count; ++i) {
        const Step& s = t.steps[i];
        if (s.only == skipped) continue;
        switch (s.op) {
        case Op::Text:
            put(out, s.pre);
            break;
        case Op::Attr:
            put(out, s.pre);
            out.text(loadString(base, s.offset));
            put(out, s.post);
            break;
        case Op::AttrIf:
            if (const char* v = loadString(base, s.offset)) {
                put(out, s.pre);
                out.text(v);
                put(out, s.post);
            }
            break;
        case Op::Split:
            writeParts(out, s, loadString(base, s.offset));
            break;
        case Op::Embedded:
            if (embeddedValue(s, base)) put(out, s.pre);
            break;
        case Op::Child:
            if (const void* c = loadPointer(base, s.offset)) {
                put(out, s.pre);
                writeRecord(out, *s.child, c);
                put(out, s.post);
            }
            break;
        case Op::FlagIf:
            if (loadInt<std::int16_t>(base, s.offset) == 1) put(out, s.pre);
            break;
        case Op::Bool16:
        case Op::Bool32: {
            std::int32_t v = s.op == Op::Bool16 ? loadInt<std::int16_t>(base, s.offset)
                                                : loadInt<std::int32_t>(base, s.offset);
            if (v == 1) put(out, s.pre);
            else if (v == 0) put(out, s.post);
            break;
        }
        case Op::CountIf: {
            std::int32_t v = loadInt<std::int32_t>(base, s.offset);
            if (v > 0) {
                put(out, s.pre);
                out.appendInt(v);
                put(out, s.post);
            }
            break;
        }
        }
    }
}

template <typename R>
int generate(const Template& t, R* record, char** text) noexcept {
    if (!record || !text) return 0;
    OutBuf out;
    if (!out.open(text)) return 0;
    writeRecord(out, t, record);
    out.commit();
    return 0;
}

int generateString(Lit pre, const char* value, Lit post, char** text) noexcept {
    if (!value || !text) return 0;
    OutBuf out;
    if (!out.open(text, std::strlen(value) + pre.n + post.n)) return 0;
    put(out, pre);
    out.append(value);
    put(out, post);
    out.commit();
    return 0;
}

}  // namespace

void writeRecord(OutBuf& out, const Template& t, const void* record) noexcept {
    if (t.custom) {
        if (record) t.custom(out, record);
        return;
    }
    while (record) {
        const char* base = static_cast<const char*>(record);
        writeSteps(out, t, base);
        record = t.isList ? loadPointer(base, t.nextOffset) : nullptr;
    }
}

void writeDocument(CIM* cim, char** text, bool standard) noexcept {
    if (!standard) {
        Gen_CIM(cim, text);
        return;
    }
    if (!cim || !text) return;
    OutBuf out;
    if (!out.open(text)) return;
    out.setStandard(true);
    writeRecord(out, kCIM, cim);
    out.commit();
}

}  // namespace cimxml::writer

using cimxml::writer::generate;

extern "C" {

// Terminating with status 0 when the first allocation fails is deliberate:
// callers of the original library rely on it.
int Gen_CIM(CIM* record, char** text) {
    if (!record || !text) return 0;
    cimxml::writer::OutBuf out;
    if (!out.open(text)) std::exit(0);
    cimxml::writer::writeRecord(out, cimxml::writer::kCIM, record);
    out.commit();
    return 0;
}

#define CIMXML_GEN(T) \
    int Gen_##T(T* record, char** text) { return generate(cimxml::writer::k##T, record, text); }
CIMXML_GEN(Message)
CIMXML_GEN(SimpleReq)
CIMXML_GEN(MultiReq)
CIMXML_GEN(IMethodCall)
CIMXML_GEN(MethodCall)
CIMXML_GEN(IParamValue)
CIMXML_GEN(ParamValue)
CIMXML_GEN(LocalNamespacePath)
CIMXML_GEN(Namespace)
CIMXML_GEN(NamespacePath)
CIMXML_GEN(SimpleRsp)
CIMXML_GEN(MultiRsp)
CIMXML_GEN(IMethodResponse)
CIMXML_GEN(MethodResponse)
CIMXML_GEN(IReturnValue)
CIMXML_GEN(ReturnValue)
CIMXML_GEN(Error)
CIMXML_GEN(ClassName)
CIMXML_GEN(QualifierFlavor)
CIMXML_GEN(Scope)
CIMXML_GEN(Value)
CIMXML_GEN(ValueArray)
CIMXML_GEN(ValueNull)
CIMXML_GEN(ValueReference)
CIMXML_GEN(ValueRefArray)
CIMXML_GEN(KeyValue)
CIMXML_GEN(KeyBinding)
CIMXML_GEN(InstanceName)
CIMXML_GEN(ClassPath)
CIMXML_GEN(LocalClassPath)
CIMXML_GEN(InstancePath)
CIMXML_GEN(LocalInstancePath)
CIMXML_GEN(ObjectPath)
CIMXML_GEN(Instance)
CIMXML_GEN(NamedInstance)
CIMXML_GEN(Property)
CIMXML_GEN(PropertyArray)
CIMXML_GEN(PropertyReference)
CIMXML_GEN(Qualifier)
CIMXML_GEN(QualifierDecl)
CIMXML_GEN(Class)
CIMXML_GEN(Method)
CIMXML_GEN(Parameter)
CIMXML_GEN(ParameterReference)
CIMXML_GEN(ParameterArray)
CIMXML_GEN(ParameterRefArray)
CIMXML_GEN(ResponseDestination)
CIMXML_GEN(Object)
CIMXML_GEN(ObjectWithPath)
CIMXML_GEN(ObjectWithLocalPath)
CIMXML_GEN(NamedObject)
CIMXML_GEN(Declaration)
CIMXML_GEN(DeclGroup)
CIMXML_GEN(DeclGroupWithName)
CIMXML_GEN(DeclGroupWithPath)
#undef CIMXML_GEN

int Gen_CIMName(const char* name, char** text) {
    return cimxml::writer::generateString("\"", name, "\"", text);
}
int Gen_CIMType(const char* type, char** text) {
    return cimxml::writer::generateString(" TYPE=\"", type, "\"", text);
}
int Gen_ClassOrigin(const char* classOrigin, char** text) {
    return cimxml::writer::generateString(" CLASSORIGIN=\"", classOrigin, "\"", text);
}
int Gen_ReferenceClass(const char* referenceClass, char** text) {
    return cimxml::writer::generateString(" REFERENCECLASS=\"", referenceClass, "\"", text);
}

}  // extern "C"
