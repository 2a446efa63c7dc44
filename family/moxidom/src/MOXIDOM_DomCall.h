#ifndef MOXIDOM_MOXIDOM_DOMCALL_H
#define MOXIDOM_MOXIDOM_DOMCALL_H

#include <string>

#include <xercesc/dom/DOMException.hpp>

#include "MOXIDOM_Transcoder.h"
#include "moxidom/MOXIDOM_DOMException.h"

// Runs Xerces DOM calls so that their DOMException reaches callers as
// MOXIDOM_DOMException: applications never need Xerces' exception types.
class MOXIDOM_DomCall {
public:
    template <class Call>
    static auto run(Call&& call) -> decltype(call()) {
        try {
            return call();
        } catch (const XERCES_CPP_NAMESPACE::DOMException& e) {
            throw MOXIDOM_DOMException::fromXerces(e);
        }
    }

    // The "no namespace" of the string interface ("") as Xerces wants it (null).
    static const XMLCh* namespaceOrNull(const MOXIDOM_Transcoder::XString& uri) {
        return uri.empty() ? nullptr : uri.c_str();
    }

    [[noreturn]] static void nullHandle(const char* operation) {
        throw MOXIDOM_DOMException(MOXIDOM_DOMException::INVALID_STATE_ERR,
                                   std::string(operation) + ": the node handle is null");
    }
};

#endif
