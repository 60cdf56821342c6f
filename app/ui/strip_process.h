// StripProcess: one strip or validate run of the tool as a child process.
// Standard output and standard error share one channel; what the tool
// prints goes to the log as it arrives and into the run record, and the
// exit status decides FINISHED or FAILED.

#ifndef VELMAR_APP_UI_STRIP_PROCESS_H_
#define VELMAR_APP_UI_STRIP_PROCESS_H_

#include <QObject>
#include <QProcess>
#include <memory>
#include <string>

#include "app/strip_run.h"
#include "app/system_log.h"

namespace velmar::app {

class StripProcess : public QObject {
  Q_OBJECT

 public:
  // `log` receives the command line, the tool's output and the end line.
  explicit StripProcess(TextSink log, QObject* parent = nullptr);

  // Logs the command line and launches the tool. False while a run is going.
  bool start(const std::string& launchPath, const Arguments& arguments, const std::string& sourcePath);
  bool isRunning() const { return process_ != nullptr; }

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
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_STRIP_PROCESS_H_
