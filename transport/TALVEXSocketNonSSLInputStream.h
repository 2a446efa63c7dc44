#ifndef TALVEX_TRANSPORT_TALVEXSOCKETNONSSLINPUTSTREAM_H
#define TALVEX_TRANSPORT_TALVEXSOCKETNONSSLINPUTSTREAM_H

#include "talvex/TALVEXSocketInputStream.h"

class TALVEXSocketNonSSL;

// The plain socket's input stream: each read is one ReadBuffer, no buffering.
class TALVEXSocketNonSSLInputStream : public TALVEXSocketInputStream {
public:
    TALVEXSocketNonSSLInputStream();
    void setSocket(TALVEXSocketNonSSL* socket) { m_mp_soap_socket = socket; }

    // A byte 0..255; -1 at the end of the stream, and also when the socket is
    // not connected (no byte can come).
    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    void close() override;
    TALVEXSocket* getStreamSocket() override;

private:
    TALVEXSocketNonSSL* m_mp_soap_socket;
};

#endif
