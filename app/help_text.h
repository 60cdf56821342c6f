// The Help menu's texts: About (what is running, and where its tool and log
// are) and a short How to.

#ifndef VELMAR_APP_HELP_TEXT_H_
#define VELMAR_APP_HELP_TEXT_H_

#include <string>
#include <string_view>

namespace velmar::app {

// The version the tool reports for `velmarbs --version` ("velmarbs 1.2"):
// its first line with the leading "velmarbs " taken off; "unknown" when it
// said nothing.
std::string toolVersionFromOutput(std::string_view output);

// Plain text, one fact a line: the application and its version, the tool's
// version and path, the log file's path.
std::string aboutText(const std::string& name, const std::string& version, const std::string& toolVersion,
                      const std::string& toolPath, const std::string& logPath);

// The How to page, as simple HTML.
std::string howToText();

}  // namespace velmar::app

#endif  // VELMAR_APP_HELP_TEXT_H_
