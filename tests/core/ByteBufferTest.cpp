#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "moxcore/MOXByteBuffer.h"

TEST(ByteBuffer, TrimOfALineHoldingOnlyItsEndingGivesZero) {
    for (const char* line : {"\r\n", "\n", "  \t\r\n", ""}) {
        MOXByteBuffer b(16, 16);
        b << line;
        EXPECT_EQ(0u, b.trim()) << "line: '" << line << "'";
        EXPECT_STREQ("", b.str());
    }
}

TEST(ByteBuffer, TrimStripsBothEndsAndKeepsInnerBlanks) {
    MOXByteBuffer b(4, 4);
    b << " \tHTTP/1.1 200  OK \r\n";
    EXPECT_EQ(std::strlen("HTTP/1.1 200  OK"), b.trim());
    EXPECT_STREQ("HTTP/1.1 200  OK", b.str());
}

TEST(ByteBuffer, ReserveThenDirectWriteThenSetLength) {
    MOXByteBuffer b(2, 2);
    b << "ab";
    b.reserve(b.pcount() + 1000);
    std::memset(b.str() + b.pcount(), 'x', 1000);
    b.setLength(b.pcount() + 1000);
    ASSERT_EQ(1002u, b.pcount());
    EXPECT_EQ('\0', b.str()[1002]) << "contents stay NUL-terminated after a direct write";
    EXPECT_EQ(std::string("ab") + std::string(1000, 'x'), std::string(b.str(), b.pcount()));
}

TEST(ByteBuffer, BinaryContentsAndGrowthByManySmallAppends) {
    MOXByteBuffer b(1, 1);
    std::string expected;
    for (int i = 0; i < 100000; ++i) {
        char c = static_cast<char>(i % 256);
        b << c;
        expected += c;
    }
    b.appendChars("\0\0", 2);
    expected.append("\0\0", 2);
    ASSERT_EQ(expected.size(), b.pcount());
    EXPECT_EQ(0, std::memcmp(expected.data(), b.str(), expected.size()));
}

TEST(ByteBuffer, ResetCopyAndAssignment) {
    MOXByteBuffer a(8, 8);
    a << "hello";
    MOXByteBuffer b(a);
    a.reset();
    EXPECT_EQ(0u, a.pcount());
    EXPECT_STREQ("", a.str());
    EXPECT_STREQ("hello", b.str());
    a = b;
    a << " world";
    EXPECT_STREQ("hello world", a.str());
    EXPECT_STREQ("hello", b.str());
    a = a;
    EXPECT_STREQ("hello world", a.str());
}
