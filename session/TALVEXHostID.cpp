#include "talvex/TALVEXHostID.h"

#include <cstring>
#include <vector>

#include "talvex/TALVEXHost.h"

namespace {
const unsigned short kNoAddressFamily = 0xFFFF;
}

TALVEXHostID::TALVEXHostID(const char* host, int port) : m_port(port), m_host(host) {
    std::memset(&m_address, 0xFF, sizeof m_address);
}

TALVEXHostID::TALVEXHostID(const TALVEXHostID& other)
    : m_port(other.m_port), m_host(other.m_host), m_address(other.m_address) {}

TALVEXHostID& TALVEXHostID::operator=(const TALVEXHostID& other) {
    if (this != &other) {
        m_port = other.m_port;
        m_host = other.m_host;
        m_address = other.m_address;
    }
    return *this;
}

TALVEXHostID::~TALVEXHostID() {}

const char* TALVEXHostID::getHostName() const { return m_host.c_str(); }

int TALVEXHostID::getPort() const { return m_port; }

void TALVEXHostID::resolveIfNeeded() {
    if (m_address.ss_family != kNoAddressFamily) return;
    std::vector<char> name(m_host.begin(), m_host.end());
    name.push_back('\0');
    m_address = TALVEXHost::resolveIPAddress(name.data());
}

sockaddr_storage TALVEXHostID::getIPAddress() {
    resolveIfNeeded();
    return m_address;
}

int TALVEXHostID::isValid() {
    resolveIfNeeded();
    return m_address.ss_family != kNoAddressFamily ? 1 : 0;
}
