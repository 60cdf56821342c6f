// AppController: the one controller of the main window. It keeps the
// selection model in step with what the chosen bundle supports, asks the
// tool about the bundle (start-up queries on the main thread, scans on a
// worker), starts strip and validate runs whose progress the sheet shows,
// and answers the menu. The selection itself lives in the settings; the
// model holds a copy that is loaded before and stored after each action.

#ifndef VELMAR_APP_UI_APP_CONTROLLER_H_
#define VELMAR_APP_UI_APP_CONTROLLER_H_

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <memory>
#include <string>

#include "app/bundle_scan.h"
#include "app/selection.h"
#include "app/strip_run.h"
#include "app/system_log.h"
#include "app/tool_query.h"
#include "app/ui/save_dialog.h"
#include "app/ui/source_dialog.h"

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
  // Scans the current source again, without the dialog.
  void rescan();
  // A path typed (Enter) or dropped: chosen, or scanned again when it is
  // the current source already.
  void chooseSourcePath(const QString& path);
  // Cancel on the sheet: stops the scan or the run.
  void cancelWork();
  // The close box or Quit while a scan or run goes on: asks once, then
  // stops the tool and quits.
  void askToQuit();
  void showAbout();
  void showHowTo();
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
  // Quit: no tool left running, the log file to disk.
  void applicationWillTerminate();

  MainWindow* window() const { return window_.get(); }
  ProgressSheet* sheet() const { return sheet_; }
  LogMailer* mailer() const { return mailer_.get(); }
  const SelectionModel& model() const { return model_; }
  BundleScanner* scanner() const { return scanner_.get(); }
  StripProcess* stripProcess() const { return stripProcess_.get(); }
  // The dialogs and questions while they are up, else null.
  SourceDialog* sourceDialog() const { return sourceDialog_; }
  SaveDialog* saveDialog() const { return saveDialog_; }
  QMessageBox* quitQuestion() const { return quitQuestion_; }
  QMessageBox* aboutBox() const { return aboutBox_; }
  QMessageBox* howToBox() const { return howToBox_; }
  bool isQuitting() const { return quitting_; }
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
  void scanProgress(int number, int count);
  void runEnded(const RunEnd& end);
  void quitNow();
  void quitWhenIdle();
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
  // False after a scan that failed or was cancelled: nothing is offered
  // until a scan succeeds.
  bool scanUsable_ = true;
  bool quitting_ = false;
  QPointer<SourceDialog> sourceDialog_;
  QPointer<SaveDialog> saveDialog_;
  QPointer<QMessageBox> quitQuestion_;
  QPointer<QMessageBox> aboutBox_;
  QPointer<QMessageBox> howToBox_;
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
