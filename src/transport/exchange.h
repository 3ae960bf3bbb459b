// The request/reply exchange of each wire mode. CIMSendRequest is the
// default mode over plain TCP; the operations call these with the handle's
// settings.
#pragma once

#include "transport/connection.h"
#include "transport/kept_block.h"

namespace cimxml::transport {

struct Peer {
    const char* host;
    int port;
    const char* userName;
    const char* password;
    int timeoutMs;
};

// The default framing and reading, over TLS when security asks for it.
// Returns 0, 401 or -1 as CIMSendRequest does. With `reply` (the thread's
// block, which held the send buffer until it was sent), the body is taken
// from it: the caller hands it back with reply->release.
int sendDefault(const char* requestText, char** responseOut, const Peer& peer, const Security& security,
                KeptBlock* reply = nullptr) noexcept;

// What the standard framing names besides the body: the CIMMethod and
// CIMObject header values, unencoded (they are %-escaped here).
struct Call {
    const char* method;
    const char* object;
};

// The standard framing (DSP0200) and reading: headers whole, then the body
// by Content-Length, chunks or close. Returns 0 with the body in
// *responseOut (the caller frees it), 401, or -1 with failure filled.
int sendStandard(const char* requestText, char** responseOut, const Peer& peer, const Security& security,
                 const Call& call, Failure* failure) noexcept;

// The standard request: header block and body, as sent. NULL when memory
// runs out; the caller frees it. *length receives its size.
char* frameStandard(const char* requestText, const Peer& peer, const Call& call, std::size_t* length) noexcept;

}  // namespace cimxml::transport
