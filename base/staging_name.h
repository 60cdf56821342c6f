// The names of velmarbs's working folders: a target T is built in
// ".T.velmarbs-PID-XXXXXX" beside it (the owner's process id, then mkdtemp's
// six letters) and renamed to T when complete. The tool makes and clears
// them; the desktop application clears what a killed tool left.

#ifndef VELMAR_BASE_STAGING_NAME_H_
#define VELMAR_BASE_STAGING_NAME_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace velmar {

// ".T.velmarbs-" for a target named `targetName`, with T cut short (never
// inside a UTF-8 character) where the whole name would pass the file
// system's 255 bytes: a target may use any name length it allows.
std::string stagingPrefix(std::string_view targetName);

// The owner's process id when `name` is a working folder's name with that
// prefix, else nothing.
std::optional<pid_t> stagingOwner(std::string_view name, std::string_view prefix);

// Whether `name` is `prefix` followed by the process id of a process that
// is gone (never this one's): an item a killed run left in a cache folder.
bool leftByDeadProcess(std::string_view name, std::string_view prefix);

}  // namespace velmar

#endif  // VELMAR_BASE_STAGING_NAME_H_
