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

    for (int code : {0, 10072, 11005, -1})
        EXPECT_STREQ("Unknown error code", TALVEXSocketErrorText::lookup(code)) << code;
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
