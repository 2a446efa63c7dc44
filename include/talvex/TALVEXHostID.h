#ifndef TALVEX_TALVEXHOSTID_H
#define TALVEX_TALVEXHOSTID_H

#include <sys/socket.h>

#include <string>

#include "talvex/TALVEXExport.h"

/// A host name and port whose address is resolved on first need, through the
/// security library. An address family of 0xFFFF (all 128 bytes 0xFF) means
/// "not resolved"; a failed resolution is tried again on the next call.
class TALVEX_API TALVEXHostID {
public:
    /// host must not be null. Nothing is resolved here.
    TALVEXHostID(const char* host, int port);
    TALVEXHostID(const TALVEXHostID& other);
    TALVEXHostID& operator=(const TALVEXHostID& other);
    ~TALVEXHostID();

    const char* getHostName() const;
    int getPort() const;
    /// The address, resolving it first if needed.
    sockaddr_storage getIPAddress();
    /// 1 when the host resolved to an address (family other than 0xFFFF), else 0.
    int isValid();

private:
    void resolveIfNeeded();

    int m_port;
    std::string m_host;
    sockaddr_storage m_address;
};

#endif
