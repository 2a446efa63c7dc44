// A stand-in security library with only the address entry points: 127.0.0.2
// for every name except "unresolvable.test" (the "no address" value), and a
// call counter the test reads through its own entry point.
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>

namespace {
std::atomic<int> g_calls{0};
struct Resolution {
    bool resolved;
};
}  // namespace

extern "C" {
__attribute__((visibility("default"))) int fake_resolve_calls() { return g_calls.load(); }

__attribute__((visibility("default"))) int VLT_ResolveAddress(void** handle, const char* host, int, int, int* status) {
    ++g_calls;
    *handle = new Resolution{std::strcmp(host, "unresolvable.test") != 0};
    if (status) *status = 0;
    return 0;
}

__attribute__((visibility("default"))) int VLT_ResolveAddressFromURI(void** handle, const char*, int, int* status) {
    ++g_calls;
    *handle = new Resolution{true};
    if (status) *status = 0;
    return 0;
}

__attribute__((visibility("default"))) int VLT_GetAddress(void* handle, int, sockaddr_storage* out) {
    if (!static_cast<Resolution*>(handle)->resolved) {
        std::memset(out, 0xFF, sizeof *out);
        return -6;
    }
    std::memset(out, 0, sizeof *out);
    auto* in = reinterpret_cast<sockaddr_in*>(out);
    in->sin_family = AF_INET;
    in->sin_addr.s_addr = htonl(0x7F000002);
    return 0;
}

__attribute__((visibility("default"))) int VLT_GetAddressAsText(const sockaddr_storage*, char* text, int size) {
    if (size > 9) std::strcpy(text, "127.0.0.2");
    return 0;
}

#ifndef FAKE_WITHOUT_FREE
__attribute__((visibility("default"))) int VLT_ResolveAddressFree(void* handle) {
    delete static_cast<Resolution*>(handle);
    return 0;
}
#endif
}
