// Finding the restore-tools image at the bundle root.

#include "engine/support/restore_tools.h"

#include <gtest/gtest.h>

#include "tests/engine/support/fake_support_host.h"

namespace velmar::testing {
namespace {

using Paths = std::vector<std::string>;

class RestoreToolsTest : public SupportStepTest {
 protected:
  Value entry = Value::makeDict();
  static std::string unable(int count, const std::string& list) {
    return "!!! WARNING: unable to identify the RestoreTools disk image as there are " +
           std::to_string(count) + " disk images left in bundle root - including them all - " + list + ".\n";
  }
};

TEST_F(RestoreToolsTest, SingleCandidateBecomesTheToolsImage) {
  // Resource forks, other files and other links with their targets are no candidates.
  for (const char* name : {"TOOLS.DMG", "._Tools.dmg", "notes.txt", "HD.dmg"}) put(name);
  link("HomeDiagnostic.dmg", "HD.dmg");
  // Both forms apply the same guess.
  for (auto [host, step] : {std::pair{&manifest_, &stripRestoreTools}, std::pair{&legacy_, &stripRestoreToolsChecked}}) {
    EXPECT_EQ(step(*host, host->supportRequest(entry)), 0);
    EXPECT_EQ(
        takeLog(),
        "!!! WARNING: assuming single disk image \"TOOLS.DMG\" at root is the RestoreTools disk image.\n");
    EXPECT_EQ(host->modified, dictOf({{"RestoreTools.dmg", Value::makeData("TOOLS.DMG")}}));
    EXPECT_EQ(host->keepCalls, (std::vector<Paths>{{"TOOLS.DMG"}}));
  }
}

TEST_F(RestoreToolsTest, APlainToolsImageStaysAloneNoneOrSeveralAreAllKept) {
  put("RestoreTools.dmg");  // a plain tools image alone is left alone
  stripRestoreTools(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(logText(), "");
  fs::remove(dir_ / "RestoreTools.dmg");
  stripRestoreTools(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(takeLog(), unable(0, ""));
  for (const char* name : {"a.dmg", "b.dmg", "c.dmg"}) put(name);
  stripRestoreTools(manifest_, manifest_.supportRequest(entry));
  EXPECT_EQ(takeLog(), unable(3, "a.dmg, b.dmg, c.dmg"));
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{}, {"a.dmg", "b.dmg", "c.dmg"}}));
  EXPECT_EQ(manifest_.modified.count(), 0u);
}

TEST_F(RestoreToolsTest, LinkKeepsTargetAndLinkButLegacyNeedsTheTargetInTheBundle) {
  link("RestoreTools.dmg", "Tools-9.dmg");
  EXPECT_EQ(stripRestoreToolsChecked(legacy_, legacy_.supportRequest(entry)), 1);
  EXPECT_EQ(takeLog(), "XXX ERROR: RestoreTools \"Tools-9.dmg\" missing from bundle.\n");
  put("Tools-9.dmg");
  put("Other.dmg");
  EXPECT_EQ(stripRestoreTools(manifest_, manifest_.supportRequest(entry)), 0);
  EXPECT_EQ(takeLog(), "+++ RestoreTools found Tools-9.dmg.\n");
  EXPECT_EQ(manifest_.keepCalls, (std::vector<Paths>{{"Tools-9.dmg", "RestoreTools.dmg"}}));
  EXPECT_EQ(stripRestoreToolsChecked(legacy_, legacy_.supportRequest(entry)), 0);
  legacy_.options.set("noSymLinks", "YES");
  EXPECT_EQ(stripRestoreToolsChecked(legacy_, legacy_.supportRequest(entry)), 0);
  EXPECT_EQ(logText(),
            "+++ RestoreTools found RestoreTools.dmg Tools-9.dmg.\n"
            "+++ RestoreTools found RestoreTools.dmg Tools-9.dmg.\n");
  EXPECT_EQ(legacy_.keepCalls, (std::vector<Paths>{{"Tools-9.dmg", "RestoreTools.dmg"}, {"Tools-9.dmg"}}));
  EXPECT_EQ(manifest_.modified.count() + legacy_.modified.count(), 0u);
}

}  // namespace
}  // namespace velmar::testing
