#include "tool/cleanup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

using testing::existsNoFollow;
using testing::readText;
using testing::writeText;

TEST(RemoveTreeSignalSafe, RemovesDeepReadOnlyTreesAndNeverFollowsLinks) {
  synth::TempDir dir("velmar-cleanup");
  const std::string tree = dir / "staging";
  writeText(dir / "outside/keep", "keep");
  // Deep, wide, read-only and unreadable folders, as a copied bundle has.
  std::string deep = tree;
  for (int i = 0; i < 60; ++i) deep += "/d" + std::to_string(i);
  writeText(deep + "/leaf", "x");
  for (int i = 0; i < 300; ++i) writeText(tree + "/wide/f" + std::to_string(i), "x");
  writeText(tree + "/locked/inner/file", "x");
  ::chmod((tree + "/locked/inner").c_str(), 0);
  ::chmod((tree + "/locked").c_str(), 0500);
  ::symlink((dir / "outside").c_str(), (tree + "/link-out").c_str());
  ::symlink("../outside/keep", (tree + "/wide/link-file").c_str());

  EXPECT_EQ(removeTreeSignalSafe(tree.c_str()), 0);
  EXPECT_FALSE(existsNoFollow(tree));
  EXPECT_EQ(readText(dir / "outside/keep"), "keep");

  // A single file, a missing path, a path with trailing slashes.
  writeText(dir / "file", "x");
  EXPECT_EQ(removeTreeSignalSafe((dir / "file").c_str()), 0);
  EXPECT_FALSE(existsNoFollow(dir / "file"));
  EXPECT_EQ(removeTreeSignalSafe((dir / "missing").c_str()), 0);
  writeText(dir / "slashes/a", "x");
  EXPECT_EQ(removeTreeSignalSafe((dir / "slashes//").c_str()), 0);
  EXPECT_FALSE(existsNoFollow(dir / "slashes"));
}

TEST(CleanupPaths, RegisterAndUnregisterWithinTheTableSize) {
  std::vector<std::string> registered;
  for (int i = 0; registerCleanupPath("/tmp/velmar-cleanup-slot-" + std::to_string(i)); ++i) {
    registered.push_back("/tmp/velmar-cleanup-slot-" + std::to_string(i));
    ASSERT_LT(i, 1000);
  }
  EXPECT_GE(registered.size(), 2u);  // a staging folder and an unpack folder
  EXPECT_FALSE(registerCleanupPath(std::string(5000, 'x')));
  unregisterCleanupPath(registered.front());
  EXPECT_TRUE(registerCleanupPath("/tmp/velmar-cleanup-again"));
  unregisterCleanupPath("/tmp/velmar-cleanup-again");
  for (const std::string& path : registered) unregisterCleanupPath(path);
}

}  // namespace
}  // namespace velmar::tool
