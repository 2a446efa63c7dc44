// Long runs of one process against an echo endpoint, plain and TLS: many
// cycles on one session (resident memory must level off) and many sessions
// opened and closed (descriptors must not pile up).
//
// The endpoint runs in another process: it keeps what it saw, and that
// memory must not be counted against the client. The full run (100,000
// cycles, 1,000 sessions) is built with -DTALVEX_SOAK=ON; every run of the
// suite builds a short one, whose leaks the sanitizer build catches.

#include <gtest/gtest.h>
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ChildProcess.h"
#include "SoapEchoEndpoint.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXSession.h"

namespace {

const char* const kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";

#ifdef TALVEX_SOAK_SHORT
const int kCycles = 5000;
const int kSessions = 200;
#else
const int kCycles = 100000;
const int kSessions = 1000;
#endif

// Under AddressSanitizer freed memory sits in quarantine, so resident memory
// says nothing there; LeakSanitizer checks instead, at exit.
#if defined(__SANITIZE_ADDRESS__)
const bool kResidentMeaningful = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
const bool kResidentMeaningful = false;
#else
const bool kResidentMeaningful = true;
#endif
#else
const bool kResidentMeaningful = true;
#endif

// The echo endpoint in a forked child, before any thread of this process
// exists in it; it stops when the parent closes the control pipe.
class ChildEndpoint {
public:
    ChildEndpoint() {
        int toParent[2], toChild[2];
        if (::pipe(toParent) != 0 || ::pipe(toChild) != 0) throw std::runtime_error("pipe");
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(toParent[0]);
            ::close(toChild[1]);
            int port = 0;
            {
                SoapEchoEndpoint endpoint;
                port = endpoint.port();
                (void)!::write(toParent[1], &port, sizeof port);
                char c;
                while (::read(toChild[0], &c, 1) > 0) {
                }
            }
            ::_exit(0);
        }
        ::close(toParent[1]);
        ::close(toChild[0]);
        m_control = toChild[1];
        if (::read(toParent[0], &m_port, sizeof m_port) != sizeof m_port) throw std::runtime_error("no port");
        ::close(toParent[0]);
    }
    ~ChildEndpoint() {
        ::close(m_control);
        int status;
        ::waitpid(m_pid, &status, 0);
    }
    int port() const { return m_port; }

private:
    pid_t m_pid = -1;
    int m_control = -1;
    int m_port = 0;
};

long residentKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

int openDescriptors() {
    int n = 0;
    DIR* d = ::opendir("/proc/self/fd");
    while (dirent* e = ::readdir(d))
        if (e->d_name[0] != '.') ++n;
    ::closedir(d);
    return n - 1;  // the directory's own descriptor
}

std::string roundTrip(TALVEXSession& s, const std::string& text) {
    MOXIDOM_Document request;
    MOXIDOM_Element env = request.createElementNS(kSoapNs, "soapenv:Envelope");
    request.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:talvex:echo", "e:echo").appendText(text);
    MOXIDOM_Document response;
    s.doRequest(env, response);
    return response.getDocumentElement().getTextContent();
}

// The toolkit's own TLS echo server, with a self-signed certificate for
// 127.0.0.1 made for the run, which the session is told to trust.
class TlsEndpoint {
public:
    TlsEndpoint() {
        char pattern[] = "/tmp/talvex-soak-XXXXXX";
        if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp");
        m_dir = pattern;
        const std::string cmd = "cd '" + m_dir +
                                "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"
                                " -days 2 -keyout server.key -out server.pem -subj /CN=localhost"
                                " -addext subjectAltName=DNS:localhost,IP:127.0.0.1 >/dev/null 2>&1";
        if (std::system(cmd.c_str()) != 0) throw std::runtime_error("openssl req failed");
        m_port = ChildProcess::freePort();
        const std::string server = std::string(TALVEX_TEST_BINARY_DIR) + "/bin/talvex-echo-server";
        m_server = std::make_unique<ChildProcess>(
            std::vector<std::string>{server, "--tls", "--cert", m_dir + "/server.pem", "--key", m_dir + "/server.key",
                                     "--port", std::to_string(m_port)},
            m_dir, m_dir + "/server.log");
        if (!m_server->waitForPort(m_port, 10000)) throw std::runtime_error("echo server: " + m_server->log());
        m_config = "<sessionConfigDocument><caFile>" + m_dir + "/server.pem</caFile></sessionConfigDocument>";
    }
    ~TlsEndpoint() {
        m_server.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    int port() const { return m_port; }
    const char* config() const { return m_config.c_str(); }

private:
    std::string m_dir, m_config;
    int m_port = 0;
    std::unique_ptr<ChildProcess> m_server;
};

// One endpoint of either kind and the toolkit set up to reach it.
struct Peer {
    explicit Peer(bool tls) {
        if (tls)
            secure = std::make_unique<TlsEndpoint>();
        else
            plain = std::make_unique<ChildEndpoint>();
        toolkit.setUseVLT(tls ? 1 : 0);
    }
    TALVEXSession* open() {
        return secure ? toolkit.getSession("127.0.0.1", secure->port(), "/svc", secure->config(), 5)
                      : toolkit.getSession("127.0.0.1", plain->port(), "/svc", nullptr, 5);
    }
    std::unique_ptr<ChildEndpoint> plain;
    std::unique_ptr<TlsEndpoint> secure;
    TALVEX toolkit;
};

class Soak : public ::testing::TestWithParam<bool> {};

}  // namespace

TEST_P(Soak, CyclesOnOneSessionLevelOff) {
    Peer peer(GetParam());
    std::unique_ptr<TALVEXSession> session(peer.open());
    ASSERT_NE(nullptr, session);
    const auto start = std::chrono::steady_clock::now();
    long afterWarmUp = 0;
    for (int i = 0; i < kCycles; ++i) {
        const std::string text = "soak " + std::to_string(i);
        ASSERT_EQ(text, roundTrip(*session, text)) << "cycle " << i;
        if (i + 1 == 1000) afterWarmUp = residentKb();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long atEnd = residentKb();
    std::printf("%s: cycles %d in %.1f s (%.0f/s); resident after 1000: %ld kB, at end: %ld kB, growth %ld kB\n",
                GetParam() ? "TLS" : "plain", kCycles, seconds, kCycles / seconds, afterWarmUp, atEnd,
                atEnd - afterWarmUp);
    RecordProperty("rss_after_1000_kb", std::to_string(afterWarmUp));
    RecordProperty("rss_at_end_kb", std::to_string(atEnd));
    // A leak of even 64 bytes a cycle would show as over 6 MB in the full run.
    if (kResidentMeaningful) {
        EXPECT_LT(atEnd - afterWarmUp, 4096) << "resident memory grew";
    }
}

TEST_P(Soak, SessionsOpenedAndClosedLeaveNoDescriptorsBehind) {
    Peer peer(GetParam());
    {
        // One session first, so that what the toolkit opens once (the
        // security library, its trust store) is counted in.
        std::unique_ptr<TALVEXSession> warm(peer.open());
        ASSERT_NE(nullptr, warm);
        roundTrip(*warm, "warm");
        warm->closeSession();
    }
    const int before = openDescriptors();
    const long rssBefore = residentKb();
    for (int i = 0; i < kSessions; ++i) {
        std::unique_ptr<TALVEXSession> s(peer.open());
        ASSERT_NE(nullptr, s) << "session " << i;
        ASSERT_EQ("s", roundTrip(*s, "s")) << "session " << i;
        s->closeSession();
    }
    const int after = openDescriptors();
    const long rssAfter = residentKb();
    std::printf("%s: sessions %d; descriptors before %d, after %d; resident %ld kB -> %ld kB\n",
                GetParam() ? "TLS" : "plain", kSessions, before, after, rssBefore, rssAfter);
    EXPECT_EQ(before, after);
    // Allocator and TLS caches settle within the first few hundred; a leak of
    // a connection's state (kilobytes each) would not.
    if (kResidentMeaningful) {
        EXPECT_LT(rssAfter - rssBefore, 2048) << "resident memory grew";
    }
}

// The short and the full run are separate executables: their names must differ.
#ifdef TALVEX_SOAK_SHORT
#define TALVEX_SOAK_RUN Short
#else
#define TALVEX_SOAK_RUN Full
#endif
INSTANTIATE_TEST_SUITE_P(TALVEX_SOAK_RUN, Soak, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& p) { return p.param ? "Tls" : "Plain"; });
