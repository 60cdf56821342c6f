// The queries of the desktop application: each prints one XML property list
// on standard output.

#ifndef VELMAR_TOOL_QUERIES_H_
#define VELMAR_TOOL_QUERIES_H_

#include "tool/command_line.h"

namespace velmar::tool {

// Answers --knownProducts, --knownvariants, --validproducts or
// --validvariants; returns the exit status.
int runQuery(const ToolRequest& request);

// The strings of an array or set, sorted case-insensitively; empty for null.
Value sortedNames(const Value& names);

// Writes the XML form of `reply` to standard output and flushes.
void printReply(const Value& reply);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_QUERIES_H_
