#include "app/strip_run.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "synth/temp_dir.h"

#include "tests/app/app_test_support.h"

namespace velmar::app {
namespace {

TEST(StripRunTest, StartLogsABareTimeStampThenTheCommandLine) {
  StripRun run("/opt/velmarbs", {"--source", "/b/x.dmg", "--ov"}, "/b/x.dmg");
  std::vector<std::string> expected = {"\n", "\n", "\n", "2009/03/14 09:05:07 ",
                                       "/opt/velmarbs --source /b/x.dmg --ov\n"};
  EXPECT_EQ(run.startLogTexts(testing::march14()), expected);
  EXPECT_EQ(run.sessionOutput(), "/opt/velmarbs --source /b/x.dmg --ov\n");
}

TEST(StripRunTest, ValidateSucceedsAndStripFails) {
  StripRun validate("/t", {"--source", "/b/x.dmg", "--ov"}, "/b/x.dmg");
  RunEnd end = validate.finish(0, testing::march14());
  EXPECT_TRUE(end.finished);
  EXPECT_EQ(end.logText, "2009/03/14 09:05:07 Validating FINISHED.\n");
  EXPECT_EQ(end.sheetText, "Validating \"x.dmg\" finished.");

  StripRun strip("/t", {"--source", "/b/x.dmg", "--target", "/o/y.dmg", "--ov"}, "/b/x.dmg");
  end = strip.finish(3, testing::march14());
  EXPECT_FALSE(end.finished);
  EXPECT_EQ(end.logText, "2009/03/14 09:05:07 Stripping FAILED.\n");
  EXPECT_EQ(end.sheetText, "Stripping \"x.dmg\" FAILED.\n\nSee Log Window for details.");
}

TEST(StripRunTest, OutputJoinsTheRecordWholeCharactersOnly) {
  StripRun run("/t", {}, "/b");
  EXPECT_EQ(run.appendOutput("+++ caf\xC3"), "+++ caf");
  EXPECT_EQ(run.appendOutput("\xA9\n"), "\xC3\xA9\n");
  EXPECT_EQ(run.sessionOutput(), "/t\n+++ caf\xC3\xA9\n");
}

TEST(ControllerTextTest, DefaultNameAndSheetTexts) {
  EXPECT_EQ(defaultStripFileName({"r13"}, {"ss", "swdl"}, "~/Desktop/bundle.dmg"), "R13-SS-SWDL-bundle.dmg");
  EXPECT_EQ(defaultStripFileName({}, {}, "/b/Bundle"), "Bundle");
  EXPECT_EQ(scanningSheetText("/b/x.dmg"), "Scanning \"x.dmg\"...\n\n(see Log Window for details)");
  EXPECT_EQ(processingSheetText("/b/x.dmg/"), "Processing \"x.dmg\"...\n\n(see Log Window for details)");
}

TEST(StripRunTest, CancelledRunSaysSoInLogAndSheet) {
  StripRun strip("/t", {"--source", "/b/x.dmg", "--target", "/o/y", "--ov"}, "/b/x.dmg");
  RunEnd end = strip.cancelled(testing::march14());
  EXPECT_FALSE(end.finished);
  EXPECT_TRUE(end.cancelled);
  EXPECT_EQ(end.logText, "2009/03/14 09:05:07 Stripping cancelled.\n");
  EXPECT_EQ(end.sheetText, "Stripping \"x.dmg\" cancelled.");
  EXPECT_EQ(strip.target(), "/o/y");
  EXPECT_EQ(StripRun("/t", {"--source", "/b"}, "/b").target(), "");
}

std::vector<std::string> boardCodes(size_t count) {
  std::vector<std::string> names;
  for (size_t i = 0; i < count; ++i) names.push_back("r" + std::to_string(100 + i));
  return names;
}

TEST(FittingNameTest, KeepsTheUsualNameWheneverItFits) {
  EXPECT_EQ(fittingStripFileName({"r13"}, {"ss", "swdl"}, "/b/bundle.dmg"), "R13-SS-SWDL-bundle.dmg");
  // Exactly at the limit is still the usual name.
  std::string name = defaultStripFileName(boardCodes(47), {"ss"}, "/b/x");
  EXPECT_EQ(fittingStripFileName(boardCodes(47), {"ss"}, "/b/x", name.size()), name);
}

TEST(FittingNameTest, LeavesOutProductsFromTheEndAndCountsThem) {
  // 152 products and every station: about 900 bytes in full.
  std::vector<std::string> variants = {"cti", "dfu", "mac-swdl", "nandnuker", "recovery", "ss", "support", "swdl"};
  std::string full = defaultStripFileName(boardCodes(152), variants, "/b/Bundle.dmg");
  ASSERT_GT(full.size(), 800u);
  std::string name = fittingStripFileName(boardCodes(152), variants, "/b/Bundle.dmg");
  EXPECT_LE(name.size(), kMaxStripFileNameBytes);
  EXPECT_GT(name.size(), kMaxStripFileNameBytes - 6);  // as much as fits is kept
  EXPECT_EQ(name.rfind("R100-R101-", 0), 0u) << name;
  size_t mark = name.find("-+");
  ASSERT_NE(mark, std::string::npos) << name;
  size_t kept = std::count(name.begin(), name.begin() + static_cast<long>(mark), '-') + 1;
  EXPECT_EQ(name.substr(mark + 1), "+" + std::to_string(152 - kept) +
                                      "-CTI-DFU-MAC-SWDL-NANDNUKER-RECOVERY-SS-SUPPORT-SWDL-Bundle.dmg");
}

TEST(FittingNameTest, ThenStationsThenTheBundleNameBeforeItsExtension) {
  std::vector<std::string> variants(40, "recovery");
  std::string name = fittingStripFileName(boardCodes(10), variants, "/b/Bundle.dmg", 60);
  EXPECT_EQ(name, "+10-RECOVERY-RECOVERY-RECOVERY-RECOVERY-+36-Bundle.dmg");

  std::string longSource = "/b/" + std::string(200, 'a') + "\xC3\xA9" + std::string(30, 'b') + ".dmg";
  name = fittingStripFileName({"r1"}, {"ss"}, longSource, 205);
  EXPECT_EQ(name, "+1-+1-" + std::string(195, 'a') + ".dmg");
  // A cut never splits a character.
  name = fittingStripFileName({}, {}, longSource, 205);
  EXPECT_EQ(name, std::string(200, 'a') + ".dmg");
  name = fittingStripFileName({}, {}, longSource, 206);
  EXPECT_EQ(name, std::string(200, 'a') + "\xC3\xA9.dmg");
}

TEST(StagingTest, FindsAndRemovesOnlyTheToolsFoldersForThatTarget) {
  synth::TempDir dir("velmar-staging");
  namespace fs = std::filesystem;
  fs::create_directories(dir / ".R13-Bundle.velmarbs-4242-Ab3xYz/Restore/Locked");
  std::ofstream(dir / ".R13-Bundle.velmarbs-4242-Ab3xYz/Restore/Locked/file") << "x";
  ::chmod((dir / ".R13-Bundle.velmarbs-4242-Ab3xYz/Restore/Locked").c_str(), 0555);
  fs::create_directories(dir / ".R13-Bundle.velmarbs-4242-toolong7");
  fs::create_directories(dir / ".Other.velmarbs-4242-Ab3xYz");
  fs::create_directories(dir / "R13-Bundle");

  EXPECT_EQ(stagingLeftovers(dir / "R13-Bundle"), std::vector<std::string>{dir / ".R13-Bundle.velmarbs-4242-Ab3xYz"});
  EXPECT_EQ(removeStagingLeftovers(dir / "R13-Bundle/"), 1u);
  EXPECT_FALSE(fs::exists(dir / ".R13-Bundle.velmarbs-4242-Ab3xYz"));
  EXPECT_TRUE(fs::exists(dir / ".R13-Bundle.velmarbs-4242-toolong7"));
  EXPECT_TRUE(fs::exists(dir / ".Other.velmarbs-4242-Ab3xYz"));
  EXPECT_TRUE(fs::exists(dir / "R13-Bundle"));
}

}  // namespace
}  // namespace velmar::app
