#ifndef MOXCORE_MOXUTSYSTEMINFO_H
#define MOXCORE_MOXUTSYSTEMINFO_H

class MOXUtSystemInfo {
public:
    static long getProcessId();
};

#endif
