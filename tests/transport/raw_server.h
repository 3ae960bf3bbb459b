// A raw-bytes HTTP peer for tests: listens on 127.0.0.1:<free port>, records
// every byte each connection sends and plays a scripted reply.
//
//   cimtest::RawServer server(cimtest::okReply("<?xml ...>"));
//   ASSERT_TRUE(server.start());
//   CIMSendRequest(xml, &body, "127.0.0.1", server.port(), "u", "p", 1000);
//   std::string wire = server.request(0);   // the whole request, as sent
//
// Connections are served one after another on one thread; connection i gets
// replies[i], the last reply is reused for any later connection. By default
// the server reads the complete request (header block, then Content-Length
// body bytes after the first blank line), writes the segments with their
// delays, half-closes, and keeps recording until the client closes.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cimtest {

struct Segment {
    std::string bytes;
    int delayMs = 0;  // pause before this segment is written
};

struct Reply {
    std::vector<Segment> segments;
    // Read the whole request before replying; false replies at once.
    bool readRequest = true;
    // After the last segment: false leaves the connection open (still
    // recording) until the client closes it or the server stops.
    bool closeAfter = true;
    // After the last segment, abort the connection (RST) instead.
    bool resetAfter = false;
};

// "HTTP/1.1 200 OK" with Content-Length = body size + lengthDelta.
inline std::string okResponse(const std::string& body, long lengthDelta = 0) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
           std::to_string(static_cast<long>(body.size()) + lengthDelta) + "\r\n\r\n" + body;
}

// The bytes in one segment.
inline Reply reply(const std::string& bytes) { return Reply{{Segment{bytes, 0}}}; }
inline Reply okReply(const std::string& body) { return reply(okResponse(body)); }

// The bytes cut at the given offsets, delayMs before each later segment.
inline Reply splitReply(const std::string& bytes, std::vector<std::size_t> cuts, int delayMs) {
    Reply r;
    std::size_t from = 0;
    cuts.push_back(bytes.size());
    for (std::size_t cut : cuts) {
        r.segments.push_back(Segment{bytes.substr(from, cut - from), r.segments.empty() ? 0 : delayMs});
        from = cut;
    }
    return r;
}

class RawServer {
public:
    explicit RawServer(std::vector<Reply> replies) : replies_(std::move(replies)) {}
    explicit RawServer(Reply r) { replies_.push_back(std::move(r)); }
    ~RawServer() { stop(); }
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    bool start() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (listener_ < 0) return false;
        int on = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(listener_, 16) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len) != 0)
            return false;
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { run(); });
        return true;
    }

    void stop() {
        stopping_ = true;
        if (thread_.joinable()) thread_.join();
        if (listener_ >= 0) ::close(listener_);
        listener_ = -1;
    }

    int port() const { return port_; }

    // Everything connection i sent, once it is finished (closed by the
    // client or given up); "" when it does not finish within timeoutMs.
    std::string request(std::size_t i, int timeoutMs = 10000) {
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return requests_.size() > i; });
        return requests_.size() > i ? requests_[i] : std::string();
    }
    std::size_t finishedConnections() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_.size();
    }

private:
    // Waits until fd is readable; false on stop or after idleMs of silence.
    bool readable(int fd, int idleMs) {
        for (int waited = 0; waited < idleMs && !stopping_; waited += 20) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 20) > 0) return true;
        }
        return false;
    }

    // Reads one chunk into got; false on EOF, error, stop or idleness.
    bool readSome(int fd, std::string& got, int idleMs = 10000) {
        if (!readable(fd, idleMs)) return false;
        char buf[65536];
        ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return false;
        got.append(buf, static_cast<std::size_t>(n));
        return true;
    }

    static bool requestComplete(const std::string& got) {
        std::size_t end = got.find("\r\n\r\n");
        std::size_t bodyAt = end == std::string::npos ? std::string::npos : end + 4;
        std::size_t lf = got.find("\r\n\n");  // the client's own framing ends its header block with CR LF LF
        if (lf != std::string::npos && (bodyAt == std::string::npos || lf + 3 < bodyAt)) bodyAt = lf + 3;
        if (bodyAt == std::string::npos) return false;
        std::size_t field = got.find("Content-Length:");
        if (field == std::string::npos || field > bodyAt) return true;
        long length = std::strtol(got.c_str() + field + 15, nullptr, 10);
        return got.size() >= bodyAt + static_cast<std::size_t>(length < 0 ? 0 : length);
    }

    void sendAll(int fd, const std::string& bytes) {
        std::size_t at = 0;
        while (at < bytes.size() && !stopping_) {
            ssize_t n = ::send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (n <= 0) return;
            at += static_cast<std::size_t>(n);
        }
    }

    void serve(int fd, const Reply& r) {
        std::string got;
        if (r.readRequest)
            while (!requestComplete(got) && readSome(fd, got)) {
            }
        int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        for (const Segment& s : r.segments) {
            if (s.delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(s.delayMs));
            sendAll(fd, s.bytes);
        }
        if (r.resetAfter) {
            linger abort{1, 0};
            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
            ::close(fd);
            finish(std::move(got));
            return;
        }
        // Half-close, then read to EOF so the close never resets the stream.
        if (r.closeAfter) ::shutdown(fd, SHUT_WR);
        while (readSome(fd, got, r.closeAfter ? 10000 : 60000)) {
        }
        ::close(fd);
        finish(std::move(got));
    }

    void finish(std::string got) {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(std::move(got));
        done_.notify_all();
    }

    void run() {
        for (std::size_t served = 0; !stopping_;) {
            if (!readable(listener_, 1 << 30)) break;
            int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) continue;
            serve(fd, replies_.empty() ? none_ : replies_[served < replies_.size() ? served : replies_.size() - 1]);
            ++served;
        }
    }

    std::vector<Reply> replies_;
    const Reply none_{};
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::vector<std::string> requests_;
};

}  // namespace cimtest
