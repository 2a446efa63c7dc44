// The security library exports exactly the 55 entry points the toolkit's
// loader looks up, finds them by name at run time, and refuses the services it
// does not offer with VLT_E_NOT_SUPPORTED.
#include <gtest/gtest.h>

#include "VLT_Crypto_Interface.h"
#include "transport/MOXCrypto.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

// The loader's own list of names, which its tests check one by one.
const std::vector<std::string> kEntryPoints = [] {
    std::vector<std::string> names;
    for (int i = 0; i < MOXCrypto::ENTRY_POINT_COUNT; ++i) names.push_back(MOXCrypto::entryPointName(i));
    return names;
}();

TEST(Exports, NmListsExactlyTheEntryPoints) {
    ASSERT_EQ(kEntryPoints.size(), 55u);
    std::string command = std::string("nm -D --defined-only '") + VLT_LIBRARY_FILE + "'";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    std::set<std::string> exported;
    char line[1024];
    while (std::fgets(line, sizeof line, nm) != nullptr) {
        // "<address> <type> <name>"
        std::string text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        std::size_t space = text.rfind(' ');
        if (space == std::string::npos) continue;
        char type = space >= 1 ? text[space - 1] : '?';
        if (type == 'T' || type == 'W' || type == 'D' || type == 'B' || type == 'V') exported.insert(text.substr(space + 1));
    }
    ASSERT_EQ(pclose(nm), 0) << command;
    for (const std::string& name : kEntryPoints) EXPECT_EQ(exported.count(name), 1u) << name << " is not exported";
    for (const std::string& name : exported)
        EXPECT_NE(std::find(kEntryPoints.begin(), kEntryPoints.end(), name), kEntryPoints.end())
            << name << " is exported but is no entry point";
    EXPECT_EQ(exported.size(), 55u);
}

TEST(Exports, LoadedByNameLikeTheToolkit) {
    std::string path = std::string(TALVEX_TEST_LIB_DIR) + "/libVLT_Crypto_Interface.so";
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    for (const std::string& name : kEntryPoints) EXPECT_NE(dlsym(module, name.c_str()), nullptr) << name;
    using Free = int (*)(void*, int);
    using LastError = int (*)(VLT_HANDLE, int, char**);
    auto lastError = reinterpret_cast<LastError>(dlsym(module, "VLT_CryptoGetLastErrorDetails"));
    auto release = reinterpret_cast<Free>(dlsym(module, "VLT_CryptoFree"));
    ASSERT_NE(lastError, nullptr);
    char* text = nullptr;
    EXPECT_EQ(lastError(0, 0, &text), VLT_S_OK);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(release(text, 0), VLT_S_OK);
    dlclose(module);
}

std::string takeDetail(char* detail) {
    std::string text = detail != nullptr ? detail : "";
    VLT_CryptoFree(detail, 0);
    return text;
}

TEST(Exports, ServicesNotOfferedSayNotSupported) {
    char* detail = nullptr;
    EXPECT_EQ(VLT_PersistentInitialize("x", 0, nullptr, &detail), VLT_E_NOT_SUPPORTED);
    EXPECT_EQ(takeDetail(detail), "VLT_PersistentInitialize is not supported by this security library");
    void* context = reinterpret_cast<void*>(0x1);
    detail = nullptr;
    EXPECT_EQ(VLT_ImpUsrInitialize(&context, 0, nullptr, &detail), VLT_E_NOT_SUPPORTED);
    EXPECT_EQ(context, nullptr);
    EXPECT_NE(takeDetail(detail).find("not supported"), std::string::npos);
    detail = nullptr;
    EXPECT_EQ(VLT_Poll(nullptr, 0, 0, 0, &detail), VLT_E_NOT_SUPPORTED);
    EXPECT_NE(takeDetail(detail).find("VLT_Poll"), std::string::npos);

    int valid[3] = {1, 1, 1};
    int length = 99;
    int status = 5;
    const int answers[] = {
        VLT_VerifyUserSessionID("id", "user", 0, &valid[0], 0),
        VLT_VerifyAuthenticityToken("t", "d", 0, &valid[1], 0),
        VLT_VerifyCapabilityTrustToken("t", "c", 0, &valid[2], 0),
        AS_EncryptText("a", 1, nullptr, &length, 0, 0),
        AS_DecryptText("a", 1, nullptr, nullptr, 0, 0),
        VLT_GetRandomData(nullptr, 0, 0),
        VLT_IsSafeURL("https://x/", 0),
        VLT_VerifyFileSignature("/bin/sh", 0),
        VLT_SocketSecurityOp(1, 0, nullptr, 0),
        VLT_SocketStatus(1, &status),
        VLT_SetInfo(0, nullptr, 0),
        VLT_GetInfo(0, nullptr, nullptr, 0),
        VLT_ProtectData(nullptr, 0, nullptr, nullptr, 0, 0),
        VLT_UnprotectData(nullptr, 0, nullptr, nullptr, 0, 0),
        VLT_ImpUsrNegotiate(nullptr, nullptr, 0, nullptr),
        VLT_ImpUsrImpersonate(nullptr, 0),
        VLT_ImpUsrRevert(nullptr, 0),
        VLT_ImpUsrSerializeHandle(nullptr, nullptr, nullptr),
        VLT_ImpUsrDeserializeHandle(nullptr, 0, nullptr, 0),
        VLT_EncryptCredential("u", "p", "d", 0, nullptr, nullptr, 0, nullptr),
        VLT_DecryptCredential(nullptr, 0, nullptr, nullptr, nullptr, 0, 0),
        VLT_CMDRT_DecryptPassport(nullptr, 0, nullptr, nullptr, 0),
        VLT_GenerateUserSessionID("u", nullptr, nullptr, 0),
        VLT_VerifyUserSessionIDBinary(nullptr, 0, 0, nullptr, 0),
        VLT_UpdateUserSessionID("i", "u", nullptr, nullptr, 0, 0),
        VLT_VerifyAuthenticityTokenBinary(nullptr, 0, 0, nullptr, 0),
        VLT_CreateCapabilityTrustToken("c", nullptr, nullptr, 0, 0),
    };
    for (size_t i = 0; i < std::size(answers); ++i) EXPECT_EQ(answers[i], VLT_E_NOT_SUPPORTED) << "call " << i;
    for (int v : valid) EXPECT_EQ(v, 0) << "verifications answer not valid";
    EXPECT_EQ(length, 0);
}

TEST(Exports, InitializeAndTerminateSucceed) {
    char* detail = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(VLT_CryptoInitialize(0, nullptr, &detail), VLT_S_OK);
    EXPECT_EQ(detail, nullptr);
    detail = reinterpret_cast<char*>(0x1);
    EXPECT_EQ(VLT_CryptoTerminate(0, nullptr, &detail), VLT_S_OK);
    EXPECT_EQ(detail, nullptr);
}

}  // namespace
