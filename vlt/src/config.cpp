// The session configuration document: a flat XML text with the root element
// sessionConfigDocument and one text element per setting. The parser is strict
// on purpose: a misspelt setting must not silently fall back to a default.
#include "internal.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <set>
#include <strings.h>

namespace vlt {
namespace {

constexpr const char* kRoot = "sessionConfigDocument";

class Parser {
public:
    explicit Parser(const std::string& text) : text_(text) {}

    // Each step returns "" or the complaint; values collects element → text.
    std::string parse(std::vector<std::pair<std::string, std::string>>& values) {
        if (text_.compare(0, 3, "\xEF\xBB\xBF") == 0) pos_ = 3;
        skipSpace();
        if (lookingAt("<?xml")) {
            std::size_t end = text_.find("?>", pos_);
            if (end == std::string::npos) return at("the XML declaration is not closed");
            pos_ = end + 2;
        }
        std::string err = skipMisc();
        if (!err.empty()) return err;
        if (pos_ >= text_.size()) return "no root element: expected <sessionConfigDocument>";
        if (text_[pos_] != '<') return at("text outside the root element");
        ++pos_;
        std::string name = readName();
        if (name.empty()) return at("malformed start tag");
        if (name != kRoot) return "root element is <" + name + ">, expected <sessionConfigDocument>";
        bool empty = false;
        err = readRootAttributes(empty);
        if (!err.empty()) return err;
        if (!empty) {
            err = readChildren(values);
            if (!err.empty()) return err;
        }
        err = skipMisc();
        if (!err.empty()) return err;
        if (pos_ < text_.size()) return at("unexpected content after </sessionConfigDocument>");
        return "";
    }

private:
    const std::string& text_;
    std::size_t pos_ = 0;

    std::string at(const std::string& what) const {
        int line = 1;
        for (std::size_t i = 0; i < pos_ && i < text_.size(); ++i)
            if (text_[i] == '\n') ++line;
        return what + " (line " + std::to_string(line) + " of the configuration document)";
    }

    bool lookingAt(const char* s) const { return text_.compare(pos_, std::strlen(s), s) == 0; }

    static bool isSpace(char ch) { return ch == ' ' || ch == '\t' || ch == '\r' || ch == '\n'; }

    void skipSpace() {
        while (pos_ < text_.size() && isSpace(text_[pos_])) ++pos_;
    }

    // Whitespace and comments between elements.
    std::string skipMisc() {
        for (;;) {
            skipSpace();
            if (!lookingAt("<!--")) return "";
            std::size_t end = text_.find("-->", pos_ + 4);
            if (end == std::string::npos) return at("comment is not closed");
            pos_ = end + 3;
        }
    }

    static bool nameChar(char ch, bool first) {
        unsigned char u = static_cast<unsigned char>(ch);
        if ((u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || ch == '_' || ch == ':' || u >= 0x80) return true;
        return !first && ((u >= '0' && u <= '9') || ch == '-' || ch == '.');
    }

    std::string readName() {
        std::size_t start = pos_;
        while (pos_ < text_.size() && nameChar(text_[pos_], pos_ == start)) ++pos_;
        return text_.substr(start, pos_ - start);
    }

    // Only namespace declarations are allowed on the root; they change nothing here.
    std::string readRootAttributes(bool& empty) {
        for (;;) {
            skipSpace();
            if (lookingAt("/>")) { pos_ += 2; empty = true; return ""; }
            if (lookingAt(">")) { pos_ += 1; empty = false; return ""; }
            std::string attr = readName();
            if (attr.empty()) return at("malformed start tag <sessionConfigDocument>");
            if (attr != "xmlns" && attr.compare(0, 6, "xmlns:") != 0)
                return "unexpected attribute '" + attr + "' on <sessionConfigDocument>";
            skipSpace();
            if (!lookingAt("=")) return at("attribute '" + attr + "' has no value");
            ++pos_;
            skipSpace();
            if (pos_ >= text_.size() || (text_[pos_] != '"' && text_[pos_] != '\''))
                return at("attribute '" + attr + "' has no quoted value");
            char quote = text_[pos_++];
            std::size_t end = text_.find(quote, pos_);
            if (end == std::string::npos) return at("attribute '" + attr + "' is not closed");
            pos_ = end + 1;
        }
    }

    std::string readChildren(std::vector<std::pair<std::string, std::string>>& values) {
        for (;;) {
            std::string err = skipMisc();
            if (!err.empty()) return err;
            if (pos_ >= text_.size()) return "<sessionConfigDocument> is not closed";
            if (text_[pos_] != '<') return at("text directly inside <sessionConfigDocument>");
            if (lookingAt("</")) {
                pos_ += 2;
                std::string name = readName();
                skipSpace();
                if (name != kRoot || !lookingAt(">"))
                    return at("<sessionConfigDocument> is closed by </" + name + ">");
                ++pos_;
                return "";
            }
            if (lookingAt("<!") || lookingAt("<?")) return at("unexpected markup inside <sessionConfigDocument>");
            ++pos_;
            std::string name = readName();
            if (name.empty()) return at("malformed start tag");
            std::string value;
            err = readElementBody(name, value);
            if (!err.empty()) return err;
            values.emplace_back(name, value);
        }
    }

    std::string readElementBody(const std::string& name, std::string& value) {
        skipSpace();
        if (lookingAt("/>")) { pos_ += 2; return ""; }
        if (!lookingAt(">")) return at("element <" + name + "> must not have attributes");
        ++pos_;
        for (;;) {
            if (pos_ >= text_.size()) return "element <" + name + "> is not closed";
            char ch = text_[pos_];
            if (lookingAt("<![CDATA[")) {
                std::size_t end = text_.find("]]>", pos_ + 9);
                if (end == std::string::npos) return at("CDATA section in <" + name + "> is not closed");
                value.append(text_, pos_ + 9, end - pos_ - 9);
                pos_ = end + 3;
            } else if (lookingAt("<!--")) {
                std::size_t end = text_.find("-->", pos_ + 4);
                if (end == std::string::npos) return at("comment is not closed");
                pos_ = end + 3;
            } else if (lookingAt("</")) {
                pos_ += 2;
                std::string closing = readName();
                skipSpace();
                if (closing != name || !lookingAt(">"))
                    return at("element <" + name + "> is closed by </" + closing + ">");
                ++pos_;
                value = trim(value);
                return "";
            } else if (ch == '<') {
                return at("element <" + name + "> must hold text only");
            } else if (ch == '&') {
                std::string err = readReference(value);
                if (!err.empty()) return err;
            } else {
                value += ch;
                ++pos_;
            }
        }
    }

    std::string readReference(std::string& value) {
        std::size_t end = text_.find(';', pos_);
        if (end == std::string::npos || end - pos_ > 10) return at("malformed character reference");
        std::string ref = text_.substr(pos_ + 1, end - pos_ - 1);
        pos_ = end + 1;
        if (ref == "amp") value += '&';
        else if (ref == "lt") value += '<';
        else if (ref == "gt") value += '>';
        else if (ref == "quot") value += '"';
        else if (ref == "apos") value += '\'';
        else if (ref.size() > 1 && ref[0] == '#') {
            unsigned long code = 0;
            bool hex = ref[1] == 'x';
            std::size_t i = hex ? 2 : 1;
            if (i >= ref.size()) return at("malformed character reference &" + ref + ";");
            for (; i < ref.size(); ++i) {
                char d = ref[i];
                int digit = (d >= '0' && d <= '9') ? d - '0'
                          : (hex && d >= 'a' && d <= 'f') ? d - 'a' + 10
                          : (hex && d >= 'A' && d <= 'F') ? d - 'A' + 10 : -1;
                if (digit < 0) return at("malformed character reference &" + ref + ";");
                code = code * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
                if (code > 0x10FFFF) return at("character reference &" + ref + "; is out of range");
            }
            if (code == 0) return at("character reference &" + ref + "; is not allowed");
            appendUtf8(value, code);
        } else {
            return at("unknown entity &" + ref + ";");
        }
        return "";
    }

    static void appendUtf8(std::string& out, unsigned long cp) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    static std::string trim(const std::string& s) {
        std::size_t b = 0, e = s.size();
        while (b < e && isSpace(s[b])) ++b;
        while (e > b && isSpace(s[e - 1])) --e;
        return s.substr(b, e - b);
    }
};

std::string parseBool(const std::string& name, const std::string& value, bool& out) {
    if (value == "true" || value == "1") { out = true; return ""; }
    if (value == "false" || value == "0") { out = false; return ""; }
    return name + " must be true or false, not '" + value + "'";
}

}  // namespace

std::string parseConfig(const char* document, Config& out) {
    out = Config();
    if (document == nullptr) return "";
    std::string text(document);
    bool blank = true;
    for (char ch : text)
        if (ch != ' ' && ch != '\t' && ch != '\r' && ch != '\n') blank = false;
    if (blank) return "the configuration document is empty (pass no document at all for the defaults)";

    std::vector<std::pair<std::string, std::string>> values;
    std::string err = Parser(text).parse(values);
    if (!err.empty()) return err;

    std::set<std::string> seen;
    for (const auto& [name, value] : values) {
        // The toolkit appends protocolFamily to whatever the caller wrote, so a
        // repeated one is expected and the last one counts.
        if (name != "protocolFamily" && !seen.insert(name).second)
            return "element <" + name + "> appears more than once in sessionConfigDocument";

        std::string* textSetting = nullptr;
        if (name == "serverName") textSetting = &out.serverName;
        else if (name == "caFile") textSetting = &out.caFile;
        else if (name == "caPath") textSetting = &out.caPath;
        else if (name == "clientCertificate") textSetting = &out.clientCertificate;
        else if (name == "clientKey") textSetting = &out.clientKey;
        else if (name == "cipherList") textSetting = &out.cipherList;
        else if (name == "serverCertificate") textSetting = &out.serverCertificate;
        else if (name == "serverKey") textSetting = &out.serverKey;

        if (textSetting != nullptr) {
            if (value.empty()) return "element <" + name + "> is empty";
            *textSetting = value;
        } else if (name == "verifyPeer") {
            err = parseBool(name, value, out.verifyPeer);
        } else if (name == "requireClientCertificate") {
            err = parseBool(name, value, out.requireClientCertificate);
        } else if (name == "minProtocol") {
            if (strcasecmp(value.c_str(), "TLS1.2") == 0) out.minProtocol = TLS1_2_VERSION;
            else if (strcasecmp(value.c_str(), "TLS1.3") == 0) out.minProtocol = TLS1_3_VERSION;
            else err = "minProtocol must be TLS1.2 or TLS1.3, not '" + value + "'";
        } else if (name == "protocolFamily") {
            if (strcasecmp(value.c_str(), "IPv4") == 0) out.family = AF_INET;
            else if (strcasecmp(value.c_str(), "IPv6") == 0) out.family = AF_INET6;
            else err = "protocolFamily must be IPv4 or IPv6, not '" + value + "'";
        } else {
            err = "unknown element <" + name + "> in sessionConfigDocument";
        }
        if (!err.empty()) return err;
    }
    if (!out.clientKey.empty() && out.clientCertificate.empty())
        return "clientKey is given without clientCertificate";
    if (!out.serverKey.empty() && out.serverCertificate.empty())
        return "serverKey is given without serverCertificate";
    return "";
}

}  // namespace vlt
