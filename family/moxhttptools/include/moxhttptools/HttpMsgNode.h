#ifndef MOXHTTPTOOLS_HTTPMSGNODE_H
#define MOXHTTPTOOLS_HTTPMSGNODE_H

#include <string>
#include <utility>
#include <vector>

// The head of an outgoing HTTP message or MIME part: start line and header
// lines, held until the body starts and then written in one go.
//
// Head layout, each line ending in CR LF:
//   start line                     (messages only)
//   Host: <authority>              (requests only, unless the caller set a Host)
//   caller's headers, in call order, "Name: value"
//   framing headers                (added by the sender)
//   empty line
// Once the head is out, calls that would change it raise MOXIllegalStateError.
class HttpMsgNode {
public:
    virtual ~HttpMsgNode();
    // Completes the message: writes what is still held and ends the body.
    // A second call does nothing.
    virtual void finish() = 0;

    HttpMsgNode(const HttpMsgNode&) = delete;
    HttpMsgNode& operator=(const HttpMsgNode&) = delete;

    // Start line "POST <uri> HTTP/1.1". A null or empty uri is sent as "/";
    // bytes that cannot stand in a request target (controls, blank, DEL, bytes
    // above 0x7F) are percent-encoded. reserved: pass 0; it is not used.
    void startRequest(const char* uri, int reserved);
    // Start line "HTTP/1.1 <status> <reason>"; status must lie in 100..999
    // (MOXIllegalArgumentError otherwise); a null reason is sent as "".
    void startResponse(int status, const char* reason);
    // Adds a header line. A null value gives an empty value. The name must be
    // non-empty (MOXIllegalArgumentError); CR, LF and NUL in the name or value
    // are sent as blanks, so no text can end the line early.
    void setHeader(const char* name, const char* value);
    // The connection's "host[:port]", sent as the request's Host header; null
    // or "" forgets it. Without one, a request's Host comes from an
    // absolute-form uri ("http://host:port/path"), else it is sent empty.
    void setAuthority(const char* authority);
    // Sends exactly this text as the head (start line and header lines, each
    // ending in CR LF, without the framing headers and the empty line) instead
    // of composing it: for a sender repeating the head of an earlier message
    // (OnePieceHttpMsg::sentHead) without building it again. Start line and
    // headers set meanwhile are kept but not sent; null forgets the given head
    // (at any time), so they are. Giving a head to a part, or after the head
    // was written, raises MOXIllegalStateError.
    void useHead(const std::string* head);

protected:
    explicit HttpMsgNode(bool isPart);

    bool isHeadWritten() const { return m_head_written; }
    // Appends the head as described above, without the framing headers and
    // without the empty line, and freezes it. A message (not a part) without
    // a start line raises MOXIllegalStateError.
    void composeHead(std::string& out);
    // Whether a header of that name is left out because the sender writes it
    // itself (framing headers and the like). The base keeps all.
    virtual bool isOwnHeader(const std::string& name) const;
    // The text with CR and LF turned into blanks (null: ""), so that it
    // cannot end a header line early.
    static std::string lineSafe(const char* text);

private:
    void checkOpen(const char* function) const;
    void checkMessage(const char* function) const;
    std::string hostValue() const;

    bool m_is_part;
    bool m_head_written;
    bool m_is_request;
    bool m_has_start_line;
    bool m_has_authority;
    bool m_has_given_head;
    std::string m_given_head;
    std::string m_start_line;
    std::string m_uri;
    std::string m_authority;
    std::vector<std::pair<std::string, std::string>> m_headers;
};

#endif
