// Round trips of a 1 KiB envelope on one plain session against a loopback
// endpoint that answers a fixed 1 KiB response without parsing XML:
//   - raw ping-pong: the same request and response bytes over a plain socket
//     (the limit on this machine),
//   - the streaming cycle (openRequest ... closeResponse, envelope bytes
//     written and read as they are, no DOM),
//   - doRequest (the request serialised from a DOM, the response parsed into one),
//   - the DOM work of doRequest alone, in memory (serialise + parse),
//   - over TLS (when built with OpenSSL): the streaming cycle through the
//     secure socket beside a ping-pong between two plain OpenSSL ends.
// Calls per second, and CPU per call of the calling thread and of the whole
// process (which includes the endpoint's thread); each case's best of three
// interleaved rounds.
//
//   roundtrip_bench [seconds per case] [raw|streaming|dom|domonly|tls-raw|tls-streaming]   (default 3, all)
//
// With a case name only that case runs (for a profiler).

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "RawHttpEndpoint.h"
#ifdef TALVEX_BENCH_TLS
#include "TlsHttpEndpoint.h"
#endif
#include "moxcore/MOXThrowable.h"
#include "moxidom/MOXIDOM.h"
#include "talvex/TALVEX.h"

namespace {
const char* kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";

// A request envelope of 1 KiB when serialised: a few typed fields and text.
MOXIDOM_Element requestEnvelope(MOXIDOM_Document& doc) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    MOXIDOM_Element op = env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:bench:orders", "o:submit");
    op.appendElementNS("urn:bench:orders", "o:customer").appendText("ACME Widgets & Sons, Ltd.");
    op.appendElementNS("urn:bench:orders", "o:reference").appendText("PO-2026-000417");
    for (int i = 0; i < 8; ++i) {
        MOXIDOM_Element line = op.appendElementNS("urn:bench:orders", "o:line");
        line.appendElementNS("urn:bench:orders", "o:sku").appendText("SKU-" + std::to_string(10000 + i));
        line.appendElementNS("urn:bench:orders", "o:qty").appendText(std::to_string(i + 1));
    }
    std::string note;
    const size_t now = MOXIDOM_Helper::toString(env).size();
    // Pad the note so the whole envelope is 1024 bytes.
    MOXIDOM_Element n = op.appendElementNS("urn:bench:orders", "o:note");
    const size_t withEmpty = MOXIDOM_Helper::toString(env).size();
    (void)now;
    // The text turns <o:note/> into <o:note></o:note>: 8 bytes more.
    if (withEmpty + 8 < 1024) note.assign(1024 - withEmpty - 8, 'n');
    n.appendText(note);
    return env;
}

std::string responseEnvelopeText() {
    std::string head = std::string("<soapenv:Envelope xmlns:soapenv=\"") + kSoapNs +
                       "\"><soapenv:Body><o:submitResponse xmlns:o=\"urn:bench:orders\"><o:status>accepted</o:status>"
                       "<o:detail>";
    std::string tail = "</o:detail></o:submitResponse></soapenv:Body></soapenv:Envelope>";
    return head + std::string(1024 - head.size() - tail.size(), 'd') + tail;
}

double cpuSeconds(int who) {
    rusage u{};
    getrusage(who, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Result {
    double callsPerSec;
    double threadCpuUs;   // calling thread, per call
    double processCpuUs;  // whole process, per call
    double wallUs;
};

// Runs `call` repeatedly for `seconds` after a short warm-up.
Result measure(double seconds, const std::function<void()>& call) {
    for (int i = 0; i < 200; ++i) call();
    long calls = 0;
    const double t0 = cpuSeconds(RUSAGE_THREAD), p0 = cpuSeconds(RUSAGE_SELF);
    const auto start = std::chrono::steady_clock::now();
    const auto stop = start + std::chrono::duration<double>(seconds);
    std::chrono::steady_clock::time_point now;
    do {
        for (int i = 0; i < 50; ++i) call();
        calls += 50;
        now = std::chrono::steady_clock::now();
    } while (now < stop);
    const double wall = std::chrono::duration<double>(now - start).count();
    const double t1 = cpuSeconds(RUSAGE_THREAD), p1 = cpuSeconds(RUSAGE_SELF);
    return {calls / wall, (t1 - t0) / calls * 1e6, (p1 - p0) / calls * 1e6, wall / calls * 1e6};
}

const int kRounds = 3;

void keepBest(Result& best, const Result& r) {
    if (r.callsPerSec > best.callsPerSec) best = r;
}

int rawConnect(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        std::perror("connect");
        std::exit(1);
    }
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}

void printRow(const char* name, const Result& r, const Result& limit) {
    std::printf("| %s | %.0f | %.0f%% | %.1f | %.1f | %.1f |\n", name, r.callsPerSec,
                100.0 * r.callsPerSec / limit.callsPerSec, r.wallUs, r.threadCpuUs, r.processCpuUs);
}
}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    if (TALVEXInitialize() != 0) return 1;
    int rc = 0;
    try {
        const std::string respEnv = responseEnvelopeText();
        const std::string response = "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
                                     std::to_string(respEnv.size()) + "\r\n\r\n" + respEnv;
        MOXIDOM_Document reqDoc;
        MOXIDOM_Element reqEnv = requestEnvelope(reqDoc);
        const std::string reqText = MOXIDOM_Helper::toString(reqEnv);

        TALVEX toolkit;
        toolkit.setUseVLT(0);

        // Streaming cycle: bytes in, bytes out.
        RawHttpEndpoint streamEndpoint(response);
        std::unique_ptr<TALVEXSession> streamSession(
            toolkit.getSession("127.0.0.1", streamEndpoint.port(), "/svc", nullptr, 5));
        static char buf[4096];
        unsigned long long lastRead = 0;
        auto streamingCall = [&] {
            TALVEXMessageWriter& w = streamSession->openRequest(0);
            PNXOutputStream& out = w.openEnvelope();
            out.write(reqText.data(), static_cast<unsigned>(reqText.size()));
            w.closeEnvelope(out);
            streamSession->closeRequest(w);
            TALVEXMessageReader& r = streamSession->openResponse();
            PNXInputStream& in = r.openEnvelope();
            lastRead = 0;
            for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) lastRead += n;
            r.closeEnvelope(in);
            streamSession->closeResponse(r);
        };
        streamingCall();
        // The exact bytes the toolkit sent, for the raw ping-pong.
        const std::string wireRequest = streamEndpoint.firstRequest();

        // Raw ping-pong of the same request and response bytes.
        RawHttpEndpoint rawEndpoint(response);
        int fd = rawConnect(rawEndpoint.port());
        RawHttpReader rawReader(fd);
        auto rawCall = [&] {
            LoopbackServer::sendAll(fd, wireRequest);
            if (!rawReader.readMessage(nullptr)) {
                std::fprintf(stderr, "raw ping-pong: connection closed\n");
                std::exit(1);
            }
        };

        // doRequest: DOM out, DOM in.
        RawHttpEndpoint domEndpoint(response);
        std::unique_ptr<TALVEXSession> domSession(
            toolkit.getSession("127.0.0.1", domEndpoint.port(), "/svc", nullptr, 5));
        auto domCall = [&] {
            MOXIDOM_Document resp;
            domSession->doRequest(reqEnv, resp);
        };

        // The DOM work of one doRequest, without any I/O.
        auto domOnly = [&] {
            std::string text = MOXIDOM_Helper::toString(reqEnv);
            MOXIDOM_Document resp;
            MOXIDOM_Parser parser;
            parser.parse(respEnv, resp);
        };

#ifdef TALVEX_BENCH_TLS
        TlsHttpEndpoint tlsEndpoint(response);
        // The secure socket reads this again at every reconnect: it lives as long as the session.
        const std::string tlsConfig =
            "<sessionConfigDocument><caFile>" + tlsEndpoint.certificate() + "</caFile></sessionConfigDocument>";
        TALVEX tlsToolkit;
        tlsToolkit.setUseVLT(1);
        std::unique_ptr<TALVEXSession> tlsSession(
            tlsToolkit.getSession("127.0.0.1", tlsEndpoint.port(), "/svc", tlsConfig.c_str(), 5));
        auto tlsStreamingCall = [&] {
            TALVEXMessageWriter& w = tlsSession->openRequest(0);
            PNXOutputStream& out = w.openEnvelope();
            out.write(reqText.data(), static_cast<unsigned>(reqText.size()));
            w.closeEnvelope(out);
            tlsSession->closeRequest(w);
            TALVEXMessageReader& r = tlsSession->openResponse();
            PNXInputStream& in = r.openEnvelope();
            for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) lastRead += n;
            r.closeEnvelope(in);
            tlsSession->closeResponse(r);
        };
        int tlsFd = rawConnect(tlsEndpoint.port());
        TlsClient tlsClient(tlsFd, tlsEndpoint.certificate());
        RawHttpReader tlsReader(tlsClient.source());
        auto tlsRawCall = [&] {
            if (!tlsClient.write(wireRequest) || !tlsReader.readMessage(nullptr)) {
                std::fprintf(stderr, "TLS ping-pong: connection closed\n");
                std::exit(1);
            }
        };
#endif
        if (argc > 2) {
            const std::string only = argv[2];
            std::function<void()> call = only == "raw"         ? std::function<void()>(rawCall)
                                         : only == "streaming" ? std::function<void()>(streamingCall)
                                         : only == "dom"       ? std::function<void()>(domCall)
                                                               : std::function<void()>(domOnly);
#ifdef TALVEX_BENCH_TLS
            if (only == "tls-raw") call = tlsRawCall;
            if (only == "tls-streaming") call = tlsStreamingCall;
#endif
            const Result r = measure(seconds, call);
            std::printf("%s: %.0f calls/s\n", only.c_str(), r.callsPerSec);
        } else {
        std::printf("Request: %zu-byte envelope, %zu bytes on the wire; response: %zu-byte envelope, %zu bytes.\n\n",
                    reqText.size(), wireRequest.size(), respEnv.size(), response.size());
        // The machine may be shared: the cases take turns over three rounds
        // and each keeps its best round, so a burst of outside load does not
        // land on one case only.
        Result raw{}, streaming{}, dom{}, domAlone{};
#ifdef TALVEX_BENCH_TLS
        Result tlsRaw{}, tlsStreaming{};
#endif
        for (int round = 0; round < kRounds; ++round) {
            keepBest(raw, measure(seconds / kRounds, rawCall));
            keepBest(streaming, measure(seconds / kRounds, streamingCall));
            keepBest(dom, measure(seconds / kRounds, domCall));
            keepBest(domAlone, measure(seconds / kRounds, domOnly));
#ifdef TALVEX_BENCH_TLS
            keepBest(tlsRaw, measure(seconds / kRounds, tlsRawCall));
            keepBest(tlsStreaming, measure(seconds / kRounds, tlsStreamingCall));
#endif
        }
        std::printf("| plain round trip, 1 KiB envelope | calls/s | of raw | wall µs/call | client thread CPU µs/call | process CPU µs/call |\n");
        std::printf("|---|---|---|---|---|---|\n");
        printRow("raw socket ping-pong (limit)", raw, raw);
        printRow("streaming cycle (no DOM)", streaming, raw);
        printRow("doRequest (DOM)", dom, raw);
        std::printf("| DOM alone in memory (serialise request + parse response) | %.0f | – | %.1f | %.1f | %.1f |\n",
                    domAlone.callsPerSec, domAlone.wallUs, domAlone.threadCpuUs, domAlone.processCpuUs);
        std::printf("\nDOM share of doRequest: %.0f%% of its wall time from the difference to the streaming cycle, "
                    "%.0f%% from the in-memory DOM work alone.\n",
                    100.0 * (dom.wallUs - streaming.wallUs) / dom.wallUs, 100.0 * domAlone.wallUs / dom.wallUs);
#ifdef TALVEX_BENCH_TLS
        std::printf("\n| TLS round trip, 1 KiB envelope, one connection | calls/s | of TLS raw | wall µs/call | client thread CPU µs/call | process CPU µs/call |\n");
        std::printf("|---|---|---|---|---|---|\n");
        printRow("OpenSSL client ping-pong (limit)", tlsRaw, tlsRaw);
        printRow("streaming cycle, secure socket (setUseVLT(1))", tlsStreaming, tlsRaw);
#else
        std::printf("\nTLS round trips: not measured yet (built without OpenSSL).\n");
#endif
        }
        ::close(fd);
    } catch (MOXThrowable& e) {
        std::fprintf(stderr, "%s\n", e.toString().c_str());
        rc = 1;
    }
    TALVEXTerminate();
    return rc;
}
