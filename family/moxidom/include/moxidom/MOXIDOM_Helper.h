#ifndef MOXIDOM_MOXIDOM_HELPER_H
#define MOXIDOM_MOXIDOM_HELPER_H

#include <string>

#include "moxidom/MOXIDOM_Node.h"

class DomWriter;

// Tree operations that may cross documents, and serialisation.
class MOXIDOM_Helper {
public:
    // Appends child as the last child of parent and returns the appended node.
    // A child of the same document moves. A child of another document is
    // copied in (deeply), so the copy lives on with parent's document after
    // the child's own document is gone; the original stays where it was.
    // Null handles, or a change the DOM forbids, raise MOXIDOM_DOMException.
    static MOXIDOM_Node appendChild(MOXIDOM_Node parent, MOXIDOM_Node child);

    // Serialises a node as UTF-8 through the writer's three write operations:
    // an element with its subtree, without XML declaration; a document as an
    // XML declaration and its children, each followed by writeNewLine().
    // The output always parses back to the same names: namespace declarations
    // present as xmlns attributes are kept, and those that element and
    // attribute names need but that are not in scope are added (an element
    // serialised on its own also carries the declarations of its ancestors).
    // Text is escaped (& < > and CR; in attributes also " TAB LF); comments,
    // processing instructions and CDATA sections are kept. A character XML 1.0
    // cannot carry, a comment holding "--" or a processing instruction holding
    // "?>" raises MOXIDOM_DOMException; what was written before stays written.
    // A null node writes nothing.
    static void write(MOXIDOM_Node node, DomWriter& writer);

    // write() into a string (with "\n" for the line breaks).
    static std::string toString(MOXIDOM_Node node);
};

#endif
