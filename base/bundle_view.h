// BundleView: the one way anything reads a restore bundle.
//
// A bundle is a folder on disk or a disk image, and it is hostile input.
// Every read the engines and the tool make goes through a view, which keeps
// them inside the bundle: a path is bundle-relative, a link is followed only
// while it stays inside, a file is read only when it is a regular file of
// bounded size, and a folder is listed without blocking. FolderView serves a
// folder; an image view serves an image from its listing.
//
// Restore bundles are made on file systems that ignore the case of names.
// Where a component of a path does not exist exactly, the one entry of its
// folder whose name matches ignoring case stands for it; an exact match always
// wins, and two candidates that differ only in case count as none (the view
// reports them through caseConflicts() so a caller can warn).
//
// Operations answer 0 or an errno value: ENOENT (nothing there), EXDEV (the
// path leaves the bundle), ELOOP (too many links), EFTYPE-like refusals come
// as EINVAL (not a regular file) and EFBIG (larger than the limit given).

#ifndef VELMAR_BASE_BUNDLE_VIEW_H_
#define VELMAR_BASE_BUNDLE_VIEW_H_

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"

namespace velmar {

// Who a file is, for caches that must notice a change: two reads of the same
// unchanged file have equal identities.
struct FileIdentity {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t modifiedNs = 0;
  // The inode's change time where the view knows it (0 otherwise): it moves
  // on every write even when a writer puts the old modification time back.
  int64_t changedNs = 0;
  bool operator==(const FileIdentity&) const = default;
};

enum class EntryKind : uint8_t { Missing, File, Folder, Link, Other };

struct EntryInfo {
  EntryKind kind = EntryKind::Missing;
  uint64_t size = 0;
  mode_t mode = 0;  // permission bits
  struct timespec accessed = {};
  struct timespec modified = {};
  std::string linkTarget;  // a link's text as stored, never resolved
  FileIdentity identity;
};

struct FolderEntry {
  std::string name;
  EntryKind kind = EntryKind::Other;  // of the entry itself, links not followed
};

// Size limits by what is read. Generous: a real build manifest is at most
// about 10 MB.
constexpr size_t kMaxPropertyListBytes = size_t{256} << 20;
constexpr size_t kMaxMapTextBytes = size_t{16} << 20;

class BundleView {
 public:
  virtual ~BundleView() = default;

  // What the user named: the folder or the image. Messages and the cookie
  // show it.
  virtual const std::string& location() const = 0;

  // The entry at `path` ("" is the bundle root). A link in the last
  // component is described, not followed; links on the way are followed
  // while they stay inside the bundle.
  virtual int entryInfo(std::string_view path, EntryInfo* info) = 0;

  // As entryInfo, but a link in the last component is followed too (while
  // it stays inside): what the path leads to.
  virtual int targetInfo(std::string_view path, EntryInfo* info) = 0;

  // The entries of the folder at `path`, sorted by name bytes.
  virtual int listFolder(std::string_view path, std::vector<FolderEntry>* entries) = 0;

  // The whole contents of the regular file at `path`, refused with EFBIG
  // when larger than `limit` and EINVAL when not a regular file. `identity`,
  // when given, receives the file's identity.
  virtual int readFile(std::string_view path, size_t limit, std::string* bytes,
                       FileIdentity* identity = nullptr) = 0;

  // A descriptor on the regular file at `path`, for copying it elsewhere.
  // EINVAL when the path is not a regular file.
  virtual int openFile(std::string_view path, UniqueFd* fd) = 0;

  // Appends the contents of the regular file at `path` to `out`, calling
  // `progress` with the size of each piece written. The same as openFile
  // and a copy (which is what it does here), but a view that holds the
  // bytes elsewhere copies them straight from there, without a file in
  // between. Copies at most one byte more than the size seen when the copy
  // began, so a caller that counts the bytes notices a file growing under
  // it. Errors as openFile, or the errno of the copy.
  virtual int copyFile(std::string_view path, int out,
                       const std::function<void(uint64_t)>& progress);

  // A hint that the regular files at `paths` are about to be opened with
  // openFile: a view that fetches files from elsewhere (an image) fetches
  // them all in one go. Nothing for a folder.
  virtual void prepareFiles(const std::vector<std::string>& paths) { (void)paths; }

  // Pairs of names, each "folder/name", met while looking names up, that
  // differ only in case; a caller warns about them once.
  virtual std::vector<std::string> caseConflicts() const { return {}; }
};

// Opens a view of the bundle folder at `path`. When it cannot be opened as
// a folder, *error (when given) receives the errno value and the view
// answers it to every question, so a caller may still ask and log.
std::unique_ptr<BundleView> openFolderView(const std::string& path, int* error = nullptr);

// The entries of the open folder `fd` (which stays open), with their kinds
// (links not followed), sorted by name bytes: what a view lists, and what
// the tool's own folders are read with. Answers 0 or an errno.
int readFolderEntries(int fd, std::vector<FolderEntry>* entries);

// The bundle-relative paths of everything below `folder` (links are listed,
// never descended), in depth-first order with each folder before what it
// holds and names sorted by bytes within a folder. Folders that cannot be
// listed are skipped and named in *unreadable when given.
std::vector<std::string> listTree(BundleView& view, std::string_view folder,
                                  std::vector<std::string>* unreadable = nullptr);

// Whether something exists at `path`, following links while they stay inside
// (a dangling link, or one that leaves, does not exist).
bool existsInView(BundleView& view, std::string_view path);

// Appends `length` bytes of `in` from `offset` (or, with length
// UINT64_MAX, everything from its current offset to its end) to `out`, in
// the kernel where it can; bytes that would move within their page, from a
// mapping of the source where it is in the page cache; else through a
// buffer. A file that ends before
// `length` bytes is EIO when `exact`, and simply copied whole otherwise.
int copyBytes(int in, uint64_t offset, uint64_t length, int out,
              const std::function<void(uint64_t)>& progress, bool exact = true);

// A short text for an errno value a view answered: "it is not a regular
// file", "it leads out of the bundle", ...
std::string describeViewError(int error);

}  // namespace velmar

#endif  // VELMAR_BASE_BUNDLE_VIEW_H_
