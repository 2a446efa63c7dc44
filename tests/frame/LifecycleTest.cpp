#include <gtest/gtest.h>

#include "moxcore/MOXCore.h"
#include "talvex/talvex.h"

TEST(Lifecycle, FreshToolkitDefaultsToSecureBlockingSockets) {
    TALVEX* t = TALVEX::newInstance();
    ASSERT_NE(nullptr, t);
    EXPECT_EQ(1, t->getUseSSL());
    EXPECT_EQ(0, t->getUseNonBlockingSockets());
    delete t;
}

TEST(Lifecycle, SettingsAreStoredUnchanged) {
    TALVEX t;
    t.setUseVLT(7);
    EXPECT_EQ(7, t.getUseSSL());
    t.setUseVLT(0);
    EXPECT_EQ(0, t.getUseSSL());
    t.setUseNonBlockingSockets(-3);
    EXPECT_EQ(-3, t.getUseNonBlockingSockets());
}

TEST(Lifecycle, InitializeStartsTheCoreLibraryAndTerminateStopsIt) {
    int before = moxInitializeCount();
    EXPECT_EQ(0, TALVEXInitialize());
    EXPECT_EQ(before + 1, moxInitializeCount());
    EXPECT_EQ(0, TALVEXTerminate());
    EXPECT_EQ(before, moxInitializeCount());
}

TEST(Lifecycle, TerminatePassesTheCoreResultThrough) {
    while (moxInitializeCount() > 0) moxTerminate("cleanup");
    EXPECT_EQ(1, TALVEXTerminate()) << "an unmatched termination is reported, and the socket layer is still stopped";
}
