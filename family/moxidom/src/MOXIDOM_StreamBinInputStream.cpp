#include "MOXIDOM_StreamBinInputStream.h"

#include "pnxstreams/PNXInputStream.h"

MOXIDOM_StreamBinInputStream::MOXIDOM_StreamBinInputStream(PNXInputStream& in, std::size_t maxBytes,
                                                           Outcome& outcome)
    : m_in(in), m_max_bytes(maxBytes), m_outcome(outcome), m_position(0), m_ended(false) {}

XMLSize_t MOXIDOM_StreamBinInputStream::readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) {
    if (m_ended || maxToRead == 0) return 0;
    const unsigned block = maxToRead < kMaxBlock ? static_cast<unsigned>(maxToRead) : kMaxBlock;
    // Xerces guesses the encoding (and spots a byte order mark) from its first
    // block alone, so that one gathers up to four bytes even from a stream
    // that trickles.
    const unsigned wanted = m_position == 0 ? (block < 4 ? block : 4) : 1;
    unsigned got = 0;
    char* target = reinterpret_cast<char*>(toFill);
    while (got < wanted) {
        unsigned n;
        try {
            n = m_in.read(target + got, block - got);
        } catch (...) {
            m_outcome.failure = std::current_exception();
            m_ended = true;
            break;
        }
        // 0 breaks the stream's contract; ending is safer than spinning.
        if (n == PNX_EOF || n == 0) {
            m_ended = true;
            break;
        }
        got += n;
    }
    if (m_max_bytes != 0 && m_position + got > m_max_bytes) {
        // The bytes past the bound are dropped: the parse fails anyway.
        got = static_cast<unsigned>(m_max_bytes - m_position);
        m_outcome.tooLarge = true;
        m_ended = true;
    }
    m_position += got;
    return got;
}
