// ImageCache: what was read from a disk image, kept for the next run.
//
// The desktop application asks a dozen questions about one image before the
// user strips it, each in a new process, and listing an image of several
// gigabytes takes seconds. The cache keeps, per image, its listing and the
// small files the engines read, in $XDG_CACHE_HOME/velmarbs/ (else
// ~/.cache/velmarbs/).
//
// An entry is a folder named after the image's identity (device, inode,
// size, modification time), so an image that changed, or was replaced, never
// finds the old entry. Everything is written as an unnamed file that is
// linked into place when complete, so a reader sees a whole file or none,
// and two processes writing the same thing both succeed. A process holds a
// shared lock on the entries it uses; making room removes only entries
// nobody holds, oldest first, until the whole cache is under its limit.
// Temporary folders live inside the entry and are removed when the cache
// object goes, or by the next run when their process was killed.

#ifndef VELMAR_TOOL_IMAGE_CACHE_H_
#define VELMAR_TOOL_IMAGE_CACHE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/bundle_view.h"
#include "base/unique_fd.h"

namespace velmar::tool {

struct ImageCacheLimits {
  uint64_t totalBytes = uint64_t{512} << 20;  // the whole cache, all images
  uint64_t fileBytes = uint64_t{32} << 20;    // one kept file
};

class ImageCache {
 public:
  // The entry for the image at `image` with identity `identity`, below
  // `root`, made when missing. Null when the cache cannot be used (no
  // home, a read-only disk); the caller then works without it.
  static std::unique_ptr<ImageCache> open(const std::string& root, const std::string& image,
                                          const FileIdentity& identity,
                                          ImageCacheLimits limits = {});
  ~ImageCache();
  ImageCache(const ImageCache&) = delete;
  ImageCache& operator=(const ImageCache&) = delete;

  const std::string& folder() const { return folder_; }

  // The stored listing (the image's tree, as ImageTree keeps it), or
  // false; one larger than kMaxListingBytes is not read.
  bool loadListing(std::string* bytes) const;
  void storeListing(const std::string& bytes);
  static constexpr uint64_t kMaxListingBytes = uint64_t{256} << 20;

  // A descriptor on the kept copy of the file `path` of `size` bytes, or an
  // invalid one.
  UniqueFd openFile(const std::string& path, uint64_t size) const;
  // Keeps the unnamed file `fd` (from unnamedFile, holding exactly `size`
  // bytes) as the copy of `path`, when it fits the limits.
  void storeFile(const std::string& path, int fd, uint64_t size);

  // A new file without a name in the entry's folder, for writing; it
  // vanishes when closed unless stored. Invalid on failure (errno set).
  UniqueFd unnamedFile();
  // A new empty folder inside the entry, removed with this object; empty
  // on failure.
  std::string temporaryFolder();

 private:
  ImageCache(std::string root, std::string folder, UniqueFd lock, ImageCacheLimits limits);
  bool link(int fd, const std::string& name);
  void makeRoom(uint64_t adding);

  std::string root_;
  std::string folder_;
  UniqueFd lock_;
  ImageCacheLimits limits_;
  uint64_t entryBytes_ = 0;   // this entry's files, as last counted
  uint64_t othersBytes_ = 0;  // every other entry's
  bool counted_ = false;      // whether the two above were counted yet
  std::vector<std::string> temporary_;
};

// $XDG_CACHE_HOME/velmarbs, else $HOME/.cache/velmarbs; empty when neither
// is set.
std::string defaultImageCacheRoot();

// The folder beside the images' entries where parsed property lists are
// kept (base/parsed_file_store.h); it keeps to a bound of its own, and the
// images' cache neither counts nor evicts it.
inline constexpr const char* kParsedFilesFolder = "parsed";

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_IMAGE_CACHE_H_
