// The main window and its controller against the real velmarbs and a
// synthetic bundle, shared by the widget tests that drive them as a user
// would.

#ifndef VELMAR_TESTS_UI_APP_CONTROLLER_FIXTURE_H_
#define VELMAR_TESTS_UI_APP_CONTROLLER_FIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <memory>
#include <string>

#include "app/ui/app_controller.h"
#include "app/ui/check_box_panel.h"
#include "app/ui/log_controller.h"
#include "app/ui/main_window.h"
#include "app/ui/progress_sheet.h"
#include "app/ui/settings_store.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "ui_test_support.h"

namespace velmar::app::testing {

inline QCheckBox* checkBoxNamed(CheckBoxPanel* panel, const QString& name) {
  for (QCheckBox* box : panel->checkBoxes())
    if (box->text() == name) return box;
  return nullptr;
}

inline NameList enabledNames(CheckBoxPanel* panel) {
  NameList names;
  for (QCheckBox* box : panel->checkBoxes())
    if (box->isEnabled()) names.push_back(box->text().toStdString());
  return names;
}

class AppControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access(toolPath_.c_str(), X_OK) != 0) GTEST_SKIP() << "velmarbs not built";
    settings_.clear();
    settings_.setString(kLogFilePathKey, logPath_);
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle_, &error)) << error;
    controller_ = std::make_unique<AppController>(settings_, log_, toolPath_, systemLog_.sink());
    controller_->start();
  }

  MainWindow* window() { return controller_->window(); }
  ProgressSheet* sheet() { return controller_->sheet(); }

  void chooseBundle() { choose(bundle_); }
  void choose(const std::string& source) {
    QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
    settings_.setString(kLastSourceSelectedKey, source);
    ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  }

  // A bundle with `products` synthetic products besides the sample's: its
  // scan asks the tool one question per product, long enough to cancel.
  std::string largeBundle(size_t products) {
    std::string path = work_ / "Large";
    std::string error;
    EXPECT_TRUE(synth::writeBundle(synth::largeBundle(products), path, &error)) << error;
    return path;
  }

  // Runs to the end; whether the tool said FINISHED.
  bool run(const std::string& destination) {
    QSignalSpy ended(controller_.get(), &AppController::runFinished);
    controller_->startStripProcess(destination);
    EXPECT_TRUE(waitFor([&] { return ended.count() == 1; }));
    return !ended.isEmpty() && ended.first().first().toBool();
  }

  std::string toolPath_ = std::string(VELMAR_BINARY_DIR) + "/tool/velmarbs";
  synth::TempDir work_{"velmar-ui"};
  std::string bundle_ = work_ / "Bundle";
  std::string logPath_ = work_ / "Logs/VelmarBS.log";
  SystemLogRecorder systemLog_;
  SettingsStore settings_;
  LogController log_{systemLog_.sink()};
  std::unique_ptr<AppController> controller_;
};

}  // namespace velmar::app::testing

#endif  // VELMAR_TESTS_UI_APP_CONTROLLER_FIXTURE_H_
