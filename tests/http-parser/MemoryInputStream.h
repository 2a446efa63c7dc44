#ifndef TALVEX_TESTS_MEMORYINPUTSTREAM_H
#define TALVEX_TESTS_MEMORYINPUTSTREAM_H

#include <string>
#include <vector>

#include "pnxstreams/PNXInputStream.h"

// An in-memory byte source whose counted reads are cut to a chosen pattern, so
// that a head can be delivered split at any offset or one byte per read.
class MemoryInputStream : public PNXInputStream {
public:
    // pieces: the most each successive counted read delivers; once they are
    // used up, every further read delivers at most `rest` bytes (0: no limit).
    explicit MemoryInputStream(std::string data, std::vector<unsigned> pieces = {}, unsigned rest = 0);

    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;

    // Bytes handed out so far.
    size_t position() const { return m_pos; }

private:
    unsigned nextLimit(unsigned n);

    std::string m_data;
    std::vector<unsigned> m_pieces;
    size_t m_next_piece;
    unsigned m_rest;
    size_t m_pos;
};

#endif
