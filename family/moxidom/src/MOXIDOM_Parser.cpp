#include "moxidom/MOXIDOM_Parser.h"

#include <memory>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "MOXIDOM_DocumentHolder.h"
#include "MOXIDOM_DomCall.h"
#include "MOXIDOM_Platform.h"
#include "MOXIDOM_StreamInputSource.h"
#include "MOXIDOM_XercesParser.h"
#include "moxcore/MOXThrow.h"

XERCES_CPP_NAMESPACE_USE

static const char MOX_UNIT[] = "MOXIDOM_Parser";

namespace {
std::string tooLarge(std::size_t maxBytes) { return "document larger than " + std::to_string(maxBytes) + " bytes"; }

// The node parseInto builds under: one that can take a root element.
DOMNode* targetOf(const MOXIDOM_Node& parent) {
    DOMNode* target = parent.getDOMNode();
    if (target == nullptr) MOXIDOM_DomCall::nullHandle("MOXIDOM_Parser::parseInto (parent)");
    const short type = target->getNodeType();
    const bool takesRoot = type == DOMNode::ELEMENT_NODE || type == DOMNode::DOCUMENT_FRAGMENT_NODE ||
                           (type == DOMNode::DOCUMENT_NODE &&
                            static_cast<DOMDocument*>(target)->getDocumentElement() == nullptr);
    if (!takesRoot)
        throw MOXIDOM_DOMException(MOXIDOM_DOMException::HIERARCHY_REQUEST_ERR,
                                   "MOXIDOM_Parser::parseInto: the parent cannot take a root element");
    return target;
}
}  // namespace

MOXIDOM_Parser::MOXIDOM_Parser(int) : m_max_bytes(0), m_max_depth(0), m_error_code(0), m_line(0), m_column(0) {
    MOXIDOM_Platform::ensureInitialized();
}

MOXIDOM_Parser::~MOXIDOM_Parser() = default;

void MOXIDOM_Parser::setLimits(std::size_t maxBytes, std::size_t maxDepth) {
    m_max_bytes = maxBytes;
    m_max_depth = maxDepth;
}

int MOXIDOM_Parser::parse(PNXInputStream& in, MOXIDOM_Document& document) {
    MOXIDOM_StreamInputSource source(in, m_max_bytes);
    // A fresh Xerces parser per document: no state survives from an earlier,
    // possibly aborted, parse. Whatever it built is released with it unless adopted.
    MOXIDOM_XercesParser parser(m_max_depth, nullptr);
    return run(parser, source, &source) ? adopt(parser, document) : 0;
}

int MOXIDOM_Parser::parse(const std::string& text, MOXIDOM_Document& document) {
    static const XMLCh kSystemId[] = {u's', u't', u'r', u'i', u'n', u'g', 0};
    if (m_max_bytes != 0 && text.size() > m_max_bytes) {
        setError(XMLErrs::InvalidDocumentStructure, 0, 0, tooLarge(m_max_bytes));
        return 0;
    }
    MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(), kSystemId, false);
    MOXIDOM_XercesParser parser(m_max_depth, nullptr);
    return run(parser, source, nullptr) ? adopt(parser, document) : 0;
}

int MOXIDOM_Parser::parseInto(PNXInputStream& in, const MOXIDOM_Node& parent) {
    DOMNode* target = targetOf(parent);
    DOMNode* last = target->getLastChild();
    // Takes out what a failed parse built, so that the parent is left as it was.
    auto dropBuilt = [&] {
        DOMNode* built = last != nullptr ? last->getNextSibling() : target->getFirstChild();
        if (built != nullptr) target->removeChild(built);
    };
    MOXIDOM_StreamInputSource source(in, m_max_bytes);
    MOXIDOM_XercesParser parser(m_max_depth, target);
    bool parsed;
    try {
        parsed = run(parser, source, &source);
    } catch (...) {
        dropBuilt();
        throw;
    }
    if (!parsed) dropBuilt();
    return parsed ? 1 : 0;
}

bool MOXIDOM_Parser::run(MOXIDOM_XercesParser& parser, const InputSource& source,
                         const MOXIDOM_StreamInputSource* stream) {
    setError(0, 0, 0, std::string());
    try {
        MOXIDOM_DomCall::run([&] { parser.parse(source); });
    } catch (const OutOfMemoryException&) {
        // Xerces' own type is neither ours nor a standard exception.
        MOX_THROW(MOXOutOfMemoryError, "MOXIDOM_Parser::parse - no memory for the document");
    }
    // The stream's own failure wins over the parse error it caused.
    if (stream != nullptr && stream->failure()) std::rethrow_exception(stream->failure());
    if (stream != nullptr && stream->tooLarge()) {
        setError(XMLErrs::InvalidDocumentStructure, parser.line(), parser.column(), tooLarge(m_max_bytes));
        return false;
    }
    if (parser.failed()) {
        setError(parser.errorCode(), parser.line(), parser.column(), parser.errorText());
        return false;
    }
    return true;
}

int MOXIDOM_Parser::adopt(MOXIDOM_XercesParser& parser, MOXIDOM_Document& document) {
    DOMDocument* parsed = parser.getDocument();
    if (parsed == nullptr || parsed->getDocumentElement() == nullptr) {
        // Xerces reports this itself; kept so that success always means a root element.
        setError(XMLErrs::InvalidDocumentStructure, 0, 0, "no document element");
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

void MOXIDOM_Parser::setError(int code, int line, int column, const std::string& text) {
    m_error_code = code;
    m_line = line;
    m_column = column;
    m_error_text = text;
}
