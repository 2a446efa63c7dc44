#ifndef TALVEX_TRANSPORT_TALVEXSOCKETERRORTEXT_H
#define TALVEX_TRANSPORT_TALVEXSOCKETERRORTEXT_H

// The English texts of the Windows Sockets error codes that a failed plain
// socket call reports next to its catalog message. Built in: no catalog.
class TALVEXSocketErrorText {
public:
    // The text for `code`, or "Unknown error code" for any code not in the table.
    static const char* lookup(int code);
};

#endif
