#ifndef TALVEX_TALVEXSOCKET_H
#define TALVEX_TALVEXSOCKET_H

#include <sys/socket.h>

#include <chrono>
#include <string>

#include "talvex/PNXOutputStream.h"
#include "talvex/TALVEXExport.h"

class MOXByteBuffer;
class TALVEXSocketInputStream;

/// One connection to one HTTP endpoint, plain (TALVEXSocketNonSSL) or secure
/// (TALVEXSocketSSL), with an input stream the message reader reads and an
/// output stream the message writer writes. The streams live inside the socket:
/// never delete them.
///
/// Addresses are 128-byte sockaddr_storage values. Two family values are
/// markers: 0xFFFF "no address" (all bytes 0xFF) and 0xFFFE "local address"
/// (all other bytes 0), which getLocalAddress returns.
class TALVEX_API TALVEXSocket {
public:
    virtual ~TALVEXSocket();

    /// Appends the remote address as numeric text ("255.255.255.255" for no address).
    virtual void getIPAddress(MOXByteBuffer& text) const;
    virtual const sockaddr_storage& getIPAddress() const;
    virtual TALVEXSocketInputStream* getInputStream() = 0;
    virtual PNXOutputStream* getOutputStream() = 0;
    /// Starts tracing every byte read and written into the file (appending);
    /// a null or empty name stops tracing.
    virtual void echo(const char* sfilename);
    virtual void echo(const char* sfilename, const char* mode);
    /// Takes the endpoint from a URL, or from a port and an address.
    virtual void prepare(const char* url);
    virtual void prepare(int port, const sockaddr_storage& address);
    /// Connects. A time limit of 0 or less means no limit. On a connected
    /// socket every open returns at once.
    virtual void open(const char* url, const char* secureConfig, int timeLimitSec);
    virtual void open(int port, const sockaddr_storage& address, const char* secureConfig, int timeLimitSec);
    virtual void open(int port, int timeLimitSec);
    virtual void open(int timeLimitSec);
    /// The callback a read calls each time `timeLimitSec` has passed since it was
    /// set or last called, at the read's next wake-up whether or not data came
    /// meanwhile; it ends the read only by throwing. The input stream installs it.
    virtual void setTimeLimitCallback(void (*callback)(void*), void* argument, int timeLimitSec);
    virtual int isNonBlockingSocket();
    virtual int isAvailable() = 0;
    /// Ends the connection; the socket may be opened again.
    virtual void close() = 0;
    /// Stops tracing and closes, never throwing; the destructor runs it.
    virtual void cleanup() = 0;
    virtual int getTimeLimitSec() const;

    /// The calling thread's last socket error (a Windows Sockets code).
    long getLastErrorCode() const;
    /// The local-address marker: family 0xFFFE, every other byte 0.
    static sockaddr_storage getLocalAddress();

    /// The authority ("host[:port]") requests on this connection name in their
    /// Host header: the URL's host and port when opened by URL, the host given
    /// to TALVEX::getSession, else the numeric address and port.
    std::string getAuthority() const;
    void setAuthority(const std::string& authority);
    int getPort() const { return m_port; }

protected:
    explicit TALVEXSocket(int nonBlocking);
    TALVEXSocket(int port, const sockaddr_storage& address, int nonBlocking);

    void (*m_callback)(void*);
    void* m_callback_argument;
    int m_time_limit;
    int m_port;
    sockaddr_storage m_address;
    int m_non_blocking;
    std::string m_authority;

    // Calls the callback and counts the next span from now; throws what the
    // callback throws. callbackIfDue calls it only once it is due (see
    // setTimeLimitCallback); a wait that lasted until then calls it directly.
    void callCallback();
    void callbackIfDue();
    // Whole seconds a wait may last before the callback is due; -1 without one.
    int secondsUntilCallback() const;

private:
    std::chrono::steady_clock::time_point m_callback_due;
    TALVEXSocket(const TALVEXSocket&) = delete;
    TALVEXSocket& operator=(const TALVEXSocket&) = delete;
};

#endif
