#ifndef MOXIDOM_MOXIDOM_IMPORT_H
#define MOXIDOM_MOXIDOM_IMPORT_H

#include <xercesc/dom/DOMDocument.hpp>

// A copy of a node of another document, owned by `document`, in no tree yet.
// Deep copies walk the subtree by its links, one node at a time, instead of
// Xerces' recursive importNode: a tree of any depth is copied without
// exhausting the stack. Raises Xerces' DOMException like importNode.
XERCES_CPP_NAMESPACE::DOMNode* moxidomImport(XERCES_CPP_NAMESPACE::DOMDocument* document,
                                             const XERCES_CPP_NAMESPACE::DOMNode* source, bool deep);

#endif
