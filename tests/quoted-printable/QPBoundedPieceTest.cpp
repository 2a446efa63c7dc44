#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "MemoryInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXByteBuffer.h"

// Text joined by soft line breaks only (what an encoder writes for data without
// line ends) decodes in bounded pieces, so a large part takes constant memory.
TEST(QuotedPrintableBounds, SoftBreaksOnlyDecodeInBoundedPieces) {
    std::string original, encoded;
    for (int i = 0; i < 300000; ++i) original += static_cast<char>('a' + i % 26);
    for (size_t i = 0; i < original.size(); i += 75) encoded += original.substr(i, 75) + "=\r\n";

    MemoryInputStream raw(encoded, 4096);
    TALVEXQPInputStream qp(&raw);
    MOXByteBuffer line(128, 256);
    std::string decoded;
    unsigned largest = 0;
    for (unsigned n; (n = qp.readline(line)) != PNX_EOF;) {
        largest = std::max(largest, n);
        decoded.append(line.str(), line.pcount());
    }
    EXPECT_TRUE(decoded == original);
    EXPECT_LE(largest, 16384u + 4u) << "one decoded piece held " << largest << " bytes";
}
