// The mock broker's argument handling: argument lists, arrays, paths and
// instances built, read, cloned and released in any order with any type code
// and value (object pointers that are stale, released or made up included),
// and method calls that carry them.
#include <dlfcn.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cimxml/local.h"
#include "input.h"

namespace {

using Factory = CIMCEnv* (*)(const char*, unsigned int, int*, char**);

// Every CMPI type code the broker knows, each also as an array, and a few it does not.
const CIMCType kTypes[] = {2,    3,    8,    12,   128,  144,  160,  176,  192,  208,   224,   240,   4096,  4352,
                           4608, 4864, 5376, 5632, 5888, 6144, 8194, 8320, 8336, 13824, 14080, 14336, 12288, 12544,
                           0,    1,    7,    9999, 65535};

struct State {
    CIMCEnv* env = nullptr;
    CIMCClient* client = nullptr;
    std::vector<void*> objects;   // everything handed out, released or not
    std::vector<std::string> texts;
};

std::string name(cimfuzz::Input& in) { return in.flag() ? in.text(24) : std::string(in.flag() ? "In" : "Name"); }

CIMCType type(cimfuzz::Input& in) {
    return in.flag() ? in.u16() : kTypes[in.pick(sizeof kTypes / sizeof kTypes[0])];
}

// A value for `t`: scalar bits, or one of the objects seen so far (of any
// kind, released or not), or made-up bits; character data is a text.
const CIMCValue* value(cimfuzz::Input& in, State& s, CIMCType t, CIMCValue& v) {
    v.uint64 = in.u64();
    switch (in.pick(4)) {
        case 0: return nullptr;
        case 1:
            if (!s.objects.empty()) v.inst = static_cast<CIMCInstance*>(s.objects[in.pick(256) % s.objects.size()]);
            break;
        default: break;
    }
    if (t == 5888) {
        s.texts.push_back(in.text(64));
        return reinterpret_cast<const CIMCValue*>(s.texts.back().c_str());
    }
    return &v;
}

template <typename T>
T* pickObject(cimfuzz::Input& in, State& s) {
    return s.objects.empty() ? nullptr : static_cast<T*>(s.objects[in.pick(256) % s.objects.size()]);
}

void step(cimfuzz::Input& in, State& s) {
    const CIMCEnvFT& env = *s.env->ft;
    CIMCValue v{};
    CIMCStatus st{};
    // Objects of the wrong kind reach each call on purpose: the function
    // table comes from a live args object, the target from the input.
    auto keep = [&](void* p) {
        if (p) s.objects.push_back(p);
    };
    switch (in.pick(14)) {
        case 0: keep(env.newArgs(s.env, &st)); break;
        case 1: {
            CIMCArgs* a = pickObject<CIMCArgs>(in, s);
            CIMCType t = type(in);
            std::string n = name(in);
            CIMCArgs* real = static_cast<CIMCArgs*>(s.objects[0]);
            real->ft->addArg(in.flag() ? real : a, in.flag() ? nullptr : n.c_str(), value(in, s, t, v), t);
            break;
        }
        case 2: {
            CIMCArgs* real = static_cast<CIMCArgs*>(s.objects[0]);
            std::string n = name(in);
            CIMCData d = real->ft->getArg(pickObject<CIMCArgs>(in, s), n.c_str(), &st);
            keep(d.value.inst);
            break;
        }
        case 3: {
            CIMCArgs* real = static_cast<CIMCArgs*>(s.objects[0]);
            CIMCString* n = nullptr;
            CIMCData d = real->ft->getArgAt(pickObject<CIMCArgs>(in, s), in.byte(), in.flag() ? &n : nullptr, &st);
            keep(d.value.inst);
            keep(n);
            real->ft->getArgCount(pickObject<CIMCArgs>(in, s), &st);
            break;
        }
        case 4: {
            CIMCArgs* real = static_cast<CIMCArgs*>(s.objects[0]);
            keep(real->ft->clone(pickObject<CIMCArgs>(in, s), &st));
            break;
        }
        case 5: {
            // Release through the args table: a release of another kind
            // must be refused, a second release ignored.
            CIMCArgs* real = static_cast<CIMCArgs*>(s.objects[0]);
            CIMCArgs* a = pickObject<CIMCArgs>(in, s);
            if (a != real) real->ft->release(a);
            break;
        }
        case 6: keep(env.newString(s.env, in.flag() ? nullptr : in.text(32).c_str(), &st)); break;
        case 7: keep(env.newArray(s.env, in.byte() % 17, type(in), &st)); break;
        case 8: {
            CIMCArray* a = static_cast<CIMCArray*>(env.newArray(s.env, 2, 144, &st));
            keep(a);
            if (!a) break;
            CIMCType t = type(in);
            a->ft->setElementAt(pickObject<CIMCArray>(in, s), in.byte() % 20, value(in, s, t, v), t);
            CIMCData d = a->ft->getElementAt(pickObject<CIMCArray>(in, s), in.byte() % 20, &st);
            keep(d.value.inst);
            break;
        }
        case 9: {
            std::string ns = in.flag() ? "root/cimv2" : in.text(16), cn = in.flag() ? "CIM_Fuzz" : in.text(16);
            CIMCObjectPath* p = env.newObjectPath(s.env, ns.c_str(), cn.c_str(), &st);
            keep(p);
            if (!p) break;
            CIMCType t = type(in);
            std::string n = name(in);
            p->ft->addKey(p, n.c_str(), value(in, s, t, v), t);
            keep(env.newInstance(s.env, in.flag() ? p : pickObject<CIMCObjectPath>(in, s), &st));
            break;
        }
        case 10: {
            CIMCObjectPath* p = env.newObjectPath(s.env, "root/cimv2", "CIM_Fuzz", &st);
            keep(p);
            CIMCInstance* i = p ? env.newInstance(s.env, p, &st) : nullptr;
            keep(i);
            if (!i) break;
            CIMCType t = type(in);
            std::string n = name(in);
            i->ft->setProperty(pickObject<CIMCInstance>(in, s), n.c_str(), value(in, s, t, v), t);
            break;
        }
        case 11: keep(env.newDateTimeFromChars(s.env, in.text(30).c_str(), &st)); break;
        case 12: keep(env.newDateTimeFromBinary(s.env, in.u64(), in.flag(), &st)); break;
        default: {
            if (!s.client) break;
            std::string cn = in.flag() ? in.text(24) : "CIM_Fuzz", method = in.text(24);
            CIMCObjectPath* p = env.newObjectPath(s.env, "root/cimv2", cn.c_str(), &st);
            keep(p);
            if (!p) break;
            CIMCArgs* out = env.newArgs(s.env, &st);
            keep(out);
            CIMCData d = s.client->ft->invokeMethod(s.client, p, method.c_str(), pickObject<CIMCArgs>(in, s),
                                                    in.flag() ? out : pickObject<CIMCArgs>(in, s), &st);
            keep(d.value.inst);
            break;
        }
    }
    keep(st.msg);
}

Factory factory() {
    static Factory f = [] {
        void* lib = dlopen(CIMFUZZ_BROKER_LIBRARY, RTLD_NOW);
        return lib ? reinterpret_cast<Factory>(dlsym(lib, "_Create_SfcbLocal_Env")) : nullptr;
    }();
    return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Factory f = factory();
    if (!f) __builtin_trap();  // the harness itself is broken
    cimfuzz::Input in(data, size);
    State s;
    int rc = 0;
    s.env = f("SfcbLocal", 0, &rc, nullptr);
    if (!s.env) return 0;
    CIMCStatus st{};
    s.objects.push_back(s.env->ft->newArgs(s.env, &st));
    if (!s.objects[0]) __builtin_trap();
    s.client = s.env->ft->connect(s.env, "localhost", "SfcbLocal", nullptr, nullptr, nullptr, &st);
    for (int i = 0; i < 64 && in.left(); ++i) step(in, s);
    // The environment owns every object it handed out.
    s.env->ft->release(s.env);
    return 0;
}
