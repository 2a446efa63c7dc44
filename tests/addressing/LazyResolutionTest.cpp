#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netinet/in.h>

#include "platform/dynload.h"
#include "session/MOXSocketAddress.h"
#include "talvex/TALVEXHostID.h"

namespace {
// Reads the counter of the fake library that the toolkit loaded.
int resolveCalls() {
    MOXSocketAddress load("VLT_Crypto_Interface");
    void* self = dlopen("libVLT_Crypto_Interface.so", RTLD_NOW | RTLD_NOLOAD);
    if (self == nullptr) {
        ADD_FAILURE() << "the counting library is not the one loaded";
        return -1;
    }
    auto counter = reinterpret_cast<int (*)()>(dlsym(self, "fake_resolve_calls"));
    dlclose(self);
    return counter ? counter() : -1;
}
}  // namespace

TEST(LazyResolution, NothingIsResolvedUntilFirstNeedAndThenOnlyOnce) {
    int before = resolveCalls();
    TALVEXHostID host("service.test", 8080);
    EXPECT_EQ(before, resolveCalls()) << "construction must not resolve";
    EXPECT_EQ(1, host.isValid());
    EXPECT_EQ(before + 1, resolveCalls());
    sockaddr_storage a = host.getIPAddress();
    EXPECT_EQ(AF_INET, a.ss_family);
    EXPECT_EQ(htonl(0x7F000002), reinterpret_cast<sockaddr_in*>(&a)->sin_addr.s_addr);
    EXPECT_EQ(1, host.isValid());
    EXPECT_EQ(before + 1, resolveCalls()) << "a resolved address is kept";
}

TEST(LazyResolution, CopyOfAResolvedHostDoesNotResolveAgain) {
    TALVEXHostID host("service.test", 1);
    host.isValid();
    int after = resolveCalls();
    TALVEXHostID copy(host);
    TALVEXHostID assigned("other.test", 2);
    assigned = host;
    EXPECT_EQ(1, copy.isValid());
    EXPECT_EQ(1, assigned.isValid());
    EXPECT_STREQ("service.test", assigned.getHostName());
    EXPECT_EQ(1, assigned.getPort());
    EXPECT_EQ(after, resolveCalls());
}

TEST(LazyResolution, AnUnresolvedNameIsTriedAgainOnEveryCall) {
    TALVEXHostID host("unresolvable.test", 80);
    int before = resolveCalls();
    EXPECT_EQ(0, host.isValid());
    EXPECT_EQ(0, host.isValid());
    EXPECT_EQ(before + 2, resolveCalls());
    sockaddr_storage a = host.getIPAddress();
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&a);
    for (size_t i = 0; i < sizeof a; ++i) ASSERT_EQ(0xFF, bytes[i]) << "byte " << i;
}
