// The element rules: for every element the record it builds, which
// attributes fill which fields (and how they are converted), and under which
// parent elements the record is linked into which slot. The builders are one
// generic routine over this table (builders.cpp); the fields are found by name
// through the record descriptors, so a slot of the wrong record type fails
// rulesResolved() instead of corrupting a tree.
#include "parser/rules.h"

#include <cstring>

namespace cimxml::parser {
namespace {

using model::RecordId;
constexpr Link S = Link::Set;
constexpr Link A = Link::Append;
constexpr Link X = Link::NoSlot;

// Attribute lists shared by several elements.
#define NAME_TYPE {"NAME", "name", Conv::Text}, {"TYPE", "type", Conv::Text}
#define ORIGIN_PROPAGATED {"CLASSORIGIN", "classOrigin", Conv::Text}, {"PROPAGATED", "propagated", Conv::Int16}
#define CELL_ATTRS                                                                                  \
    {"ISARRAY", "isArray", Conv::Flag}, {"ARRAYSIZE", "arraySize", Conv::Int32},                    \
        {"CELLPOS", "cellPos", Conv::Int16}, {"SORTPOS", "sortPos", Conv::Int16},                   \
        {"SORTDIR", "sortDir", Conv::SortDir}

// One row per element, in the order of elements.def.
const ElementRule kRules[] = {
    {"PROPERTY.ARRAY", RecordId::PropertyArray, Content::None,
     {NAME_TYPE, {"ARRAYSIZE", "arraySize", Conv::Int32}, ORIGIN_PROPAGATED},
     {{"CLASS", "propertyArrays", A}, {"INSTANCE", "propertyArrays", A}}},
    {"PROPERTY", RecordId::Property, Content::None,
     {NAME_TYPE, ORIGIN_PROPAGATED},
     {{"CLASS", "properties", A}, {"INSTANCE", "properties", A}}},
    {"VALUE", RecordId::Value, Content::Value,
     {},
     {{"QUALIFIER.DECLARATION", "value", A}, {"VALUE.ARRAY", "value", A}, {"QUALIFIER", "value", A},
      {"PROPERTY", "value", A}, {"IPARAMVALUE", "value", A}, {"IRETURNVALUE", "value", A},
      {"TABLEROW", "value", A}, {"PARAMVALUE", "value", A}, {"RETURNVALUE", "value", A},
      {"EXPPARAMVALUE", "value", A}}},
    {"VALUE.ARRAY", RecordId::ValueArray, Content::None,
     {},
     {{"QUALIFIER.DECLARATION", "valueArray", A}, {"QUALIFIER", "valueArray", A},
      {"PROPERTY.ARRAY", "valueArray", A}, {"IPARAMVALUE", "valueArray", A},
      {"IRETURNVALUE", "valueArray", A}, {"TABLEROW", "valueArray", A}, {"PARAMVALUE", "valueArray", A}}},
    {"CIM", RecordId::CIM, Content::None,
     {{"CIMVERSION", "cimVersion", Conv::Text}, {"DTDVERSION", "dtdVersion", Conv::Text}},
     {}},
    {"MESSAGE", RecordId::Message, Content::None,
     {{"ID", "id", Conv::Text}, {"PROTOCOLVERSION", "protocolVersion", Conv::Text}},
     {{"CIM", "message", S}}},
    {"SIMPLERSP", RecordId::SimpleRsp, Content::None,
     {},
     {{"MESSAGE", "simpleRsp", S}, {"MULTIRSP", "simpleRsps", A}}},
    {"IMETHODRESPONSE", RecordId::IMethodResponse, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLERSP", "iMethodResponse", S}, {"EXPPARAMVALUE", "iMethodResponse", S}}},
    {"IRETURNVALUE", RecordId::IReturnValue, Content::None,
     {},
     {{"IMETHODRESPONSE", "iReturnValue", S}, {"EXPMETHODRESPONSE", "iReturnValue", S}}},
    {"CLASS", RecordId::Class, Content::None,
     {{"NAME", "name", Conv::Text}, {"SUPERCLASS", "superClass", Conv::Text}},
     {{"IPARAMVALUE", "cimClass", S}, {"IRETURNVALUE", "cimClass", A}, {"VALUE.OBJECTWITHPATH", "cimClass", S},
      {"VALUE.OBJECTWITHLOCALPATH", "cimClass", S}, {"VALUE.OBJECT", "cimClass", S},
      {"VALUE.NAMEDOBJECT", "cimClass", S}}},
    {"QUALIFIER", RecordId::Qualifier, Content::None,
     {NAME_TYPE, {"QUALIFIERFLAVOR", "qualifierFlavor", Conv::Flavor}, {"PROPAGATED", "propagated", Conv::Int16}},
     {{"PROPERTY", "qualifiers", A}, {"PROPERTY.ARRAY", "qualifiers", A}, {"PROPERTY.REFERENCE", "qualifiers", A},
      {"PARAMETER", "qualifiers", A}, {"PARAMETER.REFERENCE", "qualifiers", A},
      {"PARAMETER.ARRAY", "qualifiers", A}, {"PARAMETER.REFARRAY", "qualifiers", A},
      {"METHOD", "qualifiers", A}, {"CLASS", "qualifiers", A}, {"INSTANCE", "qualifiers", A}}},
    {"VALUE.NAMEDINSTANCE", RecordId::NamedInstance, Content::None,
     {},
     {{"IPARAMVALUE", "namedInstance", S}, {"IRETURNVALUE", "namedInstance", A}}},
    {"INSTANCENAME", RecordId::InstanceName, Content::None,
     // Deliberate: only the first CLASSNAME counts, as a ClassName record.
     {{"CLASSNAME", "className", Conv::FirstClassName}},
     {{"INSTANCEPATH", "instanceName", S}, {"LOCALINSTANCEPATH", "instanceName", S},
      {"VALUE.REFERENCE", "instanceName", S}, {"VALUE.NAMEDINSTANCE", "instanceName", S},
      {"IPARAMVALUE", "instanceName", S}, {"VALUE.NAMEDOBJECT", "instanceName", S},
      {"IRETURNVALUE", "instanceName", A}}},
    {"INSTANCE", RecordId::Instance, Content::None,
     // The field holds a ClassName record, so the text goes into one.
     {{"CLASSNAME", "className", Conv::ClassName}},
     {{"VALUE.NAMEDINSTANCE", "instance", S}, {"IPARAMVALUE", "instance", S},
      {"RESPONSEDESTINATION", "instance", S}, {"ERROR", "instance", A}, {"IRETURNVALUE", "instance", A},
      {"VALUE.OBJECTWITHPATH", "instance", S}, {"VALUE.OBJECTWITHLOCALPATH", "instance", S},
      {"VALUE.OBJECT", "instance", S}, {"VALUE.NAMEDOBJECT", "instance", S}, {"EXPPARAMVALUE", "instance", S}}},
    {"CLASSNAME", RecordId::ClassName, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"CLASSPATH", "className", S}, {"LOCALCLASSPATH", "className", S}, {"INSTANCENAME", "className", S},
      {"VALUE.REFERENCE", "className", S}, {"INSTANCE", "className", S}, {"IPARAMVALUE", "className", S},
      {"IRETURNVALUE", "className", A}}},
    {"KEYVALUE", RecordId::KeyValue, Content::KeyValue,
     {{"TYPE", "cimType", Conv::Text}, {"VALUETYPE", "valueType", Conv::Text}},
     {{"KEYBINDING", "keyValue", S}, {"INSTANCENAME", "keyValue", S}}},
    {"KEYBINDING", RecordId::KeyBinding, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"INSTANCENAME", "keyBindings", A}}},
    {"VALUE.REFERENCE", RecordId::ValueReference, Content::None,
     {},
     {{"KEYBINDING", "valueReference", A}, {"INSTANCENAME", "valueReference", A},
      {"PROPERTY.REFERENCE", "valueReference", A}, {"IPARAMVALUE", "valueReference", A},
      {"IRETURNVALUE", "valueReference", A}, {"VALUE.REFARRAY", "valueReference", A},
      {"TABLEROW", "valueReference", A}, {"PARAMVALUE", "valueReference", A},
      {"RETURNVALUE", "valueReference", A}}},
    {"ERROR", RecordId::Error, Content::None,
     {{"CODE", "code", Conv::Text}, {"DESCRIPTION", "description", Conv::Text}},
     {{"IMETHODRESPONSE", "error", S}, {"METHODRESPONSE", "error", S}, {"EXPMETHODRESPONSE", "error", S},
      {"SIMPLEREQACK", "error", S}}},
    {"INSTANCEPATH", RecordId::InstancePath, Content::None,
     {},
     {{"VALUE.REFERENCE", "instancePath", S}, {"VALUE.OBJECTWITHPATH", "instancePath", S},
      {"OBJECTPATH", "instancePath", S}}},
    {"VALUE.OBJECTWITHPATH", RecordId::ObjectWithPath, Content::None,
     {},
     {{"IRETURNVALUE", "objectWithPath", A}, {"DECLGROUP.WITHPATH", "objectWithPaths", A}}},
    {"NAMESPACEPATH", RecordId::NamespacePath, Content::None,
     {},
     {{"CLASSPATH", "namespacePath", S}, {"INSTANCEPATH", "namespacePath", S}, {"DECLGROUP", "namespacePath", S},
      {"DECLGROUP.WITHNAME", "namespacePath", S}}},
    {"LOCALNAMESPACEPATH", RecordId::LocalNamespacePath, Content::None,
     {},
     {{"NAMESPACEPATH", "localNamespacePath", S}, {"LOCALCLASSPATH", "localNamespacePath", S},
      {"LOCALINSTANCEPATH", "localNamespacePath", S}, {"IMETHODCALL", "localNamespacePath", S},
      {"DECLGROUP", "localNamespacePath", S},
      // A listed parent whose record has no such slot: stays unlinked.
      {"DECLGROUP.WITHPATH", nullptr, X}}},
    // HOST builds a plain string, not a record: see buildHost.
    {"HOST", RecordId::Count, Content::Host,
     {},
     {}},
    {"NAMESPACE", RecordId::Namespace, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"LOCALNAMESPACEPATH", "namespaces", A}}},
    {"LOCALINSTANCEPATH", RecordId::LocalInstancePath, Content::None,
     {},
     {{"VALUE.REFERENCE", "localInstancePath", S}, {"VALUE.OBJECTWITHLOCALPATH", "localInstancePath", S},
      {"METHODCALL", "localInstancePath", S}}},
    {"PROPERTY.REFERENCE", RecordId::PropertyReference, Content::None,
     {{"NAME", "name", Conv::Text}, {"REFERENCECLASS", "referenceClass", Conv::Text}, ORIGIN_PROPAGATED},
     {{"CLASS", "propertyReferences", A}, {"INSTANCE", "propertyReferences", A}}},
    {"METHOD", RecordId::Method, Content::None,
     {NAME_TYPE, ORIGIN_PROPAGATED},
     {{"CLASS", "methods", A}}},
    {"PARAMETER", RecordId::Parameter, Content::None,
     {NAME_TYPE},
     {{"METHOD", "parameters", A}}},
    {"PARAMETER.REFERENCE", RecordId::ParameterReference, Content::None,
     {{"NAME", "name", Conv::Text}, {"REFERENCECLASS", "referenceClass", Conv::Text}},
     {{"METHOD", "parameterReferences", A}}},
    {"PARAMETER.ARRAY", RecordId::ParameterArray, Content::None,
     {NAME_TYPE, {"ARRAYSIZE", "arraySize", Conv::Int32}},
     {{"METHOD", "parameterArrays", A}}},
    {"PARAMETER.REFARRAY", RecordId::ParameterRefArray, Content::None,
     {{"NAME", "name", Conv::Text}, {"REFERENCECLASS", "referenceClass", Conv::Text},
      {"ARRAYSIZE", "arraySize", Conv::Int32}},
     {{"METHOD", "parameterRefArrays", A}}},
    {"METHODRESPONSE", RecordId::MethodResponse, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLERSP", "methodResponse", S}, {"EXPPARAMVALUE", "methodResponse", S}}},
    {"QUALIFIER.DECLARATION", RecordId::QualifierDecl, Content::None,
     {NAME_TYPE, {"ISARRAY", "isArray", Conv::Flag}, {"ARRAYSIZE", "arraySize", Conv::Int32},
      {"QUALIFIERFLAVOR", "qualifierFlavor", Conv::Flavor}},
     {{"IPARAMVALUE", "qualifierDecl", S}, {"IRETURNVALUE", "qualifierDecl", A},
      {"DECLGROUP", "qualifierDecls", A}, {"DECLGROUP.WITHNAME", "qualifierDecls", A}}},
    {"IPARAMVALUE", RecordId::IParamValue, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"IMETHODCALL", "iParamValues", A}}},
    {"IMETHODCALL", RecordId::IMethodCall, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLEREQ", "iMethodCall", S}}},
    // Deliberate: only under another DECLGROUP, which has no slot for it, so
    // a DECLGROUP always stays unlinked.
    {"DECLGROUP", RecordId::DeclGroup, Content::None,
     {},
     {{"DECLGROUP", nullptr, X}}},
    // Deliberate, likewise: the root's declaration slot is never filled.
    {"DECLARATION", RecordId::Declaration, Content::None,
     {},
     {{"DECLARATION", nullptr, X}}},
    {"PARAMVALUE", RecordId::ParamValue, Content::None,
     {{"NAME", "name", Conv::Text}, {"PARAMTYPE", "paramType", Conv::Text}},
     {{"METHODCALL", "paramValues", A}, {"METHODRESPONSE", "paramValues", A}}},
    {"DECLGROUP.WITHNAME", RecordId::DeclGroupWithName, Content::None,
     {},
     {{"DECLARATION", "declGroupWithName", S}}},
    {"RETURNVALUE", RecordId::ReturnValue, Content::None,
     {{"PARAMTYPE", "paramType", Conv::Text}},
     {{"METHODRESPONSE", "returnValue", S}}},
    {"TABLEROW", RecordId::TableRow, Content::None,
     {},
     {{"TABLE", "tableRows", A}}},
    // Deliberate: a TABLE links nowhere.
    {"TABLE", RecordId::Table, Content::None,
     {},
     {}},
    {"VALUE.NAMEDOBJECT", RecordId::NamedObject, Content::None,
     {},
     {{"DECLGROUP.WITHNAME", "namedObjects", A}}},
    {"EXPPARAMVALUE", RecordId::ExpParamValue, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"EXPMETHODCALL", "expParamValues", A}}},
    {"VALUE.OBJECT", RecordId::Object, Content::None,
     {},
     {{"IRETURNVALUE", "object", A}, {"DECLGROUP", "objects", A}}},
    {"SIMPLEREQ", RecordId::SimpleReq, Content::None,
     {},
     {{"MESSAGE", "simpleReq", S}, {"MULTIREQ", "simpleReqs", A}}},
    {"MULTIREQ", RecordId::MultiReq, Content::None,
     {},
     {{"MESSAGE", "multiReq", S}}},
    {"MULTIEXPREQ", RecordId::MultiExpReq, Content::None,
     {},
     {{"MESSAGE", "multiExpReq", S}}},
    {"MULTIEXPRSP", RecordId::MultiExpRsp, Content::None,
     {},
     {{"MESSAGE", "multiExpRsp", S}}},
    {"SIMPLEEXPRSP", RecordId::SimpleExpRsp, Content::None,
     {},
     {{"MESSAGE", "simpleExpRsp", S}, {"MULTIEXPRSP", "simpleExpRsp", A}}},
    {"EXPMETHODCALL", RecordId::ExpMethodCall, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLEEXPREQ", "expMethodCall", S}}},
    {"METHODCALL", RecordId::MethodCall, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLEREQ", "methodCall", S}}},
    {"VALUE.OBJECTWITHLOCALPATH", RecordId::ObjectWithLocalPath, Content::None,
     {},
     {{"IRETURNVALUE", "objectWithLocalPath", A}, {"DECLGROUP.WITHPATH", "objectWithLocalPaths", A}}},
    {"EXPMETHODRESPONSE", RecordId::ExpMethodResponse, Content::None,
     {{"NAME", "name", Conv::Text}},
     {{"SIMPLEEXPRSP", "expMethodResponse", S}}},
    {"TABLEROW.DECLARATION", RecordId::TableRowDecl, Content::None,
     {},
     {{"TABLE", "tableRowDecl", S}}},
    {"SIMPLEREQACK", RecordId::SimpleReqAck, Content::None,
     {{"INSTANCEID", "instanceId", Conv::Text}},
     {{"SIMPLERSP", "simpleReqAck", S}}},
    {"SIMPLEEXPREQ", RecordId::SimpleExpReq, Content::None,
     {},
     {{"MESSAGE", "simpleExpReq", S}, {"MULTIEXPREQ", "simpleExpReqs", A}}},
    {"MULTIRSP", RecordId::MultiRsp, Content::None,
     {},
     {{"MESSAGE", "multiRsp", S}}},
    {"CLASSPATH", RecordId::ClassPath, Content::None,
     {},
     {{"VALUE.REFERENCE", "classPath", S}, {"VALUE.OBJECTWITHPATH", "classPath", S}, {"OBJECTPATH", "classPath", S}}},
    {"LOCALCLASSPATH", RecordId::LocalClassPath, Content::None,
     {},
     {{"VALUE.REFERENCE", "localClassPath", S}, {"VALUE.OBJECTWITHLOCALPATH", "localClassPath", S},
      {"METHODCALL", "localClassPath", S}}},
    {"OBJECTPATH", RecordId::ObjectPath, Content::None,
     {},
     {{"IRETURNVALUE", "objectPath", A}}},
    {"RESPONSEDESTINATION", RecordId::ResponseDestination, Content::None,
     {},
     {{"IMETHODCALL", "responseDestination", S}, {"METHODCALL", "responseDestination", S}}},
    {"DECLGROUP.WITHPATH", RecordId::DeclGroupWithPath, Content::None,
     {},
     {{"DECLARATION", "declGroupWithPath", S}}},
    {"VALUE.REFARRAY", RecordId::ValueRefArray, Content::None,
     {},
     {{"TABLEROW", "valueRefArray", A}, {"PARAMVALUE", "valueRefArray", A}}},
    {"VALUE.NULL", RecordId::ValueNull, Content::None,
     {},
     {{"TABLEROW", "valueNull", A}}},
    {"TABLECELL.DECLARATION", RecordId::TableCellDecl, Content::None,
     {NAME_TYPE, CELL_ATTRS},
     {{"TABLEROW.DECLARATION", "tableCellDecls", A}}},
    {"TABLECELL.REFERENCE", RecordId::TableCellReference, Content::None,
     {{"NAME", "name", Conv::Text}, {"REFERENCECLASS", "referenceClass", Conv::Text}, CELL_ATTRS},
     {{"TABLEROW.DECLARATION", "tableCellReferences", A}}},
};

#undef NAME_TYPE
#undef ORIGIN_PROPAGATED
#undef CELL_ATTRS

constexpr const char* kNames[] = {
#define ELEMENT(B, N) N,
#include "parser/elements.def"
#undef ELEMENT
};

static_assert(sizeof(kRules) / sizeof(kRules[0]) == static_cast<std::size_t>(ElementId::Count));
static_assert(sizeof(kNames) / sizeof(kNames[0]) == static_cast<std::size_t>(ElementId::Count));

// Name lookup: an open-addressed hash of the 65 dispatched names. Every
// comparison is whole-name, so the result is the one the ordered list gives.
constexpr std::size_t kSlots = 256;

// The length and three bytes tell the names apart well enough for a table
// four times their number, and cost less than a byte-by-byte hash.
constexpr std::uint32_t hashName(const char* s, std::size_t n) {
    const auto at = [s](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(s[i])); };
    return static_cast<std::uint32_t>(n) * 97u + at(0) * 31u + at(n / 2) * 7u + at(n - 1);
}

constexpr std::size_t length(const char* s) {
    std::size_t n = 0;
    while (s[n]) ++n;
    return n;
}

struct NameLengths {
    std::uint8_t of[sizeof(kNames) / sizeof(kNames[0])];
};

constexpr NameLengths lengths() {
    NameLengths l{};
    for (std::size_t id = 0; id < sizeof(kNames) / sizeof(kNames[0]); ++id)
        l.of[id] = static_cast<std::uint8_t>(length(kNames[id]));
    return l;
}

constexpr NameLengths kLengths = lengths();

struct NameIndex {
    std::uint8_t slot[kSlots];  // ElementId + 1; 0 = empty
};

constexpr NameIndex buildIndex() {
    NameIndex index{};
    for (std::size_t id = 0; id < kDispatchedCount; ++id) {
        std::size_t i = hashName(kNames[id], length(kNames[id])) % kSlots;
        while (index.slot[i]) i = (i + 1) % kSlots;
        index.slot[i] = static_cast<std::uint8_t>(id + 1);
    }
    return index;
}

constexpr NameIndex kIndex = buildIndex();
constexpr std::size_t kLongestName = 25;  // "VALUE.OBJECTWITHLOCALPATH"

bool resolveConv(const model::FieldDesc& f, Conv conv) {
    using model::FieldKind;
    switch (conv) {
        case Conv::Text:
            return f.kind == FieldKind::String || f.kind == FieldKind::StringFirst ||
                   f.kind == FieldKind::StringNoClone;
        case Conv::Int16:
        case Conv::SortDir:
            return f.kind == FieldKind::Int16;
        case Conv::Int32:
        case Conv::Flag:
            return f.kind == FieldKind::Int32;
        case Conv::Flavor:
            return f.kind == FieldKind::Record && f.child == RecordId::QualifierFlavor;
        case Conv::ClassName:
        case Conv::FirstClassName:
            break;
    }
    return f.kind == FieldKind::Record && f.child == RecordId::ClassName;
}

struct Resolution {
    ResolvedElement elements[static_cast<std::size_t>(ElementId::Count)];
    bool complete = true;

    // Out of line: inlined, its register saves would be paid by every
    // resolution() call, not only the first.
    [[gnu::noinline]] Resolution() {
        for (std::size_t e = 0; e < static_cast<std::size_t>(ElementId::Count); ++e) resolve(kRules[e], elements[e]);
    }

    void resolve(const ElementRule& rule, ResolvedElement& out) {
        out.record = rule.record;
        out.content = rule.content;
        if (rule.record != RecordId::Count) {
            const auto& d = model::describe(rule.record);
            out.size = d.size;
            out.isList = d.isList;
            out.nextOffset = d.nextOffset;
        }
        for (const AttrRule& a : rule.attrs) {
            if (!a.attr) break;
            const model::FieldDesc* f = model::findField(rule.record, a.field);
            if (!f || !resolveConv(*f, a.conv)) {
                complete = false;
                continue;
            }
            out.attrs[out.attrCount++] = ResolvedAttr{a.attr, f->offset, a.conv};
        }
        for (const LinkRule& l : rule.links) {
            if (!l.parent) break;
            ResolvedLink r{lookupElement(l.parent), 0, l.how};
            if (r.parent == ElementId::None) {
                complete = false;
                continue;
            }
            if (l.how != Link::NoSlot) {
                RecordId parentRecord = kRules[static_cast<std::size_t>(r.parent)].record;
                const model::FieldDesc* f = parentRecord == RecordId::Count ? nullptr : model::findField(parentRecord, l.field);
                bool fits = f && (f->kind == model::FieldKind::Record || f->kind == model::FieldKind::Borrowed) &&
                            f->child == rule.record && (l.how == Link::Set || out.isList);
                if (!fits) {
                    complete = false;
                    continue;
                }
                r.offset = f->offset;
            }
            out.links[out.linkCount++] = r;
        }
    }
};

const Resolution& resolution() {
    static const Resolution r;
    return r;
}

}  // namespace

ElementId lookupElement(const char* name) {
    if (!name) return ElementId::None;
    // A name can only match a slot of its length.
    const std::size_t n = strnlen(name, kLongestName + 1);
    if (n == 0 || n > kLongestName) return ElementId::None;
    std::size_t i = hashName(name, n) % kSlots;
    while (std::uint8_t s = kIndex.slot[i]) {
        std::size_t id = s - 1u;
        if (kLengths.of[id] == n && std::memcmp(kNames[id], name, n) == 0) return static_cast<ElementId>(id);
        i = (i + 1) % kSlots;
    }
    return ElementId::None;
}

const char* elementName(ElementId id) {
    return id < ElementId::Count ? kNames[static_cast<std::size_t>(id)] : "";
}

const ResolvedElement& resolvedElement(ElementId id) {
    return resolution().elements[static_cast<std::size_t>(id)];
}

bool rulesResolved() {
    for (std::size_t e = 0; e < static_cast<std::size_t>(ElementId::Count); ++e)
        if (std::strcmp(kRules[e].element, kNames[e]) != 0) return false;
    return resolution().complete;
}

}  // namespace cimxml::parser
