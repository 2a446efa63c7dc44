#ifndef MOXHTTPTOOLS_MULTIPARTHTTPMSG_H
#define MOXHTTPTOOLS_MULTIPARTHTTPMSG_H

#include <memory>
#include <string>

#include "moxhttptools/HttpMsgNode.h"

class HttpWireWriter;
class OnePieceHttpMsg;
class PNXOutputStream;

// An HTTP message with a multipart/related body, written one part at a time.
//
// Head: the caller's lines, then
//   MIME-Version: 1.0
//   Content-Type: multipart/related; type="<root type>"; boundary="<boundary>"
// (with start-info="<start info>" before the boundary when one is given)
// and the framing header as for OnePieceHttpMsg (caller-set MIME-Version,
// Content-Type, Content-Length and Transfer-Encoding are left out). It goes
// out with the first part, or at finish.
//
// Body: "--<boundary>" CR LF at its very start, the first part's header block,
// CR LF, its content; each next part begins with CR LF "--<boundary>" CR LF;
// finish closes with CR LF "--<boundary>--" CR LF. A message without any part
// has the body "--<boundary>--" CR LF alone.
class MultipartHttpMsg : public HttpMsgNode {
public:
    // boundary: 1 to 70 characters of the RFC 2046 boundary set (letters,
    // digits and '()+_,-./:=? and blank, not ending in a blank); anything else
    // raises MOXIllegalArgumentError. chunkSize as for OnePieceHttpMsg.
    MultipartHttpMsg(PNXOutputStream& out, int chunkSize, const char* boundary);
    // A part still open stays usable for deletion only.
    ~MultipartHttpMsg() override;

    // Closes the body and writes out everything; raises MOXIllegalStateError
    // while a part is open. Later calls do nothing.
    void finish() override;

    // Opens the next part and returns it; the caller owns it until endPart.
    // flag: -1 or 0, both open an ordinary part (the value is accepted for the
    // callers that pass it and has no further meaning); others raise
    // MOXIllegalArgumentError. Raises MOXIllegalStateError while another part
    // is open or after finish.
    OnePieceHttpMsg* addOnePiece(int flag);

    // Ends the open part (writing its header block if still held) and deletes
    // it. Null does nothing. A part that is not this message's open one raises
    // MOXIllegalArgumentError and is not touched; if ending fails, the part
    // stays the caller's.
    void endPart(OnePieceHttpMsg* part);

    // The media type of the first (root) part, for the type parameter of the
    // head (default "text/xml"), and the start-info parameter (null or "":
    // none), for a root part that wraps another type (XOP). Must come before
    // the head goes out (MOXIllegalStateError); an empty type raises
    // MOXIllegalArgumentError.
    void setRootType(const char* type, const char* startInfo);

    const std::string& getBoundary() const { return m_boundary; }
    // Whether a boundary is one the constructor takes.
    static bool isValidBoundary(const char* boundary);

protected:
    bool isOwnHeader(const std::string& name) const override;

private:
    friend class OnePieceHttpMsg;

    void startBody();
    void writePartContent(OnePieceHttpMsg& part, const char* data, unsigned int length);
    void writePartHead(OnePieceHttpMsg& part);
    void forgetPart(OnePieceHttpMsg& part);

    std::unique_ptr<HttpWireWriter> m_wire;
    std::string m_boundary;
    std::string m_root_type;
    std::string m_start_info;
    OnePieceHttpMsg* m_open_part;
    bool m_any_part;
    bool m_finished;
};

#endif
