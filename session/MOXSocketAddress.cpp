#include "session/MOXSocketAddress.h"

#include <atomic>
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
// exists from load time on. The entry points are read without the lock by
// resolutions on other threads while a constructor stores them again, so
// they are atomic.
MOXThreadCriticalSection g_load_lock(0);
HMODULE g_module = nullptr;
std::atomic<ResolveAddressFn> g_resolve{nullptr};
std::atomic<ResolveAddressFromURIFn> g_resolve_uri{nullptr};
std::atomic<GetAddressFn> g_get_address{nullptr};
std::atomic<GetAddressAsTextFn> g_get_address_as_text{nullptr};
std::atomic<ResolveAddressFreeFn> g_free{nullptr};

void clearEntryPoints() {
    g_resolve.store(nullptr);
    g_resolve_uri.store(nullptr);
    g_get_address.store(nullptr);
    g_get_address_as_text.store(nullptr);
    g_free.store(nullptr);
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
    ResolveAddressFn resolve = lookup<ResolveAddressFn>("VLT_ResolveAddress");
    ResolveAddressFromURIFn resolveUri = lookup<ResolveAddressFromURIFn>("VLT_ResolveAddressFromURI");
    GetAddressFn getAddress = lookup<GetAddressFn>("VLT_GetAddress");
    GetAddressAsTextFn getAddressAsText = lookup<GetAddressAsTextFn>("VLT_GetAddressAsText");
    ResolveAddressFreeFn release = lookup<ResolveAddressFreeFn>("VLT_ResolveAddressFree");
    if (!resolve || !resolveUri || !getAddress || !getAddressAsText || !release) {
        // A library without every address entry point is not one we can use.
        clearEntryPoints();
        FreeLibrary(g_module);
        g_module = nullptr;
        return;
    }
    // Published only once all are found, so no resolution on another thread
    // calls into a library that is about to be released.
    g_resolve.store(resolve);
    g_resolve_uri.store(resolveUri);
    g_get_address.store(getAddress);
    g_get_address_as_text.store(getAddressAsText);
    g_free.store(release);
}

MOXSocketAddress::~MOXSocketAddress() {
    ResolveAddressFreeFn release = g_free.load();
    if (m_handle != nullptr && release != nullptr) {
        try {
            release(m_handle);
        } catch (...) {
        }
    }
    m_handle = nullptr;
}

int MOXSocketAddress::resolveAddress(const char* host, int flags, int reserved, int* status) {
    if (status != nullptr) *status = 1;
    ResolveAddressFn resolve = g_resolve.load();
    if (resolve == nullptr) return 0;
    return resolve(&m_handle, host, flags, reserved, status);
}

int MOXSocketAddress::resolveAddressFromURI(const char* uri, int reserved, int* status) {
    if (status != nullptr) *status = 1;
    ResolveAddressFromURIFn resolveUri = g_resolve_uri.load();
    if (resolveUri == nullptr) return 0;
    return resolveUri(&m_handle, uri, reserved, status);
}

int MOXSocketAddress::getAddress(int index, sockaddr_storage* address) {
    GetAddressFn getAddress = g_get_address.load();
    if (getAddress != nullptr && m_handle != nullptr) return getAddress(m_handle, index, address);
    std::memset(address, 0, sizeof *address);
    return 0;
}

int MOXSocketAddress::getAddressAsText(const sockaddr_storage* address, char* text, int size) {
    GetAddressAsTextFn getAddressAsText = g_get_address_as_text.load();
    if (getAddressAsText == nullptr) return -1;
    return getAddressAsText(address, text, size);
}

int MOXSocketAddress::isLoaded() {
    MOXThreadGuard guard(g_load_lock);
    return g_module != nullptr ? 1 : 0;
}
