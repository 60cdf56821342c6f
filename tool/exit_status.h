// The exit statuses of velmarbs. Scripts and the desktop application read
// them, so the numbers never change.

#ifndef VELMAR_TOOL_EXIT_STATUS_H_
#define VELMAR_TOOL_EXIT_STATUS_H_

namespace velmar::tool {

constexpr int kExitSuccess = 0;
// A command line that cannot be carried out, refused before any work.
constexpr int kExitUsage = 2;
// Reading the source or writing the target failed.
constexpr int kExitIO = 3;

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_EXIT_STATUS_H_
