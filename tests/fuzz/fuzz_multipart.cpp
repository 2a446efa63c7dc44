// The multipart stream. The input is "<boundary>\n<body>": the boundary is
// the first line (at most 200 bytes, so the pattern always fits the stream's
// buffer), the rest is the body, read part by part as the message reader
// does: CR LF pushed in front, header lines (bounded as the input's length
// picks, fuzz::limitsFor), then the data.

#include <cstdint>
#include <string>
#include <utility>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "mime/TALVEXMPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBufferedInputStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t mode = data[0];
    std::string boundary, body;
    if (!fuzz::boundaryAndBody(data + 1, size - 1, boundary, body)) return 0;
    MemoryInputStream mem(std::move(body), fuzz::pieceFrom(mode));
    PNXBufferedInputStream in(mem, (mode & 0x80) ? 3 : 4096);
    fuzz::guarded([&] {
        in.unread("\r\n", 2);
        TALVEXMPInputStream mp(&in, boundary);
        const unsigned lineBound = static_cast<unsigned>(fuzz::limitsFor(size).maxHeadLine);
        unsigned parts = 0;
        while (mp.hasNextPart()) {
            mp.nextPart();
            if (++parts > 10000) std::abort();
            MOXByteBuffer line;
            unsigned lines = 0;
            while (mp.readline(line, lineBound) != 0) {
                if (line.pcount() <= 2) break;  // the empty line ending the part's head
                line.reset();
                if (++lines > 100000) std::abort();
            }
            if ((mode & 0x60) == 0x20) continue;  // leave the part for hasNextPart to skip
            if ((mode & 0x60) == 0x40) {
                while (mp.read() != -1) {
                }
            } else {
                fuzz::drain(mp);
            }
        }
        mp.unWrap();
        fuzz::drain(in);
    });
    return 0;
}
