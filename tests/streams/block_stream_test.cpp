// The block stream: a body of known length over the buffered stream.

#include <gtest/gtest.h>

#include <string>

#include "MemoryInputStream.h"
#include "StreamReading.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBlockInputStream.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXIOException.h"

namespace {

TEST(BlockStream, DeliversExactlyTheLengthAndLeavesTheRestInTheBufferedStream) {
    const std::string data = "hello world|next message";
    for (unsigned piece : {0u, 1u, 4u}) {
        for (ReadWay way : {ReadWay::Bytes, ReadWay::Chars, ReadWay::Buffer}) {
            MemoryInputStream in(data, piece);
            PNXBufferedInputStream buffered(in, 1024);
            PNXBlockInputStream block(buffered);
            block.setBlockLength(11);
            EXPECT_EQ("hello world", readToEnd(block, way, 5)) << piece << " " << readWayName(way);
            EXPECT_EQ(-1, block.read());
            EXPECT_EQ("|next message", readToEnd(buffered, ReadWay::Chars));
        }
    }
}

TEST(BlockStream, AReadIsLimitedToTheRestOfTheBodyAndANewLengthCountsAfresh) {
    MemoryInputStream in("abcdefghij");
    PNXBufferedInputStream buffered(in, 1024);
    PNXBlockInputStream block(buffered);
    block.setBlockLength(5);
    char buf[100];
    ASSERT_EQ(3u, block.read(buf, 3));
    MOXByteBuffer b;
    ASSERT_EQ(2u, block.read(b, 100));
    EXPECT_EQ("de", std::string(b.str(), b.pcount()));
    EXPECT_EQ(PNX_EOF, block.read(buf, 100));
    EXPECT_EQ(PNX_EOF, block.read(b, 100));
    block.setBlockLength(3);
    EXPECT_EQ("fgh", readToEnd(block, ReadWay::Buffer));
}

TEST(BlockStream, InnerStreamEndingEarlyIsAnErrorEveryTime) {
    for (ReadWay way : {ReadWay::Bytes, ReadWay::Chars, ReadWay::Buffer}) {
        MemoryInputStream in("hello");
        PNXBufferedInputStream buffered(in, 1024);
        PNXBlockInputStream block(buffered);
        block.setBlockLength(11);
        for (int attempt = 0; attempt < 2; ++attempt) {
            try {
                readToEnd(block, way);
                ADD_FAILURE() << "no error with " << readWayName(way);
            } catch (PNXIOException& e) {
                EXPECT_STREQ("body ended after 5 of 11 bytes", e.getText());
                EXPECT_EQ("PNXBlockInputStream::read", e.getBackTrace().back().function);
            }
        }
    }
}

TEST(BlockStream, LengthZeroOrBelowIsAnEmptyBodyThatReadsNothing) {
    for (int length : {0, -1, -100}) {
        MemoryInputStream in("data");
        PNXBufferedInputStream buffered(in, 1024);
        PNXBlockInputStream block(buffered);
        block.setBlockLength(length);
        EXPECT_EQ("", readToEnd(block, ReadWay::Chars));
        EXPECT_EQ(0u, in.reads + in.byteReads);
    }
    MemoryInputStream in("data");
    PNXBufferedInputStream buffered(in, 1024);
    PNXBlockInputStream unset(buffered);
    EXPECT_EQ(-1, unset.read());
}

TEST(BlockStream, UnreadBytesComeAgainAndDoNotCountAgainstTheLength) {
    MemoryInputStream in("0123456789tail");
    PNXBufferedInputStream buffered(in, 1024);
    PNXBlockInputStream block(buffered);
    block.setBlockLength(10);
    EXPECT_EQ(1, block.canUnread());
    char buf[4];
    ASSERT_EQ(4u, block.read(buf, 4));
    block.unread(buf, 4);
    block.unread("++", 2);
    EXPECT_EQ("++0123456789", readToEnd(block, ReadWay::Chars, 3));
    EXPECT_EQ("tail", readToEnd(buffered, ReadWay::Chars));
}

}  // namespace
