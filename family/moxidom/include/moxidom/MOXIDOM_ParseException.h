#ifndef MOXIDOM_MOXIDOM_PARSEEXCEPTION_H
#define MOXIDOM_MOXIDOM_PARSEEXCEPTION_H

#include <stdexcept>
#include <string>

// Malformed XML given to MOXIDOM_Document::parseString. what() reads
// "XML parse error at line L, column C: <parser's text>".
class MOXIDOM_ParseException : public std::runtime_error {
public:
    MOXIDOM_ParseException(int errorCode, int line, int column, const std::string& text);

    // The parser's error code (see MOXIDOM_Parser::getErrorCode).
    int getErrorCode() const { return m_code; }
    int getLineNumber() const { return m_line; }
    int getColumnNumber() const { return m_column; }
    // The parser's own description, without the position.
    const std::string& getErrorText() const { return m_text; }

private:
    int m_code;
    int m_line;
    int m_column;
    std::string m_text;
};

#endif
