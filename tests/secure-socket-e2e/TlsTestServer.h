#ifndef TALVEX_TESTS_TLSTESTSERVER_H
#define TALVEX_TESTS_TLSTESTSERVER_H

// A TLS server on loopback for the secure socket's end-to-end tests, built
// directly on OpenSSL, with certificates made by the openssl command the first
// time a test needs them. One thread per accepted connection; the destructor
// stops and joins them.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace securetest {

inline unsigned char patternByte(size_t i, unsigned seed) { return static_cast<unsigned char>((i * 131 + seed) & 0xFF); }

inline std::string pattern(size_t length, unsigned seed) {
    std::string s(length, '\0');
    for (size_t i = 0; i < length; ++i) s[i] = static_cast<char>(patternByte(i, seed));
    return s;
}

// A server certificate for localhost, 127.0.0.1 and ::1 that is its own CA,
// and an unrelated one a client does not trust.
struct TestCertificates {
    std::string dir;
    std::string certificate, key;
    std::string strangerCertificate, strangerKey;

    static const TestCertificates& get() {
        static TestCertificates made = make();
        return made;
    }

    ~TestCertificates() {
        if (!dir.empty()) std::system(("rm -rf '" + dir + "'").c_str());
    }

private:
    static void run(const std::string& command) {
        if (std::system((command + " >/dev/null 2>&1").c_str()) != 0)
            throw std::runtime_error("command failed: " + command);
    }

    static void makeOne(const std::string& cert, const std::string& key, const std::string& subject) {
        run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
            " -keyout '" + key + "' -out '" + cert + "' -subj '/CN=" + subject + "'"
            " -addext 'subjectAltName=DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1'");
    }

    static TestCertificates make() {
        char pattern[] = "/tmp/talvex-secure-certs-XXXXXX";
        if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp");
        TestCertificates c;
        c.dir = pattern;
        c.certificate = c.dir + "/server.pem";
        c.key = c.dir + "/server.key";
        c.strangerCertificate = c.dir + "/stranger.pem";
        c.strangerKey = c.dir + "/stranger.key";
        makeOne(c.certificate, c.key, "localhost");
        makeOne(c.strangerCertificate, c.strangerKey, "stranger");
        return c;
    }
};

class TlsTestServer {
public:
    enum class Mode {
        SinkThenSource,  // reads sinkBytes and checks them, sends sourceBytes, then close_notify
        Silent,          // says nothing until the client goes or the server stops
        LateGreeting,    // waits delayMs, sends "hello", then close_notify
    };

    struct Options {
        Mode mode = Mode::SinkThenSource;
        size_t sinkBytes = 0;
        size_t sourceBytes = 0;
        int delayMs = 0;
        bool ipv6 = false;
        bool stranger = false;  // serve the certificate the client does not trust
    };

    explicit TlsTestServer(Options options) : m_options(options) {
        const TestCertificates& certs = TestCertificates::get();
        m_ctx = SSL_CTX_new(TLS_server_method());
        const std::string& cert = options.stranger ? certs.strangerCertificate : certs.certificate;
        const std::string& key = options.stranger ? certs.strangerKey : certs.key;
        if (m_ctx == nullptr || SSL_CTX_use_certificate_chain_file(m_ctx, cert.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(m_ctx, key.c_str(), SSL_FILETYPE_PEM) != 1)
            throw std::runtime_error("server context");

        m_listen = ::socket(options.ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
        int one = 1;
        ::setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_storage ss{};
        socklen_t len;
        if (options.ipv6) {
            auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
            a->sin6_family = AF_INET6;
            a->sin6_addr = in6addr_loopback;
            len = sizeof(sockaddr_in6);
        } else {
            auto* a = reinterpret_cast<sockaddr_in*>(&ss);
            a->sin_family = AF_INET;
            a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            len = sizeof(sockaddr_in);
        }
        if (::bind(m_listen, reinterpret_cast<sockaddr*>(&ss), len) != 0 || ::listen(m_listen, 16) != 0)
            throw std::runtime_error("listen");
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&ss), &len);
        m_port = ntohs(options.ipv6 ? reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port
                                    : reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
        m_acceptor = std::thread([this] { acceptLoop(); });
    }

    ~TlsTestServer() {
        finish();
        SSL_CTX_free(m_ctx);
    }

    TlsTestServer(const TlsTestServer&) = delete;
    TlsTestServer& operator=(const TlsTestServer&) = delete;

    // Stops accepting and waits for the served connections to end.
    void finish() {
        if (m_stopped.exchange(true)) return;
        m_acceptor.join();
        for (auto& t : m_workers) t.join();
        ::close(m_listen);
    }

    int port() const { return m_port; }
    std::string url(const std::string& path = "/soap") const {
        return std::string("https://") + (m_options.ipv6 ? "[::1]" : "127.0.0.1") + ":" + std::to_string(m_port) + path;
    }

    int handshakes() const { return m_handshakes.load(); }
    size_t bytesReceived() const { return m_received.load(); }
    bool uploadMatched() const { return m_upload_matched.load(); }

private:
    void acceptLoop() {
        while (!m_stopped) {
            pollfd p{m_listen, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0) continue;
            int fd = ::accept(m_listen, nullptr, nullptr);
            if (fd < 0) continue;
            m_workers.emplace_back([this, fd] { serve(fd); });
        }
    }

    // Waits until the connection has something to read, or the server stops.
    bool waitReadable(int fd) {
        while (!m_stopped) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 50) > 0) return true;
        }
        return false;
    }

    void serve(int fd) {
        SSL* ssl = SSL_new(m_ctx);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1) {
            ++m_handshakes;
            switch (m_options.mode) {
            case Mode::SinkThenSource: sinkThenSource(ssl, fd); break;
            case Mode::Silent:
                while (waitReadable(fd)) {
                    char buf[256];
                    if (SSL_read(ssl, buf, sizeof buf) <= 0) break;
                }
                break;
            case Mode::LateGreeting:
                std::this_thread::sleep_for(std::chrono::milliseconds(m_options.delayMs));
                SSL_write(ssl, "hello", 5);
                SSL_shutdown(ssl);
                break;
            }
        }
        SSL_free(ssl);
        ::close(fd);
    }

    void sinkThenSource(SSL* ssl, int fd) {
        bool matched = true;
        size_t got = 0;
        std::vector<char> buf(65536);
        // SSL_read may hold decrypted bytes the socket no longer shows.
        while (got < m_options.sinkBytes && (SSL_pending(ssl) > 0 || waitReadable(fd))) {
            int n = SSL_read(ssl, buf.data(), static_cast<int>(buf.size()));
            if (n <= 0) break;
            for (int i = 0; i < n; ++i)
                if (static_cast<unsigned char>(buf[i]) != patternByte(got + static_cast<size_t>(i), 1)) matched = false;
            got += static_cast<size_t>(n);
            m_received = got;
        }
        m_upload_matched = matched && got == m_options.sinkBytes;
        const std::string data = pattern(m_options.sourceBytes, 2);
        size_t sent = 0;
        while (sent < data.size()) {
            int n = SSL_write(ssl, data.data() + sent, static_cast<int>(std::min<size_t>(data.size() - sent, 16384)));
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        SSL_shutdown(ssl);
    }

    Options m_options;
    SSL_CTX* m_ctx = nullptr;
    int m_listen = -1;
    int m_port = 0;
    std::atomic<bool> m_stopped{false};
    std::atomic<int> m_handshakes{0};
    std::atomic<size_t> m_received{0};
    std::atomic<bool> m_upload_matched{false};
    std::thread m_acceptor;
    std::vector<std::thread> m_workers;
};

}  // namespace securetest

#endif
