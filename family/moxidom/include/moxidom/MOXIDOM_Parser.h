#ifndef MOXIDOM_MOXIDOM_PARSER_H
#define MOXIDOM_MOXIDOM_PARSER_H

#include <string>

#include <xercesc/util/XercesDefs.hpp>

#include "moxidom/MOXIDOM_Document.h"

XERCES_CPP_NAMESPACE_BEGIN
class InputSource;
XERCES_CPP_NAMESPACE_END

class PNXInputStream;

// Parses XML into a document, namespace-aware, without validation.
//
// The input is read incrementally, in blocks, straight from the stream; the
// body is never copied whole first. A document type declaration is refused
// (SOAP messages carry none), and no external entity or DTD is ever resolved:
// a received message cannot make the process open a file or a URL.
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

    // After a failed parse: the Xerces error code (XMLErrs numbering), the
    // position of the error (lines and columns count from 1) and its text.
    // 0, 0, 0 and "" after a successful parse.
    int getErrorCode() const { return m_error_code; }
    int getCurrentLineNumber() const { return m_line; }
    int getCurrentColumnNumber() const { return m_column; }
    // Valid until the next parse or the parser's end.
    const char* errorString() const { return m_error_text.c_str(); }

private:
    int run(const XERCES_CPP_NAMESPACE::InputSource& source, MOXIDOM_Document& document);

    int m_error_code;
    int m_line;
    int m_column;
    std::string m_error_text;
};

#endif
