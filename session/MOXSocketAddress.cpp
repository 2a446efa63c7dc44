#include "session/MOXSocketAddress.h"

#include <cstring>
#include <string>

#include "moxcore/MOXFmDir.h"
#include "moxcore/MOXThreadCriticalSection.h"
#include "moxcore/MOXThreadGuard.h"
#include "platform/dynload.h"

namespace {
typedef int (*ResolveAddressFn)(void**, const char*, int, int, int*);
typedef int (*ResolveAddressFromURIFn)(void**, const char*, int, int*);
typedef int (*GetAddressFn)(void*, int, sockaddr_storage*);
typedef int (*GetAddressAsTextFn)(const sockaddr_storage*, char*, int);
typedef int (*ResolveAddressFreeFn)(void*);

// Process-wide: the module and its entry points, guarded by one lock that
// exists from load time on.
MOXThreadCriticalSection g_load_lock(0);
HMODULE g_module = nullptr;
ResolveAddressFn g_resolve = nullptr;
ResolveAddressFromURIFn g_resolve_uri = nullptr;
GetAddressFn g_get_address = nullptr;
GetAddressAsTextFn g_get_address_as_text = nullptr;
ResolveAddressFreeFn g_free = nullptr;

void clearEntryPoints() {
    g_resolve = nullptr;
    g_resolve_uri = nullptr;
    g_get_address = nullptr;
    g_get_address_as_text = nullptr;
    g_free = nullptr;
}

template <class Fn>
Fn lookup(const char* name) {
    return reinterpret_cast<Fn>(GetProcAddress(g_module, name));
}
}  // namespace

MOXSocketAddress::MOXSocketAddress(const char* libraryName) : m_handle(nullptr) {
    MOXThreadGuard guard(g_load_lock);
    if (g_module == nullptr) {
        std::string path = std::string(libraryName != nullptr ? libraryName : "") + ".dll";
        MOXFmDir::resolveEffectivePath(path);
        g_module = LoadLibraryExA(path.c_str(), nullptr, 8);
        if (g_module == nullptr) return;
    }
    g_resolve = lookup<ResolveAddressFn>("VLT_ResolveAddress");
    g_resolve_uri = lookup<ResolveAddressFromURIFn>("VLT_ResolveAddressFromURI");
    g_get_address = lookup<GetAddressFn>("VLT_GetAddress");
    g_get_address_as_text = lookup<GetAddressAsTextFn>("VLT_GetAddressAsText");
    g_free = lookup<ResolveAddressFreeFn>("VLT_ResolveAddressFree");
    if (!g_resolve || !g_resolve_uri || !g_get_address || !g_get_address_as_text || !g_free) {
        // A library without every address entry point is not one we can use.
        clearEntryPoints();
        FreeLibrary(g_module);
        g_module = nullptr;
    }
}

MOXSocketAddress::~MOXSocketAddress() {
    if (m_handle != nullptr && g_free != nullptr) {
        try {
            g_free(m_handle);
        } catch (...) {
        }
    }
    m_handle = nullptr;
}

int MOXSocketAddress::resolveAddress(const char* host, int flags, int reserved, int* status) {
    if (status != nullptr) *status = 1;
    if (g_resolve == nullptr) return 0;
    return g_resolve(&m_handle, host, flags, reserved, status);
}

int MOXSocketAddress::resolveAddressFromURI(const char* uri, int reserved, int* status) {
    if (status != nullptr) *status = 1;
    if (g_resolve_uri == nullptr) return 0;
    return g_resolve_uri(&m_handle, uri, reserved, status);
}

int MOXSocketAddress::getAddress(int index, sockaddr_storage* address) {
    if (g_get_address != nullptr && m_handle != nullptr) return g_get_address(m_handle, index, address);
    std::memset(address, 0, sizeof *address);
    return 0;
}

int MOXSocketAddress::getAddressAsText(const sockaddr_storage* address, char* text, int size) {
    if (g_get_address_as_text == nullptr) return -1;
    return g_get_address_as_text(address, text, size);
}

int MOXSocketAddress::isLoaded() {
    MOXThreadGuard guard(g_load_lock);
    return g_module != nullptr ? 1 : 0;
}
