#include "transport/TALVEXSocketSSLInputStream.h"

#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "transport/TALVEXSocketSSL.h"

static const char MOX_UNIT[] = "TALVEXSocketSSLInputStream";

TALVEXSocketSSLInputStream::TALVEXSocketSSLInputStream() : m_mp_soap_socket(nullptr) {}

int TALVEXSocketSSLInputStream::read() {
    MOX_ASSERT(m_mp_soap_socket);
    char c = 0;
    int n = 0;
    if (m_mp_soap_socket->ReadBuffer(&c, 1, &n) == 1 && n == 1) return static_cast<unsigned char>(c);
    return -1;
}

unsigned TALVEXSocketSSLInputStream::read(char* buf, unsigned n) {
    MOX_ASSERT(m_mp_soap_socket);
    int count = 0;
    if (m_mp_soap_socket->ReadBuffer(buf, n, &count) == 1) return static_cast<unsigned>(count);
    return PNX_EOF;
}

unsigned TALVEXSocketSSLInputStream::read(MOXByteBuffer& b, unsigned n) {
    MOX_ASSERT(m_mp_soap_socket);
    b.reserve(b.pcount() + n);
    int count = 0;
    if (m_mp_soap_socket->ReadBuffer(b.str() + b.pcount(), n, &count) == 1) {
        b.setLength(b.pcount() + static_cast<unsigned>(count));
        return static_cast<unsigned>(count);
    }
    return PNX_EOF;
}

void TALVEXSocketSSLInputStream::close() {
    if (m_mp_soap_socket != nullptr) m_mp_soap_socket->close();
}

TALVEXSocket* TALVEXSocketSSLInputStream::getStreamSocket() {
    // MOX_ASSERT_AT keeps NULL as written in the assertion text.
    MOX_ASSERT_AT(__LINE__, m_mp_soap_socket != NULL);
    return m_mp_soap_socket;
}
