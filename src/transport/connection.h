// One connection to the object manager: a TCP socket, with TLS on top when
// the handle asks for HTTPS. Both wire modes read and write through it.
#pragma once

#include <sys/types.h>

#include <cstddef>

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace cimxml::transport {

// Why an exchange failed: one of the CIMXML_ERROR_ codes (or an HTTP
// status) and a description naming the cause.
struct Failure {
    char code[8] = {};
    char description[512] = {};
    // Always false, so that a failing step can end with `return failure->set(...)`.
    bool set(const char* code, const char* format, ...) noexcept __attribute__((format(printf, 3, 4)));
};

struct Security {
    bool tls = false;
    bool insecure = false;       // skip certificate verification
    const char* caFile = nullptr;  // NULL or "": the system store
};

class Connection {
public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { close(); }

    // Takes over a connected socket (closing it on failure).
    bool adopt(int fd, const char* host, const Security& security, Failure* failure) noexcept;
    // Resolves host (a name or an address), connects within timeoutMs
    // (<= 0: no limit) and applies that limit to every later send and
    // receive. Then as adopt().
    bool open(const char* host, int port, int timeoutMs, const Security& security, Failure* failure) noexcept;

    // Writes everything; false on failure (failure filled when given).
    bool sendAll(const char* data, std::size_t n, Failure* failure) noexcept;
    // Bytes read (> 0), 0 when the peer closed, -1 on failure or time-out
    // (failure filled; timedOut() tells which).
    ssize_t receive(char* into, std::size_t n, Failure* failure) noexcept;
    bool timedOut() const noexcept { return timedOut_; }

    int fd() const noexcept { return fd_; }
    void close() noexcept;

private:
    bool startTls(const char* host, const Security& security, Failure* failure) noexcept;

    int fd_ = -1;
    SSL_CTX* ctx_ = nullptr;
    SSL* ssl_ = nullptr;
    int timeoutMs_ = 0;
    bool timedOut_ = false;
};

}  // namespace cimxml::transport
