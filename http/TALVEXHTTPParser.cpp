#include "http/TALVEXHTTPParser.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "moxcore/MOXUtConvert.h"
#include "moxhttptools/HTTPHeader.h"
#include "moxhttptools/HTTPMessage.h"
#include "moxhttptools/MOXStringTokenizer.h"
#include "moxhttptools/NoSuchElementExceptionST.h"
#include "pnxstreams/PNXBufferedInputStream.h"

static const char MOX_UNIT[] = "TALVEXHTTPParser";

namespace {
// True when the head's stream ended before this line did. The buffered stream
// hands out an unterminated last line with its count; a head cut off inside a
// line is an incomplete head, not a shorter line. (A MIME part's last line,
// ended by the part's delimiter, comes with a count of 0 and is a line.)
bool endedInsideLine(unsigned rc, const MOXByteBuffer& line) {
    if (rc == PNX_EOF) return true;
    return rc != 0 && (line.pcount() == 0 || line.str()[line.pcount() - 1] != '\n');
}

// Runs a step whose failures must all leave as core throwables: the bounds
// keep what a head allocates small, but an allocation can still fail (a byte
// buffer that cannot grow throws std::bad_alloc).
template <class Step>
void convertingStdErrors(const char* function, Step&& step) {
    try {
        step();
    } catch (const std::bad_alloc&) {
        MOX_THROW(MOXOutOfMemoryError, function);
    } catch (const std::exception& e) {
        MOXStdExceptionError(e).hurl(MOX_HERE, function, "MOX_THROW");
    }
}

// A bound on heads, as a refusal names it: the text around its value, which
// ends with the session property that sets it.
struct Bound {
    std::size_t TALVEXLimits::*value;
    const char* before;
    const char* after;
};
const Bound kLineBound = {&TALVEXLimits::maxHeadLine, "head line longer than ", " bytes (max-head-line)"};
const Bound kLinesBound = {&TALVEXLimits::maxHeadLines, "more header lines than ", " (max-head-lines)"};
const Bound kSizeBound = {&TALVEXLimits::maxHeadSize, "head longer than ", " bytes (max-head-size)"};
const Bound kInterimBound = {&TALVEXLimits::maxInterimResponses, "more interim responses than ",
                             " (max-interim-responses)"};

// Code 6 with a second message naming the bound, e.g. "head line longer than
// 102400 bytes (max-head-line)": the head did not end within what the client takes.
[[noreturn]] void boundPassed(int line, const char* function, const TALVEXLimits& limits, const Bound& bound) {
    const std::string detail = bound.before + std::to_string(limits.*bound.value) + bound.after;
    TALVEX_RAISE_DETAIL_AT(line, function, ErrHeadIncomplete, TALVEXMessage(0xF2AD7BA3), I18NString(detail));
}
}  // namespace

namespace {

const char kVersion11[] = "HTTP/1.1";
const char kVersion10[] = "HTTP/1.0";
const char kTokenDelimiters[] = " \t";
const unsigned kMaxBoundaryLength = 70;
// How much of a refused request line is shown after the offending byte.
const int kRefusedContextBytes = 21;

// atoi's reading (leading blanks, optional sign, leading digits, 0 without
// digits), but a number beyond int saturates instead of being undefined: a
// huge Content-Length must not wrap into a small one.
int toInt(const char* text) {
    const long v = std::strtol(text, nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

bool isVersion(const std::string& token) { return token == kVersion11 || token == kVersion10; }

bool isDelimiter(char c) { return c == ' ' || c == '\t'; }

const char* skipDelimiters(const char* p, const char* end) {
    while (p < end && isDelimiter(*p)) ++p;
    return p;
}

const char* tokenEnd(const char* p, const char* end) {
    while (p < end && !isDelimiter(*p)) ++p;
    return p;
}

bool isTrimmed(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Whether text starts with the lower-case prefix, ASCII case ignored.
bool startsWithLower(const char* text, const char* prefix) {
    for (; *prefix != '\0'; ++text, ++prefix) {
        if (*text == '\0' || lowerAscii(*text) != *prefix) return false;
    }
    return true;
}

I18NString printable(const char* text) { return I18NString(makePrintable(text)); }

// A header value with parameters, taken apart by HTTPHeader.
struct ParsedValue {
    std::string raw;
    std::string value;  // getValue
    bool hasBoundary = false;
    std::string boundary;  // getAttribute("boundary")
    std::string normal;    // dump
};

// The last value with parameters this thread took apart: a peer sends the
// same Content-Type on every response, and parsing and normalising it was
// most of that line's cost. The result depends on the text alone.
const ParsedValue& parsedValue(const char* raw) {
    thread_local ParsedValue last;
    thread_local bool filled = false;
    if (filled && last.raw == raw) return last;
    filled = false;
    HTTPHeader header;
    header.parse(raw);
    last.raw = raw;
    last.value = header.getValue();
    const char* boundary = header.getAttribute("boundary");
    last.hasBoundary = boundary != nullptr;
    last.boundary = boundary != nullptr ? boundary : "";
    MOXByteBuffer dumped(40, 256);
    header.dump(dumped);
    last.normal.assign(dumped.str(), dumped.pcount());
    filled = true;
    return last;
}

}  // namespace

TALVEXHTTPParser::TALVEXHTTPParser(const TALVEXLimits& limits)
    : m_limits(limits),
      m_head_left(limits.maxHeadSize),
      m_length_seen(false),
      m_multipart(0),
      m_content_length(0),
      m_chunked(0),
      m_pseudo_set{} {}

TALVEXHTTPParser::~TALVEXHTTPParser() {}

namespace {
// The start line's pieces live beside the map, in fixed slots that keep their
// storage from message to message: four map entries with long keys would cost
// allocations on every message. A header line of the same name shares the slot.
const char* const kPseudoNames[] = {"talvex-http-version", "talvex-uri", "talvex-status-code", "talvex-reason-phrase"};

int pseudoIndex(const char* name) {
    if (std::strncmp(name, "talvex-", 7) != 0) return -1;
    for (int i = 0; i < 4; ++i) {
        if (std::strcmp(name, kPseudoNames[i]) == 0) return i;
    }
    return -1;
}
}  // namespace

const char* TALVEXHTTPParser::getHeader(const char* name) const {
    if (name == nullptr) return nullptr;
    const int slot = pseudoIndex(name);
    if (slot >= 0) return m_pseudo_set[slot] ? m_pseudo[slot].c_str() : nullptr;
    const auto it = m_headers.find(name);
    return it == m_headers.end() ? nullptr : it->second.c_str();
}

void TALVEXHTTPParser::setHeader(const char* name, std::string value) {
    const int slot = pseudoIndex(name);
    if (slot >= 0) {
        m_pseudo[slot] = std::move(value);
        m_pseudo_set[slot] = true;
        return;
    }
    // Found by the C string: a key is made only when the name is new.
    const auto it = m_headers.find(name);
    if (it != m_headers.end())
        it->second = std::move(value);
    else
        m_headers.emplace(name, std::move(value));
}

void TALVEXHTTPParser::clearHeaders() {
    m_headers.clear();
    for (bool& set : m_pseudo_set) set = false;
}

void TALVEXHTTPParser::parseRequest(PNXBufferedInputStream* is) {
    MOX_ASSERT(is);
    convertingStdErrors("TALVEXHTTPParser::parseRequest", [&] { readRequestHead(is); });
}

void TALVEXHTTPParser::parseResponse(PNXBufferedInputStream* is) {
    MOX_ASSERT(is);
    convertingStdErrors("TALVEXHTTPParser::parseResponse", [&] { readResponseHead(is); });
}

void TALVEXHTTPParser::parsePartHeaders(PNXBufferedInputStream* is) {
    MOX_ASSERT(is);
    // One parser serves every part of a message: each part starts from nothing.
    m_multipart = 0;
    m_content_length = 0;
    m_chunked = 0;
    m_content_id.clear();
    m_content_type.clear();
    m_boundary.clear();
    clearHeaders();
    startHead();
    convertingStdErrors("TALVEXHTTPParser::parsePartHeaders", [&] { processHeaders(is, 1); });
}

void TALVEXHTTPParser::skipTrailer(PNXBufferedInputStream* is) {
    MOX_ASSERT(is);
    startHead();
    convertingStdErrors("TALVEXHTTPParser::skipTrailer", [&] { processHeaders(is, 0); });
}

void TALVEXHTTPParser::startHead() {
    m_head_left = m_limits.maxHeadSize;
    m_length_seen = false;
}

void TALVEXHTTPParser::readHeadLine(PNXBufferedInputStream* is, MOXByteBuffer& line, const char* function) {
    // The line may already hold its start (the request's method).
    const std::size_t held = line.pcount();
    const std::size_t lineRoom = m_limits.maxHeadLine > held ? m_limits.maxHeadLine - held : 0;
    const bool headBinds = m_head_left < lineRoom;
    std::size_t max = headBinds ? m_head_left : lineRoom;
    if (max >= PNX_EOF) max = PNX_EOF - 1;

    const unsigned rc = is->readline(line, static_cast<unsigned>(max));
    const std::size_t got = line.pcount() - held;
    if (got == max && (got == 0 || line.str()[line.pcount() - 1] != '\n'))
        boundPassed(__LINE__, function, m_limits, headBinds ? kSizeBound : kLineBound);
    m_head_left -= got;
    if (endedInsideLine(rc, line)) TALVEX_RAISE_AT(__LINE__, function, ErrHeadIncomplete, TALVEXMessage(0xF2AD7BA3));
}

void TALVEXHTTPParser::readRequestHead(PNXBufferedInputStream* is) {
    static const char* const function = "TALVEXHTTPParser::parseRequest";
    m_multipart = 0;
    m_content_length = 0;
    m_chunked = 0;
    startHead();
    MOXByteBuffer line(256, 256);

    // The method is scanned byte by byte so that a client speaking something
    // else is refused after a few bytes instead of after a whole line, and
    // blank lines (CR LF or a bare LF) before the request are passed over.
    int prev = 0;
    for (;;) {
        const int c = is->read();
        if (c < 0) TALVEX_RAISE_AT(__LINE__, function, ErrHeadIncomplete, TALVEXMessage(0xF2AD7BA3));
        if (m_head_left-- == 0) boundPassed(__LINE__, function, m_limits, kSizeBound);
        if (prev == 0) line.reset();
        line << static_cast<char>(c);

        bool accepted;
        switch (c) {
            case '\n': accepted = prev == 0 || prev == '\r'; break;
            case '\r':
            case 'P': accepted = prev == 0; break;
            case 'O': accepted = prev == 'P'; break;
            case 'S': accepted = prev == 'O'; break;
            case 'T': accepted = prev == 'S'; break;
            default: accepted = false; break;
        }
        if (!accepted) {
            for (int i = 0; i < kRefusedContextBytes; ++i) {
                const int more = is->read();
                if (more < 0) break;
                line << static_cast<char>(more);
            }
            line << "...";
            TALVEX_RAISE_DETAIL_AT(__LINE__, function, ErrNotPost, TALVEXMessage(0xF2A987E8), printable(line.str()));
        }
        if (c == 'T') break;
        prev = c == '\n' ? 0 : c;
    }

    readHeadLine(is, line, function);
    line.trim();
    validateRequestLine(line);
    processHeaders(is, 1, line);
}

void TALVEXHTTPParser::readResponseHead(PNXBufferedInputStream* is) {
    static const char* const function = "TALVEXHTTPParser::parseResponse";
    m_multipart = 0;
    m_content_length = 0;
    m_chunked = 0;
    MOXByteBuffer line(256, 256);

    for (std::size_t interim = 0;; ++interim) {
        // Each interim head is a head of its own, bounded as such; their
        // number is bounded too, or a peer could keep the reader for ever.
        if (interim > m_limits.maxInterimResponses) boundPassed(__LINE__, function, m_limits, kInterimBound);
        startHead();
        do {
            line.reset();
            readHeadLine(is, line, function);
        } while (line.trim() == 0);

        // Every 1xx but 101 (Switching Protocols) announces a later final
        // response: 100 Continue, 102 Processing, 103 Early Hints. Its head
        // is read to its end and forgotten; its pseudo-headers are
        // overwritten by the final status line.
        const int status = validateResponseLine(line);
        const bool final = status < 100 || status > 199 || status == 101;
        processHeaders(is, final, line);
        if (final) return;
    }
}

void TALVEXHTTPParser::validateRequestLine(MOXByteBuffer& line) {
    try {
        MOXStringTokenizer tokens(line.str(), kTokenDelimiters, 0);
        if (tokens.nextToken() != "POST")
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateRequestLine", ErrNotPost,
                                   TALVEXMessage(0xF2A987E8), printable(line.str()));
        setHeader("talvex-uri", tokens.nextToken());
        const std::string version = tokens.nextToken();
        if (!isVersion(version))
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateRequestLine", ErrHttpVersion,
                                   TALVEXMessage(0xF2A260D2), printable(line.str()));
        setHeader("talvex-http-version", version);
    } catch (NoSuchElementExceptionST&) {
        TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateRequestLine", ErrRequestLine,
                               TALVEXMessage(0xF2AD7530), printable(line.str()));
    }
}

int TALVEXHTTPParser::validateResponseLine(MOXByteBuffer& line) {
    // Split in place on runs of blanks and tabs; the line counts up to its
    // first NUL, as text.
    const char* text = line.str();
    const char* end = text + std::strlen(text);
    const char* p = skipDelimiters(text, end);
    if (p == end)
        TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateResponseLine", ErrStatusLine,
                               TALVEXMessage(0xF2A503ED), printable(text));
    const char* q = tokenEnd(p, end);
    const std::string version(p, q);
    if (!isVersion(version))
        TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateResponseLine", ErrHttpVersion,
                               TALVEXMessage(0xF2A260D2), printable(text));
    setHeader("talvex-http-version", version);

    p = skipDelimiters(q, end);
    if (p == end)
        TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::validateResponseLine", ErrStatusLine,
                               TALVEXMessage(0xF2A503ED), printable(text));
    q = tokenEnd(p, end);
    const std::string code(p, q);
    setHeader("talvex-status-code", code);

    // "" when the line ends after the code.
    p = skipDelimiters(q, end);
    setHeader("talvex-reason-phrase", std::string(p, end));
    return toInt(code.c_str());
}

void TALVEXHTTPParser::processHeaders(PNXBufferedInputStream* is, int store) {
    MOXByteBuffer line(256, 256);
    processHeaders(is, store, line);
}

void TALVEXHTTPParser::processHeaders(PNXBufferedInputStream* is, int store, MOXByteBuffer& line) {
    static const char* const function = "TALVEXHTTPParser::processHeaders";
    MOX_ASSERT(is);
    for (std::size_t count = 0;; ++count) {
        line.reset();
        readHeadLine(is, line, function);
        if (line.trim() == 0) return;
        if (count == m_limits.maxHeadLines) boundPassed(__LINE__, function, m_limits, kLinesBound);
        if (store) processHeader(line);
    }
}

void TALVEXHTTPParser::processHeader(MOXByteBuffer& line) {
    const char* text = line.str();
    const char* colon = std::strchr(text, ':');
    // Neither a header nor an error: such lines (continuations included) are dropped.
    if (colon == nullptr) return;

    std::string name(text, static_cast<size_t>(colon - text));
    HTTPMessage::trim(name);
    MOXUtConvert::strlwr(&name[0]);

    // A value without ';' has no parameters: its normal form is the value
    // itself, trimmed, and it needs no HTTPHeader.
    const char* raw = colon + 1;
    const bool plain = std::strchr(raw, ';') == nullptr;
    const ParsedValue* parsed = nullptr;
    std::string stored;
    const char* value;
    if (plain) {
        const char* end = raw + std::strlen(raw);
        while (end > raw && isTrimmed(end[-1])) --end;
        while (raw < end && isTrimmed(*raw)) ++raw;
        stored.assign(raw, end);
        value = stored.c_str();
    } else {
        parsed = &parsedValue(raw);
        value = parsed->value.c_str();
    }
    const bool empty = *value == '\0';

    if (name == "content-type") {
        if (empty)
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::processHeader", ErrContentType,
                                   TALVEXMessage(0xF2A4A8F1), printable(text));
        m_content_type = value;
        if (startsWithLower(value, "multipart/")) {
            const char* boundary = parsed != nullptr && parsed->hasBoundary ? parsed->boundary.c_str() : nullptr;
            if (boundary == nullptr || *boundary == '\0' || std::strlen(boundary) > kMaxBoundaryLength)
                TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::processHeader", ErrBoundary,
                                       TALVEXMessage(0xF2A23B5F), printable(text));
            m_boundary = boundary;
            m_multipart = 1;
        }
    } else if (name == "content-id") {
        if (empty)
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::processHeader", ErrContentId,
                                   TALVEXMessage(0xF2A4A974), printable(text));
        m_content_id = value;
    } else if (name == "content-length") {
        if (empty || !setContentLength(value))
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::processHeader", ErrContentLength,
                                   TALVEXMessage(0xF2A728B0), printable(text));
    } else if (name == "transfer-encoding") {
        if (empty)
            TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXHTTPParser::processHeader", ErrTransferEncoding,
                                   TALVEXMessage(0xF2AD19C2), printable(text));
        m_chunked = startsWithLower(value, "chunked") && value[7] == '\0' ? 1 : 0;
    }

    if (parsed != nullptr) stored = parsed->normal;
    setHeader(name.c_str(), std::move(stored));
}

bool TALVEXHTTPParser::setContentLength(const char* value) {
    // Digits only, or a list of equal lengths ("5, 5", repeated headers joined
    // by a proxy). A length that is no number, or two that differ, would pick
    // the wrong end of the body.
    int length = -1;
    for (const char* p = value;;) {
        const char* digits = p;
        while (*p >= '0' && *p <= '9') ++p;
        if (p == digits) return false;
        const int v = toInt(digits);
        if (length >= 0 && v != length) return false;
        length = v;
        while (isDelimiter(*p)) ++p;
        if (*p == '\0') break;
        if (*p++ != ',') return false;
        while (isDelimiter(*p)) ++p;
    }
    if (m_length_seen && length != m_content_length) return false;
    m_content_length = length;
    m_length_seen = true;
    return true;
}

std::string makePrintable(const char* pString) {
    // MOX_ASSERT would expand NULL before the condition is turned into text.
    MOX_ASSERT_AT(__LINE__, NULL != pString);
    std::string copy;
    convertingStdErrors(nullptr, [&] { copy = pString; });
    for (char& c : copy) {
        const unsigned char b = static_cast<unsigned char>(c);
        if (b < 0x20 || b > 0x7E) c = '?';
    }
    return copy;
}
