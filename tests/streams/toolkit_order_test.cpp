// The order in which the message reader uses the body streams: CR LF pushed
// back before the first body byte, bytes after a multipart body given back at
// its end, draining with 64-byte reads and reading the chunked trailer.

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "MemoryInputStream.h"
#include "StreamReading.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBlockInputStream.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXChunkedInputStream.h"

namespace {

const std::string kHead = "HTTP/1.1 200 OK\r\nX: y\r\n\r\n";
const std::string kBody = "--b\r\npart\r\n--b--\r\n" + std::string(1100, 'e');

enum class Framing { Chunked, Block, ToTheEnd };

std::string chunk(const std::string& data, size_t size) {
    std::string out;
    char head[32];
    for (size_t i = 0; i < data.size(); i += size) {
        const std::string piece = data.substr(i, size);
        snprintf(head, sizeof head, "%zx\r\n", piece.size());
        out += head + piece + "\r\n";
    }
    return out + "0\r\nTrailer: t\r\n\r\n";
}

// The head is read from the buffered stream first, as the HTTP parser does.
struct Message {
    Message(Framing f, unsigned piece)
        : framing(f),
          in(kHead + (f == Framing::Chunked ? chunk(kBody, 300) : kBody) + (f == Framing::Block ? "NEXT" : ""), piece),
          buffered(in, 1024) {
        MOXByteBuffer line;
        for (;;) {
            line.reset();
            EXPECT_NE(PNX_EOF, buffered.readline(line));
            if (line.trim() == 0) break;
        }
        if (f == Framing::Chunked) {
            chunked.reset(new PNXChunkedInputStream(buffered));
            body = chunked.get();
        } else if (f == Framing::Block) {
            block.reset(new PNXBlockInputStream(buffered));
            block->setBlockLength(static_cast<int>(kBody.size()));
            body = block.get();
        } else {
            body = &buffered;
        }
    }

    Framing framing;
    MemoryInputStream in;
    PNXBufferedInputStream buffered;
    std::unique_ptr<PNXChunkedInputStream> chunked;
    std::unique_ptr<PNXBlockInputStream> block;
    PNXInputStream* body = nullptr;
};

const char* framingName(Framing f) {
    return f == Framing::Chunked ? "chunked" : f == Framing::Block ? "block" : "to the end";
}

TEST(BodyStreamOrder, CrLfPushedBackBeforeTheBodyIsReadFirst) {
    for (Framing f : {Framing::Chunked, Framing::Block, Framing::ToTheEnd}) {
        for (unsigned piece : {0u, 1u, 25u}) {
            Message m(f, piece);
            ASSERT_EQ(1, m.body->canUnread());
            m.body->unread("\r\n", 2);
            const std::string all = readToEnd(*m.body, ReadWay::Chars, 64);
            EXPECT_EQ("\r\n" + kBody, all.substr(0, kBody.size() + 2)) << framingName(f) << " piece " << piece;
        }
    }
}

TEST(BodyStreamOrder, BytesGivenBackAfterAMultipartBodyAreReadAgain) {
    for (Framing f : {Framing::Chunked, Framing::Block, Framing::ToTheEnd}) {
        Message m(f, 0);
        m.body->unread("\r\n", 2);
        // A multipart reader takes up to its buffer's worth past the closing
        // delimiter and gives back what is not its own.
        std::string taken;
        while (taken.size() < kBody.size() + 2) {
            MOXByteBuffer b;
            ASSERT_NE(PNX_EOF, m.body->read(b, 1024));
            taken.append(b.str(), b.pcount());
        }
        const size_t end = 2 + kBody.find("--b--\r\n") + 7;
        m.body->unread(taken.data() + end, static_cast<unsigned>(taken.size() - end));
        EXPECT_EQ(std::string(1100, 'e'), readToEnd(*m.body, ReadWay::Buffer, 64)) << framingName(f);
        EXPECT_EQ(-1, m.body->read());
    }
}

TEST(BodyStreamOrder, DrainingThenReadingTheTrailerLeavesTheNextMessage) {
    for (unsigned piece : {0u, 1u, 3u}) {
        Message m(Framing::Chunked, piece);
        MOXByteBuffer scratch(64, 64);
        for (int calls = 0; m.body->read(scratch, 64) != PNX_EOF; ++calls) ASSERT_LT(calls, 100000);
        scratch.reset();
        ASSERT_EQ(std::string("Trailer: t\r\n").size(), m.buffered.readline(scratch));
        EXPECT_STREQ("Trailer: t\r\n", scratch.str());
        scratch.reset();
        ASSERT_EQ(2u, m.buffered.readline(scratch));
        EXPECT_EQ(0u, scratch.trim());
        scratch.reset();
        EXPECT_EQ(PNX_EOF, m.buffered.readline(scratch));
    }
    Message m(Framing::Block, 1);
    MOXByteBuffer scratch(64, 64);
    for (int calls = 0; m.body->read(scratch, 64) != PNX_EOF; ++calls) ASSERT_LT(calls, 100000);
    EXPECT_EQ(kBody, std::string(scratch.str(), scratch.pcount()));
    EXPECT_EQ("NEXT", readToEnd(m.buffered, ReadWay::Chars));
}

// Time limits and cancellation set through a body stream reach the connection;
// closing a body stream leaves the connection open.
TEST(BodyStreamOrder, TimeLimitsReachTheConnectionAndClosingLeavesItOpen) {
    for (Framing f : {Framing::Chunked, Framing::Block, Framing::ToTheEnd}) {
        SCOPED_TRACE(framingName(f));
        Message m(f, 0);
        EXPECT_EQ(1, m.body->canTimeout());
        EXPECT_EQ(1, m.body->setTimeout(30));
        EXPECT_EQ(30, m.in.getTimeout());
        EXPECT_EQ(30, m.body->getTimeout());
        m.body->setTimeout(0);
        EXPECT_EQ(1, m.body->canCancel());
        EXPECT_EQ(1, m.body->setCancel(1));
        EXPECT_EQ(1, m.in.getCancel());
        EXPECT_EQ(1, m.body->getCancel());
        m.body->cancel();
        EXPECT_EQ(1u, m.in.cancels);
        m.body->close();
        m.buffered.close();
        EXPECT_EQ(0u, m.in.closes);
    }
}

}  // namespace
