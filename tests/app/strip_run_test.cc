#include "app/strip_run.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace velmar::app
