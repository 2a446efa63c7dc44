// LoadLibraryExA / GetProcAddress / FreeLibrary with the small probe
// libraries this folder builds.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <utility>

#include "platform/dynload.h"

namespace {

const std::string kLibDir = PLATFORM_TEST_LIB_DIR;
const std::string kExeDir = PLATFORM_TEST_EXE_DIR;

// Releases the module at scope end.
class Module {
 public:
  explicit Module(HMODULE h) : m_h(h) {}
  ~Module() {
    if (m_h != nullptr) FreeLibrary(m_h);
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  HMODULE get() const { return m_h; }

 private:
  HMODULE m_h;
};

// platform_probe_value() of the module, or -1 when it has none.
int probeValue(HMODULE module) {
  FARPROC proc = GetProcAddress(module, "platform_probe_value");
  if (proc == nullptr) return -1;
  return reinterpret_cast<int (*)()>(proc)();
}

bool isLoaded(const std::string& file) {
  void* h = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (h == nullptr) return false;
  dlclose(h);
  return true;
}

// The shared library with its own copy of the layer (see CMakeLists.txt).
class Shim {
 public:
  Shim() : m_handle(dlopen(PLATFORM_TEST_SHIM, RTLD_NOW | RTLD_LOCAL)) {
    if (m_handle == nullptr) return;
    m_load = reinterpret_cast<HMODULE (*)(const char*)>(dlsym(m_handle, "platform_shim_load"));
    m_error = reinterpret_cast<const char* (*)()>(dlsym(m_handle, "platform_shim_last_error"));
  }
  ~Shim() {
    if (m_handle != nullptr) dlclose(m_handle);
  }
  Shim(const Shim&) = delete;
  Shim& operator=(const Shim&) = delete;
  bool ready() const { return m_load != nullptr && m_error != nullptr; }
  HMODULE load(const char* name) const { return m_load(name); }
  std::string lastError() const { return m_error(); }

 private:
  void* m_handle;
  HMODULE (*m_load)(const char*) = nullptr;
  const char* (*m_error)() = nullptr;
};

TEST(LibraryFileName, OnlyADllFileNameBecomesASharedObjectName) {
  const std::pair<const char*, const char*> rows[] = {
      {"VLT_Crypto_Interface.dll", "libVLT_Crypto_Interface.so"},
      {"Name.DLL", "libName.so"},
      {"Name.Dll", "libName.so"},
      {"/opt/app/lib/Name.dll", "/opt/app/lib/libName.so"},
      {"rel/dir/Name.dll", "rel/dir/libName.so"},
      {"dir.dll/Name", "dir.dll/Name"},
      {"a.dll/b.dll", "a.dll/libb.so"},
      {"libm.so.6", "libm.so.6"},
      {"Name.dll.bak", "Name.dll.bak"},
      {"Name", "Name"},
      {".dll", ".dll"},
  };
  for (const auto& [name, file] : rows) EXPECT_EQ(platformLibraryFileName(name), file) << name;
}

// --- loading ---

TEST(LoadLibrary, DllNameIsFoundBesideTheObjectHoldingTheLayer) {
  // Linked into this test program, the layer searches the program's folder.
  Module m(LoadLibraryExA("PlatformExeDirProbe.dll", nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  ASSERT_NE(m.get(), nullptr) << platformLastLoadError();
  EXPECT_EQ(probeValue(m.get()), 9);
}

TEST(LoadLibrary, OwnFolderComesBeforeTheUsualSearchWhichFindsTheRest) {
  // The usual search would find another libPlatformProbe.so (value 7); the
  // one beside the shim (value 42) must win.
  Shim shim;
  ASSERT_TRUE(shim.ready()) << dlerror();
  Module beside(shim.load("PlatformProbe.dll"));
  ASSERT_NE(beside.get(), nullptr) << shim.lastError();
  EXPECT_EQ(probeValue(beside.get()), 42);
  Module elsewhere(shim.load("PlatformAltOnlyProbe.dll"));
  ASSERT_NE(elsewhere.get(), nullptr) << shim.lastError();
  EXPECT_EQ(probeValue(elsewhere.get()), 11);
}

TEST(LoadLibrary, PathWithAFolderIsOpenedAsGiven) {
  Module byDll(LoadLibraryExA((kLibDir + "/PlatformProbe.dll").c_str(), nullptr, 0));
  ASSERT_NE(byDll.get(), nullptr) << platformLastLoadError();
  EXPECT_EQ(probeValue(byDll.get()), 42);

  Module bySo(LoadLibraryExA((kLibDir + "/libPlatformProbe.so").c_str(), nullptr, 0));
  ASSERT_NE(bySo.get(), nullptr) << platformLastLoadError();
  EXPECT_EQ(probeValue(bySo.get()), 42);

  // A folder path is not searched for elsewhere, even though the program's
  // folder holds a library of this name.
  Module elsewhere(LoadLibraryExA((kLibDir + "/PlatformExeDirProbe.dll").c_str(), nullptr, 0));
  EXPECT_EQ(elsewhere.get(), nullptr);
}

TEST(LoadLibrary, MissingLibraryGivesNullAndTellsWhy) {
  Module m(LoadLibraryExA("NoSuchPlatformProbe.dll", nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  EXPECT_EQ(m.get(), nullptr);
  EXPECT_NE(std::string(platformLastLoadError()).find("libNoSuchPlatformProbe.so"), std::string::npos)
      << platformLastLoadError();
}

TEST(LoadLibrary, UnresolvedSymbolsFailAtLoadTime) {
  const std::string path = kLibDir + "/libPlatformUnresolvedProbe.so";
  void* lazy = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (lazy == nullptr) GTEST_SKIP() << "probe is bound at once by its linker flags: " << dlerror();
  dlclose(lazy);

  Module m(LoadLibraryExA((kLibDir + "/PlatformUnresolvedProbe.dll").c_str(), nullptr, 0));
  EXPECT_EQ(m.get(), nullptr);
  EXPECT_NE(std::string(platformLastLoadError()).find("platform_probe_missing_function"), std::string::npos)
      << platformLastLoadError();
}

TEST(LoadLibrary, RefusesBadArguments) {
  const std::string path = kLibDir + "/PlatformProbe.dll";
  int reserved = 0;
  EXPECT_EQ(LoadLibraryExA(path.c_str(), &reserved, 0), nullptr);
  EXPECT_EQ(LoadLibraryExA(path.c_str(), nullptr, 0x2), nullptr);
  EXPECT_STRNE(platformLastLoadError(), "");
  EXPECT_EQ(LoadLibraryExA(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(LoadLibraryExA("", nullptr, 0), nullptr);
}

TEST(ProcAddress, FindsOnlyTheModulesOwnNames) {
  Module m(LoadLibraryExA((kLibDir + "/PlatformProbe.dll").c_str(), nullptr, 0));
  ASSERT_NE(m.get(), nullptr) << platformLastLoadError();
  EXPECT_NE(GetProcAddress(m.get(), "platform_probe_value"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "platform_probe_value"), nullptr) << "symbols stay out of the global scope";
  EXPECT_EQ(GetProcAddress(m.get(), "platform_probe_absent"), nullptr);
  EXPECT_NE(std::string(platformLastLoadError()).find("platform_probe_absent"), std::string::npos)
      << platformLastLoadError();
  EXPECT_EQ(GetProcAddress(nullptr, "platform_probe_value"), nullptr);
  EXPECT_EQ(GetProcAddress(m.get(), nullptr), nullptr);
}

// --- unloading ---

TEST(FreeLibraryCall, UnloadsAfterTheLastReference) {
  const std::string file = kLibDir + "/libPlatformUnloadProbe.so";
  ASSERT_FALSE(isLoaded(file));
  HMODULE first = LoadLibraryExA((kLibDir + "/PlatformUnloadProbe.dll").c_str(), nullptr, 0);
  HMODULE second = LoadLibraryExA((kLibDir + "/PlatformUnloadProbe.dll").c_str(), nullptr, 0);
  ASSERT_NE(first, nullptr) << platformLastLoadError();
  ASSERT_EQ(second, first);
  EXPECT_EQ(probeValue(first), 43);

  EXPECT_NE(FreeLibrary(second), FALSE);
  EXPECT_TRUE(isLoaded(file));
  EXPECT_NE(FreeLibrary(first), FALSE);
  EXPECT_FALSE(isLoaded(file));
  EXPECT_EQ(FreeLibrary(nullptr), FALSE);
}

}  // namespace
