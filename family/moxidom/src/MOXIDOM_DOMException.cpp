#include "moxidom/MOXIDOM_DOMException.h"

#include <xercesc/dom/DOMException.hpp>

#include "MOXIDOM_Transcoder.h"

MOXIDOM_DOMException::MOXIDOM_DOMException(int code, const std::string& message)
    : std::runtime_error(std::string(codeName(code)) + ": " + message), m_code(code), m_message(message) {}

MOXIDOM_DOMException MOXIDOM_DOMException::fromXerces(const XERCES_CPP_NAMESPACE::DOMException& e) {
    return MOXIDOM_DOMException(static_cast<int>(e.code), MOXIDOM_Transcoder::toUtf8(e.getMessage()));
}

const char* MOXIDOM_DOMException::codeName(int code) {
    static const char* const names[] = {
        "DOM_ERROR",          "INDEX_SIZE_ERR",        "DOMSTRING_SIZE_ERR",
        "HIERARCHY_REQUEST_ERR", "WRONG_DOCUMENT_ERR", "INVALID_CHARACTER_ERR",
        "NO_DATA_ALLOWED_ERR", "NO_MODIFICATION_ALLOWED_ERR", "NOT_FOUND_ERR",
        "NOT_SUPPORTED_ERR",  "INUSE_ATTRIBUTE_ERR",   "INVALID_STATE_ERR",
        "SYNTAX_ERR",         "INVALID_MODIFICATION_ERR", "NAMESPACE_ERR",
        "INVALID_ACCESS_ERR", "VALIDATION_ERR",        "TYPE_MISMATCH_ERR"};
    if (code < 1 || code >= static_cast<int>(sizeof names / sizeof names[0])) return names[0];
    return names[code];
}
