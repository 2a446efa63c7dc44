#include "moxidom/MOXIDOM_Node.h"

#include <xercesc/dom/DOM.hpp>

#include "MOXIDOM_DocumentHolder.h"
#include "MOXIDOM_DomCall.h"
#include "MOXIDOM_Transcoder.h"
#include "moxidom/MOXIDOM_Helper.h"

XERCES_CPP_NAMESPACE_USE

namespace {
typedef MOXIDOM_Transcoder::XString XString;

const XString kAny(1, u'*');

bool sameText(const XMLCh* a, const XString& b) {
    if (a == nullptr) return b.empty();
    return b.compare(a) == 0;
}

// Whether n is an element matching a namespace URI and local name, "*" being a wildcard.
bool matches(const DOMNode* n, const XString* ns, const XString* local) {
    if (n->getNodeType() != DOMNode::ELEMENT_NODE) return false;
    if (ns == nullptr) return true;
    if (*ns != kAny && !sameText(n->getNamespaceURI(), *ns)) return false;
    if (*local == kAny) return true;
    const XMLCh* name = n->getLocalName();
    return sameText(name != nullptr ? name : n->getNodeName(), *local);
}

DOMNode* nextMatch(DOMNode* n, const XString* ns, const XString* local) {
    while (n != nullptr && !matches(n, ns, local)) n = n->getNextSibling();
    return n;
}

// Text of the descendants in document order, iteratively, so deep trees cannot exhaust the stack.
void collectText(const DOMNode* root, XString& out) {
    const DOMNode* n = root->getFirstChild();
    while (n != nullptr) {
        const short type = n->getNodeType();
        if (type == DOMNode::TEXT_NODE || type == DOMNode::CDATA_SECTION_NODE) {
            if (n->getNodeValue() != nullptr) out += n->getNodeValue();
        } else if ((type == DOMNode::ELEMENT_NODE || type == DOMNode::ENTITY_REFERENCE_NODE) &&
                   n->getFirstChild() != nullptr) {
            n = n->getFirstChild();
            continue;
        }
        while (n != root && n->getNextSibling() == nullptr) n = n->getParentNode();
        if (n == root) break;
        n = n->getNextSibling();
    }
}
}  // namespace

MOXIDOM_Node::MOXIDOM_Node() : m_node(nullptr) {}

MOXIDOM_Node::MOXIDOM_Node(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner, DOMNode* node)
    : m_owner(node != nullptr ? owner : nullptr), m_node(node) {}

MOXIDOM_Node MOXIDOM_Node::sibling(DOMNode* node) const { return MOXIDOM_Node(m_owner, node); }

void MOXIDOM_Node::requireNode(const char* operation) const {
    if (m_node == nullptr) MOXIDOM_DomCall::nullHandle(operation);
}

bool MOXIDOM_Node::operator==(const MOXIDOM_Node* other) const {
    if (other == nullptr) return m_node == nullptr;
    return m_node == other->m_node;
}

int MOXIDOM_Node::getNodeType() const { return m_node != nullptr ? m_node->getNodeType() : 0; }

std::string MOXIDOM_Node::getNodeName() const {
    return m_node != nullptr ? MOXIDOM_Transcoder::toUtf8(m_node->getNodeName()) : std::string();
}

std::string MOXIDOM_Node::getLocalName() const {
    return m_node != nullptr ? MOXIDOM_Transcoder::toUtf8(m_node->getLocalName()) : std::string();
}

std::string MOXIDOM_Node::getPrefix() const {
    return m_node != nullptr ? MOXIDOM_Transcoder::toUtf8(m_node->getPrefix()) : std::string();
}

std::string MOXIDOM_Node::getNamespaceURI() const {
    return m_node != nullptr ? MOXIDOM_Transcoder::toUtf8(m_node->getNamespaceURI()) : std::string();
}

std::string MOXIDOM_Node::getNodeValue() const {
    return m_node != nullptr ? MOXIDOM_Transcoder::toUtf8(m_node->getNodeValue()) : std::string();
}

std::string MOXIDOM_Node::getTextContent() const {
    if (m_node == nullptr) return std::string();
    switch (m_node->getNodeType()) {
        case DOMNode::ELEMENT_NODE:
        case DOMNode::DOCUMENT_NODE:
        case DOMNode::DOCUMENT_FRAGMENT_NODE:
        case DOMNode::ENTITY_REFERENCE_NODE: {
            // Xerces' own getTextContent allocates in the document's memory at every call.
            XString text;
            collectText(m_node, text);
            return MOXIDOM_Transcoder::toUtf8(text.data(), text.size());
        }
        default:
            return getNodeValue();
    }
}

void MOXIDOM_Node::setTextContent(const std::string& text) {
    requireNode("MOXIDOM_Node::setTextContent");
    const XString value = MOXIDOM_Transcoder::fromUtf8Text(text);
    MOXIDOM_DomCall::run([&] {
        switch (m_node->getNodeType()) {
            case DOMNode::ELEMENT_NODE:
            case DOMNode::DOCUMENT_FRAGMENT_NODE: {
                while (m_node->getFirstChild() != nullptr) m_node->removeChild(m_node->getFirstChild());
                if (!value.empty()) m_node->appendChild(m_node->getOwnerDocument()->createTextNode(value.c_str()));
                break;
            }
            case DOMNode::DOCUMENT_NODE:
                throw MOXIDOM_DOMException(MOXIDOM_DOMException::NO_MODIFICATION_ALLOWED_ERR,
                                           "MOXIDOM_Node::setTextContent: a document holds no text");
            default:
                m_node->setNodeValue(value.c_str());
        }
    });
}

MOXIDOM_Node MOXIDOM_Node::getParentNode() const {
    return m_node != nullptr ? sibling(m_node->getParentNode()) : MOXIDOM_Node();
}

MOXIDOM_Node MOXIDOM_Node::getFirstChild() const {
    return m_node != nullptr ? sibling(m_node->getFirstChild()) : MOXIDOM_Node();
}

MOXIDOM_Node MOXIDOM_Node::getLastChild() const {
    return m_node != nullptr ? sibling(m_node->getLastChild()) : MOXIDOM_Node();
}

MOXIDOM_Node MOXIDOM_Node::getNextSibling() const {
    return m_node != nullptr ? sibling(m_node->getNextSibling()) : MOXIDOM_Node();
}

MOXIDOM_Node MOXIDOM_Node::getPreviousSibling() const {
    return m_node != nullptr ? sibling(m_node->getPreviousSibling()) : MOXIDOM_Node();
}

bool MOXIDOM_Node::hasChildNodes() const { return m_node != nullptr && m_node->hasChildNodes(); }

MOXIDOM_Document MOXIDOM_Node::getOwnerDocument() const {
    if (m_node == nullptr) return MOXIDOM_Document(MOXIDOM_Document::NullTag());
    return MOXIDOM_Document(m_owner);
}

MOXIDOM_Element MOXIDOM_Node::getFirstChildElement() const {
    if (m_node == nullptr) return MOXIDOM_Element();
    return MOXIDOM_Element(m_owner, nextMatch(m_node->getFirstChild(), nullptr, nullptr));
}

MOXIDOM_Element MOXIDOM_Node::getFirstChildElement(const std::string& namespaceURI,
                                                   const std::string& localName) const {
    if (m_node == nullptr) return MOXIDOM_Element();
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    return MOXIDOM_Element(m_owner, nextMatch(m_node->getFirstChild(), &ns, &local));
}

MOXIDOM_Element MOXIDOM_Node::getNextSiblingElement() const {
    if (m_node == nullptr) return MOXIDOM_Element();
    return MOXIDOM_Element(m_owner, nextMatch(m_node->getNextSibling(), nullptr, nullptr));
}

MOXIDOM_Element MOXIDOM_Node::getNextSiblingElement(const std::string& namespaceURI,
                                                    const std::string& localName) const {
    if (m_node == nullptr) return MOXIDOM_Element();
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    return MOXIDOM_Element(m_owner, nextMatch(m_node->getNextSibling(), &ns, &local));
}

std::vector<MOXIDOM_Element> MOXIDOM_Node::getChildElements() const {
    std::vector<MOXIDOM_Element> result;
    if (m_node == nullptr) return result;
    for (DOMNode* n = nextMatch(m_node->getFirstChild(), nullptr, nullptr); n != nullptr;
         n = nextMatch(n->getNextSibling(), nullptr, nullptr))
        result.push_back(MOXIDOM_Element(m_owner, n));
    return result;
}

std::vector<MOXIDOM_Element> MOXIDOM_Node::getChildElements(const std::string& namespaceURI,
                                                            const std::string& localName) const {
    std::vector<MOXIDOM_Element> result;
    if (m_node == nullptr) return result;
    const XString ns = MOXIDOM_Transcoder::fromUtf8(namespaceURI);
    const XString local = MOXIDOM_Transcoder::fromUtf8(localName);
    for (DOMNode* n = nextMatch(m_node->getFirstChild(), &ns, &local); n != nullptr;
         n = nextMatch(n->getNextSibling(), &ns, &local))
        result.push_back(MOXIDOM_Element(m_owner, n));
    return result;
}

MOXIDOM_Node MOXIDOM_Node::appendChild(const MOXIDOM_Node& child) { return MOXIDOM_Helper::appendChild(*this, child); }

MOXIDOM_Node MOXIDOM_Node::removeChild(const MOXIDOM_Node& child) {
    requireNode("MOXIDOM_Node::removeChild");
    if (child.m_node == nullptr) MOXIDOM_DomCall::nullHandle("MOXIDOM_Node::removeChild (child)");
    return sibling(MOXIDOM_DomCall::run([&] { return m_node->removeChild(child.m_node); }));
}
