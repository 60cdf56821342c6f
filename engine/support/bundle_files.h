// The few questions the support steps ask of the bundle itself: whether a
// path exists, where a symbolic link points, which names a folder holds.
// All of them go through the bundle's view.

#ifndef VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_
#define VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_

#include <optional>
#include <string>
#include <vector>

#include "base/bundle_view.h"

namespace velmar {

// Whether something exists at the bundle path, following links the way an
// existence check of a file manager does (a dangling link does not exist,
// nor does one that leads out of the bundle).
bool existsInBundle(BundleView& view, const std::string& relative);

// The target text of the symbolic link at the bundle path, as stored (a path
// relative to the link's folder). Never resolved. Nothing when the path is
// not a link.
std::optional<std::string> linkTargetInBundle(BundleView& view, const std::string& relative);

// The names directly in the bundle folder as it holds them now, sorted by
// bytes so repeated runs agree. Empty when the folder cannot be listed.
std::vector<std::string> namesOnDisk(BundleView& view, const std::string& relative);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_BUNDLE_FILES_H_
