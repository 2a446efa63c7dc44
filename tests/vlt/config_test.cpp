// The session configuration document as VLT_Socket reads it: every element,
// the toolkit's protocolFamily addition, and clear refusals.
#include <gtest/gtest.h>

#include "tls_peer.h"
#include "vlt_client.h"

using namespace vlttest;

namespace {

std::string refusal(const std::string& document) {
    Handle c;
    std::string detail;
    int rc = c.open(document, &detail);
    EXPECT_EQ(rc, VLT_E_CONFIG) << document;
    EXPECT_EQ(c.h, 0u) << "no handle for a refused document";
    return detail;
}

TEST(Config, AcceptedDocuments) {
    Handle c;
    std::string detail = "unchanged";
    EXPECT_EQ(c.open(nullptr, &detail), VLT_S_OK) << "no document means defaults";
    EXPECT_NE(c.h, 0u);
    EXPECT_EQ(detail, "");

    const Certificates& certs = certificates();
    const std::string documents[] = {
        "<sessionConfigDocument/>",
        "<sessionConfigDocument></sessionConfigDocument>",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- settings -->\n"
        "<sessionConfigDocument xmlns=\"urn:talvex:session\">\n</sessionConfigDocument>\n",
        // Given twice, protocolFamily takes the last.
        "<sessionConfigDocument><protocolFamily>IPv6</protocolFamily>"
        "<protocolFamily>IPv4</protocolFamily></sessionConfigDocument>",
        // Every element.
        "<sessionConfigDocument>\n  <serverName>localhost</serverName>\n  <caFile>" + certs.ca +
            "</caFile>\n  <caPath>" + certs.dir + "</caPath>\n  <verifyPeer>true</verifyPeer>\n"
            "  <clientCertificate>" + certs.client + "</clientCertificate>\n  <clientKey>" + certs.clientKey +
            "</clientKey>\n  <minProtocol>TLS1.3</minProtocol>\n  <cipherList>HIGH:!aNULL</cipherList>\n"
            "  <!-- the toolkit adds the next one -->\n<protocolFamily>IPv4</protocolFamily></sessionConfigDocument>",
    };
    for (const std::string& document : documents) {
        Handle d;
        EXPECT_EQ(d.open(document, &detail), VLT_S_OK) << document << ": " << detail;
    }
}

TEST(Config, ToolkitDocumentConnects) {
    // What the toolkit hands over: the caller's document with protocolFamily
    // inserted before the closing tag.
    PeerOptions o;
    o.certificate = certificates().server;
    o.key = certificates().serverKey;
    TlsPeer peer(o);
    std::string doc = "<sessionConfigDocument><caFile>" + certificates().ca +
                      "</caFile><protocolFamily>IPv4</protocolFamily></sessionConfigDocument>";
    Handle c;
    ASSERT_EQ(c.open(doc), VLT_S_OK);
    ASSERT_EQ(connectUrl(c.h, "https://localhost:" + std::to_string(peer.port()) + "/"), VLT_S_OK) << lastError(c.h);
}

TEST(Config, EntitiesAndCdata) {
    Handle a, b;
    std::string detail;
    // The file does not exist; the message shows how the name was read.
    EXPECT_EQ(a.open("<sessionConfigDocument><caFile>/no/such/a&amp;b&#x41;.pem</caFile></sessionConfigDocument>", &detail),
              VLT_E_CONFIG);
    EXPECT_NE(detail.find("'/no/such/a&bA.pem'"), std::string::npos) << detail;
    EXPECT_EQ(b.open("<sessionConfigDocument><caFile><![CDATA[/no/such/<x>.pem]]></caFile></sessionConfigDocument>", &detail),
              VLT_E_CONFIG);
    EXPECT_NE(detail.find("'/no/such/<x>.pem'"), std::string::npos) << detail;
}

struct Refusal {
    const char* document;
    const char* expected;  // the detail text starts with this
};

TEST(Config, RefusedDocumentsSayWhatIsWrong) {
    const Refusal refusals[] = {
        Refusal{"", "the configuration document is empty"},
        Refusal{"  \n ", "the configuration document is empty"},
        Refusal{"<sessionConfig><caFile>x</caFile></sessionConfig>", "root element is <sessionConfig>, expected <sessionConfigDocument>"},
        Refusal{"just text", "text outside the root element"},
        Refusal{"<?xml version=\"1.0\"?>", "no root element: expected <sessionConfigDocument>"},
        Refusal{"<sessionConfigDocument><caFile>x</caFile>", "<sessionConfigDocument> is not closed"},
        Refusal{"<sessionConfigDocument><caFile>x</caPath></sessionConfigDocument>", "element <caFile> is closed by </caPath>"},
        Refusal{"<sessionConfigDocument><caFile>x</sessionConfigDocument>", "element <caFile> is closed by </sessionConfigDocument>"},
        Refusal{"<sessionConfigDocument><caFile a=\"1\">x</caFile></sessionConfigDocument>", "element <caFile> must not have attributes"},
        Refusal{"<sessionConfigDocument><caFile><x/></caFile></sessionConfigDocument>", "element <caFile> must hold text only"},
        Refusal{"<sessionConfigDocument version=\"2\"/>", "unexpected attribute 'version' on <sessionConfigDocument>"},
        Refusal{"<sessionConfigDocument/><more/>", "unexpected content after </sessionConfigDocument>"},
        Refusal{"<sessionConfigDocument>text</sessionConfigDocument>", "text directly inside <sessionConfigDocument>"},
        Refusal{"<sessionConfigDocument><caFile>a&bogus;</caFile></sessionConfigDocument>", "unknown entity &bogus;"},
        Refusal{"<sessionConfigDocument><!-- open</sessionConfigDocument>", "comment is not closed"},
        Refusal{"<sessionConfigDocument><verifyPeer>yes</verifyPeer></sessionConfigDocument>", "verifyPeer must be true or false, not 'yes'"},
        Refusal{"<sessionConfigDocument><minProtocol>TLS1.1</minProtocol></sessionConfigDocument>", "minProtocol must be TLS1.2 or TLS1.3, not 'TLS1.1'"},
        Refusal{"<sessionConfigDocument><protocolFamily>IPX</protocolFamily></sessionConfigDocument>", "protocolFamily must be IPv4 or IPv6, not 'IPX'"},
        Refusal{"<sessionConfigDocument><requireClientCertificate>maybe</requireClientCertificate></sessionConfigDocument>",
                "requireClientCertificate must be true or false"},
        Refusal{"<sessionConfigDocument><caFile/></sessionConfigDocument>", "element <caFile> is empty"},
        Refusal{"<sessionConfigDocument><caFile>a</caFile><caFile>b</caFile></sessionConfigDocument>",
                "element <caFile> appears more than once"},
        Refusal{"<sessionConfigDocument><caFile>/no/such/ca.pem</caFile></sessionConfigDocument>",
                "caFile '/no/such/ca.pem' cannot be read: No such file or directory"},
        Refusal{"<sessionConfigDocument><caPath>/no/such/dir</caPath></sessionConfigDocument>", "caPath '/no/such/dir' cannot be read"},
        Refusal{"<sessionConfigDocument><caPath>/etc/hostname</caPath></sessionConfigDocument>", "caPath '/etc/hostname' is not a directory"},
        Refusal{"<sessionConfigDocument><clientKey>/k.pem</clientKey></sessionConfigDocument>", "clientKey is given without clientCertificate"},
        Refusal{"<sessionConfigDocument><cipherList>NOTHING-AT-ALL</cipherList></sessionConfigDocument>",
                "cipherList 'NOTHING-AT-ALL' selects no usable cipher"}};
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.document);
        std::string detail = refusal(r.document);
        EXPECT_EQ(detail.rfind(r.expected, 0), 0u) << "detail: " << detail;
    }
}

TEST(Config, ExactRefusalTexts) {
    EXPECT_EQ(refusal("<sessionConfigDocument><fooBar>1</fooBar></sessionConfigDocument>"),
              "unknown element <fooBar> in sessionConfigDocument");
    // Files with the wrong content.
    const Certificates& certs = certificates();
    EXPECT_EQ(refusal(configDocument({{"caFile", certs.caKey}})).rfind("caFile '" + certs.caKey + "' holds no usable CA certificate", 0), 0u);
    EXPECT_EQ(refusal(configDocument({{"clientCertificate", certs.clientKey}})).rfind("clientCertificate '" + certs.clientKey + "' holds no usable PEM certificate", 0), 0u);
    EXPECT_EQ(refusal(configDocument({{"clientCertificate", certs.client}})).rfind("clientCertificate '" + certs.client + "' holds no usable private key", 0), 0u);
    EXPECT_EQ(refusal(configDocument({{"clientCertificate", certs.client}, {"clientKey", certs.serverKey}})),
              "clientKey '" + certs.serverKey + "' does not belong to clientCertificate '" + certs.client + "'");
    EXPECT_EQ(refusal(configDocument({{"serverCertificate", certs.server}, {"requireClientCertificate", "true"}, {"serverKey", certs.serverKey}})),
              "requireClientCertificate needs caFile or caPath to check client certificates against");
}

TEST(Config, DetailOutArgumentMayBeNullAndTextsAreFreedOnceAndOnlyOnce) {
    VLT_HANDLE h = 0;
    EXPECT_EQ(VLT_Socket(&h, "<bad/>", 0, nullptr), VLT_E_CONFIG);
    EXPECT_EQ(h, 0u);
    // The reason is still there for whoever asks.
    EXPECT_EQ(lastError(0), "root element is <bad>, expected <sessionConfigDocument>");
    EXPECT_EQ(VLT_Socket(nullptr, nullptr, 0, nullptr), VLT_E_INVALID_ARGUMENT);

    char* detail = nullptr;
    EXPECT_EQ(VLT_Socket(&h, "<x/>", 0, &detail), VLT_E_CONFIG);
    ASSERT_NE(detail, nullptr);
    EXPECT_EQ(VLT_CryptoFree(detail, 0), VLT_S_OK);
    EXPECT_EQ(VLT_CryptoFree(detail, 0), VLT_E_INVALID_ARGUMENT);  // refused, not a double free
    EXPECT_EQ(VLT_CryptoFree(nullptr, 0), VLT_S_OK);
    static char notOurs[] = "not ours";
    EXPECT_EQ(VLT_CryptoFree(notOurs, 0), VLT_E_INVALID_ARGUMENT);
}

}  // namespace
