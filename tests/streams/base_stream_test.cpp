// What every stream inherits: the default operations of the base stream and
// the forwarding of the filter stream.

#include <gtest/gtest.h>

#include <string>

#include "MemoryInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXFilterInputStream.h"
#include "pnxstreams/PNXInputStream.h"

namespace {

// A stream implementing only what is pure, as a derived stream may.
class ByteSource : public PNXInputStream {
public:
    explicit ByteSource(std::string data) : m_data(std::move(data)) {}
    using PNXInputStream::read;
    int read() override {
        ++byteReads;
        return m_pos < m_data.size() ? static_cast<unsigned char>(m_data[m_pos++]) : -1;
    }
    unsigned read(MOXByteBuffer& b, unsigned n) override {
        if (n == 0) return 0;
        const int c = read();
        if (c < 0) return PNX_EOF;
        b << static_cast<char>(c);
        return 1;
    }
    unsigned byteReads = 0;

private:
    std::string m_data;
    size_t m_pos = 0;
};

// The default counted read takes one byte, so it never waits for a second;
// readFully collects until the count or the end.
TEST(BaseStream, CountedReadTakesOneByteAndReadFullyCollects) {
    ByteSource s("abcdefgh");
    char buf[10];
    EXPECT_EQ(0u, s.read(buf, 0));
    EXPECT_EQ(0u, s.byteReads);
    ASSERT_EQ(1u, s.read(buf, 10));
    EXPECT_EQ('a', buf[0]);
    ASSERT_EQ(1u, s.read(buf, 10));
    ASSERT_EQ(4u, s.readFully(buf, 4));
    EXPECT_EQ("cdef", std::string(buf, 4));
    MOXByteBuffer b;
    b << ">";
    EXPECT_EQ(2u, s.readFully(b, 5));
    EXPECT_STREQ(">gh", b.str());
    EXPECT_EQ(PNX_EOF, s.read(buf, 10));
    EXPECT_EQ(PNX_EOF, s.readFully(buf, 4));
    EXPECT_EQ(PNX_EOF, s.readFully(b, 4));
    EXPECT_EQ(0u, s.readFully(buf, 0));

    MemoryInputStream in("0123456789", 1);
    PNXBufferedInputStream one(in, 4);
    ASSERT_EQ(10u, one.readFully(buf, 10)) << "over a stream that delivers one byte at a time";
    EXPECT_EQ("0123456789", std::string(buf, 10));
}

TEST(BaseStream, UnreadIsRefusedWithABareText) {
    ByteSource s("x");
    EXPECT_EQ(0, s.canUnread());
    try {
        s.unread("a", 1);
        FAIL() << "unread was taken";
    } catch (const char* text) {
        EXPECT_STREQ("not implemented", text);
    }
}

// A base stream, and a filter stream without an inner stream, have no time
// limits and no cancellation.
TEST(BaseStream, NoTimeLimitsOrCancellationByDefault) {
    ByteSource base("x");
    PNXBufferedInputStream filter(16);
    for (PNXInputStream* s : {static_cast<PNXInputStream*>(&base), static_cast<PNXInputStream*>(&filter)}) {
        EXPECT_EQ(0, s->canTimeout());
        EXPECT_EQ(0, s->setTimeout(5));
        EXPECT_EQ(0, s->getTimeout());
        EXPECT_EQ(0, s->canCancel());
        EXPECT_EQ(0, s->setCancel(1));
        EXPECT_EQ(0, s->getCancel());
        s->cancel();
        s->close();
    }
    EXPECT_EQ('x', base.read());
}

TEST(FilterStream, TimeLimitOperationsFollowTheInnerStreamAfterWrapAndUnWrap) {
    MemoryInputStream in("");
    PNXBufferedInputStream s(16);
    s.wrap(in);
    EXPECT_EQ(1, s.setTimeout(7));
    EXPECT_EQ(7, in.getTimeout());
    s.unWrap();
    EXPECT_EQ(0, s.getTimeout());
}

}  // namespace
