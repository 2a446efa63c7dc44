#ifndef TALVEX_TESTS_FUZZ_FUZZSUPPORT_H
#define TALVEX_TESTS_FUZZ_FUZZSUPPORT_H

// Shared by the fuzz targets: the toolkit's own errors (MOXThrowable) are the
// expected way to refuse bad input; anything else escaping is a finding, so
// it aborts and libFuzzer keeps the input.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "moxcore/MOXThrowable.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXLimits.h"

namespace fuzz {

template <class F>
void guarded(F&& body) {
    try {
        body();
    } catch (MOXThrowable&) {
        // documented refusal
    } catch (std::exception& e) {
        std::fprintf(stderr, "undocumented exception: %s\n", e.what());
        std::abort();
    } catch (...) {
        std::fprintf(stderr, "undocumented exception of unknown type\n");
        std::abort();
    }
}

// The first byte picks how many bytes each inner read hands out (1..16, or
// all), so that splits at every position get explored.
inline unsigned pieceFrom(uint8_t b) { return (b & 0x10) ? 0xFFFFFFFFu : (b & 0x0F) + 1u; }

// The bounds on heads: the defaults for inputs of even length, and for odd
// lengths bounds small enough for a short input to reach them.
inline TALVEXLimits limitsFor(size_t size) {
    TALVEXLimits limits;
    if (size % 2 == 1) {
        limits.maxHeadLine = 8 + size % 120;
        limits.maxHeadLines = size % 9;
        limits.maxHeadSize = 16 + size % 600;
        limits.maxInterimResponses = size % 3;
    }
    return limits;
}

// Splits "<boundary>\n<body>": the boundary is the first line, at most 200
// bytes (so the delimiter pattern always fits the multipart stream's buffer)
// and not empty. False when the input has no such line.
inline bool boundaryAndBody(const uint8_t* data, size_t size, std::string& boundary, std::string& body) {
    const char* text = reinterpret_cast<const char*>(data);
    const void* nl = std::memchr(text, '\n', size < 201 ? size : 201);
    if (nl == nullptr || nl == text) return false;
    const size_t blen = static_cast<size_t>(static_cast<const char*>(nl) - text);
    boundary.assign(text, blen);
    body.assign(text + blen + 1, size - blen - 1);
    return true;
}

// Reads a stream to its end; bounded so that a stream that never ends is
// reported as a hang by libFuzzer's time-out rather than eating memory.
inline size_t drain(PNXInputStream& in, size_t limit = 1u << 20) {
    char buf[97];
    size_t total = 0;
    for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) {
        total += n;
        if (total > limit) {
            std::fprintf(stderr, "stream delivered more than %zu bytes\n", limit);
            std::abort();
        }
    }
    return total;
}

}  // namespace fuzz

#endif
