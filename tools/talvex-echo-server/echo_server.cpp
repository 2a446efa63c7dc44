// talvex-echo-server: a small SOAP endpoint on the toolkit's server side. It
// answers every request with its own envelope and attachments, plain or over
// TLS, one thread per connection, keeping each connection until the client
// closes it.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EchoService.h"
#include "TlsServerSocket.h"
#include "http/TALVEXMessageWriterImp.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXException.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/talvex.h"
#include "transport/TALVEXSocketNonSSL.h"

namespace {

struct ServerOptions {
    std::string bind = "127.0.0.1";
    int port = 8080;
    bool tls = false;
    std::string cert;
    std::string key;
    int delayMs = 0;
    bool fault = false;
};

const char kUsage[] = R"(Usage: talvex-echo-server [options]

A SOAP endpoint that answers every POST with the request's own envelope and
attachments (multipart when the request was). One line per request on
standard error.

  --port N         port to listen on (default 8080; 0: any free port). Prints
                   "listening on PORT" on standard output once ready
  --bind ADDR      address to listen on (default 127.0.0.1)
  --tls            speak TLS; needs --cert and --key
  --cert FILE      server certificate (PEM, with its chain)
  --key FILE       its private key (PEM; default: the --cert file)
  --delay-ms N     wait N milliseconds before answering (to show time-outs)
  --fault          answer 500 with a SOAP Fault instead of the echo
  -h, --help       this text
)";

std::mutex g_log_lock;

void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));
void logLine(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::lock_guard<std::mutex> g(g_log_lock);
    std::fprintf(stderr, "talvex-echo-server: %s\n", text);
}

std::string errorText(const MOXThrowable& e) {
    if (const auto* ex = dynamic_cast<const MOXException*>(&e)) {
        std::string text = "error " + std::to_string(ex->getCode()) + ":";
        for (size_t i = 0; i < ex->getMessageCount(); ++i) text += " " + ex->getMessageAt(i).format().str();
        return text;
    }
    std::string text = e.getThrowableName();
    if (const auto* err = dynamic_cast<const MOXError*>(&e))
        if (err->getText() != nullptr) text += std::string(": ") + err->getText();
    return text;
}

// Serves one request; false when the connection cannot go on.
bool serveOne(TALVEXSocket& socket, const ServerOptions& o, const std::string& peer) {
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&start] {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    };
    EchoRequest r;
    try {
        r = readEchoRequest(socket);
    } catch (const MOXThrowable& e) {
        const std::string text = errorText(e);
        logLine("%s: unreadable request: %s", peer.c_str(), text.c_str());
        try {
            writeEchoResponse(socket, r, 400, "Bad Request", echoFaultEnvelope("bad request: " + text));
        } catch (...) {
        }
        return false;
    }
    if (o.delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(o.delayMs));
    const int status = o.fault ? 500 : 200;
    try {
        if (o.fault)
            writeEchoResponse(socket, r, 500, "Internal Server Error",
                              echoFaultEnvelope("echo server: fault requested with --fault"));
        else
            writeEchoResponse(socket, r, 200, "OK", r.envelope);
    } catch (const MOXThrowable& e) {
        logLine("%s: POST %s %zu bytes, %zu attachments -> %d not delivered (%s), %.1f ms", peer.c_str(),
                r.uri.c_str(), r.bytes(), r.parts.size(), status, errorText(e).c_str(), elapsed());
        return false;
    }
    logLine("%s: POST %s %zu bytes, %zu attachments -> %d, %.1f ms", peer.c_str(), r.uri.c_str(), r.bytes(),
            r.parts.size(), status, elapsed());
    return true;
}

std::string peerName(const sockaddr_storage& ss) {
    char host[INET6_ADDRSTRLEN] = "?";
    int port = 0;
    if (ss.ss_family == AF_INET) {
        const auto* a = reinterpret_cast<const sockaddr_in*>(&ss);
        inet_ntop(AF_INET, &a->sin_addr, host, sizeof host);
        port = ntohs(a->sin_port);
        return std::string(host) + ":" + std::to_string(port);
    }
    const auto* a = reinterpret_cast<const sockaddr_in6*>(&ss);
    inet_ntop(AF_INET6, &a->sin6_addr, host, sizeof host);
    port = ntohs(a->sin6_port);
    return "[" + std::string(host) + "]:" + std::to_string(port);
}

bool clientHasMore(int fd) {
    char c;
    for (;;) {
        const ssize_t n = ::recv(fd, &c, 1, MSG_PEEK);
        if (n < 0 && errno == EINTR) continue;
        return n > 0;
    }
}

void serveConnection(int fd, std::string peer, const ServerOptions& o, SSL_CTX* ctx) {
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    try {
        if (ctx != nullptr) {
            SSL* ssl = SSL_new(ctx);
            SSL_set_fd(ssl, fd);
            const int rc = SSL_accept(ssl);
            if (rc != 1) {
                char text[256] = "connection closed during the handshake";
                const unsigned long e = ERR_get_error();
                if (e != 0) ERR_error_string_n(e, text, sizeof text);
                ERR_clear_error();
                logLine("%s: TLS handshake failed: %s", peer.c_str(), text);
                SSL_free(ssl);
                ::close(fd);
                return;
            }
            TlsServerSocket socket(ssl, fd);
            while (socket.waitForData() && serveOne(socket, o, peer)) {
            }
        } else {
            TALVEXSocketNonSSL socket(0);
            socket.adopt(fd);
            while (clientHasMore(fd) && serveOne(socket, o, peer)) {
            }
        }
    } catch (const MOXThrowable& e) {
        logLine("%s: %s", peer.c_str(), errorText(e).c_str());
    } catch (const std::exception& e) {
        logLine("%s: %s", peer.c_str(), e.what());
    }
}

int parseNumber(const char* option, const char* text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || errno != 0 || value < 0 || value > INT_MAX) {
        std::fprintf(stderr, "talvex-echo-server: %s needs a whole number, not '%s'\n", option, text);
        std::exit(2);
    }
    return static_cast<int>(value);
}

ServerOptions parseOptions(int argc, char** argv) {
    ServerOptions o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "talvex-echo-server: %s needs a value\n", name);
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "--port") o.port = parseNumber("--port", value("--port"));
        else if (a == "--bind") o.bind = value("--bind");
        else if (a == "--tls") o.tls = true;
        else if (a == "--cert") o.cert = value("--cert");
        else if (a == "--key") o.key = value("--key");
        else if (a == "--delay-ms") o.delayMs = parseNumber("--delay-ms", value("--delay-ms"));
        else if (a == "--fault") o.fault = true;
        else if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else {
            std::fprintf(stderr, "talvex-echo-server: unknown argument '%s'\nTry 'talvex-echo-server --help'.\n",
                         a.c_str());
            std::exit(2);
        }
    }
    if (o.port > 65535) {
        std::fprintf(stderr, "talvex-echo-server: --port must be below 65536\n");
        std::exit(2);
    }
    if (o.tls && o.cert.empty()) {
        std::fprintf(stderr, "talvex-echo-server: --tls needs --cert FILE (and --key FILE)\n");
        std::exit(2);
    }
    if (o.key.empty()) o.key = o.cert;
    return o;
}

SSL_CTX* makeContext(const ServerOptions& o) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    if (SSL_CTX_use_certificate_chain_file(ctx, o.cert.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx, o.key.c_str(), SSL_FILETYPE_PEM) != 1 || SSL_CTX_check_private_key(ctx) != 1) {
        char text[256] = "unknown error";
        const unsigned long e = ERR_get_error();
        if (e != 0) ERR_error_string_n(e, text, sizeof text);
        std::fprintf(stderr, "talvex-echo-server: cannot use certificate '%s' and key '%s': %s\n", o.cert.c_str(),
                     o.key.c_str(), text);
        std::exit(2);
    }
    return ctx;
}

int listenOn(const ServerOptions& o) {
    sockaddr_storage ss{};
    socklen_t length;
    const bool v6 = o.bind.find(':') != std::string::npos;
    if (v6) {
        auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
        a->sin6_family = AF_INET6;
        a->sin6_port = htons(static_cast<uint16_t>(o.port));
        if (inet_pton(AF_INET6, o.bind.c_str(), &a->sin6_addr) != 1) length = 0;
        else length = sizeof *a;
    } else {
        auto* a = reinterpret_cast<sockaddr_in*>(&ss);
        a->sin_family = AF_INET;
        a->sin_port = htons(static_cast<uint16_t>(o.port));
        if (inet_pton(AF_INET, o.bind.c_str(), &a->sin_addr) != 1) length = 0;
        else length = sizeof *a;
    }
    if (length == 0) {
        std::fprintf(stderr, "talvex-echo-server: --bind needs a numeric address, not '%s'\n", o.bind.c_str());
        std::exit(2);
    }
    const int fd = ::socket(ss.ss_family, SOCK_STREAM, 0);
    int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&ss), length) != 0 || ::listen(fd, 64) != 0) {
        std::fprintf(stderr, "talvex-echo-server: cannot listen on %s port %d: %s\n", o.bind.c_str(), o.port,
                     std::strerror(errno));
        std::exit(3);
    }
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &length);
    const int port = ntohs(v6 ? reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port
                              : reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
    std::printf("listening on %d\n", port);
    std::fflush(stdout);
    return fd;
}

}  // namespace

int main(int argc, char** argv) {
    const ServerOptions o = parseOptions(argc, argv);
    // A client that gave up (a time-out) must not take the server down with it.
    signal(SIGPIPE, SIG_IGN);
    if (TALVEXInitialize() != 0) {
        std::fprintf(stderr, "talvex-echo-server: the toolkit did not start\n");
        return 1;
    }
    SSL_CTX* ctx = o.tls ? makeContext(o) : nullptr;
    const int listener = listenOn(o);
    logLine("%s on %s%s%s", o.tls ? "TLS" : "plain TCP", o.bind.c_str(), o.delayMs > 0 ? ", answers delayed" : "",
            o.fault ? ", answering with a SOAP Fault" : "");
    for (;;) {
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        const int fd = ::accept(listener, reinterpret_cast<sockaddr*>(&peer), &length);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            logLine("accept failed: %s", std::strerror(errno));
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        std::thread(serveConnection, fd, peerName(peer), std::cref(o), ctx).detach();
    }
}
