#include "moxcore/MOXFmDir.h"

#include <cstdlib>

std::string& MOXFmDir::resolveEffectivePath(std::string& path) {
    if (path.size() >= 2 && path[0] == '~' && path[1] == '/') {
        const char* home = std::getenv("HOME");
        if (home != nullptr && *home != '\0') path.replace(0, 1, home);
    }
    return path;
}
