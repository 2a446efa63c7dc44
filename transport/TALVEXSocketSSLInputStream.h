#ifndef TALVEX_TRANSPORT_TALVEXSOCKETSSLINPUTSTREAM_H
#define TALVEX_TRANSPORT_TALVEXSOCKETSSLINPUTSTREAM_H

#include "talvex/TALVEXSocketInputStream.h"

class TALVEXSocketSSL;

// The secure socket's input stream: each read is one ReadBuffer.
class TALVEXSocketSSLInputStream : public TALVEXSocketInputStream {
public:
    TALVEXSocketSSLInputStream();
    void setSocket(TALVEXSocketSSL* socket) { m_mp_soap_socket = socket; }

    // A byte 0..255; -1 at the end of the stream, and also when the socket is
    // not connected (no byte can come).
    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    void close() override;
    TALVEXSocket* getStreamSocket() override;

private:
    TALVEXSocketSSL* m_mp_soap_socket;
};

#endif
