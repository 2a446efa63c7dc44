// Detail texts handed to the caller and the last-error records behind
// VLT_CryptoGetLastErrorDetails.
#include "internal.h"

#include <openssl/err.h>

#include <cstdlib>
#include <cstring>
#include <unordered_set>

namespace vlt {
namespace {

// Texts we handed out, so VLT_CryptoFree can refuse a pointer twice or one
// that never came from us instead of corrupting the heap.
struct DetailRegistry {
    std::mutex mutex;
    std::unordered_set<void*> live;
};

DetailRegistry& registry() {
    // Never destroyed: callers may free texts from atexit handlers.
    static DetailRegistry* r = new DetailRegistry;
    return *r;
}

thread_local std::string t_lastError;

}  // namespace

char* allocDetail(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.c_str(), text.size() + 1);
    DetailRegistry& r = registry();
    try {
        std::lock_guard<std::mutex> lock(r.mutex);
        r.live.insert(copy);
    } catch (...) {
        std::free(copy);
        return nullptr;
    }
    return copy;
}

bool freeDetail(void* text) {
    DetailRegistry& r = registry();
    {
        std::lock_guard<std::mutex> lock(r.mutex);
        if (r.live.erase(text) == 0) return false;
    }
    std::free(text);
    return true;
}

void setThreadError(const std::string& text) { t_lastError = text; }

std::string threadError() { return t_lastError; }

int failThread(int code, const std::string& text) {
    setThreadError(text);
    return code;
}

std::string opensslErrors() {
    std::string text;
    unsigned long e;
    while ((e = ERR_get_error()) != 0) {
        const char* reason = ERR_reason_error_string(e);
        std::string piece = reason != nullptr ? reason : "error " + std::to_string(ERR_GET_REASON(e));
        // The queue often repeats one reason from several layers.
        if (text.find(piece) != std::string::npos) continue;
        if (!text.empty()) text += "; ";
        text += piece;
    }
    return text;
}

std::string systemErrorText(int err) {
    char buffer[256];
    // The GNU strerror_r returns the text, which may or may not be our buffer.
    const char* text = strerror_r(err, buffer, sizeof buffer);
    return text != nullptr ? text : "error " + std::to_string(err);
}

int answer(char** detail, int rc) {
    if (detail == nullptr) return rc;
    *detail = nullptr;
    if (rc < 0 && rc != VLT_E_TIMEOUT) {
        std::string text = threadError();
        if (text.empty()) text = "failed with status " + std::to_string(rc);
        *detail = allocDetail(text);
    }
    return rc;
}

}  // namespace vlt
