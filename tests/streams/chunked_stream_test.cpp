// The chunked stream: decoding, what it leaves in the buffered stream, and how
// it refuses broken codings.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MemoryInputStream.h"
#include "StreamReading.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXChunkedInputStream.h"
#include "pnxstreams/PNXIOException.h"
#include "pnxstreams/PNXIOTimeoutException.h"

namespace {

struct Coding {
    const char* name;
    std::string wire;
    std::string body;
    std::string after;  // what the buffered stream still holds at the end
};

std::vector<Coding> validCodings() {
    return {
        {"one chunk", "5\r\nhello\r\n0\r\n\r\n", "hello", "\r\n"},
        {"several chunks", "5\r\nhello\r\n1\r\n \r\n6\r\nworld!\r\n0\r\n\r\n", "hello world!", "\r\n"},
        {"upper and lower hex", "A\r\n0123456789\r\nb\r\nabcdefghijk\r\n0\r\n\r\n", "0123456789abcdefghijk", "\r\n"},
        {"leading zeros", "0005\r\nhello\r\n000\r\n\r\n", "hello", "\r\n"},
        {"extensions", "5;name=value\r\nhello\r\n3 ; a=\"b;c\"\r\nabc\r\n0;last\r\n\r\n", "helloabc", "\r\n"},
        {"blanks before line end", "5 \t\r\nhello\r\n0  \r\n\r\n", "hello", "\r\n"},
        {"bare LF size lines", "5\nhello\r\n0\n\n", "hello", "\n"},
        {"empty body", "0\r\n\r\n", "", "\r\n"},
        {"trailers", "4\r\nbody\r\n0\r\nX-Check: 1\r\nX-More: 2\r\n\r\nNEXT", "body", "X-Check: 1\r\nX-More: 2\r\n\r\nNEXT"},
        {"binary data with CR LF inside", std::string("6\r\n\r\n\0\xFF\r\n\r\n0\r\n\r\n", 16), std::string("\r\n\0\xFF\r\n", 6),
         "\r\n"},
        {"big chunk", "1F4\r\n" + std::string(500, 'x') + "\r\n0\r\n\r\n", std::string(500, 'x'), "\r\n"},
    };
}

std::string decode(ReadWay way, unsigned n, MemoryInputStream& in, int size = 1024, std::string* after = nullptr) {
    PNXBufferedInputStream buffered(in, size);
    PNXChunkedInputStream chunked(buffered);
    const std::string body = readToEnd(chunked, way, n);
    if (after != nullptr) *after = readToEnd(buffered, ReadWay::Chars, 100);
    return body;
}

// The text of the PNXIOException that decoding raises, "" when none.
std::string decodeError(const std::string& wire, unsigned piece, ReadWay way = ReadWay::Chars) {
    MemoryInputStream in(wire, piece);
    PNXBufferedInputStream buffered(in, 1024);
    PNXChunkedInputStream chunked(buffered);
    try {
        readToEnd(chunked, way, 64);
    } catch (PNXIOException& e) {
        const std::string text = e.getText() != nullptr ? e.getText() : "";
        // Decoding stays refused afterwards instead of going on with garbage.
        try {
            readToEnd(chunked, way, 64);
            return text + " (but the next read went on)";
        } catch (PNXIOException& again) {
            if (text != again.getText()) return text + " (then: " + again.getText() + ")";
        }
        return text;
    }
    return "";
}

// Every coding decodes the same for every way of reading, one byte per read,
// every single split and small buffers, and leaves the trailer in the buffered stream.
TEST(ChunkedStreamDecoding, ValidCodingsDecodeTheSameForEverySplit) {
    for (const Coding& c : validCodings()) {
        for (ReadWay way : {ReadWay::Bytes, ReadWay::Chars, ReadWay::Buffer}) {
            SCOPED_TRACE(std::string(c.name) + " " + readWayName(way));
            std::string after;
            MemoryInputStream whole(c.wire);
            EXPECT_EQ(c.body, decode(way, 64, whole, 1024, &after));
            EXPECT_EQ(c.after, after);
            MemoryInputStream oneByte(c.wire, 1);
            EXPECT_EQ(c.body, decode(way, 3, oneByte, 1024, &after)) << "one byte per read";
            EXPECT_EQ(c.after, after);
            for (size_t cut = 0; cut <= c.wire.size(); ++cut) {
                MemoryInputStream in(c.wire);
                in.cutAt(cut);
                EXPECT_EQ(c.body, decode(way, 5, in, 1024, &after)) << "cut at " << cut;
                EXPECT_EQ(c.after, after) << "cut at " << cut;
            }
        }
        for (int size : {1, 2, 3, 7}) {
            MemoryInputStream in(c.wire);
            std::string after;
            EXPECT_EQ(c.body, decode(ReadWay::Buffer, 4, in, size, &after)) << c.name << " size " << size;
            EXPECT_EQ(c.after, after) << c.name << " size " << size;
        }
    }
}

// A read stops at the end of its chunk, and its last byte is given without
// waiting for the next head (a read that asks for it would wait on a connection).
TEST(ChunkedStreamDecoding, AReadStopsAtTheEndOfItsChunkAndTheEndRepeats) {
    MemoryInputStream in("3\r\nabc\r\n4\r\ndefg\r\n0\r\n\r\n");
    in.timeOutAt(6);
    PNXBufferedInputStream buffered(in, 1024);
    PNXChunkedInputStream chunked(buffered);
    char buf[100];
    ASSERT_EQ(3u, chunked.read(buf, 100));
    EXPECT_EQ("abc", std::string(buf, 3));
    MOXByteBuffer b;
    EXPECT_THROW(chunked.read(b, 100), PNXIOTimeoutException);
    ASSERT_EQ(4u, chunked.read(b, 100));
    EXPECT_EQ("defg", std::string(b.str(), 4));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(-1, chunked.read());
        EXPECT_EQ(PNX_EOF, chunked.read(buf, 4));
        EXPECT_EQ(PNX_EOF, chunked.read(b, 4));
    }
    EXPECT_EQ(0u, chunked.read(buf, 0));
    EXPECT_EQ("\r\n", readToEnd(buffered, ReadWay::Chars));
}

TEST(ChunkedStreamDecoding, ATimeOutAnywhereCanBeFollowedByTheSameRead) {
    const std::string wire = "5;ext\r\nhello\r\n1A\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n";
    const std::string body = "helloabcdefghijklmnopqrstuvwxyz";
    // The empty line that ends the trailer is the reader's to take, not the
    // chunked stream's: a time-out there is never met.
    for (size_t at = 0; at < wire.size() - 2; ++at) {
        MemoryInputStream in(wire, 1);
        in.timeOutAt(at);
        PNXBufferedInputStream buffered(in, 1024);
        PNXChunkedInputStream chunked(buffered);
        std::string out;
        int timeouts = 0;
        for (int calls = 0; calls < 1000; ++calls) {
            try {
                const int c = chunked.read();
                if (c < 0) break;
                out += static_cast<char>(c);
            } catch (PNXIOTimeoutException&) {
                ++timeouts;
            }
        }
        EXPECT_EQ(body, out) << "time-out at " << at;
        EXPECT_EQ(1, timeouts) << "time-out at " << at;
    }
}

TEST(ChunkedStreamErrors, MalformedAndTruncatedCodingsAreRefusedWithAClearText) {
    const std::string longExtension = "5;" + std::string(5000, 'e') + "\r\nhello\r\n0\r\n\r\n";
    const struct {
        std::string wire;
        std::string text;
    } cases[] = {
        {"", "chunked body ended inside a chunk size line"},
        {"5", "chunked body ended inside a chunk size line"},
        {"5;ext", "chunked body ended inside a chunk size line"},
        {"5\r\nhello\r\n", "chunked body ended inside a chunk size line"},
        {"\r\nhello\r\n0\r\n\r\n", "empty chunk size line"},
        {"  \n", "empty chunk size line"},
        {"zz\r\n", "chunk size line \"z\" does not start with a hexadecimal size"},
        {";x\r\n", "chunk size line \";\" does not start with a hexadecimal size"},
        {"-5\r\nhello", "chunk size line \"-\" does not start with a hexadecimal size"},
        {"5x\r\nhello\r\n", "chunk size line \"5x\" holds more than a hexadecimal size"},
        {"5 5\r\nhello\r\n", "chunk size line \"5 5\" holds more than a hexadecimal size"},
        {"0x5\r\nhello\r\n", "chunk size line \"0x\" holds more than a hexadecimal size"},
        {"5\rhello", "chunk size line \"5\" has a CR without LF"},
        {"80000000\r\n", "chunk size in \"80000000\" exceeds 0x7FFFFFFF"},
        {"FFFFFFFFFFFFFFFF1\r\n", "chunk size in \"FFFFFFFF\" exceeds 0x7FFFFFFF"},
        {"7FFFFFFF\r\nabc", "chunked body ended after 3 of 2147483647 bytes of a chunk"},
        {"5\r\nhel", "chunked body ended after 3 of 5 bytes of a chunk"},
        {"5\r\n", "chunked body ended after 0 of 5 bytes of a chunk"},
        {"5\r\nhello", "chunked body ended after a chunk's data, before its CR LF"},
        {"5\r\nhello\r", "chunked body ended after a chunk's data, before its CR LF"},
        {"5\r\nhelloX\r\n0\r\n\r\n", "chunk data of 5 bytes is not followed by CR LF"},
        {"5\r\nhello5\r\nworld\r\n0\r\n\r\n", "chunk data of 5 bytes is not followed by CR LF"},
        {"5\r\nhello\n0\r\n\r\n", "chunk data of 5 bytes is not followed by CR LF"},
        {"5\r\nhello\r\r\n0\r\n\r\n", "chunk data of 5 bytes is not followed by CR LF"},
        {longExtension, "chunk size line longer than 4096 bytes"},
        {std::string(5000, '0') + "5\r\nhello\r\n0\r\n\r\n", "chunk size line longer than 4096 bytes"},
    };
    for (const auto& c : cases) {
        for (unsigned piece : {0u, 1u}) {
            for (ReadWay way : {ReadWay::Bytes, ReadWay::Chars, ReadWay::Buffer}) {
                const std::string text = decodeError(c.wire, piece, way);
                EXPECT_EQ(0u, text.find(c.text)) << "input \"" << c.wire.substr(0, 40) << "\" piece " << piece << " "
                                                 << readWayName(way) << ": got \"" << text << "\"";
                EXPECT_EQ(std::string::npos, text.find("(")) << text;
            }
        }
    }
}

TEST(ChunkedStreamErrors, UnprintableBytesAreShownAsQuestionMarksAndTheTraceNamesTheOperation) {
    EXPECT_EQ("chunk size line \"?\" does not start with a hexadecimal size", decodeError("\x01g\r\n", 0));
    EXPECT_EQ("chunk size line \"5?\" holds more than a hexadecimal size", decodeError("5\xFF\r\n", 0));
    MemoryInputStream in("5\r\nab");
    PNXBufferedInputStream buffered(in, 1024);
    PNXChunkedInputStream chunked(buffered);
    char buf[10];
    ASSERT_EQ(2u, chunked.read(buf, 10));
    try {
        chunked.read(buf, 10);
        FAIL() << "no error";
    } catch (PNXIOException& e) {
        ASSERT_FALSE(e.getBackTrace().empty());
        EXPECT_EQ("PNXChunkedInputStream", e.getBackTrace().back().unit);
        EXPECT_EQ("PNXChunkedInputStream::read", e.getBackTrace().back().function);
        EXPECT_EQ("MOX_THROW", e.getBackTrace().back().kind);
    }
}

TEST(ChunkedStreamUnread, UnreadBytesComeBeforeTheDecodedData) {
    MemoryInputStream in("4\r\nbody\r\n0\r\n\r\n");
    PNXBufferedInputStream buffered(in, 1024);
    PNXChunkedInputStream chunked(buffered);
    EXPECT_EQ(1, chunked.canUnread());
    EXPECT_EQ('b', chunked.read());
    chunked.unread("b", 1);
    chunked.unread("<", 1);
    EXPECT_EQ("<body", readToEnd(chunked, ReadWay::Chars));
    chunked.unread("again", 5);
    EXPECT_EQ("again", readToEnd(chunked, ReadWay::Buffer));
    EXPECT_EQ(-1, chunked.read());
}

}  // namespace
