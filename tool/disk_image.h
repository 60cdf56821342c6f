// Disk images: a .dmg source is unpacked with 7-Zip, a .dmg target is made
// with xorriso (ISO 9660 level 3 with Rock Ridge and Joliet). Both programs are found
// on PATH and run with their output captured, so nothing of theirs reaches
// the replies on standard output.

#ifndef VELMAR_TOOL_DISK_IMAGE_H_
#define VELMAR_TOOL_DISK_IMAGE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmar::tool {

// Whether a command-line path names a disk image (ends in ".dmg", any case).
bool isDiskImagePath(std::string_view path);

// The full path of an executable `name` on PATH.
std::optional<std::string> findProgram(std::string_view name);
// 7-Zip under any of the names its packages install.
std::optional<std::string> findSevenZip();
std::optional<std::string> findXorriso();

struct ProgramRun {
  bool started = false;
  int status = -1;     // the exit status, or -1 when killed by a signal
  std::string output;  // standard output and error together
};
// Runs `program` with `args` (argv[1..]), standard input the null device.
ProgramRun runProgram(const std::string& program, const std::vector<std::string>& args);

// Unpacks `image` into the existing folder `into`. Logs and answers false on
// failure.
bool unpackImage(const std::string& sevenZip, const std::string& image, const std::string& into);

// Whether `path` is an ISO 9660 image, as the .dmg targets this tool makes are.
bool isIsoImage(const std::string& path);
// Unpacks an ISO 9660 image with its Rock Ridge names, modes and links
// (7-Zip reads only the Joliet tree, which has no links), and leaves every
// folder writable by its owner so the unpacked copy can be removed again.
bool unpackIsoImage(const std::string& xorriso, const std::string& image, const std::string& into);

// The folder at or below `folder` (a few levels deep) that holds
// "Restore/"; links are not followed.
std::optional<std::string> findBundleFolder(const std::string& folder);

// Makes the image `image` (which must not exist) of the folder's contents.
// Logs and answers false on failure.
bool makeImage(const std::string& xorriso, const std::string& folder, const std::string& image);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_DISK_IMAGE_H_
