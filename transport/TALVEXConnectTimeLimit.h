#ifndef TALVEX_TRANSPORT_TALVEXCONNECTTIMELIMIT_H
#define TALVEX_TRANSPORT_TALVEXCONNECTTIMELIMIT_H

#include "moxcore/MOXThread.h"
#include "moxcore/MOXUtTimer.h"

// The caller's limit on one connect, counted from construction. Both sockets
// wait on what is left of it and never pause between attempts past it, so a
// connect ends within the limit however the peer behaves.
class TALVEXConnectTimeLimit {
public:
    // 0 or less: no limit.
    explicit TALVEXConnectTimeLimit(int seconds) : m_limit_ms(seconds > 0 ? seconds * 1000L : 0) { m_timer.start(); }

    bool isSet() const { return m_limit_ms > 0; }

    // Milliseconds left, 0 once the limit has passed; -1 without a limit.
    long remainingMs() const {
        if (!isSet()) return -1;
        const long left = m_limit_ms - static_cast<long>(m_timer.getElapsed(1));
        return left > 0 ? left : 0;
    }

    bool passed() const { return remainingMs() == 0; }

    // The pause between attempts; false, without pausing, when it would end
    // at or past the limit.
    bool pause(unsigned seconds) const {
        if (isSet() && remainingMs() <= static_cast<long>(seconds) * 1000L) return false;
        MOXThread::sleep(seconds);
        return true;
    }

private:
    long m_limit_ms;
    MOXUtTimer m_timer;
};

#endif
