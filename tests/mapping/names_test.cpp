// Names, paths, association results and request keys against the mock
// broker.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "broker.h"
#include "model/alloc.h"

namespace {

using namespace broker_test;
using Strings = std::vector<std::string>;

const char* const kNs = "root/cimv2";

class Names : public Broker {
protected:
    CIMCObjectPath* system() {
        return path(kNs, "Mock_ComputerSystem",
                    {{"CreationClassName", "Mock_ComputerSystem"}, {"Name", "mock-server.example.com"}});
    }
    // The items of an enumeration, each a broker value.
    std::vector<CIMCData> items(CIMCEnumeration* en) {
        std::vector<CIMCData> out;
        while (en && en->ft->hasNext(en, nullptr)) out.push_back(en->ft->getNext(en, nullptr));
        return out;
    }
};

TEST_F(Names, KeysKeepTheirTypeNames) {
    CIMCObjectPath* op = path(kNs, "X");
    addKey(op, "S", str("text"), CIMC_string);
    addKey(op, "U", u32(42), CIMC_uint32);
    addKey(op, "B", boolean(false), CIMC_boolean);
    addKey(op, "D", dateTime("20240101000000.000000+000"), CIMC_dateTime);
    KeyBinding* keys = nullptr;
    ASSERT_EQ(GetKeyBindingValues(op, &keys), 0);
    EXPECT_EQ(keysText(keys), "S=text(string),U=42(uint32),B=FALSE(boolean),D=20240101000000.000000+000(datetime)");
    EXPECT_STREQ(named(keys, "U")->keyValue->cimType, "uint32");
    Free_KeyBinding(keys);

    keys = nullptr;
    EXPECT_EQ(GetKeyBindingValues(nullptr, &keys), 0);
    EXPECT_EQ(keys, nullptr);
    EXPECT_EQ(GetKeyBindingValues(op, nullptr), -1);
}

TEST_F(Names, ReferenceKeysCarryAnInstancePath) {
    CIMCClient* cl = client();
    CIMCStatus st{0, nullptr};
    std::vector<CIMCData> names = items(cl->ft->enumInstanceNames(cl, path(kNs, "CIM_SystemDevice"), &st));
    ASSERT_EQ(names.size(), 6u);
    InstanceName* list = nullptr;
    for (const CIMCData& d : names) ASSERT_EQ(AddToEnumInstanceNameList(&list, d.value.ref), 0);
    ASSERT_EQ(count(list), 6);
    EXPECT_STREQ(list->className->name, "CIM_SystemDevice");
    const KeyBinding* group = named(list->keyBindings, "GroupComponent");
    ASSERT_TRUE(group && group->valueReference && group->valueReference->instancePath);
    EXPECT_EQ(group->keyValue, nullptr);
    const InstancePath* ip = group->valueReference->instancePath;
    ASSERT_NE(ip->namespacePath, nullptr);
    EXPECT_STREQ(ip->namespacePath->host, "localhost");
    EXPECT_EQ(namespaces(ip->namespacePath->localNamespacePath), (Strings{"root", "cimv2"}));
    EXPECT_STREQ(ip->instanceName->className->name, "Mock_ComputerSystem");
    EXPECT_EQ(keysText(ip->instanceName->keyBindings),
              "Name=mock-server.example.com(string),CreationClassName=Mock_ComputerSystem(string)");

    // Those names go back into broker paths that find the instances.
    for (const InstanceName* n = list; n; n = n->next) {
        CIMCObjectPath* op = path(kNs, n->className->name);
        ASSERT_EQ(CIMC_AddKeyValues(op, const_cast<InstanceName*>(n), env_), 0);
        CIMCInstance* inst = cl->ft->getInstance(cl, op, 0, nullptr, &st);
        EXPECT_NE(inst, nullptr) << st.rc;
    }
    Free_InstanceName(list);
}

TEST_F(Names, AssociationResultsUseTheTwoPartNamespace) {
    const struct {
        const char* ns;
        Strings want;
    } cases[] = {
        {"root/cimv2", {"root", "cimv2"}},
        {"root/interop", {"root", "interop"}},
        {"vendor/cimv2/sub", {"root", "cimv2/sub"}},
        {"interop/cimv2", {"root", "interop/cimv2"}},  // "interop" wins wherever it is
        {"root/PG_InterOp", {"root", ""}},              // case counts
        {"", {"root", ""}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ns);
        CIMCObjectPath* op = path(c.ns, "X", {{"Id", "1"}});
        ObjectPath* names = cimxml::newRecord<ObjectPath>();
        ASSERT_EQ(mapAssociatorNames(op, names), 0);
        ASSERT_TRUE(names->instancePath && names->instancePath->namespacePath);
        EXPECT_STREQ(names->instancePath->namespacePath->host, "localhost");
        EXPECT_EQ(namespaces(names->instancePath->namespacePath->localNamespacePath), c.want);
        EXPECT_EQ(keysText(names->instancePath->instanceName->keyBindings), "Id=1(string)");
        Free_ObjectPath(names);

        ObjectWithPath* owp = nullptr;
        ASSERT_EQ(AddToAssociatorList(&owp, instance(op)), 0);
        ASSERT_TRUE(owp->instancePath && owp->instance);
        EXPECT_EQ(namespaces(owp->instancePath->namespacePath->localNamespacePath), c.want);
        EXPECT_STREQ(owp->instance->className->name, "X");
        Free_ObjectWithPath(owp);
    }
}

TEST_F(Names, AssociatorsAndReferencesOfTheSampleSystem) {
    CIMCClient* cl = client();
    CIMCStatus st{0, nullptr};
    std::vector<CIMCData> found = items(
        cl->ft->associators(cl, system(), "CIM_SystemDevice", nullptr, "GroupComponent", "PartComponent", 0, nullptr, &st));
    ObjectWithPath* list = nullptr;
    for (const CIMCData& d : found) ASSERT_EQ(AddToAssociatorList(&list, d.value.inst), 0);
    ASSERT_EQ(count(list), 6);
    std::set<std::string> ids;
    for (const ObjectWithPath* o = list; o; o = o->next) {
        EXPECT_EQ(namespaces(o->instancePath->namespacePath->localNamespacePath), (Strings{"root", "cimv2"}));
        const KeyBinding* id = named(o->instancePath->instanceName->keyBindings, "DeviceID");
        ASSERT_TRUE(id && id->keyValue);
        ids.insert(id->keyValue->value);
        EXPECT_EQ(valueOf(named(o->instance->properties, "DeviceID")), id->keyValue->value);
    }
    EXPECT_EQ(ids, (std::set<std::string>{"CPU0", "CPU1", "disk0", "disk1", "eth0", "eth1"}));
    Free_ObjectWithPath(list);

    found = items(cl->ft->references(cl, system(), "CIM_SystemDevice", nullptr, 0, nullptr, &st));
    ASSERT_EQ(found.size(), 6u);
    ObjectWithPath* ref = cimxml::newRecord<ObjectWithPath>();
    ASSERT_EQ(mapReferences(found[0].value.inst, ref), 0);
    EXPECT_STREQ(ref->instance->className->name, "CIM_SystemDevice");
    EXPECT_EQ(count(ref->instance->propertyReferences), 2);
    EXPECT_EQ(count(ref->instancePath->instanceName->keyBindings), 2);
    Free_ObjectWithPath(ref);

    found = items(cl->ft->referenceNames(cl, system(), nullptr, nullptr, &st));
    ASSERT_FALSE(found.empty());
    ObjectPath* refName = cimxml::newRecord<ObjectPath>();
    ASSERT_EQ(mapReferenceNames(found[0].value.ref, refName), 0);
    ASSERT_NE(refName->instancePath, nullptr);
    EXPECT_EQ(refName->classPath, nullptr);
    Free_ObjectPath(refName);
}

TEST_F(Names, CreatedPathBecomesAnInstanceName) {
    InstanceName* name = cimxml::newRecord<InstanceName>();
    ASSERT_EQ(mapCreateinstance(path(kNs, "Mock_Processor", {{"DeviceID", "CPU9"}}), name), 0);
    EXPECT_STREQ(name->className->name, "Mock_Processor");
    EXPECT_EQ(keysText(name->keyBindings), "DeviceID=CPU9(string)");
    EXPECT_EQ(name->next, nullptr);
    Free_InstanceName(name);

    InstanceName* chain = nullptr;
    ASSERT_EQ(GetKeysFromObjectPath(system(), &chain), 0);
    ASSERT_EQ(GetKeysFromObjectPath(path(kNs, "Y"), &chain), 0);
    ASSERT_EQ(GetKeysFromObjectPath(nullptr, &chain), 0);
    ASSERT_EQ(count(chain), 2);
    EXPECT_EQ(count(chain->keyBindings), 2);
    EXPECT_STREQ(chain->next->className->name, "Y");
    Free_InstanceName(chain);
}

// ---- request keys ------------------------------------------------------------

struct KeyCase {
    const char* value;
    const char* valueType;
    const char* cimType;
    CIMCType wantType;
    uint64_t wantBits;  // the value member read as the wanted type
};

uint64_t bits(const CIMCData& d) {
    switch (d.type) {
        case CIMC_boolean: return d.value.boolean;
        case CIMC_uint8: return d.value.uint8;
        case CIMC_uint16: return d.value.uint16;
        case CIMC_uint32: return d.value.uint32;
        case CIMC_sint8: return static_cast<uint64_t>(static_cast<int64_t>(d.value.sint8));
        case CIMC_sint16: return static_cast<uint64_t>(static_cast<int64_t>(d.value.sint16));
        case CIMC_sint32: return static_cast<uint64_t>(static_cast<int64_t>(d.value.sint32));
        default: return d.value.uint64;
    }
}

KeyBinding* binding(const char* name, const char* value, const char* valueType, const char* cimType) {
    KeyBinding* kb = nullptr;
    EXPECT_EQ(AddToKeyBindingListRef(&kb, name, value, valueType, nullptr), 0);
    if (cimType) kb->keyValue->cimType = cimxml::dupString(cimType);
    return kb;
}

TEST_F(Names, KeyBindingsBecomeTypedKeys) {
    const KeyCase cases[] = {
        {"42", "numeric", "uint8", CIMC_uint8, 42},
        {"300", "numeric", "uint8", CIMC_uint8, 255},  // saturated
        {"-1", "numeric", "uint16", CIMC_uint16, 0},
        {"70000", "Numeric", "uint16", CIMC_uint16, 65535},
        {"-200", "numeric", "sint8", CIMC_sint8, static_cast<uint64_t>(-128)},
        {"-40000", "numeric", "sint16", CIMC_sint16, static_cast<uint64_t>(-32768)},
        {"3000000000", "numeric", "sint32", CIMC_sint32, 2147483647},
        {"4294967295", "numeric", "uint32", CIMC_uint32, 4294967295u},
        {"18446744073709551615", "numeric", nullptr, CIMC_uint64, UINT64_MAX},
        {"99999999999999999999999", "numeric", nullptr, CIMC_uint64, UINT64_MAX},
        {"-5", "numeric", nullptr, CIMC_sint64, static_cast<uint64_t>(-5)},
        {"-99999999999999999999999", "numeric", nullptr, CIMC_sint64, static_cast<uint64_t>(INT64_MIN)},
        {"7", "numeric", "string", CIMC_uint64, 7},  // a TYPE that is no number type is not used
        {"TRUE", "boolean", nullptr, CIMC_boolean, 1},
        {"false", "BOOLEAN", nullptr, CIMC_boolean, 0},
        {"12", "uint32", nullptr, CIMC_uint32, 12},  // as local results carry it
        {"-3", "sint16", nullptr, CIMC_sint16, static_cast<uint64_t>(-3)},
        {"True", "boolean", nullptr, CIMC_boolean, 1},
    };
    for (const KeyCase& c : cases) {
        SCOPED_TRACE(std::string(c.value) + " " + c.valueType);
        InstanceName name{};
        name.keyBindings = binding("K", c.value, c.valueType, c.cimType);
        CIMCObjectPath* op = path(kNs, "X");
        ASSERT_EQ(CIMC_AddKeyValues(op, &name, env_), 0);
        CIMCString* keyName = nullptr;
        CIMCData d = op->ft->getKeyAt(op, 0, &keyName, nullptr);
        EXPECT_STREQ(static_cast<const char*>(keyName->hdl), "K");
        EXPECT_EQ(d.type, c.wantType);
        EXPECT_EQ(bits(d), c.wantBits);
        Free_KeyBinding(name.keyBindings);
    }
}

TEST_F(Names, TextKeysRealsAndDatetimes) {
    const struct {
        const char* value;
        const char* valueType;
        const char* cimType;
        CIMCType wantType;
    } cases[] = {
        {"abc", "string", nullptr, CIMC_string},
        {"abc", nullptr, nullptr, CIMC_string},
        {"12", "string", "uint32", CIMC_string},
        {"x", "char16", nullptr, CIMC_string},
        {"odd", "something", nullptr, CIMC_string},
        {"1.5", "numeric", "real64", CIMC_real64},
        {"20240101000000.000000+000", "datetime", nullptr, CIMC_dateTime},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        InstanceName name{};
        name.keyBindings = binding("K", c.value, c.valueType, c.cimType);
        CIMCObjectPath* op = path(kNs, "X");
        ASSERT_EQ(CIMC_AddKeyValues(op, &name, env_), 0);
        CIMCData d = op->ft->getKeyAt(op, 0, nullptr, nullptr);
        EXPECT_EQ(d.type, c.wantType);
        KeyBinding* back = nullptr;
        ASSERT_EQ(GetKeyBindingValues(op, &back), 0);
        EXPECT_STREQ(back->keyValue->value, c.wantType == CIMC_real64 ? "1.5" : c.value);
        Free_KeyBinding(back);
        Free_KeyBinding(name.keyBindings);
    }
}

TEST_F(Names, UnusableKeysFail) {
    const struct {
        const char* value;
        const char* valueType;
    } cases[] = {
        {"yes", "boolean"},
        {"abc", "numeric"},
        {"", "numeric"},
        {nullptr, "string"},  // a binding without a value
        {"not a date", "datetime"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value ? c.value : "<null>");
        InstanceName name{};
        name.keyBindings = binding("K", c.value, c.valueType, nullptr);
        EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), &name, env_), -1);
        Free_KeyBinding(name.keyBindings);
    }
    InstanceName empty{};
    EXPECT_EQ(CIMC_AddKeyValues(nullptr, &empty, env_), -1);
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), nullptr, env_), -1);
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "X"), &empty, env_), 0);
}

TEST_F(Names, ReferenceKeysBecomeNestedPaths) {
    // The three forms a reference key arrives in.
    KeyBinding* target = nullptr;
    AddToKeyBindingListRef(&target, "Name", "sys1", "string", nullptr);
    InstanceName* targetName = cimxml::newRecord<InstanceName>();
    targetName->className = cimxml::newRecord<ClassName>();
    targetName->className->name = cimxml::dupString("Mock_ComputerSystem");
    targetName->keyBindings = target;

    const struct {
        const char* form;
        const char* nsGiven;  // nullptr: no namespace in the reference
        const char* wantNs;
    } cases[] = {
        {"instancePath", "root/interop", "root/interop"},
        {"localInstancePath", "root/cimv2", "root/cimv2"},
        {"instanceName", nullptr, "root/outer"},  // lives beside its holder
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.form);
        InstanceName* copy = nullptr;
        ASSERT_EQ(Clone_InstanceName(targetName, &copy), 0);
        ValueReference* vr = cimxml::newRecord<ValueReference>();
        LocalNamespacePath* lnp = nullptr;
        if (c.nsGiven) {
            lnp = cimxml::newRecord<LocalNamespacePath>();
            std::string ns = c.nsGiven;
            lnp->namespaces = cimxml::newRecord<Namespace>();
            lnp->namespaces->name = cimxml::dupString(ns.substr(0, ns.find('/')).c_str());
            lnp->namespaces->next = cimxml::newRecord<Namespace>();
            lnp->namespaces->next->name = cimxml::dupString(ns.substr(ns.find('/') + 1).c_str());
        }
        if (std::string(c.form) == "instancePath") {
            vr->instancePath = cimxml::newRecord<InstancePath>();
            vr->instancePath->namespacePath = cimxml::newRecord<NamespacePath>();
            vr->instancePath->namespacePath->localNamespacePath = lnp;
            vr->instancePath->instanceName = copy;
        } else if (std::string(c.form) == "localInstancePath") {
            vr->localInstancePath = cimxml::newRecord<LocalInstancePath>();
            vr->localInstancePath->localNamespacePath = lnp;
            vr->localInstancePath->instanceName = copy;
        } else {
            vr->instanceName = copy;
        }
        InstanceName holder{};
        AddToKeyBindingListRef(&holder.keyBindings, "Antecedent", nullptr, nullptr, nullptr);
        holder.keyBindings->valueReference = vr;

        CIMCObjectPath* op = path("root/outer", "Assoc");
        ASSERT_EQ(CIMC_AddKeyValues(op, &holder, env_), 0);
        CIMCData d = op->ft->getKeyAt(op, 0, nullptr, nullptr);
        ASSERT_EQ(d.type, CIMC_ref);
        CIMCObjectPath* nested = d.value.ref;
        EXPECT_STREQ(static_cast<const char*>(nested->ft->getNameSpace(nested, nullptr)->hdl), c.wantNs);
        EXPECT_STREQ(static_cast<const char*>(nested->ft->getClassName(nested, nullptr)->hdl), "Mock_ComputerSystem");
        KeyBinding* nestedKeys = nullptr;
        ASSERT_EQ(GetKeyBindingValues(nested, &nestedKeys), 0);
        EXPECT_EQ(keysText(nestedKeys), "Name=sys1(string)");
        Free_KeyBinding(nestedKeys);
        Free_KeyBinding(holder.keyBindings);
    }
    // A reference without a class cannot be made.
    InstanceName holder{};
    AddToKeyBindingListRef(&holder.keyBindings, "Antecedent", nullptr, nullptr, nullptr);
    holder.keyBindings->valueReference = cimxml::newRecord<ValueReference>();
    EXPECT_EQ(CIMC_AddKeyValues(path(kNs, "Assoc"), &holder, env_), -1);
    Free_KeyBinding(holder.keyBindings);
    Free_InstanceName(targetName);
}

TEST_F(Names, AllocationFailuresReportFailure) {
    CIMCClient* cl = client();
    CIMCStatus st{0, nullptr};
    std::vector<CIMCData> found = items(
        cl->ft->associators(cl, system(), "CIM_SystemDevice", nullptr, nullptr, nullptr, 0, nullptr, &st));
    ASSERT_FALSE(found.empty());
    std::vector<CIMCData> names = items(cl->ft->enumInstanceNames(cl, path(kNs, "CIM_SystemDevice"), &st));
    ASSERT_FALSE(names.empty());
    for (int which = 0; which < 2; ++which) {
        SCOPED_TRACE(which);
        int failures = 0;
        for (long n = 0;; ++n) {
            int rc;
            cimxml::g_allocFailCountdown = n;
            if (which == 0) {
                ObjectWithPath* list = nullptr;
                rc = AddToAssociatorList(&list, found[0].value.inst);
                cimxml::g_allocFailCountdown = -1;
                Free_ObjectWithPath(list);
            } else {
                InstanceName* list = nullptr;
                rc = AddToEnumInstanceNameList(&list, names[0].value.ref);
                cimxml::g_allocFailCountdown = -1;
                Free_InstanceName(list);
            }
            if (rc == 0) break;
            EXPECT_EQ(rc, -1);
            ++failures;
            ASSERT_LT(n, 1000);
        }
        EXPECT_GT(failures, 10);
    }
}

}  // namespace
