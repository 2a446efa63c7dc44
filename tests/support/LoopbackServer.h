#ifndef TALVEX_TESTS_LOOPBACKSERVER_H
#define TALVEX_TESTS_LOOPBACKSERVER_H

// A real TCP server on loopback for tests: listens on an ephemeral port of
// 127.0.0.1 or ::1 and runs a handler for each accepted connection on its own
// thread. Stops (and joins) in its destructor.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

class LoopbackServer {
public:
    using Handler = std::function<void(int fd)>;

    explicit LoopbackServer(Handler handler, bool ipv6 = false) : m_handler(std::move(handler)), m_ipv6(ipv6) {
        m_listen = ::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
        if (m_listen < 0) throw std::runtime_error("socket");
        int one = 1;
        ::setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_storage ss{};
        socklen_t len;
        if (ipv6) {
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
        if (::bind(m_listen, reinterpret_cast<sockaddr*>(&ss), len) != 0) throw std::runtime_error("bind");
        if (::listen(m_listen, 64) != 0) throw std::runtime_error("listen");
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&ss), &len);
        m_port = ntohs(ipv6 ? reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port
                            : reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
        m_thread = std::thread([this] { acceptLoop(); });
    }

    ~LoopbackServer() { stop(); }

    void stop() {
        if (m_stopped.exchange(true)) return;
        if (m_thread.joinable()) m_thread.join();
        std::vector<std::thread> workers;
        {
            std::lock_guard<std::mutex> g(m_lock);
            workers.swap(m_workers);
        }
        for (auto& t : workers) t.join();
        ::close(m_listen);
    }

    int port() const { return m_port; }
    int accepted() const { return m_accepted.load(); }
    bool stopping() const { return m_stopped.load(); }
    std::string url(const std::string& path = "/") const {
        return std::string("http://") + (m_ipv6 ? "[::1]" : "127.0.0.1") + ":" + std::to_string(m_port) + path;
    }

    // Helpers for handlers.
    static std::string readAll(int fd) {
        std::string data;
        char buf[65536];
        for (;;) {
            ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n <= 0) break;
            data.append(buf, static_cast<size_t>(n));
        }
        return data;
    }
    static std::string readUntil(int fd, const std::string& marker) {
        std::string data;
        char c;
        while (data.find(marker) == std::string::npos && ::recv(fd, &c, 1, 0) == 1) data += c;
        return data;
    }
    // False when the peer is gone before all was sent.
    static bool sendAll(int fd, const std::string& data) {
        size_t off = 0;
        while (off < data.size()) {
            ssize_t n = ::send(fd, data.data() + off, data.size() - off, MSG_NOSIGNAL);
            if (n <= 0) return false;
            off += static_cast<size_t>(n);
        }
        return true;
    }
    // The connection ends with a TCP reset instead of an orderly shutdown when
    // the handler returns (the server closes every accepted socket itself).
    static void resetOnClose(int fd) {
        linger l{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    }

private:
    void acceptLoop() {
        for (;;) {
            // Once stopping, connections whose handshake already completed are
            // still served, so a client that wrote and closed is not lost.
            const bool last = m_stopped.load();
            pollfd p{m_listen, POLLIN, 0};
            if (::poll(&p, 1, last ? 0 : 50) <= 0) {
                if (last) return;
                continue;
            }
            int fd = ::accept(m_listen, nullptr, nullptr);
            if (fd < 0) continue;
            ++m_accepted;
            std::lock_guard<std::mutex> g(m_lock);
            m_workers.emplace_back([this, fd] {
                m_handler(fd);
                ::close(fd);
            });
        }
    }

    Handler m_handler;
    bool m_ipv6;
    int m_listen = -1;
    int m_port = 0;
    std::atomic<bool> m_stopped{false};
    std::atomic<int> m_accepted{0};
    std::thread m_thread;
    std::mutex m_lock;
    std::vector<std::thread> m_workers;
};

#endif
