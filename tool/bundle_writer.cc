#include "tool/bundle_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <unordered_set>

#include "engine/log_object.h"
#include "base/plist_io.h"
#include "tool/disk_image.h"
#include "tool/exit_status.h"
#include "tool/file_copy.h"
#include "base/safe_path.h"
#include "tool/staging_area.h"
#include "base/unique_fd.h"

namespace velmar::tool {

namespace {

// Permission bits only: set-id bits from a foreign bundle are not carried over.
constexpr mode_t kPermissionBits = 0777;

bool logFailure(const char* action, const std::string& path, int err) {
  LogObject::sharedLogger().Log("XXX ERROR: cannot %s \"%s\": %s.", action, path, strerror(err));
  return false;
}

std::string readLink(int dirFd, const std::string& name) {
  std::string text(256, '\0');
  for (;;) {
    ssize_t n = ::readlinkat(dirFd, name.c_str(), text.data(), text.size());
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < text.size()) return text.substr(0, static_cast<size_t>(n));
    text.resize(text.size() * 2);
  }
}

int writeAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    done += static_cast<size_t>(n);
  }
  return 0;
}

}  // namespace

BundleWriter::BundleWriter(std::string sourceRoot, BundleWriterOptions options)
    : sourceRoot_(std::move(sourceRoot)), options_(options) {}

// An error line starts a line of its own, not the end of the progress line.
bool BundleWriter::refuse(const std::string& path, const std::string& why) {
  if (progress_) progress_->finish();
  LogObject::sharedLogger().Log("XXX ERROR: refusing \"%s\": %s.", path, why);
  return false;
}

bool BundleWriter::fail(const char* action, const std::string& path, int err) {
  if (progress_) progress_->finish();
  return logFailure(action, path, err);
}

// A lookup below the bundle root failed: an escape is refused, anything
// else is a read error.
bool BundleWriter::lookupFailed(const std::string& path, int err) {
  if (err == EXDEV) return refuse(path, "it reaches outside the bundle through a symbolic link");
  return fail("read", path, err);
}

// ---- planning -------------------------------------------------------------

bool BundleWriter::plan(const Value& strippedManifest, const Value& modifiedFiles) {
  kept_.clear();
  modified_.clear();
  UniqueFd source(::open(sourceRoot_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!source.valid()) return fail("read the bundle", sourceRoot_, errno);

  std::unordered_set<std::string> seen;
  for (const Value& path : strippedManifest.arr()) {
    if (path.isString() && !seen.insert(path.str()).second) continue;
    if (!planKept(source.get(), path)) return false;
  }
  for (const auto& [path, contents] : modifiedFiles.dict())
    if (!planModified(source.get(), path, contents)) return false;
  return checkNothingBeneathFiles();
}

bool BundleWriter::planKept(int sourceFd, const Value& pathValue) {
  if (!pathValue.isString()) return refuse(pathValue.description(), "a kept path is not a string");
  const std::string& path = pathValue.str();
  std::string problem = relativePathProblem(path);
  if (!problem.empty()) return refuse(path, "the path " + problem);

  // The folders on the way may be links that stay inside the bundle; the
  // entry itself is taken as it is, a link included.
  UniqueFd parent(openBeneath(sourceFd, parentPath(path), O_PATH | O_DIRECTORY));
  if (!parent.valid()) return lookupFailed(path, -parent.release());
  const std::string leaf = lastComponent(path);
  struct stat st;
  if (::fstatat(parent.get(), leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    return fail("read", path, errno);

  Item item;
  item.path = path;
  item.source = path;
  item.mode = st.st_mode & kPermissionBits;
  item.times[0] = st.st_atim;
  item.times[1] = st.st_mtim;
  if (S_ISDIR(st.st_mode)) {
    item.kind = Kind::Folder;
  } else if (S_ISREG(st.st_mode)) {
    item.kind = Kind::File;
    item.size = static_cast<uint64_t>(st.st_size);
  } else if (S_ISLNK(st.st_mode)) {
    item.kind = Kind::Link;
    item.bytes = readLink(parent.get(), leaf);
    if (item.bytes.empty()) return fail("read the link", path, errno ? errno : EINVAL);
  } else {
    return refuse(path, "it is not a file, a folder or a symbolic link");
  }
  kept_.push_back(std::move(item));
  return true;
}

bool BundleWriter::planModified(int sourceFd, const std::string& path, const Value& contents) {
  std::string problem = relativePathProblem(path);
  if (!problem.empty()) return refuse(path, "the path " + problem);

  Item item;
  item.kind = Kind::Contents;
  item.path = path;
  if (contents.isDict()) {
    item.bytes = toXml(contents);
  } else if (contents.isString()) {
    item.bytes = contents.str();
  } else if (contents.isData()) {
    const std::string& text = contents.dataValue().bytes;
    if (text.empty() || text.find('\0') != std::string::npos)
      return refuse(path, "its link target is empty or holds a NUL character");
    if (!options_.noSymLinks) {
      item.kind = Kind::Link;
      item.bytes = text;
    } else {
      std::optional<std::string> named = resolveLinkText(path, text);
      if (!named) return refuse(path, "its link \"" + text + "\" names a file outside the bundle");
      UniqueFd file(openBeneath(sourceFd, *named, O_RDONLY | O_NONBLOCK));
      if (!file.valid()) {
        int err = -file.release();
        if (err == EXDEV)
          return refuse(
              path, "its link \"" + text + "\" leads outside the bundle through a symbolic link");
        return fail("read", *named, err);
      }
      struct stat st;
      if (::fstat(file.get(), &st) != 0) return fail("read", *named, errno);
      if (!S_ISREG(st.st_mode))
        return refuse(path, "its link \"" + text + "\" does not name a regular file");
      item.kind = Kind::FileCopy;
      item.source = *named;
      item.mode = st.st_mode & kPermissionBits;
      item.times[0] = st.st_atim;
      item.times[1] = st.st_mtim;
      item.size = static_cast<uint64_t>(st.st_size);
    }
  } else {
    return refuse(path, "its new contents are neither a dictionary, a string nor data");
  }
  modified_.push_back(std::move(item));
  return true;
}

// In the target, nothing may be written beneath a link (it would be written
// wherever the link leads) or beneath a file, and a folder is never replaced
// by a file.
bool BundleWriter::checkNothingBeneathFiles() {
  std::set<std::string> leaves;  // paths that are not folders
  std::set<std::string> folders;
  for (const Item& item : kept_) (item.kind == Kind::Folder ? folders : leaves).insert(item.path);
  for (const Item& item : modified_) {
    if (folders.count(item.path)) return refuse(item.path, "it would replace a kept folder");
    leaves.insert(item.path);
  }
  auto check = [&](const Item& item) {
    for (size_t slash = item.path.find('/'); slash != std::string::npos;
         slash = item.path.find('/', slash + 1)) {
      std::string above = item.path.substr(0, slash);
      if (leaves.count(above))
        return refuse(item.path, "\"" + above + "\" on its way is a link or a file, not a folder");
    }
    return true;
  };
  return std::all_of(kept_.begin(), kept_.end(), check) &&
         std::all_of(modified_.begin(), modified_.end(), check);
}

// ---- writing --------------------------------------------------------------

bool BundleWriter::write(const std::string& folder) {
  UniqueFd source(::open(sourceRoot_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!source.valid()) return fail("read the bundle", sourceRoot_, errno);
  UniqueFd target(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!target.valid()) return fail("write", folder, errno);

  uint64_t files = 0, bytes = 0;
  for (const std::vector<Item>* items : {&kept_, &modified_}) {
    for (const Item& item : *items) {
      if (item.kind != Kind::File && item.kind != Kind::FileCopy) continue;
      ++files;
      bytes += item.size;
    }
  }
  CopyProgress progress(options_.showProgress, files, bytes);
  progress_ = &progress;
  bool ok = true;
  for (const Item& item : kept_)
    if (ok) ok = writeItem(source.get(), target.get(), item, false);
  for (const Item& item : modified_)
    if (ok) ok = writeItem(source.get(), target.get(), item, true);
  progress.finish();
  progress_ = nullptr;
  return ok && finishFolders(target.get());
}

bool BundleWriter::writeItem(int sourceFd, int targetFd, const Item& item, bool replace) {
  UniqueFd parent(makeFoldersBeneath(targetFd, parentPath(item.path)));
  if (!parent.valid()) {
    int err = -parent.release();
    if (err == ELOOP || err == ENOTDIR)
      return refuse(item.path, "a symbolic link or file on its way in the target");
    return fail("create the folder of", item.path, err);
  }
  const std::string leaf = lastComponent(item.path);
  if (replace) {
    // Modified files take the place of what was copied.
    struct stat st;
    if (::fstatat(parent.get(), leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
      if (S_ISDIR(st.st_mode)) return refuse(item.path, "it would replace a folder");
      if (::unlinkat(parent.get(), leaf.c_str(), 0) != 0) return fail("replace", item.path, errno);
    }
  }

  switch (item.kind) {
    case Kind::Folder:
      if (::mkdirat(parent.get(), leaf.c_str(), 0700) != 0) {
        struct stat st;
        // Already made as the folder of an earlier path.
        if (errno == EEXIST &&
            ::fstatat(parent.get(), leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(st.st_mode))
          return true;
        return fail("create the folder", item.path, errno);
      }
      return true;
    case Kind::Link:
      if (::symlinkat(item.bytes.c_str(), parent.get(), leaf.c_str()) != 0)
        return fail("create the link", item.path, errno);
      return true;
    case Kind::Contents: {
      UniqueFd out(::openat(parent.get(), leaf.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
      if (!out.valid()) return fail("create", item.path, errno);
      if (int err = writeAll(out.get(), item.bytes)) return fail("write", item.path, err);
      if (int err = out.close()) return fail("write", item.path, err);
      return true;
    }
    case Kind::File:
    case Kind::FileCopy:
      return copyFile(sourceFd, parent.get(), item);
  }
  return false;
}

bool BundleWriter::copyFile(int sourceFd, int parentFd, const Item& item) {
  UniqueFd in;
  if (item.kind == Kind::File) {
    // Kept files are taken as they are: a link put in their place since
    // the plan is not followed.
    UniqueFd folder(openBeneath(sourceFd, parentPath(item.source), O_PATH | O_DIRECTORY));
    if (!folder.valid()) return lookupFailed(item.source, -folder.release());
    in.reset(::openat(folder.get(), lastComponent(item.source).c_str(),
                      O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!in.valid() && errno == ELOOP) return refuse(item.source, "it is now a symbolic link");
    if (!in.valid()) return fail("read", item.source, errno);
  } else {
    int fd = openBeneath(sourceFd, item.source, O_RDONLY | O_NONBLOCK);
    if (fd < 0) return lookupFailed(item.source, -fd);
    in.reset(fd);
  }
  struct stat st;
  if (::fstat(in.get(), &st) != 0) return fail("read", item.source, errno);
  // A FIFO or device swapped in would block or never end.
  if (!S_ISREG(st.st_mode)) return refuse(item.source, "it is no longer a regular file");

  const std::string leaf = lastComponent(item.path);
  UniqueFd out(
      ::openat(parentFd, leaf.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!out.valid()) return fail("create", item.path, errno);
  if (int err = copyFileData(in.get(), out.get(), progress_)) return fail("copy", item.path, err);
  if (::fchmod(out.get(), item.mode) != 0) return fail("set the permissions of", item.path, errno);
  if (::futimens(out.get(), item.times) != 0) return fail("set the times of", item.path, errno);
  if (int err = out.close()) return fail("write", item.path, err);
  if (progress_) progress_->fileDone();
  return true;
}

// Folder permissions and times go last: a read-only folder must still take
// its entries, and every entry added changes the folder's time.
bool BundleWriter::finishFolders(int targetFd) {
  std::vector<const Item*> folders;
  for (const Item& item : kept_)
    if (item.kind == Kind::Folder) folders.push_back(&item);
  // Deepest first, so a folder made unreadable never blocks one below it.
  std::stable_sort(folders.begin(), folders.end(), [](const Item* a, const Item* b) {
    return std::count(a->path.begin(), a->path.end(), '/') >
           std::count(b->path.begin(), b->path.end(), '/');
  });
  for (const Item* item : folders) {
    UniqueFd folder(makeFoldersBeneath(targetFd, item->path));
    if (!folder.valid()) return fail("open the folder", item->path, -folder.release());
    if (::fchmod(folder.get(), item->mode) != 0)
      return fail("set the permissions of", item->path, errno);
    if (::futimens(folder.get(), item->times) != 0)
      return fail("set the times of", item->path, errno);
  }
  return true;
}

// ---- the target -----------------------------------------------------------

int installBundle(BundleWriter& writer, const TargetOptions& target) {
  LogObject& log = LogObject::sharedLogger();
  std::unique_ptr<StagingArea> staging = StagingArea::create(target.path);
  if (!staging) return kExitIO;

  bool ok = true;
  std::string item = "bundle";
  const std::string folder = staging->pathOf(item);
  if (::mkdir(folder.c_str(), 0755) != 0) ok = logFailure("create", folder, errno);
  if (ok) ok = writer.write(folder);
  if (ok && !target.imageTool.empty()) {
    item = "image.dmg";
    ok = makeImage(target.imageTool, folder, staging->pathOf(item));
  }
  if (ok) ok = staging->commit(item, target.overwrite);
  if (!ok) {
    log.Log("XXX ERROR: the stripped bundle was not written to \"%s\".", target.path);
    return kExitIO;
  }
  return kExitSuccess;
}

int writeStrippedBundle(const std::string& sourceRoot, const TargetOptions& target,
                        const BundleWriterOptions& options, const Value& strippedManifest,
                        const Value& modifiedFiles) {
  BundleWriter writer(sourceRoot, options);
  if (!writer.plan(strippedManifest, modifiedFiles)) {
    LogObject::sharedLogger().Log("XXX ERROR: the stripped bundle was not written to \"%s\".",
                                  target.path);
    return kExitIO;
  }
  return installBundle(writer, target);
}

}  // namespace velmar::tool
