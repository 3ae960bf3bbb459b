// A raw HTTP client for the mock object manager tests: one request over a
// loopback socket, the reply read by Content-Length, to the final chunk or to
// the end of the stream; and the CIM requests they send.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

int connectTo(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return fd;
  ::close(fd);
  return -1;
}

struct Reply {
  std::string raw, head, body;  // head keeps its lines as sent
  int status = 0, reads = 0;
  bool closed = false;
  bool has(const std::string& line) const { return head.find("\r\n" + line + "\r\n") != std::string::npos; }
  std::string header(const std::string& name) const {  // "" when absent
    size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    at += name.size() + 4;
    return head.substr(at, head.find("\r\n", at) - at);
  }
};

Reply readReply(int fd) {
  Reply r;
  char buf[65536];
  for (pollfd p{fd, POLLIN, 0}; ::poll(&p, 1, 3000) > 0;) {
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if ((r.closed = n <= 0)) break;
    ++r.reads;
    r.raw.append(buf, static_cast<size_t>(n));
    size_t end = r.raw.find("\r\n\r\n");
    if (end == std::string::npos) continue;
    r.head = r.raw.substr(0, end + 2);
    r.body = r.raw.substr(end + 4);
    std::string length = r.header("Content-Length");
    if (!length.empty() && r.body.size() >= std::strtoul(length.c_str(), nullptr, 10)) break;
    if (r.has("Transfer-Encoding: chunked") && r.body.size() >= 5 && r.body.compare(r.body.size() - 5, 5, "0\r\n\r\n") == 0)
      break;
  }
  if (r.raw.compare(0, 9, "HTTP/1.1 ") == 0) r.status = std::atoi(r.raw.c_str() + 9);
  return r;
}

// A CIM request message around one call, in root/cimv2.
const std::string kCimv2 = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>";
std::string cimRequest(const std::string& call) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"7\" "
         "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" + call + "</SIMPLEREQ></MESSAGE></CIM>";
}
std::string imethod(const std::string& name, const std::string& params) {
  return cimRequest("<IMETHODCALL NAME=\"" + name + "\">" + kCimv2 + params + "</IMETHODCALL>");
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
