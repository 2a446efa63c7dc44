// One SOAP call: build the request envelope as a DOM, doRequest, read the answer.
//   example_one_call URL [CA-FILE]      (CA-FILE: for an https:// URL with a private CA)
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "moxidom/MOXIDOM.h"
#include "talvex/talvex.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s URL [CA-FILE]\n", argv[0]);
        return 2;
    }
    const std::string url = argv[1];
    const bool tls = url.compare(0, 8, "https://") == 0;
    // The TLS configuration document; the secure socket reads it again at every
    // reconnect, so it must live as long as the session.
    std::string config = "<sessionConfigDocument>";
    if (argc > 2) config += std::string("<caFile>") + argv[2] + "</caFile>";
    config += "</sessionConfigDocument>";

    if (TALVEXInitialize() != 0) return 1;
    int result = 1;
    {
        std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
        toolkit->setUseVLT(tls ? 1 : 0);
        try {
            std::unique_ptr<TALVEXSession> session(toolkit->getSession(url.c_str(), config.c_str(), 10));

            const std::string SOAP_ENV = "http://schemas.xmlsoap.org/soap/envelope/";
            MOXIDOM_Document request;
            MOXIDOM_Element envelope = request.createElementNS(SOAP_ENV, "soapenv:Envelope");
            request.appendChild(envelope);
            MOXIDOM_Element call = envelope.appendElementNS(SOAP_ENV, "soapenv:Body").appendElementNS("urn:example", "ex:greet");
            call.appendElementNS("urn:example", "ex:name").appendText("world");

            MOXIDOM_Document response;  // receives the response envelope as its root
            session->doRequest(envelope, response);

            MOXIDOM_Element answer = response.getDocumentElement()
                                         .getFirstChildElement(SOAP_ENV, "Body")
                                         .getFirstChildElement("*", "*");
            std::printf("answer element: %s\n", answer.getNodeName().c_str());
            std::printf("name: %s\n", answer.getFirstChildElement("urn:example", "name").getTextContent().c_str());
            std::printf("%s\n", MOXIDOM_Helper::toString(response).c_str());
            result = answer.getFirstChildElement("urn:example", "name").getTextContent() == "world" ? 0 : 1;
        } catch (MOXThrowable& e) {
            // A complete report: error code, catalog text, back-trace.
            std::fprintf(stderr, "%s\n", e.toString().c_str());
        } catch (const std::out_of_range& e) {
            // Not a MOXThrowable: a TLS configuration document without its
            // closing tag </sessionConfigDocument>.
            std::fprintf(stderr, "unusable TLS configuration document: %s\n", e.what());
        }
    }
    TALVEXTerminate();
    return result;
}
