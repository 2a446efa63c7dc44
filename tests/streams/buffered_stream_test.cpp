// The buffered stream: when it reads its inner stream, how much it asks for,
// lines, unread and detaching.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MemoryInputStream.h"
#include "StreamReading.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "pnxstreams/PNXBufferedInputStream.h"

namespace {

std::string sample(size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += static_cast<char>((i * 7 + i / 251) & 0xFF);
    return s;
}

std::string readlineText(PNXBufferedInputStream& s, unsigned* result = nullptr) {
    MOXByteBuffer b(8, 8);
    b << "old:";
    const unsigned r = s.readline(b);
    if (result != nullptr) *result = r;
    return std::string(b.str() + 4, b.pcount() - 4);
}

TEST(BufferedStreamReads, BigReadWithEmptyBufferGoesStraightIntoTheCallersMemory) {
    // A buffered stream reads ahead at least 64 KiB whatever its size, so "big"
    // means at least that much.
    const unsigned big = 64u * 1024u;
    const std::string data = sample(3 * big);
    MemoryInputStream in(data);
    PNXBufferedInputStream s(in, 1024);
    std::vector<char> buf(2 * big);
    ASSERT_EQ(2 * big, s.read(buf.data(), 2 * big));
    EXPECT_EQ(buf.data(), in.lastTarget);
    EXPECT_EQ(data.substr(0, 2 * big), std::string(buf.data(), 2 * big));

    MOXByteBuffer b(16, 16);
    b << "xy";
    ASSERT_EQ(big, s.read(b, big));
    EXPECT_EQ(b.str() + 2, in.lastTarget);
    EXPECT_EQ("xy" + data.substr(2 * big, big), std::string(b.str(), b.pcount()));
}

TEST(BufferedStreamReads, SmallReadRefillsTheWholeBufferWithOneInnerRead) {
    const std::string data = sample(70000);
    MemoryInputStream in(data);
    PNXBufferedInputStream s(in, 1024);
    char buf[10];
    ASSERT_EQ(10u, s.read(buf, 10));
    EXPECT_EQ(1u, in.reads);
    EXPECT_EQ(64u * 1024u, in.largestRequest) << "small sizes still read ahead 64 KiB";
    // The rest of the buffer serves the following small reads.
    for (int i = 0; i < 100; ++i) ASSERT_EQ(10u, s.read(buf, 10));
    EXPECT_EQ(1u, in.reads);
    EXPECT_EQ(0u, in.byteReads);
    EXPECT_EQ(data, data.substr(0, 1010) + readToEnd(s, ReadWay::Chars, 100));
}

TEST(BufferedStreamReads, ReadGivesWhatArrivedWithoutWaitingForMore) {
    MemoryInputStream in("abcdef", 1);
    PNXBufferedInputStream s(in, 1024);
    char buf[100];
    EXPECT_EQ(1u, s.read(buf, 100));
    EXPECT_EQ(1u, in.reads);
    MOXByteBuffer b;
    EXPECT_EQ(1u, s.read(b, 100));
    EXPECT_EQ(2u, in.reads);
    EXPECT_EQ(1u, s.read(buf, 5000));
    EXPECT_EQ(3u, in.reads);
}

// Bytes already buffered are given without asking the inner stream.
TEST(BufferedStreamReads, BufferedBytesAreGivenWithoutAskingTheInnerStream) {
    MemoryInputStream in(std::string("\xFF\x80\x00" "defgh", 8));
    in.cutAt(3);
    PNXBufferedInputStream s(in, 1024);
    EXPECT_EQ(255, s.read()) << "bytes above 127 are not negative";
    char buf[100];
    ASSERT_EQ(2u, s.read(buf, 100));
    EXPECT_EQ(std::string("\x80\x00", 2), std::string(buf, 2));
    EXPECT_EQ(1u, in.reads);
}

TEST(BufferedStreamReads, EveryWayOfReadingGivesTheSameBytesForEveryPieceSize) {
    const std::string data = sample(700);
    for (unsigned piece : {0u, 1u, 2u, 3u, 63u, 64u, 65u, 500u}) {
        for (int size : {1, 2, 16, 64, 1024}) {
            for (ReadWay way : {ReadWay::Bytes, ReadWay::Chars, ReadWay::Buffer}) {
                for (unsigned n : {1u, 5u, 64u, 2000u}) {
                    MemoryInputStream in(data, piece);
                    PNXBufferedInputStream s(in, size);
                    ASSERT_EQ(data, readToEnd(s, way, n))
                        << "piece " << piece << " size " << size << " " << readWayName(way) << " n " << n;
                    if (way == ReadWay::Bytes) break;
                }
            }
        }
    }
}

TEST(BufferedStreamReads, TheEndIsAnsweredAgainAndAgain) {
    MemoryInputStream in("x");
    PNXBufferedInputStream s(in, 16);
    EXPECT_EQ('x', s.read());
    char buf[4];
    MOXByteBuffer b;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(-1, s.read());
        EXPECT_EQ(PNX_EOF, s.read(buf, 4));
        EXPECT_EQ(PNX_EOF, s.read(b, 4));
        EXPECT_EQ(0u, b.pcount());
    }
    EXPECT_EQ(0u, s.read(buf, 0));
}

TEST(BufferedStreamLines, LinesKeepTheirLineEndAndAreAppended) {
    MemoryInputStream in("first\r\nsecond\n\r\n\nlast");
    PNXBufferedInputStream s(in, 1024);
    unsigned r = 0;
    EXPECT_EQ("first\r\n", readlineText(s, &r));
    EXPECT_EQ(7u, r);
    EXPECT_EQ("second\n", readlineText(s, &r));
    EXPECT_EQ(7u, r);
    EXPECT_EQ("\r\n", readlineText(s));
    EXPECT_EQ("\n", readlineText(s));
    EXPECT_EQ("last", readlineText(s, &r));
    EXPECT_EQ(4u, r);
    // At the end readline answers the end and appends nothing, again and again.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("", readlineText(s, &r));
        EXPECT_EQ(PNX_EOF, r);
    }
    MemoryInputStream empty("");
    PNXBufferedInputStream e(empty, 1024);
    MOXByteBuffer b;
    EXPECT_EQ(PNX_EOF, e.readline(b));
}

TEST(BufferedStreamLines, LinesLongerThanTheBufferComeWhole) {
    const std::string longLine = std::string(5000, 'L') + "\r\n";
    for (unsigned piece : {0u, 1u, 7u}) {
        MemoryInputStream in(longLine + "short\n" + std::string(3000, 'T'), piece);
        PNXBufferedInputStream s(in, 8);
        EXPECT_EQ(longLine, readlineText(s));
        EXPECT_EQ("short\n", readlineText(s));
        EXPECT_EQ(std::string(3000, 'T'), readlineText(s));
        unsigned r = 0;
        readlineText(s, &r);
        EXPECT_EQ(PNX_EOF, r);
    }
}

// A bounded line stops at the bound, the rest stays; without read-ahead
// nothing beyond the bound leaves the inner stream.
TEST(BufferedStreamLines, ABoundedLineStopsAtItsBound) {
    const std::string longLine = std::string(5000, 'L') + "\r\n";
    for (int size : {0, 8}) {
        MemoryInputStream in(longLine, 7);
        PNXBufferedInputStream s(in, size);
        MOXByteBuffer b;
        EXPECT_EQ(0u, s.readline(b, 0));
        EXPECT_EQ(5001u, s.readline(b, 5001));
        EXPECT_EQ(std::string(5000, 'L') + "\r", std::string(b.str(), b.pcount()));
        if (size == 0) {
            EXPECT_EQ(5001u, in.position());
        }
        b.reset();
        EXPECT_EQ(1u, s.readline(b, 100));
        EXPECT_EQ(PNX_EOF, s.readline(b, 100));
        EXPECT_EQ("\n", std::string(b.str(), b.pcount()));
    }
}

TEST(BufferedStreamLines, LinesAndReadsMixForEverySplit) {
    const std::string data = "HTTP/1.1 200 OK\r\nA: b\r\n\r\nbody bytes\r\nmore";
    for (int size : {1, 3, 5, 1024}) {
        for (size_t cut = 0; cut <= data.size(); ++cut) {
            MemoryInputStream in(data);
            in.cutAt(cut);
            PNXBufferedInputStream s(in, size);
            EXPECT_EQ('H', s.read());
            EXPECT_EQ("TTP/1.1 200 OK\r\n", readlineText(s));
            EXPECT_EQ("A: b\r\n", readlineText(s));
            EXPECT_EQ("\r\n", readlineText(s));
            EXPECT_EQ("body bytes\r\nmore", readToEnd(s, ReadWay::Chars, 3)) << "size " << size << " cut " << cut;
        }
    }
}

TEST(BufferedStreamUnread, UnreadBytesComeFirstInTheOrderGiven) {
    MemoryInputStream in("0123456789");
    PNXBufferedInputStream s(in, 4);
    char buf[3];
    ASSERT_EQ(3u, s.read(buf, 3));
    s.unread("12", 2);  // fits before the read position
    s.unread("ab", 2);  // does not
    s.unread("", 0);
    EXPECT_EQ("ab12" "3456789", readToEnd(s, ReadWay::Chars, 2));

    MemoryInputStream lines("rest of line\nnext\n");
    PNXBufferedInputStream t(lines, 4);
    t.unread("start, ", 7);
    EXPECT_EQ("start, rest of line\n", readlineText(t)) << "readline sees unread bytes";
    EXPECT_EQ("next\n", readlineText(t));
}

// Repeated unreads go in front of each other; a large unread at the end is read again, then the end.
TEST(BufferedStreamUnread, RepeatedAndLargeUnreads) {
    MemoryInputStream in("tail");
    PNXBufferedInputStream s(in, 2);
    std::string expected = "tail";
    for (int i = 0; i < 300; ++i) {
        const char c = static_cast<char>('a' + i % 26);
        s.unread(&c, 1);
        expected = c + expected;
    }
    EXPECT_EQ(expected, readToEnd(s, ReadWay::Bytes));
    const std::string data = sample(3000);
    s.unread(data.data() + 1900, 1100);
    EXPECT_EQ(data.substr(1900), readToEnd(s, ReadWay::Buffer, 64));
    EXPECT_EQ(-1, s.read());
}

TEST(BufferedStreamUnread, StreamWithoutBufferOrInnerGivesOnlyUnreadBytes) {
    PNXBufferedInputStream s(0);
    char buf[8];
    EXPECT_EQ(-1, s.read());
    EXPECT_EQ(PNX_EOF, s.read(buf, 8));
    MOXByteBuffer b;
    EXPECT_EQ(PNX_EOF, s.readline(b));
    EXPECT_EQ(1, s.canUnread());
    s.unread("line\nx", 6);
    EXPECT_EQ("line\n", readlineText(s));
    EXPECT_EQ('x', s.read());
    EXPECT_EQ(PNX_EOF, s.read(buf, 8));
}

TEST(BufferedStreamUnread, SizeZeroOverAnInnerStreamNeverReadsAhead) {
    MemoryInputStream in("line one\nline two\n");
    PNXBufferedInputStream s(in, 0);
    EXPECT_EQ("line one\n", readlineText(s));
    EXPECT_EQ("line two\n", in.rest());
    char buf[4];
    ASSERT_EQ(4u, s.read(buf, 4));
    EXPECT_EQ(buf, in.lastTarget);
    EXPECT_EQ(" two\n", in.rest());
}

TEST(BufferedStreamWrapping, UnWrapGivesBufferedBytesBackToTheInnerStream) {
    MemoryInputStream in("0123456789");
    in.allowUnread();
    PNXBufferedInputStream s(in, 1024);
    EXPECT_EQ('0', s.read());
    EXPECT_EQ("", in.rest());
    s.unWrap();
    EXPECT_EQ("123456789", in.rest());
    EXPECT_EQ(-1, s.read());

    // An inner stream that cannot take them back loses them.
    MemoryInputStream plain("0123456789");
    PNXBufferedInputStream t(plain, 1024);
    EXPECT_EQ('0', t.read());
    t.unWrap();
    EXPECT_EQ(-1, t.read());
    EXPECT_EQ("", plain.rest());
}

TEST(BufferedStreamWrapping, WrapDropsBufferedBytesAndReadsTheNewStream) {
    MemoryInputStream first("aaaa");
    MemoryInputStream second("bbbb");
    PNXBufferedInputStream s(first, 1024);
    EXPECT_EQ('a', s.read());
    s.wrap(second);
    EXPECT_EQ("bbbb", readToEnd(s, ReadWay::Chars));
    PNXBufferedInputStream late(16);
    late.wrap(first);
    EXPECT_EQ(-1, late.read());
}

TEST(BufferedStreamConstruction, NegativeSizeIsRefused) {
    MemoryInputStream in("");
    EXPECT_THROW(PNXBufferedInputStream(in, -1), MOXIllegalArgumentError);
}

}  // namespace
