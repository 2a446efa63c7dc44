#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "LoopbackServer.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"
#include "transport/TALVEXSocketNonSSL.h"

namespace {
using Clock = std::chrono::steady_clock;
double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

int portOf(const TALVEXSocket& s) { return s.getPort(); }

std::string hostOf(const TALVEXSocket& s) {
    MOXByteBuffer text(64, 64);
    s.getIPAddress(text);
    return text.str();
}

// A port on which nothing listens.
int closedPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(fd);
    return ntohs(a.sin_port);
}

std::string fileText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

TALVEXException socketError(const std::function<void()>& call) {
    try {
        call();
    } catch (TALVEXException& e) {
        return e;
    }
    ADD_FAILURE() << "no toolkit error";
    return TALVEXException(1, TALVEXException::ErrSocket);
}

std::string detail(const TALVEXException& e) {
    return e.getMessageCount() > 1 ? e.getMessageAt(1).format().str() : std::string();
}

std::string readAllThrough(TALVEXSocketNonSSL& s) {
    std::string data;
    char buf[4096];
    for (;;) {
        unsigned n = s.getInputStream()->read(buf, sizeof buf);
        if (n == PNX_EOF) break;
        data.append(buf, n);
    }
    return data;
}
}  // namespace

TEST(PlainSocketUrl, HostAndPortComeFromTheUrl) {
    TALVEXSocketNonSSL s(0);
    s.prepare("scheme://127.0.0.1:81/soap/x");
    EXPECT_EQ("127.0.0.1", hostOf(s));
    EXPECT_EQ(81, portOf(s));
    EXPECT_EQ("127.0.0.1:81", s.getAuthority());

    s.prepare("https://[::1]:443/a");
    EXPECT_EQ("::1", hostOf(s));
    EXPECT_EQ(443, portOf(s)) << "the scheme is not looked at";
    EXPECT_EQ("[::1]:443", s.getAuthority());

    s.prepare("scheme://[::1]/a");
    EXPECT_EQ("::1", hostOf(s));
    EXPECT_EQ(0, portOf(s)) << "no default port is applied";

    s.prepare("scheme://127.0.0.1");
    EXPECT_EQ(0, portOf(s));
    EXPECT_EQ("127.0.0.1", s.getAuthority());
}

TEST(PlainSocketUrl, TextWithoutSchemeSeparatorIsRefusedWithCode30) {
    for (const char* url : {"host:80", "http://"}) {
        TALVEXSocketNonSSL s(0);
        TALVEXException e = socketError([&] { s.prepare(url); });
        EXPECT_EQ(30, e.getCode());
        auto& m = dynamic_cast<const MOXMessage&>(e.getMessageAt(0));
        EXPECT_EQ(0xF2A26477u, m.getNumber());
        ASSERT_EQ(2u, m.getParameters().size());
        EXPECT_EQ(url, m.getParameters()[0].getText().str());
        EXPECT_EQ("no ://", m.getParameters()[1].getText().str());
        EXPECT_EQ("TALVEXSocketNonSSL::prepare( url )", e.getBackTrace().at(0).function);
        EXPECT_EQ("TALVEXSocketNonSSL", e.getBackTrace().at(0).unit);
    }
}

TEST(PlainSocket, MovesBytesBothWaysOverIPv4AndIPv6) {
    for (bool ipv6 : {false, true}) {
        std::string big(3 * 1024 * 1024 + 17, '\0');
        for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 31 + 7);
        LoopbackServer server(
            [&](int fd) {
                std::string got;
                char buf[65536];
                while (got.size() < big.size()) {
                    int n = ::recv(fd, buf, static_cast<int>(sizeof buf), 0);
                    if (n <= 0) break;
                    got.append(buf, static_cast<size_t>(n));
                }
                LoopbackServer::sendAll(fd, got);
            },
            ipv6);
        TALVEXSocketNonSSL s(0);
        s.open(server.url().c_str(), nullptr, 5);
        s.getOutputStream()->write(big.data(), static_cast<unsigned>(big.size()));
        std::string echoed;
        char buf[8192];
        while (echoed.size() < big.size()) {
            unsigned n = s.getInputStream()->read(buf, sizeof buf);
            ASSERT_NE(PNX_EOF, n);
            echoed.append(buf, n);
        }
        EXPECT_TRUE(echoed == big) << (ipv6 ? "IPv6" : "IPv4");
        s.close();
    }
}

TEST(PlainSocket, OpenOnAConnectedSocketChangesNothing) {
    LoopbackServer server([](int fd) { LoopbackServer::readUntil(fd, "never"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    s.open(9, TALVEXSocket::getLocalAddress(), nullptr, 5);
    EXPECT_EQ(server.port(), portOf(s));
    s.close();
}

TEST(PlainSocket, PeerCloseEndsTheStreamAndLaterReadsAnswerAtOnce) {
    LoopbackServer server([](int fd) { LoopbackServer::sendAll(fd, "partial"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    EXPECT_EQ("partial", readAllThrough(s));
    char c;
    int n = 99;
    EXPECT_EQ(0, s.ReadBuffer(&c, 1, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(-1, s.getInputStream()->read());
}

TEST(PlainSocket, ResetConnectionCountsAsTheEndAndIsTracedWithMinusOne) {
    LoopbackServer server([](int fd) {
        LoopbackServer::readUntil(fd, "go");
        LoopbackServer::resetOnClose(fd);
    });
    char trace[] = "/tmp/talvex-reset-XXXXXX";
    int tfd = mkstemp(trace);
    ::close(tfd);
    TALVEXSocketNonSSL s(0);
    s.echo(trace);
    s.open(server.url().c_str(), nullptr, 5);
    s.getOutputStream()->write("go", 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    char buf[16];
    int n = 0;
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(-1, n);
    s.echo(nullptr);
    EXPECT_EQ("\n<write[2]>\ngo\n<read[-1]>\n", fileText(trace));
    std::remove(trace);
}

TEST(PlainSocket, TraceFileRecordsEveryReadAndWrite) {
    LoopbackServer server([](int fd) {
        LoopbackServer::readUntil(fd, "hello");
        LoopbackServer::sendAll(fd, "world");
    });
    char trace[] = "/tmp/talvex-trace-XXXXXX";
    int tfd = mkstemp(trace);
    ::close(tfd);
    {
        TALVEXSocketNonSSL s(0);
        s.echo(trace);
        s.open(server.url().c_str(), nullptr, 5);
        s.getOutputStream()->write("hello", 5);
        EXPECT_EQ("world", readAllThrough(s));
    }
    EXPECT_EQ("\n<write[5]>\nhello\n<read[5]>\nworld\n<read[0]>\n", fileText(trace));
    {
        TALVEXSocketNonSSL s(0);
        s.echo(trace);  // appends
        s.echo(nullptr);
        char c;
        int n;
        s.ReadBuffer(&c, 1, &n);
    }
    EXPECT_EQ("\n<write[5]>\nhello\n<read[5]>\nworld\n<read[0]>\n", fileText(trace)) << "tracing was stopped";
    TALVEXSocketNonSSL quiet(0);
    quiet.echo("/nonexistent-dir/trace.log");  // silently off
    std::remove(trace);
}

TEST(PlainSocket, RefusedConnectionIsTriedFiveTimesThenReported) {
    TALVEXSocketNonSSL s(0);
    std::string url = "http://127.0.0.1:" + std::to_string(closedPort()) + "/";
    auto start = Clock::now();
    TALVEXException e = socketError([&] { s.open(url.c_str(), nullptr, 0); });
    double waited = secondsSince(start);
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("Connection refused", detail(e));
    EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", e.getBackTrace().at(0).function);
    EXPECT_GE(waited, 7.5) << "four pauses of two seconds";
    EXPECT_LT(waited, 12.0);
    s.close();
}

TEST(PlainSocket, ConnectTimeLimitCutsTheRetriesShort) {
    TALVEXSocketNonSSL s(0);
    std::string url = "http://127.0.0.1:" + std::to_string(closedPort()) + "/";
    auto start = Clock::now();
    TALVEXException e = socketError([&] { s.open(url.c_str(), nullptr, 1); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_LT(secondsSince(start), 5.0) << "the limit is checked after each attempt";
    s.close();
}

TEST(PlainSocket, NoAddressFamilyIsAnIllegalState) {
    TALVEXSocketNonSSL s(0);
    sockaddr_storage none;
    std::memset(&none, 0xFF, sizeof none);
    try {
        s.open(80, none, nullptr, 1);
        FAIL();
    } catch (MOXIllegalStateError& e) {
        EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", e.getBackTrace().at(0).function);
    }
}

TEST(PlainSocket, CallbackRunsEveryLimitOnASilentPeerUntilItThrows) {
    LoopbackServer server([](int fd) { LoopbackServer::readUntil(fd, "never"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    struct Counter {
        int calls = 0;
    } counter;
    s.setTimeLimitCallback(
        [](void* p) {
            if (++static_cast<Counter*>(p)->calls == 2) throw 42;
        },
        &counter, 1);
    auto start = Clock::now();
    EXPECT_THROW(s.getInputStream()->read(), int);
    EXPECT_EQ(2, counter.calls);
    EXPECT_GE(secondsSince(start), 1.9);
    s.close();
}

TEST(PlainSocket, NonBlockingReadWithoutLimitReportsWouldBlock) {
    LoopbackServer server([](int fd) { LoopbackServer::readUntil(fd, "never"); });
    TALVEXSocketNonSSL s(1);
    s.open(server.url().c_str(), nullptr, 5);
    TALVEXException e = socketError([&] { s.getInputStream()->read(); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("Operation would block", detail(e));
    EXPECT_EQ("TALVEXSocketNonSSL::ReadBuffer", e.getBackTrace().at(0).function);
    s.close();
}

TEST(PlainSocket, NonBlockingReadWithLimitWaitsForData) {
    LoopbackServer server([](int fd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        LoopbackServer::sendAll(fd, "late");
    });
    TALVEXSocketNonSSL s(1);
    s.open(server.url().c_str(), nullptr, 5);
    s.getInputStream()->setTimeout(5);
    EXPECT_EQ("late", readAllThrough(s));
}

TEST(PlainSocket, BadArgumentsAreRefused) {
    TALVEXSocketNonSSL s(0);
    char c;
    int n;
    try {
        s.getOutputStream()->write("x", 0);
        FAIL();
    } catch (MOXIllegalArgumentError& e) {
        EXPECT_EQ("TALVEXSocketNonSSL::writeBuffer", e.getBackTrace().at(0).function);
    }
    try {
        s.ReadBuffer(&c, 0, &n);
        FAIL();
    } catch (MOXIllegalArgumentError& e) {
        EXPECT_EQ("TALVEXSocketNonSSL::ReadBuffer", e.getBackTrace().at(0).function);
    }
}

TEST(PlainSocket, UnconnectedSocketReadsNothingWithoutASystemCall) {
    TALVEXSocketNonSSL s(0);
    char c;
    int n = 7;
    EXPECT_EQ(1, s.ReadBuffer(&c, 1, &n));
    EXPECT_EQ(0, n);
}

TEST(PlainSocket, WriteToAClosedPeerFailsWithoutKillingTheProcess) {
    LoopbackServer server([](int fd) { LoopbackServer::resetOnClose(fd); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::string chunk(65536, 'x');
    TALVEXException e = socketError([&] {
        for (int i = 0; i < 100; ++i) s.getOutputStream()->write(chunk.data(), static_cast<unsigned>(chunk.size()));
    });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("TALVEXSocketNonSSL::WriteBuffer", e.getBackTrace().at(0).function);
    EXPECT_FALSE(detail(e).empty());
}

TEST(PlainSocket, ReopenAfterCloseReconnects) {
    LoopbackServer server([](int fd) { LoopbackServer::sendAll(fd, "hi"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    EXPECT_EQ("hi", readAllThrough(s));
    s.close();
    s.open(5);
    EXPECT_EQ("hi", readAllThrough(s));
    EXPECT_EQ(2, server.accepted());
}
