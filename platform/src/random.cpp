// RtlGenRandom over getrandom(2).
#include "platform/random.h"

#include <sys/random.h>

#include <cerrno>

BOOL RtlGenRandom(void* buffer, DWORD length) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (length > 0) {
    // Large requests may come back short, and a signal may interrupt the wait
    // for the first seeding: go on with the rest.
    const ssize_t n = getrandom(out, length, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return FALSE;
    }
    out += n;
    length -= static_cast<DWORD>(n);
  }
  return TRUE;
}
