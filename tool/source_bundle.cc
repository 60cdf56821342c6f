#include "tool/source_bundle.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "engine/log_object.h"
#include "tool/disk_image.h"
#include "tool/exit_status.h"
#include "tool/staging_area.h"

namespace velmar::tool {

SourceBundle::~SourceBundle() {
  if (!unpackFolder_.empty()) removePath(unpackFolder_);
}

int SourceBundle::open(const std::string& path) {
  LogObject& log = LogObject::sharedLogger();
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    log.Log("XXX ERROR: cannot read the source bundle \"%s\": %s.", path, strerror(errno));
    return kExitIO;
  }
  if (S_ISDIR(st.st_mode)) {
    folder_ = path;
    view_ = openFolderView(folder_);
    return kExitSuccess;
  }
  if (S_ISREG(st.st_mode) && isDiskImagePath(path)) return unpack(path);
  log.Log("XXX ERROR: the source \"%s\" is neither a bundle folder nor a .dmg disk image.", path);
  return kExitIO;
}

int SourceBundle::unpack(const std::string& image) {
  LogObject& log = LogObject::sharedLogger();
  // Images this tool made are ISO 9660; xorriso reads their links back.
  std::optional<std::string> xorriso = isIsoImage(image) ? findXorriso() : std::nullopt;
  std::optional<std::string> sevenZip = findSevenZip();
  if (!xorriso && !sevenZip) {
    log.Log("XXX ERROR: cannot unpack \"%s\": 7-Zip (7z) is not on PATH; install the 7zip package.",
            image);
    return kExitIO;
  }
  const char* tmp = ::getenv("TMPDIR");
  std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/velmarbs-source-XXXXXX";
  if (!::mkdtemp(templ.data())) {
    log.Log("XXX ERROR: cannot create a temporary folder to unpack \"%s\": %s.", image,
            strerror(errno));
    return kExitIO;
  }
  unpackFolder_ = templ;
  bool unpacked = xorriso ? unpackIsoImage(*xorriso, image, unpackFolder_)
                          : unpackImage(*sevenZip, image, unpackFolder_);
  if (!unpacked) return kExitIO;
  std::optional<std::string> bundle = findBundleFolder(unpackFolder_);
  if (!bundle) {
    log.Log("XXX ERROR: the disk image \"%s\" holds no bundle folder with Restore/.", image);
    return kExitIO;
  }
  folder_ = *bundle;
  view_ = openFolderView(folder_);
  return kExitSuccess;
}

}  // namespace velmar::tool
