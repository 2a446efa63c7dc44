#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "../secure-socket-unit/SecureSocketTestSupport.h"
#include "FullBacklogPort.h"
#include "LoopbackServer.h"
#include "moxcore/MOXByteBuffer.h"
#include "transport/TALVEXSocketNonSSL.h"

using namespace securetest;

namespace {
std::string hostOf(const TALVEXSocket& s) {
    MOXByteBuffer text(64, 64);
    s.getIPAddress(text);
    return text.str();
}

// A port on which nothing listens.
int closedPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_storage a = ipv4();
    socklen_t len = sizeof(sockaddr_in);
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), len);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(fd);
    return ntohs(reinterpret_cast<sockaddr_in&>(a).sin_port);
}

std::string fileText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

std::string traceFile() {
    char name[] = "/tmp/talvex-trace-XXXXXX";
    ::close(mkstemp(name));
    return name;
}

std::string readAllThrough(TALVEXSocketNonSSL& s) {
    std::string data;
    char buf[4096];
    for (unsigned n; (n = s.getInputStream()->read(buf, sizeof buf)) != PNX_EOF;) data.append(buf, n);
    return data;
}

void silent(int fd) { LoopbackServer::readUntil(fd, "never"); }
}  // namespace

TEST(PlainSocketUrl, HostAndPortComeFromTheUrl) {
    const struct {
        const char* url;
        const char* host;
        int port;  // the scheme is not looked at and no default port applied
        const char* authority;
    } rows[] = {
        {"scheme://127.0.0.1:81/soap/x", "127.0.0.1", 81, "127.0.0.1:81"},
        {"https://[::1]:443/a", "::1", 443, "[::1]:443"},
        {"scheme://[::1]/a", "::1", 0, "[::1]"},
        {"scheme://127.0.0.1", "127.0.0.1", 0, "127.0.0.1"},
    };
    TALVEXSocketNonSSL s(0);
    for (const auto& r : rows) {
        SCOPED_TRACE(r.url);
        s.prepare(r.url);
        EXPECT_EQ(r.host, hostOf(s));
        EXPECT_EQ(r.port, s.getPort());
        EXPECT_EQ(r.authority, s.getAuthority());
    }
}

TEST(PlainSocketUrl, TextWithoutSchemeSeparatorIsRefusedWithCode30) {
    for (const char* url : {"host:80", "http://"}) {
        TALVEXSocketNonSSL s(0);
        TALVEXException e = toolkitError([&] { s.prepare(url); });
        EXPECT_EQ(30, e.getCode());
        const MOXMessage& m = catalogMessage(e);
        EXPECT_EQ(0xF2A26477u, m.getNumber());
        ASSERT_EQ(2u, m.getParameters().size());
        EXPECT_EQ(url, m.getParameters()[0].getText().str());
        EXPECT_EQ("no ://", m.getParameters()[1].getText().str());
        EXPECT_EQ("TALVEXSocketNonSSL::prepare( url )", functionText(e));
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

TEST(PlainSocket, OpenWhileConnectedChangesNothingAndReopenAfterCloseReconnects) {
    LoopbackServer server([](int fd) { LoopbackServer::sendAll(fd, "hi"); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    s.open(9, TALVEXSocket::getLocalAddress(), nullptr, 5);
    EXPECT_EQ(server.port(), s.getPort());
    EXPECT_EQ("hi", readAllThrough(s));
    // Peer close ends the stream; later reads answer at once.
    char c;
    int n = 99;
    EXPECT_EQ(0, s.ReadBuffer(&c, 1, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(-1, s.getInputStream()->read());
    s.close();
    s.open(5);
    EXPECT_EQ("hi", readAllThrough(s));
    EXPECT_EQ(2, server.accepted());
}

TEST(PlainSocket, TraceFileRecordsEveryReadAndWriteAndAResetAsMinusOne) {
    const std::string expected = "\n<write[5]>\nhello\n<read[5]>\nworld\n<read[0]>\n";
    std::string trace = traceFile();
    {
        LoopbackServer server([](int fd) {
            LoopbackServer::readUntil(fd, "hello");
            LoopbackServer::sendAll(fd, "world");
        });
        TALVEXSocketNonSSL s(0);
        s.echo(trace.c_str());
        s.open(server.url().c_str(), nullptr, 5);
        s.getOutputStream()->write("hello", 5);
        EXPECT_EQ("world", readAllThrough(s));
    }
    EXPECT_EQ(expected, fileText(trace));
    {
        TALVEXSocketNonSSL s(0);
        s.echo(trace.c_str());  // appends
        s.echo(nullptr);
        char c;
        int n;
        s.ReadBuffer(&c, 1, &n);
    }
    EXPECT_EQ(expected, fileText(trace)) << "tracing was stopped";
    TALVEXSocketNonSSL quiet(0);
    quiet.echo("/nonexistent-dir/trace.log");  // silently off
    std::remove(trace.c_str());

    // A reset connection counts as the end and is traced with -1.
    LoopbackServer server([](int fd) {
        LoopbackServer::readUntil(fd, "go");
        LoopbackServer::resetOnClose(fd);
    });
    trace = traceFile();
    TALVEXSocketNonSSL s(0);
    s.echo(trace.c_str());
    s.open(server.url().c_str(), nullptr, 5);
    s.getOutputStream()->write("go", 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    char buf[16];
    int n = 0;
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(-1, n);
    s.echo(nullptr);
    EXPECT_EQ("\n<write[2]>\ngo\n<read[-1]>\n", fileText(trace));
    std::remove(trace.c_str());
}

TEST(PlainSocket, RefusedConnectionIsTriedFiveTimesUnlessTheTimeLimitCutsItShort) {
    std::string url = "http://127.0.0.1:" + std::to_string(closedPort()) + "/";
    for (int limit : {0, 1}) {
        SCOPED_TRACE(limit);
        TALVEXSocketNonSSL s(0);
        auto start = Clock::now();
        TALVEXException e = toolkitError([&] { s.open(url.c_str(), nullptr, limit); });
        double waited = secondsSince(start);
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ("Connection refused", detail(e));
        EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", functionText(e));
        if (limit == 0) {
            EXPECT_GE(waited, 7.5) << "four pauses of two seconds";
            EXPECT_LT(waited, 12.0);
        } else {
            EXPECT_LT(waited, 5.0) << "the limit is checked after each attempt";
        }
        s.close();
    }
}

TEST(PlainSocket, UnansweredConnectEndsWithTheTimeLimit) {
    FullBacklogPort unanswered;
    TALVEXSocketNonSSL s(0);
    auto start = Clock::now();
    TALVEXException e = toolkitError([&] { s.open(unanswered.port(), ipv4(), nullptr, 1); });
    EXPECT_LT(secondsSince(start), 10.0) << "not the kernel's two minutes of SYN retries";
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("Connection timed out", detail(e));
    EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", functionText(e));
}

TEST(PlainSocket, CallbackRunsEveryLimitOnASilentPeerUntilItThrows) {
    LoopbackServer server(silent);
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    int calls = 0;
    s.setTimeLimitCallback(
        [](void* p) {
            if (++*static_cast<int*>(p) == 2) throw 42;
        },
        &calls, 1);
    auto start = Clock::now();
    EXPECT_THROW(s.getInputStream()->read(), int);
    EXPECT_EQ(2, calls);
    EXPECT_GE(secondsSince(start), 1.9);
    s.close();
}

TEST(PlainSocket, NonBlockingReadReportsWouldBlockWithoutLimitAndWaitsWithOne) {
    {
        LoopbackServer server(silent);
        TALVEXSocketNonSSL s(1);
        s.open(server.url().c_str(), nullptr, 5);
        TALVEXException e = toolkitError([&] { s.getInputStream()->read(); });
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ("Operation would block", detail(e));
        EXPECT_EQ("TALVEXSocketNonSSL::ReadBuffer", functionText(e));
        s.close();
    }
    LoopbackServer server([](int fd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        LoopbackServer::sendAll(fd, "late");
    });
    TALVEXSocketNonSSL s(1);
    s.open(server.url().c_str(), nullptr, 5);
    s.getInputStream()->setTimeout(5);
    EXPECT_EQ("late", readAllThrough(s));
}

TEST(PlainSocket, BadArgumentsAndMissingConnection) {
    TALVEXSocketNonSSL s(0);
    char c;
    int n = 7;
    EXPECT_EQ(1, s.ReadBuffer(&c, 1, &n)) << "unconnected: nothing read, no system call";
    EXPECT_EQ(0, n);
    std::string function;
    coreErrorText<MOXIllegalArgumentError>([&] { s.getOutputStream()->write("x", 0); }, &function);
    EXPECT_EQ("TALVEXSocketNonSSL::writeBuffer", function);
    coreErrorText<MOXIllegalArgumentError>([&] { s.ReadBuffer(&c, 0, &n); }, &function);
    EXPECT_EQ("TALVEXSocketNonSSL::ReadBuffer", function);
    coreErrorText<MOXIllegalStateError>([&] { s.open(80, noAddress(), nullptr, 1); }, &function);
    EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", function) << "no address family";
}

TEST(PlainSocket, WriteToAClosedPeerFailsWithoutKillingTheProcess) {
    LoopbackServer server([](int fd) { LoopbackServer::resetOnClose(fd); });
    TALVEXSocketNonSSL s(0);
    s.open(server.url().c_str(), nullptr, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::string chunk(65536, 'x');
    TALVEXException e = toolkitError([&] {
        for (int i = 0; i < 100; ++i) s.getOutputStream()->write(chunk.data(), static_cast<unsigned>(chunk.size()));
    });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("TALVEXSocketNonSSL::WriteBuffer", functionText(e));
    EXPECT_FALSE(detail(e).empty());
}
