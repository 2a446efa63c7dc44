#ifndef TALVEX_BENCH_TLSHTTPENDPOINT_H
#define TALVEX_BENCH_TLSHTTPENDPOINT_H

// The TLS counterpart of RawHttpEndpoint, directly on OpenSSL: a certificate
// for 127.0.0.1 made by the openssl command at start-up (its own CA), one
// fixed response per request, no XML parsed; or, given a handler, whatever the
// handler does with each accepted TLS connection. Also a plain OpenSSL client
// for the ping-pong and the transfer loops that set the limits.

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

#include "RawHttpEndpoint.h"

class TlsHttpEndpoint {
public:
    using Handler = std::function<void(SSL*)>;

    explicit TlsHttpEndpoint(std::string response) : m_response(std::move(response)) { start(); }
    explicit TlsHttpEndpoint(Handler handler) : m_handler(std::move(handler)) { start(); }
    ~TlsHttpEndpoint() {
        m_server.reset();
        SSL_CTX_free(m_ctx);
        std::system(("rm -rf '" + m_dir + "'").c_str());
    }

    int port() const { return m_server->port(); }
    std::string certificate() const { return m_dir + "/server.pem"; }
    std::string key() const { return m_dir + "/server.key"; }
    // A session configuration that trusts the endpoint's certificate.
    std::string sessionConfig() const {
        return "<sessionConfigDocument><caFile>" + certificate() + "</caFile></sessionConfigDocument>";
    }

private:
    void start() {
        char dir[] = "/tmp/talvex-bench-certs-XXXXXX";
        if (mkdtemp(dir) == nullptr) throw std::runtime_error("mkdtemp");
        m_dir = dir;
        const std::string command = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
                                    " -keyout '" + key() + "' -out '" + certificate() + "' -subj '/CN=localhost'"
                                    " -addext 'subjectAltName=DNS:localhost,IP:127.0.0.1' >/dev/null 2>&1";
        if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl req failed");
        m_ctx = SSL_CTX_new(TLS_server_method());
        if (m_ctx == nullptr || SSL_CTX_use_certificate_chain_file(m_ctx, certificate().c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(m_ctx, key().c_str(), SSL_FILETYPE_PEM) != 1)
            throw std::runtime_error("server context");
        m_server.reset(new LoopbackServer([this](int fd) { serve(fd); }));
    }

    void serve(int fd) {
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        SSL* ssl = SSL_new(m_ctx);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1 && m_handler) {
            m_handler(ssl);
            SSL_shutdown(ssl);
        } else if (SSL_is_init_finished(ssl)) {
            RawHttpReader reader([ssl](char* buf, size_t n) { return static_cast<long>(SSL_read(ssl, buf, static_cast<int>(n))); });
            while (reader.readMessage(nullptr)) {
                if (SSL_write(ssl, m_response.data(), static_cast<int>(m_response.size())) <= 0) break;
            }
            SSL_shutdown(ssl);
        }
        SSL_free(ssl);
    }

    std::string m_response;
    Handler m_handler;
    std::string m_dir;
    SSL_CTX* m_ctx = nullptr;
    std::unique_ptr<LoopbackServer> m_server;
};

// One TLS connection from a plain OpenSSL client, trusting the endpoint's certificate.
class TlsClient {
public:
    TlsClient(int fd, const std::string& caFile) {
        m_ctx = SSL_CTX_new(TLS_client_method());
        SSL_CTX_load_verify_locations(m_ctx, caFile.c_str(), nullptr);
        SSL_CTX_set_verify(m_ctx, SSL_VERIFY_PEER, nullptr);
        m_ssl = SSL_new(m_ctx);
        SSL_set_fd(m_ssl, fd);
        if (SSL_connect(m_ssl) != 1) throw std::runtime_error("TLS handshake");
    }
    ~TlsClient() {
        SSL_shutdown(m_ssl);
        SSL_free(m_ssl);
        SSL_CTX_free(m_ctx);
    }
    bool write(const std::string& data) { return write(data.data(), data.size()); }
    bool write(const char* data, size_t n) { return SSL_write(m_ssl, data, static_cast<int>(n)) > 0; }
    RawHttpReader::Source source() {
        SSL* ssl = m_ssl;
        return [ssl](char* buf, size_t n) { return static_cast<long>(SSL_read(ssl, buf, static_cast<int>(n))); };
    }

private:
    SSL_CTX* m_ctx = nullptr;
    SSL* m_ssl = nullptr;
};

#endif
