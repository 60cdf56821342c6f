// LogController: the application's one log. Text goes to the log file and,
// until the log window is first shown, to the off-screen buffer (LogFile);
// once the window exists it shows everything. Text may come from any
// thread: it is handed to the main thread so the window and the file see
// it in one order.

#ifndef VELMAR_APP_UI_LOG_CONTROLLER_H_
#define VELMAR_APP_UI_LOG_CONTROLLER_H_

#include <QObject>
#include <memory>
#include <string>

#include "app/log_file.h"
#include "app/system_log.h"

namespace velmar::app {

class LogWindow;

class LogController : public QObject {
  Q_OBJECT

 public:
  explicit LogController(TextSink systemLog = writeSystemLog, QObject* parent = nullptr);
  ~LogController() override;

  // "~" is expanded; folders are made and the file is created when missing.
  void setLogFilename(const std::string& path);
  const std::string& logFilename() const { return file_.logFilename(); }
  // The previous log, shown before anything new (start-up).
  void readLogFile();
  // Forces the file to disk (quit).
  void writeLogFile();

  void addString(const std::string& text);
  void addLogString(const std::string& text, bool withTimeStamp, bool withNewLine);
  // A sink for the logic classes (ToolQuery, StripProcess).
  TextSink sink();

  void show();
  void hide();
  bool isLogWindowVisible() const;
  // Asks first ("Clear Log"); a sheet on the log window when it is visible.
  void clearLog();
  void zapLogAndWindowContents();
  bool isEmpty() const { return file_.isEmpty(); }

  // The window, or null until first shown.
  LogWindow* window() const { return window_.get(); }
  // The log as the window shows it, or the buffer before that.
  std::string text() const;

 private:
  LogFile file_;
  std::unique_ptr<LogWindow> window_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_LOG_CONTROLLER_H_
