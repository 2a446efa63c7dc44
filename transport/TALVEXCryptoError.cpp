#include "transport/TALVEXCryptoError.h"

#include <cstdio>
#include <string>

#include "transport/TALVEXSocketSSL.h"

TALVEXCryptoError::TALVEXCryptoError(TALVEXSocketSSL* socket, MOXCrypto::Handle handle, const char* callName,
                                     unsigned int status)
    : m_call_name(callName), m_detail_text(nullptr), m_status(status), m_socket(socket) {
    if (m_socket != nullptr) m_socket->getCrypto()->CryptoGetLastErrorDetails(handle, 0, &m_detail_text);
}

TALVEXCryptoError::~TALVEXCryptoError() {
    try {
        if (m_detail_text != nullptr && m_socket != nullptr) m_socket->getCrypto()->CryptoFree(m_detail_text, 0);
    } catch (...) {
    }
    m_call_name = nullptr;
    m_detail_text = nullptr;
}

I18NString& TALVEXCryptoError::toString(I18NString& out) {
    if (m_call_name != nullptr && *m_call_name != '\0') {
        int size = std::snprintf(nullptr, 0, "%s=0x%x ", m_call_name, m_status);
        std::string text(static_cast<size_t>(size > 0 ? size : 0), '\0');
        std::snprintf(&text[0], text.size() + 1, "%s=0x%x ", m_call_name, m_status);
        out = I18NString(text);
    } else {
        out = I18NString();
    }
    if (m_detail_text != nullptr) out.append(m_detail_text);
    return out;
}
