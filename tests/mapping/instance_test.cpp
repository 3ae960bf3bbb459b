// Instance and class mapping against objects of the mock broker.
#include "broker.h"

namespace {

using namespace broker_test;

class InstanceMapping : public Broker {
protected:
    // A Mock_Processor with its four keys, a null uint32, a boolean, a string
    // reading "true", a null array, a string array and a reference to the
    // computer system (two keys).
    CIMCInstance* processor() {
        CIMCInstance* inst = instance(path(kNs, "Mock_Processor",
                                           {{"SystemCreationClassName", "Mock_ComputerSystem"},
                                            {"SystemName", "mock-server.example.com"},
                                            {"CreationClassName", "Mock_Processor"}, {"DeviceID", "CPU7"}}));
        setNull(inst, "MaxClockSpeed", CIMC_uint32);
        set(inst, "Enabled", boolean(true), CIMC_boolean);
        set(inst, "ElementName", str("true"), CIMC_string);
        setNull(inst, "Codes", CIMC_uint16 | CIMC_ARRAY);
        set(inst, "Tags", array(CIMC_string, {str("a"), str("b")}), CIMC_string | CIMC_ARRAY);
        set(inst, "Owner",
            ref(path(kNs, "Mock_ComputerSystem", {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "host"}})),
            CIMC_ref);
        return inst;
    }
};

TEST_F(InstanceMapping, ListsFollowTheValueKinds) {
    NamedInstance* ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(processor(), ni), 0);
    const Instance* inst = ni->instance;
    ASSERT_TRUE(inst && ni->instanceName && inst->className && ni->instanceName->className);
    EXPECT_NE(inst->className, ni->instanceName->className);  // two separate records
    EXPECT_STREQ(inst->className->name, "Mock_Processor");
    EXPECT_STREQ(ni->instanceName->className->name, "Mock_Processor");
    EXPECT_EQ(keysText(ni->instanceName->keyBindings),
              "SystemCreationClassName=Mock_ComputerSystem(string),SystemName=mock-server.example.com(string),"
              "CreationClassName=Mock_Processor(string),DeviceID=CPU7(string)");

    EXPECT_EQ(named(inst->properties, "MaxClockSpeed"), nullptr);  // null scalar: no Property
    EXPECT_EQ(valueOf(named(inst->properties, "Enabled")), "TRUE");
    EXPECT_EQ(valueOf(named(inst->properties, "ElementName")), "TRUE");  // upper-cased like a boolean
    EXPECT_STREQ(named(inst->properties, "ElementName")->type, "string");
    EXPECT_EQ(count(inst->properties), 6);
    const PropertyArray* codes = named(inst->propertyArrays, "Codes");
    ASSERT_TRUE(codes && codes->valueArray);  // null array: an empty ValueArray
    EXPECT_EQ(codes->valueArray->value, nullptr);
    EXPECT_STREQ(codes->type, "uint16");
    EXPECT_EQ(texts(named(inst->propertyArrays, "Tags")->valueArray), (Strings{"a", "b"}));

    ASSERT_EQ(count(inst->propertyReferences), 1);
    const PropertyReference* r = inst->propertyReferences;
    EXPECT_STREQ(r->name, "Owner");
    EXPECT_STREQ(r->referenceClass, "Mock_ComputerSystem");
    ASSERT_TRUE(r->valueReference && r->valueReference->localInstancePath);
    const LocalInstancePath* lip = r->valueReference->localInstancePath;
    EXPECT_EQ(count(lip->localNamespacePath->namespaces), 1);
    EXPECT_STREQ(lip->localNamespacePath->namespaces->name, "root/cimv2");
    EXPECT_STREQ(lip->instanceName->className->name, "Mock_ComputerSystem");
    EXPECT_EQ(keysText(lip->instanceName->keyBindings),
              "CreationClassName=Mock_ComputerSystem(string),Name=host(string)");
    Free_NamedInstance(ni);
}

TEST_F(InstanceMapping, ClassGivesTheListsOfAnInstanceWithItsValues) {
    CIMCClient* cl = client();
    CIMCClass* cls = cl->ft->getClass(cl, path(kNs, "Mock_Settings"), 0, nullptr, nullptr);
    CIMCInstance* inst = instance(path(kNs, "Mock_Settings"));
    setNull(inst, "Mode", CIMC_string);
    setNull(inst, "Level", CIMC_uint32);
    setNull(inst, "Tags", CIMC_string | CIMC_ARRAY);
    Class* c = cimxml::newRecord<Class>();
    Instance* i = cimxml::newRecord<Instance>();
    ASSERT_EQ(mapGetClass(cls, c), 0);
    ASSERT_EQ(mapGetInstance(i, inst), 0);
    EXPECT_STREQ(c->name, "Mock_Settings");
    EXPECT_TRUE(!c->methods && !c->qualifiers && !c->superClass && !c->properties && !i->properties);
    ASSERT_TRUE(c->propertyArrays && i->propertyArrays);
    EXPECT_STREQ(c->propertyArrays->name, i->propertyArrays->name);
    EXPECT_STREQ(c->propertyArrays->type, i->propertyArrays->type);
    EXPECT_EQ(texts(c->propertyArrays->valueArray), texts(i->propertyArrays->valueArray));
    Free_Class(c);
    Free_Instance(i);

    // An unknown class still maps; its path has no keys.
    NamedInstance* ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(instance(path(kNs, "No_Such_Class")), ni), 0);
    EXPECT_STREQ(ni->instanceName->className->name, "No_Such_Class");
    EXPECT_EQ(ni->instanceName->keyBindings, nullptr);
    Free_NamedInstance(ni);
    EXPECT_EQ(mapInstance(nullptr, ni), -1);
}

TEST_F(InstanceMapping, AllocationFailuresReportFailure) {
    CIMCInstance* inst = processor();
    EXPECT_GT(failEachAllocation([&] {
                  NamedInstance* ni = cimxml::newRecord<NamedInstance>();
                  int rc = ni ? mapInstance(inst, ni) : -1;
                  Free_NamedInstance(ni);
                  return rc;
              }),
              30);
}

}  // namespace
