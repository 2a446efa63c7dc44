#include "moxcore/MOXUtTimer.h"

MOXUtTimer::MOXUtTimer() : m_start(std::chrono::steady_clock::now()), m_stop(m_start), m_running(false) {}

void MOXUtTimer::start() {
    m_start = std::chrono::steady_clock::now();
    m_running = true;
}

void MOXUtTimer::stop() {
    m_stop = std::chrono::steady_clock::now();
    m_running = false;
}

unsigned MOXUtTimer::getElapsed(int unit) const {
    auto end = m_running ? std::chrono::steady_clock::now() : m_stop;
    auto elapsed = end - m_start;
    using namespace std::chrono;
    switch (unit) {
    case 0: return static_cast<unsigned>(duration_cast<seconds>(elapsed).count());
    case 2: return static_cast<unsigned>(duration_cast<microseconds>(elapsed).count());
    default: return static_cast<unsigned>(duration_cast<milliseconds>(elapsed).count());
    }
}
