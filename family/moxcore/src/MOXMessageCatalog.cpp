#include "moxcore/MOXMessageCatalog.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {
struct Catalog {
    const MOXCatalogEntry* entries;
    size_t count;
};

std::mutex& registryLock() {
    static std::mutex lock;
    return lock;
}

std::map<std::string, Catalog>& registry() {
    static std::map<std::string, Catalog> catalogs;
    return catalogs;
}
}  // namespace

void MOXMessageCatalog::registerCatalog(const char* name, const MOXCatalogEntry* entries, size_t count) {
    if (name == nullptr) return;
    std::lock_guard<std::mutex> guard(registryLock());
    registry()[name] = Catalog{entries, count};
}

const char* MOXMessageCatalog::lookup(const char* name, unsigned number) {
    if (name == nullptr) return nullptr;
    std::lock_guard<std::mutex> guard(registryLock());
    auto it = registry().find(name);
    if (it == registry().end()) return nullptr;
    for (size_t i = 0; i < it->second.count; ++i)
        if (it->second.entries[i].number == number) return it->second.entries[i].text;
    return nullptr;
}
