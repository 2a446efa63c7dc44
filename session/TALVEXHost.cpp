#include "talvex/TALVEXHost.h"

#include <cstring>

#include "session/MOXSocketAddress.h"

sockaddr_storage TALVEXHost::resolveIPAddress(char* host) {
    MOXSocketAddress resolver("VLT_Crypto_Interface");
    const char* name = host != nullptr ? host : "localhost";
    sockaddr_storage address;
    std::memset(&address, 0, sizeof address);
    int status = 0;
    resolver.resolveAddress(name, 0, 0, &status);
    resolver.getAddress(0, &address);
    return address;
}
