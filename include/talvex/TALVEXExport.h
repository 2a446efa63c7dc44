#ifndef TALVEX_TALVEXEXPORT_H
#define TALVEX_TALVEXEXPORT_H

/// libtalvex.so hides every symbol by default; the exported interface is marked
/// with TALVEX_API so applications can link against it and catch its exceptions.
#define TALVEX_API __attribute__((visibility("default")))

#endif
