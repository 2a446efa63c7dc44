#include <gtest/gtest.h>

#include <string>

#include "platform/winsock.h"
#include "transport/TALVEXSocketErrorText.h"
#include "transport/TALVEXSocketNonSSL.h"

TEST(SocketErrorText, TableTextsAreExactAndEveryOtherCodeIsUnknown) {
    const struct {
        int code;
        const char* text;
    } known[] = {
        {10061, "Connection refused"},
        {10054, "Connection reset by peer"},
        {10035, "Operation would block"},
        {6, "Specified event object handle is invalid."},
        {11004, "No data record available"},
        // trailing blank kept
        {10108, "No such service is known. The service cannot be found in the specified name space. "},
    };
    for (const auto& k : known) EXPECT_EQ(std::string(k.text), TALVEXSocketErrorText::lookup(k.code)) << k.code;
    EXPECT_STREQ(TALVEXSocketErrorText::lookup(10102), TALVEXSocketErrorText::lookup(10110));
    EXPECT_EQ(std::string(TALVEXSocketErrorText::lookup(10103)) + " ", TALVEXSocketErrorText::lookup(10111));

    for (int code : {0, 1, 10000, 10072, 10090, 10113, 11000, 11005, -1})
        EXPECT_STREQ("Unknown error code", TALVEXSocketErrorText::lookup(code)) << code;
    const int table[] = {6,     8,     87,    995,   996,   997,   10004, 10009, 10013, 10014, 10022, 10024,
                         10035, 10036, 10037, 10038, 10039, 10040, 10041, 10042, 10043, 10044, 10045, 10046,
                         10047, 10048, 10049, 10050, 10051, 10052, 10053, 10054, 10055, 10056, 10057, 10058,
                         10059, 10060, 10061, 10062, 10063, 10064, 10065, 10066, 10067, 10068, 10069, 10070,
                         10071, 10091, 10092, 10093, 10101, 10102, 10103, 10104, 10105, 10106, 10107, 10108,
                         10109, 10110, 10111, 10112, 11001, 11002, 11003, 11004};
    EXPECT_EQ(68u, sizeof table / sizeof table[0]);
    for (int code : table) EXPECT_STRNE("Unknown error code", TALVEXSocketErrorText::lookup(code)) << code;
}

TEST(SocketErrorText, UpdateReadsTheThreadsLastErrorAndRepeats) {
    TALVEXSocketNonSSL socket(0);
    EXPECT_EQ("", socket.getLastErrorText().str());
    WSASetLastError(10061);
    socket.updateLastErrorText();
    EXPECT_EQ("Connection refused", socket.getLastErrorText().str());
    socket.updateLastErrorText();
    EXPECT_EQ("Connection refused", socket.getLastErrorText().str());
    WSASetLastError(11005);
    socket.updateLastErrorText();
    EXPECT_EQ("Unknown error code", socket.getLastErrorText().str());
}
