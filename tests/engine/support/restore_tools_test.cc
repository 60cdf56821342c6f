// Finding the restore-tools image at the bundle root.

#include "engine/support/restore_tools.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/engine/support/fake_support_host.h"

namespace velmar {
namespace {

using testing::dictOf;
using Paths = std::vector<std::string>;

TEST(DiskImageCandidateTest, SuffixIgnoresCaseResourceForksNever) {
  EXPECT_TRUE(isDiskImageCandidate("Tools.dmg"));
  EXPECT_TRUE(isDiskImageCandidate("TOOLS.DMG"));
  EXPECT_FALSE(isDiskImageCandidate("._Tools.dmg"));
  EXPECT_FALSE(isDiskImageCandidate("Tools.dmg.signature"));
}

TEST(WithoutLinkedImagesTest, DropsLinksAndTheirTargets) {
  std::map<std::string, std::string> links = {{"A.dmg", "B.dmg"}, {"C.dmg", "Elsewhere/D.dmg"}};
  auto target = [&](const std::string& name) -> std::optional<std::string> {
    auto it = links.find(name);
    if (it == links.end()) return std::nullopt;
    return it->second;
  };
  EXPECT_EQ(withoutLinkedImages({"B.dmg", "A.dmg", "C.dmg", "E.dmg"}, target), (Paths{"E.dmg"}));
}

class RestoreToolsTest : public testing::SupportStepTest {
 protected:
  Value entry = Value::makeDict();
  static std::string unable(int count, const std::string& list) {
    return "!!! WARNING: unable to identify the RestoreTools disk image as there are " +
           std::to_string(count) + " disk images left in bundle root - including them all - " + list + ".\n";
  }
};

TEST_F(RestoreToolsTest, LinkKeepsTargetAndLinkOnly) {
  bundle_.file("Tools-9.dmg");
  bundle_.file("Other.dmg");
  bundle_.link("RestoreTools.dmg", "Tools-9.dmg");
  EXPECT_EQ(stripRestoreTools(manifest_, entry), 0);
  EXPECT_EQ(logged(), "+++ RestoreTools found Tools-9.dmg.\n");
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{"Tools-9.dmg", "RestoreTools.dmg"}}));
  EXPECT_EQ(manifest_.modifiedRecords, 0);
}

TEST_F(RestoreToolsTest, SingleImageBecomesTheToolsImage) {
  bundle_.file("Tools.dmg");
  bundle_.file("._Tools.dmg");
  bundle_.file("notes.txt");
  stripRestoreTools(manifest_, entry);
  EXPECT_EQ(
      logged(),
      "!!! WARNING: assuming single disk image \"Tools.dmg\" at root is the RestoreTools disk image.\n");
  EXPECT_EQ(manifest_.modified, dictOf({{"RestoreTools.dmg", Value::makeData("Tools.dmg")}}));
  EXPECT_EQ(manifest_.kept, testing::setOf({"Tools.dmg"}));
}

TEST_F(RestoreToolsTest, OtherLinksAndTheirTargetsAreNotCandidates) {
  bundle_.file("HD.dmg");
  bundle_.link("HomeDiagnostic.dmg", "HD.dmg");
  bundle_.file("TOOLS.DMG");
  stripRestoreTools(manifest_, entry);
  EXPECT_EQ(
      logged(),
      "!!! WARNING: assuming single disk image \"TOOLS.DMG\" at root is the RestoreTools disk image.\n");
}

TEST_F(RestoreToolsTest, NoneOrSeveralKeepsAllAndWarns) {
  stripRestoreTools(manifest_, entry);
  EXPECT_EQ(logged(), unable(0, ""));
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{}}));

  LogObject::sharedLogger().setHistoricalLog("");
  for (const char* name : {"a.dmg", "b.dmg", "c.dmg"}) bundle_.file(name);
  stripRestoreTools(manifest_, entry);
  EXPECT_EQ(logged(), unable(3, "a.dmg, b.dmg, c.dmg"));
  EXPECT_EQ(manifest_.kept, testing::setOf({"a.dmg", "b.dmg", "c.dmg"}));
  EXPECT_EQ(manifest_.modifiedRecords, 0);
}

TEST_F(RestoreToolsTest, PlainToolsImageAloneIsLeftAlone) {
  bundle_.file("RestoreTools.dmg");
  stripRestoreTools(manifest_, entry);
  EXPECT_EQ(logged(), "");
  EXPECT_TRUE(manifest_.keepCalls.empty());
  EXPECT_EQ(manifest_.modifiedRecords, 0);
}

TEST_F(RestoreToolsTest, LegacyNeedsTheTargetInTheBundle) {
  bundle_.link("RestoreTools.dmg", "Gone.dmg");
  EXPECT_EQ(stripRestoreTools(legacy_, entry), 1);
  EXPECT_EQ(logged(), "XXX ERROR: RestoreTools \"Gone.dmg\" missing from bundle.\n");
  EXPECT_TRUE(legacy_.keepCalls.empty());
}

TEST_F(RestoreToolsTest, LegacyLinkKeepsTargetAndLinkUnlessNoSymLinks) {
  bundle_.file("Tools-9.dmg");
  bundle_.link("RestoreTools.dmg", "Tools-9.dmg");
  EXPECT_EQ(stripRestoreTools(legacy_, entry), 0);
  legacy_.options.set("noSymLinks", "YES");
  EXPECT_EQ(stripRestoreTools(legacy_, entry), 0);
  EXPECT_EQ(logged(),
            "+++ RestoreTools found RestoreTools.dmg Tools-9.dmg.\n"
            "+++ RestoreTools found RestoreTools.dmg Tools-9.dmg.\n");
  EXPECT_EQ(legacy_.keepCalls, (std::vector<Paths>{{"Tools-9.dmg", "RestoreTools.dmg"}, {"Tools-9.dmg"}}));
}

TEST_F(RestoreToolsTest, LegacySingleImageRule) {
  bundle_.file("Tools.dmg");
  EXPECT_EQ(stripRestoreTools(legacy_, entry), 0);
  EXPECT_EQ(legacy_.modified, dictOf({{"RestoreTools.dmg", Value::makeData("Tools.dmg")}}));
  EXPECT_EQ(legacy_.keepCalls, (std::vector<Paths>{{"Tools.dmg"}}));
  EXPECT_EQ(stripBogusRestoreImagesInRootDirectory(legacy_, entry), 0);
}

}  // namespace
}  // namespace velmar
