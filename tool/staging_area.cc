#include "tool/staging_area.h"

#include "base/staging_name.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits.h>

#include <optional>
#include <string_view>
#include <vector>

#include <signal.h>

#include "engine/log_object.h"
#include "tool/cleanup.h"
#include "base/bundle_view.h"
#include "base/safe_path.h"
#include "base/unique_fd.h"

namespace velmar::tool {

namespace {

void logError(const std::string& what, int err) {
  LogObject::sharedLogger().Log("XXX ERROR: %s: %s.", what, strerror(err));
}

std::string folderOf(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  if (p.find('/') == std::string::npos) return ".";
  std::string folder = parentPath(p);
  return folder.empty() ? "/" : folder;
}

std::string nameOf(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return lastComponent(p);
}

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace

int removeTree(int dirFd, const std::string& name) {
  struct stat st;
  if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? 0 : errno;
  if (!S_ISDIR(st.st_mode)) return ::unlinkat(dirFd, name.c_str(), 0) == 0 ? 0 : errno;

  // A folder copied read-only from a bundle must be writable to be emptied.
  if ((st.st_mode & 0700) != 0700) ::fchmodat(dirFd, name.c_str(), 0700, 0);
  UniqueFd folder(::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.valid()) return errno;
  std::vector<FolderEntry> entries;
  if (int err = readFolderEntries(folder.get(), &entries)) return err;
  int firstError = 0;
  for (const FolderEntry& child : entries) {
    int err = removeTree(folder.get(), child.name);
    if (err && !firstError) firstError = err;
  }
  if (::unlinkat(dirFd, name.c_str(), AT_REMOVEDIR) != 0 && !firstError) firstError = errno;
  return firstError;
}

int removePath(const std::string& path) {
  UniqueFd folder(::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) return errno;
  return removeTree(folder.get(), nameOf(path));
}

namespace {

void removeStaleStagingAreas(const std::string& target) {
  const std::string folder = folderOf(target);
  const std::string prefix = stagingPrefix(nameOf(target));
  for (const std::string& name : staleStagingAreas(folder, prefix)) {
    if (int err = removePath((folder == "/" ? "" : folder) + "/" + name)) {
      LogObject::sharedLogger().Log(
          "!!! WARNING: cannot remove the working folder \"%s\" of an earlier run: %s.", name,
          strerror(err));
    } else {
      LogObject::sharedLogger().Log("removed the working folder \"%s\" of an earlier run.", name);
    }
  }
}

}  // namespace

std::vector<std::string> staleStagingAreas(const std::string& folder, const std::string& prefix) {
  std::vector<std::string> stale;
  UniqueFd dirFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<FolderEntry> entries;
  if (!dirFd.valid() || readFolderEntries(dirFd.get(), &entries) != 0) return stale;
  for (const FolderEntry& entry : entries) {
    std::optional<pid_t> owner = stagingOwner(entry.name, prefix);
    if (!owner || *owner == ::getpid()) continue;
    // Only a folder of this user whose owner is gone; a live owner (or one
    // of another user, whom kill cannot ask) keeps its folder.
    struct stat st;
    if (::fstatat(dirFd.get(), entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISDIR(st.st_mode) || st.st_uid != ::geteuid()) continue;
    if (::kill(*owner, 0) == 0 || errno != ESRCH) continue;
    stale.push_back(entry.name);
  }
  return stale;
}

std::unique_ptr<StagingArea> StagingArea::create(const std::string& target) {
  removeStaleStagingAreas(target);
  std::string folder = folderOf(target);
  std::string templ = (folder == "/" ? "" : folder) + "/" + stagingPrefix(nameOf(target)) +
                      std::to_string(::getpid()) + "-XXXXXX";
  // A stop signal between making the folder and registering it would leave
  // it behind.
  StopSignalsHeld held;
  if (!::mkdtemp(templ.data())) {
    logError("cannot create a working folder beside \"" + target + "\"", errno);
    return nullptr;
  }
  // The signal handler cannot build paths; it gets an absolute one, right
  // whatever the working folder is by then.
  std::string registered = templ;
  if (registered.front() != '/') {
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof cwd)) registered = std::string(cwd) + "/" + registered;
  }
  registerCleanupPath(registered);
  return std::unique_ptr<StagingArea>(new StagingArea(target, templ, registered));
}

StagingArea::~StagingArea() {
  if (int err = removePath(path_))
    LogObject::sharedLogger().Log("!!! WARNING: cannot remove the working folder \"%s\": %s.",
                                  path_, strerror(err));
  unregisterCleanupPath(registered_);
}

bool StagingArea::commit(const std::string& name, bool overwrite) {
  const std::string staged = pathOf(name);
  if (::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) == 0)
    return true;
  int err = errno;
  if (err == EINVAL && !exists(target_)) {
    // A file system without RENAME_NOREPLACE; the target was just seen absent.
    if (::rename(staged.c_str(), target_.c_str()) == 0) return true;
    err = errno;
  }
  if (err != EEXIST && err != EINVAL) {
    logError("cannot move the new bundle to \"" + target_ + "\"", err);
    return false;
  }
  if (!overwrite) {
    logError("cannot write \"" + target_ + "\"", EEXIST);
    return false;
  }
  // Swap the new result in; the old target takes its place in the staging
  // folder and goes with it.
  if (::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, target_.c_str(), RENAME_EXCHANGE) == 0)
    return true;
  // Without an atomic swap: move the old target aside first, and back again
  // should the new one not follow.
  const std::string aside = pathOf(name + ".replaced");
  if (::rename(target_.c_str(), aside.c_str()) != 0) {
    logError("cannot move the existing \"" + target_ + "\" aside", errno);
    return false;
  }
  if (::rename(staged.c_str(), target_.c_str()) != 0) {
    logError("cannot move the new bundle to \"" + target_ + "\"", errno);
    ::rename(aside.c_str(), target_.c_str());
    return false;
  }
  return true;
}

}  // namespace velmar::tool
