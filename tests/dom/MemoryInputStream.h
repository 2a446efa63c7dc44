#ifndef TESTS_DOM_MEMORYINPUTSTREAM_H
#define TESTS_DOM_MEMORYINPUTSTREAM_H

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXInputStream.h"

// An in-memory stream that can trickle (at most maxPerRead bytes per read),
// fail at a given offset, and reports how it was read.
class MemoryInputStream : public PNXInputStream {
public:
    struct Failure : std::runtime_error {
        Failure() : std::runtime_error("stream failed") {}
    };

    explicit MemoryInputStream(std::string data, unsigned maxPerRead = 0xFFFFFFFFu)
        : m_data(std::move(data)), m_max_per_read(maxPerRead) {}

    void failAt(size_t offset) { m_fail_at = offset; }

    int read() override {
        char c;
        const unsigned n = read(&c, 1);
        return n == PNX_EOF ? -1 : static_cast<unsigned char>(c);
    }
    unsigned read(char* buf, unsigned n) override {
        ++m_reads;
        m_largest_request = std::max(m_largest_request, n);
        if (m_position >= m_fail_at) throw Failure();
        if (m_position == m_data.size()) return PNX_EOF;
        size_t count = std::min<size_t>({n, m_max_per_read, m_data.size() - m_position, m_fail_at - m_position});
        std::memcpy(buf, m_data.data() + m_position, count);
        m_position += count;
        return static_cast<unsigned>(count);
    }
    unsigned read(MOXByteBuffer& b, unsigned n) override {
        std::string chunk(n, '\0');
        const unsigned got = read(&chunk[0], n);
        if (got != PNX_EOF) b.appendChars(chunk.data(), got);
        return got;
    }

    unsigned reads() const { return m_reads; }
    unsigned largestRequest() const { return m_largest_request; }
    size_t position() const { return m_position; }

private:
    std::string m_data;
    unsigned m_max_per_read;
    size_t m_position = 0;
    size_t m_fail_at = static_cast<size_t>(-1);
    unsigned m_reads = 0;
    unsigned m_largest_request = 0;
};

#endif
