#include "talvex/TALVEXSocket.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "moxcore/MOXByteBuffer.h"
#include "platform/winsock.h"
#include "session/MOXSocketAddress.h"
#include "talvex/TALVEXException.h"

namespace {
const unsigned short kNoAddress = 0xFFFF;
const unsigned short kLocalAddress = 0xFFFE;
}  // namespace

TALVEXSocket::TALVEXSocket(int nonBlocking)
    : m_callback(nullptr), m_callback_argument(nullptr), m_time_limit(0), m_port(0), m_non_blocking(nonBlocking) {
    std::memset(&m_address, 0xFF, sizeof m_address);
}

TALVEXSocket::TALVEXSocket(int port, const sockaddr_storage& address, int nonBlocking)
    : m_callback(nullptr), m_callback_argument(nullptr), m_time_limit(0), m_port(port), m_non_blocking(nonBlocking) {
    std::memcpy(&m_address, &address, sizeof m_address);
    if (m_address.ss_family == kNoAddress) {
        std::memset(&m_address, 0xFF, sizeof m_address);
    } else if (m_address.ss_family == kLocalAddress) {
        std::memset(reinterpret_cast<char*>(&m_address) + 4, 0, 4);
    }
}

TALVEXSocket::~TALVEXSocket() { m_callback_argument = nullptr; }

void TALVEXSocket::getIPAddress(MOXByteBuffer& text) const {
    if (m_address.ss_family == kNoAddress) {
        text << "255.255.255.255";
        return;
    }
    MOXSocketAddress resolver("VLT_Crypto_Interface");
    char buffer[1025];
    buffer[0] = '\0';
    resolver.getAddressAsText(&m_address, buffer, sizeof buffer);
    text << buffer;
}

const sockaddr_storage& TALVEXSocket::getIPAddress() const { return m_address; }

void TALVEXSocket::echo(const char*) { TALVEXException::ThrowNotImplemented("TALVEXSocket::echo(const MOX_char* sfilename)"); }

void TALVEXSocket::echo(const char*, const char*) {
    TALVEXException::ThrowNotImplemented("TALVEXSocket::echo (const MOX_char* sfilename, const MOX_char * mode)");
}

void TALVEXSocket::prepare(const char*) { TALVEXException::ThrowNotImplemented("TALVEXSocket::prepare( url )"); }

void TALVEXSocket::prepare(int, const sockaddr_storage&) { TALVEXException::ThrowNotImplemented("TALVEXSocket::prepare"); }

void TALVEXSocket::open(const char*, const char*, int) { TALVEXException::ThrowNotImplemented("TALVEXSocket::Open(2)"); }

void TALVEXSocket::open(int, const sockaddr_storage&, const char*, int) {
    TALVEXException::ThrowNotImplemented("TALVEXSocket::Open(3)");
}

void TALVEXSocket::open(int, int) { TALVEXException::ThrowNotImplemented("TALVEXSocket::Open(1)"); }

void TALVEXSocket::open(int) { TALVEXException::ThrowNotImplemented("TALVEXSocket::Open(0)"); }

void TALVEXSocket::setTimeLimitCallback(void (*callback)(void*), void* argument, int timeLimitSec) {
    m_callback = callback;
    m_callback_argument = argument;
    m_time_limit = timeLimitSec;
    m_callback_due = std::chrono::steady_clock::now() + std::chrono::seconds(timeLimitSec);
}

void TALVEXSocket::callCallback() {
    m_callback_due = std::chrono::steady_clock::now() + std::chrono::seconds(m_time_limit);
    m_callback(m_callback_argument);
}

// Due by the clock, not by a wait without data: a peer trickling bytes cannot
// keep a time limit or a cancel request from being honoured.
void TALVEXSocket::callbackIfDue() {
    if (m_callback != nullptr && std::chrono::steady_clock::now() >= m_callback_due) callCallback();
}

int TALVEXSocket::secondsUntilCallback() const {
    if (m_callback == nullptr) return -1;
    const auto left = std::chrono::ceil<std::chrono::seconds>(m_callback_due - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

int TALVEXSocket::isNonBlockingSocket() { return m_non_blocking; }

int TALVEXSocket::getTimeLimitSec() const { return m_time_limit; }

long TALVEXSocket::getLastErrorCode() const { return WSAGetLastError(); }

sockaddr_storage TALVEXSocket::getLocalAddress() {
    sockaddr_storage address;
    std::memset(&address, 0, sizeof address);
    address.ss_family = kLocalAddress;
    return address;
}

void TALVEXSocket::setAuthority(const std::string& authority) { m_authority = authority; }

std::string TALVEXSocket::getAuthority() const {
    if (!m_authority.empty()) return m_authority;
    MOXByteBuffer text(64, 64);
    getIPAddress(text);
    std::string host = text.str();
    if (m_address.ss_family == AF_INET6) host = "[" + host + "]";
    return m_port > 0 ? host + ":" + std::to_string(m_port) : host;
}
