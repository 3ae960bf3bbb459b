// How a handle talks to its object manager: the wire mode and the transport
// security chosen when it was created (or later through CIMC_SetWireMode).
//
// ClientHandle's layout is public and fixed, so these settings live beside
// it, keyed by the handle's address. A handle the library did not create (a
// caller's own struct) has none and talks in the default mode over plain TCP.
#pragma once

#include <string>

#include "cimxml/client.h"

namespace cimxml {

struct WireSettings {
    bool standard = false;     // DSP0200 framing, DSP0201 text, Error records on every failure
    bool tls = false;          // HTTPS
    bool tlsInsecure = false;  // no certificate verification (explicit opt-out)
    std::string caFile;        // trust anchors; empty: the system store
};

// Records the settings of a handle just created (replacing any stale entry
// left at the same address): the environment (CIMXML_WIRE, CIMXML_TLS,
// CIMXML_CA_FILE, CIMXML_TLS_INSECURE) unless CIMC_SetWireMode(NULL, ...)
// chose a process-wide mode or scheme. False when memory ran out.
bool rememberNewHandle(const ClientHandle* handle) noexcept;
void forgetHandle(const ClientHandle* handle) noexcept;
// The settings of a handle; defaults for one the library does not know.
WireSettings wireSettingsOf(const ClientHandle* handle);
// Only whether the handle talks in the standard wire mode (no copy made).
bool standardWireOf(const ClientHandle* handle) noexcept;

}  // namespace cimxml
