#include "tool/run_tool.h"

#include <cstdio>

#include "engine/log_object.h"
#include "tool/cleanup.h"
#include "tool/command_line.h"
#include "tool/exit_status.h"
#include "tool/queries.h"
#include "tool/strip_run.h"

namespace velmar::tool {

int runTool(const std::vector<std::string>& args) {
  ParsedCommandLine parsed = parseCommandLine(args);
  if (!parsed.request) {
    std::fprintf(stderr, "%s\n", parsed.error.c_str());
    return kExitUsage;
  }
  const ToolRequest& request = *parsed.request;
  switch (request.command) {
    case Command::Help:
      std::fputs(usageText().c_str(), stdout);
      return kExitSuccess;
    case Command::Version:
      std::printf("%s\n", versionText().c_str());
      return kExitSuccess;
    case Command::Run:
      installStopHandlers();
      LogObject::sharedLogger().setVerbose(request.verbose);
      return runStrip(request);
    default:
      installStopHandlers();
      LogObject::sharedLogger().setVerbose(request.verbose);
      return runQuery(request);
  }
}

}  // namespace velmar::tool
