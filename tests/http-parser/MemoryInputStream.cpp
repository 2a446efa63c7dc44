#include "MemoryInputStream.h"

#include <cstring>
#include <utility>

#include "moxcore/MOXByteBuffer.h"

MemoryInputStream::MemoryInputStream(std::string data, std::vector<unsigned> pieces, unsigned rest)
    : m_data(std::move(data)), m_pieces(std::move(pieces)), m_next_piece(0), m_rest(rest), m_pos(0) {}

int MemoryInputStream::read() {
    if (m_pos >= m_data.size()) return -1;
    return static_cast<unsigned char>(m_data[m_pos++]);
}

unsigned MemoryInputStream::nextLimit(unsigned n) {
    unsigned limit = m_rest;
    if (m_next_piece < m_pieces.size()) limit = m_pieces[m_next_piece++];
    if (limit == 0 || limit > n) limit = n;
    const size_t left = m_data.size() - m_pos;
    return left < limit ? static_cast<unsigned>(left) : limit;
}

unsigned MemoryInputStream::read(char* buf, unsigned n) {
    if (n == 0) return 0;
    if (m_pos >= m_data.size()) return PNX_EOF;
    const unsigned k = nextLimit(n);
    std::memcpy(buf, m_data.data() + m_pos, k);
    m_pos += k;
    return k;
}

unsigned MemoryInputStream::read(MOXByteBuffer& b, unsigned n) {
    if (n == 0) return 0;
    if (m_pos >= m_data.size()) return PNX_EOF;
    const unsigned k = nextLimit(n);
    b.appendChars(m_data.data() + m_pos, k);
    m_pos += k;
    return k;
}
