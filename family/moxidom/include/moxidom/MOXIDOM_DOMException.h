#ifndef MOXIDOM_MOXIDOM_DOMEXCEPTION_H
#define MOXIDOM_MOXIDOM_DOMEXCEPTION_H

#include <stdexcept>
#include <string>

#include <xercesc/util/XercesDefs.hpp>

XERCES_CPP_NAMESPACE_BEGIN
class DOMException;
XERCES_CPP_NAMESPACE_END

// A failed DOM operation: an impossible tree change, a bad name, a character
// that XML cannot carry, an operation on a null handle. The code is the W3C
// DOM exception code (the same numbers as Xerces' DOMException).
class MOXIDOM_DOMException : public std::runtime_error {
public:
    enum Code {
        INDEX_SIZE_ERR = 1,
        DOMSTRING_SIZE_ERR = 2,
        HIERARCHY_REQUEST_ERR = 3,
        WRONG_DOCUMENT_ERR = 4,
        INVALID_CHARACTER_ERR = 5,
        NO_DATA_ALLOWED_ERR = 6,
        NO_MODIFICATION_ALLOWED_ERR = 7,
        NOT_FOUND_ERR = 8,
        NOT_SUPPORTED_ERR = 9,
        INUSE_ATTRIBUTE_ERR = 10,
        INVALID_STATE_ERR = 11,  // used for operations on a null handle
        SYNTAX_ERR = 12,
        INVALID_MODIFICATION_ERR = 13,
        NAMESPACE_ERR = 14,
        INVALID_ACCESS_ERR = 15,
        VALIDATION_ERR = 16,
        TYPE_MISMATCH_ERR = 17
    };

    // what() reads "<CODE_NAME>: <message>".
    MOXIDOM_DOMException(int code, const std::string& message);

    int getCode() const { return m_code; }
    const std::string& getMessage() const { return m_message; }

    // The same failure as a Xerces DOMException, with its message in UTF-8.
    static MOXIDOM_DOMException fromXerces(const XERCES_CPP_NAMESPACE::DOMException& e);
    // "HIERARCHY_REQUEST_ERR" and so on; "DOM_ERROR" for an unknown code.
    static const char* codeName(int code);

private:
    int m_code;
    std::string m_message;
};

#endif
