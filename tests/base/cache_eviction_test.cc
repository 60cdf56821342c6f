#include "base/cache_eviction.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmar {
namespace {

// Oldest first (the nanoseconds count when the seconds agree), only until
// the rest fits; an item that will not go is passed over and counted still.
TEST(CacheEvictionTest, DropsTheLeastRecentlyUsedUntilTheRestFits) {
  std::vector<CacheItem> items = {
      {"newest", 10, {300, 0}}, {"older", 10, {200, 5}}, {"oldest", 10, {200, 1}}, {"stuck", 10, {100, 0}}};
  std::vector<std::string> removed;
  const uint64_t left = evictLeastRecentlyUsed(items, 45, 25, [&](const CacheItem& item) {
    if (item.name == "stuck") return false;
    removed.push_back(item.name);
    return true;
  });
  EXPECT_EQ(removed, (std::vector<std::string>{"oldest", "older"}));
  EXPECT_EQ(left, 25u);
  EXPECT_EQ(evictLeastRecentlyUsed(items, 25, 25, [](const CacheItem&) -> bool { ADD_FAILURE(); return true; }),
            25u);
}

}  // namespace
}  // namespace velmar
