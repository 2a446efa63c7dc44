#ifndef TALVEX_HTTP_TALVEXHTTPPARSER_H
#define TALVEX_HTTP_TALVEXHTTPPARSER_H

#include <functional>
#include <map>
#include <string>

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
// Failures are TALVEXExceptions with codes 6 to 15; fields stored before a
// failure stay as they are.
class TALVEXHTTPParser {
public:
    TALVEXHTTPParser();
    ~TALVEXHTTPParser();

    // A request head; the method must be POST. Blank lines before it are skipped.
    void parseRequest(PNXBufferedInputStream* is);
    // A response head; interim 100 responses are passed over together with their headers.
    void parseResponse(PNXBufferedInputStream* is);
    // The header block of one MIME part; forgets everything of the previous part first.
    void parsePartHeaders(PNXBufferedInputStream* is);

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
    void validateRequestLine(MOXByteBuffer& line);
    int validateResponseLine(MOXByteBuffer& line);
    void processHeaders(PNXBufferedInputStream* is, int store);
    // The same, reading each line into the caller's buffer.
    void processHeaders(PNXBufferedInputStream* is, int store, MOXByteBuffer& line);
    void processHeader(MOXByteBuffer& line);
    void setHeader(const char* name, std::string value);
    void clearHeaders();

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
