// Wire settings per handle, and CIMC_SetWireMode.
#include "api/wire.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace cimxml {
namespace {

std::mutex g_lock;
std::unordered_map<const ClientHandle*, WireSettings>* g_handles = nullptr;  // never freed: outlives every handle
int g_processMode = -1;    // -1: from the environment
int g_processScheme = -1;  // -1: from the environment; 0 http, 1 https

bool envIsOne(const char* name) {
    const char* v = std::getenv(name);
    return v && std::strcmp(v, "1") == 0;
}

// The settings a new handle gets.
WireSettings settingsForNewHandle() {
    WireSettings s;
    const char* wire = std::getenv("CIMXML_WIRE");
    s.standard = wire && strcasecmp(wire, "standard") == 0;
    s.tls = envIsOne("CIMXML_TLS");
    s.tlsInsecure = envIsOne("CIMXML_TLS_INSECURE");
    if (const char* ca = std::getenv("CIMXML_CA_FILE")) s.caFile = ca;
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_processMode >= 0) s.standard = g_processMode == CIMXML_WIRE_STANDARD;
    if (g_processScheme >= 0) s.tls = g_processScheme == 1;
    return s;
}

}  // namespace

bool rememberNewHandle(const ClientHandle* handle) noexcept {
    try {
        const WireSettings settings = settingsForNewHandle();
        std::lock_guard<std::mutex> hold(g_lock);
        if (!g_handles) g_handles = new std::unordered_map<const ClientHandle*, WireSettings>();
        (*g_handles)[handle] = settings;
        return true;
    } catch (...) {
        return false;
    }
}

void forgetHandle(const ClientHandle* handle) noexcept {
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_handles) g_handles->erase(handle);
}

WireSettings wireSettingsOf(const ClientHandle* handle) {
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_handles) {
        auto it = g_handles->find(handle);
        if (it != g_handles->end()) return it->second;
    }
    return WireSettings{};
}

bool standardWireOf(const ClientHandle* handle) noexcept {
    std::lock_guard<std::mutex> hold(g_lock);
    if (!g_handles) return false;
    auto it = g_handles->find(handle);
    return it != g_handles->end() && it->second.standard;
}

}  // namespace cimxml

extern "C" int CIMC_SetWireMode(ClientHandle* handle, int mode, const char* scheme) {
    if (mode == CIMXML_WIRE_FROM_ENVIRONMENT && !handle) {
        std::lock_guard<std::mutex> hold(cimxml::g_lock);
        cimxml::g_processMode = -1;
        cimxml::g_processScheme = -1;
        return 0;
    }
    if (mode != CIMXML_WIRE_DEFAULT && mode != CIMXML_WIRE_STANDARD) return -1;
    int tls = -1;
    if (scheme) {
        if (strcasecmp(scheme, "http") == 0) tls = 0;
        else if (strcasecmp(scheme, "https") == 0) tls = 1;
        else return -1;
    }
    std::lock_guard<std::mutex> hold(cimxml::g_lock);
    if (!handle) {
        cimxml::g_processMode = mode;
        if (tls >= 0) cimxml::g_processScheme = tls;
        return 0;
    }
    if (!cimxml::g_handles) return -1;
    auto it = cimxml::g_handles->find(handle);
    if (it == cimxml::g_handles->end()) return -1;
    it->second.standard = mode == CIMXML_WIRE_STANDARD;
    if (tls >= 0) it->second.tls = tls == 1;
    return 0;
}
