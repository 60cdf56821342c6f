// The velmarbs command line, parsed into one request.
//
// Options are separate words and a value is the next word. Parsing checks
// only the words themselves (known, values present and well formed, the
// options a query needs); whether the files exist is the run's business.

#ifndef VELMAR_TOOL_COMMAND_LINE_H_
#define VELMAR_TOOL_COMMAND_LINE_H_

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"

namespace velmar::tool {

enum class Command {
  Run,  // strip with --target, validate without
  KnownProducts,
  KnownVariants,
  ValidProducts,
  ValidVariants,
  Help,
  Version,
};

enum class EngineKind { Auto, Manifest, Legacy };

struct ToolRequest {
  Command command = Command::Run;
  std::optional<std::string> source;
  std::optional<std::string> target;
  // Null when no --product (or --factory) was given, so that the engine's
  // request has no Products (FactoryVariants) key.
  Value products;
  Value factoryVariants;
  // The engine options the words set, plus toolName and toolVersion.
  Value options = Value::makeDict();
  EngineKind engine = EngineKind::Auto;
  bool verbose = false;
  bool encrypt = false;
  bool overwrite = false;
  bool printResults = false;
  // Also read by the bundle writer: links in the results become copies.
  bool noSymLinks = false;
};

struct ParsedCommandLine {
  std::optional<ToolRequest> request;
  // When there is no request: the one line for standard error, beginning
  // "velmarbs: " and ending with the --help hint.
  std::string error;
};

// `args` are the words after the program name.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& args);

std::string usageText();
std::string versionText();  // "velmarbs VERSION"

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_COMMAND_LINE_H_
