#include "moxcore/I18NString.h"

I18NString::I18NString(const char* text, const char*, int length, const void*, const void*) {
    if (text == nullptr) return;
    if (length < 0)
        m_text.assign(text);
    else
        m_text.assign(text, static_cast<size_t>(length));
}

const char* I18NString::c_str(void*, void*, void*, void*) const { return m_text.c_str(); }

I18NString& I18NString::append(const char* text) {
    if (text != nullptr) m_text.append(text);
    return *this;
}

I18NString& I18NString::append(const I18NString& text) {
    m_text.append(text.m_text);
    return *this;
}
