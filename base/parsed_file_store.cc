#include "base/parsed_file_store.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <utility>
#include <vector>

#include "base/bundle_view.h"
#include "base/cache_eviction.h"
#include "base/staging_name.h"
#include "base/unique_fd.h"
#include "base/value_snapshot.h"

namespace velmar {

namespace {

// An entry: this header, then the snapshot. Numbers are little-endian.
constexpr char kMagic[8] = {'V', 'B', 'S', 'p', 'a', 'r', 's', '1'};
constexpr size_t kHeaderSize = 64;  // magic, five identity fields, length, checksum
constexpr const char* kEntryPrefix = "p-";
constexpr const char* kTemporaryPrefix = "tmp-";
// As the binary reader: a tree of at most this many values per byte of the
// file it came from.
constexpr uint64_t kTreeNodesPerByte = 16;
constexpr uint64_t kTreeNodesFloor = 4096;

void putFixed(uint64_t v, char* out) {
  for (int i = 0; i < 8; ++i) out[i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

// A checksum against entries damaged on disk or cut short; not against a
// forger, who could as well change the file itself (every record is checked
// on reading anyway).
uint64_t checksum(std::string_view bytes) {
  uint64_t h = 0x9e3779b97f4a7c15ull ^ bytes.size();
  size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t word;  // in the host's order: entries never leave the machine
    memcpy(&word, bytes.data() + i, 8);
    h = (h ^ word) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  }
  for (; i < bytes.size(); ++i) h = (h ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3ull;
  return h ^ (h >> 29);
}

std::string header(const FileIdentity& id, std::string_view payload) {
  std::string out(kHeaderSize, '\0');
  memcpy(out.data(), kMagic, sizeof kMagic);
  putFixed(id.device, out.data() + 8);
  putFixed(id.inode, out.data() + 16);
  putFixed(id.size, out.data() + 24);
  putFixed(static_cast<uint64_t>(id.modifiedNs), out.data() + 32);
  putFixed(static_cast<uint64_t>(id.changedNs), out.data() + 40);
  putFixed(payload.size(), out.data() + 48);
  putFixed(checksum(payload), out.data() + 56);
  return out;
}

int64_t nowNs() {
  struct timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool readAll(int fd, size_t size, std::string* bytes) {
  bytes->resize(size);
  size_t done = 0;
  while (done < size) {
    ssize_t n = ::pread(fd, bytes->data() + done, size - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

ParsedFileStore::ParsedFileStore(std::string folder, ParsedFileStoreLimits limits)
    : folder_(std::move(folder)), limits_(limits) {}

std::string ParsedFileStore::entryName(const FileIdentity& id) {
  char name[128];
  std::snprintf(name, sizeof name, "%s%016" PRIx64 "-%016" PRIx64 "-%" PRIu64 "-%" PRIx64 "-%" PRIx64,
                kEntryPrefix, id.device, id.inode, id.size, static_cast<uint64_t>(id.modifiedNs),
                static_cast<uint64_t>(id.changedNs));
  return name;
}

Value ParsedFileStore::load(const FileIdentity& id) {
  if (folder_.empty()) return Value();
  const std::string path = folder_ + "/" + entryName(id);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) {
    // A link in an entry's place is no entry either.
    if (errno == ELOOP) ::unlink(path.c_str());
    return Value();
  }
  struct stat st;
  std::string bytes;
  Value root;
  if (::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<uint64_t>(st.st_size) >= kHeaderSize &&
      static_cast<uint64_t>(st.st_size) <= kHeaderSize + limits_.entryBytes &&
      readAll(fd.get(), static_cast<size_t>(st.st_size), &bytes)) {
    const std::string_view payload = std::string_view(bytes).substr(kHeaderSize);
    if (std::string_view(bytes).substr(0, kHeaderSize) == header(id, payload)) {
      const uint64_t maxTreeNodes = std::max(kTreeNodesFloor, id.size * kTreeNodesPerByte);
      root = decodeSnapshot(payload, maxTreeNodes);
    }
  }
  if (root.isNull()) {
    // Damaged, cut short or not ours: out of the way of the next store.
    // (Only a regular file or a link: a folder in its place stays.)
    ::unlink(path.c_str());
    return Value();
  }
  // Its time says when it was last used, for makeRoom.
  ::futimens(fd.get(), nullptr);
  return root;
}

bool ParsedFileStore::accepts(const FileIdentity& id) const {
  return !folder_.empty() && !unusable_ &&
         nowNs() - std::max(id.modifiedNs, id.changedNs) >= limits_.settleNs;
}

void ParsedFileStore::store(const FileIdentity& id, const Value& root) {
  if (!accepts(id)) return;
  const std::string path = folder_ + "/" + entryName(id);
  // Another process stored it meanwhile (a damaged entry was removed by the
  // load that failed on it).
  if (::access(path.c_str(), F_OK) == 0) return;
  std::string payload;
  if (!encodeSnapshot(root, static_cast<size_t>(limits_.entryBytes), &payload)) return;
  if (payload.size() + kHeaderSize > limits_.totalBytes) return;
  if (!makeFolder()) return;

  const std::string head = header(id, payload);
  UniqueFd fd(::open(folder_.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
  if (fd.valid()) {
    if (!writeAll(fd.get(), head) || !writeAll(fd.get(), payload)) return;
    const std::string fdPath = "/proc/self/fd/" + std::to_string(fd.get());
    if (::linkat(AT_FDCWD, fdPath.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      makeRoom(path);
      return;
    }
    // EEXIST: another process stored the same file first.
    if (errno == EEXIST) return;
    // Else no /proc to link through: as below.
  }
  // A file system without unnamed files: a named one, renamed into place
  // (whatever a killed writer leaves is removed by makeRoom).
  std::string temporary = folder_ + "/" + kTemporaryPrefix + std::to_string(::getpid()) + "-XXXXXX";
  fd.reset(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.valid()) return;
  if (!writeAll(fd.get(), head) || !writeAll(fd.get(), payload) ||
      ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return;
  }
  makeRoom(path);
}

bool ParsedFileStore::makeFolder() {
  // The folder's parents (~/.cache, its velmarbs) may be missing too.
  for (size_t slash = folder_.find('/', 1); slash != std::string::npos;
       slash = folder_.find('/', slash + 1))
    ::mkdir(folder_.substr(0, slash).c_str(), 0700);
  if (::mkdir(folder_.c_str(), 0700) != 0 && errno != EEXIST) {
    unusable_ = true;
    return false;
  }
  return true;
}

void ParsedFileStore::makeRoom(const std::string& kept) {
  std::vector<CacheItem> entries;
  uint64_t total = 0;
  UniqueFd dirFd(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<FolderEntry> items;
  if (!dirFd.valid() || readFolderEntries(dirFd.get(), &items) != 0) return;
  for (const FolderEntry& item : items) {
    const std::string& name = item.name;
    const std::string path = folder_ + "/" + name;
    if (leftByDeadProcess(name, kTemporaryPrefix)) {
      ::unlink(path.c_str());
      continue;
    }
    struct stat st;
    if (name.rfind(kEntryPrefix, 0) != 0 || ::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
      continue;
    total += static_cast<uint64_t>(st.st_blocks) * 512;
    if (path == kept) continue;
    entries.push_back({path, static_cast<uint64_t>(st.st_blocks) * 512, st.st_mtim});
  }
  // Never the one just stored; a process still reading one keeps its open
  // copy.
  evictLeastRecentlyUsed(std::move(entries), total, limits_.totalBytes, [](const CacheItem& entry) {
    return ::unlink(entry.name.c_str()) == 0 || errno == ENOENT;
  });
}

}  // namespace velmar
