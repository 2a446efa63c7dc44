#ifndef MOXHTTPTOOLS_ONEPIECEHTTPMSG_H
#define MOXHTTPTOOLS_ONEPIECEHTTPMSG_H

#include <memory>
#include <string>

#include "moxhttptools/HttpMsgBodyStream.h"
#include "moxhttptools/HttpMsgNode.h"

class HttpWireWriter;
class MultipartHttpMsg;
class PNXOutputStream;

// An HTTP message whose body is one piece, or one MIME part of a
// MultipartHttpMsg (made by its addOnePiece).
//
// As a message: the head goes out when the first body byte is written or at
// finish, followed by "Transfer-Encoding: chunked" (chunkSize != 0; chunks of
// at most chunkSize bytes, then "0" CR LF and the empty trailer) or by
// "Content-Length" (chunkSize 0; the body is held until finish). Caller-set
// Content-Length and Transfer-Encoding headers are left out: the framing is
// the sender's.
//
// As a part: setHeader builds the part's header block, which is written with
// its empty line when the first content byte arrives or at endPart; body
// writes its content into the multipart body.
class OnePieceHttpMsg : public HttpMsgNode {
public:
    // chunkSize: 0 for Content-Length, else the largest chunk; negative values
    // raise MOXIllegalArgumentError.
    OnePieceHttpMsg(PNXOutputStream& out, int chunkSize);
    ~OnePieceHttpMsg() override;

    // Message: writes the head if still held, ends the body, writes out
    // everything and flushes the stream; later calls do nothing. Part: writes
    // the header block if still held; the part ends with endPart.
    void finish() override;

    // The head this message sent (see HttpMsgNode::composeHead: no framing
    // headers, no empty line); "" before it went out. Messages only.
    const std::string& sentHead() const { return m_sent_head; }

    // The body: sender.body.write(p, n). After finish, or for a part whose
    // message is gone, writes raise MOXIllegalStateError.
    HttpMsgBodyStream body;

protected:
    bool isOwnHeader(const std::string& name) const override;

private:
    friend class HttpMsgBodyStream;
    friend class MultipartHttpMsg;

    explicit OnePieceHttpMsg(MultipartHttpMsg& parent);

    void writeBody(const char* data, unsigned int length);
    void startBody();
    // The part's header block with its empty line; for the parent.
    std::string takePartHead();

    std::unique_ptr<HttpWireWriter> m_wire;  // messages only
    MultipartHttpMsg* m_parent;              // parts only; null once the parent is gone
    bool m_finished;
    std::string m_sent_head;
};

#endif
