#ifndef MOXIDOM_MOXIDOM_PARSER_H
#define MOXIDOM_MOXIDOM_PARSER_H

#include <cstddef>
#include <string>

#include <xercesc/util/XercesDefs.hpp>

#include "moxidom/MOXIDOM_Document.h"

XERCES_CPP_NAMESPACE_BEGIN
class InputSource;
XERCES_CPP_NAMESPACE_END

class MOXIDOM_StreamInputSource;
class MOXIDOM_XercesParser;
class PNXInputStream;

// Parses XML into a document, namespace-aware, without validation.
//
// The input is read incrementally, in blocks, straight from the stream; the
// body is never copied whole first. A document type declaration is refused
// (SOAP messages carry none), and no external entity or DTD is ever resolved:
// a received message cannot make the process open a file or a URL.
//
// Documents from a peer can be bounded (setLimits): one larger, or nested
// deeper, than the bounds is refused like malformed XML as soon as the bound
// is passed, before it costs more memory, time or stack.
//
// One parser may parse several times; each parse resets the error state.
// Not for use by two threads at once.
class MOXIDOM_Parser {
public:
    // `reserved` must be 0.
    explicit MOXIDOM_Parser(int reserved = 0);
    ~MOXIDOM_Parser();
    MOXIDOM_Parser(const MOXIDOM_Parser&) = delete;
    MOXIDOM_Parser& operator=(const MOXIDOM_Parser&) = delete;

    // Reads `in` to the end of the document. Non-zero on success: `document`
    // then designates the new document (other handles on its former document
    // are not affected). 0 on malformed XML: `document` is left as it was and
    // the error accessors describe the first error. Exceptions of the stream
    // (time-outs, cancellation) pass through unchanged.
    int parse(PNXInputStream& in, MOXIDOM_Document& document);
    // The same for text held in memory.
    int parse(const std::string& text, MOXIDOM_Document& document);
    // Reads `in` to the end of the document and appends its root element as
    // the last child of `parent`, building it in parent's document: nothing
    // is copied. Comments and processing instructions outside the root
    // element are left out. Non-zero on success; 0 on malformed XML, with
    // nothing appended (the nodes built before the error stay in the
    // document's memory until it goes). `parent` must be an element, a
    // document fragment, or a document without root element: otherwise, or
    // for a null handle, MOXIDOM_DOMException is raised before anything is
    // read. Exceptions of the stream pass through unchanged.
    int parseInto(PNXInputStream& in, const MOXIDOM_Node& parent);

    // Bounds for the next parses: bytes of the document (streams and texts)
    // and nesting of elements (the root element is level 1). 0, the default,
    // means no bound. A document beyond them fails with the code
    // XMLErrs::InvalidDocumentStructure and a text naming the bound.
    void setLimits(std::size_t maxBytes, std::size_t maxDepth);

    // After a failed parse: the Xerces error code (XMLErrs numbering), the
    // position of the error (lines and columns count from 1) and its text.
    // 0, 0, 0 and "" after a successful parse.
    int getErrorCode() const { return m_error_code; }
    int getCurrentLineNumber() const { return m_line; }
    int getCurrentColumnNumber() const { return m_column; }
    // Valid until the next parse or the parser's end.
    const char* errorString() const { return m_error_text.c_str(); }

private:
    // Runs one parse; true on success. `stream` (null for a text) reports a
    // failure of the stream, which is rethrown, and a document too large.
    bool run(MOXIDOM_XercesParser& parser, const XERCES_CPP_NAMESPACE::InputSource& source,
             const MOXIDOM_StreamInputSource* stream);
    // Points `document` at what the parser built.
    int adopt(MOXIDOM_XercesParser& parser, MOXIDOM_Document& document);
    void setError(int code, int line, int column, const std::string& text);

    std::size_t m_max_bytes;
    std::size_t m_max_depth;

    int m_error_code;
    int m_line;
    int m_column;
    std::string m_error_text;
};

#endif
