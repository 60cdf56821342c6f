#include "tool/image_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <utility>

#include "base/cache_eviction.h"
#include "base/file_bytes.h"
#include "base/staging_name.h"
#include "tool/cleanup.h"
#include "tool/staging_area.h"

namespace velmar::tool {

namespace {

constexpr const char* kLockName = "lock";
// The listing as a tree block; the name changes with the kind of content,
// so that no run reads what an older version kept.
constexpr const char* kListingName = "tree";
constexpr const char* kSourceName = "source";
constexpr const char* kTemporaryPrefix = "tmp-";

std::string hex64(uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, value);
  return text;
}

uint64_t fnv1a(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (unsigned char c : text) hash = (hash ^ c) * 0x100000001b3ull;
  return hash;
}

std::string entryName(const FileIdentity& id) {
  return hex64(id.device) + "-" + hex64(id.inode) + "-" + std::to_string(id.size) + "-" +
         std::to_string(id.modifiedNs);
}

std::string fileName(const std::string& path, uint64_t size) {
  return "f-" + hex64(fnv1a(path)) + "-" + std::to_string(size);
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<FolderEntry> entries;
  if (!fd.valid() || readFolderEntries(fd.get(), &entries) != 0) return names;
  for (FolderEntry& entry : entries) names.push_back(std::move(entry.name));
  return names;
}

// The bytes the files directly in `folder` take on disk.
uint64_t folderBytes(const std::string& folder) {
  uint64_t total = 0;
  for (const std::string& name : namesIn(folder)) {
    struct stat st;
    if (::lstat((folder + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode))
      total += static_cast<uint64_t>(st.st_blocks) * 512;
  }
  return total;
}

// Takes the shared lock on the entry folder's lock file, making both when
// missing. An entry being removed by another process loses its lock file
// while we wait; we then start over on a new one.
UniqueFd lockEntry(const std::string& folder) {
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return UniqueFd();
    const std::string lockPath = folder + "/" + kLockName;
    UniqueFd fd(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.valid()) continue;
    while (::flock(fd.get(), LOCK_SH) != 0)
      if (errno != EINTR) return UniqueFd();
    struct stat held, named;
    if (::fstat(fd.get(), &held) == 0 && ::stat(lockPath.c_str(), &named) == 0 &&
        held.st_ino == named.st_ino && held.st_dev == named.st_dev) {
      // Its time says when the entry was last used.
      ::futimens(fd.get(), nullptr);
      return fd;
    }
  }
  return UniqueFd();
}

// Removes the entry folder `name` below `root` unless a process holds it.
bool evict(const std::string& root, const std::string& name) {
  const std::string folder = root + "/" + name;
  UniqueFd fd(::open((folder + "/" + kLockName).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  if (fd.valid() && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
  // Out of sight first, so nobody opens a half-removed entry.
  const std::string doomed = root + "/" + kTemporaryPrefix + std::to_string(::getpid()) + "-" + name;
  if (::rename(folder.c_str(), doomed.c_str()) != 0) return false;
  if (fd.valid()) ::unlink((doomed + "/" + kLockName).c_str());
  removePath(doomed);
  return true;
}

}  // namespace

std::string defaultImageCacheRoot() {
  const char* xdg = ::getenv("XDG_CACHE_HOME");
  // Relative values are to be ignored, as if unset.
  if (xdg && xdg[0] == '/') return std::string(xdg) + "/velmarbs";
  const char* home = ::getenv("HOME");
  if (home && home[0] == '/') return std::string(home) + "/.cache/velmarbs";
  return std::string();
}

ImageCache::ImageCache(std::string root, std::string folder, UniqueFd lock, ImageCacheLimits limits)
    : root_(std::move(root)), folder_(std::move(folder)), lock_(std::move(lock)), limits_(limits) {}

ImageCache::~ImageCache() {
  for (const std::string& folder : temporary_) {
    removePath(folder);
    unregisterCleanupPath(folder);
  }
}

std::unique_ptr<ImageCache> ImageCache::open(const std::string& root, const std::string& image,
                                             const FileIdentity& identity,
                                             ImageCacheLimits limits) {
  if (root.empty()) return nullptr;
  // The cache's own parent (~/.cache) may be missing too.
  for (size_t slash = root.find('/', 1); slash != std::string::npos;
       slash = root.find('/', slash + 1))
    ::mkdir(root.substr(0, slash).c_str(), 0700);
  if (::mkdir(root.c_str(), 0700) != 0 && errno != EEXIST) return nullptr;
  const std::string name = entryName(identity);
  UniqueFd lock = lockEntry(root + "/" + name);
  if (!lock.valid()) return nullptr;
  std::unique_ptr<ImageCache> cache(new ImageCache(root, root + "/" + name, std::move(lock), limits));

  for (const std::string& item : namesIn(cache->folder_))
    if (leftByDeadProcess(item, kTemporaryPrefix)) removePath(cache->folder_ + "/" + item);
  std::string source;
  if (readFileBytes(cache->folder_ + "/" + kSourceName, &source) != 0) {
    UniqueFd fd = cache->unnamedFile();
    if (fd.valid() && ::write(fd.get(), image.data(), image.size()) ==
                          static_cast<ssize_t>(image.size()))
      cache->link(fd.get(), kSourceName);
  }
  // The same image path under another identity is an image that changed:
  // its entry will never be used again.
  for (const std::string& item : namesIn(root)) {
    if (item == name) continue;
    if (leftByDeadProcess(item, kTemporaryPrefix)) {
      removePath(root + "/" + item);
      continue;
    }
    std::string other;
    if (readFileBytes(root + "/" + item + "/" + kSourceName, &other) == 0 && other == image)
      evict(root, item);
  }
  // The sizes of all entries are counted when something is first stored:
  // a query served from the cache stores nothing, and counting means a
  // look at every file of every entry.
  return cache;
}

void ImageCache::makeRoom(uint64_t adding) {
  std::vector<CacheItem> others;
  entryBytes_ = folderBytes(folder_);
  uint64_t total = adding + entryBytes_;
  for (const std::string& name : namesIn(root_)) {
    const std::string folder = root_ + "/" + name;
    if (folder == folder_ || name.rfind(kTemporaryPrefix, 0) == 0 || name == kParsedFilesFolder)
      continue;
    struct stat st;
    if (::stat((folder + "/" + kLockName).c_str(), &st) != 0) st.st_mtim = {};
    others.push_back({name, folderBytes(folder), st.st_mtim});
    total += others.back().bytes;
  }
  othersBytes_ = total - adding - entryBytes_;
  counted_ = true;
  const uint64_t left = evictLeastRecentlyUsed(
      std::move(others), total, limits_.totalBytes,
      [&](const CacheItem& entry) { return evict(root_, entry.name); });
  othersBytes_ -= total - left;
}

// What a file of `size` bytes takes on disk, near enough.
static uint64_t diskBytes(uint64_t size) { return (size + 4095) / 4096 * 4096; }

bool ImageCache::loadListing(std::string* bytes) const {
  const std::string path = folder_ + "/" + kListingName;
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<uint64_t>(st.st_size) > kMaxListingBytes)
    return false;
  bytes->resize(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < bytes->size()) {
    ssize_t n = ::read(fd.get(), bytes->data() + done, bytes->size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

void ImageCache::storeListing(const std::string& text) {
  if (text.size() > kMaxListingBytes) return;
  makeRoom(text.size());
  UniqueFd fd = unnamedFile();
  if (!fd.valid()) return;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd.get(), text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
  // Stored again only when the one there could not be used: it is
  // replaced, by a rename, so that a reader still sees a whole one.
  const std::string temporary = std::string(kTemporaryPrefix) + std::to_string(::getpid()) + "-" + kListingName;
  const std::string temporaryPath = folder_ + "/" + temporary;
  ::unlink(temporaryPath.c_str());
  if (link(fd.get(), temporary) &&
      ::rename(temporaryPath.c_str(), (folder_ + "/" + kListingName).c_str()) != 0)
    ::unlink(temporaryPath.c_str());
}

UniqueFd ImageCache::openFile(const std::string& path, uint64_t size) const {
  const std::string name = folder_ + "/" + fileName(path, size);
  UniqueFd fd(::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<uint64_t>(st.st_size) != size)
    return UniqueFd();
  return fd;
}

void ImageCache::storeFile(const std::string& path, int fd, uint64_t size) {
  // The sizes are counted as files are added; the folders are looked at
  // again only when the cache seems full.
  if (size > limits_.fileBytes) return;
  if (!counted_) makeRoom(0);
  if (entryBytes_ + diskBytes(size) > limits_.totalBytes) return;
  if (entryBytes_ + othersBytes_ + diskBytes(size) > limits_.totalBytes) {
    makeRoom(diskBytes(size));
    if (entryBytes_ + othersBytes_ + diskBytes(size) > limits_.totalBytes) return;
  }
  if (link(fd, fileName(path, size))) entryBytes_ += diskBytes(size);
}

UniqueFd ImageCache::unnamedFile() {
  UniqueFd fd(::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (fd.valid() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  // A file system without unnamed files: a named one, unnamed at once (it
  // can then not be kept, only used).
  std::string templ = folder_ + "/" + kTemporaryPrefix + std::to_string(::getpid()) + "-XXXXXX";
  fd.reset(::mkostemp(templ.data(), O_CLOEXEC));
  if (fd.valid()) ::unlink(templ.c_str());
  return fd;
}

std::string ImageCache::temporaryFolder() {
  std::string templ = folder_ + "/" + kTemporaryPrefix + std::to_string(::getpid()) + "-XXXXXX";
  // Registered for removal on a stop signal as it is made: a run killed
  // outright leaves it to the next run, one stopped leaves nothing.
  StopSignalsHeld held;
  if (!::mkdtemp(templ.data())) return std::string();
  temporary_.push_back(templ);
  registerCleanupPath(templ);
  return templ;
}

bool ImageCache::link(int fd, const std::string& name) {
  const std::string fdPath = "/proc/self/fd/" + std::to_string(fd);
  const std::string target = folder_ + "/" + name;
  return ::linkat(AT_FDCWD, fdPath.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0 ||
         errno == EEXIST;
}

}  // namespace velmar::tool
