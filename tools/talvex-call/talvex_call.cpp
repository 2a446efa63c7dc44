// talvex-call: a command-line SOAP client on the toolkit's exported interface.
#include <semaphore.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CallOptions.h"
#include "XmlPrinter.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXException.h"
#include "moxidom/MOXIDOM.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXHostID.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "talvex/talvex.h"

namespace {

enum ExitCode {
    ExitOk = 0,
    ExitOther = 1,
    ExitUsage = 2,
    ExitConnect = 3,
    ExitHttpStatus = 4,
    ExitFault = 5,
    ExitMalformed = 6,
    ExitTimeout = 7
};

using Clock = std::chrono::steady_clock;

const char kSoap11ContentType[] = "text/xml; charset=UTF-8";
const char kSoap12ContentType[] = "application/soap+xml; charset=UTF-8";
const char kSoap12Namespace[] = "http://www.w3.org/2003/05/soap-envelope";

double millisSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// A failure that already knows its exit code and text.
struct Failure {
    int code;
    std::string text;
};

// ---------------------------------------------------------------------------
// Ctrl-C. The handler only counts and wakes the watcher thread; the watcher
// turns the first Ctrl-C into cancel() on the socket's input stream while a
// read is under way. A second Ctrl-C ends the process at once.

volatile sig_atomic_t g_interrupts = 0;
sem_t g_wake;

void onInterrupt(int) {
    g_interrupts = g_interrupts + 1;
    if (g_interrupts >= 2) {
        static const char text[] = "\ntalvex-call: interrupted\n";
        ssize_t ignored = ::write(STDERR_FILENO, text, sizeof text - 1);
        (void)ignored;
        _exit(ExitTimeout);
    }
    sem_post(&g_wake);
}

// Ends the call on Ctrl-C, or once --timeout seconds have passed since it
// began. A read under way is cancelled (setCancel(1) on the stream, cancel()
// from this thread), so it ends with PNXIOCancelException and a clean report;
// a step that cannot be cancelled (a send the server does not take, a blocking
// TLS read) is cut short by ending the process after a grace period.
class ReadWatch {
public:
    enum Reason { None, Interrupted, TimedOut };

    explicit ReadWatch(int timeoutSec) : m_timeout_sec(timeoutSec), m_deadline(Clock::now() + std::chrono::seconds(timeoutSec)) {
        m_thread = std::thread([this] { run(); });
    }
    ~ReadWatch() {
        m_stop = true;
        sem_post(&g_wake);
        m_thread.join();
    }

    void arm(TALVEXSocketInputStream* stream) {
        if (stream->getCancel() == 0) stream->setCancel(1);
        std::lock_guard<std::mutex> g(m_lock);
        m_stream = stream;
        m_cancel_sent = false;
    }
    void disarm() {
        TALVEXSocketInputStream* stream;
        {
            std::lock_guard<std::mutex> g(m_lock);
            stream = m_stream;
            m_stream = nullptr;
        }
        try {
            if (stream != nullptr && stream->getCancel() != 0) stream->setCancel(0);
        } catch (...) {
        }
    }
    // Between steps: throws when the call is to end.
    void check() {
        const Reason why = due();
        if (why != None) throw Failure{ExitTimeout, message(why)};
    }
    Reason reason() const { return m_reason.load(); }
    std::string message(Reason why) const {
        return why == TimedOut ? "timed out: the call took longer than " + std::to_string(m_timeout_sec) + " s"
                               : "cancelled";
    }
    // The limit for connecting: the call's own when that is shorter.
    int connectLimit(int connectTimeoutSec) const {
        if (m_timeout_sec <= 0) return connectTimeoutSec;
        return connectTimeoutSec > 0 ? std::min(connectTimeoutSec, m_timeout_sec) : m_timeout_sec;
    }

private:
    static constexpr std::chrono::seconds kGrace{2};

    Reason due() const {
        if (g_interrupts > 0) return Interrupted;
        if (m_timeout_sec > 0 && Clock::now() >= m_deadline) return TimedOut;
        return None;
    }

    void run() {
        while (!m_stop) {
            timespec until{};
            clock_gettime(CLOCK_REALTIME, &until);
            until.tv_nsec += 200 * 1000000L;
            if (until.tv_nsec >= 1000000000L) {
                until.tv_sec += 1;
                until.tv_nsec -= 1000000000L;
            }
            while (sem_timedwait(&g_wake, &until) != 0 && errno == EINTR) {
            }
            if (m_stop) break;
            const Reason why = due();
            if (why == None) continue;
            if (m_reason.load() == None) {
                m_reason = why;
                m_gave_up = Clock::now();
            } else if (Clock::now() - m_gave_up >= kGrace) {
                const std::string text = "\ntalvex-call: " + message(m_reason.load()) + "\n";
                ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
                (void)ignored;
                _exit(ExitTimeout);
            }
            std::lock_guard<std::mutex> g(m_lock);
            if (m_stream == nullptr || m_cancel_sent) continue;
            m_cancel_sent = true;
            try {
                m_stream->cancel();
            } catch (...) {
                // The reader left cancel mode on its own just now: nothing to stop.
            }
        }
    }

    const int m_timeout_sec;
    const Clock::time_point m_deadline;
    std::atomic<bool> m_stop{false};
    std::atomic<Reason> m_reason{None};
    Clock::time_point m_gave_up;
    std::mutex m_lock;
    TALVEXSocketInputStream* m_stream = nullptr;
    bool m_cancel_sent = false;
    std::thread m_thread;
};

// Cancellation armed for one stretch of reading.
class Armed {
public:
    Armed(ReadWatch& watch, TALVEXSocketInputStream* stream) : m_watch(watch) { m_watch.arm(stream); }
    ~Armed() { m_watch.disarm(); }

private:
    ReadWatch& m_watch;
};

// ---------------------------------------------------------------------------
// Progress on standard error while large transfers run, only on a terminal.

class Progress {
public:
    Progress(bool enabled, const std::string& what, unsigned long long total)
        : m_enabled(enabled), m_what(what), m_total(total), m_start(Clock::now()), m_last(m_start) {}
    ~Progress() { finish(); }

    void add(unsigned long long bytes) {
        m_done += bytes;
        if (!m_enabled) return;
        const Clock::time_point now = Clock::now();
        // Quick transfers print nothing; long ones refresh five times a second.
        if (now - m_start < std::chrono::milliseconds(300) || now - m_last < std::chrono::milliseconds(200)) return;
        m_last = now;
        const double seconds = std::chrono::duration<double>(now - m_start).count();
        char line[200];
        if (m_total > 0)
            std::snprintf(line, sizeof line, "\r\033[K%s %s / %s (%d%%) %s/s", m_what.c_str(), size(m_done).c_str(),
                          size(m_total).c_str(), static_cast<int>(m_done * 100 / m_total),
                          size(static_cast<unsigned long long>(m_done / seconds)).c_str());
        else
            std::snprintf(line, sizeof line, "\r\033[K%s %s %s/s", m_what.c_str(), size(m_done).c_str(),
                          size(static_cast<unsigned long long>(m_done / seconds)).c_str());
        std::fputs(line, stderr);
        m_shown = true;
    }
    void finish() {
        if (m_shown) std::fputs("\r\033[K", stderr);
        m_shown = false;
    }

private:
    static std::string size(unsigned long long bytes) {
        char text[32];
        if (bytes >= 1024ULL * 1024 * 1024) std::snprintf(text, sizeof text, "%.1f GiB", bytes / 1073741824.0);
        else if (bytes >= 1024ULL * 1024) std::snprintf(text, sizeof text, "%.1f MiB", bytes / 1048576.0);
        else if (bytes >= 1024) std::snprintf(text, sizeof text, "%.1f KiB", bytes / 1024.0);
        else std::snprintf(text, sizeof text, "%llu B", bytes);
        return text;
    }

    bool m_enabled;
    std::string m_what;
    unsigned long long m_total;
    unsigned long long m_done = 0;
    Clock::time_point m_start;
    Clock::time_point m_last;
    bool m_shown = false;
};

// ---------------------------------------------------------------------------
// Files and texts.

// A file named on the command line ("-": standard input); what names it in a failure.
std::string readInput(const std::string& file, const char* what) {
    std::ostringstream text;
    if (file == "-") {
        text << std::cin.rdbuf();
        return text.str();
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Failure{ExitUsage, std::string("cannot read the ") + what + " file '" + file + "': " + std::strerror(errno)};
    text << in.rdbuf();
    return text.str();
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string guessType(const std::string& path) {
    static const char* const table[][2] = {
        {".xml", "text/xml"},        {".txt", "text/plain"},       {".html", "text/html"},
        {".htm", "text/html"},       {".csv", "text/csv"},         {".json", "application/json"},
        {".pdf", "application/pdf"}, {".zip", "application/zip"},  {".gz", "application/gzip"},
        {".png", "image/png"},       {".jpg", "image/jpeg"},       {".jpeg", "image/jpeg"},
        {".gif", "image/gif"},       {".svg", "image/svg+xml"}};
    const std::string name = baseName(path);
    const size_t dot = name.find_last_of('.');
    if (dot != std::string::npos) {
        const std::string ext = name.substr(dot);
        for (const auto& entry : table)
            if (strcasecmp(ext.c_str(), entry[0]) == 0) return entry[1];
    }
    return "application/octet-stream";
}

// A name that is safe as a file name inside the save folder.
std::string safeFileName(const std::string& wanted) {
    std::string name;
    for (char c : wanted) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                        c == '-' || c == '_' || c == '@' || c == '+' || c == '=';
        name += ok ? c : '_';
    }
    if (name.empty() || name == "." || name == "..") return "";
    if (name[0] == '.') name[0] = '_';
    return name;
}

// filename="..." (or filename=...) of a Content-Disposition value.
std::string dispositionFileName(const char* disposition) {
    if (disposition == nullptr) return "";
    const std::string value = disposition;
    size_t at = 0;
    while ((at = value.find("filename", at)) != std::string::npos) {
        size_t p = at + 8;
        while (p < value.size() && value[p] == ' ') ++p;
        if (p < value.size() && value[p] == '=') {
            ++p;
            while (p < value.size() && value[p] == ' ') ++p;
            std::string name;
            if (p < value.size() && value[p] == '"') {
                const size_t end = value.find('"', p + 1);
                name = value.substr(p + 1, end == std::string::npos ? std::string::npos : end - p - 1);
            } else {
                const size_t end = value.find(';', p);
                name = value.substr(p, end == std::string::npos ? std::string::npos : end - p);
            }
            return baseName(name);
        }
        at = p;
    }
    return "";
}

std::string printable(const std::string& text, size_t limit) {
    std::string out;
    for (size_t i = 0; i < text.size() && i < limit; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        out += (c == '\n' || c == '\t' || (c >= 0x20 && c < 0x7F) || c >= 0x80) ? static_cast<char>(c) : '?';
    }
    if (text.size() > limit) out += "\n[... " + std::to_string(text.size() - limit) + " more bytes]";
    return out;
}

std::string xmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else out += c;
    }
    return out;
}

// The TLS configuration document: the --tls-config file (else an empty
// document) with the TLS options' settings added before its closing tag. The
// secure socket inserts the address family there too and, for a document
// without one, throws std::out_of_range rather than a toolkit error: checked
// here, before use. The library judges the rest when the session is made.
std::string secureConfig(const CallOptions& o) {
    static const char kClosingTag[] = "</sessionConfigDocument>";
    std::string doc = "<sessionConfigDocument></sessionConfigDocument>";
    if (!o.tlsConfigFile.empty()) doc = readInput(o.tlsConfigFile, "TLS configuration");
    const size_t end = doc.find(kClosingTag);
    if (end == std::string::npos)
        throw Failure{ExitUsage, "the TLS configuration '" + o.tlsConfigFile + "' has no closing tag " + kClosingTag +
                                     " (empty, or a self-closed root); write <sessionConfigDocument>"
                                     "</sessionConfigDocument> for the defaults"};
    std::string settings;
    auto add = [&settings](const char* name, const std::string& value) {
        if (!value.empty()) settings += std::string("<") + name + ">" + xmlEscape(value) + "</" + name + ">";
    };
    add("serverName", o.serverName);
    add("caFile", o.caFile);
    add("caPath", o.caPath);
    add("clientCertificate", o.certFile);
    add("clientKey", o.keyFile);
    add("minProtocol", o.minTls);
    if (o.insecure) add("verifyPeer", "false");
    return doc.insert(end, settings);
}

// ---------------------------------------------------------------------------
// Toolkit errors as one line: "error <code>: <catalog text> <detail>".

std::string describe(const MOXThrowable& e) {
    if (const auto* ex = dynamic_cast<const MOXException*>(&e)) {
        std::string text = "error " + std::to_string(ex->getCode()) + ":";
        for (size_t i = 0; i < ex->getMessageCount(); ++i) {
            const std::string part = ex->getMessageAt(i).format().str();
            if (!part.empty()) text += " " + part;
        }
        return text;
    }
    std::string text = e.getThrowableName();
    if (const auto* err = dynamic_cast<const MOXError*>(&e)) {
        if (err->getText() != nullptr && *err->getText() != '\0') text += ": " + std::string(err->getText());
    }
    const auto& trace = e.getBackTrace();
    if (!trace.empty() && trace.front().hasFunction) text += " (" + trace.front().function + ")";
    return text;
}

int exitCodeFor(const MOXThrowable& e) {
    if (dynamic_cast<const PNXIOTimeoutException*>(&e) != nullptr) return ExitTimeout;
    if (dynamic_cast<const PNXIOCancelException*>(&e) != nullptr) return ExitTimeout;
    if (dynamic_cast<const PNXIOException*>(&e) != nullptr) return ExitMalformed;
    if (const auto* ex = dynamic_cast<const TALVEXException*>(&e)) {
        switch (ex->getCode()) {
            case TALVEXException::ErrSecureSetup:
            case TALVEXException::ErrSocket:
            case TALVEXException::ErrSecureRefused:
            case TALVEXException::ErrHostNotResolved: return ExitConnect;
            case TALVEXException::ErrUrl: return ExitUsage;
            case TALVEXException::ErrNotImplemented: return ExitOther;
            default: return ExitMalformed;
        }
    }
    return ExitOther;
}

// ---------------------------------------------------------------------------
// One request/response cycle.

struct Response {
    int status = 0;
    std::string reason;
    std::string envelopeText;
    MOXIDOM_Document document;
    bool parsed = false;
    std::string parseError;
    int attachments = 0;
};

class Call {
public:
    Call(const CallOptions& options, const std::string& envelope)
        : m_o(options), m_envelope(envelope), m_watch(options.timeout), m_show_progress(isatty(STDERR_FILENO) != 0) {
        m_action = options.hasAction ? options.action : "";
        if (m_action.empty() || m_action[0] != '"') m_action = "\"" + m_action + "\"";
    }

    void connect(TALVEX& toolkit) {
        m_config = secureConfig(m_o);
        const int connectLimit = m_watch.connectLimit(m_o.connectTimeout);
        if (m_o.verbose)
            std::fprintf(stderr, "* %s, %s; connecting to %s%s\n", m_o.useTls() ? "TLS" : "plain TCP",
                         m_o.useNonBlocking() ? "non-blocking" : "blocking", m_o.url.c_str(),
                         connectLimit > 0 ? (" (limit " + std::to_string(connectLimit) + " s)").c_str()
                                                : "");
        if (m_o.verbose && m_o.useTls()) std::fprintf(stderr, "* TLS configuration: %s\n", m_config.c_str());
        const Clock::time_point start = Clock::now();
        try {
            m_session.reset(toolkit.getSession(m_o.url.c_str(), m_o.useTls() ? m_config.c_str() : nullptr,
                                               connectLimit));
        } catch (const MOXIllegalStateError&) {
            // The plain socket refuses to connect to an address that did not
            // resolve; say so in words.
            XmlUrl url{I18NString(m_o.url.c_str())};
            TALVEXHostID host(url.getHost().c_str(), static_cast<int>(url.getPort()));
            if (host.isValid() == 0)
                throw Failure{ExitConnect, "the host name '" + url.getHost() + "' could not be resolved"};
            throw;
        }
        if (m_o.verbose) std::fprintf(stderr, "* connected in %.1f ms\n", millisSince(start));
        if (m_o.contentLength) m_session->setProperty("send-content-length", 1);
        if (m_o.chunkSize > 0) m_session->setProperty("chunk-size", m_o.chunkSize);
        if (!m_o.boundary.empty()) m_session->setProperty("boundary", m_o.boundary);
        // The envelope is streamed, so its type says SOAP 1.2; the toolkit
        // adds the action to it and sends no SOAPAction.
        if (m_o.soap12 && m_o.header("Content-Type") == nullptr)
            m_session->setHeader("Content-Type", kSoap12ContentType);
        for (const auto& h : m_o.headers) m_session->setHeader(h.first, h.second);
        if (!m_o.traceFile.empty()) startTrace();
    }

    // A server may answer and close before it has read the whole request (a
    // body over its limit); its answer, when one came, is what to report.
    Response cycle(bool last) {
        try {
            send();
        } catch (const TALVEXException& e) {
            if (e.getCode() != TALVEXException::ErrSocket) throw;
            const std::exception_ptr sendFailure = std::current_exception();
            try {
                return receive(last);
            } catch (...) {
                if (m_status == 0) std::rethrow_exception(sendFailure);
                throw;
            }
        }
        return receive(last);
    }

    void close() {
        if (m_session) {
            m_session->echo(nullptr);
            m_session->closeSession();
        }
        m_session.reset();
    }

    ReadWatch& watch() { return m_watch; }

private:
    void startTrace() {
        m_session->echo(m_o.traceFile.c_str(), "ab");
        if (m_o.useTls()) {
            // The secure socket keeps its traces in a logs folder beside the
            // working folder, named after the process.
            std::fprintf(stderr, "talvex-call: TLS traffic is traced to ../logs/%ld_%s\n",
                         static_cast<long>(getpid()), m_o.traceFile.c_str());
        }
    }

    // The head as the toolkit composes it from these options.
    void printRequestHead() {
        std::string path = "/";
        try {
            path = XmlUrl(I18NString(m_o.url.c_str())).getPath().str();
        } catch (...) {
        }
        const std::string* givenType = m_o.header("Content-Type");
        const std::string* givenAction = m_o.header("SOAPAction");
        const std::string action = givenAction != nullptr ? *givenAction : m_action;
        std::string type = givenType != nullptr ? *givenType : m_o.soap12 ? kSoap12ContentType : kSoap11ContentType;
        if (m_o.soap12 && givenType == nullptr && action != "\"\"") type += "; action=" + action;
        std::fprintf(stderr, "> POST %s HTTP/1.1\n", path.c_str());
        std::fprintf(stderr, "> Host: %s\n", m_session->getSessionSocket()->getAuthority().c_str());
        if (!m_o.soap12) std::fprintf(stderr, "> SOAPAction: %s\n", action.c_str());
        if (!m_o.attachments.empty()) {
            const std::string boundary = m_o.boundary.empty() ? "(fresh for each message)" : m_o.boundary;
            std::fprintf(stderr, "> MIME-Version: 1.0\n");
            std::fprintf(stderr, "> Content-Type: multipart/related; type=\"%s\"; boundary=\"%s\"\n",
                         type.substr(0, type.find(';')).c_str(), boundary.c_str());
            std::fprintf(stderr, "* envelope part: Content-Type: %s\n", type.c_str());
        } else {
            std::fprintf(stderr, "> Content-Type: %s\n", type.c_str());
        }
        for (const auto& h : m_o.headers) {
            if (strcasecmp(h.first.c_str(), "Content-Type") != 0 && strcasecmp(h.first.c_str(), "SOAPAction") != 0)
                std::fprintf(stderr, "> %s: %s\n", h.first.c_str(), h.second.c_str());
        }
        if (m_o.contentLength) std::fprintf(stderr, "> Content-Length: (counted when the body is complete)\n");
        else std::fprintf(stderr, "> Transfer-Encoding: chunked\n");
        std::fprintf(stderr, "* envelope: %zu bytes\n", m_envelope.size());
    }

    void send() {
        m_watch.check();
        if (m_o.verbose) printRequestHead();
        const bool multipart = !m_o.attachments.empty();
        TALVEXMessageWriter& writer = m_session->openRequest(multipart ? 1 : 0);
        PNXOutputStream& envelope = writer.openEnvelope(m_action.c_str());
        if (!m_envelope.empty()) envelope.write(m_envelope.data(), static_cast<unsigned>(m_envelope.size()));
        writer.closeEnvelope(envelope);
        for (const AttachmentSpec& a : m_o.attachments) sendAttachment(writer, a);
        m_session->closeRequest(writer);
    }

    void sendAttachment(TALVEXMessageWriter& writer, const AttachmentSpec& a) {
        m_watch.check();
        std::ifstream in(a.path, std::ios::binary);
        if (!in) throw Failure{ExitUsage, "cannot read attachment '" + a.path + "': " + std::strerror(errno)};
        struct stat st {};
        const unsigned long long total = ::stat(a.path.c_str(), &st) == 0 ? static_cast<unsigned long long>(st.st_size) : 0;
        const std::string type = a.type.empty() ? guessType(a.path) : a.type;
        const std::string id = a.id.empty() ? baseName(a.path) : a.id;
        // The file name travels with the part, so that the receiver can save it under its name.
        const std::string headers = "Content-Disposition:attachment; filename=\"" + baseName(a.path) + "\"";
        if (m_o.verbose)
            std::fprintf(stderr, "* attachment %s: %s, id %s, %llu bytes\n", a.path.c_str(), type.c_str(), id.c_str(),
                         total);
        PNXOutputStream& out = writer.openAttachment(type.c_str(), nullptr, headers.c_str(), id.c_str(), 0);
        Progress progress(m_show_progress && !m_o.quiet, "sending " + baseName(a.path), total);
        std::vector<char> buffer(64 * 1024);
        for (;;) {
            in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
            const std::streamsize n = in.gcount();
            if (n <= 0) break;
            out.write(buffer.data(), static_cast<unsigned>(n));
            progress.add(static_cast<unsigned long long>(n));
            m_watch.check();
        }
        progress.finish();
        writer.closeAttachment(out);
    }

    // Reads the whole stream; text is held to the bound a session puts on envelopes.
    void readAll(PNXInputStream& in, std::string* text, std::ofstream* file, Progress& progress) {
        const std::size_t textLimit = TALVEXLimits().maxEnvelopeSize;
        std::vector<char> buffer(64 * 1024);
        for (;;) {
            const unsigned n = in.read(buffer.data(), static_cast<unsigned>(buffer.size()));
            if (n == PNX_EOF) break;
            if (n == 0) continue;
            if (text != nullptr) {
                if (text->size() + n > textLimit)
                    throw Failure{ExitMalformed, "the response envelope is larger than " + std::to_string(textLimit) +
                                                     " bytes"};
                text->append(buffer.data(), n);
            }
            if (file != nullptr) {
                file->write(buffer.data(), n);
                if (!*file) throw Failure{ExitOther, std::string("cannot write an attachment: ") + std::strerror(errno)};
            }
            progress.add(n);
        }
        progress.finish();
    }

    void printResponseHead(TALVEXMessageReader& reader) {
        const char* version = reader.getHeader("talvex-http-version");
        const char* reason = reader.getHeader("talvex-reason-phrase");
        std::fprintf(stderr, "< %s %d %s\n", version != nullptr ? version : "HTTP/?", m_status,
                     reason != nullptr ? reason : "");
        // The reader answers by name only, so the usual response headers are asked for.
        static const char* const names[] = {
            "server", "date", "content-type", "content-length", "transfer-encoding", "connection", "keep-alive",
            "mime-version", "content-id", "soapaction", "cache-control", "set-cookie", "location",
            "www-authenticate", "x-request-id"};
        for (const char* name : names) {
            const char* value = reader.getHeader(name);
            if (value != nullptr) std::fprintf(stderr, "< %s: %s\n", name, value);
        }
    }

    Response receive(bool last) {
        Response r;
        m_status = 0;
        TALVEXSocketInputStream* stream = m_session->getSessionSocket()->getInputStream();
        TALVEXMessageReader& reader = m_session->openResponse();
        {
            Armed armed(m_watch, stream);
            PNXInputStream& envelope = reader.openEnvelope();
            const char* status = reader.getHeader("talvex-status-code");
            m_status = status != nullptr ? std::atoi(status) : 0;
            const char* reason = reader.getHeader("talvex-reason-phrase");
            r.reason = reason != nullptr ? reason : "";
            r.status = m_status;
            if (m_o.verbose) printResponseHead(reader);
            Progress progress(m_show_progress && !m_o.quiet, "receiving envelope", 0);
            readAll(envelope, &r.envelopeText, nullptr, progress);
            reader.closeEnvelope(envelope);
        }
        int index = 0;
        while (reader.hasMoreAttachments()) {
            ++index;
            Armed armed(m_watch, stream);
            TALVEXAttachmentReader& a = reader.openNextAttachment();
            receiveAttachment(a, index, last);
            reader.closeAttachment(a);
        }
        r.attachments = index;
        {
            // Closing reads what is left of the response.
            Armed armed(m_watch, stream);
            m_session->closeResponse(reader);
        }
        if (m_o.verbose) std::fprintf(stderr, "* envelope: %zu bytes\n", r.envelopeText.size());
        MOXIDOM_Parser parser(0);
        // The bounds a session puts on the envelopes it parses.
        const TALVEXLimits limits;
        parser.setLimits(limits.maxEnvelopeSize, limits.maxXmlDepth);
        if (!r.envelopeText.empty() && parser.parse(r.envelopeText, r.document) != 0) {
            r.parsed = r.document.getDocumentElement() != nullptr;
        } else if (r.envelopeText.empty()) {
            r.parseError = "the response has no envelope (empty body)";
        } else {
            r.parseError = "the response envelope does not parse: error " + std::to_string(parser.getErrorCode()) +
                           " at line " + std::to_string(parser.getCurrentLineNumber()) + ", column " +
                           std::to_string(parser.getCurrentColumnNumber()) + ": " + parser.errorString();
        }
        return r;
    }

    void receiveAttachment(TALVEXAttachmentReader& a, int index, bool last) {
        const std::string id = a.getContentId();
        const std::string type = a.getContentType();
        std::string name = safeFileName(dispositionFileName(a.getHeader("content-disposition")));
        if (name.empty()) {
            std::string bare = id;
            if (bare.size() >= 2 && bare.front() == '<' && bare.back() == '>') bare = bare.substr(1, bare.size() - 2);
            name = safeFileName(bare);
        }
        if (name.empty()) name = "attachment-" + std::to_string(index);
        // Two parts of one response never land in the same file.
        for (int n = 2; std::find(m_saved.begin(), m_saved.end(), name) != m_saved.end(); ++n)
            name = safeFileName(name + "-" + std::to_string(n));

        const bool save = !m_o.saveDir.empty() && last;
        std::ofstream file;
        std::string path;
        if (save) {
            path = m_o.saveDir + "/" + name;
            file.open(path, std::ios::binary | std::ios::trunc);
            if (!file) throw Failure{ExitOther, "cannot write '" + path + "': " + std::strerror(errno)};
            m_saved.push_back(name);
        }
        Progress progress(m_show_progress && !m_o.quiet, "receiving " + name, 0);
        readAll(a.getInputStream(), nullptr, save ? &file : nullptr, progress);
        if (save) {
            file.close();
            struct stat st {};
            const long long size = ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
            if (!m_o.quiet)
                std::fprintf(stderr, "talvex-call: saved attachment %d (%s, id %s) as %s, %lld bytes\n", index,
                             type.c_str(), id.c_str(), path.c_str(), size);
        } else if (m_o.verbose) {
            std::fprintf(stderr, "* attachment %d: %s, id %s (not saved)\n", index, type.c_str(), id.c_str());
        }
    }

    const CallOptions& m_o;
    std::string m_envelope;
    std::string m_action;
    std::string m_config;
    ReadWatch m_watch;
    bool m_show_progress;
    int m_status = 0;
    std::vector<std::string> m_saved;
    std::unique_ptr<TALVEXSession> m_session;
};

// ---------------------------------------------------------------------------
// Faults.

// The text of the first child element with this local name, any namespace.
std::string childText(const MOXIDOM_Node& parent, const char* local) {
    MOXIDOM_Element e = parent.getFirstChildElement("*", local);
    return e.isNull() ? std::string() : e.getTextContent();
}

// Prints a SOAP 1.1 or 1.2 Fault; false when the envelope holds none.
bool printFault(const MOXIDOM_Document& doc, std::ostream& out) {
    MOXIDOM_Element body = doc.getDocumentElement().getFirstChildElement("*", "Body");
    MOXIDOM_Element fault = body.getFirstChildElement("*", "Fault");
    if (fault.isNull()) return false;
    std::string code = childText(fault, "faultcode");
    std::string text = childText(fault, "faultstring");
    const std::string actor = childText(fault, "faultactor");
    MOXIDOM_Element detail = fault.getFirstChildElement("*", "detail");
    if (code.empty() && text.empty()) {
        // SOAP 1.2: Code/Value and Reason/Text.
        code = childText(fault.getFirstChildElement("*", "Code"), "Value");
        text = childText(fault.getFirstChildElement("*", "Reason"), "Text");
        detail = fault.getFirstChildElement("*", "Detail");
    }
    out << "SOAP Fault\n";
    out << "  faultcode:   " << code << "\n";
    out << "  faultstring: " << text << "\n";
    if (!actor.empty()) out << "  faultactor:  " << actor << "\n";
    if (!detail.isNull() && detail.hasChildNodes()) {
        out << "  detail:\n";
        std::ostringstream d;
        for (MOXIDOM_Node c = detail.getFirstChild(); !c.isNull(); c = c.getNextSibling()) printXml(d, c);
        std::istringstream lines(d.str());
        for (std::string line; std::getline(lines, line);) out << "    " << line << "\n";
    }
    return true;
}

// What to do about a certificate the library did not accept: trusting a CA
// helps only when the issuer was unknown.
void adviseOnRefusedCertificate(const std::string& text) {
    if (text.find("issuer is not trusted") != std::string::npos)
        std::fprintf(stderr, "talvex-call: the server's certificate was refused; trust its CA with --ca FILE "
                             "(--insecure skips the check, for tests only)\n");
    else if (text.find("certificate does not match") != std::string::npos)
        std::fprintf(stderr, "talvex-call: the server's certificate is for another name; use the name it was issued "
                             "for in the URL, or give that name with --server-name NAME\n");
}

int runCalls(const CallOptions& o, const std::string& envelope) {
    std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
    toolkit->setUseVLT(o.useTls() ? 1 : 0);
    toolkit->setUseNonBlockingSockets(o.useNonBlocking() ? 1 : 0);
    if (o.insecure)
        std::fprintf(stderr,
                     "talvex-call: WARNING: --insecure: the server's certificate is NOT verified. Anyone on the\n"
                     "talvex-call: WARNING: network path can impersonate the server and read or change this traffic.\n");

    Call call(o, envelope);
    try {
        call.watch().check();
        call.connect(*toolkit);
        Response r;
        std::vector<double> times;
        for (int i = 1; i <= o.repeat; ++i) {
            const Clock::time_point start = Clock::now();
            r = call.cycle(i == o.repeat);
            times.push_back(millisSince(start));
            if (o.repeat > 1) std::fprintf(stderr, "request %d/%d: %.2f ms (HTTP %d)\n", i, o.repeat, times.back(), r.status);
            if (r.status < 200 || r.status > 299 || !r.parsed) break;
        }
        if (o.repeat > 1 && !times.empty()) {
            double sum = 0, lo = times[0], hi = times[0];
            for (double t : times) {
                sum += t;
                lo = std::min(lo, t);
                hi = std::max(hi, t);
            }
            std::fprintf(stderr, "%zu requests on one connection: min %.2f ms, mean %.2f ms, max %.2f ms\n",
                         times.size(), lo, sum / static_cast<double>(times.size()), hi);
        }
        call.close();

        const bool ok = r.status >= 200 && r.status <= 299;
        if (r.parsed) {
            std::ostringstream faultText;
            if (printFault(r.document, faultText)) {
                if (!o.quiet) std::cout << faultText.str() << std::flush;
                if (o.verbose) printXml(std::cerr, r.document);
                std::fprintf(stderr, "talvex-call: the server answered with a SOAP Fault (HTTP %d %s)\n", r.status,
                             r.reason.c_str());
                return ExitFault;
            }
        }
        if (!ok) {
            std::fprintf(stderr, "talvex-call: HTTP status %d %s\n", r.status, r.reason.c_str());
            if (!r.envelopeText.empty()) std::fprintf(stderr, "%s\n", printable(r.envelopeText, 2000).c_str());
            return ExitHttpStatus;
        }
        if (!r.parsed) {
            std::fprintf(stderr, "talvex-call: malformed response: %s\n", r.parseError.c_str());
            if (o.verbose && !r.envelopeText.empty())
                std::fprintf(stderr, "%s\n", printable(r.envelopeText, 2000).c_str());
            return ExitMalformed;
        }
        if (!o.quiet) {
            printXml(std::cout, r.document);
            std::cout << std::flush;
        }
        return ExitOk;
    } catch (const MOXThrowable& e) {
        const ReadWatch::Reason why = call.watch().reason();
        const int code = exitCodeFor(e);
        if (code == ExitTimeout) {
            std::fprintf(stderr, "talvex-call: %s\n", call.watch().message(why).c_str());
        } else {
            const std::string text = describe(e);
            std::fprintf(stderr, "talvex-call: %s\n", text.c_str());
            if (o.useTls()) adviseOnRefusedCertificate(text);
        }
        if (o.verbose) {
            I18NString report;
            e.toString("  ", "\n", report, 1);
            std::fprintf(stderr, "%s\n", report.c_str());
        }
        return code;
    }
}

}  // namespace

int main(int argc, char** argv) {
    CallOptions o;
    try {
        o = parseCommandLine(argc, argv);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "talvex-call: %s\nTry 'talvex-call --help'.\n", e.what());
        return ExitUsage;
    }
    if (o.help) {
        std::fputs(helpText(), stdout);
        return ExitOk;
    }

    sem_init(&g_wake, 0, 0);
    struct sigaction sa {};
    sa.sa_handler = onInterrupt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    if (TALVEXInitialize() != 0) {
        std::fprintf(stderr, "talvex-call: the toolkit did not start\n");
        return ExitOther;
    }
    int result = ExitOther;
    try {
        std::string envelope = readInput(o.envelopeFile, "envelope");
        {
            MOXIDOM_Parser parser(0);
            MOXIDOM_Document doc;
            if (parser.parse(envelope, doc) == 0)
                throw Failure{ExitUsage, "the envelope " + (o.envelopeFile == "-" ? std::string("on standard input")
                                                                                   : "'" + o.envelopeFile + "'") +
                                             " is not well-formed XML: line " +
                                             std::to_string(parser.getCurrentLineNumber()) + ", column " +
                                             std::to_string(parser.getCurrentColumnNumber()) + ": " +
                                             parser.errorString()};
            if (doc.getDocumentElement().getNamespaceURI() == kSoap12Namespace) o.soap12 = true;
        }
        try {
            XmlUrl check{I18NString(o.url.c_str())};
        } catch (...) {
            throw Failure{ExitUsage, "the URL cannot be used: '" + o.url + "'"};
        }
        for (const AttachmentSpec& a : o.attachments) {
            if (::access(a.path.c_str(), R_OK) != 0)
                throw Failure{ExitUsage, "cannot read attachment '" + a.path + "': " + std::strerror(errno)};
        }
        if (!o.saveDir.empty()) {
            struct stat st {};
            if (::stat(o.saveDir.c_str(), &st) != 0 && ::mkdir(o.saveDir.c_str(), 0777) != 0)
                throw Failure{ExitUsage, "cannot make the folder '" + o.saveDir + "': " + std::strerror(errno)};
        }
        result = runCalls(o, envelope);
    } catch (const Failure& f) {
        std::fprintf(stderr, "talvex-call: %s\n", f.text.c_str());
        result = f.code;
    } catch (const MOXThrowable& e) {
        std::fprintf(stderr, "talvex-call: %s\n", describe(e).c_str());
        result = exitCodeFor(e);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "talvex-call: %s\n", e.what());
        result = ExitOther;
    }
    TALVEXTerminate();
    return result;
}
