// LoadLibraryExA / GetProcAddress / FreeLibrary over dlopen.
#include "platform/dynload.h"

#include <dlfcn.h>
#include <strings.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

thread_local std::string t_last_error;

void setError(const std::string& text) {
  t_last_error = text;
}

void setDlError(const char* fallback) {
  const char* text = dlerror();
  setError(text != nullptr ? text : fallback);
}

// Its address identifies the object (executable or shared library) this
// copy of the layer was linked into.
void anchor() {}

bool endsWithDll(const std::string& base) {
  if (base.size() <= 4) return false;
  const char* ext = base.c_str() + base.size() - 4;
  return strncasecmp(ext, ".dll", 4) == 0;
}

std::string mainProgramPath() {
  char buf[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
  if (n <= 0) return {};
  buf[n] = '\0';
  return buf;
}

// Folder of the object containing this code; empty when it cannot be told.
std::string ownFolder() {
  Dl_info info;
  std::memset(&info, 0, sizeof(info));
  if (dladdr(reinterpret_cast<void*>(&anchor), &info) == 0) return {};
  std::string path = info.dli_fname != nullptr ? info.dli_fname : "";
  // glibc names the main program by an empty or bare name.
  if (path.find('/') == std::string::npos) path = mainProgramPath();
  const std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return slash == 0 ? std::string("/") : path.substr(0, slash);
}

void* openLibrary(const std::string& file) {
  void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) setDlError("cannot load library");
  return handle;
}

}  // namespace

std::string platformLibraryFileName(const char* name) {
  if (name == nullptr) return {};
  const std::string path(name);
  const std::string::size_type slash = path.rfind('/');
  const std::string::size_type start = slash == std::string::npos ? 0 : slash + 1;
  const std::string base = path.substr(start);
  if (!endsWithDll(base)) return path;
  return path.substr(0, start) + "lib" + base.substr(0, base.size() - 4) + ".so";
}

HMODULE LoadLibraryExA(const char* name, void* reserved, DWORD flags) {
  if (name == nullptr || *name == '\0') {
    setError("LoadLibraryExA: no library name");
    return nullptr;
  }
  if (reserved != nullptr) {
    setError("LoadLibraryExA: reserved argument must be null");
    return nullptr;
  }
  if ((flags & ~static_cast<DWORD>(LOAD_WITH_ALTERED_SEARCH_PATH)) != 0) {
    setError("LoadLibraryExA: unsupported flags");
    return nullptr;
  }

  const std::string file = platformLibraryFileName(name);
  if (file.find('/') == std::string::npos) {
    const std::string folder = ownFolder();
    if (!folder.empty()) {
      const std::string candidate = (folder == "/" ? folder : folder + "/") + file;
      // A library present beside us but unloadable is reported as such,
      // rather than silently replaced by another copy found elsewhere.
      if (access(candidate.c_str(), F_OK) == 0) return openLibrary(candidate);
    }
  }
  return openLibrary(file);
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
  if (module == nullptr || name == nullptr) {
    setError("GetProcAddress: null module or name");
    return nullptr;
  }
  dlerror();  // forget an older failure, so the one below is ours
  void* symbol = dlsym(module, name);
  if (symbol == nullptr) {
    setDlError("GetProcAddress: symbol has no address");
    return nullptr;
  }
  return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module) {
  if (module == nullptr) {
    setError("FreeLibrary: null module");
    return FALSE;
  }
  if (dlclose(module) != 0) {
    setDlError("FreeLibrary: cannot unload library");
    return FALSE;
  }
  return TRUE;
}

const char* platformLastLoadError() {
  return t_last_error.c_str();
}
