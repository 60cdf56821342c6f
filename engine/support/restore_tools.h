// The restore-tools disk image sits at the bundle root as "RestoreTools.dmg",
// usually a link to the real image. When the link is missing the step
// guesses: a single other image at the root must be it; with none or
// several it keeps them all and says so.

#ifndef VELMAR_ENGINE_SUPPORT_RESTORE_TOOLS_H_
#define VELMAR_ENGINE_SUPPORT_RESTORE_TOOLS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

inline constexpr char kRestoreToolsImage[] = "RestoreTools.dmg";

// A root entry that may be a disk image: ends in ".dmg" in any case and is
// not a "._" resource-fork companion.
bool isDiskImageCandidate(std::string_view name);

// The candidates left once every link among them, and what it leads to, is
// taken out: a link and its target are not the tools image.
std::vector<std::string> withoutLinkedImages(
    const std::vector<std::string>& candidates,
    const std::function<std::optional<std::string>(const std::string&)>& linkTarget);

// Keeps the link and what it leads to, or applies the guess above. Answers 0.
int32_t stripRestoreTools(SupportHost& host, const SupportRequest& request);

// The legacy engine's form: it lists the root afresh, insists that the
// "RestoreTools.dmg" link leads to something the bundle held when it was
// listed (1 and an error otherwise), and leaves the link out when the
// noSymLinks option is set.
int32_t stripRestoreToolsChecked(SupportHost& host, const SupportRequest& request);

// Legacy only: kept as an empty step in the legacy order. Answers 0.
int32_t stripBogusRestoreImagesInRootDirectory(SupportHost& host, const SupportRequest& request);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_RESTORE_TOOLS_H_
