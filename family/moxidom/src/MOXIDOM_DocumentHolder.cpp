#include "MOXIDOM_DocumentHolder.h"

#include <xercesc/dom/DOMImplementation.hpp>
#include <xercesc/dom/DOMImplementationRegistry.hpp>

#include "MOXIDOM_Platform.h"

XERCES_CPP_NAMESPACE_USE

MOXIDOM_DocumentHolder::MOXIDOM_DocumentHolder(DOMDocument* document) : m_document(document) {}

MOXIDOM_DocumentHolder::~MOXIDOM_DocumentHolder() {
    if (m_document != nullptr) m_document->release();
}

std::shared_ptr<MOXIDOM_DocumentHolder> MOXIDOM_DocumentHolder::createEmpty() {
    MOXIDOM_Platform::ensureInitialized();
    static const XMLCh core[] = {u'C', u'o', u'r', u'e', 0};
    DOMImplementation* impl = DOMImplementationRegistry::getDOMImplementation(core);
    DOMDocument* document = impl->createDocument();
    try {
        return std::make_shared<MOXIDOM_DocumentHolder>(document);
    } catch (...) {
        document->release();
        throw;
    }
}
