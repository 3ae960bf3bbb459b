// Names, paths, association results and request keys against the mock broker.
#include <utility>

#include "broker.h"

namespace {

using namespace broker_test;

class Names : public Broker {
protected:
    CIMCObjectPath* system() {
        return path(kNs, "Mock_ComputerSystem",
                    {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
    }
};

// Keys of returned paths that are strings or references are compared with the
// HTTP back end's by the scenario suite; typed keys are not in its fixture.
TEST_F(Names, TypedKeysCarryTheirTypeName) {
    CIMCObjectPath* op = path(kNs, "X", {{"S", "text"}});
    addKey(op, "U", u32(42), CIMC_uint32);
    addKey(op, "B", boolean(false), CIMC_boolean);
    InstanceName* name = nullptr;
    ASSERT_EQ(GetKeysFromObjectPath(op, &name), 0);
    ASSERT_EQ(GetKeysFromObjectPath(nullptr, &name), 0);
    ASSERT_EQ(count(name), 1);
    EXPECT_EQ(keysText(name->keyBindings), "S=text(string),U=42(uint32),B=FALSE(boolean)");
    EXPECT_STREQ(named(name->keyBindings, "U")->keyValue->cimType, "uint32");
    Free_InstanceName(name);
}

TEST_F(Names, AssociationResultsUseTheTwoPartNamespace) {
    const struct { const char* ns; Strings want; } cases[] = {
        {"vendor/cimv2/sub", {"root", "cimv2/sub"}}, {"interop/cimv2", {"root", "interop/cimv2"}},
        {"root/PG_InterOp", {"root", ""}}, {"", {"root", ""}}};
    for (const auto& c : cases) {
        CIMCObjectPath* op = path(c.ns, "X", {{"Id", "1"}});
        ObjectPath* names = cimxml::newRecord<ObjectPath>();
        ObjectWithPath* objects = nullptr;
        ASSERT_EQ(mapReferenceNames(op, names), 0);
        ASSERT_EQ(AddToAssociatorList(&objects, instance(op)), 0);
        EXPECT_EQ(namespaces(names->instancePath->namespacePath), c.want) << c.ns;
        EXPECT_EQ(namespaces(objects->instancePath->namespacePath), c.want) << c.ns;
        Free_ObjectPath(names);
        Free_ObjectWithPath(objects);
    }
}

// Allocation failures on the way report -1 and leak nothing.
// A run that reports success gives the whole result.
TEST_F(Names, AllocationFailuresReportFailure) {
    CIMCClient* cl = client();
    std::vector<CIMCData> refs = items(cl->ft->references(cl, system(), nullptr, nullptr, 0, nullptr, nullptr));
    ASSERT_FALSE(refs.empty());
    auto shape = [](const ObjectWithPath* o) {
        return keysText(o->instancePath->instanceName->keyBindings) + " " + std::to_string(count(o->instance->properties)) +
               "/" + std::to_string(count(o->instance->propertyReferences));
    };
    ObjectWithPath* full = nullptr;
    ASSERT_EQ(AddToAssociatorList(&full, refs[0].value.inst), 0);
    EXPECT_GT(failEachAllocation([&] {
                  ObjectWithPath* l = nullptr;
                  int rc = AddToAssociatorList(&l, refs[0].value.inst);
                  EXPECT_EQ(rc ? shape(full) : shape(l), shape(full));
                  Free_ObjectWithPath(l);
                  return rc;
              }),
              30);
    Free_ObjectWithPath(full);
    std::vector<CIMCData> names = items(cl->ft->enumInstanceNames(cl, path(kNs, "CIM_SystemDevice"), nullptr));
    ASSERT_FALSE(names.empty());
    InstanceName* whole = nullptr;
    ASSERT_EQ(AddToEnumInstanceNameList(&whole, names[0].value.ref), 0);
    const std::string keys = keysText(whole->keyBindings);
    Free_InstanceName(whole);
    EXPECT_NE(keys.find("PartComponent->(SystemCreationClassName="), std::string::npos) << keys;
    EXPECT_GT(failEachAllocation([&] {
                  InstanceName* l = nullptr;
                  int rc = AddToEnumInstanceNameList(&l, names[0].value.ref);  // reference keys
                  EXPECT_EQ(rc ? keys : keysText(l->keyBindings), keys);
                  Free_InstanceName(l);
                  return rc;
              }),
              20);
}

// Each binding into a broker key and back: "K=text(type name)", nullptr when
// CIMC_AddKeyValues refuses it.
TEST_F(Names, KeyBindingsBecomeTypedKeys) {
    InstanceName empty{};
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), nullptr, env_), -1);
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), &empty, env_), 0);
    InstanceName dated{};
    AddToKeyBindingListRef(&dated.keyBindings, "K", "20240101000000.000000+000", "datetime", nullptr);
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), &dated, nullptr), -1);  // no environment to make the datetime
    Free_KeyBinding(dated.keyBindings);
    const struct { const char* value; const char* valueType; const char* cimType; const char* back; } cases[] = {
        {"42", "numeric", "uint8", "K=42(uint8)"},
        {"300", "numeric", "uint8", "K=255(uint8)"},  // saturated
        {" \t-1", "numeric", "uint16", "K=0(uint16)"},
        {"70000", "numeric", "uint16", "K=65535(uint16)"},
        {"5000000000", "numeric", "uint32", "K=4294967295(uint32)"},
        {"-200", "numeric", "sint8", "K=-128(sint8)"},
        {" \t-7", "numeric", nullptr, "K=-7(sint64)"},  // the sign after blanks
        {"3000000000", "Numeric", "sint32", "K=2147483647(sint32)"},
        {"99999999999999999999999", "numeric", nullptr, "K=18446744073709551615(uint64)"},
        {"-99999999999999999999999", "numeric", nullptr, "K=-9223372036854775808(sint64)"},
        {"7", "numeric", "string", "K=7(uint64)"},  // a TYPE that is no number type is not used
        {"TRUE", "boolean", nullptr, "K=TRUE(boolean)"},
        {"false", "BOOLEAN", nullptr, "K=FALSE(boolean)"},
        {"12", "uint32", nullptr, "K=12(uint32)"},  // as local results carry it
        {"12", "string", "uint32", "K=12(string)"},
        {"abc", nullptr, nullptr, "K=abc(string)"},
        {"x", "char16", nullptr, "K=x(string)"},
        {"1.5", "numeric", "real64", "K=1.5()"},
        {"20240101000000.000000+000", "datetime", nullptr, "K=20240101000000.000000+000(datetime)"},
        {"yes", "boolean", nullptr, nullptr},
        {"abc", "numeric", nullptr, nullptr},
        {"-", "numeric", nullptr, nullptr},  // signed, and no number either
        {nullptr, "string", nullptr, nullptr},  // a binding without a value
        {"not a date", "datetime", nullptr, nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.value ? c.value : "<null>") + " " + (c.valueType ? c.valueType : "<null>"));
        InstanceName name{};
        AddToKeyBindingListRef(&name.keyBindings, "K", c.value, c.valueType, nullptr);
        if (c.cimType) name.keyBindings->keyValue->cimType = cimxml::dupString(c.cimType);
        if (!c.valueType) std::free(std::exchange(name.keyBindings->keyValue->valueType, nullptr));  // a string
        CIMCObjectPath* op = path(kNs, "X");
        int rc = CIMC_AddKeyValues(op, &name, env_);
        Free_KeyBinding(name.keyBindings);
        ASSERT_EQ(rc, c.back ? 0 : -1);
        KeyBinding* back = nullptr;
        ASSERT_EQ(GetKeyBindingValues(op, &back), 0);
        EXPECT_EQ(keysText(back), c.back ? c.back : "");
        Free_KeyBinding(back);
    }
}

// Broker objects without a function table, and missing outputs, one guard at
// a time: each mapping refuses (-1) or maps nothing (0), and never crashes.
TEST(Guards, BareObjectsAndMissingOutputs) {
    CIMCObjectPath op{nullptr, nullptr};
    CIMCInstance inst{nullptr, nullptr};
    CIMCClass cls{nullptr, nullptr};
    CIMCArgs args{nullptr, nullptr};
    CIMCArray arr{nullptr, nullptr};
    CIMCInstanceFT pathlessFt{};  // no path: a record without class
    pathlessFt.getPropertyCount = [](const CIMCInstance*, CIMCStatus*) { return CIMCCount{0}; };
    CIMCInstance pathless{nullptr, &pathlessFt};
    InstanceName name{};
    NamedInstance ni{};
    Instance i{};
    Class c{};
    ObjectWithPath owp{};
    ObjectPath p{};
    ObjectWithPath* owps = nullptr;
    KeyBinding* keys = nullptr;
    InstanceName* names = nullptr;
    Value* values = nullptr;
    ParamValue* params = nullptr;
    Property* props = nullptr;
    PropertyArray* arrays = nullptr;
    PropertyReference* refs = nullptr;
    const int got[][2] = {
        {CIMC_AddKeyValues(&op, &name, nullptr), -1}, {CIMC_AddKeyValues(nullptr, &name, nullptr), -1},
        {GetKeyBindingValues(&op, &keys), 0}, {GetKeyBindingValues(&op, nullptr), -1},
        {GetKeysFromObjectPath(&op, &names), 0}, {GetKeysFromObjectPath(&op, nullptr), -1},
        {mapEnumInstanceNames(&op, &name), 0}, {mapEnumInstanceNames(&op, nullptr), -1},
        {AddToEnumInstanceNameList(nullptr, &op), -1}, {AddToEnumInstanceNameList(&names, nullptr), 0},
        {mapInstance(&inst, &ni), -1}, {mapGetInstance(&i, &inst), -1}, {mapGetInstance(nullptr, &inst), -1},
        {mapGetInstance(&i, &pathless), 0},
        {mapGetClass(&cls, &c), -1}, {mapGetClass(&cls, nullptr), -1},
        {mapAssociators(&inst, &owp), -1}, {mapAssociators(&inst, nullptr), -1},
        {AddToAssociatorList(nullptr, &inst), -1}, {AddToAssociatorList(&owps, nullptr), -1},
        {mapAssociatorNames(&op, &p), 0}, {mapAssociatorNames(&op, nullptr), -1},
        {GetInstanceProperties(&inst, nullptr, &props, &arrays, &refs), 0},
        {GetInstanceProperties(nullptr, nullptr, nullptr, &arrays, &refs), -1},
        {GetInstanceProperties(nullptr, nullptr, &props, nullptr, &refs), -1},
        {GetInstanceProperties(nullptr, nullptr, &props, &arrays, nullptr), -1},
        {mapInvokeReturnValue("X", nullptr, nullptr), -1}, {CIMC_Handle_Invoke_ReturnValues(nullptr, &args, &params), 0},
        {getPropertyArrayData(&values, 8320, nullptr, nullptr, &arr), 0},
        {getPropertyArrayData(nullptr, 8320, nullptr, nullptr, &arr), 0}};
    for (const auto& g : got) EXPECT_EQ(g[0], g[1]) << &g - got;
    EXPECT_TRUE(!keys && !names && !values && !params && !props && !arrays && !refs && !p.instancePath && !name.keyBindings && !owps && !i.className);
}

TEST_F(Names, ReferenceKeysInEachFormBecomeNestedPaths) {
    // instancePath, localInstancePath, and a bare instanceName that lives
    // beside its holder.
    for (int form = 0; form < 3; ++form) {
        ObjectPath* p = cimxml::newRecord<ObjectPath>();
        ASSERT_EQ(mapAssociatorNames(path("root/interop", "Mock_ComputerSystem", {{"Name", "sys1"}}), p), 0);
        ValueReference* vr = cimxml::newRecord<ValueReference>();
        InstancePath* ip = p->instancePath;
        if (form == 0) {
            std::swap(vr->instancePath, p->instancePath);
        } else if (form == 1) {
            vr->localInstancePath = cimxml::newRecord<LocalInstancePath>();
            std::swap(vr->localInstancePath->localNamespacePath, ip->namespacePath->localNamespacePath);
            std::swap(vr->localInstancePath->instanceName, ip->instanceName);
        } else {
            std::swap(vr->instanceName, ip->instanceName);
        }
        Free_ObjectPath(p);
        InstanceName holder{};
        AddToKeyBindingListRef(&holder.keyBindings, "Antecedent", nullptr, nullptr, nullptr);
        holder.keyBindings->valueReference = vr;
        CIMCObjectPath* op = path("root/outer", "Assoc");
        ASSERT_EQ(CIMC_AddKeyValues(op, &holder, env_), 0) << form;
        Free_KeyBinding(holder.keyBindings);
        CIMCObjectPath* nested = op->ft->getKeyAt(op, 0, nullptr, nullptr).value.ref;
        ASSERT_NE(nested, nullptr);
        EXPECT_STREQ(static_cast<char*>(nested->ft->getNameSpace(nested, nullptr)->hdl),
                     form < 2 ? "root/interop" : "root/outer");
        KeyBinding* keys = nullptr;
        ASSERT_EQ(GetKeyBindingValues(nested, &keys), 0);
        EXPECT_EQ(keysText(keys), "Name=sys1(string)");
        Free_KeyBinding(keys);
    }
    InstanceName holder{};  // a reference without a class cannot be made
    AddToKeyBindingListRef(&holder.keyBindings, "Antecedent", nullptr, nullptr, nullptr);
    holder.keyBindings->valueReference = cimxml::newRecord<ValueReference>();
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "Assoc"), &holder, env_), -1);
    holder.keyBindings->valueReference->className = opt::className("A");
    CIMCEnv bareEnv{nullptr, nullptr};
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "Assoc"), &holder, nullptr), -1);  // no environment to make it
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "Assoc"), &holder, &bareEnv), -1);
    Free_KeyBinding(holder.keyBindings);
}

}  // namespace
