#ifndef MOXCORE_MOXTHREADGUARD_H
#define MOXCORE_MOXTHREADGUARD_H

#include "moxcore/MOXThreadCriticalSection.h"

// Locks a critical section for the guard's lifetime.
class MOXThreadGuard {
public:
    explicit MOXThreadGuard(MOXThreadCriticalSection& resource) : m_resource(resource) { m_resource.lock(); }
    ~MOXThreadGuard() { m_resource.unlock(); }
    MOXThreadGuard(const MOXThreadGuard&) = delete;
    MOXThreadGuard& operator=(const MOXThreadGuard&) = delete;

private:
    MOXThreadCriticalSection& m_resource;
};

#endif
