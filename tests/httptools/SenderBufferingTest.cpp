#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "RecordingOutputStream.h"
#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"

namespace {

// Splits a chunked body (after the head) into its chunk sizes and data; fails
// the test on any framing fault.
std::string dechunk(const std::string& message, std::vector<std::size_t>& sizes) {
    std::size_t pos = message.find("\r\n\r\n");
    EXPECT_NE(std::string::npos, pos);
    pos += 4;
    std::string data;
    for (;;) {
        std::size_t eol = message.find("\r\n", pos);
        if (eol == std::string::npos) {
            ADD_FAILURE() << "chunk size line without CR LF";
            return data;
        }
        std::size_t size = std::strtoul(message.substr(pos, eol - pos).c_str(), nullptr, 16);
        pos = eol + 2;
        if (size == 0) break;
        sizes.push_back(size);
        data += message.substr(pos, size);
        pos += size;
        if (message.compare(pos, 2, "\r\n") != 0) {
            ADD_FAILURE() << "chunk data not followed by CR LF";
            return data;
        }
        pos += 2;
    }
    EXPECT_EQ("\r\n", message.substr(pos)) << "an empty trailer must end the message";
    return data;
}

std::string pattern(std::size_t length) {
    std::string text(length, '\0');
    std::uint32_t state = 7;
    for (char& c : text) {
        state = state * 1103515245u + 12345u;
        c = static_cast<char>(state >> 24);
    }
    return text;
}

OnePieceHttpMsg* request(RecordingOutputStream& out, int chunkSize) {
    OnePieceHttpMsg* sender = new OnePieceHttpMsg(out, chunkSize);
    sender->startRequest("/", 0);
    sender->setAuthority("h");
    return sender;
}

TEST(SenderBuffering, TenThousandSingleBytesAreCoalesced) {
    const std::string data = pattern(10000);
    for (int chunk : {4000, 0}) {
        RecordingOutputStream out;
        std::unique_ptr<OnePieceHttpMsg> sender(request(out, chunk));
        for (char c : data) sender->body.write(&c, 1);
        sender->finish();
        if (chunk == 0) {
            ASSERT_EQ(1u, out.writeCount());
            EXPECT_EQ("Content-Length: 10000\r\n\r\n" + data, out.all().substr(out.all().find("Content-Length")));
            continue;
        }
        EXPECT_LE(out.writeCount(), 2u);
        std::vector<std::size_t> sizes;
        EXPECT_EQ(data, dechunk(out.all(), sizes));
        EXPECT_EQ((std::vector<std::size_t>{4000, 4000, 2000}), sizes);
    }
}

TEST(SenderBuffering, SmallChunksOfAMegabyteStillLeaveInBufferSizedWrites) {
    RecordingOutputStream out;
    std::unique_ptr<OnePieceHttpMsg> sender(request(out, 4000));
    const std::string data = pattern(1 << 20);
    sender->body.write(data.data(), static_cast<unsigned>(data.size()));
    sender->finish();
    EXPECT_LE(out.writeCount(), (data.size() / 16000) + 2);
    for (const auto& call : out.calls()) EXPECT_LE(call.bytes.size(), 16384u);
    std::vector<std::size_t> sizes;
    EXPECT_EQ(data, dechunk(out.all(), sizes));
    for (std::size_t i = 0; i + 1 < sizes.size(); ++i) ASSERT_EQ(4000u, sizes[i]) << "chunk " << i;
}

// Chunks of at least the buffer's size go straight from the caller's memory;
// with a length, a megabyte is one write.
TEST(SenderBuffering, LargeWritesAreNotCopied) {
    const std::string data = pattern(1 << 20);
    for (int chunk : {1 << 20, 65536, 0}) {
        SCOPED_TRACE(chunk);
        RecordingOutputStream out;
        std::unique_ptr<OnePieceHttpMsg> sender(request(out, chunk));
        sender->body.write(data.data(), static_cast<unsigned>(data.size()));
        sender->finish();
        if (chunk == 0) {
            ASSERT_EQ(1u, out.writeCount());
            EXPECT_EQ(0, out.all().compare(out.all().size() - data.size(), data.size(), data));
            continue;
        }
        std::size_t passed = 0;
        for (const auto& call : out.calls()) {
            if (call.data >= data.data() && call.data < data.data() + data.size()) passed += call.bytes.size();
        }
        EXPECT_EQ(data.size(), passed) << "bytes were copied";
        std::vector<std::size_t> sizes;
        EXPECT_EQ(data, dechunk(out.all(), sizes));
        EXPECT_EQ(data.size() / chunk, sizes.size());
        // Head and chunk header, the data itself, then CR LF and the next chunk header or the last chunk.
        EXPECT_LE(out.writeCount(), 2u * sizes.size() + 1);
    }
}

TEST(SenderBuffering, HeadLargerThanTheBuffer) {
    RecordingOutputStream out;
    std::unique_ptr<OnePieceHttpMsg> sender(request(out, 100));
    const std::string value(40000, 'v');
    sender->setHeader("X-Big", value.c_str());
    sender->body.write("abc", 3);
    sender->finish();
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: h\r\nX-Big: " + value + "\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n",
              out.all());
    EXPECT_LE(out.writeCount(), 4u);
}

TEST(SenderBuffering, MultipartSingleBytesAreCoalescedToo) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 4000, "b");
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    for (int p = 0; p < 3; ++p) {
        OnePieceHttpMsg* part = sender.addOnePiece(0);
        part->setHeader("Content-ID", std::to_string(p).c_str());
        for (int i = 0; i < 3000; ++i) part->body.write("x", 1);
        sender.endPart(part);
    }
    sender.finish();
    EXPECT_LE(out.writeCount(), 2u);
}

// Whatever the write sizes and the chunk size, the bytes arrive unchanged in
// chunks no larger than asked for.
TEST(SenderBuffering, MixedWriteSizesKeepTheBytesAndTheChunkLimit) {
    std::uint32_t state = 99;
    auto next = [&state](std::uint32_t bound) {
        state = state * 1103515245u + 12345u;
        return (state >> 8) % bound;
    };
    const int chunkSizes[] = {1, 2, 15, 16, 4000, 16376, 16377, 16384, 40000, 1 << 20};
    for (int chunkSize : chunkSizes) {
        RecordingOutputStream out;
        std::unique_ptr<OnePieceHttpMsg> sender(request(out, chunkSize));
        const std::string data = pattern(300000);
        std::size_t pos = 0;
        while (pos < data.size()) {
            std::size_t n = next(4) == 0 ? next(70000) : next(40);
            if (n > data.size() - pos) n = data.size() - pos;
            sender->body.write(data.data() + pos, static_cast<unsigned>(n));
            pos += n;
        }
        sender->finish();
        std::vector<std::size_t> sizes;
        ASSERT_EQ(data, dechunk(out.all(), sizes)) << "chunk size " << chunkSize;
        for (std::size_t size : sizes) ASSERT_LE(size, static_cast<std::size_t>(chunkSize));
        EXPECT_LT(out.writeCount(), 300000u / 1000) << "chunk size " << chunkSize;
    }
}

}  // namespace
