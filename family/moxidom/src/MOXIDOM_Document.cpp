#include "moxidom/MOXIDOM_Document.h"

#include <xercesc/dom/DOM.hpp>

#include "MOXIDOM_DocumentHolder.h"
#include "MOXIDOM_DomCall.h"
#include "MOXIDOM_Import.h"
#include "MOXIDOM_Transcoder.h"
#include "moxidom/MOXIDOM_ParseException.h"
#include "moxidom/MOXIDOM_Parser.h"

XERCES_CPP_NAMESPACE_USE

namespace {
typedef MOXIDOM_Transcoder::XString XString;

DOMDocument* document(DOMNode* node) { return static_cast<DOMDocument*>(node); }
}  // namespace

MOXIDOM_Document::MOXIDOM_Document() {
    m_owner = MOXIDOM_DocumentHolder::createEmpty();
    m_node = m_owner->get();
}

MOXIDOM_Document::MOXIDOM_Document(NullTag) {}

MOXIDOM_Document::MOXIDOM_Document(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner)
    : MOXIDOM_Node(owner, owner->get()) {}

MOXIDOM_Document MOXIDOM_Document::parseString(const std::string& xml) {
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document result{NullTag()};
    if (!parser.parse(xml, result))
        throw MOXIDOM_ParseException(parser.getErrorCode(), parser.getCurrentLineNumber(),
                                     parser.getCurrentColumnNumber(), parser.errorString());
    return result;
}

DOMNode* MOXIDOM_Document::requireDocument(const char* operation) const {
    requireNode(operation);
    return m_node;
}

MOXIDOM_Element MOXIDOM_Document::getDocumentElement() const {
    if (m_node == nullptr) return MOXIDOM_Element();
    return MOXIDOM_Element(m_owner, document(m_node)->getDocumentElement());
}

MOXIDOM_Element MOXIDOM_Document::createElementNS(const std::string& namespaceURI, const std::string& qualifiedName) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::createElementNS"));
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString n = MOXIDOM_Transcoder::fromUtf8(qualifiedName);
    return MOXIDOM_DomCall::run(
        [&] { return MOXIDOM_Element(m_owner, doc->createElementNS(MOXIDOM_DomCall::namespaceOrNull(ns), n.c_str())); });
}

MOXIDOM_Element MOXIDOM_Document::createElement(const std::string& name) {
    // Namespace-aware even without a namespace, so that getLocalName works alike for all elements.
    return createElementNS(std::string(), name);
}

MOXIDOM_Node MOXIDOM_Document::createTextNode(const std::string& text) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::createTextNode"));
    const XString t = MOXIDOM_Transcoder::fromUtf8Text(text);
    return MOXIDOM_DomCall::run([&] { return sibling(doc->createTextNode(t.c_str())); });
}

MOXIDOM_Node MOXIDOM_Document::createCDATASection(const std::string& text) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::createCDATASection"));
    const XString t = MOXIDOM_Transcoder::fromUtf8Text(text);
    return MOXIDOM_DomCall::run([&] { return sibling(doc->createCDATASection(t.c_str())); });
}

MOXIDOM_Node MOXIDOM_Document::createComment(const std::string& text) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::createComment"));
    const XString t = MOXIDOM_Transcoder::fromUtf8Text(text);
    return MOXIDOM_DomCall::run([&] { return sibling(doc->createComment(t.c_str())); });
}

MOXIDOM_Node MOXIDOM_Document::createProcessingInstruction(const std::string& target, const std::string& data) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::createProcessingInstruction"));
    const XString t = MOXIDOM_Transcoder::fromUtf8(target);
    const XString d = MOXIDOM_Transcoder::fromUtf8Text(data);
    return MOXIDOM_DomCall::run([&] { return sibling(doc->createProcessingInstruction(t.c_str(), d.c_str())); });
}

MOXIDOM_Node MOXIDOM_Document::importNode(const MOXIDOM_Node& node, bool deep) {
    DOMDocument* doc = document(requireDocument("MOXIDOM_Document::importNode"));
    if (node.m_node == nullptr) MOXIDOM_DomCall::nullHandle("MOXIDOM_Document::importNode (node)");
    return MOXIDOM_DomCall::run([&] { return sibling(moxidomImport(doc, node.m_node, deep)); });
}
