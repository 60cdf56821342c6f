// LogObject: the one logger of the strip engines.
//
// Every message is kept in historicalLog. What is printed depends on words in
// the text, not on a level: a message containing "ERROR" is an error,
// otherwise "WARNING" a warning, otherwise "NOTE" a note, otherwise plain.
// Errors, warnings and notes always print; plain messages only when verbose.
// When standard error is a terminal (useTTY), errors, warnings and notes go
// there coloured; otherwise everything goes to standard output, plain, so a
// parent process reading one pipe sees every line in order.

#ifndef VELMAR_ENGINE_LOG_OBJECT_H_
#define VELMAR_ENGINE_LOG_OBJECT_H_

#include <cstdio>
#include <string>
#include <string_view>

#include "base/format.h"
#include "base/value.h"

namespace velmar {

enum class LogKind { Plain, Error, Warning, Note };

// The classification above, first match wins.
LogKind classifyMessage(std::string_view message);

// `message` as one line of plain text: control characters (C0, DEL, C1)
// become "\n", "\r", "\t" or "\xHH", and bytes that are not UTF-8 "\xHH".
// Messages carry names and texts from bundles, which are hostile: a line
// break in a name must not start a forged log line, nor an escape sequence
// reach the terminal.
std::string escapeForLog(std::string_view message);

class LogObject {
 public:
  // The process-wide logger, created on first use.
  static LogObject& sharedLogger();

  template <class... Args>
  void Log(std::string_view fmt, const Args&... args) {
    LogMessage(format(fmt, args...), false);
  }
  template <class... Args>
  void MustLog(std::string_view fmt, const Args&... args) {
    LogMessage(format(fmt, args...), true);
  }
  // Logs an already formatted message, escaped as escapeForLog does;
  // `always` prints plain text too.
  void LogMessage(const std::string& message, bool always);

  // When verbose, prints `value` as an indented tree to standard output.
  // The tree does not enter historicalLog.
  void PrettyPrint(const Value& value);

  bool useTTY() const { return useTTY_; }
  void setUseTTY(bool on) { useTTY_ = on; }
  bool verbose() const { return verbose_; }
  void setVerbose(bool on) { verbose_ = on; }
  const std::string& historicalLog() const { return historicalLog_; }
  void setHistoricalLog(std::string log) { historicalLog_ = std::move(log); }

  // Where printed lines go; standard output and error unless a host or a
  // test redirects them.
  void setStreams(FILE* out, FILE* err) {
    out_ = out;
    err_ = err;
  }

  LogObject(const LogObject&) = delete;
  LogObject& operator=(const LogObject&) = delete;

 private:
  LogObject();

  bool useTTY_;
  bool verbose_ = false;
  std::string historicalLog_;
  FILE* out_ = stdout;
  FILE* err_ = stderr;
};

// The value dump behind PrettyPrint: dictionaries as "key: value" lines,
// arrays labelled "0", "1", ..., nested containers one indent deeper, data
// as "0x" and upper-case hex.
void dumpValue(const Value& v);                                   // stderr, "\t"
void dumpValue(const Value& v, FILE* stream);                     // "\t"
void dumpValue(const Value& v, std::string_view indent);          // stderr
void dumpValue(const Value& v, FILE* stream, std::string_view indent);
std::string dumpValueToString(const Value& v, std::string_view indent);

}  // namespace velmar

#endif  // VELMAR_ENGINE_LOG_OBJECT_H_
