#include "app/ui/screenshot_tour.h"

#include <QCoreApplication>
#include <QDir>
#include <QPixmap>
#include <QTimer>
#include <QWidget>
#include <cstdio>

#include "app/ui/app_controller.h"
#include "app/ui/log_controller.h"
#include "app/ui/log_window.h"
#include "app/ui/main_window.h"
#include "app/ui/settings_store.h"
#include "app/user_defaults.h"

namespace velmar::app {

namespace {
// Long enough for the window system to have drawn what changed.
constexpr int kSettleMilliseconds = 400;
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

void ScreenshotTour::saveMainWindow() {
  save(controller_.window(), QStringLiteral("main-window.png"));
  controller_.validate();
}

void ScreenshotTour::saveLogWindow() {
  save(log_.window(), QStringLiteral("log-window.png"));
  QCoreApplication::exit(failed_ ? 1 : 0);
}

bool ScreenshotTour::save(QWidget* widget, const QString& name) {
  const QString path = QDir(folder_).filePath(name);
  if (widget && widget->grab().save(path)) {
    std::printf("saved %s\n", qPrintable(path));
    return true;
  }
  std::fprintf(stderr, "VelmarBS: cannot save %s\n", qPrintable(path));
  failed_ = true;
  return false;
}

}  // namespace velmar::app
