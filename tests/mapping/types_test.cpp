// Type codes, value texts, array texts, datetime and interval texts.
#include <climits>
#include <cstdint>

#include "broker.h"

namespace {

using namespace broker_test;

// Scalar type names and value texts at their limits reach the HTTP comparison
// of the scenario suite through Mock_AllTypes; these are the codes it lacks.
TEST(TypeCodes, BothDirectionsWithTheirAsymmetries) {
    const struct { unsigned int code; const char* name; } names[] = {
        {8336, "uint16"}, {8384, "sint8"}, {13824, "string"}, {65680, "uint16"}, {0x70000u | 160, "uint32"},
        {5888, ""}, {3, ""}, {8320, ""}, {8352, ""}, {4352, ""}};
    for (const auto& c : names) EXPECT_STREQ(CIMC_getDataType(c.code), c.name) << c.code;
    const struct { const char* name; CIMCType code; } codes[] = {
        {"boolean", 2}, {"uint8", 128}, {"uint16", 144}, {"uint32", 160}, {"uint64", 176}, {"sint8", 192},
        {"sint16", 208}, {"sint32", 224}, {"sint64", 240}, {"datetime", 6144}, {"string", 5888},
        {"String", 0}, {"real64", 0}, {"uint32 ", 0}};
    for (const auto& c : codes) EXPECT_EQ(cimc_getCMPIType(c.name), c.code) << c.name;
    EXPECT_EQ(cimc_getCMPIType(nullptr), 0);
}

std::string text2(CIMCType type, CIMCValue v) {
    char buf[512] = "unchanged";
    value2Chars(type, &v, buf);
    return buf;
}

class ObjectTexts : public Broker {};

TEST_F(ObjectTexts, StringsReferencesDatetimesAndTheBufferLimit) {
    for (CIMCType code : {5632, 5634, 5884, 5888, 7680}) EXPECT_EQ(text2(code, str("hello")), "hello") << code;
    // Not handled: the buffer is left as it was.
    for (CIMCType code : {CIMCType{CIMC_char16}, CIMCType{CIMC_instance}, CIMCType{CIMC_uint32 | CIMC_ARRAY}})
        EXPECT_EQ(text2(code, with([](CIMCValue& v) { v.uint64 = 7; })), "unchanged") << code;
    for (CIMCType code : {CIMCType{CIMC_string}, CIMCType{CIMC_dateTime}, CIMCType{CIMC_ref}})
        EXPECT_EQ(text2(code, none()), "unchanged") << code;  // no object
    char keep[8] = "keep";
    CIMCValue seven = with([](CIMCValue& v) { v.uint32 = 7; });
    value2Chars(CIMC_uint32, nullptr, keep);
    value2Chars(CIMC_uint32, &seven, nullptr);
    EXPECT_STREQ(keep, "keep");
    EXPECT_EQ(text2(CIMC_boolean, with([](CIMCValue& v) { v.uint64 = 0x100; })), "false");
    EXPECT_EQ(text2(CIMC_dateTime, dateTime("20240305070809.000000+060")), "20240305070809.000000+060");
    EXPECT_NE(text2(CIMC_ref, ref(path(kNs, "CIM_X", {{"Name", "a"}}))).find("CIM_X"), std::string::npos);

    std::string longText(3000, 'a');
    std::vector<char> buf(600, '#');
    CIMCValue v = str(longText.c_str());
    value2Chars(CIMC_string, &v, buf.data());
    EXPECT_EQ(std::strlen(buf.data()), 511u);  // cut to the 512-byte buffer
    EXPECT_EQ(buf[512], '#');
}

TEST_F(ObjectTexts, ArrayElementTexts) {
    auto bits = [](uint64_t b) { return with([&](CIMCValue& v) { v.uint64 = b; }); };
    const struct { CIMCType type; std::vector<uint64_t> raw; Strings want; } cases[] = {
        {8336, {65535}, {"65535"}}, {8352, {UINT32_MAX}, {"4294967295"}}, {8384, {0x80}, {"-128"}},
        {8400, {0x8000}, {"-32768"}}, {8432, {1ull << 63}, {"-9223372036854775808"}}};
    for (const auto& c : cases) {
        std::vector<CIMCValue> items;
        for (uint64_t r : c.raw) items.push_back(bits(r));
        Value* list = nullptr;
        ASSERT_EQ(getPropertyArrayData(&list, c.type, nullptr, nullptr, array(c.type & ~CIMC_ARRAY, items).array), 0);
        ValueArray va{list, nullptr};
        EXPECT_EQ(texts(&va), c.want) << c.type;
        Free_Value(list);
    }
    // Strings: a null element is skipped.
    Value* list = nullptr;
    CIMCValue strings = array(CIMC_string, {str("a"), none(), str("b")});
    ASSERT_EQ(getPropertyArrayData(&list, 13824, nullptr, nullptr, strings.array), 0);
    ValueArray va{list, nullptr};
    EXPECT_EQ(texts(&va), (Strings{"a", "b"}));
    Free_Value(list);
    list = nullptr;
    EXPECT_EQ(failEachAllocation([&] {
                  Free_Value(list);
                  list = nullptr;
                  return getPropertyArrayData(&list, 13824, nullptr, nullptr, strings.array);
              }),
              4);
    Free_Value(list);
}

// A string element whose read reports an error ends the walk.
CIMCData failingAt(const CIMCArray*, CIMCCount i, CIMCStatus* rc) {
    static char a[] = "a";
    static CIMCStringFT ft{1, nullptr, nullptr, [](const CIMCString* s, CIMCStatus*) { return static_cast<char*>(s->hdl); }};
    static CIMCString s{a, &ft};
    if (rc) rc->rc = i == 1;
    return CIMCData{CIMC_string, 0, with([](CIMCValue& v) { v.string = &s; })};
}

TEST(ArrayTexts, AFailedStringReadKeepsTheElementsBefore) {
    CIMCArrayFT ft{1, nullptr, nullptr, [](const CIMCArray*, CIMCStatus*) { return CIMCCount{3}; }, nullptr, failingAt, nullptr};
    CIMCArray arr{nullptr, &ft};
    Value* list = nullptr;
    EXPECT_EQ(getPropertyArrayData(&list, 13824, nullptr, nullptr, &arr), -1);
    ValueArray va{list, nullptr};
    EXPECT_EQ(texts(&va), (Strings{"a"}));
    Free_Value(list);
}

TEST(DateTimeText, LayoutOffsetsAndNulls) {
    const struct { CIMCDateTimeRecord d; const char* want; } dates[] = {
        {{2024, 3, 5, 7, 8, 9, 999999, 60}, "20240305070809.000000+060"},
        {{2024, 3, 5, 7, 8, 9, 0, -300}, "20240305070809.000000-300"},
        {{1, 1, 1, 0, 0, 0, 0, -5}, "00010101000000.000000-005"},
        {{12345, 1, 2, 3, 4, 5, 0, 0}, "123450102030405.000000+000"}};
    for (const auto& c : dates) {
        char buf[96] = "at ";
        ASSERT_EQ(CIMC_ConvertDateTimeToString(&c.d, buf), 0);
        EXPECT_EQ(std::string(buf), std::string("at ") + c.want);
    }
    const struct { CIMCIntervalRecord i; const char* want; } intervals[] = {
        {{1, 2, 3, 4}, "00000001020304.000000:000"}, {{123456789, 0, 0, 0}, "123456789000000.000000:000"}};
    for (const auto& c : intervals) {
        char buf[64] = "";
        ASSERT_EQ(CIMC_ConvertIntervalToString(&c.i, buf), 0);
        EXPECT_STREQ(buf, c.want);
    }
    CIMCDateTimeRecord widest{INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 0, INT32_MIN};
    char big[85] = "";
    ASSERT_EQ(CIMC_ConvertDateTimeToString(&widest, big), 0);
    EXPECT_EQ(std::strlen(big), 84u);  // the documented bound

    char keep[8] = "keep";
    CIMCIntervalRecord i{};
    EXPECT_EQ(CIMC_ConvertDateTimeToString(nullptr, keep), -1);
    EXPECT_EQ(CIMC_ConvertDateTimeToString(&widest, nullptr), -1);
    EXPECT_EQ(CIMC_ConvertIntervalToString(nullptr, keep), -1);
    EXPECT_EQ(CIMC_ConvertIntervalToString(&i, nullptr), -1);
    EXPECT_STREQ(keep, "keep");
}

}  // namespace
