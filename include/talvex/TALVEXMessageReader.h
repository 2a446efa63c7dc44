#ifndef TALVEX_TALVEXMESSAGEREADER_H
#define TALVEX_TALVEXMESSAGEREADER_H

#include "moxidom/MOXIDOM_Node.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXAttachmentReader.h"
#include "talvex/TALVEXExport.h"

/// Reads one received HTTP message carrying a SOAP envelope, with or without
/// attachments. Obtain one from TALVEXSession::openResponse and give it back
/// with closeResponse, which reads what is left so the connection can carry
/// the next request.
///
/// Order of calls: getEnvelope (or openEnvelope, read, closeEnvelope); then,
/// while hasMoreAttachments() is 1: openNextAttachment, read its headers and
/// its getInputStream(), closeAttachment. A part may be left partly read.
class TALVEX_API TALVEXMessageReader {
public:
    explicit TALVEXMessageReader(int isRequest);
    virtual ~TALVEXMessageReader();

    /// Parses the envelope and appends its root element to `node` (an element
    /// or a document of yours); the parsed copy outlives the reader.
    virtual void getEnvelope(MOXIDOM_Node& node) = 0;
    virtual PNXInputStream& openEnvelope() = 0;
    virtual void closeEnvelope(PNXInputStream& stream) = 0;
    virtual int isMultipart() = 0;
    /// 0 until the envelope is closed.
    virtual int hasMoreAttachments() = 0;
    virtual TALVEXAttachmentReader& openNextAttachment() = 0;
    virtual void closeAttachment(TALVEXAttachmentReader& attachment) = 0;
    /// Lower-case header names of the message head, and "talvex-http-version",
    /// "talvex-status-code", "talvex-reason-phrase" (responses), "talvex-uri"
    /// (requests). Null when absent.
    virtual const char* getHeader(const char* name) = 0;

    /// 1: this reads an HTTP request (server side); 0: a response.
    int isRequest;

private:
    TALVEXMessageReader();
};

#endif
