#ifndef MOXCORE_I18NSTRING_H
#define MOXCORE_I18NSTRING_H

#include <string>

// A text of the core library. Texts are kept as bytes in the default encoding
// (UTF-8 on this platform); the encoding arguments exist for the callers'
// sake and are not interpreted.
class I18NString {
public:
    I18NString() = default;
    // (text, encoding, length, reserved, reserved): a null text is empty; a length
    // of -1 means the text is NUL-terminated.
    I18NString(const char* text, const char* encoding = nullptr, int length = -1,
               const void* reserved1 = nullptr, const void* reserved2 = nullptr);
    explicit I18NString(const std::string& text) : m_text(text) {}

    const char* c_str(void* r1 = nullptr, void* r2 = nullptr, void* r3 = nullptr, void* r4 = nullptr) const;
    I18NString& append(const char* text);
    I18NString& append(const I18NString& text);

    const std::string& str() const { return m_text; }
    size_t length() const { return m_text.size(); }
    bool empty() const { return m_text.empty(); }

    bool operator==(const I18NString& other) const { return m_text == other.m_text; }
    bool operator!=(const I18NString& other) const { return m_text != other.m_text; }

private:
    std::string m_text;
};

#endif
