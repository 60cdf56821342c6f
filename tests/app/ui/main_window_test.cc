// The main window on its own: keyboard order and accessible names, a
// products box that scrolls rather than outgrow the screen, and the place
// it is remembered at. Help's boxes are tested with the controller.
#include "app/ui/main_window.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>

#include "app/ui/check_box_panel.h"
#include "app/ui/settings_store.h"
#include "app_controller_fixture.h"

namespace velmar::app {
namespace {

NameList names(const char* prefix, int count) {
  NameList list;
  for (int i = 0; i < count; ++i) list.push_back(prefix + std::to_string(i));
  return list;
}

class MainWindowTest : public ::testing::Test {
 protected:
  void SetUp() override { settings_.clear(); }
  SettingsStore settings_;
};

TEST_F(MainWindowTest, TabGoesFromTopToBottom) {
  MainWindow window(settings_);
  window.productsBox()->setNames(names("r", 11));
  window.stationsBox()->setNames(names("s", 6));
  window.show();
  const std::vector<QWidget*> expected = window.tabOrder();
  ASSERT_EQ(expected.front(), window.sourceField());
  ASSERT_EQ(expected.back(), window.stripButton());
  ASSERT_EQ(expected.size(), 2 + 13 + 8 + window.optionBoxes().size() + 2);

  // Following the focus chain from the source field visits them in that order.
  std::vector<QWidget*> visited;
  QWidget* widget = window.sourceField();
  for (size_t step = 0; step < 1000 && visited.size() < expected.size(); ++step) {
    if (std::find(expected.begin(), expected.end(), widget) != expected.end() &&
        std::find(visited.begin(), visited.end(), widget) == visited.end())
      visited.push_back(widget);
    widget = widget->nextInFocusChain();
  }
  EXPECT_EQ(visited, expected);
  // And that order runs down the window: each control is level with or below the last.
  int lastY = -1;
  for (QWidget* control : expected) {
    const int y = control->mapTo(&window, QPoint(0, 0)).y();
    EXPECT_GE(y, lastY) << control->accessibleName().toStdString();
    lastY = std::max(lastY, y);
  }
}

TEST_F(MainWindowTest, EveryControlHasAnAccessibleNameAndTheSourceLabelItsField) {
  MainWindow window(settings_);
  window.productsBox()->setNames(names("r", 3));
  window.stationsBox()->setNames(names("s", 2));
  for (QAbstractButton* button : window.findChildren<QAbstractButton*>())
    if (!button->objectName().startsWith(QStringLiteral("qt_")))  // not the menu bar's overflow button
      EXPECT_FALSE(button->accessibleName().isEmpty())
          << button->metaObject()->className() << " " << button->objectName().toStdString() << " "
          << button->text().toStdString();
  for (QLineEdit* field : window.findChildren<QLineEdit*>()) EXPECT_FALSE(field->accessibleName().isEmpty());
  EXPECT_EQ(window.sourceLabel()->buddy(), window.sourceField());
  EXPECT_EQ(window.productsBox()->checkBoxes()[1]->accessibleName(), "Products: r1");
  EXPECT_EQ(window.stationsBox()->clearAllButton()->accessibleName(), "Clear all stations");
  EXPECT_EQ(window.chooseAction()->shortcut(), QKeySequence(QKeySequence::Open));
}

TEST_F(MainWindowTest, ManyProductsScrollInsteadOfGrowingPastTheScreen) {
  MainWindow window(settings_);
  window.show();
  window.productsBox()->setNames(names("r", 12));
  QTest::qWait(50);
  EXPECT_EQ(window.productsScrollArea()->verticalScrollBar()->maximum(), 0);  // a few fit
  const int fewHeight = window.height();

  window.productsBox()->setNames(names("r", 400));  // 50 rows
  ASSERT_TRUE(testing::waitFor([&] { return window.height() != fewHeight; }));
  const int screenHeight = window.screen()->availableGeometry().height();
  EXPECT_GT(window.productsBox()->height(), screenHeight);
  EXPECT_LE(window.frameGeometry().height(), screenHeight);
  EXPECT_GT(window.height(), fewHeight);  // it did grow, up to the screen
  EXPECT_GT(window.productsScrollArea()->verticalScrollBar()->maximum(), 0);

  window.productsBox()->setNames(names("r", 12));
  EXPECT_TRUE(testing::waitFor([&] { return window.height() == fewHeight; }))
      << window.height() << " box " << window.productsBox()->height() << " area "
      << window.productsScrollArea()->height() << " hint " << window.productsScrollArea()->sizeHint().height();
}

TEST_F(MainWindowTest, ThePlaceOfTheWindowIsRemembered) {
  {
    MainWindow window(settings_);
    window.show();
    window.move(73, 41);
    QCoreApplication::processEvents();
    window.close();
  }
  MainWindow again(settings_);
  again.show();
  QCoreApplication::processEvents();
  EXPECT_EQ(again.pos(), QPoint(73, 41));
}

using HelpMenuTest = testing::AppControllerTest;

TEST_F(HelpMenuTest, TellsVersionsPathsAndHowTo) {
  window()->aboutAction()->trigger();
  QMessageBox* about = controller_->aboutBox();
  ASSERT_NE(about, nullptr);
  const std::string text = about->text().toStdString();
  EXPECT_NE(text.find("VelmarBS 9.9"), std::string::npos) << text;
  EXPECT_NE(text.find("Tool path: " + toolPath_), std::string::npos) << text;
  EXPECT_NE(text.find("Log file: " + logPath_), std::string::npos) << text;
  EXPECT_EQ(text.find("Tool: velmarbs unknown"), std::string::npos) << text;  // the tool answered
  about->accept();

  window()->howToAction()->trigger();
  ASSERT_NE(controller_->howToBox(), nullptr);
  EXPECT_TRUE(controller_->howToBox()->isVisible());
  EXPECT_NE(controller_->howToBox()->text().indexOf("Ctrl+R"), -1);
}

}  // namespace
}  // namespace velmar::app
