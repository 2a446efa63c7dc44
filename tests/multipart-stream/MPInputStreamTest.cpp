// Edge cases of the multipart stream: where parts begin and end, how the
// delimiter is found across reads of the inner stream, what happens after the
// closing delimiter and when the body is cut off.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

using namespace std::string_literals;
#include <vector>

#include "MultipartBody.h"
#include "PartReader.h"
#include "ScriptedInputStream.h"
#include "mime/TALVEXMPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"

// Counts allocations while armed, to show that taking a body apart allocates
// nothing once the stream exists.
namespace {
bool g_counting = false;
unsigned g_allocations = 0;
}  // namespace

// GCC sees the malloc/free pair of these replacements as mismatched.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t n) {
    if (g_counting) ++g_allocations;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
    if (g_counting) ++g_allocations;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

// The stream as the message reader builds it: CR LF pushed in front of the body.
struct Fixture {
    ScriptedInputStream in;
    TALVEXMPInputStream mp;
    Fixture(const std::string& body, const std::string& boundary, std::vector<unsigned> sizes = {},
            bool canUnread = true)
        : in(body, std::move(sizes), canUnread), mp((in.unread("\r\n", 2), &in), boundary) {}
};

std::string readPart(TALVEXMPInputStream& mp) {
    std::string s;
    char buf[64];
    for (unsigned r; (r = mp.read(buf, sizeof buf)) != PNX_EOF;) s.append(buf, r);
    return s;
}

std::string line(TALVEXMPInputStream& mp, unsigned* result = nullptr) {
    MOXByteBuffer b(16, 16);
    const unsigned r = mp.readline(b);
    if (result != nullptr) *result = r;
    return std::string(b.str(), b.pcount());
}

// Enters the next part and returns its data; the header block is one empty line.
std::string nextData(TALVEXMPInputStream& mp) {
    EXPECT_EQ(1, mp.hasNextPart());
    mp.nextPart();
    EXPECT_EQ("\r\n", line(mp));
    return readPart(mp);
}

void expectMultipartEnd(const std::function<void()>& step) {
    try {
        step();
        ADD_FAILURE() << "no error 20";
    } catch (TALVEXException& e) {
        EXPECT_EQ(20, e.getCode());
        EXPECT_EQ(1, e.getSeverity());
        ASSERT_EQ(1u, e.getMessageCount());
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        ASSERT_NE(nullptr, m);
        EXPECT_EQ(0xF2ADBF2Au, m->getNumber());
        EXPECT_TRUE(m->getParameters().empty());
        ASSERT_EQ(1u, e.getBackTrace().size());
        EXPECT_EQ("TALVEXMPInputStream", e.getBackTrace()[0].unit);
        // The refill is where a short body shows.
        EXPECT_EQ("TALVEXMPInputStream::readMore", e.getBackTrace()[0].function);
        EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
    }
}

void expectNotImplemented(const std::function<void()>& step, const char* function) {
    try {
        step();
        ADD_FAILURE() << "no error for " << function;
    } catch (TALVEXException& e) {
        EXPECT_EQ(0, e.getCode());
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        ASSERT_NE(nullptr, m);
        EXPECT_EQ(0xF2A8781Au, m->getNumber());
        EXPECT_EQ(function, e.getBackTrace().back().function);
    }
}

const char kTwoParts[] =
    "--sep\r\n"
    "Content-ID: <one>\r\n"
    "\r\n"
    "first\r\n"
    "--sep\r\n"
    "\r\n"
    "second\r\n"
    "--sep--\r\n";

}  // namespace

// ---------------------------------------------------------------- pattern

TEST(MultipartPattern, BoundaryIsPrefixedWithCrLfDashDashUnlessItAlreadyIs) {
    EXPECT_EQ("\r\n--sep", TALVEXMPInputStream(nullptr, "sep").getPattern());
    Fixture f(kTwoParts, "\r\n--sep");
    EXPECT_EQ("\r\n--sep", f.mp.getPattern());
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    EXPECT_EQ("Content-ID: <one>\r\n", line(f.mp));
    EXPECT_EQ("\r\n", line(f.mp));
    EXPECT_EQ("first", readPart(f.mp));
    EXPECT_EQ("second", nextData(f.mp));
    EXPECT_EQ(0, f.mp.hasNextPart());
}

TEST(MultipartPattern, BoundaryTooLongForTheBufferIsRefused) {
    EXPECT_THROW(TALVEXMPInputStream(nullptr, std::string(1019, 'b')), MOXIllegalArgumentError);
    TALVEXMPInputStream longest(nullptr, std::string(1018, 'b'));  // pattern + 2 fills the buffer
    EXPECT_EQ(1022u, longest.getPattern().size());
}

// ---------------------------------------------------------------- where parts begin

TEST(MultipartParts, BodyWithAndWithoutPreambleYieldTheSameFirstPart) {
    for (const std::string preamble : {"", "This is a preamble.\r\n", "\r\n", "--se\r\n-sep\r\n"}) {
        SCOPED_TRACE(preamble);
        Fixture f(preamble + kTwoParts, "sep");
        ASSERT_EQ(1, f.mp.hasNextPart());
        f.mp.nextPart();
        EXPECT_EQ("Content-ID: <one>\r\n", line(f.mp));
        EXPECT_EQ("\r\n", line(f.mp));
        EXPECT_EQ("first", readPart(f.mp));
        EXPECT_EQ("second", nextData(f.mp));
        EXPECT_EQ(0, f.mp.hasNextPart());
    }
}

TEST(MultipartParts, EmptyPartAndPartEndingInCrOrLf) {
    Fixture f("--b\r\n\r\n\r\n--b\r\n\r\nx\r\r\n--b\r\n\r\nx\n\r\n--b\r\n\r\n\r\n\r\n--b--", "b");
    EXPECT_EQ("", nextData(f.mp));
    EXPECT_EQ("x\r", nextData(f.mp));
    EXPECT_EQ("x\n", nextData(f.mp));
    EXPECT_EQ("\r\n", nextData(f.mp));
    EXPECT_EQ(0, f.mp.hasNextPart());
}

// nextPart needs a found delimiter; hasNextPart skips what is left of a part.
TEST(MultipartParts, NextPartOnlyAfterADelimiterAndUnreadDataIsSkipped) {
    Fixture f(kTwoParts, "sep");
    EXPECT_THROW(f.mp.nextPart(), MOXIllegalStateError);
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    EXPECT_THROW(f.mp.nextPart(), MOXIllegalStateError) << "the part has not ended";
    EXPECT_EQ('C', f.mp.read());
    EXPECT_EQ("second", nextData(f.mp));
}

// ---------------------------------------------------------------- delimiter across reads

TEST(MultipartSplit, DelimiterSplitBetweenTwoInnerReadsAtEveryPoint) {
    const std::string body = "preamble\r\n--boundary\r\nA: 1\r\n\r\nab\r\n--boundarc\r\n--boundary\r\n\r\n"
                             "\r\r\n--bound\r\n--boundary--\r\n";
    // The first inner read carries `cut` bytes (the two pushed-back bytes come first).
    for (unsigned cut = 1; cut < body.size() + 2; ++cut) {
        SCOPED_TRACE(cut);
        Fixture f(body, "boundary", {cut, 100000});
        ASSERT_EQ(1, f.mp.hasNextPart());
        f.mp.nextPart();
        EXPECT_EQ("A: 1\r\n", line(f.mp));
        EXPECT_EQ("\r\n", line(f.mp));
        EXPECT_EQ("ab\r\n--boundarc", readPart(f.mp));
        EXPECT_EQ("\r\r\n--bound", nextData(f.mp));
        EXPECT_EQ(0, f.mp.hasNextPart());
        EXPECT_EQ(0, f.mp.hasNextPart());
    }
}

TEST(MultipartSplit, RandomBodiesAtRandomReadSizesMatchTheirMaking) {
    std::mt19937 rng(20240611);
    for (int iteration = 0; iteration < 400; ++iteration) {
        const MultipartBody body = MultipartBody::random(rng);
        std::vector<unsigned> sizes;
        const unsigned kind = MultipartBody::pick(rng, 3);
        for (int i = 0; i < 16; ++i)
            sizes.push_back(kind == 0 ? 1 : kind == 1 ? 1 + MultipartBody::pick(rng, 9) : 1 + MultipartBody::pick(rng, 1500));
        Fixture f(body.bytes(), body.boundary, sizes);
        PartReader reader(static_cast<unsigned>(iteration));
        const std::vector<std::string> parts = reader.readAll(f.mp);
        ASSERT_EQ(body.parts.size(), parts.size()) << "iteration " << iteration;
        for (size_t i = 0; i < parts.size(); ++i) {
            std::string expected;
            for (const auto& h : body.parts[i].headers) expected += "H " + h.first + "\t" + h.second + "\n";
            expected += "B " + PartReader::hex(body.parts[i].data) + "\n";
            ASSERT_EQ(expected, parts[i]) << "iteration " << iteration << " part " << i;
        }
        // What followed the closing "--" and was buffered goes back; the CR LF
        // after "--" stays behind when it had not been read yet.
        f.mp.unWrap();
        const std::string after = body.has_epilogue ? "\r\n" + body.epilogue : std::string();
        const std::string rest = f.in.rest();
        EXPECT_TRUE(rest.size() + 2 >= after.size() && rest.size() <= after.size() &&
                    after.compare(after.size() - rest.size(), rest.size(), rest) == 0)
            << "iteration " << iteration;
    }
}

// ---------------------------------------------------------------- data that looks like a delimiter

TEST(MultipartData, NearMissDelimitersAreDeliveredWhole) {
    const std::string data = "x\r\n--bounXYZ\r\n--boundar\r\n-boundary\r\r\n--boundarz\n--boundary\r--boundary"
                             "\r\n-\r\n--\r\n--b\r\r";
    Fixture f("--boundary\r\n\r\n" + data + "\r\n--boundary--", "boundary");
    EXPECT_EQ(data, nextData(f.mp));
    EXPECT_EQ(0, f.mp.hasNextPart());
}

TEST(MultipartData, PrefixOfTheDelimiterAtTheEndOfTheBufferIsHeldBackNotLost) {
    // The first 1024 bytes end in "\r\n--bou"; the next read shows it is data.
    const std::string head = "--boundary\r\n\r\n";
    std::string data(1024 - 2 - head.size() - 7, 'a');
    data += "\r\n--bouNDARY";
    Fixture f(head + data + "\r\n--boundary--", "boundary");
    EXPECT_EQ(data, nextData(f.mp));
}

TEST(MultipartData, EveryReadAnswersTheEndAfterThePartUntilNextPart) {
    Fixture f("--sep\r\n\r\n\xff\x00\x80\r\n--sep\r\n\r\nsecond\r\n--sep--"s, "sep");
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    line(f.mp);
    EXPECT_EQ(255, f.mp.read()) << "bytes above 127 are not negative";
    EXPECT_EQ(0, f.mp.read());
    EXPECT_EQ(128, f.mp.read());
    char c;
    MOXByteBuffer b(8, 8);
    b << "kept";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(-1, f.mp.read());
        EXPECT_EQ(PNX_EOF, f.mp.read(&c, 1));
        EXPECT_EQ(PNX_EOF, f.mp.read(b, 100));
        EXPECT_EQ(0u, f.mp.readline(b));
        EXPECT_EQ("kept", std::string(b.str(), b.pcount()));
    }
    EXPECT_EQ("second", nextData(f.mp));
}

TEST(MultipartData, ReadNeverSpansMoreThanTheBufferedBytesAndAsksForAllFreeSpace) {
    // Pattern "\r\n--boundary" (12 bytes): a refill reads until 14 bytes are held.
    std::string data(40, 'd');
    Fixture f("--boundary\r\n\r\n" + data + "\r\n--boundary--", "boundary", {5});
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    EXPECT_EQ("\r\n", line(f.mp));
    char buf[1000];
    std::vector<unsigned> counts;
    for (unsigned r; (r = f.mp.read(buf, sizeof buf)) != PNX_EOF;) counts.push_back(r);
    // A refill stops once 14 bytes are held; with 5 bytes a read that is at
    // most 13 + 5, however much the caller asks for.
    unsigned total = 0;
    for (unsigned r : counts) {
        EXPECT_LE(r, 18u) << "a read went beyond what one refill brought";
        total += r;
    }
    EXPECT_EQ(40u, total);
    EXPECT_GE(counts.size(), 3u);
    // The inner stream is only read while fewer than 14 bytes are held, and
    // always for the whole free space of the 1024-byte buffer.
    ASSERT_FALSE(f.in.requests().empty());
    EXPECT_EQ(1024u, f.in.requests()[0]);
    for (unsigned r : f.in.requests()) {
        EXPECT_GT(r, 1024u - 14u);
        EXPECT_LE(r, 1024u);
    }
}

TEST(MultipartData, ZeroByteReadsTouchNothing) {
    Fixture f(kTwoParts, "sep");
    char c = 'z';
    MOXByteBuffer b(8, 8);
    b << "ab";
    EXPECT_EQ(0u, f.mp.read(&c, 0));
    EXPECT_EQ(0u, f.mp.read(b, 0));
    EXPECT_EQ(0u, f.in.calls()) << "no read of the inner stream";
    EXPECT_EQ('z', c);
    EXPECT_EQ("ab", std::string(b.str(), b.pcount()));
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    const unsigned calls = f.in.calls();
    EXPECT_EQ(0u, f.mp.read(&c, 0));
    EXPECT_EQ(0u, f.mp.read(b, 0));
    EXPECT_EQ(calls, f.in.calls());
    EXPECT_EQ("Content-ID: <one>\r\n", line(f.mp)) << "nothing was taken";
}

// ---------------------------------------------------------------- header lines

// A lone CR stays inside its line; an unterminated last line is appended and answers zero.
TEST(MultipartLines, LoneCrStaysInsideTheLineAndTheLastLineAnswersZero) {
    Fixture f("--b\r\nX-A: one\rtwo\r\n\r\ntail\r\n--b--", "b");
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    unsigned r = 0;
    EXPECT_EQ("X-A: one\rtwo\r\n", line(f.mp, &r));
    EXPECT_EQ(14u, r);
    EXPECT_EQ("\r\n", line(f.mp, &r));
    EXPECT_EQ(2u, r);
    r = 1;
    EXPECT_EQ("tail", line(f.mp, &r));
    EXPECT_EQ(0u, r);
    EXPECT_EQ("", line(f.mp, &r));
    EXPECT_EQ(0u, r);
}

// Unbounded, a long line comes whole; with a bound, readline stops there (a
// nonzero count) and the rest of the line stays for the next call.
TEST(MultipartLines, LineLongerThanTheBufferComesWholeOrStopsAtTheBound) {
    const std::string longLine = std::string(3000, 'h') + "\r\n";
    Fixture f("--b\r\n" + longLine + longLine + "\r\n--b--", "b", {700});
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    unsigned r = 0;
    EXPECT_EQ(longLine, line(f.mp, &r));
    EXPECT_GT(r, 0u);
    EXPECT_LT(r, longLine.size()) << "the count is that of the last step only";
    const auto bounded = [&f](unsigned bound) {
        MOXByteBuffer b(16, 16);
        EXPECT_NE(0u, f.mp.readline(b, bound));
        return std::string(b.str(), b.pcount());
    };
    EXPECT_EQ(std::string(2500, 'h'), bounded(2500));
    EXPECT_EQ(std::string(500, 'h') + "\r", bounded(501)) << "a CR LF across the bound is cut too";
    EXPECT_EQ("\n", line(f.mp, &r));
    EXPECT_EQ(0u, r) << "the part ended there";
}

// ---------------------------------------------------------------- the end of the body

TEST(MultipartEnd, ClosingDelimiterEndsIterationForGood) {
    Fixture f("--b\r\n\r\nx\r\n--b--\r\n--b\r\n\r\ny\r\n--b--", "b");
    EXPECT_EQ("x", nextData(f.mp));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(0, f.mp.hasNextPart());
    Fixture none("--b--\r\n", "b");
    EXPECT_EQ(0, none.mp.hasNextPart()) << "a body without parts";
}

TEST(MultipartEnd, CutOffBodyRaisesError20FromEveryReadingOperation) {
    const std::string cutBodies[] = {"--b\r\nX: 1\r\n\r\nsome data", "--b\r\nX: 1\r\n\r\nsome data\r\n--",
                                     "--b\r\nX: 1\r\n\r\nsome data\r\n--b"};
    for (const std::string& body : cutBodies) {
        SCOPED_TRACE(body);
        {
            Fixture f(body, "b");
            ASSERT_EQ(1, f.mp.hasNextPart());
            f.mp.nextPart();
            line(f.mp);
            line(f.mp);
            expectMultipartEnd([&] {
                readPart(f.mp);
                f.mp.hasNextPart();
            });
            EXPECT_EQ(0, f.mp.hasNextPart()) << "the inner stream has ended";
        }
        {
            Fixture f(body, "b");
            ASSERT_EQ(1, f.mp.hasNextPart());
            f.mp.nextPart();
            expectMultipartEnd([&] {
                for (unsigned r = 1; r != 0;) line(f.mp, &r);
                f.mp.hasNextPart();
            });
        }
        {
            Fixture f(body, "b");
            ASSERT_EQ(1, f.mp.hasNextPart());
            f.mp.nextPart();
            expectMultipartEnd([&] { f.mp.hasNextPart(); });
            EXPECT_EQ(0, f.mp.hasNextPart());
        }
    }
    Fixture f("preamble without any delimiter", "b", {3});
    expectMultipartEnd([&] { f.mp.hasNextPart(); });
    Fixture g("", "b");
    expectMultipartEnd([&] { g.mp.read(); });
}

// What followed the closing delimiter goes back to an inner stream that can
// take it, once; otherwise it is dropped; nothing goes back when the body ends there.
TEST(MultipartEnd, EpilogueGoesBackOnUnWrap) {
    Fixture f(std::string(kTwoParts) + "epilogue\r\nHTTP/1.1 200 OK\r\n", "sep");
    EXPECT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    EXPECT_EQ("second", nextData(f.mp));
    f.mp.unWrap();
    EXPECT_EQ("\r\nepilogue\r\nHTTP/1.1 200 OK\r\n", f.in.unreadBytes()) << "the first two are the pushed CR LF";
    EXPECT_EQ("epilogue\r\nHTTP/1.1 200 OK\r\n", f.in.rest());
    f.mp.unWrap();
    EXPECT_EQ("epilogue\r\nHTTP/1.1 200 OK\r\n", f.in.rest()) << "given back once only";

    const std::string epilogue(2000, 'e');
    Fixture g(std::string(kTwoParts) + epilogue, "sep", {}, false);
    EXPECT_EQ(1, g.mp.hasNextPart());
    g.mp.nextPart();
    EXPECT_EQ("second", nextData(g.mp));
    g.mp.unWrap();
    EXPECT_EQ("\r\n", g.in.unreadBytes());
    EXPECT_LT(g.in.rest().size(), epilogue.size()) << "what was buffered is gone";

    for (const std::string tail : {"", "\r\n"}) {
        Fixture h("--b\r\n\r\nx\r\n--b--" + tail, "b");
        EXPECT_EQ("x", nextData(h.mp));
        h.mp.unWrap();
        EXPECT_EQ("\r\n", h.in.unreadBytes());
    }
}

TEST(MultipartEnd, UnWrapWithAPartLeftIsRefused) {
    Fixture f(kTwoParts, "sep");
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    try {
        f.mp.unWrap();
        FAIL() << "unWrap passed over a part";
    } catch (MOXIllegalStateError& e) {
        ASSERT_FALSE(e.getBackTrace().empty());
        EXPECT_EQ("HTTP multipart message has a not-read part - TALVEXMPInputStream::unWrap",
                  e.getBackTrace()[0].function);
        EXPECT_EQ("TALVEXMPInputStream", e.getBackTrace()[0].unit);
    }
}

// ---------------------------------------------------------------- what the stream does not offer

// Unread and wrap are not implemented; time limits and close have no inner stream to reach.
TEST(MultipartUnsupported, UnreadWrapTimeLimitsAndClose) {
    ScriptedInputStream other("x");
    Fixture f(kTwoParts, "sep");
    EXPECT_EQ(0, f.mp.canUnread());
    expectNotImplemented([&] { f.mp.unread("ab", 2); }, "TALVEXMPInputStream::unread");
    expectNotImplemented([&] { f.mp.wrap(other); }, "TALVEXMPInputStream::wrap");
    EXPECT_EQ(0, f.mp.canTimeout());
    EXPECT_EQ(0, f.mp.canCancel());
    EXPECT_EQ(0, f.mp.getTimeout());
    f.mp.close();
    EXPECT_EQ(0, f.in.calls());
    ASSERT_EQ(1, f.mp.hasNextPart());
    f.mp.nextPart();
    EXPECT_EQ("Content-ID: <one>\r\n", line(f.mp)) << "close left the stream usable";
}

// ---------------------------------------------------------------- memory

TEST(MultipartMemory, TakingABodyApartAllocatesNothing) {
    std::mt19937 rng(99);
    MultipartBody body = MultipartBody::random(rng);
    while (body.parts.size() < 3) body = MultipartBody::random(rng);
    Fixture f(body.bytes(), body.boundary, {333}, false);
    MOXByteBuffer lineBuf(8192, 256);
    char buf[100];
    g_allocations = 0;
    g_counting = true;
    unsigned parts = 0;
    while (f.mp.hasNextPart()) {
        f.mp.nextPart();
        ++parts;
        for (;;) {
            lineBuf.reset();
            if (f.mp.readline(lineBuf) == 0 || lineBuf.pcount() == 2) break;
        }
        while (f.mp.read(buf, sizeof buf) != PNX_EOF) {
        }
    }
    f.mp.unWrap();
    g_counting = false;
    EXPECT_EQ(body.parts.size(), parts);
    EXPECT_EQ(0u, g_allocations);
}
