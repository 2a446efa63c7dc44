// Many threads at once, each with sessions of its own: plain and secure
// request/response cycles (whole-DOM calls and streamed ones, with and without
// attachments), reads on stalling peers cancelled from other threads and
// followed by a reconnect, and, beside them, what the process shares: the
// run-time loaders of the security library, its handle table, host address
// resolution and the toolkit's start and stop. Built under ThreadSanitizer
// by `make test-threads`, where any report fails the run.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ReadAll.h"
#include "SoapEchoEndpoint.h"
#include "TlsFront.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrowable.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXAttachmentReader.h"
#include "talvex/TALVEXHostID.h"
#include "talvex/TALVEXMessageReader.h"
#include "talvex/TALVEXMessageWriter.h"
#include "talvex/TALVEXSession.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "transport/MOXCrypto.h"

namespace {

const char kSoapNs[] = "http://schemas.xmlsoap.org/soap/envelope/";

// Failures seen on worker threads, reported on the test's thread.
class Problems {
public:
    void add(const std::string& what) {
        std::lock_guard<std::mutex> g(m_lock);
        m_list.push_back(what);
    }
    std::vector<std::string> list() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_list;
    }

private:
    std::mutex m_lock;
    std::vector<std::string> m_list;
};

// Lets every thread start its first call at the same moment, so the first
// loads of the security library race each other.
class StartLine {
public:
    explicit StartLine(int parties) : m_waiting(parties) {}
    void arriveAndWait() {
        std::unique_lock<std::mutex> g(m_lock);
        if (--m_waiting == 0) m_open.notify_all();
        m_open.wait(g, [this] { return m_waiting <= 0; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_open;
    int m_waiting;
};

std::string describe(MOXThrowable& t) { return t.toString().str(); }

// Runs a step; a throw becomes a problem naming the thread and step.
void guarded(Problems& problems, const std::string& where, const std::function<void()>& step) {
    try {
        step();
    } catch (MOXThrowable& t) {
        problems.add(where + ": " + describe(t));
    } catch (std::exception& e) {
        problems.add(where + ": " + e.what());
    } catch (...) {
        problems.add(where + ": unknown failure");
    }
}

MOXIDOM_Element envelope(MOXIDOM_Document& doc, const std::string& text) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:talvex:echo", "e:echo").appendText(text);
    return env;
}

// Bytes of every value, the delimiter's dashes and CR LF among them.
std::string binaryPart(unsigned seed, size_t length) {
    std::string s(length, '\0');
    for (size_t i = 0; i < length; ++i) s[i] = static_cast<char>((i * 131 + seed * 7) & 0xFF);
    for (size_t i = 0; i + 4 < length; i += 997) s.replace(i, 4, "\r\n--");
    return s;
}

// One whole-DOM call; the echoed text.
std::string doRequest(TALVEXSession& session, const std::string& text) {
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, text);
    MOXIDOM_Document response;
    session.doRequest(env, response);
    return response.getDocumentElement().getTextContent();
}

// A streamed cycle without attachments: the envelope through the writer, the
// response through the reader.
std::string streamedCycle(TALVEXSession& session, const std::string& text) {
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, text);
    TALVEXMessageWriter& w = session.openRequest(0);
    w.writeEnvelope(env);
    session.closeRequest(w);
    TALVEXMessageReader& r = session.openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    const std::string echoed = response.getDocumentElement().getTextContent();
    session.closeResponse(r);
    return echoed;
}

// A streamed cycle with two binary attachments; "" when they came back
// whole, else what differed.
std::string attachmentCycle(TALVEXSession& session, const std::string& text, unsigned seed) {
    const std::string first = binaryPart(seed, 3000 + seed % 5000);
    const std::string second = binaryPart(seed + 1, 200);
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, text);
    TALVEXMessageWriter& w = session.openRequest(1);
    w.writeEnvelope(env);
    std::unique_ptr<std::string> id1(w.newContentId());
    PNXOutputStream& part = w.openAttachment("application/octet-stream", nullptr, id1->c_str(), 0);
    part.write(first.data(), static_cast<unsigned>(first.size()));
    w.closeAttachment(part);
    std::unique_ptr<std::string> id2(w.newContentId());
    w.writeAttachment("application/octet-stream", nullptr, second.data(), static_cast<unsigned>(second.size()),
                      id2->c_str());
    session.closeRequest(w);

    TALVEXMessageReader& r = session.openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    std::string wrong;
    if (response.getDocumentElement().getTextContent() != text) wrong += "envelope text differs; ";
    std::vector<std::string> parts;
    while (r.hasMoreAttachments()) {
        TALVEXAttachmentReader& a = r.openNextAttachment();
        parts.push_back(readAll(a.getInputStream()));
        r.closeAttachment(a);
    }
    session.closeResponse(r);
    if (parts.size() != 2) return wrong + std::to_string(parts.size()) + " parts came back";
    if (parts[0] != first) wrong += "first part differs; ";
    if (parts[1] != second) wrong += "second part differs; ";
    return wrong;
}

// A thread that drives its own sessions through every kind of cycle.
void cycleWorker(Problems& problems, StartLine& start, int id, bool secure, bool nonBlocking, int port,
                 int rounds) {
    const std::string me = std::string(secure ? "secure" : "plain") + " worker " + std::to_string(id);
    start.arriveAndWait();
    guarded(problems, me, [&] {
        TALVEX toolkit;
        toolkit.setUseVLT(secure ? 1 : 0);
        toolkit.setUseNonBlockingSockets(nonBlocking ? 1 : 0);
        const std::string config = secure ? TlsFront::trustingConfig() : std::string();
        std::vector<std::unique_ptr<TALVEXSession>> sessions;
        for (int s = 0; s < 2; ++s)
            sessions.emplace_back(toolkit.getSession("127.0.0.1", port, "/svc", secure ? config.c_str() : nullptr, 10));
        // Properties may be set from another thread while a cycle runs; the
        // first two workers have a thread of their own doing so.
        std::atomic<bool> cyclesDone{false};
        std::thread properties;
        if (id < 2) {
            TALVEXSession* first = sessions.front().get();
            properties = std::thread([&problems, &cyclesDone, first, me] {
                for (int i = 0; !cyclesDone.load(); ++i) {
                    guarded(problems, me + " properties", [&] {
                        first->setProperty("chunk-size", 2 + (i * 517) % 6000);
                        first->setProperty("send-content-length", i % 3 == 0 ? "1" : "0");
                    });
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
            });
        }
        struct JoinProperties {
            std::atomic<bool>& done;
            std::thread& t;
            ~JoinProperties() {
                done = true;
                if (t.joinable()) t.join();
            }
        } joinProperties{cyclesDone, properties};
        for (int round = 0; round < rounds; ++round) {
            for (size_t s = 0; s < sessions.size(); ++s) {
                TALVEXSession& session = *sessions[s];
                const std::string text = me + " session " + std::to_string(s) + " round " + std::to_string(round);
                if (doRequest(session, text + " dom") != text + " dom") problems.add(me + ": doRequest echo differs");
                if (streamedCycle(session, text + " stream") != text + " stream")
                    problems.add(me + ": streamed echo differs");
                const std::string wrong = attachmentCycle(session, text + " parts", static_cast<unsigned>(id * 31 + round));
                if (!wrong.empty()) problems.add(me + ": attachments: " + wrong);
            }
            // Now and then a fresh connection, as after a failure.
            if (round % 3 == 2) sessions[static_cast<size_t>(round) % sessions.size()]->reconnect(10);
        }
    });
}

// Cancel requests from the stalled threads, served by other threads.
class CancelDesk {
public:
    struct Ticket {
        TALVEXSocketInputStream* in;
        SoapEchoEndpoint* peer;
        size_t requestsSeen;  // the stalled request has reached the peer once it has this many
        std::promise<void> done;
    };

    void post(Ticket* t) {
        std::lock_guard<std::mutex> g(m_lock);
        m_queue.push_back(t);
        m_changed.notify_all();
    }
    // Ends the cancellers once the queue is empty.
    void close() {
        std::lock_guard<std::mutex> g(m_lock);
        m_closed = true;
        m_changed.notify_all();
    }

    // A canceller: waits until the peer has the request (the owner then
    // waits in its read, or is about to), gives it a moment, then cancels.
    void serve(Problems& problems) {
        for (;;) {
            Ticket* t;
            {
                std::unique_lock<std::mutex> g(m_lock);
                m_changed.wait(g, [this] { return m_closed || !m_queue.empty(); });
                if (m_queue.empty()) return;
                t = m_queue.front();
                m_queue.pop_front();
            }
            if (!t->peer->waitForRequests(t->requestsSeen, 20000)) problems.add("canceller: the stalled request never arrived");
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            guarded(problems, "canceller", [&] { t->in->cancel(); });
            t->done.set_value();
        }
    }

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Ticket*> m_queue;
    bool m_closed = false;
};

// A thread whose session reads from a peer that stalls: another thread
// cancels the read, the session reconnects and its next cycles succeed.
void stalledWorker(Problems& problems, StartLine& start, CancelDesk& desk, int id, bool secure, int rounds) {
    const std::string me = std::string(secure ? "secure" : "plain") + " stalled worker " + std::to_string(id);
    SoapEchoEndpoint peer;
    std::unique_ptr<TlsFront> front;
    if (secure) front.reset(new TlsFront(peer.port()));
    SoapEchoEndpoint::Options stall;
    // A head begun and never finished: the response read waits for the rest.
    stall.rawResponse = "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\n";
    start.arriveAndWait();
    guarded(problems, me, [&] {
        TALVEX toolkit;
        toolkit.setUseVLT(secure ? 1 : 0);
        // The secure socket honours cancellation only in non-blocking mode.
        toolkit.setUseNonBlockingSockets(secure ? 1 : 0);
        const std::string config = TlsFront::trustingConfig();
        std::unique_ptr<TALVEXSession> session(toolkit.getSession(
            "127.0.0.1", secure ? front->port() : peer.port(), "/svc", secure ? config.c_str() : nullptr, 10));
        size_t requests = 0;
        for (int round = 0; round < rounds; ++round) {
            const std::string text = me + " round " + std::to_string(round);
            peer.setOptions(stall);
            TALVEXSocketInputStream* in = session->getSessionSocket()->getInputStream();
            if (in->setCancel(1) != 1) problems.add(me + ": setCancel(1) refused");
            MOXIDOM_Document request;
            MOXIDOM_Element env = envelope(request, text + " stalled");
            session->sendRequest(env);
            CancelDesk::Ticket ticket{in, &peer, ++requests, {}};
            std::future<void> cancelled = ticket.done.get_future();
            desk.post(&ticket);
            std::string outcome = "the read returned";
            try {
                MOXIDOM_Document response;
                session->getResponse(response);
            } catch (PNXIOCancelException& e) {
                outcome = "cancelled";
                if (std::string(e.getThrowableName()).find("Cancel") == std::string::npos)
                    problems.add(me + ": throwable name " + e.getThrowableName());
            } catch (MOXThrowable& t) {
                outcome = "other failure: " + describe(t);
            }
            cancelled.wait();  // the canceller is done with the stream
            if (outcome != "cancelled") problems.add(me + ": stalled read: " + outcome);
            if (in->getCancel() != 1) problems.add(me + ": cancel mode was left after the cancelled read");

            peer.setOptions(SoapEchoEndpoint::Options());
            session->reconnect(10);
            in = session->getSessionSocket()->getInputStream();
            in->setCancel(0);
            if (doRequest(*session, text + " after") != text + " after") problems.add(me + ": echo after reconnect differs");
            ++requests;
            const std::string wrong = attachmentCycle(*session, text + " parts", static_cast<unsigned>(id + round));
            if (!wrong.empty()) problems.add(me + ": attachments after reconnect: " + wrong);
            ++requests;
        }
    });
}

// What the process shares, used over and over while the sessions run:
// toolkits made and dropped, the toolkit's start and stop, both loaders of
// the security library, host resolution, address texts and secure
// connections opened and closed (the security library's handle table).
void processWideWorker(Problems& problems, StartLine& start, std::atomic<bool>& stop, int id, int securePort,
                       int iterations) {
    const std::string me = "process-wide worker " + std::to_string(id);
    const std::string config = TlsFront::trustingConfig();
    start.arriveAndWait();
    for (int i = 0; i < iterations && !stop.load(); ++i) {
        guarded(problems, me, [&] {
            if (TALVEXInitialize() != 0) problems.add(me + ": TALVEXInitialize failed");
            {
                MOXCrypto crypto("VLT_Crypto_Interface");
                if (!crypto.isLoaded()) problems.add(me + ": the security library did not load");
            }
            std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
            toolkit->setUseVLT((i + id) % 2);
            std::unique_ptr<TALVEXSocket> socket(toolkit->getSocket());
            MOXByteBuffer text(64, 64);
            socket->getIPAddress(text);

            TALVEXHostID host(i % 2 == 0 ? "localhost" : "127.0.0.1", securePort);
            if (host.isValid() != 1) problems.add(me + ": loopback did not resolve");

            if (i % 4 == id % 4) {
                toolkit->setUseVLT(1);
                std::unique_ptr<TALVEXSession> s(toolkit->getSession("127.0.0.1", securePort, "/svc", config.c_str(), 10));
                if (doRequest(*s, me) != me) problems.add(me + ": secure echo differs");
            }
            toolkit.reset();
            TALVEXTerminate();
        });
    }
}

}  // namespace

TEST(Threads, SixteenThreadsRunSessionsWhileStalledReadsAreCancelled) {
    std::signal(SIGPIPE, SIG_IGN);  // a peer that went away must not end the test
    Problems problems;
    SoapEchoEndpoint endpoint;
    TlsFront front(endpoint.port());
    CancelDesk desk;

    // Sixteen session threads: eight plain, four secure (two of them
    // non-blocking), two plain and two secure whose reads get cancelled.
    const int kPlain = 8, kSecure = 4, kStalledPlain = 2, kStalledSecure = 2, kCancellers = 2, kProcessWide = 2;
    const int sessionThreads = kPlain + kSecure + kStalledPlain + kStalledSecure;
    ASSERT_EQ(16, sessionThreads);
    StartLine start(sessionThreads + kProcessWide);
    std::atomic<bool> stop{false};

    std::vector<std::thread> sessions, helpers;
    // Plain sockets block: without a time limit a non-blocking plain read
    // reports "would block" by design.
    for (int i = 0; i < kPlain; ++i)
        sessions.emplace_back(cycleWorker, std::ref(problems), std::ref(start), i, false, false, endpoint.port(), 3);
    for (int i = 0; i < kSecure; ++i)
        sessions.emplace_back(cycleWorker, std::ref(problems), std::ref(start), kPlain + i, true, i >= 2, front.port(), 2);
    for (int i = 0; i < kStalledPlain; ++i)
        sessions.emplace_back(stalledWorker, std::ref(problems), std::ref(start), std::ref(desk), i, false, 2);
    for (int i = 0; i < kStalledSecure; ++i)
        sessions.emplace_back(stalledWorker, std::ref(problems), std::ref(start), std::ref(desk), kStalledPlain + i, true, 2);
    for (int i = 0; i < kCancellers; ++i) helpers.emplace_back([&] { desk.serve(problems); });
    for (int i = 0; i < kProcessWide; ++i)
        helpers.emplace_back(processWideWorker, std::ref(problems), std::ref(start), std::ref(stop), i, front.port(), 40);

    for (auto& t : sessions) t.join();
    stop = true;
    desk.close();
    for (auto& t : helpers) t.join();

    for (const std::string& p : problems.list()) ADD_FAILURE() << p;
    // Every session thread's cycles reached the echo endpoint.
    EXPECT_GE(endpoint.requestCount(), static_cast<size_t>(kPlain * 2 * 3 * 3 + kSecure * 2 * 2 * 3));
}

// From a cold start: many threads load the security library, resolve hosts
// and open secure connections at the same moment, with no load before them.
TEST(Threads, ColdStartLoadsTheSecurityLibraryOnManyThreadsAtOnce) {
    std::signal(SIGPIPE, SIG_IGN);
    Problems problems;
    SoapEchoEndpoint endpoint;
    TlsFront front(endpoint.port());
    const int kThreads = 8;
    StartLine start(kThreads);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(processWideWorker, std::ref(problems), std::ref(start), std::ref(stop), i, front.port(), 4);
    for (auto& t : threads) t.join();
    for (const std::string& p : problems.list()) ADD_FAILURE() << p;
}
