// Data transfer over an established secure channel.
#include "internal.h"

#include <openssl/err.h>

#include <algorithm>
#include <climits>

using namespace vlt;

namespace {

// Largest piece one SSL_write_ex gets in blocking mode, so the count of a
// failed send says how far it came.
constexpr std::size_t kBlockingPiece = 256 * 1024;

int checkWritable(Connection& c) {
    switch (c.state) {
    case State::Secure:
    case State::PeerClosed:  // TLS allows sending after the peer's close_notify
        return VLT_S_OK;
    case State::Broken:
        return VLT_E_CONNECTION_CLOSED;
    case State::Failed:
        return c.failCode;
    case State::TcpConnected:
        return fail(c, VLT_E_INVALID_ARGUMENT, "the TLS handshake is not done: call VLT_EstablishSecure first");
    default:
        return fail(c, VLT_E_INVALID_ARGUMENT, "the handle is not connected");
    }
}

// Pushes out what the library still holds.
int flush(Connection& c) {
    if (c.io.fd < 0 || c.io.pendingOut() == 0) return VLT_S_OK;
    // A short wait, so a caller that repeats the flush at once does not spin.
    constexpr int kFlushWaitMs = 100;
    int rc = flushOut(c.io, c.io.nonBlocking ? kFlushWaitMs : -1);
    if (rc < 0) return socketFailure(c, c.io.lastErrno, "while sending");
    return rc == 1 ? VLT_S_OK : VLT_E_WOULD_BLOCK;
}

}  // namespace

// Encrypts and sends. Blocking mode: every byte is taken, 0 and the count.
// Non-blocking mode: 0 when what was taken also reached the kernel;
// VLT_E_WOULD_BLOCK when some of it is still held (the count says how much was
// taken, possibly 0: wait until the handle is writable and go on). A null
// buffer with length 0 flushes what is held.
int VLT_Send(VLT_HANDLE handle, const char* buffer, int length, int /*flags*/, int* sent, int /*reserved*/) {
    return guarded([&] {
        if (sent != nullptr) *sent = 0;
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (buffer == nullptr && length == 0) return flush(*c);
        if (buffer == nullptr || length < 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Send needs a buffer and a length of 0 or more");
        int rc = checkWritable(*c);
        if (rc != VLT_S_OK || length == 0) return rc;

        if (!c->io.nonBlocking) {
            std::size_t total = 0;
            while (total < static_cast<std::size_t>(length)) {
                std::size_t piece = std::min(static_cast<std::size_t>(length) - total, kBlockingPiece);
                std::size_t written = 0;
                clearTlsErrors();
                c->io.lastErrno = 0;
                int r = SSL_write_ex(c->ssl, buffer + total, piece, &written);
                if (r != 1) {
                    if (sent != nullptr) *sent = static_cast<int>(total);
                    return tlsFailure(*c, r, false);
                }
                total += written;
            }
            if (sent != nullptr) *sent = static_cast<int>(total);
            return VLT_S_OK;
        }

        if (c->io.pendingOut() > 0 && flushOut(c->io, 0) < 0) return socketFailure(*c, c->io.lastErrno, "while sending");
        if (c->io.pendingOut() >= kSendHighWater) return VLT_E_WOULD_BLOCK;
        std::size_t take = std::min(static_cast<std::size_t>(length), kSendHighWater);
        std::size_t written = 0;
        clearTlsErrors();
        c->io.lastErrno = 0;
        int r = SSL_write_ex(c->ssl, buffer, take, &written);
        if (r != 1) {
            int e = SSL_get_error(c->ssl, r);
            if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) {
                ERR_clear_error();
                return VLT_E_WOULD_BLOCK;
            }
            return tlsFailure(*c, r, false);
        }
        if (sent != nullptr) *sent = static_cast<int>(written);
        return c->io.pendingOut() > 0 ? VLT_E_WOULD_BLOCK : VLT_S_OK;
    });
}

// Receives decrypted bytes: 0 with the count; 0 with count 0 once the peer
// sent close_notify; VLT_E_CONNECTION_CLOSED when the peer dropped the
// connection without it; VLT_E_WOULD_BLOCK in non-blocking mode when nothing
// is there yet.
int VLT_Recv(VLT_HANDLE handle, char* buffer, int length, int /*flags*/, int* received, int /*reserved*/) {
    return guarded([&] {
        if (received != nullptr) *received = 0;
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (buffer == nullptr || length <= 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_Recv needs a buffer and a length above 0");
        std::size_t got = 0;
        int rc = readSome(*c, buffer, static_cast<std::size_t>(length), &got, false);
        if (received != nullptr) *received = static_cast<int>(std::min<std::size_t>(got, INT_MAX));
        return rc;
    });
}
