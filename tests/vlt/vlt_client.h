// Small helpers for driving the security library from tests the way the
// toolkit does: configuration documents, the connect loop, transfers.
#ifndef VLT_TEST_VLT_CLIENT_H
#define VLT_TEST_VLT_CLIENT_H

#include "VLT_Crypto_Interface.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace vlttest {

using Elements = std::vector<std::pair<std::string, std::string>>;

inline std::string configDocument(const Elements& elements) {
    std::string doc = "<sessionConfigDocument>";
    for (const auto& [name, value] : elements) doc += "<" + name + ">" + value + "</" + name + ">";
    return doc + "</sessionConfigDocument>";
}

inline std::string lastError(VLT_HANDLE handle) {
    char* text = nullptr;
    VLT_CryptoGetLastErrorDetails(handle, 0, &text);
    std::string result = text != nullptr ? text : "";
    VLT_CryptoFree(text, 0);
    return result;
}

inline std::string takeDetail(char*& detail) {
    std::string result = detail != nullptr ? detail : "";
    if (detail != nullptr) VLT_CryptoFree(detail, 0);
    detail = nullptr;
    return result;
}

inline sockaddr_storage loopback(int port, bool ipv6 = false) {
    sockaddr_storage a;
    std::memset(&a, 0, sizeof a);
    if (ipv6) {
        auto& a6 = reinterpret_cast<sockaddr_in6&>(a);
        a6.sin6_family = AF_INET6;
        a6.sin6_addr = in6addr_loopback;
        a6.sin6_port = htons(static_cast<uint16_t>(port));
    } else {
        auto& a4 = reinterpret_cast<sockaddr_in&>(a);
        a4.sin_family = AF_INET;
        a4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a4.sin_port = htons(static_cast<uint16_t>(port));
    }
    return a;
}

// A connection handle that is closed when the test is done with it.
class Handle {
public:
    Handle() = default;
    ~Handle() { close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    // VLT_Socket with a document (or none); answers its status.
    int open(const char* document, std::string* detailText = nullptr) {
        char* detail = nullptr;
        int rc = VLT_Socket(&h, document, 0, &detail);
        std::string text = takeDetail(detail);
        if (detailText != nullptr) *detailText = text;
        return rc;
    }
    int open(const std::string& document, std::string* detailText = nullptr) {
        return open(document.c_str(), detailText);
    }

    int close() {
        if (h == 0) return VLT_S_OK;
        char* detail = nullptr;
        int rc = VLT_CloseHandle(&h, 0, &detail);
        takeDetail(detail);
        return rc;
    }

    VLT_HANDLE h = 0;
};

inline int waitFor(VLT_HANDLE h, bool forWrite, long milliseconds) {
    VLT_FDSET readSet{}, writeSet{}, errorSet{};
    VLT_FDSET& set = forWrite ? writeSet : readSet;
    set.fd_count = 1;
    set.fd_array[0] = h;
    VLT_TIMEVAL span{milliseconds / 1000, (milliseconds % 1000) * 1000};
    int ready = 0;
    char* detail = nullptr;
    int rc = VLT_Select(&readSet, &writeSet, &errorSet, &span, &ready, 0, &detail);
    takeDetail(detail);
    return rc;
}

// The handshake, also in non-blocking mode: -23 waits for the handle to be
// readable (bounded), then asks again.
inline int establish(VLT_HANDLE h) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        int rc = VLT_EstablishSecure(h, 0);
        if (rc != VLT_E_WOULD_BLOCK) return rc;
        if (std::chrono::steady_clock::now() > end) return VLT_E_TIMEOUT;
        int w = waitFor(h, false, 1000);
        if (w < 0 && w != VLT_E_TIMEOUT) return w;
    }
}

// The toolkit's way: connect, -15 → handshake, then connect again, which must
// answer 0 now. Answers the first failure or 0.
inline int connectUrl(VLT_HANDLE h, const std::string& url) {
    int rc = VLT_Connect_Url(h, url.c_str(), 0);
    if (rc != VLT_S_SECURE_PENDING) return rc;
    rc = establish(h);
    if (rc != VLT_S_OK) return rc;
    return VLT_Connect_Url(h, url.c_str(), 0);
}

inline int connectAddress(VLT_HANDLE h, const sockaddr_storage& address) {
    int rc = VLT_Connect(h, &address, sizeof address, 0);
    if (rc != VLT_S_SECURE_PENDING) return rc;
    rc = establish(h);
    if (rc != VLT_S_OK) return rc;
    return VLT_Connect(h, &address, sizeof address, 0);
}

// Sends everything; in non-blocking mode it waits for the write set on -23
// and flushes at the end, like the toolkit's chunked writer.
inline int sendAll(VLT_HANDLE h, const std::string& data, bool nonBlocking, std::size_t chunk = 32768) {
    std::size_t done = 0;
    int last = VLT_S_OK;
    while (done < data.size()) {
        int n = 0;
        int piece = static_cast<int>(std::min(chunk, data.size() - done));
        last = VLT_Send(h, data.data() + done, piece, 0, &n, 0);
        if (last != VLT_S_OK && last != VLT_E_WOULD_BLOCK) return last;
        if (n < 0 || n > piece) return VLT_E_FAILED;
        done += static_cast<std::size_t>(n);
        if (last == VLT_E_WOULD_BLOCK && n == 0) {
            if (!nonBlocking) return VLT_E_FAILED;
            int w = waitFor(h, true, 5000);
            if (w < 0) return w;
        }
    }
    if (last == VLT_E_WOULD_BLOCK) {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        int n = 0;
        while ((last = VLT_Send(h, nullptr, 0, 0, &n, 0)) == VLT_E_WOULD_BLOCK)
            if (std::chrono::steady_clock::now() > end) return VLT_E_TIMEOUT;
    }
    return last;
}

// Reads until the clean end of the stream (or `limit` bytes); answers the
// status that ended it (0 for a clean end).
inline int receiveAll(VLT_HANDLE h, std::string& out, std::size_t limit = ~std::size_t(0)) {
    std::vector<char> buffer(65536);
    for (;;) {
        int n = 0;
        int rc = VLT_Recv(h, buffer.data(), static_cast<int>(buffer.size()), 0, &n, 0);
        if (rc == VLT_E_WOULD_BLOCK) {
            int w = waitFor(h, false, 5000);
            if (w == VLT_E_TIMEOUT) return w;
            if (w < 0) return w;
            continue;
        }
        if (rc != VLT_S_OK) return rc;
        if (n == 0) return VLT_S_OK;
        out.append(buffer.data(), static_cast<std::size_t>(n));
        if (out.size() >= limit) return VLT_S_OK;
    }
}

}  // namespace vlttest

#endif
