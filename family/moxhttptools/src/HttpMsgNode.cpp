#include "moxhttptools/HttpMsgNode.h"

#include <cctype>
#include <cstring>

#include "moxcore/MOXThrow.h"
#include "moxhttptools/HTTPMessage.h"

static const char MOX_UNIT[] = "HttpMsgNode";

namespace {

const char kVersion[] = "HTTP/1.1";

std::string requestTarget(const char* uri) {
    static const char hex[] = "0123456789ABCDEF";
    if (uri == nullptr || *uri == '\0') return "/";
    const char* p = uri;
    while (static_cast<unsigned char>(*p) > 0x20 && static_cast<unsigned char>(*p) < 0x7F) ++p;
    // The usual target needs no escapes: taken as it is.
    if (*p == '\0') return std::string(uri, p);
    std::string out(uri, p);
    for (; *p != '\0'; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c <= 0x20 || c >= 0x7F) {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0x0F];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// The authority of an absolute-form target ("scheme://[userinfo@]host[:port]/..."),
// without the userinfo; "" when the target has none.
std::string authorityOf(const std::string& target) {
    std::string::size_type colon = target.find("://");
    if (colon == std::string::npos || colon == 0 || !std::isalpha(static_cast<unsigned char>(target[0]))) return "";
    for (std::string::size_type i = 1; i < colon; ++i) {
        unsigned char c = static_cast<unsigned char>(target[i]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return "";
    }
    std::string::size_type begin = colon + 3;
    std::string::size_type end = target.find_first_of("/?#", begin);
    std::string authority = target.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
    std::string::size_type at = authority.rfind('@');
    if (at != std::string::npos) authority.erase(0, at + 1);
    return authority;
}

void appendLine(std::string& out, const std::string& name, const std::string& value) {
    out += name;
    out += ':';
    if (!value.empty()) {
        out += ' ';
        out += value;
    }
    out += "\r\n";
}

}  // namespace

HttpMsgNode::HttpMsgNode(bool isPart)
    : m_is_part(isPart),
      m_head_written(false),
      m_is_request(false),
      m_has_start_line(false),
      m_has_authority(false),
      m_has_given_head(false) {
    // A request's head has a handful of headers: one allocation, not several.
    m_headers.reserve(8);
}

HttpMsgNode::~HttpMsgNode() {}

// CR, LF and NUL would end or cut the line; a blank keeps the line whole.
// (A NUL cannot occur in a C string: the text simply ends there.)
std::string HttpMsgNode::lineSafe(const char* text) {
    if (text == nullptr) return std::string();
    std::string out(text);
    // Mostly there is nothing to replace: two fast scans instead of a loop over every byte.
    if (std::memchr(out.data(), '\r', out.size()) == nullptr && std::memchr(out.data(), '\n', out.size()) == nullptr)
        return out;
    for (char& c : out) {
        if (c == '\r' || c == '\n') c = ' ';
    }
    return out;
}

void HttpMsgNode::checkOpen(const char* function) const {
    if (m_head_written) MOX_THROW(MOXIllegalStateError, function);
}

void HttpMsgNode::checkMessage(const char* function) const {
    if (m_is_part) MOX_THROW(MOXIllegalStateError, function);
}

void HttpMsgNode::startRequest(const char* uri, int /*reserved*/) {
    checkMessage("HttpMsgNode::startRequest - a MIME part has no start line");
    checkOpen("HttpMsgNode::startRequest - the head was already written");
    m_uri = requestTarget(uri);
    m_start_line.reserve(m_uri.size() + 6 + sizeof kVersion);
    m_start_line.assign("POST ");
    m_start_line += m_uri;
    m_start_line += ' ';
    m_start_line += kVersion;
    m_is_request = true;
    m_has_start_line = true;
}

void HttpMsgNode::startResponse(int status, const char* reason) {
    checkMessage("HttpMsgNode::startResponse - a MIME part has no start line");
    checkOpen("HttpMsgNode::startResponse - the head was already written");
    if (status < 100 || status > 999) {
        MOX_THROW(MOXIllegalArgumentError, "HttpMsgNode::startResponse - status must have three digits");
    }
    // The blank after the status stays even without a reason: the grammar wants it.
    m_start_line = std::string(kVersion) + " " + std::to_string(status) + " " + lineSafe(reason);
    m_is_request = false;
    m_has_start_line = true;
}

void HttpMsgNode::setHeader(const char* name, const char* value) {
    checkOpen("HttpMsgNode::setHeader - the head was already written");
    if (name == nullptr || *name == '\0') {
        MOX_THROW(MOXIllegalArgumentError, "HttpMsgNode::setHeader - the header name is empty");
    }
    m_headers.emplace_back(lineSafe(name), lineSafe(value));
}

void HttpMsgNode::setAuthority(const char* authority) {
    checkOpen("HttpMsgNode::setAuthority - the head was already written");
    m_has_authority = authority != nullptr && *authority != '\0';
    m_authority = lineSafe(authority);
}

bool HttpMsgNode::isOwnHeader(const std::string& /*name*/) const { return false; }

std::string HttpMsgNode::hostValue() const { return m_has_authority ? m_authority : authorityOf(m_uri); }

void HttpMsgNode::useHead(const std::string* head) {
    if (head == nullptr) {
        // Forgetting changes nothing once the head is out: allowed at any time.
        m_has_given_head = false;
        m_given_head.clear();
        return;
    }
    checkMessage("HttpMsgNode::useHead - a MIME part's head is not given whole");
    checkOpen("HttpMsgNode::useHead - the head was already written");
    m_has_given_head = true;
    m_given_head = *head;
}

void HttpMsgNode::composeHead(std::string& out) {
    if (m_has_given_head) {
        out += m_given_head;
        m_head_written = true;
        return;
    }
    std::string::size_type size = out.size() + m_start_line.size() + m_authority.size() + 16;
    for (const auto& header : m_headers) size += header.first.size() + header.second.size() + 4;
    out.reserve(size);
    if (!m_is_part) {
        if (!m_has_start_line) {
            MOX_THROW(MOXIllegalStateError, "HttpMsgNode::composeHead - no start line was given");
        }
        out += m_start_line;
        out += "\r\n";
        if (m_is_request) {
            bool callerHost = false;
            for (const auto& header : m_headers) {
                if (HTTPMessage::equalsIgnoreCase(header.first, "Host")) callerHost = true;
            }
            if (!callerHost) appendLine(out, "Host", hostValue());
        }
    }
    for (const auto& header : m_headers) {
        if (!isOwnHeader(header.first)) appendLine(out, header.first, header.second);
    }
    m_head_written = true;
}
