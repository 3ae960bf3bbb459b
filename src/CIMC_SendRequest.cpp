// HTTP transport: the request header block with Basic credentials, and the
// default mode's request/reply exchange over a fresh connection (plain TCP,
// or TLS when the handle asks for it).
//
// Every exit closes the socket and frees the send buffer, the failure exits
// included: the caller never sees either, so this only avoids leaks.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "cimxml/client.h"
#include "rtlog.h"
#include "transport/exchange.h"
#include "transport/seams.h"

namespace cimxml {
namespace transport {
SetSockOptFn g_setSockOpt = ::setsockopt;
}  // namespace transport
}  // namespace cimxml

namespace {

constexpr std::size_t kScratchSize = 16384;

constexpr const char* kLogFile = "src/CIMC_SendRequest";
constexpr const char* kLogComponent = "CIMCLIENT";
constexpr const char* kLogCategory = "network";
constexpr int kLogLevel = 2;

constexpr std::size_t kReceiveSize = 2048;  // the first read takes one less
constexpr const char kTooBig[] = "String too big";

constexpr const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// 62 and 63 sit at 27 and 31 rather than at '+' and '/': deliberate, so
// '+' and '/' decode as 0xFF.
struct DecodeTable {
    unsigned char value[256];
    constexpr DecodeTable() : value() {
        for (int i = 0; i < 256; ++i) value[i] = 0xFF;
        for (int i = 0; i < 26; ++i) {
            value['A' + i] = static_cast<unsigned char>(i);
            value['a' + i] = static_cast<unsigned char>(26 + i);
        }
        for (int i = 0; i < 10; ++i) value['0' + i] = static_cast<unsigned char>(52 + i);
        value[27] = 62;
        value[31] = 63;
    }
};
constexpr DecodeTable kDecode;

// Appends text, keeping strlen(buffer) <= bufferSize - 1.
void appendBounded(char* buffer, unsigned int bufferSize, const char* text) {
    std::size_t used = strnlen(buffer, bufferSize);
    if (used + 1 >= bufferSize) return;
    std::strncat(buffer, text, bufferSize - used - 1);
}

// Joins pieces into `out` as snprintf into a buffer of kScratchSize would:
// cut after kScratchSize - 1 bytes, always terminated.
void join(char* out, std::initializer_list<const char*> pieces) {
    std::size_t n = 0;
    for (const char* piece : pieces)
        for (; *piece && n < kScratchSize - 1; ++piece) out[n++] = *piece;
    out[n] = '\0';
}

// One header line, built in the scratch buffer, then appended.
void appendLine(char* buffer, unsigned int bufferSize, char* scratch, std::initializer_list<const char*> pieces) {
    join(scratch, pieces);
    appendBounded(buffer, bufferSize, scratch);
}

// Receives into [fill, limit) until it is full, the peer closes or recv
// fails. The bytes past fill are still zero from the allocation, so they are not
// cleared again on each round (that would make large bodies quadratic).
void receiveRest(cimxml::transport::Connection& conn, char* fill, char* const limit) {
    while (fill < limit) {
        ssize_t got = conn.receive(fill, static_cast<std::size_t>(limit - fill), nullptr);
        if (got < 0) {
            std::fputs("ERROR!!! while recv data\n", stderr);
            break;
        }
        // Deliberate: a closed peer ends the loop instead of retrying it forever.
        if (got == 0) break;
        fill += got;
    }
}

}  // namespace

extern "C" {

int CIMC_CreateStdHttpHeaders(const char* /*host: no Host header is written*/, int contentLength, char* buffer,
                              unsigned int bufferSize, const char* userName, const char* password) {
    if (!buffer || bufferSize == 0) return 0;
    char line[kScratchSize];
    char credentials[kScratchSize];
    char encoded[kScratchSize];
    char length[16];
    *std::to_chars(length, length + sizeof length - 1, contentLength).ptr = '\0';

    // The blanks around the path and before CR LF are deliberate; servers
    // have always been sent exactly this line.
    appendLine(buffer, bufferSize, line, {"POST", " ", " /cimom HTTP/1.1", " \r\n"});
    appendLine(buffer, bufferSize, line, {"Content-Type:", " ", "application/xml; charset=\"utf-8\"", "\r\n"});
    appendLine(buffer, bufferSize, line, {"Content-Length:", " ", length, "\r\n"});

    join(credentials, {userName ? userName : "", ":", password ? password : ""});
    Encode64(encoded, credentials, static_cast<int>(sizeof encoded));
    appendLine(buffer, bufferSize, line, {"Authorization: Basic", " ", encoded, "\r\n"});

    return static_cast<int>(strnlen(buffer, bufferSize));
}

// Alphabet characters, padding and terminator all stay inside output, the
// text cut short when it does not fit.
void Encode64(char* output, const char* input, int outputSize) {
    if (!output || outputSize <= 0) return;
    char* out = output;
    char* const last = output + outputSize - 1;
    *out = '\0';
    if (!input) return;

    const unsigned char* in = reinterpret_cast<const unsigned char*>(input);
    while (*in) {
        std::uint32_t group = 0;
        int taken = 0;
        for (; taken < 3 && in[taken]; ++taken) group |= static_cast<std::uint32_t>(in[taken]) << (16 - 8 * taken);
        in += taken;
        const int missing = 3 - taken;
        for (int i = 0; i < 4 - missing; ++i)
            if (out < last) *out++ = kAlphabet[(group >> (18 - 6 * i)) & 0x3F];
        for (int i = 0; i < missing; ++i)
            if (out < last) *out++ = '=';
        *out = '\0';
    }
}

// "String too big" is cut to fit buffers shorter than 15 bytes.
int Decode64(char* output, const char* input, int outputSize) {
    if (!output || outputSize <= 0) return -1;
    output[0] = '\0';
    if (!input || input[0] == '\0' || input[0] == '=') return 0;

    const unsigned char* in = reinterpret_cast<const unsigned char*>(input);
    char* out = output;
    char* const end = output + outputSize;
    do {
        // Table values are not masked: 0xFF spills into the neighbouring bytes.
        std::uint32_t group = 0;
        int gathered = 0;
        for (; gathered < 4 && in[gathered] && in[gathered] != '='; ++gathered)
            group |= static_cast<std::uint32_t>(kDecode.value[in[gathered]]) << (18 - 6 * gathered);
        in += gathered;
        const int bytes = gathered - 1;
        if (end - out <= bytes) {
            std::size_t n = sizeof kTooBig - 1;
            if (n > static_cast<std::size_t>(outputSize) - 1) n = static_cast<std::size_t>(outputSize) - 1;
            std::memcpy(output, kTooBig, n);
            output[n] = '\0';
            return -1;
        }
        for (int i = 0; i < bytes; ++i) *out++ = static_cast<char>((group >> (16 - 8 * i)) & 0xFF);
        *out = '\0';
    } while (*in && *in != '=');
    return 0;
}

int CIMC_TcpConnect(const char* host, int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd == -1) return -1;

    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    // No name lookup; text that is not an address becomes 255.255.255.255.
    address.sin_addr.s_addr = host ? ::inet_addr(host) : INADDR_NONE;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), 16) == -1) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int CIMSendRequest(const char* requestText, char** responseOut, const char* host, int port, const char* userName,
                   const char* password, int timeout) {
    const cimxml::transport::Peer peer{host, port, userName, password, timeout};
    return cimxml::transport::sendDefault(requestText, responseOut, peer, cimxml::transport::Security{});
}

}  // extern "C"

namespace cimxml::transport {

int sendDefault(const char* requestText, char** responseOut, const Peer& peer, const Security& security,
                KeptBlock* reply) noexcept {
    char received[kReceiveSize];
    char lengthText[10];
    std::memset(received, 0, sizeof received);
    std::memset(lengthText, 0, sizeof lengthText);
    if (!requestText) return -1;

    const std::size_t xmlLength = std::strlen(requestText);
    std::size_t sendSize = xmlLength + 512;
    KeptBlock* const kept = KeptBlock::ofThread();
    char* sendBuffer = takeZeroed(kept, sendSize);
    if (!sendBuffer) return -1;

    EmptyPrintf("\n Creating header \n");
    CIMC_CreateStdHttpHeaders(peer.host, static_cast<int>(xmlLength + 1), sendBuffer,
                              static_cast<unsigned int>(sendSize), peer.userName, peer.password);

    // LF CR between the header block and the XML, with Content-Length
    // counting that CR: deliberate, the framing servers have always seen.
    const std::size_t headerLength = std::strlen(sendBuffer);
    const std::size_t messageLength = headerLength + 2 + xmlLength;
    if (messageLength + 1 > sendSize) {  // only very long credentials get here
        char* grown = static_cast<char*>(std::malloc(messageLength + 1));
        if (grown) std::memcpy(grown, sendBuffer, headerLength);
        releaseTaken(kept, sendBuffer);
        if (!grown) return -1;
        sendBuffer = grown;
    }
    sendBuffer[headerLength] = '\n';
    sendBuffer[headerLength + 1] = '\r';
    std::memcpy(sendBuffer + headerLength + 2, requestText, xmlLength);
    sendBuffer[messageLength] = '\0';

    rt_log_init();
    _rt_log(kLogFile, 295, kLogComponent, kLogCategory, kLogLevel, "Request:\n%s", requestText);

    EmptyPrintf("\n Connecting to socket \n");
    // A failed connect (or TLS handshake) fails like a failed send.
    Connection conn;
    const bool connected = conn.adopt(CIMC_TcpConnect(peer.host, peer.port), peer.host, security, nullptr);
    const bool sent = connected && conn.sendAll(sendBuffer, messageLength, nullptr);
    releaseTaken(kept, sendBuffer);  // before the body may take the same block
    if (!sent) return -1;

    // Deliberate: option length 0, so the kernel refuses the time-out and
    // none is in force (and the remainder was never scaled to microseconds).
    timeval limit;
    limit.tv_sec = peer.timeoutMs / 1000;
    limit.tv_usec = peer.timeoutMs % 1000;
    (void)g_setSockOpt(conn.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, 0);

    // One read; whatever the rest of the reply holds is not looked at.
    (void)conn.receive(received, sizeof received - 1, nullptr);

    if (std::strstr(received, "401 Unauthorized")) return 401;
    const char* lengthField = std::strstr(received, "Content-Length:");
    if (!lengthField || !responseOut) return -1;
    std::sscanf(lengthField + 15, "%9s", lengthText);
    const int num = static_cast<int>(std::strtol(lengthText, nullptr, 10));

    *responseOut = nullptr;
    // A negative length cannot be allocated and is reported like a failed allocation.
    const std::size_t bodySize = static_cast<std::size_t>(num) + 1;
    char* body = num < 0 ? nullptr : reply ? reply->take(bodySize) : static_cast<char*>(std::calloc(bodySize, 1));
    if (!body) {
        std::fprintf(stderr, "%s %d could not allocate memory ", kLogFile, 355);
        return -1;
    }
    *responseOut = body;

    const char* xml = std::strstr(received, "<?xml");
    if (!xml) return -1;  // the caller frees the empty body
    std::size_t copied = std::strlen(xml);
    if (copied > static_cast<std::size_t>(num)) copied = static_cast<std::size_t>(num);
    std::memcpy(body, xml, copied);
    char* const fill = body + copied;
    char* const end = body + num;

    // Deliberate bands: bodies up to 512 bytes, and exactly 2048, are never
    // read beyond the first recv.
    if (static_cast<unsigned int>(num - 513) <= 1534u) receiveRest(conn, fill, end);
    if (num > 2048) receiveRest(conn, fill, end);

    // "Respone" is spelled as log readers have always matched it.
    _rt_log(kLogFile, 397, kLogComponent, kLogCategory, kLogLevel, "Respone:\n%s", body);
    return 0;
}

}  // namespace cimxml::transport
