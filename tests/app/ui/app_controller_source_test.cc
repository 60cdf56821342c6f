// Choosing the bundle as a user does: the Choose dialog for an image or a
// folder, a typed or pasted path, a drop, Rescan, and the line that says
// why a scan found nothing. Against the real velmarbs.
#include <QDialogButtonBox>
#include <QDropEvent>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QUrl>
#include <filesystem>
#include <fstream>

#include "app/ui/source_dialog.h"
#include "app_controller_fixture.h"

namespace velmar::app {
namespace {

using testing::AppControllerTest;
using testing::waitFor;

// Picks `path` in the Choose dialog and presses its Choose button once.
void pickWithChoose(SourceDialog* dialog, const std::string& path) {
  ASSERT_NE(dialog, nullptr);
  dialog->selectFile(QString::fromStdString(path));
  QPushButton* choose = dialog->chooseButton();
  ASSERT_NE(choose, nullptr);
  ASSERT_TRUE(waitFor([&] { return choose->isEnabled(); })) << path;
  choose->click();
}

TEST_F(AppControllerTest, ChooseTakesAnImageOrAFolderWithOneClick) {
  const std::string image = work_ / "broken.dmg";
  std::ofstream(image) << "not an image";
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);

  window()->chooseAction()->trigger();
  EXPECT_EQ(window()->chooseAction()->shortcut(), QKeySequence(QKeySequence::Open));
  pickWithChoose(controller_->sourceDialog(), image);
  EXPECT_EQ(settings_.stringForKey(kLastSourceSelectedKey), image);
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  // The tool cannot read it, and the window says so with the tool's reason.
  EXPECT_FALSE(window()->scanProblemLine()->isHidden());
  const std::string line = window()->scanProblemLine()->text().toStdString();
  EXPECT_EQ(line.rfind("\"broken.dmg\" cannot be used: ", 0), 0u) << line;
  EXPECT_GT(line.size(), std::string("\"broken.dmg\" cannot be used: ").size() + 10) << line;
  EXPECT_FALSE(window()->validateButton()->isEnabled());
  EXPECT_FALSE(window()->stripAction()->isEnabled());

  window()->chooseButton()->click();
  pickWithChoose(controller_->sourceDialog(), bundle_);
  EXPECT_EQ(settings_.stringForKey(kLastSourceSelectedKey), bundle_);  // chosen, not opened
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 2; }));
  EXPECT_TRUE(window()->scanProblemLine()->isHidden());
  EXPECT_TRUE(window()->productsBox()->isEnabled());
  // The image offered no product, so the selection rule dropped r13; the
  // bundle's products are offered again.
  EXPECT_EQ(testing::enabledNames(window()->productsBox()), (NameList{"r11", "r13"}));
}

TEST_F(AppControllerTest, AFolderThatIsNotABundleSaysWhyAndOffersNothing) {
  std::filesystem::create_directories(work_ / "Empty");
  choose(work_ / "Empty");
  const std::string line = window()->scanProblemLine()->text().toStdString();
  EXPECT_EQ(line.rfind("\"Empty\" cannot be used: ", 0), 0u) << line;
  EXPECT_EQ(line.find("XXX"), std::string::npos) << line;  // the tool's reason, not its prefix
  EXPECT_EQ(window()->sourceField()->accessibleDescription().toStdString(), line);
  EXPECT_FALSE(window()->productsBox()->isEnabled());
  EXPECT_FALSE(window()->stationsBox()->isEnabled());
  EXPECT_FALSE(window()->stripButton()->isEnabled());
  EXPECT_FALSE(sheet()->isVisible());
}

TEST_F(AppControllerTest, RescanAsksAgainWithoutTheDialog) {
  chooseBundle();
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  EXPECT_EQ(window()->rescanAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_R));
  ASSERT_TRUE(window()->rescanAction()->isEnabled());
  // A bundle repaired since the last scan is seen without choosing it again.
  std::filesystem::remove_all(bundle_ + "/Restore");
  window()->rescanAction()->trigger();
  EXPECT_TRUE(sheet()->isVisible());
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_EQ(controller_->sourceDialog(), nullptr);
  EXPECT_FALSE(window()->scanProblemLine()->isHidden());
  EXPECT_FALSE(window()->validateButton()->isEnabled());
}

TEST_F(AppControllerTest, ATypedPathIsScannedOnEnter) {
  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  QLineEdit* field = window()->sourceField();
  EXPECT_EQ(window()->sourceLabel()->buddy(), field);
  field->setFocus();
  field->setText(QString::fromStdString(bundle_));
  QTest::keyClick(field, Qt::Key_Return);
  EXPECT_EQ(settings_.stringForKey(kLastSourceSelectedKey), bundle_);
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_TRUE(window()->validateButton()->isEnabled());
  // Enter on the same path scans it again, also pasted as a file address.
  field->setText(QUrl::fromLocalFile(QString::fromStdString(bundle_)).toString() + "\n");
  QTest::keyClick(field, Qt::Key_Return);
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 2; }));
  EXPECT_EQ(field->text().toStdString(), bundle_);
}

QMimeData* urlsOf(const std::vector<std::string>& paths) {
  auto* data = new QMimeData;
  QList<QUrl> urls;
  for (const auto& path : paths) urls.append(QUrl::fromLocalFile(QString::fromStdString(path)));
  data->setUrls(urls);
  return data;
}

bool dragAccepted(QWidget* window, const std::vector<std::string>& paths) {
  std::unique_ptr<QMimeData> data(urlsOf(paths));
  QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(window, &enter);
  return enter.isAccepted();
}

TEST_F(AppControllerTest, ADroppedFolderOrImageIsChosen) {
  std::ofstream(work_ / "notes.txt") << "x";
  std::ofstream(work_ / "other.dmg") << "x";
  EXPECT_TRUE(window()->acceptDrops());
  EXPECT_FALSE(dragAccepted(window(), {work_ / "notes.txt"}));
  EXPECT_FALSE(dragAccepted(window(), {bundle_, work_ / "other.dmg"}));
  EXPECT_TRUE(dragAccepted(window(), {work_ / "other.dmg"}));
  EXPECT_TRUE(dragAccepted(window(), {bundle_}));

  QSignalSpy scanned(controller_.get(), &AppController::scanFinished);
  std::unique_ptr<QMimeData> data(urlsOf({bundle_}));
  QDropEvent drop(QPointF(10, 10), Qt::CopyAction, data.get(), Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(window(), &drop);
  EXPECT_EQ(settings_.stringForKey(kLastSourceSelectedKey), bundle_);
  ASSERT_TRUE(waitFor([&] { return scanned.count() == 1; }));
  EXPECT_TRUE(window()->validateButton()->isEnabled());
}

}  // namespace
}  // namespace velmar::app
