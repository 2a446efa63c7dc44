#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "RecordingOutputStream.h"
#include "moxcore/MOXErrors.h"
#include "moxhttptools/OnePieceHttpMsg.h"

namespace {

void writeText(OnePieceHttpMsg& sender, const std::string& text) {
    sender.body.write(text.data(), static_cast<unsigned>(text.size()));
}

// Each row: chunk size, what the caller does before finish, the bytes sent.
TEST(OnePieceHttpMsg, WireBytes) {
    struct Row {
        const char* what;
        int chunk;
        std::function<void(OnePieceHttpMsg&)> fill;
        std::string wire;
    };
    const auto envelope = [](OnePieceHttpMsg& s, const char* authority) {
        s.startRequest("/soap/svc", 0);
        s.setAuthority(authority);
        s.setHeader("SOAPAction", "\"\"");
        s.setHeader("Content-Type", "text/xml; charset=UTF-8");
        s.setHeader("Content-ID", "envelope");
        writeText(s, "<e>");
        writeText(s, "</e>");
    };
    const std::string envelopeHead =
        "SOAPAction: \"\"\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-ID: envelope\r\n";
    const std::vector<Row> rows = {
        {"chunked request", 4000, [&](OnePieceHttpMsg& s) { envelope(s, "example.org:8080"); },
         "POST /soap/svc HTTP/1.1\r\nHost: example.org:8080\r\n" + envelopeHead +
             "Transfer-Encoding: chunked\r\n\r\n7\r\n<e></e>\r\n0\r\n\r\n"},
        {"request with a length", 0, [&](OnePieceHttpMsg& s) { envelope(s, "example.org"); },
         "POST /soap/svc HTTP/1.1\r\nHost: example.org\r\n" + envelopeHead + "Content-Length: 7\r\n\r\n<e></e>"},
        {"responses never get a host", 0,
         [](OnePieceHttpMsg& s) {
             s.setAuthority("example.org");
             s.startResponse(500, "Internal Server Error");
             s.setHeader("Content-Type", "text/xml");
             writeText(s, "<f/>");
         },
         "HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/xml\r\nContent-Length: 4\r\n\r\n<f/>"},
        {"null reason, empty chunked body", 2, [](OnePieceHttpMsg& s) { s.startResponse(204, nullptr); },
         "HTTP/1.1 204 \r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"},
        {"chunks respect the chunk size", 2,
         [](OnePieceHttpMsg& s) {
             s.startRequest("/", 0);
             s.setAuthority("h");
             writeText(s, "abc");
             writeText(s, "d");
             writeText(s, "e");
         },
         "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n2\r\ncd\r\n1\r\ne\r\n0\r\n\r\n"},
        {"caller's Host in any case replaces the authority", 0,
         [](OnePieceHttpMsg& s) {
             s.startRequest("/a", 0);
             s.setAuthority("example.org");
             s.setHeader("SOAPAction", "x");
             s.setHeader("hOST", "other:81");
         },
         "POST /a HTTP/1.1\r\nSOAPAction: x\r\nhOST: other:81\r\nContent-Length: 0\r\n\r\n"},
        {"host from an absolute target", 0,
         [](OnePieceHttpMsg& s) { s.startRequest("http://user:pw@example.org:8080/soap?x=1", 0); },
         "POST http://user:pw@example.org:8080/soap?x=1 HTTP/1.1\r\nHost: example.org:8080\r\nContent-Length: 0\r\n\r\n"},
        {"empty authority: host from the target", 0,
         [](OnePieceHttpMsg& s) {
             s.setAuthority("");
             s.startRequest("http://example.org/soap", 0);
         },
         "POST http://example.org/soap HTTP/1.1\r\nHost: example.org\r\nContent-Length: 0\r\n\r\n"},
        {"no authority, origin target: empty host", 0,
         [](OnePieceHttpMsg& s) {
             s.startRequest("/soap", 0);
             s.setAuthority("forgotten");
             s.setAuthority(nullptr);
         },
         "POST /soap HTTP/1.1\r\nHost:\r\nContent-Length: 0\r\n\r\n"},
        {"the later start line counts; the target never breaks the line", 0,
         [](OnePieceHttpMsg& s) {
             s.startRequest("", 0);
             s.startRequest("/a b\r\n\xE4", 0);
             s.setAuthority("h");
         },
         "POST /a%20b%0D%0A%E4 HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n"},
        {"null target is the root", 0,
         [](OnePieceHttpMsg& s) {
             s.startRequest(nullptr, 0);
             s.setAuthority("h");
         },
         "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n"},
        {"header text cannot end a line early", 0,
         [](OnePieceHttpMsg& s) {
             s.startRequest("/", 0);
             s.setAuthority("h\r\nX: 1");
             s.setHeader("X-A\r\nEvil", "v\r\nInjected: yes\n");
             s.setHeader("X-Null", nullptr);
         },
         "POST / HTTP/1.1\r\nHost: h  X: 1\r\nX-A  Evil: v  Injected: yes \r\nX-Null:\r\nContent-Length: 0\r\n\r\n"},
        {"caller framing headers give way to the sender's", 16,
         [](OnePieceHttpMsg& s) {
             s.startRequest("/", 0);
             s.setAuthority("h");
             s.setHeader("content-length", "99");
             s.setHeader("Transfer-Encoding", "gzip");
             writeText(s, "x");
         },
         "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        RecordingOutputStream out;
        OnePieceHttpMsg sender(out, r.chunk);
        r.fill(sender);
        EXPECT_EQ(0u, out.writeCount()) << "nothing leaves before finish";
        sender.finish();
        EXPECT_EQ(r.wire, out.all());
        EXPECT_EQ(1u, out.writeCount());
        EXPECT_EQ(1u, out.flushCount());
        sender.finish();  // a second finish writes nothing
        EXPECT_EQ(r.wire, out.all());
        EXPECT_EQ(1u, out.writeCount());
    }
}

TEST(OnePieceHttpMsg, MisuseIsRefused) {
    RecordingOutputStream out;
    EXPECT_THROW(OnePieceHttpMsg(out, -1), MOXIllegalArgumentError);

    OnePieceHttpMsg sender(out, 0);
    EXPECT_THROW(sender.startResponse(99, "x"), MOXIllegalArgumentError);
    EXPECT_THROW(sender.startResponse(1000, "x"), MOXIllegalArgumentError);
    EXPECT_THROW(sender.setHeader(nullptr, "x"), MOXIllegalArgumentError);
    EXPECT_THROW(sender.setHeader("", "x"), MOXIllegalArgumentError);
    EXPECT_THROW(sender.finish(), MOXIllegalStateError) << "no start line";
    EXPECT_EQ(0u, out.writeCount());

    OnePieceHttpMsg started(out, 8);
    started.startRequest("/", 0);
    writeText(started, "a");
    EXPECT_THROW(started.setHeader("Late", "x"), MOXIllegalStateError);
    EXPECT_THROW(started.startResponse(200, "OK"), MOXIllegalStateError);
    EXPECT_THROW(started.setAuthority("h"), MOXIllegalStateError);
    started.finish();
    EXPECT_THROW(writeText(started, "b"), MOXIllegalStateError);
    started.body.write("ignored", 0);  // an empty write is no write
}

TEST(OnePieceHttpMsg, AFailedStreamStopsTheMessage) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 4);
    sender.startRequest("/", 0);
    std::string big(40000, 'x');
    out.failAtWrite(1);
    try {
        writeText(sender, big);
        FAIL() << "the stream failure did not come through";
    } catch (MOXUnexpectedError& e) {
        ASSERT_GE(e.getBackTrace().size(), 1u);
        EXPECT_EQ("MOX_RETHROW", e.getBackTrace().back().kind);
    }
    EXPECT_THROW(writeText(sender, "more"), MOXIllegalStateError);
    EXPECT_THROW(sender.finish(), MOXIllegalStateError);
    sender.finish();  // the message is over; nothing more happens
    EXPECT_EQ(0u, out.writeCount());
}

}  // namespace
