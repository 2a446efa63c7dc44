#ifndef TALVEX_TESTS_HEADFEED_H
#define TALVEX_TESTS_HEADFEED_H

#include <string>
#include <utility>

#include "MemoryInputStream.h"
#include "pnxstreams/PNXBufferedInputStream.h"

// The bytes of a message behind the buffered stream the parser reads, as the
// message reader sets it up over a connection.
class HeadFeed {
public:
    // piece: the most each read of the inner stream delivers.
    explicit HeadFeed(std::string data, int bufferSize = 1024, unsigned piece = 0xFFFFFFFFu)
        : in(std::move(data), piece), is(in, bufferSize) {}

    PNXBufferedInputStream* stream() { return &is; }

    // The bytes the buffered stream still gives, to its end.
    std::string remaining() {
        std::string out;
        for (int c = is.read(); c >= 0; c = is.read()) out += static_cast<char>(c);
        return out;
    }

    MemoryInputStream in;
    PNXBufferedInputStream is;
};

#endif
