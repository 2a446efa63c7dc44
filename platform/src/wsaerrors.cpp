// errno <-> Windows Sockets error codes.
#include "platform/winsock.h"

#include <cerrno>
#include <cstddef>

namespace {

struct ErrnoCode {
  int err;
  int code;
};

// Where several errno values share one code, the first entry is the one
// WSASetLastError writes back.
constexpr ErrnoCode kErrnoCodes[] = {
    {EINTR, WSAEINTR},
    {EBADF, WSAEBADF},
    {EACCES, WSAEACCES},
    // connect(2) reports a firewall rule or a broadcast address without
    // SO_BROADCAST as EPERM; Winsock reports the same cases as WSAEACCES.
    {EPERM, WSAEACCES},
    {EFAULT, WSAEFAULT},
    {EINVAL, WSAEINVAL},
    {EMFILE, WSAEMFILE},
    // Winsock has no separate "system-wide table full" code.
    {ENFILE, WSAEMFILE},
    {EAGAIN, WSAEWOULDBLOCK},
#if EWOULDBLOCK != EAGAIN
    {EWOULDBLOCK, WSAEWOULDBLOCK},
#endif
    {EINPROGRESS, WSAEINPROGRESS},
    {EALREADY, WSAEALREADY},
    {ENOTSOCK, WSAENOTSOCK},
    {EDESTADDRREQ, WSAEDESTADDRREQ},
    {EMSGSIZE, WSAEMSGSIZE},
    {EPROTOTYPE, WSAEPROTOTYPE},
    {ENOPROTOOPT, WSAENOPROTOOPT},
    {EPROTONOSUPPORT, WSAEPROTONOSUPPORT},
    {ESOCKTNOSUPPORT, WSAESOCKTNOSUPPORT},
    {EOPNOTSUPP, WSAEOPNOTSUPP},
#if defined(ENOTSUP) && ENOTSUP != EOPNOTSUPP
    {ENOTSUP, WSAEOPNOTSUPP},
#endif
    {EPFNOSUPPORT, WSAEPFNOSUPPORT},
    {EAFNOSUPPORT, WSAEAFNOSUPPORT},
    {EADDRINUSE, WSAEADDRINUSE},
    {EADDRNOTAVAIL, WSAEADDRNOTAVAIL},
    {ENETDOWN, WSAENETDOWN},
    {ENETUNREACH, WSAENETUNREACH},
    {ENETRESET, WSAENETRESET},
    {ECONNABORTED, WSAECONNABORTED},
    {ECONNRESET, WSAECONNRESET},
    {ENOBUFS, WSAENOBUFS},
    {EISCONN, WSAEISCONN},
    {ENOTCONN, WSAENOTCONN},
    {ESHUTDOWN, WSAESHUTDOWN},
    // POSIX reports a send after shutdown (or after the peer's reset) as
    // EPIPE; "Can't send after socket shutdown" is what the user should read.
    {EPIPE, WSAESHUTDOWN},
    {ETOOMANYREFS, WSAETOOMANYREFS},
    {ETIMEDOUT, WSAETIMEDOUT},
    {ECONNREFUSED, WSAECONNREFUSED},
    {ELOOP, WSAELOOP},
    {ENAMETOOLONG, WSAENAMETOOLONG},
    {EHOSTDOWN, WSAEHOSTDOWN},
    {EHOSTUNREACH, WSAEHOSTUNREACH},
    {ENOTEMPTY, WSAENOTEMPTY},
    {EUSERS, WSAEUSERS},
    {EDQUOT, WSAEDQUOT},
    {ESTALE, WSAESTALE},
    {EREMOTE, WSAEREMOTE},
    {ENOMEM, WSA_NOT_ENOUGH_MEMORY},
};

// Every published Windows Sockets code, to keep an unmapped errno from being
// read as one of them.
constexpr int kWinsockCodes[] = {
    WSA_INVALID_HANDLE, WSA_NOT_ENOUGH_MEMORY, WSA_INVALID_PARAMETER,
    WSA_OPERATION_ABORTED, WSA_IO_INCOMPLETE, WSA_IO_PENDING,
    WSAEINTR, WSAEBADF, WSAEACCES, WSAEFAULT, WSAEINVAL, WSAEMFILE,
    WSAEWOULDBLOCK, WSAEINPROGRESS, WSAEALREADY, WSAENOTSOCK, WSAEDESTADDRREQ,
    WSAEMSGSIZE, WSAEPROTOTYPE, WSAENOPROTOOPT, WSAEPROTONOSUPPORT,
    WSAESOCKTNOSUPPORT, WSAEOPNOTSUPP, WSAEPFNOSUPPORT, WSAEAFNOSUPPORT,
    WSAEADDRINUSE, WSAEADDRNOTAVAIL, WSAENETDOWN, WSAENETUNREACH, WSAENETRESET,
    WSAECONNABORTED, WSAECONNRESET, WSAENOBUFS, WSAEISCONN, WSAENOTCONN,
    WSAESHUTDOWN, WSAETOOMANYREFS, WSAETIMEDOUT, WSAECONNREFUSED, WSAELOOP,
    WSAENAMETOOLONG, WSAEHOSTDOWN, WSAEHOSTUNREACH, WSAENOTEMPTY, WSAEPROCLIM,
    WSAEUSERS, WSAEDQUOT, WSAESTALE, WSAEREMOTE, WSASYSNOTREADY,
    WSAVERNOTSUPPORTED, WSANOTINITIALISED, WSAEDISCON, WSAENOMORE,
    WSAECANCELLED, WSAEINVALIDPROCTABLE, WSAEINVALIDPROVIDER,
    WSAEPROVIDERFAILEDINIT, WSASYSCALLFAILURE, WSASERVICE_NOT_FOUND,
    WSATYPE_NOT_FOUND, WSA_E_NO_MORE, WSA_E_CANCELLED, WSAEREFUSED,
    WSAHOST_NOT_FOUND, WSATRY_AGAIN, WSANO_RECOVERY, WSANO_DATA,
};

// The kernel never reports an errno above this (its MAX_ERRNO).
constexpr int kMaxSystemErrno = 4095;

// A code without an errno of its own whose number lies in the system's errno
// range (WSA_INVALID_HANDLE 6 is ENXIO, WSA_INVALID_PARAMETER 87 is EUSERS on
// Linux) travels in errno shifted out of that range.
constexpr int kCarriedCodeBase = 0x10000;

bool isWinsockCode(int value) {
  for (int code : kWinsockCodes) {
    if (code == value) return true;
  }
  return false;
}

const ErrnoCode* findByErrno(int err) {
  for (const ErrnoCode& e : kErrnoCodes) {
    if (e.err == err) return &e;
  }
  return nullptr;
}

const ErrnoCode* findByCode(int code) {
  for (const ErrnoCode& e : kErrnoCodes) {
    if (e.code == code) return &e;
  }
  return nullptr;
}

}  // namespace

int wsaErrorFromErrno(int err) {
  if (err == 0) return 0;
  if (const ErrnoCode* e = findByErrno(err)) return e->code;
  if (err > 0 && err <= kMaxSystemErrno) return isWinsockCode(err) ? -err : err;
  if (err > kCarriedCodeBase && err <= kCarriedCodeBase + kMaxSystemErrno) return err - kCarriedCodeBase;
  // Never produced by the system: a code WSASetLastError stored as it is.
  return err;
}

int WSAGetLastError() {
  return wsaErrorFromErrno(errno);
}

void WSASetLastError(int code) {
  if (code == 0) {
    errno = 0;
  } else if (const ErrnoCode* e = findByCode(code)) {
    errno = e->err;
  } else if (code > 0 && code <= kMaxSystemErrno) {
    errno = kCarriedCodeBase + code;
  } else {
    errno = code;
  }
}
