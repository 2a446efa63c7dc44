#include "MOXIDOM_XercesParser.h"

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/validators/DTD/DTDElementDecl.hpp>

#include "MOXIDOM_Transcoder.h"

XERCES_CPP_NAMESPACE_USE

MOXIDOM_XercesParser::MOXIDOM_XercesParser(std::size_t maxDepth, DOMNode* target)
    : m_max_depth(maxDepth), m_target(target), m_depth(0), m_failed(false), m_code(0), m_line(0), m_column(0) {
    setDoNamespaces(true);
    setValidationScheme(Val_Never);
    setDoSchema(false);
    setLoadSchema(false);
    setLoadExternalDTD(false);
    setSkipDTDValidation(true);
    setDoXInclude(false);
    setDisableDefaultEntityResolution(true);
    setCreateEntityReferenceNodes(false);
    setExitOnFirstFatalError(true);
    setErrorHandler(this);
}

MOXIDOM_XercesParser::~MOXIDOM_XercesParser() {
    // The target's document belongs to its handles, never to the parser.
    if (m_target != nullptr) adoptDocument();
}

void MOXIDOM_XercesParser::error(const unsigned int errCode, const XMLCh* const,
                                 const XMLErrorReporter::ErrTypes errType, const XMLCh* const errorText,
                                 const XMLCh* const, const XMLCh* const, const XMLFileLoc lineNum,
                                 const XMLFileLoc colNum) {
    if (errType == XMLErrorReporter::ErrType_Warning || m_failed) return;
    m_failed = true;
    m_code = static_cast<int>(errCode);
    m_line = static_cast<int>(lineNum);
    m_column = static_cast<int>(colNum);
    m_text = !m_refusal.empty() ? m_refusal : MOXIDOM_Transcoder::toUtf8(errorText);
}

void MOXIDOM_XercesParser::refuse(const std::string& text) {
    m_refusal = text;
    getScanner()->emitError(XMLErrs::InvalidDocumentStructure);
    // emitError ends the scan by throwing; should it ever return, end it the same way.
    throw XMLErrs::InvalidDocumentStructure;
}

void MOXIDOM_XercesParser::doctypeDecl(const DTDElementDecl&, const XMLCh* const, const XMLCh* const, const bool,
                                       const bool) {
    // A SOAP message carries no DTD, and a DTD is where entity tricks (file
    // disclosure, expansion bombs) live: stop before any of it is read.
    refuse("document type declaration (DOCTYPE) not allowed");
}

InputSource* MOXIDOM_XercesParser::resolveEntity(XMLResourceIdentifier*) { return nullptr; }

void MOXIDOM_XercesParser::startDocument() {
    if (m_target == nullptr) {
        XercesDOMParser::startDocument();
        return;
    }
    // Build in the target's document, under the target; the document's own
    // settings (URI, encoding, error checking) stay as its owner left them.
    setDocument(m_target->getNodeType() == DOMNode::DOCUMENT_NODE ? static_cast<DOMDocument*>(m_target)
                                                                   : m_target->getOwnerDocument());
    fCurrentParent = m_target;
    fCurrentNode = m_target;
}

void MOXIDOM_XercesParser::endDocument() {
    if (m_target == nullptr) XercesDOMParser::endDocument();
}

void MOXIDOM_XercesParser::XMLDecl(const XMLCh* const version, const XMLCh* const encoding,
                                   const XMLCh* const standalone, const XMLCh* const actualEncoding) {
    if (m_target == nullptr) XercesDOMParser::XMLDecl(version, encoding, standalone, actualEncoding);
}

void MOXIDOM_XercesParser::startElement(const XMLElementDecl& elemDecl, const unsigned int urlId,
                                        const XMLCh* const elemPrefix, const RefVectorOf<XMLAttr>& attrList,
                                        const XMLSize_t attrCount, const bool isEmpty, const bool isRoot) {
    // Refused before the element is built: the scanner's own cost per level
    // grows with the depth, so a deep document must stop early.
    ++m_depth;
    if (m_max_depth != 0 && m_depth > m_max_depth)
        refuse("elements nested deeper than " + std::to_string(m_max_depth) + " levels");
    XercesDOMParser::startElement(elemDecl, urlId, elemPrefix, attrList, attrCount, isEmpty, isRoot);
}

void MOXIDOM_XercesParser::endElement(const XMLElementDecl& elemDecl, const unsigned int urlId, const bool isRoot,
                                      const XMLCh* const elemPrefix) {
    --m_depth;
    XercesDOMParser::endElement(elemDecl, urlId, isRoot, elemPrefix);
    // Past the root element: what follows is outside the content.
    if (outsideRoot()) fWithinElement = false;
}

void MOXIDOM_XercesParser::docComment(const XMLCh* const comment) {
    if (!outsideRoot()) XercesDOMParser::docComment(comment);
}

void MOXIDOM_XercesParser::docPI(const XMLCh* const target, const XMLCh* const data) {
    if (!outsideRoot()) XercesDOMParser::docPI(target, data);
}
