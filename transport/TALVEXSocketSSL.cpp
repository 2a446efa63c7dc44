#include "transport/TALVEXSocketSSL.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXFmDir.h"
#include "moxcore/MOXThrow.h"
#include "moxcore/MOXUtSystemInfo.h"
#include "platform/wintypes.h"
#include "session/MOXSocketAddress.h"
#include "transport/TALVEXConnectTimeLimit.h"
#include "transport/TALVEXCryptoError.h"

static const char MOX_UNIT[] = "TALVEXSocketSSL";

// Assertions on NULL and FALSE are spelled with MOX_ASSERT_AT: MOX_ASSERT
// would expand those macros before its text is made.

// A failed library call: code 5 with the library's own description.
#define RAISE_CRYPTO_ERROR(function, callName, status) raiseCryptoError(__LINE__, function, callName, status)

namespace {
const unsigned short kNoAddress = 0xFFFF;
const char kLibraryName[] = "VLT_Crypto_Interface";

// Library results the socket tells apart.
const int VLT_S_OK = 0;
const int kConnectionClosed = -12;
const int kRefused = -13;
const int kSecurePending = -15;
const int kWouldBlock = -23;
const int kSpanPassed = -54;
const int kSpanPassedToo = 2;

// Library options.
const unsigned int kSendBufferSize = 0x1001;
const unsigned int kReceiveBufferSize = 0x1002;
const unsigned int kNonBlockingSwitch = 0x8004667E;
const unsigned int kConnectTimeout = 0x1003;

const unsigned kLargestSendChunk = 32768;
const int kAttempts = 5;
const int kSecureTries = 5;
const unsigned kPauseSec = 2;
const long kDefaultWaitSec = 3;

const char kClosingTag[] = "</sessionConfigDocument>";
const char kClosingTagIPv4[] = "<protocolFamily>IPv4</protocolFamily></sessionConfigDocument>";
const char kClosingTagIPv6[] = "<protocolFamily>IPv6</protocolFamily></sessionConfigDocument>";
// Stands for a missing document: every setting at its default.
const char kEmptyDocument[] = "<sessionConfigDocument></sessionConfigDocument>";

// The library takes int lengths.
int clampLength(unsigned length) { return length > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int>(length); }

std::string addressText(MOXSocketAddress& resolver, const sockaddr_storage& address) {
    char text[1025];
    text[0] = '\0';
    resolver.getAddressAsText(&address, text, sizeof text);
    return text;
}
}  // namespace

TALVEXSocketSSL::TALVEXSocketSSL(int nonBlocking)
    : TALVEXSocket(0, TALVEXSocket::getLocalAddress(), nonBlocking),
      m_url(64, 256),
      m_secure_config(nullptr),
      m_crypto(kLibraryName),
      m_conn_handle(0),
      m_connected(0),
      m_eof(0),
      m_echo_file(nullptr),
      m_recvBuffer(nullptr),
      m_recv_count(0),
      m_recv_size(0),
      m_send_chunk(kLargestSendChunk) {
    m_input_stream.setSocket(this);
    m_output_stream.setSocket(this);
}

TALVEXSocketSSL::~TALVEXSocketSSL() {
    try {
        cleanup();
    } catch (...) {
    }
    m_secure_config = nullptr;
    m_conn_handle = 0;
    delete[] m_recvBuffer;
    m_recvBuffer = nullptr;
}

TALVEXSocketInputStream* TALVEXSocketSSL::getInputStream() { return &m_input_stream; }

PNXOutputStream* TALVEXSocketSSL::getOutputStream() { return &m_output_stream; }

int TALVEXSocketSSL::isAvailable() { return 1; }

void TALVEXSocketSSL::raiseCryptoError(int line, const char* function, const char* callName, int status) {
    // Built right after the failing call, while the handle still names the
    // connection; its destructor gives the details back to the library.
    TALVEXCryptoError error(this, m_conn_handle, callName, static_cast<unsigned int>(status));
    I18NString text;
    error.toString(text);
    TALVEX_RAISE_DETAIL_AT(line, function, ErrSocket, TALVEXMessage(0xF2A16A58), text);
}

void TALVEXSocketSSL::setAuthorityFromUrl(const char* url) {
    // The Host header names the URL's authority as written, without user information.
    std::string text = url != nullptr ? url : "";
    std::string::size_type start = text.find("://");
    start = start == std::string::npos ? 0 : start + 3;
    std::string::size_type end = text.find_first_of("/?#", start);
    std::string authority = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    std::string::size_type at = authority.rfind('@');
    m_authority = at == std::string::npos ? authority : authority.substr(at + 1);
}

void TALVEXSocketSSL::prepare(const char* url) {
    close();
    m_url.reset();
    if (url != nullptr) m_url << url;
    setAuthorityFromUrl(url);
    m_port = 0;
    std::memset(&m_address, 0xFF, sizeof m_address);
}

void TALVEXSocketSSL::prepare(int port, const sockaddr_storage& address) {
    close();
    m_url.reset();
    m_authority.clear();
    m_port = port;
    if (address.ss_family == kNoAddress)
        m_address = TALVEXSocket::getLocalAddress();
    else if (&address != &m_address)
        std::memcpy(&m_address, &address, sizeof m_address);
}

void TALVEXSocketSSL::open(const char* url, const char* secureConfig, int timeLimitSec) {
    if (m_connected) return;
    m_url.reset();
    if (url != nullptr) m_url << url;
    setAuthorityFromUrl(url);
    std::memset(&m_address, 0xFF, sizeof m_address);
    m_port = 0;
    m_secure_config = secureConfig;
    open(timeLimitSec);
}

void TALVEXSocketSSL::open(int port, const sockaddr_storage& address, const char* secureConfig, int timeLimitSec) {
    if (m_connected) return;
    m_url.reset();
    m_port = port;
    if (&address != &m_address) std::memcpy(&m_address, &address, sizeof m_address);
    m_secure_config = secureConfig;
    open(timeLimitSec);
}

void TALVEXSocketSSL::open(int timeLimitSec) {
    MOXSocketAddress resolver(kLibraryName);
    if (m_connected) return;
    m_eof = 0;

    if (!m_crypto.isLoaded()) MOXUnexpectedError(0, "Cannot open Crypto lib").hurl(MOX_HERE, nullptr, "MOX_THROW");

    // A handle left by an earlier connection or a failed open.
    if (m_conn_handle != 0) m_crypto.CloseHandle(&m_conn_handle, 0, nullptr);

    const bool byUrl = m_url.pcount() > 0;
    const std::string url = byUrl ? std::string(m_url.str(), m_url.pcount()) : std::string();
    sockaddr_storage target;
    std::memset(&target, 0, sizeof target);
    if (!byUrl) {
        std::memcpy(&target, &m_address, sizeof target);
        const unsigned short netPort = htons(static_cast<unsigned short>(m_port));
        std::memcpy(reinterpret_cast<char*>(&target) + 2, &netPort, 2);
    } else {
        int status = 0;
        resolver.resolveAddressFromURI(url.c_str(), 0, &status);
        resolver.getAddress(0, &target);
    }

    if (target.ss_family == kNoAddress) {
        const std::string text = byUrl ? url : addressText(resolver, target);
        TALVEX_RAISE_AT(__LINE__, "TALVEXSocketSSL::open()", ErrSecureSetup,
                        TALVEXMessage(0xF2A4DB68) << MOXMessageParm(I18NString(text.c_str()))
                                                  << MOXMessageParm(m_port, MOX_PARM_DECIMAL));
    }

    // The caller's document gains the address family as its last element.
    const char* closingTag = nullptr;
    if (target.ss_family == AF_INET)
        closingTag = kClosingTagIPv4;
    else if (target.ss_family == AF_INET6)
        closingTag = kClosingTagIPv6;
    else
        MOX_ASSERT_AT(__LINE__, FALSE);
    std::string document = m_secure_config != nullptr ? m_secure_config : kEmptyDocument;
    const std::string::size_type tag = document.find(kClosingTag);
    if (tag == std::string::npos) throw std::out_of_range("invalid string position");
    document.replace(tag, sizeof kClosingTag - 1, closingTag);

    char* detail = nullptr;
    int rc = m_crypto.Socket(&m_conn_handle, document.c_str(), 0, &detail);
    if (rc != 0) {
        const I18NString detailText(detail);
        char function[64];
        std::snprintf(function, sizeof function, "VLT_Socket=0x%x %s", static_cast<unsigned>(rc),
                      "TALVEXSocketSSL::open()");
        if (detail != nullptr) m_crypto.CryptoFree(detail, 0);
        if (byUrl) {
            TALVEX_RAISE_DETAIL_AT(__LINE__, function, ErrSecureRefused,
                                   TALVEXMessage(0xF2AF1B68) << MOXMessageParm(I18NString(url.c_str()))
                                                             << MOXMessageParm(rc, MOX_PARM_DECIMAL),
                                   detailText);
        }
        const std::string text = addressText(resolver, target);
        TALVEX_RAISE_DETAIL_AT(__LINE__, function, ErrSecureSetup,
                               TALVEXMessage(0xF2A4DB68) << MOXMessageParm(I18NString(text.c_str()))
                                                         << MOXMessageParm(m_port, MOX_PARM_DECIMAL)
                                                         << MOXMessageParm(rc, MOX_PARM_DECIMAL),
                               detailText);
    }

    const TALVEXConnectTimeLimit limit(timeLimitSec);
    int attempts = kAttempts;
    int secureTries = kSecureTries;
    int sec = 0;
    for (;;) {
        limitLibraryWaits(limit);
        rc = byUrl ? m_crypto.Connect_Url(m_conn_handle, url.c_str(), 0)
                   : m_crypto.Connect(m_conn_handle, &target, sizeof target, 0);
        if (rc == kRefused) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_Connect", rc);

        // The library asks for the secure channel to be driven, and for
        // another connect once it is up; both share one budget of extra calls.
        sec = 0;
        if (rc == kSecurePending) {
            sec = m_crypto.EstablishSecure(m_conn_handle, 0);
            while (sec == kWouldBlock) {
                if (secureTries-- <= 0) break;
                sec = m_crypto.EstablishSecure(m_conn_handle, 0);
            }
        }

        // Refused for good: another attempt would meet the same refusal.
        if (sec == kRefused) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_EstablishSecure", sec);
        if (limit.passed()) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_Connect", rc);

        if (rc == kSecurePending && sec == 0) {
            if (secureTries-- > 0) continue;
        } else if (rc == 0) {
            break;
        }

        if (--attempts <= 0) break;
        if (!limit.pause(kPauseSec)) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_Connect", rc);
        secureTries = kSecureTries;
    }
    if (rc != 0) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_Connect", rc);
    if (sec != 0) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::open()", "VLT_EstablishSecure", sec);

    m_connected = 1;
    if (m_non_blocking) {
        setupReceiveBuffer();
        setupSendChunk();
        setNonBlockingMode();
    }
}

void TALVEXSocketSSL::limitLibraryWaits(const TALVEXConnectTimeLimit& limit) {
    if (!limit.isSet()) return;
    // At least 1 ms: 0 would restore the library's own bounds. A library
    // without the option keeps them; the limit is still checked after the attempt.
    int waitMs = static_cast<int>(std::max(1L, limit.remainingMs()));
    m_crypto.SetSockOpt(m_conn_handle, kConnectTimeout, &waitMs, sizeof waitMs, 0);
}

void TALVEXSocketSSL::setupReceiveBuffer() {
    delete[] m_recvBuffer;
    m_recvBuffer = nullptr;
    m_recv_count = 0;
    m_recv_size = 0;
    int value = 0;
    int length = 4;
    int vlt_stat = m_crypto.GetSockOpt(m_conn_handle, kReceiveBufferSize, &value, &length, 0);
    MOX_ASSERT(vlt_stat == VLT_S_OK);
    m_recv_size = static_cast<unsigned>(value);
    const unsigned size = m_recv_size;
    m_recvBuffer = ::moxAllocate(MOX_HERE, [size]() { return new char[size]; });
}

void TALVEXSocketSSL::setupSendChunk() {
    m_send_chunk = 0;
    int sendBufSz = 0;
    int length = 4;
    int vlt_stat = m_crypto.GetSockOpt(m_conn_handle, kSendBufferSize, &sendBufSz, &length, 0);
    MOX_ASSERT(vlt_stat == VLT_S_OK);
    MOX_ASSERT(sendBufSz > 0);
    m_send_chunk = static_cast<unsigned>(sendBufSz) < kLargestSendChunk ? static_cast<unsigned>(sendBufSz)
                                                                         : kLargestSendChunk;
}

void TALVEXSocketSSL::setNonBlockingMode() {
    int one = 1;
    int vlt_stat = m_crypto.SetSockOpt(m_conn_handle, kNonBlockingSwitch, &one, 4, 0);
    MOX_ASSERT(vlt_stat == VLT_S_OK);
}

void TALVEXSocketSSL::close() {
    m_connected = 0;
    m_eof = 0;
    if (m_conn_handle == 0) return;
    char* detail = nullptr;
    int rc = m_crypto.CloseHandle(&m_conn_handle, 0, &detail);
    m_conn_handle = 0;
    const I18NString detailText(detail);
    if (detail != nullptr) m_crypto.CryptoFree(detail, 0);
    if (rc != 0)
        TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXSocketSSL::Close", ErrSocket, TALVEXMessage(0xF2A16A58), detailText);
}

void TALVEXSocketSSL::echo(const char* sfilename) { echo(sfilename, nullptr); }

void TALVEXSocketSSL::echo(const char* sfilename, const char* mode) {
    if (m_echo_file != nullptr) {
        fclose(m_echo_file);
        m_echo_file = nullptr;
    }
    if (sfilename == nullptr || *sfilename == '\0') return;
    if (mode == nullptr || *mode == '\0') mode = "a+b";
    const long pid = MOXUtSystemInfo::getProcessId();
    const int size = std::snprintf(nullptr, 0, "../logs/%ld_%s", pid, sfilename);
    std::string path(static_cast<size_t>(size > 0 ? size : 0), '\0');
    std::snprintf(&path[0], path.size() + 1, "../logs/%ld_%s", pid, sfilename);
    MOXFmDir::resolveEffectivePath(path);
    m_echo_file = std::fopen(path.c_str(), mode);
}

void TALVEXSocketSSL::cleanup() {
    try {
        echo(nullptr, nullptr);
    } catch (...) {
    }
    try {
        close();
    } catch (...) {
    }
    m_secure_config = nullptr;
    m_conn_handle = 0;
    if (m_echo_file != nullptr) {
        fclose(m_echo_file);
        m_echo_file = nullptr;
    }
    delete[] m_recvBuffer;
    m_recvBuffer = nullptr;
    m_recv_count = 0;
    m_recv_size = 0;
}

int TALVEXSocketSSL::waitForSocket(int forWrite) {
    for (;;) {
        callbackIfDue();
        MOXCrypto::TimeVal span;
        span.tv_sec = m_callback != nullptr ? secondsUntilCallback() : kDefaultWaitSec;
        span.tv_usec = 0;
        MOXCrypto::FdSet readSet;
        MOXCrypto::FdSet writeSet;
        MOXCrypto::FdSet errorSet;
        std::memset(&readSet, 0, sizeof readSet);
        std::memset(&writeSet, 0, sizeof writeSet);
        std::memset(&errorSet, 0, sizeof errorSet);
        MOXCrypto::FdSet& chosen = forWrite ? writeSet : readSet;
        chosen.fd_array[0] = m_conn_handle;
        chosen.fd_count = 1;

        int ready = 0;
        char* detail = nullptr;
        int rc = m_crypto.Select(&readSet, &writeSet, &errorSet, &span, &ready, 0, &detail);
        if (detail != nullptr) m_crypto.CryptoFree(detail, 0);

        if (rc == kSpanPassed || rc == kSpanPassedToo) {
            // The callback ends the wait only by throwing.
            if (m_callback != nullptr) callCallback();
            continue;
        }
        if (rc < 0) return rc;
        if (chosen.fd_count == 1) return 0;
    }
}

int TALVEXSocketSSL::receiveBuffered(char* message, unsigned length, int, int* bytesReceived) {
    MOX_ASSERT_AT(__LINE__, NULL != bytesReceived);
    MOX_ASSERT_AT(__LINE__, NULL != message);
    *bytesReceived = 0;

    if (m_recv_count == 0) {
        int received = 0;
        int rc = m_crypto.Recv(m_conn_handle, m_recvBuffer, clampLength(m_recv_size), 0, &received, 0);
        m_recv_count = received > 0 ? static_cast<unsigned>(received) : 0;
        while (rc == kWouldBlock) {
            rc = waitForSocket(0);
            if (rc == 0) {
                received = 0;
                rc = m_crypto.Recv(m_conn_handle, m_recvBuffer, clampLength(m_recv_size), 0, &received, 0);
                m_recv_count = received > 0 ? static_cast<unsigned>(received) : 0;
            }
        }
        if (rc != 0) return rc;
    }

    MOX_ASSERT_AT(__LINE__, NULL != m_recvBuffer);
    if (m_recv_count < length) {
        if (m_recv_count > 0) std::memcpy(message, m_recvBuffer, m_recv_count);
        *bytesReceived = static_cast<int>(m_recv_count);
        m_recv_count = 0;
    } else {
        std::memcpy(message, m_recvBuffer, length);
        *bytesReceived = static_cast<int>(length);
        m_recv_count -= length;
        std::memmove(m_recvBuffer, m_recvBuffer + length, m_recv_count);
    }
    return 0;
}

int TALVEXSocketSSL::ReadBuffer(char* buffer, unsigned length, int* bytesRead) {
    if (buffer == nullptr || length == 0 || bytesRead == nullptr)
        MOX_THROW(MOXIllegalArgumentError, "TALVEXSocketSSL::ReadBuffer");

    *bytesRead = 0;
    if (m_connected && m_eof != 1) {
        int count = 0;
        int rc;
        if (m_non_blocking) {
            callbackIfDue();  // a stream that never has to wait still honours the limit
            rc = receiveBuffered(buffer, length, 0, &count);
        } else {
            rc = m_crypto.Recv(m_conn_handle, buffer, clampLength(length), 0, &count, 0);
        }
        if (rc != 0 && rc != kConnectionClosed) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::ReadBuffer", "VLT_Recv", rc);
        if (count == 0)
            m_eof = 1;
        else
            *bytesRead = count;
    }

    if (m_echo_file != nullptr && *bytesRead != 0) {
        std::fprintf(m_echo_file, "\n<read[%04d]>\n", *bytesRead);
        if (*bytesRead > 0) std::fwrite(buffer, 1, static_cast<size_t>(*bytesRead), m_echo_file);
        std::fflush(m_echo_file);
    }
    return m_connected && m_eof == 0 ? 1 : 0;
}

void TALVEXSocketSSL::WriteBuffer(const char* buffer, unsigned length, int* bytesWritten) {
    if (bytesWritten != nullptr) *bytesWritten = 0;
    if (buffer == nullptr || length == 0 || bytesWritten == nullptr)
        MOX_THROW(MOXIllegalArgumentError, "TALVEXSocketSSL::WriteBuffer");

    if (m_non_blocking) {
        if (length > m_send_chunk) {
            int sent = 0;
            internalWriteBuffer(buffer, m_send_chunk, &sent);
            *bytesWritten += sent;
            int rest = 0;
            WriteBuffer(buffer + sent, length - static_cast<unsigned>(sent), &rest);
            *bytesWritten += rest;
        } else {
            internalWriteBuffer(buffer, length, bytesWritten);
        }
        return;
    }

    while (length > 0) {
        int sent = 0;
        int rc = m_crypto.Send(m_conn_handle, buffer, clampLength(length), 0, &sent, 0);
        if (rc != 0) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::WriteBuffer", "VLT_Send", rc);
        if (m_echo_file != nullptr && sent > 0) {
            std::fprintf(m_echo_file, "\n<write[%ld]>\n", static_cast<long>(sent));
            std::fwrite(buffer, 1, static_cast<size_t>(sent), m_echo_file);
            std::fflush(m_echo_file);
        }
        *bytesWritten += sent;
        buffer += sent;
        length -= static_cast<unsigned>(sent);
    }
}

void TALVEXSocketSSL::internalWriteBuffer(const char* buffer, unsigned length, int* bytesWritten) {
    if (buffer == nullptr || bytesWritten == nullptr)
        MOX_THROW(MOXIllegalArgumentError, "TALVEXSocketSSL::internalWriteBuffer");
    *bytesWritten = 0;

    int rc = 0;
    while (length > 0) {
        int sent = 0;
        rc = waitForSocket(1);
        if (rc != 0) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::internalWriteBuffer", "VLT_Send", rc);
        rc = m_crypto.Send(m_conn_handle, buffer, clampLength(length), 0, &sent, 0);
        if (rc == kWouldBlock && sent == 0) continue;
        if (rc != kWouldBlock && rc != 0) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::internalWriteBuffer", "VLT_Send", rc);
        if (m_echo_file != nullptr) {
            std::fprintf(m_echo_file, "\n<write[%ld]>\n", static_cast<long>(sent));
            if (sent > 0) std::fwrite(buffer, 1, static_cast<size_t>(sent), m_echo_file);
            std::fflush(m_echo_file);
        }
        *bytesWritten += sent;
        buffer += sent;
        length -= static_cast<unsigned>(sent);
    }

    // The library took bytes it could not pass on yet: push them out.
    if (rc == kWouldBlock) {
        for (;;) {
            int sent = 0;
            rc = m_crypto.Send(m_conn_handle, nullptr, 0, 0, &sent, 0);
            if (rc == 0) break;
            if (rc != kWouldBlock) RAISE_CRYPTO_ERROR("TALVEXSocketSSL::internalWriteBuffer", "VLT_Send", rc);
        }
    }
}
