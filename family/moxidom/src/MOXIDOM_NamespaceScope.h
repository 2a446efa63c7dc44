#ifndef MOXIDOM_MOXIDOM_NAMESPACESCOPE_H
#define MOXIDOM_MOXIDOM_NAMESPACESCOPE_H

#include <cstddef>
#include <vector>

#include "MOXIDOM_Transcoder.h"

// The namespace declarations in scope while serialising: one frame per open
// element, holding exactly the declarations written on that element, so the
// scope always mirrors what a parser of the output will see.
class MOXIDOM_NamespaceScope {
public:
    typedef MOXIDOM_Transcoder::XString XString;
    struct Binding {
        XString prefix;  // empty: the default namespace
        XString uri;     // empty with an empty prefix: xmlns=""
    };

    MOXIDOM_NamespaceScope();

    void push();
    void pop();

    // Declares prefix on the current element, replacing an earlier
    // declaration of the same prefix on that element.
    void declare(const XString& prefix, const XString& uri);
    // The URI bound to prefix, or null when unbound ("" for the default
    // namespace when none is in effect).
    const XString* lookup(const XString& prefix) const;
    bool declaredHere(const XString& prefix) const;
    // A non-empty prefix currently bound to uri (not hidden by a nearer
    // declaration), or null.
    const XString* prefixFor(const XString& uri) const;
    // A prefix "nsN" bound nowhere in the scope.
    XString newPrefix();

    // The declarations of the current element, in the order declared.
    const Binding* currentBegin() const { return m_bindings.data() + m_frames.back(); }
    const Binding* currentEnd() const { return m_bindings.data() + m_bindings.size(); }

private:
    std::vector<Binding> m_bindings;
    std::vector<std::size_t> m_frames;  // start of each element's declarations
    unsigned m_generated;
};

#endif
