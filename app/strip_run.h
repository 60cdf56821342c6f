// A strip or validate run as the controller records it: the command line it
// logs, the run record (stripperSessionOutput) that grows with the tool's
// output, and the FINISHED/FAILED texts for the log and the progress sheet.
// Also the other texts the controller shows around a run.

#ifndef VELMAR_APP_STRIP_RUN_H_
#define VELMAR_APP_STRIP_RUN_H_

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "app/tool_arguments.h"
#include "app/utf8_text.h"

namespace velmar::app {

// "%@ %@": the application's name and version.
std::string mainWindowTitle(const std::string& name, const std::string& version);

// The progress sheet while a bundle is scanned and while a run goes on,
// naming the bundle by its last path component.
std::string scanningSheetText(const std::string& sourcePath);
std::string processingSheetText(const std::string& sourcePath);

// The save panel's proposed name: each selected product upper-cased and
// followed by "-", then each selected variant the same way, then the
// bundle's last path component ("R13-SS-SWDL-bundle.dmg").
std::string defaultStripFileName(const std::vector<std::string>& products,
                                 const std::vector<std::string>& variants,
                                 const std::string& sourcePath);

// The longest strip target name, in bytes: what a file name takes (the
// tool shortens its working folder's name to fit beside it).
inline constexpr size_t kMaxStripFileNameBytes = 255;

// defaultStripFileName whenever that fits `maxBytes`. Otherwise the
// products kept are cut from the end and "+N-" says how many were left out,
// then the same for the variants, and as a last resort the bundle's name is
// cut before its extension (never inside a UTF-8 character):
// "R1-R2-+150-SS-SWDL-bundle.dmg".
std::string fittingStripFileName(const std::vector<std::string>& products,
                                 const std::vector<std::string>& variants,
                                 const std::string& sourcePath,
                                 size_t maxBytes = kMaxStripFileNameBytes);

// The tool's staging folders for `targetPath` (".NAME.velmarbs-PID-XXXXXX"
// beside it), which a tool killed outright cannot remove itself.
std::vector<std::string> stagingLeftovers(const std::string& targetPath);
// Removes them; the number removed.
size_t removeStagingLeftovers(const std::string& targetPath);

// How a run ended, for the log and the sheet.
struct RunEnd {
  bool finished = false;  // exit status 0
  bool cancelled = false;  // stopped by the user
  std::string logText;    // time-stamped "Stripping FINISHED.\n" and the like
  std::string sheetText;
};

class StripRun {
 public:
  // `sourcePath` names the bundle in the sheet texts.
  StripRun(std::string launchPath, Arguments arguments, std::string sourcePath);

  // The launch path, each argument preceded by one space, then "\n".
  static std::string commandLine(const std::string& launchPath, const Arguments& arguments);

  // What startStripProcess adds to the log, in order: three line breaks, a
  // bare time stamp, the command line.
  std::vector<std::string> startLogTexts() const;
  std::vector<std::string> startLogTexts(const std::tm& localTime) const;

  // A piece of the tool's output (standard output and standard error share
  // one pipe): decoded, added to the run record, and handed back for the
  // log; empty when nothing could be decoded yet.
  std::string appendOutput(std::string_view bytes);

  // "Stripping" when the arguments hold "--target", else "Validating".
  std::string verb() const;

  RunEnd finish(int status) const;
  RunEnd finish(int status, const std::tm& localTime) const;
  // The user stopped the run: "Stripping cancelled." and the like.
  RunEnd cancelled() const;
  RunEnd cancelled(const std::tm& localTime) const;
  // The target of a strip run; empty for a validate run.
  std::string target() const;

  const std::string& sessionOutput() const { return sessionOutput_; }
  const Arguments& arguments() const { return arguments_; }
  const std::string& launchPath() const { return launchPath_; }

 private:
  std::string launchPath_;
  Arguments arguments_;
  std::string sourcePath_;
  std::string sessionOutput_;
  Utf8ChunkDecoder decoder_;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_STRIP_RUN_H_
