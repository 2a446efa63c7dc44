#include "moxidom/MOXIDOM_Helper.h"

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "MOXIDOM_DomCall.h"
#include "MOXIDOM_Import.h"
#include "MOXIDOM_Serializer.h"
#include "MOXIDOM_StringWriter.h"

XERCES_CPP_NAMESPACE_USE

MOXIDOM_Node MOXIDOM_Helper::appendChild(MOXIDOM_Node parent, MOXIDOM_Node child) {
    parent.requireNode("MOXIDOM_Helper::appendChild (parent)");
    if (child.m_node == nullptr) MOXIDOM_DomCall::nullHandle("MOXIDOM_Helper::appendChild (child)");
    return MOXIDOM_DomCall::run([&] {
        DOMNode* target = parent.m_node;
        DOMDocument* document = target->getNodeType() == DOMNode::DOCUMENT_NODE
                                    ? static_cast<DOMDocument*>(target)
                                    : target->getOwnerDocument();
        DOMNode* node = child.m_node;
        // A node of another document is copied, because a node cannot outlive
        // its own document's memory; the copy belongs to the parent's document.
        if (node->getOwnerDocument() != document) node = moxidomImport(document, node, true);
        return parent.sibling(target->appendChild(node));
    });
}

void MOXIDOM_Helper::write(MOXIDOM_Node node, DomWriter& writer) {
    if (node.m_node == nullptr) return;
    MOXIDOM_Serializer serializer(writer);
    serializer.write(node.m_node);
}

std::string MOXIDOM_Helper::toString(MOXIDOM_Node node) {
    std::string result;
    MOXIDOM_StringWriter writer(result);
    write(node, writer);
    return result;
}
