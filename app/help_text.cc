#include "app/help_text.h"

#include "base/format.h"

namespace velmar::app {

std::string toolVersionFromOutput(std::string_view output) {
  std::string_view line = output.substr(0, output.find('\n'));
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  constexpr std::string_view kPrefix = "velmarbs ";
  if (line.substr(0, kPrefix.size()) == kPrefix) line.remove_prefix(kPrefix.size());
  return line.empty() ? std::string("unknown") : std::string(line);
}

std::string aboutText(const std::string& name, const std::string& version, const std::string& toolVersion,
                      const std::string& toolPath, const std::string& logPath) {
  return format("%@ %@\n\nTool: velmarbs %@\nTool path: %@\nLog file: %@\n", name, version, toolVersion, toolPath,
                logPath);
}

std::string howToText() {
  return "<h3>Stripping a restore bundle</h3>"
         "<ol>"
         "<li><b>Choose</b> the bundle (Ctrl+O): a folder holding <i>Restore/</i>, or a <i>.dmg</i> image. "
         "You can also type or paste its path into the Source field and press Enter, or drop it on the "
         "window. VelmarBS asks velmarbs what the bundle supports; <b>Cancel</b> stops the scan, "
         "<b>Rescan</b> (Ctrl+R) asks again.</li>"
         "<li>Tick the <b>products</b> to keep. Only those the bundle has can be ticked.</li>"
         "<li>Tick the <b>stations</b>. Only those every ticked product has can be ticked.</li>"
         "<li>Set the <b>options</b>. <i>Verbose log</i> puts everything velmarbs finds into the log.</li>"
         "<li><b>Validate</b> (Ctrl+Return) checks the selection without writing anything; "
         "<b>Strip</b> (Ctrl+S) writes the stripped bundle where you say. Naming an existing result "
         "replaces it once the new one is complete. Cancel stops a run and leaves nothing behind.</li>"
         "</ol>"
         "<p>Everything velmarbs says is in the log window (Log &gt; Show Log Window, Ctrl+L) and in "
         "the log file named in Help &gt; About.</p>";
}

}  // namespace velmar::app
