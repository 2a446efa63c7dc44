#ifndef MOXIDOM_XMLURL_H
#define MOXIDOM_XMLURL_H

#include <string>

#include "moxcore/I18NString.h"

// An absolute URL (http, https, ftp or file), parsed with Xerces' XMLURL.
//
// A malformed URL throws Xerces' XERCES_CPP_NAMESPACE::XMLException (a
// MalformedURLException) out of the constructor, unchanged: no scheme, an
// unsupported scheme, a missing host, a port that is not a number below 65536,
// a bad IPv6 literal, text that is not UTF-8.
class XmlUrl {
public:
    explicit XmlUrl(const I18NString& url);

    // The HTTP request target: the path as written ("/" when the URL has none),
    // followed by "?" and the query when the URL has a query. The fragment is
    // left out; percent escapes are kept as they are.
    //   http://h:8080/a/b?x=1#f  ->  /a/b?x=1
    //   http://h                 ->  /
    //   http://h?x=1             ->  /?x=1
    //   http://[::1]:8080/svc    ->  /svc
    I18NString getPath() const { return m_path; }
    // The host as written, an IPv6 literal without its brackets.
    const std::string& getHost() const { return m_host; }
    // The port, or the scheme's default port (0 for file URLs).
    unsigned getPort() const { return m_port; }

private:
    I18NString m_path;
    std::string m_host;
    unsigned m_port;
};

#endif
