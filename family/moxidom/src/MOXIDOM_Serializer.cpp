#include "MOXIDOM_Serializer.h"

#include <algorithm>

#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMProcessingInstruction.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "moxidom/DomWriter.h"
#include "moxidom/MOXIDOM_DOMException.h"

XERCES_CPP_NAMESPACE_USE

namespace {
typedef MOXIDOM_Transcoder::XString XString;

XString orEmpty(const XMLCh* text) { return text != nullptr ? XString(text) : XString(); }

bool isHighSurrogate(XMLCh c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(XMLCh c) { return c >= 0xDC00 && c <= 0xDFFF; }

bool contains(const std::vector<XString>& list, const XString& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

// Whether attribute is a namespace declaration; if so its prefix ("" for xmlns="...").
// Declarations made without the xmlns namespace URI count as well.
bool declaredPrefix(const DOMNode* attribute, XString& prefix) {
    const XMLCh* uri = attribute->getNamespaceURI();
    const XString name(attribute->getNodeName());
    const XString xmlns(XMLUni::fgXMLNSString);
    if (uri != nullptr && XString(uri) != XMLUni::fgXMLNSURIName) return false;
    if (name == xmlns) {
        prefix.clear();
        return true;
    }
    if (name.size() > xmlns.size() + 1 && name.compare(0, xmlns.size(), xmlns) == 0 && name[xmlns.size()] == u':') {
        prefix = name.substr(xmlns.size() + 1);
        return true;
    }
    return false;
}

[[noreturn]] void syntaxError(const char* what) {
    throw MOXIDOM_DOMException(MOXIDOM_DOMException::SYNTAX_ERR, what);
}
}  // namespace

MOXIDOM_Serializer::MOXIDOM_Serializer(DomWriter& writer) : m_writer(writer), m_used(0) {}

void MOXIDOM_Serializer::write(const DOMNode* node) {
    if (node == nullptr) return;
    if (node->getNodeType() == DOMNode::DOCUMENT_NODE) {
        writeDocument(node);
        return;
    }
    writeTree(node, true);
    flush(true);
}

void MOXIDOM_Serializer::writeDocument(const DOMNode* document) {
    m_writer.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    m_writer.writeNewLine();
    for (const DOMNode* child = document->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
        // A document type declaration is never written: the parser refuses them.
        if (child->getNodeType() == DOMNode::DOCUMENT_TYPE_NODE) continue;
        writeTree(child, false);
        flush(true);
        m_writer.writeNewLine();
    }
}

void MOXIDOM_Serializer::writeTree(const DOMNode* root, bool inheritScope) {
    const DOMNode* n = root;
    for (;;) {
        if (enter(n, inheritScope && n == root)) {
            n = n->getFirstChild();
            continue;
        }
        while (n != root && n->getNextSibling() == nullptr) {
            n = n->getParentNode();
            leave(n);
        }
        if (n == root) break;
        n = n->getNextSibling();
    }
}

bool MOXIDOM_Serializer::enter(const DOMNode* node, bool inheritScope) {
    const bool hasChildren = node->getFirstChild() != nullptr;
    switch (node->getNodeType()) {
        case DOMNode::ELEMENT_NODE:
            startElement(node, hasChildren, inheritScope);
            return hasChildren;
        case DOMNode::TEXT_NODE:
        case DOMNode::ATTRIBUTE_NODE:
            writeEscaped(node->getNodeValue(), false);
            return false;
        case DOMNode::CDATA_SECTION_NODE:
            writeCData(node->getNodeValue());
            return false;
        case DOMNode::COMMENT_NODE:
            writeComment(node->getNodeValue());
            return false;
        case DOMNode::PROCESSING_INSTRUCTION_NODE:
            writeProcessingInstruction(node);
            return false;
        case DOMNode::ENTITY_REFERENCE_NODE:
        case DOMNode::DOCUMENT_FRAGMENT_NODE:
            // Their content stands in their place.
            return hasChildren;
        default:
            return false;
    }
}

void MOXIDOM_Serializer::leave(const DOMNode* node) {
    if (node->getNodeType() != DOMNode::ELEMENT_NODE) return;
    put(u"</");
    put(m_open_names.back());
    put(u'>');
    m_open_names.pop_back();
    m_scope.pop();
}

void MOXIDOM_Serializer::startElement(const DOMNode* element, bool hasChildren, bool inheritScope) {
    m_scope.push();
    if (inheritScope) inheritDeclarations(element);

    const DOMNamedNodeMap* attributes = element->getAttributes();
    const XMLSize_t count = attributes != nullptr ? attributes->getLength() : 0;
    XString prefix;
    for (XMLSize_t i = 0; i < count; ++i) {
        const DOMNode* a = attributes->item(i);
        if (!declaredPrefix(a, prefix)) continue;
        const XString uri = orEmpty(a->getNodeValue());
        // Undeclaring a prefix (xmlns:p="") is not XML 1.0; leaving it out keeps the output parseable.
        if (!prefix.empty() && uri.empty()) continue;
        m_scope.declare(prefix, uri);
    }

    std::vector<XString> usedPrefixes;
    const XString name = elementName(element, usedPrefixes);
    std::vector<std::pair<XString, const XMLCh*>> plain;
    for (XMLSize_t i = 0; i < count; ++i) {
        const DOMNode* a = attributes->item(i);
        if (declaredPrefix(a, prefix)) continue;
        plain.emplace_back(attributeName(a, usedPrefixes), a->getNodeValue());
    }

    put(u'<');
    put(name);
    for (const MOXIDOM_NamespaceScope::Binding* b = m_scope.currentBegin(); b != m_scope.currentEnd(); ++b) {
        put(u" xmlns");
        if (!b->prefix.empty()) {
            put(u':');
            put(b->prefix);
        }
        put(u"=\"");
        writeEscaped(b->uri.c_str(), true);
        put(u'"');
    }
    for (const auto& a : plain) {
        put(u' ');
        put(a.first);
        put(u"=\"");
        writeEscaped(a.second, true);
        put(u'"');
    }
    if (hasChildren) {
        put(u'>');
        m_open_names.push_back(name);
    } else {
        put(u"/>");
        m_scope.pop();
    }
}

void MOXIDOM_Serializer::inheritDeclarations(const DOMNode* element) {
    // An element written on its own keeps the declarations in effect above it,
    // which QName values such as xsi:type="xsd:string" may rely on.
    std::vector<XString> seen;
    XString prefix;
    for (const DOMNode* p = element->getParentNode(); p != nullptr && p->getNodeType() == DOMNode::ELEMENT_NODE;
         p = p->getParentNode()) {
        const DOMNamedNodeMap* attributes = p->getAttributes();
        const XMLSize_t count = attributes != nullptr ? attributes->getLength() : 0;
        for (XMLSize_t i = 0; i < count; ++i) {
            const DOMNode* a = attributes->item(i);
            if (!declaredPrefix(a, prefix) || contains(seen, prefix)) continue;
            seen.push_back(prefix);
            const XString uri = orEmpty(a->getNodeValue());
            if (!uri.empty()) m_scope.declare(prefix, uri);
        }
        if (p->getLocalName() != nullptr && p->getNamespaceURI() != nullptr) {
            prefix = orEmpty(p->getPrefix());
            if (!contains(seen, prefix)) {
                seen.push_back(prefix);
                m_scope.declare(prefix, p->getNamespaceURI());
            }
        }
    }
}

MOXIDOM_Serializer::XString MOXIDOM_Serializer::elementName(const DOMNode* element,
                                                            std::vector<XString>& usedPrefixes) {
    const XMLCh* local = element->getLocalName();
    if (local == nullptr) return orEmpty(element->getNodeName());  // a name made without namespace support

    const XString uri = orEmpty(element->getNamespaceURI());
    XString prefix = orEmpty(element->getPrefix());
    if (uri.empty()) {
        // In no namespace: undo a default namespace in effect (this also
        // overrides a contradicting xmlns="..." on the element itself).
        if (!m_scope.lookup(prefix)->empty()) m_scope.declare(XString(), XString());
        return XString(local);
    }
    const XString* bound = m_scope.lookup(prefix);
    if (bound == nullptr || *bound != uri) {
        if (!m_scope.declaredHere(prefix)) {
            m_scope.declare(prefix, uri);
        } else {
            // The element's own xmlns attributes took the prefix for another URI.
            const XString* other = m_scope.prefixFor(uri);
            if (other != nullptr) {
                prefix = *other;
            } else {
                prefix = m_scope.newPrefix();
                m_scope.declare(prefix, uri);
            }
        }
    }
    usedPrefixes.push_back(prefix);
    return prefix.empty() ? XString(local) : prefix + u':' + local;
}

MOXIDOM_Serializer::XString MOXIDOM_Serializer::attributeName(const DOMNode* attribute,
                                                              std::vector<XString>& usedPrefixes) {
    const XMLCh* local = attribute->getLocalName();
    if (local == nullptr) return orEmpty(attribute->getNodeName());
    const XString uri = orEmpty(attribute->getNamespaceURI());
    if (uri.empty()) return XString(local);  // unprefixed attributes are in no namespace whatever the default
    if (uri == XMLUni::fgXMLURIName) return XString(XMLUni::fgXMLString) + u':' + local;
    const XString prefix = prefixForAttribute(orEmpty(attribute->getPrefix()), uri, usedPrefixes);
    return prefix + u':' + local;
}

MOXIDOM_Serializer::XString MOXIDOM_Serializer::prefixForAttribute(const XString& wanted, const XString& uri,
                                                                   std::vector<XString>& usedPrefixes) {
    if (!wanted.empty()) {
        const XString* bound = m_scope.lookup(wanted);
        if (bound != nullptr && *bound == uri) {
            usedPrefixes.push_back(wanted);
            return wanted;
        }
        // Rebinding is safe only while nothing on this element relies on the prefix.
        if (!m_scope.declaredHere(wanted) && !contains(usedPrefixes, wanted)) {
            m_scope.declare(wanted, uri);
            usedPrefixes.push_back(wanted);
            return wanted;
        }
    }
    // A namespaced attribute needs a prefix; the default namespace does not apply to it.
    const XString* other = m_scope.prefixFor(uri);
    XString prefix;
    if (other != nullptr) {
        prefix = *other;
    } else {
        prefix = m_scope.newPrefix();
        m_scope.declare(prefix, uri);
    }
    usedPrefixes.push_back(prefix);
    return prefix;
}

void MOXIDOM_Serializer::writeEscaped(const XMLCh* text, bool attribute) {
    if (text == nullptr) return;
    for (const XMLCh* p = text; *p != 0; ++p) {
        const XMLCh c = *p;
        switch (c) {
            case u'&': put(u"&amp;"); continue;
            case u'<': put(u"&lt;"); continue;
            case u'>': put(u"&gt;"); continue;
            // A literal CR would come back as LF; literal TAB and LF in an
            // attribute would come back as spaces.
            case u'\r': put(u"&#13;"); continue;
            case u'"':
                if (attribute) put(u"&quot;"); else put(c);
                continue;
            case u'\n':
                if (attribute) put(u"&#10;"); else put(c);
                continue;
            case u'\t':
                if (attribute) put(u"&#9;"); else put(c);
                continue;
            default:
                break;
        }
        if (isHighSurrogate(c) && isLowSurrogate(p[1])) {
            put(c);
            put(*++p);
            continue;
        }
        if (isHighSurrogate(c) || isLowSurrogate(c) || !MOXIDOM_Transcoder::isXmlChar(c))
            MOXIDOM_Transcoder::invalidCharacter(p, 0);
        put(c);
    }
}

void MOXIDOM_Serializer::writeCData(const XMLCh* text) {
    if (text == nullptr) text = u"";
    const XString value(text);
    const std::size_t bad = MOXIDOM_Transcoder::firstInvalid(value.data(), value.size());
    if (bad != XString::npos) MOXIDOM_Transcoder::invalidCharacter(value.data(), bad);
    put(u"<![CDATA[");
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value.compare(i, 3, u"]]>") == 0) {
            // "]]>" cannot stand inside a section: split it across two.
            put(u"]]]]><![CDATA[>");
            i += 2;
        } else if (value[i] == u'\r') {
            put(u"]]>&#13;<![CDATA[");
        } else {
            put(value[i]);
        }
    }
    put(u"]]>");
}

void MOXIDOM_Serializer::writeComment(const XMLCh* text) {
    const XString value = orEmpty(text);
    if (value.find(u"--") != XString::npos || (!value.empty() && value.back() == u'-'))
        syntaxError("a comment cannot hold \"--\" or end with \"-\"");
    const std::size_t bad = MOXIDOM_Transcoder::firstInvalid(value.data(), value.size());
    if (bad != XString::npos) MOXIDOM_Transcoder::invalidCharacter(value.data(), bad);
    put(u"<!--");
    put(value);
    put(u"-->");
}

void MOXIDOM_Serializer::writeProcessingInstruction(const DOMNode* pi) {
    const XString target = orEmpty(static_cast<const DOMProcessingInstruction*>(pi)->getTarget());
    const XString data = orEmpty(static_cast<const DOMProcessingInstruction*>(pi)->getData());
    if (data.find(u"?>") != XString::npos) syntaxError("a processing instruction cannot hold \"?>\"");
    const std::size_t bad = MOXIDOM_Transcoder::firstInvalid(data.data(), data.size());
    if (bad != XString::npos) MOXIDOM_Transcoder::invalidCharacter(data.data(), bad);
    put(u"<?");
    put(target);
    if (!data.empty()) {
        put(u' ');
        put(data);
    }
    put(u"?>");
}

void MOXIDOM_Serializer::put(const XMLCh* text) {
    for (; *text != 0; ++text) put(*text);
}

void MOXIDOM_Serializer::flush(bool all) {
    std::size_t n = m_used;
    if (!all && n > 0 && isHighSurrogate(m_buffer[n - 1])) --n;
    if (n > 0) {
        TranscodeToStr utf8(m_buffer, n, "UTF-8");
        m_writer.write(reinterpret_cast<const char*>(utf8.str()), static_cast<unsigned int>(utf8.length()));
    }
    if (n < m_used) {
        m_buffer[0] = m_buffer[n];
        m_used = 1;
    } else {
        m_used = 0;
    }
}
