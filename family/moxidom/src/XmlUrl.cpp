#include "moxidom/XmlUrl.h"

#include <cctype>

#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLURL.hpp>  // also declares MalformedURLException

#include "MOXIDOM_Platform.h"
#include "MOXIDOM_Transcoder.h"

XERCES_CPP_NAMESPACE_USE

namespace {
// Stands in for a bracketed IPv6 host, which XMLURL cannot read (it takes the
// first colon for the port); only the path is wanted from XMLURL anyway.
const char kIpv6Placeholder[] = "ipv6-literal.invalid";

bool isIpv6Literal(const std::string& text) {
    // Hex digits, colons and dots (an embedded IPv4 address), then an optional
    // zone ("%25eth0"); at least one colon.
    std::size_t i = 0;
    bool colon = false;
    for (; i < text.size() && text[i] != '%'; ++i) {
        const char c = text[i];
        if (c == ':') {
            colon = true;
        } else if (!(std::isxdigit(static_cast<unsigned char>(c)) || c == '.')) {
            return false;
        }
    }
    if (i < text.size()) {
        if (i + 1 == text.size()) return false;
        for (++i; i < text.size(); ++i) {
            const char c = text[i];
            if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '%' || c == '-' || c == '.' || c == '_' ||
                  c == '~'))
                return false;
        }
    }
    return colon;
}

[[noreturn]] void malformed(XMLExcepts::Codes code) { throw MalformedURLException(__FILE__, __LINE__, code); }
}  // namespace

XmlUrl::XmlUrl(const I18NString& url) : m_port(0) {
    MOXIDOM_Platform::ensureInitialized();
    std::string text = url.str();

    // Prepare the text so XMLURL reads it as intended: bracketed IPv6 hosts,
    // and a query or fragment right after the host ("http://h?x"), which XMLURL
    // would take as part of the host name.
    std::string ipv6Host;
    const std::size_t schemeEnd = text.find("://");
    if (schemeEnd != std::string::npos) {
        const std::size_t authority = schemeEnd + 3;
        std::size_t authorityEnd = text.find_first_of("/?#", authority);
        if (authorityEnd == std::string::npos) authorityEnd = text.size();
        const std::size_t open = text.find('[', authority);
        if (open < authorityEnd) {
            const std::size_t close = text.find(']', open);
            if (close == std::string::npos || close > authorityEnd) malformed(XMLExcepts::URL_MalformedURL);
            ipv6Host = text.substr(open + 1, close - open - 1);
            if (!isIpv6Literal(ipv6Host)) malformed(XMLExcepts::URL_MalformedURL);
            text.replace(open, close + 1 - open, kIpv6Placeholder);
            authorityEnd = authorityEnd - (close + 1 - open) + (sizeof kIpv6Placeholder - 1);
        }
        if (authorityEnd < text.size() && text[authorityEnd] != '/') text.insert(authorityEnd, 1, '/');
    }

    // Not MOXIDOM_Transcoder: text that is not UTF-8 must surface as an XMLException too.
    TranscodeFromStr wide(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "UTF-8");
    if (wide.length() == 0) malformed(XMLExcepts::URL_NoProtocolPresent);
    XMLURL parsed(wide.str());

    if (parsed.getProtocol() == XMLURL::Unknown || parsed.isRelative()) malformed(XMLExcepts::URL_NoProtocolPresent);
    const XMLCh* host = parsed.getHost();
    if (parsed.getProtocol() != XMLURL::File && (host == nullptr || *host == 0)) malformed(XMLExcepts::URL_MalformedURL);
    if (parsed.getPortNum() > 65535) malformed(XMLExcepts::URL_BadPortField);

    m_host = ipv6Host.empty() ? MOXIDOM_Transcoder::toUtf8(host) : ipv6Host;
    m_port = parsed.getPortNum();
    std::string path = MOXIDOM_Transcoder::toUtf8(parsed.getPath());
    if (path.empty()) path = "/";
    if (parsed.getQuery() != nullptr) path += "?" + MOXIDOM_Transcoder::toUtf8(parsed.getQuery());
    m_path = I18NString(path);
}
