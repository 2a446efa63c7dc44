#ifndef TALVEX_SESSION_TALVEXSESSIONIMP_H
#define TALVEX_SESSION_TALVEXSESSIONIMP_H

#include <functional>
#include <map>
#include <string>

#include "http/TALVEXMessageWriterImp.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxcore/MOXThreadCriticalSection.h"
#include "talvex/TALVEXLimits.h"
#include "talvex/TALVEXSession.h"

// The session: owns its connected socket, the writer of the request and the
// reader of the response now open, its properties (locked) and extra headers.
class TALVEXSessionImp : public TALVEXSession {
public:
    // Takes ownership of the connected socket; copies the request path.
    TALVEXSessionImp(TALVEXSocket* socket, const char* uriPath);
    ~TALVEXSessionImp() override;

    TALVEXSocket* getSessionSocket() override;
    void setProperty(const std::string& name, int value) override;
    void setProperty(const std::string& name, const std::string& value) override;
    void echo(const char* sfilename) override;
    void echo(const char* sfilename, const char* mode) override;
    void doRequest(MOXIDOM_Element& request, MOXIDOM_Node& response) override;
    void sendRequest(MOXIDOM_Element& request) override;
    void getResponse(MOXIDOM_Node& response) override;
    TALVEXMessageWriter& openRequest(int hasAttachments) override;
    void closeRequest(TALVEXMessageWriter& w) override;
    TALVEXMessageReader& openResponse() override;
    void closeResponse(TALVEXMessageReader& r) override;
    void closeSession() override;
    void reconnect(int timeLimitSec) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void removeHeader(const std::string& name) override;
    void clearHeaders() override;

    const std::string& getUriPath() const { return m_uri_path; }

private:
    TALVEXSessionImp(const TALVEXSessionImp&) = delete;
    TALVEXSessionImp& operator=(const TALVEXSessionImp&) = delete;

    // The property's value, or false when it is not set.
    bool lookupProperty(const char* name, std::string& value);
    // The default bounds, with those set as properties in their place.
    TALVEXLimits limits();
    void closeSessionNow();

    TALVEXSocket* m_session_sock;
    std::string m_uri_path;
    int m_request_sent;
    TALVEXMessageWriter* m_current_writer;
    // The last plain request's head, sent again while its pieces stay the same.
    TALVEXMessageWriterImp::HeadCache m_head_cache;
    TALVEXMessageReaderImp* m_current_reader;
    // A cycle failed and left the connection in an unknown state; only
    // reconnect clears it.
    bool m_cycle_failed;
    // std::less<>: looked up by a C string without making a std::string of it.
    std::map<std::string, std::string, std::less<>> m_properties;
    std::map<std::string, std::string> m_headers;
    MOXThreadCriticalSection m_lock;
};

#endif
