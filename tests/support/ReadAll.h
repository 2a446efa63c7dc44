#ifndef TALVEX_TESTS_READALL_H
#define TALVEX_TESTS_READALL_H

// Reads a stream to its end, at most `piece` bytes a read.

#include <string>
#include <vector>

#include "pnxstreams/PNXInputStream.h"

inline std::string readAll(PNXInputStream& in, unsigned piece = 4096) {
    std::string out;
    std::vector<char> buf(piece);
    for (unsigned n; (n = in.read(buf.data(), piece)) != PNX_EOF;) out.append(buf.data(), n);
    return out;
}

#endif
