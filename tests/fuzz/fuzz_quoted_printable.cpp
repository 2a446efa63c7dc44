// The quoted-printable decoder; byte 0 picks the read size of the inner stream
// and how the decoded bytes are taken.

#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXByteBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    const std::string encoded(reinterpret_cast<const char*>(data) + 1, size - 1);
    MemoryInputStream mem(encoded, fuzz::pieceFrom(mode));
    TALVEXQPInputStream qp(&mem);
    fuzz::guarded([&] {
        // Decoding never grows the data beyond twice the input (hard line ends
        // become CR LF), so more than that is a runaway.
        const size_t limit = 2 * encoded.size() + 2;
        size_t total = 0;
        switch ((mode >> 5) & 3) {
            case 0: total = fuzz::drain(qp, limit); break;
            case 1:
                while (qp.read() != -1)
                    if (++total > limit) std::abort();
                break;
            case 2: {
                MOXByteBuffer b;
                for (unsigned n; (n = qp.readline(b)) != PNX_EOF;) {
                    total += n;
                    if (total > limit) std::abort();
                }
                break;
            }
            default: {
                MOXByteBuffer b;
                for (unsigned n; (n = qp.read(b, 5)) != PNX_EOF;) {
                    total += n;
                    if (total > limit) std::abort();
                }
                break;
            }
        }
    });
    return 0;
}
