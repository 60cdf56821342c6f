// velmarbs as a function of its words, so main() only hands argv over.

#ifndef VELMAR_TOOL_RUN_TOOL_H_
#define VELMAR_TOOL_RUN_TOOL_H_

#include <string>
#include <vector>

namespace velmar::tool {

// `args` are the words after the program name. Returns the exit status.
int runTool(const std::vector<std::string>& args);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_RUN_TOOL_H_
