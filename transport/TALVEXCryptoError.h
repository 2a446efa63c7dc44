#ifndef TALVEX_TRANSPORT_TALVEXCRYPTOERROR_H
#define TALVEX_TRANSPORT_TALVEXCRYPTOERROR_H

#include "moxcore/I18NString.h"
#include "transport/MOXCrypto.h"

class TALVEXSocketSSL;

// A failed security-library call described as text: "name=0x<status> " and
// the library's last-error details for the connection. The details belong to
// the library; they are fetched and released through the socket's loader.
class TALVEXCryptoError {
public:
    // callName is not copied: pass a text that outlives this object.
    TALVEXCryptoError(TALVEXSocketSSL* socket, MOXCrypto::Handle handle, const char* callName, unsigned int status);
    virtual ~TALVEXCryptoError();

    I18NString& toString(I18NString& out);

private:
    TALVEXCryptoError(const TALVEXCryptoError&) = delete;
    TALVEXCryptoError& operator=(const TALVEXCryptoError&) = delete;

    const char* m_call_name;
    char* m_detail_text;
    unsigned int m_status;
    TALVEXSocketSSL* m_socket;
};

#endif
