#ifndef TESTS_STREAMS_STREAMREADING_H
#define TESTS_STREAMS_STREAMREADING_H

#include <stdexcept>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXInputStream.h"

// Reading a stream to its end in each of the three ways the toolkit reads.
// The loops are bounded: a stream that never ends fails the test instead of
// hanging it.
enum class ReadWay { Bytes, Chars, Buffer };

inline const char* readWayName(ReadWay way) {
    return way == ReadWay::Bytes ? "read()" : way == ReadWay::Chars ? "read(char*)" : "read(MOXByteBuffer&)";
}

inline std::string readToEnd(PNXInputStream& s, ReadWay way, unsigned n = 7, unsigned limit = 1u << 22) {
    std::string out;
    MOXByteBuffer b(64, 64);
    char buf[4096];
    if (n > sizeof buf) n = sizeof buf;
    for (unsigned calls = 0; calls < limit; ++calls) {
        if (way == ReadWay::Bytes) {
            const int c = s.read();
            if (c == -1) return out;
            if (c < 0 || c > 255) throw std::runtime_error("read() gave " + std::to_string(c));
            out += static_cast<char>(c);
        } else if (way == ReadWay::Chars) {
            const unsigned r = s.read(buf, n);
            if (r == PNX_EOF) return out;
            if (r == 0 || r > n) throw std::runtime_error("read(char*) gave " + std::to_string(r));
            out.append(buf, r);
        } else {
            b.reset();
            const unsigned r = s.read(b, n);
            if (r == PNX_EOF) return out;
            if (r == 0 || r > n || r != b.pcount()) throw std::runtime_error("read(MOXByteBuffer&) gave " + std::to_string(r));
            out.append(b.str(), r);
        }
    }
    throw std::runtime_error("the stream did not end");
}

#endif
