#ifndef MOXIDOM_MOXIDOM_XERCESPARSER_H
#define MOXIDOM_MOXIDOM_XERCESPARSER_H

#include <string>

#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>

// Xerces' DOM parser set up for messages from the network: namespaces on, no
// validation, no schema or XInclude processing, every DOCTYPE refused, every
// external entity left unresolved. It keeps the first error with its Xerces
// code, which the SAX error interface would lose.
class MOXIDOM_XercesParser : public XERCES_CPP_NAMESPACE::XercesDOMParser,
                             private XERCES_CPP_NAMESPACE::ErrorHandler {
public:
    MOXIDOM_XercesParser();

    bool failed() const { return m_failed; }
    int errorCode() const { return m_code; }
    int line() const { return m_line; }
    int column() const { return m_column; }
    const std::string& errorText() const { return m_text; }

    // Errors arrive here with their code; warnings are ignored.
    void error(const unsigned int errCode, const XMLCh* const msgDomain,
               const XERCES_CPP_NAMESPACE::XMLErrorReporter::ErrTypes errType, const XMLCh* const errorText,
               const XMLCh* const systemId, const XMLCh* const publicId, const XMLFileLoc lineNum,
               const XMLFileLoc colNum) override;
    // Called when "<!DOCTYPE" and its external id were read, before any
    // internal subset or external DTD: the scan stops here.
    void doctypeDecl(const XERCES_CPP_NAMESPACE::DTDElementDecl& elemDecl, const XMLCh* const publicId,
                     const XMLCh* const systemId, const bool hasIntSubset, const bool hasExtSubset) override;
    // Refuses every external entity, DTD and schema: nothing is opened.
    XERCES_CPP_NAMESPACE::InputSource* resolveEntity(
        XERCES_CPP_NAMESPACE::XMLResourceIdentifier* resourceIdentifier) override;

private:
    // Reporting goes through error() above; an error handler must be set for
    // Xerces to call it at all.
    void warning(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void error(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void fatalError(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void resetErrors() override {}

    bool m_failed;
    bool m_refusing_doctype;
    int m_code;
    int m_line;
    int m_column;
    std::string m_text;
};

#endif
