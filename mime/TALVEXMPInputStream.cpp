#include "mime/TALVEXMPInputStream.h"

#include <cstring>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXMessage.h"

static const char MOX_UNIT[] = "TALVEXMPInputStream";

namespace {
const char kDelimiterStart[] = "\r\n--";
const unsigned kDelimiterStartLength = 4;
const unsigned kScratchSize = 128;
}  // namespace

TALVEXMPInputStream::TALVEXMPInputStream(PNXInputStream* in, const std::string& boundary)
    : PNXBufferedInputStream(0),
      m_in_eof(0),
      m_buf(NULL),
      m_part_done(0),
      m_eob(0),
      m_part_end(0),
      m_take(0),
      m_in(in) {
    if (boundary.compare(0, kDelimiterStartLength, kDelimiterStart) == 0) {
        m_pattern = boundary;
    } else {
        m_pattern = kDelimiterStart;
        m_pattern += boundary;
    }
    // The refill keeps pattern + 2 bytes in the buffer; a longer pattern
    // could never be completed and the refill would spin on a full buffer.
    if (m_pattern.size() + 2 > BUFFER_SIZE) {
        MOX_THROW(MOXIllegalArgumentError, "TALVEXMPInputStream::TALVEXMPInputStream - boundary too long");
    }
    m_buf = ::moxAllocate(MOX_HERE, []() { return new char[BUFFER_SIZE]; });
    m_scanner.setPattern(m_pattern);
}

TALVEXMPInputStream::~TALVEXMPInputStream() {
    delete[] m_buf;
    m_buf = NULL;
    m_in = NULL;
}

void TALVEXMPInputStream::readMore() {
    if (m_take > 0) {
        MOX_ASSERT(m_take <= m_eob);
        std::memmove(m_buf, m_buf + m_take, m_eob - m_take);
        m_eob -= m_take;
        m_part_end -= m_take;
        m_take = 0;
    }
    const unsigned wanted = patternLength() + 2;
    while (m_eob < wanted) {
        const unsigned got = m_in->read(m_buf + m_eob, BUFFER_SIZE - m_eob);
        // A stream answering 0 to a non-empty read has nothing more to give;
        // asking it again would spin.
        if (got == PNX_EOF || got == 0) {
            m_in_eof = 1;
            break;
        }
        MOX_ASSERT(got <= BUFFER_SIZE - m_eob);
        m_eob += got;
    }
    if (m_eob < wanted) {
        TALVEX_RAISE_AT(__LINE__, "TALVEXMPInputStream::readMore", ErrMultipartEnd, TALVEXMessage(0xF2ADBF2A));
    }
    if (!m_scanner.isFound()) m_part_end = m_scanner.scan(m_buf, m_part_end, m_eob);
}

void TALVEXMPInputStream::deliver(char* buf, unsigned len) {
    MOX_ASSERT(buf);
    MOX_ASSERT(len > 0);
    std::memcpy(buf, m_buf + m_take, len);
    m_take += len;
}

unsigned TALVEXMPInputStream::available(const char* function) {
    if (m_part_end > m_take) return deliverable();
    if (m_scanner.isFound()) {
        m_part_done = 1;
        return 0;
    }
    readMore();
    if (m_part_end > m_take) return deliverable();
    if (m_scanner.isFound()) {
        m_part_done = 1;
        return 0;
    }
    TALVEX_RAISE_AT(__LINE__, function, ErrMultipartEnd, TALVEXMessage(0xF2ADBF2A));
}

int TALVEXMPInputStream::read() {
    char c;
    if (available("TALVEXMPInputStream::read") == 0) return -1;
    deliver(&c, 1);
    return static_cast<unsigned char>(c);
}

unsigned TALVEXMPInputStream::read(char* buf, unsigned n) {
    MOX_ASSERT(buf);
    if (n == 0) return 0;
    unsigned k = available("TALVEXMPInputStream::read");
    if (k == 0) return PNX_EOF;
    if (k > n) k = n;
    deliver(buf, k);
    return k;
}

unsigned TALVEXMPInputStream::read(MOXByteBuffer& b, unsigned n) {
    if (n == 0) return 0;
    unsigned k = available("TALVEXMPInputStream::read");
    if (k == 0) return PNX_EOF;
    if (k > n) k = n;
    const unsigned length = b.pcount();
    b.reserve(length + k);
    deliver(b.str() + length, k);
    b.setLength(length + k);
    return k;
}

unsigned TALVEXMPInputStream::readline(MOXByteBuffer& b, unsigned max) {
    unsigned room = max;
    while (room > 0) {
        const char* const from = m_buf + m_take;
        const unsigned k = deliverable() < room ? deliverable() : room;
        // A CR as the last deliverable byte is never followed by a deliverable
        // LF: the scanner holds a trailing CR back as a possible delimiter.
        for (const char* p = from; p + 1 < from + k;) {
            const char* cr = static_cast<const char*>(std::memchr(p, '\r', from + k - p));
            if (cr == NULL || cr + 1 >= from + k) break;
            if (cr[1] == '\n') {
                const unsigned count = static_cast<unsigned>(cr + 2 - from);
                b.appendChars(from, count);
                m_take += count;
                return count;
            }
            p = cr + 1;
        }
        if (k > 0) {
            b.appendChars(from, k);
            m_take += k;
            room -= k;
            if (room == 0) return k;
        } else if (m_scanner.isFound()) {
            m_part_done = 1;
            return 0;
        }
        readMore();
        if (m_part_end > m_take) continue;
        if (m_scanner.isFound()) {
            m_part_done = 1;
            return 0;
        }
        TALVEX_RAISE_AT(__LINE__, "TALVEXMPInputStream::readline", ErrMultipartEnd, TALVEXMessage(0xF2ADBF2A));
    }
    return 0;
}

void TALVEXMPInputStream::skipPart() {
    char scratch[kScratchSize];
    while (read(scratch, kScratchSize) != PNX_EOF) {
    }
}

int TALVEXMPInputStream::hasNextPart() {
    if (m_in_eof) return 0;
    if (!m_part_done) skipPart();
    if (!m_scanner.isFound()) {
        TALVEX_RAISE_AT(__LINE__, "TALVEXMPInputStream::hasNextPart", ErrMultipartEnd, TALVEXMessage(0xF2ADBF2A));
    }
    if (m_eob - m_part_end < patternLength() + 2) {
        readMore();
        if (m_eob - m_part_end < patternLength() + 2) {
            TALVEX_RAISE_AT(__LINE__, "TALVEXMPInputStream::hasNextPart", ErrMultipartEnd,
                            TALVEXMessage(0xF2ADBF2A));
        }
    }
    const char* after = m_buf + m_part_end + patternLength();
    return (after[0] == '-' && after[1] == '-') ? 0 : 1;
}

void TALVEXMPInputStream::nextPart() {
    // Stepping anywhere but from a found delimiter would walk past the
    // buffered bytes.
    if (!m_scanner.isFound() || m_take != m_part_end || m_eob - m_take < patternLength() + 2) {
        MOX_THROW(MOXIllegalStateError, "TALVEXMPInputStream::nextPart - no next part was found");
    }
    m_take += patternLength() + 2;
    m_part_done = 0;
    m_scanner.reset();
    m_part_end = m_scanner.scan(m_buf, m_take, m_eob);
}

void TALVEXMPInputStream::unWrap() {
    if (hasNextPart() == 1) {
        MOX_THROW(MOXIllegalStateError, "HTTP multipart message has a not-read part - TALVEXMPInputStream::unWrap");
    }
    const unsigned x = m_part_end + patternLength() + 4;
    if (x < m_eob && m_in->canUnread()) {
        m_in->unread(m_buf + x, m_eob - x);
        // Given back: a second unWrap must not give them back again.
        m_eob = x;
    }
}

int TALVEXMPInputStream::canUnread() const { return 0; }

void TALVEXMPInputStream::unread(const char*, unsigned) {
    TALVEXException::ThrowNotImplemented("TALVEXMPInputStream::unread");
}

void TALVEXMPInputStream::wrap(PNXInputStream&) { TALVEXException::ThrowNotImplemented("TALVEXMPInputStream::wrap"); }
