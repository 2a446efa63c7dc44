// URLs, name resolution and numeric address texts, shared by the address
// entry points, the connect and the bind.
#include "internal.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace vlt {
namespace {

int defaultPort(const std::string& scheme) {
    if (scheme == "https") return 443;
    if (scheme == "http") return 80;
    return 0;
}

}  // namespace

std::string parseUrl(const char* text, Url& out) {
    out = Url();
    if (text == nullptr || *text == '\0') return "no URL given";
    std::string url(text);
    std::size_t sep = url.find("://");
    if (sep == std::string::npos || sep == 0) return "URL '" + url + "' has no scheme (expected scheme://host[:port][/path])";
    std::string scheme = url.substr(0, sep);
    for (std::size_t i = 0; i < scheme.size(); ++i) {
        unsigned char ch = static_cast<unsigned char>(scheme[i]);
        bool ok = std::isalpha(ch) || (i > 0 && (std::isdigit(ch) || ch == '+' || ch == '-' || ch == '.'));
        if (!ok) return "URL '" + url + "' has a malformed scheme";
        scheme[i] = static_cast<char>(std::tolower(ch));
    }
    std::size_t start = sep + 3;
    std::size_t end = url.find_first_of("/?#", start);
    if (end == std::string::npos) end = url.size();
    std::string authority = url.substr(start, end - start);

    // User information never takes part, and is left out of every message
    // because it may hold a password.
    std::size_t at = authority.rfind('@');
    if (at != std::string::npos) authority.erase(0, at + 1);
    out.display = scheme + "://" + authority + url.substr(end);

    std::string host, port;
    if (!authority.empty() && authority[0] == '[') {
        std::size_t close = authority.find(']');
        if (close == std::string::npos) return "URL '" + out.display + "' has an unclosed '[' around its host";
        host = authority.substr(1, close - 1);
        std::string rest = authority.substr(close + 1);
        if (!rest.empty()) {
            if (rest[0] != ':') return "URL '" + out.display + "' has text after the bracketed host";
            port = rest.substr(1);
        }
        // An IPv6 zone is written "%25" in a URL.
        std::size_t zone = host.find("%25");
        if (zone != std::string::npos) host.replace(zone, 3, "%");
    } else {
        std::size_t colon = authority.find(':');
        if (colon != std::string::npos && authority.find(':', colon + 1) != std::string::npos)
            return "URL '" + out.display + "' holds an IPv6 address without brackets";
        host = authority.substr(0, colon);
        if (colon != std::string::npos) port = authority.substr(colon + 1);
    }
    if (host.empty()) return "URL '" + out.display + "' has no host";

    if (port.empty()) {
        out.port = defaultPort(scheme);
        if (out.port == 0)
            return "URL '" + out.display + "' has no port and scheme '" + scheme + "' has no default port";
    } else {
        long value = 0;
        for (char ch : port) {
            if (ch < '0' || ch > '9' || value > 65535) { value = -1; break; }
            value = value * 10 + (ch - '0');
        }
        if (value <= 0 || value > 65535) return "URL '" + out.display + "' has an invalid port '" + port + "'";
        out.port = static_cast<int>(value);
    }
    out.scheme = scheme;
    out.host = host;
    return "";
}

int resolveHost(const std::string& hostText, int port, int family, bool passive,
                std::vector<sockaddr_storage>& out, std::string& error) {
    out.clear();
    std::string host = hostText;
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (host.empty()) {
        error = "no host name given";
        return VLT_E_RESOLVE;
    }
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    // No AI_ADDRCONFIG: it hides ::1 on hosts whose only IPv6 address is loopback.
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    addrinfo* list = nullptr;
    int rc = getaddrinfo(host == "*" ? nullptr : host.c_str(), passive ? "0" : nullptr, &hints, &list);
    if (rc != 0) {
        std::string why = rc == EAI_SYSTEM ? systemErrorText(errno) : gai_strerror(rc);
        error = "cannot resolve host '" + host + "': " + why;
        return VLT_E_RESOLVE;
    }
    for (addrinfo* ai = list; ai != nullptr; ai = ai->ai_next) {
        if ((ai->ai_family != AF_INET && ai->ai_family != AF_INET6) ||
            ai->ai_addrlen > sizeof(sockaddr_storage))
            continue;
        sockaddr_storage sa{};
        std::memcpy(&sa, ai->ai_addr, ai->ai_addrlen);
        if (sa.ss_family == AF_INET) reinterpret_cast<sockaddr_in&>(sa).sin_port = htons(static_cast<uint16_t>(port));
        else reinterpret_cast<sockaddr_in6&>(sa).sin6_port = htons(static_cast<uint16_t>(port));
        bool duplicate = std::any_of(out.begin(), out.end(), [&](const sockaddr_storage& seen) {
            return std::memcmp(&seen, &sa, sizeof sa) == 0;
        });
        if (!duplicate) out.push_back(sa);
    }
    freeaddrinfo(list);
    if (out.empty()) {
        error = "host '" + host + "' has no IPv4 or IPv6 address";
        return VLT_E_RESOLVE;
    }
    return VLT_S_OK;
}

bool isIpLiteral(const std::string& host) {
    std::string h = host;
    std::size_t zone = h.find('%');
    if (zone != std::string::npos) h.erase(zone);
    unsigned char buffer[sizeof(in6_addr)];
    return inet_pton(AF_INET, h.c_str(), buffer) == 1 || inet_pton(AF_INET6, h.c_str(), buffer) == 1;
}

socklen_t addressLength(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) return sizeof(sockaddr_in);
    if (address.ss_family == AF_INET6) return sizeof(sockaddr_in6);
    return sizeof(sockaddr_storage);
}

std::string numericText(const sockaddr* address) {
    char text[NI_MAXHOST];
    socklen_t length = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (getnameinfo(address, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) return "";
    return text;
}

int addressPort(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return 0;
}

std::string describeEndpoint(const sockaddr_storage& address) {
    return numericText(reinterpret_cast<const sockaddr*>(&address)) + " port " + std::to_string(addressPort(address));
}

}  // namespace vlt
