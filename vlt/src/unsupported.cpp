// Entry points the toolkit looks up but never calls. They exist so the loader
// finds all of its names, and refuse with VLT_E_NOT_SUPPORTED; out arguments
// that could be mistaken for a success (a validity flag, a context) are cleared.
#include "internal.h"

using namespace vlt;

namespace {

int notSupported(const char* name) {
    return failThread(VLT_E_NOT_SUPPORTED, std::string(name) + " is not supported by this security library");
}

int notSupported(const char* name, char** detail) { return answer(detail, notSupported(name)); }

template <class T>
void clear(T* out) {
    if (out != nullptr) *out = T();
}

}  // namespace

int VLT_SocketSecurityOp(VLT_HANDLE, int, void*, int) {
    return guarded([&] { return notSupported("VLT_SocketSecurityOp"); });
}

int VLT_Poll(void*, int, int, int, char** detail) {
    return guarded([&] { return notSupported("VLT_Poll", detail); });
}

int VLT_SocketStatus(VLT_HANDLE, int* status) {
    return guarded([&] {
        clear(status);
        return notSupported("VLT_SocketStatus");
    });
}

int VLT_PersistentInitialize(const char*, int, void*, char** detail) {
    return guarded([&] { return notSupported("VLT_PersistentInitialize", detail); });
}

int VLT_SetInfo(int, const void*, int) {
    return guarded([&] { return notSupported("VLT_SetInfo"); });
}

int VLT_ProtectData(const void*, int, void*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_ProtectData");
    });
}

int VLT_UnprotectData(const void*, int, void*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_UnprotectData");
    });
}

int VLT_GetInfo(int, void*, int* length, int) {
    return guarded([&] {
        clear(length);
        return notSupported("VLT_GetInfo");
    });
}

int VLT_ImpUsrInitialize(void** context, int, void*, char** detail) {
    return guarded([&] {
        clear(context);
        return notSupported("VLT_ImpUsrInitialize", detail);
    });
}

int VLT_ImpUsrNegotiate(void*, const void*, int, void*) {
    return guarded([&] { return notSupported("VLT_ImpUsrNegotiate"); });
}

int VLT_ImpUsrImpersonate(void*, int) {
    return guarded([&] { return notSupported("VLT_ImpUsrImpersonate"); });
}

int VLT_ImpUsrRevert(void*, int) {
    return guarded([&] { return notSupported("VLT_ImpUsrRevert"); });
}

int VLT_ImpUsrSerializeHandle(void*, void*, int* length) {
    return guarded([&] {
        clear(length);
        return notSupported("VLT_ImpUsrSerializeHandle");
    });
}

int VLT_ImpUsrDeserializeHandle(const void*, int, void** context, int) {
    return guarded([&] {
        clear(context);
        return notSupported("VLT_ImpUsrDeserializeHandle");
    });
}

int VLT_GetRandomData(void*, int, int) {
    return guarded([&] { return notSupported("VLT_GetRandomData"); });
}

int VLT_EncryptCredential(const char*, const char*, const char*, int, void*, int* outLength, int, void*) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_EncryptCredential");
    });
}

int VLT_DecryptCredential(const void*, int, char*, char*, char*, int, int) {
    return guarded([&] { return notSupported("VLT_DecryptCredential"); });
}

int VLT_CMDRT_DecryptPassport(const void*, int, void*, int* outLength, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_CMDRT_DecryptPassport");
    });
}

int AS_EncryptText(const char*, int, char*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("AS_EncryptText");
    });
}

int AS_DecryptText(const char*, int, char*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("AS_DecryptText");
    });
}

int VLT_GenerateUserSessionID(const char*, char*, int* outLength, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_GenerateUserSessionID");
    });
}

int VLT_VerifyUserSessionID(const char*, const char*, int, int* valid, int) {
    return guarded([&] {
        clear(valid);
        return notSupported("VLT_VerifyUserSessionID");
    });
}

int VLT_VerifyUserSessionIDBinary(const void*, int, int, int* valid, int) {
    return guarded([&] {
        clear(valid);
        return notSupported("VLT_VerifyUserSessionIDBinary");
    });
}

int VLT_UpdateUserSessionID(const char*, const char*, char*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_UpdateUserSessionID");
    });
}

int VLT_VerifyAuthenticityToken(const char*, const char*, int, int* valid, int) {
    return guarded([&] {
        clear(valid);
        return notSupported("VLT_VerifyAuthenticityToken");
    });
}

int VLT_VerifyAuthenticityTokenBinary(const void*, int, int, int* valid, int) {
    return guarded([&] {
        clear(valid);
        return notSupported("VLT_VerifyAuthenticityTokenBinary");
    });
}

int VLT_CreateCapabilityTrustToken(const char*, char*, int* outLength, int, int) {
    return guarded([&] {
        clear(outLength);
        return notSupported("VLT_CreateCapabilityTrustToken");
    });
}

int VLT_VerifyCapabilityTrustToken(const char*, const char*, int, int* valid, int) {
    return guarded([&] {
        clear(valid);
        return notSupported("VLT_VerifyCapabilityTrustToken");
    });
}

int VLT_IsSafeURL(const char*, int) {
    return guarded([&] { return notSupported("VLT_IsSafeURL"); });
}

int VLT_VerifyFileSignature(const char*, int) {
    return guarded([&] { return notSupported("VLT_VerifyFileSignature"); });
}
