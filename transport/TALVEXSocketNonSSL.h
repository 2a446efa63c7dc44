#ifndef TALVEX_TRANSPORT_TALVEXSOCKETNONSSL_H
#define TALVEX_TRANSPORT_TALVEXSOCKETNONSSL_H

#include <cstdio>

#include "moxcore/I18NString.h"
#include "moxcore/MOXByteBuffer.h"
#include "platform/winsock.h"
#include "talvex/TALVEXSocket.h"
#include "transport/TALVEXConnectTimeLimit.h"
#include "transport/TALVEXSocketNonSSLInputStream.h"
#include "transport/TALVEXSocketNonSSLOutputStream.h"

// A plain TCP connection: connect with up to five attempts within an optional
// time limit that also bounds the wait for each attempt, raw reads and writes (one recv or a loop of sends, no buffer of
// its own), an optional trace file, and every failed socket call reported
// with the text of its Windows Sockets error.
class TALVEXSocketNonSSL : public TALVEXSocket {
public:
    explicit TALVEXSocketNonSSL(int nonBlocking);
    ~TALVEXSocketNonSSL() override;

    using TALVEXSocket::echo;
    using TALVEXSocket::open;
    using TALVEXSocket::prepare;

    TALVEXSocketInputStream* getInputStream() override;
    PNXOutputStream* getOutputStream() override;
    void echo(const char* sfilename) override;
    void echo(const char* sfilename, const char* mode) override;
    void prepare(const char* url) override;
    void prepare(int port, const sockaddr_storage& address) override;
    void open(const char* url, const char* secureConfig, int timeLimitSec) override;
    void open(int port, const sockaddr_storage& address, const char* secureConfig, int timeLimitSec) override;
    void open(int port, int timeLimitSec) override;
    void open(int timeLimitSec) override;
    int isAvailable() override;
    void close() override;
    void cleanup() override;

    // Places 1..length bytes and returns 1, or returns 0 once the end of the
    // stream was seen (a reset connection counts as the end).
    virtual int ReadBuffer(char* buffer, unsigned length, int* bytesRead);
    // Sends all bytes or throws.
    virtual void WriteBuffer(const char* buffer, unsigned length, int* bytesWritten);
    // Replaces the last-error text with the text of the thread's last socket error.
    virtual void updateLastErrorText();

    const I18NString& getLastErrorText() const { return m_last_error_text; }

    // Server side: takes over a connection accepted elsewhere (closing any
    // current one), so a message reader and writer can serve it.
    void adopt(SOCKET accepted);

private:
    // One connect attempt that waits for the peer at most what is left of the
    // limit: 0, or SOCKET_ERROR with the Windows Sockets error set.
    int connectWithin(const sockaddr_storage& target, socklen_t length, const TALVEXConnectTimeLimit& limit);
    int awaitConnect(const TALVEXConnectTimeLimit& limit);
    void trace(const char* header, int count, const char* data, int dataLength);

    MOXByteBuffer m_url;
    SOCKET m_handle;
    I18NString m_last_error_text;
    int m_eof;
    TALVEXSocketNonSSLInputStream m_input_stream;
    TALVEXSocketNonSSLOutputStream m_output_stream;
    int m_connected;
    FILE* m_echo_file;
};

#endif
