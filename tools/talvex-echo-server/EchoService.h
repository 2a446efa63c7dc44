#ifndef TALVEX_ECHOSERVICE_H
#define TALVEX_ECHOSERVICE_H

// The serving side of talvex-echo-server, shared with the test endpoint: reads
// one request from a server-side socket with the toolkit's message reader and
// answers it with the toolkit's writer, echoing the envelope and attachments.

#include <strings.h>

#include <string>
#include <vector>

#include "http/TALVEXMessageWriterImp.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"

struct EchoPart {
    std::string id, type, encoding, disposition;
    std::string data;  // decoded
};

struct EchoRequest {
    std::string uri, envelope;
    bool multipart = false;
    std::vector<EchoPart> parts;
    size_t bytes() const {
        size_t n = envelope.size();
        for (const EchoPart& p : parts) n += p.data.size();
        return n;
    }
};

// How a response goes out: chunked (chunkSize 0: the writer's default) or
// with a length, and the multipart boundary (empty: a fresh one).
struct EchoFraming {
    bool chunked = true;
    int chunkSize = 16384;
    std::string boundary;
};

inline std::string echoReadAll(PNXInputStream& in) {
    std::string data;
    std::vector<char> buffer(64 * 1024);
    for (unsigned n; (n = in.read(buffer.data(), static_cast<unsigned>(buffer.size()))) != PNX_EOF;)
        data.append(buffer.data(), n);
    return data;
}

// Quoted-printable with every byte that is not plainly printable escaped, so
// that any content comes back byte for byte.
inline std::string echoQuotedPrintable(const std::string& data) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    size_t lineLength = 0;
    for (unsigned char c : data) {
        const bool plain = c >= 33 && c <= 126 && c != '=';
        const size_t width = plain ? 1 : 3;
        if (lineLength + width > 75) {
            out += "=\r\n";
            lineLength = 0;
        }
        if (plain) {
            out += static_cast<char>(c);
        } else {
            out += '=';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
        lineLength += width;
    }
    return out;
}

inline std::string echoFaultEnvelope(const std::string& text) {
    return "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\"><soapenv:Body>"
           "<soapenv:Fault><faultcode>soapenv:Server</faultcode><faultstring>" +
           text + "</faultstring></soapenv:Fault></soapenv:Body></soapenv:Envelope>";
}

// Reads one request whole (the reader's destructor reads what is left of it).
inline EchoRequest readEchoRequest(TALVEXSocket& socket) {
    EchoRequest r;
    TALVEXMessageReaderImp reader(1, socket.getInputStream());
    PNXInputStream& envelope = reader.openEnvelope();
    const char* uri = reader.getHeader("talvex-uri");
    r.uri = uri != nullptr ? uri : "";
    r.envelope = echoReadAll(envelope);
    reader.closeEnvelope(envelope);
    r.multipart = reader.isMultipart() != 0;
    while (reader.hasMoreAttachments()) {
        TALVEXAttachmentReader& a = reader.openNextAttachment();
        EchoPart p;
        p.id = a.getContentId();
        p.type = a.getContentType();
        const char* encoding = a.getHeader("content-transfer-encoding");
        p.encoding = encoding != nullptr ? encoding : "";
        const char* disposition = a.getHeader("content-disposition");
        p.disposition = disposition != nullptr ? disposition : "";
        p.data = echoReadAll(a.getInputStream());
        reader.closeAttachment(a);
        r.parts.push_back(std::move(p));
    }
    return r;
}

// Answers with `body` as the envelope; a 200 answer to a multipart request
// carries the request's attachments back.
inline void writeEchoResponse(TALVEXSocket& socket, const EchoRequest& r, int status, const char* reason,
                              const std::string& body, const EchoFraming& framing = EchoFraming()) {
    const bool multipart = r.multipart && status == 200;
    TALVEXMessageWriterImp writer("", 0, multipart ? 1 : 0, &socket, framing.chunked ? 1 : 0, framing.chunkSize,
                                  framing.boundary.empty() ? nullptr : framing.boundary.c_str());
    writer.setResponseStatus(status, reason);
    PNXOutputStream& out = writer.openEnvelope();
    if (!body.empty()) out.write(body.data(), static_cast<unsigned>(body.size()));
    writer.closeEnvelope(out);
    for (const EchoPart& p : multipart ? r.parts : std::vector<EchoPart>()) {
        std::string type = p.type.empty() ? "application/octet-stream" : p.type;
        std::string data = p.data;
        if (strcasecmp(p.encoding.c_str(), "quoted-printable") == 0) {
            // The reader decoded it; it goes back encoded the same way.
            type = "text/vornatk-pre-encoded-quoted-printable";
            data = echoQuotedPrintable(p.data);
        }
        const std::string headers = p.disposition.empty() ? "" : "Content-Disposition:" + p.disposition;
        PNXOutputStream& part = writer.openAttachment(type.c_str(), nullptr,
                                                      headers.empty() ? nullptr : headers.c_str(), p.id.c_str(), 0);
        if (!data.empty()) part.write(data.data(), static_cast<unsigned>(data.size()));
        writer.closeAttachment(part);
    }
    writer.close();
}

#endif
