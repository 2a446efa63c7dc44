#ifndef TALVEX_MIME_TALVEXATTACHMENTREADERIMP_H
#define TALVEX_MIME_TALVEXATTACHMENTREADERIMP_H

#include "http/TALVEXHTTPParser.h"
#include "talvex/TALVEXAttachmentReader.h"

class TALVEXMPInputStream;

// The attachment reader over the multipart stream; one per message, reused
// for every part, the envelope part first.
class TALVEXAttachmentReaderImp : public TALVEXAttachmentReader {
public:
    // The part heads are held to the limits' head bounds.
    TALVEXAttachmentReaderImp(TALVEXMPInputStream* in, const TALVEXLimits& limits);
    ~TALVEXAttachmentReaderImp() override;

    const char* getContentId() override;
    const char* getContentType() override;
    int getContentLength() override;
    const char* getHeader(const char* name) override;
    int isGzipEncoded() override;
    // Asked again for the same part, it returns the same stream.
    PNXInputStream& getInputStream() override;
    // Releases the previous part's decoding stream and reads this part's headers.
    virtual void readHeaders();

private:
    TALVEXHTTPParser m_parser;
    PNXInputStream* m_decoded;
    TALVEXMPInputStream* m_raw;
};

#endif
