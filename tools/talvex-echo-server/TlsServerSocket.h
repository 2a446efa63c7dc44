#ifndef TALVEX_TOOLS_TLSSERVERSOCKET_H
#define TALVEX_TOOLS_TLSSERVERSOCKET_H

#include <openssl/ssl.h>

#include "talvex/PNXOutputStream.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"

class TlsServerSocket;

class TlsServerInputStream : public TALVEXSocketInputStream {
public:
    explicit TlsServerInputStream(TlsServerSocket* socket) : m_socket(socket) {}
    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    void close() override;
    TALVEXSocket* getStreamSocket() override;

private:
    TlsServerSocket* m_socket;
};

class TlsServerOutputStream : public PNXOutputStream {
public:
    explicit TlsServerOutputStream(TlsServerSocket* socket) : m_socket(socket) {}
    void write(const char* data, unsigned int length) override;

private:
    TlsServerSocket* m_socket;
};

// The server end of an accepted TLS connection, with the socket streams the
// toolkit's message reader and writer work on. It goes straight to OpenSSL:
// the security library is the client's side. Reads block without time limit;
// the server does not need time-outs.
class TlsServerSocket : public TALVEXSocket {
public:
    // Takes over the connection and its handshaken SSL object.
    TlsServerSocket(SSL* ssl, int fd);
    ~TlsServerSocket() override;

    TALVEXSocketInputStream* getInputStream() override { return &m_input; }
    PNXOutputStream* getOutputStream() override { return &m_output; }
    int isAvailable() override { return 1; }
    void close() override;
    void cleanup() override;

    // 1..length bytes, or 0 at the end of the stream (a reset counts as the end).
    unsigned receive(char* buffer, unsigned length);
    void sendAll(const char* data, unsigned length);
    // Whether a next request starts (waits for its first byte).
    bool waitForData();

private:
    SSL* m_ssl;
    int m_fd;
    bool m_eof = false;
    TlsServerInputStream m_input;
    TlsServerOutputStream m_output;
};

#endif
