// A complete stand-in library beside the program: loaded once per process,
// wrappers forwarding their arguments unchanged.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <string>

#include "FakeCrypto.h"
#include "transport/MOXCrypto.h"

namespace {
std::atomic<int> g_library_loads{0};
}

// Counts how often the security library is asked for: the loader's calls
// reach this definition before the system's.
extern "C" void* dlopen(const char* file, int mode) {
    using Open = void* (*)(const char*, int);
    static Open real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "dlopen"));
    if (file != nullptr && std::strstr(file, "VLT_Crypto_Interface") != nullptr && (mode & RTLD_NOLOAD) == 0)
        ++g_library_loads;
    return real(file, mode);
}

TEST(CompleteCryptoLibrary, LoadsOnceAndALaterConstructionFindsItLoaded) {
    const int before = g_library_loads.load();
    MOXCrypto first("VLT_Crypto_Interface");
    EXPECT_EQ(1, first.isLoaded());
    const int afterFirst = g_library_loads.load();
    EXPECT_LE(afterFirst - before, 1);

    MOXCrypto second("VLT_Crypto_Interface");
    MOXCrypto third("Some_Other_Name");
    EXPECT_EQ(1, second.isLoaded());
    EXPECT_EQ(1, third.isLoaded()) << "one library per process, whatever name a later loader gives";
    EXPECT_EQ(afterFirst, g_library_loads.load()) << "nothing is loaded again";
}

TEST(CompleteCryptoLibrary, WrappersForwardTheirArgumentsUnchanged) {
    FakeCrypto fake;
    MOXCrypto crypto("VLT_Crypto_Interface");

    fake.pushSend(0, 2);
    int sent = 0;
    EXPECT_EQ(0, crypto.Send(9, "abc", 3, 0, &sent, 0));
    EXPECT_EQ(2, sent);
    EXPECT_EQ("ab", fake.sent());

    fake.pushResult("VLT_Connect_Url", -13);
    EXPECT_EQ(-13, crypto.Connect_Url(9, "https://example.test/", 0));
    EXPECT_EQ("https://example.test/", fake.lastUrl());

    MOXCrypto::Handle handle = 0;
    char* detail = nullptr;
    EXPECT_EQ(0, crypto.Socket(&handle, "<sessionConfigDocument/>", 0, &detail));
    EXPECT_EQ(7u, handle);
    EXPECT_EQ("<sessionConfigDocument/>", fake.lastConfig());

    EXPECT_EQ(0, crypto.CryptoGetLastErrorDetails(handle, 0, &detail));
    ASSERT_NE(nullptr, detail);
    EXPECT_STREQ("details of handle 7", detail);
    EXPECT_EQ(0, crypto.CryptoFree(detail, 0));
    EXPECT_EQ(1, fake.detailFrees());

    MOXCrypto::FdSet readSet{}, writeSet{}, errorSet{};
    writeSet.fd_count = 1;
    writeSet.fd_array[0] = handle;
    MOXCrypto::TimeVal span = {4, 0};
    int ready = 0;
    EXPECT_EQ(1, crypto.Select(&readSet, &writeSet, &errorSet, &span, &ready, 0, &detail));
    EXPECT_EQ(1, ready);

    EXPECT_EQ(-50, crypto.AS_DecryptText("a", 1, nullptr, nullptr, 0, 0)) << "the library's own answer";
    EXPECT_EQ(0, crypto.CloseHandle(&handle, 0, nullptr));
    EXPECT_EQ(0u, handle);

    EXPECT_EQ("VLT_Send 3\nVLT_Connect_Url 9 https://example.test/\nVLT_Socket\nVLT_CryptoGetLastErrorDetails 7\n"
              "VLT_Select w 4\nVLT_CloseHandle 7\n",
              fake.log());
}
