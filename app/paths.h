// Path text helpers for the front end: "~" expansion and abbreviation, last
// component and parent folder, and where the velmarbs tool is installed.
// User settings store paths that may begin with "~"; everything handed to
// the tool or the file system is expanded first.

#ifndef VELMAR_APP_PATHS_H_
#define VELMAR_APP_PATHS_H_

#include <string>
#include <string_view>

namespace velmar::app {

// The user's home folder: $HOME, else the password database, else "/".
std::string homeFolder();

// "~" and "~/..." become the home folder; "~user/..." that user's home when
// known. Anything else is returned unchanged.
std::string expandTilde(std::string_view path);
std::string expandTilde(std::string_view path, std::string_view home);

// The home folder at the start of `path` (the whole folder, not a prefix of
// a longer name) becomes "~".
std::string abbreviateTilde(std::string_view path, std::string_view home);
std::string abbreviateTilde(std::string_view path);

// "bundle.dmg" of "/a/b/bundle.dmg" (trailing slashes ignored, "/" for the
// root, "" for an empty path).
std::string lastPathComponent(std::string_view path);

// "/a/b" of "/a/b/bundle.dmg"; "/" for "/x"; "" when there is no slash.
std::string parentFolder(std::string_view path);

// A path as users paste it into the source field: surrounding blanks and
// one pair of quotes (as file managers and shells copy it) go, and a
// "file://" address becomes its path, "%20" and the like decoded.
std::string pathFromPastedText(std::string_view text);

// Whether a file or folder exists at `path` (after "~" expansion).
bool itemExistsAtPath(std::string_view path);

// The tool's file name.
inline constexpr const char kToolName[] = "velmarbs";

// The velmarbs executable for an application whose executable lies in
// `executableFolder`: the installed place <prefix>/libexec/velmarbs/velmarbs
// first (an installed application runs its own copy, not whichever velmarbs
// shares its bin folder), then beside it (a build tree or a private bundle),
// else the file <prefix>/libexec/velmarbs, where <prefix> is the folder above
// `executableFolder`. When none is executable the installed place is
// returned, so the launch failure names the expected place.
std::string findTool(std::string_view executableFolder);

}  // namespace velmar::app

#endif  // VELMAR_APP_PATHS_H_
