// FolderView: a bundle folder on disk, read through a descriptor on its root.
//
// Every lookup goes through openBeneath, so a link is followed only while it
// stays below the root, and files are opened without blocking (a FIFO or a
// device is refused after the open, never read).

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "base/bundle_view.h"
#include "base/safe_path.h"
#include "base/text.h"

namespace velmar {

namespace {

EntryKind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return EntryKind::File;
  if (S_ISDIR(mode)) return EntryKind::Folder;
  if (S_ISLNK(mode)) return EntryKind::Link;
  return EntryKind::Other;
}

void fillInfo(const struct stat& st, EntryInfo* info) {
  info->kind = kindOf(st.st_mode);
  info->size = static_cast<uint64_t>(st.st_size);
  info->mode = st.st_mode & 07777;
  info->accessed = st.st_atim;
  info->modified = st.st_mtim;
  info->identity.device = st.st_dev;
  info->identity.inode = st.st_ino;
  info->identity.size = static_cast<uint64_t>(st.st_size);
  info->identity.modifiedNs = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
  info->identity.changedNs = static_cast<int64_t>(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
}

class FolderView : public BundleView {
 public:
  FolderView(std::string location, UniqueFd root)
      : location_(std::move(location)), root_(std::move(root)) {}

  const std::string& location() const override { return location_; }

  int entryInfo(std::string_view path, EntryInfo* info) override {
    std::string exact;
    if (int err = resolve(path, &exact)) return err;
    *info = EntryInfo();
    struct stat st;
    if (exact.empty()) {
      if (::fstat(root_.get(), &st) != 0) return errno;
      fillInfo(st, info);
      return 0;
    }
    UniqueFd parent(openBeneath(root_.get(), parentPath(exact), O_PATH | O_DIRECTORY));
    if (!parent.valid()) return -parent.release();
    const std::string name = lastComponent(exact);
    if (::fstatat(parent.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    fillInfo(st, info);
    if (info->kind == EntryKind::Link) info->linkTarget = readLinkAt(parent.get(), name);
    return 0;
  }

  int targetInfo(std::string_view path, EntryInfo* info) override {
    std::string exact;
    if (int err = resolve(path, &exact)) return err;
    UniqueFd fd(openBeneath(root_.get(), exact, O_PATH));
    if (!fd.valid()) return -fd.release();
    struct stat st;
    if (::fstat(fd.get(), &st) != 0) return errno;
    *info = EntryInfo();
    fillInfo(st, info);
    return 0;
  }

  int listFolder(std::string_view path, std::vector<FolderEntry>* entries) override {
    std::string exact;
    if (int err = resolve(path, &exact)) return err;
    UniqueFd fd(openBeneath(root_.get(), exact, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
    if (!fd.valid()) return -fd.release();
    return readFolderEntries(fd.get(), entries);
  }

  int readFile(std::string_view path, size_t limit, std::string* bytes,
               FileIdentity* identity) override {
    UniqueFd fd;
    struct stat st;
    if (int err = openRegular(path, &fd, &st)) return err;
    if (static_cast<uint64_t>(st.st_size) > limit) return EFBIG;
    bytes->clear();
    bytes->reserve(static_cast<size_t>(st.st_size));
    char buffer[65536];
    for (;;) {
      ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errno;
      if (n == 0) break;
      // A file that grows while it is read is held to the same limit.
      if (bytes->size() + static_cast<size_t>(n) > limit) return EFBIG;
      bytes->append(buffer, static_cast<size_t>(n));
    }
    if (identity) {
      EntryInfo info;
      fillInfo(st, &info);
      *identity = info.identity;
    }
    return 0;
  }

  int openFile(std::string_view path, UniqueFd* fd) override {
    struct stat st;
    return openRegular(path, fd, &st);
  }

  std::vector<std::string> caseConflicts() const override {
    return std::vector<std::string>(conflicts_.begin(), conflicts_.end());
  }

 private:
  // Opens a regular file for reading. Checked on an O_PATH descriptor
  // first, so a FIFO or a device is never opened for reading at all, and
  // again on the descriptor read from, in case the entry changed between.
  int openRegular(std::string_view path, UniqueFd* fd, struct stat* st) {
    std::string exact;
    if (int err = resolve(path, &exact)) return err;
    UniqueFd probe(openBeneath(root_.get(), exact, O_PATH));
    if (!probe.valid()) return -probe.release();
    if (::fstat(probe.get(), st) != 0) return errno;
    if (!S_ISREG(st->st_mode)) return EINVAL;
    UniqueFd file(openBeneath(root_.get(), exact, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (!file.valid()) return -file.release();
    struct stat again;
    if (::fstat(file.get(), &again) != 0) return errno;
    if (!S_ISREG(again.st_mode) || again.st_ino != st->st_ino || again.st_dev != st->st_dev)
      return EINVAL;
    *st = again;
    *fd = std::move(file);
    return 0;
  }

  // The path as the disk spells it. Components that do not exist exactly
  // are matched ignoring case, one folder at a time.
  int resolve(std::string_view path, std::string* exact) {
    if (path.empty()) {
      exact->clear();
      return 0;
    }
    std::string problem = relativePathProblem(path);
    if (!problem.empty()) return path.front() == '/' || path.find("..") != std::string_view::npos
                                     ? EXDEV
                                     : EINVAL;
    {
      // Most names are spelled as on disk: one lookup settles them.
      UniqueFd parent(openBeneath(root_.get(), parentPath(path), O_PATH | O_DIRECTORY));
      struct stat st;
      if (parent.valid() &&
          ::fstatat(parent.get(), lastComponent(path).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        exact->assign(path);
        return 0;
      }
      if (!parent.valid() && parent.get() != -ENOENT && parent.get() != -ENOTDIR)
        return -parent.release();
    }
    std::string built;
    for (const std::string& part : splitPath(path)) {
      UniqueFd folder(openBeneath(root_.get(), built, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
      if (!folder.valid()) return -folder.release();
      struct stat st;
      std::string found;
      if (::fstatat(folder.get(), part.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        found = part;
      } else {
        if (errno != ENOENT) return errno;
        std::vector<FolderEntry> entries;
        if (int err = readFolderEntries(folder.get(), &entries)) return err;
        std::vector<std::string> matches;
        for (const FolderEntry& entry : entries)
          if (equalIgnoringCase(entry.name, part)) matches.push_back(entry.name);
        if (matches.size() > 1) {
          for (const std::string& match : matches)
            conflicts_.insert(appendingPathComponent(built, match));
          return ENOENT;
        }
        if (matches.empty()) return ENOENT;
        found = matches.front();
      }
      built = appendingPathComponent(built, found);
    }
    *exact = std::move(built);
    return 0;
  }

  std::string location_;
  UniqueFd root_;
  std::set<std::string> conflicts_;
};

// A folder that could not be opened: every question gets the same answer.
class UnreadableView : public BundleView {
 public:
  UnreadableView(std::string location, int error) : location_(std::move(location)), error_(error) {}
  const std::string& location() const override { return location_; }
  int entryInfo(std::string_view, EntryInfo*) override { return error_; }
  int targetInfo(std::string_view, EntryInfo*) override { return error_; }
  int listFolder(std::string_view, std::vector<FolderEntry>*) override { return error_; }
  int readFile(std::string_view, size_t, std::string*, FileIdentity*) override { return error_; }
  int openFile(std::string_view, UniqueFd*) override { return error_; }

 private:
  std::string location_;
  int error_;
};

}  // namespace

int readFolderEntries(int fd, std::vector<FolderEntry>* entries) {
  int listFd = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (listFd < 0) return errno;
  DIR* dir = ::fdopendir(listFd);
  if (!dir) {
    int err = errno;
    ::close(listFd);
    return err;
  }
  entries->clear();
  errno = 0;
  while (struct dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    EntryKind kind = EntryKind::Other;
    switch (entry->d_type) {
      case DT_REG: kind = EntryKind::File; break;
      case DT_DIR: kind = EntryKind::Folder; break;
      case DT_LNK: kind = EntryKind::Link; break;
      case DT_UNKNOWN: {
        struct stat st;
        if (::fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) kind = kindOf(st.st_mode);
        break;
      }
      default: break;
    }
    entries->push_back({std::move(name), kind});
  }
  int err = errno;
  ::closedir(dir);
  if (err) return err;
  std::sort(entries->begin(), entries->end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  return 0;
}

std::unique_ptr<BundleView> openFolderView(const std::string& path, int* error) {
  UniqueFd root(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root.valid()) {
    const int err = errno;
    if (error) *error = err;
    return std::make_unique<UnreadableView>(path, err);
  }
  if (error) *error = 0;
  return std::make_unique<FolderView>(path, std::move(root));
}

}  // namespace velmar
