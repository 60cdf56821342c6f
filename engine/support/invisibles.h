// Housekeeping files that file managers and version control leave behind
// (.DS_Store, .svn, CVS, ...) never belong in a stripped bundle.

#ifndef VELMAR_ENGINE_SUPPORT_INVISIBLES_H_
#define VELMAR_ENGINE_SUPPORT_INVISIBLES_H_

#include <cstdint>
#include <string_view>

#include "engine/support/support_host.h"
#include "base/value.h"

namespace velmar {

// Whether the last component of `path` is a housekeeping name, ignoring case.
bool isInvisiblePath(std::string_view path);

// Takes the housekeeping paths out of what has been kept: only the matching
// path itself, so files inside a ".svn" folder stay unless their own names
// match. Answers 0.
int32_t stripInvisibles(SupportHost& host, const SupportRequest& request);

// The legacy engine's form, run on its merged keep list: a matching path
// leaves with everything under it. Answers 0.
int32_t stripInvisiblesWithContents(SupportHost& host, const SupportRequest& request);

}  // namespace velmar

#endif  // VELMAR_ENGINE_SUPPORT_INVISIBLES_H_
