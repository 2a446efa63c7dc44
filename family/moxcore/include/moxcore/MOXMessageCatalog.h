#ifndef MOXCORE_MOXMESSAGECATALOG_H
#define MOXCORE_MOXMESSAGECATALOG_H

#include <cstddef>

// One entry of a message catalog: a number and its text, in which "%1" to "%9"
// stand for the message's parameters in order ("%%" is a percent sign).
struct MOXCatalogEntry {
    unsigned number;
    const char* text;
};

// The process-wide registry of message catalogs. A library registers its
// catalog under the catalog's name; the entries must stay valid for the life
// of the process (they are static tables). Registration is thread-safe.
class MOXMessageCatalog {
public:
    static void registerCatalog(const char* name, const MOXCatalogEntry* entries, size_t count);
    // The text of message `number` in catalog `name`, or null when unknown.
    static const char* lookup(const char* name, unsigned number);
};

#endif
