// Disk images: a .dmg source is read in place with an image reader (7-Zip
// for whatever it reads, xorriso for the ISO 9660 images this tool makes),
// a .dmg target is made with xorriso (ISO 9660 level 3 with Rock Ridge and
// Joliet). The programs are found on PATH and run with their output
// captured, so nothing of theirs reaches the replies on standard output.

#ifndef VELMAR_TOOL_DISK_IMAGE_H_
#define VELMAR_TOOL_DISK_IMAGE_H_

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bundle_view.h"

namespace velmar::tool {

// Whether a command-line path names a disk image (ends in ".dmg", any case).
bool isDiskImagePath(std::string_view path);

// The full path of an executable `name` on PATH.
std::optional<std::string> findProgram(std::string_view name);
// 7-Zip under any of the names its packages install.
std::optional<std::string> findSevenZip();
std::optional<std::string> findXorriso();

// Whether `path` is a plain ISO 9660 image, as the .dmg targets this tool
// makes are (and not a UDIF image that holds one).
bool isIsoImage(const std::string& path);
// Whether `path` is a UDIF image (it ends in a "koly" trailer), the
// container real bundles come in; 7-Zip reads those.
bool isUdifImage(const std::string& path);

// Makes the image `image` (which must not exist) of the folder's contents.
// Logs and answers false on failure.
bool makeImage(const std::string& xorriso, const std::string& folder, const std::string& image);

// ---- reading an image in place ---------------------------------------------

// Where a file's bytes lie in the image file itself, for images that store
// files uncompressed and contiguous (ISO 9660): they are then read in place.
struct ImageExtent {
  uint64_t offset = 0;
  uint64_t length = 0;
  bool operator==(const ImageExtent&) const = default;
};

// One entry of an image's listing; the path is relative to the image's root
// and never empty.
struct ImageEntry {
  std::string path;
  EntryKind kind = EntryKind::File;
  uint64_t size = 0;
  mode_t mode = 0;  // permission bits; 0 when the reader does not say
  struct timespec modified = {};
  struct timespec accessed = {};
  std::string linkTarget;
  // A regular file's bytes in the image, in order, adding up to `size`;
  // empty when only the reader can extract them.
  std::vector<ImageExtent> extents;
  // A link listed without its target (7-Zip's listing of HFS+): of kind
  // Other, `size` the target's length, until its target is read.
  bool isLinkWithoutTarget = false;
};

// Which program reads an image, and how.
struct ImageReader {
  enum class Kind : unsigned char { SevenZip, Xorriso };
  Kind kind = Kind::SevenZip;
  std::string program;    // the reader
  std::string sevenZip;   // for ISO images: 7-Zip too when there, for times and contents
  // No reader at all: why (the image was served from the cache so far).
  std::string missing;
};

// The reader for `image`: xorriso for ISO 9660 (7-Zip would read only the
// Joliet tree, which has no links or modes), 7-Zip for the rest. Nothing
// when the needed program is not installed; *missing then names it.
std::optional<ImageReader> chooseImageReader(const std::string& image, std::string* missing);

// Lists the whole image. Answers false with *error a sentence on failure.
bool listImage(const ImageReader& reader, const std::string& image,
               std::vector<ImageEntry>* entries, std::string* error);

// Writes the contents of the regular file at `path` (as listed) to `fd`.
bool extractImageFile(const ImageReader& reader, const std::string& image,
                      const std::string& path, int fd, std::string* error);

// Extracts the regular files at `paths` (as listed) into the existing empty
// folder `into`, each at its own path below it, in one run of the reader.
bool extractImageFiles(const ImageReader& reader, const std::string& image,
                       const std::vector<std::string>& paths, const std::string& into,
                       std::string* error);

// The readers' listings, parsed: 7-Zip's "l -slt" technical listing, and
// xorriso's "-find / -exec lsdl" (ls -dln style, times in UTC; a time
// without a year is placed in the year before `now` when it would lie in
// the future) followed by its "report_lba" lines, which give the files'
// extents.
std::vector<ImageEntry> parseSevenZipListing(std::string_view text);
std::vector<ImageEntry> parseXorrisoListing(std::string_view text, time_t now);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_DISK_IMAGE_H_
