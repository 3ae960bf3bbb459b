// A raw-bytes HTTP peer for tests: listens on 127.0.0.1:<free port>, plays
// the scripted reply to each connection, one after another, and records what
// each sent.
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
    bool readRequest = true;   // false replies before the request is read
    bool resetAfter = false;   // abort (RST) after the last segment instead of half-closing
};

// "HTTP/1.1 200 OK" with Content-Length = body size + lengthDelta.
inline std::string okResponse(const std::string& body, long lengthDelta = 0) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
           std::to_string(static_cast<long>(body.size()) + lengthDelta) + "\r\n\r\n" + body;
}
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
    explicit RawServer(Reply r) : reply_(std::move(r)) {}
    ~RawServer() {
        stopping_ = true;
        ::shutdown(listener_, SHUT_RDWR);  // wakes the accept loop's poll at once
        if (thread_.joinable()) thread_.join();
        ::close(listener_);
    }

    bool start() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            ::listen(listener_, 16) != 0 || ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len) != 0)
            return false;
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] {
            while (readable(listener_, 1 << 30))
                if (int fd = ::accept(listener_, nullptr, nullptr); fd >= 0) serve(fd);
        });
        return true;
    }
    int port() const { return port_; }

    // Everything connection i sent once the client closed it ("" after 10 s).
    std::string request(std::size_t i) {
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait_for(lock, std::chrono::seconds(10), [&] { return requests_.size() > i; });
        return requests_.size() > i ? requests_[i] : std::string();
    }
    std::size_t finishedConnections() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_.size();
    }

private:
    bool readable(int fd, int idleMs) {
        pollfd p{fd, POLLIN, 0};
        for (int waited = 0; waited < idleMs && !stopping_; waited += 20)
            if (::poll(&p, 1, 20) > 0) return true;
        return false;
    }
    bool readSome(int fd, std::string& got) {
        char buf[65536];
        ssize_t n = readable(fd, 10000) ? ::recv(fd, buf, sizeof buf, 0) : 0;
        return n > 0 && (got.append(buf, static_cast<std::size_t>(n)), true);
    }
    // The header block ends with CR LF LF (the default framing) or CR LF CR
    // LF (the standard one), then the body follows.
    static bool requestComplete(const std::string& got) {
        std::size_t end = got.find("\r\n\n"), gap = 3;
        if (end == std::string::npos) end = got.find("\r\n\r\n"), gap = 4;
        std::size_t field = got.find("Content-Length:");
        return end != std::string::npos && (field == std::string::npos || field > end ||
                                            got.size() >= end + gap + std::strtoul(&got[field + 15], nullptr, 10));
    }
    void serve(int fd) {
        std::string got;
        while (reply_.readRequest && !requestComplete(got) && readSome(fd, got)) {}
        int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        for (const Segment& s : reply_.segments) {
            std::this_thread::sleep_for(std::chrono::milliseconds(s.delayMs));
            for (ssize_t at = 0, n = 0; at < static_cast<ssize_t>(s.bytes.size()) && !stopping_ && n >= 0; at += n)
                if ((n = ::send(fd, &s.bytes[at], s.bytes.size() - at, MSG_NOSIGNAL)) <= 0) break;
        }
        linger abort{1, 0};  // or half-close, then read to EOF so the close never resets the stream
        if (reply_.resetAfter) ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        else if (::shutdown(fd, SHUT_WR) == 0) while (readSome(fd, got)) {}
        ::close(fd);
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(std::move(got));
        done_.notify_all();
    }

    Reply reply_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::vector<std::string> requests_;
};

}  // namespace cimtest
