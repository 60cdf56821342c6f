#include "engine/support/invisibles.h"

#include <string>
#include <vector>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "engine/support/bundle_files.h"

namespace velmar {

bool isInvisiblePath(std::string_view path) {
  static const char* const kPrefixes[] = {".BC_"};
  static const char* const kNames[] = {".DS_Store", ".svn", "CVS", ".fseventsd", ".Trashes"};
  const std::string name = lastPathComponent(path);
  for (const char* prefix : kPrefixes)
    if (hasPrefix(name, prefix, Compare::CaseInsensitive)) return true;
  const std::string folded = lower(name);
  for (const char* invisible : kNames)
    if (folded == lower(invisible)) return true;
  return false;
}

namespace {

int32_t scrubInvisibles(SupportHost& host, bool withContents) {
  Value scrub = Value::makeSet();
  for (const std::string& path : host.keptPaths()) {
    if (!isInvisiblePath(path)) continue;
    scrub.insert(Value(path));
    if (withContents)
      for (const std::string& below : host.listFolder(path, true)) scrub.insert(Value(below));
  }
  if (scrub.count() == 0) return 0;
  LogObject::sharedLogger().Log("--- invisibles scrub %d items.", scrub.count());
  host.unkeepPaths(scrub.strings());
  return 0;
}

}  // namespace

int32_t stripInvisibles(SupportHost& host, const SupportRequest& request) {
  return scrubInvisibles(host, false);
}

int32_t stripInvisiblesWithContents(SupportHost& host, const SupportRequest& request) {
  return scrubInvisibles(host, true);
}

}  // namespace velmar
