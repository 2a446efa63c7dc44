#include "transport/TALVEXSocketNonSSLOutputStream.h"

#include "moxcore/MOXThrow.h"
#include "transport/TALVEXSocketNonSSL.h"

static const char MOX_UNIT[] = "TALVEXSocketNonSSLOutputStream";

TALVEXSocketNonSSLOutputStream::TALVEXSocketNonSSLOutputStream() : m_mp_soap_socket(nullptr) {}

void TALVEXSocketNonSSLOutputStream::write(const char* data, unsigned int length) {
    MOX_ASSERT(m_mp_soap_socket);
    int count = 0;
    m_mp_soap_socket->WriteBuffer(data, length, &count);
}
