#ifndef TALVEX_TALVEXEXCEPTION_H
#define TALVEX_TALVEXEXCEPTION_H

#include "moxcore/MOXException.h"
#include "moxcore/MOXMessageBase.h"
#include "talvex/TALVEXExport.h"

/// Every failure of the toolkit itself travels as a TALVEXException: severity 1,
/// one of the codes below, the catalog message of that code with its
/// parameters, sometimes a free-text message (an operating-system or security
/// library text), and a back-trace of where it was raised and passed through.
/// Misuse of an object (wrong state, bad argument) raises the core library's
/// MOXIllegalStateError / MOXIllegalArgumentError / MOXAssertError instead.
/// Catch MOXThrowable to catch both; toString() gives a complete report.
class TALVEX_API TALVEXException : public MOXException {
public:
    enum talvexErrorCode {
        ErrNotImplemented = 0,  ///< the class does not implement the operation
        ErrSecureSetup = 1,  ///< setting up the secure connection failed
        ErrSocket = 5,  ///< a socket operation failed (text of the system or security library follows)
        ErrHeadIncomplete = 6,  ///< the stream ended while the HTTP head was read
        ErrNotPost = 7,  ///< a request that is not a POST
        ErrHttpVersion = 8,  ///< HTTP version other than HTTP/1.1 or HTTP/1.0
        ErrRequestLine = 9,  ///< request line with too few parts
        ErrStatusLine = 10,  ///< status line with too few parts
        ErrContentType = 11,  ///< Content-Type header without a value
        ErrBoundary = 12,  ///< multipart Content-Type without a usable boundary
        ErrContentId = 13,  ///< Content-ID header without a value
        ErrContentLength = 14,  ///< Content-Length header without a value
        ErrTransferEncoding = 15,  ///< Transfer-Encoding header without a value
        ErrEnvelopeParse = 16,  ///< the envelope did not parse
        ErrEnvelopeEmpty = 17,  ///< the parsed envelope document has no content
        ErrEnvelopeDom = 18,  ///< DOM error while handing the envelope over
        ErrNoMoreAttachments = 19,  ///< openNextAttachment after the last part
        ErrMultipartEnd = 20,  ///< the multipart body ended before its closing delimiter
        ErrQPEscape = 27,  ///< "=" not followed by two hexadecimal digits
        ErrQPSoftBreak = 28,  ///< "=" and blanks followed by something other than a line end
        ErrTransferEncodingBase64 = 29,  ///< base64 attachments are not decoded
        ErrUrl = 30,  ///< unusable URL
        ErrSecureRefused = 31,  ///< secure connection refused during set-up
        ErrHostNotResolved = 33  ///< resolving the host name failed
    };

    TALVEXException(MOXSeverity severity, talvexErrorCode code);
    TALVEXException(MOXSeverity severity, talvexErrorCode code, MOXMessageBase& message);
    TALVEXException(const TALVEXException& other);
    TALVEXException& operator=(const TALVEXException& other);
    ~TALVEXException() override;

    /// Appends a message; chains.
    TALVEXException& operator<<(const MOXMessageBase& message);

    MOXThrowable* clone() const override;
    /// Adds the back-trace entry, then throws a copy as TALVEXException.
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;

    /// Raises code 0, "not implemented", for the named operation.
    [[noreturn]] static void ThrowNotImplemented(const char* function);
};

#endif
