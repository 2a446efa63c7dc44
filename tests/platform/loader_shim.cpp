// Loads through the copy of the layer linked into this shared library.
#include "platform/dynload.h"

#define SHIM_EXPORT __attribute__((visibility("default")))

extern "C" SHIM_EXPORT HMODULE platform_shim_load(const char* name) {
  return LoadLibraryExA(name, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

extern "C" SHIM_EXPORT const char* platform_shim_last_error() {
  return platformLastLoadError();
}
