#ifndef TALVEX_HTTP_TALVEXHTTPPARSER_H
#define TALVEX_HTTP_TALVEXHTTPPARSER_H

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "talvex/TALVEXLimits.h"

class MOXByteBuffer;
class PNXBufferedInputStream;

// Reads the head of an HTTP message (start line and header block), or the
// header block of one MIME part, and keeps what the body readers need: the
// header map plus the framing fields. It stops right after the empty line that
// ends the head and never reads a body byte.
//
// The header map is keyed by trimmed, lower-cased header names; the start line
// is kept under the pseudo-headers "talvex-http-version", "talvex-uri" (request),
// "talvex-status-code" and "talvex-reason-phrase" (response).
//
// Every head, trailer and part head is held to the limits' maxHeadLine,
// maxHeadLines and maxHeadSize, checked while it is read.
//
// Failures are TALVEXExceptions with codes 6 to 15 (a passed bound is code 6
// with a second message naming it); an allocation failure is
// MOXOutOfMemoryError. Fields stored before a failure stay as they are.
class TALVEXHTTPParser {
public:
    explicit TALVEXHTTPParser(const TALVEXLimits& limits = TALVEXLimits());
    ~TALVEXHTTPParser();

    // A request head; the method must be POST. Blank lines before it are skipped.
    void parseRequest(PNXBufferedInputStream* is);
    // A response head; interim responses (1xx but 101), at most
    // maxInterimResponses of them, are passed over together with their headers.
    void parseResponse(PNXBufferedInputStream* is);
    // The header block of one MIME part; forgets everything of the previous part first.
    void parsePartHeaders(PNXBufferedInputStream* is);
    // The trailer after a chunked body's last chunk, up to its empty line; its
    // lines are dropped and the record is left as it is.
    void skipTrailer(PNXBufferedInputStream* is);

    int isMultipart() const { return m_multipart; }
    int isChunked() const { return m_chunked; }
    int getContentLength() const { return m_content_length; }
    const std::string& getContentId() const { return m_content_id; }
    const std::string& getContentType() const { return m_content_type; }
    const std::string& getBoundary() const { return m_boundary; }
    // The value stored under exactly this key, or null. The name is not
    // lower-cased here: callers pass lower-case names.
    const char* getHeader(const char* name) const;

private:
    void readRequestHead(PNXBufferedInputStream* is);
    void readResponseHead(PNXBufferedInputStream* is);
    void validateRequestLine(MOXByteBuffer& line);
    int validateResponseLine(MOXByteBuffer& line);
    void processHeaders(PNXBufferedInputStream* is, int store);
    // The same, reading each line into the caller's buffer.
    void processHeaders(PNXBufferedInputStream* is, int store, MOXByteBuffer& line);
    void processHeader(MOXByteBuffer& line);
    // Takes a Content-Length value; false when it is no length or differs from an earlier one.
    bool setContentLength(const char* value);
    void setHeader(const char* name, std::string value);
    void clearHeaders();

    // A new head (or trailer, or part head) may take maxHeadSize bytes.
    void startHead();
    // Appends the next line of the head to `line`, stopping at the line and
    // head bounds; code 6 when the stream ends inside the line or it passes a bound.
    void readHeadLine(PNXBufferedInputStream* is, MOXByteBuffer& line, const char* function);

    TALVEXLimits m_limits;
    std::size_t m_head_left;  // bytes the current head may still take
    bool m_length_seen;       // the current head had a Content-Length
    int m_multipart;
    int m_content_length;
    int m_chunked;
    std::string m_content_id;
    std::string m_content_type;
    std::string m_boundary;
    // std::less<>: looked up by a C string without making a std::string of it.
    std::map<std::string, std::string, std::less<>> m_headers;
    // The pseudo-headers of the start line (see the .cpp), and whether each was stored.
    std::string m_pseudo[4];
    bool m_pseudo_set[4];
};

// A copy of a wire text fit for an error message: every byte outside 0x20..0x7E
// becomes '?'.
std::string makePrintable(const char* pString);

#endif
