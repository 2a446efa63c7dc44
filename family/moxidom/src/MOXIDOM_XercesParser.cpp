#include "MOXIDOM_XercesParser.h"

#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/validators/DTD/DTDElementDecl.hpp>

#include "MOXIDOM_Transcoder.h"

XERCES_CPP_NAMESPACE_USE

MOXIDOM_XercesParser::MOXIDOM_XercesParser()
    : m_failed(false), m_refusing_doctype(false), m_code(0), m_line(0), m_column(0) {
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

void MOXIDOM_XercesParser::error(const unsigned int errCode, const XMLCh* const,
                                 const XMLErrorReporter::ErrTypes errType, const XMLCh* const errorText,
                                 const XMLCh* const, const XMLCh* const, const XMLFileLoc lineNum,
                                 const XMLFileLoc colNum) {
    if (errType == XMLErrorReporter::ErrType_Warning || m_failed) return;
    m_failed = true;
    m_code = static_cast<int>(errCode);
    m_line = static_cast<int>(lineNum);
    m_column = static_cast<int>(colNum);
    m_text = m_refusing_doctype ? "document type declaration (DOCTYPE) not allowed"
                                : MOXIDOM_Transcoder::toUtf8(errorText);
}

void MOXIDOM_XercesParser::doctypeDecl(const DTDElementDecl&, const XMLCh* const, const XMLCh* const, const bool,
                                       const bool) {
    // A SOAP message carries no DTD, and a DTD is where entity tricks (file
    // disclosure, expansion bombs) live: stop before any of it is read.
    m_refusing_doctype = true;
    getScanner()->emitError(XMLErrs::InvalidDocumentStructure);
    // emitError ends the scan by throwing; should it ever return, end it the same way.
    throw XMLErrs::InvalidDocumentStructure;
}

InputSource* MOXIDOM_XercesParser::resolveEntity(XMLResourceIdentifier*) { return nullptr; }
