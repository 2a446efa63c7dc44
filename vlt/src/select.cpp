// Waiting on several connection handles at once, with Windows Sockets'
// select() semantics over VLT_FDSET sets of handles.
#include "internal.h"

#include <poll.h>

#include <cerrno>
#include <climits>

using namespace vlt;

namespace {

using Clock = std::chrono::steady_clock;

struct Entry {
    VLT_HANDLE handle;
    std::shared_ptr<Connection> connection;
    bool inRead = false, inWrite = false, inError = false;
    bool readReady = false, writeReady = false, errorReady = false;
};

// True when a read would answer without waiting for the socket: OpenSSL holds
// decrypted data or a complete record already, or the connection has ended.
// With socketReadable, bytes are waiting in the kernel too; they may be only
// handshake messages such as session tickets, which are no data for the caller.
bool readableNow(Connection& c, bool socketReadable) {
    switch (c.state) {
    case State::Secure:
        break;
    case State::Listening:
    case State::TcpConnected:
        return socketReadable;
    default:
        return true;
    }
    if (SSL_pending(c.ssl) > 0) return true;
    if (!socketReadable && !SSL_has_pending(c.ssl)) return false;
    // Peek without blocking to find out. An error found here stays with the
    // connection and is what the next read reports.
    bool nonBlocking = c.io.nonBlocking;
    c.io.nonBlocking = true;
    char probe;
    std::size_t got = 0;
    int rc = readSome(c, &probe, 1, &got, true);
    c.io.nonBlocking = nonBlocking;
    return rc != VLT_E_WOULD_BLOCK;
}

int addSet(std::vector<Entry>& entries, const VLT_FDSET* set, bool Entry::*member, const char* name) {
    if (set == nullptr) return VLT_S_OK;
    if (set->fd_count > VLT_FD_SETSIZE)
        return failThread(VLT_E_INVALID_ARGUMENT, std::string("the ") + name + " set holds " + std::to_string(set->fd_count) +
                                                      " handles, more than " + std::to_string(VLT_FD_SETSIZE));
    for (unsigned int i = 0; i < set->fd_count; ++i) {
        VLT_HANDLE h = set->fd_array[i];
        Entry* entry = nullptr;
        for (Entry& e : entries)
            if (e.handle == h) entry = &e;
        if (entry == nullptr) {
            auto c = findConnection(h);
            if (!c)
                return failThread(VLT_E_INVALID_HANDLE, "handle " + std::to_string(h) + " in the " + name +
                                                            " set is not an open connection");
            entries.push_back(Entry{h, std::move(c)});
            entry = &entries.back();
        }
        entry->*member = true;
    }
    return VLT_S_OK;
}

void reduce(VLT_FDSET* set, const std::vector<Entry>& entries, bool Entry::*ready) {
    if (set == nullptr) return;
    unsigned int kept = 0;
    for (unsigned int i = 0; i < set->fd_count; ++i) {
        for (const Entry& e : entries)
            if (e.handle == set->fd_array[i] && e.*ready) {
                set->fd_array[kept++] = set->fd_array[i];
                break;
            }
    }
    set->fd_count = kept;
}

int select(VLT_FDSET* readSet, VLT_FDSET* writeSet, VLT_FDSET* errorSet, const VLT_TIMEVAL* timeout, int* ready) {
    std::vector<Entry> entries;
    int rc = addSet(entries, readSet, &Entry::inRead, "read");
    if (rc == VLT_S_OK) rc = addSet(entries, writeSet, &Entry::inWrite, "write");
    if (rc == VLT_S_OK) rc = addSet(entries, errorSet, &Entry::inError, "error");
    if (rc != VLT_S_OK) return rc;
    if (entries.empty()) return failThread(VLT_E_INVALID_ARGUMENT, "VLT_Select needs at least one handle in its sets");

    bool forever = timeout == nullptr;
    long long spanMs = 0;
    if (!forever) {
        if (timeout->tv_sec < 0 || timeout->tv_usec < 0)
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_Select: the time span is negative");
        spanMs = static_cast<long long>(timeout->tv_sec) * 1000 + (timeout->tv_usec + 999) / 1000;
    }
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(spanMs);

    std::vector<pollfd> polls(entries.size());
    for (;;) {
        int count = 0;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            Entry& e = entries[i];
            Connection& c = *e.connection;
            std::lock_guard<std::mutex> lock(c.mutex);
            polls[i] = pollfd{c.io.fd, 0, 0};
            if (c.io.fd < 0) {
                // Nothing to wait for: a call on this handle answers at once.
                e.readReady = e.inRead;
                e.writeReady = e.inWrite;
                e.errorReady = e.inError;
            } else {
                if (e.inRead) {
                    e.readReady = readableNow(c, false);
                    polls[i].events |= POLLIN;
                }
                if (e.inWrite || c.io.pendingOut() > 0) polls[i].events |= POLLOUT;
            }
            count += e.readReady + e.writeReady + e.errorReady;
        }

        int waitMs = 0;
        if (count == 0) {
            if (forever) {
                waitMs = -1;
            } else {
                auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
                waitMs = left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, INT_MAX));
            }
        }
        int n = ::poll(polls.data(), polls.size(), waitMs);
        if (n < 0) {
            if (errno == EINTR) continue;
            return failThread(VLT_E_SOCKET, "poll: " + systemErrorText(errno));
        }
        for (std::size_t i = 0; i < entries.size(); ++i) {
            Entry& e = entries[i];
            short revents = polls[i].revents;
            if (revents == 0) continue;
            Connection& c = *e.connection;
            std::lock_guard<std::mutex> lock(c.mutex);
            if (e.inRead && (revents & POLLIN) != 0) e.readReady = readableNow(c, true);
            if ((revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
                e.readReady = e.inRead;
                e.writeReady = e.inWrite;
                e.errorReady = e.inError;
            }
            if ((revents & POLLOUT) != 0) {
                // Records we still hold go out whenever the socket takes them.
                if (c.io.pendingOut() > 0 && flushOut(c.io, 0) < 0) {
                    // The next call on the handle reports the failure.
                    e.readReady = e.inRead;
                    e.writeReady = e.inWrite;
                }
                if (e.inWrite && c.io.pendingOut() < kSendHighWater) e.writeReady = true;
            }
        }
        count = 0;
        for (const Entry& e : entries) count += e.readReady + e.writeReady + e.errorReady;
        if (count > 0) {
            reduce(readSet, entries, &Entry::readReady);
            reduce(writeSet, entries, &Entry::writeReady);
            reduce(errorSet, entries, &Entry::errorReady);
            if (ready != nullptr) *ready = count;
            return count;
        }
        if (!forever && Clock::now() >= end) {
            if (readSet != nullptr) readSet->fd_count = 0;
            if (writeSet != nullptr) writeSet->fd_count = 0;
            if (errorSet != nullptr) errorSet->fd_count = 0;
            return VLT_E_TIMEOUT;
        }
    }
}

}  // namespace

// Waits until a handle of the read set has data (or its end), a handle of the
// write set can take more, or one of the error set failed, for at most the
// time span (null: without limit). Answers the number of ready handles, with
// each set reduced to its ready handles, or VLT_E_TIMEOUT with empty sets.
int VLT_Select(VLT_FDSET* readSet, VLT_FDSET* writeSet, VLT_FDSET* errorSet, const VLT_TIMEVAL* timeout, int* ready,
               int /*reserved*/, char** detail) {
    return guarded([&] {
        if (ready != nullptr) *ready = 0;
        return answer(detail, select(readSet, writeSet, errorSet, timeout, ready));
    });
}
