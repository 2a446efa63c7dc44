#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "../secure-socket-unit/SecureSocketTestSupport.h"
#include "LoopbackServer.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "transport/TALVEXSocketNonSSL.h"

using namespace securetest;

namespace {
// The smallest concrete socket: only the base class's own behaviour.
class BareSocket : public TALVEXSocket {
public:
    explicit BareSocket(int nonBlocking) : TALVEXSocket(nonBlocking) {}
    BareSocket(int port, const sockaddr_storage& address, int nonBlocking)
        : TALVEXSocket(port, address, nonBlocking) {}
    TALVEXSocketInputStream* getInputStream() override { return nullptr; }
    PNXOutputStream* getOutputStream() override { return nullptr; }
    int isAvailable() override { return 1; }
    void close() override {}
    void cleanup() override {}
};

sockaddr_storage filled(unsigned char byte, unsigned short family) {
    sockaddr_storage a;
    std::memset(&a, byte, sizeof a);
    a.ss_family = family;
    return a;
}

const unsigned char* bytesOf(const sockaddr_storage& a) { return reinterpret_cast<const unsigned char*>(&a); }
}  // namespace

TEST(SocketInterface, AddressMarkersAreNormalised) {
    TALVEXSocketNonSSL fresh(0);
    EXPECT_EQ(0xFFFE, fresh.getIPAddress().ss_family) << "a fresh socket holds the local marker";
    for (size_t i = 2; i < sizeof(sockaddr_storage); ++i) ASSERT_EQ(0, bytesOf(fresh.getIPAddress())[i]) << i;
    EXPECT_EQ(0, fresh.getTimeLimitSec());
    EXPECT_EQ(1, TALVEXSocketNonSSL(1).isNonBlockingSocket());

    BareSocket none(80, filled(0x12, 0xFFFF), 0);
    for (size_t i = 0; i < sizeof(sockaddr_storage); ++i) ASSERT_EQ(0xFF, bytesOf(none.getIPAddress())[i]) << i;
    MOXByteBuffer text(16, 16);
    none.getIPAddress(text);
    EXPECT_STREQ("255.255.255.255", text.str());

    BareSocket local(80, filled(0x12, 0xFFFE), 0);
    const unsigned char* p = bytesOf(local.getIPAddress());
    for (size_t i = 4; i < 8; ++i) EXPECT_EQ(0, p[i]) << i;
    EXPECT_EQ(0x12, p[2]);
    EXPECT_EQ(0x12, p[8]);
}

TEST(SocketInterface, BaseStubsNameTheirOperation) {
    BareSocket s(0);
    sockaddr_storage a = TALVEXSocket::getLocalAddress();
    const std::pair<std::function<void()>, const char*> stubs[] = {
        {[&] { s.echo("x"); }, "TALVEXSocket::echo(const MOX_char* sfilename)"},
        {[&] { s.echo("x", "w"); }, "TALVEXSocket::echo (const MOX_char* sfilename, const MOX_char * mode)"},
        {[&] { s.prepare("http://x/"); }, "TALVEXSocket::prepare( url )"},
        {[&] { s.prepare(1, a); }, "TALVEXSocket::prepare"},
        {[&] { s.open(1); }, "TALVEXSocket::Open(0)"},
        {[&] { s.open(1, 2); }, "TALVEXSocket::Open(1)"},
        {[&] { s.open("u", nullptr, 1); }, "TALVEXSocket::Open(2)"},
        {[&] { s.open(1, a, nullptr, 1); }, "TALVEXSocket::Open(3)"},
    };
    for (const auto& [call, function] : stubs) {
        TALVEXException e = toolkitError(call);
        EXPECT_EQ(0, e.getCode()) << function;
        EXPECT_EQ(function, functionText(e));
    }
}

TEST(SocketInterface, TimeoutAndCancelModes) {
    TALVEXSocketNonSSL s(0);
    TALVEXSocketInputStream* in = s.getInputStream();
    EXPECT_EQ(1, in->canCancel());
    EXPECT_EQ(1, in->setTimeout(30));
    EXPECT_EQ(0, in->canCancel());
    EXPECT_EQ(30, in->getTimeout());
    EXPECT_THROW(in->setCancel(1), MOXUnsupportedOperationError);
    EXPECT_EQ(0, in->setTimeout(0));
    EXPECT_EQ(1, in->canCancel());

    EXPECT_EQ(1, in->setCancel(1));
    EXPECT_EQ(1, s.getTimeLimitSec()) << "cancellation rides on a one-second limit";
    EXPECT_EQ(0, in->getTimeout());
    EXPECT_EQ(0, in->canTimeout());
    EXPECT_THROW(in->setTimeout(5), MOXUnsupportedOperationError);
    EXPECT_EQ(0, in->setTimeout(0)) << "setTimeout(0) in cancel mode changes nothing";
    EXPECT_EQ(1, s.getTimeLimitSec());
    EXPECT_EQ(1, in->getCancel());
    EXPECT_EQ(1, in->setCancel(0));
    EXPECT_EQ(0, s.getTimeLimitSec());
    std::string function;
    coreErrorText<MOXIllegalStateError>([&] { in->cancel(); }, &function);
    EXPECT_EQ("TALVEXSocket::cancel", function);
    EXPECT_EQ("MOX_ASSERT(instancePointer);",
              coreErrorText<MOXAssertError>([] { TALVEXSocketInputStream::timeoutHandler(nullptr); }));
}

TEST(SocketInterface, SilentPeerTimesOutAfterTheLimit) {
    LoopbackServer server([](int fd) { LoopbackServer::readUntil(fd, "never"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    s.getInputStream()->setTimeout(1);
    auto start = Clock::now();
    try {
        s.getInputStream()->read();
        FAIL() << "the read returned";
    } catch (PNXIOTimeoutException& e) {
        EXPECT_EQ("TALVEXSocketInputStream::timeoutHandler", functionText(e));
    }
    EXPECT_GE(secondsSince(start), 0.9);
    s.close();
}

TEST(SocketInterface, CancelModeWaitsForDataUntilACancelFromAnotherThread) {
    LoopbackServer server([](int fd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        LoopbackServer::sendAll(fd, "x");
        LoopbackServer::readUntil(fd, "never");
    });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    TALVEXSocketInputStream* in = s.getInputStream();
    in->setCancel(1);
    EXPECT_EQ('x', in->read()) << "the one-second callbacks return and the read goes on";

    std::thread canceller([in] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        in->cancel();
    });
    auto start = Clock::now();
    EXPECT_THROW(in->read(), PNXIOCancelException);
    double waited = secondsSince(start);
    canceller.join();
    EXPECT_GE(waited, 1.4) << "no cancellation before the request";
    EXPECT_LT(waited, 3.5) << "cancellation is honoured within about a second";
    EXPECT_EQ(1, in->getCancel()) << "cancel mode stays on";
    s.close();
}
