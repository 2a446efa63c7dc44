// The request target taken from an endpoint URL.

#include <string>

#include <gtest/gtest.h>
#include <xercesc/util/XMLException.hpp>

#include "moxidom/XmlUrl.h"

namespace {

std::string pathOf(const char* url) { return XmlUrl(I18NString(url)).getPath().str(); }

TEST(XmlUrl, PathWithQueryIsTheRequestTarget) {
    EXPECT_EQ("/soap/calc?wsdl&x=1", pathOf("http://host:8080/soap/calc?wsdl&x=1#part"));
    EXPECT_EQ("/a%20b/c", pathOf("https://user:pw@host/a%20b/c"));
    EXPECT_EQ("/p?", pathOf("http://host/p?"));

    XmlUrl url(I18NString("http://host:8080/soap"));
    EXPECT_EQ("host", url.getHost());
    EXPECT_EQ(8080u, url.getPort());
    EXPECT_EQ(443u, XmlUrl(I18NString("https://host/")).getPort());
}

TEST(XmlUrl, AUrlWithoutPathAsksForTheRoot) {
    EXPECT_EQ("/", pathOf("http://host"));
    EXPECT_EQ("/", pathOf("http://host:81"));
    EXPECT_EQ("/?x=1", pathOf("http://host?x=1"));
    EXPECT_EQ("/?x=1", pathOf("http://host:81?x=1#f"));
    EXPECT_EQ("/", pathOf("http://host#f"));
}

TEST(XmlUrl, Ipv6Hosts) {
    EXPECT_EQ("/svc?x", pathOf("http://[::1]:8080/svc?x"));
    EXPECT_EQ("/", pathOf("http://[2001:db8::1]"));
    EXPECT_EQ("/?q", pathOf("http://[2001:db8::1]?q"));
    EXPECT_EQ("/a", pathOf("https://[fe80::1%25eth0]/a"));
    EXPECT_EQ("/b", pathOf("http://[::ffff:192.0.2.1]:80/b"));

    XmlUrl url(I18NString("http://[::1]:8080/svc"));
    EXPECT_EQ("::1", url.getHost());
    EXPECT_EQ(8080u, url.getPort());
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
