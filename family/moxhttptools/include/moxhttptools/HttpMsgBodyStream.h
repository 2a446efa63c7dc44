#ifndef MOXHTTPTOOLS_HTTPMSGBODYSTREAM_H
#define MOXHTTPTOOLS_HTTPMSGBODYSTREAM_H

#include "talvex/PNXOutputStream.h"

class OnePieceHttpMsg;

// The body stream of a one-piece message or MIME part: what is written here
// is the content, framed and buffered by the owning sender. flush and close
// are the base's no-ops: bytes leave when the sender's buffer fills and at
// finish (or endPart), and the body ends with those calls, not with close.
class HttpMsgBodyStream : public PNXOutputStream {
public:
    explicit HttpMsgBodyStream(OnePieceHttpMsg& owner) : m_owner(owner) {}

    HttpMsgBodyStream(const HttpMsgBodyStream&) = delete;
    HttpMsgBodyStream& operator=(const HttpMsgBodyStream&) = delete;

    void write(const char* data, unsigned int length) override;

private:
    OnePieceHttpMsg& m_owner;
};

#endif
