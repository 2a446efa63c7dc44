// HTTPHeader::parse and dump; no input may make them fail, and the dump of a
// parse must parse back to the same dump.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxhttptools/HTTPHeader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // parse takes a C string, so the text ends at its first NUL.
    const std::string text(reinterpret_cast<const char*>(data), size);
    fuzz::guarded([&] {
        HTTPHeader h;
        h.parse(text.c_str());
        (void)std::strlen(h.getValue());
        (void)h.getAttribute("boundary");
        (void)h.getAttribute("type");
        MOXByteBuffer first;
        h.dump(first);
        const std::string once(first.str(), first.pcount());

        HTTPHeader again;
        again.parse(once.c_str());
        MOXByteBuffer second;
        again.dump(second);
        const std::string twice(second.str(), second.pcount());
        if (once.find('\0') == std::string::npos && once != twice) {
            std::fprintf(stderr, "dump is not stable:\n  input  [%s]\n  first  [%s]\n  second [%s]\n",
                         text.c_str(), once.c_str(), twice.c_str());
            std::abort();
        }
        // No parse leaves a NULL parse behind.
        h.parse(nullptr);
    });
    return 0;
}
