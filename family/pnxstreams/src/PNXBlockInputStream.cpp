#include "pnxstreams/PNXBlockInputStream.h"

#include "PNXUnreadBuffer.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXIOException.h"

static const char MOX_UNIT[] = "PNXBlockInputStream";

PNXBlockInputStream::PNXBlockInputStream(PNXBufferedInputStream& in)
    : PNXFilterInputStream(&in), m_in(&in), m_back(new PNXUnreadBuffer()), m_length(0), m_left(0) {}

PNXBlockInputStream::~PNXBlockInputStream() = default;

void PNXBlockInputStream::setBlockLength(int n) {
    m_length = n > 0 ? static_cast<unsigned>(n) : 0;
    m_left = m_length;
    m_failure.clear();
}

void PNXBlockInputStream::endedEarly(int line, const char* function) {
    m_failure = "body ended after " + std::to_string(m_length - m_left) + " of " + std::to_string(m_length) + " bytes";
    PNXIOException(0, m_failure.c_str()).hurl(MOX_AT(line), function, "MOX_THROW");
}

unsigned PNXBlockInputStream::limit(unsigned n, const char* function) {
    // Once the inner stream ended early the body cannot be completed: every
    // later read says so again instead of answering a plain end.
    if (!m_failure.empty()) PNXIOException(0, m_failure.c_str()).hurl(MOX_HERE, function, "MOX_THROW");
    return n < m_left ? n : m_left;
}

void PNXBlockInputStream::count(unsigned got, const char* function) {
    if (got == PNX_EOF || got == 0) endedEarly(__LINE__, function);
    if (got > m_left) {
        m_failure = "buffered stream reported more bytes than asked for";
        PNXIOException(0, m_failure.c_str()).hurl(MOX_HERE, function, "MOX_THROW");
    }
    m_left -= got;
}

int PNXBlockInputStream::read() {
    static const char* const function = "PNXBlockInputStream::read";
    if (m_back->available() > 0) return m_back->takeByte();
    if (limit(1, function) == 0) return -1;
    const int c = m_in->read();
    count(c < 0 ? PNX_EOF : 1, function);
    return c;
}

unsigned PNXBlockInputStream::read(char* buf, unsigned n) {
    static const char* const function = "PNXBlockInputStream::read";
    if (n == 0) return 0;
    if (m_back->available() > 0) return m_back->take(buf, n);
    const unsigned want = limit(n, function);
    if (want == 0) return PNX_EOF;
    const unsigned r = m_in->read(buf, want);
    count(r, function);
    return r;
}

unsigned PNXBlockInputStream::read(MOXByteBuffer& b, unsigned n) {
    static const char* const function = "PNXBlockInputStream::read";
    if (n == 0) return 0;
    if (m_back->available() > 0) return m_back->take(b, n);
    const unsigned want = limit(n, function);
    if (want == 0) return PNX_EOF;
    const unsigned r = m_in->read(b, want);
    count(r, function);
    return r;
}

int PNXBlockInputStream::canUnread() const { return 1; }

void PNXBlockInputStream::unread(const char* bytes, unsigned n) { m_back->push(bytes, n); }
