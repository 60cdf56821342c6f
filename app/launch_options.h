// What the desktop application's command line asks for. A desktop's menu
// starts it bare, and its "Open with" starts it with the chosen .dmg or
// folder as the one argument, which becomes the source bundle. The other
// words serve scripts and the package checks.

#ifndef VELMAR_APP_LAUNCH_OPTIONS_H_
#define VELMAR_APP_LAUNCH_OPTIONS_H_

#include <string>
#include <string_view>
#include <vector>

namespace velmar::app {

struct LaunchOptions {
  // The bundle to choose as the source, made absolute; empty for none.
  std::string source;
  // Print the usage, the version, or the tool's path the application would
  // run, and exit without opening a window.
  bool help = false;
  bool version = false;
  bool printToolPath = false;
  // --screenshot FOLDER BUNDLE: save pictures of the windows and quit.
  bool screenshot = false;
  std::string screenshotFolder;
  std::string screenshotBundle;
  // Set when the words cannot be taken: print it and exit with status 2.
  std::string error;
};

// `args`: the words after the program name, with the toolkit's own options
// already taken out. `currentFolder` makes a relative path absolute.
LaunchOptions parseLaunchArguments(const std::vector<std::string>& args, std::string_view currentFolder);

// The usage text of the desktop application (laid out for help2man).
std::string launchUsageText();

}  // namespace velmar::app

#endif  // VELMAR_APP_LAUNCH_OPTIONS_H_
