// A strip (with --target) or validate (without) run.

#ifndef VELMAR_TOOL_STRIP_RUN_H_
#define VELMAR_TOOL_STRIP_RUN_H_

#include "tool/bundle_writer.h"
#include "tool/command_line.h"

namespace velmar::tool {

// Checks what can be checked before any work, runs the engine, writes the
// stripped bundle and prints the results as asked. Returns the exit status.
int runStrip(const ToolRequest& request);

// The checks on --target made before any work: --encrypt, an existing
// target without --ov, a target and source that overlap, a missing image
// maker. Logs and answers kExitUsage (kExitIO for a target folder that does
// not exist); fills `target` on success.
int checkTarget(const ToolRequest& request, TargetOptions& target);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_STRIP_RUN_H_
