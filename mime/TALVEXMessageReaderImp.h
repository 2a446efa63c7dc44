#ifndef TALVEX_MIME_TALVEXMESSAGEREADERIMP_H
#define TALVEX_MIME_TALVEXMESSAGEREADERIMP_H

#include <string>

#include "http/TALVEXHTTPParser.h"
#include "talvex/TALVEXLimits.h"
#include "talvex/TALVEXMessageReader.h"

class PNXBlockInputStream;
class PNXBufferedInputStream;
class PNXChunkedInputStream;
class TALVEXAttachmentReaderImp;
class TALVEXMPInputStream;

// Reads one message from an input stream: the head through the HTTP parser, the
// body as chunked, length-delimited or running to the end of the connection,
// a multipart body part by part. drain (or else the destructor) reads the rest
// of a chunked or length-delimited message, so that the connection can carry
// the next one.
class TALVEXMessageReaderImp : public TALVEXMessageReader {
public:
    TALVEXMessageReaderImp(int isRequest, PNXInputStream* in, const TALVEXLimits& limits = TALVEXLimits());
    ~TALVEXMessageReaderImp() override;

    void getEnvelope(MOXIDOM_Node& node) override;
    // Called once per reader; a second call is refused.
    PNXInputStream& openEnvelope() override;
    void closeEnvelope(PNXInputStream& stream) override;
    int isMultipart() override;
    int hasMoreAttachments() override;
    TALVEXAttachmentReader& openNextAttachment() override;
    void closeAttachment(TALVEXAttachmentReader& attachment) override;
    const char* getHeader(const char* name) override;

    // Reads and drops the rest of the message under the caller's time limit or
    // cancel mode (the one in force, else the one the last close cleared). A
    // message that cannot be read to its end closes the connection: false.
    bool drain();

private:
    TALVEXMessageReaderImp(const TALVEXMessageReaderImp&) = delete;
    TALVEXMessageReaderImp& operator=(const TALVEXMessageReaderImp&) = delete;

    // Clears a cancel mode and a time limit the caller set on the connection's stream.
    void resetStreamSettings();

    void skipRest();
    // "The server answered HTTP 500 ..." for a response that is not a success; else empty.
    std::string errorStatus();

    const TALVEXLimits m_limits;
    int m_more_parts;
    bool m_head_read;
    bool m_drained;
    // What resetStreamSettings cleared, for the drain.
    int m_caller_timeout;
    int m_caller_cancel;
    TALVEXHTTPParser m_parser;
    PNXInputStream* m_original_is;
    PNXBufferedInputStream* m_buffered;
    PNXChunkedInputStream* m_chunked;
    PNXBlockInputStream* m_block;
    TALVEXAttachmentReaderImp* m_attachment;
    TALVEXMPInputStream* m_multipart;
    PNXInputStream* m_body;
};

#endif
