#ifndef TALVEX_SESSION_MOXSOCKETADDRESS_H
#define TALVEX_SESSION_MOXSOCKETADDRESS_H

#include <sys/socket.h>

// Host names and URLs become socket addresses only through the security
// library's five address entry points, loaded once per process. Instances are
// short-lived: each resolution constructs one on the stack; the destructor
// frees the resolution handle.
class MOXSocketAddress {
public:
    // libraryName: the security library's base name ("VLT_Crypto_Interface").
    explicit MOXSocketAddress(const char* libraryName);
    virtual ~MOXSocketAddress();

    // Status is set to 1 first; 0 is returned when the entry point is missing.
    int resolveAddress(const char* host, int flags, int reserved, int* status);
    int resolveAddressFromURI(const char* uri, int reserved, int* status);
    // Without the entry point or a handle, all 128 bytes become 0 and 0 is returned.
    int getAddress(int index, sockaddr_storage* address);
    // -1 when the entry point is missing; the buffer is then left untouched.
    int getAddressAsText(const sockaddr_storage* address, char* text, int size);

    // 1 when the library and its five address entry points are loaded.
    static int isLoaded();

private:
    MOXSocketAddress(const MOXSocketAddress&) = delete;
    MOXSocketAddress& operator=(const MOXSocketAddress&) = delete;

    void* m_handle;
};

#endif
