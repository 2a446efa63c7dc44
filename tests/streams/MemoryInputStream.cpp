#include "MemoryInputStream.h"

#include <cstring>

#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXFileLocation.h"
#include "pnxstreams/PNXIOTimeoutException.h"

MemoryInputStream::MemoryInputStream(std::string data, unsigned piece) : m_data(std::move(data)) {
    if (piece > 0) {
        for (size_t offset = piece; offset < m_data.size(); offset += piece) m_cuts.insert(offset);
    }
}

unsigned MemoryInputStream::available(unsigned n) {
    if (m_pos >= m_data.size()) return 0;
    if (m_timeout_at != std::string::npos && m_pos >= m_timeout_at) {
        m_timeout_at = std::string::npos;
        PNXIOTimeoutException(0).hurl(MOXFileLocation("MemoryInputStream", __LINE__), "MemoryInputStream::read",
                                      "MOX_THROW");
    }
    size_t end = m_data.size();
    auto cut = m_cuts.upper_bound(m_pos);
    if (cut != m_cuts.end() && *cut < end) end = *cut;
    if (m_timeout_at != std::string::npos && m_timeout_at > m_pos && m_timeout_at < end) end = m_timeout_at;
    const size_t k = end - m_pos;
    return k < n ? static_cast<unsigned>(k) : n;
}

int MemoryInputStream::read() {
    ++byteReads;
    if (available(1) == 0) return -1;
    return static_cast<unsigned char>(m_data[m_pos++]);
}

unsigned MemoryInputStream::read(char* buf, unsigned n) {
    ++reads;
    if (n > largestRequest) largestRequest = n;
    lastTarget = buf;
    if (n == 0) return 0;
    const unsigned k = available(n);
    if (k == 0) return PNX_EOF;
    std::memcpy(buf, m_data.data() + m_pos, k);
    m_pos += k;
    return k;
}

unsigned MemoryInputStream::read(MOXByteBuffer& b, unsigned n) {
    ++reads;
    if (n > largestRequest) largestRequest = n;
    lastTarget = nullptr;
    if (n == 0) return 0;
    const unsigned k = available(n);
    if (k == 0) return PNX_EOF;
    b.appendChars(m_data.data() + m_pos, k);
    m_pos += k;
    return k;
}

void MemoryInputStream::unread(const char* bytes, unsigned n) {
    if (!m_can_unread) PNXInputStream::unread(bytes, n);
    // The cuts and the time-out mark keep their place in the original data.
    std::string front(bytes, n);
    m_data = m_data.substr(0, m_pos) + front + m_data.substr(m_pos);
    std::set<size_t> cuts;
    for (size_t c : m_cuts) cuts.insert(c >= m_pos ? c + n : c);
    m_cuts.swap(cuts);
}

int MemoryInputStream::setTimeout(int seconds) {
    m_timeout = seconds > 0 ? seconds : 0;
    return m_timeout > 0 ? 1 : 0;
}

int MemoryInputStream::setCancel(int on) {
    m_cancel = on != 0 ? 1 : 0;
    return 1;
}
