// RtlGenRandom over the kernel's cryptographic random source.
#pragma once

#include "platform/wintypes.h"

// Fills `buffer` with `length` bytes from getrandom(2), which waits only until
// the kernel's pool is first seeded. TRUE on success; FALSE (errno set) when
// the source fails, and the buffer must not be used.
BOOL RtlGenRandom(void* buffer, DWORD length);
