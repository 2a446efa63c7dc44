#ifndef TESTS_DOM_TREECOMPARE_H
#define TESTS_DOM_TREECOMPARE_H

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "moxidom/MOXIDOM.h"

// Attributes by {namespace}local, namespace declarations left out: those may
// legitimately differ between a built tree and its parsed-back copy.
inline std::map<std::string, std::string> attributesOf(const MOXIDOM_Element& e) {
    std::map<std::string, std::string> result;
    for (const MOXIDOM_Node& a : e.getAttributes()) {
        if (a.getNamespaceURI() == "http://www.w3.org/2000/xmlns/") continue;
        result["{" + a.getNamespaceURI() + "}" + a.getLocalName()] = a.getNodeValue();
    }
    return result;
}

// Same expanded names, attributes, text and structure, node by node.
inline void expectSameTree(const MOXIDOM_Node& expected, const MOXIDOM_Node& actual, const std::string& path = "") {
    ASSERT_FALSE(actual == NULL) << "missing node at " << path;
    ASSERT_EQ(expected.getNodeType(), actual.getNodeType()) << path;
    const std::string here = path + "/" + expected.getNodeName();
    if (expected.isElement()) {
        EXPECT_EQ(expected.getNamespaceURI(), actual.getNamespaceURI()) << here;
        EXPECT_EQ(expected.getLocalName(), actual.getLocalName()) << here;
        EXPECT_EQ(attributesOf(MOXIDOM_Element(expected)), attributesOf(MOXIDOM_Element(actual))) << here;
    } else {
        EXPECT_EQ(expected.getNodeValue(), actual.getNodeValue()) << here;
    }
    MOXIDOM_Node e = expected.getFirstChild();
    MOXIDOM_Node a = actual.getFirstChild();
    for (; !(e == NULL); e = e.getNextSibling(), a = a.getNextSibling()) {
        expectSameTree(e, a, here);
        if (a == NULL) return;
    }
    EXPECT_TRUE(a == NULL) << "extra node under " << here;
}

#endif
