// Keeping a cache folder within its size: both of velmarbs's caches (the
// disk images' entries and the parsed-file store) drop what was used least
// recently until the rest fits.

#ifndef VELMAR_BASE_CACHE_EVICTION_H_
#define VELMAR_BASE_CACHE_EVICTION_H_

#include <time.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velmar {

// One item of a cache: what the cache calls it, what it takes on disk, and
// when it was last used.
struct CacheItem {
  std::string name;
  uint64_t bytes = 0;
  struct timespec used = {};
};

// Removes `items`, least recently used first, while `total` (the bytes of
// the whole cache, these items included) is over `limit`; `remove` says
// whether an item went. Answers what is left of `total`.
uint64_t evictLeastRecentlyUsed(std::vector<CacheItem> items, uint64_t total, uint64_t limit,
                                const std::function<bool(const CacheItem&)>& remove);

}  // namespace velmar

#endif  // VELMAR_BASE_CACHE_EVICTION_H_
