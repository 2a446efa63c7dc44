#include "moxcore/MOXThrow.h"

void moxAssertFailed(const MOXFileLocation& location, const char* text) {
    MOXAssertError(0, text).hurl(location, nullptr, "MOX_THROW");
}
