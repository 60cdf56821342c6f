// What a run created and must not leave behind when it is stopped.
//
// A staging folder beside the target, or a temporary folder files of an
// image were extracted into, can be as large as the bundle; an image reader
// or writer started as a child process would go on writing into them.
// SIGINT, SIGTERM and SIGHUP end the tool at any point, so each such folder
// is registered while it exists, and each child while it runs: the signal
// handler kills and reaps every registered child, then removes every
// registered path, and exits with 128 + the signal's number. The handler
// uses only async-signal-safe calls (no allocation, no stdio), so it may
// interrupt anything.
//
// SIGKILL cannot be handled; staging folders carry their owner's process id
// in their names so that a later run can remove those of owners that are
// gone (see StagingArea).

#ifndef VELMAR_TOOL_CLEANUP_H_
#define VELMAR_TOOL_CLEANUP_H_

#include <signal.h>

#include <string>

namespace velmar::tool {

// Adds a path (a folder or a file; a relative one is taken from the working
// folder of the moment) to remove on a stopping signal.
// Answers false when it cannot be registered (too long, or too many paths);
// the path then works as ever, it is only not removed on a signal.
bool registerCleanupPath(const std::string& path);
// Removes `path` from the list, once its owner has removed it or kept it.
void unregisterCleanupPath(const std::string& path);

// Adds a child process to kill (SIGKILL) and reap on a signal, and takes it
// off again once it has been waited for. Register with the stop signals
// held from before the child is started; unregister before its process id
// can be reused, that is before it is reaped. False when the table is full.
bool registerCleanupChild(pid_t pid);
void unregisterCleanupChild(pid_t pid);

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
