#include "app/ui/screenshot_tour.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QLayout>
#include <QPainter>
#include <QPixmap>
#include <QTimer>
#include <QWidget>
#include <cstdio>

#include "app/ui/app_controller.h"
#include "app/ui/bundle_scanner.h"
#include "app/ui/log_controller.h"
#include "app/ui/log_window.h"
#include "app/ui/main_window.h"
#include "app/ui/progress_sheet.h"
#include "app/ui/settings_store.h"
#include "app/user_defaults.h"

namespace velmar::app {

namespace {
// Long enough for the window system to have drawn what changed.
constexpr int kSettleMilliseconds = 400;
// Where the sheet hangs over the main window in the picture when the window
// system has not placed it: just below the menu bar, centred.
constexpr int kSheetTop = 40;
}  // namespace

ScreenshotTour::ScreenshotTour(AppController& controller, LogController& log, SettingsStore& settings,
                               QString folder, QString bundle, QObject* parent)
    : QObject(parent),
      controller_(controller),
      log_(log),
      settings_(settings),
      folder_(std::move(folder)),
      bundle_(std::move(bundle)) {}

void ScreenshotTour::start() {
  QDir().mkpath(folder_);
  // The worker tells its progress before the scan ends: the sheet is up then.
  connect(controller_.scanner(), &BundleScanner::progress, this, &ScreenshotTour::saveScanInProgress,
          Qt::SingleShotConnection);
  connect(&controller_, &AppController::scanFinished, this, [this] {
    QTimer::singleShot(kSettleMilliseconds, this, &ScreenshotTour::saveMainWindow);
  }, Qt::SingleShotConnection);
  connect(&controller_, &AppController::runFinished, this, [this] {
    controller_.sheetOKClicked();
    log_.show();
    log_.window()->resize(760, 300);  // a short log needs no more
    QTimer::singleShot(kSettleMilliseconds, this, &ScreenshotTour::saveLogWindow);
  }, Qt::SingleShotConnection);
  settings_.setString(kLastSourceSelectedKey, QDir(bundle_).absolutePath().toStdString());
}

void ScreenshotTour::saveScanInProgress() {
  // The main window with the sheet drawn where it hangs over it.
  MainWindow* window = controller_.window();
  ProgressSheet* sheet = controller_.sheet();
  sheet->layout()->activate();
  QImage picture = window->grab().toImage();
  const QPixmap sheetPicture = sheet->grab();
  QPoint at = sheet->pos() - window->pos();
  if (!QRect(QPoint(0, 0), picture.size()).contains(QRect(at, sheetPicture.size())))
    at = QPoint((picture.width() - sheetPicture.width()) / 2, kSheetTop);
  QPainter painter(&picture);
  painter.drawPixmap(at, sheetPicture);
  painter.setPen(QColor(120, 120, 120));
  painter.drawRect(QRect(at, sheetPicture.size()).adjusted(-1, -1, 0, 0));
  painter.end();
  save(picture, QStringLiteral("scan-in-progress.png"));
}

void ScreenshotTour::saveMainWindow() {
  save(controller_.window(), QStringLiteral("main-window.png"));
  controller_.validate();
}

void ScreenshotTour::saveLogWindow() {
  save(log_.window(), QStringLiteral("log-window.png"));
  log_.hide();
  chooseNonBundle();
}

void ScreenshotTour::chooseNonBundle() {
  // A folder every user has, in the home the tour runs with.
  QDir().mkpath(QDir::home().filePath(QStringLiteral("Downloads")));
  const QString notABundle = QStringLiteral("~/Downloads");
  connect(&controller_, &AppController::scanFinished, this, [this] {
    QTimer::singleShot(kSettleMilliseconds, this, &ScreenshotTour::saveFailedScan);
  }, Qt::SingleShotConnection);
  settings_.setString(kLastSourceSelectedKey, notABundle.toStdString());
}

void ScreenshotTour::saveFailedScan() {
  save(controller_.window(), QStringLiteral("failed-scan.png"));
  QCoreApplication::exit(failed_ ? 1 : 0);
}

bool ScreenshotTour::save(QWidget* widget, const QString& name) {
  if (widget) return save(widget->grab().toImage(), name);
  std::fprintf(stderr, "VelmarBS: cannot save %s\n", qPrintable(name));
  failed_ = true;
  return false;
}

bool ScreenshotTour::save(const QImage& image, const QString& name) {
  const QString path = QDir(folder_).filePath(name);
  if (!image.isNull() && image.save(path)) {
    std::printf("saved %s\n", qPrintable(path));
    return true;
  }
  std::fprintf(stderr, "VelmarBS: cannot save %s\n", qPrintable(path));
  failed_ = true;
  return false;
}

}  // namespace velmar::app
