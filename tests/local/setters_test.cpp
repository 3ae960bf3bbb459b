// Property records written into a broker instance (the modify setters):
// type codes, the 32-bit strtol conversion at its limits, booleans, null
// values, the string element buffer and the array setter's failures.
#include "local_support.h"

namespace {

using namespace localtest;

class ModifySetter : public BrokerTest {};

TEST_F(ModifySetter, ScalarsByTypeName) {
    const struct { const char* type; const char* text; CIMCType code; uint64_t bits; CIMCValueState state; } cases[] = {
        {"uint8", "300", CIMC_uint8, 44, 0},  // low 8 bits
        {"sint8", "200", CIMC_sint8, 0xC8, 0},
        {"uint16", "70000", CIMC_uint16, 4464, 0},
        {"uint32", "4294967295", CIMC_uint32, 2147483647, 0},  // the saturated 32-bit long
        {"uint32", "-1", CIMC_uint32, 0xFFFFFFFFu, 0},
        {"sint32", "-2147483649", CIMC_sint32, 0x80000000u, 0},
        {"uint32", "12abc", CIMC_uint32, 12, 0},
        {"uint64", "4294967295", CIMC_uint64, 2147483647, 0},
        {"uint64", "-1", CIMC_uint64, UINT64_MAX, 0},  // sign-extended
        {"sint64", "-5000000000", CIMC_sint64, static_cast<uint64_t>(int64_t{INT32_MIN}), 0},
        {"boolean", "TRUE", CIMC_boolean, 1, 0},
        {"boolean", "FALSE", CIMC_boolean, 0, 0},
        {"boolean", "true", CIMC_boolean, 0, 0},  // only the upper-case word counts
        {"uint16", nullptr, CIMC_uint16, 0, CIMC_nullValue},
        {"boolean", nullptr, CIMC_boolean, 0, CIMC_nullValue},
        {"datetime", nullptr, CIMC_dateTime, 0, CIMC_nullValue},
        {"string", nullptr, CIMC_string, 0, CIMC_nullValue},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " " + (c.text ? c.text : "(no text)"));
        CIMCInstance* inst = newInstance();
        // Null both ways: no Value at all, or (for strings) a Value without text.
        Property* p = property("P", c.type, c.text, c.text != nullptr || c.code == CIMC_string);
        EXPECT_EQ(CIMC_Handle_Modify_Properties(p, inst, env_), 0);
        CIMCData d = get(inst, "P");
        EXPECT_EQ(d.state, c.state);
        EXPECT_EQ(d.type, c.code);
        if (!c.state) {
            EXPECT_EQ(widthBits(d), c.bits);
        }
        Free_Property(p);
    }
}

TEST_F(ModifySetter, TextsAndSkippedOrRefusedProperties) {
    CIMCInstance* inst = newInstance();
    Property* props = chain<Property>({property("S", "string", "hello"),
                                       property("D", "datetime", "20240305070809.000000+060"),
                                       property("R", "real64", "1.5"), property("X", "String", "x")});
    for (Property* p = props; p; p = p->next) EXPECT_EQ(CIMC_Handle_Modify_Properties(p, inst, env_), 0);
    EXPECT_EQ(text(get(inst, "S")), "hello");
    EXPECT_EQ(text(get(inst, "D")), "20240305070809.000000+060");
    EXPECT_EQ(get(inst, "R").state, CIMC_notFound);
    EXPECT_EQ(get(inst, "X").state, CIMC_notFound);
    Property* broken = chain<Property>({property(nullptr, "uint8", "1"), property("P", nullptr, "1")});
    EXPECT_EQ(CIMC_Handle_Modify_Properties(nullptr, inst, env_), -1);
    EXPECT_EQ(CIMC_Handle_Modify_Properties(broken, inst, env_), -1);
    EXPECT_EQ(CIMC_Handle_Modify_Properties(broken->next, inst, env_), -1);
    Free_Property(props);
    Free_Property(broken);
}

TEST_F(ModifySetter, ArraysConvertEachElement) {
    const std::string longText(600, 'x');
    const struct { const char* type; Value* elements; CIMCType element; std::vector<uint64_t> bits; } cases[] = {
        {"uint8", values({"1", "256", "-1"}), CIMC_uint8, {1, 0, 0xFF}},
        {"uint16", values({"1", "70000", "x"}), CIMC_uint16, {1, 4464, 0}},
        {"uint32", values({"4294967295"}), CIMC_uint32, {2147483647}},
        {"uint64", values({"-1"}), CIMC_uint64, {UINT64_MAX}},
        {"sint64", values({"-5000000000", "7"}), CIMC_sint64, {static_cast<uint64_t>(int64_t{INT32_MIN}), 7}},
        {"sint16", values({"40000"}), CIMC_sint16, {40000}},
        {"string", values({"a", nullptr, longText.c_str()}), CIMC_string, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        CIMCInstance* inst = newInstance();
        PropertyArray* p = propertyArray("A", c.type, c.elements);
        EXPECT_EQ(CIMC_Handle_Modify_PropertieArray(p, inst, env_), 0);
        CIMCData d = get(inst, "A");
        ASSERT_EQ(d.type, CIMC_ARRAY | c.element);
        if (c.element == CIMC_string) {
            ASSERT_EQ(size(d), 3);
            EXPECT_EQ(text(at(d, 0)), "a");
            EXPECT_EQ(at(d, 1).state, CIMC_nullValue);  // skipped, its index used up
            EXPECT_EQ(text(at(d, 2)), std::string(511, 'x'));  // cut to the element buffer
        } else {
            ASSERT_EQ(size(d), static_cast<int>(c.bits.size()));
            for (size_t i = 0; i < c.bits.size(); ++i) EXPECT_EQ(widthBits(at(d, static_cast<int>(i))), c.bits[i]);
        }
        Free_PropertyArray(p);
    }
}

TEST_F(ModifySetter, ArrayFailures) {
    CIMCInstance* inst = newInstance();
    PropertyArray* refused = chain<PropertyArray>({propertyArray("A", "uint8", values({nullptr, "1"})),
                                                   propertyArray("A", "uint8", nullptr),
                                                   propertyArray(nullptr, "uint8", values({"1"})),
                                                   propertyArray("A", nullptr, values({"1"}))});
    for (PropertyArray* p = refused; p; p = p->next) EXPECT_EQ(CIMC_Handle_Modify_PropertieArray(p, inst, env_), -1);
    PropertyArray* ignored = propertyArray("A", "boolean", values({"TRUE"}));
    EXPECT_EQ(CIMC_Handle_Modify_PropertieArray(ignored, inst, env_), 0);
    EXPECT_EQ(get(inst, "A").state, CIMC_notFound);
    PropertyArray* valid = propertyArray("A", "uint16", values({"1"}));
    inst->ft->release(inst);  // the broker now refuses the set
    EXPECT_EQ(CIMC_Handle_Modify_PropertieArray(valid, inst, env_), -1);
    Free_PropertyArray(valid);
    Free_PropertyArray(refused);
    Free_PropertyArray(ignored);
}

}  // namespace
