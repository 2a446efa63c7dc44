#include "moxidom/MOXIDOM_Element.h"

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "MOXIDOM_DomCall.h"
#include "MOXIDOM_Transcoder.h"

XERCES_CPP_NAMESPACE_USE

namespace {
typedef MOXIDOM_Transcoder::XString XString;

DOMElement* element(DOMNode* node) { return static_cast<DOMElement*>(node); }

bool isNamespaceDeclaration(const XString& name) {
    static const XString xmlns(XMLUni::fgXMLNSString);
    return name == xmlns || (name.size() > xmlns.size() && name.compare(0, xmlns.size(), xmlns) == 0 &&
                             name[xmlns.size()] == u':');
}
}  // namespace

MOXIDOM_Element::MOXIDOM_Element(const MOXIDOM_Node& node) {
    if (node.isElement()) {
        m_owner = node.m_owner;
        m_node = node.m_node;
    }
}

MOXIDOM_Element::MOXIDOM_Element(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner, DOMNode* node)
    : MOXIDOM_Node(owner, node) {}

std::string MOXIDOM_Element::getAttribute(const std::string& name) const {
    if (m_node == nullptr) return std::string();
    return MOXIDOM_Transcoder::toUtf8(element(m_node)->getAttribute(MOXIDOM_Transcoder::fromUtf8(name).c_str()));
}

std::string MOXIDOM_Element::getAttributeNS(const std::string& namespaceURI, const std::string& localName) const {
    if (m_node == nullptr) return std::string();
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    return MOXIDOM_Transcoder::toUtf8(
        element(m_node)->getAttributeNS(MOXIDOM_DomCall::namespaceOrNull(ns), local.c_str()));
}

bool MOXIDOM_Element::hasAttribute(const std::string& name) const {
    return m_node != nullptr && element(m_node)->hasAttribute(MOXIDOM_Transcoder::fromUtf8(name).c_str());
}

bool MOXIDOM_Element::hasAttributeNS(const std::string& namespaceURI, const std::string& localName) const {
    if (m_node == nullptr) return false;
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    return element(m_node)->hasAttributeNS(MOXIDOM_DomCall::namespaceOrNull(ns), local.c_str());
}

std::vector<MOXIDOM_Node> MOXIDOM_Element::getAttributes() const {
    std::vector<MOXIDOM_Node> result;
    if (m_node == nullptr) return result;
    DOMNamedNodeMap* attributes = m_node->getAttributes();
    const XMLSize_t count = attributes != nullptr ? attributes->getLength() : 0;
    for (XMLSize_t i = 0; i < count; ++i) result.push_back(sibling(attributes->item(i)));
    return result;
}

void MOXIDOM_Element::setAttribute(const std::string& name, const std::string& value) {
    requireNode("MOXIDOM_Element::setAttribute");
    const XString n = MOXIDOM_Transcoder::fromUtf8(name);
    const XString v = MOXIDOM_Transcoder::fromUtf8Text(value);
    MOXIDOM_DomCall::run([&] {
        if (isNamespaceDeclaration(n)) {
            element(m_node)->setAttributeNS(XMLUni::fgXMLNSURIName, n.c_str(), v.c_str());
        } else if (n.find(u':') != XString::npos) {
            // Without a namespace URI the prefix would be bound to nothing.
            throw MOXIDOM_DOMException(MOXIDOM_DOMException::NAMESPACE_ERR,
                                       "MOXIDOM_Element::setAttribute: prefixed name '" + name +
                                           "' needs setAttributeNS");
        } else {
            element(m_node)->setAttributeNS(nullptr, n.c_str(), v.c_str());
        }
    });
}

void MOXIDOM_Element::setAttributeNS(const std::string& namespaceURI, const std::string& qualifiedName,
                                     const std::string& value) {
    requireNode("MOXIDOM_Element::setAttributeNS");
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString n = MOXIDOM_Transcoder::fromUtf8(qualifiedName);
    const XString v = MOXIDOM_Transcoder::fromUtf8Text(value);
    MOXIDOM_DomCall::run(
        [&] { element(m_node)->setAttributeNS(MOXIDOM_DomCall::namespaceOrNull(ns), n.c_str(), v.c_str()); });
}

void MOXIDOM_Element::removeAttribute(const std::string& name) {
    requireNode("MOXIDOM_Element::removeAttribute");
    const XString n = MOXIDOM_Transcoder::fromUtf8(name);
    MOXIDOM_DomCall::run([&] { element(m_node)->removeAttribute(n.c_str()); });
}

void MOXIDOM_Element::removeAttributeNS(const std::string& namespaceURI, const std::string& localName) {
    requireNode("MOXIDOM_Element::removeAttributeNS");
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    MOXIDOM_DomCall::run(
        [&] { element(m_node)->removeAttributeNS(MOXIDOM_DomCall::namespaceOrNull(ns), local.c_str()); });
}

MOXIDOM_Element MOXIDOM_Element::appendElementNS(const std::string& namespaceURI, const std::string& qualifiedName) {
    requireNode("MOXIDOM_Element::appendElementNS");
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString n = MOXIDOM_Transcoder::fromUtf8(qualifiedName);
    return MOXIDOM_DomCall::run([&] {
        DOMElement* child = m_node->getOwnerDocument()->createElementNS(MOXIDOM_DomCall::namespaceOrNull(ns), n.c_str());
        return MOXIDOM_Element(m_owner, m_node->appendChild(child));
    });
}

MOXIDOM_Node MOXIDOM_Element::appendText(const std::string& text) {
    requireNode("MOXIDOM_Element::appendText");
    const XString t = MOXIDOM_Transcoder::fromUtf8Text(text);
    return MOXIDOM_DomCall::run(
        [&] { return sibling(m_node->appendChild(m_node->getOwnerDocument()->createTextNode(t.c_str()))); });
}
