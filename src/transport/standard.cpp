// The standard exchange (DSP0200): the full header set on the request, and
// a reply read as HTTP/1.1 says, across as many reads as the peer needs.
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cimxml/client.h"
#include "rtlog.h"
#include "transport/exchange.h"

namespace cimxml::transport {
namespace {

constexpr std::size_t kMaxHeader = 64 * 1024;  // a longer reply header is refused
constexpr std::size_t kMaxChunkLine = 1024;
constexpr std::size_t kReadStep = 16 * 1024;

// A growable malloc'd byte string, NUL-terminated once anything was
// reserved. A failed allocation is remembered: later appends do nothing and
// release() gives NULL, so a writer checks once, at the end.
struct Bytes {
    char* p = nullptr;
    std::size_t n = 0;
    std::size_t cap = 0;
    bool failed = false;
    Bytes() = default;
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { std::free(p); }

    // Room for `more` bytes and a terminator past `n`; false once anything failed.
    bool reserve(std::size_t more) {
        if (!failed && more >= cap - n) grow(more);  // n < cap whenever cap is not 0
        return !failed;
    }
    void grow(std::size_t more) {
        failed = more > SIZE_MAX / 2 - n;
        if (failed) return;
        std::size_t c = cap ? cap : 256;
        while (c < n + more + 1) c *= 2;
        char* q = static_cast<char*>(std::realloc(p, c));
        failed = !q;
        if (q) p = q, cap = c;
    }
    Bytes& append(const char* s, std::size_t k) {
        if (reserve(k)) {
            std::memcpy(p + n, s, k);
            n += k;
            p[n] = '\0';
        }
        return *this;
    }
    Bytes& operator<<(const char* s) { return append(s, std::strlen(s)); }
    char* release() {
        char* r = reserve(0) ? p : nullptr;
        if (r) p = nullptr, n = cap = 0;
        return r;
    }
};

// DSP0200 header values: UTF-8, every octet outside the RFC 2396
// unreserved set %-escaped, so "root/cimv2" goes as "root%2Fcimv2".
void appendEscaped(Bytes& out, const char* text) {
    static const char kHex[] = "0123456789ABCDEF";
    for (const unsigned char* c = reinterpret_cast<const unsigned char*>(text ? text : ""); *c; ++c) {
        if (std::isalnum(*c) || std::strchr("-_.!~*'()", *c)) {
            out.append(reinterpret_cast<const char*>(c), 1);
        } else {
            const char esc[3] = {'%', kHex[*c >> 4], kHex[*c & 15]};
            out.append(esc, 3);
        }
    }
}

// Reads more of the reply into `in`. False on close or failure, with
// `failure` filled (a close is described with `what`).
bool readMore(Connection& conn, Bytes& in, const char* what, Failure* failure) {
    if (!in.reserve(kReadStep)) return failure->set(CIMXML_ERROR_MEMORY, "out of memory reading the reply");
    ssize_t got = conn.receive(in.p + in.n, kReadStep, failure);
    if (got < 0) return false;
    if (got == 0) return failure->set(CIMXML_ERROR_CLOSED, "the connection was closed %s", what);
    in.n += static_cast<std::size_t>(got);
    in.p[in.n] = '\0';
    return true;
}

struct Head {
    int status = 0;
    char reason[64] = {};
    bool chunked = false;
    bool hasLength = false;
    std::size_t length = 0;
    char cimError[128] = {};
};

// [s, end) without the blanks that lead it.
std::string_view unled(const char* s, const char* end) {
    std::string_view t(s, static_cast<std::size_t>(end - s));
    t.remove_prefix(std::min(t.find_first_not_of(" \t"), t.size()));
    return t;
}

// Strict decimal between blanks, no sign, no overflow.
bool parseLength(const char* s, const char* end, std::size_t* out) {
    std::string_view t = unled(s, end);
    t = t.substr(0, t.find_last_not_of(" \t") + 1);  // npos + 1 is 0: an empty value stays empty
    std::size_t v = 0;
    const auto [stop, error] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (error != std::errc() || stop != t.data() + t.size() || v > SIZE_MAX / 4) return false;
    *out = v;
    return true;
}

void copyField(char* dst, std::size_t n, const char* s, const char* end) {
    const std::string_view t = unled(s, end);
    const std::size_t k = std::min(t.size(), n - 1);
    std::memcpy(dst, t.data(), k);
    dst[k] = '\0';
}

// The end of a line's text: before the CR of a CR LF end.
const char* textEnd(const char* line, const char* lineEnd) {
    return lineEnd > line && lineEnd[-1] == '\r' ? lineEnd - 1 : lineEnd;
}

// The status line and the fields this exchange needs, from [p, end).
bool parseHead(const char* p, const char* end, Head* head, Failure* failure) {
    const char* eol = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
    const char* lineEnd = eol ? eol : end;
    if (lineEnd - p < 12 || std::strncmp(p, "HTTP/1.", 7) != 0 || p[8] != ' ' || !std::isdigit((unsigned char)p[9]) ||
        !std::isdigit((unsigned char)p[10]) || !std::isdigit((unsigned char)p[11])) {
        char first[81];
        copyField(first, sizeof first, p, std::min(textEnd(p, lineEnd), p + 80));
        return failure->set(CIMXML_ERROR_PROTOCOL, "not an HTTP reply: \"%s\"", first);
    }
    head->status = (p[9] - '0') * 100 + (p[10] - '0') * 10 + (p[11] - '0');
    const char* r = p + 12;
    copyField(head->reason, sizeof head->reason, r, textEnd(r, lineEnd));

    for (const char* line = eol ? eol + 1 : end; line < end;) {
        const char* next = static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
        const char* le = next ? next : end;
        const char* ve = textEnd(line, le);
        const char* colon = static_cast<const char*>(std::memchr(line, ':', static_cast<std::size_t>(ve - line)));
        if (colon) {
            std::size_t nameLen = static_cast<std::size_t>(colon - line);
            auto is = [&](const char* name) { return nameLen == std::strlen(name) && strncasecmp(line, name, nameLen) == 0; };
            if (is("Content-Length")) {
                if (!parseLength(colon + 1, ve, &head->length))
                    return failure->set(CIMXML_ERROR_PROTOCOL, "the reply's Content-Length is not a number");
                head->hasLength = true;
            } else if (is("Transfer-Encoding")) {
                char value[64];
                copyField(value, sizeof value, colon + 1, ve);
                for (char* c = value; *c; ++c) *c = static_cast<char>(std::tolower((unsigned char)*c));
                head->chunked = std::strstr(value, "chunked") != nullptr;
            } else if (is("CIMError")) {
                copyField(head->cimError, sizeof head->cimError, colon + 1, ve);
            }
        }
        line = next ? next + 1 : end;
    }
    return true;
}

// The chunked body starting at in.p + pos, decoded into body.
bool readChunked(Connection& conn, Bytes& in, std::size_t pos, Bytes& body, Failure* failure) {
    for (;;) {
        char* eol;
        while (!(eol = static_cast<char*>(std::memchr(in.p + pos, '\n', in.n - pos)))) {
            if (in.n - pos > kMaxChunkLine)
                return failure->set(CIMXML_ERROR_PROTOCOL, "a chunk size line of the reply is too long");
            if (!readMore(conn, in, "in the middle of a chunked reply", failure)) return false;
        }
        char* sizeEnd = nullptr;
        errno = 0;
        unsigned long long size = std::strtoull(in.p + pos, &sizeEnd, 16);
        if (sizeEnd == in.p + pos || !std::isxdigit((unsigned char)in.p[pos]) || errno ||
            size > SIZE_MAX / 4 || (*sizeEnd != ';' && *sizeEnd != '\r' && *sizeEnd != '\n' && *sizeEnd != ' ')) {
            return failure->set(CIMXML_ERROR_PROTOCOL, "the reply has a malformed chunk size");
        }
        pos = static_cast<std::size_t>(eol - in.p) + 1;
        if (size == 0) return true;  // trailers, if any, are of no use here
        const std::size_t need = static_cast<std::size_t>(size) + 2;
        while (in.n - pos < need)
            if (!readMore(conn, in, "in the middle of a chunk of the reply", failure)) return false;
        if (body.append(in.p + pos, static_cast<std::size_t>(size)).failed)
            return failure->set(CIMXML_ERROR_MEMORY, "out of memory reading the reply");
        pos += static_cast<std::size_t>(size);
        if (in.p[pos] == '\r') ++pos;
        if (in.p[pos] != '\n')
            return failure->set(CIMXML_ERROR_PROTOCOL, "a chunk of the reply does not end with CR LF");
        ++pos;
        // Give back what has been decoded, so a long reply is not held twice.
        if (pos > kReadStep * 4) {
            std::memmove(in.p, in.p + pos, in.n - pos);
            in.n -= pos;
            in.p[in.n] = '\0';
            pos = 0;
        }
    }
}

const char* headerEnd(const Bytes& in, std::size_t from) {
    for (std::size_t i = from; i + 1 < in.n; ++i) {
        if (in.p[i] != '\n') continue;
        if (in.p[i + 1] == '\n') return in.p + i + 2;
        if (in.p[i + 1] == '\r' && i + 2 < in.n && in.p[i + 2] == '\n') return in.p + i + 3;
    }
    return nullptr;
}

int exchange(const char* requestText, char** responseOut, const Peer& peer, const Security& security,
             const Call& call, Failure* failure) {
    std::size_t length = 0;
    char* request = frameStandard(requestText, peer, call, &length);
    if (!request) {
        failure->set(CIMXML_ERROR_MEMORY, "out of memory framing the request");
        return -1;
    }
    rt_log_init();
    // The XML alone, as the default exchange logs it: never the credentials.
    _rt_log("src/transport/standard", __LINE__, "CIMCLIENT", "network", 2, "Request:\n%s", requestText);

    Connection conn;
    bool sent = conn.open(peer.host, peer.port, peer.timeoutMs, security, failure) &&
                conn.sendAll(request, length, failure);
    std::free(request);
    if (!sent) return -1;

    Bytes in;
    const char* bodyStart;
    Head head;
    for (;;) {
        std::size_t scanned = 0;
        while (!(bodyStart = headerEnd(in, scanned >= 3 ? scanned - 3 : 0))) {
            scanned = in.n;
            if (in.n > kMaxHeader) {
                failure->set(CIMXML_ERROR_PROTOCOL, "the reply header is longer than %zu bytes", kMaxHeader);
                return -1;
            }
            if (!readMore(conn, in, in.n ? "before the reply header was complete" : "without a reply", failure))
                return -1;
        }
        head = Head{};
        if (!parseHead(in.p, bodyStart, &head, failure)) return -1;
        if (head.status >= 200) break;
        // An interim 1xx reply: the real one follows.
        std::size_t used = static_cast<std::size_t>(bodyStart - in.p);
        std::memmove(in.p, bodyStart, in.n - used);
        in.n -= used;
        in.p[in.n] = '\0';
    }
    if (head.status == 401) return 401;
    if (head.status != 200) {
        char code[16];
        std::snprintf(code, sizeof code, "%d", head.status);
        if (head.cimError[0])
            failure->set(code, "HTTP %d %s (CIMError: %s)", head.status, head.reason, head.cimError);
        else
            failure->set(code, "HTTP %d %s", head.status, head.reason);
        return -1;
    }

    const std::size_t pos = static_cast<std::size_t>(bodyStart - in.p);
    Bytes body;
    if (head.chunked) {
        if (!readChunked(conn, in, pos, body, failure)) return -1;
    } else if (head.hasLength) {
        if (!body.reserve(head.length)) {
            failure->set(CIMXML_ERROR_MEMORY, "out of memory for a reply of %zu bytes", head.length);
            return -1;
        }
        const std::size_t have = std::min(in.n - pos, head.length);
        body.append(in.p + pos, have);
        while (body.n < head.length) {
            ssize_t got = conn.receive(body.p + body.n, head.length - body.n, failure);
            if (got < 0) return -1;
            if (got == 0) {
                failure->set(CIMXML_ERROR_CLOSED, "the connection was closed after %zu of %zu reply bytes", body.n,
                             head.length);
                return -1;
            }
            body.n += static_cast<std::size_t>(got);
            body.p[body.n] = '\0';
        }
    } else {
        // Neither length nor chunks: the body runs to the close.
        body.append(in.p + pos, in.n - pos);
        for (;;) {
            if (!body.reserve(kReadStep)) {
                failure->set(CIMXML_ERROR_MEMORY, "out of memory reading the reply");
                return -1;
            }
            ssize_t got = conn.receive(body.p + body.n, kReadStep, failure);
            if (got < 0) return -1;
            if (got == 0) break;
            body.n += static_cast<std::size_t>(got);
            body.p[body.n] = '\0';
        }
    }
    char* text = body.release();
    if (!text) {
        failure->set(CIMXML_ERROR_MEMORY, "out of memory reading the reply");
        return -1;
    }
    _rt_log("src/transport/standard", __LINE__, "CIMCLIENT", "network", 2, "Response:\n%s", text);
    *responseOut = text;
    return 0;
}

}  // namespace

char* frameStandard(const char* requestText, const Peer& peer, const Call& call, std::size_t* length) noexcept {
    const char* host = peer.host ? peer.host : "";
    const std::size_t bodyLength = std::strlen(requestText);
    char number[48];
    Bytes out;
    // A literal IPv6 address goes in brackets.
    bool v6 = std::strchr(host, ':') != nullptr;
    out << "POST /cimom HTTP/1.1\r\nHost: " << (v6 ? "[" : "") << host << (v6 ? "]" : "");
    std::snprintf(number, sizeof number, ":%d\r\n", peer.port & 0xFFFF);
    out << number << "Content-Type: application/xml; charset=\"utf-8\"\r\n";
    std::snprintf(number, sizeof number, "Content-Length: %zu\r\n", bodyLength);
    out << number << "CIMProtocolVersion: 1.0\r\nCIMOperation: MethodCall\r\nCIMMethod: ";
    appendEscaped(out, call.method);
    out << "\r\nCIMObject: ";
    appendEscaped(out, call.object);
    out << "\r\nAuthorization: Basic ";

    // "user:password" in base64.
    Bytes credentials;
    credentials << (peer.userName ? peer.userName : "") << ":" << (peer.password ? peer.password : "");
    const std::size_t encodedSize = (credentials.n + 2) / 3 * 4 + 1;
    if (credentials.failed || !out.reserve(encodedSize)) return nullptr;
    Encode64(out.p + out.n, credentials.p, static_cast<int>(encodedSize));
    out.n += std::strlen(out.p + out.n);
    out << "\r\n\r\n";
    out.append(requestText, bodyLength);
    *length = out.n;
    return out.release();
}

int sendStandard(const char* requestText, char** responseOut, const Peer& peer, const Security& security,
                 const Call& call, Failure* failure) noexcept {
    if (!requestText || !responseOut || !failure) return -1;
    *responseOut = nullptr;
    return exchange(requestText, responseOut, peer, security, call, failure);
}

}  // namespace cimxml::transport
