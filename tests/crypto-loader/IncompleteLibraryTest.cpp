// A library beside the program that lacks "AS_DecryptText": the loader takes
// it, finds a name missing and releases it again.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "AllWrappers.h"
#include "moxcore/MOXErrors.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXSocketSSL.h"

namespace {
std::string besideProgram() {
    char path[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    path[n > 0 ? n : 0] = '\0';
    std::string dir(path);
    return dir.substr(0, dir.rfind('/')) + "/libVLT_Crypto_Interface.so";
}
}  // namespace

TEST(IncompleteCryptoLibrary, IsReleasedAndReportedAsNotLoaded) {
    void* probe = dlopen(besideProgram().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, probe) << "the stand-in library is beside the program";
    EXPECT_EQ(nullptr, dlsym(probe, "AS_DecryptText"));
    EXPECT_NE(nullptr, dlsym(probe, "AS_EncryptText"));
    dlclose(probe);

    MOXCrypto crypto("VLT_Crypto_Interface");
    EXPECT_EQ(0, crypto.isLoaded());
    EXPECT_EQ(nullptr, dlopen(besideProgram().c_str(), RTLD_NOW | RTLD_NOLOAD)) << "the library was let go";
}

TEST(IncompleteCryptoLibrary, EveryWrapperAnswersMinusOne) {
    MOXCrypto crypto("VLT_Crypto_Interface");
    loadertest::expectEveryWrapperUnavailable(crypto);
}

TEST(IncompleteCryptoLibrary, EveryConstructionTriesAgain) {
    MOXCrypto first("VLT_Crypto_Interface");
    MOXCrypto second("VLT_Crypto_Interface");
    EXPECT_EQ(0, second.isLoaded());
}

TEST(IncompleteCryptoLibrary, SecureSocketRefusesToOpen) {
    TALVEXSocketSSL s(0);
    try {
        s.open("https://localhost:1/", "<sessionConfigDocument></sessionConfigDocument>", 0);
        ADD_FAILURE() << "open went through";
    } catch (MOXUnexpectedError& e) {
        EXPECT_STREQ("Cannot open Crypto lib", e.getText());
    }
}
