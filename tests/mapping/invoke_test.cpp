// Method results: the chain CIMC_Handle_Invoke_ReturnValues hands back,
// from a real call on the mock broker and from hand-made data items.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "broker.h"
#include "model/alloc.h"

namespace {

using namespace broker_test;
using Strings = std::vector<std::string>;

const char* const kNs = "root/cimv2";

class Invoke : public Broker {
protected:
    std::string text(const ParamValue* p) { return p && p->value && p->value->value ? p->value->value : "<none>"; }
};

TEST_F(Invoke, EchoComesBackAsReturnValueThenOutParameters) {
    CIMCClient* cl = client();
    CIMCArgs* in = env_->ft->newArgs(env_, nullptr);
    auto add = [&](const char* name, CIMCValue v, CIMCType type) {
        EXPECT_EQ(in->ft->addArg(in, name, &v, type).rc, 0) << name;
    };
    add("S", str("hello"), CIMC_string);
    add("U32", u32(42), CIMC_uint32);
    add("B", boolean(true), CIMC_boolean);
    add("SArray", array(CIMC_string, {str("x"), str("y")}), CIMC_string | CIMC_ARRAY);
    add("Ref", ref(path(kNs, "Mock_ComputerSystem", {{"Name", "sys"}})), CIMC_ref);
    CIMCArgs* out = env_->ft->newArgs(env_, nullptr);
    CIMCStatus st{0, nullptr};
    CIMCData rv = cl->ft->invokeMethod(cl, path(kNs, "Mock_AllTypes"), "Echo", in, out, &st);
    ASSERT_EQ(st.rc, 0);

    ParamValue* params = nullptr;
    ASSERT_EQ(CIMC_Handle_Invoke_ReturnValues(&rv, out, &params), 0);
    ASSERT_NE(params, nullptr);
    EXPECT_STREQ(params->name, "ReturnValue");
    EXPECT_STREQ(params->paramType, "uint32");
    EXPECT_EQ(text(params), "0");
    ASSERT_EQ(count(params), 6);

    const struct {
        const char* name;
        const char* type;
        const char* value;
    } scalars[] = {{"S", "string", "hello"}, {"U32", "uint32", "42"}, {"B", "boolean", "TRUE"}};
    for (const auto& s : scalars) {
        const ParamValue* p = named(params->next, s.name);
        ASSERT_NE(p, nullptr) << s.name;
        EXPECT_STREQ(p->paramType, s.type);
        EXPECT_EQ(text(p), s.value);
    }
    const ParamValue* arr = named(params->next, "SArray");
    ASSERT_TRUE(arr && arr->valueArray);
    EXPECT_STREQ(arr->paramType, "string");
    EXPECT_EQ(texts(arr->valueArray), (Strings{"x", "y"}));
    const ParamValue* r = named(params->next, "Ref");
    ASSERT_TRUE(r && r->valueReference && r->valueReference->instancePath);
    EXPECT_STREQ(r->paramType, "reference");
    EXPECT_EQ(namespaces(r->valueReference->instancePath->namespacePath->localNamespacePath),
              (Strings{"root", "cimv2"}));
    EXPECT_EQ(keysText(r->valueReference->instancePath->instanceName->keyBindings), "Name=sys(string)");
    Free_ParamValue(params);
}

TEST_F(Invoke, EachKindOfDataItem) {
    CIMCData nullString{CIMC_string, CIMC_nullValue, none()};
    CIMCData real{CIMC_real64, 0, none()};
    real.value.real64 = 0.25;
    CIMCData sint8s{CIMC_sint8 | CIMC_ARRAY, 0, array(CIMC_sint8, {none()})};
    CIMCData nullRef{CIMC_ref, 0, none()};
    CIMCData settings{CIMC_instance, 0, none()};
    CIMCInstance* embedded = instance(path(kNs, "Mock_Settings"));
    set(embedded, "Mode", str("performance"), CIMC_string);
    settings.value.inst = embedded;
    CIMCData dt{CIMC_dateTime, 0, dateTime("00000001020304.000000:000")};

    ParamValue* list = nullptr;
    ASSERT_EQ(mapInvokeReturnValue("N", &nullString, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("R", &real, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("A", &sint8s, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("P", &nullRef, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("E", &settings, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("D", &dt, &list), 0);
    ASSERT_EQ(mapInvokeReturnValue("X", nullptr, &list), 0);

    const ParamValue* p = named(list, "N");  // null: name and type only
    EXPECT_STREQ(p->paramType, "string");
    EXPECT_EQ(p->value, nullptr);
    p = named(list, "R");
    EXPECT_STREQ(p->paramType, "real64");
    EXPECT_EQ(text(p), "0.25");
    p = named(list, "A");
    EXPECT_STREQ(p->paramType, "sint8");
    EXPECT_EQ(texts(p->valueArray), (Strings{"0"}));
    p = named(list, "P");
    EXPECT_STREQ(p->paramType, "reference");
    EXPECT_EQ(p->valueReference, nullptr);
    p = named(list, "E");
    ASSERT_TRUE(p->value && p->value->instance);
    EXPECT_EQ(p->value->value, nullptr);
    EXPECT_EQ(valueOf(named(p->value->instance->properties, "Mode")), "performance");
    EXPECT_EQ(text(named(list, "D")), "00000001020304.000000:000");
    p = named(list, "X");
    EXPECT_EQ(p->paramType, nullptr);
    Free_ParamValue(list);

    // Without a return value and out-arguments nothing is appended.
    list = nullptr;
    EXPECT_EQ(CIMC_Handle_Invoke_ReturnValues(nullptr, nullptr, &list), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(CIMC_Handle_Invoke_ReturnValues(&real, nullptr, nullptr), -1);
    EXPECT_EQ(mapInvokeReturnValue("R", &real, nullptr), -1);
}

TEST_F(Invoke, AllocationFailuresReportFailure) {
    CIMCArgs* out = env_->ft->newArgs(env_, nullptr);
    CIMCValue s = str("text");
    out->ft->addArg(out, "S", &s, CIMC_string);
    CIMCValue a = array(CIMC_uint32, {u32(1), u32(2)});
    out->ft->addArg(out, "A", &a, CIMC_uint32 | CIMC_ARRAY);
    CIMCValue r = ref(path(kNs, "X", {{"Id", "1"}}));
    out->ft->addArg(out, "R", &r, CIMC_ref);
    CIMCData rv{CIMC_uint32, 0, u32(0)};
    int failures = 0;
    for (long n = 0;; ++n) {
        ParamValue* list = nullptr;
        cimxml::g_allocFailCountdown = n;
        int rc = CIMC_Handle_Invoke_ReturnValues(&rv, out, &list);
        cimxml::g_allocFailCountdown = -1;
        Free_ParamValue(list);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        ++failures;
        ASSERT_LT(n, 500);
    }
    EXPECT_GT(failures, 15);
}

}  // namespace
