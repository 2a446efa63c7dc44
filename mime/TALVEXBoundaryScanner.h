#ifndef TALVEX_MIME_TALVEXBOUNDARYSCANNER_H
#define TALVEX_MIME_TALVEXBOUNDARYSCANNER_H

#include <string>

// Finds a multipart delimiter in a buffer that is filled piece by piece. The
// number of pattern bytes matched at the end of one scanned range is carried to
// the next call, so a delimiter split across refills is still found; the
// caller keeps those matched bytes at the start of the next range.
//
// scan() is a naive search (no skip tables): it only looks at the bytes of the
// new range, once each except after a failed partial match. It jumps to
// candidate starts with memchr; scanBytewise() is the same search one byte at
// a time, kept as the reference the fast path must agree with.
class TALVEXBoundaryScanner {
public:
    TALVEXBoundaryScanner();
    ~TALVEXBoundaryScanner();

    // Keeps a pointer to p's characters: p must outlive the use of the
    // scanner and must not be empty.
    void setPattern(const std::string& p);

    // Searches buf[start, end) and returns the end of the bytes that certainly
    // belong to the part: the start of a partial match running up to end, or
    // end. Once the whole pattern is found, isFound() answers 1 and the result
    // is the position where the pattern begins.
    unsigned scan(const char* buf, unsigned start, unsigned end);
    // The same search, byte by byte.
    unsigned scanBytewise(const char* buf, unsigned start, unsigned end);

    int isFound() const { return m_found; }
    // Pattern bytes matched at the end of the last scanned range.
    unsigned getMatched() const { return m_matched; }
    void reset();

private:
    const char* m_pat;
    unsigned m_pat_len;
    unsigned m_matched;
    int m_found;
};

#endif
