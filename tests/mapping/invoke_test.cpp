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

// Echo's out-parameters are compared with the HTTP back end's by the scenario
// suite, by name; the order and the allocation failures are checked here.
TEST_F(Invoke, ReturnValueComesFirstAndFailedAllocationsReportFailure) {
    CIMCArgs* out = args({{"SArray", array(CIMC_string, {str("x"), str("y")}), CIMC_string | CIMC_ARRAY},
                          {"Ref", ref(path(kNs, "Mock_ComputerSystem", {{"Name", "sys"}})), CIMC_ref}});
    CIMCData rv{CIMC_uint32, 0, u32(7)};
    ParamValue* params = nullptr;
    ASSERT_EQ(CIMC_Handle_Invoke_ReturnValues(&rv, out, &params), 0);
    ASSERT_EQ(count(params), 3);
    EXPECT_STREQ(params->name, "ReturnValue");
    EXPECT_STREQ(params->paramType, "uint32");
    EXPECT_EQ(text(params->value), "7");
    EXPECT_STREQ(params->next->name, "SArray");
    Free_ParamValue(params);
    EXPECT_GT(failEachAllocation([&] {
                  ParamValue* l = nullptr;
                  int rc = CIMC_Handle_Invoke_ReturnValues(&rv, out, &l);
                  EXPECT_TRUE(rc != 0 || (count(l) == 3 && named(l, "Ref")->valueReference && named(l, "SArray")->valueArray));
                  Free_ParamValue(l);
                  return rc;
              }),
              20);
}

TEST_F(Invoke, EachKindOfDataItem) {
    CIMCInstance* settings = instance(path(kNs, "Mock_Settings"));
    set(settings, "Mode", str("performance"), CIMC_string);
    const struct { const char* name; CIMCData data; const char* type; const char* value; } cases[] = {
        {"N", {CIMC_string, CIMC_nullValue, none()}, "string", "<none>"},  // null: name and type only
        {"R", {CIMC_real64, 0, with([](CIMCValue& v) { v.real64 = 0.25; })}, "real64", "0.25"},
        {"C", {CIMC_char16, 0, with([](CIMCValue& v) { v.char16 = 'x'; })}, "char16", "<none>"},
        {"D", {CIMC_dateTime, 0, dateTime("00000001020304.000000:000")}, "datetime", "00000001020304.000000:000"},
        {"Z", {CIMC_dateTime, 0, none()}, "datetime", "<none>"},  // no datetime object
        {"A", {CIMC_sint8 | CIMC_ARRAY, 0, array(CIMC_sint8, {none()})}, "sint8", "<none>"},
        {"P", {CIMC_ref, 0, none()}, "reference", "<none>"},
        {"Q", {CIMC_ref, 0, ref(path("", "X", {{"Id", "1"}}))}, "reference", "<none>"},
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
    const ValueReference* q = named(list, "Q")->valueReference;  // no namespace: a bare instance name
    ASSERT_TRUE(q && q->instanceName && !q->instancePath);
    EXPECT_EQ(keysText(q->instanceName->keyBindings), "Id=1(string)");
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
