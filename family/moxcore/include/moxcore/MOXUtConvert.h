#ifndef MOXCORE_MOXUTCONVERT_H
#define MOXCORE_MOXUTCONVERT_H

#include <string>

class MOXUtConvert {
public:
    // Lower-cases ASCII letters in place; returns the argument.
    static char* strlwr(char* text);
    // The prefix written before hexadecimal numbers: "0x".
    static const char* getHexPrefix();
    // target = prefix + value in upper-case hexadecimal, at least `width`
    // digits, filled on the left with `fill`. Returns target.
    static std::string& hexCvt(std::string& target, unsigned value, unsigned width, char fill, const char* prefix);
};

#endif
