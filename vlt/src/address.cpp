// Address entry points: the toolkit resolves every host name and URL through
// these and never calls the system resolver itself.
#include "internal.h"

#include <netinet/in.h>

#include <cstring>
#include <unordered_set>

using namespace vlt;

namespace {

struct Resolution {
    int status = VLT_S_OK;
    std::vector<sockaddr_storage> addresses;
};

// Live resolution handles, so a stale or foreign pointer is refused rather
// than dereferenced.
struct ResolutionRegistry {
    std::mutex mutex;
    std::unordered_set<Resolution*> live;
};

ResolutionRegistry& registry() {
    static ResolutionRegistry* r = new ResolutionRegistry;
    return *r;
}

void setNoAddress(sockaddr_storage* address) {
    // The toolkit recognises "did not resolve" by family 0xFFFF, all bytes 0xFF.
    std::memset(address, 0xFF, sizeof *address);
}

// Creates the handle whatever the outcome: the toolkit asks it for an address
// even when resolution failed, and must then be told "no address".
int publish(void** resolution, int* status, std::unique_ptr<Resolution> res) {
    int rc = res->status;
    {
        ResolutionRegistry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        r.live.insert(res.get());
    }
    *resolution = res.release();
    if (status != nullptr) *status = rc;
    return rc;
}

std::unique_ptr<Resolution> resolve(const std::string& host, int port) {
    auto res = std::make_unique<Resolution>();
    std::string error;
    res->status = resolveHost(host, port, AF_UNSPEC, false, res->addresses, error);
    if (res->status != VLT_S_OK) setThreadError(error);
    return res;
}

}  // namespace

// Resolves a host name or numeric address (IPv4 or IPv6, brackets allowed).
// The addresses carry port 0. The handle is created even on failure.
int VLT_ResolveAddress(void** resolution, const char* host, int /*flags*/, int /*reserved*/, int* status) {
    return guarded([&] {
        if (status != nullptr) *status = VLT_E_INVALID_ARGUMENT;
        if (resolution == nullptr) return failThread(VLT_E_INVALID_ARGUMENT, "VLT_ResolveAddress needs the address of a handle");
        *resolution = nullptr;
        return publish(resolution, status, resolve(host != nullptr ? host : "", 0));
    });
}

// Resolves the host of "scheme://[user@]host[:port][/path]"; the addresses carry
// the URL's port, or the scheme's (http 80, https 443).
int VLT_ResolveAddressFromURI(void** resolution, const char* uri, int /*reserved*/, int* status) {
    return guarded([&] {
        if (status != nullptr) *status = VLT_E_INVALID_ARGUMENT;
        if (resolution == nullptr)
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_ResolveAddressFromURI needs the address of a handle");
        *resolution = nullptr;
        Url url;
        std::string error = parseUrl(uri, url);
        if (!error.empty()) {
            // Still a handle, answering "no address" like a name that did not resolve.
            auto res = std::make_unique<Resolution>();
            res->status = VLT_E_INVALID_ARGUMENT;
            setThreadError(error);
            return publish(resolution, status, std::move(res));
        }
        return publish(resolution, status, resolve(url.host, url.port));
    });
}

// Copies address number index (0 is the first) into *address; anything that
// has no address there gets the "no address" value and a negative status.
int VLT_GetAddress(void* resolution, int index, struct sockaddr_storage* address) {
    return guarded([&] {
        if (address == nullptr) return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddress needs an address to fill");
        setNoAddress(address);
        if (resolution == nullptr) return failThread(VLT_E_INVALID_HANDLE, "VLT_GetAddress: no resolution handle");
        ResolutionRegistry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        auto* res = static_cast<Resolution*>(resolution);
        if (r.live.count(res) == 0)
            return failThread(VLT_E_INVALID_HANDLE, "VLT_GetAddress: not a live resolution handle");
        if (index < 0 || static_cast<std::size_t>(index) >= res->addresses.size()) {
            if (res->status != VLT_S_OK) return res->status;
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddress: there is no address number " +
                                                          std::to_string(index) + " (" +
                                                          std::to_string(res->addresses.size()) + " resolved)");
        }
        *address = res->addresses[static_cast<std::size_t>(index)];
        return VLT_S_OK;
    });
}

// Writes the numeric text of an address (IPv6 without brackets); the "no
// address" value prints as 255.255.255.255.
int VLT_GetAddressAsText(const struct sockaddr_storage* address, char* text, int size) {
    return guarded([&] {
        if (text == nullptr || size <= 0)
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddressAsText needs a text buffer");
        text[0] = '\0';
        if (address == nullptr) return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddressAsText needs an address");
        std::string printed;
        if (address->ss_family == VLT_AF_NONE) {
            printed = "255.255.255.255";
        } else if (address->ss_family == AF_INET || address->ss_family == AF_INET6) {
            printed = numericText(reinterpret_cast<const sockaddr*>(address));
            if (printed.empty()) return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddressAsText: the address cannot be printed");
        } else {
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddressAsText: address family " +
                                                          std::to_string(address->ss_family) + " is neither IPv4 nor IPv6");
        }
        if (printed.size() + 1 > static_cast<std::size_t>(size))
            return failThread(VLT_E_INVALID_ARGUMENT, "VLT_GetAddressAsText: the buffer of " + std::to_string(size) +
                                                          " bytes is too small for '" + printed + "'");
        std::memcpy(text, printed.c_str(), printed.size() + 1);
        return VLT_S_OK;
    });
}

// Releases a resolution handle; null is accepted and does nothing.
int VLT_ResolveAddressFree(void* resolution) {
    return guarded([&] {
        if (resolution == nullptr) return VLT_S_OK;
        auto* res = static_cast<Resolution*>(resolution);
        {
            ResolutionRegistry& r = registry();
            std::lock_guard<std::mutex> lock(r.mutex);
            if (r.live.erase(res) == 0)
                return failThread(VLT_E_INVALID_HANDLE, "VLT_ResolveAddressFree: not a live resolution handle");
        }
        delete res;
        return VLT_S_OK;
    });
}
