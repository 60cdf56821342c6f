// Stopping the tool from the window: Cancel of a scan and of a strip, and
// quitting while a scan runs. Against the real velmarbs; a large synthetic
// bundle makes the scan last long enough to be stopped.
#include <signal.h>

#include <QMessageBox>
#include <QPushButton>
#include <filesystem>

#include "app/strip_run.h"
#include "app/ui/bundle_scanner.h"
#include "app/ui/strip_process.h"
#include "app_controller_fixture.h"

namespace velmar::app {
namespace {

using testing::AppControllerTest;
using testing::childProcesses;
using testing::fileText;
using testing::waitFor;

// The sheet's detail line names the product being asked about.
bool showsProgress(ProgressSheet* sheet, int number) {
  return sheet->detail().startsWith(QStringLiteral("product %1 of ").arg(number));
}

TEST_F(AppControllerTest, AScanShowsItsProgressAndCancelStopsIt) {
  const std::string large = largeBundle(30);
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  settings_.setString(kLastSourceSelectedKey, large);
  EXPECT_TRUE(sheet()->cancelButton()->isVisible());
  EXPECT_FALSE(window()->centralWidget()->isEnabled());  // nothing else starts meanwhile
  EXPECT_FALSE(window()->chooseAction()->isEnabled());
  ASSERT_TRUE(waitFor([&] { return showsProgress(sheet(), 3); })) << sheet()->detail().toStdString();
  // Every valid product of the bundle is counted: the sample's two and the 30.
  EXPECT_EQ(sheet()->detail(), "product 3 of 32");
  EXPECT_EQ(sheet()->text(), "Scanning \"Large\"...\n\n(see Log Window for details)");

  sheet()->cancelButton()->click();
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_TRUE(childProcesses().empty());
  EXPECT_TRUE(sheet()->isVisible());
  EXPECT_EQ(sheet()->text(), "Scanning \"Large\" cancelled.");
  EXPECT_TRUE(sheet()->okButton()->isVisible());
  EXPECT_FALSE(sheet()->cancelButton()->isVisible());
  EXPECT_NE(fileText(logPath_).find(" Scanning cancelled.\n"), std::string::npos);
  EXPECT_EQ(window()->scanProblemLine()->text(), "Scanning \"Large\" cancelled.");
  // Half an answer offers nothing.
  EXPECT_FALSE(window()->productsBox()->isEnabled());
  EXPECT_FALSE(window()->validateButton()->isEnabled());
  sheet()->okButton()->click();
  EXPECT_FALSE(sheet()->isVisible());
  EXPECT_TRUE(window()->centralWidget()->isEnabled());
}

TEST_F(AppControllerTest, ACancelledStripLeavesNoTargetAndNoTool) {
  chooseBundle();
  controller_->stripProcess()->setGrace(std::chrono::milliseconds(300));
  const std::string target = work_ / "R13-SS-Bundle";
  QSignalSpy ended(controller_.get(), &AppController::runFinished);
  controller_->startStripProcess(target);
  const pid_t tool = static_cast<pid_t>(controller_->stripProcess()->processId());
  ASSERT_GT(tool, 0);
  // Hold the tool once it has begun writing, so Cancel finds it mid-way.
  const auto began = std::chrono::steady_clock::now();
  while (stagingLeftovers(target).empty() && std::chrono::steady_clock::now() - began < std::chrono::seconds(20) &&
         ::kill(tool, 0) == 0)
    ::usleep(200);
  ::kill(-tool, SIGSTOP);
  ASSERT_FALSE(stagingLeftovers(target).empty()) << "the tool ended before it staged anything";
  ASSERT_TRUE(sheet()->cancelButton()->isVisible());

  sheet()->cancelButton()->click();
  ASSERT_TRUE(waitFor([&] { return ended.count() == 1; }));
  EXPECT_FALSE(ended.first().first().toBool());
  EXPECT_EQ(sheet()->text(), "Stripping \"Bundle\" cancelled.");
  EXPECT_NE(fileText(logPath_).find(" Stripping cancelled.\n"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_TRUE(stagingLeftovers(target).empty());
  EXPECT_NE(::kill(tool, 0), 0);  // reaped, not a zombie
  EXPECT_TRUE(childProcesses().empty());
}

TEST_F(AppControllerTest, QuittingDuringAScanAsksOnceThenStopsItAndQuits) {
  const std::string large = largeBundle(30);
  settings_.setString(kLastSourceSelectedKey, large);
  ASSERT_TRUE(waitFor([&] { return showsProgress(sheet(), 2); }));
  QSignalSpy closing(window(), &MainWindow::closing);

  window()->close();
  EXPECT_TRUE(window()->isVisible());  // not yet
  ASSERT_NE(controller_->quitQuestion(), nullptr);
  QMessageBox* question = controller_->quitQuestion();
  window()->quitAction()->trigger();  // asked once, not twice
  EXPECT_EQ(controller_->quitQuestion(), question);
  EXPECT_EQ(window()->findChildren<QMessageBox*>().size(), 1);

  QAbstractButton* quit = nullptr;
  for (QAbstractButton* button : question->buttons())
    if (question->buttonRole(button) == QMessageBox::DestructiveRole) quit = button;
  ASSERT_NE(quit, nullptr);
  quit->click();
  ASSERT_TRUE(waitFor([&] { return closing.count() == 1; }));
  EXPECT_FALSE(window()->isVisible());
  EXPECT_FALSE(controller_->scanner()->isScanning());
  EXPECT_TRUE(childProcesses().empty());
}

TEST_F(AppControllerTest, NotQuittingLetsTheScanFinish) {
  const std::string large = largeBundle(10);
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  settings_.setString(kLastSourceSelectedKey, large);
  window()->close();
  ASSERT_NE(controller_->quitQuestion(), nullptr);
  controller_->quitQuestion()->reject();
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_TRUE(window()->isVisible());
  EXPECT_FALSE(controller_->isQuitting());
  EXPECT_TRUE(window()->scanProblemLine()->isHidden());
}

}  // namespace
}  // namespace velmar::app
