#ifndef TALVEX_TRANSPORT_TALVEXSOCKETSSLOUTPUTSTREAM_H
#define TALVEX_TRANSPORT_TALVEXSOCKETSSLOUTPUTSTREAM_H

#include "talvex/PNXOutputStream.h"

class TALVEXSocketSSL;

// The secure socket's output stream: each write is one WriteBuffer.
class TALVEXSocketSSLOutputStream : public PNXOutputStream {
public:
    TALVEXSocketSSLOutputStream();
    void setSocket(TALVEXSocketSSL* socket) { m_mp_soap_socket = socket; }
    void write(const char* data, unsigned int length) override;

private:
    TALVEXSocketSSL* m_mp_soap_socket;
};

#endif
