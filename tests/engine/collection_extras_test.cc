#include "engine/collection_extras.h"

#include <gtest/gtest.h>

#include "base/plist_io.h"
#include "engine/property_list.h"
#include "synth/temp_dir.h"
#include "tests/engine/test_support.h"

namespace velmar::testing {
namespace {

TEST(CollectionExtrasTest, BoolForKeyTakesNumbersByValueAndStringsByALeadingY) {
  const std::pair<Value, bool> cases[] = {
      {"no", false}, {"Yes please", true}, {"yup", true}, {"true", false}, {"1", false},
      {2, true},     {0, false},           {0.5, true},   {true, true},    {arrayOf({"yes"}), false}};
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(boolForKey(dictOf({{"k", value}}), "k"), expected) << value.description();
  EXPECT_FALSE(boolForKey(Value(), "k"));
}

TEST(CollectionExtrasTest, AffixesAndOrderIgnoringCase) {
  EXPECT_TRUE(hasSuffix("Board.rpkg", "RPKG", Compare::CaseInsensitive));
  EXPECT_FALSE(hasSuffix("Board.rpkg", "RPKG", Compare::Literal));
  EXPECT_FALSE(hasSuffix("ab", "xab", Compare::CaseInsensitive));
  EXPECT_TRUE(caseInsensitiveLess("kernelcache", "Restore/x"));
}

TEST(DeepMergeTest, ContainersMergeAndMissingKeysAreTaken) {
  Value mine = dictOf({{"a", arrayOf({2, 3})}, {"d", dictOf({{"s", setOf({"x"})}})}});
  const Value theirs =
      dictOf({{"a", arrayOf({1, 2})}, {"d", dictOf({{"s", setOf({"y", "x"})}, {"new", "v"}})}, {"top", 5}});
  EXPECT_TRUE(deepMergeDictionary(mine, theirs));
  EXPECT_EQ(mine, dictOf({{"a", arrayOf({2, 3, 1})}, {"d", dictOf({{"s", setOf({"x", "y"})}, {"new", "v"}})},
                          {"top", 5}}));
}

TEST(DeepMergeTest, EqualLeavesPassConflictsWarnAndStop) {
  LogObject::sharedLogger().setHistoricalLog("");
  Value mine = dictOf({{"same", "x"}, {"clash", "y"}, {"list", arrayOf({1})}});
  EXPECT_FALSE(deepMergeDictionary(mine, dictOf({{"same", "x"}, {"early", 1}, {"clash", "x"}, {"late", 2}})));
  EXPECT_EQ(takeLog(), "!!! WARNING cannot merge String->String for key clash.\n");
  EXPECT_TRUE(mine.contains("early"));  // merged before the conflict
  EXPECT_FALSE(mine.contains("late"));  // never reached
  EXPECT_FALSE(deepMergeDictionary(mine, dictOf({{"list", 7}})));
  EXPECT_EQ(logText(), "!!! WARNING cannot merge Number->Array for key list.\n");
}

TEST(PropertyListTest, LoadReadsOnceUntilForceReload) {
  synth::TempDir dir;
  const std::string path = dir / "a.plist";
  writeFile(path, toXml(dictOf({{"k", "old"}})));
  PropertyList list(path);
  ASSERT_TRUE(list.load());
  writeFile(path, toXml(dictOf({{"k", "new"}})));
  EXPECT_TRUE(list.load());
  EXPECT_EQ(list.entries().get("k").str(), "old");
  EXPECT_TRUE(list.forceReload());
  EXPECT_EQ(list.entries().get("k").str(), "new");

  writeFile(path, "not a plist");
  PropertyList bad(path);
  EXPECT_FALSE(bad.load() || bad.loaded());
  EXPECT_EQ(PropertyList::propertyListLoadWithPath(path), nullptr);
}

}  // namespace
}  // namespace velmar::testing
