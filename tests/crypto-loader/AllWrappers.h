#ifndef TALVEX_TESTS_ALLWRAPPERS_H
#define TALVEX_TESTS_ALLWRAPPERS_H

// Calls every wrapper of the loader once with harmless arguments, for the
// cases in which none of them may reach a library.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "transport/MOXCrypto.h"

namespace loadertest {

// Expects -1 from every wrapper, and an empty detail text from the nine that
// hand one out (also when the caller passes no place for it).
inline void expectEveryWrapperUnavailable(MOXCrypto& c) {
    char buffer[64] = "";
    int n = 0;
    void* p = nullptr;
    sockaddr_storage address;
    std::memset(&address, 0, sizeof address);
    MOXCrypto::Handle h = 0;
    MOXCrypto::FdSet set;
    std::memset(&set, 0, sizeof set);
    MOXCrypto::TimeVal span = {0, 0};

    int results[] = {
        c.CryptoFree(buffer, 0),
        c.Bind(1, &address, 128, 0),
        c.Bind_Url(1, "https://x/", 0),
        c.Listen(1, 5, 0),
        c.Accept(1, &h, &address, &n, 0),
        c.Connect(1, &address, 128, 0),
        c.Connect_Url(1, "https://x/", 0),
        c.EstablishSecure(1, 0),
        c.GetSockName(1, &address, &n, 0),
        c.GetPeerName(1, &address, &n, 0),
        c.GetSockOpt(1, 0x1001, &n, &n, 0),
        c.SetSockOpt(1, 0x8004667E, &n, 4, 0),
        c.Send(1, buffer, 1, 0, &n, 0),
        c.Recv(1, buffer, 1, 0, &n, 0),
        c.SocketSecurityOp(1, 0, nullptr, 0),
        c.SocketStatus(1, &n),
        c.SetInfo(0, buffer, 1),
        c.ProtectData(buffer, 1, buffer, &n, 0, 0),
        c.UnprotectData(buffer, 1, buffer, &n, 0, 0),
        c.GetInfo(0, buffer, &n, 0),
        c.ImpUsrNegotiate(nullptr, buffer, 1, nullptr),
        c.ImpUsrImpersonate(nullptr, 0),
        c.ImpUsrRevert(nullptr, 0),
        c.ImpUsrSerializeHandle(nullptr, buffer, &n),
        c.ImpUsrDeserializeHandle(buffer, 1, &p, 0),
        c.GetRandomData(buffer, 1, 0),
        c.EncryptCredential("u", "p", "d", 0, buffer, &n, 0, nullptr),
        c.DecryptCredential(buffer, 1, buffer, buffer, buffer, 0, 0),
        c.CMDRT_DecryptPassport(buffer, 1, buffer, &n, 0),
        c.AS_EncryptText("a", 1, buffer, &n, 0, 0),
        c.AS_DecryptText("a", 1, buffer, &n, 0, 0),
        c.GenerateUserSessionID("u", buffer, &n, 0),
        c.VerifyUserSessionID("i", "u", 0, &n, 0),
        c.VerifyUserSessionIDBinary(buffer, 1, 0, &n, 0),
        c.UpdateUserSessionID("i", "u", buffer, &n, 0, 0),
        c.VerifyAuthenticityToken("t", "d", 0, &n, 0),
        c.VerifyAuthenticityTokenBinary(buffer, 1, 0, &n, 0),
        c.CreateCapabilityTrustToken("c", buffer, &n, 0, 0),
        c.VerifyCapabilityTrustToken("t", "c", 0, &n, 0),
        c.ResolveAddress(&p, "localhost", 0, 0, &n),
        c.ResolveAddressFromURI(&p, "https://x/", 0, &n),
        c.GetAddress(nullptr, 0, &address),
        c.GetAddressAsText(&address, buffer, sizeof buffer),
        c.ResolveAddressFree(nullptr),
        c.IsSafeURL("https://x/", 0),
        c.VerifyFileSignature("/x", 0),
    };
    static_assert(sizeof results / sizeof results[0] == 46, "every wrapper without a detail text");
    for (size_t i = 0; i < 46; ++i) EXPECT_EQ(-1, results[i]) << "wrapper " << i << " of those without a detail text";

    // The nine with a detail text: an empty text, and no harm without a place for it.
    char marker[] = "untouched";
    char* details[9];
    for (char*& d : details) d = marker;
    int detailResults[] = {
        c.CryptoInitialize(0, nullptr, &details[0]),
        c.CryptoTerminate(0, nullptr, &details[1]),
        c.CryptoGetLastErrorDetails(1, 0, &details[2]),
        c.Socket(&h, "<sessionConfigDocument></sessionConfigDocument>", 0, &details[3]),
        c.CloseHandle(&h, 0, &details[4]),
        c.Select(&set, &set, &set, &span, &n, 0, &details[5]),
        c.Poll(nullptr, 0, 0, 0, &details[6]),
        c.PersistentInitialize("x", 0, nullptr, &details[7]),
        c.ImpUsrInitialize(&p, 0, nullptr, &details[8]),
    };
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(-1, detailResults[i]) << "detail wrapper " << i;
        ASSERT_NE(nullptr, details[i]) << "detail wrapper " << i;
        EXPECT_STREQ("", details[i]) << "detail wrapper " << i;
    }
    EXPECT_EQ(-1, c.CryptoInitialize(0, nullptr, nullptr));
    EXPECT_EQ(-1, c.CloseHandle(&h, 0, nullptr));
    EXPECT_EQ(-1, c.Select(&set, &set, &set, &span, &n, 0, nullptr));
}

}  // namespace loadertest

#endif
