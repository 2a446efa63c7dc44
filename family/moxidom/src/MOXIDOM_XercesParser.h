#ifndef MOXIDOM_MOXIDOM_XERCESPARSER_H
#define MOXIDOM_MOXIDOM_XERCESPARSER_H

#include <cstddef>
#include <string>

#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>

// Xerces' DOM parser set up for messages from the network: namespaces on, no
// validation, no schema or XInclude processing, every DOCTYPE refused, every
// external entity left unresolved, elements nested deeper than a bound
// refused. It keeps the first error with its Xerces code, which the SAX error
// interface would lose.
//
// With a target node it builds the document's root element straight under
// that node, in the target's document, instead of in a document of its own:
// the parsed tree never has to be copied. Anything outside the root element
// (comments, processing instructions) is left out then.
class MOXIDOM_XercesParser : public XERCES_CPP_NAMESPACE::XercesDOMParser,
                             private XERCES_CPP_NAMESPACE::ErrorHandler {
public:
    // maxDepth 0: no bound. target null: a document of the parser's own.
    MOXIDOM_XercesParser(std::size_t maxDepth, XERCES_CPP_NAMESPACE::DOMNode* target);
    ~MOXIDOM_XercesParser() override;

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

    // Depth counting, and building under the target.
    void startDocument() override;
    void endDocument() override;
    void XMLDecl(const XMLCh* const versionStr, const XMLCh* const encodingStr, const XMLCh* const standaloneStr,
                 const XMLCh* const actualEncodingStr) override;
    void startElement(const XERCES_CPP_NAMESPACE::XMLElementDecl& elemDecl, const unsigned int urlId,
                      const XMLCh* const elemPrefix,
                      const XERCES_CPP_NAMESPACE::RefVectorOf<XERCES_CPP_NAMESPACE::XMLAttr>& attrList,
                      const XMLSize_t attrCount, const bool isEmpty, const bool isRoot) override;
    void endElement(const XERCES_CPP_NAMESPACE::XMLElementDecl& elemDecl, const unsigned int urlId,
                    const bool isRoot, const XMLCh* const elemPrefix) override;
    void docComment(const XMLCh* const comment) override;
    void docPI(const XMLCh* const target, const XMLCh* const data) override;

private:
    // Ends the scan with a fatal error whose text is `text`.
    [[noreturn]] void refuse(const std::string& text);
    bool outsideRoot() const { return m_target != nullptr && fCurrentParent == m_target; }

    // Reporting goes through error() above; an error handler must be set for
    // Xerces to call it at all.
    void warning(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void error(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void fatalError(const XERCES_CPP_NAMESPACE::SAXParseException&) override {}
    void resetErrors() override {}

    const std::size_t m_max_depth;
    XERCES_CPP_NAMESPACE::DOMNode* const m_target;
    std::size_t m_depth;
    bool m_failed;
    std::string m_refusal;
    int m_code;
    int m_line;
    int m_column;
    std::string m_text;
};

#endif
