// StripProcess: one strip or validate run of the tool as a child process.
// Standard output and standard error share one channel; what the tool
// prints goes to the log as it arrives and into the run record, and the
// exit status decides FINISHED or FAILED. A run can be cancelled: the tool
// gets SIGTERM, then SIGKILL after a grace, and what it had staged for the
// target is removed.

#ifndef VELMAR_APP_UI_STRIP_PROCESS_H_
#define VELMAR_APP_UI_STRIP_PROCESS_H_

#include <QObject>
#include <QProcess>
#include <memory>
#include <string>

#include "app/child_stop.h"
#include "app/strip_run.h"
#include "app/system_log.h"

class QTimer;

namespace velmar::app {

class StripProcess : public QObject {
  Q_OBJECT

 public:
  // `log` receives the command line, the tool's output and the end line.
  explicit StripProcess(TextSink log, QObject* parent = nullptr);
  ~StripProcess() override;  // stops a running tool

  // Logs the command line and launches the tool. False while a run is going.
  bool start(const std::string& launchPath, const Arguments& arguments, const std::string& sourcePath);
  bool isRunning() const { return process_ != nullptr; }
  // Stops the running tool; `ended` follows with `cancelled` set.
  void cancel();
  // Stops the running tool and waits for it, for quitting.
  void stopAndWait();
  // The tool's process id while it runs, else 0.
  qint64 processId() const;

  void setGrace(Milliseconds grace) { grace_ = grace; }

  // The command line and everything the last run printed.
  std::string sessionOutput() const;

 signals:
  // The end line is logged already; `end.sheetText` is for the sheet.
  void ended(const velmar::app::RunEnd& end);

 private:
  void readOutput();
  void finish(int status);

  TextSink log_;
  std::unique_ptr<StripRun> run_;
  QProcess* process_ = nullptr;
  QTimer* killTimer_;
  Milliseconds grace_ = kStopGrace;
  bool cancelled_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_STRIP_PROCESS_H_
