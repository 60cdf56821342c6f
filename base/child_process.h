// Running a helper program (an image reader, an image maker) as a child
// process: argv only, never a shell; standard input the null device; each
// output stream discarded, captured into a string, or written to a
// descriptor the caller owns; an optional time limit after which the child
// is killed.

#ifndef VELMAR_BASE_CHILD_PROCESS_H_
#define VELMAR_BASE_CHILD_PROCESS_H_

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace velmar {

enum class ChildStream : unsigned char {
  Discard,   // the null device
  Capture,   // into ChildResult::out / err
  ToFd,      // the descriptor given (standard error: also allowed)
  ToStdout,  // standard error only: joins standard output, wherever it goes
};

struct ChildRequest {
  std::string program;  // a path; not looked up on PATH
  std::vector<std::string> args;  // argv[1..]
  ChildStream out = ChildStream::Capture;
  ChildStream err = ChildStream::Capture;
  int outFd = -1;  // for ChildStream::ToFd
  int errFd = -1;
  // "NAME=value" entries that replace or add to the environment.
  std::vector<std::string> environment;
  // Killed (SIGKILL) after this many milliseconds; 0 waits for ever.
  int timeoutMs = 0;
  // A captured stream keeps at most its last this many bytes, so a chatty
  // or hostile child cannot exhaust memory; 0 keeps everything.
  size_t captureLimit = 0;
  // Told the child's process id as soon as it runs, and again just before
  // it is reaped (after which the id may name another process); both with
  // every signal held back, so that a signal handler that must end the
  // children still running never misses one nor hits a stranger.
  std::function<void(pid_t)> started;
  std::function<void(pid_t)> ending;
};

struct ChildResult {
  bool started = false;   // false: the program could not be run at all
  int startError = 0;     // errno when not started
  int status = -1;        // exit status, or -1 when ended by a signal
  int signal = 0;         // the signal that ended it
  bool timedOut = false;  // killed because the time limit passed
  bool truncated = false; // a captured stream lost its beginning
  std::string out;
  std::string err;

  bool succeeded() const { return started && status == 0 && !timedOut; }
};

ChildResult runChild(const ChildRequest& request);

// Runs the children all at once and answers when the last has ended: their
// results in the order asked. One that cannot start does not keep the
// others from running.
std::vector<ChildResult> runChildren(const std::vector<ChildRequest>& requests);

// One line saying why a run failed ("could not be started: ...", "was
// killed by signal 9", "ran out of time", "failed with status 2: <what it
// said>"), for error messages. `said` is the output worth quoting.
std::string describeChildFailure(const ChildResult& result, const std::string& said);

}  // namespace velmar

#endif  // VELMAR_BASE_CHILD_PROCESS_H_
