#ifndef MOXCORE_MOXUTTIMER_H
#define MOXCORE_MOXUTTIMER_H

#include <chrono>

// Measures elapsed time on the monotonic clock (immune to wall-clock changes).
class MOXUtTimer {
public:
    MOXUtTimer();
    void start();
    void stop();
    // Elapsed time since start (up to stop, if stopped). unit 1: milliseconds;
    // unit 0: seconds; unit 2: microseconds.
    unsigned getElapsed(int unit) const;

private:
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_stop;
    bool m_running;
};

#endif
