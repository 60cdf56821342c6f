#include "engine/collection_extras.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

#include "engine/log_object.h"
#include "engine/plist_io.h"
#include "engine/property_list.h"

namespace velmar {
namespace {

TEST(BoolForKeyTest, NumbersByValueStringsByLeadingY) {
  Value d = Value::makeDict();
  d.set("no", "no");
  d.set("yes", "Yes please");
  d.set("yup", "yup");
  d.set("true", "true");
  d.set("one", "1");
  d.set("two", 2);
  d.set("zero", 0);
  d.set("real", 0.5);
  d.set("flag", true);
  d.set("list", Value::makeArray({"yes"}));
  EXPECT_FALSE(boolForKey(d, "no"));
  EXPECT_TRUE(boolForKey(d, "yes"));
  EXPECT_TRUE(boolForKey(d, "yup"));
  EXPECT_FALSE(boolForKey(d, "true"));
  EXPECT_FALSE(boolForKey(d, "one"));
  EXPECT_TRUE(boolForKey(d, "two"));
  EXPECT_FALSE(boolForKey(d, "zero"));
  EXPECT_TRUE(boolForKey(d, "real"));
  EXPECT_TRUE(boolForKey(d, "flag"));
  EXPECT_FALSE(boolForKey(d, "list"));
  EXPECT_FALSE(boolForKey(d, "missing"));
  EXPECT_FALSE(boolForKey(Value(), "yes"));
}

class DeepMergeTest : public ::testing::Test {
 protected:
  void SetUp() override { LogObject::sharedLogger().setHistoricalLog(""); }
};

TEST_F(DeepMergeTest, ArraysAppendWhatIsMissingInOrder) {
  Value mine = Value::makeDict();
  mine.set("a", Value::makeArray({2, 3}));
  Value theirs = Value::makeDict();
  theirs.set("a", Value::makeArray({1, 2}));
  EXPECT_TRUE(deepMergeDictionary(mine, theirs));
  EXPECT_EQ(mine.get("a"), Value::makeArray({2, 3, 1}));
}

TEST_F(DeepMergeTest, NestedDictionariesAndSetsMergeAndMissingKeysAreTaken) {
  Value mine = Value::makeDict();
  Value inner = Value::makeDict();
  inner.set("s", Value::makeSet({"x"}));
  mine.set("d", inner);
  Value theirs = Value::makeDict();
  Value theirInner = Value::makeDict();
  theirInner.set("s", Value::makeSet({"y", "x"}));
  theirInner.set("new", "v");
  theirs.set("d", theirInner);
  theirs.set("top", 5);
  Value before = theirs;
  EXPECT_TRUE(deepMergeDictionary(mine, theirs));
  EXPECT_EQ(mine.valueForKeyPath("d.s"), Value::makeSet({"x", "y"}));
  EXPECT_EQ(mine.valueForKeyPath("d.new").str(), "v");
  EXPECT_EQ(mine.get("top").intValue(), 5);
  EXPECT_EQ(theirs, before);  // the other side is never changed
}

TEST_F(DeepMergeTest, EqualLeavesPassConflictsWarnAndStop) {
  Value mine = Value::makeDict();
  mine.set("same", "x");
  mine.set("clash", "y");
  mine.set("list", Value::makeArray({1}));
  Value theirs = Value::makeDict();
  theirs.set("same", "x");
  theirs.set("early", 1);
  theirs.set("clash", "x");
  theirs.set("late", 2);
  EXPECT_FALSE(deepMergeDictionary(mine, theirs));
  EXPECT_EQ(LogObject::sharedLogger().historicalLog(),
            "!!! WARNING cannot merge String->String for key clash.\n");
  EXPECT_TRUE(mine.contains("early"));   // merged before the conflict
  EXPECT_FALSE(mine.contains("late"));   // never reached

  LogObject::sharedLogger().setHistoricalLog("");
  Value numberOverArray = Value::makeDict();
  numberOverArray.set("list", 7);
  EXPECT_FALSE(deepMergeDictionary(mine, numberOverArray));
  EXPECT_EQ(LogObject::sharedLogger().historicalLog(),
            "!!! WARNING cannot merge Number->Array for key list.\n");
}

TEST(NiceDescriptionTest, JoinsWithCommaSpaceAndSortsSets) {
  EXPECT_EQ(niceDescription(Value::makeArray()), "");
  EXPECT_EQ(niceDescription(Value::makeArray({"b", 1, "a"})), "b, 1, a");
  EXPECT_EQ(niceDescription(Value::makeSet({"r13ap", "r11ap"})), "r11ap, r13ap");
}

TEST(AffixTest, PrefixAndSuffixIgnoringCase) {
  EXPECT_TRUE(hasSuffix("Board.rpkg", "RPKG", Compare::CaseInsensitive));
  EXPECT_FALSE(hasSuffix("Board.rpkg", "RPKG", Compare::Literal));
  EXPECT_TRUE(hasPrefix(".bc_cache", ".BC_", Compare::CaseInsensitive));
  EXPECT_FALSE(hasPrefix("abc", "", Compare::CaseInsensitive));
  EXPECT_FALSE(hasSuffix("ab", "xab", Compare::CaseInsensitive));
  EXPECT_TRUE(caseInsensitiveLess("Debug/x", "kernelcache"));
  EXPECT_TRUE(caseInsensitiveLess("kernelcache", "Restore/x"));
}

class PropertyListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/velmar-plist-XXXXXX";
    dir_ = mkdtemp(tmpl);
    path_ = dir_ + "/a.plist";
  }
  void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }
  void write(const Value& v) { std::ofstream(path_) << toXml(v); }

  std::string dir_;
  std::string path_;
};

TEST_F(PropertyListTest, LoadReadsOnceUntilForceReloadAndTellsObservers) {
  Value v = Value::makeDict();
  v.set("k", "old");
  write(v);
  PropertyList list(path_);
  std::vector<bool> seen;
  list.addLoadedObserver([&](bool loaded) { seen.push_back(loaded); });
  ASSERT_TRUE(list.load());
  v.set("k", "new");
  write(v);
  EXPECT_TRUE(list.load());
  EXPECT_EQ(list.entries().get("k").str(), "old");
  EXPECT_TRUE(list.forceReload());
  EXPECT_EQ(list.entries().get("k").str(), "new");
  EXPECT_EQ(seen, (std::vector<bool>{true, false, true}));
}

TEST_F(PropertyListTest, FailedLoadLeavesEntriesAndLoadedAlone) {
  PropertyList none;
  EXPECT_FALSE(none.load());
  std::ofstream(path_) << "not a plist";
  PropertyList bad(path_);
  EXPECT_FALSE(bad.load());
  EXPECT_FALSE(bad.loaded());
  EXPECT_TRUE(bad.entries().isNull());
  EXPECT_EQ(PropertyList::propertyListLoadWithPath(path_), nullptr);
  EXPECT_EQ(PropertyList::propertyListLoadWithPath(dir_ + "/missing.plist"), nullptr);
}

TEST_F(PropertyListTest, RootOfAnyKindIsReturnedAsItIs) {
  write(Value::makeArray({"x"}));
  EXPECT_TRUE(mutableDictionaryAtPath(path_).isArray());
  // Binary files load the same way.
  std::ofstream(path_, std::ios::binary) << toBinary(Value::makeArray({"y"}));
  EXPECT_EQ(mutableDictionaryAtPath(path_), Value::makeArray({"y"}));
}

}  // namespace
}  // namespace velmar
