// HTTPS in both wire modes against a TLS peer whose certificate is made
// here: refused unless the certificate is trusted and names the host.
#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "cimxml/client.h"
#include "raw_server.h"
#include "transport/exchange.h"

namespace {

using cimxml::transport::Call;
using cimxml::transport::Failure;
using cimxml::transport::Peer;
using cimxml::transport::Security;

const char kBody[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"/>";

// A self-signed certificate and key naming `ip`, made with the openssl tool.
struct Certificate {
    std::string dir, cert, key;
    explicit Certificate(const char* ip) {
        char tmpl[] = "/tmp/cimxml-tls-XXXXXX";
        dir = mkdtemp(tmpl);
        cert = dir + "/cert.pem";
        key = dir + "/key.pem";
        std::string cmd = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 -subj "
                          "/CN=cimxml-test -addext subjectAltName=IP:" + std::string(ip) + " -keyout " + key +
                          " -out " + cert + " >/dev/null 2>&1";
        made = std::system(cmd.c_str()) == 0;
    }
    ~Certificate() { std::system(("rm -rf " + dir).c_str()); }
    bool made = false;
};

// Serves one TLS connection: reads the request, answers 200 with kBody.
class TlsPeer {
public:
    explicit TlsPeer(const Certificate& c) {
        ctx_ = SSL_CTX_new(TLS_server_method());
        SSL_CTX_use_certificate_file(ctx_, c.cert.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(ctx_, c.key.c_str(), SSL_FILETYPE_PEM);
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::listen(listener_, 1);
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~TlsPeer() {
        thread_.join();
        ::close(listener_);
        SSL_CTX_free(ctx_);
    }
    int port() const { return port_; }
    std::string request;

private:
    void serve() {
        int fd = ::accept(listener_, nullptr, nullptr);
        SSL* ssl = SSL_new(ctx_);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1) {
            char buf[4096];
            int n;
            while (request.find("</CIM>") == std::string::npos && (n = SSL_read(ssl, buf, sizeof buf)) > 0)
                request.append(buf, static_cast<std::size_t>(n));
            std::string reply = cimtest::okResponse(kBody);
            SSL_write(ssl, reply.data(), static_cast<int>(reply.size()));
            SSL_shutdown(ssl);
        }
        SSL_free(ssl);
        ERR_clear_error();
        ::close(fd);
    }
    SSL_CTX* ctx_;
    int listener_;
    int port_ = 0;
    std::thread thread_;
};

const char kRequest[] = "<?xml version=\"1.0\"?><CIM></CIM>";

TEST(Tls, BothModesVerifyTheServerCertificate) {
    Certificate good("127.0.0.1"), otherHost("127.0.0.2");
    ASSERT_TRUE(good.made && otherHost.made) << "the openssl tool is needed";
    const struct {
        const char* name;
        bool standard;
        Security security;
        std::string want;  // the body, or the failure's code and the start of its description
    } cases[] = {
        {"standard, system store", true, {true, false, nullptr},
         "1006: TLS handshake with 127.0.0.1 failed: server certificate not trusted"},
        {"standard, the CA file", true, {true, false, good.cert.c_str()}, kBody},
        {"standard, a certificate for another host", true, {true, false, otherHost.cert.c_str()},
         "1006: TLS handshake with 127.0.0.1 failed: server certificate not trusted (IP address mismatch)"},
        {"standard, verification turned off", true, {true, true, nullptr}, kBody},
        {"default, the CA file", false, {true, false, good.cert.c_str()}, kBody},
        {"default, system store", false, {true, false, nullptr}, "rc -1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TlsPeer peer(std::string(c.name).find("another") != std::string::npos ? otherHost : good);
        Peer target{"127.0.0.1", peer.port(), "a", "p", 3000};
        Failure failure;
        char* body = nullptr;
        int rc = c.standard ? cimxml::transport::sendStandard(kRequest, &body, target, c.security,
                                                              Call{"EnumerateInstances", "root/cimv2"}, &failure)
                            : cimxml::transport::sendDefault(kRequest, &body, target, c.security);
        std::string got = rc == 0 ? std::string(body ? body : "")
                          : c.standard ? std::string(failure.code) + ": " + failure.description
                                       : "rc " + std::to_string(rc);
        std::free(body);
        EXPECT_EQ(got.substr(0, c.want.size()), c.want);
    }
}

}  // namespace
