// Instance and class mapping against objects of the mock broker: what the
// comparison of the two back ends cannot see (the class a reference property
// names, classes, unknown classes, guards, allocation failures).
#include "broker.h"

namespace {

using namespace broker_test;

class InstanceMapping : public Broker {
protected:
    // Keys, a string array and a reference to the computer system.
    CIMCInstance* processor() {
        CIMCInstance* inst = instance(path(kNs, "Mock_Processor",
                                           {{"SystemCreationClassName", "Mock_ComputerSystem"}, {"SystemName", "sys"},
                                            {"CreationClassName", "Mock_Processor"}, {"DeviceID", "CPU7"}}));
        set(inst, "Tags", array(CIMC_string, {str("a"), str("b")}), CIMC_string | CIMC_ARRAY);
        set(inst, "Owner", ref(path(kNs, "Mock_ComputerSystem", {{"Name", "host"}})), CIMC_ref);
        return inst;
    }
};

TEST_F(InstanceMapping, ReferencesNameTheReferencedClassAndPath) {
    NamedInstance* ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(processor(), ni), 0);
    EXPECT_NE(ni->instance->className, ni->instanceName->className);  // two separate records
    EXPECT_EQ(keysText(ni->instanceName->keyBindings), "SystemCreationClassName=Mock_ComputerSystem(string),"
                                                       "SystemName=sys(string),CreationClassName=Mock_Processor(string),"
                                                       "DeviceID=CPU7(string)");
    ASSERT_EQ(count(ni->instance->propertyReferences), 1);
    const PropertyReference* r = ni->instance->propertyReferences;
    EXPECT_STREQ(r->referenceClass, "Mock_ComputerSystem");
    const LocalInstancePath* lip = r->valueReference->localInstancePath;
    EXPECT_STREQ(lip->localNamespacePath->namespaces->name, "root/cimv2");
    EXPECT_EQ(keysText(lip->instanceName->keyBindings), "Name=host(string)");
    Free_NamedInstance(ni);

    // An unknown class still maps; its path has no keys.
    ni = cimxml::newRecord<NamedInstance>();
    ASSERT_EQ(mapInstance(instance(path(kNs, "No_Such_Class")), ni), 0);
    EXPECT_STREQ(ni->instanceName->className->name, "No_Such_Class");
    EXPECT_EQ(ni->instanceName->keyBindings, nullptr);
    EXPECT_EQ(mapInstance(nullptr, ni), -1);
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
    ASSERT_TRUE(c->propertyArrays && i->propertyArrays && i->propertyArrays->valueArray);  // null array: empty list
    EXPECT_STREQ(c->propertyArrays->name, i->propertyArrays->name);
    EXPECT_STREQ(c->propertyArrays->type, "string");
    EXPECT_EQ(texts(c->propertyArrays->valueArray), texts(i->propertyArrays->valueArray));
    Free_Class(c);
    Free_Instance(i);
}

TEST_F(InstanceMapping, AllocationFailuresReportFailure) {
    CIMCInstance* inst = processor();
    EXPECT_GT(failEachAllocation([&] {
                  NamedInstance* ni = cimxml::newRecord<NamedInstance>();
                  int rc = ni ? mapInstance(inst, ni) : -1;
                  const Instance* i = rc ? nullptr : ni->instance;  // success only with the whole record
                  EXPECT_TRUE(rc || (count(ni->instanceName->keyBindings) == 4 && i->propertyArrays &&
                                     i->propertyReferences && i->propertyReferences->valueReference));
                  Free_NamedInstance(ni);
                  return rc;
              }),
              20);
}

}  // namespace
