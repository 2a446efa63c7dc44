// Shared declarations of the security library's source files. Nothing here is
// exported: the C entry points of VLT_Crypto_Interface.h are the only boundary.
#ifndef VLT_INTERNAL_H
#define VLT_INTERNAL_H

#include "VLT_Crypto_Interface.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace vlt {

// ---- errors.cpp: detail texts and last-error records -------------------------

// A malloc'ed copy the caller releases with VLT_CryptoFree; nullptr when out of memory.
char* allocDetail(const std::string& text);
// Releases a text handed out by allocDetail; false for a pointer we never gave out.
bool freeDetail(void* text);

void setThreadError(const std::string& text);
std::string threadError();

// Fails with code and text on the calling thread only (no connection known).
int failThread(int code, const std::string& text);

// Drains OpenSSL's error queue of this thread into one readable line.
std::string opensslErrors();
std::string systemErrorText(int err);

// Fills a detail out argument: nothing on success, a copy of the thread's last
// error otherwise. Returns rc unchanged.
int answer(char** detail, int rc);

// Every entry point runs inside this, so no C++ exception crosses the C boundary.
template <class F>
int guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        try { setThreadError("out of memory"); } catch (...) {}
        return VLT_E_NO_MEMORY;
    } catch (const std::exception& e) {
        try { setThreadError(std::string("internal error: ") + e.what()); } catch (...) {}
        return VLT_E_FAILED;
    } catch (...) {
        return VLT_E_FAILED;
    }
}

// ---- config.cpp: the session configuration document ---------------------------

struct Config {
    std::string serverName;
    std::string caFile;
    std::string caPath;
    bool verifyPeer = true;
    std::string clientCertificate;
    std::string clientKey;
    int minProtocol = TLS1_2_VERSION;
    std::string cipherList;
    int family = 0;  // AF_UNSPEC, AF_INET or AF_INET6
    std::string serverCertificate;
    std::string serverKey;
    bool requireClientCertificate = false;
};

// Parses the document into out; returns "" or what is wrong with it.
std::string parseConfig(const char* document, Config& out);

// ---- url.cpp: URLs, host names and numeric addresses ----------------------------

struct Url {
    std::string scheme;   // lower case
    std::string host;     // without brackets
    int port = 0;         // from the URL, else the scheme's default
    std::string display;  // the URL without user information, for messages
};

// Returns "" or what is wrong with the URL.
std::string parseUrl(const char* text, Url& out);

// Resolves host (numeric or named) to TCP addresses carrying port, in the
// resolver's order. Returns VLT_S_OK or VLT_E_RESOLVE with error filled in.
int resolveHost(const std::string& host, int port, int family, bool passive,
                std::vector<sockaddr_storage>& out, std::string& error);

bool isIpLiteral(const std::string& host);
std::string numericText(const sockaddr* address);
socklen_t addressLength(const sockaddr_storage& address);
int addressPort(const sockaddr_storage& address);
// "127.0.0.1 port 443" / "::1 port 443", for messages.
std::string describeEndpoint(const sockaddr_storage& address);

// ---- bio.cpp: the socket BIO under every TLS object --------------------------------

// The descriptor is always O_NONBLOCK underneath; `nonBlocking` is the mode the
// caller asked for, blocking calls wait with poll. Records that cannot go out at
// once wait in `out` (in non-blocking mode), so OpenSSL never sees a blocked write.
// Empties this thread's OpenSSL error queue before a transfer, so that
// SSL_get_error judges only that call. Clearing an empty queue still walks all
// its slots, which costs more than the check on every read and write.
inline void clearTlsErrors() {
    if (ERR_peek_error() != 0) ERR_clear_error();
}

struct SocketIo {
    int fd = -1;
    bool nonBlocking = false;
    std::string out;
    std::size_t outPos = 0;
    int lastErrno = 0;
    bool eof = false;
    // Set by a write, cleared by the next read: an answer to what was just
    // sent cannot be there yet, so a blocking read waits before its first recv.
    bool answerDue = false;
    bool hasDeadline = false;
    std::chrono::steady_clock::time_point deadline{};

    std::size_t pendingOut() const { return out.size() - outPos; }
    // Milliseconds a blocking call may wait: -1 without a deadline.
    int blockingWait() const;
    void setDeadline(int milliseconds);
    void clearDeadline() { hasDeadline = false; }
};

BIO* newSocketBio(SocketIo* io);

// Sends what `out` holds. timeoutMs: 0 no waiting, -1 until done.
// Returns 1 when everything went out, 0 when some is still held, -1 on error.
int flushOut(SocketIo& io, int timeoutMs);

// poll() on one descriptor, repeated on EINTR: >0 ready (revents filled), 0 timed out, -1 error.
int waitFd(int fd, short events, int timeoutMs, short* revents = nullptr);

// ---- handles.cpp: connections and the handle table -------------------------------

enum class Role { Unset, Client, Listener, Server };

enum class State {
    Fresh,         // no socket yet
    Bound,         // bound, not yet listening
    Listening,     // accepting connections
    TcpConnected,  // TCP is up, the TLS handshake is not done
    Secure,        // handshake done, data flows
    PeerClosed,    // the peer sent close_notify
    Broken,        // the peer went away without close_notify
    Failed         // a fatal error; failCode tells which
};

struct Connection {
    std::mutex mutex;  // one operation at a time per connection
    Config config;
    SSL_CTX* clientCtx = nullptr;
    SSL_CTX* serverCtx = nullptr;
    SSL* ssl = nullptr;
    SocketIo io;
    Role role = Role::Unset;
    State state = State::Fresh;
    int failCode = 0;
    std::string peerName;          // the name or address checked in the peer's certificate
    bool certificateRequested = false;  // the server asked and we had none to give
    std::string verifyDetail;           // subject and dates of the certificate that failed
    // VLT_SO_CONNECT_TIMEOUT: how long a connect and its handshake may take
    // together, from the start of VLT_Connect; 0 keeps each step's own default.
    int connectLimitMs = 0;
    std::chrono::steady_clock::time_point connectEnd{};
    // The descriptor, readable without the lock, so a close from another
    // thread can wake a call blocked on it.
    std::atomic<int> wakeFd{-1};

    std::mutex errorMutex;         // guards lastError only, so it is readable while a call blocks
    std::string lastError;

    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // Frees the TLS object and closes the socket; contexts and configuration stay.
    void resetTransport();
    // Milliseconds a connect step may still wait: what is left of the connect
    // time limit when one is set, else the step's own default.
    int connectWaitMs(int defaultMs) const;
};

std::shared_ptr<Connection> findConnection(VLT_HANDLE handle);
VLT_HANDLE addConnection(std::shared_ptr<Connection> connection);
std::shared_ptr<Connection> removeConnection(VLT_HANDLE handle);

// Records text as the connection's (and the thread's) last error; returns code.
int fail(Connection& c, int code, const std::string& text);
// As fail, and the connection stays failed: later calls answer the same code.
int failFatal(Connection& c, int code, const std::string& text);
int unknownHandle(VLT_HANDLE handle);

// ---- tls.cpp: contexts, handshakes and failure texts ---------------------------------

// Builds the client and (for a listening configuration) server contexts.
// Returns VLT_S_OK or VLT_E_CONFIG with error filled in.
int buildContexts(Connection& c, std::string& error);
// Wraps the connected socket in a TLS object of the connection's role.
int startTls(Connection& c);
// One step of the handshake: VLT_S_OK, VLT_E_WOULD_BLOCK or a failure.
int handshake(Connection& c);
// Reads (or peeks) decrypted bytes; maps the outcomes to status codes and states.
int readSome(Connection& c, char* buffer, std::size_t length, std::size_t* got, bool peek);
// Records a failed TLS call, in the terms of the handshake or of data transfer,
// and answers its status code.
int tlsFailure(Connection& c, int sslResult, bool duringHandshake);
// The same for a socket error seen outside OpenSSL.
int socketFailure(Connection& c, int err, const char* during);
// Best-effort close_notify, bounded in time.
void sendCloseNotify(Connection& c);

constexpr int kConnectTimeoutMs = 30000;
constexpr int kHandshakeTimeoutMs = 60000;
constexpr int kCloseNotifyTimeoutMs = 1000;
// Non-blocking sends stop taking data while this much is still queued.
constexpr std::size_t kSendHighWater = 64 * 1024;

}  // namespace vlt

#endif
