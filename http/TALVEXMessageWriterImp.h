#ifndef TALVEX_HTTP_TALVEXMESSAGEWRITERIMP_H
#define TALVEX_HTTP_TALVEXMESSAGEWRITERIMP_H

#include <cstdint>
#include <map>
#include <string>

#include "http/TALVEXEnabledOutputStream.h"
#include "talvex/TALVEXMessageWriter.h"

class HttpMsgNode;
class MultipartHttpMsg;
class OnePieceHttpMsg;
class TALVEXSocket;

// The message writer over the HTTP tools library's senders. It decides the
// start line, the headers and the parts and the order they reach the sender;
// the sender formats them.
class TALVEXMessageWriterImp : public TALVEXMessageWriter {
public:
    // chunked 0: the body goes with a content length; otherwise chunks of
    // chunkSize (below 2: 4000). boundary null: a fresh one for this message,
    // "=_=talvex-mp-" and 32 random hex digits.
    TALVEXMessageWriterImp(const char* _uri_path, int isRequest, int hasAttachments, TALVEXSocket* sock, int chunked,
                           int chunkSize, const char* boundary);
    ~TALVEXMessageWriterImp() override;

    void writeEnvelope(const MOXIDOM_Node& envelope) override;
    PNXOutputStream& openEnvelope(const char* soapAction) override;
    PNXOutputStream& openEnvelope() override;
    void closeEnvelope(PNXOutputStream& stream) override;
    void writeAttachment(const char* contentType, const char* charset, const char* headers, const char* data,
                         unsigned int length, const char* contentId) override;
    void writeAttachment(const char* contentType, const char* charset, const char* data, unsigned int length,
                         const char* contentId) override;
    void writeAttachment(const MOXIDOM_Node& node, const char* contentId) override;
    PNXOutputStream& openAttachment(const char* contentType, const char* charset, const char* headers,
                                    const char* contentId, int pieceFlag) override;
    PNXOutputStream& openAttachment(const char* contentType, const char* charset, const char* contentId,
                                    int reserved) override;
    void closeAttachment(PNXOutputStream& stream) override;
    std::string* newContentId() override;
    void close() override;
    void setResponseStatus(int status, const char* reason) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void setHeaders(const std::map<std::string, std::string>& headers) override;
    void removeHeader(const std::string& name) override;

    // The head of a session's last plain request and what it was made from.
    // A session keeps one and lends it to each one-piece request writer: when
    // the next request is made from the same pieces, its head is sent as kept
    // instead of being checked and composed again. The bytes on the wire are
    // the same either way.
    struct HeadCache {
        bool valid = false;
        std::string authority;
        std::string soapAction;
        bool soap12 = false;
        std::map<std::string, std::string> headers;
        std::string head;
    };
    // null: no cache. Takes effect for a request without attachments.
    void setHeadCache(HeadCache* cache) { m_head_cache = cache; }

    int getChunkSize() const { return m_chunk_size; }
    const std::string& getBoundary() const { return m_boundary; }

private:
    // What the envelope's head (or root part) says of its type and action.
    struct EnvelopeType {
        std::string contentType;
        bool sendAction = false;  // SOAP 1.1 requests: a SOAPAction header
        const char* action = nullptr;
    };
    // The caller's Content-Type and SOAPAction headers replace the writer's
    // own. An application/soap+xml type (SOAP 1.2) carries the action as its
    // action parameter instead of a SOAPAction header.
    EnvelopeType envelopeType(const char* soapAction, bool soap12,
                              const std::map<std::string, std::string>& headers) const;
    // soap12: the envelope's root is in the SOAP 1.2 namespace.
    PNXOutputStream& openEnvelopeAs(const char* soapAction, bool soap12);
    PNXOutputStream& openCachedEnvelope(const char* soapAction, bool soap12);
    // The extra headers other than Content-Type and SOAPAction.
    void applyHeaders(HttpMsgNode* sender, const std::map<std::string, std::string>& headers);
    void applyEnvelopeHeaders(const char* soapAction, bool soap12, const std::map<std::string, std::string>& headers);
    void deleteSenders();

    int m_chunk_size;
    TALVEXSocket* m_sock;
    std::string m_uri_path;
    std::string m_boundary;
    OnePieceHttpMsg* m_op_sender;
    MultipartHttpMsg* m_mp_sender;
    OnePieceHttpMsg* m_part;
    std::uint32_t m_content_id_counter;
    TALVEXEnabledOutputStream m_body;
    std::map<std::string, std::string> m_headers;
    HeadCache* m_head_cache;
    // 1: the envelope was opened with the kept head; 2: the kept head is
    // being refilled from this message.
    int m_head_cache_use;
    bool m_envelope_opened;
};

#endif
