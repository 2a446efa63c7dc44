#ifndef TALVEX_TESTS_SECURESOCKETTESTSUPPORT_H
#define TALVEX_TESTS_SECURESOCKETTESTSUPPORT_H

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>

#include "moxcore/MOXErrors.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"

namespace securetest {

using Clock = std::chrono::steady_clock;
inline double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

inline sockaddr_storage ipv4(int port = 0) {
    sockaddr_storage s;
    std::memset(&s, 0, sizeof s);
    auto* a = reinterpret_cast<sockaddr_in*>(&s);
    a->sin_family = AF_INET;
    a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a->sin_port = htons(static_cast<unsigned short>(port));
    return s;
}

inline sockaddr_storage ipv6(int port = 0) {
    sockaddr_storage s;
    std::memset(&s, 0, sizeof s);
    auto* a = reinterpret_cast<sockaddr_in6*>(&s);
    a->sin6_family = AF_INET6;
    a->sin6_addr = in6addr_loopback;
    a->sin6_port = htons(static_cast<unsigned short>(port));
    return s;
}

inline sockaddr_storage noAddress() {
    sockaddr_storage s;
    std::memset(&s, 0xFF, sizeof s);
    return s;
}

inline TALVEXException toolkitError(const std::function<void()>& call) {
    try {
        call();
    } catch (TALVEXException& e) {
        return e;
    }
    ADD_FAILURE() << "no toolkit error";
    return TALVEXException(1, TALVEXException::ErrNotImplemented);
}

// The text of a core error (assertion, unexpected error ...) of the given type.
template <class Error>
std::string coreErrorText(const std::function<void()>& call, std::string* function = nullptr,
                          std::string* unit = nullptr) {
    try {
        call();
    } catch (Error& e) {
        if (function != nullptr) *function = e.getBackTrace().at(0).hasFunction ? e.getBackTrace().at(0).function : "";
        if (unit != nullptr) *unit = e.getBackTrace().at(0).unit;
        return e.getText() != nullptr ? e.getText() : "";
    }
    ADD_FAILURE() << "no core error of the expected kind";
    return {};
}

inline const MOXMessage& catalogMessage(const TALVEXException& e) {
    return dynamic_cast<const MOXMessage&>(e.getMessageAt(0));
}

// The free text after the catalog message: the security library's description.
inline std::string detail(const TALVEXException& e) {
    return e.getMessageCount() > 1 ? e.getMessageAt(1).format().str() : std::string();
}

inline std::string functionText(const MOXThrowable& e) { return e.getBackTrace().at(0).function; }

}  // namespace securetest

#endif
