// Handles, document lifetimes and moving nodes between documents.

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "MemoryInputStream.h"
#include "moxidom/MOXIDOM.h"

namespace {

const char SOAP_ENV[] = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string kResponse =
    "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\">"
    "<soapenv:Body><r:sum xmlns:r=\"urn:r\">3</r:sum></soapenv:Body></soapenv:Envelope>";

// What the message reader does: build the envelope straight under the caller's node.
MOXIDOM_Node readInto(MOXIDOM_Node target, const std::string& xml = kResponse) {
    MemoryInputStream in(xml);
    MOXIDOM_Parser parser(0);
    if (!parser.parseInto(in, target)) return MOXIDOM_Node();
    return target.getLastChild();
}

TEST(DomLifetime, AnEnvelopeIsBuiltUnderTheCallersNode) {
    MOXIDOM_Document callers;
    MOXIDOM_Element holder = callers.createElement("response");
    callers.appendChild(holder);
    holder.appendText("before");

    MOXIDOM_Node envelope = readInto(holder, "<!-- c --><?pi x?>" + kResponse + "<!-- after -->\n");
    ASSERT_FALSE(envelope == NULL);
    EXPECT_TRUE(envelope == holder.getLastChild());
    EXPECT_TRUE(envelope.getOwnerDocument() == callers);
    EXPECT_EQ("3", envelope.getFirstChild().getFirstChild().getTextContent());
    EXPECT_EQ("<response>before" + kResponse + "</response>", MOXIDOM_Helper::toString(holder))
        << "only the root element is appended";

    // It can also become the root of an empty document.
    MOXIDOM_Document response;
    ASSERT_FALSE(readInto(response) == NULL);
    EXPECT_EQ("Envelope", response.getDocumentElement().getLocalName());
    EXPECT_EQ(SOAP_ENV, response.getDocumentElement().getNamespaceURI());

    // A failed parse leaves the parent as it was.
    EXPECT_TRUE(readInto(holder, "<a><b>text</b><c>") == NULL);
    EXPECT_TRUE(envelope == holder.getLastChild());
    MemoryInputStream broken(kResponse);
    broken.failAt(kResponse.size() - 3);
    MOXIDOM_Parser parser(0);
    EXPECT_THROW(parser.parseInto(broken, holder), MemoryInputStream::Failure);
    EXPECT_TRUE(envelope == holder.getLastChild());

    // A parent that cannot take a root element is refused before anything is read.
    for (const MOXIDOM_Node& parent : {MOXIDOM_Node(response), holder.getFirstChild(), MOXIDOM_Node()}) {
        MemoryInputStream unread(kResponse);
        EXPECT_THROW(parser.parseInto(unread, parent), MOXIDOM_DOMException);
        EXPECT_EQ(0u, unread.position());
    }
}

TEST(DomLifetime, HandlesKeepTheirDocumentAlive) {
    MOXIDOM_Element body;
    MOXIDOM_Node text;
    {
        MOXIDOM_Document doc = MOXIDOM_Document::create();
        MOXIDOM_Element env = doc.createElementNS(SOAP_ENV, "s:Envelope");
        doc.appendChild(env);
        body = env.appendElementNS(SOAP_ENV, "s:Body");
        text = body.appendText("kept");
    }
    EXPECT_EQ("Envelope", body.getParentNode().getLocalName());
    EXPECT_EQ("kept", text.getNodeValue());
    EXPECT_TRUE(body.getOwnerDocument().getDocumentElement() == body.getParentNode());
    body.appendElementNS("urn:x", "x:more").appendText("still writable");
    EXPECT_EQ("<s:Body xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\">kept"
              "<x:more xmlns:x=\"urn:x\">still writable</x:more></s:Body>",
              MOXIDOM_Helper::toString(body));

    // A node taken out of its tree stays valid as well.
    MOXIDOM_Node removed = body.removeChild(text);
    EXPECT_TRUE(removed.getParentNode() == NULL);
    EXPECT_EQ("kept", removed.getNodeValue());
}

TEST(DomLifetime, AppendingWithinADocumentMovesAndAcrossDocumentsCopies) {
    MOXIDOM_Document doc;
    MOXIDOM_Element root = doc.createElement("root");
    doc.appendChild(root);
    MOXIDOM_Element a = root.appendElementNS("", "a");
    MOXIDOM_Element b = root.appendElementNS("", "b");
    EXPECT_TRUE(root.appendChild(a) == a) << "same document: the node itself moves";
    EXPECT_TRUE(root.getLastChild() == a);
    EXPECT_TRUE(root.getFirstChild() == b);

    MOXIDOM_Document other;
    MOXIDOM_Element otherRoot = other.createElement("other");
    other.appendChild(otherRoot);
    MOXIDOM_Node copy = MOXIDOM_Helper::appendChild(otherRoot, root);
    EXPECT_FALSE(copy == root);
    EXPECT_TRUE(copy.getOwnerDocument() == other);
    EXPECT_TRUE(root.getParentNode() == doc) << "the original stays in place";
    EXPECT_EQ("<other><root><b/><a/></root></other>", MOXIDOM_Helper::toString(otherRoot));
}

TEST(DomLifetime, DeepTreesAreCopiedWrittenAndReadWithoutRecursion) {
    const int depth = 100000;
    MOXIDOM_Document doc;
    MOXIDOM_Element e = doc.createElement("e");
    doc.appendChild(e);
    for (int i = 1; i < depth; ++i) e = e.appendElementNS("", "e");
    e.appendText("deep");
    std::string xml;
    for (int i = 0; i < depth; ++i) xml += "<e>";
    xml += "deep";
    for (int i = 0; i < depth; ++i) xml += "</e>";

    MOXIDOM_Document other;
    MOXIDOM_Node copy = MOXIDOM_Helper::appendChild(other, doc.getDocumentElement());
    EXPECT_EQ("deep", copy.getTextContent());
    EXPECT_EQ(xml, MOXIDOM_Helper::toString(copy));
    EXPECT_EQ(xml, MOXIDOM_Helper::toString(doc.importNode(copy)));
}

TEST(DomLifetime, NullHandles) {
    MOXIDOM_Node none;
    EXPECT_TRUE(none == NULL);
    EXPECT_FALSE(none != NULL);
    EXPECT_TRUE(none == MOXIDOM_Node());
    EXPECT_TRUE(none.getOwnerDocument() == NULL);
    EXPECT_EQ("", MOXIDOM_Helper::toString(none));

    MOXIDOM_Document doc;
    EXPECT_TRUE(doc.getFirstChild() == NULL) << "a new document is empty";
    EXPECT_FALSE(doc == NULL);
    MOXIDOM_Element e = doc.createElement("e");
    EXPECT_FALSE(e == NULL);
    EXPECT_TRUE(MOXIDOM_Element(e.appendText("t")) == NULL) << "a text node is no element";
    EXPECT_THROW(MOXIDOM_Element().setAttribute("a", "b"), MOXIDOM_DOMException);
}

TEST(DomLifetime, DocumentsOnSeveralThreads) {
    // The first use of the library may well happen on several threads at once.
    std::vector<std::thread> threads;
    std::vector<int> ok(8, 0);
    for (size_t t = 0; t < ok.size(); ++t) {
        threads.emplace_back([t, &ok] {
            for (int i = 0; i < 20; ++i) {
                MOXIDOM_Document doc;
                MOXIDOM_Element e = doc.createElementNS("urn:t", "t:n");
                doc.appendChild(e);
                e.appendText(std::to_string(t));
                MOXIDOM_Document back = MOXIDOM_Document::parseString(MOXIDOM_Helper::toString(doc));
                if (back.getDocumentElement().getTextContent() != std::to_string(t)) return;
            }
            ok[t] = 1;
        });
    }
    for (std::thread& th : threads) th.join();
    for (int v : ok) EXPECT_EQ(1, v);
}

}  // namespace
