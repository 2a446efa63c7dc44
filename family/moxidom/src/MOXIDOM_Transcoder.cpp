#include "MOXIDOM_Transcoder.h"

#include <cstdio>

#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>

#include "MOXIDOM_Platform.h"
#include "moxidom/MOXIDOM_DOMException.h"

XERCES_CPP_NAMESPACE_USE

namespace {
const char kUtf8[] = "UTF-8";

bool isHighSurrogate(XMLCh c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(XMLCh c) { return c >= 0xDC00 && c <= 0xDFFF; }
}  // namespace

std::string MOXIDOM_Transcoder::toUtf8(const XMLCh* text) {
    if (text == nullptr || *text == 0) return std::string();
    std::size_t length = 0;
    while (text[length] != 0) ++length;
    return toUtf8(text, length);
}

std::string MOXIDOM_Transcoder::toUtf8(const XMLCh* text, std::size_t length) {
    if (text == nullptr || length == 0) return std::string();
    MOXIDOM_Platform::ensureInitialized();
    try {
        TranscodeToStr out(text, length, kUtf8);
        return std::string(reinterpret_cast<const char*>(out.str()), out.length());
    } catch (const XMLException& e) {
        // Only a lone surrogate gets here; nodes built through this library never hold one.
        throw MOXIDOM_DOMException(MOXIDOM_DOMException::INVALID_CHARACTER_ERR,
                                   "text is not valid UTF-16: " + toUtf8(e.getMessage()));
    }
}

MOXIDOM_Transcoder::XString MOXIDOM_Transcoder::fromUtf8(const std::string& text) {
    if (text.empty()) return XString();
    MOXIDOM_Platform::ensureInitialized();
    try {
        TranscodeFromStr in(reinterpret_cast<const XMLByte*>(text.data()), text.size(), kUtf8);
        return XString(in.str(), in.length());
    } catch (const XMLException& e) {
        throw MOXIDOM_DOMException(MOXIDOM_DOMException::INVALID_CHARACTER_ERR,
                                   "text is not valid UTF-8: " + toUtf8(e.getMessage()));
    }
}

MOXIDOM_Transcoder::XString MOXIDOM_Transcoder::fromUtf8Text(const std::string& text) {
    XString result = fromUtf8(text);
    const std::size_t bad = firstInvalid(result.data(), result.size());
    if (bad != std::string::npos) invalidCharacter(result.data(), bad);
    return result;
}

std::size_t MOXIDOM_Transcoder::firstInvalid(const XMLCh* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        const XMLCh c = text[i];
        if (isHighSurrogate(c)) {
            if (i + 1 < length && isLowSurrogate(text[i + 1])) {
                ++i;
                continue;
            }
            return i;
        }
        if (isLowSurrogate(c) || !isXmlChar(c)) return i;
    }
    return std::string::npos;
}

void MOXIDOM_Transcoder::invalidCharacter(const XMLCh* text, std::size_t index) {
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(text[index]));
    throw MOXIDOM_DOMException(MOXIDOM_DOMException::INVALID_CHARACTER_ERR,
                               std::string("character ") + code + " cannot be written in XML 1.0");
}
