#include "app/tool_query.h"

#include <cstring>

#include "app/tool_output.h"
#include "base/format.h"

namespace velmar::app {

ToolQuery::ToolQuery(std::string toolPath, TextSink log, TextSink systemLog)
    : toolPath_(std::move(toolPath)), log_(std::move(log)), systemLog_(std::move(systemLog)) {}

void ToolQuery::report(const std::string& text) const {
  if (log_) log_(text);
  if (systemLog_) systemLog_(text);
}

Value ToolQuery::queryStripperWithArguments(const std::vector<std::string>& arguments) const {
  return ask(arguments).replies;
}

ToolReply ToolQuery::ask(const std::vector<std::string>& arguments, const TaskCancel* cancel) const {
  ToolReply reply;
  std::string standardOutput, standardError;
  int status = RunTask(toolPath_, arguments, std::string(), &standardOutput, &standardError,
                       verbose_, echo_, cancel, &reply.cancelled);
  if (reply.cancelled) return reply;
  if (status != 0) {
    // The exit status is reported as if it were an error number; users and
    // scripts have learnt to read these lines as they are.
    std::string texts[] = {
        format("ERROR: unable to launch velmarbs tool at %s - (%d - %s)\n", toolPath_, status,
               std::strerror(status)),
        format("path: %@\narguments: %@", toolPath_, Value::stringArray(arguments)),
        format("stdout: %@\nstderr: %@", standardOutput, standardError),
    };
    if (log_) {
      for (const auto& text : texts) log_(text);
    }
    if (systemLog_) {
      for (const auto& text : texts) systemLog_(text);
    }
    reply.failure = toolFailureReason(standardOutput, standardError, status);
    return reply;
  }
  std::string error;
  Value lists = PropertyListsFromOutput(standardOutput, &error);
  if (error.empty()) {
    reply.replies = std::move(lists);
    // A tool that answered may still have said why the answer is empty.
    reply.failure = toolFailureReason(standardOutput, standardError, 0);
    return reply;
  }
  report(format("ERROR: velmarbs query failed - cannot decipher output - %s.\n", error));
  reply.failure = "velmarbs gave an answer that cannot be read: " + error;
  return reply;
}

}  // namespace velmar::app
