#ifndef TALVEX_TALVEXMESSAGEWRITER_H
#define TALVEX_TALVEXMESSAGEWRITER_H

#include <map>
#include <string>

#include "moxidom/MOXIDOM_Node.h"
#include "talvex/PNXOutputStream.h"
#include "talvex/TALVEXExport.h"

/// Writes one outgoing HTTP message whose body is a SOAP envelope, optionally
/// followed by MIME attachments. Obtain one from TALVEXSession::openRequest and
/// give it back with closeRequest.
///
/// Order of calls: the envelope first (writeEnvelope, or openEnvelope / write /
/// closeEnvelope), then, for a writer made for attachments, each attachment
/// (writeAttachment, or openAttachment / write / closeAttachment), one at a
/// time. The stream returned by openEnvelope and openAttachment is the same
/// object each time; it refuses writes once its part is closed.
class TALVEX_API TALVEXMessageWriter {
public:
    TALVEXMessageWriter();
    TALVEXMessageWriter(int isRequest, int hasAttachments);
    virtual ~TALVEXMessageWriter();

    /// Serialises the node (UTF-8) as the whole envelope, with SOAPAction "".
    /// A root element in the SOAP 1.2 namespace makes it SOAP 1.2: sent as
    /// application/soap+xml, the action (a SOAPAction header set with
    /// setHeader) as its action parameter, and no SOAPAction header.
    virtual void writeEnvelope(const MOXIDOM_Node& envelope) = 0;
    /// The stream for the serialised envelope; soapAction is sent as given
    /// (quote it yourself: "\"urn:op\""). The envelope is sent as SOAP 1.1
    /// (text/xml) unless a Content-Type header of application/soap+xml says
    /// SOAP 1.2; the action then becomes its action parameter.
    virtual PNXOutputStream& openEnvelope(const char* soapAction) = 0;
    virtual PNXOutputStream& openEnvelope() = 0;
    virtual void closeEnvelope(PNXOutputStream& stream) = 0;
    /// headers: extra header lines "Name: value\r\n..." for the part, may be null.
    virtual void writeAttachment(const char* contentType, const char* charset, const char* headers, const char* data,
                                 unsigned int length, const char* contentId) = 0;
    virtual void writeAttachment(const char* contentType, const char* charset, const char* data, unsigned int length,
                                 const char* contentId) = 0;
    virtual void writeAttachment(const MOXIDOM_Node& node, const char* contentId) = 0;
    /// Content written must already be in its transfer encoding: the content
    /// type "text/vornatk-pre-encoded-quoted-printable" declares quoted-printable
    /// data, everything else is sent as binary.
    virtual PNXOutputStream& openAttachment(const char* contentType, const char* charset, const char* headers,
                                            const char* contentId, int pieceFlag) = 0;
    virtual PNXOutputStream& openAttachment(const char* contentType, const char* charset, const char* contentId,
                                            int reserved) = 0;
    virtual void closeAttachment(PNXOutputStream& stream) = 0;
    /// "1", "2", ... per writer; the caller deletes the string.
    virtual std::string* newContentId() = 0;
    /// Finishes the message on the wire (last chunk, or the held body with its length).
    virtual void close() = 0;
    /// Response writers only, before the envelope is opened.
    virtual void setResponseStatus(int status, const char* reason) = 0;
    /// Extra headers of the HTTP head, with or without attachments; applied
    /// when the envelope is opened. A Content-Type or SOAPAction (any case)
    /// replaces the writer's own; with attachments Content-Type is the
    /// envelope part's. Parts carry only the headers given to openAttachment.
    virtual void setHeader(const std::string& name, const std::string& value) = 0;
    virtual void setHeaders(const std::map<std::string, std::string>& headers) = 0;
    virtual void removeHeader(const std::string& name) = 0;

protected:
    int m_is_request;
    int m_has_attachments;
    int m_status_line_sent;
    int m_status;
    char m_reason[32];
};

#endif
