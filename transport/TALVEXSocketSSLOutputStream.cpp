#include "transport/TALVEXSocketSSLOutputStream.h"

#include "moxcore/MOXThrow.h"
#include "transport/TALVEXSocketSSL.h"

static const char MOX_UNIT[] = "TALVEXSocketSSLOutputStream";

TALVEXSocketSSLOutputStream::TALVEXSocketSSLOutputStream() : m_mp_soap_socket(nullptr) {}

void TALVEXSocketSSLOutputStream::write(const char* data, unsigned int length) {
    MOX_ASSERT(m_mp_soap_socket);
    int count = 0;
    m_mp_soap_socket->WriteBuffer(data, length, &count);
}
