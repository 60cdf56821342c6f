#include "engine/support/bundle_files.h"

namespace velmar {

bool existsInBundle(BundleView& view, const std::string& relative) {
  return existsInView(view, relative);
}

std::optional<std::string> linkTargetInBundle(BundleView& view, const std::string& relative) {
  EntryInfo info;
  if (view.entryInfo(relative, &info) != 0 || info.kind != EntryKind::Link) return std::nullopt;
  return info.linkTarget;
}

std::vector<std::string> namesOnDisk(BundleView& view, const std::string& relative) {
  std::vector<FolderEntry> entries;
  std::vector<std::string> names;
  if (view.listFolder(relative, &entries) != 0) return names;
  for (FolderEntry& entry : entries) names.push_back(std::move(entry.name));
  return names;
}

}  // namespace velmar
