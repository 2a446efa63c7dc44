#ifndef MOXCORE_MOXTHREADCRITICALSECTION_H
#define MOXCORE_MOXTHREADCRITICALSECTION_H

#include <mutex>

// A lockable resource for short, non-nested sections. Lock it with MOXThreadGuard.
class MOXThreadCriticalSection {
public:
    explicit MOXThreadCriticalSection(int reserved = 0);
    MOXThreadCriticalSection(const MOXThreadCriticalSection&) = delete;
    MOXThreadCriticalSection& operator=(const MOXThreadCriticalSection&) = delete;

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

#endif
