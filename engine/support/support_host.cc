#include "engine/support/support_host.h"

#include "engine/support/bundle_files.h"

namespace velmar {

bool SupportHost::bundleFileExists(const std::string& path) {
  return existsInBundle(supportBundleView(), path);
}

std::optional<std::string> SupportHost::bundleLinkTarget(const std::string& path) {
  return linkTargetInBundle(supportBundleView(), path);
}

std::vector<std::string> SupportHost::bundleNamesNow(const std::string& folder) {
  return namesOnDisk(supportBundleView(), folder);
}

int SupportHost::readBundleFile(const std::string& path, size_t limit, std::string* bytes) {
  return supportBundleView().readFile(path, limit, bytes);
}

}  // namespace velmar
