#include "app/strip_run.h"

#include <algorithm>

#include "app/log_text.h"
#include "app/paths.h"
#include "base/text.h"
#include "base/format.h"

namespace velmar::app {

std::string mainWindowTitle(const std::string& name, const std::string& version) {
  return format("%@ %@", name, version);
}

std::string scanningSheetText(const std::string& sourcePath) {
  return format("Scanning \"%@\"...\n\n(see Log Window for details)", lastPathComponent(sourcePath));
}

std::string processingSheetText(const std::string& sourcePath) {
  return format("Processing \"%@\"...\n\n(see Log Window for details)", lastPathComponent(sourcePath));
}

std::string defaultStripFileName(const std::vector<std::string>& products,
                                 const std::vector<std::string>& variants,
                                 const std::string& sourcePath) {
  std::string name;
  for (const auto& product : products) name += upper(product) + "-";
  for (const auto& variant : variants) name += upper(variant) + "-";
  return name + lastPathComponent(sourcePath);
}

StripRun::StripRun(std::string launchPath, Arguments arguments, std::string sourcePath)
    : launchPath_(std::move(launchPath)),
      arguments_(std::move(arguments)),
      sourcePath_(std::move(sourcePath)),
      sessionOutput_(commandLine(launchPath_, arguments_)) {}

std::string StripRun::commandLine(const std::string& launchPath, const Arguments& arguments) {
  std::string line = launchPath;
  for (const auto& argument : arguments) line += " " + argument;
  return line + "\n";
}

std::vector<std::string> StripRun::startLogTexts(const std::tm& localTime) const {
  return {"\n", "\n", "\n", generateString("", true, false, localTime),
          commandLine(launchPath_, arguments_)};
}

std::vector<std::string> StripRun::startLogTexts() const { return startLogTexts(localTimeNow()); }

std::string StripRun::appendOutput(std::string_view bytes) {
  std::string text = decoder_.decode(bytes);
  sessionOutput_ += text;
  return text;
}

std::string StripRun::verb() const {
  bool strip = std::find(arguments_.begin(), arguments_.end(), "--target") != arguments_.end();
  return strip ? "Stripping" : "Validating";
}

RunEnd StripRun::finish(int status, const std::tm& localTime) const {
  RunEnd end;
  end.finished = status == 0;
  std::string name = lastPathComponent(sourcePath_);
  if (end.finished) {
    end.logText = generateString(format("%@ FINISHED.", verb()), true, true, localTime);
    end.sheetText = format("%@ \"%@\" finished.", verb(), name);
  } else {
    end.logText = generateString(format("%@ FAILED.", verb()), true, true, localTime);
    end.sheetText = format("%@ \"%@\" FAILED.\n\nSee Log Window for details.", verb(), name);
  }
  return end;
}

RunEnd StripRun::finish(int status) const { return finish(status, localTimeNow()); }

}  // namespace velmar::app
