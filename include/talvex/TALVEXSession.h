#ifndef TALVEX_TALVEXSESSION_H
#define TALVEX_TALVEXSESSION_H

#include <string>

#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Node.h"
#include "talvex/TALVEXExport.h"
#include "talvex/TALVEXMessageReader.h"
#include "talvex/TALVEXMessageWriter.h"
#include "talvex/TALVEXSocket.h"

/// A client's handle on one HTTP endpoint over one reused connection, made by
/// TALVEX::getSession. One thread drives a session at a time; properties may be
/// set from another thread and apply from the next request.
///
/// One call:      doRequest(request, response)
/// Streaming:     openRequest(hasAttachments) -> write -> closeRequest(writer)
///                openResponse() -> read -> closeResponse(reader)
/// After a failure inside a cycle, leave it with reconnect(), which also gives a
/// fresh connection, or with closeSession().
class TALVEX_API TALVEXSession {
public:
    TALVEXSession();
    virtual ~TALVEXSession();

    /// The connection (still owned by the session).
    virtual TALVEXSocket* getSessionSocket() = 0;
    /// "send-content-length" (non-zero: bodies go with a Content-Length instead
    /// of chunked), "chunk-size" (default 4000), "boundary" (multipart boundary;
    /// default: a fresh random one for each message),
    /// and the bounds on what the server may send, named in TALVEXLimits.
    /// Other names raise MOXIllegalArgumentError.
    virtual void setProperty(const std::string& name, int value);
    virtual void setProperty(const std::string& name, const std::string& value);
    /// Traces the connection's bytes into a file; null stops.
    virtual void echo(const char* sfilename);
    virtual void echo(const char* sfilename, const char* mode);
    /// Sends the element as the request envelope and appends the response
    /// envelope's root element to `response`.
    virtual void doRequest(MOXIDOM_Element& request, MOXIDOM_Node& response);
    virtual void sendRequest(MOXIDOM_Element& request);
    virtual void getResponse(MOXIDOM_Node& response);
    virtual TALVEXMessageWriter& openRequest(int hasAttachments);
    virtual void closeRequest(TALVEXMessageWriter& w);
    virtual TALVEXMessageReader& openResponse();
    virtual void closeResponse(TALVEXMessageReader& r);
    /// Drops writer, reader and connection; the session is then unusable.
    virtual void closeSession() = 0;
    /// Drops writer and reader, closes the connection and opens it again.
    virtual void reconnect(int timeLimitSec) = 0;
    /// Extra request headers, sent in the HTTP head of every later request
    /// until removed; see TALVEXMessageWriter::setHeader.
    virtual void setHeader(const std::string& name, const std::string& value) = 0;
    virtual void removeHeader(const std::string& name) = 0;
    virtual void clearHeaders() = 0;
};

#endif
