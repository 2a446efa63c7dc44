#include "MOXIDOM_NamespaceScope.h"

#include <string>

#include <xercesc/util/XMLUni.hpp>

XERCES_CPP_NAMESPACE_USE

MOXIDOM_NamespaceScope::MOXIDOM_NamespaceScope() : m_generated(0) {
    // "xml" is bound by definition and never declared.
    m_bindings.push_back(Binding{XString(XMLUni::fgXMLString), XString(XMLUni::fgXMLURIName)});
    m_frames.push_back(m_bindings.size());
}

void MOXIDOM_NamespaceScope::push() { m_frames.push_back(m_bindings.size()); }

void MOXIDOM_NamespaceScope::pop() {
    m_bindings.resize(m_frames.back());
    m_frames.pop_back();
}

void MOXIDOM_NamespaceScope::declare(const XString& prefix, const XString& uri) {
    for (std::size_t i = m_frames.back(); i < m_bindings.size(); ++i) {
        if (m_bindings[i].prefix == prefix) {
            m_bindings[i].uri = uri;
            return;
        }
    }
    m_bindings.push_back(Binding{prefix, uri});
}

const MOXIDOM_NamespaceScope::XString* MOXIDOM_NamespaceScope::lookup(const XString& prefix) const {
    for (std::size_t i = m_bindings.size(); i-- > 0;)
        if (m_bindings[i].prefix == prefix) return &m_bindings[i].uri;
    if (prefix.empty()) {
        static const XString none;
        return &none;
    }
    return nullptr;
}

bool MOXIDOM_NamespaceScope::declaredHere(const XString& prefix) const {
    for (std::size_t i = m_frames.back(); i < m_bindings.size(); ++i)
        if (m_bindings[i].prefix == prefix) return true;
    return false;
}

const MOXIDOM_NamespaceScope::XString* MOXIDOM_NamespaceScope::prefixFor(const XString& uri) const {
    for (std::size_t i = m_bindings.size(); i-- > 0;) {
        const Binding& b = m_bindings[i];
        if (b.prefix.empty() || b.uri != uri) continue;
        const XString* current = lookup(b.prefix);
        if (current != nullptr && *current == uri) return &b.prefix;
    }
    return nullptr;
}

MOXIDOM_NamespaceScope::XString MOXIDOM_NamespaceScope::newPrefix() {
    for (;;) {
        const std::string name = "ns" + std::to_string(++m_generated);
        const XString prefix(name.begin(), name.end());
        if (lookup(prefix) == nullptr) return prefix;
    }
}
