// LogFile: the log's file on disk and the off-screen buffer that holds the
// log text until the log window is first shown.
//
// Every piece of text added is appended to the file exactly as given
// (callers supply their own line breaks) and, while no window has taken
// over, to the buffer. When the window is first shown it takes the buffer
// (takeOffscreenBuffer) and shows everything itself from then on. Text may
// be added from a scan's worker thread while the main thread adds run
// output, so the buffer and the file are guarded.

#ifndef VELMAR_APP_LOG_FILE_H_
#define VELMAR_APP_LOG_FILE_H_

#include <mutex>
#include <string>

#include "app/system_log.h"

namespace velmar::app {

class LogFile {
 public:
  explicit LogFile(TextSink systemLog = writeSystemLog);
  ~LogFile();  // flushes and closes the file
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // The log file's path ("~" is expanded); empty for no file. The old file
  // is flushed and closed; a new one is created, with its folders, when
  // missing, and opened for appending.
  void setLogFilename(const std::string& path);
  const std::string& logFilename() const { return logFilename_; }

  // True only when the file was missing, `create` was asked and it has just
  // been made (callers ignore the answer; it is not "does it exist").
  bool logFileExists(bool create);

  // Appends to the file, and to the buffer while no window has taken over.
  // A missing or unwritable file only loses the file copy.
  void addString(const std::string& text);

  // The whole file as UTF-8 text, read once at start-up; on failure
  // "cannot read logfile \"%@\" - %@" goes to the system log and the text is
  // empty. Without a window the buffer becomes the text; with one the
  // buffer is emptied and the window shows the text returned.
  std::string readLogFile();

  // Forces the file to disk. Always true.
  bool writeLogFile();

  // Empties the buffer and the file ("Clear Log" confirmed).
  void zapLogAndWindowContents();

  // True when the file is empty (or there is none).
  bool isEmpty() const;

  // The window takes over: the buffer's text is handed out and the buffer
  // stays empty from now on.
  std::string takeOffscreenBuffer();
  bool windowHasTakenOver() const;
  std::string offscreenBuffer() const;

 private:
  void closeFile();  // with mutex_ held

  TextSink systemLog_;
  mutable std::mutex mutex_;
  std::string offscreenBuffer_;
  std::string logFilename_;
  int writing_ = -1;
  bool windowHasTakenOver_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_LOG_FILE_H_
