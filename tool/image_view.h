// ImageView: a bundle inside a disk image, read without unpacking it.
//
// The image is listed once (or the listing is taken from the cache), which
// answers every question about names, kinds, sizes, times and links; only
// the bytes of a file that is actually read are extracted, one file at a
// time, or many in one run of the reader when a caller announces them
// (prepareFiles). The bundle is the one folder in the image that holds
// "Restore/"; paths are relative to it, and the same rules as for a folder
// hold: links are followed only while they stay inside the bundle, names
// match ignoring case, only regular files of bounded size are read.

#ifndef VELMAR_TOOL_IMAGE_VIEW_H_
#define VELMAR_TOOL_IMAGE_VIEW_H_

#include <memory>
#include <string>
#include <vector>

#include "base/bundle_view.h"
#include "tool/disk_image.h"
#include "tool/image_cache.h"

namespace velmar::tool {

struct ImageViewOptions {
  // Where the cache lives; empty: no cache.
  std::string cacheRoot = defaultImageCacheRoot();
  ImageCacheLimits cacheLimits;
};

// A view of the bundle in the image at `image` (the path as the user gave
// it, which location() answers). Null on failure, with *error one sentence
// that names the image.
std::unique_ptr<BundleView> openImageView(const std::string& image, const ImageViewOptions& options,
                                          std::string* error);

// The bundle folder among the listed entries: the one folder, at most three
// levels deep, that holds a folder "Restore" (any case) and does not lie in
// another such folder. Answers its path ("" for the image's root), or
// nothing with *error saying there is none or naming those found.
std::optional<std::string> findImageBundle(const std::vector<ImageEntry>& entries,
                                           std::string* error);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_IMAGE_VIEW_H_
