// Library-wide entry points: start, stop, error details and releasing texts.
#include "internal.h"

#include <openssl/crypto.h>

using namespace vlt;

// OpenSSL 3 initialises itself on first use; this only makes sure it can.
int VLT_CryptoInitialize(int /*flags*/, void* /*reserved*/, char** detail) {
    return guarded([&] {
        int rc = VLT_S_OK;
        if (OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr) != 1)
            rc = failThread(VLT_E_FAILED, "OpenSSL could not be initialised: " + opensslErrors());
        return answer(detail, rc);
    });
}

// Nothing to tear down: OpenSSL cleans up at process exit, and open handles
// stay usable until their owner closes them.
int VLT_CryptoTerminate(int /*flags*/, void* /*reserved*/, char** detail) {
    return guarded([&] { return answer(detail, VLT_S_OK); });
}

// Releases any text this library handed out (detail texts and error details).
int VLT_CryptoFree(void* text, int /*reserved*/) {
    return guarded([&] {
        if (text == nullptr) return VLT_S_OK;
        if (!freeDetail(text))
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_CryptoFree: the text was not handed out by this library or was freed already");
        return VLT_S_OK;
    });
}

// A fresh copy of the connection's last error text, or of the calling
// thread's when the handle is unknown; "" when there is none.
int VLT_CryptoGetLastErrorDetails(VLT_HANDLE handle, int /*reserved*/, char** detail) {
    return guarded([&] {
        if (detail == nullptr) return VLT_E_INVALID_ARGUMENT;
        *detail = nullptr;
        std::string text;
        if (auto c = findConnection(handle)) {
            std::lock_guard<std::mutex> lock(c->errorMutex);
            text = c->lastError;
        } else {
            text = threadError();
        }
        *detail = allocDetail(text);
        return *detail != nullptr ? VLT_S_OK : VLT_E_NO_MEMORY;
    });
}
