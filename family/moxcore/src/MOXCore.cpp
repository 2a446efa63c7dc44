#include "moxcore/MOXCore.h"

#include <atomic>

namespace {
std::atomic<int> g_initialized{0};
}

long moxInitialize(const char*) {
    ++g_initialized;
    return 0;
}

long moxTerminate(const char*) {
    int current = g_initialized.load();
    while (current > 0) {
        if (g_initialized.compare_exchange_weak(current, current - 1)) return 0;
    }
    return 1;
}

int moxInitializeCount() { return g_initialized.load(); }
