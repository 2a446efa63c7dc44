#ifndef MOXCORE_MOXTHREAD_H
#define MOXCORE_MOXTHREAD_H

class MOXThread {
public:
    // Pauses the calling thread for the given number of SECONDS.
    static void sleep(unsigned seconds);
    // Pauses the calling thread for the given number of milliseconds.
    static void sleepMillis(unsigned milliseconds);
};

#endif
