#include "PartStream.h"

#include <utility>

#include "moxcore/MOXByteBuffer.h"

PartStream::PartStream(std::string data) : PNXBufferedInputStream(0), m_data(std::move(data)), m_pos(0) {}

int PartStream::read() {
    if (m_pos >= m_data.size()) return -1;
    return static_cast<unsigned char>(m_data[m_pos++]);
}

unsigned PartStream::readline(MOXByteBuffer& b, unsigned max) {
    unsigned n = 0;
    while (m_pos < m_data.size() && n < max) {
        const char c = m_data[m_pos++];
        b << c;
        ++n;
        if (c == '\n') return n;
    }
    return n == max ? n : 0;  // stopped by the bound, or the part ended
}
