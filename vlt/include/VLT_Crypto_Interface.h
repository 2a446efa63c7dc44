/*
 * VLT_Crypto_Interface: the security library's C interface.
 *
 * The toolkit loads this library at run time by name and looks up every entry
 * point below with GetProcAddress; it never links against it nor includes this
 * header. Only C types and int status codes cross the boundary. Each entry
 * point keeps the argument count and order the toolkit's loader calls it with.
 *
 * Every entry point returns an int status: VLT_S_OK (0) or a negative code.
 * "Detail text" out arguments receive a NUL-terminated English sentence owned by
 * the library; release it with VLT_CryptoFree(text, 0).
 */
#ifndef VLT_CRYPTO_INTERFACE_H
#define VLT_CRYPTO_INTERFACE_H

#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(VLT_BUILDING_LIBRARY)
#define VLT_API __attribute__((visibility("default")))
#else
#define VLT_API
#endif

/* An opaque connection handle; 0 is never a valid handle. */
typedef unsigned int VLT_HANDLE;

/* Winsock-style handle sets for VLT_Select: a count and up to 64 handles. */
#define VLT_FD_SETSIZE 64
typedef struct VLT_FDSET {
    unsigned int fd_count;
    VLT_HANDLE fd_array[VLT_FD_SETSIZE];
} VLT_FDSET;

typedef struct VLT_TIMEVAL {
    long tv_sec;
    long tv_usec;
} VLT_TIMEVAL;

/* Status codes. */
#define VLT_S_OK                 0
#define VLT_E_FAILED            (-2)   /* general failure; the detail text says why */
#define VLT_E_INVALID_ARGUMENT  (-3)
#define VLT_E_INVALID_HANDLE    (-4)
#define VLT_E_CONFIG            (-5)   /* configuration document rejected */
#define VLT_E_RESOLVE           (-6)   /* host name did not resolve */
#define VLT_E_HANDSHAKE         (-7)   /* TLS handshake failed; another attempt may succeed */
#define VLT_E_VERIFY            (-8)   /* accepted handle: the client's certificate not accepted */
#define VLT_E_NO_MEMORY         (-9)
#define VLT_E_CONNECTION_CLOSED (-12)  /* peer closed without a TLS close alert */
#define VLT_E_REFUSED           (-13)  /* refused for good, do not retry: the TCP connection was refused,
                                          or the handshake failed in a way another attempt would meet
                                          again (certificate or name not accepted, no TLS on the port,
                                          no TLS version or cipher in common, client certificate) */
#define VLT_S_SECURE_PENDING    (-15)  /* TCP connected; call VLT_EstablishSecure */
#define VLT_E_WOULD_BLOCK       (-23)  /* non-blocking: call again later */
#define VLT_E_NOT_SUPPORTED     (-50)  /* entry point present but not offered */
#define VLT_E_TIMEOUT           (-54)  /* VLT_Select: the time span passed */
#define VLT_E_SOCKET            (-60)  /* an operating-system socket call failed */

/* Options of VLT_GetSockOpt / VLT_SetSockOpt. */
#define VLT_SO_SNDBUF   0x1001u
#define VLT_SO_RCVBUF   0x1002u
#define VLT_FIONBIO     0x8004667Eu
/* Set only: milliseconds the next VLT_Connect and the blocking handshake after
 * it may take together (0: 30 s for TCP, 60 s for the handshake). */
#define VLT_SO_CONNECT_TIMEOUT 0x1003u

/* Family value written by VLT_GetAddress for a name that did not resolve
 * (all 128 bytes of the address are 0xFF). */
#define VLT_AF_NONE 0xFFFF

/* --- library --------------------------------------------------------------- */
VLT_API int VLT_CryptoInitialize(int flags, void* reserved, char** detail);
VLT_API int VLT_CryptoTerminate(int flags, void* reserved, char** detail);
VLT_API int VLT_CryptoFree(void* text, int reserved);
VLT_API int VLT_CryptoGetLastErrorDetails(VLT_HANDLE handle, int reserved, char** detail);

/* --- connections ------------------------------------------------------------- */
VLT_API int VLT_Socket(VLT_HANDLE* handle, const char* configDocument, int reserved, char** detail);
VLT_API int VLT_Bind(VLT_HANDLE handle, const struct sockaddr_storage* address, int length, int reserved);
VLT_API int VLT_Bind_Url(VLT_HANDLE handle, const char* url, int reserved);
VLT_API int VLT_Listen(VLT_HANDLE handle, int backlog, int reserved);
VLT_API int VLT_Accept(VLT_HANDLE handle, VLT_HANDLE* accepted, struct sockaddr_storage* address, int* length, int reserved);
VLT_API int VLT_Connect(VLT_HANDLE handle, const struct sockaddr_storage* address, int length, int reserved);
VLT_API int VLT_Connect_Url(VLT_HANDLE handle, const char* url, int reserved);
VLT_API int VLT_EstablishSecure(VLT_HANDLE handle, int reserved);
VLT_API int VLT_GetSockName(VLT_HANDLE handle, struct sockaddr_storage* address, int* length, int reserved);
VLT_API int VLT_GetPeerName(VLT_HANDLE handle, struct sockaddr_storage* address, int* length, int reserved);
VLT_API int VLT_GetSockOpt(VLT_HANDLE handle, unsigned int option, void* value, int* length, int reserved);
VLT_API int VLT_SetSockOpt(VLT_HANDLE handle, unsigned int option, const void* value, int length, int reserved);
VLT_API int VLT_Send(VLT_HANDLE handle, const char* buffer, int length, int flags, int* sent, int reserved);
VLT_API int VLT_Recv(VLT_HANDLE handle, char* buffer, int length, int flags, int* received, int reserved);
VLT_API int VLT_SocketSecurityOp(VLT_HANDLE handle, int operation, void* data, int reserved);
VLT_API int VLT_Select(VLT_FDSET* readSet, VLT_FDSET* writeSet, VLT_FDSET* errorSet, const VLT_TIMEVAL* timeout,
                       int* ready, int reserved, char** detail);
VLT_API int VLT_Poll(void* handles, int count, int timeoutMs, int reserved, char** detail);
VLT_API int VLT_SocketStatus(VLT_HANDLE handle, int* status);
VLT_API int VLT_CloseHandle(VLT_HANDLE* handle, int reserved, char** detail);

/* --- services the toolkit does not use (answer VLT_E_NOT_SUPPORTED) ----------- */
VLT_API int VLT_PersistentInitialize(const char* name, int flags, void* reserved, char** detail);
VLT_API int VLT_SetInfo(int kind, const void* data, int length);
VLT_API int VLT_ProtectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved);
VLT_API int VLT_UnprotectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved);
VLT_API int VLT_GetInfo(int kind, void* data, int* length, int reserved);
VLT_API int VLT_ImpUsrInitialize(void** context, int flags, void* reserved, char** detail);
VLT_API int VLT_ImpUsrNegotiate(void* context, const void* token, int length, void* reserved);
VLT_API int VLT_ImpUsrImpersonate(void* context, int reserved);
VLT_API int VLT_ImpUsrRevert(void* context, int reserved);
VLT_API int VLT_ImpUsrSerializeHandle(void* context, void* out, int* length);
VLT_API int VLT_ImpUsrDeserializeHandle(const void* in, int length, void** context, int reserved);
VLT_API int VLT_GetRandomData(void* buffer, int length, int reserved);
VLT_API int VLT_EncryptCredential(const char* user, const char* password, const char* domain, int flags,
                                  void* out, int* outLength, int reserved, void* reserved2);
VLT_API int VLT_DecryptCredential(const void* in, int inLength, char* user, char* password, char* domain,
                                  int flags, int reserved);
VLT_API int VLT_CMDRT_DecryptPassport(const void* in, int inLength, void* out, int* outLength, int reserved);
VLT_API int AS_EncryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved);
VLT_API int AS_DecryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved);
VLT_API int VLT_GenerateUserSessionID(const char* user, char* out, int* outLength, int reserved);
VLT_API int VLT_VerifyUserSessionID(const char* id, const char* user, int flags, int* valid, int reserved);
VLT_API int VLT_VerifyUserSessionIDBinary(const void* id, int length, int flags, int* valid, int reserved);
VLT_API int VLT_UpdateUserSessionID(const char* id, const char* user, char* out, int* outLength, int flags, int reserved);
VLT_API int VLT_VerifyAuthenticityToken(const char* token, const char* data, int flags, int* valid, int reserved);
VLT_API int VLT_VerifyAuthenticityTokenBinary(const void* token, int length, int flags, int* valid, int reserved);
VLT_API int VLT_CreateCapabilityTrustToken(const char* capability, char* out, int* outLength, int flags, int reserved);
VLT_API int VLT_VerifyCapabilityTrustToken(const char* token, const char* capability, int flags, int* valid, int reserved);

/* --- addresses ----------------------------------------------------------------- */
VLT_API int VLT_ResolveAddress(void** resolution, const char* host, int flags, int reserved, int* status);
VLT_API int VLT_ResolveAddressFromURI(void** resolution, const char* uri, int reserved, int* status);
VLT_API int VLT_GetAddress(void* resolution, int index, struct sockaddr_storage* address);
VLT_API int VLT_GetAddressAsText(const struct sockaddr_storage* address, char* text, int size);
VLT_API int VLT_ResolveAddressFree(void* resolution);

/* --- misc ---------------------------------------------------------------------- */
VLT_API int VLT_IsSafeURL(const char* url, int flags);
VLT_API int VLT_VerifyFileSignature(const char* path, int flags);

#ifdef __cplusplus
}
#endif

#endif
