#ifndef MOXCORE_MOXFMDIR_H
#define MOXCORE_MOXFMDIR_H

#include <string>

class MOXFmDir {
public:
    // Turns a file name into the path to open, in place, and returns the same
    // string: a leading "~/" becomes the home folder; anything else is kept.
    static std::string& resolveEffectivePath(std::string& path);
};

#endif
