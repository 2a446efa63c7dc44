#include "pnxstreams/PNXChunkedInputStream.h"

#include "PNXUnreadBuffer.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXIOException.h"

static const char MOX_UNIT[] = "PNXChunkedInputStream";

namespace {
// A size line is a few bytes; the bound only stops a peer that sends an
// endless line from being followed for ever.
const unsigned kMaxSizeLine = 4096;
const unsigned kMaxChunk = 0x7FFFFFFFu;

int hexValue(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isBlank(int c) { return c == ' ' || c == '\t'; }
}  // namespace

PNXChunkedInputStream::PNXChunkedInputStream(PNXBufferedInputStream& in)
    : PNXFilterInputStream(&in),
      m_in(&in),
      m_back(new PNXUnreadBuffer()),
      m_state(SizeStart),
      m_chunk(0),
      m_left(0),
      m_line_len(0),
      m_text_len(0),
      m_text_cut(false),
      m_text() {}

PNXChunkedInputStream::~PNXChunkedInputStream() = default;

void PNXChunkedInputStream::fail(int line, const char* function, const std::string& text) {
    m_state = Failed;
    m_failure = text;
    PNXIOException(0, text.c_str()).hurl(MOX_AT(line), function, "MOX_THROW");
}

void PNXChunkedInputStream::endedInData(int line, const char* function) {
    fail(line, function,
         "chunked body ended after " + std::to_string(m_chunk - m_left) + " of " + std::to_string(m_chunk) +
             " bytes of a chunk");
}

void PNXChunkedInputStream::keepLineText(int c) {
    if (m_text_len < sizeof m_text) {
        m_text[m_text_len++] = (c >= 0x20 && c <= 0x7E) ? static_cast<char>(c) : '?';
    } else {
        m_text_cut = true;
    }
}

std::string PNXChunkedInputStream::lineText() const {
    std::string text(m_text, m_text_len);
    if (m_text_cut) text += "...";
    return "\"" + text + "\"";
}

void PNXChunkedInputStream::takeSizeByte(int c, const char* function) {
    if (++m_line_len > kMaxSizeLine) {
        fail(__LINE__, function, "chunk size line longer than " + std::to_string(kMaxSizeLine) + " bytes: " + lineText());
    }
    if (m_state != SizeCR && c != '\r' && c != '\n') keepLineText(c);
    switch (m_state) {
    case SizeStart:
        if (isBlank(c)) return;
        if (c == '\r' || c == '\n') fail(__LINE__, function, "empty chunk size line");
        if (hexValue(c) < 0) {
            fail(__LINE__, function, "chunk size line " + lineText() + " does not start with a hexadecimal size");
        }
        m_chunk = static_cast<unsigned>(hexValue(c));
        m_state = SizeDigits;
        return;
    case SizeDigits: {
        const int v = hexValue(c);
        if (v >= 0) {
            if (m_chunk > (kMaxChunk - static_cast<unsigned>(v)) / 16) {
                fail(__LINE__, function, "chunk size in " + lineText() + " exceeds 0x7FFFFFFF");
            }
            m_chunk = m_chunk * 16 + static_cast<unsigned>(v);
            return;
        }
        m_state = SizeBlanks;
    }
        [[fallthrough]];
    case SizeBlanks:
        if (isBlank(c)) return;
        if (c == ';') {
            m_state = SizeExt;
        } else if (c == '\r') {
            m_state = SizeCR;
        } else if (c == '\n') {
            break;
        } else {
            fail(__LINE__, function, "chunk size line " + lineText() + " holds more than a hexadecimal size");
        }
        return;
    case SizeExt:
        if (c == '\n') break;
        return;
    case SizeCR:
        if (c == '\n') break;
        fail(__LINE__, function, "chunk size line " + lineText() + " has a CR without LF");
    default:
        MOX_ASSERT(m_state <= SizeCR);
        return;
    }
    // The line is complete.
    m_left = m_chunk;
    m_state = m_chunk > 0 ? Data : Done;
}

bool PNXChunkedInputStream::toData(const char* function) {
    for (;;) {
        switch (m_state) {
        case Data:
            return true;
        case Done:
            return false;
        case Failed:
            PNXIOException(0, m_failure.c_str()).hurl(MOX_HERE, function, "MOX_THROW");
        case DataCR:
        case DataLF: {
            const int c = m_in->read();
            if (c < 0) fail(__LINE__, function, "chunked body ended after a chunk's data, before its CR LF");
            if (c != (m_state == DataCR ? '\r' : '\n')) {
                fail(__LINE__, function,
                     "chunk data of " + std::to_string(m_chunk) + " bytes is not followed by CR LF");
            }
            if (m_state == DataLF) {
                m_state = SizeStart;
                m_line_len = m_text_len = 0;
                m_text_cut = false;
            } else {
                m_state = DataLF;
            }
            break;
        }
        default: {
            const int c = m_in->read();
            if (c < 0) fail(__LINE__, function, "chunked body ended inside a chunk size line");
            takeSizeByte(c, function);
            break;
        }
        }
    }
}

int PNXChunkedInputStream::read() {
    static const char* const function = "PNXChunkedInputStream::read";
    if (m_back->available() > 0) return m_back->takeByte();
    if (!toData(function)) return -1;
    const int c = m_in->read();
    if (c < 0) endedInData(__LINE__, function);
    if (--m_left == 0) m_state = DataCR;
    return c;
}

unsigned PNXChunkedInputStream::read(char* buf, unsigned n) {
    static const char* const function = "PNXChunkedInputStream::read";
    if (n == 0) return 0;
    if (m_back->available() > 0) return m_back->take(buf, n);
    if (!toData(function)) return PNX_EOF;
    const unsigned want = n < m_left ? n : m_left;
    const unsigned r = m_in->read(buf, want);
    if (r == PNX_EOF || r == 0) endedInData(__LINE__, function);
    if (r > want) fail(__LINE__, function, "buffered stream reported more bytes than asked for");
    m_left -= r;
    if (m_left == 0) m_state = DataCR;
    return r;
}

unsigned PNXChunkedInputStream::read(MOXByteBuffer& b, unsigned n) {
    static const char* const function = "PNXChunkedInputStream::read";
    if (n == 0) return 0;
    if (m_back->available() > 0) return m_back->take(b, n);
    if (!toData(function)) return PNX_EOF;
    const unsigned want = n < m_left ? n : m_left;
    const unsigned r = m_in->read(b, want);
    if (r == PNX_EOF || r == 0) endedInData(__LINE__, function);
    if (r > want) fail(__LINE__, function, "buffered stream reported more bytes than asked for");
    m_left -= r;
    if (m_left == 0) m_state = DataCR;
    return r;
}

int PNXChunkedInputStream::canUnread() const { return 1; }

void PNXChunkedInputStream::unread(const char* bytes, unsigned n) { m_back->push(bytes, n); }
