#ifndef TALVEX_TRANSPORT_MOXCRYPTO_H
#define TALVEX_TRANSPORT_MOXCRYPTO_H

#include <sys/socket.h>

// The security library "VLT_Crypto_Interface", loaded at run time. The
// toolkit never links it: the library is loaded once per process with all of
// its 55 entry points, or not at all, and every instance shares that state.
// Each wrapper forwards its arguments unchanged, or returns -1 when the
// library is not loaded (storing an empty detail text where the entry point
// hands one out).
class MOXCrypto {
public:
    // The library's connection handle; 0 is never a valid one.
    typedef unsigned int Handle;

    // The library's handle sets: a count and up to 64 handles.
    enum { FD_SETSIZE_MAX = 64 };
    struct FdSet {
        unsigned int fd_count;
        Handle fd_array[FD_SETSIZE_MAX];
    };

    struct TimeVal {
        long tv_sec;
        long tv_usec;
    };

    // libraryName: the base name; ".dll" is appended.
    explicit MOXCrypto(const char* libraryName);
    // The library stays loaded for the life of the process.
    virtual ~MOXCrypto();

    // 1 when the library is loaded with all its entry points.
    int isLoaded();

    // Library.
    int CryptoInitialize(int flags, void* reserved, char** detail);
    int CryptoTerminate(int flags, void* reserved, char** detail);
    int CryptoFree(void* text, int reserved);
    int CryptoGetLastErrorDetails(Handle handle, int reserved, char** detail);

    // Connections.
    int Socket(Handle* handle, const char* configDocument, int reserved, char** detail);
    int Bind(Handle handle, const sockaddr_storage* address, int length, int reserved);
    int Bind_Url(Handle handle, const char* url, int reserved);
    int Listen(Handle handle, int backlog, int reserved);
    int Accept(Handle handle, Handle* accepted, sockaddr_storage* address, int* length, int reserved);
    int Connect(Handle handle, const sockaddr_storage* address, int length, int reserved);
    int Connect_Url(Handle handle, const char* url, int reserved);
    int EstablishSecure(Handle handle, int reserved);
    int GetSockName(Handle handle, sockaddr_storage* address, int* length, int reserved);
    int GetPeerName(Handle handle, sockaddr_storage* address, int* length, int reserved);
    int GetSockOpt(Handle handle, unsigned int option, void* value, int* length, int reserved);
    int SetSockOpt(Handle handle, unsigned int option, const void* value, int length, int reserved);
    int Send(Handle handle, const char* buffer, int length, int flags, int* sent, int reserved);
    int Recv(Handle handle, char* buffer, int length, int flags, int* received, int reserved);
    int SocketSecurityOp(Handle handle, int operation, void* data, int reserved);
    int Select(FdSet* readSet, FdSet* writeSet, FdSet* errorSet, const TimeVal* timeout, int* ready, int reserved,
               char** detail);
    int Poll(void* handles, int count, int timeoutMs, int reserved, char** detail);
    int SocketStatus(Handle handle, int* status);
    int CloseHandle(Handle* handle, int reserved, char** detail);

    // Services the toolkit itself does not use.
    int PersistentInitialize(const char* name, int flags, void* reserved, char** detail);
    int SetInfo(int kind, const void* data, int length);
    int ProtectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved);
    int UnprotectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved);
    int GetInfo(int kind, void* data, int* length, int reserved);
    int ImpUsrInitialize(void** context, int flags, void* reserved, char** detail);
    int ImpUsrNegotiate(void* context, const void* token, int length, void* reserved);
    int ImpUsrImpersonate(void* context, int reserved);
    int ImpUsrRevert(void* context, int reserved);
    int ImpUsrSerializeHandle(void* context, void* out, int* length);
    int ImpUsrDeserializeHandle(const void* in, int length, void** context, int reserved);
    int GetRandomData(void* buffer, int length, int reserved);
    int EncryptCredential(const char* user, const char* password, const char* domain, int flags, void* out,
                          int* outLength, int reserved, void* reserved2);
    int DecryptCredential(const void* in, int inLength, char* user, char* password, char* domain, int flags,
                          int reserved);
    int CMDRT_DecryptPassport(const void* in, int inLength, void* out, int* outLength, int reserved);
    int AS_EncryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved);
    int AS_DecryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved);
    int GenerateUserSessionID(const char* user, char* out, int* outLength, int reserved);
    int VerifyUserSessionID(const char* id, const char* user, int flags, int* valid, int reserved);
    int VerifyUserSessionIDBinary(const void* id, int length, int flags, int* valid, int reserved);
    int UpdateUserSessionID(const char* id, const char* user, char* out, int* outLength, int flags, int reserved);
    int VerifyAuthenticityToken(const char* token, const char* data, int flags, int* valid, int reserved);
    int VerifyAuthenticityTokenBinary(const void* token, int length, int flags, int* valid, int reserved);
    int CreateCapabilityTrustToken(const char* capability, char* out, int* outLength, int flags, int reserved);
    int VerifyCapabilityTrustToken(const char* token, const char* capability, int flags, int* valid, int reserved);

    // Addresses.
    int ResolveAddress(void** resolution, const char* host, int flags, int reserved, int* status);
    int ResolveAddressFromURI(void** resolution, const char* uri, int reserved, int* status);
    int GetAddress(void* resolution, int index, sockaddr_storage* address);
    int GetAddressAsText(const sockaddr_storage* address, char* text, int size);
    int ResolveAddressFree(void* resolution);

    // Checks.
    int IsSafeURL(const char* url, int flags);
    int VerifyFileSignature(const char* path, int flags);

    // The exact names looked up, in lookup order.
    static constexpr int ENTRY_POINT_COUNT = 55;
    static const char* entryPointName(int index);
};

#endif
