#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "LoopbackServer.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "transport/TALVEXSocketNonSSL.h"

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

std::string notImplementedText(const std::function<void()>& call) {
    try {
        call();
    } catch (TALVEXException& e) {
        EXPECT_EQ(0, e.getCode());
        return e.getBackTrace().at(0).function;
    }
    ADD_FAILURE() << "no not-implemented error";
    return "";
}

sockaddr_storage filled(unsigned char byte, unsigned short family) {
    sockaddr_storage a;
    std::memset(&a, byte, sizeof a);
    a.ss_family = family;
    return a;
}

using Clock = std::chrono::steady_clock;
double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }
}  // namespace

TEST(SocketInterface, FreshSocketHoldsTheLocalAddressMarker) {
    TALVEXSocketNonSSL s(0);
    const sockaddr_storage& a = s.getIPAddress();
    EXPECT_EQ(0xFFFE, a.ss_family);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&a);
    for (size_t i = 2; i < sizeof a; ++i) ASSERT_EQ(0, p[i]) << i;
    EXPECT_EQ(0, s.getTimeLimitSec());
    EXPECT_EQ(0, s.isNonBlockingSocket());
    EXPECT_EQ(1, TALVEXSocketNonSSL(1).isNonBlockingSocket());
}

TEST(SocketInterface, ConstructorNormalisesTheMarkerFamilies) {
    BareSocket none(80, filled(0x12, 0xFFFF), 0);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&none.getIPAddress());
    for (size_t i = 0; i < sizeof(sockaddr_storage); ++i) ASSERT_EQ(0xFF, p[i]) << i;

    BareSocket local(80, filled(0x12, 0xFFFE), 0);
    p = reinterpret_cast<const unsigned char*>(&local.getIPAddress());
    for (size_t i = 4; i < 8; ++i) EXPECT_EQ(0, p[i]) << i;
    EXPECT_EQ(0x12, p[2]);
    EXPECT_EQ(0x12, p[8]);
}

TEST(SocketInterface, NoAddressPrintsAsBroadcastText) {
    BareSocket s(0, filled(0, 0xFFFF), 0);
    MOXByteBuffer text(16, 16);
    s.getIPAddress(text);
    EXPECT_STREQ("255.255.255.255", text.str());
}

TEST(SocketInterface, BaseStubsNameTheirOperation) {
    BareSocket s(0);
    sockaddr_storage a = TALVEXSocket::getLocalAddress();
    EXPECT_EQ("TALVEXSocket::echo(const MOX_char* sfilename)", notImplementedText([&] { s.echo("x"); }));
    EXPECT_EQ("TALVEXSocket::echo (const MOX_char* sfilename, const MOX_char * mode)",
              notImplementedText([&] { s.echo("x", "w"); }));
    EXPECT_EQ("TALVEXSocket::prepare( url )", notImplementedText([&] { s.prepare("http://x/"); }));
    EXPECT_EQ("TALVEXSocket::prepare", notImplementedText([&] { s.prepare(1, a); }));
    EXPECT_EQ("TALVEXSocket::Open(0)", notImplementedText([&] { s.open(1); }));
    EXPECT_EQ("TALVEXSocket::Open(1)", notImplementedText([&] { s.open(1, 2); }));
    EXPECT_EQ("TALVEXSocket::Open(2)", notImplementedText([&] { s.open("u", nullptr, 1); }));
    EXPECT_EQ("TALVEXSocket::Open(3)", notImplementedText([&] { s.open(1, a, nullptr, 1); }));
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
    try {
        in->cancel();
        FAIL();
    } catch (MOXIllegalStateError& e) {
        EXPECT_EQ("TALVEXSocket::cancel", e.getBackTrace().at(0).function);
    }
}

TEST(SocketInterface, HandlerWithNullPointerFailsItsAssertion) {
    try {
        TALVEXSocketInputStream::timeoutHandler(nullptr);
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(instancePointer);", e.getText());
    }
}

TEST(SocketInterface, SilentPeerTimesOutAfterTheLimit) {
    LoopbackServer server([](int fd) {
        LoopbackServer::readUntil(fd, "never");
    });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    s.getInputStream()->setTimeout(1);
    auto start = Clock::now();
    try {
        s.getInputStream()->read();
        FAIL() << "the read returned";
    } catch (PNXIOTimeoutException& e) {
        EXPECT_EQ("TALVEXSocketInputStream::timeoutHandler", e.getBackTrace().at(0).function);
    }
    EXPECT_GE(secondsSince(start), 0.9);
    s.close();
}

TEST(SocketInterface, CancelFromAnotherThreadEndsABlockedRead) {
    LoopbackServer server([](int fd) { LoopbackServer::readUntil(fd, "never"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    TALVEXSocketInputStream* in = s.getInputStream();
    in->setCancel(1);
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

TEST(SocketInterface, CancelModeWithoutRequestKeepsWaitingForData) {
    LoopbackServer server([](int fd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        LoopbackServer::sendAll(fd, "x");
        LoopbackServer::readUntil(fd, "never");
    });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    s.getInputStream()->setCancel(1);
    EXPECT_EQ('x', s.getInputStream()->read()) << "the one-second callbacks return and the read goes on";
    s.close();
}
