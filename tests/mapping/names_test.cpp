// Names, paths, association results and request keys against the mock broker.
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

TEST_F(Names, KeysWithTypeNamesAndReferences) {
    CIMCObjectPath* op = path(kNs, "X", {{"S", "text"}});
    addKey(op, "U", u32(42), CIMC_uint32);
    addKey(op, "B", boolean(false), CIMC_boolean);
    addKey(op, "R", ref(system()), CIMC_ref);
    InstanceName* name = nullptr;
    ASSERT_EQ(GetKeysFromObjectPath(op, &name), 0);
    ASSERT_EQ(GetKeysFromObjectPath(nullptr, &name), 0);
    ASSERT_EQ(count(name), 1);
    EXPECT_STREQ(name->className->name, "X");
    EXPECT_EQ(keysText(name->keyBindings), "S=text(string),U=42(uint32),B=FALSE(boolean),R->ref");
    EXPECT_STREQ(named(name->keyBindings, "U")->keyValue->cimType, "uint32");
    const InstancePath* ip = named(name->keyBindings, "R")->valueReference->instancePath;
    ASSERT_TRUE(ip && ip->namespacePath);
    EXPECT_STREQ(ip->namespacePath->host, "localhost");
    EXPECT_EQ(namespaces(ip->namespacePath), (Strings{"root", "cimv2"}));
    EXPECT_EQ(keysText(ip->instanceName->keyBindings),
              "CreationClassName=Mock_ComputerSystem(string),Name=mock-server.example.com(string)");

    // Back into a broker path, keys and nested path alike.
    CIMCObjectPath* again = path(kNs, "X");
    ASSERT_EQ(CIMC_AddKeyValues(again, name, env_), 0);
    InstanceName* twice = nullptr;
    ASSERT_EQ(GetKeysFromObjectPath(again, &twice), 0);
    EXPECT_EQ(keysText(twice->keyBindings), keysText(name->keyBindings));
    EXPECT_EQ(keysText(named(twice->keyBindings, "R")->valueReference->instancePath->instanceName->keyBindings),
              keysText(ip->instanceName->keyBindings));
    Free_InstanceName(twice);
    Free_InstanceName(name);
}

TEST_F(Names, AssociationResultsUseTheTwoPartNamespace) {
    const struct { const char* ns; Strings want; } cases[] = {
        {"root/cimv2", {"root", "cimv2"}},       {"root/interop", {"root", "interop"}},
        {"vendor/cimv2/sub", {"root", "cimv2/sub"}}, {"interop/cimv2", {"root", "interop/cimv2"}},
        {"root/PG_InterOp", {"root", ""}},       {"", {"root", ""}}};
    for (const auto& c : cases) {
        CIMCObjectPath* op = path(c.ns, "X", {{"Id", "1"}});
        ObjectPath* names = cimxml::newRecord<ObjectPath>();
        ObjectWithPath* objects = nullptr;
        ASSERT_EQ(mapReferenceNames(op, names), 0);
        ASSERT_EQ(AddToAssociatorList(&objects, instance(op)), 0);
        EXPECT_EQ(namespaces(names->instancePath->namespacePath), c.want) << c.ns;
        EXPECT_EQ(namespaces(objects->instancePath->namespacePath), c.want) << c.ns;
        EXPECT_EQ(keysText(names->instancePath->instanceName->keyBindings), "Id=1(string)");
        EXPECT_STREQ(objects->instance->className->name, "X");
        Free_ObjectPath(names);
        Free_ObjectWithPath(objects);
    }
}

// Allocation failures on the way report -1 and leak nothing.
TEST_F(Names, AllocationFailuresReportFailure) {
    CIMCClient* cl = client();
    std::vector<CIMCData> refs = items(cl->ft->references(cl, system(), nullptr, nullptr, 0, nullptr, nullptr));
    ASSERT_FALSE(refs.empty());
    EXPECT_GT(failEachAllocation([&] {
                  ObjectWithPath* l = nullptr;
                  int rc = AddToAssociatorList(&l, refs[0].value.inst);
                  Free_ObjectWithPath(l);
                  return rc;
              }),
              30);
    std::vector<CIMCData> names = items(cl->ft->enumInstanceNames(cl, path(kNs, "CIM_SystemDevice"), nullptr));
    ASSERT_FALSE(names.empty());
    EXPECT_GT(failEachAllocation([&] {
                  InstanceName* l = nullptr;
                  int rc = AddToEnumInstanceNameList(&l, names[0].value.ref);  // reference keys
                  Free_InstanceName(l);
                  return rc;
              }),
              20);
}

uint64_t bits(const CIMCData& d) {
    switch (d.type) {
        case CIMC_boolean: case CIMC_uint8: return d.value.uint8;
        case CIMC_uint16: return d.value.uint16;
        case CIMC_uint32: return d.value.uint32;
        case CIMC_sint8: return static_cast<uint64_t>(int64_t{d.value.sint8});
        case CIMC_sint16: return static_cast<uint64_t>(int64_t{d.value.sint16});
        case CIMC_sint32: return static_cast<uint64_t>(int64_t{d.value.sint32});
        default: return d.value.uint64;
    }
}

TEST_F(Names, KeyBindingsBecomeTypedKeys) {
    const uint64_t kFails = 1;  // marks a binding CIMC_AddKeyValues refuses
    const struct { const char* value; const char* valueType; const char* cimType; CIMCType type; uint64_t bits; } cases[] = {
        {"42", "numeric", "uint8", CIMC_uint8, 42},
        {"300", "numeric", "uint8", CIMC_uint8, 255},  // saturated
        {"-1", "numeric", "uint16", CIMC_uint16, 0},
        {"-200", "numeric", "sint8", CIMC_sint8, static_cast<uint64_t>(-128)},
        {"3000000000", "Numeric", "sint32", CIMC_sint32, INT32_MAX},
        {"99999999999999999999999", "numeric", nullptr, CIMC_uint64, UINT64_MAX},
        {"-99999999999999999999999", "numeric", nullptr, CIMC_sint64, static_cast<uint64_t>(INT64_MIN)},
        {"7", "numeric", "string", CIMC_uint64, 7},  // a TYPE that is no number type is not used
        {"TRUE", "boolean", nullptr, CIMC_boolean, 1},
        {"false", "BOOLEAN", nullptr, CIMC_boolean, 0},
        {"12", "uint32", nullptr, CIMC_uint32, 12},  // as local results carry it
        {"12", "string", "uint32", CIMC_string, 0},
        {"abc", nullptr, nullptr, CIMC_string, 0},
        {"x", "char16", nullptr, CIMC_string, 0},
        {"1.5", "numeric", "real64", CIMC_real64, 0x3FF8000000000000ull},
        {"20240101000000.000000+000", "datetime", nullptr, CIMC_dateTime, 0},
        {"yes", "boolean", nullptr, 0, kFails},
        {"abc", "numeric", nullptr, 0, kFails},
        {nullptr, "string", nullptr, 0, kFails},  // a binding without a value
        {"not a date", "datetime", nullptr, 0, kFails}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.value ? c.value : "<null>") + " " + (c.valueType ? c.valueType : "<null>"));
        InstanceName name{};
        AddToKeyBindingListRef(&name.keyBindings, "K", c.value, c.valueType, nullptr);
        if (c.cimType) name.keyBindings->keyValue->cimType = cimxml::dupString(c.cimType);
        CIMCObjectPath* op = path(kNs, "X");
        int rc = CIMC_AddKeyValues(op, &name, env_);
        Free_KeyBinding(name.keyBindings);
        if (c.type == 0) {
            EXPECT_EQ(rc, -1);
            continue;
        }
        ASSERT_EQ(rc, 0);
        CIMCData d = op->ft->getKeyAt(op, 0, nullptr, nullptr);
        EXPECT_EQ(d.type, c.type);
        KeyBinding* back = nullptr;
        ASSERT_EQ(GetKeyBindingValues(op, &back), 0);
        if (c.type == CIMC_string || c.type == CIMC_dateTime) {
            EXPECT_STREQ(back->keyValue->value, c.value);
        } else {
            EXPECT_EQ(bits(d), c.bits);
        }
        Free_KeyBinding(back);
    }
    InstanceName empty{};
    EXPECT_EQ(CIMC_AddKeyValues(nullptr, &empty, env_), -1);
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), nullptr, env_), -1);
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
    Free_KeyBinding(holder.keyBindings);
}

}  // namespace
