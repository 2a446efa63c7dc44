#ifndef MOXIDOM_MOXIDOM_SERIALIZER_H
#define MOXIDOM_MOXIDOM_SERIALIZER_H

#include <cstddef>
#include <vector>

#include <xercesc/dom/DOMNode.hpp>

#include "MOXIDOM_NamespaceScope.h"
#include "MOXIDOM_Transcoder.h"

class DomWriter;

// Writes a node as XML text through a DomWriter (see MOXIDOM_Helper::write).
//
// The output is collected as UTF-16 in a fixed buffer and handed on as UTF-8
// whenever the buffer fills, so a large envelope costs a few dozen writes, not
// one per name or text. Namespace fix-up works on the scope of what was
// written, never on the tree, so serialising does not change the document.
// The walk follows the tree's own links instead of recursing, so a deeply
// nested document cannot exhaust the stack.
class MOXIDOM_Serializer {
public:
    explicit MOXIDOM_Serializer(DomWriter& writer);
    MOXIDOM_Serializer(const MOXIDOM_Serializer&) = delete;
    MOXIDOM_Serializer& operator=(const MOXIDOM_Serializer&) = delete;

    void write(const XERCES_CPP_NAMESPACE::DOMNode* node);

private:
    typedef MOXIDOM_Transcoder::XString XString;
    // UTF-16 units per write; at most three UTF-8 bytes each.
    static const std::size_t kBufferUnits = 4096;

    void writeDocument(const XERCES_CPP_NAMESPACE::DOMNode* document);
    void writeTree(const XERCES_CPP_NAMESPACE::DOMNode* root, bool inheritScope);
    // Writes the opening part of a node; true when its children follow.
    bool enter(const XERCES_CPP_NAMESPACE::DOMNode* node, bool inheritScope);
    void leave(const XERCES_CPP_NAMESPACE::DOMNode* node);

    void startElement(const XERCES_CPP_NAMESPACE::DOMNode* element, bool hasChildren, bool inheritScope);
    void inheritDeclarations(const XERCES_CPP_NAMESPACE::DOMNode* element);
    XString elementName(const XERCES_CPP_NAMESPACE::DOMNode* element, std::vector<XString>& usedPrefixes);
    XString attributeName(const XERCES_CPP_NAMESPACE::DOMNode* attribute, std::vector<XString>& usedPrefixes);
    XString prefixForAttribute(const XString& prefix, const XString& uri, std::vector<XString>& usedPrefixes);

    void writeEscaped(const XMLCh* text, bool attribute);
    void writeCData(const XMLCh* text);
    void writeComment(const XMLCh* text);
    void writeProcessingInstruction(const XERCES_CPP_NAMESPACE::DOMNode* pi);

    void put(XMLCh c) {
        if (m_used == kBufferUnits) flush(false);
        m_buffer[m_used++] = c;
    }
    void put(const XMLCh* text);
    void put(const XString& text) { put(text.c_str()); }
    // Hands the buffer to the writer; `all` false keeps a trailing high
    // surrogate back so a character is never split between two writes.
    void flush(bool all);

    DomWriter& m_writer;
    MOXIDOM_NamespaceScope m_scope;
    std::vector<XString> m_open_names;
    XMLCh m_buffer[kBufferUnits];
    std::size_t m_used;
};

#endif
