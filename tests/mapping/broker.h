// Real broker objects for the mapping tests: the mock local broker, loaded by
// path (never closed), makes paths, instances, arrays, strings, datetimes and
// argument lists, and its client serves the sample repository. An
// environment's objects go with it, so each test releases only that.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "../xmlops/records.h"
#include "cimxml/local.h"
#include "model/alloc.h"

namespace broker_test {

using Strings = std::vector<std::string>;
const char* const kNs = "root/cimv2";

inline CIMCValue none() {
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    return v;
}

// A value with the members fill sets, the rest zero.
template <typename F>
CIMCValue with(F fill) {
    CIMCValue v = none();
    fill(v);
    return v;
}

class Broker : public ::testing::Test {
protected:
    void SetUp() override {
        static void* lib = dlopen(MOCK_BROKER_DIR "/libcimcClientSfcbLocal.so", RTLD_NOW);
        ASSERT_NE(lib, nullptr) << dlerror();
        auto factory = reinterpret_cast<CIMCEnvFactory>(dlsym(lib, "_Create_SfcbLocal_Env"));
        int rc = 0;
        char* msg = nullptr;
        env_ = factory("SfcbLocal", 0, &rc, &msg);
        std::free(msg);
        ASSERT_TRUE(env_ && rc == 0);
    }
    void TearDown() override {
        if (env_) env_->ft->release(env_);
        cimxml::g_allocFailCountdown = -1;
    }

    // A path with string keys.
    CIMCObjectPath* path(const char* ns, const char* cls,
                         std::initializer_list<std::pair<const char*, const char*>> keys = {}) {
        CIMCObjectPath* op = env_->ft->newObjectPath(env_, ns, cls, nullptr);
        for (const auto& k : keys) addKey(op, k.first, str(k.second), CIMC_string);
        return op;
    }
    void addKey(CIMCObjectPath* op, const char* name, CIMCValue v, CIMCType type) {
        EXPECT_EQ(op->ft->addKey(op, name, &v, type).rc, 0) << name;
    }
    CIMCInstance* instance(CIMCObjectPath* op) { return env_->ft->newInstance(env_, op, nullptr); }
    void set(CIMCInstance* inst, const char* name, CIMCValue v, CIMCType type) {
        EXPECT_EQ(inst->ft->setProperty(inst, name, &v, type).rc, 0) << name;
    }
    void setNull(CIMCInstance* inst, const char* name, CIMCType type) {
        EXPECT_EQ(inst->ft->setProperty(inst, name, nullptr, type).rc, 0) << name;
    }
    CIMCValue str(const char* text) { return with([&](CIMCValue& v) { v.string = env_->ft->newString(env_, text, nullptr); }); }
    CIMCValue u32(uint32_t n) { return with([&](CIMCValue& v) { v.uint32 = n; }); }
    CIMCValue boolean(bool b) { return with([&](CIMCValue& v) { v.boolean = b; }); }
    CIMCValue ref(CIMCObjectPath* op) { return with([&](CIMCValue& v) { v.ref = op; }); }
    CIMCValue dateTime(const char* t) {
        return with([&](CIMCValue& v) { v.dateTime = env_->ft->newDateTimeFromChars(env_, t, nullptr); });
    }
    CIMCValue array(CIMCType elem, const std::vector<CIMCValue>& items) {
        CIMCArray* a = env_->ft->newArray(env_, static_cast<CIMCCount>(items.size()), elem, nullptr);
        for (std::size_t i = 0; i < items.size(); ++i) a->ft->setElementAt(a, static_cast<CIMCCount>(i), &items[i], elem);
        return with([&](CIMCValue& v) { v.array = a; });
    }
    CIMCClient* client() {
        return env_->ft->connect(env_, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, nullptr);
    }
    // The items of an enumeration.
    static std::vector<CIMCData> items(CIMCEnumeration* en) {
        std::vector<CIMCData> out;
        while (en && en->ft->hasNext(en, nullptr)) out.push_back(en->ft->getNext(en, nullptr));
        return out;
    }

    CIMCEnv* env_ = nullptr;
};

// Runs step with the Nth allocation failing, N = 0, 1, ... until it gets
// through; each failing run must report -1. Returns the number of failures.
template <typename Step>
int failEachAllocation(Step step) {
    int failures = 0;
    for (long n = 0; n < 2000; ++n, ++failures) {
        cimxml::g_allocFailCountdown = n;
        int rc = step();
        cimxml::g_allocFailCountdown = -1;
        if (rc == 0) break;
        EXPECT_EQ(rc, -1) << n;
    }
    return failures;
}

using opt::count;
using opt::named;
inline std::string text(const Value* v) { return v && v->value ? v->value : "<none>"; }
inline std::string valueOf(const Property* p) { return text(p ? p->value : nullptr); }
inline Strings texts(const ValueArray* a) {
    Strings out;
    for (const Value* v = a ? a->value : nullptr; v; v = v->next) out.push_back(text(v));
    return out;
}
inline Strings namespaces(const NamespacePath* p) {
    Strings out;
    const LocalNamespacePath* l = p ? p->localNamespacePath : nullptr;
    for (const Namespace* n = l ? l->namespaces : nullptr; n; n = n->next) out.push_back(n->name);
    return out;
}
// "name=value(valueType)" per binding, "name->(keys)" for references.
inline std::string keysText(const KeyBinding* kb) {
    std::string out;
    for (; kb; kb = kb->next) {
        out += std::string(out.empty() ? "" : ",") + kb->name;
        if (kb->keyValue) out += "=" + std::string(kb->keyValue->value) + "(" + kb->keyValue->valueType + ")";
        if (const ValueReference* r = kb->valueReference) {
            const InstanceName* n = r->instancePath ? r->instancePath->instanceName : r->instanceName;
            out += "->(" + keysText(n ? n->keyBindings : nullptr) + ")";
        }
    }
    return out;
}

}  // namespace broker_test
