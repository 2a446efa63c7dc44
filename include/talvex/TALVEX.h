#ifndef TALVEX_TALVEX_H
#define TALVEX_TALVEX_H

#include "talvex/TALVEXExport.h"

#include "talvex/TALVEXSession.h"
#include "talvex/TALVEXSocket.h"

/// Starts the toolkit for this process: the socket layer, then the core
/// library. Returns 0 on success; a socket-layer start-up failure code is
/// returned unchanged. Call once before anything else.
TALVEX_API long TALVEXInitialize();
/// Stops the core library and the socket layer; call after the last toolkit
/// object is deleted. Returns the core library's result.
TALVEX_API long TALVEXTerminate();

/// The toolkit object: holds the two transport settings and creates sockets
/// and sessions. Everything it returns belongs to the caller.
class TALVEX_API TALVEX {
public:
    TALVEX();
    ~TALVEX();

    /// A new toolkit object with the defaults: secure sockets, blocking mode.
    static TALVEX* newInstance();

    /// Non-zero: sockets and sessions use TLS through the security library.
    int getUseSSL();
    void setUseVLT(int useSecureSockets);
    /// Non-zero: connections switch to non-blocking mode once connected, which
    /// time-outs and cancellation of the secure socket need.
    int getUseNonBlockingSockets();
    void setUseNonBlockingSockets(int nonBlocking);

    /// A new, unconnected socket of the kind the settings select.
    TALVEXSocket* getSocket();
    /// A session connected to host:port, sending its requests to uriPath.
    /// secureConfig: the TLS configuration document (root element
    /// sessionConfigDocument); only secure sockets read it, again at every
    /// reconnect, so keep the text alive for the session's life. A secure
    /// socket given a document without its closing tag
    /// "</sessionConfigDocument>" (an empty text, a self-closed root) throws
    /// std::out_of_range, the one failure that is not a MOXThrowable. A time
    /// limit of 0 or less does not limit connecting; a limit also bounds the
    /// TLS handshake. A null host raises MOXIllegalArgumentError; a host that
    /// does not resolve raises error 33.
    TALVEXSession* getSession(const char* host, int port, const char* uriPath, const char* secureConfig,
                              int timeLimitSec);
    /// A session connected to the endpoint URL ("https://host:port/path"); a
    /// null URL raises MOXIllegalArgumentError.
    TALVEXSession* getSession(const char* url, const char* secureConfig, int timeLimitSec);

private:
    int m_use_ssl;
    int m_non_blocking;
};

#endif
