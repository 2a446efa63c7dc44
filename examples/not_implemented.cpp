// The smallest toolkit program: start, configure, handle an error, stop.
#include <cstdio>

#include "talvex/talvex.h"

int main() {
    if (TALVEXInitialize() != 0) return 1;
    TALVEX* toolkit = TALVEX::newInstance();
    toolkit->setUseVLT(0);                 // plain TCP instead of TLS
    toolkit->setUseNonBlockingSockets(1);  // needed for time-outs on TLS
    try {
        TALVEXException::ThrowNotImplemented("Demo::operation");
    } catch (MOXThrowable& e) {
        std::printf("%s\n", e.toString().c_str());
    }
    delete toolkit;
    return TALVEXTerminate() == 0 ? 0 : 1;
}
