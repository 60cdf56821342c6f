#include "app/log_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "synth/temp_dir.h"

namespace velmar::app {
namespace {

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class LogFileTest : public ::testing::Test {
 protected:
  synth::TempDir dir_{"velmar-log"};
  std::vector<std::string> systemLog_;
  LogFile log_{[this](const std::string& t) { systemLog_.push_back(t); }};
};

TEST_F(LogFileTest, CreatesTheFolderChainAndAppendsAsGiven) {
  std::string path = dir_ / "Library/Logs/VelmarBS.log";
  log_.setLogFilename(path);
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_TRUE(log_.isEmpty());
  log_.addString("one");
  log_.addString(" two\n");
  EXPECT_EQ(contents(path), "one two\n");
  EXPECT_EQ(log_.offscreenBuffer(), "one two\n");
  EXPECT_FALSE(log_.isEmpty());
}

TEST_F(LogFileTest, RestartShowsThePreviousLogAndAppendsAfterIt) {
  std::string path = dir_ / "VelmarBS.log";
  std::ofstream(path) << "yesterday\n";
  log_.addString("before the file is known\n");
  log_.setLogFilename(path);
  EXPECT_FALSE(log_.isEmpty());
  EXPECT_EQ(log_.readLogFile(), "yesterday\n");
  EXPECT_EQ(log_.offscreenBuffer(), "yesterday\n");  // replaced, not appended
  log_.addString("today\n");
  EXPECT_EQ(contents(path), "yesterday\ntoday\n");
  EXPECT_TRUE(systemLog_.empty());
}

TEST_F(LogFileTest, ExistsAnswersWhetherItJustCreatedTheFile) {
  std::string path = dir_ / "a/b.log";
  log_.setLogFilename(path);  // creates it
  EXPECT_FALSE(log_.logFileExists(true));
  std::filesystem::remove(path);
  EXPECT_FALSE(log_.logFileExists(false));
  EXPECT_TRUE(log_.logFileExists(true));
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(LogFileTest, ClearingEmptiesFileAndBuffer) {
  std::string path = dir_ / "x.log";
  log_.setLogFilename(path);
  log_.addString("ERROR: something\n");
  log_.zapLogAndWindowContents();
  EXPECT_TRUE(log_.isEmpty());
  EXPECT_EQ(std::filesystem::file_size(path), 0u);
  EXPECT_EQ(log_.offscreenBuffer(), "");
  log_.addString("again\n");
  EXPECT_EQ(contents(path), "again\n");
}

TEST_F(LogFileTest, WindowTakesTheBufferOnce) {
  std::string path = dir_ / "x.log";
  log_.setLogFilename(path);
  log_.addString("early\n");
  EXPECT_EQ(log_.takeOffscreenBuffer(), "early\n");
  log_.addString("late\n");
  EXPECT_EQ(log_.offscreenBuffer(), "");
  EXPECT_EQ(contents(path), "early\nlate\n");
  EXPECT_EQ(log_.readLogFile(), "early\nlate\n");  // for the window; the buffer stays empty
  EXPECT_EQ(log_.offscreenBuffer(), "");
}

TEST_F(LogFileTest, UnreadableFileStartsEmptyWithOneSystemLogLine) {
  std::string path = dir_ / "bad.log";
  std::ofstream(path) << "\xFF\xFE";
  log_.setLogFilename(path);
  EXPECT_EQ(log_.readLogFile(), "");
  ASSERT_EQ(systemLog_.size(), 1u);
  EXPECT_EQ(systemLog_[0], "cannot read logfile \"" + path + "\" - the file is not UTF-8 text");
  log_.addString("still written\n");
  EXPECT_EQ(contents(path), "\xFF\xFEstill written\n");

  log_.setLogFilename("");
  log_.readLogFile();
  EXPECT_EQ(systemLog_.back(), "cannot read logfile \"(null)\" - no log file");
}

TEST_F(LogFileTest, NoFileStillBuffers) {
  log_.setLogFilename(dir_ / "missing-dir-is-a-file");
  std::ofstream(dir_ / "blocker") << "";
  log_.setLogFilename(dir_ / "blocker/inside.log");  // a file where a folder must be
  log_.addString("kept in memory\n");
  EXPECT_EQ(log_.offscreenBuffer(), "kept in memory\n");
  EXPECT_TRUE(log_.isEmpty());
}

}  // namespace
}  // namespace velmar::app
