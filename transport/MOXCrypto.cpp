#include "transport/MOXCrypto.h"

#include <atomic>
#include <string>

#include "moxcore/MOXFmDir.h"
#include "moxcore/MOXThreadCriticalSection.h"
#include "moxcore/MOXThreadGuard.h"
#include "platform/dynload.h"

namespace {

typedef MOXCrypto::Handle Handle;
typedef MOXCrypto::FdSet FdSet;
typedef MOXCrypto::TimeVal TimeVal;

// The entry points' own signatures: argument count and order as exported.
typedef int (*CryptoInitializeFn)(int, void*, char**);
typedef int (*CryptoTerminateFn)(int, void*, char**);
typedef int (*CryptoFreeFn)(void*, int);
typedef int (*CryptoGetLastErrorDetailsFn)(Handle, int, char**);
typedef int (*SocketFn)(Handle*, const char*, int, char**);
typedef int (*BindFn)(Handle, const sockaddr_storage*, int, int);
typedef int (*Bind_UrlFn)(Handle, const char*, int);
typedef int (*ListenFn)(Handle, int, int);
typedef int (*AcceptFn)(Handle, Handle*, sockaddr_storage*, int*, int);
typedef int (*ConnectFn)(Handle, const sockaddr_storage*, int, int);
typedef int (*Connect_UrlFn)(Handle, const char*, int);
typedef int (*EstablishSecureFn)(Handle, int);
typedef int (*GetSockNameFn)(Handle, sockaddr_storage*, int*, int);
typedef int (*GetPeerNameFn)(Handle, sockaddr_storage*, int*, int);
typedef int (*GetSockOptFn)(Handle, unsigned int, void*, int*, int);
typedef int (*SetSockOptFn)(Handle, unsigned int, const void*, int, int);
typedef int (*SendFn)(Handle, const char*, int, int, int*, int);
typedef int (*RecvFn)(Handle, char*, int, int, int*, int);
typedef int (*SocketSecurityOpFn)(Handle, int, void*, int);
typedef int (*SelectFn)(FdSet*, FdSet*, FdSet*, const TimeVal*, int*, int, char**);
typedef int (*PollFn)(void*, int, int, int, char**);
typedef int (*SocketStatusFn)(Handle, int*);
typedef int (*CloseHandleFn)(Handle*, int, char**);
typedef int (*PersistentInitializeFn)(const char*, int, void*, char**);
typedef int (*SetInfoFn)(int, const void*, int);
typedef int (*ProtectDataFn)(const void*, int, void*, int*, int, int);
typedef int (*UnprotectDataFn)(const void*, int, void*, int*, int, int);
typedef int (*GetInfoFn)(int, void*, int*, int);
typedef int (*ImpUsrInitializeFn)(void**, int, void*, char**);
typedef int (*ImpUsrNegotiateFn)(void*, const void*, int, void*);
typedef int (*ImpUsrImpersonateFn)(void*, int);
typedef int (*ImpUsrRevertFn)(void*, int);
typedef int (*ImpUsrSerializeHandleFn)(void*, void*, int*);
typedef int (*ImpUsrDeserializeHandleFn)(const void*, int, void**, int);
typedef int (*GetRandomDataFn)(void*, int, int);
typedef int (*EncryptCredentialFn)(const char*, const char*, const char*, int, void*, int*, int, void*);
typedef int (*DecryptCredentialFn)(const void*, int, char*, char*, char*, int, int);
typedef int (*CMDRT_DecryptPassportFn)(const void*, int, void*, int*, int);
typedef int (*AS_EncryptTextFn)(const char*, int, char*, int*, int, int);
typedef int (*AS_DecryptTextFn)(const char*, int, char*, int*, int, int);
typedef int (*GenerateUserSessionIDFn)(const char*, char*, int*, int);
typedef int (*VerifyUserSessionIDFn)(const char*, const char*, int, int*, int);
typedef int (*VerifyUserSessionIDBinaryFn)(const void*, int, int, int*, int);
typedef int (*UpdateUserSessionIDFn)(const char*, const char*, char*, int*, int, int);
typedef int (*VerifyAuthenticityTokenFn)(const char*, const char*, int, int*, int);
typedef int (*VerifyAuthenticityTokenBinaryFn)(const void*, int, int, int*, int);
typedef int (*CreateCapabilityTrustTokenFn)(const char*, char*, int*, int, int);
typedef int (*VerifyCapabilityTrustTokenFn)(const char*, const char*, int, int*, int);
typedef int (*ResolveAddressFn)(void**, const char*, int, int, int*);
typedef int (*ResolveAddressFromURIFn)(void**, const char*, int, int*);
typedef int (*GetAddressFn)(void*, int, sockaddr_storage*);
typedef int (*GetAddressAsTextFn)(const sockaddr_storage*, char*, int);
typedef int (*ResolveAddressFreeFn)(void*);
typedef int (*IsSafeURLFn)(const char*, int);
typedef int (*VerifyFileSignatureFn)(const char*, int);

// Indexes into the entry-point table, in lookup order.
enum Entry {
    eCryptoInitialize,
    eCryptoTerminate,
    eCryptoFree,
    eCryptoGetLastErrorDetails,
    eSocket,
    eBind,
    eBind_Url,
    eListen,
    eAccept,
    eConnect,
    eConnect_Url,
    eEstablishSecure,
    eGetSockName,
    eGetPeerName,
    eGetSockOpt,
    eSetSockOpt,
    eSend,
    eRecv,
    eSocketSecurityOp,
    eSelect,
    ePoll,
    eSocketStatus,
    eCloseHandle,
    ePersistentInitialize,
    eSetInfo,
    eProtectData,
    eUnprotectData,
    eGetInfo,
    eImpUsrInitialize,
    eImpUsrNegotiate,
    eImpUsrImpersonate,
    eImpUsrRevert,
    eImpUsrSerializeHandle,
    eImpUsrDeserializeHandle,
    eGetRandomData,
    eEncryptCredential,
    eDecryptCredential,
    eCMDRT_DecryptPassport,
    eAS_EncryptText,
    eAS_DecryptText,
    eGenerateUserSessionID,
    eVerifyUserSessionID,
    eVerifyUserSessionIDBinary,
    eUpdateUserSessionID,
    eVerifyAuthenticityToken,
    eVerifyAuthenticityTokenBinary,
    eCreateCapabilityTrustToken,
    eVerifyCapabilityTrustToken,
    eResolveAddress,
    eResolveAddressFromURI,
    eGetAddress,
    eGetAddressAsText,
    eResolveAddressFree,
    eIsSafeURL,
    eVerifyFileSignature,
    eEntryCount
};

const char* const kNames[] = {
    "VLT_CryptoInitialize",
    "VLT_CryptoTerminate",
    "VLT_CryptoFree",
    "VLT_CryptoGetLastErrorDetails",
    "VLT_Socket",
    "VLT_Bind",
    "VLT_Bind_Url",
    "VLT_Listen",
    "VLT_Accept",
    "VLT_Connect",
    "VLT_Connect_Url",
    "VLT_EstablishSecure",
    "VLT_GetSockName",
    "VLT_GetPeerName",
    "VLT_GetSockOpt",
    "VLT_SetSockOpt",
    "VLT_Send",
    "VLT_Recv",
    "VLT_SocketSecurityOp",
    "VLT_Select",
    "VLT_Poll",
    "VLT_SocketStatus",
    "VLT_CloseHandle",
    "VLT_PersistentInitialize",
    "VLT_SetInfo",
    "VLT_ProtectData",
    "VLT_UnprotectData",
    "VLT_GetInfo",
    "VLT_ImpUsrInitialize",
    "VLT_ImpUsrNegotiate",
    "VLT_ImpUsrImpersonate",
    "VLT_ImpUsrRevert",
    "VLT_ImpUsrSerializeHandle",
    "VLT_ImpUsrDeserializeHandle",
    "VLT_GetRandomData",
    "VLT_EncryptCredential",
    "VLT_DecryptCredential",
    "VLT_CMDRT_DecryptPassport",
    "AS_EncryptText",
    "AS_DecryptText",
    "VLT_GenerateUserSessionID",
    "VLT_VerifyUserSessionID",
    "VLT_VerifyUserSessionIDBinary",
    "VLT_UpdateUserSessionID",
    "VLT_VerifyAuthenticityToken",
    "VLT_VerifyAuthenticityTokenBinary",
    "VLT_CreateCapabilityTrustToken",
    "VLT_VerifyCapabilityTrustToken",
    "VLT_ResolveAddress",
    "VLT_ResolveAddressFromURI",
    "VLT_GetAddress",
    "VLT_GetAddressAsText",
    "VLT_ResolveAddressFree",
    "VLT_IsSafeURL",
    "VLT_VerifyFileSignature",
};
static_assert(sizeof kNames / sizeof kNames[0] == eEntryCount, "one name per entry point");
static_assert(eEntryCount == MOXCrypto::ENTRY_POINT_COUNT, "55 entry points");

// Process-wide: the module and its entry points. The lock exists from load
// time on, so the first socket of any thread finds it. Wrappers read the
// table without the lock; atomics keep those reads well-defined while another
// thread loads.
MOXThreadCriticalSection g_crypto_lock(0);
std::atomic<HMODULE> g_module{nullptr};
std::atomic<FARPROC> g_entries[eEntryCount];

// What a detail-text argument receives when the library is not there.
char g_empty_text[1] = {'\0'};

template <class Fn>
Fn entry(Entry e) {
    return reinterpret_cast<Fn>(g_entries[e].load(std::memory_order_acquire));
}

void clearEntries() {
    for (auto& e : g_entries) e.store(nullptr, std::memory_order_release);
}

int unavailable(char** detail) {
    if (detail != nullptr) *detail = g_empty_text;
    return -1;
}

}  // namespace

MOXCrypto::MOXCrypto(const char* libraryName) {
    MOXThreadGuard guard(g_crypto_lock);
    if (g_module.load() != nullptr) return;

    std::string path = std::string(libraryName != nullptr ? libraryName : "") + ".dll";
    MOXFmDir::resolveEffectivePath(path);
    HMODULE module = LoadLibraryExA(path.c_str(), nullptr, 8);
    if (module == nullptr) return;

    // Published only once all are found, so no wrapper ever calls into a
    // library that is about to be released.
    FARPROC found[eEntryCount];
    for (int i = 0; i < eEntryCount; ++i) {
        found[i] = GetProcAddress(module, kNames[i]);
        if (found[i] == nullptr) {
            // A library without every entry point is not one we can use.
            clearEntries();
            FreeLibrary(module);
            return;
        }
    }
    for (int i = 0; i < eEntryCount; ++i) g_entries[i].store(found[i], std::memory_order_release);
    g_module.store(module, std::memory_order_release);
}

MOXCrypto::~MOXCrypto() {}

int MOXCrypto::isLoaded() { return g_module.load(std::memory_order_acquire) != nullptr ? 1 : 0; }

const char* MOXCrypto::entryPointName(int index) {
    return index >= 0 && index < eEntryCount ? kNames[index] : nullptr;
}

// Library.

int MOXCrypto::CryptoInitialize(int flags, void* reserved, char** detail) {
    auto fn = entry<CryptoInitializeFn>(eCryptoInitialize);
    return fn ? fn(flags, reserved, detail) : unavailable(detail);
}

int MOXCrypto::CryptoTerminate(int flags, void* reserved, char** detail) {
    auto fn = entry<CryptoTerminateFn>(eCryptoTerminate);
    return fn ? fn(flags, reserved, detail) : unavailable(detail);
}

int MOXCrypto::CryptoFree(void* text, int reserved) {
    auto fn = entry<CryptoFreeFn>(eCryptoFree);
    return fn ? fn(text, reserved) : -1;
}

int MOXCrypto::CryptoGetLastErrorDetails(Handle handle, int reserved, char** detail) {
    auto fn = entry<CryptoGetLastErrorDetailsFn>(eCryptoGetLastErrorDetails);
    return fn ? fn(handle, reserved, detail) : unavailable(detail);
}

// Connections.

int MOXCrypto::Socket(Handle* handle, const char* configDocument, int reserved, char** detail) {
    auto fn = entry<SocketFn>(eSocket);
    return fn ? fn(handle, configDocument, reserved, detail) : unavailable(detail);
}

int MOXCrypto::Bind(Handle handle, const sockaddr_storage* address, int length, int reserved) {
    auto fn = entry<BindFn>(eBind);
    return fn ? fn(handle, address, length, reserved) : -1;
}

int MOXCrypto::Bind_Url(Handle handle, const char* url, int reserved) {
    auto fn = entry<Bind_UrlFn>(eBind_Url);
    return fn ? fn(handle, url, reserved) : -1;
}

int MOXCrypto::Listen(Handle handle, int backlog, int reserved) {
    auto fn = entry<ListenFn>(eListen);
    return fn ? fn(handle, backlog, reserved) : -1;
}

int MOXCrypto::Accept(Handle handle, Handle* accepted, sockaddr_storage* address, int* length, int reserved) {
    auto fn = entry<AcceptFn>(eAccept);
    return fn ? fn(handle, accepted, address, length, reserved) : -1;
}

int MOXCrypto::Connect(Handle handle, const sockaddr_storage* address, int length, int reserved) {
    auto fn = entry<ConnectFn>(eConnect);
    return fn ? fn(handle, address, length, reserved) : -1;
}

int MOXCrypto::Connect_Url(Handle handle, const char* url, int reserved) {
    auto fn = entry<Connect_UrlFn>(eConnect_Url);
    return fn ? fn(handle, url, reserved) : -1;
}

int MOXCrypto::EstablishSecure(Handle handle, int reserved) {
    auto fn = entry<EstablishSecureFn>(eEstablishSecure);
    return fn ? fn(handle, reserved) : -1;
}

int MOXCrypto::GetSockName(Handle handle, sockaddr_storage* address, int* length, int reserved) {
    auto fn = entry<GetSockNameFn>(eGetSockName);
    return fn ? fn(handle, address, length, reserved) : -1;
}

int MOXCrypto::GetPeerName(Handle handle, sockaddr_storage* address, int* length, int reserved) {
    auto fn = entry<GetPeerNameFn>(eGetPeerName);
    return fn ? fn(handle, address, length, reserved) : -1;
}

int MOXCrypto::GetSockOpt(Handle handle, unsigned int option, void* value, int* length, int reserved) {
    auto fn = entry<GetSockOptFn>(eGetSockOpt);
    return fn ? fn(handle, option, value, length, reserved) : -1;
}

int MOXCrypto::SetSockOpt(Handle handle, unsigned int option, const void* value, int length, int reserved) {
    auto fn = entry<SetSockOptFn>(eSetSockOpt);
    return fn ? fn(handle, option, value, length, reserved) : -1;
}

int MOXCrypto::Send(Handle handle, const char* buffer, int length, int flags, int* sent, int reserved) {
    auto fn = entry<SendFn>(eSend);
    return fn ? fn(handle, buffer, length, flags, sent, reserved) : -1;
}

int MOXCrypto::Recv(Handle handle, char* buffer, int length, int flags, int* received, int reserved) {
    auto fn = entry<RecvFn>(eRecv);
    return fn ? fn(handle, buffer, length, flags, received, reserved) : -1;
}

int MOXCrypto::SocketSecurityOp(Handle handle, int operation, void* data, int reserved) {
    auto fn = entry<SocketSecurityOpFn>(eSocketSecurityOp);
    return fn ? fn(handle, operation, data, reserved) : -1;
}

int MOXCrypto::Select(FdSet* readSet, FdSet* writeSet, FdSet* errorSet, const TimeVal* timeout, int* ready,
                      int reserved, char** detail) {
    auto fn = entry<SelectFn>(eSelect);
    return fn ? fn(readSet, writeSet, errorSet, timeout, ready, reserved, detail) : unavailable(detail);
}

int MOXCrypto::Poll(void* handles, int count, int timeoutMs, int reserved, char** detail) {
    auto fn = entry<PollFn>(ePoll);
    return fn ? fn(handles, count, timeoutMs, reserved, detail) : unavailable(detail);
}

int MOXCrypto::SocketStatus(Handle handle, int* status) {
    auto fn = entry<SocketStatusFn>(eSocketStatus);
    return fn ? fn(handle, status) : -1;
}

int MOXCrypto::CloseHandle(Handle* handle, int reserved, char** detail) {
    auto fn = entry<CloseHandleFn>(eCloseHandle);
    return fn ? fn(handle, reserved, detail) : unavailable(detail);
}

// Services the toolkit itself does not use.

int MOXCrypto::PersistentInitialize(const char* name, int flags, void* reserved, char** detail) {
    auto fn = entry<PersistentInitializeFn>(ePersistentInitialize);
    return fn ? fn(name, flags, reserved, detail) : unavailable(detail);
}

int MOXCrypto::SetInfo(int kind, const void* data, int length) {
    auto fn = entry<SetInfoFn>(eSetInfo);
    return fn ? fn(kind, data, length) : -1;
}

int MOXCrypto::ProtectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved) {
    auto fn = entry<ProtectDataFn>(eProtectData);
    return fn ? fn(in, inLength, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::UnprotectData(const void* in, int inLength, void* out, int* outLength, int flags, int reserved) {
    auto fn = entry<UnprotectDataFn>(eUnprotectData);
    return fn ? fn(in, inLength, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::GetInfo(int kind, void* data, int* length, int reserved) {
    auto fn = entry<GetInfoFn>(eGetInfo);
    return fn ? fn(kind, data, length, reserved) : -1;
}

int MOXCrypto::ImpUsrInitialize(void** context, int flags, void* reserved, char** detail) {
    auto fn = entry<ImpUsrInitializeFn>(eImpUsrInitialize);
    return fn ? fn(context, flags, reserved, detail) : unavailable(detail);
}

int MOXCrypto::ImpUsrNegotiate(void* context, const void* token, int length, void* reserved) {
    auto fn = entry<ImpUsrNegotiateFn>(eImpUsrNegotiate);
    return fn ? fn(context, token, length, reserved) : -1;
}

int MOXCrypto::ImpUsrImpersonate(void* context, int reserved) {
    auto fn = entry<ImpUsrImpersonateFn>(eImpUsrImpersonate);
    return fn ? fn(context, reserved) : -1;
}

int MOXCrypto::ImpUsrRevert(void* context, int reserved) {
    auto fn = entry<ImpUsrRevertFn>(eImpUsrRevert);
    return fn ? fn(context, reserved) : -1;
}

int MOXCrypto::ImpUsrSerializeHandle(void* context, void* out, int* length) {
    auto fn = entry<ImpUsrSerializeHandleFn>(eImpUsrSerializeHandle);
    return fn ? fn(context, out, length) : -1;
}

int MOXCrypto::ImpUsrDeserializeHandle(const void* in, int length, void** context, int reserved) {
    auto fn = entry<ImpUsrDeserializeHandleFn>(eImpUsrDeserializeHandle);
    return fn ? fn(in, length, context, reserved) : -1;
}

int MOXCrypto::GetRandomData(void* buffer, int length, int reserved) {
    auto fn = entry<GetRandomDataFn>(eGetRandomData);
    return fn ? fn(buffer, length, reserved) : -1;
}

int MOXCrypto::EncryptCredential(const char* user, const char* password, const char* domain, int flags, void* out,
                                 int* outLength, int reserved, void* reserved2) {
    auto fn = entry<EncryptCredentialFn>(eEncryptCredential);
    return fn ? fn(user, password, domain, flags, out, outLength, reserved, reserved2) : -1;
}

int MOXCrypto::DecryptCredential(const void* in, int inLength, char* user, char* password, char* domain, int flags,
                                 int reserved) {
    auto fn = entry<DecryptCredentialFn>(eDecryptCredential);
    return fn ? fn(in, inLength, user, password, domain, flags, reserved) : -1;
}

int MOXCrypto::CMDRT_DecryptPassport(const void* in, int inLength, void* out, int* outLength, int reserved) {
    auto fn = entry<CMDRT_DecryptPassportFn>(eCMDRT_DecryptPassport);
    return fn ? fn(in, inLength, out, outLength, reserved) : -1;
}

int MOXCrypto::AS_EncryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved) {
    auto fn = entry<AS_EncryptTextFn>(eAS_EncryptText);
    return fn ? fn(in, inLength, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::AS_DecryptText(const char* in, int inLength, char* out, int* outLength, int flags, int reserved) {
    auto fn = entry<AS_DecryptTextFn>(eAS_DecryptText);
    return fn ? fn(in, inLength, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::GenerateUserSessionID(const char* user, char* out, int* outLength, int reserved) {
    auto fn = entry<GenerateUserSessionIDFn>(eGenerateUserSessionID);
    return fn ? fn(user, out, outLength, reserved) : -1;
}

int MOXCrypto::VerifyUserSessionID(const char* id, const char* user, int flags, int* valid, int reserved) {
    auto fn = entry<VerifyUserSessionIDFn>(eVerifyUserSessionID);
    return fn ? fn(id, user, flags, valid, reserved) : -1;
}

int MOXCrypto::VerifyUserSessionIDBinary(const void* id, int length, int flags, int* valid, int reserved) {
    auto fn = entry<VerifyUserSessionIDBinaryFn>(eVerifyUserSessionIDBinary);
    return fn ? fn(id, length, flags, valid, reserved) : -1;
}

int MOXCrypto::UpdateUserSessionID(const char* id, const char* user, char* out, int* outLength, int flags,
                                   int reserved) {
    auto fn = entry<UpdateUserSessionIDFn>(eUpdateUserSessionID);
    return fn ? fn(id, user, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::VerifyAuthenticityToken(const char* token, const char* data, int flags, int* valid, int reserved) {
    auto fn = entry<VerifyAuthenticityTokenFn>(eVerifyAuthenticityToken);
    return fn ? fn(token, data, flags, valid, reserved) : -1;
}

int MOXCrypto::VerifyAuthenticityTokenBinary(const void* token, int length, int flags, int* valid, int reserved) {
    auto fn = entry<VerifyAuthenticityTokenBinaryFn>(eVerifyAuthenticityTokenBinary);
    return fn ? fn(token, length, flags, valid, reserved) : -1;
}

int MOXCrypto::CreateCapabilityTrustToken(const char* capability, char* out, int* outLength, int flags,
                                          int reserved) {
    auto fn = entry<CreateCapabilityTrustTokenFn>(eCreateCapabilityTrustToken);
    return fn ? fn(capability, out, outLength, flags, reserved) : -1;
}

int MOXCrypto::VerifyCapabilityTrustToken(const char* token, const char* capability, int flags, int* valid,
                                          int reserved) {
    auto fn = entry<VerifyCapabilityTrustTokenFn>(eVerifyCapabilityTrustToken);
    return fn ? fn(token, capability, flags, valid, reserved) : -1;
}

// Addresses.

int MOXCrypto::ResolveAddress(void** resolution, const char* host, int flags, int reserved, int* status) {
    auto fn = entry<ResolveAddressFn>(eResolveAddress);
    return fn ? fn(resolution, host, flags, reserved, status) : -1;
}

int MOXCrypto::ResolveAddressFromURI(void** resolution, const char* uri, int reserved, int* status) {
    auto fn = entry<ResolveAddressFromURIFn>(eResolveAddressFromURI);
    return fn ? fn(resolution, uri, reserved, status) : -1;
}

int MOXCrypto::GetAddress(void* resolution, int index, sockaddr_storage* address) {
    auto fn = entry<GetAddressFn>(eGetAddress);
    return fn ? fn(resolution, index, address) : -1;
}

int MOXCrypto::GetAddressAsText(const sockaddr_storage* address, char* text, int size) {
    auto fn = entry<GetAddressAsTextFn>(eGetAddressAsText);
    return fn ? fn(address, text, size) : -1;
}

int MOXCrypto::ResolveAddressFree(void* resolution) {
    auto fn = entry<ResolveAddressFreeFn>(eResolveAddressFree);
    return fn ? fn(resolution) : -1;
}

// Checks.

int MOXCrypto::IsSafeURL(const char* url, int flags) {
    auto fn = entry<IsSafeURLFn>(eIsSafeURL);
    return fn ? fn(url, flags) : -1;
}

int MOXCrypto::VerifyFileSignature(const char* path, int flags) {
    auto fn = entry<VerifyFileSignatureFn>(eVerifyFileSignature);
    return fn ? fn(path, flags) : -1;
}
