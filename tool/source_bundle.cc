#include "tool/source_bundle.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "engine/log_object.h"
#include "tool/disk_image.h"
#include "tool/exit_status.h"
#include "tool/image_view.h"

namespace velmar::tool {

int SourceBundle::open(const std::string& path) {
  LogObject& log = LogObject::sharedLogger();
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    log.Log("XXX ERROR: cannot read the source bundle \"%s\": %s.", path, strerror(errno));
    return kExitIO;
  }
  if (S_ISDIR(st.st_mode)) {
    // A bundle holds Restore/ (in any case, as the image reader also finds
    // it); without one no engine has anything to read, and saying so beats
    // an engine's empty answer.
    std::unique_ptr<BundleView> view = openFolderView(path);
    EntryInfo restore;
    if (view->targetInfo("Restore", &restore) != 0 || restore.kind != EntryKind::Folder) {
      log.Log("XXX ERROR: the source \"%s\" is not a restore bundle: it has no Restore folder.",
              path);
      return kExitIO;
    }
    view_ = std::move(view);
    return kExitSuccess;
  }
  if (S_ISREG(st.st_mode) && isDiskImagePath(path)) {
    std::string error;
    std::unique_ptr<BundleView> view = openImageView(path, ImageViewOptions(), &error);
    if (!view) {
      log.Log("XXX ERROR: %s.", error);
      return kExitIO;
    }
    view_ = std::move(view);
    fromImage_ = true;
    return kExitSuccess;
  }
  log.Log("XXX ERROR: the source \"%s\" is neither a bundle folder nor a .dmg disk image.", path);
  return kExitIO;
}

}  // namespace velmar::tool
