#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "RecordingOutputStream.h"
#include "WireChecker.h"
#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"

// What the senders write must be what an independent peer reads: Python's
// http.client / http.server and email packages, plus a strict framing decoder.
namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 0x0F];
    }
    return out;
}

std::string describeHeaders(const Headers& headers) {
    std::string out;
    for (const auto& header : headers) out += "header " + header.first + ": " + header.second + "\n";
    return out;
}

std::string chunkList(std::size_t total, std::size_t chunkSize) {
    std::string out;
    for (std::size_t left = total; left > 0;) {
        std::size_t size = left < chunkSize ? left : chunkSize;
        out += (out.empty() ? "" : ",") + std::to_string(size);
        left -= size;
    }
    return out;
}

// All byte values, line ends of every kind and a near-miss of the boundary.
std::string awkwardBytes() {
    std::string data;
    for (int i = 0; i < 256; ++i) data += static_cast<char>(i);
    data += "\r\n--=_=vorna-mp-boundary=_\r\n\r\n--\n--=_=vorna-mp-boundary=_=x\r";
    return data;
}

class WireInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (!WireChecker::available()) GTEST_SKIP() << "python3 with http.client and email is not available";
    }

    static void expectPeerReads(const std::string& message, const std::string& expected) {
        int exitCode = -1;
        std::string description = WireChecker::describe(message, exitCode);
        EXPECT_EQ(0, exitCode) << description;
        EXPECT_EQ(expected, description);
    }

    struct Part {
        Headers headers;
        std::string content;
    };

    static std::vector<Part> soapParts() {
        return {
            {{{"Content-Type", "text/xml; charset=UTF-8"},
              {"Content-ID", "envelope"},
              {"X-Extra", "one"},
              {"Content-Transfer-Encoding", "Binary"}},
             "<soap:Envelope xmlns:soap=\"urn:x\"><soap:Body/></soap:Envelope>"},
            {{{"Content-Type", "application/octet-stream"}, {"Content-ID", "1"}, {"Content-Transfer-Encoding", "Binary"}},
             awkwardBytes()},
            {{{"Content-Type", "text/vornatk-pre-encoded-quoted-printable"},
              {"Content-ID", "2"},
              {"Content-Transfer-Encoding", "Quoted-Printable"}},
             "caf=C3=A9 =3D soft=\r\nbreak\r\n"},
            {{{"Content-ID", "3"}}, ""},
        };
    }

    static std::string writeMultipart(int chunkSize, unsigned pieceSize, const std::vector<Part>& parts) {
        RecordingOutputStream out;
        MultipartHttpMsg sender(out, chunkSize, "=_=vorna-mp-boundary=_=");
        sender.startRequest("/soap/svc", 0);
        sender.setAuthority("example.org:8080");
        sender.setHeader("SOAPAction", "\"\"");
        for (const Part& part : parts) {
            OnePieceHttpMsg* piece = sender.addOnePiece(0);
            for (const auto& header : part.headers) piece->setHeader(header.first.c_str(), header.second.c_str());
            for (std::size_t pos = 0; pos < part.content.size(); pos += pieceSize) {
                std::size_t n = part.content.size() - pos < pieceSize ? part.content.size() - pos : pieceSize;
                piece->body.write(part.content.data() + pos, static_cast<unsigned>(n));
            }
            sender.endPart(piece);
        }
        sender.finish();
        return out.all();
    }

    static std::string describeParts(const std::vector<Part>& parts) {
        std::string out = "multipart multipart/related type=text/xml boundary==_=vorna-mp-boundary=_=\n";
        for (const Part& part : parts) out += "part\n" + describeHeaders(part.headers) + "payload " + hex(part.content) + "\n";
        return out;
    }
};

const Headers kRequestHead = {{"Host", "example.org:8080"},
                              {"SOAPAction", "\"\""},
                              {"Content-Type", "text/xml; charset=UTF-8"},
                              {"Content-ID", "envelope"}};

std::string writeOnePieceRequest(int chunkSize, const std::string& body) {
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, chunkSize);
    sender.startRequest("/soap/svc", 0);
    sender.setAuthority("example.org:8080");
    sender.setHeader("SOAPAction", "\"\"");
    sender.setHeader("Content-Type", "text/xml; charset=UTF-8");
    sender.setHeader("Content-ID", "envelope");
    for (std::size_t pos = 0; pos < body.size(); pos += 3) {
        sender.body.write(body.data() + pos, static_cast<unsigned>(body.size() - pos < 3 ? body.size() - pos : 3));
    }
    sender.finish();
    return out.all();
}

TEST_F(WireInterop, OnePieceRequestChunkedAndWithLength) {
    const std::string body = awkwardBytes();
    const std::string n = std::to_string(body.size());
    expectPeerReads(writeOnePieceRequest(7, body),
                    "start POST /soap/svc HTTP/1.1\n" + describeHeaders(kRequestHead) +
                        "header Transfer-Encoding: chunked\nframing chunked " + chunkList(body.size(), 7) +
                        "\nbody " + hex(body) + "\n");
    expectPeerReads(writeOnePieceRequest(0, body), "start POST /soap/svc HTTP/1.1\n" + describeHeaders(kRequestHead) +
                                                       "header Content-Length: " + n + "\nframing length " + n +
                                                       "\nbody " + hex(body) + "\n");
}

TEST_F(WireInterop, OnePieceResponsesBothWays) {
    for (int chunkSize : {0, 4000}) {
        RecordingOutputStream out;
        OnePieceHttpMsg sender(out, chunkSize);
        sender.startResponse(500, "Internal Server Error");
        sender.setHeader("Content-Type", "text/xml; charset=UTF-8");
        sender.body.write("<fault/>", 8);
        sender.finish();
        std::string framing = chunkSize != 0 ? "header Transfer-Encoding: chunked\nframing chunked 8\n"
                                             : "header Content-Length: 8\nframing length 8\n";
        expectPeerReads(out.all(), "start HTTP/1.1 500 Internal Server Error\n"
                                   "header Content-Type: text/xml; charset=UTF-8\n" +
                                       framing + "body " + hex("<fault/>") + "\n");
    }
}

TEST_F(WireInterop, ManySmallWritesInLargeChunks) {
    std::string body(10000, 'a');
    RecordingOutputStream out;
    OnePieceHttpMsg sender(out, 4000);
    sender.startRequest("/", 0);
    sender.setAuthority("h");
    for (char c : body) sender.body.write(&c, 1);
    sender.finish();
    expectPeerReads(out.all(), "start POST / HTTP/1.1\nheader Host: h\nheader Transfer-Encoding: chunked\n"
                               "framing chunked 4000,4000,2000\nbody " + hex(body) + "\n");
}

// Chunked with content written five bytes at a time, then with a length and one byte at a time.
TEST_F(WireInterop, MultipartRequestChunkedAndWithLength) {
    const std::vector<Part> parts = soapParts();
    const std::string head =
        "start POST /soap/svc HTTP/1.1\nheader Host: example.org:8080\nheader SOAPAction: \"\"\n"
        "header MIME-Version: 1.0\nheader Content-Type: multipart/related; type=\"text/xml\"; "
        "boundary=\"=_=vorna-mp-boundary=_=\"\n";
    std::string message = writeMultipart(4000, 5, parts);
    std::size_t bodyLength = 0;
    for (std::size_t pos = message.find("\r\n\r\n") + 4; message.compare(pos, 3, "0\r\n") != 0;) {
        std::size_t eol = message.find("\r\n", pos);
        std::size_t size = std::stoul(message.substr(pos, eol - pos), nullptr, 16);
        bodyLength += size;
        pos = eol + 2 + size + 2;
    }
    expectPeerReads(message, head + "header Transfer-Encoding: chunked\nframing chunked " +
                                 chunkList(bodyLength, 4000) + "\n" + describeParts(parts));
    message = writeMultipart(0, 1, parts);
    std::string length = std::to_string(message.size() - (message.find("\r\n\r\n") + 4));
    expectPeerReads(message, head + "header Content-Length: " + length + "\nframing length " + length + "\n" +
                                 describeParts(parts));
}

TEST_F(WireInterop, MultipartChunkedInTwoByteChunks) {
    const std::vector<Part> parts = soapParts();
    std::string message = writeMultipart(2, 64, parts);
    int exitCode = -1;
    std::string description = WireChecker::describe(message, exitCode);
    ASSERT_EQ(0, exitCode) << description;
    EXPECT_NE(std::string::npos, description.find(describeParts(parts))) << description;
    EXPECT_NE(std::string::npos, description.find("framing chunked 2,2,2,")) << description;
}

// The checker itself must refuse what a strict peer refuses.
TEST_F(WireInterop, CheckerRefusesBrokenFraming) {
    for (const char* broken : {
             "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",             // no Host
             "POST / HTTP/1.1\nHost: h\r\nContent-Length: 0\r\n\r\n",                      // bare LF
             "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n0\r\n\r\n",
             "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n",  // no trailer end
             "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nab",
             "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
             "GET / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n",
         }) {
        int exitCode = -1;
        std::string description = WireChecker::describe(broken, exitCode);
        EXPECT_EQ(1, exitCode) << broken << "\n" << description;
    }
}

}  // namespace
