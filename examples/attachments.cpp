// A streaming request/response cycle with attachments: the envelope and two
// attachments go out (one written at once, one streamed in pieces), and every
// part of the multipart answer comes back as a stream with its headers.
//   example_attachments URL [CA-FILE]
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "moxidom/MOXIDOM.h"
#include "talvex/talvex.h"

namespace {
std::string readAll(PNXInputStream& in) {
    std::string data;
    char buffer[8192];
    for (;;) {
        const unsigned n = in.read(buffer, sizeof buffer);
        if (n == PNX_EOF) break;  // the end of this part
        data.append(buffer, n);
    }
    return data;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s URL [CA-FILE]\n", argv[0]);
        return 2;
    }
    const std::string url = argv[1];
    const bool tls = url.compare(0, 8, "https://") == 0;
    std::string config = "<sessionConfigDocument>";
    if (argc > 2) config += std::string("<caFile>") + argv[2] + "</caFile>";
    config += "</sessionConfigDocument>";

    const std::string note = "a short text attachment\n";
    std::string blob;
    for (int i = 0; i < 100000; ++i) blob += static_cast<char>(i * 7);  // binary, NUL bytes included

    if (TALVEXInitialize() != 0) return 1;
    int result = 1;
    {
        std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
        toolkit->setUseVLT(tls ? 1 : 0);
        try {
            std::unique_ptr<TALVEXSession> session(toolkit->getSession(url.c_str(), config.c_str(), 10));

            // Request: envelope first, then the attachments, one at a time.
            TALVEXMessageWriter& writer = session->openRequest(1);
            PNXOutputStream& envelope = writer.openEnvelope("\"urn:example:upload\"");
            const std::string xml =
                "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                "<soapenv:Body><ex:upload xmlns:ex=\"urn:example\"><ex:file href=\"cid:blob\"/></ex:upload>"
                "</soapenv:Body></soapenv:Envelope>";
            envelope.write(xml.data(), static_cast<unsigned>(xml.size()));
            writer.closeEnvelope(envelope);
            writer.writeAttachment("text/plain", "UTF-8", note.data(), static_cast<unsigned>(note.size()), "note");
            PNXOutputStream& part = writer.openAttachment("application/octet-stream", nullptr, "blob", 0);
            for (size_t at = 0; at < blob.size(); at += 30000) {  // as if read from a file piece by piece
                const size_t n = blob.size() - at < 30000 ? blob.size() - at : 30000;
                part.write(blob.data() + at, static_cast<unsigned>(n));
            }
            writer.closeAttachment(part);
            session->closeRequest(writer);

            // Response: the envelope, then each attachment.
            TALVEXMessageReader& reader = session->openResponse();
            MOXIDOM_Document response;
            reader.getEnvelope(response);
            std::printf("status %s, multipart %d\n", reader.getHeader("talvex-status-code"), reader.isMultipart());
            std::printf("envelope: %s\n", MOXIDOM_Helper::toString(response.getDocumentElement()).c_str());
            int matching = 0;
            while (reader.hasMoreAttachments()) {
                TALVEXAttachmentReader& a = reader.openNextAttachment();
                const std::string id = a.getContentId();
                const std::string data = readAll(a.getInputStream());
                std::printf("attachment id=%s type=%s: %zu bytes\n", id.c_str(), a.getContentType(), data.size());
                if ((id == "note" && data == note) || (id == "blob" && data == blob)) ++matching;
                reader.closeAttachment(a);
            }
            session->closeResponse(reader);  // reads what is left; the connection is ready again
            std::printf("%d of 2 attachments came back unchanged\n", matching);
            result = matching == 2 ? 0 : 1;
        } catch (MOXThrowable& e) {
            std::fprintf(stderr, "%s\n", e.toString().c_str());
        } catch (const std::out_of_range& e) {
            // Not a MOXThrowable: a TLS configuration document without its
            // closing tag </sessionConfigDocument>.
            std::fprintf(stderr, "unusable TLS configuration document: %s\n", e.what());
        }
    }
    TALVEXTerminate();
    return result;
}
