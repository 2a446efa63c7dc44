#ifndef TALVEX_TRANSPORT_TALVEXSOCKETSSL_H
#define TALVEX_TRANSPORT_TALVEXSOCKETSSL_H

#include <cstdio>

#include "moxcore/MOXByteBuffer.h"
#include "talvex/TALVEXSocket.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXConnectTimeLimit.h"
#include "transport/TALVEXSocketSSLInputStream.h"
#include "transport/TALVEXSocketSSLOutputStream.h"

// A connection secured by the security library, which does all the network
// work: the socket hands it a URL or an address and the caller's session
// configuration document, drives the connect and the secure channel with up
// to five attempts (one when the library refuses for good) within an optional
// time limit that also bounds the library's waits, and moves bytes through it.
//
// Blocking mode reads and writes straight through the library (time-outs and
// cancellation do not apply). Non-blocking mode keeps a receive buffer the
// size of the connection's receive buffer, sends in pieces of at most 32768
// bytes, and waits for the connection in slices during which the input
// stream's time-out and cancellation are honoured.
class TALVEXSocketSSL : public TALVEXSocket {
public:
    explicit TALVEXSocketSSL(int nonBlocking);
    ~TALVEXSocketSSL() override;

    using TALVEXSocket::echo;
    using TALVEXSocket::open;
    using TALVEXSocket::prepare;

    TALVEXSocketInputStream* getInputStream() override;
    PNXOutputStream* getOutputStream() override;
    // Traces into "../logs/<process id>_<sfilename>".
    void echo(const char* sfilename) override;
    void echo(const char* sfilename, const char* mode) override;
    // The URL is kept as it is; the library resolves it when connecting.
    void prepare(const char* url) override;
    void prepare(int port, const sockaddr_storage& address) override;
    // secureConfig: a sessionConfigDocument text; only the pointer is kept, so
    // it must stay valid while the socket may be opened again. Null stands for
    // an empty document (all defaults).
    void open(const char* url, const char* secureConfig, int timeLimitSec) override;
    void open(int port, const sockaddr_storage& address, const char* secureConfig, int timeLimitSec) override;
    // Connects to the stored URL, or else the stored port and address.
    void open(int timeLimitSec) override;
    int isAvailable() override;
    void close() override;
    void cleanup() override;

    // Places 1..length bytes and returns 1, or returns 0 once the end of the
    // stream was seen or when not connected.
    virtual int ReadBuffer(char* buffer, unsigned length, int* bytesRead);
    // Sends all bytes or throws.
    virtual void WriteBuffer(const char* buffer, unsigned length, int* bytesWritten);

    MOXCrypto* getCrypto() { return &m_crypto; }

protected:
    // Non-blocking mode: waits until the connection can be written
    // (forWrite != 0) or read, calling the time-limit callback after every
    // slice that passes; 0 when ready, else the library's failure status.
    int waitForSocket(int forWrite);
    // Non-blocking mode: serves the read from the receive buffer, refilling
    // it from the library when empty; 0 or the library's status.
    int receiveBuffered(char* message, unsigned length, int flags, int* bytesReceived);
    // Non-blocking mode: sends one piece, waiting whenever the library would block.
    void internalWriteBuffer(const char* buffer, unsigned length, int* bytesWritten);

    void setupReceiveBuffer();
    void setupSendChunk();
    void setNonBlockingMode();

private:
    // The library's own waits in the next connect and handshake end with what
    // is left of the caller's limit.
    void limitLibraryWaits(const TALVEXConnectTimeLimit& limit);
    // Code 5 for a failed library call, with the library's details for the connection.
    [[noreturn]] void raiseCryptoError(int line, const char* function, const char* callName, int status);
    void setAuthorityFromUrl(const char* url);

    MOXByteBuffer m_url;
    const char* m_secure_config;
    MOXCrypto m_crypto;
    MOXCrypto::Handle m_conn_handle;
    int m_connected;
    int m_eof;
    TALVEXSocketSSLInputStream m_input_stream;
    TALVEXSocketSSLOutputStream m_output_stream;
    FILE* m_echo_file;
    char* m_recvBuffer;
    unsigned m_recv_count;
    unsigned m_recv_size;
    unsigned m_send_chunk;
};

#endif
