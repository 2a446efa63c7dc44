// Run-time loading of shared libraries under the Windows names.
#pragma once

#include <string>

#include "platform/wintypes.h"

typedef void* HMODULE;

// Generic entry-point type. Callers cast it to the real signature;
// void (*)() is the type GCC accepts in such casts without
// -Wcast-function-type complaining.
typedef void (*FARPROC)();

// Dependencies of the loaded library are found through its own run path
// (build it with $ORIGIN), which is what this flag asks for on Windows.
#define LOAD_WITH_ALTERED_SEARCH_PATH 0x00000008

// Loads a shared library with RTLD_NOW | RTLD_LOCAL.
//
// A file name ending in ".dll" (any case) stands for the shared object
// "lib" + name without ".dll" + ".so"; a directory part is kept as it is.
// A name without '/' is looked for first in the folder of the shared object
// that contains this layer (libtalvex.so's folder when linked into it); when
// no such file is there, dlopen searches as usual. A name with '/' is opened
// as given.
//
// reserved must be null and flags 0 or LOAD_WITH_ALTERED_SEARCH_PATH.
// Returns null on failure; platformLastLoadError() then tells why.
HMODULE LoadLibraryExA(const char* name, void* reserved, DWORD flags);

// The named entry point, or null (platformLastLoadError() tells why).
FARPROC GetProcAddress(HMODULE module, const char* name);

// Drops one reference taken by LoadLibraryExA. TRUE on success.
BOOL FreeLibrary(HMODULE module);

// Text of the calling thread's last failure of the three calls above;
// empty when there was none. Valid until the thread's next failure.
const char* platformLastLoadError();

// The file name LoadLibraryExA opens for name ("dir/Name.dll" gives
// "dir/libName.so"; other names are returned unchanged).
std::string platformLibraryFileName(const char* name);
