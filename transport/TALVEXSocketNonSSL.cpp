#include "transport/TALVEXSocketNonSSL.h"

#include <sys/select.h>

#include <cstring>
#include <string>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXFmDir.h"
#include "moxcore/MOXThrow.h"
#include "talvex/TALVEXHost.h"
#include "transport/TALVEXSocketErrorText.h"

static const char MOX_UNIT[] = "TALVEXSocketNonSSL";

// Every socket failure of this class: code 5, its catalog message, then the
// text of the Windows Sockets error that updateLastErrorText recorded.
#define RAISE_SOCKET_ERROR(function) \
    TALVEX_RAISE_DETAIL_AT(__LINE__, function, ErrSocket, TALVEXMessage(0xF2A16A58), m_last_error_text)

namespace {
const unsigned short kNoAddress = 0xFFFF;
const int kAttempts = 5;
const unsigned kPauseSec = 2;
}

TALVEXSocketNonSSL::TALVEXSocketNonSSL(int nonBlocking)
    : TALVEXSocket(0, TALVEXSocket::getLocalAddress(), nonBlocking),
      m_url(64, 256),
      m_handle(INVALID_SOCKET),
      m_eof(0),
      m_connected(0),
      m_echo_file(nullptr) {
    m_input_stream.setSocket(this);
    m_output_stream.setSocket(this);
}

TALVEXSocketNonSSL::~TALVEXSocketNonSSL() {
    try {
        cleanup();
    } catch (...) {
    }
    if (m_echo_file != nullptr) {
        fclose(m_echo_file);
        m_echo_file = nullptr;
    }
}

TALVEXSocketInputStream* TALVEXSocketNonSSL::getInputStream() { return &m_input_stream; }

PNXOutputStream* TALVEXSocketNonSSL::getOutputStream() { return &m_output_stream; }

int TALVEXSocketNonSSL::isAvailable() { return 1; }

void TALVEXSocketNonSSL::prepare(const char* url) {
    m_url.reset();
    m_url << url;
    m_address = TALVEXSocket::getLocalAddress();
    m_port = 0;
    m_authority.clear();

    char* text = m_url.str();
    char* scheme_end = std::strstr(text, "://");
    if (scheme_end == nullptr || scheme_end[3] == '\0') {
        std::string copy = url != nullptr ? url : "";
        m_url.reset();
        TALVEX_RAISE_AT(__LINE__, "TALVEXSocketNonSSL::prepare( url )", ErrUrl,
                        TALVEXMessage(0xF2A26477) << MOXMessageParm(I18NString(copy.c_str()))
                                                  << MOXMessageParm(I18NString("no ://")));
    }
    char* host = scheme_end + 3;
    char* slash = std::strchr(host, '/');
    if (slash != nullptr) *slash = '\0';

    // The Host header names the URL's authority as written, without user
    // information, and without a query or fragment that follows it directly.
    std::string authority = host;
    authority = authority.substr(0, authority.find_first_of("?#"));
    const size_t at = authority.rfind('@');
    m_authority = at != std::string::npos ? authority.substr(at + 1) : authority;

    char* bracket = std::strchr(host, ']');
    char* colon = std::strchr(bracket != nullptr ? bracket : host, ':');
    if (colon != nullptr) {
        m_port = std::atoi(colon + 1);
        *colon = '\0';
    }
    if (bracket != nullptr) {
        host = std::strchr(host, '[') != nullptr ? host + 1 : host;
        *bracket = '\0';
    }
    m_address = TALVEXHost::resolveIPAddress(host);
    m_url.reset();
}

void TALVEXSocketNonSSL::prepare(int port, const sockaddr_storage& address) {
    close();
    m_url.reset();
    m_authority.clear();
    m_port = port;
    if (address.ss_family == kNoAddress)
        m_address = TALVEXHost::resolveIPAddress(nullptr);
    else
        std::memcpy(&m_address, &address, sizeof m_address);
}

void TALVEXSocketNonSSL::open(int timeLimitSec) { open(m_port, m_address, nullptr, timeLimitSec); }

void TALVEXSocketNonSSL::open(int port, int timeLimitSec) { open(port, m_address, nullptr, timeLimitSec); }

void TALVEXSocketNonSSL::open(const char* url, const char* secureConfig, int timeLimitSec) {
    prepare(url);
    open(m_port, m_address, secureConfig, timeLimitSec);
}

void TALVEXSocketNonSSL::open(int port, const sockaddr_storage& address, const char*, int timeLimitSec) {
    if (m_connected == 1) return;

    m_eof = 0;
    m_port = port;
    if (&address != &m_address) std::memcpy(&m_address, &address, sizeof m_address);
    sockaddr_storage target;
    std::memcpy(&target, &m_address, sizeof target);
    const unsigned short netPort = htons(static_cast<unsigned short>(port));
    std::memcpy(reinterpret_cast<char*>(&target) + 2, &netPort, 2);

    if (target.ss_family == kNoAddress) MOX_THROW(MOXIllegalStateError, "TALVEXSocketNonSSL::Open(3)");

    const TALVEXConnectTimeLimit limit(timeLimitSec);
    m_handle = socket(target.ss_family, SOCK_STREAM, 0);
    if (m_handle == 0) {
        // Handle 0 is never kept: take the next one and give 0 back.
        m_handle = socket(target.ss_family, SOCK_STREAM, 0);
        closesocket(0);
    }
    if (m_handle == INVALID_SOCKET) {
        updateLastErrorText();
        RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::Open(3)");
    }

    const socklen_t length = target.ss_family == AF_INET ? 16 : 28;
    int attempts = kAttempts;
    for (;;) {
        if (connectWithin(target, length, limit) == 0) {
            if (!limit.passed()) break;
            updateLastErrorText();
            RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::Open(3)");
        }
        // An interrupted attempt does not count.
        const bool interrupted = WSAGetLastError() == WSAEINTR;
        updateLastErrorText();
        attempts = interrupted ? kAttempts : attempts - 1;
        if (attempts <= 0 || limit.passed() || (!interrupted && !limit.pause(kPauseSec)))
            RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::Open(3)");
    }

    m_connected = 1;
    if (m_non_blocking) {
        unsigned long on = 1;
        ioctlsocket(m_handle, FIONBIO, &on);
    }
}

int TALVEXSocketNonSSL::connectWithin(const sockaddr_storage& target, socklen_t length,
                                      const TALVEXConnectTimeLimit& limit) {
    // Non-blocking, so the wait for the peer is ours and ends with the limit;
    // the connection's own mode is set once it is up.
    unsigned long on = 1;
    ioctlsocket(m_handle, FIONBIO, &on);
    int rc = connect(m_handle, reinterpret_cast<const sockaddr*>(&target), length);
    if (rc == SOCKET_ERROR && (WSAGetLastError() == WSAEINPROGRESS || WSAGetLastError() == WSAEWOULDBLOCK))
        rc = awaitConnect(limit);
    const int error = WSAGetLastError();
    unsigned long off = 0;
    ioctlsocket(m_handle, FIONBIO, &off);
    WSASetLastError(error);
    return rc;
}

int TALVEXSocketNonSSL::awaitConnect(const TALVEXConnectTimeLimit& limit) {
    for (;;) {
        // POSIX reports the outcome as writable, Winsock a failure as an exception.
        fd_set writeSet;
        fd_set errorSet;
        FD_ZERO(&writeSet);
        FD_ZERO(&errorSet);
        FD_SET(m_handle, &writeSet);
        FD_SET(m_handle, &errorSet);
        const long left = limit.remainingMs();
        timeval span;
        span.tv_sec = left / 1000;
        span.tv_usec = (left % 1000) * 1000;
        const int ready = select(m_handle + 1, nullptr, &writeSet, &errorSet, left < 0 ? nullptr : &span);
        if (ready == SOCKET_ERROR && WSAGetLastError() == WSAEINTR) continue;
        if (ready == SOCKET_ERROR) return SOCKET_ERROR;
        if (ready == 0) {
            WSASetLastError(WSAETIMEDOUT);
            return SOCKET_ERROR;
        }
        int error = 0;
        int size = sizeof error;
        if (getsockopt(m_handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == SOCKET_ERROR)
            return SOCKET_ERROR;
        if (error == 0) return 0;
        WSASetLastError(error);
        return SOCKET_ERROR;
    }
}

void TALVEXSocketNonSSL::trace(const char* header, int count, const char* data, int dataLength) {
    if (m_echo_file == nullptr) return;
    std::fprintf(m_echo_file, header, count);
    if (dataLength > 0) std::fwrite(data, 1, static_cast<size_t>(dataLength), m_echo_file);
    std::fflush(m_echo_file);
}

int TALVEXSocketNonSSL::ReadBuffer(char* buffer, unsigned length, int* bytesRead) {
    if (buffer == nullptr || length == 0 || bytesRead == nullptr)
        MOX_THROW(MOXIllegalArgumentError, "TALVEXSocketNonSSL::ReadBuffer");

    *bytesRead = 0;
    if (m_connected != 0 && m_eof != 1) {
        if (m_callback != nullptr) {
            for (;;) {
                callbackIfDue();
                timeval span;
                span.tv_sec = secondsUntilCallback();
                span.tv_usec = 0;
                fd_set readSet;
                FD_ZERO(&readSet);
                FD_SET(m_handle, &readSet);
                int rc = select(m_handle + 1, &readSet, nullptr, nullptr, &span);
                if (rc == 0) {
                    callCallback();
                    continue;
                }
                if (rc == SOCKET_ERROR) {
                    if (WSAGetLastError() == WSAEINTR) continue;
                    updateLastErrorText();
                    RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::ReadBuffer");
                }
                break;
            }
        }
        for (;;) {
            int rc = recv(m_handle, buffer, static_cast<int>(length), 0);
            *bytesRead = rc;
            if (rc == 0) {
                m_eof = 1;
            } else if (rc == SOCKET_ERROR) {
                int error = WSAGetLastError();
                if (error == WSAEINTR) continue;
                if (error == WSAECONNRESET) {
                    m_eof = 1;
                } else {
                    updateLastErrorText();
                    RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::ReadBuffer");
                }
            }
            break;
        }
    }
    trace("\n<read[%d]>\n", *bytesRead, buffer, (m_eof == 1 || *bytesRead <= 0) ? 0 : *bytesRead);
    return m_eof == 0 ? 1 : 0;
}

void TALVEXSocketNonSSL::WriteBuffer(const char* buffer, unsigned length, int* bytesWritten) {
    if (bytesWritten != nullptr) *bytesWritten = 0;
    if (buffer == nullptr || length == 0 || bytesWritten == nullptr)
        MOX_THROW(MOXIllegalArgumentError, "TALVEXSocketNonSSL::writeBuffer");

    while (length > 0) {
        int rc = send(m_handle, buffer, static_cast<int>(length), 0);
        if (rc == SOCKET_ERROR) {
            if (WSAGetLastError() == WSAEINTR) continue;
            updateLastErrorText();
            RAISE_SOCKET_ERROR("TALVEXSocketNonSSL::WriteBuffer");
        }
        trace("\n<write[%d]>\n", rc, buffer, rc);
        *bytesWritten += rc;
        buffer += rc;
        length -= static_cast<unsigned>(rc);
    }
}

void TALVEXSocketNonSSL::close() {
    m_connected = 0;
    if (m_handle != INVALID_SOCKET) {
        shutdown(m_handle, SD_BOTH);
        closesocket(m_handle);
        m_handle = INVALID_SOCKET;
    }
}

void TALVEXSocketNonSSL::adopt(SOCKET accepted) {
    close();
    m_handle = accepted;
    m_eof = 0;
    m_connected = 1;
    if (m_non_blocking) {
        unsigned long on = 1;
        ioctlsocket(m_handle, FIONBIO, &on);
    }
}

void TALVEXSocketNonSSL::echo(const char* sfilename) { echo(sfilename, nullptr); }

void TALVEXSocketNonSSL::echo(const char* sfilename, const char* mode) {
    if (m_echo_file != nullptr) {
        fclose(m_echo_file);
        m_echo_file = nullptr;
    }
    if (sfilename == nullptr || *sfilename == '\0') return;
    if (mode == nullptr || *mode == '\0') mode = "a+b";
    std::string path = sfilename;
    MOXFmDir::resolveEffectivePath(path);
    m_echo_file = std::fopen(path.c_str(), mode);
}

void TALVEXSocketNonSSL::cleanup() {
    try {
        echo(nullptr, nullptr);
    } catch (...) {
    }
    try {
        close();
    } catch (...) {
    }
    if (m_echo_file != nullptr) {
        fclose(m_echo_file);
        m_echo_file = nullptr;
    }
}

void TALVEXSocketNonSSL::updateLastErrorText() {
    m_last_error_text = I18NString(TALVEXSocketErrorText::lookup(WSAGetLastError()));
}
