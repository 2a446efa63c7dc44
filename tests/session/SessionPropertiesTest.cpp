#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CaughtFailure.h"
#include "SessionFixture.h"

// Transfer properties: read afresh at every openRequest and handed to the
// writer as chunking, chunk size and boundary.

namespace {
std::string firstChunkLine(const std::string& body) { return body.substr(0, body.find("\r\n")); }
}  // namespace

using SessionProperties = SessionFixture;

TEST_F(SessionProperties, FreshSessionSendsChunksOf4000) {
    const std::string text(9000, 'x');
    int chunkSize = -1;
    EXPECT_EQ(text, cycleWithWriter(text, &chunkSize));
    EXPECT_EQ(4000, chunkSize);

    SoapEchoEndpoint::SeenRequest seen = endpoint.lastRequest();
    EXPECT_EQ("chunked", seen.header("transfer-encoding"));
    EXPECT_FALSE(seen.has("content-length"));
    EXPECT_EQ("fa0", firstChunkLine(lastWireBody())) << "the first chunk carries 4000 bytes";
    EXPECT_EQ(envelopeText(text), seen.envelope);
}

// Without the boundary property each request has a fresh boundary; the
// property replaces it.
TEST_F(SessionProperties, BoundaryOfAttachmentRequests) {
    std::string previous;
    for (const std::string given : {"", "", "my-own-boundary-42"}) {
        SCOPED_TRACE(given);
        if (!given.empty()) session->setProperty("boundary", given);
        TALVEXMessageWriter& w = session->openRequest(1);
        auto* imp = dynamic_cast<TALVEXMessageWriterImp*>(&w);
        ASSERT_NE(nullptr, imp);
        const std::string boundary = imp->getBoundary();
        if (given.empty()) EXPECT_NE(previous, boundary);
        else EXPECT_EQ(given, boundary);
        previous = boundary;
        EXPECT_EQ(4000, imp->getChunkSize());
        const std::string xml = envelopeText("parts");
        PNXOutputStream& out = w.openEnvelope();
        out.write(xml.data(), static_cast<unsigned>(xml.size()));
        w.closeEnvelope(out);
        w.writeAttachment("text/plain", nullptr, "abc", 3, "att-1");
        session->closeRequest(w);
        MOXIDOM_Document response;
        session->getResponse(response);
        EXPECT_EQ("parts", responseText(response));

        SoapEchoEndpoint::SeenRequest seen = endpoint.lastRequest();
        EXPECT_TRUE(seen.multipart);
        EXPECT_NE(std::string::npos, seen.header("content-type").find(boundary));
        EXPECT_NE(std::string::npos, seen.raw.find("\r\n--" + boundary + "\r\n"));
        ASSERT_EQ(1u, seen.parts.size());
        EXPECT_EQ("abc", seen.parts[0].data);
    }
}

TEST_F(SessionProperties, SendContentLengthSendsALength) {
    session->setProperty("send-content-length", 1);
    const std::string text = "with a length";
    int chunkSize = -1;
    EXPECT_EQ(text, cycleWithWriter(text, &chunkSize));
    EXPECT_EQ(0, chunkSize);
    SoapEchoEndpoint::SeenRequest seen = endpoint.lastRequest();
    EXPECT_FALSE(seen.has("transfer-encoding"));
    EXPECT_EQ(std::to_string(envelopeText(text).size()), seen.header("content-length"));
    EXPECT_EQ(envelopeText(text), lastWireBody());

    // Every later request goes the same way: the property stays.
    EXPECT_EQ("again", roundTrip("again"));
    EXPECT_FALSE(endpoint.lastRequest().has("transfer-encoding"));
}

// Each row: the properties set (in order), then the writer's chunk size (0:
// a length is sent). A send-content-length that is no number or zero keeps
// chunks; a chunk size below two becomes 4000; a length ignores the chunk size.
TEST_F(SessionProperties, WriterFramingFollowsTheProperties) {
    const struct {
        std::vector<std::pair<const char*, std::string>> set;
        int chunkSize;
    } rows[] = {
        {{{"send-content-length", "abc"}}, 4000},
        {{{"send-content-length", "0"}}, 4000},
        {{{"send-content-length", ""}}, 4000},
        {{{"chunk-size", "1"}}, 4000},
        {{{"chunk-size", "0"}}, 4000},
        {{{"chunk-size", "-4000"}}, 4000},
        {{{"chunk-size", "not a number"}}, 4000},
        {{{"chunk-size", "2"}, {"send-content-length", "1"}}, 0},
    };
    for (const auto& r : rows) {
        std::string what;
        for (const auto& p : r.set) {
            session->setProperty(p.first, p.second);
            what += std::string(p.first) + "=" + p.second + " ";
        }
        SCOPED_TRACE(what);
        int chunkSize = -1;
        EXPECT_EQ(what, cycleWithWriter(what, &chunkSize));
        EXPECT_EQ(r.chunkSize, chunkSize);
        EXPECT_EQ(r.chunkSize != 0, endpoint.lastRequest().has("transfer-encoding"));
        EXPECT_EQ(r.chunkSize == 0, endpoint.lastRequest().has("content-length"));
    }
    // The int forms, also from another thread, apply to the next request.
    session->setProperty("send-content-length", 0);
    session->setProperty("chunk-size", -1);
    int chunkSize = -1;
    EXPECT_EQ("zero", cycleWithWriter("zero", &chunkSize));
    EXPECT_EQ(4000, chunkSize);
    EXPECT_EQ("chunked", endpoint.lastRequest().header("transfer-encoding"));
    std::thread setter([&] { session->setProperty("send-content-length", 1); });
    setter.join();
    EXPECT_EQ("t", cycleWithWriter("t", &chunkSize));
    EXPECT_EQ(0, chunkSize);
}

TEST_F(SessionProperties, ChunkSizeOfTwoIsUsedOnTheWire) {
    session->setProperty("chunk-size", 2);
    int chunkSize = -1;
    EXPECT_EQ("two by two", cycleWithWriter("two by two", &chunkSize));
    EXPECT_EQ(2, chunkSize);
    const std::string body = lastWireBody();
    EXPECT_EQ("2", firstChunkLine(body));
    EXPECT_EQ(0u, body.find("2\r\n<s\r\n2\r\noa")) << body.substr(0, 40);

    session->setProperty("chunk-size", "4001");
    cycleWithWriter(std::string(4001, 'y'), &chunkSize);
    EXPECT_EQ(4001, chunkSize);
    EXPECT_EQ("fa1", firstChunkLine(lastWireBody()));
}

TEST_F(SessionProperties, CapitalisedBoundaryIsRefusedAndChangesNothing) {
    session->setProperty("boundary", "kept-boundary");
    CaughtFailure f = CaughtFailure::from([&] { session->setProperty("Boundary", std::string("other")); });
    EXPECT_EQ("MOXIllegalArgumentError", f.name());
    ASSERT_EQ(1u, f.trace().size()) << f.describeTrace();
    EXPECT_EQ("TALVEXSessionImp", f.origin().unit);
    EXPECT_EQ(109, f.origin().line);
    EXPECT_EQ("TALVEXSessionImp::setProperty", f.origin().function);
    EXPECT_EQ("MOX_THROW", f.origin().kind);
    EXPECT_FALSE(f.hasText());

    // The int form goes through the same check.
    CaughtFailure g = CaughtFailure::from([&] { session->setProperty("Boundary", 7); });
    EXPECT_EQ("MOXIllegalArgumentError", g.name());
    EXPECT_EQ(109, g.origin().line);
    for (const char* name : {"chunk_size", "send-content-length ", "", "boundar", "boundaryx"}) {
        CaughtFailure h = CaughtFailure::from([&] { session->setProperty(name, std::string("1")); });
        EXPECT_EQ("MOXIllegalArgumentError", h.name()) << "'" << name << "'";
    }

    TALVEXMessageWriter& w = session->openRequest(1);
    EXPECT_EQ("kept-boundary", dynamic_cast<TALVEXMessageWriterImp&>(w).getBoundary());
    EXPECT_EQ(4000, dynamic_cast<TALVEXMessageWriterImp&>(w).getChunkSize())
        << "the refused names set nothing, send-content-length included";
    MOXIDOM_Document request;
    w.writeEnvelope(envelope(request, "k"));
    session->closeRequest(w);
    MOXIDOM_Document response;
    session->getResponse(response);
    EXPECT_EQ("k", responseText(response));
}

