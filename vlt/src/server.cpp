// The server side, kept small: enough for the toolkit's tools and tests to run
// a TLS server through this library. A listening handle's configuration names
// serverCertificate and serverKey, and optionally requireClientCertificate.
#include "internal.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace vlt;

namespace {

int bindTo(Connection& c, const std::vector<sockaddr_storage>& targets) {
    if (c.state != State::Fresh || c.role != Role::Unset)
        return fail(c, VLT_E_INVALID_ARGUMENT, "the handle is bound or connected already");
    int lastErr = 0;
    std::string tried;
    for (const sockaddr_storage& target : targets) {
        int fd = ::socket(target.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
        if (fd < 0) {
            lastErr = errno;
        } else {
            // A restarted server must not wait for the old port's TIME_WAIT.
            int one = 1;
            ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
            if (::bind(fd, reinterpret_cast<const sockaddr*>(&target), addressLength(target)) == 0) {
                c.io.fd = fd;
                c.wakeFd = fd;
                c.role = Role::Listener;
                c.state = State::Bound;
                return VLT_S_OK;
            }
            lastErr = errno;
            ::close(fd);
        }
        if (!tried.empty()) tried += ", ";
        tried += describeEndpoint(target);
    }
    return fail(c, VLT_E_SOCKET, "cannot bind to " + tried + ": " + systemErrorText(lastErr));
}

}  // namespace

// Binds the handle to a local address (port 0: any free port; VLT_GetSockName
// tells which).
int VLT_Bind(VLT_HANDLE handle, const struct sockaddr_storage* address, int length, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (address == nullptr || (address->ss_family != AF_INET && address->ss_family != AF_INET6))
            return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Bind needs an IPv4 or IPv6 address");
        if (length < static_cast<int>(addressLength(*address)))
            return fail(*c, VLT_E_INVALID_ARGUMENT, "address length " + std::to_string(length) + " is too short");
        return bindTo(*c, {*address});
    });
}

// Binds to the host and port of a URL; host "*" means every local address.
int VLT_Bind_Url(VLT_HANDLE handle, const char* urlText, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        Url url;
        std::string error = parseUrl(urlText, url);
        if (!error.empty()) return fail(*c, VLT_E_INVALID_ARGUMENT, error);
        std::vector<sockaddr_storage> targets;
        int rc = resolveHost(url.host, url.port, c->config.family, url.host == "*", targets, error);
        if (rc != VLT_S_OK) return fail(*c, rc, error);
        if (url.host == "*") {
            for (sockaddr_storage& t : targets) {
                if (t.ss_family == AF_INET) reinterpret_cast<sockaddr_in&>(t).sin_port = htons(static_cast<uint16_t>(url.port));
                else reinterpret_cast<sockaddr_in6&>(t).sin6_port = htons(static_cast<uint16_t>(url.port));
            }
        }
        return bindTo(*c, targets);
    });
}

// Starts accepting on a bound handle; its configuration must name the server's
// certificate and key.
int VLT_Listen(VLT_HANDLE handle, int backlog, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (c->state != State::Bound) return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Listen needs a bound handle: call VLT_Bind first");
        if (c->serverCtx == nullptr)
            return fail(*c, VLT_E_CONFIG, "a listening handle needs serverCertificate and serverKey in its configuration document");
        if (::listen(c->io.fd, backlog > 0 ? backlog : SOMAXCONN) != 0)
            return fail(*c, VLT_E_SOCKET, "listen: " + systemErrorText(errno));
        c->state = State::Listening;
        return VLT_S_OK;
    });
}

// Takes the next connection of a listening handle. Answers
// VLT_S_SECURE_PENDING with the new handle, whose handshake VLT_EstablishSecure
// runs (the accepted handle starts in blocking mode); VLT_E_WOULD_BLOCK when the
// listening handle is non-blocking and nobody is waiting. The peer's address
// goes to address/length when given.
int VLT_Accept(VLT_HANDLE handle, VLT_HANDLE* accepted, struct sockaddr_storage* address, int* length, int /*reserved*/) {
    return guarded([&] {
        if (accepted != nullptr) *accepted = 0;
        auto listener = findConnection(handle);
        if (!listener) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(listener->mutex);
        if (accepted == nullptr) return fail(*listener, VLT_E_INVALID_ARGUMENT, "VLT_Accept needs the address of a handle");
        if (listener->state != State::Listening)
            return fail(*listener, VLT_E_INVALID_ARGUMENT, "VLT_Accept needs a listening handle: call VLT_Listen first");
        sockaddr_storage peer{};
        socklen_t peerLength = sizeof peer;
        int fd;
        for (;;) {
            peerLength = sizeof peer;
            fd = ::accept4(listener->io.fd, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd >= 0) break;
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) return fail(*listener, VLT_E_SOCKET, "accept: " + systemErrorText(errno));
            if (listener->io.nonBlocking) return VLT_E_WOULD_BLOCK;
            if (waitFd(listener->io.fd, POLLIN, -1) < 0) return fail(*listener, VLT_E_SOCKET, "poll: " + systemErrorText(errno));
        }
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);

        auto c = std::make_shared<Connection>();
        c->config = listener->config;
        SSL_CTX_up_ref(listener->serverCtx);
        c->serverCtx = listener->serverCtx;
        c->role = Role::Server;
        c->io.fd = fd;
        c->wakeFd = fd;
        c->peerName = numericText(reinterpret_cast<const sockaddr*>(&peer));
        int rc = startTls(*c);
        if (rc != VLT_S_OK) return fail(*listener, rc, threadError());
        c->state = State::TcpConnected;
        if (address != nullptr && length != nullptr) {
            std::size_t n = std::min<std::size_t>(peerLength, *length > 0 ? static_cast<std::size_t>(*length) : 0);
            std::memcpy(address, &peer, n);
            *length = static_cast<int>(peerLength);
        }
        *accepted = addConnection(std::move(c));
        return VLT_S_SECURE_PENDING;
    });
}
