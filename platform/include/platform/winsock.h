// Windows Sockets 1.1 under its Windows names, on top of POSIX sockets.
//
// Only what differs from POSIX is defined here: start-up and clean-up, the
// SOCKET handle and its error values, ioctlsocket, closesocket, the
// Winsock-signature send/recv, and errors reported as Windows Sockets codes.
// socket, connect, select, shutdown, htons, fd_set, sockaddr_storage and the
// address families are the system's own and are used unchanged (AF_INET6 keeps
// its native value, not the Windows 23).
#pragma once

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/wintypes.h"

// ---------------------------------------------------------------------------
// Start-up and clean-up

#define WSADESCRIPTION_LEN 256
#define WSASYS_STATUS_LEN 128

struct WSADATA {
  WORD wVersion;      // version the caller is to use
  WORD wHighVersion;  // highest version this layer offers (2.2)
  char szDescription[WSADESCRIPTION_LEN + 1];
  char szSystemStatus[WSASYS_STATUS_LEN + 1];
  unsigned short iMaxSockets;
  unsigned short iMaxUdpDg;
  char* lpVendorInfo;
};
typedef WSADATA* LPWSADATA;

// Accepts major versions 1 and 2 (the low byte of version). Returns 0 and
// fills *data, WSAVERNOTSUPPORTED for any other major version (data is left
// untouched), or WSAEFAULT when data is null.
int WSAStartup(WORD version, WSADATA* data);

// Nothing to release on POSIX; always 0.
int WSACleanup();

// ---------------------------------------------------------------------------
// Handles

typedef int SOCKET;

#define INVALID_SOCKET (-1)
#define SOCKET_ERROR (-1)

#define SD_RECEIVE SHUT_RD
#define SD_SEND SHUT_WR
#define SD_BOTH SHUT_RDWR

// FIONBIO (from <sys/ioctl.h>) with *arg non-zero makes the socket
// non-blocking, with 0 blocking again. Any other command fails with WSAEINVAL,
// a null arg with WSAEFAULT. Returns 0 or SOCKET_ERROR.
int ioctlsocket(SOCKET s, long cmd, unsigned long* arg);

// Releases the handle. Returns 0 or SOCKET_ERROR.
int closesocket(SOCKET s);

// Winsock-signature overloads of the POSIX names. A call with a char or
// const char buffer and an int or unsigned length picks these over the POSIX
// ones (the buffer type is the better match). send adds MSG_NOSIGNAL, so a
// send on a connection the peer reset or this side shut down fails with
// WSAESHUTDOWN instead of killing the process with SIGPIPE. A negative
// length fails with WSAEINVAL. Returns the byte count or SOCKET_ERROR.
int send(SOCKET s, const char* buf, int len, int flags);
int recv(SOCKET s, char* buf, int len, int flags);

// Winsock-signature getsockopt (an int length). SO_ERROR reports the pending
// error as a Windows Sockets code, as Winsock does: the outcome of a
// non-blocking connect reads WSAECONNREFUSED, WSAETIMEDOUT and so on.
int getsockopt(SOCKET s, int level, int name, char* value, int* length);

// ---------------------------------------------------------------------------
// Errors

// The calling thread's last socket error as a Windows Sockets code, mapped
// from errno at the time of the call. errno itself is not changed.
int WSAGetLastError();

// Sets errno so that WSAGetLastError on this thread returns code. A code
// with an errno counterpart sets that errno (WSAECONNREFUSED: ECONNREFUSED);
// any other code is carried in errno as a value no system call produces.
// Holds for every int except 65537..69631, the range used for carrying.
void WSASetLastError(int code);

// The pure errno -> Windows Sockets code mapping behind WSAGetLastError.
// 0 gives 0. A system errno without a Windows Sockets counterpart gives the
// errno value itself, negated where that number is itself a Windows Sockets
// code (ENXIO 6, ENOEXEC 8 on Linux), so it never reads as another error.
int wsaErrorFromErrno(int err);

#define WSA_INVALID_HANDLE 6
#define WSA_NOT_ENOUGH_MEMORY 8
#define WSA_INVALID_PARAMETER 87
#define WSA_OPERATION_ABORTED 995
#define WSA_IO_INCOMPLETE 996
#define WSA_IO_PENDING 997

#define WSABASEERR 10000
#define WSAEINTR 10004
#define WSAEBADF 10009
#define WSAEACCES 10013
#define WSAEFAULT 10014
#define WSAEINVAL 10022
#define WSAEMFILE 10024
#define WSAEWOULDBLOCK 10035
#define WSAEINPROGRESS 10036
#define WSAEALREADY 10037
#define WSAENOTSOCK 10038
#define WSAEDESTADDRREQ 10039
#define WSAEMSGSIZE 10040
#define WSAEPROTOTYPE 10041
#define WSAENOPROTOOPT 10042
#define WSAEPROTONOSUPPORT 10043
#define WSAESOCKTNOSUPPORT 10044
#define WSAEOPNOTSUPP 10045
#define WSAEPFNOSUPPORT 10046
#define WSAEAFNOSUPPORT 10047
#define WSAEADDRINUSE 10048
#define WSAEADDRNOTAVAIL 10049
#define WSAENETDOWN 10050
#define WSAENETUNREACH 10051
#define WSAENETRESET 10052
#define WSAECONNABORTED 10053
#define WSAECONNRESET 10054
#define WSAENOBUFS 10055
#define WSAEISCONN 10056
#define WSAENOTCONN 10057
#define WSAESHUTDOWN 10058
#define WSAETOOMANYREFS 10059
#define WSAETIMEDOUT 10060
#define WSAECONNREFUSED 10061
#define WSAELOOP 10062
#define WSAENAMETOOLONG 10063
#define WSAEHOSTDOWN 10064
#define WSAEHOSTUNREACH 10065
#define WSAENOTEMPTY 10066
#define WSAEPROCLIM 10067
#define WSAEUSERS 10068
#define WSAEDQUOT 10069
#define WSAESTALE 10070
#define WSAEREMOTE 10071
#define WSASYSNOTREADY 10091
#define WSAVERNOTSUPPORTED 10092
#define WSANOTINITIALISED 10093
#define WSAEDISCON 10101
#define WSAENOMORE 10102
#define WSAECANCELLED 10103
#define WSAEINVALIDPROCTABLE 10104
#define WSAEINVALIDPROVIDER 10105
#define WSAEPROVIDERFAILEDINIT 10106
#define WSASYSCALLFAILURE 10107
#define WSASERVICE_NOT_FOUND 10108
#define WSATYPE_NOT_FOUND 10109
#define WSA_E_NO_MORE 10110
#define WSA_E_CANCELLED 10111
#define WSAEREFUSED 10112
#define WSAHOST_NOT_FOUND 11001
#define WSATRY_AGAIN 11002
#define WSANO_RECOVERY 11003
#define WSANO_DATA 11004
