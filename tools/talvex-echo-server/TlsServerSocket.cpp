#include "TlsServerSocket.h"

#include <openssl/err.h>
#include <unistd.h>

#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXIOException.h"

namespace {
std::string sslErrorText(const char* what, SSL* ssl, int rc) {
    std::string text = what;
    const int kind = SSL_get_error(ssl, rc);
    const unsigned long e = ERR_get_error();
    if (e != 0) {
        char buf[256];
        ERR_error_string_n(e, buf, sizeof buf);
        text += ": ";
        text += buf;
    } else if (kind == SSL_ERROR_SYSCALL) {
        text += ": connection lost";
    }
    ERR_clear_error();
    return text;
}
}  // namespace

int TlsServerInputStream::read() {
    char c = 0;
    return m_socket->receive(&c, 1) == 1 ? static_cast<unsigned char>(c) : -1;
}

unsigned TlsServerInputStream::read(char* buf, unsigned n) {
    if (n == 0) return 0;
    const unsigned got = m_socket->receive(buf, n);
    return got == 0 ? PNX_EOF : got;
}

unsigned TlsServerInputStream::read(MOXByteBuffer& b, unsigned n) {
    if (n == 0) return 0;
    b.reserve(b.pcount() + n);
    const unsigned got = m_socket->receive(b.str() + b.pcount(), n);
    if (got == 0) return PNX_EOF;
    b.setLength(b.pcount() + got);
    return got;
}

void TlsServerInputStream::close() { m_socket->close(); }

TALVEXSocket* TlsServerInputStream::getStreamSocket() { return m_socket; }

void TlsServerOutputStream::write(const char* data, unsigned int length) { m_socket->sendAll(data, length); }

TlsServerSocket::TlsServerSocket(SSL* ssl, int fd)
    : TALVEXSocket(0), m_ssl(ssl), m_fd(fd), m_input(this), m_output(this) {}

TlsServerSocket::~TlsServerSocket() { cleanup(); }

void TlsServerSocket::close() {
    if (m_ssl != nullptr) {
        SSL_shutdown(m_ssl);  // close_notify, best effort
        SSL_free(m_ssl);
        m_ssl = nullptr;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

void TlsServerSocket::cleanup() {
    try {
        close();
    } catch (...) {
    }
}

unsigned TlsServerSocket::receive(char* buffer, unsigned length) {
    if (m_ssl == nullptr || m_eof) return 0;
    const int rc = SSL_read(m_ssl, buffer, static_cast<int>(length));
    if (rc > 0) return static_cast<unsigned>(rc);
    const int kind = SSL_get_error(m_ssl, rc);
    if (kind == SSL_ERROR_ZERO_RETURN || kind == SSL_ERROR_SYSCALL) {
        // close_notify, or the client went away without one: the end either way.
        ERR_clear_error();
        m_eof = true;
        return 0;
    }
    throw PNXIOException(0, sslErrorText("TLS read failed", m_ssl, rc).c_str());
}

void TlsServerSocket::sendAll(const char* data, unsigned length) {
    if (m_ssl == nullptr) throw PNXIOException(0, "TLS write on a closed connection");
    while (length > 0) {
        const int rc = SSL_write(m_ssl, data, static_cast<int>(length));
        if (rc <= 0) throw PNXIOException(0, sslErrorText("TLS write failed", m_ssl, rc).c_str());
        data += rc;
        length -= static_cast<unsigned>(rc);
    }
}

bool TlsServerSocket::waitForData() {
    if (m_ssl == nullptr || m_eof) return false;
    char c;
    const int rc = SSL_peek(m_ssl, &c, 1);
    if (rc > 0) return true;
    ERR_clear_error();
    m_eof = true;
    return false;
}
