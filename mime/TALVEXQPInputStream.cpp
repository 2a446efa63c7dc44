#include "mime/TALVEXQPInputStream.h"

#include <cstring>
#include <string>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXThrow.h"
#include "moxcore/MOXUtConvert.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXMessage.h"

static const char MOX_UNIT[] = "TALVEXQPInputStream";

namespace {
const int kCR = '\r';
const int kLF = '\n';

bool isLineEndByte(int c) { return c == kCR || c == kLF; }
bool isBlank(int c) { return c == ' ' || c == '\t'; }

// An encoded byte for an error text: "0x3D"; the end of the data as "EOF".
std::string rawByteText(int c) {
    if (c < 0) return "EOF";
    std::string text;
    return MOXUtConvert::hexCvt(text, static_cast<unsigned>(c), 2, '0', MOXUtConvert::getHexPrefix());
}
}  // namespace

TALVEXQPInputStream::TALVEXQPInputStream(PNXInputStream* in)
    : PNXBufferedInputStream(0), m_raw_count(0), m_pushback(-1), m_pos(0), m_in(in), m_line(128, 256) {}

TALVEXQPInputStream::~TALVEXQPInputStream() { m_in = NULL; }

int TALVEXQPInputStream::hexValue(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

int TALVEXQPInputStream::getRawChar() {
    if (m_pushback != -1) {
        const int c = m_pushback;
        m_pushback = -1;
        return c;
    }
    ++m_raw_count;
    const int c = m_in->read();
    return c < 0 ? -1 : c;
}

void TALVEXQPInputStream::ungetRawChar(int c) { m_pushback = c; }

int TALVEXQPInputStream::isEndOfLine(int c) {
    if (!isLineEndByte(c)) return 0;
    const int c2 = getRawChar();
    if (c2 != -1 && !(isLineEndByte(c2) && c2 != c)) ungetRawChar(c2);
    return 1;
}

namespace {
const unsigned kMaxDecodedPiece = 16384;
}  // namespace

int TALVEXQPInputStream::getDecodedLine() {
    m_line.reset();
    m_pos = 0;
    for (;;) {
        const unsigned length = m_line.pcount();
        if (length >= 2 && m_line.str()[length - 2] == '\r' && m_line.str()[length - 1] == '\n') break;
        // Data joined by soft line breaks only would otherwise become one line
        // as long as the whole part: a decoded piece is bounded, cut between
        // two encoded units, so memory stays constant whatever the part's size.
        if (length >= kMaxDecodedPiece) break;
        const int c = getRawChar();
        if (c == -1) break;
        if (isLineEndByte(c)) {
            // Whatever its form, a hard line end comes out as CR LF.
            isEndOfLine(c);
            m_line << '\r' << '\n';
            continue;
        }
        if (c != '=') {
            m_line << static_cast<char>(c);
            continue;
        }
        int c1 = getRawChar();
        if (isBlank(c1)) {
            // "=" and blanks before a line end: a soft line break. The line
            // end is taken once only, so a line end right after it (an empty
            // line) is kept.
            for (;;) {
                c1 = getRawChar();
                if (isEndOfLine(c1)) break;
                if (isBlank(c1)) continue;
                TALVEX_RAISE_AT(__LINE__, "TALVEXQPInputStream::getDecodedLine", ErrQPSoftBreak,
                                TALVEXMessage(0xF2A94CAC) << MOXMessageParm(I18NString(rawByteText(c1)))
                                                          << MOXMessageParm(m_raw_count - 1, MOX_PARM_DECIMAL));
            }
            continue;
        }
        if (isEndOfLine(c1)) continue;
        const int hi = hexValue(c1);
        const int c2 = getRawChar();
        const int lo = hexValue(c2);
        if (hi == -1 || lo == -1) {
            const std::string text = "= " + rawByteText(c1) + " " + rawByteText(c2);
            TALVEX_RAISE_AT(__LINE__, "TALVEXQPInputStream::getDecodedLine", ErrQPEscape,
                            TALVEXMessage(0xF2AEC365) << MOXMessageParm(I18NString(text))
                                                      << MOXMessageParm(m_raw_count - 3, MOX_PARM_DECIMAL));
        }
        m_line << static_cast<char>(hi * 16 + lo);
    }
    const unsigned count = m_line.pcount();
    return count > 0 ? static_cast<int>(count) : -1;
}

unsigned TALVEXQPInputStream::available() {
    if (m_line.pcount() > m_pos) return pending();
    if (getDecodedLine() == -1) return 0;
    return pending();
}

int TALVEXQPInputStream::read() {
    if (available() == 0) return -1;
    return static_cast<unsigned char>(m_line.str()[m_pos++]);
}

unsigned TALVEXQPInputStream::read(char* buf, unsigned n) {
    // Spelled out: through MOX_ASSERT the NULL would be expanded before it is quoted.
    MOX_ASSERT_AT(__LINE__, NULL != buf);
    if (n == 0) return 0;
    unsigned k = available();
    if (k == 0) return PNX_EOF;
    if (k > n) k = n;
    std::memcpy(buf, m_line.str() + m_pos, k);
    m_pos += k;
    return k;
}

unsigned TALVEXQPInputStream::read(MOXByteBuffer& b, unsigned n) {
    b.reset();
    if (n == 0) return 0;
    unsigned k = available();
    if (k == 0) return PNX_EOF;
    if (k > n) k = n;
    b.appendChars(m_line.str() + m_pos, k);
    m_pos += k;
    return k;
}

unsigned TALVEXQPInputStream::readline(MOXByteBuffer& b, unsigned max) {
    b.reset();
    if (max == 0) return 0;
    if (m_pos == 0 && getDecodedLine() == -1) return PNX_EOF;
    const unsigned k = pending() < max ? pending() : max;
    b.appendChars(m_line.str() + m_pos, k);
    m_pos += k;
    if (pending() == 0) {
        m_line.reset();
        m_pos = 0;
    }
    return k;
}

int TALVEXQPInputStream::canUnread() const { return 0; }

void TALVEXQPInputStream::unread(const char*, unsigned) {
    TALVEXException::ThrowNotImplemented("TALVEXQPInputStream::unread");
}

void TALVEXQPInputStream::wrap(PNXInputStream&) { TALVEXException::ThrowNotImplemented("TALVEXQPInputStream::wrap"); }

// Nothing is held that belongs to the inner stream: decoded bytes are not
// encoded bytes and cannot be given back.
void TALVEXQPInputStream::unWrap() {}
