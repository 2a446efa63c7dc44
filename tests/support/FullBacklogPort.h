#ifndef TALVEX_TESTS_FULLBACKLOGPORT_H
#define TALVEX_TESTS_FULLBACKLOGPORT_H

// A port on 127.0.0.1 whose listen queue is full: the kernel drops every
// further SYN, so a connect to it is never answered, as with a server behind
// a firewall that drops or under a SYN flood.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

class FullBacklogPort {
public:
    FullBacklogPort() {
        m_listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof a;
        if (::bind(m_listen, reinterpret_cast<sockaddr*>(&a), length) != 0 || ::listen(m_listen, 0) != 0)
            throw std::runtime_error("cannot listen on loopback");
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &length);
        m_port = ntohs(a.sin_port);
        // Connections nobody accepts, until one is no longer answered after
        // another was: the queue is full then.
        bool answered = false;
        for (int i = 0; i < 8; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            m_queued.push_back(fd);
            (void)::connect(fd, reinterpret_cast<sockaddr*>(&a), length);
            pollfd p{fd, POLLOUT, 0};
            if (::poll(&p, 1, 200) == 1) answered = true;
            else if (answered) return;
        }
        throw std::runtime_error("the listen queue did not fill");
    }
    ~FullBacklogPort() {
        for (int fd : m_queued) ::close(fd);
        ::close(m_listen);
    }
    FullBacklogPort(const FullBacklogPort&) = delete;
    FullBacklogPort& operator=(const FullBacklogPort&) = delete;

    int port() const { return m_port; }

private:
    int m_listen = -1;
    int m_port = 0;
    std::vector<int> m_queued;
};

#endif
