// Winsock stand-ins on real loopback TCP connections.
#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>

#include <csignal>
#include <cstring>
#include <string>
#include <type_traits>
#include <iterator>
#include <utility>

#include "platform/winsock.h"

namespace {

// Closes the handle at scope end.
class Handle {
 public:
  explicit Handle(SOCKET s = INVALID_SOCKET) : m_s(s) {}
  ~Handle() { reset(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  SOCKET get() const { return m_s; }
  SOCKET release() { return std::exchange(m_s, INVALID_SOCKET); }
  void reset(SOCKET s = INVALID_SOCKET) {
    if (m_s != INVALID_SOCKET) closesocket(m_s);
    m_s = s;
  }

 private:
  SOCKET m_s;
};

sockaddr_in loopback(unsigned short port) {
  sockaddr_in a;
  std::memset(&a, 0, sizeof(a));
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return a;
}

// A TCP socket bound to a free loopback port; listening only when asked,
// so that a bound but silent one keeps its port while refusing connections.
struct BoundSocket {
  Handle handle;
  unsigned short port = 0;

  explicit BoundSocket(bool listening) {
    handle.reset(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_NE(handle.get(), INVALID_SOCKET);
    sockaddr_in a = loopback(0);
    EXPECT_EQ(bind(handle.get(), reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
    socklen_t len = sizeof(a);
    EXPECT_EQ(getsockname(handle.get(), reinterpret_cast<sockaddr*>(&a), &len), 0);
    port = ntohs(a.sin_port);
    if (listening) {
      EXPECT_EQ(listen(handle.get(), 4), 0);
    }
  }
};

// A connected client/server pair over loopback.
struct Connection {
  BoundSocket listener{true};
  Handle client;
  Handle server;

  Connection() {
    client.reset(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in a = loopback(listener.port);
    EXPECT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
    server.reset(accept(listener.handle.get(), nullptr, nullptr));
    EXPECT_NE(server.get(), INVALID_SOCKET);
  }
};

bool isNonBlocking(SOCKET s) {
  const int flags = fcntl(s, F_GETFL);
  EXPECT_NE(flags, -1);
  return (flags & O_NONBLOCK) != 0;
}

// The default action of SIGPIPE ends the process, so a send that raised it
// would end the test instead of letting it pass.
class SigpipeAtDefault {
 public:
  SigpipeAtDefault() {
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    EXPECT_EQ(sigaction(SIGPIPE, &dfl, &m_old), 0);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    EXPECT_EQ(pthread_sigmask(SIG_UNBLOCK, &pipe, &m_old_mask), 0);
  }
  ~SigpipeAtDefault() {
    pthread_sigmask(SIG_SETMASK, &m_old_mask, nullptr);
    sigaction(SIGPIPE, &m_old, nullptr);
  }
  SigpipeAtDefault(const SigpipeAtDefault&) = delete;
  SigpipeAtDefault& operator=(const SigpipeAtDefault&) = delete;

 private:
  struct sigaction m_old {};
  sigset_t m_old_mask{};
};

bool waitReadable(SOCKET s) {
  pollfd p{s, POLLIN, 0};
  return poll(&p, 1, 1000) == 1;
}

// The Winsock code of a call that must have failed; read right after it.
int failure(int rc) {
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  return code;
}

// Closes the server side with linger 0, which sends a reset.
void resetServerSide(Connection& c) {
  linger abortive{1, 0};
  ASSERT_EQ(setsockopt(c.server.get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive)), 0);
  c.server.reset();
  ASSERT_TRUE(waitReadable(c.client.get()));
}

TEST(WinsockStartup, AcceptsVersionsOneAndTwoAndRefusesOthers) {
  const std::pair<WORD, WORD> served[] = {{MAKEWORD(1, 1), 0x0101}, {MAKEWORD(2, 2), 0x0202},
                                          {MAKEWORD(2, 0), 0x0002}, {MAKEWORD(1, 0), 0x0001},
                                          {MAKEWORD(2, 9), MAKEWORD(2, 2)}};  // newer minor: the highest
  for (const auto& [asked, version] : served) {
    WSADATA data;
    ASSERT_EQ(WSAStartup(asked, &data), 0) << std::hex << asked;
    EXPECT_EQ(data.wVersion, version);
    EXPECT_EQ(data.wHighVersion, 0x0202);
  }
  for (size_t i = 0; i < std::size(served); ++i) EXPECT_EQ(WSACleanup(), 0);

  // The major version is the low byte: MAKEWORD(0, 1) is version 0.1.
  for (WORD version : {MAKEWORD(3, 0), MAKEWORD(0, 1), MAKEWORD(0, 0), MAKEWORD(255, 1)}) {
    WSADATA data;
    std::memset(&data, 0xAB, sizeof(data));
    WSADATA before;
    std::memcpy(&before, &data, sizeof(data));
    EXPECT_EQ(WSAStartup(version, &data), WSAVERNOTSUPPORTED) << std::hex << version;
    EXPECT_EQ(std::memcmp(&before, &data, sizeof(data)), 0) << "data untouched for " << std::hex << version;
  }
  EXPECT_EQ(WSAStartup(MAKEWORD(1, 1), nullptr), WSAEFAULT);
}

template <typename Buf, typename Len>
using SendResult = decltype(send(SOCKET{}, std::declval<Buf>(), std::declval<Len>(), 0));
template <typename Buf, typename Len>
using RecvResult = decltype(recv(SOCKET{}, std::declval<Buf>(), std::declval<Len>(), 0));

// The POSIX functions return ssize_t; only the Winsock overloads return int,
// so the result type shows which one a call picks.
static_assert(!std::is_same_v<ssize_t, int>, "result type cannot tell the overloads apart");
static_assert(std::is_same_v<SendResult<const char*, unsigned>, int>);
static_assert(std::is_same_v<SendResult<const char*, int>, int>);
static_assert(std::is_same_v<SendResult<char*, unsigned>, int>);
static_assert(std::is_same_v<SendResult<char*, int>, int>);
static_assert(std::is_same_v<RecvResult<char*, unsigned>, int>);
static_assert(std::is_same_v<RecvResult<char*, int>, int>);
// Other buffer types still reach POSIX unchanged.
static_assert(std::is_same_v<SendResult<const void*, size_t>, ssize_t>);
static_assert(std::is_same_v<RecvResult<void*, size_t>, ssize_t>);

TEST(WinsockOverloads, DataCrossesAConnectionAndNegativeLengthIsInvalid) {
  Connection c;
  const unsigned outLen = 4;
  ASSERT_EQ(send(c.client.get(), "ping", outLen, 0), 4);
  char in[16] = {};
  const unsigned inLen = sizeof(in);
  ASSERT_EQ(recv(c.server.get(), in, inLen, 0), 4);
  EXPECT_EQ(std::string(in, 4), "ping");
  EXPECT_EQ(failure(send(c.client.get(), in, -1, 0)), WSAEINVAL);
  EXPECT_EQ(failure(recv(c.client.get(), in, -1, 0)), WSAEINVAL);
}

TEST(LoopbackSocket, RefusedConnectAndWouldBlockReceive) {
  BoundSocket silent(false);
  Handle s(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_NE(s.get(), INVALID_SOCKET);
  sockaddr_in a = loopback(silent.port);
  EXPECT_EQ(failure(connect(s.get(), reinterpret_cast<sockaddr*>(&a), sizeof(a))), WSAECONNREFUSED);

  Connection c;
  unsigned long on = 1;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
  char buf[8];
  const unsigned len = sizeof(buf);
  EXPECT_EQ(failure(recv(c.client.get(), buf, len, 0)), WSAEWOULDBLOCK);
}

TEST(LoopbackSocket, SendToAResetPeerFailsWithoutSigpipe) {
  SigpipeAtDefault sigpipe;
  Connection c;
  resetServerSide(c);
  const char data[] = "after reset";
  const unsigned len = sizeof(data);
  // The first send reports the pending reset; later ones are the broken-pipe
  // case that raises SIGPIPE without MSG_NOSIGNAL.
  bool sawBrokenPipe = false;
  for (int i = 0; i < 3; ++i) {
    const int rc = send(c.client.get(), data, len, 0);
    const int err = errno;
    const int code = WSAGetLastError();
    ASSERT_EQ(rc, SOCKET_ERROR) << "send " << i;
    if (err == EPIPE) {
      sawBrokenPipe = true;
      EXPECT_EQ(code, WSAESHUTDOWN);
    } else {
      EXPECT_EQ(err, ECONNRESET);
      EXPECT_EQ(code, WSAECONNRESET);
    }
  }
  EXPECT_TRUE(sawBrokenPipe);

  Connection own;
  ASSERT_EQ(shutdown(own.client.get(), SD_BOTH), 0);
  EXPECT_EQ(failure(send(own.client.get(), "x", 1, 0)), WSAESHUTDOWN) << "after our own shutdown";
}

TEST(LoopbackSocket, ReceiveAfterResetReportsConnectionReset) {
  Connection c;
  resetServerSide(c);
  char buf[8];
  EXPECT_EQ(failure(recv(c.client.get(), buf, static_cast<int>(sizeof(buf)), 0)), WSAECONNRESET);
}

TEST(IoctlSocket, FionbioSwitchesOnlyNonBlockingMode) {
  Connection c;
  ASSERT_EQ(fcntl(c.client.get(), F_SETFL, O_APPEND), 0);
  ASSERT_FALSE(isNonBlocking(c.client.get()));
  unsigned long on = 7;  // any non-zero value means on
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
    EXPECT_TRUE(isNonBlocking(c.client.get()));
  }
  unsigned long off = 0;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &off), 0);
  EXPECT_FALSE(isNonBlocking(c.client.get()));
  EXPECT_NE(fcntl(c.client.get(), F_GETFL) & O_APPEND, 0) << "other status flags are kept";
}

TEST(IoctlSocket, FailuresAndCloseSocket) {
  Connection c;
  unsigned long arg = 1;
  EXPECT_EQ(failure(ioctlsocket(c.client.get(), FIONREAD, &arg)), WSAEINVAL) << "only FIONBIO";
  EXPECT_FALSE(isNonBlocking(c.client.get()));
  EXPECT_EQ(failure(ioctlsocket(c.client.get(), FIONBIO, nullptr)), WSAEFAULT);

  SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_NE(s, INVALID_SOCKET);
  EXPECT_EQ(closesocket(s), 0);
  EXPECT_EQ(fcntl(s, F_GETFD), -1);
  EXPECT_EQ(failure(closesocket(s)), WSAEBADF) << "released once";
  EXPECT_EQ(failure(ioctlsocket(s, FIONBIO, &arg)), WSAEBADF);
}

}  // namespace
