// Sockets and TLS for both wire modes.
#include "transport/connection.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "cimxml/client.h"

namespace cimxml::transport {
namespace {

// OpenSSL writes to the socket with write(): a peer that hung up would raise
// SIGPIPE and kill the caller's process. The signal is held back on this
// thread while OpenSSL writes, and one it caused is taken off again.
class SigpipeHold {
public:
    SigpipeHold() noexcept {
        sigset_t pending;
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        blocked_ = pthread_sigmask(SIG_BLOCK, &pipe_, &old_) == 0;
    }
    ~SigpipeHold() {
        if (!blocked_) return;
        sigset_t pending;
        sigpending(&pending);
        if (!wasPending_ && sigismember(&pending, SIGPIPE) == 1) {
            timespec zero{0, 0};
            sigtimedwait(&pipe_, nullptr, &zero);
        }
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }

private:
    sigset_t pipe_;
    sigset_t old_;
    bool wasPending_ = false;
    bool blocked_ = false;
};

// A socket timeout ends a blocked call with EAGAIN (the same value as
// EWOULDBLOCK here), which the calls below report as a timeout.
static_assert(EAGAIN == EWOULDBLOCK);

void setTimeouts(int fd, int timeoutMs) {
    const int ms = std::max(timeoutMs, 0);  // zero: no limit
    timeval limit;
    limit.tv_sec = ms / 1000;
    limit.tv_usec = static_cast<suseconds_t>(ms % 1000) * 1000;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);  // connect() obeys it too
}

bool isAddress(const char* host) {
    unsigned char buf[sizeof(in6_addr)];
    return inet_pton(AF_INET, host, buf) == 1 || inet_pton(AF_INET6, host, buf) == 1;
}

// The most telling OpenSSL error text, or `fallback`.
const char* sslErrorText(char* buf, std::size_t n, const char* fallback) {
    unsigned long e = ERR_get_error();
    if (!e) return fallback;
    ERR_error_string_n(e, buf, n);
    ERR_clear_error();
    return buf;
}

}  // namespace

bool Failure::set(const char* c, const char* format, ...) noexcept {
    std::snprintf(code, sizeof code, "%s", c);
    va_list args;
    va_start(args, format);
    std::vsnprintf(description, sizeof description, format, args);
    va_end(args);
    return false;
}

bool Connection::adopt(int fd, const char* host, const Security& security, Failure* failure) noexcept {
    close();
    fd_ = fd;
    if (fd_ == -1) return false;
    if (security.tls && !startTls(host, security, failure)) {
        close();
        return false;
    }
    return true;
}

bool Connection::open(const char* host, int port, int timeoutMs, const Security& security,
                      Failure* failure) noexcept {
    close();
    timeoutMs_ = timeoutMs;
    if (!host || !*host) {
        if (failure) failure->set(CIMXML_ERROR_CONNECT, "no host to connect to");
        return false;
    }
    char service[16];
    std::snprintf(service, sizeof service, "%d", port & 0xFFFF);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    int rc = getaddrinfo(host, service, &hints, &list);
    if (rc != 0) {
        if (failure) failure->set(CIMXML_ERROR_CONNECT, "cannot resolve %s: %s", host, gai_strerror(rc));
        return false;
    }
    int fd = -1;
    int lastErrno = 0;
    for (addrinfo* a = list; a && fd == -1; a = a->ai_next) {
        fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd == -1) {
            lastErrno = errno;
            continue;
        }
        setTimeouts(fd, timeoutMs);
        if (::connect(fd, a->ai_addr, a->ai_addrlen) != 0) {
            lastErrno = errno;
            ::close(fd);
            fd = -1;
        }
    }
    freeaddrinfo(list);
    if (fd == -1) {
        if (failure) {
            const char* why = lastErrno == EINPROGRESS || lastErrno == EAGAIN ? "timed out" : std::strerror(lastErrno);
            failure->set(CIMXML_ERROR_CONNECT, "cannot connect to %s port %d: %s", host, port & 0xFFFF, why);
        }
        return false;
    }
    return adopt(fd, host, security, failure);
}

bool Connection::startTls(const char* host, const Security& security, Failure* failure) noexcept {
    char err[256];
    ERR_clear_error();
    ctx_ = SSL_CTX_new(TLS_client_method());
    if (!ctx_) {
        if (failure) failure->set(CIMXML_ERROR_TLS, "TLS set-up failed: %s", sslErrorText(err, sizeof err, "no context"));
        return false;
    }
    SSL_CTX_set_min_proto_version(ctx_, TLS1_2_VERSION);
    // A peer that closes without close_notify ends the reply like a plain close.
    SSL_CTX_set_options(ctx_, SSL_OP_IGNORE_UNEXPECTED_EOF);
    if (security.insecure) {
        SSL_CTX_set_verify(ctx_, SSL_VERIFY_NONE, nullptr);
    } else {
        SSL_CTX_set_verify(ctx_, SSL_VERIFY_PEER, nullptr);
        bool loaded = security.caFile && *security.caFile
                          ? SSL_CTX_load_verify_locations(ctx_, security.caFile, nullptr) == 1
                          : SSL_CTX_set_default_verify_paths(ctx_) == 1;
        if (!loaded) {
            if (failure)
                failure->set(CIMXML_ERROR_TLS, "cannot load trusted certificates from %s: %s",
                             security.caFile && *security.caFile ? security.caFile : "the system store",
                             sslErrorText(err, sizeof err, "unknown error"));
            return false;
        }
    }
    ssl_ = SSL_new(ctx_);
    if (!ssl_ || SSL_set_fd(ssl_, fd_) != 1) {
        if (failure) failure->set(CIMXML_ERROR_TLS, "TLS set-up failed: %s", sslErrorText(err, sizeof err, "no session"));
        return false;
    }
    if (host && *host) {
        // The certificate must name the host we asked for: an address as an
        // IP subjectAltName, a name as a DNS one.
        if (isAddress(host)) {
            if (!security.insecure) X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_), host);
        } else {
            SSL_set_tlsext_host_name(ssl_, host);
            if (!security.insecure) SSL_set1_host(ssl_, host);
        }
    }
    int rc;
    {
        SigpipeHold hold;
        rc = SSL_connect(ssl_);
    }
    if (rc != 1) {
        if (failure) {
            long verify = SSL_get_verify_result(ssl_);
            if (verify != X509_V_OK)
                failure->set(CIMXML_ERROR_TLS, "TLS handshake with %s failed: server certificate not trusted (%s)",
                             host ? host : "", X509_verify_cert_error_string(verify));
            else if (errno == EAGAIN)
                failure->set(CIMXML_ERROR_TIMEOUT, "TLS handshake with %s timed out after %d ms", host ? host : "",
                             timeoutMs_);
            else
                failure->set(CIMXML_ERROR_TLS, "TLS handshake with %s failed: %s", host ? host : "",
                             sslErrorText(err, sizeof err, "the peer closed the connection"));
        }
        return false;
    }
    return true;
}

bool Connection::sendAll(const char* data, std::size_t n, Failure* failure) noexcept {
    std::size_t sent = 0;
    while (sent < n) {
        ssize_t got;
        if (ssl_) {
            SigpipeHold hold;
            int chunk = n - sent > 1u << 30 ? 1 << 30 : static_cast<int>(n - sent);
            got = SSL_write(ssl_, data + sent, chunk);
            if (got <= 0) got = -1;
        } else {
            // MSG_NOSIGNAL: a peer that hung up must not kill the caller's process.
            got = ::send(fd_, data + sent, n - sent, MSG_NOSIGNAL);
        }
        if (got < 0) {
            if (errno == EINTR && !ssl_) continue;
            if (failure)
                failure->set(CIMXML_ERROR_SEND, "sending the request failed after %zu of %zu bytes: %s", sent, n,
                             errno == EAGAIN ? "timed out" : std::strerror(errno));
            return false;
        }
        sent += static_cast<std::size_t>(got);
    }
    return true;
}

ssize_t Connection::receive(char* into, std::size_t n, Failure* failure) noexcept {
    timedOut_ = false;
    for (;;) {
        errno = 0;
        ssize_t got;
        if (ssl_) {
            int want = n > 1u << 30 ? 1 << 30 : static_cast<int>(n);
            int rc = SSL_read(ssl_, into, want);
            if (rc > 0) return rc;
            int e = SSL_get_error(ssl_, rc);
            // A peer that drops the connection without close_notify ends the
            // stream the same way (SSL_OP_IGNORE_UNEXPECTED_EOF).
            if (e == SSL_ERROR_ZERO_RETURN) return 0;
            got = -1;
            if (e != SSL_ERROR_SYSCALL && e != SSL_ERROR_WANT_READ && errno == 0) {
                char err[256];
                if (failure)
                    failure->set(CIMXML_ERROR_TLS, "TLS read failed: %s", sslErrorText(err, sizeof err, "unknown error"));
                return -1;
            }
        } else {
            got = ::recv(fd_, into, n, 0);
            if (got >= 0) return got;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN) {
            timedOut_ = true;
            if (failure) failure->set(CIMXML_ERROR_TIMEOUT, "no reply data within %d ms", timeoutMs_);
        } else if (failure) {
            failure->set(CIMXML_ERROR_CLOSED, "receiving the reply failed: %s", std::strerror(errno));
        }
        return -1;
    }
}

void Connection::close() noexcept {
    if (ssl_) {
        SigpipeHold hold;
        SSL_shutdown(ssl_);
        SSL_free(ssl_);
        ssl_ = nullptr;
    }
    if (ctx_) {
        SSL_CTX_free(ctx_);
        ctx_ = nullptr;
    }
    if (fd_ != -1) ::close(fd_);
    fd_ = -1;
}

}  // namespace cimxml::transport
