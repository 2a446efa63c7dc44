// The attachment reader over the multipart stream, part after part, as the
// message reader drives it: headers parsed, the getters asked, the body read
// raw or quoted-printable decoded (or refused, for base64). The input is
// "<boundary>\n<body>", as for the multipart target; its length picks the
// bounds on part heads (fuzz::limitsFor).

#include <cstdint>
#include <string>
#include <utility>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "mime/TALVEXAttachmentReaderImp.h"
#include "mime/TALVEXMPInputStream.h"
#include "pnxstreams/PNXBufferedInputStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    std::string boundary, body;
    if (!fuzz::boundaryAndBody(data + 1, size - 1, boundary, body)) return 0;
    MemoryInputStream mem(std::move(body), fuzz::pieceFrom(mode));
    PNXBufferedInputStream in(mem, 4096);
    fuzz::guarded([&] {
        in.unread("\r\n", 2);
        TALVEXMPInputStream mp(&in, boundary);
        TALVEXAttachmentReaderImp attachment(&mp, fuzz::limitsFor(size));
        unsigned parts = 0;
        while (mp.hasNextPart()) {
            mp.nextPart();
            if (++parts > 10000) std::abort();
            // A part whose head or body is refused is skipped like any other:
            // the next hasNextPart() looks for the following delimiter.
            fuzz::guarded([&] {
                attachment.readHeaders();
                (void)attachment.getContentId();
                (void)attachment.getContentType();
                (void)attachment.getContentLength();
                (void)attachment.getHeader("content-transfer-encoding");
                (void)attachment.isGzipEncoded();
                if (mode & 0x20) return;  // left unread
                PNXInputStream& body = attachment.getInputStream();
                if (&attachment.getInputStream() != &body) std::abort();
                if (mode & 0x40) {
                    while (body.read() != -1) {
                    }
                } else {
                    fuzz::drain(body);
                }
            });
        }
    });
    return 0;
}
