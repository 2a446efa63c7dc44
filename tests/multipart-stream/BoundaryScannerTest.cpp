// The boundary scanner: results of single scans, matches carried from one
// scan to the next, and the fast search giving exactly what the byte-by-byte
// search gives.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "mime/TALVEXBoundaryScanner.h"
#include "moxcore/MOXErrors.h"

namespace {

struct Scanners {
    std::string pattern;
    TALVEXBoundaryScanner fast;
    TALVEXBoundaryScanner plain;
    explicit Scanners(std::string p) : pattern(std::move(p)) {
        fast.setPattern(pattern);
        plain.setPattern(pattern);
    }
    // Both searches over the same range; they must agree in every respect.
    unsigned scan(const std::string& buf, unsigned start, unsigned end) {
        const unsigned a = fast.scan(buf.data(), start, end);
        const unsigned b = plain.scanBytewise(buf.data(), start, end);
        EXPECT_EQ(b, a) << "result, range " << start << ".." << end;
        EXPECT_EQ(plain.isFound(), fast.isFound()) << "found, range " << start << ".." << end;
        EXPECT_EQ(plain.getMatched(), fast.getMatched()) << "matched, range " << start << ".." << end;
        return a;
    }
    void reset() {
        fast.reset();
        plain.reset();
    }
};

}  // namespace

// Single scans: the result is where the pattern (or a partial match at the
// end) begins, else the end of the range; the search restarts one byte after
// a failed attempt.
TEST(BoundaryScanner, SingleScans) {
    const struct {
        const char* pattern;
        std::string buf;
        unsigned start, result, matched;
        int found;
    } rows[] = {
        {"\r\n--ab", "data\r\n--ab\r\n", 0, 4, 0, 1},
        {"\r\n--ab", "abcdef--ab", 0, 10, 0, 0},
        {"\r\n--ab", "xyz\r\n-", 0, 3, 3, 0},
        {"\r\n--b", "\r\r\n--b", 0, 1, 0, 1},
        {"aab", "aaab", 0, 1, 0, 1},
        {"\r\n--ab", "01234", 5, 5, 0, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.buf);
        Scanners s(r.pattern);
        EXPECT_EQ(r.result, s.scan(r.buf, r.start, static_cast<unsigned>(r.buf.size())));
        EXPECT_EQ(r.found, s.fast.isFound());
        EXPECT_EQ(r.matched, s.fast.getMatched());
    }
}

// The caller keeps the matched bytes at the start of the next range.
TEST(BoundaryScanner, PartialMatchIsCarriedToTheNextScan) {
    Scanners s("\r\n--ab");
    std::string buf = "\r\n-";
    EXPECT_EQ(0u, s.scan(buf, 0, 3));
    EXPECT_EQ(0u, s.scan(buf, 0, 3)) << "the same range again: nothing new to look at";
    EXPECT_EQ(3u, s.fast.getMatched());
    buf = "\r\n--abTAIL";
    EXPECT_EQ(0u, s.scan(buf, 0, 10));
    EXPECT_EQ(1, s.fast.isFound());
    // A carried match that fails gives its bytes to the part.
    s.reset();
    EXPECT_EQ(0, s.fast.isFound()) << "reset forgets found";
    EXPECT_EQ(0u, s.scan("\r\n--", 0, 4));
    buf = "\r\n--ax\r\n--ab";
    EXPECT_EQ(6u, s.scan(buf, 0, static_cast<unsigned>(buf.size())));
    EXPECT_EQ(1, s.fast.isFound());
    s.reset();
    s.scan("x\r\n", 0, 3);
    EXPECT_EQ(2u, s.fast.getMatched());
    s.reset();
    EXPECT_EQ(0u, s.fast.getMatched()) << "reset forgets the match";
}

TEST(BoundaryScanner, NullBufferOrMissingPatternIsAnAssertion) {
    TALVEXBoundaryScanner none;
    try {
        none.scan("abc", 0, 3);
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(m_pat);", e.getText());
    }
    const std::string p = "ab";
    none.setPattern(p);
    try {
        none.scan(nullptr, 0, 3);
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(buf);", e.getText());
    }
    try {
        none.scanBytewise(nullptr, 0, 3);
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(buf);", e.getText());
    }
}

// Random buffers made of pattern pieces, scanned as the multipart stream does:
// the range grows by random steps (sometimes none), the next scan starts where
// the last one held bytes back, and after a find the search goes on behind it.
TEST(BoundaryScanner, FastSearchAgreesWithTheByteByByteSearchOnRandomData) {
    std::mt19937 rng(4711);
    auto pick = [&rng](unsigned max) { return std::uniform_int_distribution<unsigned>(0, max)(rng); };
    unsigned finds = 0;
    unsigned carried = 0;
    for (int iteration = 0; iteration < 20000; ++iteration) {
        // Few distinct bytes, so near misses are everywhere.
        const char alphabet[] = {'\r', '\n', '-', 'a', 'b'};
        std::string pattern = iteration % 3 == 0 ? "\r\n--" : "";
        const unsigned length = 1 + pick(iteration % 10 == 0 ? 70 : 5);
        for (unsigned i = 0; i < length; ++i) pattern += alphabet[pick(4)];
        std::string buf;
        const unsigned size = pick(600);
        while (buf.size() < size) {
            switch (pick(4)) {
                case 0:
                    buf += pattern;
                    break;
                case 1:
                    buf += pattern.substr(0, pick(static_cast<unsigned>(pattern.size())));
                    break;
                case 2: {
                    std::string miss = pattern;
                    miss[pick(static_cast<unsigned>(miss.size() - 1))] = alphabet[pick(4)];
                    buf += miss;
                    break;
                }
                case 3:
                    buf += static_cast<char>(pick(255));
                    break;
                default:
                    buf += alphabet[pick(4)];
            }
        }
        Scanners s(pattern);
        unsigned start = 0;
        unsigned end = 0;
        while (end < buf.size()) {
            const unsigned step = pick(4) == 0 ? 0 : 1 + pick(pick(1) ? 3 : 200);
            end = std::min<unsigned>(static_cast<unsigned>(buf.size()), end + step);
            const unsigned r = s.scan(buf, start, end);
            if (::testing::Test::HasFailure()) {
                FAIL() << "iteration " << iteration << " pattern length " << pattern.size();
            }
            if (s.fast.getMatched() > 0) ++carried;
            if (s.fast.isFound()) {
                ++finds;
                s.reset();
                start = r + 1;
                if (end < start) end = start;
            } else {
                start = r;
            }
        }
    }
    EXPECT_GT(finds, 10000u);
    EXPECT_GT(carried, 10000u);
}
