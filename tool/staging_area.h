// Where a result is built before it becomes the target.
//
// The staging area is a new folder ".NAME.velmarbs-XXXXXX" beside the target
// NAME, so the final move is a rename within one file system. The result is
// built inside it (a folder, or an image file); commit moves it onto the
// target, replacing an existing target only at that moment. Whatever is left
// in the staging area (a partial result, or the replaced old target) is
// removed with it.

#ifndef VELMAR_TOOL_STAGING_AREA_H_
#define VELMAR_TOOL_STAGING_AREA_H_

#include <memory>
#include <string>

namespace velmar::tool {

class StagingArea {
 public:
  // Creates the folder beside `target`; logs and answers null on failure.
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
  StagingArea(std::string target, std::string path)
      : target_(std::move(target)), path_(std::move(path)) {}

  std::string target_;
  std::string path_;
};

// Removes `name` below the folder `dirFd` and everything inside it, never
// following a symbolic link; read-only folders are opened up first. Answers
// 0 or an errno.
int removeTree(int dirFd, const std::string& name);
// The same for a path.
int removePath(const std::string& path);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_STAGING_AREA_H_
