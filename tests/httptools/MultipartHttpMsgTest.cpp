#include <gtest/gtest.h>

#include <string>

#include "RecordingOutputStream.h"
#include "moxcore/MOXErrors.h"
#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"

namespace {

const char kBoundary[] = "=_=vorna-mp-boundary=_=";

const std::string kMultipartBody =
    "--=_=vorna-mp-boundary=_=\r\n"
    "Content-Type: text/xml; charset=UTF-8\r\n"
    "Content-ID: envelope\r\n"
    "Content-Transfer-Encoding: Binary\r\n"
    "\r\n"
    "<e/>"
    "\r\n--=_=vorna-mp-boundary=_=\r\n"
    "Content-Type: application/octet-stream\r\n"
    "Content-ID: 1\r\n"
    "Content-Transfer-Encoding: Binary\r\n"
    "\r\n"
    "\x01\r\n--=_=vorna"
    "\r\n--=_=vorna-mp-boundary=_=--\r\n";

void writeText(OnePieceHttpMsg& part, const std::string& text) {
    part.body.write(text.data(), static_cast<unsigned>(text.size()));
}

// The envelope and one attachment, in the order the message writer makes the calls.
void writeTwoParts(MultipartHttpMsg& sender) {
    OnePieceHttpMsg* envelope = sender.addOnePiece(0);
    envelope->setHeader("Content-Type", "text/xml; charset=UTF-8");
    envelope->setHeader("Content-ID", "envelope");
    envelope->setHeader("Content-Transfer-Encoding", "Binary");
    writeText(*envelope, "<e");
    writeText(*envelope, "/>");
    sender.endPart(envelope);
    OnePieceHttpMsg* attachment = sender.addOnePiece(-1);
    attachment->setHeader("Content-Type", "application/octet-stream");
    attachment->setHeader("Content-ID", "1");
    attachment->setHeader("Content-Transfer-Encoding", "Binary");
    writeText(*attachment, std::string("\x01\r\n--=_=vorna"));
    sender.endPart(attachment);
    sender.finish();
}

// With a length and the host from the authority, then chunked with a host the caller set.
TEST(MultipartHttpMsg, RequestWithLengthOrChunked) {
    ASSERT_EQ(294u, kMultipartBody.size());
    const std::string type =
        "MIME-Version: 1.0\r\nContent-Type: multipart/related; type=\"text/xml\"; boundary=\"=_=vorna-mp-boundary=_=\"\r\n";
    for (int chunk : {0, 4000}) {
        RecordingOutputStream out;
        MultipartHttpMsg sender(out, chunk, kBoundary);
        sender.startRequest("/soap/svc", 0);
        sender.setAuthority("example.org:8080");
        sender.setHeader("SOAPAction", "\"\"");
        if (chunk) sender.setHeader("host", "proxy.example:3128");
        writeTwoParts(sender);
        EXPECT_EQ(chunk ? "POST /soap/svc HTTP/1.1\r\nSOAPAction: \"\"\r\nhost: proxy.example:3128\r\n" + type +
                              "Transfer-Encoding: chunked\r\n\r\n126\r\n" + kMultipartBody + "\r\n0\r\n\r\n"
                        : "POST /soap/svc HTTP/1.1\r\nHost: example.org:8080\r\nSOAPAction: \"\"\r\n" + type +
                              "Content-Length: 294\r\n\r\n" + kMultipartBody,
                  out.all());
        EXPECT_EQ(1u, out.writeCount());
    }
}

TEST(MultipartHttpMsg, ResponseWithSmallChunks) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 5, "b");
    sender.startResponse(200, "OK");
    OnePieceHttpMsg* part = sender.addOnePiece(0);
    part->setHeader("X", "1");
    writeText(*part, "abc");
    sender.endPart(part);
    sender.finish();
    // Body "--b\r\nX: 1\r\n\r\nabc\r\n--b--\r\n" (25 bytes) in chunks of five.
    EXPECT_EQ(
        "HTTP/1.1 200 OK\r\n"
        "MIME-Version: 1.0\r\n"
        "Content-Type: multipart/related; type=\"text/xml\"; boundary=\"b\"\r\n"
        "Transfer-Encoding: chunked\r\n"
        "\r\n"
        "5\r\n--b\r\n\r\n5\r\nX: 1\r\r\n5\r\n\n\r\nab\r\n5\r\nc\r\n--\r\n5\r\nb--\r\n\r\n0\r\n\r\n",
        out.all());
}

TEST(MultipartHttpMsg, PartWithoutContentStillGetsItsHeaderBlock) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 0, "b");
    sender.startResponse(200, "OK");
    OnePieceHttpMsg* empty = sender.addOnePiece(0);
    empty->setHeader("Content-ID", "0");
    sender.endPart(empty);
    OnePieceHttpMsg* bare = sender.addOnePiece(0);
    sender.endPart(bare);
    sender.finish();
    std::string all = out.all();
    EXPECT_EQ("--b\r\nContent-ID: 0\r\n\r\n\r\n--b\r\n\r\n\r\n--b--\r\n", all.substr(all.find("\r\n\r\n") + 4));
}

// No part at all gives the closing delimiter alone; the caller cannot override
// the multipart head, only name the root part's type (quoted) in it, before
// the head goes out.
TEST(MultipartHttpMsg, NoPartAtAllAndTheHeadIsTheSenders) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 0, "b");
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    sender.setHeader("Content-Type", "text/plain");
    sender.setHeader("mime-version", "2.0");
    sender.setHeader("Content-Length", "1");
    sender.setHeader("X-Kept", "yes");
    EXPECT_THROW(sender.setRootType("", nullptr), MOXIllegalArgumentError);
    sender.setRootType("application/xop+xml", "application/soap+xml; action=\"urn:a\"");
    sender.finish();
    EXPECT_EQ(
        "POST / HTTP/1.1\r\nHost: h\r\nX-Kept: yes\r\nMIME-Version: 1.0\r\n"
        "Content-Type: multipart/related; type=\"application/xop+xml\"; "
        "start-info=\"application/soap+xml; action=\\\"urn:a\\\"\"; boundary=\"b\"\r\n"
        "Content-Length: 7\r\n\r\n--b--\r\n",
        out.all());
    EXPECT_THROW(sender.setRootType("text/xml", nullptr), MOXIllegalStateError);
}

TEST(MultipartHttpMsg, EndPartOfNullIsHarmless) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 0, "b");
    sender.startResponse(200, "OK");
    sender.endPart(nullptr);
    OnePieceHttpMsg* part = sender.addOnePiece(0);
    sender.endPart(nullptr);  // the open part stays open
    writeText(*part, "x");
    sender.endPart(part);
    sender.endPart(nullptr);
    sender.finish();
    sender.endPart(nullptr);
    std::string all = out.all();
    EXPECT_EQ("--b\r\n\r\nx\r\n--b--\r\n", all.substr(all.find("\r\n\r\n") + 4));
}

TEST(MultipartHttpMsg, SecondFinishWritesNothing) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 3, "b");
    sender.startResponse(200, "OK");
    writeTwoParts(sender);  // finishes
    std::string once = out.all();
    std::size_t writes = out.writeCount();
    sender.finish();
    EXPECT_EQ(once, out.all());
    EXPECT_EQ(writes, out.writeCount());
    EXPECT_THROW(sender.addOnePiece(0), MOXIllegalStateError);
}

TEST(MultipartHttpMsg, PartsHaveNoStartLineAndNoHost) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 0, "b");
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    OnePieceHttpMsg* part = sender.addOnePiece(0);
    EXPECT_THROW(part->startRequest("/", 0), MOXIllegalStateError);
    EXPECT_THROW(part->startResponse(200, "OK"), MOXIllegalStateError);
    part->setAuthority("ignored");
    part->setHeader("Content-Length", "5");  // a part header like any other
    part->finish();                           // writes the header block; the part stays open
    writeText(*part, "abcde");
    sender.endPart(part);
    sender.finish();
    std::string all = out.all();
    EXPECT_EQ("--b\r\nContent-Length: 5\r\n\r\nabcde\r\n--b--\r\n", all.substr(all.find("\r\n\r\n") + 4));
}

TEST(MultipartHttpMsg, OnePartAtATimeHeadersFixedOnceContentFlowsForeignPartsRefused) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 0, "b");
    MultipartHttpMsg other(out, 0, "c");
    sender.startResponse(200, "OK");
    other.startResponse(200, "OK");
    EXPECT_THROW(sender.addOnePiece(1), MOXIllegalArgumentError);
    OnePieceHttpMsg* part = sender.addOnePiece(0);
    EXPECT_THROW(sender.addOnePiece(0), MOXIllegalStateError);
    EXPECT_THROW(sender.finish(), MOXIllegalStateError);
    part->setHeader("A", "1");
    writeText(*part, "x");
    EXPECT_THROW(part->setHeader("B", "2"), MOXIllegalStateError);
    EXPECT_THROW(part->startRequest("/", 0), MOXIllegalStateError);
    EXPECT_THROW(other.endPart(part), MOXIllegalArgumentError);
    writeText(*part, "still usable");
    sender.endPart(part);
    sender.finish();
}

TEST(MultipartHttpMsg, BoundariesOutsideTheMimeRulesAreRefused) {
    RecordingOutputStream out;
    const std::string seventy(70, 'a');
    MultipartHttpMsg longest(out, 0, seventy.c_str());
    EXPECT_EQ(seventy, longest.getBoundary());
    MultipartHttpMsg odd(out, 0, "'()+_,-./:=? x");
    for (const char* bad : {static_cast<const char*>(nullptr), "", "ends in blank ", "quote\"", "semi;colon",
                            "line\r\nbreak", "back\\slash"}) {
        EXPECT_THROW(MultipartHttpMsg(out, 0, bad), MOXIllegalArgumentError) << (bad ? bad : "(null)");
    }
    EXPECT_THROW(MultipartHttpMsg(out, 0, (seventy + "a").c_str()), MOXIllegalArgumentError);
    EXPECT_THROW(MultipartHttpMsg(out, -2, "b"), MOXIllegalArgumentError);
}

// The message writer deletes a part it never ended after the multipart sender.
TEST(MultipartHttpMsg, AnOpenPartMayOutliveItsMessage) {
    RecordingOutputStream out;
    OnePieceHttpMsg* part = nullptr;
    {
        MultipartHttpMsg sender(out, 0, "b");
        sender.startResponse(200, "OK");
        part = sender.addOnePiece(0);
    }
    EXPECT_THROW(writeText(*part, "x"), MOXIllegalStateError);
    delete part;
    EXPECT_EQ(0u, out.writeCount());

    // A part deleted without endPart is forgotten.
    MultipartHttpMsg sender(out, 0, "b");
    sender.startResponse(200, "OK");
    delete sender.addOnePiece(0);
    sender.endPart(sender.addOnePiece(0));
    sender.finish();
}

TEST(MultipartHttpMsg, EndPartThatFailsLeavesThePartWithTheCaller) {
    RecordingOutputStream out;
    MultipartHttpMsg sender(out, 2, "b");
    sender.startResponse(200, "OK");
    OnePieceHttpMsg* part = sender.addOnePiece(0);
    part->setHeader("Big", std::string(20000, 'v').c_str());  // the header block overflows the buffer
    out.failAtWrite(1);
    EXPECT_THROW(sender.endPart(part), MOXUnexpectedError);
    delete part;  // still the caller's: no double delete under the sanitizers
}

}  // namespace
