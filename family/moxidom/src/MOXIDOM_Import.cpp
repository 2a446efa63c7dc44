#include "MOXIDOM_Import.h"

XERCES_CPP_NAMESPACE_USE

namespace {
// Whether the children of a node are copied with it. An attribute's value and
// an entity reference's content come with the node itself.
bool hasOwnChildren(const DOMNode* node) {
    const short type = node->getNodeType();
    return type == DOMNode::ELEMENT_NODE || type == DOMNode::DOCUMENT_FRAGMENT_NODE;
}
}  // namespace

DOMNode* moxidomImport(DOMDocument* document, const DOMNode* source, bool deep) {
    DOMNode* root = document->importNode(source, false);
    if (!deep || !hasOwnChildren(source)) return root;
    // Document order through the source; `into` stays the copy of the current parent.
    DOMNode* into = root;
    const DOMNode* from = source->getFirstChild();
    while (from != nullptr) {
        DOMNode* copy = into->appendChild(document->importNode(from, false));
        if (hasOwnChildren(from) && from->getFirstChild() != nullptr) {
            into = copy;
            from = from->getFirstChild();
            continue;
        }
        while (from != source && from->getNextSibling() == nullptr) {
            from = from->getParentNode();
            into = into->getParentNode();
        }
        if (from == source) break;
        from = from->getNextSibling();
    }
    return root;
}
