// Paths handed over by an engine are data from an untrusted bundle: these
// helpers check them and open them without ever leaving a root folder.

#ifndef VELMAR_BASE_SAFE_PATH_H_
#define VELMAR_BASE_SAFE_PATH_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmar {

// Why a bundle-relative path is refused ("is absolute", "has a \"..\"
// component", ...), or empty when it is a plain relative path of named
// components.
std::string relativePathProblem(std::string_view path);

// Why a name cannot be written into a property list or printed as one line
// ("holds a control character", "is not valid UTF-8"), or empty when it can.
// Bundle names never hold such characters; one that does is hostile.
std::string nameTextProblem(std::string_view name);

// The text of the symbolic link `name` in the folder `dirFd`, as stored,
// however long; empty when it cannot be read.
std::string readLinkAt(int dirFd, const std::string& name);

// The components of a path split at "/" (empty ones included).
std::vector<std::string> splitPath(std::string_view path);
// "a/b/c" -> "a/b"; "c" -> "".
std::string parentPath(std::string_view path);
std::string lastComponent(std::string_view path);

// The bundle-relative path that a link at `linkPath` with target text `text`
// names, resolved lexically from the link's folder; nothing when the text
// is absolute, empty, or climbs above the root.
std::optional<std::string> resolveLinkText(std::string_view linkPath, std::string_view text);

// Opens `path` below the directory `rootFd` with open(2) `flags`, following
// symbolic links only while they stay below it ("" opens the root itself).
// Answers the descriptor, or -errno: -EXDEV for an escape (an absolute link,
// ".." above the root), -ELOOP for too many links. Uses openat2 with
// RESOLVE_BENEATH, and openBeneathByWalk where the kernel lacks it.
int openBeneath(int rootFd, std::string_view path, int flags);
// The same, one component at a time with O_NOFOLLOW, expanding each link by
// hand.
int openBeneathByWalk(int rootFd, std::string_view path, int flags);

// Opens the folder `path` below `rootFd` for reading, creating missing
// folders with `mode`, and never passing through a symbolic link (-ELOOP or
// -ENOTDIR then). Answers the descriptor or -errno.
int makeFoldersBeneath(int rootFd, std::string_view path, unsigned mode = 0755);

// The absolute path with every link of the existing part resolved: the
// path itself when it exists, else its existing folder plus the last
// component. Nothing when the folder does not exist either.
std::optional<std::string> canonicalPath(const std::string& path);
// As canonicalPath, but a last component that is a link stays as it is:
// the entry a rename onto `path` would replace.
std::optional<std::string> canonicalEntryPath(const std::string& path);
// The absolute path `path` would have once created: the real path of its
// longest existing part, then the rest taken lexically ("." dropped, ".."
// climbing). A missing part holds no link, so nothing on it can lead
// elsewhere. Nothing when not even the root can be resolved.
std::optional<std::string> anticipatedPath(const std::string& path);
// Whether one of two canonical paths is the other or lies inside it.
bool pathsOverlap(const std::string& a, const std::string& b);

}  // namespace velmar

#endif  // VELMAR_BASE_SAFE_PATH_H_
