// errno -> Windows Sockets code mapping and the per-thread last error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>
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
#define ERR(e, code) {e, code, #e}
const Expected kSocketErrnos[] = {
    ERR(EINTR, 10004), ERR(EBADF, 10009), ERR(EACCES, 10013), ERR(EFAULT, 10014), ERR(EINVAL, 10022),
    ERR(EMFILE, 10024), ERR(ENFILE, 10024), ERR(EAGAIN, 10035), ERR(EWOULDBLOCK, 10035), ERR(EINPROGRESS, 10036),
    ERR(EALREADY, 10037), ERR(ENOTSOCK, 10038), ERR(EDESTADDRREQ, 10039), ERR(EMSGSIZE, 10040), ERR(EPROTOTYPE, 10041),
    ERR(ENOPROTOOPT, 10042), ERR(EPROTONOSUPPORT, 10043), ERR(ESOCKTNOSUPPORT, 10044), ERR(EOPNOTSUPP, 10045), ERR(EPFNOSUPPORT, 10046),
    ERR(EAFNOSUPPORT, 10047), ERR(EADDRINUSE, 10048), ERR(EADDRNOTAVAIL, 10049), ERR(ENETDOWN, 10050), ERR(ENETUNREACH, 10051),
    ERR(ENETRESET, 10052), ERR(ECONNABORTED, 10053), ERR(ECONNRESET, 10054), ERR(ENOBUFS, 10055), ERR(EISCONN, 10056),
    ERR(ENOTCONN, 10057), ERR(ESHUTDOWN, 10058), ERR(EPIPE, 10058), ERR(ETOOMANYREFS, 10059), ERR(ETIMEDOUT, 10060),
    ERR(ECONNREFUSED, 10061), ERR(ELOOP, 10062), ERR(ENAMETOOLONG, 10063), ERR(EHOSTDOWN, 10064), ERR(EHOSTUNREACH, 10065),
    ERR(ENOTEMPTY, 10066), ERR(EUSERS, 10068), ERR(EDQUOT, 10069), ERR(ESTALE, 10070), ERR(EREMOTE, 10071),
    ERR(ENOMEM, 8), ERR(EPERM, 10013),
};
#undef ERR

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

// Constants the mapping above does not reach.
TEST(WsaErrorMapping, ZeroIsNoErrorAndOtherConstantsCarryThePublishedNumbers) {
  EXPECT_EQ(wsaErrorFromErrno(0), 0);
  const std::pair<int, int> constants[] = {
      {WSA_INVALID_HANDLE, 6},  {WSA_NOT_ENOUGH_MEMORY, 8}, {WSA_INVALID_PARAMETER, 87}, {WSA_IO_PENDING, 997},
      {WSAEPROCLIM, 10067},     {WSAVERNOTSUPPORTED, 10092}, {WSAEDISCON, 10101},         {WSASERVICE_NOT_FOUND, 10108},
      {WSA_E_CANCELLED, 10111}, {WSAEREFUSED, 10112},        {WSAHOST_NOT_FOUND, 11001},  {WSANO_DATA, 11004},
      {WSAEWOULDBLOCK, 10035},  {WSAECONNRESET, 10054},      {WSAESHUTDOWN, 10058},       {WSAECONNREFUSED, 10061},
      {WSAEINTR, 10004},        {WSAEREMOTE, 10071},
  };
  for (const auto& [constant, published] : constants) EXPECT_EQ(constant, published);
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

TEST(WsaLastError, ReadsErrnoSetsItBackAndIsKeptPerThread) {
  ASSERT_EQ(close(-1), -1);
  EXPECT_EQ(WSAGetLastError(), WSAEBADF);
  EXPECT_EQ(errno, EBADF) << "reading leaves errno alone";
  EXPECT_EQ(WSAGetLastError(), WSAEBADF);

  // updateLastErrorText and its tests inject codes this way, including codes
  // that no errno produces and codes outside the table.
  std::vector<int> codes = kPublishedCodes;
  for (int c : {0, 1, 5, 10000, 11005, -6, -1, 123456, 2147483647}) codes.push_back(c);
  for (int code : codes) {
    WSASetLastError(code);
    EXPECT_EQ(WSAGetLastError(), code) << code;
  }
  for (const auto& [code, err] : {std::pair<int, int>{WSAECONNREFUSED, ECONNREFUSED}, {WSAEWOULDBLOCK, EWOULDBLOCK},
                                  {WSAEINTR, EINTR}, {0, 0}}) {
    WSASetLastError(code);
    EXPECT_EQ(errno, err) << "the matching errno for " << code;
  }

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
