// A raw HTTP client for the mock object manager tests: loopback sockets,
// replies read by Content-Length, chunked coding or the end of the stream.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>

namespace {

int connectTo(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

struct Reply {
  std::string raw, body;
  int status = 0, reads = 0;
  int chunks = -1;   // chunks of a complete chunked body, -1 before
  long spanMs = 0;   // from the first read to the last
  std::map<std::string, std::string> headers;  // lower-case names
  bool closed = false;
};

void parseReply(Reply* r) {
  size_t end = r->raw.find("\r\n\r\n");
  if (end == std::string::npos) return;
  r->body = r->raw.substr(end + 4);
  if (r->raw.compare(0, 9, "HTTP/1.1 ") == 0) r->status = std::atoi(r->raw.c_str() + 9);
  for (size_t pos = r->raw.find("\r\n"); pos < end; pos = r->raw.find("\r\n", pos + 2)) {
    std::string line = r->raw.substr(pos + 2, r->raw.find("\r\n", pos + 2) - pos - 2);
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string n = line.substr(0, colon);
    for (auto& c : n) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t v = line.find_first_not_of(' ', colon + 1);
    r->headers[n] = v == std::string::npos ? "" : line.substr(v);
  }
  if (r->headers["transfer-encoding"] != "chunked") return;
  std::string coded = r->body, plain;
  int chunks = 0;
  for (size_t pos = 0;;) {
    size_t eol = coded.find("\r\n", pos);
    if (eol == std::string::npos) return;
    size_t n = std::strtoul(coded.c_str() + pos, nullptr, 16);
    if (n == 0) {
      if (coded.compare(eol, 4, "\r\n\r\n") != 0) return;
      r->body = plain;
      r->chunks = chunks;
      return;
    }
    if (coded.size() < eol + 2 + n + 2) return;
    plain += coded.substr(eol + 2, n);
    ++chunks;
    pos = eol + 2 + n + 2;
  }
}

// Reads one reply: until the announced Content-Length is in, the peer
// closes, or the time-out passes.
Reply readReply(int fd) {
  Reply r;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  char buf[65536];
  auto first = deadline;
  while (true) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd p{fd, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) {
      r.closed = true;
      break;
    }
    if (++r.reads == 1) first = std::chrono::steady_clock::now();
    r.spanMs = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - first).count();
    r.raw.append(buf, static_cast<size_t>(n));
    parseReply(&r);
    if (r.headers.count("content-length") && r.body.size() >= std::stoul(r.headers["content-length"])) break;
    if (r.chunks >= 0) break;
  }
  parseReply(&r);
  return r;
}

Reply httpExchange(int port, const std::string& bytes) {
  int fd = connectTo(port);
  EXPECT_GE(fd, 0);
  if (fd < 0) return Reply();
  ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  Reply r = readReply(fd);
  ::close(fd);
  return r;
}


}  // namespace
