// Writer templates: each record's element as data.
//
// A Template lists, in output order, the Steps that write one record: fixed
// text, string attributes, flags, counts and child records (which name the
// child's own Template). writeRecord() walks a Template over a record, and
// over the whole chain for a list record. The table itself is in
// templates.cpp; the few writers that are code rather than data (the value
// writer with its embedded instances) hang off Template::custom.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "cimxml/records.h"
#include "writer/out_buffer.h"

namespace cimxml::writer {

// A literal with its length, so appending it needs no strlen.
struct Lit {
    const char* s = "";
    std::uint16_t n = 0;
    constexpr Lit() = default;
    template <std::size_t N>
    constexpr Lit(const char (&text)[N]) : s(text), n(static_cast<std::uint16_t>(N - 1)) {}
};

struct Template;

enum class Op : std::uint8_t {
    Text,    // pre
    Attr,    // pre, the string (nothing for NULL), post
    AttrIf,  // pre, the string, post; all only when the string is set
    Child,   // pre, the child record(s), post; all only when the child is set
    FlagIf,  // pre, only when the 16-bit flag is 1
    Bool16,  // pre when the 16-bit flag is 1, post when it is 0
    Bool32,  // the same for a 32-bit flag
    CountIf, // pre, the number in decimal and post, only when it is above 0
    Split,   // pre, one '/'-separated part of the string, post; for each part
    Embedded,// pre when the Value (or ValueArray's first Value) holds an embedded instance
};

// Which wire mode writes a step. Default-only steps are the kept irregular
// forms; each has a standard-only counterpart next to it.
enum class Only : std::uint8_t { Both, Default, Standard };

struct Step {
    Op op;
    std::uint16_t offset;
    Lit pre;
    Lit post;
    const Template* child;
    Only only = Only::Both;
};

using CustomWriter = void (*)(OutBuf&, const void* record);

struct Template {
    const char* record;
    bool isList;
    std::uint16_t nextOffset;
    const Step* steps;
    std::size_t count;
    CustomWriter custom; // writes the record (whole chain) instead of steps
};

// Appends the record (each node of a list record) to out. NULL writes nothing.
void writeRecord(OutBuf& out, const Template& t, const void* record) noexcept;

// The value writer: plain values and embedded instances.
void writeValues(OutBuf& out, const void* record) noexcept;

struct Template;
// Every writer, in the order of writer.h.
#define CIMXML_WRITERS(X)                                                                   \
    X(CIM) X(Message) X(SimpleReq) X(MultiReq) X(IMethodCall) X(MethodCall) X(IParamValue)  \
    X(ParamValue) X(LocalNamespacePath) X(Namespace) X(NamespacePath) X(SimpleRsp)          \
    X(MultiRsp) X(IMethodResponse) X(MethodResponse) X(IReturnValue) X(ReturnValue)         \
    X(Error) X(ClassName) X(QualifierFlavor) X(Scope) X(Value) X(ValueArray) X(ValueNull)   \
    X(ValueReference) X(ValueRefArray) X(KeyValue) X(KeyBinding) X(InstanceName)            \
    X(ClassPath) X(LocalClassPath) X(InstancePath) X(LocalInstancePath) X(ObjectPath)       \
    X(Instance) X(NamedInstance) X(Property) X(PropertyArray) X(PropertyReference)          \
    X(Qualifier) X(QualifierDecl) X(Class) X(Method) X(Parameter) X(ParameterReference)     \
    X(ParameterArray) X(ParameterRefArray) X(ResponseDestination) X(Object)                 \
    X(ObjectWithPath) X(ObjectWithLocalPath) X(NamedObject) X(Declaration) X(DeclGroup)     \
    X(DeclGroupWithName) X(DeclGroupWithPath)

#define CIMXML_DECLARE_TEMPLATE(T) extern const Template k##T;
CIMXML_WRITERS(CIMXML_DECLARE_TEMPLATE)
#undef CIMXML_DECLARE_TEMPLATE
// The standard mode's class names: the first name only, as the quoted text
// after CLASSNAME= (kClassNameOne), or as CLASSNAME elements (kClassNameElement).
extern const Template kClassNameOne;
extern const Template kClassNameElement;

// --- building blocks for the table ---------------------------------------

template <typename Field, typename Want>
constexpr std::uint16_t fieldAt(std::size_t offset) {
    static_assert(std::is_same<Field, Want>::value, "field has another type");
    return static_cast<std::uint16_t>(offset);
}

constexpr Step text(Lit s) { return {Op::Text, 0, s, {}, nullptr}; }
constexpr Step attr(Lit pre, std::uint16_t at, Lit post) { return {Op::Attr, at, pre, post, nullptr}; }
constexpr Step attrIf(Lit pre, std::uint16_t at, Lit post) { return {Op::AttrIf, at, pre, post, nullptr}; }
constexpr Step child(std::uint16_t at, const Template* t) { return {Op::Child, at, {}, {}, t}; }
constexpr Step child(Lit pre, std::uint16_t at, const Template* t, Lit post) {
    return {Op::Child, at, pre, post, t};
}
constexpr Step flagIf(Lit s, std::uint16_t at) { return {Op::FlagIf, at, s, {}, nullptr}; }
constexpr Step bool16(std::uint16_t at, Lit ifTrue, Lit ifFalse) { return {Op::Bool16, at, ifTrue, ifFalse, nullptr}; }
constexpr Step bool32(std::uint16_t at, Lit ifTrue, Lit ifFalse) { return {Op::Bool32, at, ifTrue, ifFalse, nullptr}; }
constexpr Step countIf(Lit pre, std::uint16_t at, Lit post = {}) { return {Op::CountIf, at, pre, post, nullptr}; }
constexpr Step split(Lit pre, std::uint16_t at, Lit post) { return {Op::Split, at, pre, post, nullptr}; }
// `at` is a Value* field, or a ValueArray* one when `array` is set.
constexpr Step embedded(Lit s, std::uint16_t at, bool array) {
    return {Op::Embedded, at, s, {}, array ? &kValueArray : nullptr};
}
constexpr Step defaultOnly(Step s) {
    s.only = Only::Default;
    return s;
}
constexpr Step standardOnly(Step s) {
    s.only = Only::Standard;
    return s;
}

}  // namespace cimxml::writer
