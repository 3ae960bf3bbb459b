// Method results: the chain CIMC_Handle_Invoke_ReturnValues hands back.
#include "broker.h"

namespace {

using namespace broker_test;

class Invoke : public Broker {
protected:
    CIMCArgs* args(std::initializer_list<std::tuple<const char*, CIMCValue, CIMCType>> list) {
        CIMCArgs* a = env_->ft->newArgs(env_, nullptr);
        for (const auto& [name, v, type] : list) EXPECT_EQ(a->ft->addArg(a, name, &v, type).rc, 0) << name;
        return a;
    }
};

TEST_F(Invoke, EchoComesBackAsReturnValueThenOutParameters) {
    CIMCArgs* in = args({{"S", str("hello"), CIMC_string},
                         {"U32", u32(42), CIMC_uint32},
                         {"B", boolean(true), CIMC_boolean},
                         {"SArray", array(CIMC_string, {str("x"), str("y")}), CIMC_string | CIMC_ARRAY},
                         {"Ref", ref(path(kNs, "Mock_ComputerSystem", {{"Name", "sys"}})), CIMC_ref}});
    CIMCArgs* out = env_->ft->newArgs(env_, nullptr);
    CIMCClient* cl = client();
    CIMCStatus st{0, nullptr};
    CIMCData rv = cl->ft->invokeMethod(cl, path(kNs, "Mock_AllTypes"), "Echo", in, out, &st);
    ASSERT_EQ(st.rc, 0);
    ParamValue* params = nullptr;
    ASSERT_EQ(CIMC_Handle_Invoke_ReturnValues(&rv, out, &params), 0);
    ASSERT_EQ(count(params), 6);
    EXPECT_STREQ(params->name, "ReturnValue");  // first, then the out-parameters
    EXPECT_STREQ(params->paramType, "uint32");
    EXPECT_EQ(text(params->value), "0");
    EXPECT_EQ(text(named(params, "B")->value), "TRUE");
    EXPECT_EQ(texts(named(params, "SArray")->valueArray), (Strings{"x", "y"}));
    const ParamValue* r = named(params, "Ref");
    EXPECT_STREQ(r->paramType, "reference");
    ASSERT_TRUE(r->valueReference && r->valueReference->instancePath);
    EXPECT_EQ(namespaces(r->valueReference->instancePath->namespacePath), (Strings{"root", "cimv2"}));
    EXPECT_EQ(keysText(r->valueReference->instancePath->instanceName->keyBindings), "Name=sys(string)");
    Free_ParamValue(params);

    // Allocation failures on the way report -1 and leak nothing.
    EXPECT_GT(failEachAllocation([&] {
                  ParamValue* l = nullptr;
                  int rc = CIMC_Handle_Invoke_ReturnValues(&rv, out, &l);
                  Free_ParamValue(l);
                  return rc;
              }),
              30);
}

TEST_F(Invoke, EachKindOfDataItem) {
    CIMCInstance* settings = instance(path(kNs, "Mock_Settings"));
    set(settings, "Mode", str("performance"), CIMC_string);
    const struct { const char* name; CIMCData data; const char* type; const char* value; } cases[] = {
        {"N", {CIMC_string, CIMC_nullValue, none()}, "string", "<none>"},  // null: name and type only
        {"R", {CIMC_real64, 0, with([](CIMCValue& v) { v.real64 = 0.25; })}, "real64", "0.25"},
        {"C", {CIMC_char16, 0, with([](CIMCValue& v) { v.char16 = 'x'; })}, "char16", "<none>"},
        {"D", {CIMC_dateTime, 0, dateTime("00000001020304.000000:000")}, "datetime", "00000001020304.000000:000"},
        {"A", {CIMC_sint8 | CIMC_ARRAY, 0, array(CIMC_sint8, {none()})}, "sint8", "<none>"},
        {"P", {CIMC_ref, 0, none()}, "reference", "<none>"},
        {"E", {CIMC_instance, 0, with([&](CIMCValue& v) { v.inst = settings; })}, "instance", "<none>"}};
    ParamValue* list = nullptr;
    for (auto c : cases) ASSERT_EQ(mapInvokeReturnValue(c.name, &c.data, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("X", nullptr, &list), 0);
    for (const auto& c : cases) {
        const ParamValue* p = named(list, c.name);
        EXPECT_STREQ(p->paramType, c.type) << c.name;
        EXPECT_EQ(text(p->value), c.value) << c.name;
    }
    EXPECT_EQ(texts(named(list, "A")->valueArray), (Strings{"0"}));
    EXPECT_EQ(named(list, "P")->valueReference, nullptr);
    const Value* e = named(list, "E")->value;
    ASSERT_TRUE(e && e->instance);  // embedded, as the HTTP parser keeps it
    EXPECT_EQ(valueOf(named(e->instance->properties, "Mode")), "performance");
    EXPECT_EQ(named(list, "X")->paramType, nullptr);
    Free_ParamValue(list);

    list = nullptr;
    EXPECT_EQ(CIMC_Handle_Invoke_ReturnValues(nullptr, nullptr, &list), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(CIMC_Handle_Invoke_ReturnValues(nullptr, nullptr, nullptr), -1);
}

}  // namespace
