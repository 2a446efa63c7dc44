#include "moxcore/MOXUtConvert.h"

char* MOXUtConvert::strlwr(char* text) {
    if (text == nullptr) return text;
    for (char* p = text; *p != '\0'; ++p)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
    return text;
}

const char* MOXUtConvert::getHexPrefix() { return "0x"; }

std::string& MOXUtConvert::hexCvt(std::string& target, unsigned value, unsigned width, char fill, const char* prefix) {
    static const char digits[] = "0123456789ABCDEF";
    std::string hex;
    do {
        hex.insert(hex.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    if (hex.size() < width) hex.insert(0, width - hex.size(), fill);
    target = (prefix != nullptr ? prefix : "") + hex;
    return target;
}
