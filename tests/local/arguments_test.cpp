// Method parameters turned into broker arguments: scalars at their limits,
// embedded instances (the six carried types, the running array count),
// arrays and references.
#include "local_support.h"

namespace {

using namespace localtest;

class Arguments : public BrokerTest {};

TEST_F(Arguments, ScalarsByTypeName) {
    const struct { const char* type; const char* text; CIMCType code; uint64_t bits; } cases[] = {
        {"uint8", "257", CIMC_uint8, 1},
        {"sint16", "-32769", CIMC_sint16, 0x7FFF},
        {"uint32", "4294967296", CIMC_uint32, 2147483647},
        {"uint64", "4294967295", CIMC_uint64, 2147483647},  // the saturated long, sign-extended
        {"sint64", "-1", CIMC_sint64, UINT64_MAX},
        {"boolean", "TRUE", CIMC_boolean, 1},
        {"boolean", "true", CIMC_boolean, 0},  // passed all the same, with a cleared value
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " " + c.text);
        CIMCArgs* args = newArgs();
        ParamValue* p = param("A", c.type, c.text);
        EXPECT_EQ(CIMC_CreatePropertyArguments(p, args, env_), 0);
        CIMCData d = get(args, "A");
        EXPECT_EQ(d.type, c.code);
        EXPECT_EQ(widthBits(d), c.bits);
        Free_ParamValue(p);
    }
    CIMCArgs* args = newArgs();
    ParamValue* objects = chain<ParamValue>({param("S", "string", "text"),
                                             param("D", "datetime", "00000001020304.000000:000"),
                                             param("R", "reference", "x"), param("N", "uint8", nullptr)});
    for (ParamValue* p = objects; p; p = p->next) EXPECT_EQ(CIMC_CreatePropertyArguments(p, args, env_), 0);
    EXPECT_EQ(get(args, "S").type, CIMC_string);
    EXPECT_EQ(text(get(args, "S")), "text");
    EXPECT_EQ(text(get(args, "D")), "00000001020304.000000:000");
    EXPECT_EQ(args->ft->getArgCount(args, nullptr), 2);  // no reference, nothing without text
    ParamValue* noType = param("A", nullptr, "1");
    EXPECT_EQ(CIMC_CreatePropertyArguments(noType, args, env_), -1);
    EXPECT_EQ(CIMC_CreatePropertyArguments(nullptr, args, env_), -1);
    Free_ParamValue(objects);
    Free_ParamValue(noType);
}

Value* embeddedValue(const char* cls, Property* props, PropertyArray* arrays) {
    Value* v = make<Value>();
    v->embedded = 1;
    v->instance = make<Instance>();
    v->instance->className = cls ? className(cls) : nullptr;
    v->instance->properties = props;
    v->instance->propertyArrays = arrays;
    return v;
}
ParamValue* embedded(const char* cls, Property* props, PropertyArray* arrays) {
    ParamValue* p = param("E", "string", nullptr);
    p->value = embeddedValue(cls, props, arrays);
    return p;
}

TEST_F(Arguments, EmbeddedInstanceCarriesSixTypes) {
    CIMCArgs* args = newArgs();
    ParamValue* p = embedded("Test_Embedded",
                             chain<Property>({property("U16", "uint16", "70000"), property("S8", "sint8", "-1"),
                                              property("B", "boolean", "yes"), property("S", "string", "s"),
                                              property("D", "datetime", "20240305070809.000000+060"),
                                              property("U32", "uint32", "5"), property("S64", "sint64", "5"),
                                              property("N", "string", nullptr), property(nullptr, "uint8", "1")}),
                             nullptr);
    EXPECT_EQ(CIMC_CreateCDataArgument(p, "root/cimv2", args, env_), 0);
    CIMCData d = get(args, "E");
    ASSERT_EQ(d.type, CIMC_instance);
    CIMCInstance* inst = d.value.inst;
    EXPECT_EQ(widthBits(get(inst, "U16")), 4464u);
    EXPECT_EQ(get(inst, "S8").value.sint8, -1);
    EXPECT_EQ(get(inst, "B").type, CIMC_boolean);
    EXPECT_EQ(text(get(inst, "S")), "s");
    EXPECT_EQ(text(get(inst, "D")), "20240305070809.000000+060");
    EXPECT_EQ(get(inst, "U32").state, CIMC_notFound);  // left out on purpose
    EXPECT_EQ(get(inst, "S64").state, CIMC_notFound);
    EXPECT_EQ(get(inst, "N").state, CIMC_notFound);  // no text: not set at all

    ParamValue* classless = embedded(nullptr, nullptr, nullptr);
    ParamValue* plain = param("P", "string", "text");
    EXPECT_EQ(CIMC_CreateCDataArgument(classless, "root/cimv2", args, env_), -1);
    EXPECT_EQ(CIMC_CreateCDataArgument(plain, "root/cimv2", args, env_), -1);
    EXPECT_EQ(args->ft->getArgCount(args, nullptr), 1);
    Free_ParamValue(p);
    Free_ParamValue(classless);
    Free_ParamValue(plain);
}

TEST_F(Arguments, EmbeddedArraysCountOnAcrossArrays) {
    CIMCArgs* args = newArgs();
    ParamValue* p = embedded("Test_Embedded", nullptr,
                             chain<PropertyArray>({propertyArray("First", "string", values({"a", "b"})),
                                                   propertyArray("Second", "STRING", values({"c", "d", "e"})),
                                                   propertyArray("Again", "string", nullptr),  // reuses Second's
                                                   propertyArray("Numbers", "uint16", values({"1", "70000"})),
                                                   propertyArray("Skipped", "uint32", values({"1"}))}));
    EXPECT_EQ(CIMC_CreateCDataArgument(p, "root/cimv2", args, env_), 0);
    CIMCInstance* inst = get(args, "E").value.inst;
    ASSERT_NE(inst, nullptr);
    const struct { const char* name; CIMCType type; int size; std::vector<std::string> set; } arrays[] = {
        {"First", CIMC_ARRAY | CIMC_string, 2, {"a", "b"}},
        {"Second", CIMC_ARRAY | CIMC_string, 5, {"c", "d", "e"}},
        {"Again", CIMC_ARRAY | CIMC_string, 8, {"c", "d", "e"}},
        {"Numbers", CIMC_ARRAY | CIMC_uint16, 10, {"1", "4464"}},
    };
    for (const auto& a : arrays) {
        SCOPED_TRACE(a.name);
        CIMCData d = get(inst, a.name);
        ASSERT_EQ(d.type, a.type);
        ASSERT_EQ(size(d), a.size);
        for (int i = 0; i < a.size; ++i) {
            CIMCData e = at(d, i);
            if (i >= static_cast<int>(a.set.size())) {
                EXPECT_EQ(e.state, CIMC_nullValue) << i;
            } else {
                EXPECT_EQ(e.type == CIMC_uint16 ? std::to_string(e.value.uint16) : text(e), a.set[i]);
            }
        }
    }
    EXPECT_EQ(get(inst, "Skipped").state, CIMC_notFound);
    Free_ParamValue(p);
}

ParamValue* arrayParam(const char* name, const char* type, Value* elements) {
    ParamValue* p = param(name, type, nullptr);
    p->valueArray = make<ValueArray>();
    p->valueArray->value = elements;
    return p;
}

TEST_F(Arguments, ArraysAndReferences) {
    CIMCArgs* args = newArgs();
    ParamValue* instances = arrayParam("E", "string", nullptr);
    instances->valueArray->value = embeddedValue("Test_Embedded", property("U8", "uint8", "9"), nullptr);
    ParamValue* params = chain<ParamValue>({arrayParam("U16", "uint16", values({"1", "70000"})),
                                            arrayParam("S64", "sint64", values({"-5000000000"})),
                                            arrayParam("S", "string", values({"x", nullptr})), instances});
    for (ParamValue* p = params; p; p = p->next)
        EXPECT_EQ(CIMC_CreatePropertyArrayArguments(p, "root/cimv2", args, env_), 0);
    EXPECT_EQ(at(get(args, "U16"), 1).value.uint16, 4464);
    EXPECT_EQ(at(get(args, "S64"), 0).value.sint64, INT32_MIN);
    CIMCData s = get(args, "S");
    ASSERT_EQ(s.type, CIMC_ARRAY | CIMC_string);
    EXPECT_EQ(text(at(s, 0)), "x");
    EXPECT_EQ(at(s, 1).state, CIMC_nullValue);
    CIMCData e = get(args, "E");
    ASSERT_EQ(e.type, CIMC_ARRAY | CIMC_instance);
    EXPECT_EQ(get(at(e, 0).value.inst, "U8").value.uint8, 9);

    ParamValue* one = param("R", "reference", nullptr);
    one->valueReference = make<ValueReference>();
    one->valueReference->instanceName = instanceName("CIM_System", {{"Name", "n1"}});
    ParamValue* many = param("Rs", "reference", nullptr);
    many->valueRefArray = make<ValueRefArray>();
    many->valueRefArray->valueReference = make<ValueReference>();
    many->valueRefArray->valueReference->className = className("A");
    ValueReference* second = many->valueRefArray->valueReference->next = make<ValueReference>();
    second->localInstancePath = make<LocalInstancePath>();  // its own namespace, "root/interop"
    second->localInstancePath->localNamespacePath = make<LocalNamespacePath>();
    second->localInstancePath->localNamespacePath->namespaces = chain<Namespace>({make<Namespace>(), make<Namespace>()});
    second->localInstancePath->localNamespacePath->namespaces->name = dup("root");
    second->localInstancePath->localNamespacePath->namespaces->next->name = dup("interop");
    second->localInstancePath->instanceName = instanceName("B", {});
    ParamValue* none = param("X", "reference", nullptr);
    EXPECT_EQ(CIMC_CreateValueRefArguments(one, "root/cimv2", args, env_), 0);
    EXPECT_EQ(CIMC_CreateValueRefArguments(many, "root/cimv2", args, env_), 0);
    EXPECT_EQ(CIMC_CreateValueRefArguments(none, "root/cimv2", args, env_), -1);
    CIMCData r = get(args, "R");
    ASSERT_EQ(r.type, CIMC_ref);
    CIMCData key = r.value.ref->ft->getKey(r.value.ref, "Name", nullptr);
    EXPECT_EQ(text(key), "n1");
    CIMCData rs = get(args, "Rs");
    ASSERT_EQ(rs.type, CIMC_ARRAY | CIMC_ref);
    ASSERT_EQ(size(rs), 2);
    const char* expected[][2] = {{"root/cimv2", "A"}, {"root/interop", "B"}};
    for (int i = 0; i < 2; ++i) {
        CIMCObjectPath* op = at(rs, i).value.ref;
        CIMCString* ns = op->ft->getNameSpace(op, nullptr);
        CIMCString* cls = op->ft->getClassName(op, nullptr);
        EXPECT_STREQ(ns->ft->getCharPtr(ns, nullptr), expected[i][0]);
        EXPECT_STREQ(cls->ft->getCharPtr(cls, nullptr), expected[i][1]);
    }
    EXPECT_EQ(get(args, "X").state, CIMC_notFound);
    for (ParamValue* p : {params, one, many, none}) Free_ParamValue(p);
}

}  // namespace
