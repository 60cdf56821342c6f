// The bundle named by --source: a folder as it is, or the bundle folder
// inside a .dmg image, read in place.

#ifndef VELMAR_TOOL_SOURCE_BUNDLE_H_
#define VELMAR_TOOL_SOURCE_BUNDLE_H_

#include <memory>
#include <string>

#include "base/bundle_view.h"

namespace velmar::tool {

class SourceBundle {
 public:
  // Checks that `path` is a folder or a disk image and opens the view on
  // it (for an image: its listing, from the cache when the image is
  // unchanged). Logs and answers kExitIO on failure, kExitSuccess otherwise.
  int open(const std::string& path);

  // The bundle as every reader sees it; its location() is `path` as given.
  std::shared_ptr<BundleView> view() const { return view_; }
  bool fromImage() const { return fromImage_; }

 private:
  std::shared_ptr<BundleView> view_;
  bool fromImage_ = false;
};

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_SOURCE_BUNDLE_H_
