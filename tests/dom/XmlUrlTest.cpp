// The request target taken from an endpoint URL.

#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <xercesc/util/XMLException.hpp>

#include "moxidom/XmlUrl.h"

namespace {

std::string pathOf(const char* url) { return XmlUrl(I18NString(url)).getPath().str(); }

// The path with its query is the request target; without a path it is the root.
TEST(XmlUrl, RequestTargetHostAndPort) {
    const std::pair<const char*, const char*> rows[] = {
        {"http://host:8080/soap/calc?wsdl&x=1#part", "/soap/calc?wsdl&x=1"},
        {"https://user:pw@host/a%20b/c", "/a%20b/c"},
        {"http://host/p?", "/p?"},
        {"http://host", "/"},
        {"http://host:81", "/"},
        {"http://host?x=1", "/?x=1"},
        {"http://host:81?x=1#f", "/?x=1"},
        {"http://host#f", "/"},
        {"http://[::1]:8080/svc?x", "/svc?x"},
        {"http://[2001:db8::1]", "/"},
        {"http://[2001:db8::1]?q", "/?q"},
        {"https://[fe80::1%25eth0]/a", "/a"},
        {"http://[::ffff:192.0.2.1]:80/b", "/b"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.second, pathOf(r.first)) << r.first;

    XmlUrl url(I18NString("http://host:8080/soap"));
    EXPECT_EQ("host", url.getHost());
    EXPECT_EQ(8080u, url.getPort());
    EXPECT_EQ(443u, XmlUrl(I18NString("https://host/")).getPort());
    XmlUrl v6(I18NString("http://[::1]:8080/svc"));
    EXPECT_EQ("::1", v6.getHost());
    EXPECT_EQ(8080u, v6.getPort());
}

TEST(XmlUrl, MalformedUrlsThrowXercesXmlException) {
    const char* bad[] = {
        "http://host:abc/",  // port not a number
        "http://host:70000/",
        "http//host/x",       // no scheme
        "relative/path",
        "",
        "http:/x",            // one slash
        "urn:isbn:123",       // unsupported scheme
        "http://",            // no host
        "http://[::1/x",      // unclosed bracket
        "http://[zz::1]/x",   // not an IPv6 address
    };
    for (const char* url : bad) {
        EXPECT_THROW(XmlUrl(I18NString(url)), XERCES_CPP_NAMESPACE::XMLException) << url;
    }
}

}  // namespace
