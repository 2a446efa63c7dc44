// Long runs of one process against the echo endpoint: many cycles on one
// session (resident memory must level off) and many sessions opened and
// closed (descriptors must not pile up).
//
// The endpoint runs in a child process: it records every request it sees, and
// that memory must not be counted against the client.

#include <gtest/gtest.h>
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "SoapEchoEndpoint.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXSession.h"

namespace {

const char* const kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";

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

}  // namespace

TEST(Soak, HundredThousandCyclesOnOneSessionLevelOff) {
    ChildEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", nullptr, 5));
    ASSERT_NE(nullptr, session);
    const int kCycles = 100000;
    const auto start = std::chrono::steady_clock::now();
    long afterWarmUp = 0;
    for (int i = 0; i < kCycles; ++i) {
        const std::string text = "soak " + std::to_string(i);
        ASSERT_EQ(text, roundTrip(*session, text)) << "cycle " << i;
        if (i + 1 == 1000) afterWarmUp = residentKb();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long atEnd = residentKb();
    std::printf("cycles %d in %.1f s (%.0f/s); resident after 1000: %ld kB, at end: %ld kB, growth %ld kB\n", kCycles,
                seconds, kCycles / seconds, afterWarmUp, atEnd, atEnd - afterWarmUp);
    RecordProperty("rss_after_1000_kb", std::to_string(afterWarmUp));
    RecordProperty("rss_at_end_kb", std::to_string(atEnd));
    // A leak of even 64 bytes a cycle would show as over 6 MB.
    EXPECT_LT(atEnd - afterWarmUp, 4096) << "resident memory grew";
}

TEST(Soak, ThousandSessionsLeaveNoDescriptorsBehind) {
    ChildEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    {
        // One session first, so that what the toolkit opens once is counted in.
        std::unique_ptr<TALVEXSession> warm(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, warm);
        roundTrip(*warm, "warm");
        warm->closeSession();
    }
    const int before = openDescriptors();
    const long rssBefore = residentKb();
    for (int i = 0; i < 1000; ++i) {
        std::unique_ptr<TALVEXSession> s(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, s) << "session " << i;
        ASSERT_EQ("s", roundTrip(*s, "s")) << "session " << i;
        s->closeSession();
    }
    const int after = openDescriptors();
    const long rssAfter = residentKb();
    std::printf("sessions 1000; descriptors before %d, after %d; resident %ld kB -> %ld kB\n", before, after,
                rssBefore, rssAfter);
    EXPECT_EQ(before, after);
}
