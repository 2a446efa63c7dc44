// Building trees, serialising them and reading them back.

#include <string>

#include <gtest/gtest.h>
#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMText.hpp>

#include "TreeCompare.h"
#include "moxidom/MOXIDOM.h"

namespace {

const char SOAP_ENV[] = "http://schemas.xmlsoap.org/soap/envelope/";
const char XSI[] = "http://www.w3.org/2001/XMLSchema-instance";
const char XSD[] = "http://www.w3.org/2001/XMLSchema";
const char CALC[] = "urn:example:calc";

size_t occurrences(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

MOXIDOM_Document buildRequest() {
    MOXIDOM_Document doc = MOXIDOM_Document::create();
    MOXIDOM_Element env = doc.createElementNS(SOAP_ENV, "soapenv:Envelope");
    doc.appendChild(env);
    env.setAttribute("xmlns:xsd", XSD);
    env.appendElementNS(SOAP_ENV, "soapenv:Header");
    MOXIDOM_Element add = env.appendElementNS(SOAP_ENV, "soapenv:Body").appendElementNS(CALC, "c:add");
    add.setAttributeNS(SOAP_ENV, "soapenv:encodingStyle", "http://schemas.xmlsoap.org/soap/encoding/");
    MOXIDOM_Element a = add.appendElementNS(CALC, "c:a");
    a.setAttributeNS(XSI, "xsi:type", "xsd:int");
    a.appendText("1");
    add.appendElementNS(CALC, "c:b").appendText("2");
    return doc;
}

TEST(DomBuild, SoapEnvelopeSurvivesWriteAndParse) {
    MOXIDOM_Document doc = buildRequest();
    const std::string xml = MOXIDOM_Helper::toString(doc.getDocumentElement());

    EXPECT_EQ(0u, xml.find("<soapenv:Envelope")) << "an element is written without XML declaration: " << xml;
    EXPECT_EQ(1u, occurrences(xml, "xmlns:soapenv=")) << "declared once, on the root: " << xml;
    EXPECT_EQ(1u, occurrences(xml, "xmlns:c=")) << xml;

    MOXIDOM_Document back = MOXIDOM_Document::parseString(xml);
    expectSameTree(doc.getDocumentElement(), back.getDocumentElement());
    MOXIDOM_Element a = back.getDocumentElement()
                            .getFirstChildElement(SOAP_ENV, "Body")
                            .getFirstChildElement(CALC, "add")
                            .getFirstChildElement(CALC, "a");
    EXPECT_EQ("xsd:int", a.getAttributeNS(XSI, "type"));
    EXPECT_EQ("1", a.getTextContent());

    // A document is written with the declaration and parses to the same tree.
    doc.appendChild(doc.createComment(" after the root "));
    const std::string whole = MOXIDOM_Helper::toString(doc);
    EXPECT_EQ(0u, whole.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<soapenv:Envelope")) << whole;
    expectSameTree(doc, MOXIDOM_Document::parseString(whole));
}

TEST(DomBuild, MarkupCharactersAreEscapedAndTextRoundTripsAsUtf8) {
    const std::string text = "a & b < c > d \"q\" 'x' ]]> tab\there\r\nnext";
    const std::string attr = "& < > \" ' tab\tcr\rlf\nend";
    MOXIDOM_Document doc;
    MOXIDOM_Element e = doc.createElement("e");
    doc.appendChild(e);
    e.setAttribute("v", attr);
    e.appendText(text);

    const std::string xml = MOXIDOM_Helper::toString(e);
    EXPECT_EQ(
        "<e v=\"&amp; &lt; &gt; &quot; ' tab&#9;cr&#13;lf&#10;end\">"
        "a &amp; b &lt; c &gt; d \"q\" 'x' ]]&gt; tab\there&#13;\nnext</e>",
        xml);

    MOXIDOM_Element back = MOXIDOM_Document::parseString(xml).getDocumentElement();
    EXPECT_EQ(attr, back.getAttribute("v"));
    EXPECT_EQ(text, back.getTextContent());

    // Non-ASCII text and names are written as UTF-8 bytes, not as references.
    const std::string utf8 = "Gr\xc3\xbc\xc3\x9f" "e \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80 \xe2\x82\xac";
    MOXIDOM_Element u = doc.createElementNS("urn:\xc3\xa9t\xc3\xa9", "Stra\xc3\x9f" "e");
    u.setAttribute("w\xc3\xa4hrung", "\xe2\x82\xac");
    u.appendText(utf8);
    const std::string uxml = MOXIDOM_Helper::toString(u);
    EXPECT_NE(std::string::npos, uxml.find(utf8)) << uxml;
    MOXIDOM_Element uback = MOXIDOM_Document::parseString(uxml).getDocumentElement();
    EXPECT_EQ("Stra\xc3\x9f" "e", uback.getLocalName());
    EXPECT_EQ("urn:\xc3\xa9t\xc3\xa9", uback.getNamespaceURI());
    EXPECT_EQ("\xe2\x82\xac", uback.getAttribute("w\xc3\xa4hrung"));
    EXPECT_EQ(utf8, uback.getTextContent());
}

TEST(DomBuild, CharactersXmlCannotCarryAreRefused) {
    MOXIDOM_Document doc;
    MOXIDOM_Element e = doc.createElement("e");
    doc.appendChild(e);
    for (const std::string& bad : {std::string("bell\x07"), std::string("nul\0x", 5), std::string("esc\x1b")}) {
        try {
            e.appendText(bad);
            ADD_FAILURE() << "accepted a control character";
        } catch (const MOXIDOM_DOMException& ex) {
            EXPECT_EQ(MOXIDOM_DOMException::INVALID_CHARACTER_ERR, ex.getCode());
        }
        EXPECT_THROW(e.setAttribute("a", bad), MOXIDOM_DOMException);
    }
    // Text that is not UTF-8 is refused as well.
    EXPECT_THROW(e.setTextContent("caf\xe9"), MOXIDOM_DOMException);

    // Nodes made through Xerces directly are checked when written.
    auto* xdoc = static_cast<XERCES_CPP_NAMESPACE::DOMDocument*>(doc.getDOMNode());
    const XMLCh bell[] = {u'a', 0x07, 0};
    e.getDOMNode()->appendChild(xdoc->createTextNode(bell));
    try {
        MOXIDOM_Helper::toString(e);
        ADD_FAILURE() << "wrote a control character";
    } catch (const MOXIDOM_DOMException& ex) {
        EXPECT_EQ(MOXIDOM_DOMException::INVALID_CHARACTER_ERR, ex.getCode());
        EXPECT_NE(std::string::npos, std::string(ex.what()).find("U+0007")) << ex.what();
    }
}

TEST(DomBuild, NamespacesOfCreatedNodesAreDeclaredWhereNeeded) {
    MOXIDOM_Document doc;
    MOXIDOM_Element root = doc.createElementNS("urn:a", "p:root");
    doc.appendChild(root);
    // The same prefix for another namespace further down.
    MOXIDOM_Element rebound = root.appendElementNS("urn:b", "p:rebound");
    rebound.appendElementNS("urn:a", "p:back");
    // A default namespace, and an element in no namespace inside it.
    MOXIDOM_Element dflt = root.appendElementNS("urn:d", "dflt");
    dflt.appendElementNS("urn:d", "inner");
    dflt.appendElementNS("", "plain");
    // Attributes: namespaced without prefix, with the element's prefix for
    // another namespace, and two attributes wanting one prefix for two namespaces.
    MOXIDOM_Element attrs = root.appendElementNS("urn:a", "p:attrs");
    attrs.setAttributeNS("urn:x", "unprefixed", "1");
    attrs.setAttributeNS("urn:y", "p:clash", "2");
    attrs.setAttributeNS("urn:z1", "q:one", "3");
    attrs.setAttributeNS("urn:z2", "q:two", "4");
    attrs.setAttribute("local", "5");
    // xml:lang needs no declaration at all.
    attrs.setAttributeNS("http://www.w3.org/XML/1998/namespace", "xml:lang", "en");

    const std::string xml = MOXIDOM_Helper::toString(root);
    EXPECT_EQ(std::string::npos, xml.find("xmlns:xml")) << xml;
    EXPECT_NE(std::string::npos, xml.find("<plain xmlns=\"\"/>")) << xml;
    MOXIDOM_Document back = MOXIDOM_Document::parseString(xml);
    expectSameTree(root, back.getDocumentElement());

    MOXIDOM_Element backAttrs = back.getDocumentElement().getFirstChildElement("urn:a", "attrs");
    EXPECT_EQ("1", backAttrs.getAttributeNS("urn:x", "unprefixed"));
    EXPECT_EQ("2", backAttrs.getAttributeNS("urn:y", "clash"));
    EXPECT_EQ("3", backAttrs.getAttributeNS("urn:z1", "one"));
    EXPECT_EQ("4", backAttrs.getAttributeNS("urn:z2", "two"));
    EXPECT_EQ("5", backAttrs.getAttributeNS("", "local"));
    EXPECT_EQ("en", backAttrs.getAttribute("xml:lang"));
}

TEST(DomBuild, WritingAnElementAloneKeepsTheDeclarationsAboveIt) {
    MOXIDOM_Document doc = MOXIDOM_Document::parseString(
        "<s:Envelope xmlns:s='http://schemas.xmlsoap.org/soap/envelope/' xmlns:xsd='http://www.w3.org/2001/XMLSchema'"
        " xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xmlns='urn:default'>"
        "<s:Body><r xsi:type='xsd:string'>x</r></s:Body></s:Envelope>");
    MOXIDOM_Element body = doc.getDocumentElement().getFirstChildElement(SOAP_ENV, "Body");
    const std::string xml = MOXIDOM_Helper::toString(body);

    MOXIDOM_Element back = MOXIDOM_Document::parseString(xml).getDocumentElement();
    expectSameTree(body, back);
    EXPECT_EQ("urn:default", back.getFirstChildElement().getNamespaceURI());
    // The prefix inside the attribute value still resolves.
    EXPECT_NE(std::string::npos, xml.find("xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"")) << xml;
}

TEST(DomBuild, CommentsProcessingInstructionsAndCDataAreKept) {
    MOXIDOM_Document doc;
    MOXIDOM_Element e = doc.createElement("e");
    doc.appendChild(e);
    e.appendChild(doc.createComment(" note "));
    e.appendChild(doc.createProcessingInstruction("app", "do=\"this\""));
    e.appendChild(doc.createCDATASection("<raw> & ]]> end"));

    const std::string xml = MOXIDOM_Helper::toString(e);
    EXPECT_EQ("<e><!-- note --><?app do=\"this\"?><![CDATA[<raw> & ]]]]><![CDATA[> end]]></e>", xml);
    MOXIDOM_Element back = MOXIDOM_Document::parseString(xml).getDocumentElement();
    EXPECT_EQ(MOXIDOM_Node::COMMENT_NODE, back.getFirstChild().getNodeType());
    EXPECT_EQ(MOXIDOM_Node::PROCESSING_INSTRUCTION_NODE, back.getFirstChild().getNextSibling().getNodeType());
    EXPECT_EQ("<raw> & ]]> end", back.getTextContent());

    e.appendChild(doc.createComment("a -- b"));
    try {
        MOXIDOM_Helper::toString(e);
        ADD_FAILURE() << "wrote a comment that cannot be parsed";
    } catch (const MOXIDOM_DOMException& ex) {
        EXPECT_EQ(MOXIDOM_DOMException::SYNTAX_ERR, ex.getCode());
    }
}

TEST(DomBuild, BadTreeOperationsRaiseDomExceptions) {
    MOXIDOM_Document doc;
    auto codeOf = [](auto&& operation) {
        try {
            operation();
        } catch (const MOXIDOM_DOMException& e) {
            return e.getCode();
        }
        return 0;
    };
    EXPECT_EQ(MOXIDOM_DOMException::INVALID_CHARACTER_ERR, codeOf([&] { doc.createElementNS("urn:a", "1st"); }));
    EXPECT_EQ(MOXIDOM_DOMException::NAMESPACE_ERR, codeOf([&] { doc.createElementNS("", "p:x"); }));
    MOXIDOM_Element root = doc.createElement("root");
    doc.appendChild(root);
    EXPECT_EQ(MOXIDOM_DOMException::NAMESPACE_ERR, codeOf([&] { root.setAttribute("p:x", "1"); }));
    EXPECT_EQ(MOXIDOM_DOMException::HIERARCHY_REQUEST_ERR,
              codeOf([&] { doc.appendChild(doc.createElement("second")); }));
    // A document cannot go under an element.
    EXPECT_NE(0, codeOf([&] { root.appendChild(doc); }));
    MOXIDOM_Node absent;
    EXPECT_EQ(MOXIDOM_DOMException::INVALID_STATE_ERR,
              codeOf([&] { MOXIDOM_Helper::appendChild(absent, root); }));
    EXPECT_EQ(MOXIDOM_DOMException::INVALID_STATE_ERR,
              codeOf([&] { MOXIDOM_Helper::appendChild(root, absent); }));
    EXPECT_EQ(MOXIDOM_DOMException::NOT_FOUND_ERR, codeOf([&] { root.removeChild(doc.createElement("stray")); }));
}

TEST(DomBuild, WalkingAndReadingATree) {
    MOXIDOM_Document doc = MOXIDOM_Document::parseString(
        "<r xmlns='urn:r' xmlns:o='urn:o' id='7'>lead<a>1</a><!--c--><o:a>2</o:a><b>3<a>4</a></b></r>");
    MOXIDOM_Element r = doc.getDocumentElement();
    EXPECT_EQ("7", r.getAttribute("id"));
    EXPECT_TRUE(r.hasAttribute("id"));
    EXPECT_FALSE(r.hasAttribute("missing"));
    EXPECT_EQ("", r.getAttribute("missing"));
    EXPECT_EQ("lead1234", r.getTextContent());

    EXPECT_EQ(3u, r.getChildElements().size());
    EXPECT_EQ(2u, r.getChildElements("*", "a").size());
    EXPECT_EQ("2", r.getFirstChildElement("urn:o", "a").getTextContent());
    EXPECT_EQ("b", r.getFirstChildElement("urn:r", "a").getNextSiblingElement("urn:r", "*").getLocalName());
    EXPECT_TRUE(r.getFirstChildElement("urn:none", "a") == NULL);

    MOXIDOM_Node first = r.getFirstChild();
    EXPECT_EQ(MOXIDOM_Node::TEXT_NODE, first.getNodeType());
    EXPECT_EQ("#text", first.getNodeName());
    EXPECT_TRUE(first.getParentNode() == r);
    EXPECT_TRUE(first.getPreviousSibling() == NULL);
    EXPECT_TRUE(r.getLastChild().getPreviousSibling().getPreviousSibling().getNodeType() ==
                MOXIDOM_Node::COMMENT_NODE);
    EXPECT_EQ("o", r.getFirstChildElement("urn:o", "a").getPrefix());
    EXPECT_TRUE(r.getOwnerDocument() == doc);

    // A null handle reads as empty all the way down.
    MOXIDOM_Node none = r.getFirstChildElement("urn:none", "x").getFirstChild().getNextSibling();
    EXPECT_TRUE(none == NULL);
    EXPECT_TRUE(none.isNull());
    EXPECT_EQ("", none.getNodeName());
    EXPECT_EQ("", none.getTextContent());

    r.setTextContent("only");
    EXPECT_EQ("<r xmlns=\"urn:r\" xmlns:o=\"urn:o\" id=\"7\">only</r>", MOXIDOM_Helper::toString(r));
}

}  // namespace
