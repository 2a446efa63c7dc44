// A program outside the source tree, built against the installed toolkit.
#include <cstdio>
#include <memory>

#include "talvex/talvex.h"

int main() {
    if (TALVEXInitialize() != 0) return 1;
    int result = 0;
    {
        std::unique_ptr<TALVEX> toolkit(TALVEX::newInstance());
        std::printf("defaults: secure sockets %d, non-blocking %d\n", toolkit->getUseSSL(),
                    toolkit->getUseNonBlockingSockets());
        try {
            TALVEXException::ThrowNotImplemented("Outside::call");
        } catch (TALVEXException& e) {
            std::printf("not implemented: error %d: %s\n", e.getCode(), e.getMessageAt(0).format().c_str());
        }
        // A secure connect to a closed loopback port: the security library must
        // be found beside the installed libtalvex.so for this to get as far as
        // the refusal.
        std::unique_ptr<TALVEXSocket> socket(toolkit->getSocket());
        try {
            socket->open("https://127.0.0.1:1/", "<sessionConfigDocument></sessionConfigDocument>", 1);
            result = 1;
        } catch (TALVEXException& e) {
            std::printf("secure connect to a closed port: error %d\n", e.getCode());
        } catch (MOXThrowable& e) {
            std::printf("secure connect to a closed port: %s\n", e.toString().c_str());
            result = 1;
        }
    }
    TALVEXTerminate();
    return result;
}
