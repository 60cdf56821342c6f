#include "base/cache_eviction.h"

#include <algorithm>

namespace velmar {

uint64_t evictLeastRecentlyUsed(std::vector<CacheItem> items, uint64_t total, uint64_t limit,
                                const std::function<bool(const CacheItem&)>& remove) {
  if (total <= limit) return total;
  std::sort(items.begin(), items.end(), [](const CacheItem& a, const CacheItem& b) {
    return a.used.tv_sec != b.used.tv_sec ? a.used.tv_sec < b.used.tv_sec
                                          : a.used.tv_nsec < b.used.tv_nsec;
  });
  for (const CacheItem& item : items) {
    if (total <= limit) break;
    if (remove(item)) total -= item.bytes;
  }
  return total;
}

}  // namespace velmar
