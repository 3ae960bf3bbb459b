// Shared pieces of the local back end's tests: record builders, scopes for
// environment variables and the log file, and a live mock broker environment.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "../xmlops/records.h"
#include "cimxml/local.h"
#include "rtlog.h"

namespace localtest {

using opt::className;
using opt::count;
using opt::instanceName;
using opt::make;
inline char* dup(const char* s) { return opt::s(s); }
template <class T>
T* chain(std::initializer_list<T*> nodes) {
    T* head = nullptr;
    T** tail = &head;
    for (T* n : nodes) *tail = n, tail = &n->next;
    return head;
}
// A value chain; nullptr entries are values without text.
inline Value* values(std::initializer_list<const char*> texts) {
    Value* head = nullptr;
    Value** tail = &head;
    for (const char* t : texts) {
        *tail = make<Value>();
        (*tail)->value = dup(t);
        tail = &(*tail)->next;
    }
    return head;
}
inline Property* property(const char* name, const char* type, const char* text, bool withValue = true) {
    auto* p = make<Property>();
    p->name = dup(name);
    p->type = dup(type);
    if (withValue) p->value = values({text});
    return p;
}
inline PropertyArray* propertyArray(const char* name, const char* type, Value* elements) {
    auto* p = make<PropertyArray>();
    p->name = dup(name);
    p->type = dup(type);
    p->valueArray = make<ValueArray>();
    p->valueArray->value = elements;
    return p;
}
inline ParamValue* param(const char* name, const char* type, const char* text) {
    auto* p = make<ParamValue>();
    p->name = dup(name);
    p->paramType = dup(type);
    if (text) p->value = values({text});
    return p;
}
// An environment variable for one scope.
class EnvScope {
public:
    EnvScope(const char* name, const char* text) : name_(name), had_(std::getenv(name) != nullptr) {
        if (had_) old_ = std::getenv(name);
        text ? setenv(name, text, 1) : unsetenv(name);
    }
    ~EnvScope() { had_ ? setenv(name_.c_str(), old_.c_str(), 1) : unsetenv(name_.c_str()); }

private:
    std::string name_, old_;
    bool had_;
};
struct Fault : EnvScope {  // the mock broker reads it at each factory call
    explicit Fault(const char* text) : EnvScope("CIMMOCK_BROKER_FAULT", text) {}
};

// librtlog's output in a file for one scope; lines() gives
// "<category>|<message>" for each line of the local back end.
class LogCapture {
public:
    LogCapture() : path_("/tmp/local_log_" + std::to_string(getpid())) {
        unlink(path_.c_str());
        setenv("RT_LOG_LEVEL", "2", 1);
        setenv("RT_LOG_FILE", path_.c_str(), 1);
        rt_log_init();
    }
    ~LogCapture() {
        unsetenv("RT_LOG_LEVEL");
        unsetenv("RT_LOG_FILE");
        rt_log_init();
        unlink(path_.c_str());
    }
    std::vector<std::string> lines() const {
        std::ifstream in(path_);
        std::vector<std::string> out;
        const std::string component = " BINCIMCLIENT ", where = " src/clientapi:103: ";
        for (std::string line; std::getline(in, line);) {
            auto c = line.find(component), w = line.find(where);
            if (c != std::string::npos && w != std::string::npos)
                out.push_back(line.substr(c + component.size(), w - c - component.size()) + "|" +
                              line.substr(w + where.size()));
        }
        return out;
    }

private:
    std::string path_;
};
inline std::string entering(const std::string& category) {
    return category + "|[" + std::to_string(getpid()) + "] ---Entering";
}
inline std::string leaving(const std::string& category) {
    return category + "|[" + std::to_string(getpid()) + "] ---Leaving";
}

// A live environment of the mock broker, released after the test.
class BrokerTest : public ::testing::Test {
protected:
    void SetUp() override {
        int rc = -1;
        char* msg = nullptr;
        env_ = getCIMCEnv("SfcbLocal", 0, &rc, &msg);
        ASSERT_NE(env_, nullptr) << (msg ? msg : "");
    }
    void TearDown() override {
        if (env_) env_->ft->release(env_);
    }
    CIMCInstance* newInstance() {
        CIMCObjectPath* path = env_->ft->newObjectPath(env_, "root/cimv2", "Test_Target", nullptr);
        CIMCInstance* inst = env_->ft->newInstance(env_, path, nullptr);
        path->ft->release(path);
        return inst;
    }
    CIMCArgs* newArgs() { return env_->ft->newArgs(env_, nullptr); }
    // A property or argument; state CIMC_notFound when the broker has none.
    static CIMCData get(CIMCInstance* i, const char* name) {
        CIMCStatus st{0, nullptr};
        CIMCData d = i->ft->getProperty(i, name, &st);
        if (st.rc) d.state = CIMC_notFound;
        return d;
    }
    static CIMCData get(CIMCArgs* a, const char* name) {
        CIMCStatus st{0, nullptr};
        CIMCData d = a->ft->getArg(a, name, &st);
        if (st.rc) d.state = CIMC_notFound;
        return d;
    }
    static std::string text(const CIMCData& d) {
        if (d.type == CIMC_string && d.value.string) return d.value.string->ft->getCharPtr(d.value.string, nullptr);
        if (d.type == CIMC_dateTime && d.value.dateTime) {
            CIMCString* s = d.value.dateTime->ft->getStringFormat(d.value.dateTime, nullptr);
            return s ? s->ft->getCharPtr(s, nullptr) : "";
        }
        return "<no text>";
    }
    // A value's bits at its type's width, for comparing integers and booleans.
    static uint64_t bits(const CIMCData& d) {
        switch (d.type) {
            case CIMC_boolean: case CIMC_uint8: case CIMC_sint8: return d.value.uint8;
            case CIMC_uint16: case CIMC_sint16: return d.value.uint16;
            case CIMC_uint32: case CIMC_sint32: return d.value.uint32;
            default: return d.value.uint64;
        }
    }
    static int size(const CIMCData& d) { return d.value.array->ft->getSize(d.value.array, nullptr); }
    static CIMCData at(const CIMCData& d, int i) { return d.value.array->ft->getElementAt(d.value.array, i, nullptr); }

    CIMCEnv* env_ = nullptr;
};

}  // namespace localtest
