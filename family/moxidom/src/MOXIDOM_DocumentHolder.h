#ifndef MOXIDOM_MOXIDOM_DOCUMENTHOLDER_H
#define MOXIDOM_MOXIDOM_DOCUMENTHOLDER_H

#include <memory>

#include <xercesc/dom/DOMDocument.hpp>

// The one owner of a Xerces document, shared by every handle on the document
// or its nodes. Xerces keeps all nodes of a document in the document's memory,
// so releasing the document (and nothing else) frees them all.
class MOXIDOM_DocumentHolder {
public:
    // Takes the document over.
    explicit MOXIDOM_DocumentHolder(XERCES_CPP_NAMESPACE::DOMDocument* document);
    ~MOXIDOM_DocumentHolder();
    MOXIDOM_DocumentHolder(const MOXIDOM_DocumentHolder&) = delete;
    MOXIDOM_DocumentHolder& operator=(const MOXIDOM_DocumentHolder&) = delete;

    XERCES_CPP_NAMESPACE::DOMDocument* get() const { return m_document; }

    // A new document without any node.
    static std::shared_ptr<MOXIDOM_DocumentHolder> createEmpty();

private:
    XERCES_CPP_NAMESPACE::DOMDocument* m_document;
};

#endif
