// The secure socket against the real security library and a TLS server on
// loopback: bytes both ways in blocking and non-blocking mode, time-out and
// cancellation, refusals, and the connect time limit.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "../secure-socket-unit/SecureSocketTestSupport.h"
#include "FullBacklogPort.h"
#include "LoopbackServer.h"
#include "../vlt/tls_peer.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "transport/MOXCrypto.h"
#include "transport/TALVEXSocketSSL.h"

using namespace securetest;
using vlttest::pattern;
using vlttest::PeerMode;
using vlttest::PeerOptions;
using vlttest::TlsPeer;

namespace {
std::string configFor(const std::string& caFile) {
    return "<sessionConfigDocument><caFile>" + caFile + "</caFile></sessionConfigDocument>";
}

const std::string& trustingConfig() {
    static const std::string config = configFor(vlttest::certificates().ca);
    return config;
}

PeerOptions peerOptions(PeerMode mode, int connections = 1) {
    PeerOptions o;
    o.certificate = vlttest::certificates().server;
    o.key = vlttest::certificates().serverKey;
    o.mode = mode;
    o.connections = connections;
    return o;
}

PeerOptions sinkThenSource(size_t sink, size_t source, int connections = 1) {
    PeerOptions o = peerOptions(PeerMode::SinkThenSource, connections);
    o.sinkBytes = sink;
    o.sourceBytes = source;
    return o;
}

std::string urlOf(const TlsPeer& peer, bool ipv6 = false) {
    return std::string("https://") + (ipv6 ? "[::1]" : "127.0.0.1") + ":" + std::to_string(peer.port()) + "/soap";
}

std::string readToTheEnd(TALVEXSocketSSL& s) {
    std::string data;
    char buf[7000];  // not a multiple of anything the library uses
    for (unsigned n; (n = s.getInputStream()->read(buf, sizeof buf)) != PNX_EOF;) data.append(buf, n);
    return data;
}

void writeAll(TALVEXSocketSSL& s, const std::string& data) {
    // In pieces of different sizes, through the output stream.
    for (size_t offset = 0, piece = 1; offset < data.size(); piece = piece * 3 + 7) {
        size_t n = std::min(piece, data.size() - offset);
        s.getOutputStream()->write(data.data() + offset, static_cast<unsigned>(n));
        offset += n;
    }
}

class SecureSocketEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        MOXCrypto crypto("VLT_Crypto_Interface");
        if (!crypto.isLoaded()) GTEST_SKIP() << "the security library is not on the search path";
    }
};
}  // namespace

TEST_F(SecureSocketEndToEnd, BytesBothWaysByUrlBlockingAndNonBlocking) {
    for (int nonBlocking : {0, 1}) {
        SCOPED_TRACE(nonBlocking);
        // Non-blocking writes go in pieces of 32768 bytes.
        const size_t sink = nonBlocking ? 3 * 32768 + 1 + 250000 : 300001;
        const size_t source = nonBlocking ? 1000001 : 700003;
        TlsPeer server(sinkThenSource(sink, source));
        TALVEXSocketSSL s(nonBlocking);
        EXPECT_EQ(nonBlocking, s.isNonBlockingSocket());
        s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
        writeAll(s, pattern(sink, 1));
        EXPECT_TRUE(readToTheEnd(s) == pattern(source, 2));
        EXPECT_EQ(-1, s.getInputStream()->read()) << "the end stays the end";
        s.close();
        server.finish();
        EXPECT_TRUE(server.uploadMatched()) << server.bytesReceived() << " bytes arrived";
    }
}

TEST_F(SecureSocketEndToEnd, OneWriteOfManyChunksInNonBlockingMode) {
    TlsPeer server(sinkThenSource(3 * 32768 + 1, 5));
    TALVEXSocketSSL s(1);
    s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
    const std::string data = pattern(3 * 32768 + 1, 1);
    int written = 0;
    s.WriteBuffer(data.data(), static_cast<unsigned>(data.size()), &written);
    EXPECT_EQ(static_cast<int>(data.size()), written);
    EXPECT_EQ(pattern(5, 2), readToTheEnd(s));
    s.close();  // the peer waits for it
    server.finish();
    EXPECT_TRUE(server.uploadMatched());
}

TEST_F(SecureSocketEndToEnd, ByAddressAndOverIPv6) {
    for (bool ipv6 : {false, true}) {
        PeerOptions o = sinkThenSource(10, 20);
        o.ipv6 = ipv6;
        TlsPeer server(o);
        TALVEXSocketSSL s(ipv6 ? 1 : 0);
        if (ipv6) {
            s.open(urlOf(server, true).c_str(), trustingConfig().c_str(), 10);
        } else {
            s.open(server.port(), ipv4(), trustingConfig().c_str(), 10);
            EXPECT_EQ("127.0.0.1:" + std::to_string(server.port()), s.getAuthority());
        }
        writeAll(s, pattern(10, 1));
        EXPECT_EQ(pattern(20, 2), readToTheEnd(s)) << (ipv6 ? "IPv6" : "IPv4");
        s.close();
        server.finish();
        EXPECT_TRUE(server.uploadMatched());
    }
}

TEST_F(SecureSocketEndToEnd, ReopenUsesTheStoredUrlAndDocument) {
    TlsPeer server(sinkThenSource(0, 3, 2));
    TALVEXSocketSSL s(0);
    s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
    EXPECT_EQ(pattern(3, 2), readToTheEnd(s));
    s.close();
    s.open(10);
    EXPECT_EQ(pattern(3, 2), readToTheEnd(s)) << "a second connection";
    s.close();
    server.finish();
    EXPECT_EQ(2, server.handshakes());
}

TEST_F(SecureSocketEndToEnd, NonBlockingSilentReadTimesOutOrIsCancelledFromAnotherThread) {
    TlsPeer server(peerOptions(PeerMode::Echo, 2));  // says nothing unless spoken to
    char buf[16];
    {
        TALVEXSocketSSL s(1);
        s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
        EXPECT_EQ(1, s.getInputStream()->setTimeout(1));
        auto t = Clock::now();
        EXPECT_THROW(s.getInputStream()->read(buf, sizeof buf), PNXIOTimeoutException);
        EXPECT_GE(secondsSince(t), 0.9);
        EXPECT_LT(secondsSince(t), 10.0);
    }
    TALVEXSocketSSL s(1);
    s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
    TALVEXSocketInputStream* in = s.getInputStream();
    EXPECT_EQ(1, in->setCancel(1));
    std::thread canceller([in] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        in->cancel();
    });
    auto t = Clock::now();
    EXPECT_THROW(in->read(buf, sizeof buf), PNXIOCancelException);
    canceller.join();
    EXPECT_GE(secondsSince(t), 0.25);
    EXPECT_LT(secondsSince(t), 10.0);
}

TEST_F(SecureSocketEndToEnd, BlockingModeWaitsPastTheTimeLimit) {
    PeerOptions o = peerOptions(PeerMode::Greeting);
    o.greetingDelayMs = 2000;
    TlsPeer server(o);
    TALVEXSocketSSL s(0);
    s.open(urlOf(server).c_str(), trustingConfig().c_str(), 10);
    EXPECT_EQ(1, s.getInputStream()->setTimeout(1));
    auto t = Clock::now();
    EXPECT_EQ("hello\n", readToTheEnd(s)) << "no time-out in blocking mode";
    EXPECT_GE(secondsSince(t), 1.8);
}

TEST_F(SecureSocketEndToEnd, RefusedConnectionFailsAtOnce) {
    vlttest::RefusingPort closed;
    TALVEXSocketSSL s(0);
    auto t = Clock::now();
    TALVEXException e = toolkitError([&] { s.open(closed.port(), ipv4(), trustingConfig().c_str(), 0); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ(0u, detail(e).find("VLT_Connect=0xfffffff3 ")) << detail(e);
    EXPECT_GT(detail(e).size(), std::string("VLT_Connect=0xfffffff3 ").size()) << "with the library's details";
    EXPECT_LT(secondsSince(t), 1.9) << "no pause after a refusal";
}

TEST_F(SecureSocketEndToEnd, RefusalsARetryCannotMendFailAtOnceWithTheLibrarysReason) {
    const vlttest::Certificates& certs = vlttest::certificates();
    LoopbackServer plainText([](int fd) {
        char hello[512];
        if (::recv(fd, hello, sizeof hello, 0) > 0)
            LoopbackServer::sendAll(fd, "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
    });
    const std::string tls13Only =
        "<sessionConfigDocument><caFile>" + certs.ca + "</caFile><minProtocol>TLS1.3</minProtocol></sessionConfigDocument>";
    const struct {
        const char* what;
        std::string certificate, key;
        int maxVersion;
        const char* host;
        const std::string& config;
        std::string says;
    } rows[] = {
        {"untrusted", certs.selfSigned, certs.selfSignedKey, 0, "127.0.0.1", trustingConfig(),
         "VLT_EstablishSecure=0xfffffff3 certificate verify failed: self-signed certificate (certificate '"},
        {"expired", certs.expired, certs.expiredKey, 0, "localhost", trustingConfig(),
         "VLT_EstablishSecure=0xfffffff3 certificate verify failed: certificate has expired (certificate '"},
        {"wrong host", certs.wrongHost, certs.wrongHostKey, 0, "localhost", trustingConfig(),
         "VLT_EstablishSecure=0xfffffff3 certificate does not match host 'localhost'"},
        {"no common version", certs.server, certs.serverKey, TLS1_2_VERSION, "localhost", tls13Only,
         "VLT_EstablishSecure=0xfffffff3 TLS handshake failed: "},
        {"no TLS on the port", "", "", 0, "127.0.0.1", trustingConfig(),
         "VLT_EstablishSecure=0xfffffff3 TLS handshake failed: wrong version number (does the server speak TLS on "
         "this port?)"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        PeerOptions o = peerOptions(PeerMode::Echo, 5);
        o.maxVersion = r.maxVersion;
        if (!r.certificate.empty()) {
            o.certificate = r.certificate;
            o.key = r.key;
        }
        TlsPeer server(o);
        const int port = r.certificate.empty() ? plainText.port() : server.port();
        const std::string url = std::string("https://") + r.host + ":" + std::to_string(port) + "/soap";
        TALVEXSocketSSL s(1);
        auto t = Clock::now();
        TALVEXException e = toolkitError([&] { s.open(url.c_str(), r.config.c_str(), 0); });
        EXPECT_LT(secondsSince(t), 1.9) << "no pause, no second attempt";
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ(0u, detail(e).find(r.says)) << detail(e);
    }

    const std::string missingCa = configFor("/no/such/ca.pem");
    TlsPeer server(peerOptions(PeerMode::Echo));
    TALVEXSocketSSL b(0);
    TALVEXException e = toolkitError([&] { b.open(urlOf(server).c_str(), missingCa.c_str(), 5); });
    EXPECT_EQ(31, e.getCode());
    EXPECT_EQ(0u, functionText(e).find("VLT_Socket=0x")) << functionText(e);
    EXPECT_FALSE(detail(e).empty()) << "the library says why";
}

TEST_F(SecureSocketEndToEnd, ConnectTimeLimitEndsAnUnansweredConnectAndAStalledHandshake) {
    FullBacklogPort unanswered;
    LoopbackServer stalled([](int fd) { LoopbackServer::readUntil(fd, "never"); });  // TCP, never a TLS answer
    for (auto [port, says] : {std::pair{unanswered.port(), "Connection timed out"},
                              {stalled.port(), "did not complete the TLS handshake within the connect time limit"}}) {
        SCOPED_TRACE(says);
        TALVEXSocketSSL s(1);
        auto t = Clock::now();
        TALVEXException e = toolkitError([&] { s.open(port, ipv4(), trustingConfig().c_str(), 1); });
        EXPECT_LT(secondsSince(t), 10.0) << "not the library's own 30 s and 60 s";
        EXPECT_EQ(5, e.getCode());
        EXPECT_NE(std::string::npos, detail(e).find(says)) << detail(e);
    }
}
