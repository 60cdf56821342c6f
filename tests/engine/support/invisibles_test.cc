// Housekeeping files leave the keep list.

#include "engine/support/invisibles.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::setOf;

TEST(InvisiblePathTest, NamesAndPrefixIgnoreCaseOnTheLastComponent) {
  for (const char* path : {".DS_Store", "Debug/.ds_store", "a/.SVN", "CVS", "x/cvs", ".fseventsd", ".Trashes",
                           "Restore/.bc_cache", ".BC_"})
    EXPECT_TRUE(isInvisiblePath(path)) << path;
  for (const char* path : {".svn/entries", "DS_Store", "Restore/x.BC_", "CVSROOT", ".Trash", ""})
    EXPECT_FALSE(isInvisiblePath(path)) << path;
}

class InvisiblesTest : public testing::SupportStepTest {};

TEST_F(InvisiblesTest, OnlyMatchingPathsLeaveInTheManifestManner) {
  manifest_.kept =
      setOf({"Debug/.ds_store", "Debug/.svn", "Debug/.svn/entries", "Restore/.bc_cache", "Restore/a"});
  EXPECT_EQ(stripInvisibles(manifest_, Value()), 0);
  EXPECT_EQ(logged(), "--- invisibles scrub 3 items.\n");
  EXPECT_EQ(manifest_.kept, setOf({"Debug/.svn/entries", "Restore/a"}));
}

TEST_F(InvisiblesTest, LegacyDropsEverythingBelowAMatch) {
  bundle_.file("Debug/.svn/entries");
  bundle_.file("Debug/.svn/props/p");
  bundle_.file("Debug/log");
  legacy_.kept = setOf({"Debug", "Debug/.svn", "Debug/.svn/entries", "Debug/log"});
  EXPECT_EQ(stripInvisibles(legacy_, Value()), 0);
  // The count covers the listed subtree, kept or not.
  EXPECT_EQ(logged(), "--- invisibles scrub 4 items.\n");
  EXPECT_EQ(legacy_.kept, setOf({"Debug", "Debug/log"}));
}

TEST_F(InvisiblesTest, NothingToScrubLogsNothing) {
  manifest_.kept = setOf({"Restore/a", "Debug"});
  EXPECT_EQ(stripInvisibles(manifest_, Value()), 0);
  EXPECT_EQ(logged(), "");
  EXPECT_EQ(manifest_.kept.count(), 2u);
}

}  // namespace
}  // namespace velmar
