// The whole message reader over memory: head, framing (length, chunked, to the
// end), the envelope, then every attachment. Byte 0 picks request or
// response, the read size, whether attachments are read or left for the
// reader's destructor, and how the envelope is read: through the DOM parser,
// or (bit 7) as a stream by a fixed small reader, so that time goes to the
// framing rather than to the XML parser. The input's length picks the bounds
// on heads (fuzz::limitsFor).

#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxidom/MOXIDOM_Document.h"
#include "talvex/TALVEXAttachmentReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    MemoryInputStream mem(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), fuzz::pieceFrom(mode >> 1));
    fuzz::guarded([&] {
        TALVEXMessageReaderImp reader(mode & 1, &mem, fuzz::limitsFor(size));
        fuzz::guarded([&] {
            if (mode & 0x80) {
                PNXInputStream& envelope = reader.openEnvelope();
                fuzz::drain(envelope);
                reader.closeEnvelope(envelope);
            } else {
                MOXIDOM_Document doc;
                reader.getEnvelope(doc);
            }
            (void)reader.getHeader("content-type");
            if (mode & 0x40) return;
            unsigned n = 0;
            while (reader.hasMoreAttachments()) {
                if (++n > 10000) std::abort();
                TALVEXAttachmentReader& a = reader.openNextAttachment();
                (void)a.getContentId();
                (void)a.getContentType();
                (void)a.getHeader("content-transfer-encoding");
                if (!(mode & 0x20)) fuzz::drain(a.getInputStream());
                reader.closeAttachment(a);
            }
        });
        // The destructor reads what is left of the message.
    });
    return 0;
}
