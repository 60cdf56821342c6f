#include "tool/reporting_view.h"

#include <errno.h>

#include "engine/log_object.h"

namespace velmar::tool {

int ReportingView::listFolder(std::string_view path, std::vector<FolderEntry>* entries) {
  int err = inner_->listFolder(path, entries);
  // Nothing there, or not a folder: the engine asked about something the
  // bundle does not have, which it handles itself.
  if (err == 0 || err == ENOENT || err == ENOTDIR) return err;
  if (warned_.insert(std::string(path)).second)
    LogObject::sharedLogger().Log(
        "!!! WARNING: cannot read the folder \"%s\" of the bundle: %s; what it holds is left "
        "out.",
        path.empty() ? std::string(".") : std::string(path), describeViewError(err));
  return err;
}

}  // namespace velmar::tool
