// The two merges of the legacy engine: keep lists into one sorted list, and
// modified-file records by their kind.

#include <gtest/gtest.h>

#include "engine/legacy/stripper2.h"
#include "tests/engine/legacy/legacy_fixture.h"

namespace velmar::testing {
namespace {

class MergeTest : public LegacyTest {};

TEST_F(MergeTest, KeepListsMergeOnceEachSortedIgnoringCase) {
  write(synth::legacyBundle(false));
  auto e = engine();
  e->strippedManifestsList() = arrayOf({arrayOf({"Restore/b", "kernelcache"}), arrayOf({"Debug/x", "Restore/b"})});
  Value unused;
  EXPECT_EQ(e->mergeStrippedManifests(unused), 0);
  EXPECT_EQ(e->strippedManifest(), arrayOf({"Debug/x", "kernelcache", "Restore/b"}));
  EXPECT_EQ(takeLog(), "||| merging  1/ 2 stripped manifests.\n||| merging  2/ 2 stripped manifests.\n");
}

TEST_F(MergeTest, RecordsMergeByKind) {
  Value merged = Value::makeDict();
  ASSERT_TRUE(mergeModifiedFileRecord(
      merged, dictOf({{"a.txt", "one"}, {"l", Value::makeData("x.dmg")}, {"p.plist", dictOf({{"A", arrayOf({"1"})}})}})));
  EXPECT_EQ(takeLog(), "+++ adding text file a.txt.\n+++ adding symlink l.\n+++ adding plist p.plist.\n");
  ASSERT_TRUE(mergeModifiedFileRecord(
      merged, dictOf({{"a.txt", "two\n"}, {"l", Value::makeData("y.dmg")}, {"p.plist", dictOf({{"A", arrayOf({"2"})}})}})));
  ASSERT_TRUE(mergeModifiedFileRecord(merged, dictOf({{"a.txt", "one"}})));
  // Each fragment once, each ending in a line feed; the first link wins.
  EXPECT_EQ(merged.get("a.txt"), Value("one\ntwo\n"));
  EXPECT_EQ(merged.get("l"), Value::makeData("x.dmg"));
  EXPECT_EQ(merged.get("p.plist"), dictOf({{"A", arrayOf({"1", "2"})}}));
  EXPECT_EQ(takeLog(),
            "||| merging text file a.txt.\n"
            "||| merging symlink l.\n"
            "!!! WARNING: multiple values to create symlink l.\n"
            "||| merging plist p.plist.\n"
            "||| merging text file a.txt.\n");
}

TEST_F(MergeTest, MixedKindsAndDictionaryConflictsFailTheMerge) {
  write(synth::legacyBundle(false));
  auto e = engine();
  Value unused;
  EXPECT_EQ(e->mergeModifiedFiles(unused), 0);
  EXPECT_EQ(e->modifiedFiles(), dictOf({}));

  e->modifiedFilesList() = arrayOf({dictOf({{"x", "text"}}), dictOf({{"x", Value::makeData("t")}})});
  EXPECT_EQ(e->mergeModifiedFiles(unused), 1);
  EXPECT_TRUE(e->modifiedFiles().isNull());
  EXPECT_TRUE(logged("XXX ERROR: Cannot merge modified files at x."));

  e->modifiedFilesList() = arrayOf({dictOf({{"p", dictOf({{"k", 1}})}}), dictOf({{"p", dictOf({{"k", "s"}})}})});
  EXPECT_EQ(e->mergeModifiedFiles(unused), 1);
  EXPECT_TRUE(logged("XXX ERROR: Cannot merge dictionaries at p."));
  EXPECT_TRUE(e->modifiedFiles().isNull());
}

}  // namespace
}  // namespace velmar::testing
