// The core library: byte buffers, catalog messages, the throw convention and
// the small utilities, each group as one table.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "moxcore/MOXCore.h"
#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "CoreTest";

namespace {
const MOXCatalogEntry kEntries[] = {{0x10, "Host \"%1\" on port %2 failed%[ (status %3)%]."},
                                    {0x11, "100%% done, no parameters"}};

template <class E, class F>
E catchAs(F&& f) {
    try {
        f();
    } catch (E& e) {
        return e;
    }
    ADD_FAILURE() << "nothing of the expected type was thrown";
    throw std::logic_error("unreachable");
}

MOXMessage hostMessage(const char* host, int port) {
    MOXMessage m(I18NString("testmsgs"), 0x10);
    m << MOXMessageParm(I18NString(host)) << MOXMessageParm(port, MOX_PARM_DECIMAL);
    return m;
}
}  // namespace

TEST(ByteBuffer, TrimGrowthAndCopies) {
    const std::pair<const char*, const char*> trims[] = {
        {"\r\n", ""}, {"\n", ""}, {"  \t\r\n", ""}, {"", ""}, {" \tHTTP/1.1 200  OK \r\n", "HTTP/1.1 200  OK"}};
    for (const auto& t : trims) {
        MOXByteBuffer b(4, 4);
        b << t.first;
        EXPECT_EQ(std::strlen(t.second), b.trim()) << t.first;
        EXPECT_STREQ(t.second, b.str());
    }
    MOXByteBuffer b(1, 1);
    std::string expected;
    for (int i = 0; i < 3000; ++i) expected += static_cast<char>(i);
    b.appendChars(expected.data(), 1);
    for (size_t i = 1; i < expected.size(); ++i) b << expected[i];
    b.appendChars("\0\0", 2);
    expected.append("\0\0", 2);
    b.reserve(b.pcount() + 1000);
    std::memset(b.str() + b.pcount(), 'x', 1000);
    b.setLength(b.pcount() + 1000);
    expected += std::string(1000, 'x');
    ASSERT_EQ(expected, std::string(b.str(), b.pcount()));
    EXPECT_EQ('\0', b.str()[b.pcount()]) << "NUL-terminated after a direct write";
    MOXByteBuffer a(8, 8);
    a << "hello";
    MOXByteBuffer c(a);
    a.reset();
    EXPECT_STREQ("", a.str());
    a = c;
    a << " world";
    a = a;
    EXPECT_STREQ("hello world", a.str());
    EXPECT_STREQ("hello", c.str());
}

TEST(Messages, FormatReportAndCopies) {
    MOXMessageCatalog::registerCatalog("testmsgs", kEntries, 2);
    MOXMessage full = hostMessage("example.org", 443);
    full << MOXMessageParm(-23, MOX_PARM_DECIMAL);
    EXPECT_EQ("testmsgs 0x00000010: Host \"example.org\" on port 443 failed (status -23).", full.toString().str());
    EXPECT_EQ("Host \"h\" on port 1 failed.", hostMessage("h", 1).format().str()) << "optional piece dropped";
    EXPECT_EQ("100% done, no parameters", MOXMessage(I18NString("testmsgs"), 0x11).format().str());
    MOXMessage unknown(I18NString("testmsgs"), 0xABC);
    unknown << MOXMessageParm(I18NString("p1"));
    const std::string text = unknown.format().str();
    EXPECT_NE(std::string::npos, text.find("0x00000ABC")) << text;
    EXPECT_NE(std::string::npos, text.find("p1")) << text;

    MOXException e(MOX_SEVERITY_ERROR, 33);
    e << hostMessage("nohost", 80) << MOXMessageString(I18NString("Connection refused"));
    e.addBackTrace(MOXFileLocation("Unit", 107), "Unit::op", "MOX_THROW");
    const std::string report = e.toString().str();
    for (const char* part : {"code 33", "Host \"nohost\" on port 80 failed.", "Connection refused", "Unit:107",
                             "Unit::op", "MOX_THROW"})
        EXPECT_NE(std::string::npos, report.find(part)) << part << " missing in:\n" << report;
    EXPECT_EQ("testmsgs 0x00000010: Host \"nohost\" on port 80 failed.; Connection refused", e.getMessage().str());
    MOXException copy(e);
    copy << MOXMessageString(I18NString("third"));
    EXPECT_EQ(2u, e.getMessageCount()) << "copies are deep";
    e = copy;
    EXPECT_EQ("third", e.getMessageAt(2).format().str());
}

// Where each throw leaves its trace: unit, line, function text and kind.
TEST(ThrowConvention, TracesOfThrowsRethrowsAndAllocations) {
    const char* p = nullptr;
    auto a = catchAs<MOXAssertError>([&] { MOX_ASSERT_AT(42, NULL != p); });
    EXPECT_STREQ("MOX_ASSERT(NULL != p);", a.getText());
    ASSERT_EQ(1u, a.getBackTrace().size());
    EXPECT_EQ("CoreTest", a.getBackTrace()[0].unit);
    EXPECT_EQ(42, a.getBackTrace()[0].line);
    EXPECT_FALSE(a.getBackTrace()[0].hasFunction) << "assertions name no function";

    auto chain = catchAs<MOXIllegalStateError>([] {
        try {
            try {
                MOX_THROW_AT(10, MOXIllegalStateError, "X::get - no request was sent");
            }
            MOX_RETHROW_AT(20, "middle")
        }
        MOX_RETHROW_AT(30, "outer")
    });
    EXPECT_EQ(nullptr, chain.getText());
    EXPECT_NE(std::string::npos, chain.toString().str().find("X::get - no request was sent"));
    const char* expected[][2] = {{"X::get - no request was sent", "MOX_THROW"}, {"middle", "MOX_RETHROW"},
                                 {"outer", "MOX_RETHROW"}};
    ASSERT_EQ(3u, chain.getBackTrace().size());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(10 * (i + 1), chain.getBackTrace()[i].line);
        EXPECT_EQ(expected[i][0], chain.getBackTrace()[i].function);
        EXPECT_EQ(expected[i][1], chain.getBackTrace()[i].kind);
    }

    MOXIllegalArgumentError original(0, "bad");
    MOXThrowable& asBase = original;
    EXPECT_STREQ("bad", catchAs<MOXIllegalArgumentError>([&] { asBase.hurl(MOX_AT(5), "f", "MOX_THROW"); }).getText());
    std::unique_ptr<MOXThrowable> clone(catchAs<MOXUnsupportedOperationError>([] {
        MOX_THROW_AT(1, MOXUnsupportedOperationError, "op");
    }).clone());
    EXPECT_NE(nullptr, dynamic_cast<MOXUnsupportedOperationError*>(clone.get()));
    EXPECT_EQ(1u, clone->getBackTrace().size());

    EXPECT_EQ(77, catchAs<MOXOutOfMemoryError>([] { ::moxAllocate(MOX_AT(77), [] { return (int*)nullptr; }); })
                      .getBackTrace().at(0).line);
    EXPECT_EQ(78, catchAs<MOXOutOfMemoryError>([] { ::moxAllocate(MOX_AT(78), []() -> int* { throw std::bad_alloc(); }); })
                      .getBackTrace().at(0).line);
    auto stdError = catchAs<MOXStdExceptionError>(
        [] { ::moxAllocate(MOX_AT(79), []() -> int* { throw std::runtime_error("constructor failed"); }); });
    EXPECT_STREQ("constructor failed", stdError.getText());
    EXPECT_EQ(79, stdError.getBackTrace().at(0).line);
    auto passing = catchAs<MOXIllegalStateError>(
        [] { ::moxAllocate(MOX_AT(80), []() -> int* { MOX_THROW_AT(3, MOXIllegalStateError, "ctor"); }); });
    ASSERT_EQ(2u, passing.getBackTrace().size());
    EXPECT_EQ(80, passing.getBackTrace()[1].line);
    EXPECT_EQ("MOX_RETHROW", passing.getBackTrace()[1].kind);
    EXPECT_FALSE(passing.getBackTrace()[1].hasFunction);
    using Pair = std::pair<int, int>;
    std::unique_ptr<Pair> made(MOX_NEW_AT(90, Pair, 2, 40));
    EXPECT_EQ(42, made->first + made->second);
}

TEST(Utilities, ConversionsPathsTimerInitializationAndLocks) {
    const struct {
        unsigned value, width;
        const char* prefix;
        const char* text;
    } hex[] = {{13, 2, MOXUtConvert::getHexPrefix(), "0x0D"}, {255, 2, "0x", "0xFF"}, {256, 2, "0x", "0x100"}, {0, 0, nullptr, "0"}};
    std::string s;
    for (const auto& h : hex) EXPECT_EQ(h.text, MOXUtConvert::hexCvt(s, h.value, h.width, '0', h.prefix));
    char text[] = "Content-TYPE: X\xC3\x84";
    MOXUtConvert::strlwr(text);
    EXPECT_STREQ("content-type: x\xC3\x84", text);
    setenv("HOME", "/home/tester", 1);
    std::string home = "~/trace.log", plain = "../logs/1_x";
    EXPECT_EQ("/home/tester/trace.log", MOXFmDir::resolveEffectivePath(home));
    EXPECT_EQ("../logs/1_x", MOXFmDir::resolveEffectivePath(plain));

    MOXUtTimer t;
    t.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    t.stop();
    const unsigned ms = t.getElapsed(1);
    EXPECT_GE(ms, 20u);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(ms, t.getElapsed(1)) << "a stopped timer no longer advances";

    const int before = moxInitializeCount();
    EXPECT_EQ(0, moxInitialize("A"));
    EXPECT_EQ(0, moxInitialize("B"));
    EXPECT_EQ(before + 2, moxInitializeCount());
    EXPECT_EQ(0, moxTerminate("B"));
    EXPECT_EQ(0, moxTerminate("A"));
    EXPECT_EQ(before, moxInitializeCount());
    while (moxInitializeCount() > 0) moxTerminate("x");
    EXPECT_EQ(1, moxTerminate("x")) << "terminate without initialize";

    MOXThreadCriticalSection cs(0);
    int counter = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            MOXThreadGuard g(cs);
            ++counter;
        }
    };
    std::thread x(work), y(work);
    x.join();
    y.join();
    EXPECT_EQ(200000, counter);
}
