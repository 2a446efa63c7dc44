// The chunked transfer decoder over a buffered stream; byte 0 picks the read
// size and the way the decoded body is taken (bytes, blocks, buffers).

#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "MemoryInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXChunkedInputStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    MemoryInputStream mem(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), fuzz::pieceFrom(mode));
    PNXBufferedInputStream in(mem, (mode & 0x80) ? 5 : 4096);
    PNXChunkedInputStream chunked(in);
    fuzz::guarded([&] {
        switch ((mode >> 5) & 3) {
            case 0: fuzz::drain(chunked); break;
            case 1: {
                size_t total = 0;
                while (chunked.read() != -1)
                    if (++total > (1u << 20)) std::abort();
                break;
            }
            default: {
                MOXByteBuffer b;
                size_t total = 0;
                for (unsigned n; (n = chunked.read(b, 33)) != PNX_EOF;) {
                    total += n;
                    if (total > (1u << 20)) std::abort();
                }
                break;
            }
        }
        // The trailer stays in the buffered stream for the caller.
        MOXByteBuffer line;
        while (in.readline(line) != PNX_EOF) line.reset();
    });
    // After a failure, reads keep repeating the error rather than going on.
    fuzz::guarded([&] { fuzz::drain(chunked); });
    return 0;
}
