#ifndef TALVEX_TALVEXATTACHMENTREADER_H
#define TALVEX_TALVEXATTACHMENTREADER_H

#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXExport.h"

/// One MIME part of a received multipart message: its headers and its body.
/// The message reader hands out the same object for every part; what it
/// returns is valid until the next part is opened.
class TALVEX_API TALVEXAttachmentReader {
public:
    TALVEXAttachmentReader();
    virtual ~TALVEXAttachmentReader();

    /// "" when the part has no such header.
    virtual const char* getContentId() = 0;
    virtual const char* getContentType() = 0;
    virtual int getContentLength() = 0;
    /// Header names are stored in lower case: pass lower-case names.
    virtual const char* getHeader(const char* name) = 0;
    /// 1 when the part's Content-Encoding is gzip; the bytes are NOT inflated.
    virtual int isGzipEncoded() = 0;
    /// The part's body, quoted-printable decoded when so declared. A part in
    /// base64 raises error 29 (not decoded by the toolkit).
    virtual PNXInputStream& getInputStream() = 0;
};

#endif
