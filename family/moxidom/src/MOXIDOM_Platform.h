#ifndef MOXIDOM_MOXIDOM_PLATFORM_H
#define MOXIDOM_MOXIDOM_PLATFORM_H

// Xerces start-up for the whole process.
//
// Xerces is initialised once, on the first use of this library, and never
// terminated: handles may outlive any point at which termination could run
// (static objects, other threads), and keeping our one initialisation open
// also protects us from an application's own Initialize/Terminate pairs,
// which Xerces counts. What Xerces allocates stays reachable from its globals,
// so leak checkers do not report it.
class MOXIDOM_Platform {
public:
    // Cheap after the first call; safe from any thread.
    static void ensureInitialized();
};

#endif
