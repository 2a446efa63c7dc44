// Client connections: creating a handle from the configuration document, the
// TCP connect, the TLS handshake, socket names and closing.
#include "internal.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace vlt;

namespace {

// Connects a fresh non-blocking TCP socket, waiting at most waitMs.
// Returns the descriptor, or -1 with err set.
int tcpConnect(const sockaddr_storage& target, int waitMs, int& err) {
    int fd = ::socket(target.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd < 0) {
        err = errno;
        return -1;
    }
    // Requests and responses are small and interactive; do not let Nagle hold them.
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&target), addressLength(target)) != 0) {
        if (errno != EINPROGRESS && errno != EINTR) {
            err = errno;
            ::close(fd);
            return -1;
        }
        int rc = waitFd(fd, POLLOUT, waitMs);
        int soError = 0;
        socklen_t length = sizeof soError;
        if (rc == 0) soError = ETIMEDOUT;
        else if (rc < 0) soError = errno;
        else if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &soError, &length) != 0) soError = errno;
        if (soError != 0) {
            err = soError;
            ::close(fd);
            return -1;
        }
    }
    return fd;
}

// Tries the addresses in order; the first TCP connection that comes up gets a
// TLS object and the caller is told to run the handshake.
int connectTo(Connection& c, const std::vector<sockaddr_storage>& targets, const std::string& peerName,
              const std::string& what) {
    c.resetTransport();
    c.state = State::Fresh;
    c.role = Role::Client;
    c.peerName = peerName;
    c.connectEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(c.connectLimitMs);
    bool allRefused = true;
    int lastErr = 0;
    std::string tried;
    for (const sockaddr_storage& target : targets) {
        int err = 0;
        int fd = tcpConnect(target, c.connectWaitMs(kConnectTimeoutMs), err);
        if (fd >= 0) {
            c.io.fd = fd;
            c.wakeFd = fd;
            int rc = startTls(c);
            if (rc != VLT_S_OK) return rc;
            c.state = State::TcpConnected;
            return VLT_S_SECURE_PENDING;
        }
        if (err != ECONNREFUSED) allRefused = false;
        lastErr = err;
        if (!tried.empty()) tried += ", ";
        tried += describeEndpoint(target);
    }
    if (targets.size() > 1) tried = what + " (tried " + tried + ")";
    if (allRefused) return fail(c, VLT_E_REFUSED, "connection to " + tried + " refused");
    return fail(c, VLT_E_SOCKET, "cannot connect to " + tried + ": " + systemErrorText(lastErr));
}

// The common opening of connect calls: what an existing connection answers.
bool alreadyAnswered(Connection& c, int& rc) {
    if (c.role == Role::Listener || c.role == Role::Server) {
        rc = fail(c, VLT_E_INVALID_ARGUMENT, "a listening or accepted handle cannot connect");
        return true;
    }
    if (c.state == State::Secure) {
        rc = VLT_S_OK;
        return true;
    }
    if (c.state == State::TcpConnected) {
        rc = VLT_S_SECURE_PENDING;
        return true;
    }
    return false;
}

}  // namespace

// Creates a connection handle from the session configuration document (null:
// all defaults). Trust store, client certificate and ciphers are loaded here,
// so a broken configuration fails before any network traffic.
int VLT_Socket(VLT_HANDLE* handle, const char* configDocument, int /*reserved*/, char** detail) {
    return guarded([&] {
        if (handle == nullptr) return answer(detail, failThread(VLT_E_INVALID_ARGUMENT, "VLT_Socket needs the address of a handle"));
        *handle = 0;
        auto c = std::make_shared<Connection>();
        std::string error = parseConfig(configDocument, c->config);
        if (error.empty() && buildContexts(*c, error) == VLT_S_OK) {
            *handle = addConnection(std::move(c));
            return answer(detail, VLT_S_OK);
        }
        return answer(detail, failThread(VLT_E_CONFIG, error));
    });
}

// TCP connect to an address. Answers VLT_S_SECURE_PENDING when TCP is up (run
// VLT_EstablishSecure next), 0 when the secure channel is up already, and
// VLT_E_REFUSED when the peer refused. The certificate must name serverName,
// or else the address itself.
int VLT_Connect(VLT_HANDLE handle, const struct sockaddr_storage* address, int length, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        int rc;
        if (alreadyAnswered(*c, rc)) return rc;
        if (address == nullptr) return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Connect needs an address");
        if (address->ss_family == VLT_AF_NONE)
            return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Connect was given the \"no address\" value: the host name did not resolve");
        if (address->ss_family != AF_INET && address->ss_family != AF_INET6)
            return fail(*c, VLT_E_INVALID_ARGUMENT, "address family " + std::to_string(address->ss_family) + " is neither IPv4 nor IPv6");
        if (length < static_cast<int>(addressLength(*address)))
            return fail(*c, VLT_E_INVALID_ARGUMENT, "address length " + std::to_string(length) + " is too short");
        std::string name = !c->config.serverName.empty() ? c->config.serverName
                                                         : numericText(reinterpret_cast<const sockaddr*>(address));
        return connectTo(*c, {*address}, name, describeEndpoint(*address));
    });
}

// As VLT_Connect, to the host and port of a URL (port from the URL or the
// scheme). Every address of the host is tried in turn; protocolFamily limits
// them to one family. The certificate must name serverName, or else the URL's host.
int VLT_Connect_Url(VLT_HANDLE handle, const char* urlText, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        int rc;
        if (alreadyAnswered(*c, rc)) return rc;
        Url url;
        std::string error = parseUrl(urlText, url);
        if (!error.empty()) return fail(*c, VLT_E_INVALID_ARGUMENT, error);
        std::vector<sockaddr_storage> targets;
        rc = resolveHost(url.host, url.port, c->config.family, false, targets, error);
        if (rc != VLT_S_OK) return fail(*c, rc, error);
        std::string name = !c->config.serverName.empty() ? c->config.serverName : url.host;
        return connectTo(*c, targets, name, url.host + " port " + std::to_string(url.port));
    });
}

// Runs the TLS handshake: 0 when done, VLT_E_WOULD_BLOCK in non-blocking mode
// when it needs the peer (wait for the handle to become readable, then call
// again), or a failure with a detail text: VLT_E_REFUSED when another attempt
// would fail the same way, else VLT_E_HANDSHAKE (VLT_E_VERIFY on an accepted
// handle whose client's certificate was not accepted).
int VLT_EstablishSecure(VLT_HANDLE handle, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (c->state == State::Secure) return VLT_S_OK;
        // The failure stays the connection's last error for whoever asks later.
        if (c->state == State::Failed && c->ssl != nullptr) return c->failCode;
        if (c->state != State::TcpConnected)
            return fail(*c, VLT_E_INVALID_ARGUMENT, "no TCP connection is waiting for its handshake: call VLT_Connect first");
        return handshake(*c);
    });
}

namespace {

int socketName(VLT_HANDLE handle, sockaddr_storage* address, int* length, bool peer) {
    auto c = findConnection(handle);
    if (!c) return unknownHandle(handle);
    std::lock_guard<std::mutex> lock(c->mutex);
    if (address == nullptr || length == nullptr) return fail(*c, VLT_E_INVALID_ARGUMENT, "an address and its length are needed");
    if (c->io.fd < 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "the handle has no socket yet");
    sockaddr_storage found{};
    socklen_t size = sizeof found;
    int rc = peer ? ::getpeername(c->io.fd, reinterpret_cast<sockaddr*>(&found), &size)
                  : ::getsockname(c->io.fd, reinterpret_cast<sockaddr*>(&found), &size);
    if (rc != 0) return fail(*c, VLT_E_SOCKET, std::string(peer ? "getpeername" : "getsockname") + ": " + systemErrorText(errno));
    if (*length < static_cast<int>(size))
        return fail(*c, VLT_E_INVALID_ARGUMENT, "the address buffer needs " + std::to_string(size) + " bytes");
    std::memcpy(address, &found, size);
    *length = static_cast<int>(size);
    return VLT_S_OK;
}

}  // namespace

// The local address of the connection's socket (a bound port, for instance).
int VLT_GetSockName(VLT_HANDLE handle, struct sockaddr_storage* address, int* length, int /*reserved*/) {
    return guarded([&] { return socketName(handle, address, length, false); });
}

// The peer's address of a connected handle.
int VLT_GetPeerName(VLT_HANDLE handle, struct sockaddr_storage* address, int* length, int /*reserved*/) {
    return guarded([&] { return socketName(handle, address, length, true); });
}

// Sends close_notify when the secure channel is up (bounded in time), closes
// the socket, frees every OpenSSL object of the connection and sets the handle
// to 0. A call blocked on the connection in another thread is woken first.
int VLT_CloseHandle(VLT_HANDLE* handle, int /*reserved*/, char** detail) {
    return guarded([&] {
        if (handle == nullptr) return answer(detail, failThread(VLT_E_INVALID_ARGUMENT, "VLT_CloseHandle needs the address of a handle"));
        VLT_HANDLE h = *handle;
        *handle = 0;
        auto c = removeConnection(h);
        if (!c) return answer(detail, unknownHandle(h));
        std::unique_lock<std::mutex> lock(c->mutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            int fd = c->wakeFd.load();
            if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
            lock.lock();
        }
        sendCloseNotify(*c);
        c->resetTransport();
        SSL_CTX_free(c->clientCtx);
        SSL_CTX_free(c->serverCtx);
        c->clientCtx = nullptr;
        c->serverCtx = nullptr;
        c->state = State::Fresh;
        return answer(detail, VLT_S_OK);
    });
}
