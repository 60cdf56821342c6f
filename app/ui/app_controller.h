// AppController: the one controller of the main window. It keeps the
// selection model in step with what the chosen bundle supports, asks the
// tool about the bundle (start-up queries on the main thread, scans on a
// worker), starts strip and validate runs whose progress the sheet shows,
// and answers the menu. The selection itself lives in the settings; the
// model holds a copy that is loaded before and stored after each action.

#ifndef VELMAR_APP_UI_APP_CONTROLLER_H_
#define VELMAR_APP_UI_APP_CONTROLLER_H_

#include <QObject>
#include <memory>
#include <string>

#include "app/bundle_scan.h"
#include "app/selection.h"
#include "app/strip_run.h"
#include "app/system_log.h"
#include "app/tool_query.h"

namespace velmar::app {

class BundleScanner;
class LogController;
class LogMailer;
class MainWindow;
class ProgressSheet;
class SettingsStore;
class StripProcess;

class AppController : public QObject {
  Q_OBJECT

 public:
  AppController(SettingsStore& settings, LogController& log, std::string toolPath,
                TextSink systemLog = writeSystemLog, QObject* parent = nullptr);
  ~AppController() override;

  // Titles and shows the main window, opens the log file, asks the tool for
  // its known products and variants, and from then on rescans when the
  // source or a firmware setting changes. No scan is made here.
  void start();

  // Actions.
  void selectSource();
  void strip();
  void validate();
  // A strip run into `destinationPath`, or a validate run when it is empty.
  void startStripProcess(const std::string& destinationPath);
  void factoryStationHit(int tag, bool on);
  void productHit(int tag, bool on);
  void setAllStations();
  void clearAllStations();
  void setAllProducts();
  void clearAllProducts();
  void sheetOKClicked();
  void sheetShowLogClicked();
  void sheetMailLogClicked();
  void toggleLogWindow();
  void clearLog();

  // The progress sheet and a scan of lastSourceSelected on a worker.
  void scanBundle();
  // Check boxes and buttons from the model.
  void syncFactoryButtons();
  // Quit: the log file to disk.
  void applicationWillTerminate();

  MainWindow* window() const { return window_.get(); }
  ProgressSheet* sheet() const { return sheet_; }
  LogMailer* mailer() const { return mailer_.get(); }
  const SelectionModel& model() const { return model_; }
  // The command line and output of the last run (stripperSessionOutput).
  std::string stripperSessionOutput() const;

 signals:
  // A scan's result is shown.
  void scanFinished();
  // A run has ended; its sheet text and buttons are up.
  void runFinished(bool finished);

 private:
  void setupProducts();
  void setupVariants();
  void scanned(const ScanResult& result);
  void runEnded(const RunEnd& end);
  void loadSelection();
  void storeSelection();
  void settingChanged(const QString& key);
  void updateToggleLogWindowTitle();

  SettingsStore& settings_;
  LogController& log_;
  std::string toolPath_;
  ToolQuery toolQuery_;
  SelectionModel model_;
  bool verbose_ = false;
  bool rescanWanted_ = false;
  std::unique_ptr<MainWindow> window_;
  ProgressSheet* sheet_;  // owned by the window
  // Declared after what they use, so a running scan is waited for before
  // the tool query goes away.
  std::unique_ptr<BundleScanner> scanner_;
  std::unique_ptr<StripProcess> stripProcess_;
  std::unique_ptr<LogMailer> mailer_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_APP_CONTROLLER_H_
