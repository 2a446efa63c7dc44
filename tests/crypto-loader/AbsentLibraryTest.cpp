// No usable security library: a file by its name that is not a library sits
// beside the program, so the loader fails there and looks no further (another
// copy on the search path is not taken instead).
#include <gtest/gtest.h>

#include <string>

#include "AllWrappers.h"
#include "moxcore/I18NString.h"
#include "moxcore/MOXErrors.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXCryptoError.h"
#include "transport/TALVEXSocketSSL.h"

TEST(AbsentCryptoLibrary, NotLoadedAndEveryWrapperAnswersMinusOne) {
    MOXCrypto crypto("VLT_Crypto_Interface");
    EXPECT_EQ(0, crypto.isLoaded());
    EXPECT_EQ(0, MOXCrypto("VLT_Not_Installed").isLoaded());
    loadertest::expectEveryWrapperUnavailable(crypto);
    int sent = 12345;
    EXPECT_EQ(-1, crypto.Send(1, "abc", 3, 0, &sent, 0));
    EXPECT_EQ(12345, sent) << "nothing was called that could set the count";
}

TEST(AbsentCryptoLibrary, SecureSocketOpenIsRefused) {
    for (int nonBlocking : {0, 1}) {
        TALVEXSocketSSL s(nonBlocking);
        try {
            s.open("https://localhost:1/", "<sessionConfigDocument></sessionConfigDocument>", 0);
            ADD_FAILURE() << "open went through";
        } catch (MOXUnexpectedError& e) {
            EXPECT_STREQ("Cannot open Crypto lib", e.getText());
            ASSERT_EQ(1u, e.getBackTrace().size());
            EXPECT_FALSE(e.getBackTrace()[0].hasFunction) << "no function text";
            EXPECT_EQ("TALVEXSocketSSL", e.getBackTrace()[0].unit);
            EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
        }
        sockaddr_storage address;
        std::memset(&address, 0, sizeof address);
        address.ss_family = AF_INET;
        EXPECT_THROW(s.open(443, address, nullptr, 0), MOXUnexpectedError);

        char buffer[4];
        int n = -1;
        EXPECT_EQ(0, s.ReadBuffer(buffer, sizeof buffer, &n)) << "not connected";
        EXPECT_EQ(0, n);
    }
}

TEST(AbsentCryptoLibrary, CryptoErrorTextHasOnlyCallNameAndStatus) {
    TALVEXSocketSSL s(0);
    TALVEXCryptoError error(&s, 7, "VLT_Send", 23);
    I18NString text;
    EXPECT_EQ("VLT_Send=0x17 ", error.toString(text).str());
}
