#ifndef TALVEX_TALVEXLIMITS_H
#define TALVEX_TALVEXLIMITS_H

#include <cstddef>

/// Bounds on what a peer may send before the toolkit refuses it. The defaults
/// are far above what any real server sends; a session changes them through
/// its properties of the same names (TALVEXSession::setProperty).
struct TALVEXLimits {
    /// "max-head-line": bytes in one line of an HTTP head, a trailer or a MIME part head.
    std::size_t maxHeadLine = 100 * 1024;
    /// "max-head-lines": header lines in one head, trailer or part head.
    std::size_t maxHeadLines = 1000;
    /// "max-head-size": bytes of one whole head, trailer or part head.
    std::size_t maxHeadSize = 1024 * 1024;
    /// "max-interim-responses": 1xx responses passed over before the final one.
    std::size_t maxInterimResponses = 100;
    /// "max-envelope-size": bytes of an envelope a reader parses into a DOM.
    std::size_t maxEnvelopeSize = 64 * 1024 * 1024;
    /// "max-xml-depth": nesting of elements in a parsed envelope.
    std::size_t maxXmlDepth = 1000;
};

#endif
