// Type codes and value texts, against hand-made broker objects.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cimxml/lifecycle.h"
#include "cimxml/local.h"
#include "fakes.h"
#include "model/alloc.h"

namespace {

TEST(TypeCodes, NamesForCodes) {
    const struct {
        unsigned int code;
        const char* name;
    } cases[] = {
        {2, "boolean"},     {128, "uint8"},    {144, "uint16"},   {160, "uint32"},  {176, "uint64"},
        {192, "sint8"},     {208, "sint16"},   {224, "sint32"},   {240, "sint64"},  {5632, "string"},
        {6144, "datetime"}, {8336, "uint16"},  {8384, "sint8"},   {13824, "string"},
        // Only the low 16 bits count.
        {65680, "uint16"},  {0x12340000u | 160, "uint32"},
        // Unnamed: chars, char16, reals, the other arrays, objects.
        {5888, ""},         {3, ""},           {8, ""},           {12, ""},         {8320, ""},
        {8352, ""},         {8194, ""},        {4352, ""},        {4096, ""},       {0, ""},
    };
    for (const auto& c : cases) EXPECT_STREQ(CIMC_getDataType(c.code), c.name) << c.code;
}

TEST(TypeCodes, CodesForNames) {
    const struct {
        const char* name;
        CIMCType code;
    } cases[] = {
        {"boolean", 2},   {"uint8", 128},   {"uint16", 144},    {"uint32", 160},   {"uint64", 176},
        {"sint8", 192},   {"sint16", 208},  {"sint32", 224},    {"sint64", 240},   {"datetime", 6144},
        {"string", 5888},  // the chars code, not 5632
        {"String", 0},    {"UINT8", 0},     {"real64", 0},      {"char16", 0},     {"reference", 0},
        {"", 0},          {"uint", 0},      {"uint32 ", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(cimc_getCMPIType(c.name), c.code) << c.name;
    EXPECT_EQ(cimc_getCMPIType(nullptr), 0);
}

std::string text(CIMCType type, CIMCValue v) {
    char buf[512];
    std::memset(buf, 'x', sizeof buf);
    buf[sizeof buf - 1] = '\0';
    std::strcpy(buf, "unchanged");
    value2Chars(type, &v, buf);
    return buf;
}

CIMCValue val() {
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    return v;
}

TEST(Value2Chars, ScalarsAtTheirLimits) {
    struct Case {
        CIMCType type;
        CIMCValue v;
        const char* want;
    };
    std::vector<Case> cases;
    auto add = [&](CIMCType t, auto set, const char* want) {
        CIMCValue v = val();
        set(v);
        cases.push_back({t, v, want});
    };
    add(CIMC_boolean, [](CIMCValue& v) { v.boolean = 1; }, "true");
    add(CIMC_boolean, [](CIMCValue& v) { v.boolean = 200; }, "true");
    add(CIMC_boolean, [](CIMCValue& v) { v.boolean = 0; }, "false");
    add(CIMC_uint8, [](CIMCValue& v) { v.uint8 = 255; }, "255");
    add(CIMC_uint16, [](CIMCValue& v) { v.uint16 = 65535; }, "65535");
    add(CIMC_uint32, [](CIMCValue& v) { v.uint32 = 4294967295u; }, "4294967295");
    add(CIMC_uint64, [](CIMCValue& v) { v.uint64 = UINT64_MAX; }, "18446744073709551615");
    add(CIMC_sint8, [](CIMCValue& v) { v.sint8 = -128; }, "-128");
    add(CIMC_sint8, [](CIMCValue& v) { v.sint8 = 127; }, "127");
    add(CIMC_sint16, [](CIMCValue& v) { v.sint16 = -32768; }, "-32768");
    add(CIMC_sint32, [](CIMCValue& v) { v.sint32 = INT32_MIN; }, "-2147483648");
    add(CIMC_sint64, [](CIMCValue& v) { v.sint64 = INT64_MIN; }, "-9223372036854775808");
    add(CIMC_sint64, [](CIMCValue& v) { v.sint64 = INT64_MAX; }, "9223372036854775807");
    add(CIMC_real32, [](CIMCValue& v) { v.real32 = 1.5f; }, "1.5");
    add(CIMC_real64, [](CIMCValue& v) { v.real64 = 1e300; }, "1e+300");
    add(CIMC_real64, [](CIMCValue& v) { v.real64 = -0.000125; }, "-0.000125");
    // Only the low 16 bits of the type count; the high byte of a wider
    // member does not leak into a narrow one.
    add(static_cast<CIMCType>(CIMC_uint8), [](CIMCValue& v) { v.uint64 = 0x1FF; }, "255");
    add(CIMC_sint16, [](CIMCValue& v) { v.uint64 = 0xFFFFFFFFFFFF8000ull; }, "-32768");
    // Not handled: the buffer is left alone.
    add(CIMC_char16, [](CIMCValue& v) { v.char16 = 'A'; }, "unchanged");
    add(CIMC_instance, [](CIMCValue&) {}, "unchanged");
    add(CIMC_uint32 | CIMC_ARRAY, [](CIMCValue& v) { v.uint32 = 7; }, "unchanged");
    add(CIMC_string, [](CIMCValue& v) { v.string = nullptr; }, "unchanged");
    for (const Case& c : cases) EXPECT_EQ(text(c.type, c.v), c.want) << c.type;
}

TEST(Value2Chars, StringsReferencesAndDatetimesThroughTheirObjects) {
    fakes::String s("hello world");
    fakes::Path path("root/cimv2:CIM_X.Name=\"a\"");
    fakes::DateTime dt("20240305070809.000000+060");
    for (CIMCType code : {5632, 5634, 5884, 5888, 7680}) {
        CIMCValue v = val();
        v.string = &s;
        EXPECT_EQ(text(code, v), "hello world") << code;
    }
    int before = fakes::g_releases;
    CIMCValue v = val();
    v.ref = &path;
    EXPECT_EQ(text(CIMC_ref, v), "root/cimv2:CIM_X.Name=\"a\"");
    v = val();
    v.dateTime = &dt;
    EXPECT_EQ(text(CIMC_dateTime, v), "20240305070809.000000+060");
    EXPECT_EQ(fakes::g_releases - before, 2);  // both temporary strings given back
}

TEST(Value2Chars, LongTextIsCutToTheBuffer) {
    std::string longText(3000, 'a');
    longText += "END";
    fakes::String s(longText.c_str());
    CIMCValue v = val();
    v.string = &s;
    std::vector<char> buf(512 + 64, '#');
    buf[0] = '\0';
    value2Chars(CIMC_string, &v, buf.data());
    EXPECT_EQ(std::strlen(buf.data()), 511u);
    EXPECT_EQ(buf[512], '#');  // nothing past the 512 bytes
    value2Chars(CIMC_string, nullptr, buf.data());
    value2Chars(CIMC_string, &v, nullptr);
}

TEST(PropertyArrayData, ElementTextsByArrayType) {
    struct Case {
        CIMCType type;
        std::vector<uint64_t> raw;
        std::vector<std::string> want;
    };
    const Case cases[] = {
        {8320, {0, 255}, {"0", "255"}},
        {8336, {65535}, {"65535"}},
        {8352, {4294967295u}, {"4294967295"}},
        {8368, {UINT64_MAX}, {"18446744073709551615"}},
        {8384, {0x80}, {"-128"}},
        {8400, {0x8000}, {"-32768"}},
        {8416, {0x80000000u}, {"-2147483648"}},
        {8432, {0x8000000000000000ull}, {"-9223372036854775808"}},
        {CIMC_boolean | CIMC_ARRAY, {1, 0}, {"TRUE", "FALSE"}},
    };
    for (const Case& c : cases) {
        fakes::Array a;
        for (uint64_t r : c.raw) {
            CIMCValue v = val();
            v.uint64 = r;
            a.add(static_cast<CIMCType>(c.type & ~CIMC_ARRAY), v);
        }
        Value* list = nullptr;
        ASSERT_EQ(getPropertyArrayData(&list, c.type, nullptr, nullptr, &a), 0);
        std::vector<std::string> got;
        for (Value* e = list; e; e = e->next) got.push_back(e->value);
        EXPECT_EQ(got, c.want) << c.type;
        Free_Value(list);
    }
}

TEST(PropertyArrayData, StringArraysSkipNullsAndStopAtAFailedRead) {
    fakes::String a("a"), b("b"), c("c");
    fakes::Array arr;
    CIMCValue v = val();
    v.string = &a;
    arr.add(CIMC_string, v);
    v.string = nullptr;
    arr.add(CIMC_string, v, CIMC_nullValue);
    v.string = &b;
    arr.add(CIMC_string, v);
    v.string = &c;
    arr.add(CIMC_string, v, 0, true);
    Value* list = nullptr;
    EXPECT_EQ(getPropertyArrayData(&list, 13824, nullptr, nullptr, &arr), -1);
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->value, "a");
    ASSERT_NE(list->next, nullptr);
    EXPECT_STREQ(list->next->value, "b");
    EXPECT_EQ(list->next->next, nullptr);  // elements before the failure stay
    Free_Value(list);

    list = nullptr;
    fakes::Array empty;
    EXPECT_EQ(getPropertyArrayData(&list, 13824, nullptr, nullptr, &empty), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(getPropertyArrayData(&list, 13824, nullptr, nullptr, nullptr), 0);
}

TEST(PropertyArrayData, FailedAppendReportsFailure) {
    fakes::Array arr;
    CIMCValue v = val();
    arr.add(CIMC_uint32, v);
    arr.add(CIMC_uint32, v);
    for (long n = 0; n < 5; ++n) {
        Value* list = nullptr;
        cimxml::g_allocFailCountdown = n;
        int rc = getPropertyArrayData(&list, 8352, nullptr, nullptr, &arr);
        cimxml::g_allocFailCountdown = -1;
        EXPECT_EQ(rc, n < 4 ? -1 : 0) << n;
        Free_Value(list);
    }
}

TEST(DateTimeText, LayoutAndOffsets) {
    const struct {
        CIMCDateTimeRecord d;
        const char* want;
    } cases[] = {
        {{2024, 3, 5, 7, 8, 9, 999999, 60}, "20240305070809.000000+060"},
        {{2024, 3, 5, 7, 8, 9, 0, -300}, "20240305070809.000000-300"},
        {{2024, 12, 31, 23, 59, 59, 0, 0}, "20241231235959.000000+000"},
        {{1, 1, 1, 0, 0, 0, 0, -5}, "00010101000000.000000-005"},
        {{12345, 1, 2, 3, 4, 5, 0, 0}, "123450102030405.000000+000"},  // not clipped
    };
    for (const auto& c : cases) {
        char buf[96] = "";
        ASSERT_EQ(CIMC_ConvertDateTimeToString(&c.d, buf), 0);
        EXPECT_STREQ(buf, c.want);
    }
    // Appends to what the buffer already holds.
    char buf[128] = "at ";
    CIMCDateTimeRecord d{2000, 1, 1, 0, 0, 0, 0, 0};
    ASSERT_EQ(CIMC_ConvertDateTimeToString(&d, buf), 0);
    EXPECT_STREQ(buf, "at 20000101000000.000000+000");
    // The widest fields still fit the documented bound.
    CIMCDateTimeRecord wide{INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 0, INT32_MIN};
    char big[85] = "";
    ASSERT_EQ(CIMC_ConvertDateTimeToString(&wide, big), 0);
    EXPECT_EQ(std::strlen(big), 84u);
}

TEST(IntervalText, Layout) {
    const struct {
        CIMCIntervalRecord i;
        const char* want;
    } cases[] = {
        {{1, 2, 3, 4}, "00000001020304.000000:000"},
        {{0, 0, 0, 0}, "00000000000000.000000:000"},
        {{99999999, 23, 59, 59}, "99999999235959.000000:000"},
        {{123456789, 0, 0, 0}, "123456789000000.000000:000"},
    };
    for (const auto& c : cases) {
        char buf[64] = "";
        ASSERT_EQ(CIMC_ConvertIntervalToString(&c.i, buf), 0);
        EXPECT_STREQ(buf, c.want);
    }
}

TEST(DateTimeText, NullArgumentsWriteNothing) {
    char buf[32] = "keep";
    CIMCDateTimeRecord d{};
    CIMCIntervalRecord i{};
    EXPECT_EQ(CIMC_ConvertDateTimeToString(nullptr, buf), -1);
    EXPECT_EQ(CIMC_ConvertDateTimeToString(&d, nullptr), -1);
    EXPECT_EQ(CIMC_ConvertIntervalToString(nullptr, buf), -1);
    EXPECT_EQ(CIMC_ConvertIntervalToString(&i, nullptr), -1);
    EXPECT_STREQ(buf, "keep");
}

}  // namespace
