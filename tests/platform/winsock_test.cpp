// Winsock stand-ins on real loopback TCP connections.
#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>

#include <csignal>
#include <cstring>
#include <string>
#include <type_traits>
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

// --- WSAStartup / WSACleanup ---

TEST(WinsockStartup, AcceptsVersionsOneAndTwo) {
  WSADATA data;
  ASSERT_EQ(WSAStartup(MAKEWORD(1, 1), &data), 0);
  EXPECT_EQ(data.wVersion, 0x0101);
  EXPECT_EQ(data.wHighVersion, 0x0202);
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  EXPECT_EQ(data.wVersion, 0x0202);
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 0), &data), 0);
  EXPECT_EQ(data.wVersion, 0x0002);
  ASSERT_EQ(WSAStartup(MAKEWORD(1, 0), &data), 0);
  EXPECT_EQ(data.wVersion, 0x0001);
  EXPECT_EQ(WSACleanup(), 0);
  EXPECT_EQ(WSACleanup(), 0);
  EXPECT_EQ(WSACleanup(), 0);
  EXPECT_EQ(WSACleanup(), 0);
}

TEST(WinsockStartup, NewerMinorVersionIsServedWithTheHighest) {
  WSADATA data;
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 9), &data), 0);
  EXPECT_EQ(data.wVersion, MAKEWORD(2, 2));
  EXPECT_EQ(WSACleanup(), 0);
}

TEST(WinsockStartup, OtherMajorVersionsAreRefusedWithoutTouchingTheData) {
  // The major version is the low byte: MAKEWORD(0, 1) is version 0.1.
  for (WORD version : {MAKEWORD(3, 0), MAKEWORD(0, 1), MAKEWORD(0, 0), MAKEWORD(255, 1)}) {
    WSADATA data;
    std::memset(&data, 0xAB, sizeof(data));
    WSADATA before;
    std::memcpy(&before, &data, sizeof(data));
    EXPECT_EQ(WSAStartup(version, &data), WSAVERNOTSUPPORTED) << std::hex << version;
    EXPECT_EQ(std::memcmp(&before, &data, sizeof(data)), 0) << std::hex << version;
  }
}

TEST(WinsockStartup, MissingDataIsAFault) {
  EXPECT_EQ(WSAStartup(MAKEWORD(1, 1), nullptr), WSAEFAULT);
}

// --- send / recv overloads ---

template <typename Buf, typename Len>
using SendResult = decltype(send(SOCKET{}, std::declval<Buf>(), std::declval<Len>(), 0));
template <typename Buf, typename Len>
using RecvResult = decltype(recv(SOCKET{}, std::declval<Buf>(), std::declval<Len>(), 0));

// The POSIX functions return ssize_t; only the Winsock overloads return int,
// so the result type shows which one a call picks.
TEST(WinsockOverloads, CharBuffersPickTheWinsockSignature) {
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
  SUCCEED();
}

TEST(WinsockOverloads, DataCrossesAConnection) {
  Connection c;
  const char out[] = "ping";
  const unsigned outLen = 4;
  ASSERT_EQ(send(c.client.get(), out, outLen, 0), 4);
  char in[16] = {};
  const unsigned inLen = sizeof(in);
  ASSERT_EQ(recv(c.server.get(), in, inLen, 0), 4);
  EXPECT_EQ(std::string(in, 4), "ping");
}

TEST(WinsockOverloads, NegativeLengthIsAnInvalidArgument) {
  Connection c;
  char buf[4] = {};
  int rc = send(c.client.get(), buf, -1, 0);
  int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEINVAL);
  rc = recv(c.client.get(), buf, -1, 0);
  code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEINVAL);
}

// --- failures reported through WSAGetLastError ---

TEST(LoopbackSocket, ConnectToAClosedPortIsRefused) {
  BoundSocket silent(false);
  Handle s(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_NE(s.get(), INVALID_SOCKET);
  sockaddr_in a = loopback(silent.port);
  const int rc = connect(s.get(), reinterpret_cast<sockaddr*>(&a), sizeof(a));
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAECONNREFUSED);
}

TEST(LoopbackSocket, NonBlockingReceiveWithoutDataWouldBlock) {
  Connection c;
  unsigned long on = 1;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
  char buf[8];
  const unsigned len = sizeof(buf);
  const int rc = recv(c.client.get(), buf, len, 0);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEWOULDBLOCK);
}

TEST(LoopbackSocket, SendToAResetPeerFailsWithoutSigpipe) {
  SigpipeAtDefault sigpipe;
  Connection c;
  linger abortive{1, 0};
  ASSERT_EQ(setsockopt(c.server.get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive)), 0);
  c.server.reset();  // close with linger 0 sends a reset
  ASSERT_TRUE(waitReadable(c.client.get()));

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
}

TEST(LoopbackSocket, ReceiveAfterResetReportsConnectionReset) {
  Connection c;
  linger abortive{1, 0};
  ASSERT_EQ(setsockopt(c.server.get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive)), 0);
  c.server.reset();
  ASSERT_TRUE(waitReadable(c.client.get()));
  char buf[8];
  const int rc = recv(c.client.get(), buf, static_cast<int>(sizeof(buf)), 0);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAECONNRESET);
}

TEST(LoopbackSocket, SendAfterOwnShutdownReadsAsShutdown) {
  SigpipeAtDefault sigpipe;
  Connection c;
  ASSERT_EQ(shutdown(c.client.get(), SD_BOTH), 0);
  const char data[] = "x";
  const int rc = send(c.client.get(), data, 1, 0);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAESHUTDOWN);
}

// --- ioctlsocket / closesocket ---

TEST(IoctlSocket, FionbioSwitchesNonBlockingModeOnAndOff) {
  Connection c;
  ASSERT_FALSE(isNonBlocking(c.client.get()));
  unsigned long on = 7;  // any non-zero value means on
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
  EXPECT_TRUE(isNonBlocking(c.client.get()));
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
  EXPECT_TRUE(isNonBlocking(c.client.get()));
  unsigned long off = 0;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &off), 0);
  EXPECT_FALSE(isNonBlocking(c.client.get()));
}

TEST(IoctlSocket, FionbioKeepsTheOtherStatusFlags) {
  Connection c;
  ASSERT_EQ(fcntl(c.client.get(), F_SETFL, O_APPEND), 0);
  unsigned long on = 1;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &on), 0);
  unsigned long off = 0;
  ASSERT_EQ(ioctlsocket(c.client.get(), FIONBIO, &off), 0);
  EXPECT_NE(fcntl(c.client.get(), F_GETFL) & O_APPEND, 0);
}

TEST(IoctlSocket, OtherCommandsAreInvalid) {
  Connection c;
  unsigned long arg = 1;
  const int rc = ioctlsocket(c.client.get(), FIONREAD, &arg);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEINVAL);
  EXPECT_FALSE(isNonBlocking(c.client.get()));
}

TEST(IoctlSocket, MissingArgumentIsAFault) {
  Connection c;
  const int rc = ioctlsocket(c.client.get(), FIONBIO, nullptr);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEFAULT);
}

TEST(IoctlSocket, ClosedHandleIsABadFile) {
  SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_NE(s, INVALID_SOCKET);
  ASSERT_EQ(closesocket(s), 0);
  unsigned long on = 1;
  const int rc = ioctlsocket(s, FIONBIO, &on);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEBADF);
}

TEST(CloseSocket, ReleasesTheHandleOnce) {
  SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_NE(s, INVALID_SOCKET);
  EXPECT_EQ(closesocket(s), 0);
  EXPECT_EQ(fcntl(s, F_GETFD), -1);
  const int rc = closesocket(s);
  const int code = WSAGetLastError();
  EXPECT_EQ(rc, SOCKET_ERROR);
  EXPECT_EQ(code, WSAEBADF);
}

}  // namespace
