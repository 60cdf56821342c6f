// Where a result is built before it becomes the target.
//
// The staging area is a new folder ".NAME.velmarbs-PID-XXXXXX" beside the
// target NAME, so the final move is a rename within one file system. It is
// registered for removal on a stopping signal (tool/cleanup.h) while it
// exists; PID names its owner, so that a run killed outright (SIGKILL)
// leaves a folder the next run for the same target can tell is stale and
// remove. The result is
// built inside it (a folder, or an image file); commit moves it onto the
// target, replacing an existing target only at that moment. Whatever is left
// in the staging area (a partial result, or the replaced old target) is
// removed with it.

#ifndef VELMAR_TOOL_STAGING_AREA_H_
#define VELMAR_TOOL_STAGING_AREA_H_

#include <memory>
#include <string>
#include <vector>

namespace velmar::tool {

class StagingArea {
 public:
  // Removes stale staging folders of `target` (see staleStagingAreas), then
  // creates this run's beside it; logs and answers null on failure.
  static std::unique_ptr<StagingArea> create(const std::string& target);
  ~StagingArea();

  StagingArea(const StagingArea&) = delete;
  StagingArea& operator=(const StagingArea&) = delete;

  const std::string& path() const { return path_; }
  // A path inside the staging folder.
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }

  // Moves the staged item `name` onto the target. Without `overwrite` an
  // existing target is an error; with it, the existing target is replaced
  // (and then removed with the staging folder). Logs and answers false on
  // failure, leaving the target as it was.
  bool commit(const std::string& name, bool overwrite);

 private:
  StagingArea(std::string target, std::string path, std::string registered)
      : target_(std::move(target)), path_(std::move(path)), registered_(std::move(registered)) {}

  std::string target_;
  std::string path_;
  std::string registered_;  // path_ as registered for cleanup: absolute
};

// The names in `folder` that begin with `prefix` and then "PID-", of folders
// of this user whose owner process PID no longer exists: what runs killed
// outright left behind.
std::vector<std::string> staleStagingAreas(const std::string& folder, const std::string& prefix);

// Removes `name` below the folder `dirFd` and everything inside it, never
// following a symbolic link; read-only folders are opened up first. Answers
// 0 or an errno.
int removeTree(int dirFd, const std::string& name);
// The same for a path.
int removePath(const std::string& path);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_STAGING_AREA_H_
