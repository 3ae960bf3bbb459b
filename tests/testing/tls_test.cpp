// mock-cimom over TLS, with a certificate made here by the openssl command:
// served to a client that trusts it, refused in the handshake otherwise.
#include <openssl/ssl.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "cimmock/mof.h"
#include "cimmock/server.h"
#include "raw_http.h"

using namespace cimmock;

namespace {

const std::string kBody =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" "
    "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"EnumerateClassNames\"><LOCALNAMESPACEPATH><NAMESPACE "
    "NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";
const std::string kRequest = "POST /cimom HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\nContent-Length: " +
                             std::to_string(kBody.size()) + "\r\n\r\n" + kBody;

// The reply to one request over TLS, verifying the server against caFile
// (nothing trusted when null); "" when the handshake failed.
std::string tlsExchange(int port, const char* caFile) {
  SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
  if (caFile) SSL_CTX_load_verify_locations(ctx, caFile, nullptr);
  SSL* ssl = SSL_new(ctx);
  int fd = connectTo(port);
  SSL_set_fd(ssl, fd);
  std::string got;
  if (SSL_connect(ssl) == 1 && SSL_write(ssl, kRequest.data(), static_cast<int>(kRequest.size())) > 0) {
    char buf[4096];
    for (int n; (n = SSL_read(ssl, buf, sizeof buf)) > 0;) got.append(buf, static_cast<size_t>(n));
  }
  SSL_free(ssl);
  ::close(fd);
  SSL_CTX_free(ctx);
  return got;
}

}  // namespace

TEST(TlsTest, ServesClientsThatTrustItsCertificateOnly) {
  const std::string dir = ::testing::TempDir(), cert = dir + "/mock-cimom-cert.pem", key = dir + "/mock-cimom-key.pem";
  std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 -subj "
                     "/CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " + key + " -out " + cert +
                     " >/dev/null 2>&1";
  ASSERT_EQ(std::system(make.c_str()), 0) << make;

  ServerOptions o;
  o.repoDir = sampleRepositoryDir();
  o.tlsCertFile = key;  // not a certificate
  o.tlsKeyFile = key;
  std::string err;
  EXPECT_FALSE(Server(o).start(&err));
  EXPECT_EQ(err.rfind("TLS: certificate", 0), 0u) << err;

  o.tlsCertFile = cert;
  Server server(o);
  ASSERT_TRUE(server.start(&err)) << err;
  EXPECT_EQ(tlsExchange(server.port(), nullptr), "");
  Reply plain = httpExchange(server.port(), kRequest);
  EXPECT_TRUE(plain.closed);
  EXPECT_EQ(plain.raw.find("HTTP/1.1"), std::string::npos);
  std::string reply = tlsExchange(server.port(), cert.c_str());
  EXPECT_EQ(reply.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << reply;
  EXPECT_NE(reply.find("<CLASSNAME NAME=\"CIM_ManagedElement\"/>"), std::string::npos);
  for (int i = 0; i < 100 && server.stats().tlsFailures < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(server.stats().tlsFailures, 2u);
  EXPECT_EQ(server.stats().requests, 1u);
}
