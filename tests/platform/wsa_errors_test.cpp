// errno -> Windows Sockets code mapping and the per-thread last error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <vector>

#include "platform/winsock.h"

namespace {

struct Expected {
  int err;
  int code;
  const char* name;
};

// The published Windows Sockets numbers, written out here rather than taken
// from the header so that a wrong constant is caught too.
const Expected kSocketErrnos[] = {
    {EINTR, 10004, "EINTR"},
    {EBADF, 10009, "EBADF"},
    {EACCES, 10013, "EACCES"},
    {EFAULT, 10014, "EFAULT"},
    {EINVAL, 10022, "EINVAL"},
    {EMFILE, 10024, "EMFILE"},
    {ENFILE, 10024, "ENFILE"},
    {EAGAIN, 10035, "EAGAIN"},
    {EWOULDBLOCK, 10035, "EWOULDBLOCK"},
    {EINPROGRESS, 10036, "EINPROGRESS"},
    {EALREADY, 10037, "EALREADY"},
    {ENOTSOCK, 10038, "ENOTSOCK"},
    {EDESTADDRREQ, 10039, "EDESTADDRREQ"},
    {EMSGSIZE, 10040, "EMSGSIZE"},
    {EPROTOTYPE, 10041, "EPROTOTYPE"},
    {ENOPROTOOPT, 10042, "ENOPROTOOPT"},
    {EPROTONOSUPPORT, 10043, "EPROTONOSUPPORT"},
    {ESOCKTNOSUPPORT, 10044, "ESOCKTNOSUPPORT"},
    {EOPNOTSUPP, 10045, "EOPNOTSUPP"},
    {EPFNOSUPPORT, 10046, "EPFNOSUPPORT"},
    {EAFNOSUPPORT, 10047, "EAFNOSUPPORT"},
    {EADDRINUSE, 10048, "EADDRINUSE"},
    {EADDRNOTAVAIL, 10049, "EADDRNOTAVAIL"},
    {ENETDOWN, 10050, "ENETDOWN"},
    {ENETUNREACH, 10051, "ENETUNREACH"},
    {ENETRESET, 10052, "ENETRESET"},
    {ECONNABORTED, 10053, "ECONNABORTED"},
    {ECONNRESET, 10054, "ECONNRESET"},
    {ENOBUFS, 10055, "ENOBUFS"},
    {EISCONN, 10056, "EISCONN"},
    {ENOTCONN, 10057, "ENOTCONN"},
    {ESHUTDOWN, 10058, "ESHUTDOWN"},
    {EPIPE, 10058, "EPIPE"},
    {ETOOMANYREFS, 10059, "ETOOMANYREFS"},
    {ETIMEDOUT, 10060, "ETIMEDOUT"},
    {ECONNREFUSED, 10061, "ECONNREFUSED"},
    {ELOOP, 10062, "ELOOP"},
    {ENAMETOOLONG, 10063, "ENAMETOOLONG"},
    {EHOSTDOWN, 10064, "EHOSTDOWN"},
    {EHOSTUNREACH, 10065, "EHOSTUNREACH"},
    {ENOTEMPTY, 10066, "ENOTEMPTY"},
    {EUSERS, 10068, "EUSERS"},
    {EDQUOT, 10069, "EDQUOT"},
    {ESTALE, 10070, "ESTALE"},
    {EREMOTE, 10071, "EREMOTE"},
    {ENOMEM, 8, "ENOMEM"},
    {EPERM, 10013, "EPERM"},
};

const std::vector<int> kPublishedCodes = [] {
  std::vector<int> codes = {6, 8, 87, 995, 996, 997};
  for (int c = 10004; c <= 10071; ++c) {
    if (c == 10004 || c == 10009 || c == 10013 || c == 10014 || c == 10022 || c == 10024 || c >= 10035) {
      codes.push_back(c);
    }
  }
  for (int c : {10091, 10092, 10093}) codes.push_back(c);
  for (int c = 10101; c <= 10112; ++c) codes.push_back(c);
  for (int c = 11001; c <= 11004; ++c) codes.push_back(c);
  return codes;
}();

bool isPublished(int code) {
  return std::find(kPublishedCodes.begin(), kPublishedCodes.end(), code) != kPublishedCodes.end();
}

const Expected* expectedFor(int err) {
  for (const Expected& e : kSocketErrnos) {
    if (e.err == err) return &e;
  }
  return nullptr;
}

TEST(WsaErrorMapping, EverySocketErrnoHasItsPublishedCode) {
  for (const Expected& e : kSocketErrnos) {
    EXPECT_EQ(wsaErrorFromErrno(e.err), e.code) << e.name;
  }
}

TEST(WsaErrorMapping, ZeroMeansNoError) {
  EXPECT_EQ(wsaErrorFromErrno(0), 0);
}

TEST(WsaErrorMapping, HeaderConstantsCarryThePublishedNumbers) {
  EXPECT_EQ(WSA_INVALID_HANDLE, 6);
  EXPECT_EQ(WSA_NOT_ENOUGH_MEMORY, 8);
  EXPECT_EQ(WSA_INVALID_PARAMETER, 87);
  EXPECT_EQ(WSA_IO_PENDING, 997);
  EXPECT_EQ(WSAEINTR, 10004);
  EXPECT_EQ(WSAEWOULDBLOCK, 10035);
  EXPECT_EQ(WSAECONNRESET, 10054);
  EXPECT_EQ(WSAESHUTDOWN, 10058);
  EXPECT_EQ(WSAECONNREFUSED, 10061);
  EXPECT_EQ(WSAEPROCLIM, 10067);
  EXPECT_EQ(WSAEREMOTE, 10071);
  EXPECT_EQ(WSAVERNOTSUPPORTED, 10092);
  EXPECT_EQ(WSAEDISCON, 10101);
  EXPECT_EQ(WSASERVICE_NOT_FOUND, 10108);
  EXPECT_EQ(WSA_E_CANCELLED, 10111);
  EXPECT_EQ(WSAEREFUSED, 10112);
  EXPECT_EQ(WSAHOST_NOT_FOUND, 11001);
  EXPECT_EQ(WSANO_DATA, 11004);
}

// An errno without a Winsock counterpart must not read as some other
// Winsock error in the toolkit's texts, nor as success.
TEST(WsaErrorMapping, UnmappedErrnoNeverPosesAsAWinsockCode) {
  for (int err = 1; err <= 4095; ++err) {
    if (expectedFor(err) != nullptr) continue;
    const int code = wsaErrorFromErrno(err);
    EXPECT_NE(code, 0) << "errno " << err;
    EXPECT_FALSE(isPublished(code)) << "errno " << err << " gave " << code;
  }
}

TEST(WsaErrorMapping, UnmappedErrnoStaysRecognisable) {
  EXPECT_EQ(wsaErrorFromErrno(EIO), EIO);
  EXPECT_EQ(wsaErrorFromErrno(ENOENT), ENOENT);
  EXPECT_EQ(wsaErrorFromErrno(ENXIO), -ENXIO);      // 6 would read as WSA_INVALID_HANDLE
  EXPECT_EQ(wsaErrorFromErrno(ENOEXEC), -ENOEXEC);  // 8 would read as WSA_NOT_ENOUGH_MEMORY
}

TEST(WsaLastError, ReportsErrnoOfTheFailedCallAndLeavesItAlone) {
  ASSERT_EQ(close(-1), -1);
  EXPECT_EQ(WSAGetLastError(), WSAEBADF);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(WSAGetLastError(), WSAEBADF);
}

// updateLastErrorText and its tests inject codes this way, including codes
// that no errno produces and codes outside the table.
TEST(WsaLastError, SetThenGetGivesBackEveryCode) {
  std::vector<int> codes = kPublishedCodes;
  for (int c : {0, 1, 5, 10000, 11005, -6, -1, 123456, 2147483647}) codes.push_back(c);
  for (int code : codes) {
    WSASetLastError(code);
    EXPECT_EQ(WSAGetLastError(), code) << code;
  }
}

TEST(WsaLastError, SetUsesTheMatchingErrnoWhereThereIsOne) {
  WSASetLastError(WSAECONNREFUSED);
  EXPECT_EQ(errno, ECONNREFUSED);
  WSASetLastError(WSAEWOULDBLOCK);
  EXPECT_EQ(errno, EWOULDBLOCK);
  WSASetLastError(WSAEINTR);
  EXPECT_EQ(errno, EINTR);
  WSASetLastError(0);
  EXPECT_EQ(errno, 0);
}

TEST(WsaLastError, IsKeptPerThread) {
  WSASetLastError(WSAECONNREFUSED);
  int other = -1;
  std::thread t([&other] {
    close(-1);
    other = WSAGetLastError();
  });
  t.join();
  EXPECT_EQ(other, WSAEBADF);
  EXPECT_EQ(WSAGetLastError(), WSAECONNREFUSED);
}

}  // namespace
