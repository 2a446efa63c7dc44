#ifndef MOXCORE_MOXFILELOCATION_H
#define MOXCORE_MOXFILELOCATION_H

// Where a throw or a rethrow happened: the source unit (named after its class)
// and the line. The unit text is a literal and is not copied.
struct MOXFileLocation {
    const char* unit;
    int line;

    MOXFileLocation(const char* unitName, int lineNumber) : unit(unitName), line(lineNumber) {}
};

#endif
