#ifndef TALVEX_TESTS_MEMORYINPUTSTREAM_H
#define TALVEX_TESTS_MEMORYINPUTSTREAM_H

// Test data as a stream: delivers its bytes in pieces of at most `piece` bytes
// per read (1 exercises every split), then the end.

#include <algorithm>
#include <cstring>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXInputStream.h"

class MemoryInputStream : public PNXInputStream {
public:
    explicit MemoryInputStream(std::string data, unsigned piece = 0xFFFFFFFFu)
        : m_data(std::move(data)), m_piece(piece == 0 ? 1 : piece) {}

    int read() override {
        if (m_pos >= m_data.size()) return -1;
        return static_cast<unsigned char>(m_data[m_pos++]);
    }
    unsigned read(char* buf, unsigned n) override {
        if (n == 0) return 0;
        if (m_pos >= m_data.size()) return PNX_EOF;
        unsigned k = static_cast<unsigned>(std::min<size_t>({n, m_piece, m_data.size() - m_pos}));
        std::memcpy(buf, m_data.data() + m_pos, k);
        m_pos += k;
        return k;
    }
    unsigned read(MOXByteBuffer& b, unsigned n) override {
        if (n == 0) return 0;
        if (m_pos >= m_data.size()) return PNX_EOF;
        unsigned k = static_cast<unsigned>(std::min<size_t>({n, m_piece, m_data.size() - m_pos}));
        b.appendChars(m_data.data() + m_pos, k);
        m_pos += k;
        return k;
    }
    // More data arriving later, as the next response does after the next request.
    void append(const std::string& more) { m_data += more; }
    size_t consumed() const { return m_pos; }
    std::string rest() const { return m_data.substr(m_pos); }

private:
    std::string m_data;
    size_t m_pos = 0;
    size_t m_piece;
};

#endif
