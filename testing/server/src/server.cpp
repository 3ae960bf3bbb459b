// The HTTP front end: one background thread serving requests one after
// another on 127.0.0.1, with fault injection.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "internal.h"

namespace cimmock {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxHeaderBytes = 64 * 1024;
constexpr size_t kMaxBodyBytes = 64 * 1024 * 1024;
constexpr size_t kMaxConnections = 64;

std::string lowerTrim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r\n");
  return toLower(s.substr(b, e - b + 1));
}
std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

std::string base64Decode(const std::string& in) {
  std::string out;
  unsigned buf = 0;
  int bits = 0;
  for (char c : in) {
    int v;
    if (c >= 'A' && c <= 'Z') v = c - 'A';
    else if (c >= 'a' && c <= 'z') v = c - 'a' + 26;
    else if (c >= '0' && c <= '9') v = c - '0' + 52;
    else if (c == '+') v = 62;
    else if (c == '/') v = 63;
    else continue;  // '=' and blanks
    buf = (buf << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((buf >> bits) & 0xFF);
    }
  }
  return out;
}

using detail::HttpRequest;

enum class Extract { NeedMore, Got, Bad };

// The header block ends at the first empty line, whether it ends in CR LF
// or a bare LF (CimXmlClient ends its block with CR LF, then "\n\r" before
// the XML, and counts the CR in Content-Length).
Extract extractRequest(std::string& buf, HttpRequest* req, std::string* why) {
  size_t pos = 0;
  size_t headerEnd = std::string::npos, bodyStart = 0;
  std::vector<std::string> lines;
  while (true) {
    size_t nl = buf.find('\n', pos);
    if (nl == std::string::npos) break;
    std::string line = buf.substr(pos, nl - pos);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    pos = nl + 1;
    if (line.empty()) {
      if (lines.empty()) continue;  // tolerate blank lines before the request line
      headerEnd = nl;
      bodyStart = pos;
      break;
    }
    lines.push_back(line);
  }
  if (headerEnd == std::string::npos) {
    if (buf.size() > kMaxHeaderBytes) {
      *why = "header block too large";
      return Extract::Bad;
    }
    return Extract::NeedMore;
  }
  HttpRequest r;
  {
    std::string rl = lines[0];
    size_t i = 0;
    auto word = [&]() {
      while (i < rl.size() && (rl[i] == ' ' || rl[i] == '\t')) ++i;
      size_t b = i;
      while (i < rl.size() && rl[i] != ' ' && rl[i] != '\t') ++i;
      return rl.substr(b, i - b);
    };
    r.method = word();
    r.target = word();
    r.version = word();
    r.requestLine = rl;
    if (r.method.empty() || r.target.empty() || r.version.compare(0, 5, "HTTP/") != 0) {
      *why = "malformed request line";
      return Extract::Bad;
    }
  }
  for (size_t k = 1; k < lines.size(); ++k) {
    size_t colon = lines[k].find(':');
    if (colon == std::string::npos) {
      *why = "malformed header line";
      return Extract::Bad;
    }
    r.headers.emplace_back(lowerTrim(lines[k].substr(0, colon)), trim(lines[k].substr(colon + 1)));
  }
  size_t length = 0;
  if (r.hasHeader("content-length")) {
    std::string cl = r.header("content-length");
    char* end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(cl.c_str(), &end, 10);
    if (cl.empty() || *end != '\0' || errno || v > kMaxBodyBytes) {
      *why = "bad Content-Length";
      return Extract::Bad;
    }
    length = static_cast<size_t>(v);
  } else if (!r.header("transfer-encoding").empty()) {
    *why = "Transfer-Encoding is not supported";
    return Extract::Bad;
  }
  if (buf.size() - bodyStart < length) return Extract::NeedMore;
  r.body = buf.substr(bodyStart, length);
  r.raw = buf.substr(0, bodyStart + length);
  buf.erase(0, bodyStart + length);
  *req = std::move(r);
  return Extract::Got;
}

std::string httpReply(int status, const char* reason, const std::vector<std::string>& headers, const std::string& body,
                      bool includeLength = true, long lengthDelta = 0) {
  std::string out = "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\n";
  for (const auto& h : headers) out += h + "\r\n";
  if (includeLength) out += "Content-Length: " + std::to_string(static_cast<long>(body.size()) + lengthDelta) + "\r\n";
  out += "\r\n";
  return out + body;
}

// The body in `chunks` chunks of chunked transfer coding (the last may be
// shorter), then the last-chunk.  One piece per chunk.
std::vector<std::string> chunked(const std::string& body, int chunks) {
  std::vector<std::string> out;
  size_t size = std::max<size_t>(1, (body.size() + chunks - 1) / chunks);
  char hex[24];
  for (size_t off = 0; off < body.size(); off += size) {
    size_t n = std::min(size, body.size() - off);
    std::snprintf(hex, sizeof hex, "%zx\r\n", n);
    out.push_back(hex + body.substr(off, n) + "\r\n");
  }
  out.push_back("0\r\n\r\n");
  return out;
}

// A TLS server context for the certificate and key files; "" or why not.
std::string startTls(const std::string& cert, const std::string& key, SSL_CTX** out) {
  ERR_clear_error();
  SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
  const char* step = "SSL_CTX_new";
  if (ctx) {
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (SSL_CTX_use_certificate_chain_file(ctx, cert.c_str()) != 1) step = "certificate";
    else if (SSL_CTX_use_PrivateKey_file(ctx, key.c_str(), SSL_FILETYPE_PEM) != 1) step = "private key";
    else if (SSL_CTX_check_private_key(ctx) != 1) step = "key does not match certificate";
    else step = nullptr;
  }
  if (!step) {
    *out = ctx;
    return "";
  }
  char e[256];
  ERR_error_string_n(ERR_peek_last_error(), e, sizeof e);
  SSL_CTX_free(ctx);
  return std::string("TLS: ") + step + " (" + cert + ", " + key + "): " + e;
}

}  // namespace

struct Server::Impl {
  ServerOptions opt;
  Repository repo;
  std::mutex repoMutex;
  mutable std::mutex stateMutex;
  FaultOptions faults;
  int faultyLeft = -1;
  std::string lastRequest, lastBody;
  ServerStats stats;

  int listenFd = -1;
  int wakePipe[2] = {-1, -1};
  int boundPort = 0;
  std::thread thread;
  std::atomic<bool> running{false};
  std::atomic<bool> stopping{false};
  bool started = false;
  SSL_CTX* tls = nullptr;  // HTTPS when set

  struct Conn {
    int fd;
    std::string buf;
    Clock::time_point last;
    SSL* ssl = nullptr;
    bool handshaken = false;
    bool wantWrite = false;  // TLS needs the socket writable to go on
  };
  std::vector<Conn> conns;

  ~Impl() {
    if (tls) SSL_CTX_free(tls);
  }

  // TLS result r of an SSL_* call on c as a socket result: -1 with errno
  // EAGAIN when it must be tried again once the socket is ready.
  static ssize_t tlsResult(Conn& c, int r) {
    if (r > 0) return r;
    int e = SSL_get_error(c.ssl, r);
    c.wantWrite = e == SSL_ERROR_WANT_WRITE;
    if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) {
      errno = EAGAIN;
      return -1;
    }
    if (e == SSL_ERROR_ZERO_RETURN) return 0;
    errno = ECONNRESET;
    return -1;
  }
  static ssize_t receive(Conn& c, char* buf, size_t n) {
    if (!c.ssl) return ::recv(c.fd, buf, n, 0);
    ERR_clear_error();
    return tlsResult(c, SSL_read(c.ssl, buf, static_cast<int>(std::min<size_t>(n, INT_MAX))));
  }
  static ssize_t transmit(Conn& c, const char* data, size_t n) {
    if (!c.ssl) return ::send(c.fd, data, n, MSG_NOSIGNAL);
    ERR_clear_error();
    return tlsResult(c, SSL_write(c.ssl, data, static_cast<int>(std::min<size_t>(n, INT_MAX))));
  }

  // Sleeps up to ms, returns early (false) when the server is stopping.
  bool pause(int ms) {
    if (ms <= 0) return !stopping;
    pollfd p{wakePipe[0], POLLIN, 0};
    ::poll(&p, 1, ms);
    return !stopping;
  }

  bool sendAll(Conn& c, const char* data, size_t n) {
    size_t off = 0;
    int stalls = 0;
    while (off < n) {
      c.wantWrite = true;
      ssize_t w = transmit(c, data + off, n - off);
      if (w > 0) {
        off += static_cast<size_t>(w);
        stalls = 0;
        continue;
      }
      if (w < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
        short want = c.wantWrite ? POLLOUT : POLLIN;  // TLS may need to read first
        pollfd p[2] = {{c.fd, want, 0}, {wakePipe[0], POLLIN, 0}};
        int r = ::poll(p, 2, 1000);
        if (stopping) return false;
        if (r == 0 && ++stalls > 10) return false;  // peer stopped reading for 10 s
        continue;
      }
      return false;
    }
    c.wantWrite = false;
    return true;
  }

  // Writes a reply with the current faults.  Returns false when the
  // connection must be closed.
  bool writeReply(Conn& c, int status, const std::string& reason, std::vector<std::string> headers, std::string body,
                  bool keepAlive, bool isCimReply) {
    FaultOptions f;
    {
      std::lock_guard<std::mutex> g(stateMutex);
      if (faultyLeft != 0) {
        f = faults;
        if (faultyLeft > 0) --faultyLeft;
      }
    }
    if (!pause(f.replyDelayMs)) return false;
    std::vector<std::string> pieces;  // one write each
    if (!f.cannedReply.empty()) {
      pieces.push_back(f.cannedReply);
    } else if (f.force401 && status != 401) {
      std::lock_guard<std::mutex> g(stateMutex);
      ++stats.unauthorized;
      pieces.push_back(httpReply(401, "Unauthorized",
                                 {"WWW-Authenticate: Basic realm=\"cimom\"", "Content-Type: text/plain"},
                                 "Unauthorized\n"));
    } else {
      if (isCimReply) {
        if (f.noXmlDeclaration && body.compare(0, 5, "<?xml") == 0) {
          size_t e = body.find("?>");
          if (e != std::string::npos) {
            e += 2;
            while (e < body.size() && (body[e] == '\n' || body[e] == '\r')) ++e;
            body.erase(0, e);
          }
        }
        if (f.largeReplyBytes > body.size()) {
          size_t at = body.rfind("</CIM>");
          if (at == std::string::npos) at = body.size();
          std::string pad(f.largeReplyBytes - body.size(), ' ');
          for (size_t k = 0; k < pad.size(); k += 100) pad[k] = '\n';
          body.insert(at, pad);
        }
        if (f.garbageBody) {
          static const char junk[] = "GARBAGE\x01#%&*()!@~ not xml at all \xff\xfe ";
          for (size_t k = 0; k < body.size(); ++k) body[k] = junk[k % (sizeof(junk) - 1)];
        }
      }
      if (!keepAlive || f.omitContentLength) headers.push_back("Connection: close");
      if (f.chunks > 0) {
        headers.push_back("Transfer-Encoding: chunked");
        pieces.push_back(httpReply(status, reason.c_str(), headers, "", false));
        for (auto& chunk : chunked(body, f.chunks)) pieces.push_back(std::move(chunk));
      } else {
        std::string all = httpReply(status, reason.c_str(), headers, body, !f.omitContentLength, f.contentLengthDelta);
        pieces.push_back(all.substr(0, all.size() - body.size()));
        if (!body.empty()) pieces.push_back(std::move(body));
      }
    }
    if (f.splitWritesMs <= 0 || f.closeAfterBytes >= 0 || f.splitSegments > 1) {
      std::string all;
      for (const auto& piece : pieces) all += piece;
      pieces.assign(1, std::move(all));
    }
    std::string& bytes = pieces[0];
    if (f.closeAfterBytes >= 0 && static_cast<size_t>(f.closeAfterBytes) < bytes.size())
      bytes.resize(static_cast<size_t>(f.closeAfterBytes));
    // Without Content-Length the end of the body is the end of the connection.
    bool closeAfter = f.closeAfterBytes >= 0 || f.omitContentLength;
    int segments = std::max(1, f.splitSegments);
    if (segments > 1 && bytes.size() > 1) {
      size_t seg = std::max<size_t>(1, (bytes.size() + segments - 1) / segments);
      for (size_t off = 0; off < bytes.size(); off += seg) {
        if (off > 0 && !pause(f.splitDelayMs)) return false;
        if (!sendAll(c, bytes.data() + off, std::min(seg, bytes.size() - off))) return false;
      }
    } else {
      for (size_t k = 0; k < pieces.size(); ++k) {
        if (k > 0 && !pause(f.splitWritesMs)) return false;
        if (!sendAll(c, pieces[k].data(), pieces[k].size())) return false;
      }
    }
    if (!f.cannedReply.empty()) return keepAlive;
    return keepAlive && !closeAfter;
  }

  bool authorised(const HttpRequest& r) const {
    if (opt.user.empty()) return true;
    std::string a = r.header("authorization");
    if (a.size() < 6 || !iequals(a.substr(0, 6), "basic ")) return false;
    return base64Decode(a.substr(6)) == opt.user + ":" + opt.password;
  }

  bool nextReplyCanned() const {
    std::lock_guard<std::mutex> g(stateMutex);
    return faultyLeft != 0 && !faults.cannedReply.empty();
  }

  // Returns false when the connection must be closed.
  bool handle(Conn& c, const HttpRequest& r) {
    {
      std::lock_guard<std::mutex> g(stateMutex);
      lastRequest = r.raw;
      lastBody = r.body;
      ++stats.requests;
    }
    std::string conn = toLower(r.header("connection"));
    bool keepAlive = r.version == "HTTP/1.0" ? conn.find("keep-alive") != std::string::npos
                                             : conn.find("close") == std::string::npos;
    if (opt.verbose) std::cerr << "mock-cimom: " << r.method << " " << r.target << " (" << r.body.size() << " bytes)\n";
    if (r.method != "POST" && r.method != "M-POST") {
      return writeReply(c, 405, "Method Not Allowed", {"Allow: POST", "Content-Type: text/plain"},
                        "only POST is served\n", keepAlive, false);
    }
    if (r.target != "/cimom" && r.target != "/cimom/") {
      return writeReply(c, 404, "Not Found", {"Content-Type: text/plain"}, "the CIM-XML endpoint is /cimom\n",
                        keepAlive, false);
    }
    if (!authorised(r)) {
      {
        std::lock_guard<std::mutex> g(stateMutex);
        ++stats.unauthorized;
      }
      return writeReply(c, 401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"cimom\"", "Content-Type: text/plain"},
                        "Unauthorized\n", keepAlive, false);
    }
    detail::Refusal no;
    if (opt.strict && !detail::strictAccepts(r, &no)) {
      {
        std::lock_guard<std::mutex> g(stateMutex);
        ++stats.refused;
        if (no.status == 400) ++stats.badRequests;
      }
      if (opt.verbose) std::cerr << "mock-cimom: refused: " << no.why << "\n";
      std::vector<std::string> h = {"Content-Type: text/plain"};
      if (!no.cimError.empty()) h.push_back("CIMError: " + no.cimError);
      // Without a Content-Length the rest of the stream cannot be framed.
      bool keep = keepAlive && no.status != 411;
      return writeReply(c, no.status, no.reason, h, no.why + "\n", keep, false) && keep;
    }
    if (nextReplyCanned())  // the bytes are fixed; building the real reply would be wasted
      return writeReply(c, 200, "OK", {}, std::string(), keepAlive, true);
    int status = 200;
    std::string cimError;
    std::string reply;
    detail::XmlConfig cfg;
    {
      std::lock_guard<std::mutex> g(stateMutex);
      cfg.layout = opt.layout;
    }
    cfg.referenceNamesAsInstanceNames = opt.referenceNamesAsInstanceNames;
    cfg.host = opt.hostName;
    cfg.strict = opt.strict;
    {
      std::lock_guard<std::mutex> g(repoMutex);
      reply = detail::processCimXml(repo, r.body, cfg, &status, &cimError);
    }
    if (status == 200) {
      return writeReply(c, 200, "OK",
                        {"Content-Type: application/xml; charset=\"utf-8\"", "CIMOperation: MethodResponse"}, reply,
                        keepAlive, true);
    }
    {
      std::lock_guard<std::mutex> g(stateMutex);
      ++stats.badRequests;
    }
    std::vector<std::string> h = {"Content-Type: text/plain"};
    if (!cimError.empty()) h.push_back("CIMError: " + cimError);
    if (status == 400) return writeReply(c, 400, "Bad Request", h, reply + "\n", keepAlive, false);
    return writeReply(c, 500, "Internal Server Error", h, reply + "\n", false, false);
  }

  void closeConn(size_t k) {
    if (SSL* ssl = conns[k].ssl) {
      if (conns[k].handshaken) SSL_shutdown(ssl);  // close_notify, best effort
      SSL_free(ssl);
    }
    ::close(conns[k].fd);
    conns.erase(conns.begin() + static_cast<long>(k));
  }

  void loop() {
    // OpenSSL writes with write(2): a peer that went away must give this
    // thread EPIPE, not end the process with SIGPIPE.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    while (!stopping) {
      std::vector<pollfd> fds;
      fds.push_back({wakePipe[0], POLLIN, 0});
      fds.push_back({listenFd, POLLIN, 0});
      for (const auto& c : conns) fds.push_back({c.fd, static_cast<short>(c.wantWrite ? POLLIN | POLLOUT : POLLIN), 0});
      int r = ::poll(fds.data(), fds.size(), 500);
      if (stopping) break;
      if (r < 0 && errno != EINTR) break;
      auto now = Clock::now();
      // Existing connections first (in order), then new ones.
      std::vector<int> ready;
      for (size_t k = 2; k < fds.size(); ++k)
        if (fds[k].revents) ready.push_back(fds[k].fd);
      for (int fd : ready) {
        auto it = std::find_if(conns.begin(), conns.end(), [fd](const Conn& c) { return c.fd == fd; });
        if (it == conns.end()) continue;
        size_t k = static_cast<size_t>(it - conns.begin());
        bool keep = serviceConn(k);
        if (!keep) closeConn(k);
        if (stopping) break;
      }
      if (fds[1].revents & POLLIN) {
        int cfd = ::accept(listenFd, nullptr, nullptr);
        if (cfd >= 0) {
          int one = 1;
          ::setsockopt(cfd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
          ::fcntl(cfd, F_SETFL, ::fcntl(cfd, F_GETFL) | O_NONBLOCK);
          if (conns.size() >= kMaxConnections) closeConn(0);  // the oldest goes
          Conn c{cfd, std::string(), now};
          if (tls && (c.ssl = SSL_new(tls)) != nullptr) {
            SSL_set_fd(c.ssl, cfd);
            SSL_set_accept_state(c.ssl);
          }
          if (tls && !c.ssl) {
            ::close(cfd);
          } else {
            conns.push_back(c);
            std::lock_guard<std::mutex> g(stateMutex);
            ++stats.connections;
          }
        }
      }
      for (size_t k = conns.size(); k-- > 0;)
        if (now - conns[k].last > std::chrono::seconds(opt.idleTimeoutSeconds)) closeConn(k);
    }
    while (!conns.empty()) closeConn(conns.size() - 1);
  }

  // Reads what is there and serves every complete request.  false = close.
  bool serviceConn(size_t k) {
    Conn& c = conns[k];
    if (c.ssl && !c.handshaken) {
      ERR_clear_error();
      if (tlsResult(c, SSL_accept(c.ssl)) < 0 && errno == EAGAIN) return true;
      if (!SSL_is_init_finished(c.ssl)) {
        std::lock_guard<std::mutex> g(stateMutex);
        ++stats.tlsFailures;
        if (opt.verbose) {
          char e[256];
          ERR_error_string_n(ERR_peek_last_error(), e, sizeof e);
          std::cerr << "mock-cimom: TLS handshake failed: " << e << "\n";
        }
        return false;
      }
      c.handshaken = true;
    }
    c.wantWrite = false;
    char tmp[65536];
    bool peerClosed = false;
    while (true) {
      ssize_t n = receive(c, tmp, sizeof tmp);
      if (n > 0) {
        c.buf.append(tmp, static_cast<size_t>(n));
        c.last = Clock::now();
        if (c.buf.size() > kMaxBodyBytes + kMaxHeaderBytes) return false;
        continue;
      }
      if (n == 0) { peerClosed = true; break; }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      return false;  // reset by peer and the like
    }
    while (!stopping) {
      HttpRequest req;
      std::string why;
      Extract e = extractRequest(c.buf, &req, &why);
      if (e == Extract::NeedMore) break;
      if (e == Extract::Bad) {
        {
          std::lock_guard<std::mutex> g(stateMutex);
          ++stats.badRequests;
        }
        std::string reply = httpReply(400, "Bad Request", {"Content-Type: text/plain", "Connection: close"}, why + "\n");
        sendAll(c, reply.data(), reply.size());
        return false;
      }
      if (!handle(c, req)) return false;
    }
    // A client that went away mid-request is simply forgotten.
    return !peerClosed;
  }
};

Server::Server(ServerOptions options) : impl_(new Impl) {
  impl_->opt = std::move(options);
  impl_->faults = impl_->opt.faults;
  impl_->faultyLeft = impl_->faults.faultyReplies;
  impl_->repo.addNamespace("root/cimv2");
  impl_->repo.addNamespace("root/interop");
}

Server::~Server() { stop(); }

bool Server::start(std::string* error) {
  auto fail = [&](const std::string& m) {
    if (error) *error = m;
    return false;
  };
  if (impl_->started) return fail("server already started");
  try {
    std::lock_guard<std::mutex> g(impl_->repoMutex);
    if (!impl_->opt.repoDir.empty()) {
      std::vector<std::string> files;
      std::error_code ec;
      for (const auto& e : std::filesystem::directory_iterator(impl_->opt.repoDir, ec))
        if (e.path().extension() == ".mof") files.push_back(e.path().string());
      if (ec) return fail("cannot read repository directory " + impl_->opt.repoDir + ": " + ec.message());
      std::sort(files.begin(), files.end());
      for (const auto& f : files) loadMofFile(impl_->repo, f);
    }
    for (const auto& f : impl_->opt.mofFiles) loadMofFile(impl_->repo, f);
  } catch (const MofError& e) {
    return fail(e.what());
  } catch (const std::exception& e) {
    return fail(e.what());
  }
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return fail(std::string("socket: ") + std::strerror(errno));
  int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<uint16_t>(impl_->opt.port));
  if (impl_->opt.port < 0 || impl_->opt.port > 65535) {
    ::close(fd);
    return fail("bad port " + std::to_string(impl_->opt.port));
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 64) != 0) {
    std::string m = std::string("cannot listen on 127.0.0.1:") + std::to_string(impl_->opt.port) + ": " + std::strerror(errno);
    ::close(fd);
    return fail(m);
  }
  socklen_t len = sizeof a;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  impl_->boundPort = ntohs(a.sin_port);
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  if (!impl_->opt.tlsCertFile.empty() || !impl_->opt.tlsKeyFile.empty()) {
    std::string why = startTls(impl_->opt.tlsCertFile, impl_->opt.tlsKeyFile, &impl_->tls);
    if (!why.empty()) {
      ::close(fd);
      return fail(why);
    }
  }
  if (::pipe(impl_->wakePipe) != 0) {
    ::close(fd);
    return fail(std::string("pipe: ") + std::strerror(errno));
  }
  impl_->listenFd = fd;
  impl_->started = true;
  impl_->running = true;
  impl_->thread = std::thread([this] { impl_->loop(); });
  return true;
}

void Server::stop() {
  if (!impl_->running) return;
  impl_->stopping = true;
  char c = 'x';
  (void)!::write(impl_->wakePipe[1], &c, 1);
  if (impl_->thread.joinable()) impl_->thread.join();
  ::close(impl_->listenFd);
  ::close(impl_->wakePipe[0]);
  ::close(impl_->wakePipe[1]);
  impl_->listenFd = impl_->wakePipe[0] = impl_->wakePipe[1] = -1;
  impl_->running = false;
}

bool Server::running() const { return impl_->running; }
int Server::port() const { return impl_->boundPort; }
Repository& Server::repository() { return impl_->repo; }
std::unique_lock<std::mutex> Server::lock() { return std::unique_lock<std::mutex>(impl_->repoMutex); }

void Server::setFaults(const FaultOptions& f) {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  impl_->faults = f;
  impl_->faultyLeft = f.faultyReplies;
}
FaultOptions Server::faults() const {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  return impl_->faults;
}
void Server::setLayout(ServerOptions::Layout layout) {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  impl_->opt.layout = layout;
}
std::string Server::lastRequest() const {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  return impl_->lastRequest;
}
std::string Server::lastRequestBody() const {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  return impl_->lastBody;
}
ServerStats Server::stats() const {
  std::lock_guard<std::mutex> g(impl_->stateMutex);
  return impl_->stats;
}

std::string Server::handleCimXml(const std::string& body, int* httpStatus) {
  detail::XmlConfig cfg;
  {
    std::lock_guard<std::mutex> g(impl_->stateMutex);
    cfg.layout = impl_->opt.layout;
  }
  cfg.referenceNamesAsInstanceNames = impl_->opt.referenceNamesAsInstanceNames;
  cfg.host = impl_->opt.hostName;
  cfg.strict = impl_->opt.strict;
  int status;
  std::string cimError;
  std::lock_guard<std::mutex> g(impl_->repoMutex);
  std::string out = detail::processCimXml(impl_->repo, body, cfg, &status, &cimError);
  if (httpStatus) *httpStatus = status;
  return out;
}

}  // namespace cimmock
