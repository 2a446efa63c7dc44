#ifndef TALVEX_TESTS_TLSFRONT_H
#define TALVEX_TESTS_TLSFRONT_H

// A TLS server on loopback that passes the decrypted bytes of every accepted
// connection on to a plain endpoint (and its answers back), so secure
// sessions reach the same SOAP echo endpoint as plain ones. Built directly on
// OpenSSL with the test certificates of the secure socket tests. One thread
// per connection; the destructor ends the connections and joins the threads.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TlsTestServer.h"

class TlsFront {
public:
    explicit TlsFront(int backendPort) : m_backend(backendPort) {
        const securetest::TestCertificates& certs = securetest::TestCertificates::get();
        m_ctx = SSL_CTX_new(TLS_server_method());
        if (m_ctx == nullptr || SSL_CTX_use_certificate_chain_file(m_ctx, certs.certificate.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(m_ctx, certs.key.c_str(), SSL_FILETYPE_PEM) != 1)
            throw std::runtime_error("TLS front: server context");
        m_listen = ::socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        ::setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (::bind(m_listen, reinterpret_cast<sockaddr*>(&a), len) != 0 || ::listen(m_listen, 64) != 0)
            throw std::runtime_error("TLS front: listen");
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len);
        m_port = ntohs(a.sin_port);
        m_acceptor = std::thread([this] { acceptLoop(); });
    }

    ~TlsFront() {
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_stopped = true;
            for (int fd : m_open) ::shutdown(fd, SHUT_RDWR);  // wakes a blocked handshake or read
        }
        m_acceptor.join();
        for (auto& t : m_workers) t.join();
        ::close(m_listen);
        SSL_CTX_free(m_ctx);
    }

    TlsFront(const TlsFront&) = delete;
    TlsFront& operator=(const TlsFront&) = delete;

    int port() const { return m_port; }

    // A session configuration that trusts the front's certificate.
    static std::string trustingConfig() {
        return "<sessionConfigDocument><caFile>" + securetest::TestCertificates::get().certificate +
               "</caFile></sessionConfigDocument>";
    }

private:
    bool stopped() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_stopped;
    }

    void acceptLoop() {
        while (!stopped()) {
            pollfd p{m_listen, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0) continue;
            int fd = ::accept(m_listen, nullptr, nullptr);
            if (fd < 0) continue;
            std::lock_guard<std::mutex> g(m_lock);
            if (m_stopped) {
                ::close(fd);
                break;
            }
            m_open.insert(fd);
            m_workers.emplace_back([this, fd] { serve(fd); });
        }
    }

    int connectBackend() {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(static_cast<uint16_t>(m_backend));
        if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            ::close(fd);
            return -1;
        }
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        return fd;
    }

    static bool sendAll(int fd, const char* data, size_t n) {
        while (n > 0) {
            ssize_t k = ::write(fd, data, n);  // SIGPIPE is ignored by the tests
            if (k <= 0) return false;
            data += k;
            n -= static_cast<size_t>(k);
        }
        return true;
    }

    static bool writeAll(SSL* ssl, const char* data, size_t n) {
        while (n > 0) {
            int k = SSL_write(ssl, data, static_cast<int>(n));
            if (k <= 0) return false;
            data += k;
            n -= static_cast<size_t>(k);
        }
        return true;
    }

    // Both directions until either side ends or the front stops. The
    // handshake and reads block; stopping shuts the descriptor down.
    void pump(SSL* ssl, int fd, int back) {
        std::vector<char> buf(16384);
        while (!stopped()) {
            bool clientData = SSL_pending(ssl) > 0;
            bool backData = false;
            if (!clientData) {
                pollfd p[2] = {{fd, POLLIN, 0}, {back, POLLIN, 0}};
                if (::poll(p, 2, 50) <= 0) continue;
                clientData = (p[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
                backData = (p[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
            }
            if (clientData) {
                int n = SSL_read(ssl, buf.data(), static_cast<int>(buf.size()));
                if (n <= 0 || !sendAll(back, buf.data(), static_cast<size_t>(n))) return;
            }
            if (backData) {
                ssize_t n = ::read(back, buf.data(), buf.size());
                if (n <= 0 || !writeAll(ssl, buf.data(), static_cast<size_t>(n))) return;
            }
        }
    }

    void serve(int fd) {
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        SSL* ssl = SSL_new(m_ctx);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1) {
            int back = connectBackend();
            if (back >= 0) {
                pump(ssl, fd, back);
                ::close(back);
            }
            SSL_shutdown(ssl);
        }
        SSL_free(ssl);
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_open.erase(fd);
        }
        ::close(fd);
    }

    int m_backend;
    SSL_CTX* m_ctx = nullptr;
    int m_listen = -1;
    int m_port = 0;
    std::mutex m_lock;  // guards m_stopped, m_open and m_workers
    bool m_stopped = false;
    std::set<int> m_open;
    std::thread m_acceptor;
    std::vector<std::thread> m_workers;
};

#endif
