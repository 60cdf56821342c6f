// ScreenshotTour: the --screenshot mode that makes the README's pictures.
// It chooses a bundle as the user would and saves the window with the scan
// sheet up while the scan runs, then the main window once it is done; runs
// Validate and saves the log window; then chooses a folder that is not a
// bundle, saves the window with its failed-scan line, and quits.

#ifndef VELMAR_APP_UI_SCREENSHOT_TOUR_H_
#define VELMAR_APP_UI_SCREENSHOT_TOUR_H_

#include <QObject>
#include <QString>

class QImage;

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
  void saveScanInProgress();
  void saveMainWindow();
  void saveLogWindow();
  void chooseNonBundle();
  void saveFailedScan();
  bool save(QWidget* widget, const QString& name);
  bool save(const QImage& image, const QString& name);

  AppController& controller_;
  LogController& log_;
  SettingsStore& settings_;
  QString folder_;
  QString bundle_;
  bool failed_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_SCREENSHOT_TOUR_H_
