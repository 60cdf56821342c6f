// Housekeeping files leave the keep list.

#include "engine/support/invisibles.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

TEST(InvisiblePathTest, NamesAndPrefixIgnoreCaseOnTheLastComponent) {
  for (const char* path : {"a/CVS", ".fseventsd", ".trashes"}) EXPECT_TRUE(isInvisiblePath(path)) << path;
  for (const char* path : {"DS_Store", "Restore/x.BC_", "CVSROOT", ".Trash"})
    EXPECT_FALSE(isInvisiblePath(path)) << path;
}

class InvisiblesTest : public SupportStepTest {};

TEST_F(InvisiblesTest, ManifestMannerDropsMatchesOnlyAndThenHasNothingToSay) {
  manifest_.kept =
      setOf({"Debug/.ds_store", "Debug/.svn", "Debug/.svn/entries", "Restore/.bc_cache", "Restore/a"});
  EXPECT_EQ(stripInvisibles(manifest_, manifest_.supportRequest(Value())), 0);
  EXPECT_EQ(takeLog(), "--- invisibles scrub 3 items.\n");
  EXPECT_EQ(manifest_.kept, setOf({"Debug/.svn/entries", "Restore/a"}));
  EXPECT_EQ(stripInvisibles(manifest_, manifest_.supportRequest(Value())), 0);
  EXPECT_EQ(logText(), "");
}

TEST_F(InvisiblesTest, LegacyDropsEverythingBelowAMatch) {
  put("Debug/.svn/entries");
  put("Debug/.svn/props/p");
  put("Debug/log");
  legacy_.kept = setOf({"Debug", "Debug/.svn", "Debug/.svn/entries", "Debug/log"});
  EXPECT_EQ(stripInvisiblesWithContents(legacy_, legacy_.supportRequest(Value())), 0);
  // The count covers the listed subtree, kept or not.
  EXPECT_EQ(logText(), "--- invisibles scrub 4 items.\n");
  EXPECT_EQ(legacy_.kept, setOf({"Debug", "Debug/log"}));
}

}  // namespace
}  // namespace velmar::testing
