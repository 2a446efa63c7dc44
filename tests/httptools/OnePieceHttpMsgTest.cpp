#include <gtest/gtest.h>

#include <string>

#include "RecordingOutputStream.h"
#include "moxcore/MOXErrors.h"
#include "moxhttptools/OnePieceHttpMsg.h"

namespace {

void envelopeHeaders(HttpMsgNode& sender) {
    sender.setHeader("SOAPAction", "\"\"");
    sender.setHeader("Content-Type", "text/xml; charset=UTF-8");
    sender.setHeader("Content-ID", "envelope");
}

void writeText(OnePieceHttpMsg& sender, const std::string& text) {
    sender.body.write(text.data(), static_cast<unsigned>(text.size()));
}

TEST(OnePieceHttpMsg, ChunkedRequestBytes) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 4000);
    sender.startRequest("/soap/svc", 0);
    sender.setAuthority("example.org:8080");
    envelopeHeaders(sender);
    writeText(sender, "<e>");
    writeText(sender, "</e>");
    sender.finish();
    EXPECT_EQ(
        "POST /soap/svc HTTP/1.1\r\n"
        "Host: example.org:8080\r\n"
        "SOAPAction: \"\"\r\n"
        "Content-Type: text/xml; charset=UTF-8\r\n"
        "Content-ID: envelope\r\n"
        "Transfer-Encoding: chunked\r\n"
        "\r\n"
        "7\r\n<e></e>\r\n"
        "0\r\n\r\n",
        out.all());
    EXPECT_EQ(1u, out.writeCount());
    EXPECT_EQ(1u, out.flushCount());
}

TEST(OnePieceHttpMsg, RequestWithLengthBytes) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 0);
    sender.startRequest("/soap/svc", 0);
    sender.setAuthority("example.org");
    envelopeHeaders(sender);
    writeText(sender, "<e>");
    writeText(sender, "</e>");
    EXPECT_EQ(0u, out.writeCount()) << "the length goes first, so nothing may leave before finish";
    sender.finish();
    EXPECT_EQ(
        "POST /soap/svc HTTP/1.1\r\n"
        "Host: example.org\r\n"
        "SOAPAction: \"\"\r\n"
        "Content-Type: text/xml; charset=UTF-8\r\n"
        "Content-ID: envelope\r\n"
        "Content-Length: 7\r\n"
        "\r\n"
        "<e></e>",
        out.all());
    EXPECT_EQ(1u, out.writeCount());
}

TEST(OnePieceHttpMsg, ResponsesNeverGetAHost) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 0);
    sender.setAuthority("example.org");
    sender.startResponse(500, "Internal Server Error");
    sender.setHeader("Content-Type", "text/xml");
    writeText(sender, "<f/>");
    sender.finish();
    EXPECT_EQ(
        "HTTP/1.1 500 Internal Server Error\r\n"
        "Content-Type: text/xml\r\n"
        "Content-Length: 4\r\n"
        "\r\n"
        "<f/>",
        out.all());
}

TEST(OnePieceHttpMsg, ChunkedResponseWithNullReasonAndEmptyBody) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 2);
    sender.startResponse(204, nullptr);
    sender.finish();
    EXPECT_EQ("HTTP/1.1 204 \r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", out.all());
}

TEST(OnePieceHttpMsg, ChunksRespectTheChunkSize) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 2);
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    writeText(sender, "abc");
    writeText(sender, "d");
    writeText(sender, "e");
    sender.finish();
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
              "2\r\nab\r\n2\r\ncd\r\n1\r\ne\r\n0\r\n\r\n",
              out.all());
}

TEST(OnePieceHttpMsg, CallerSetHostInAnyCaseReplacesTheAuthority) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 0);
    sender.startRequest("/a", 0);
    sender.setAuthority("example.org");
    sender.setHeader("SOAPAction", "x");
    sender.setHeader("hOST", "other:81");
    sender.finish();
    EXPECT_EQ("POST /a HTTP/1.1\r\nSOAPAction: x\r\nhOST: other:81\r\nContent-Length: 0\r\n\r\n", out.all());
}

TEST(OnePieceHttpMsg, HostWithoutAuthorityComesFromAnAbsoluteTargetOrIsEmpty) {
    RecordingOutputStream absolute;
    OnePieceHttpMsg a(absolute, 0);
    a.startRequest("http://user:pw@example.org:8080/soap?x=1", 0);
    a.finish();
    EXPECT_EQ("POST http://user:pw@example.org:8080/soap?x=1 HTTP/1.1\r\nHost: example.org:8080\r\n"
              "Content-Length: 0\r\n\r\n",
              absolute.all());

    RecordingOutputStream emptyAuthority;
    OnePieceHttpMsg e(emptyAuthority, 0);
    e.setAuthority("");  // a connection that knows no authority
    e.startRequest("http://example.org/soap", 0);
    e.finish();
    EXPECT_EQ("POST http://example.org/soap HTTP/1.1\r\nHost: example.org\r\nContent-Length: 0\r\n\r\n",
              emptyAuthority.all());

    RecordingOutputStream origin;
    OnePieceHttpMsg o(origin, 0);
    o.startRequest("/soap", 0);
    o.setAuthority("forgotten");
    o.setAuthority(nullptr);
    o.finish();
    EXPECT_EQ("POST /soap HTTP/1.1\r\nHost:\r\nContent-Length: 0\r\n\r\n", origin.all());
}

TEST(OnePieceHttpMsg, RequestTargetIsNeverEmptyAndNeverBreaksTheLine) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 0);
    sender.startRequest("", 0);
    sender.startRequest("/a b\r\n\xE4", 0);  // the later start line counts
    sender.setAuthority("h");
    sender.finish();
    EXPECT_EQ("POST /a%20b%0D%0A%E4 HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", out.all());

    RecordingOutputStream root;
    OnePieceHttpMsg r(root, 0);
    r.startRequest(nullptr, 0);
    r.setAuthority("h");
    r.finish();
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", root.all());
}

TEST(OnePieceHttpMsg, HeaderTextCannotEndALineEarly) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 0);
    sender.startRequest("/", 0);
    sender.setAuthority("h\r\nX: 1");
    sender.setHeader("X-A\r\nEvil", "v\r\nInjected: yes\n");
    sender.setHeader("X-Null", nullptr);
    sender.finish();
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: h  X: 1\r\nX-A  Evil: v  Injected: yes \r\nX-Null:\r\n"
              "Content-Length: 0\r\n\r\n",
              out.all());
}

TEST(OnePieceHttpMsg, CallerFramingHeadersGiveWayToTheSenders) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 16);
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    sender.setHeader("content-length", "99");
    sender.setHeader("Transfer-Encoding", "gzip");
    writeText(sender, "x");
    sender.finish();
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n", out.all());
}

TEST(OnePieceHttpMsg, SecondFinishWritesNothing) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 10);
    sender.startRequest("/", 0);
    writeText(sender, "abc");
    sender.finish();
    std::string once = out.all();
    std::size_t writes = out.writeCount();
    sender.finish();
    EXPECT_EQ(once, out.all());
    EXPECT_EQ(writes, out.writeCount());
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
