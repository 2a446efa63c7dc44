#ifndef MOXIDOM_MOXIDOM_ELEMENT_H
#define MOXIDOM_MOXIDOM_ELEMENT_H

#include <string>
#include <vector>

#include "moxidom/MOXIDOM_Node.h"

// A handle on an element (see MOXIDOM_Node for lifetimes and null handles).
//
// Names are namespace-aware. Namespace declarations need not be added by hand:
// MOXIDOM_Helper::write declares every namespace that element and attribute
// names use. Explicit "xmlns" attributes are kept as they are.
class MOXIDOM_Element : public MOXIDOM_Node {
public:
    // A null handle.
    MOXIDOM_Element() = default;
    // The same node when it is an element, otherwise a null handle.
    explicit MOXIDOM_Element(const MOXIDOM_Node& node);

    std::string getTagName() const { return getNodeName(); }

    // Attribute values by qualified name, or by namespace URI ("" for none) and
    // local name; empty when absent.
    std::string getAttribute(const std::string& name) const;
    std::string getAttributeNS(const std::string& namespaceURI, const std::string& localName) const;
    bool hasAttribute(const std::string& name) const;
    bool hasAttributeNS(const std::string& namespaceURI, const std::string& localName) const;
    // The attribute nodes, namespace declarations included, in document order
    // for a parsed element. Read them with getNodeName, getLocalName,
    // getNamespaceURI and getNodeValue.
    std::vector<MOXIDOM_Node> getAttributes() const;

    // An attribute in no namespace ("id"), or a namespace declaration ("xmlns",
    // "xmlns:p"); any other prefixed name needs setAttributeNS (NAMESPACE_ERR).
    void setAttribute(const std::string& name, const std::string& value);
    // An attribute in a namespace: setAttributeNS(XSI, "xsi:type", "xsd:string").
    void setAttributeNS(const std::string& namespaceURI, const std::string& qualifiedName,
                        const std::string& value);
    void removeAttribute(const std::string& name);
    void removeAttributeNS(const std::string& namespaceURI, const std::string& localName);

    // Creates an element in this element's document, appends it and returns it.
    MOXIDOM_Element appendElementNS(const std::string& namespaceURI, const std::string& qualifiedName);
    // Appends a text node and returns it.
    MOXIDOM_Node appendText(const std::string& text);

private:
    MOXIDOM_Element(const std::shared_ptr<MOXIDOM_DocumentHolder>& owner, XERCES_CPP_NAMESPACE::DOMNode* node);

    friend class MOXIDOM_Node;
    friend class MOXIDOM_Document;
};

#endif
