// ScreenshotTour: the --screenshot mode that makes the README's pictures.
// It chooses a bundle as the user would, waits for the scan, saves the main
// window, runs Validate, shows the log window, saves it, and quits.

#ifndef VELMAR_APP_UI_SCREENSHOT_TOUR_H_
#define VELMAR_APP_UI_SCREENSHOT_TOUR_H_

#include <QObject>
#include <QString>

namespace velmar::app {

class AppController;
class LogController;
class SettingsStore;

class ScreenshotTour : public QObject {
  Q_OBJECT

 public:
  ScreenshotTour(AppController& controller, LogController& log, SettingsStore& settings, QString folder,
                 QString bundle, QObject* parent = nullptr);

  void start();

 private:
  void saveMainWindow();
  void saveLogWindow();
  bool save(QWidget* widget, const QString& name);

  AppController& controller_;
  LogController& log_;
  SettingsStore& settings_;
  QString folder_;
  QString bundle_;
  bool failed_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SCREENSHOT_TOUR_H_
