#include "engine/stripper.h"

#include "engine/log_object.h"

namespace velmar {

int32_t unknownWorkStep(std::string_view selector) {
  LogObject::sharedLogger().Log("XXX ERROR: no work step named \"%@\".", selector);
  return 1;
}

Status Stripper::performWork(const Value& unused) {
  LogObject& log = LogObject::sharedLogger();
  const int total = static_cast<int>(workList_.count());
  Status status;
  // Steps may add to the engine's state but never to the list being walked;
  // iterate over a snapshot so a step holding the list cannot invalidate us.
  Value list = workList_;
  int index = 1;
  for (const Value& item : list.arr()) {
    Value entry = item;
    Value name = entry.get("workName");
    std::string selector = entry.get("workSelector").str();
    log.Log(">>> ========== %2d/%2d %@ ==========", index, total, name);
    status = performStep(selector, entry);
    if (status && *status != 0) return status;
    ++index;
  }
  return status;
}

void Stripper::openBundleView(const std::string& path) {
  if (view_ && view_->location() == path) return;
  view_ = openFolderView(path);
}

}  // namespace velmar
