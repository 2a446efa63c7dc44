// Basic Windows integer types shared by the Winsock and dynamic-loading
// stand-ins, so toolkit code keeps its Windows spelling on POSIX systems.
#pragma once

#include <cstdint>

typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef int BOOL;

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

#define MAKEWORD(lo, hi) \
  static_cast<WORD>(static_cast<BYTE>(lo) | (static_cast<WORD>(static_cast<BYTE>(hi)) << 8))
#define LOBYTE(w) static_cast<BYTE>(static_cast<WORD>(w) & 0xFF)
#define HIBYTE(w) static_cast<BYTE>((static_cast<WORD>(w) >> 8) & 0xFF)
