// ToolQuery: asks the velmarbs tool one question and hands back the property
// lists it printed (queryStripperWithArguments).
//
// A query runs the tool synchronously (RunTask). Whatever goes wrong, a
// launch failure, a non-zero exit or output that cannot be read, is written
// to the log and to the system log, and the answer is null; callers treat
// null as an empty reply.

#ifndef VELMAR_APP_TOOL_QUERY_H_
#define VELMAR_APP_TOOL_QUERY_H_

#include <string>
#include <vector>

#include "app/system_log.h"
#include "app/task_helper.h"
#include "base/value.h"

namespace velmar::app {

// One query's answer with what the front end shows besides the replies.
struct ToolReply {
  Value replies;        // as queryStripperWithArguments answers
  // Why it failed, or why its answer may be empty, in the tool's words
  // (toolFailureReason); empty when the tool said nothing of the kind.
  std::string failure;
  bool cancelled = false;
};

class ToolQuery {
 public:
  // `log` receives the failure texts as the log window's addString would;
  // `systemLog` the same texts for the system log.
  ToolQuery(std::string toolPath, TextSink log, TextSink systemLog = writeSystemLog);

  // The replies in print order (an array Value), or null when the query
  // failed. Safe to call from any thread as long as the sinks are.
  Value queryStripperWithArguments(const std::vector<std::string>& arguments) const;
  // The same, stopped when `cancel` is requested; a cancelled query is not
  // reported as a failure.
  ToolReply ask(const std::vector<std::string>& arguments, const TaskCancel* cancel = nullptr) const;

  const std::string& toolPath() const { return toolPath_; }
  // Echo of the command line and of the tool's output (RunTask's verbose).
  bool verbose() const { return verbose_; }
  void setVerbose(bool on) { verbose_ = on; }
  void setEchoStreams(const EchoStreams& streams) { echo_ = streams; }

 private:
  void report(const std::string& text) const;

  std::string toolPath_;
  TextSink log_;
  TextSink systemLog_;
  bool verbose_ = false;
  EchoStreams echo_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_TOOL_QUERY_H_
