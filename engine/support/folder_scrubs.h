// The optional companions at a bundle root (Debug, firmware packages,
// unencrypted image copies, home diagnostics, the internal SDK, bundle
// images, the factory disk image) leave the stripped bundle unless the user
// asked to keep them or, for the factory image, unless it is complete. None
// of these steps can fail the run; each answers 0.

#ifndef VELMAR_ENGINE_SUPPORT_FOLDER_SCRUBS_H_
#define VELMAR_ENGINE_SUPPORT_FOLDER_SCRUBS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

// The folder of complete firmware packages.
inline constexpr char kPackagesFolder[] = "Orrin RPKGs";

// A listed entry that may be a firmware package: not the folder itself, and
// ending in "RPKG" in any case.
bool isPackageCandidate(std::string_view candidate);

// Whether a package candidate belongs to the board code. A package of an
// internal operating system image also belongs to every board when the
// chosen stations use that image, whatever board it names.
bool packageMatches(std::string_view candidate, std::string_view boardCode,
                    const Value& personalizationVariants);

// Every board code tried against every candidate, in order.
struct PackageSelection {
  Value found = Value::makeSet();            // candidates some board code matched
  Value unmatched = Value::makeSet();        // candidates some board code did not match
  std::vector<std::string> unmatchedBoards;  // the board code of each miss, in the order tried
};
PackageSelection selectPackages(const std::vector<std::string>& candidates, const Value& boardCodes,
                                const Value& personalizationVariants);

int32_t stripDebugFolder(SupportHost& host, const SupportRequest& request);
// The manifest engine keeps the matching packages and warns when none match.
int32_t stripRPKGs(SupportHost& host, const SupportRequest& request);
// The legacy engine tries every board code on every package: it warns per
// miss, reports the misses as scrubbed and keeps the folder itself too.
int32_t stripRPKGsPerBoard(SupportHost& host, const SupportRequest& request);
// Legacy only: unencrypted copies are never kept.
int32_t stripUnencryptedImages(SupportHost& host, const SupportRequest& request);
int32_t stripHomeDiags(SupportHost& host, const SupportRequest& request);
int32_t stripSDKs(SupportHost& host, const SupportRequest& request);
int32_t stripBundleImages(SupportHost& host, const SupportRequest& request);
// Manifest engine only.
int32_t stripFactoryDiskImage(SupportHost& host, const SupportRequest& request);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_FOLDER_SCRUBS_H_
