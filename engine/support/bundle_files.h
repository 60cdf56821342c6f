// The few questions the support steps ask the disk directly: whether a
// bundle path exists, and where a symbolic link in the bundle points.

#ifndef VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_
#define VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmar {

// `relative` joined to `root`; an empty relative path is the root itself.
std::string bundlePath(const std::string& root, const std::string& relative);

// Whether something exists at the bundle path, following links the way an
// existence check of a file manager does (a dangling link does not exist).
bool existsInBundle(const std::string& root, const std::string& relative);

// The target text of the symbolic link at the bundle path, as stored (a path
// relative to the link's folder). Never resolved, so a link that leads out of
// the bundle is not followed. Empty when the path is not a link.
std::optional<std::string> linkTargetInBundle(const std::string& root, const std::string& relative);

// The names directly in the bundle folder as the disk holds them now, sorted
// by bytes so repeated runs agree. Empty when the folder cannot be listed.
std::vector<std::string> namesOnDisk(const std::string& root, const std::string& relative);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_
