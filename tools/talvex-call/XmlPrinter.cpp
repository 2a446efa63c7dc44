#include "XmlPrinter.h"

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

// The subtree exactly as it is, for mixed content.
void writeFlat(std::ostream& out, const MOXIDOM_Node& node) {
    if (!node.isElement()) {
        writeLeaf(out, node);
        return;
    }
    writeStartTag(out, node);
    if (!node.hasChildNodes()) {
        out << "/>";
        return;
    }
    out << '>';
    for (MOXIDOM_Node c = node.getFirstChild(); !c.isNull(); c = c.getNextSibling()) writeFlat(out, c);
    out << "</" << node.getNodeName() << '>';
}

void writeIndented(std::ostream& out, const MOXIDOM_Node& node, int depth, int step) {
    const std::string pad(static_cast<size_t>(depth * step), ' ');
    const int type = node.getNodeType();
    if (type == MOXIDOM_Node::DOCUMENT_NODE) {
        for (MOXIDOM_Node c = node.getFirstChild(); !c.isNull(); c = c.getNextSibling())
            writeIndented(out, c, depth, step);
        return;
    }
    if (type != MOXIDOM_Node::ELEMENT_NODE) {
        if (type == MOXIDOM_Node::TEXT_NODE) {
            // Blank text between elements is layout; other text keeps its
            // value but loses its surrounding layout whitespace.
            const std::string text = node.getNodeValue();
            if (isBlank(text)) return;
            const size_t begin = text.find_first_not_of(" \t\r\n");
            const size_t end = text.find_last_not_of(" \t\r\n");
            out << pad << escapeText(text.substr(begin, end - begin + 1)) << '\n';
            return;
        }
        out << pad;
        writeLeaf(out, node);
        out << '\n';
        return;
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
    out << pad;
    if (!node.hasChildNodes() || (!hasElementLike && !hasText)) {
        // Empty, or blanks only: blanks inside a leaf are its value.
        writeFlat(out, node);
        out << '\n';
        return;
    }
    if (hasText) {
        // Text (alone or mixed with elements) is written untouched.
        writeFlat(out, node);
        out << '\n';
        return;
    }
    writeStartTag(out, node);
    out << ">\n";
    for (MOXIDOM_Node c = node.getFirstChild(); !c.isNull(); c = c.getNextSibling())
        writeIndented(out, c, depth + 1, step);
    out << pad << "</" << node.getNodeName() << ">\n";
}

}  // namespace

void printXml(std::ostream& out, const MOXIDOM_Node& node, int indentStep) {
    writeIndented(out, node, 0, indentStep);
}
