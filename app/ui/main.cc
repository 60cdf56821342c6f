// VelmarBS, the desktop application (installed as velmarbs-gui). A bundle
// given on the command line becomes the source; `--screenshot FOLDER BUNDLE`
// saves pictures of the main window and the log window and quits.

#include <QApplication>
#include <QDir>
#include <QStringList>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/launch_options.h"
#include "app/paths.h"
#include "app/ui/app_controller.h"
#include "app/ui/log_controller.h"
#include "app/ui/screenshot_tour.h"
#include "app/ui/settings_store.h"

namespace {

bool answersWithoutWindow(const velmar::app::LaunchOptions& launch) {
  return launch.help || launch.version || launch.printToolPath;
}

// Words answered without a window, so they work where no display is.
int answerWithoutWindow(int argc, char** argv, const velmar::app::LaunchOptions& launch) {
  if (launch.help) {
    std::fputs(velmar::app::launchUsageText().c_str(), stdout);
  } else if (launch.version) {
    std::printf("velmarbs-gui %s\n", VELMAR_VERSION);
  } else {
    std::unique_ptr<QCoreApplication> core;
    if (!QCoreApplication::instance()) core = std::make_unique<QCoreApplication>(argc, argv);
    std::printf("%s\n", velmar::app::findTool(QCoreApplication::applicationDirPath().toStdString()).c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Toolkit options may stand among the words; a plain reading that fails
  // is read again once the application has taken those out.
  velmar::app::LaunchOptions launch =
      velmar::app::parseLaunchArguments(std::vector<std::string>(argv + 1, argv + argc), QDir::currentPath().toStdString());
  if (launch.error.empty() && answersWithoutWindow(launch)) return answerWithoutWindow(argc, argv, launch);

  QApplication app(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("VelmarBS"));
  QApplication::setApplicationName(QStringLiteral("VelmarBS"));
  QApplication::setApplicationVersion(QStringLiteral(VELMAR_VERSION));
  QGuiApplication::setDesktopFileName(QStringLiteral("com.example.VelmarBS"));

  std::vector<std::string> words;
  for (const QString& word : QApplication::arguments().mid(1)) words.push_back(word.toStdString());
  launch = velmar::app::parseLaunchArguments(words, QDir::currentPath().toStdString());
  if (!launch.error.empty()) {
    std::fprintf(stderr, "%s\n", launch.error.c_str());
    return 2;
  }
  if (answersWithoutWindow(launch)) return answerWithoutWindow(argc, argv, launch);

  velmar::app::LogController log;
  velmar::app::SettingsStore settings;
  velmar::app::AppController controller(
      settings, log, velmar::app::findTool(QApplication::applicationDirPath().toStdString()));
  QObject::connect(&app, &QCoreApplication::aboutToQuit, &controller,
                   &velmar::app::AppController::applicationWillTerminate);
  controller.start();
  // Chosen as if through Choose..., so the bundle is scanned at once.
  if (!launch.source.empty()) settings.setString(velmar::app::kLastSourceSelectedKey, launch.source);

  std::unique_ptr<velmar::app::ScreenshotTour> tour;
  if (launch.screenshot) {
    tour = std::make_unique<velmar::app::ScreenshotTour>(controller, log, settings,
                                                         QString::fromStdString(launch.screenshotFolder),
                                                         QString::fromStdString(launch.screenshotBundle));
    tour->start();
  }
  return app.exec();
}
