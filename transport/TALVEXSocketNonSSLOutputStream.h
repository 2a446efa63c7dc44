#ifndef TALVEX_TRANSPORT_TALVEXSOCKETNONSSLOUTPUTSTREAM_H
#define TALVEX_TRANSPORT_TALVEXSOCKETNONSSLOUTPUTSTREAM_H

#include "talvex/PNXOutputStream.h"

class TALVEXSocketNonSSL;

// The plain socket's output stream: each write is one WriteBuffer.
class TALVEXSocketNonSSLOutputStream : public PNXOutputStream {
public:
    TALVEXSocketNonSSLOutputStream();
    void setSocket(TALVEXSocketNonSSL* socket) { m_mp_soap_socket = socket; }
    void write(const char* data, unsigned int length) override;

private:
    TALVEXSocketNonSSL* m_mp_soap_socket;
};

#endif
