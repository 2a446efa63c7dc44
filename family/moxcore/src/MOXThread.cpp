#include "moxcore/MOXThread.h"

#include <chrono>
#include <thread>

void MOXThread::sleep(unsigned seconds) { std::this_thread::sleep_for(std::chrono::seconds(seconds)); }

void MOXThread::sleepMillis(unsigned milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
