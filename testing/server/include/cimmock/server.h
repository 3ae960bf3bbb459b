// cimmock/server.h - the mock CIM object manager (CIM-XML over HTTP).
//
// A test peer for CimXmlClient and for anyone who talks CIM-XML: it serves
// an in-memory repository (loaded from MOF) on 127.0.0.1, answers every
// intrinsic operation and extrinsic method calls with standard DSP0201
// replies, and can misbehave on purpose (FaultOptions).
//
//   cimmock::ServerOptions opt;
//   opt.mofFiles = {cimmock::sampleMofFile()};
//   cimmock::Server server(opt);
//   std::string err;
//   if (!server.start(&err)) ...;           // binds 127.0.0.1:<free port>
//   int port = server.port();
//   ...                                     // talk HTTP to it
//   server.stop();                          // also done by the destructor
//
// Requests are served one after another on one background thread.  The
// repository may be read or changed between requests from the test thread
// with server.repository() while holding server.lock() (or while stopped).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cimmock/mof.h"

namespace cimmock {

class Repository;

// Misbehaviour on purpose.  Every field's default means "behave".
// Faults apply to every reply of the server while they are set (change them
// at run time with Server::setFaults).
struct FaultOptions {
  // Reply written in this many TCP segments (2 or more), with
  // splitDelayMs milliseconds between segments (TCP_NODELAY is set).
  int splitSegments = 0;
  int splitDelayMs = 0;
  // Announced Content-Length = real body length + contentLengthDelta.
  long contentLengthDelta = 0;
  // Leave the Content-Length header out altogether.
  bool omitContentLength = false;
  // Close the connection after writing this many bytes of the reply
  // (headers included); 0 closes without writing anything.  -1 = off.
  long closeAfterBytes = -1;
  // Replace the body by non-XML bytes of the same length.
  bool garbageBody = false;
  // Send the body without its "<?xml ...?>" declaration.
  bool noXmlDeclaration = false;
  // Pad the body with whitespace before "</CIM>" up to at least this many
  // bytes (a very large but still well-formed reply).  0 = off.
  std::size_t largeReplyBytes = 0;
  // Wait this long before writing the reply (a slow server).
  int replyDelayMs = 0;
  // Answer every request with 401 Unauthorized, whatever the credentials.
  bool force401 = false;
  // Write these bytes verbatim instead of the real reply (status line,
  // headers and body are all the caller's).  The request is then not
  // served: the repository is neither read nor changed.  Empty = off.
  std::string cannedReply;
  // Only the first N replies misbehave, later ones are normal.  -1 = all.
  int faultyReplies = -1;

  // Legal reply shapes that a client may not expect:
  // headers and body in separate writes, this many milliseconds apart
  // (every chunk too, with chunks).  0 = one write.
  int splitWritesMs = 0;
  // The body in chunked transfer coding, in this many chunks, without
  // Content-Length.  0 = off.
  int chunks = 0;
};

struct ServerOptions {
  // 0 picks a free port; Server::port() reports it after start().
  int port = 0;
  // MOF files loaded in order into the repository at start().  If both are
  // empty and repoDir is empty, the repository starts empty (with
  // root/cimv2 and root/interop namespaces).
  std::vector<std::string> mofFiles;
  // Load every *.mof file of this directory (sorted by name) before
  // mofFiles.  Empty = none.
  std::string repoDir;
  // Basic authentication.  Empty user = no authentication required.
  std::string user, password;
  // Reply layout: Compact (one line), Lines (a line break after every
  // element, no indentation, as deployed brokers send), Indented.
  enum class Layout { Compact, Lines, Indented };
  Layout layout = Layout::Compact;
  FaultOptions faults;
  // DSP0201 answers ReferenceNames with OBJECTPATH elements.  When true,
  // INSTANCENAME elements are returned directly under IRETURNVALUE instead.
  bool referenceNamesAsInstanceNames = false;
  // HOST text used in NAMESPACEPATH of returned paths.
  std::string hostName = "localhost";
  // Seconds an idle/incomplete connection may stay silent before the
  // server drops it.
  int idleTimeoutSeconds = 30;
  // Log one line per request to stderr.
  bool verbose = false;
  // Turn away, as a DSP0200 server with a validating parser does, every
  // request that DSP0200 and DSP0201 do not allow: a malformed request
  // line, no Host, a Content-Type other than application/xml or text/xml,
  // CIMOperation other than MethodCall, a body that does not start with the
  // XML declaration or is not well-formed, an element or attribute DSP0201
  // does not define there (KEYVALUE CIMTYPE, say), a NAMESPACE holding a
  // '/', CIMProtocolVersion, CIMMethod or CIMObject missing or not matching
  // the body.  The answer is 400 (411 without Content-Length, 501 for
  // versions and MULTIREQ) with a CIMError header: request-not-well-formed,
  // request-not-valid, header-mismatch, unsupported-operation,
  // unsupported-protocol-version, unsupported-cim-version,
  // unsupported-dtd-version or multiple-requests-unsupported.  An embedded
  // instance is then one only when EmbeddedObject="instance" marks it.
  bool strict = false;
  // Serve HTTPS with this PEM certificate (chain) and private key.  Both
  // empty = plain HTTP.  start() fails when they cannot be loaded.
  std::string tlsCertFile, tlsKeyFile;
};

// Statistics and what the last request looked like, for tests.
struct ServerStats {
  std::uint64_t connections = 0;
  std::uint64_t requests = 0;     // complete requests read
  std::uint64_t badRequests = 0;  // answered with HTTP 400
  std::uint64_t unauthorized = 0; // answered with HTTP 401
  std::uint64_t refused = 0;      // turned away by the strict checks
  std::uint64_t tlsFailures = 0;  // connections dropped in the TLS handshake
};

class Server {
public:
  explicit Server(ServerOptions options = ServerOptions());
  ~Server();  // stops the server
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Loads the MOF files, binds 127.0.0.1:port and serves on a background
  // thread.  Returns false with a message (MOF errors as file:line:col)
  // when it could not.  A server can be started only once.
  bool start(std::string* error = nullptr);
  // Stops serving, closes every connection and joins the thread.  Idempotent.
  void stop();
  bool running() const;

  // The bound port (valid after a successful start()).
  int port() const;

  // The served repository.  Hold lock() while touching it when running.
  Repository& repository();
  std::unique_lock<std::mutex> lock();

  // Change fault injection at run time (takes effect on the next reply;
  // resets the faultyReplies count).
  void setFaults(const FaultOptions& faults);
  FaultOptions faults() const;
  void setLayout(ServerOptions::Layout layout);

  // The raw bytes of the last complete request (header block and body, as
  // received) and the body alone; empty before the first request.
  std::string lastRequest() const;
  std::string lastRequestBody() const;
  ServerStats stats() const;

  // Handle one request body (CIM-XML) directly, without HTTP: returns the
  // CIM-XML reply body (with the current layout).  Sets *httpStatus to 200
  // or 400.  Used by the HTTP front end; exposed for tests and tools.
  std::string handleCimXml(const std::string& body, int* httpStatus = nullptr);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// sampleRepositoryDir() and sampleMofFiles() live in cimmock/mof.h.

}  // namespace cimmock
