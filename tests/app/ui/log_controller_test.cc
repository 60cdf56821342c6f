// The log: buffered until the window is shown, coloured keywords, text from
// other threads, the previous file at start, and "Clear Log".
#include "app/ui/log_controller.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <filesystem>
#include <fstream>
#include <thread>

#include "app/ui/log_text_view.h"
#include "app/ui/log_window.h"
#include "synth/temp_dir.h"
#include "ui_test_support.h"

namespace velmar::app {
namespace {

using testing::fileText;
using testing::waitFor;

// The background colour name of the character at `position` ("" for none).
QString backgroundAt(LogController& log, int position) {
  QTextCursor cursor(log.window()->textView()->document());
  cursor.setPosition(position + 1);  // the format of the character before
  QTextCharFormat format = cursor.charFormat();
  return format.hasProperty(QTextFormat::BackgroundBrush) ? format.background().color().name() : QString();
}

QMessageBox* openMessageBox() {
  for (QWidget* widget : QApplication::topLevelWidgets())
    if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) return box;
  return nullptr;
}

void answer(QMessageBox* box, const QString& button) {
  for (QAbstractButton* b : box->buttons())
    if (b->text() == button) b->click();
}

class LogControllerTest : public ::testing::Test {
 protected:
  synth::TempDir dir_{"velmar-log"};
  std::string path_ = dir_ / "a/b/VelmarBS.log";
  testing::SystemLogRecorder systemLog_;
  LogController log_{systemLog_.sink()};
};

TEST_F(LogControllerTest, TextBeforeTheWindowIsShownColouredWhenItOpens) {
  log_.setLogFilename(path_);
  EXPECT_TRUE(std::filesystem::exists(path_));
  log_.addString("x ERROR y FAILED z\n");
  EXPECT_EQ(log_.window(), nullptr);
  log_.show();
  ASSERT_NE(log_.window(), nullptr);
  EXPECT_EQ(log_.window()->windowTitle(), "VelmarBS.log");
  log_.addString("UNFINISHED");
  log_.addString(" then WRNING and plain\n");

  EXPECT_EQ(log_.text(), "x ERROR y FAILED z\nUNFINISHED then WRNING and plain\n");
  EXPECT_EQ(fileText(path_), log_.text());
  const QString red = "#ff0000", green = "#00ff00";
  EXPECT_EQ(backgroundAt(log_, 1), "");
  for (int i = 2; i < 7; ++i) EXPECT_EQ(backgroundAt(log_, i), red) << i;  // ERROR
  EXPECT_EQ(backgroundAt(log_, 7), "");
  for (int i = 10; i < 16; ++i) EXPECT_EQ(backgroundAt(log_, i), red) << i;  // FAILED
  EXPECT_EQ(backgroundAt(log_, 19), "");                                    // UN
  for (int i = 21; i < 29; ++i) EXPECT_EQ(backgroundAt(log_, i), green) << i;  // FINISHED
  // Text added right after a keyword does not take on its colour.
  for (int i = 29; i < 40; ++i) EXPECT_EQ(backgroundAt(log_, i), "") << i;
}

TEST_F(LogControllerTest, TextFromAWorkerArrivesInOrder) {
  log_.setLogFilename(path_);
  log_.show();
  std::thread worker([this] {
    for (int i = 0; i < 50; ++i) log_.addString(std::to_string(i) + "\n");
  });
  worker.join();
  std::string expected;
  for (int i = 0; i < 50; ++i) expected += std::to_string(i) + "\n";
  ASSERT_TRUE(waitFor([&] { return log_.text() == expected; })) << log_.text();
  EXPECT_EQ(fileText(path_), expected);
}

TEST_F(LogControllerTest, ThePreviousLogIsShownAndClearLogAsksFirst) {
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
  std::ofstream(path_) << "old WARNING\n";
  log_.setLogFilename(path_);
  log_.readLogFile();
  log_.addString("new\n");
  log_.show();
  EXPECT_EQ(log_.text(), "old WARNING\nnew\n");
  EXPECT_EQ(backgroundAt(log_, 4), "#ffff00");

  log_.clearLog();
  QMessageBox* box = openMessageBox();
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->windowTitle(), "Clear Log");
  EXPECT_EQ(box->text(), "Are you sure you want to clear the log file?");
  EXPECT_EQ(box->defaultButton()->text(), "Yes");
  answer(box, "No");
  EXPECT_EQ(fileText(path_), "old WARNING\nnew\n");

  log_.clearLog();
  ASSERT_NE(box = openMessageBox(), nullptr);
  answer(box, "Yes");
  EXPECT_EQ(log_.text(), "");
  EXPECT_EQ(fileText(path_), "");
  EXPECT_TRUE(log_.isEmpty());
  log_.addString("after\n");
  EXPECT_EQ(fileText(path_), "after\n");
}

TEST_F(LogControllerTest, AnUnreadableLogIsReportedAndStartsEmpty) {
  log_.setLogFilename(dir_.path());  // a folder: no handle, nothing to read
  log_.readLogFile();
  ASSERT_EQ(systemLog_.lines().size(), 1u);
  EXPECT_EQ(systemLog_.lines()[0].rfind("cannot read logfile \"" + dir_.path() + "\" - ", 0), 0u);
  log_.addString("kept\n");
  log_.show();
  EXPECT_EQ(log_.text(), "kept\n");
}

}  // namespace
}  // namespace velmar::app
