// Receives one response with a large attachment over loopback through the
// message reader, and the same bytes through a raw recv loop, in one run; then
// sends one large binary attachment through a session's message writer, chunked
// and with a length, beside a raw send loop. Over TLS too (when built with
// OpenSSL): a secure session beside a plain OpenSSL client's SSL_read and
// SSL_write loops on the same kind of connection.
// Reports MB/s and the peak resident memory of each case, measured in a child
// process per case so that one case's peak does not hide another's.
//
//   receive_bench [MiB] [MiB for the Content-Length send] [case]   (defaults 256, 64)
//
// With a case name (or part of one), only the matching cases run, in this
// process, so that a profiler sees them.
//
// A body sent with a Content-Length is held in memory until the message is
// finished (its length must be known first), so that case's peak grows with
// the attachment; it gets its own, smaller size.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <chrono>
#include <memory>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "LoopbackServer.h"
#include "RawHttpEndpoint.h"
#include "talvex/TALVEX.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxidom/MOXIDOM_Document.h"
#include "transport/TALVEXSocketNonSSL.h"

#ifdef TALVEX_BENCH_TLS
#include "TlsHttpEndpoint.h"
#endif

namespace {
const std::string kBoundary = "=_=bench=_=";
const std::string kEnvelope = "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body/></s:Envelope>";

// The attachment's bytes are a repeating pattern generated on the fly, so the
// server itself holds only one block.
std::string block(bool qp) {
    std::string b;
    if (qp) {
        // Quoted-printable text: printable runs, escapes and soft line breaks.
        while (b.size() < 65536 - 80) b += "The quick brown fox =3D jumps over the lazy dog =E2=82=AC 0123456789=\r\n";
    } else {
        for (int i = 0; i < 65536; ++i) b += static_cast<char>((i * 131 + 7) & 0xFF);
    }
    return b;
}

// Where a response's bytes go: a plain socket or a TLS connection.
using Send = std::function<void(const char*, size_t)>;

Send plainSend(int fd) {
    return [fd](const char* data, size_t n) {
        size_t off = 0;
        while (off < n) {
            // void* picks the POSIX send over the platform layer's SOCKET overload.
            ssize_t k = ::send(fd, static_cast<const void*>(data + off), n - off, int{MSG_NOSIGNAL});
            if (k <= 0) return;
            off += static_cast<size_t>(k);
        }
    };
}

// One write per chunk, as a server with its data at hand writes it: over TLS
// that is one run of full records, not a tiny record for the chunk's head.
void sendChunk(const Send& send, const char* data, size_t n) {
    char head[32];
    const int len = std::snprintf(head, sizeof head, "%zx\r\n", n);
    std::string chunk;
    chunk.reserve(static_cast<size_t>(len) + n + 2);
    chunk.append(head, static_cast<size_t>(len)).append(data, n).append("\r\n", 2);
    send(chunk.data(), chunk.size());
}

void sendText(const Send& send, const std::string& text) { send(text.data(), text.size()); }

// Sends one response: multipart (envelope + attachment), or the raw bytes alone.
void sendResponse(const Send& send, size_t attachmentBytes, bool chunked, bool qp, bool raw) {
    const std::string data = block(qp);
    const std::string partHead = "--" + kBoundary + "\r\nContent-ID: envelope\r\n\r\n" + kEnvelope + "\r\n--" +
                                 kBoundary + "\r\nContent-ID: big\r\n" +
                                 (qp ? "Content-Transfer-Encoding: quoted-printable\r\n" : "") + "\r\n";
    const std::string tail = "\r\n--" + kBoundary + "--\r\n";
    size_t blocks = attachmentBytes / data.size();
    if (raw) {
        for (size_t i = 0; i < blocks; ++i) sendText(send, data);
        return;
    }
    std::string head = "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; boundary=\"" + kBoundary + "\"\r\n";
    if (chunked) {
        sendText(send, head + "Transfer-Encoding: chunked\r\n\r\n");
        sendChunk(send, partHead.data(), partHead.size());
        for (size_t i = 0; i < blocks; ++i) sendChunk(send, data.data(), data.size());
        sendChunk(send, tail.data(), tail.size());
        sendText(send, "0\r\n\r\n");
    } else {
        size_t length = partHead.size() + blocks * data.size() + tail.size();
        sendText(send, head + "Content-Length: " + std::to_string(length) + "\r\n\r\n" + partHead);
        for (size_t i = 0; i < blocks; ++i) sendText(send, data);
        sendText(send, tail);
    }
}

void serve(int fd, size_t attachmentBytes, bool chunked, bool qp, bool raw) {
    sendResponse(plainSend(fd), attachmentBytes, chunked, qp, raw);
    // Raw bytes end with the connection; a response waits for the client to close.
    if (!raw) LoopbackServer::readAll(fd);
}

struct Result {
    double seconds;
    unsigned long long bytes;
};

Result runCase(size_t attachmentBytes, bool chunked, bool qp, bool raw, unsigned rawRead) {
    LoopbackServer server([&](int fd) { serve(fd, attachmentBytes, chunked, qp, raw); });
    TALVEXSocketNonSSL socket(0);
    socket.open(server.url().c_str(), nullptr, 5);
    static char buf[65536];
    unsigned long long total = 0;
    auto start = std::chrono::steady_clock::now();
    if (raw) {
        for (unsigned n; (n = socket.getInputStream()->read(buf, rawRead)) != PNX_EOF;) total += n;
    } else {
        TALVEXMessageReaderImp reader(0, socket.getInputStream());
        MOXIDOM_Document doc;
        reader.getEnvelope(doc);
        TALVEXAttachmentReader& a = reader.openNextAttachment();
        PNXInputStream& in = a.getInputStream();
        for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) total += n;
        reader.closeAttachment(a);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    socket.close();
    return {seconds, total};
}
// One request through a session: the envelope, then `blocks` copies of
// `data` as one attachment; the endpoint's answer is read and dropped.
void sendThroughSession(TALVEXSession& session, const std::string& data, size_t blocks) {
    TALVEXMessageWriter& w = session.openRequest(1);
    PNXOutputStream& env = w.openEnvelope();
    env.write(kEnvelope.data(), static_cast<unsigned>(kEnvelope.size()));
    w.closeEnvelope(env);
    PNXOutputStream& out = w.openAttachment("application/octet-stream", nullptr, "big", 0);
    for (size_t i = 0; i < blocks; ++i) out.write(data.data(), static_cast<unsigned>(data.size()));
    w.closeAttachment(out);
    session.closeRequest(w);
    TALVEXMessageReader& r = session.openResponse();
    session.closeResponse(r);
}

// Sends one request with a large binary attachment through a session (or the
// same number of bytes through a raw send loop) to an endpoint that reads the
// body and answers once it has all of it.
Result sendCase(size_t attachmentBytes, bool chunked, bool raw, int chunkSize = 0) {
    const std::string data = block(false);
    const size_t blocks = attachmentBytes / data.size();
    const std::string response = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: " +
                                 std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope;
    unsigned long long total = 0;
    auto start = std::chrono::steady_clock::now();
    if (raw) {
        std::atomic<unsigned long long> received{0};
        LoopbackServer server([&](int fd) {
            static char sink[65536];
            for (ssize_t n; (n = ::recv(fd, static_cast<void*>(sink), sizeof sink, 0)) > 0;) received += static_cast<size_t>(n);
        });
        TALVEXSocketNonSSL socket(0);
        socket.open(server.url().c_str(), nullptr, 5);
        start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < blocks; ++i) socket.getOutputStream()->write(data.data(), data.size());
        socket.close();
        server.stop();  // waits until the server has read everything
        total = received.load();
    } else {
        RawHttpEndpoint endpoint(response);
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", nullptr, 5));
        if (!chunked) session->setProperty("send-content-length", 1);
        if (chunkSize > 0) session->setProperty("chunk-size", chunkSize);
        start = std::chrono::steady_clock::now();
        sendThroughSession(*session, data, blocks);
        total = blocks * data.size();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {seconds, total};
}

#ifdef TALVEX_BENCH_TLS
int connectLoopback(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) std::exit(1);
    return fd;
}

Send tlsSend(SSL* ssl) {
    return [ssl](const char* data, size_t n) {
        if (n > 0 && SSL_write(ssl, data, static_cast<int>(n)) <= 0) std::exit(1);
    };
}

const std::string kRequest = "POST /svc HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\nContent-Length: " +
                             std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope;

// Receives over TLS: the endpoint reads one request and answers with the
// attachment; a secure session reads it through the message reader, or a
// plain OpenSSL client reads the raw bytes with 64 KiB SSL_read calls.
Result tlsReceiveCase(size_t attachmentBytes, bool chunked, bool qp, bool raw) {
    TlsHttpEndpoint endpoint([&](SSL* ssl) {
        RawHttpReader reader([ssl](char* buf, size_t n) { return static_cast<long>(SSL_read(ssl, buf, static_cast<int>(n))); });
        if (!reader.readMessage(nullptr)) return;
        sendResponse(tlsSend(ssl), attachmentBytes, chunked, qp, raw);
        char rest[4096];
        while (SSL_read(ssl, rest, sizeof rest) > 0) {
        }
    });
    static char buf[65536];
    unsigned long long total = 0;
    std::chrono::steady_clock::time_point start;
    if (raw) {
        const int fd = connectLoopback(endpoint.port());
        {
            TlsClient client(fd, endpoint.certificate());
            client.write(kRequest);
            start = std::chrono::steady_clock::now();
            const RawHttpReader::Source read = client.source();
            const unsigned long long expected = attachmentBytes / 65536 * 65536;
            for (long n; total < expected && (n = read(buf, sizeof buf)) > 0;) total += static_cast<unsigned long long>(n);
        }
        ::close(fd);
    } else {
        const std::string config = endpoint.sessionConfig();
        TALVEX toolkit;
        toolkit.setUseVLT(1);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", config.c_str(), 5));
        TALVEXMessageWriter& w = session->openRequest(0);
        PNXOutputStream& env = w.openEnvelope();
        env.write(kEnvelope.data(), static_cast<unsigned>(kEnvelope.size()));
        w.closeEnvelope(env);
        session->closeRequest(w);
        start = std::chrono::steady_clock::now();
        TALVEXMessageReader& r = session->openResponse();
        MOXIDOM_Document doc;
        r.getEnvelope(doc);
        TALVEXAttachmentReader& a = r.openNextAttachment();
        PNXInputStream& in = a.getInputStream();
        for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) total += n;
        r.closeAttachment(a);
        session->closeResponse(r);
    }
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), total};
}

// Sends over TLS to an endpoint that reads the whole request and answers: a
// secure session's message writer (chunked), or a plain OpenSSL client
// writing the same bytes after a head with their length, 64 KiB a call.
Result tlsSendCase(size_t attachmentBytes, bool raw, int chunkSize = 0) {
    const std::string data = block(false);
    const size_t blocks = attachmentBytes / data.size();
    const std::string response = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: " +
                                 std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope;
    TlsHttpEndpoint endpoint(response);
    std::chrono::steady_clock::time_point start;
    if (raw) {
        const int fd = connectLoopback(endpoint.port());
        {
            TlsClient client(fd, endpoint.certificate());
            RawHttpReader reader(client.source());
            start = std::chrono::steady_clock::now();
            client.write("POST /svc HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/octet-stream\r\n"
                         "Content-Length: " + std::to_string(blocks * data.size()) + "\r\n\r\n");
            for (size_t i = 0; i < blocks; ++i) client.write(data);
            if (!reader.readMessage(nullptr)) std::exit(1);
        }
        ::close(fd);
    } else {
        const std::string config = endpoint.sessionConfig();
        TALVEX toolkit;
        toolkit.setUseVLT(1);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", config.c_str(), 5));
        if (chunkSize > 0) session->setProperty("chunk-size", chunkSize);
        start = std::chrono::steady_clock::now();
        sendThroughSession(*session, data, blocks);
    }
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            static_cast<unsigned long long>(blocks * data.size())};
}
#endif

// Runs one case in a child process; MB/s and the child's peak RSS in MiB.
const char* g_only = nullptr;

template <typename F>
void inChild(const char* name, F run) {
    if (g_only != nullptr) {
        if (std::strstr(name, g_only) == nullptr) return;
        Result r = run();
        std::printf("| %s | %.0f | – |\n", name, r.bytes / 1e6 / r.seconds);
        return;
    }
    int pipefd[2];
    if (pipe(pipefd) != 0) std::exit(1);
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        Result r = run();
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::string line = std::to_string(r.bytes / 1e6 / r.seconds) + " " + std::to_string(usage.ru_maxrss / 1024.0);
        if (write(pipefd[1], line.data(), line.size()) < 0) _exit(1);
        _exit(0);
    }
    close(pipefd[1]);
    char out[128] = {0};
    ssize_t n = read(pipefd[0], out, sizeof out - 1);
    close(pipefd[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    double mbps = 0, rss = 0;
    if (n > 0) std::sscanf(out, "%lf %lf", &mbps, &rss);
    if (n > 0)
        std::printf("| %s | %.0f | %.1f |\n", name, mbps, rss);
    else
        std::printf("| %s | failed | – |\n", name);
    std::fflush(stdout);
}
}  // namespace

int main(int argc, char** argv) {
    size_t mib = argc > 1 ? static_cast<size_t>(std::atoi(argv[1])) : 256;
    size_t lengthMib = argc > 2 ? static_cast<size_t>(std::atoi(argv[2])) : 64;
    if (argc > 3) g_only = argv[3];
    // OpenSSL's own socket BIO in the test endpoints writes without MSG_NOSIGNAL.
    std::signal(SIGPIPE, SIG_IGN);
    if (TALVEXInitialize() != 0) return 1;
    struct Case {
        const char* name;
        bool chunked, qp, raw;
        unsigned rawRead;
    } cases[] = {
        {"raw recv loop, 64 KiB reads (limit)", false, false, true, 65536},
        {"raw recv loop, 1 KiB reads", false, false, true, 1024},
        {"binary, Content-Length", false, false, false, 0},
        {"binary, chunked", true, false, false, 0},
        {"quoted-printable, Content-Length", false, true, false, 0},
        {"quoted-printable, chunked", true, true, false, 0},
    };
    std::printf("| %zu MiB attachment received over loopback | MB/s (decoded bytes) | peak RSS (MiB) |\n", mib);
    std::printf("|---|---|---|\n");
    for (const Case& c : cases)
        inChild(c.name, [&] { return runCase(mib * 1024 * 1024, c.chunked, c.qp, c.raw, c.rawRead); });

    std::printf("\n| attachment sent over loopback (binary, 64 KiB writes) | MB/s | peak RSS (MiB) |\n");
    std::printf("|---|---|---|\n");
    std::string label;
    label = "raw send loop, " + std::to_string(mib) + " MiB (limit)";
    inChild(label.c_str(), [&] { return sendCase(mib * 1024 * 1024, true, true); });
    label = "message writer, chunked (default chunk-size 4000), " + std::to_string(mib) + " MiB";
    inChild(label.c_str(), [&] { return sendCase(mib * 1024 * 1024, true, false); });
    label = "message writer, chunked, chunk-size 65536, " + std::to_string(mib) + " MiB";
    inChild(label.c_str(), [&] { return sendCase(mib * 1024 * 1024, true, false, 65536); });
    label = "message writer, chunked, " + std::to_string(lengthMib) + " MiB";
    inChild(label.c_str(), [&] { return sendCase(lengthMib * 1024 * 1024, true, false); });
    label = "message writer, Content-Length, " + std::to_string(lengthMib) + " MiB (body held until finished)";
    inChild(label.c_str(), [&] { return sendCase(lengthMib * 1024 * 1024, false, false); });
#ifdef TALVEX_BENCH_TLS
    std::printf("\n| %zu MiB attachment received over TLS on loopback | MB/s (decoded bytes) | peak RSS (MiB) |\n", mib);
    std::printf("|---|---|---|\n");
    struct TlsCase {
        const char* name;
        bool chunked, qp, raw;
    } tlsCases[] = {
        {"TLS: OpenSSL client, 64 KiB SSL_read calls (limit)", false, false, true},
        {"TLS: binary, Content-Length", false, false, false},
        {"TLS: binary, chunked", true, false, false},
        {"TLS: quoted-printable, chunked", true, true, false},
    };
    for (const TlsCase& c : tlsCases)
        inChild(c.name, [&] { return tlsReceiveCase(mib * 1024 * 1024, c.chunked, c.qp, c.raw); });

    std::printf("\n| attachment sent over TLS on loopback (binary, 64 KiB writes) | MB/s | peak RSS (MiB) |\n");
    std::printf("|---|---|---|\n");
    label = "TLS: OpenSSL client, 64 KiB SSL_write calls, " + std::to_string(mib) + " MiB (limit)";
    inChild(label.c_str(), [&] { return tlsSendCase(mib * 1024 * 1024, true); });
    label = "TLS: message writer, chunked (default chunk-size 4000), " + std::to_string(mib) + " MiB";
    inChild(label.c_str(), [&] { return tlsSendCase(mib * 1024 * 1024, false); });
    label = "TLS: message writer, chunked, chunk-size 65536, " + std::to_string(mib) + " MiB";
    inChild(label.c_str(), [&] { return tlsSendCase(mib * 1024 * 1024, false, 65536); });
#endif
    TALVEXTerminate();
    return 0;
}
