#include "moxhttptools/HTTPHeader.h"

#include <utility>

#include "moxcore/MOXByteBuffer.h"
#include "moxhttptools/HTTPMessage.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// RFC 9110 tchar.
bool isTokenChar(unsigned char c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
    switch (c) {
        case '!': case '#': case '$': case '%': case '&': case '\'': case '*': case '+':
        case '-': case '.': case '^': case '_': case '`': case '|': case '~':
            return true;
        default:
            return false;
    }
}

bool isToken(const std::string& text) {
    if (text.empty()) return false;
    for (char c : text) {
        if (!isTokenChar(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

const char* skipBlanks(const char* p) {
    while (isBlank(*p)) ++p;
    return p;
}

}  // namespace

HTTPHeader::HTTPHeader() {}

void HTTPHeader::parse(const char* value) {
    m_value.clear();
    m_attributes.clear();
    if (value == nullptr) return;

    // Main value: up to the first ';' outside double quotes.
    const char* p = value;
    bool quoted = false;
    while (*p != '\0') {
        if (quoted) {
            if (*p == '\\' && p[1] != '\0') {
                p += 2;
                continue;
            }
            if (*p == '"') quoted = false;
        } else if (*p == '"') {
            quoted = true;
        } else if (*p == ';') {
            break;
        }
        ++p;
    }
    m_value.assign(value, p);
    HTTPMessage::trim(m_value);

    while (*p == ';') {
        p = skipBlanks(p + 1);
        const char* nameStart = p;
        while (*p != '\0' && *p != '=' && *p != ';') ++p;
        Attribute attribute;
        attribute.name.assign(nameStart, p);
        HTTPMessage::trim(attribute.name);
        attribute.hasValue = false;
        if (*p == '=') {
            attribute.hasValue = true;
            p = skipBlanks(p + 1);
            if (*p == '"') {
                ++p;
                while (*p != '\0' && *p != '"') {
                    if (*p == '\\' && p[1] != '\0') ++p;
                    attribute.value += *p++;
                }
                if (*p == '"') ++p;
            } else {
                while (*p != '\0' && *p != ';' && !isBlank(*p)) attribute.value += *p++;
            }
            // Whatever trails the value up to the next ';' is not part of it.
            while (*p != '\0' && *p != ';') ++p;
        }
        if (!attribute.name.empty()) m_attributes.push_back(std::move(attribute));
    }
}

const char* HTTPHeader::getValue() const { return m_value.c_str(); }

const char* HTTPHeader::getAttribute(const char* name) const {
    if (name == nullptr) return nullptr;
    for (const Attribute& attribute : m_attributes) {
        if (HTTPMessage::equalsIgnoreCase(attribute.name, name)) return attribute.value.c_str();
    }
    return nullptr;
}

void HTTPHeader::dump(MOXByteBuffer& out) const {
    out.appendChars(m_value.data(), static_cast<unsigned>(m_value.size()));
    for (const Attribute& attribute : m_attributes) {
        out << "; ";
        out.appendChars(attribute.name.data(), static_cast<unsigned>(attribute.name.size()));
        if (!attribute.hasValue) continue;
        out << '=';
        if (isToken(attribute.value)) {
            out.appendChars(attribute.value.data(), static_cast<unsigned>(attribute.value.size()));
            continue;
        }
        out << '"';
        for (char c : attribute.value) {
            if (c == '"' || c == '\\') out << '\\';
            out << c;
        }
        out << '"';
    }
}
