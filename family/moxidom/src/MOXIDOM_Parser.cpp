#include "moxidom/MOXIDOM_Parser.h"

#include <memory>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>

#include "MOXIDOM_DocumentHolder.h"
#include "MOXIDOM_Platform.h"
#include "MOXIDOM_StreamInputSource.h"
#include "MOXIDOM_XercesParser.h"

XERCES_CPP_NAMESPACE_USE

MOXIDOM_Parser::MOXIDOM_Parser(int) : m_error_code(0), m_line(0), m_column(0) {
    MOXIDOM_Platform::ensureInitialized();
}

MOXIDOM_Parser::~MOXIDOM_Parser() = default;

int MOXIDOM_Parser::parse(PNXInputStream& in, MOXIDOM_Document& document) {
    MOXIDOM_StreamInputSource source(in);
    const int parsed = run(source, document);
    // The stream's own failure wins over the parse error it caused.
    if (source.failure()) std::rethrow_exception(source.failure());
    return parsed;
}

int MOXIDOM_Parser::parse(const std::string& text, MOXIDOM_Document& document) {
    static const XMLCh kSystemId[] = {u's', u't', u'r', u'i', u'n', u'g', 0};
    MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(), kSystemId, false);
    return run(source, document);
}

int MOXIDOM_Parser::run(const InputSource& source, MOXIDOM_Document& document) {
    m_error_code = 0;
    m_line = 0;
    m_column = 0;
    m_error_text.clear();

    // A fresh Xerces parser per document: no state survives from an earlier,
    // possibly aborted, parse. Whatever it built is released with it unless adopted.
    MOXIDOM_XercesParser parser;
    parser.parse(source);
    if (parser.failed()) {
        m_error_code = parser.errorCode();
        m_line = parser.line();
        m_column = parser.column();
        m_error_text = parser.errorText();
        return 0;
    }
    DOMDocument* parsed = parser.getDocument();
    if (parsed == nullptr || parsed->getDocumentElement() == nullptr) {
        // Xerces reports this itself; kept so that success always means a root element.
        m_error_code = XMLErrs::InvalidDocumentStructure;
        m_error_text = "no document element";
        return 0;
    }
    parsed = parser.adoptDocument();
    std::shared_ptr<MOXIDOM_DocumentHolder> holder;
    try {
        holder = std::make_shared<MOXIDOM_DocumentHolder>(parsed);
    } catch (...) {
        parsed->release();
        throw;
    }
    document = MOXIDOM_Document(holder);
    return 1;
}
