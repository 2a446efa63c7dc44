#ifndef MOXIDOM_MOXIDOM_NODE_H
#define MOXIDOM_MOXIDOM_NODE_H

#include <memory>
#include <string>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMNode;
XERCES_CPP_NAMESPACE_END

class MOXIDOM_Document;
class MOXIDOM_DocumentHolder;
class MOXIDOM_Element;

// A handle on one node of a document: cheap to copy, and a copy designates the
// same node. A handle keeps the whole document it belongs to alive, so it stays
// usable after every MOXIDOM_Document handle of that document is gone; the
// document is released when its last handle goes. A node taken out of its tree
// (removeChild) stays valid for as long as its document lives.
//
// A default-constructed handle is null: `node == NULL` and isNull() are true.
// On a null handle the reading operations answer empty strings and null
// handles, so walks need no checks at every step; changing operations throw
// MOXIDOM_DOMException with INVALID_STATE_ERR.
//
// Texts are UTF-8. An empty namespace URI means "no namespace".
// Documents are not synchronised: one thread at a time per document.
class MOXIDOM_Node {
public:
    // The W3C node type numbers.
    enum NodeType {
        ELEMENT_NODE = 1,
        ATTRIBUTE_NODE = 2,
        TEXT_NODE = 3,
        CDATA_SECTION_NODE = 4,
        ENTITY_REFERENCE_NODE = 5,
        ENTITY_NODE = 6,
        PROCESSING_INSTRUCTION_NODE = 7,
        COMMENT_NODE = 8,
        DOCUMENT_NODE = 9,
        DOCUMENT_TYPE_NODE = 10,
        DOCUMENT_FRAGMENT_NODE = 11,
        NOTATION_NODE = 12
    };

    MOXIDOM_Node();

    bool isNull() const { return m_node == nullptr; }
    // With a null pointer (`node == NULL`): whether this handle is null.
    // Otherwise: whether both designate the same node.
    bool operator==(const MOXIDOM_Node* other) const;
    bool operator!=(const MOXIDOM_Node* other) const { return !(*this == other); }
    // Same node (two null handles are equal).
    bool operator==(const MOXIDOM_Node& other) const { return m_node == other.m_node; }
    bool operator!=(const MOXIDOM_Node& other) const { return m_node != other.m_node; }

    // 0 for a null handle.
    int getNodeType() const;
    bool isElement() const { return getNodeType() == ELEMENT_NODE; }
    // The qualified name ("soap:Envelope"), or "#text", "#comment", "#document"...
    std::string getNodeName() const;
    // The local part of the name; empty for nodes without one (text, document).
    std::string getLocalName() const;
    std::string getPrefix() const;
    std::string getNamespaceURI() const;
    // The value of an attribute, text, CDATA, comment or processing instruction;
    // empty for elements and documents.
    std::string getNodeValue() const;
    // The text of the node and all its descendants (comments and processing
    // instructions left out); for attributes, text and the like their value.
    std::string getTextContent() const;
    // Replaces all children by one text node (none for an empty text); for
    // attributes, text and the like sets the value.
    void setTextContent(const std::string& text);

    MOXIDOM_Node getParentNode() const;
    MOXIDOM_Node getFirstChild() const;
    MOXIDOM_Node getLastChild() const;
    MOXIDOM_Node getNextSibling() const;
    MOXIDOM_Node getPreviousSibling() const;
    bool hasChildNodes() const;
    // The document this node belongs to (itself for a document).
    MOXIDOM_Document getOwnerDocument() const;

    // Child elements, skipping text, comments and the like. The two-argument
    // forms match the namespace URI ("" for none) and the local name; "*"
    // matches any namespace or any local name.
    MOXIDOM_Element getFirstChildElement() const;
    MOXIDOM_Element getFirstChildElement(const std::string& namespaceURI, const std::string& localName) const;
    MOXIDOM_Element getNextSiblingElement() const;
    MOXIDOM_Element getNextSiblingElement(const std::string& namespaceURI, const std::string& localName) const;
    std::vector<MOXIDOM_Element> getChildElements() const;
    std::vector<MOXIDOM_Element> getChildElements(const std::string& namespaceURI, const std::string& localName) const;

    // MOXIDOM_Helper::appendChild(*this, child): a node of another document is
    // copied in. Returns the appended node.
    MOXIDOM_Node appendChild(const MOXIDOM_Node& child);
    // Takes a child out of the tree; the returned handle stays valid.
    MOXIDOM_Node removeChild(const MOXIDOM_Node& child);

    // The underlying Xerces node, for what this interface does not offer; null
    // for a null handle. Valid while a handle on its document exists. Do not
    // release() it, and create handles only through this library.
    XERCES_CPP_NAMESPACE::DOMNode* getDOMNode() const { return m_node; }

protected:
    MOXIDOM_Node(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner, XERCES_CPP_NAMESPACE::DOMNode* node);
    // A handle on another node of the same document.
    MOXIDOM_Node sibling(XERCES_CPP_NAMESPACE::DOMNode* node) const;
    // Throws INVALID_STATE_ERR naming `operation` when this handle is null.
    void requireNode(const char* operation) const;

    std::shared_ptr<MOXIDOM_DocumentHolder> m_owner;
    XERCES_CPP_NAMESPACE::DOMNode* m_node;

    friend class MOXIDOM_Document;
    friend class MOXIDOM_Element;
    friend class MOXIDOM_Helper;
    friend class MOXIDOM_Parser;
};

// Handles come as a family: whoever includes one header can use what its
// operations return.
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"

#endif
