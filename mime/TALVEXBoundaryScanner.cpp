#include "mime/TALVEXBoundaryScanner.h"

#include <cstring>

#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "TALVEXBoundaryScanner";

TALVEXBoundaryScanner::TALVEXBoundaryScanner() : m_pat(NULL), m_pat_len(0), m_matched(0), m_found(0) {}

TALVEXBoundaryScanner::~TALVEXBoundaryScanner() { m_pat = NULL; }

void TALVEXBoundaryScanner::setPattern(const std::string& p) {
    m_pat = p.data();
    m_pat_len = static_cast<unsigned>(p.size());
}

void TALVEXBoundaryScanner::reset() {
    m_matched = 0;
    m_found = 0;
}

unsigned TALVEXBoundaryScanner::scanBytewise(const char* buf, unsigned start, unsigned end) {
    MOX_ASSERT(buf);
    MOX_ASSERT(m_pat);
    // Unsigned arithmetic: last + 1 wraps back to start when nothing failed.
    unsigned i = start + m_matched;
    unsigned last = start - 1;
    while (i < end) {
        if (buf[i] == m_pat[m_matched]) {
            if (++m_matched == m_pat_len) {
                m_found = 1;
                m_matched = 0;
                return i - m_pat_len + 1;
            }
        } else {
            // The failed attempt began at i - m_matched; retry one byte later.
            i -= m_matched;
            last = i;
            m_matched = 0;
        }
        ++i;
    }
    return last + 1;
}

unsigned TALVEXBoundaryScanner::scan(const char* buf, unsigned start, unsigned end) {
    MOX_ASSERT(buf);
    MOX_ASSERT(m_pat);
    // The bytes matched by an earlier call are trusted, not compared again,
    // exactly as the byte-by-byte search does.
    if (start + m_matched >= end) return start;
    const char first = m_pat[0];
    unsigned p = start;     // start of the current attempt
    unsigned j = m_matched; // pattern bytes matched in it
    for (;;) {
        while (j < m_pat_len && p + j < end && buf[p + j] == m_pat[j]) ++j;
        if (j == m_pat_len) {
            m_found = 1;
            m_matched = 0;
            return p;
        }
        if (p + j == end) {
            m_matched = j;
            return p;
        }
        // Mismatch: the next attempt can only begin at the pattern's first byte.
        ++p;
        const void* next = p < end ? std::memchr(buf + p, first, end - p) : NULL;
        if (next == NULL) {
            m_matched = 0;
            return end;
        }
        p = static_cast<unsigned>(static_cast<const char*>(next) - buf);
        j = 1;
    }
}
