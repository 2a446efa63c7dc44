// Edge cases of the quoted-printable stream: escapes, soft and hard line
// ends, malformed input with its error parameters, and how reads and
// readline share the decoded line.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "ScriptedInputStream.h"
#include "mime/TALVEXMPInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"

using namespace std::string_literals;

namespace {

struct Decoder {
    ScriptedInputStream in;
    TALVEXQPInputStream qp;
    explicit Decoder(const std::string& encoded) : in(encoded), qp(&in) {}
};

// Everything, through read(char*, n).
std::string decode(const std::string& encoded, unsigned n = 1000) {
    Decoder d(encoded);
    std::string out;
    char buf[1000];
    for (unsigned r; (r = d.qp.read(buf, n)) != PNX_EOF;) {
        EXPECT_GE(r, 1u);
        out.append(buf, r);
    }
    return out;
}

std::string readline(TALVEXQPInputStream& qp, unsigned* result) {
    MOXByteBuffer b(8, 8);
    b << "old";
    *result = qp.readline(b);
    return std::string(b.str(), b.pcount());
}

struct Raised {
    int code = -1;
    unsigned message = 0;
    std::string text;
    int position = -1;
    std::string function;
    std::string unit;
};

Raised raised(const std::string& encoded) {
    Raised r;
    try {
        decode(encoded);
        ADD_FAILURE() << "no error";
    } catch (TALVEXException& e) {
        r.code = e.getCode();
        EXPECT_EQ(1, e.getSeverity());
        EXPECT_EQ(1u, e.getMessageCount());
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        if (m != nullptr) {
            r.message = m->getNumber();
            EXPECT_EQ(2u, m->getParameters().size());
            if (m->getParameters().size() == 2) {
                EXPECT_FALSE(m->getParameters()[0].isNumber());
                EXPECT_TRUE(m->getParameters()[1].isNumber());
                r.text = m->getParameters()[0].getText().str();
                r.position = m->getParameters()[1].getNumber();
            }
        }
        EXPECT_EQ(1u, e.getBackTrace().size());
        r.function = e.getBackTrace()[0].function;
        r.unit = e.getBackTrace()[0].unit;
        EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
    }
    return r;
}

// Code 27 for a bad escape, 28 for blanks after "=" not ending the line; the
// parameters are the bytes seen and the position of the "=".
void expectDecodeError(const std::string& encoded, int code, const std::string& text, int position) {
    SCOPED_TRACE(encoded);
    const Raised r = raised(encoded);
    EXPECT_EQ(code, r.code);
    EXPECT_EQ(code == 27 ? 0xF2AEC365u : 0xF2A94CACu, r.message);
    EXPECT_EQ(text, r.text);
    EXPECT_EQ(position, r.position);
    EXPECT_EQ("TALVEXQPInputStream::getDecodedLine", r.function);
    EXPECT_EQ("TALVEXQPInputStream", r.unit);
}

}  // namespace

// Each row: encoded, decoded.
TEST(QPDecoding, EscapesAndLineEnds) {
    const std::pair<std::string, std::string> rows[] = {
        // Hex digits of either case; bytes outside escapes pass unchanged.
        {"a=3Db=3d", "a=b="},
        {"=AB=cd=eF=09", "\xab\xcd\xef\x09"s},
        {"\x01\x7f\x80\xff \t~"s, "\x01\x7f\x80\xff \t~"s},
        // A soft break joins lines, also with blanks before its line end.
        {"abc=\r\ndef\r\n", "abcdef\r\n"},
        {"abc=\ndef", "abcdef"},
        {"abc=\rdef", "abcdef"},
        {"abc=\n\rdef", "abcdef"},  // LF CR is one line end
        {"abc= \t\r\ndef", "abcdef"},
        {"abc=\t\t \ndef", "abcdef"},
        // The soft break's line end is taken once; the empty line after it stays.
        {"abc= \r\n\r\ndef", "abc\r\ndef"},
        {"abc= \n\ndef", "abc\r\ndef"},
        {"abc= \r\n\ndef", "abc\r\ndef"},
        // Every hard line end becomes CR LF; trailing blanks are kept.
        {"a\nb\r\rc", "a\r\nb\r\n\r\nc"},
        {"a\n\rb", "a\r\nb"},
        {"a\n\nb", "a\r\n\r\nb"},
        {"a\r\n\r\nb", "a\r\n\r\nb"},
        {"a\r", "a\r\n"},
        {"a \r\n", "a \r\n"},
        {"a \t\nb\t", "a \t\r\nb\t"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.second, decode(r.first)) << ::testing::PrintToString(r.first);
    Decoder d("=FF=00x");
    EXPECT_EQ(255, d.qp.read()) << "not negative";
    EXPECT_EQ(0, d.qp.read());
    EXPECT_EQ('x', d.qp.read());
    EXPECT_EQ(-1, d.qp.read());
}

TEST(QPErrors, MalformedInputNamesTheBytesAndThePosition) {
    expectDecodeError("x=4\r\n", 27, "= 0x34 0x0D", 1);
    expectDecodeError("=G1", 27, "= 0x47 0x31", 0);
    expectDecodeError("ab=4g", 27, "= 0x34 0x67", 2);
    expectDecodeError("abc\r\n=1", 27, "= 0x31 EOF", 5);
    expectDecodeError("=", 27, "= EOF EOF", 0);
    expectDecodeError("x=", 27, "= EOF EOF", 1);
    // The "=" after the lone CR is read twice (pushed back), counted once.
    expectDecodeError("a\r=4", 27, "= 0x34 EOF", 2);
    expectDecodeError("x= y", 28, "0x79", 3);
    expectDecodeError("x=\t \t=", 28, "0x3D", 5);
    expectDecodeError("x= ", 28, "EOF", 3);
}

TEST(QPErrors, ErrorsOfTheInnerStreamPassThrough) {
    ScriptedInputStream in("--b\r\n\r\ncut=3D off");
    in.unread("\r\n", 2);
    TALVEXMPInputStream mp(&in, "b");
    ASSERT_EQ(1, mp.hasNextPart());
    mp.nextPart();
    MOXByteBuffer line(8, 8);
    mp.readline(line);
    TALVEXQPInputStream qp(&mp);
    try {
        while (qp.read() != -1) {
        }
        ADD_FAILURE() << "the cut-off part read to its end";
    } catch (TALVEXException& e) {
        EXPECT_EQ(20, e.getCode());
        EXPECT_EQ("TALVEXMPInputStream::readMore", e.getBackTrace()[0].function);
    }
}

// ---------------------------------------------------------------- reading

TEST(QPReading, EmptyInputEndsAtOnce) {
    Decoder d("");
    char c;
    MOXByteBuffer b(8, 8);
    unsigned r = 0;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(-1, d.qp.read());
        EXPECT_EQ(PNX_EOF, d.qp.read(&c, 1));
        EXPECT_EQ(PNX_EOF, d.qp.read(b, 8));
        EXPECT_EQ("", readline(d.qp, &r));
        EXPECT_EQ(PNX_EOF, r);
    }
}

TEST(QPReading, AReadNeverSpansTwoDecodedLines) {
    Decoder d("ab\r\ncd=0D=0Aef");
    char buf[100];
    EXPECT_EQ(4u, d.qp.read(buf, sizeof buf));
    EXPECT_EQ("ab\r\n", std::string(buf, 4));
    EXPECT_EQ(4u, d.qp.read(buf, sizeof buf)) << "escaped CR LF ends a decoded line too";
    EXPECT_EQ("cd\r\n", std::string(buf, 4));
    EXPECT_EQ(2u, d.qp.read(buf, sizeof buf));
    EXPECT_EQ(PNX_EOF, d.qp.read(buf, sizeof buf));
}

TEST(QPReading, ByteBufferReadReplacesTheContent) {
    Decoder d("abc\r\nd");
    MOXByteBuffer b(8, 8);
    b << "old content";
    EXPECT_EQ(2u, d.qp.read(b, 2));
    EXPECT_EQ("ab", std::string(b.str(), b.pcount()));
    EXPECT_EQ(3u, d.qp.read(b, 100));
    EXPECT_EQ("c\r\n", std::string(b.str(), b.pcount()));
    EXPECT_EQ(0u, d.qp.read(b, 0));
    EXPECT_EQ(0u, b.pcount());
    EXPECT_EQ(1u, d.qp.read(b, 100));
    EXPECT_EQ(PNX_EOF, d.qp.read(b, 100));
    EXPECT_EQ(0u, b.pcount());
}

TEST(QPReading, ZeroByteReadDecodesNothingAndANullTargetIsAnAssertion) {
    Decoder d("abc");
    char c;
    EXPECT_EQ(0u, d.qp.read(&c, 0));
    EXPECT_EQ(0u, d.in.calls());
    try {
        d.qp.read(static_cast<char*>(nullptr), 1);
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(NULL != buf);", e.getText());
    }
}

TEST(QPReading, ReadlineGivesTheRestOfTheCurrentLine) {
    Decoder d("abc=3D\r\ndef\r\nlast");
    unsigned r = 0;
    EXPECT_EQ('a', d.qp.read());
    EXPECT_EQ("bc=\r\n", readline(d.qp, &r));
    EXPECT_EQ(5u, r);
    EXPECT_EQ("def\r\n", readline(d.qp, &r));
    EXPECT_EQ(5u, r);
    EXPECT_EQ("last", readline(d.qp, &r));
    EXPECT_EQ(4u, r);
    EXPECT_EQ("", readline(d.qp, &r));
    EXPECT_EQ(PNX_EOF, r);

    // A bound hands the line out in pieces.
    Decoder bounded("abcdef\r\nz");
    MOXByteBuffer b;
    EXPECT_EQ(4u, bounded.qp.readline(b, 4));
    EXPECT_EQ(4u, bounded.qp.readline(b, 4));
    EXPECT_EQ("ef\r\n", std::string(b.str(), b.pcount()));
    EXPECT_EQ(1u, bounded.qp.readline(b, 4));
    EXPECT_EQ("z", std::string(b.str(), b.pcount()));
}

TEST(QPReading, ReadlineAfterReadsThatTookTheLineExactlyAnswersZeroThenTheNextLine) {
    Decoder d("ab\r\ncd\r\n");
    char buf[4];
    EXPECT_EQ(4u, d.qp.read(buf, 4));
    unsigned r = 1;
    EXPECT_EQ("", readline(d.qp, &r));
    EXPECT_EQ(0u, r);
    EXPECT_EQ("cd\r\n", readline(d.qp, &r));
    EXPECT_EQ(4u, r);
    EXPECT_EQ(-1, d.qp.read());
}

TEST(QPReading, LongLinesHaveNoLimit) {
    std::string encoded;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        encoded += "x=3D=\r\n";
        expected += "x=";
    }
    encoded += "\r\n";
    expected += "\r\n";
    Decoder d(encoded);
    unsigned r = 0;
    EXPECT_EQ(expected, readline(d.qp, &r));
    EXPECT_EQ(expected.size(), r);
}

TEST(QPReading, DecodesOnePartOfAMultipartBody) {
    ScriptedInputStream in("--b\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\nx=3D=\r\ny\r\n--b\r\n\r\nraw=3D\r\n--b--",
                           {3});
    in.unread("\r\n", 2);
    TALVEXMPInputStream mp(&in, "b");
    ASSERT_EQ(1, mp.hasNextPart());
    mp.nextPart();
    MOXByteBuffer line(8, 8);
    while (mp.readline(line) != 0 && line.trim() != 0) line.reset();
    TALVEXQPInputStream qp(&mp);
    std::string out;
    for (int c; (c = qp.read()) != -1;) out += static_cast<char>(c);
    EXPECT_EQ("x=y", out);
    ASSERT_EQ(1, mp.hasNextPart());
    mp.nextPart();
    line.reset();
    mp.readline(line);
    char buf[20];
    const unsigned r = mp.read(buf, sizeof buf);
    EXPECT_EQ("raw=3D", std::string(buf, r)) << "the next part is not decoded";
}

// ---------------------------------------------------------------- what the stream does not offer

TEST(QPUnsupported, UnreadAndWrapAreNotImplementedAndUnWrapDoesNothing) {
    Decoder d("abc");
    ScriptedInputStream other("x");
    EXPECT_EQ(0, d.qp.canUnread());
    for (const char* function : {"TALVEXQPInputStream::unread", "TALVEXQPInputStream::wrap"}) {
        try {
            if (std::string(function).find("unread") != std::string::npos) {
                d.qp.unread("a", 1);
            } else {
                d.qp.wrap(other);
            }
            ADD_FAILURE() << function;
        } catch (TALVEXException& e) {
            EXPECT_EQ(0, e.getCode());
            auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
            ASSERT_NE(nullptr, m);
            EXPECT_EQ(0xF2A8781Au, m->getNumber());
            EXPECT_EQ(function, e.getBackTrace().back().function);
        }
    }
    EXPECT_EQ('a', d.qp.read());
    d.qp.unWrap();
    d.qp.close();
    EXPECT_EQ(0, d.qp.canTimeout());
    EXPECT_EQ(0, d.qp.canCancel());
    EXPECT_EQ('b', d.qp.read());
    EXPECT_EQ("", other.unreadBytes());
}

TEST(QPUnsupported, HexValue) {
    EXPECT_EQ(0, TALVEXQPInputStream::hexValue('0'));
    EXPECT_EQ(9, TALVEXQPInputStream::hexValue('9'));
    EXPECT_EQ(10, TALVEXQPInputStream::hexValue('A'));
    EXPECT_EQ(15, TALVEXQPInputStream::hexValue('f'));
    for (int c : {int('G'), int('g'), int('/'), int(':'), int('@'), int('`'), -1, 0, 255}) EXPECT_EQ(-1, TALVEXQPInputStream::hexValue(c)) << c;
}
