// Instance and class mapping against objects of the mock broker.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "broker.h"
#include "model/alloc.h"

namespace {

using namespace broker_test;
using Strings = std::vector<std::string>;

const char* const kNs = "root/cimv2";

class InstanceMapping : public Broker {
protected:
    // A Mock_Processor with the cases of interest: its four keys, a null
    // uint32, a boolean, a string reading "true", a null array, a string
    // array and a reference to the computer system (two keys).
    CIMCInstance* processor(bool withReference = true) {
        CIMCObjectPath* op = path(kNs, "Mock_Processor",
                                  {{"SystemCreationClassName", "Mock_ComputerSystem"},
                                   {"SystemName", "mock-server.example.com"},
                                   {"CreationClassName", "Mock_Processor"},
                                   {"DeviceID", "CPU7"}});
        CIMCInstance* inst = instance(op);
        setNull(inst, "MaxClockSpeed", CIMC_uint32);
        set(inst, "Enabled", boolean(true), CIMC_boolean);
        set(inst, "ElementName", str("true"), CIMC_string);
        setNull(inst, "Codes", CIMC_uint16 | CIMC_ARRAY);
        set(inst, "Tags", array(CIMC_string, {str("a"), str("b")}), CIMC_string | CIMC_ARRAY);
        if (!withReference) return inst;
        CIMCObjectPath* system = path(kNs, "Mock_ComputerSystem",
                                      {{"CreationClassName", "Mock_ComputerSystem"},
                                       {"Name", "mock-server.example.com"}});
        set(inst, "Owner", ref(system), CIMC_ref);
        return inst;
    }
};

TEST_F(InstanceMapping, PropertyListsFollowTheValueKinds) {
    Property* props = nullptr;
    PropertyArray* arrays = nullptr;
    PropertyReference* refs = nullptr;
    ASSERT_EQ(GetInstanceProperties(processor(), nullptr, &props, &arrays, &refs), 0);

    EXPECT_EQ(named(props, "MaxClockSpeed"), nullptr);  // null scalar: no Property at all
    EXPECT_EQ(valueOf(named(props, "Enabled")), "TRUE");
    EXPECT_STREQ(named(props, "Enabled")->type, "boolean");
    EXPECT_EQ(valueOf(named(props, "ElementName")), "TRUE");  // upper-cased like a boolean
    EXPECT_STREQ(named(props, "ElementName")->type, "string");
    EXPECT_EQ(valueOf(named(props, "DeviceID")), "CPU7");
    EXPECT_EQ(count(props), 6);

    const PropertyArray* codes = named(arrays, "Codes");
    ASSERT_NE(codes, nullptr);
    ASSERT_NE(codes->valueArray, nullptr);  // null array: an empty ValueArray
    EXPECT_EQ(codes->valueArray->value, nullptr);
    EXPECT_STREQ(codes->type, "uint16");
    EXPECT_EQ(texts(named(arrays, "Tags")->valueArray), (Strings{"a", "b"}));
    EXPECT_STREQ(named(arrays, "Tags")->type, "string");

    ASSERT_EQ(count(refs), 1);
    EXPECT_STREQ(refs->name, "Owner");
    EXPECT_STREQ(refs->referenceClass, "Mock_ComputerSystem");
    ASSERT_TRUE(refs->valueReference && refs->valueReference->localInstancePath);
    const LocalInstancePath* lip = refs->valueReference->localInstancePath;
    EXPECT_EQ(namespaces(lip->localNamespacePath), (Strings{"root/cimv2"}));
    ASSERT_NE(lip->instanceName, nullptr);
    EXPECT_STREQ(lip->instanceName->className->name, "Mock_ComputerSystem");
    EXPECT_EQ(keysText(lip->instanceName->keyBindings),
              "CreationClassName=Mock_ComputerSystem(string),Name=mock-server.example.com(string)");
    Free_Property(props);
    Free_PropertyArray(arrays);
    Free_PropertyReference(refs);
}

TEST_F(InstanceMapping, NamedInstanceHasTwoSeparateClassNames) {
    NamedInstance* ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(processor(), ni), 0);
    ASSERT_TRUE(ni->instance && ni->instanceName);
    EXPECT_EQ(ni->instance->next, nullptr);
    ASSERT_TRUE(ni->instance->className && ni->instanceName->className);
    EXPECT_NE(ni->instance->className, ni->instanceName->className);
    EXPECT_STREQ(ni->instance->className->name, "Mock_Processor");
    EXPECT_STREQ(ni->instanceName->className->name, "Mock_Processor");
    EXPECT_EQ(keysText(ni->instanceName->keyBindings),
              "SystemCreationClassName=Mock_ComputerSystem(string),SystemName=mock-server.example.com(string),"
              "CreationClassName=Mock_Processor(string),DeviceID=CPU7(string)");
    EXPECT_EQ(count(ni->instance->propertyReferences), 1);
    Free_NamedInstance(ni);

    Instance* record = cimxml::newRecord<Instance>();
    ASSERT_EQ(mapGetInstance(record, processor()), 0);
    EXPECT_STREQ(record->className->name, "Mock_Processor");
    EXPECT_EQ(count(record->properties), 6);
    EXPECT_EQ(count(record->propertyArrays), 2);
    EXPECT_EQ(count(record->propertyReferences), 1);
    Free_Instance(record);
}

// Every type of the sample repository's first Mock_AllTypes, read back
// through the client as the local GetInstance does.
TEST_F(InstanceMapping, EveryTypeOfTheSampleInstance) {
    CIMCClient* cl = client();
    CIMCObjectPath* op = path(kNs, "Mock_AllTypes", {{"InstanceID", "mock:alltypes:1"}});
    CIMCStatus st{0, nullptr};
    CIMCInstance* inst = cl->ft->getInstance(cl, op, 0, nullptr, &st);
    ASSERT_NE(inst, nullptr) << st.rc;
    Instance* rec = cimxml::newRecord<Instance>();
    ASSERT_EQ(mapGetInstance(rec, inst), 0);

    const struct {
        const char* name;
        const char* type;
        const char* value;
    } scalars[] = {
        {"PBoolean", "boolean", "TRUE"},
        {"PString", "string", "Hello <CIM> & \"friends\""},
        {"PDateTime", "datetime", "20240229235959.123456-300"},
        {"PUint8", "uint8", "255"},
        {"PSint8", "sint8", "-128"},
        {"PUint16", "uint16", "65535"},
        {"PSint16", "sint16", "-32768"},
        {"PUint32", "uint32", "4294967295"},
        {"PSint32", "sint32", "-2147483648"},
        {"PUint64", "uint64", "18446744073709551615"},
        {"PSint64", "sint64", "-9223372036854775808"},
        {"PReal32", "", "1.5"},
        {"PReal64", "", "-2.25e+10"},
        {"PChar16", "", ""},    // value2Chars has no text for char16
        {"PEmbedded", "", ""},  // nor for an embedded instance
    };
    for (const auto& s : scalars) {
        const Property* p = named(rec->properties, s.name);
        ASSERT_NE(p, nullptr) << s.name;
        EXPECT_STREQ(p->type, s.type) << s.name;
        EXPECT_EQ(valueOf(p), s.value) << s.name;
    }
    EXPECT_EQ(named(rec->properties, "PEmpty"), nullptr);

    const struct {
        const char* name;
        const char* type;
        Strings values;
    } arrays[] = {
        {"PBooleanArray", "", {"TRUE", "FALSE", "TRUE"}},
        {"PStringArray", "string", {"one", "two", "three"}},
        {"PUint8Array", "", {"0", "127", "255"}},
        {"PSint32Array", "", {"-1", "0", "1"}},
        {"PUint64Array", "", {"1", "2", "18446744073709551615"}},
        {"PReal64Array", "", {"0.5", "-0.25"}},
        {"PDateTimeArray", "", {"20240101000000.000000+000", "00000001020304.000000:000"}},
    };
    for (const auto& a : arrays) {
        const PropertyArray* p = named(rec->propertyArrays, a.name);
        ASSERT_NE(p, nullptr) << a.name;
        EXPECT_STREQ(p->type, a.type) << a.name;
        EXPECT_EQ(texts(p->valueArray), a.values) << a.name;
    }
    const PropertyReference* r = named(rec->propertyReferences, "PReference");
    ASSERT_TRUE(r && r->valueReference && r->valueReference->localInstancePath);
    // The repository's key order.
    EXPECT_EQ(keysText(r->valueReference->localInstancePath->instanceName->keyBindings),
              "Name=mock-server.example.com(string),CreationClassName=Mock_ComputerSystem(string)");
    Free_Instance(rec);
}

TEST_F(InstanceMapping, ClassGivesTheListsOfAnInstanceWithItsValues) {
    CIMCClient* cl = client();
    CIMCStatus st{0, nullptr};
    CIMCClass* cls = cl->ft->getClass(cl, path(kNs, "Mock_Settings"), 0, nullptr, &st);
    ASSERT_NE(cls, nullptr) << st.rc;
    Class* rec = cimxml::newRecord<Class>();
    ASSERT_EQ(mapGetClass(cls, rec), 0);
    EXPECT_STREQ(rec->name, "Mock_Settings");
    EXPECT_EQ(rec->methods, nullptr);
    EXPECT_EQ(rec->qualifiers, nullptr);
    EXPECT_EQ(rec->superClass, nullptr);
    // No defaults: the null scalars are left out, the array stays, empty.
    EXPECT_EQ(rec->properties, nullptr);
    ASSERT_EQ(count(rec->propertyArrays), 1);
    EXPECT_STREQ(rec->propertyArrays->name, "Tags");
    EXPECT_EQ(rec->propertyArrays->valueArray->value, nullptr);

    // An instance with the same (null) values maps to the same lists.
    CIMCInstance* inst = instance(path(kNs, "Mock_Settings"));
    setNull(inst, "Mode", CIMC_string);
    setNull(inst, "Level", CIMC_uint32);
    setNull(inst, "Tags", CIMC_string | CIMC_ARRAY);
    Instance* irec = cimxml::newRecord<Instance>();
    ASSERT_EQ(mapGetInstance(irec, inst), 0);
    EXPECT_EQ(irec->properties, nullptr);
    ASSERT_EQ(count(irec->propertyArrays), 1);
    EXPECT_STREQ(irec->propertyArrays->type, rec->propertyArrays->type);
    Free_Instance(irec);
    Free_Class(rec);
}

TEST_F(InstanceMapping, MissingPathsAndNamesAreNotErrors) {
    // An instance whose class the repository does not know still maps; the
    // path has no keys, so the instance name has none either.
    CIMCInstance* inst = instance(path(kNs, "No_Such_Class"));
    set(inst, "X", u32(1), CIMC_uint32);
    NamedInstance* ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(inst, ni), 0);
    EXPECT_EQ(valueOf(named(ni->instance->properties, "X")), "1");
    EXPECT_STREQ(ni->instanceName->className->name, "No_Such_Class");
    EXPECT_EQ(ni->instanceName->keyBindings, nullptr);
    Free_NamedInstance(ni);

    Property* props = reinterpret_cast<Property*>(&props);
    PropertyArray* arrays = nullptr;
    PropertyReference* refs = nullptr;
    EXPECT_EQ(GetInstanceProperties(nullptr, nullptr, &props, &arrays, &refs), 0);
    EXPECT_EQ(props, nullptr);
    EXPECT_EQ(GetInstanceProperties(inst, nullptr, nullptr, &arrays, &refs), -1);
    EXPECT_EQ(mapInstance(nullptr, ni), -1);
    EXPECT_EQ(mapGetClass(nullptr, nullptr), -1);
}

// Fails the Nth allocation until the mapping gets through: every step
// reports -1 and leaks nothing (the sanitizer build checks the latter).
// Without the reference: AddToPropertyReferenceList may keep or free the
// bindings on one of its failures, and cannot say which.
TEST_F(InstanceMapping, AllocationFailuresReportFailure) {
    CIMCInstance* inst = processor(false);
    int failures = 0;
    for (long n = 0;; ++n) {
        NamedInstance* ni = cimxml::newRecord<NamedInstance>();
        cimxml::g_allocFailCountdown = n;
        int rc = mapInstance(inst, ni);
        cimxml::g_allocFailCountdown = -1;
        Free_NamedInstance(ni);
        if (rc == 0) break;
        EXPECT_EQ(rc, -1);
        ++failures;
        ASSERT_LT(n, 500);
    }
    EXPECT_GT(failures, 30);
}

}  // namespace
