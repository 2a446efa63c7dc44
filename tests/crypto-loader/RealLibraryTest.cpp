// The security library built with the toolkit offers every name the loader
// looks up, in the loader's order.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include "transport/MOXCrypto.h"

namespace {
const char* const kExpectedNames[] = {
    "VLT_CryptoInitialize", "VLT_CryptoTerminate", "VLT_CryptoFree", "VLT_CryptoGetLastErrorDetails",
    "VLT_Socket", "VLT_Bind", "VLT_Bind_Url", "VLT_Listen", "VLT_Accept", "VLT_Connect", "VLT_Connect_Url",
    "VLT_EstablishSecure", "VLT_GetSockName", "VLT_GetPeerName", "VLT_GetSockOpt", "VLT_SetSockOpt", "VLT_Send",
    "VLT_Recv", "VLT_SocketSecurityOp", "VLT_Select", "VLT_Poll", "VLT_SocketStatus", "VLT_CloseHandle",
    "VLT_PersistentInitialize", "VLT_SetInfo", "VLT_ProtectData", "VLT_UnprotectData", "VLT_GetInfo",
    "VLT_ImpUsrInitialize", "VLT_ImpUsrNegotiate", "VLT_ImpUsrImpersonate", "VLT_ImpUsrRevert",
    "VLT_ImpUsrSerializeHandle", "VLT_ImpUsrDeserializeHandle", "VLT_GetRandomData", "VLT_EncryptCredential",
    "VLT_DecryptCredential", "VLT_CMDRT_DecryptPassport", "AS_EncryptText", "AS_DecryptText",
    "VLT_GenerateUserSessionID", "VLT_VerifyUserSessionID", "VLT_VerifyUserSessionIDBinary",
    "VLT_UpdateUserSessionID", "VLT_VerifyAuthenticityToken", "VLT_VerifyAuthenticityTokenBinary",
    "VLT_CreateCapabilityTrustToken", "VLT_VerifyCapabilityTrustToken", "VLT_ResolveAddress",
    "VLT_ResolveAddressFromURI", "VLT_GetAddress", "VLT_GetAddressAsText", "VLT_ResolveAddressFree",
    "VLT_IsSafeURL", "VLT_VerifyFileSignature",
};
}  // namespace

TEST(RealCryptoLibrary, LoaderLooksUpTheFiftyFiveNamesInOrder) {
    static_assert(sizeof kExpectedNames / sizeof kExpectedNames[0] == 55, "55 names");
    ASSERT_EQ(55, MOXCrypto::ENTRY_POINT_COUNT);
    for (int i = 0; i < 55; ++i) EXPECT_STREQ(kExpectedNames[i], MOXCrypto::entryPointName(i)) << i;
    EXPECT_EQ(nullptr, MOXCrypto::entryPointName(55));
    EXPECT_EQ(nullptr, MOXCrypto::entryPointName(-1));
}

TEST(RealCryptoLibrary, EveryNameIsFoundAndTheLibraryLoads) {
    MOXCrypto crypto("VLT_Crypto_Interface");
    ASSERT_EQ(1, crypto.isLoaded()) << "the security library is on the search path";
    void* module = dlopen("libVLT_Crypto_Interface.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, module);
    for (const char* name : kExpectedNames) EXPECT_NE(nullptr, dlsym(module, name)) << name;
    dlclose(module);

    // The toolkit never starts or stops the library; a harmless call shows the
    // wrappers reach it.
    char* text = nullptr;
    crypto.CryptoGetLastErrorDetails(0, 0, &text);
    if (text != nullptr) crypto.CryptoFree(text, 0);
}
