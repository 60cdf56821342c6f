#include "engine/support/folder_scrubs.h"

#include <optional>

#include "engine/collection_extras.h"
#include "engine/log_object.h"

namespace velmar {

namespace {

// Debug and BundleImages: what lies directly in the folder is kept as a
// whole when asked for.
int32_t scrubFolder(SupportHost& host, const SupportRequest& request, const char* option, const char* folder, const char* foundMessage,
                    const char* scrubMessage) {
  LogObject& log = LogObject::sharedLogger();
  std::vector<std::string> items = host.listFolder(folder, false);
  if (boolForKey(host.supportOptions(), option)) {
    if (!items.empty()) log.Log(foundMessage, items.size());
    host.keepPaths(items);
  } else if (request.reportScrubs && !items.empty()) {
    log.Log(scrubMessage, items.size());
  }
  return 0;
}

// Home diagnostics and the SDK: a root link names the image; both are kept.
// A plain file of the link's name is not the link and is not kept.
int32_t keepLinkedImage(SupportHost& host, const SupportRequest& request, const char* option, const char* link, const char* foundMessage,
                        const char* scrubMessage) {
  LogObject& log = LogObject::sharedLogger();
  std::optional<std::string> target = host.bundleLinkTarget(link);
  if (boolForKey(host.supportOptions(), option)) {
    if (target) {
      log.Log(foundMessage, *target);
      host.keepPaths({*target, link});
    } else {
      host.keepPaths({});
    }
  } else if (request.reportScrubs && (target || host.bundleListingContains(link))) {
    log.Log(scrubMessage);
  }
  return 0;
}

}  // namespace

bool isPackageCandidate(std::string_view candidate) {
  return candidate != kPackagesFolder && hasSuffix(candidate, "RPKG", Compare::CaseInsensitive);
}

bool packageMatches(std::string_view candidate, std::string_view boardCode,
                    const Value& personalizationVariants) {
  static const struct {
    const char* variant;
    const char* packagePart;
  } kInternalImages[] = {
      {"FullInternalOS", "FullInternal"},
      {"VendorInternalOS", "VendorInternal"},
      {"LiteInternalOS", "LiteInternal"},
  };
  if (!boardCode.empty() && containsIgnoringCase(candidate, boardCode)) return true;
  for (const auto& image : kInternalImages)
    if (personalizationVariants.containsMember(Value(image.variant)) &&
        containsIgnoringCase(candidate, image.packagePart))
      return true;
  return false;
}

PackageSelection selectPackages(const std::vector<std::string>& candidates, const Value& boardCodes,
                                const Value& personalizationVariants) {
  PackageSelection selection;
  for (const std::string& board : boardCodes.strings()) {
    for (const std::string& candidate : candidates) {
      if (!isPackageCandidate(candidate)) continue;
      if (packageMatches(candidate, board, personalizationVariants)) {
        selection.found.insert(Value(candidate));
      } else {
        selection.unmatched.insert(Value(candidate));
        selection.unmatchedBoards.push_back(board);
      }
    }
  }
  return selection;
}

int32_t stripDebugFolder(SupportHost& host, const SupportRequest& request) {
  return scrubFolder(host, request, "keepDebug", "Debug", "+++ Debug folder found %d items.",
                     "--- Debug folder scrub %d items.");
}

int32_t stripBundleImages(SupportHost& host, const SupportRequest& request) {
  return scrubFolder(host, request, "keepBundleImages", "BundleImages", "+++ BundleImages found %d items.",
                     "--- BundleImages scrub %d items.");
}

int32_t stripUnencryptedImages(SupportHost& host, const SupportRequest& request) {
  std::vector<std::string> items = host.listFolder("UnencryptedImages", false);
  if (!items.empty()) LogObject::sharedLogger().Log("--- Unencrypted Images scrub %d items.", items.size());
  return 0;
}

int32_t stripRPKGs(SupportHost& host, const SupportRequest& request) {
  LogObject& log = LogObject::sharedLogger();
  if (!boolForKey(host.supportOptions(), "keepRPKGs")) return 0;
  PackageSelection selection = selectPackages(host.listFolder(kPackagesFolder, false), request.products,
                                              request.personalizationVariants);
  if (selection.found.count() == 0) {
    // Borrowed from the platform-keys step, placeholders and all.
    log.Log("!!! WARNING: platform_keys.plist %@ (%@) not found.", Value(), Value());
    return 0;
  }
  Value keep = Value::makeSet();
  for (const std::string& package : selection.found.strings())
    for (const std::string& path : host.listFolder(package, true)) keep.insert(Value(path));
  host.keepPaths(keep.strings());
  log.Log("+++ RPKGs found %@.", niceDescription(selection.found));
  return 0;
}

int32_t stripRPKGsPerBoard(SupportHost& host, const SupportRequest& request) {
  LogObject& log = LogObject::sharedLogger();
  std::vector<std::string> candidates = host.listFolder(kPackagesFolder, false);
  if (!boolForKey(host.supportOptions(), "keepRPKGs")) {
    if (request.reportScrubs && !candidates.empty()) log.Log("--- RPKGs scrub %d items.", candidates.size());
    return 0;
  }
  PackageSelection selection =
      selectPackages(candidates, request.products, request.personalizationVariants);
  // The folder itself is kept whatever matches, so the partial list always
  // names it.
  Value keep = Value::makeSet({Value(kPackagesFolder)});
  for (const std::string& package : selection.found.strings())
    for (const std::string& path : host.listFolder(package, true)) keep.insert(Value(path));
  for (const std::string& board : selection.unmatchedBoards)
    log.Log("!!! WARNING Cannot find RPKG for %@.", board);
  if (selection.unmatched.count() > 0) log.Log("--- RPKGs scrub %@.", niceDescription(selection.unmatched));
  if (selection.found.count() > 0) {
    host.keepPaths(keep.strings());
    log.Log("+++ RPKGs found %@.", niceDescription(selection.found));
  }
  return 0;
}

int32_t stripHomeDiags(SupportHost& host, const SupportRequest& request) {
  return keepLinkedImage(host, request, "keepHomeDiagnostics", "HomeDiagnostic.dmg", "+++ HomeDiagnostics found.",
                         "--- HomeDiagnostics scrub.");
}

int32_t stripSDKs(SupportHost& host, const SupportRequest& request) {
  return keepLinkedImage(host, request, "keepSDK", "CorvidSDKInternalNonUI.dmg", "+++ NonUI SDK found \"%@\".",
                         "--- NonUI SDK scrub.");
}

int32_t stripFactoryDiskImage(SupportHost& host, const SupportRequest& request) {
  static const char kImage[] = "FactoryDiskImage.dmg";
  static const char kSignature[] = "FactoryDiskImage.dmg.signature";
  LogObject& log = LogObject::sharedLogger();
  if (host.bundleFileExists(kImage) && host.bundleFileExists(kSignature)) {
    log.Log("+++ FactoryDiskImage and signature file found.");
    host.keepPaths({kImage, kSignature});
  } else {
    // Logged with "+++" and spelt as it always has been; readers match on it.
    log.Log("+++ Either FactoryDiskImage or signature file is missing. Include non of them.");
  }
  return 0;
}

}  // namespace velmar
