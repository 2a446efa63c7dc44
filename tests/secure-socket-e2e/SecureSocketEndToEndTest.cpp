// The secure socket against the real security library and a TLS server on
// loopback: bytes both ways in blocking and non-blocking mode, time-out and
// cancellation, refusal and an untrusted server.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "TlsTestServer.h"
#include "moxcore/MOXErrors.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "talvex/TALVEXException.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXSocketSSL.h"

using namespace securetest;

namespace {
using Clock = std::chrono::steady_clock;
double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

std::string configFor(const std::string& caFile) {
    return "<sessionConfigDocument><caFile>" + caFile + "</caFile></sessionConfigDocument>";
}

std::string trustingConfig() { return configFor(TestCertificates::get().certificate); }

std::string readToTheEnd(TALVEXSocketSSL& s) {
    std::string data;
    char buf[7000];  // not a multiple of anything the library uses
    for (;;) {
        unsigned n = s.getInputStream()->read(buf, sizeof buf);
        if (n == PNX_EOF) break;
        data.append(buf, n);
    }
    return data;
}

void writeAll(TALVEXSocketSSL& s, const std::string& data) {
    // In pieces of different sizes, through the output stream.
    size_t offset = 0;
    size_t piece = 1;
    while (offset < data.size()) {
        size_t n = std::min(piece, data.size() - offset);
        s.getOutputStream()->write(data.data() + offset, static_cast<unsigned>(n));
        offset += n;
        piece = piece * 3 + 7;
    }
}

sockaddr_storage loopback4() {
    sockaddr_storage s;
    std::memset(&s, 0, sizeof s);
    auto* a = reinterpret_cast<sockaddr_in*>(&s);
    a->sin_family = AF_INET;
    a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return s;
}

std::string detail(const TALVEXException& e) {
    return e.getMessageCount() > 1 ? e.getMessageAt(1).format().str() : std::string();
}

class SecureSocketEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        MOXCrypto crypto("VLT_Crypto_Interface");
        if (!crypto.isLoaded()) GTEST_SKIP() << "the security library is not on the search path";
    }
};
}  // namespace

TEST_F(SecureSocketEndToEnd, BlockingBytesBothWaysByUrl) {
    TlsTestServer::Options o;
    o.sinkBytes = 300001;
    o.sourceBytes = 700003;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(0);
    s.open(server.url().c_str(), config.c_str(), 10);
    writeAll(s, pattern(o.sinkBytes, 1));
    EXPECT_TRUE(readToTheEnd(s) == pattern(o.sourceBytes, 2));
    EXPECT_EQ(-1, s.getInputStream()->read()) << "the end stays the end";
    s.close();
    server.finish();
    EXPECT_TRUE(server.uploadMatched()) << server.bytesReceived() << " bytes arrived";
}

TEST_F(SecureSocketEndToEnd, NonBlockingBytesBothWaysByUrl) {
    TlsTestServer::Options o;
    o.sinkBytes = 3 * 32768 + 1 + 250000;
    o.sourceBytes = 1000001;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(1);
    EXPECT_EQ(1, s.isNonBlockingSocket());
    s.open(server.url().c_str(), config.c_str(), 10);
    writeAll(s, pattern(o.sinkBytes, 1));
    EXPECT_TRUE(readToTheEnd(s) == pattern(o.sourceBytes, 2));
    s.close();
    server.finish();
    EXPECT_TRUE(server.uploadMatched()) << server.bytesReceived() << " bytes arrived";
}

TEST_F(SecureSocketEndToEnd, OneWriteOfManyChunksInNonBlockingMode) {
    TlsTestServer::Options o;
    o.sinkBytes = 3 * 32768 + 1;
    o.sourceBytes = 5;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(1);
    s.open(server.url().c_str(), config.c_str(), 10);
    const std::string data = pattern(o.sinkBytes, 1);
    int written = 0;
    s.WriteBuffer(data.data(), static_cast<unsigned>(data.size()), &written);
    EXPECT_EQ(static_cast<int>(data.size()), written);
    EXPECT_EQ(pattern(5, 2), readToTheEnd(s));
    server.finish();
    EXPECT_TRUE(server.uploadMatched());
}

TEST_F(SecureSocketEndToEnd, ByAddressAndOverIPv6) {
    for (bool ipv6 : {false, true}) {
        TlsTestServer::Options o;
        o.sinkBytes = 10;
        o.sourceBytes = 20;
        o.ipv6 = ipv6;
        TlsTestServer server(o);
        const std::string config = trustingConfig();
        TALVEXSocketSSL s(ipv6 ? 1 : 0);
        if (ipv6) {
            s.open(server.url().c_str(), config.c_str(), 10);
        } else {
            s.open(server.port(), loopback4(), config.c_str(), 10);
            EXPECT_EQ("127.0.0.1:" + std::to_string(server.port()), s.getAuthority());
        }
        writeAll(s, pattern(10, 1));
        EXPECT_EQ(pattern(20, 2), readToTheEnd(s)) << (ipv6 ? "IPv6" : "IPv4");
        server.finish();
        EXPECT_TRUE(server.uploadMatched());
    }
}

TEST_F(SecureSocketEndToEnd, ReopenUsesTheStoredUrlAndDocument) {
    TlsTestServer::Options o;
    o.sourceBytes = 3;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(0);
    s.open(server.url().c_str(), config.c_str(), 10);
    EXPECT_EQ(pattern(3, 2), readToTheEnd(s));
    s.close();
    s.open(10);
    EXPECT_EQ(pattern(3, 2), readToTheEnd(s)) << "a second connection";
    s.close();
    server.finish();
    EXPECT_EQ(2, server.handshakes());
}

TEST_F(SecureSocketEndToEnd, NonBlockingSilentReadTimesOut) {
    TlsTestServer::Options o;
    o.mode = TlsTestServer::Mode::Silent;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(1);
    s.open(server.url().c_str(), config.c_str(), 10);
    EXPECT_EQ(1, s.getInputStream()->setTimeout(1));
    char buf[16];
    auto t = Clock::now();
    EXPECT_THROW(s.getInputStream()->read(buf, sizeof buf), PNXIOTimeoutException);
    double took = secondsSince(t);
    EXPECT_GE(took, 0.9);
    EXPECT_LT(took, 10.0);
    s.close();
}

TEST_F(SecureSocketEndToEnd, NonBlockingReadIsCancelledFromAnotherThread) {
    TlsTestServer::Options o;
    o.mode = TlsTestServer::Mode::Silent;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(1);
    s.open(server.url().c_str(), config.c_str(), 10);
    TALVEXSocketInputStream* in = s.getInputStream();
    EXPECT_EQ(1, in->setCancel(1));
    std::thread canceller([in] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        in->cancel();
    });
    char buf[16];
    auto t = Clock::now();
    EXPECT_THROW(in->read(buf, sizeof buf), PNXIOCancelException);
    canceller.join();
    double took = secondsSince(t);
    EXPECT_GE(took, 0.25);
    EXPECT_LT(took, 10.0);
    s.close();
}

TEST_F(SecureSocketEndToEnd, BlockingModeWaitsPastTheTimeLimit) {
    TlsTestServer::Options o;
    o.mode = TlsTestServer::Mode::LateGreeting;
    o.delayMs = 2000;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(0);
    s.open(server.url().c_str(), config.c_str(), 10);
    EXPECT_EQ(1, s.getInputStream()->setTimeout(1));
    auto t = Clock::now();
    EXPECT_EQ("hello", readToTheEnd(s)) << "no time-out in blocking mode";
    EXPECT_GE(secondsSince(t), 1.8);
}

TEST_F(SecureSocketEndToEnd, RefusedConnectionFailsAtOnce) {
    int port;
    {
        TlsTestServer::Options o;
        TlsTestServer server(o);
        port = server.port();
    }  // nobody listens there any more
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(0);
    auto t = Clock::now();
    try {
        s.open(port, loopback4(), config.c_str(), 0);
        ADD_FAILURE() << "connected to a closed port";
    } catch (TALVEXException& e) {
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ(0u, detail(e).find("VLT_Connect=0xfffffff3 ")) << detail(e);
        EXPECT_GT(detail(e).size(), std::string("VLT_Connect=0xfffffff3 ").size()) << "with the library's details";
    }
    EXPECT_LT(secondsSince(t), 1.9) << "no pause after a refusal";
}

TEST_F(SecureSocketEndToEnd, UntrustedServerFailsWithTheLibrarysDetails) {
    TlsTestServer::Options o;
    o.stranger = true;
    TlsTestServer server(o);
    const std::string config = trustingConfig();
    TALVEXSocketSSL s(0);
    auto t = Clock::now();
    try {
        s.open(server.url().c_str(), config.c_str(), 1);
        ADD_FAILURE() << "an untrusted server was accepted";
    } catch (TALVEXException& e) {
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ(0u, detail(e).find("VLT_Connect=0x")) << detail(e);
    }
    EXPECT_LT(secondsSince(t), 3.9) << "the time limit ends the attempts after one pause";
}

TEST_F(SecureSocketEndToEnd, BrokenDocumentIsRefusedByTheLibrary) {
    TlsTestServer::Options o;
    TlsTestServer server(o);
    const std::string config = configFor("/no/such/ca.pem");
    TALVEXSocketSSL s(0);
    try {
        s.open(server.url().c_str(), config.c_str(), 5);
        ADD_FAILURE() << "opened with a missing CA file";
    } catch (TALVEXException& e) {
        EXPECT_EQ(31, e.getCode());
        EXPECT_EQ(0u, e.getBackTrace().at(0).function.find("VLT_Socket=0x")) << e.getBackTrace().at(0).function;
        EXPECT_FALSE(detail(e).empty()) << "the library says why";
    }
}
