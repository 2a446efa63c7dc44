// A library beside the program that lacks "AS_DecryptText": the loader takes
// it, finds a name missing and releases it again.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string>

#include "../secure-socket-unit/FakeCrypto.h"
#include "AllWrappers.h"
#include "moxcore/MOXErrors.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXSocketSSL.h"

TEST(IncompleteCryptoLibrary, IsReleasedAndReportedAsNotLoaded) {
    void* probe = dlopen(FakeCrypto::besideProgram().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, probe) << "the stand-in library is beside the program";
    EXPECT_EQ(nullptr, dlsym(probe, "AS_DecryptText"));
    EXPECT_NE(nullptr, dlsym(probe, "AS_EncryptText"));
    dlclose(probe);

    MOXCrypto crypto("VLT_Crypto_Interface");
    EXPECT_EQ(0, crypto.isLoaded());
    EXPECT_EQ(nullptr, dlopen(FakeCrypto::besideProgram().c_str(), RTLD_NOW | RTLD_NOLOAD)) << "the library was let go";
    loadertest::expectEveryWrapperUnavailable(crypto);
    EXPECT_EQ(0, MOXCrypto("VLT_Crypto_Interface").isLoaded()) << "every construction tries again";
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
