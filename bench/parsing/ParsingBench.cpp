// In-memory costs of reading a message: the HTTP head parser, the chunked body
// decoder, and the DOM serialising and parsing a typical SOAP envelope.
// The buffered stream under the parser and the decoder is 1024 bytes, as in
// the message reader, unless an argument says otherwise.
#include <benchmark/benchmark.h>

#include <string>

#include "MemoryInputStream.h"
#include "http/TALVEXHTTPParser.h"
#include "moxidom/MOXIDOM.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXChunkedInputStream.h"

namespace {
const char* kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";

const std::string kResponseHead =
    "HTTP/1.1 200 OK\r\n"
    "Date: Sun, 22 Nov 2026 21:00:00 GMT\r\n"
    "Server: Apache-Coyote/1.1\r\n"
    "Content-Type: text/xml; charset=utf-8\r\n"
    "Content-Length: 1024\r\n"
    "Cache-Control: no-cache\r\n"
    "Connection: keep-alive\r\n"
    "\r\n";

const std::string kMultipartHead =
    "HTTP/1.1 200 OK\r\n"
    "Date: Sun, 22 Nov 2026 21:00:00 GMT\r\n"
    "Content-Type: multipart/related; type=\"text/xml\"; start=\"<envelope>\"; boundary=\"=_=vorna-mp-boundary=_=\"\r\n"
    "Transfer-Encoding: chunked\r\n"
    "\r\n";

void parseHeads(benchmark::State& state, const std::string& head) {
    const int bufSize = static_cast<int>(state.range(0));
    for (auto _ : state) {
        MemoryInputStream in(head);
        PNXBufferedInputStream buffered(in, bufSize);
        TALVEXHTTPParser parser;
        parser.parseResponse(&buffered);
        benchmark::DoNotOptimize(parser.getContentLength());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(head.size()));
}
void BM_ParseResponseHead(benchmark::State& state) { parseHeads(state, kResponseHead); }
void BM_ParseMultipartHead(benchmark::State& state) { parseHeads(state, kMultipartHead); }
BENCHMARK(BM_ParseResponseHead)->ArgName("buffer")->Arg(1024)->Arg(65536);
BENCHMARK(BM_ParseMultipartHead)->ArgName("buffer")->Arg(1024);

// A 1 MiB body chunked in pieces of `chunk` bytes, read with `read` bytes per call.
void BM_ChunkedDecode(benchmark::State& state) {
    const size_t chunk = static_cast<size_t>(state.range(0));
    const unsigned readSize = static_cast<unsigned>(state.range(1));
    const int bufSize = static_cast<int>(state.range(2));
    const size_t total = 1 << 20;
    const std::string piece(chunk, 'x');
    std::string wire;
    char size[32];
    for (size_t at = 0; at < total; at += chunk) {
        std::snprintf(size, sizeof size, "%zx\r\n", chunk);
        wire += size;
        wire += piece;
        wire += "\r\n";
    }
    wire += "0\r\n\r\n";
    std::string out(readSize, '\0');
    for (auto _ : state) {
        MemoryInputStream in(wire);
        PNXBufferedInputStream buffered(in, bufSize);
        PNXChunkedInputStream chunked(buffered);
        size_t got = 0;
        for (unsigned n; (n = chunked.read(&out[0], readSize)) != PNX_EOF;) got += n;
        benchmark::DoNotOptimize(got);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(total));
}
BENCHMARK(BM_ChunkedDecode)
    ->ArgNames({"chunk", "read", "buffer"})
    ->Args({4000, 65536, 1024})
    ->Args({65536, 65536, 1024})
    ->Args({65536, 65536, 65536})
    ->Args({4000, 1024, 1024});

// A typical request: an operation with a header block, a dozen typed fields.
MOXIDOM_Element typicalEnvelope(MOXIDOM_Document& doc) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Header")
        .appendElementNS("urn:bench:auth", "a:token")
        .appendText("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    MOXIDOM_Element op = env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:bench:orders", "o:submit");
    op.appendElementNS("urn:bench:orders", "o:customer").appendText("ACME Widgets & Sons, Ltd.");
    for (int i = 0; i < 12; ++i) {
        MOXIDOM_Element line = op.appendElementNS("urn:bench:orders", "o:line");
        line.appendElementNS("urn:bench:orders", "o:sku").appendText("SKU-" + std::to_string(10000 + i));
        line.appendElementNS("urn:bench:orders", "o:qty").appendText(std::to_string(i + 1));
    }
    return env;
}

void BM_DomSerialise(benchmark::State& state) {
    MOXIDOM_Document doc;
    MOXIDOM_Element env = typicalEnvelope(doc);
    size_t bytes = 0;
    for (auto _ : state) {
        std::string text = MOXIDOM_Helper::toString(env);
        bytes += text.size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_DomSerialise);

void BM_DomParse(benchmark::State& state) {
    MOXIDOM_Document doc;
    const std::string text = MOXIDOM_Helper::toString(typicalEnvelope(doc));
    for (auto _ : state) {
        MOXIDOM_Document parsed;
        MOXIDOM_Parser parser;
        benchmark::DoNotOptimize(parser.parse(text, parsed));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
    state.SetLabel(std::to_string(text.size()) + "-byte envelope");
}
BENCHMARK(BM_DomParse);

// One parser kept for every message: what creating the parser per message costs.
void BM_DomParseReusedParser(benchmark::State& state) {
    MOXIDOM_Document doc;
    const std::string text = MOXIDOM_Helper::toString(typicalEnvelope(doc));
    MOXIDOM_Parser parser;
    for (auto _ : state) {
        MOXIDOM_Document parsed;
        benchmark::DoNotOptimize(parser.parse(text, parsed));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DomParseReusedParser);

// Copying an envelope into another document (appendChild across documents).
void BM_DomAppendCopy(benchmark::State& state) {
    MOXIDOM_Document doc;
    MOXIDOM_Element env = typicalEnvelope(doc);
    for (auto _ : state) {
        MOXIDOM_Document target;
        benchmark::DoNotOptimize(MOXIDOM_Helper::appendChild(target, env));
    }
}
BENCHMARK(BM_DomAppendCopy);

// Parsing from a stream, as the message reader does, 1 KiB per read.
void BM_DomParseStream(benchmark::State& state) {
    MOXIDOM_Document doc;
    const std::string text = MOXIDOM_Helper::toString(typicalEnvelope(doc));
    for (auto _ : state) {
        MemoryInputStream in(text, 1024);
        MOXIDOM_Document parsed;
        MOXIDOM_Parser parser;
        benchmark::DoNotOptimize(parser.parseInto(in, parsed));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DomParseStream);
}  // namespace
