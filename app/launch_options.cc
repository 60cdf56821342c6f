#include "app/launch_options.h"

namespace velmar::app {

namespace {

std::string absolutePath(const std::string& path, std::string_view currentFolder) {
  if (path.empty() || path[0] == '/' || currentFolder.empty()) return path;
  std::string folder(currentFolder);
  if (folder.back() != '/') folder += '/';
  return folder + path;
}

LaunchOptions failure(std::string message) {
  LaunchOptions options;
  options.error = "velmarbs-gui: " + message + "; see velmarbs-gui --help";
  return options;
}

}  // namespace

LaunchOptions parseLaunchArguments(const std::vector<std::string>& args, std::string_view currentFolder) {
  LaunchOptions options;
  bool wordsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (wordsEnded || word.empty() || word[0] != '-' || word == "-") {
      if (!options.source.empty()) return failure("more than one bundle given");
      if (word.empty()) return failure("an empty bundle path");
      options.source = absolutePath(word, currentFolder);
    } else if (word == "--") {
      wordsEnded = true;
    } else if (word == "--help") {
      options.help = true;
    } else if (word == "--version") {
      options.version = true;
    } else if (word == "--print-tool-path") {
      options.printToolPath = true;
    } else if (word == "--screenshot") {
      if (i + 2 >= args.size()) return failure("--screenshot needs a folder and a bundle");
      options.screenshot = true;
      options.screenshotFolder = args[++i];
      options.screenshotBundle = args[++i];
    } else {
      return failure("unknown word \"" + word + "\"");
    }
  }
  return options;
}

std::string launchUsageText() {
  return R"(Usage: velmarbs-gui [BUNDLE]
  or:  velmarbs-gui --screenshot FOLDER BUNDLE
  or:  velmarbs-gui --print-tool-path | --help | --version
Strip a firmware restore bundle from a window: choose the bundle, tick the
products and stations it supports, set the options, and validate or strip it
with velmarbs, following its output in the log window.

BUNDLE, a folder holding Restore/ or a .dmg image of one, becomes the source
as if it had been chosen with Choose...; desktops pass the file given to
"Open with".

Options:
  --screenshot FOLDER BUNDLE
                         scan BUNDLE, save pictures of the main window and the
                         log window into FOLDER and quit
  --print-tool-path      print the velmarbs the application runs and exit
  --help                 print this help and exit
  --version              print "velmarbs-gui VERSION" and exit

Files:
  /usr/libexec/velmarbs/velmarbs
                         the tool the application runs (or velmarbs beside
                         the application's own executable in a build tree)
  ~/.config/VelmarBS/VelmarBS.conf
                         the settings
  $XDG_STATE_HOME/VelmarBS/VelmarBS.log
                         the log, unless the setting logFilePath names
                         another file; XDG_STATE_HOME defaults to
                         ~/.local/state

Examples:
  $ velmarbs-gui ~/Downloads/Bundle.dmg
)";
}

}  // namespace velmar::app
