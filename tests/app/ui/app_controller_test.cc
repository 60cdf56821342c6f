// The main window driven through its controller against the real velmarbs
// and a synthetic bundle: start-up, scans, runs, and mailing the log.
#include "app/ui/app_controller.h"

#include <QPushButton>
#include <algorithm>
#include <filesystem>

#include "app/ui/log_mailer.h"
#include "app/ui/setting_check_box.h"
#include "app_controller_fixture.h"

namespace velmar::app {
namespace {

using testing::AppControllerTest;
using testing::checkBoxNamed;
using testing::enabledNames;
using testing::fileText;
using testing::waitFor;

TEST_F(AppControllerTest, StartUpListsTheToolsNamesButOffersNothingBeforeAScan) {
  EXPECT_EQ(window()->windowTitle(), "VelmarBS 9.9");
  // The tool's own tables: every known product and station has a box.
  EXPECT_EQ(window()->productsBox()->checkBoxes().size(), controller_->model().knownProducts().size());
  EXPECT_GT(window()->productsBox()->checkBoxes().size(), 2u);
  EXPECT_EQ(window()->stationsBox()->checkBoxes().size(), controller_->model().knownVariants().size());
  ASSERT_NE(checkBoxNamed(window()->stationsBox(), "ss"), nullptr);
  EXPECT_TRUE(checkBoxNamed(window()->stationsBox(), "ss")->isChecked());  // the default selection
  EXPECT_TRUE(enabledNames(window()->productsBox()).empty());
  EXPECT_TRUE(enabledNames(window()->stationsBox()).empty());
  EXPECT_FALSE(window()->stripButton()->isEnabled());
  EXPECT_FALSE(window()->validateButton()->isEnabled());
  EXPECT_FALSE(sheet()->isVisible());
  EXPECT_TRUE(std::filesystem::exists(logPath_));  // folders made
}

TEST_F(AppControllerTest, ABundleIsScannedAndOffersWhatItSupports) {
  settings_.setStrings(kProductsKey, {"r13", "r31"});
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  settings_.setString(kLastSourceSelectedKey, bundle_);
  EXPECT_TRUE(sheet()->isVisible());
  EXPECT_EQ(sheet()->text(), "Scanning \"Bundle\"...\n\n(see Log Window for details)");
  EXPECT_FALSE(sheet()->okButton()->isVisible());
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));

  EXPECT_FALSE(sheet()->isVisible());
  EXPECT_EQ(enabledNames(window()->productsBox()), (NameList{"r11", "r13"}));
  EXPECT_EQ(settings_.arrayForKey(kProductsKey), NameList{"r13"});  // r31 is not in the bundle
  EXPECT_TRUE(checkBoxNamed(window()->productsBox(), "r13")->isChecked());
  EXPECT_EQ(enabledNames(window()->stationsBox()),
            (NameList{"cti", "dfu", "mac-swdl", "nandnuker", "recovery", "ss", "support", "swdl"}));
  EXPECT_TRUE(window()->stripButton()->isEnabled());
  EXPECT_TRUE(window()->validateButton()->isEnabled());

  // Ticking r11 narrows the stations to those both products have.
  checkBoxNamed(window()->productsBox(), "r11")->click();
  EXPECT_EQ(settings_.arrayForKey(kProductsKey), (NameList{"r13", "r11"}));
  EXPECT_EQ(enabledNames(window()->stationsBox()), (NameList{"cti", "nandnuker", "ss", "support", "swdl"}));

  // Clearing the stations leaves nothing to run.
  window()->stationsBox()->clearAllButton()->click();
  EXPECT_TRUE(settings_.arrayForKey(kVariantsKey).empty());
  EXPECT_FALSE(window()->validateButton()->isEnabled());
}

TEST_F(AppControllerTest, AFirmwareSettingRescans) {
  chooseBundle();
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  auto boxes = window()->optionBoxes();
  auto keepDev = std::find_if(boxes.begin(), boxes.end(),
                              [](SettingCheckBox* b) { return b->key() == kKeepDevFirmwareKey; });
  ASSERT_NE(keepDev, boxes.end());
  (*keepDev)->click();
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_TRUE(settings_.boolForKey(kKeepDevFirmwareKey));
  // With dev firmware kept the bundle offers r13 no shipping-settings station.
  EXPECT_EQ(enabledNames(window()->stationsBox()), (NameList{"nandnuker", "swdl"}));
  EXPECT_TRUE(settings_.arrayForKey(kVariantsKey).empty());
  EXPECT_FALSE(window()->stripButton()->isEnabled());
}

TEST_F(AppControllerTest, ValidateAndStripFinish) {
  chooseBundle();
  EXPECT_TRUE(run(""));
  EXPECT_EQ(sheet()->text(), "Validating \"Bundle\" finished.");
  EXPECT_TRUE(sheet()->okButton()->isVisible());
  EXPECT_TRUE(sheet()->mailLogButton()->isVisible());
  EXPECT_TRUE(sheet()->showLogButton()->isVisible());
  std::string commandLine = toolPath_ + " --source " + bundle_ + " --factory ss --product r13";
  EXPECT_EQ(controller_->stripperSessionOutput().rfind(commandLine, 0), 0u) << controller_->stripperSessionOutput();
  std::string logged = fileText(logPath_);
  EXPECT_NE(logged.find(commandLine), std::string::npos) << logged;
  EXPECT_NE(logged.find("Validating FINISHED.\n"), std::string::npos) << logged;

  sheet()->okButton()->click();
  EXPECT_FALSE(sheet()->isVisible());
  std::string target = work_ / "R13-SS-Bundle";
  EXPECT_TRUE(run(target));
  EXPECT_EQ(sheet()->text(), "Stripping \"Bundle\" finished.");
  EXPECT_TRUE(std::filesystem::exists(target + "/VelmarBSCookie.plist"));
  EXPECT_NE(fileText(logPath_).find("Stripping FINISHED.\n"), std::string::npos);
}

TEST_F(AppControllerTest, AFailingRunSaysFAILED) {
  chooseBundle();
  std::filesystem::remove_all(bundle_ + "/Restore");
  EXPECT_FALSE(run(""));
  EXPECT_EQ(sheet()->text(), "Validating \"Bundle\" FAILED.\n\nSee Log Window for details.");
  std::string logged = fileText(logPath_);
  size_t end = logged.find("Validating FAILED.\n");
  ASSERT_NE(end, std::string::npos) << logged;
  // The tool's own words about why come before the end line.
  size_t command = logged.rfind(toolPath_, end);
  size_t lineAfterCommand = logged.find('\n', command) + 1;
  EXPECT_LT(lineAfterCommand + 20, end) << logged;  // more than the bare time stamp
}

TEST_F(AppControllerTest, AMailThatCannotBePreparedIsOnlyInTheSystemLog) {
  chooseBundle();
  ASSERT_TRUE(run(""));
  controller_->mailer()->setProgram(QString::fromStdString(work_ / "no-such-mailer"));
  QSignalSpy done(controller_->mailer(), &LogMailer::done);
  sheet()->mailLogButton()->click();
  EXPECT_FALSE(sheet()->isVisible());
  ASSERT_TRUE(waitFor([&] { return done.count() == 1; }));
  EXPECT_FALSE(done.first().first().toBool());
  std::vector<std::string> lines = systemLog_.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("executing script FAILED\nxdg-email --utf8 --subject VelmarBS 9.9 Log --body ", 0), 0u)
      << lines[0];
  EXPECT_NE(lines[0].find("--attach /tmp/VelmarBS.log velmarbs-logs@example.com"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1].rfind("script returned ", 0), 0u) << lines[1];
}

}  // namespace
}  // namespace velmar::app
