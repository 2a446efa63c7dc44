#include "pnxstreams/PNXBufferedInputStream.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "pnxstreams/PNXIOException.h"

static const char MOX_UNIT[] = "PNXBufferedInputStream";

namespace {
// A direct read into a byte buffer reserves room for what is asked; a caller
// asking for "everything" must not make it reserve gigabytes.
const unsigned kMaxDirectReserve = 256u * 1024u;

// A buffered stream reads ahead at least this much, whatever size it was made
// with: a caller that reads in small pieces (the multipart stream refills 1 KiB
// at a time) is then served from memory instead of by one system call per
// piece. Size 0 keeps its meaning: no read-ahead at all.
const unsigned kMinReadAhead = 64u * 1024u;

unsigned checkedSize(int size) {
    if (size < 0) MOX_THROW(MOXIllegalArgumentError, "PNXBufferedInputStream - the buffer size must not be negative");
    const unsigned asked = static_cast<unsigned>(size);
    return asked == 0 ? 0 : (asked < kMinReadAhead ? kMinReadAhead : asked);
}
}  // namespace

PNXBufferedInputStream::PNXBufferedInputStream(PNXInputStream& in, int size)
    : PNXFilterInputStream(&in), m_buf(nullptr), m_size(checkedSize(size)), m_capacity(0), m_pos(0), m_end(0) {
    if (m_size > 0) allocate(m_size);
}

PNXBufferedInputStream::PNXBufferedInputStream(int size)
    : PNXFilterInputStream(nullptr), m_buf(nullptr), m_size(checkedSize(size)), m_capacity(0), m_pos(0), m_end(0) {
    if (m_size > 0) allocate(m_size);
}

PNXBufferedInputStream::~PNXBufferedInputStream() { std::free(m_buf); }

void PNXBufferedInputStream::allocate(unsigned capacity) {
    char* buf = static_cast<char*>(std::malloc(capacity));
    if (buf == nullptr) MOX_THROW(MOXOutOfMemoryError, "PNXBufferedInputStream::allocate");
    std::free(m_buf);
    m_buf = buf;
    m_capacity = capacity;
    m_pos = m_end = 0;
}

// One read of the inner stream. An inner stream that answers 0 for a
// non-empty request has nothing more to give: treated as its end rather than
// asked again in a loop. A count beyond the request would have written past
// the caller's memory; it is reported, never used.
unsigned PNXBufferedInputStream::innerRead(char* buf, unsigned n) {
    const unsigned r = m_inner->read(buf, n);
    if (r == PNX_EOF || r == 0) return PNX_EOF;
    if (r > n) {
        const std::string text = "inner stream reported " + std::to_string(r) + " bytes for a read of " +
                                 std::to_string(n) + " bytes";
        PNXIOException(0, text.c_str()).hurl(MOX_HERE, "PNXBufferedInputStream::read", "MOX_THROW");
    }
    return r;
}

bool PNXBufferedInputStream::fill() {
    m_pos = m_end = 0;
    if (m_inner == nullptr) return false;
    const unsigned r = innerRead(m_buf, m_capacity);
    if (r == PNX_EOF) return false;
    m_end = r;
    return true;
}

int PNXBufferedInputStream::read() {
    if (m_pos < m_end) return static_cast<unsigned char>(m_buf[m_pos++]);
    if (m_inner == nullptr) return -1;
    if (m_size == 0) {
        const int c = m_inner->read();
        return c < 0 ? -1 : c;
    }
    if (!fill()) return -1;
    return static_cast<unsigned char>(m_buf[m_pos++]);
}

unsigned PNXBufferedInputStream::read(char* buf, unsigned n) {
    if (n == 0) return 0;
    if (m_pos == m_end) {
        if (m_inner == nullptr) return PNX_EOF;
        // Nothing to copy from: a big read costs no copy through the buffer.
        if (n >= m_size) return innerRead(buf, n);
        if (!fill()) return PNX_EOF;
    }
    const unsigned k = n < buffered() ? n : buffered();
    std::memcpy(buf, m_buf + m_pos, k);
    m_pos += k;
    return k;
}

unsigned PNXBufferedInputStream::read(MOXByteBuffer& b, unsigned n) {
    if (n == 0) return 0;
    if (m_pos == m_end) {
        if (m_inner == nullptr) return PNX_EOF;
        if (n >= m_size) {
            const unsigned want = n < kMaxDirectReserve ? n : kMaxDirectReserve;
            const unsigned length = b.pcount();
            b.reserve(length + want);
            const unsigned r = innerRead(b.str() + length, want);
            b.setLength(length + (r == PNX_EOF ? 0 : r));
            return r;
        }
        if (!fill()) return PNX_EOF;
    }
    const unsigned k = n < buffered() ? n : buffered();
    b.appendChars(m_buf + m_pos, k);
    m_pos += k;
    return k;
}

int PNXBufferedInputStream::canUnread() const { return 1; }

void PNXBufferedInputStream::unread(const char* bytes, unsigned n) {
    if (n == 0) return;
    MOX_ASSERT(bytes != nullptr);
    if (n > m_pos) {
        // No room before the read position. The held bytes move to the end of
        // the buffer (a refill only happens once it is empty, so room after
        // them is of no use now) and the room in front takes the new bytes;
        // when even that is too small, the buffer grows.
        const unsigned held = buffered();
        if (static_cast<unsigned long long>(held) + n <= m_capacity) {
            std::memmove(m_buf + m_capacity - held, m_buf + m_pos, held);
        } else {
            unsigned long long target = 2ull * m_capacity;
            if (target < static_cast<unsigned long long>(held) + n) target = static_cast<unsigned long long>(held) + n;
            if (target > 0xFFFFFFFFull) MOX_THROW(MOXOutOfMemoryError, "PNXBufferedInputStream::unread");
            const unsigned capacity = static_cast<unsigned>(target);
            char* buf = static_cast<char*>(std::malloc(capacity));
            if (buf == nullptr) MOX_THROW(MOXOutOfMemoryError, "PNXBufferedInputStream::unread");
            if (held > 0) std::memcpy(buf + capacity - held, m_buf + m_pos, held);
            std::free(m_buf);
            m_buf = buf;
            m_capacity = capacity;
        }
        m_end = m_capacity;
        m_pos = m_capacity - held;
    }
    m_pos -= n;
    std::memmove(m_buf + m_pos, bytes, n);
}

void PNXBufferedInputStream::wrap(PNXInputStream& in) {
    m_inner = &in;
    m_pos = m_end = 0;
}

void PNXBufferedInputStream::unWrap() {
    if (m_inner != nullptr && m_pos < m_end && m_inner->canUnread()) m_inner->unread(m_buf + m_pos, buffered());
    m_pos = m_end = 0;
    m_inner = nullptr;
}

unsigned PNXBufferedInputStream::readline(MOXByteBuffer& b, unsigned max) {
    if (max == 0) return 0;
    unsigned total = 0;
    while (total < max) {
        if (m_pos == m_end) {
            if (m_inner == nullptr) break;
            if (m_size == 0) {
                // Without read-ahead the line is taken byte by byte, so nothing
                // after its LF leaves the inner stream.
                while (total < max) {
                    const int c = m_inner->read();
                    if (c < 0) return total > 0 ? total : PNX_EOF;
                    b << static_cast<char>(c);
                    ++total;
                    if (c == '\n') return total;
                }
                return total;
            }
            if (!fill()) break;
        }
        const char* p = m_buf + m_pos;
        const unsigned room = max - total;
        const unsigned held = buffered() < room ? buffered() : room;
        const char* lf = static_cast<const char*>(std::memchr(p, '\n', held));
        const unsigned k = lf != nullptr ? static_cast<unsigned>(lf - p) + 1 : held;
        b.appendChars(p, k);
        m_pos += k;
        total += k;
        if (lf != nullptr) return total;
    }
    return total > 0 ? total : PNX_EOF;
}
