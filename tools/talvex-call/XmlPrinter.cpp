#include "XmlPrinter.h"

#include <algorithm>
#include <string>

namespace {

std::string escapeText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '\r': out += "&#13;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string escapeAttribute(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '"': out += "&quot;"; break;
            case '\t': out += "&#9;"; break;
            case '\n': out += "&#10;"; break;
            case '\r': out += "&#13;"; break;
            default: out += c;
        }
    }
    return out;
}

bool isBlank(const std::string& text) { return text.find_first_not_of(" \t\r\n") == std::string::npos; }

bool isTextLike(int type) {
    return type == MOXIDOM_Node::TEXT_NODE || type == MOXIDOM_Node::CDATA_SECTION_NODE ||
           type == MOXIDOM_Node::ENTITY_REFERENCE_NODE;
}

void writeStartTag(std::ostream& out, const MOXIDOM_Node& node) {
    out << '<' << node.getNodeName();
    for (const MOXIDOM_Node& a : MOXIDOM_Element(node).getAttributes())
        out << ' ' << a.getNodeName() << "=\"" << escapeAttribute(a.getNodeValue()) << '"';
}

void writeLeaf(std::ostream& out, const MOXIDOM_Node& node) {
    switch (node.getNodeType()) {
        case MOXIDOM_Node::TEXT_NODE: out << escapeText(node.getNodeValue()); break;
        case MOXIDOM_Node::CDATA_SECTION_NODE: {
            std::string text = node.getNodeValue();
            size_t at;
            while ((at = text.find("]]>")) != std::string::npos) text.replace(at, 3, "]]]]><![CDATA[>");
            out << "<![CDATA[" << text << "]]>";
            break;
        }
        case MOXIDOM_Node::COMMENT_NODE: out << "<!--" << node.getNodeValue() << "-->"; break;
        case MOXIDOM_Node::PROCESSING_INSTRUCTION_NODE: {
            const std::string data = node.getNodeValue();
            out << "<?" << node.getNodeName() << (data.empty() ? "" : " ") << data << "?>";
            break;
        }
        default: out << escapeText(node.getTextContent()); break;
    }
}

// Visits the subtree of root in document order along the tree's links, never
// by recursion, so any depth is safe. enter(node, depth) answers whether the
// node's children follow; each node so opened is closed by leave(node, depth)
// after them.
template <class Enter, class Leave>
void walk(const MOXIDOM_Node& root, Enter enter, Leave leave) {
    MOXIDOM_Node n = root;
    int depth = 0;
    for (;;) {
        const bool open = enter(n, depth);
        if (open && n.hasChildNodes()) {
            n = n.getFirstChild();
            ++depth;
            continue;
        }
        if (open) leave(n, depth);
        while (n != root && n.getNextSibling().isNull()) {
            n = n.getParentNode();
            leave(n, --depth);
        }
        if (n == root) return;
        n = n.getNextSibling();
    }
}

// The subtree exactly as it is, for mixed content.
void writeFlat(std::ostream& out, const MOXIDOM_Node& node) {
    walk(
        node,
        [&](const MOXIDOM_Node& n, int) {
            if (!n.isElement()) {
                writeLeaf(out, n);
                return false;
            }
            writeStartTag(out, n);
            out << (n.hasChildNodes() ? ">" : "/>");
            return true;
        },
        [&](const MOXIDOM_Node& n, int) {
            if (n.hasChildNodes()) out << "</" << n.getNodeName() << '>';
        });
}

// Indentation stops growing here, so that the output of a deep tree stays
// proportional to the tree instead of growing with the square of its depth.
const int kMaxIndent = 80;

class IndentedPrinter {
public:
    IndentedPrinter(std::ostream& out, int step) : m_out(out), m_step(step) {}

    void print(const MOXIDOM_Node& root) {
        // A document's children stand at the document's own level.
        const int base = root.getNodeType() == MOXIDOM_Node::DOCUMENT_NODE ? 1 : 0;
        walk(
            root, [&](const MOXIDOM_Node& n, int depth) { return enter(n, depth - base); },
            [&](const MOXIDOM_Node& n, int depth) {
                if (n.isElement()) {
                    pad(depth - base);
                    m_out << "</" << n.getNodeName() << ">\n";
                }
            });
    }

private:
    void pad(int level) {
        static const std::string spaces(kMaxIndent, ' ');
        const long width = std::min<long>(static_cast<long>(level) * m_step, kMaxIndent);
        if (width > 0) m_out.write(spaces.data(), width);
    }

    // Writes what stands before a node's children; true when they follow on lines of their own.
    bool enter(const MOXIDOM_Node& node, int level) {
        const int type = node.getNodeType();
        if (type == MOXIDOM_Node::DOCUMENT_NODE) return true;
        if (type != MOXIDOM_Node::ELEMENT_NODE) {
            if (type == MOXIDOM_Node::TEXT_NODE) {
                // Blank text between elements is layout; other text keeps its
                // value but loses its surrounding layout whitespace.
                const std::string text = node.getNodeValue();
                if (isBlank(text)) return false;
                const size_t begin = text.find_first_not_of(" \t\r\n");
                const size_t end = text.find_last_not_of(" \t\r\n");
                pad(level);
                m_out << escapeText(text.substr(begin, end - begin + 1)) << '\n';
                return false;
            }
            pad(level);
            writeLeaf(m_out, node);
            m_out << '\n';
            return false;
        }

        bool hasElementLike = false;
        bool hasText = false;
        for (MOXIDOM_Node c = node.getFirstChild(); !c.isNull(); c = c.getNextSibling()) {
            if (isTextLike(c.getNodeType())) {
                if (c.getNodeType() != MOXIDOM_Node::TEXT_NODE || !isBlank(c.getNodeValue())) hasText = true;
            } else {
                hasElementLike = true;
            }
        }
        pad(level);
        if (!hasElementLike || hasText) {
            // Empty or blanks only (blanks inside a leaf are its value), or
            // text alone or mixed with elements: written untouched.
            writeFlat(m_out, node);
            m_out << '\n';
            return false;
        }
        writeStartTag(m_out, node);
        m_out << ">\n";
        return true;
    }

    std::ostream& m_out;
    const int m_step;
};

}  // namespace

void printXml(std::ostream& out, const MOXIDOM_Node& node, int indentStep) {
    IndentedPrinter(out, indentStep).print(node);
}
