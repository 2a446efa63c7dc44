#include <gtest/gtest.h>

#include "moxcore/MOXCore.h"
#include "talvex/talvex.h"

// Initialization starts the core library once per call; an unmatched
// termination is reported (and the socket layer is still stopped).
TEST(Lifecycle, InitializeAndTerminatePassTheCoreThrough) {
    TALVEX t;
    EXPECT_EQ(1, t.getUseSSL()) << "secure sockets unless asked otherwise";
    EXPECT_EQ(0, t.getUseNonBlockingSockets());
    const int before = moxInitializeCount();
    EXPECT_EQ(0, TALVEXInitialize());
    EXPECT_EQ(before + 1, moxInitializeCount());
    EXPECT_EQ(0, TALVEXTerminate());
    EXPECT_EQ(before, moxInitializeCount());
    while (moxInitializeCount() > 0) moxTerminate("cleanup");
    EXPECT_EQ(1, TALVEXTerminate());
}
