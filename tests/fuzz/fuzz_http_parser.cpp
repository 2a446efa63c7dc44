// The HTTP head parser: byte 0 selects request head, response head or MIME
// part headers, and the read size of the inner stream; the input's length
// picks the bounds (fuzz::limitsFor).

#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "http/TALVEXHTTPParser.h"
#include "pnxstreams/PNXBufferedInputStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    MemoryInputStream mem(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), fuzz::pieceFrom(mode >> 2));
    // A small buffer at times, so lines cross refills.
    PNXBufferedInputStream in(mem, (mode & 0x80) ? 7 : 4096);
    TALVEXHTTPParser parser(fuzz::limitsFor(size));
    fuzz::guarded([&] {
        switch (mode % 3) {
            case 0: parser.parseRequest(&in); break;
            case 1: parser.parseResponse(&in); break;
            default: parser.parsePartHeaders(&in); break;
        }
    });
    // Whatever was stored before a failure must stay readable.
    volatile size_t touch = parser.getBoundary().size() + parser.getContentId().size() +
                            parser.getContentType().size();
    (void)touch;
    (void)parser.getHeader("content-type");
    (void)parser.getHeader("talvex-status-code");
    (void)parser.getContentLength();
    // What may follow on the same stream: the next head, as a keep-alive
    // connection reads it, or the trailer after a chunked body.
    fuzz::guarded([&] { (mode % 3 == 1) ? parser.parseResponse(&in) : parser.skipTrailer(&in); });
    return 0;
}
