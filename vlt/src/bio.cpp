// The BIO under every TLS object. OpenSSL's own socket BIO writes with
// write(2), which raises SIGPIPE on a connection the peer has closed; this one
// sends with MSG_NOSIGNAL. It also keeps what a non-blocking send could not
// hand to the kernel, so OpenSSL never has to repeat a half-written record and
// the caller may go on with different data after "would block".
#include "internal.h"

#include <openssl/bio.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace vlt {
namespace {

using Clock = std::chrono::steady_clock;

// Bytes sent, 0 when the kernel would block, -1 on error (errno set).
ssize_t rawSend(int fd, const char* data, std::size_t length) {
    for (;;) {
        ssize_t n = ::send(fd, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) return n;
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
        return -1;
    }
}

int remainingMs(bool bounded, Clock::time_point end) {
    if (!bounded) return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, INT_MAX));
}

SocketIo* ioOf(BIO* bio) { return static_cast<SocketIo*>(BIO_get_data(bio)); }

int bioWrite(BIO* bio, const char* data, int length) {
    BIO_clear_retry_flags(bio);
    SocketIo* io = ioOf(bio);
    if (io == nullptr || length <= 0) return 0;
    int wait = io->nonBlocking ? 0 : io->blockingWait();
    if (io->pendingOut() > 0 && flushOut(*io, wait) < 0) return -1;
    std::size_t done = 0;
    if (io->pendingOut() == 0) {
        ssize_t n = rawSend(io->fd, data, static_cast<std::size_t>(length));
        if (n < 0) {
            io->lastErrno = errno;
            return -1;
        }
        done = static_cast<std::size_t>(n);
    }
    io->answerDue = true;
    if (done < static_cast<std::size_t>(length)) {
        io->out.append(data + done, static_cast<std::size_t>(length) - done);
        if (!io->nonBlocking) {
            int rc = flushOut(*io, wait);
            if (rc < 0) return -1;
            if (rc == 0) {
                io->lastErrno = ETIMEDOUT;
                return -1;
            }
        }
    }
    return length;
}

int bioRead(BIO* bio, char* buffer, int length) {
    BIO_clear_retry_flags(bio);
    SocketIo* io = ioOf(bio);
    if (io == nullptr || length <= 0) return 0;
    // Whatever we still hold must reach the peer before we wait for its answer.
    if (io->pendingOut() > 0 && flushOut(*io, 0) < 0) return -1;
    // Right after a write the peer's answer cannot be there yet: a recv first
    // would only fail with EAGAIN, so a blocking read waits before it.
    bool mustWait = io->answerDue && !io->nonBlocking;
    io->answerDue = false;
    for (;;) {
        if (!mustWait) {
            ssize_t n = ::recv(io->fd, buffer, static_cast<std::size_t>(length), 0);
            if (n > 0) return static_cast<int>(n);
            if (n == 0) {
                io->eof = true;
                return 0;
            }
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                io->lastErrno = errno;
                return -1;
            }
            if (io->nonBlocking) {
                BIO_set_retry_read(bio);
                return -1;
            }
        }
        mustWait = false;
        short events = POLLIN;
        if (io->pendingOut() > 0) events |= POLLOUT;
        short revents = 0;
        int rc = waitFd(io->fd, events, io->blockingWait(), &revents);
        if (rc < 0) {
            io->lastErrno = errno;
            return -1;
        }
        if (rc == 0) {
            io->lastErrno = ETIMEDOUT;
            return -1;
        }
        if ((revents & POLLOUT) != 0 && flushOut(*io, 0) < 0) return -1;
    }
}

long bioCtrl(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    SocketIo* io = ioOf(bio);
    switch (command) {
    case BIO_CTRL_FLUSH:
        // In non-blocking mode the rest waits in `out` and goes with the next call.
        if (io == nullptr) return 1;
        return flushOut(*io, io->nonBlocking ? 0 : io->blockingWait()) < 0 ? 0 : 1;
    case BIO_CTRL_EOF:
        return io != nullptr && io->eof ? 1 : 0;
    case BIO_CTRL_WPENDING:
        return io != nullptr ? static_cast<long>(io->pendingOut()) : 0;
    case BIO_CTRL_PENDING:
        return 0;
    case BIO_CTRL_GET_CLOSE:
        return BIO_NOCLOSE;
    case BIO_CTRL_SET_CLOSE:
        return 1;
    default:
        return 0;
    }
}

int bioCreate(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

int bioDestroy(BIO* bio) {
    // The descriptor and the queue belong to the connection, not to the BIO.
    BIO_set_data(bio, nullptr);
    return 1;
}

BIO_METHOD* method() {
    // Built once and kept for the life of the process.
    static BIO_METHOD* m = [] {
        BIO_METHOD* bm = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "talvex socket");
        if (bm != nullptr) {
            BIO_meth_set_write(bm, bioWrite);
            BIO_meth_set_read(bm, bioRead);
            BIO_meth_set_ctrl(bm, bioCtrl);
            BIO_meth_set_create(bm, bioCreate);
            BIO_meth_set_destroy(bm, bioDestroy);
        }
        return bm;
    }();
    return m;
}

}  // namespace

int SocketIo::blockingWait() const { return remainingMs(hasDeadline, deadline); }

void SocketIo::setDeadline(int milliseconds) {
    hasDeadline = true;
    deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
}

BIO* newSocketBio(SocketIo* io) {
    BIO_METHOD* m = method();
    if (m == nullptr) return nullptr;
    BIO* bio = BIO_new(m);
    if (bio != nullptr) BIO_set_data(bio, io);
    return bio;
}

int waitFd(int fd, short events, int timeoutMs, short* revents) {
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    for (;;) {
        pollfd p{fd, events, 0};
        int rc = ::poll(&p, 1, timeoutMs < 0 ? -1 : remainingMs(true, end));
        if (rc > 0) {
            if (revents != nullptr) *revents = p.revents;
            return rc;
        }
        if (rc == 0) return 0;
        if (errno != EINTR) return -1;
    }
}

int flushOut(SocketIo& io, int timeoutMs) {
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    while (io.pendingOut() > 0) {
        ssize_t n = rawSend(io.fd, io.out.data() + io.outPos, io.pendingOut());
        if (n < 0) {
            io.lastErrno = errno;
            return -1;
        }
        if (n > 0) {
            io.outPos += static_cast<std::size_t>(n);
            continue;
        }
        int wait = timeoutMs < 0 ? -1 : remainingMs(true, end);
        if (wait == 0) return 0;
        int rc = waitFd(io.fd, POLLOUT, wait);
        if (rc < 0) {
            io.lastErrno = errno;
            return -1;
        }
        if (rc == 0) return 0;
    }
    io.out.clear();
    io.outPos = 0;
    return 1;
}

}  // namespace vlt
