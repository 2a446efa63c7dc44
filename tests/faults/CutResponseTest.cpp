// A peer that sends a good response only up to a byte offset, then closes,
// resets or stalls. With a one-second time limit on the session's socket
// stream, every cut must end the cycle in one of the toolkit's documented
// errors within the limit plus slack (or complete, when nothing essential was
// cut), and the session must reconnect and complete a cycle afterwards.
//
// Plain sockets; SecureCutResponseTest.cpp does the same over TLS.

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CutResponses.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "LoopbackServer.h"
#include "talvex/TALVEX.h"

using namespace cutfaults;

namespace {

enum class Cut { Close, Reset, Stall };
const char* cutName(Cut c) { return c == Cut::Close ? "close" : c == Cut::Reset ? "reset" : "stall"; }

struct Plan {
    const Recorded* response = nullptr;
    size_t offset = 0;
    Cut cut = Cut::Close;
    bool whole = true;  // serve the whole response and keep the connection
    std::string endless;  // sent again and again after the cut, until the client goes
};

// One peer per worker; each accepted connection serves its requests according
// to the plan current when the request arrived.
class CuttingPeer {
public:
    CuttingPeer() : m_server([this](int fd) { serve(fd); }) {}
    int port() const { return m_server.port(); }
    void setPlan(const Plan& p) {
        std::lock_guard<std::mutex> g(m_lock);
        m_plan = p;
    }

private:
    Plan plan() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_plan;
    }
    // The client's request ends with the last chunk (the session sends chunked).
    static bool readRequest(int fd) {
        const std::string req = LoopbackServer::readUntil(fd, "\r\n0\r\n\r\n");
        return req.find("\r\n0\r\n\r\n") != std::string::npos;
    }
    void serve(int fd) {
        while (!m_server.stopping() && readRequest(fd)) {
            const Plan p = plan();
            if (p.whole) {
                LoopbackServer::sendAll(fd, p.response->bytes);
                continue;
            }
            LoopbackServer::sendAll(fd, p.response->bytes.substr(0, p.offset));
            if (!p.endless.empty()) {
                while (!m_server.stopping() && LoopbackServer::sendAll(fd, p.endless)) {
                }
                return;
            }
            if (p.cut == Cut::Reset) {
                LoopbackServer::resetOnClose(fd);
            } else if (p.cut == Cut::Stall) {
                // Silent until the client gives up and closes; bounded, so that
                // a client without a working time limit shows as slow, not stuck.
                pollfd pf{fd, POLLIN, 0};
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(6);
                while (std::chrono::steady_clock::now() < until) {
                    if (::poll(&pf, 1, 50) > 0) {
                        char c;
                        if (::recv(fd, &c, 1, 0) <= 0) break;
                    }
                }
            } else {
                ::shutdown(fd, SHUT_WR);
            }
            return;
        }
    }

    std::mutex m_lock;
    Plan m_plan;
    LoopbackServer m_server;
};

struct Case {
    const Recorded* response;
    size_t offset;
    Cut cut;
};

}  // namespace

TEST(CutResponse, EveryCutEndsInADocumentedErrorInTimeAndTheSessionRecovers) {
    const std::vector<Recorded> responses = recordedResponses();
    std::vector<Case> cases;
    for (const Recorded& r : responses) {
        const std::vector<size_t> offsets = cutOffsets(r);
        for (size_t i = 0; i < offsets.size(); ++i) {
            cases.push_back({&r, offsets[i], Cut::Close});
            cases.push_back({&r, offsets[i], Cut::Reset});
            // A stall costs the full time limit: every 5th offset, and the end.
            if (i % 5 == 0 || offsets[i] == r.bytes.size()) cases.push_back({&r, offsets[i], Cut::Stall});
        }
    }

    CutTally tally;
    std::atomic<size_t> next{0};
    auto worker = [&] {
        CuttingPeer peer;
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        if (!session) {
            tally.fail("no session");
            return;
        }
        for (size_t i; (i = next++) < cases.size();) {
            const Case& c = cases[i];
            Plan p;
            p.response = c.response;
            p.offset = c.offset;
            p.cut = c.cut;
            p.whole = false;
            peer.setPlan(p);
            const Trial t = cutThenRecover(*session, c.response->multipart, [&] {
                p.whole = true;
                peer.setPlan(p);
            });
            tally.add(cutName(c.cut),
                      "at " + std::to_string(c.offset) + "/" + std::to_string(c.response->bytes.size()) + " of " +
                          c.response->name,
                      t, judge(t, c.offset < completeFrom(*c.response)));
        }
    };
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) workers.emplace_back(worker);
    for (auto& t : workers) t.join();
    tally.report();
}

// The stream ends inside the head's last line: that is an incomplete head
// (6), whatever the cut line would have meant had it been whole.
TEST(CutResponse, TruncatedHeadLineReportsHeadIncomplete) {
    const std::vector<std::string> heads = {"HTTP/1.", "HTTP/1.1 ", "HTTP/1.1 200 OK\r\nTransfer-Encoding: ",
                                            "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; bound"};
    for (const std::string& head : heads) {
        CuttingPeer peer;
        Recorded r{"head", head, false, {}};
        Plan p;
        p.response = &r;
        p.offset = head.size();
        p.whole = false;
        peer.setPlan(p);
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
        const Outcome o = cycle(*session, false);
        EXPECT_EQ("TALVEXException 6", o.error) << "cut after [" << head << "]";
    }
}

// A multipart response whose peer goes silent after the envelope part's data
// (before the next delimiter) must time out like any other read.
TEST(CutResponse, StallBeforeTheNextDelimiterEndsInTime) {
    const std::vector<Recorded> responses = recordedResponses();
    const Recorded& r = responses[2];
    CuttingPeer peer;
    Plan p;
    p.response = &r;
    p.offset = r.bytes.find("</soapenv:Envelope>") + 19;  // the envelope's data is in, its delimiter is not
    p.cut = Cut::Stall;
    p.whole = false;
    peer.setPlan(p);
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
    ASSERT_NE(nullptr, session);
    const Outcome o = cycle(*session, true);
    EXPECT_EQ("PNXIOTimeoutException", o.error);
    EXPECT_LT(o.seconds, 3.0);
}

// A peer that sends its head a byte at a time and never finishes it: neither
// the time limit nor a cancel may wait for a pause that never comes.
TEST(CutResponse, TrickleCannotOutlastTheTimeLimitOrACancel) {
    LoopbackServer peer([](int fd) {
        LoopbackServer::readUntil(fd, "\r\n0\r\n\r\n");
        LoopbackServer::sendAll(fd, "HTTP/1.1 200 OK\r\nX-Pad: ");
        for (int i = 0; i < 100 && ::send(fd, "a", 1, MSG_NOSIGNAL) == 1; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
    });
    for (bool cancel : {false, true}) {
        SCOPED_TRACE(cancel ? "cancel" : "time limit");
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
        MOXIDOM_Document request, response;
        MOXIDOM_Element env = requestEnvelope(request);
        session->sendRequest(env);
        TALVEXSocketInputStream* in = session->getSessionSocket()->getInputStream();
        std::thread canceller;
        if (cancel) {
            in->setCancel(1);
            canceller = std::thread([in] {
                std::this_thread::sleep_for(std::chrono::milliseconds(500));
                in->cancel();
            });
        } else {
            in->setTimeout(2);
        }
        std::string ended = "completed";
        try {
            session->getResponse(response);
        } catch (PNXIOCancelException&) {
            ended = "cancelled";
        } catch (PNXIOTimeoutException&) {
            ended = "timed out";
        } catch (MOXThrowable& t) {
            ended = t.getThrowableName();
        }
        if (canceller.joinable()) canceller.join();
        EXPECT_EQ(cancel ? "cancelled" : "timed out", ended);
        EXPECT_THROW(session->doRequest(env, response), MOXIllegalStateError) << "sent again without reconnect";
    }
}

// A peer that never stops sending its head: an endless header line, endless
// header lines, endless interim responses, an endless line in the envelope
// part's head, an endless trailer. Each is refused at a bound (code 6) or, for
// the trailer, dropped at one, long before memory or the test's time runs out.
TEST(CutResponse, EndlessHeadsAreRefusedAtABound) {
    const std::vector<Recorded> responses = recordedResponses();
    const std::string& chunkedResponse = responses[1].bytes;
    const std::string multipart = untilCloseResponses()[1].bytes;
    struct Row {
        const char* name;
        std::string start;
        std::string endless;
        const char* property;  // set to "0" on the session, or null
    };
    const std::vector<Row> rows = {
        {"header line", "HTTP/1.1 200 OK\r\nX-Long: ", std::string(4096, 'l'), nullptr},
        {"header lines", "HTTP/1.1 200 OK\r\n", "X-Many: m\r\n", nullptr},
        {"interim responses", "", "HTTP/1.1 103 Early Hints\r\n\r\n", nullptr},
        {"part head line", multipart.substr(0, multipart.find("Content-ID: <env>")) + "X-Long: ",
         std::string(4096, 'l'), nullptr},
        {"trailer", chunkedResponse.substr(0, chunkedResponse.size() - 2), "X-Trailer: t\r\n", nullptr},
        {"interim response past the session's bound", "HTTP/1.1 100 Continue\r\n\r\n" + chunkedResponse, "",
         "max-interim-responses"},
    };
    for (const Row& row : rows) {
        Recorded r{row.name, row.start, false, {}};  // outlives the peer serving it
        CuttingPeer peer;
        Plan p;
        p.response = &r;
        p.offset = row.start.size();
        p.whole = row.property != nullptr;
        p.endless = row.endless;
        peer.setPlan(p);
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
        if (row.property != nullptr) session->setProperty(row.property, "0");
        const Outcome o = cycle(*session, false);
        if (row.endless == "X-Trailer: t\r\n")
            EXPECT_TRUE(o.completed || o.error == "TALVEXException 6") << row.name << ": " << o.error;
        else
            EXPECT_EQ("TALVEXException 6", o.error) << row.name;
    }
}

// A peer whose envelope never ends, nested or flat: the session's bounds on
// envelopes end the cycle in error 16 long before memory or time run out.
TEST(CutResponse, AnEndlessEnvelopeEndsAtTheSessionsBounds) {
    const struct {
        std::string piece;
        int maxEnvelopeSize;  // 0: the default
        const char* text;
    } rows[] = {{"<a>", 0, "elements nested deeper than 1000 levels"},
                {std::string(4096, 'x'), 1 << 20, "document larger than 1048576 bytes"}};
    for (const auto& row : rows) {
        LoopbackServer peer([&](int fd) {
            LoopbackServer::readUntil(fd, "\r\n0\r\n\r\n");
            // One chunk, without the last chunk that would end the body.
            auto chunkOf = [](const std::string& data) {
                const std::string c = chunked(data, data.size());
                return c.substr(0, c.size() - 5);
            };
            std::string stream = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunkOf("<a>");
            const std::string more = chunkOf(row.piece);
            while (!peer.stopping() && ::send(fd, stream.data(), stream.size(), MSG_NOSIGNAL) > 0) stream = more;
        });
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
        if (row.maxEnvelopeSize != 0) session->setProperty("max-envelope-size", row.maxEnvelopeSize);
        MOXIDOM_Document request, response;
        MOXIDOM_Element env = request.createElementNS(kSoapNs, "soapenv:Envelope");
        request.appendChild(env);
        try {
            session->doRequest(env, response);
            ADD_FAILURE() << "an endless envelope was accepted";
        } catch (TALVEXException& e) {
            EXPECT_EQ(16, e.getCode());
            EXPECT_EQ(row.text, e.getMessageAt(1).format().str());
        }
        session.reset();  // closes the connection, which ends the peer
    }
}
