// Time limits and cancellation of reads on a session's connection: a read
// that gives up after a second of silence, a read cancelled from another
// thread, and then a normal call with a time limit on its response.
//   example_cancel_read URL [CA-FILE]
// A server says nothing before it has a request, so reading the fresh
// connection waits: that is the silence used below.
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "moxidom/MOXIDOM.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "talvex/talvex.h"

namespace {
double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s URL [CA-FILE]\n", argv[0]);
        return 2;
    }
    const std::string url = argv[1];
    const bool tls = url.compare(0, 8, "https://") == 0;
    std::string config = "<sessionConfigDocument>";
    if (argc > 2) config += std::string("<caFile>") + argv[2] + "</caFile>";
    config += "</sessionConfigDocument>";

    if (TALVEXInitialize() != 0) return 1;
    int passed = 0;
    {
        std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
        toolkit->setUseVLT(tls ? 1 : 0);
        // The secure socket honours time limits and cancellation only in non-blocking mode.
        toolkit->setUseNonBlockingSockets(1);
        try {
            std::unique_ptr<TALVEXSession> session(toolkit->getSession(url.c_str(), config.c_str(), 10));
            TALVEXSocketInputStream* in = session->getSessionSocket()->getInputStream();

            // 1. A time limit: reads give up 1 s after it was set.
            in->setTimeout(1);
            auto start = std::chrono::steady_clock::now();
            try {
                in->read();
                std::printf("time-out: the read returned, unexpectedly\n");
            } catch (PNXIOTimeoutException&) {
                std::printf("time-out: the read gave up after %.1f s\n", secondsSince(start));
                ++passed;
            }
            in->setTimeout(0);

            // 2. Cancellation: another thread calls cancel() while this one waits.
            in->setCancel(1);
            std::thread canceller([in] {
                std::this_thread::sleep_for(std::chrono::milliseconds(500));
                in->cancel();  // the only call meant to come from another thread
            });
            start = std::chrono::steady_clock::now();
            try {
                in->read();
                std::printf("cancel: the read returned, unexpectedly\n");
            } catch (PNXIOCancelException&) {
                std::printf("cancel: the read was cancelled after %.1f s\n", secondsSince(start));
                ++passed;
            }
            canceller.join();
            in->setCancel(0);

            // 3. The connection is still good: a call whose response may take at most 10 s.
            const std::string SOAP_ENV = "http://schemas.xmlsoap.org/soap/envelope/";
            MOXIDOM_Document request, response;
            MOXIDOM_Element envelope = request.createElementNS(SOAP_ENV, "soapenv:Envelope");
            request.appendChild(envelope);
            envelope.appendElementNS(SOAP_ENV, "soapenv:Body").appendElementNS("urn:example", "ex:ping");
            session->sendRequest(envelope);
            in->setTimeout(10);  // the reader clears it again once the envelope is read
            session->getResponse(response);
            std::printf("call after both: %s\n", MOXIDOM_Helper::toString(response.getDocumentElement()).c_str());
            ++passed;
        } catch (MOXThrowable& e) {
            std::fprintf(stderr, "%s\n", e.toString().c_str());
        } catch (const std::out_of_range& e) {
            // Not a MOXThrowable: a TLS configuration document without its
            // closing tag </sessionConfigDocument>.
            std::fprintf(stderr, "unusable TLS configuration document: %s\n", e.what());
        }
    }
    TALVEXTerminate();
    std::printf("%d of 3 steps behaved as expected\n", passed);
    return passed == 3 ? 0 : 1;
}
