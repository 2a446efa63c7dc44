#include "moxcore/MOXUtSystemInfo.h"

#include <unistd.h>

long MOXUtSystemInfo::getProcessId() { return static_cast<long>(::getpid()); }
