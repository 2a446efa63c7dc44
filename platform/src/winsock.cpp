// Winsock calls that have no direct POSIX equivalent.
#include "platform/winsock.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

constexpr WORD kHighestVersion = MAKEWORD(2, 2);

bool versionAbove(WORD a, WORD b) {
  // Winsock keeps the major version in the low byte, so compare by parts.
  if (LOBYTE(a) != LOBYTE(b)) return LOBYTE(a) > LOBYTE(b);
  return HIBYTE(a) > HIBYTE(b);
}

void copyText(char* dst, std::size_t size, const char* text) {
  std::snprintf(dst, size, "%s", text);
}

}  // namespace

int WSAStartup(WORD version, WSADATA* data) {
  const BYTE major = LOBYTE(version);
  if (major != 1 && major != 2) return WSAVERNOTSUPPORTED;
  if (data == nullptr) return WSAEFAULT;

  std::memset(data, 0, sizeof(*data));
  data->wVersion = versionAbove(version, kHighestVersion) ? kHighestVersion : version;
  data->wHighVersion = kHighestVersion;
  copyText(data->szDescription, sizeof(data->szDescription), "Windows Sockets over POSIX sockets");
  copyText(data->szSystemStatus, sizeof(data->szSystemStatus), "Running");
  // iMaxSockets and iMaxUdpDg stay 0: not meaningful here, as with Winsock 2.
  return 0;
}

int WSACleanup() {
  // POSIX sockets need no per-process set-up, so there is nothing to undo.
  return 0;
}

int ioctlsocket(SOCKET s, long cmd, unsigned long* arg) {
  if (cmd != static_cast<long>(FIONBIO)) {
    errno = EINVAL;
    return SOCKET_ERROR;
  }
  if (arg == nullptr) {
    errno = EFAULT;
    return SOCKET_ERROR;
  }
  const int flags = fcntl(s, F_GETFL);
  if (flags == -1) return SOCKET_ERROR;
  const int wanted = *arg != 0 ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
  if (wanted != flags && fcntl(s, F_SETFL, wanted) == -1) return SOCKET_ERROR;
  return 0;
}

int closesocket(SOCKET s) {
  // No retry on EINTR: Linux releases the descriptor even then, and a retry
  // could close a descriptor another thread has just been given.
  return close(s) == 0 ? 0 : SOCKET_ERROR;
}

int send(SOCKET s, const char* buf, int len, int flags) {
  if (len < 0) {
    errno = EINVAL;
    return SOCKET_ERROR;
  }
  // The casts select the POSIX send, not this overload.
  const ssize_t n = ::send(s, static_cast<const void*>(buf), static_cast<std::size_t>(len), flags | MSG_NOSIGNAL);
  return n < 0 ? SOCKET_ERROR : static_cast<int>(n);
}

int recv(SOCKET s, char* buf, int len, int flags) {
  if (len < 0) {
    errno = EINVAL;
    return SOCKET_ERROR;
  }
  const ssize_t n = ::recv(s, static_cast<void*>(buf), static_cast<std::size_t>(len), flags);
  return n < 0 ? SOCKET_ERROR : static_cast<int>(n);
}

int getsockopt(SOCKET s, int level, int name, char* value, int* length) {
  if (value == nullptr || length == nullptr || *length < 0) {
    errno = EFAULT;
    return SOCKET_ERROR;
  }
  socklen_t size = static_cast<socklen_t>(*length);
  if (::getsockopt(s, level, name, static_cast<void*>(value), &size) != 0) return SOCKET_ERROR;
  *length = static_cast<int>(size);
  if (level == SOL_SOCKET && name == SO_ERROR && size >= sizeof(int)) {
    int error = 0;
    std::memcpy(&error, value, sizeof error);
    error = wsaErrorFromErrno(error);
    std::memcpy(value, &error, sizeof error);
  }
  return 0;
}
