// What a run created and must not leave behind when it is stopped.
//
// A staging folder beside the target, or a temporary folder an image was
// unpacked into, can be as large as the bundle. SIGINT, SIGTERM and SIGHUP
// end the tool at any point, so each such folder is registered while it
// exists: the signal handler removes every registered path and exits with
// 128 + the signal's number. The handler uses only async-signal-safe calls
// (no allocation, no stdio), so it may interrupt anything.
//
// SIGKILL cannot be handled; staging folders carry their owner's process id
// in their names so that a later run can remove those of owners that are
// gone (see StagingArea).

#ifndef VELMAR_TOOL_CLEANUP_H_
#define VELMAR_TOOL_CLEANUP_H_

#include <signal.h>

#include <string>

namespace velmar::tool {

// Adds an absolute path (a folder or a file) to remove on a stopping signal.
// Answers false when it cannot be registered (too long, or too many paths);
// the path then works as ever, it is only not removed on a signal.
bool registerCleanupPath(const std::string& path);
// Removes `path` from the list, once its owner has removed it or kept it.
void unregisterCleanupPath(const std::string& path);

// Holds SIGINT, SIGTERM and SIGHUP back while it lives, for creating a path
// and registering it as one step: a signal between the two would leave the
// path behind.
class StopSignalsHeld {
 public:
  StopSignalsHeld();
  ~StopSignalsHeld();
  StopSignalsHeld(const StopSignalsHeld&) = delete;
  StopSignalsHeld& operator=(const StopSignalsHeld&) = delete;

 private:
  sigset_t saved_;
};

// Installs the handler for SIGINT, SIGTERM and SIGHUP, and ignores SIGXFSZ
// so that a write beyond the file-size limit fails with EFBIG and takes the
// ordinary error path (which removes what it wrote) instead of killing the
// tool on the spot.
void installStopHandlers();

// Removes the tree at `path` using only async-signal-safe calls, never
// following a symbolic link; what the handler runs, exposed for tests.
// Answers 0 or an errno.
int removeTreeSignalSafe(const char* path);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_CLEANUP_H_
