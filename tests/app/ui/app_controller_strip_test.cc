// Strip and Validate as a user starts them: the save dialog's proposed name
// (shortened when it would not fit a file name), replacing an existing
// result, the verbose switch, and the shortcuts. Against the real velmarbs.
#include <QMessageBox>
#include <algorithm>
#include <QPushButton>
#include <filesystem>
#include <fstream>

#include "app/strip_run.h"
#include "app/ui/save_dialog.h"
#include "app/ui/setting_check_box.h"
#include "app/ui/strip_process.h"
#include "app_controller_fixture.h"

namespace velmar::app {
namespace {

using testing::AppControllerTest;
using testing::fileText;
using testing::waitFor;

class StripDialogTest : public AppControllerTest {
 protected:
  // Strip… with the results going into the work folder.
  SaveDialog* openSaveDialog() {
    settings_.setString(kDestinationPathKey, work_.path());
    window()->stripAction()->trigger();
    return controller_->saveDialog();
  }
  // Save once it can be pressed.
  static void pressSave(SaveDialog* dialog) {
    QPushButton* save = dialog->saveButton();
    ASSERT_NE(save, nullptr);
    ASSERT_TRUE(waitFor([&] { return save->isEnabled(); }));
    save->click();
  }
  static QAbstractButton* buttonWithRole(QMessageBox* box, QMessageBox::ButtonRole role) {
    for (QAbstractButton* button : box->buttons())
      if (box->buttonRole(button) == role) return button;
    return nullptr;
  }
};

TEST_F(StripDialogTest, AnExistingResultIsReplacedAfterAsking) {
  chooseBundle();
  const std::string target = work_ / "R13-SS-Bundle";
  std::filesystem::create_directories(target);
  std::ofstream(target + "/left-from-before") << "old";
  EXPECT_EQ(window()->stripAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_S));

  SaveDialog* dialog = openSaveDialog();
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(dialog->nameField()->text(), "R13-SS-Bundle");
  // Not now: nothing runs and the dialog stays.
  pressSave(dialog);
  ASSERT_NE(dialog->replaceQuestion(), nullptr);
  buttonWithRole(dialog->replaceQuestion(), QMessageBox::RejectRole)->click();
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_FALSE(controller_->stripProcess()->isRunning());

  QSignalSpy ended(controller_.get(), &AppController::runFinished);
  pressSave(dialog);
  ASSERT_NE(dialog->replaceQuestion(), nullptr);
  EXPECT_NE(dialog->replaceQuestion()->text().indexOf("R13-SS-Bundle"), -1);
  buttonWithRole(dialog->replaceQuestion(), QMessageBox::AcceptRole)->click();
  ASSERT_TRUE(waitFor([&] { return ended.count() == 1; }));
  EXPECT_TRUE(ended.first().first().toBool()) << controller_->stripperSessionOutput();
  EXPECT_TRUE(std::filesystem::exists(target + "/VelmarBSCookie.plist"));
  EXPECT_FALSE(std::filesystem::exists(target + "/left-from-before"));
}

TEST_F(StripDialogTest, ANameTooLongForAFileIsShortenedAndStrips) {
  // A long bundle name and every shared station: the usual name is too long.
  const std::string longName = std::string(225, 'L');
  const std::string source = work_ / longName;
  std::string error;
  ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), source, &error)) << error;
  choose(source);
  testing::checkBoxNamed(window()->productsBox(), "r11")->click();
  window()->stationsBox()->setAllButton()->click();
  const NameList products = settings_.arrayForKey(kProductsKey), variants = settings_.arrayForKey(kVariantsKey);
  ASSERT_GT(defaultStripFileName(products, variants, source).size(), 255u);

  SaveDialog* dialog = openSaveDialog();
  ASSERT_NE(dialog, nullptr);
  const std::string name = dialog->nameField()->text().toStdString();
  EXPECT_LE(name.size(), kMaxStripFileNameBytes);
  EXPECT_EQ(name, fittingStripFileName(products, variants, source));
  // Both products are left out and counted before any station is, and the
  // bundle's own name is kept whole.
  EXPECT_EQ(name.rfind("+2-CTI-", 0), 0u) << name;
  EXPECT_EQ(name.substr(name.size() - longName.size()), longName);

  QSignalSpy ended(controller_.get(), &AppController::runFinished);
  pressSave(dialog);
  ASSERT_TRUE(waitFor([&] { return ended.count() == 1; }));
  EXPECT_TRUE(ended.first().first().toBool()) << controller_->stripperSessionOutput();
  EXPECT_TRUE(std::filesystem::exists(work_ / name));
}

TEST_F(StripDialogTest, VerboseRunsShowTheEnginesFindings) {
  chooseBundle();
  ASSERT_TRUE(run(""));
  const std::string quiet = controller_->stripperSessionOutput();
  sheet()->okButton()->click();

  window()->verboseBox()->click();
  EXPECT_TRUE(settings_.boolForKey(kVerboseKey));
  EXPECT_EQ(window()->validateAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Return));
  QSignalSpy ended(controller_.get(), &AppController::runFinished);
  window()->validateAction()->trigger();
  ASSERT_TRUE(waitFor([&] { return ended.count() == 1; }));
  const std::string verbose = controller_->stripperSessionOutput();
  EXPECT_NE(verbose.find(" --verbose "), std::string::npos) << verbose;
  EXPECT_EQ(quiet.find("--verbose"), std::string::npos);
  EXPECT_GT(std::count(verbose.begin(), verbose.end(), '\n'), std::count(quiet.begin(), quiet.end(), '\n') + 2)
      << verbose;
}

}  // namespace
}  // namespace velmar::app
