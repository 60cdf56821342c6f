// The desktop application's command line: a bundle from "Open with", the
// screenshot tour, and the words answered without a window.
#include "app/launch_options.h"

#include <gtest/gtest.h>

namespace velmar::app {
namespace {

using Words = std::vector<std::string>;

TEST(LaunchOptionsTest, NoWordsOpensTheWindowWithTheStoredSource) {
  LaunchOptions o = parseLaunchArguments({}, "/home/ann");
  EXPECT_TRUE(o.error.empty());
  EXPECT_TRUE(o.source.empty());
  EXPECT_FALSE(o.help || o.version || o.printToolPath || o.screenshot);
}

TEST(LaunchOptionsTest, ABundleBecomesAnAbsoluteSource) {
  EXPECT_EQ(parseLaunchArguments({"/data/Bundle.dmg"}, "/home/ann").source, "/data/Bundle.dmg");
  EXPECT_EQ(parseLaunchArguments({"Bundle.dmg"}, "/home/ann").source, "/home/ann/Bundle.dmg");
  EXPECT_EQ(parseLaunchArguments({"b/Bundle"}, "/").source, "/b/Bundle");
  // After "--" even a name starting with a dash is a bundle.
  EXPECT_EQ(parseLaunchArguments({"--", "-odd.dmg"}, "/x/").source, "/x/-odd.dmg");
}

TEST(LaunchOptionsTest, ScreenshotTakesAFolderAndABundle) {
  LaunchOptions o = parseLaunchArguments({"--screenshot", "docs", "sample/Bundle"}, "/src");
  ASSERT_TRUE(o.error.empty()) << o.error;
  EXPECT_TRUE(o.screenshot);
  EXPECT_EQ(o.screenshotFolder, "docs");
  EXPECT_EQ(o.screenshotBundle, "sample/Bundle");
  EXPECT_TRUE(o.source.empty());
}

TEST(LaunchOptionsTest, WordsAnsweredWithoutAWindow) {
  EXPECT_TRUE(parseLaunchArguments({"--print-tool-path"}, "/").printToolPath);
  EXPECT_TRUE(parseLaunchArguments({"--help"}, "/").help);
  EXPECT_TRUE(parseLaunchArguments({"--version"}, "/").version);
}

TEST(LaunchOptionsTest, WordsThatCannotBeTakenAreAnError) {
  for (const Words& words : {Words{"--screenshot", "docs"}, Words{"--frobnicate"}, Words{"a.dmg", "b.dmg"},
                             Words{""}}) {
    LaunchOptions o = parseLaunchArguments(words, "/home/ann");
    EXPECT_EQ(o.error.rfind("velmarbs-gui: ", 0), 0u) << words.front();
    EXPECT_NE(o.error.find("see velmarbs-gui --help"), std::string::npos);
    EXPECT_TRUE(o.source.empty());
  }
}

TEST(LaunchOptionsTest, UsageNamesEveryWord) {
  std::string usage = launchUsageText();
  EXPECT_EQ(usage.rfind("Usage: velmarbs-gui", 0), 0u);
  for (const char* word : {"--screenshot", "--print-tool-path", "--help", "--version", "XDG_STATE_HOME"})
    EXPECT_NE(usage.find(word), std::string::npos) << word;
}

}  // namespace
}  // namespace velmar::app
