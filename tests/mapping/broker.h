// Real broker objects for the mapping tests: the mock local broker library,
// loaded by path (never closed), gives an environment whose factories make
// paths, instances, arrays, strings, datetimes and argument lists, and whose
// client serves the sample repository. Everything an environment made goes
// with it, so each test releases only its environment.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "cimxml/lifecycle.h"
#include "cimxml/local.h"

namespace broker_test {

inline CIMCEnvFactory factory() {
    static CIMCEnvFactory f = [] {
        void* lib = dlopen(MOCK_BROKER_DIR "/libcimcClientSfcbLocal.so", RTLD_NOW);
        return lib ? reinterpret_cast<CIMCEnvFactory>(dlsym(lib, "_Create_SfcbLocal_Env")) : nullptr;
    }();
    return f;
}

inline CIMCValue none() {
    CIMCValue v;
    std::memset(&v, 0, sizeof v);
    return v;
}

class Broker : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(factory(), nullptr) << dlerror();
        int rc = 0;
        char* msg = nullptr;
        env_ = factory()("SfcbLocal", 0, &rc, &msg);
        std::free(msg);
        ASSERT_NE(env_, nullptr);
        ASSERT_EQ(rc, 0);
    }
    void TearDown() override {
        if (env_) env_->ft->release(env_);
    }

    CIMCObjectPath* path(const char* ns, const char* cls) { return env_->ft->newObjectPath(env_, ns, cls, nullptr); }
    // A path with string keys.
    CIMCObjectPath* path(const char* ns, const char* cls,
                         std::initializer_list<std::pair<const char*, const char*>> keys) {
        CIMCObjectPath* op = path(ns, cls);
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

    CIMCValue str(const char* text) {
        CIMCValue v = none();
        v.string = env_->ft->newString(env_, text, nullptr);
        return v;
    }
    CIMCValue u32(uint32_t n) {
        CIMCValue v = none();
        v.uint32 = n;
        return v;
    }
    CIMCValue boolean(bool b) {
        CIMCValue v = none();
        v.boolean = b ? 1 : 0;
        return v;
    }
    CIMCValue ref(CIMCObjectPath* op) {
        CIMCValue v = none();
        v.ref = op;
        return v;
    }
    CIMCValue dateTime(const char* text) {
        CIMCValue v = none();
        v.dateTime = env_->ft->newDateTimeFromChars(env_, text, nullptr);
        return v;
    }
    // An array of the given element type filled from values.
    CIMCValue array(CIMCType elem, const std::vector<CIMCValue>& items) {
        CIMCValue v = none();
        v.array = env_->ft->newArray(env_, static_cast<CIMCCount>(items.size()), elem, nullptr);
        for (std::size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(v.array->ft->setElementAt(v.array, static_cast<CIMCCount>(i), &items[i], elem).rc, 0);
        return v;
    }

    CIMCClient* client() {
        CIMCStatus st{0, nullptr};
        CIMCClient* cl = env_->ft->connect(env_, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, &st);
        EXPECT_NE(cl, nullptr);
        return cl;
    }

    CIMCEnv* env_ = nullptr;
};

// Record look-ups by name.
template <typename T>
const T* named(const T* chain, const char* name) {
    for (; chain; chain = chain->next)
        if (chain->name && std::strcmp(chain->name, name) == 0) return chain;
    return nullptr;
}

template <typename T>
int count(const T* chain) {
    int n = 0;
    for (; chain; chain = chain->next) ++n;
    return n;
}

inline std::string valueOf(const Property* p) {
    return p && p->value && p->value->value ? p->value->value : "<none>";
}

inline std::vector<std::string> texts(const ValueArray* a) {
    std::vector<std::string> out;
    for (const Value* v = a ? a->value : nullptr; v; v = v->next) out.push_back(v->value ? v->value : "<null>");
    return out;
}

inline std::vector<std::string> namespaces(const LocalNamespacePath* p) {
    std::vector<std::string> out;
    for (const Namespace* n = p ? p->namespaces : nullptr; n; n = n->next) out.push_back(n->name ? n->name : "<null>");
    return out;
}

// "name=value(valueType)" per binding, "name->Class" for references.
inline std::string keysText(const KeyBinding* kb) {
    std::string out;
    for (; kb; kb = kb->next) {
        if (!out.empty()) out += ",";
        out += kb->name ? kb->name : "<null>";
        if (kb->keyValue) {
            out += "=";
            out += kb->keyValue->value ? kb->keyValue->value : "<null>";
            out += "(";
            out += kb->keyValue->valueType ? kb->keyValue->valueType : "";
            out += ")";
        }
        if (kb->valueReference) out += "->ref";
    }
    return out;
}

}  // namespace broker_test
