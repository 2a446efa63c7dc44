#ifndef TALVEX_TALVEXHOST_H
#define TALVEX_TALVEXHOST_H

#include <sys/socket.h>

#include "talvex/TALVEXExport.h"

class TALVEX_API TALVEXHost {
public:
    /// The first address of `host` (null: "localhost") as the security library
    /// resolves it. A name that does not resolve gives family 0xFFFF; without
    /// the security library the result is 128 zero bytes.
    static sockaddr_storage resolveIPAddress(char* host);
};

#endif
