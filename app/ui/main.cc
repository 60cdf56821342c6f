// VelmarBS, the desktop application. `VelmarBS --screenshot FOLDER BUNDLE`
// saves pictures of the main window and the log window and quits.

#include <QApplication>
#include <QStringList>
#include <cstdio>
#include <memory>

#include "app/paths.h"
#include "app/ui/app_controller.h"
#include "app/ui/log_controller.h"
#include "app/ui/screenshot_tour.h"
#include "app/ui/settings_store.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("VelmarBS"));
  QApplication::setApplicationName(QStringLiteral("VelmarBS"));
  QApplication::setApplicationVersion(QStringLiteral(VELMAR_VERSION));

  const QStringList arguments = QApplication::arguments();
  const qsizetype screenshot = arguments.indexOf(QStringLiteral("--screenshot"));
  if (screenshot >= 0 && screenshot + 2 >= arguments.size()) {
    std::fprintf(stderr, "usage: VelmarBS [--screenshot FOLDER BUNDLE]\n");
    return 2;
  }

  velmar::app::LogController log;
  velmar::app::SettingsStore settings;
  velmar::app::AppController controller(
      settings, log, velmar::app::findTool(QApplication::applicationDirPath().toStdString()));
  QObject::connect(&app, &QCoreApplication::aboutToQuit, &controller,
                   &velmar::app::AppController::applicationWillTerminate);
  controller.start();

  std::unique_ptr<velmar::app::ScreenshotTour> tour;
  if (screenshot >= 0) {
    tour = std::make_unique<velmar::app::ScreenshotTour>(controller, log, settings, arguments[screenshot + 1],
                                                         arguments[screenshot + 2]);
    tour->start();
  }
  return app.exec();
}
