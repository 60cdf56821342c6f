// Builds the stripped bundle from an engine's two results.
//
// The results name bundle paths, and a bundle may come from anywhere, so
// every path is treated as hostile: plan() checks them all against the
// source before anything is written (an absolute path, a "..", an empty
// component, a name no property list can hold, a path that leaves the bundle
// through a symbolic link, or a kept link whose target leaves it, is
// refused), and write() creates every entry relative to folder descriptors,
// exclusively, never following a link in the target.
//
// The source is read only through its BundleView, so a folder and a disk
// image serve alike, and a path the engine spelt in another case than the
// disk is read from the one entry it matches and written as the engine
// spelt it.

#ifndef VELMAR_TOOL_BUNDLE_WRITER_H_
#define VELMAR_TOOL_BUNDLE_WRITER_H_

#include <sys/stat.h>
#include <time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/bundle_view.h"
#include "base/value.h"

namespace velmar::tool {

class CopyProgress;

struct BundleWriterOptions {
  // Links of modifiedFiles become copies of the file they name.
  bool noSymLinks = false;
  // The copy-phase progress line on standard error.
  bool showProgress = false;
};

class BundleWriter {
 public:
  // `source` must outlive the writer.
  BundleWriter(BundleView& source, BundleWriterOptions options);

  // Checks the results against the source and lays out the work. Logs the
  // first problem and answers false; nothing is written either way.
  bool plan(const Value& strippedManifest, const Value& modifiedFiles);

  // Writes the planned bundle into the existing empty folder `folder`: the
  // kept paths first, then the modified files over them. Logs and answers
  // false at the first failure, leaving the folder for the caller to remove.
  bool write(const std::string& folder);

 private:
  enum class Kind {
    Folder,    // kept folder
    File,      // kept regular file, copied
    Link,      // kept link, or a link from modifiedFiles
    Contents,  // a property list or text from modifiedFiles
    FileCopy,  // a link from modifiedFiles written as a copy
  };
  struct Item {
    Kind kind = Kind::Folder;
    std::string path;    // relative to the bundle and to the target
    std::string source;  // File and FileCopy: the bundle path read
    std::string bytes;   // Link: the target text; Contents: the file
    mode_t mode = 0;
    struct timespec times[2] = {};  // access, modification
    uint64_t size = 0;
  };

  bool refuse(const std::string& path, const std::string& why);
  bool fail(const char* action, const std::string& path, int err);
  bool lookupFailed(const std::string& path, int err);

  bool checkPath(const std::string& path);
  bool planKept(const Value& path);
  bool planModified(const std::string& path, const Value& contents);
  bool checkNothingBeneathFiles();

  bool writeItem(int targetFd, const Item& item, bool replace);
  bool copyFile(int parentFd, const Item& item);
  bool finishFolders(int targetFd);

  BundleView& source_;
  BundleWriterOptions options_;
  std::vector<Item> kept_;
  std::vector<Item> modified_;
  CopyProgress* progress_ = nullptr;  // while writing
};

struct TargetOptions {
  std::string path;
  // Replace an existing target once the new one is complete.
  bool overwrite = false;
  // The image maker (xorriso) for a .dmg target; empty for a folder.
  std::string imageTool;
};

// Writes a planned bundle to the target through a staging folder beside it
// (see StagingArea): a failure anywhere leaves an existing target as it was
// and nothing new behind. Answers kExitSuccess or kExitIO.
int installBundle(BundleWriter& writer, const TargetOptions& target);

// plan() and installBundle() together.
int writeStrippedBundle(BundleView& source, const TargetOptions& target,
                        const BundleWriterOptions& options, const Value& strippedManifest,
                        const Value& modifiedFiles);
// The same for a bundle folder on disk.
int writeStrippedBundle(const std::string& sourceRoot, const TargetOptions& target,
                        const BundleWriterOptions& options, const Value& strippedManifest,
                        const Value& modifiedFiles);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_BUNDLE_WRITER_H_
