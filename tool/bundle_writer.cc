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

BundleWriter::BundleWriter(BundleView& source, BundleWriterOptions options)
    : source_(source), options_(options) {}

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
  EntryInfo root;
  if (int err = source_.entryInfo("", &root)) return fail("read the bundle", source_.location(), err);

  std::unordered_set<std::string> seen;
  for (const Value& path : strippedManifest.arr()) {
    if (path.isString() && !seen.insert(path.str()).second) continue;
    if (!planKept(path)) return false;
  }
  for (const auto& [path, contents] : modifiedFiles.dict())
    if (!planModified(path, contents)) return false;
  if (!checkNothingBeneathFiles()) return false;
  // An image source fetches the files to copy in one go, before the staging
  // folder exists: most of the time an interrupted strip from an image
  // spends is spent here.
  std::vector<std::string> copied;
  for (const std::vector<Item>* items : {&kept_, &modified_})
    for (const Item& item : *items)
      if (item.kind == Kind::File || item.kind == Kind::FileCopy) copied.push_back(item.source);
  source_.prepareFiles(copied);
  return true;
}

// A path must be a plain relative path, and a name that the results (a
// property list) and the log (one line) can carry faithfully.
bool BundleWriter::checkPath(const std::string& path) {
  std::string problem = relativePathProblem(path);
  if (problem.empty()) problem = nameTextProblem(path);
  if (!problem.empty()) return refuse(path, "the path " + problem);
  return true;
}

bool BundleWriter::planKept(const Value& pathValue) {
  if (!pathValue.isString()) return refuse(pathValue.description(), "a kept path is not a string");
  const std::string& path = pathValue.str();
  if (!checkPath(path)) return false;

  // The folders on the way may be links that stay inside the bundle; the
  // entry itself is taken as it is, a link included.
  EntryInfo info;
  if (int err = source_.entryInfo(path, &info)) return lookupFailed(path, err);

  Item item;
  item.path = path;
  item.source = path;
  item.mode = info.mode & kPermissionBits;
  item.times[0] = info.accessed;
  item.times[1] = info.modified;
  switch (info.kind) {
    case EntryKind::Folder:
      item.kind = Kind::Folder;
      break;
    case EntryKind::File:
      item.kind = Kind::File;
      item.size = info.size;
      break;
    case EntryKind::Link: {
      item.kind = Kind::Link;
      item.bytes = info.linkTarget;
      if (item.bytes.empty()) return fail("read the link", path, EINVAL);
      // The link is recreated as it is, so it must lead where it leads in
      // the bundle: inside. A stripped bundle is handed on, and a link to
      // "/etc/passwd" or "../../x" would show its receiver a file of theirs.
      const std::string why = "it is a symbolic link to \"" + item.bytes + "\", outside the bundle";
      if (!resolveLinkText(path, item.bytes)) return refuse(path, why);
      EntryInfo target;
      int err = source_.targetInfo(path, &target);
      if (err == EXDEV || err == ELOOP) return refuse(path, why);
      break;
    }
    case EntryKind::Missing:
      return fail("read", path, ENOENT);
    case EntryKind::Other:
      return refuse(path, "it is not a file, a folder or a symbolic link");
  }
  kept_.push_back(std::move(item));
  return true;
}

bool BundleWriter::planModified(const std::string& path, const Value& contents) {
  if (!checkPath(path)) return false;

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
    std::optional<std::string> named = resolveLinkText(path, text);
    if (!named) return refuse(path, "its link \"" + text + "\" names a file outside the bundle");
    if (!options_.noSymLinks) {
      item.kind = Kind::Link;
      item.bytes = text;
    } else {
      EntryInfo info;
      if (int err = source_.targetInfo(*named, &info)) {
        if (err == EXDEV)
          return refuse(
              path, "its link \"" + text + "\" leads outside the bundle through a symbolic link");
        return fail("read", *named, err);
      }
      if (info.kind != EntryKind::File)
        return refuse(path, "its link \"" + text + "\" does not name a regular file");
      item.kind = Kind::FileCopy;
      item.source = *named;
      item.mode = info.mode & kPermissionBits;
      item.times[0] = info.accessed;
      item.times[1] = info.modified;
      item.size = info.size;
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
    if (ok) ok = writeItem(target.get(), item, false);
  for (const Item& item : modified_)
    if (ok) ok = writeItem(target.get(), item, true);
  progress.finish();
  progress_ = nullptr;
  return ok && finishFolders(target.get());
}

bool BundleWriter::writeItem(int targetFd, const Item& item, bool replace) {
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
      return copyFile(parent.get(), item);
  }
  return false;
}

bool BundleWriter::copyFile(int parentFd, const Item& item) {
  // Kept files are taken as they are: a link or anything else put in their
  // place since the plan is not followed.
  EntryInfo now;
  if (int err = (item.kind == Kind::File ? source_.entryInfo(item.source, &now)
                                         : source_.targetInfo(item.source, &now)))
    return lookupFailed(item.source, err);
  if (now.kind == EntryKind::Link) return refuse(item.source, "it is now a symbolic link");
  if (now.kind != EntryKind::File) return refuse(item.source, "it is no longer a regular file");
  // What the progress line counted and the engine saw is what is copied:
  // a file that changed size since would be written torn.
  const uint64_t expected = now.size;
  if (expected != item.size)
    return refuse(item.source, "it changed size while the bundle was written (" +
                                   std::to_string(item.size) + " bytes before, " +
                                   std::to_string(expected) + " now)");

  const std::string leaf = lastComponent(item.path);
  UniqueFd out(
      ::openat(parentFd, leaf.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!out.valid()) return fail("create", item.path, errno);
  // The view copies from wherever it keeps the bytes (an image copies
  // straight out of itself), refusing anything but a regular file: a FIFO
  // or device swapped in would block or never end.
  uint64_t copied = 0;
  int err = source_.copyFile(item.source, out.get(), [&](uint64_t bytes) {
    copied += bytes;
    if (progress_) progress_->addBytes(bytes);
  });
  if (err == EINVAL) return refuse(item.source, "it is no longer a regular file");
  if (err == ENOENT || err == EXDEV || err == ELOOP || err == ENOTDIR)
    return lookupFailed(item.source, err);
  if (err) return fail("copy", item.path, err);
  if (copied != expected)
    return refuse(item.source, "it changed size while it was copied (" + std::to_string(expected) +
                                   " bytes when the copy began, " +
                                   (copied > expected ? "more" : std::to_string(copied)) +
                                   " copied)");
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
  std::unique_ptr<BundleView> source = openFolderView(sourceRoot);
  return writeStrippedBundle(*source, target, options, strippedManifest, modifiedFiles);
}

int writeStrippedBundle(BundleView& source, const TargetOptions& target,
                        const BundleWriterOptions& options, const Value& strippedManifest,
                        const Value& modifiedFiles) {
  BundleWriter writer(source, options);
  if (!writer.plan(strippedManifest, modifiedFiles)) {
    LogObject::sharedLogger().Log("XXX ERROR: the stripped bundle was not written to \"%s\".",
                                  target.path);
    return kExitIO;
  }
  return installBundle(writer, target);
}

}  // namespace velmar::tool
