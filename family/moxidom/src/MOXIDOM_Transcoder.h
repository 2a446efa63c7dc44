#ifndef MOXIDOM_MOXIDOM_TRANSCODER_H
#define MOXIDOM_MOXIDOM_TRANSCODER_H

#include <cstddef>
#include <string>

#include <xercesc/util/XercesDefs.hpp>

// UTF-8 <-> Xerces' UTF-16, always through the UTF-8 transcoder (never the
// local code page, which would garble non-ASCII text).
class MOXIDOM_Transcoder {
public:
    typedef std::basic_string<XMLCh> XString;

    // Null gives "".
    static std::string toUtf8(const XMLCh* text);
    static std::string toUtf8(const XMLCh* text, std::size_t length);
    // Bytes that are not UTF-8 raise MOXIDOM_DOMException (INVALID_CHARACTER_ERR).
    static XString fromUtf8(const std::string& text);
    // fromUtf8, also refusing characters XML 1.0 cannot carry, so that a bad
    // text fails where it is set rather than half-way through sending it.
    static XString fromUtf8Text(const std::string& text);

    // Whether c (a UTF-16 unit) may appear in XML 1.0 content; surrogates are
    // checked in pairs by firstInvalid.
    static bool isXmlChar(XMLCh c) {
        if (c < 0x20) return c == 0x09 || c == 0x0A || c == 0x0D;
        return c != 0xFFFE && c != 0xFFFF;
    }
    // Index of the first character XML 1.0 cannot carry, or npos.
    static std::size_t firstInvalid(const XMLCh* text, std::size_t length);
    // Raises INVALID_CHARACTER_ERR for text[index].
    [[noreturn]] static void invalidCharacter(const XMLCh* text, std::size_t index);
};

#endif
