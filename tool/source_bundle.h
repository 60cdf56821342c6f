// The bundle named by --source: a folder as it is, or a .dmg image unpacked
// into a private temporary folder for as long as this object lives.

#ifndef VELMAR_TOOL_SOURCE_BUNDLE_H_
#define VELMAR_TOOL_SOURCE_BUNDLE_H_

#include <memory>
#include <string>

#include "base/bundle_view.h"

namespace velmar::tool {

class SourceBundle {
 public:
  SourceBundle() = default;
  ~SourceBundle();
  SourceBundle(const SourceBundle&) = delete;
  SourceBundle& operator=(const SourceBundle&) = delete;

  // Checks that `path` exists and, for an image, unpacks it. Logs and
  // answers kExitIO on failure, kExitSuccess otherwise.
  int open(const std::string& path);

  // The bundle folder the engine reads.
  const std::string& folder() const { return folder_; }
  // The bundle as every reader sees it.
  std::shared_ptr<BundleView> view() const { return view_; }
  bool fromImage() const { return !unpackFolder_.empty(); }

 private:
  int unpack(const std::string& image);

  std::string folder_;
  std::string unpackFolder_;
  std::shared_ptr<BundleView> view_;
};

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_SOURCE_BUNDLE_H_
