#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "session/MOXSocketAddress.h"
#include "talvex/TALVEXHost.h"
#include "talvex/TALVEXHostID.h"

namespace {
bool allBytes(const sockaddr_storage& a, unsigned char value) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&a);
    for (size_t i = 0; i < sizeof a; ++i)
        if (p[i] != value) return false;
    return true;
}
}  // namespace

TEST(Addressing, NumericAndNamedHostsResolve) {
    char v4[] = "127.0.0.1";
    sockaddr_storage a = TALVEXHost::resolveIPAddress(v4);
    ASSERT_EQ(AF_INET, a.ss_family);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), reinterpret_cast<sockaddr_in*>(&a)->sin_addr.s_addr);

    char v6[] = "::1";
    sockaddr_storage b = TALVEXHost::resolveIPAddress(v6);
    ASSERT_EQ(AF_INET6, b.ss_family);
    EXPECT_EQ(0, std::memcmp(&in6addr_loopback, &reinterpret_cast<sockaddr_in6*>(&b)->sin6_addr, 16));

    sockaddr_storage local = TALVEXHost::resolveIPAddress(nullptr);
    EXPECT_TRUE(local.ss_family == AF_INET || local.ss_family == AF_INET6) << "null resolves localhost";
}

TEST(Addressing, UnresolvableNameGivesTheNoAddressValueAndAnInvalidHost) {
    char name[] = "no-such-host.invalid";
    EXPECT_TRUE(allBytes(TALVEXHost::resolveIPAddress(name), 0xFF));
    TALVEXHostID host("no-such-host.invalid", 80);
    EXPECT_EQ(0, host.isValid());
    TALVEXHostID good("127.0.0.1", 80);
    EXPECT_EQ(1, good.isValid());
}

TEST(Addressing, AddressAsTextThroughTheLibrary) {
    MOXSocketAddress resolver("VLT_Crypto_Interface");
    ASSERT_EQ(1, MOXSocketAddress::isLoaded());
    int status = -1;
    resolver.resolveAddressFromURI("https://[::1]:8443/soap", 0, &status);
    sockaddr_storage a;
    resolver.getAddress(0, &a);
    ASSERT_EQ(AF_INET6, a.ss_family);
    EXPECT_EQ(8443, ntohs(reinterpret_cast<sockaddr_in6*>(&a)->sin6_port));
    char text[1025] = "";
    resolver.getAddressAsText(&a, text, sizeof text);
    EXPECT_STREQ("::1", text);
}

TEST(Addressing, LibraryWithoutEveryAddressEntryPointIsReleased) {
    MOXSocketAddress resolver("VLT_NoResolveFree");
    EXPECT_EQ(0, MOXSocketAddress::isLoaded());
    int status = 0;
    EXPECT_EQ(0, resolver.resolveAddress("127.0.0.1", 0, 0, &status));
    EXPECT_EQ(1, status) << "status is set to 1 before the (missing) call";
    sockaddr_storage a;
    std::memset(&a, 0x55, sizeof a);
    EXPECT_EQ(0, resolver.getAddress(0, &a));
    EXPECT_TRUE(allBytes(a, 0));
    char text[8] = "keep";
    EXPECT_EQ(-1, resolver.getAddressAsText(&a, text, sizeof text));
    EXPECT_STREQ("keep", text) << "the caller's buffer is left untouched";
}

TEST(Addressing, MissingLibraryBehavesAsUnavailable) {
    MOXSocketAddress resolver("VLT_Not_Installed");
    EXPECT_EQ(0, MOXSocketAddress::isLoaded());
    int status = 0;
    EXPECT_EQ(0, resolver.resolveAddressFromURI("http://x/", 0, &status));
    EXPECT_EQ(1, status);
    sockaddr_storage a;
    std::memset(&a, 0x55, sizeof a);
    resolver.getAddress(0, &a);
    EXPECT_TRUE(allBytes(a, 0)) << "without the library an address is 128 zero bytes";
}
