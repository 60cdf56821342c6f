#include "engine/support/restore_tools.h"

#include <algorithm>

#include "engine/collection_extras.h"
#include "engine/log_object.h"

namespace velmar {

namespace {

std::vector<std::string> diskImageCandidates(const std::vector<std::string>& names) {
  std::vector<std::string> candidates;
  for (const std::string& name : names)
    if (isDiskImageCandidate(name)) candidates.push_back(name);
  return candidates;
}

// What is left after the links are gone: a single image is taken for the
// tools image and "RestoreTools.dmg" is made to lead to it; otherwise all
// are kept with a warning.
void keepRemainingImages(SupportHost& host, const std::vector<std::string>& images) {
  LogObject& log = LogObject::sharedLogger();
  if (images.size() == 1) {
    const std::string& image = images.front();
    if (image == kRestoreToolsImage) return;
    host.recordModifiedFile(kRestoreToolsImage, Value::makeData(image));
    host.keepPaths({image});
    log.Log("!!! WARNING: assuming single disk image \"%@\" at root is the RestoreTools disk image.",
            lastPathComponent(image));
    return;
  }
  log.Log(
      "!!! WARNING: unable to identify the RestoreTools disk image as there are %d disk images left in "
      "bundle root - including them all - %@.",
      images.size(), niceDescription(Value::stringArray(images)));
  host.keepPaths(images);
}

int32_t stripRestoreToolsManifest(SupportHost& host) {
  if (std::optional<std::string> target = host.bundleLinkTarget(kRestoreToolsImage)) {
    LogObject::sharedLogger().Log("+++ RestoreTools found %@.", *target);
    host.keepPaths({*target, kRestoreToolsImage});
    return 0;
  }
  std::vector<std::string> images =
      withoutLinkedImages(diskImageCandidates(host.listFolder("", false)),
                          [&](const std::string& name) { return host.bundleLinkTarget(name); });
  keepRemainingImages(host, images);
  return 0;
}

// The legacy engine looks at the disk afresh, and insists that the link's
// target is part of the bundle it listed at the start.
int32_t stripRestoreToolsLegacy(SupportHost& host) {
  LogObject& log = LogObject::sharedLogger();
  std::vector<std::string> candidates = diskImageCandidates(host.bundleNamesNow(""));
  std::vector<std::string> working = candidates;
  std::optional<std::string> toolsTarget;
  for (const std::string& candidate : candidates) {
    std::optional<std::string> target = host.bundleLinkTarget(candidate);
    if (!target) continue;
    std::erase(working, candidate);
    std::erase(working, *target);
    if (candidate != kRestoreToolsImage) continue;
    if (!host.bundleListingContains(*target)) {
      log.Log("XXX ERROR: RestoreTools \"%@\" missing from bundle.", *target);
      return 1;
    }
    toolsTarget = *target;
  }
  if (toolsTarget) {
    log.Log("+++ RestoreTools found %@ %@.", kRestoreToolsImage, *toolsTarget);
    std::vector<std::string> keep = {*toolsTarget};
    if (!boolForKey(host.supportOptions(), "noSymLinks")) keep.push_back(kRestoreToolsImage);
    host.keepPaths(keep);
    return 0;
  }
  keepRemainingImages(host, working);
  return 0;
}

}  // namespace

bool isDiskImageCandidate(std::string_view name) {
  return hasSuffix(name, ".dmg", Compare::CaseInsensitive) && !hasPrefix(name, "._", Compare::Literal);
}

std::vector<std::string> withoutLinkedImages(
    const std::vector<std::string>& candidates,
    const std::function<std::optional<std::string>(const std::string&)>& linkTarget) {
  std::vector<std::string> left = candidates;
  for (const std::string& candidate : candidates) {
    std::optional<std::string> target = linkTarget(candidate);
    if (!target) continue;
    std::erase(left, candidate);
    std::erase(left, *target);
  }
  return left;
}

int32_t stripRestoreTools(SupportHost& host, const SupportRequest& request) {
  return stripRestoreToolsManifest(host);
}

int32_t stripRestoreToolsChecked(SupportHost& host, const SupportRequest& request) {
  return stripRestoreToolsLegacy(host);
}

int32_t stripBogusRestoreImagesInRootDirectory(SupportHost& host, const SupportRequest& request) { return 0; }

}  // namespace velmar
