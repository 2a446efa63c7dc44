// The handle table: small positive integers mapped to connection objects.
#include "internal.h"

#include <unistd.h>

#include <unordered_map>

namespace vlt {
namespace {

struct HandleTable {
    std::mutex mutex;
    std::unordered_map<VLT_HANDLE, std::shared_ptr<Connection>> connections;
    VLT_HANDLE next = 1;
};

HandleTable& table() {
    // Never destroyed: connections still open at exit must not be torn down
    // after OpenSSL has cleaned up behind them.
    static HandleTable* t = new HandleTable;
    return *t;
}

}  // namespace

Connection::~Connection() {
    resetTransport();
    SSL_CTX_free(clientCtx);
    SSL_CTX_free(serverCtx);
}

void Connection::resetTransport() {
    SSL_free(ssl);  // also frees the BIO
    ssl = nullptr;
    wakeFd = -1;
    if (io.fd >= 0) ::close(io.fd);
    io.fd = -1;
    io.out.clear();
    io.outPos = 0;
    io.eof = false;
    io.lastErrno = 0;
    io.clearDeadline();
    certificateRequested = false;
    verifyDetail.clear();
    failCode = 0;
}

int Connection::connectWaitMs(int defaultMs) const {
    if (connectLimitMs <= 0) return defaultMs;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(connectEnd - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

std::shared_ptr<Connection> findConnection(VLT_HANDLE handle) {
    HandleTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto it = t.connections.find(handle);
    return it == t.connections.end() ? nullptr : it->second;
}

// Handles count upwards and wrap only after 2^32 allocations, so a stale
// handle of a closed connection does not reach a new one.
VLT_HANDLE addConnection(std::shared_ptr<Connection> connection) {
    HandleTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    while (t.next == 0 || t.connections.count(t.next) != 0) ++t.next;
    VLT_HANDLE handle = t.next++;
    t.connections.emplace(handle, std::move(connection));
    return handle;
}

std::shared_ptr<Connection> removeConnection(VLT_HANDLE handle) {
    HandleTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    auto it = t.connections.find(handle);
    if (it == t.connections.end()) return nullptr;
    std::shared_ptr<Connection> c = std::move(it->second);
    t.connections.erase(it);
    return c;
}

int fail(Connection& c, int code, const std::string& text) {
    {
        std::lock_guard<std::mutex> lock(c.errorMutex);
        c.lastError = text;
    }
    setThreadError(text);
    return code;
}

int failFatal(Connection& c, int code, const std::string& text) {
    c.state = State::Failed;
    c.failCode = code;
    return fail(c, code, text);
}

int unknownHandle(VLT_HANDLE handle) {
    return failThread(VLT_E_INVALID_HANDLE, "handle " + std::to_string(handle) + " is not an open connection");
}

}  // namespace vlt
