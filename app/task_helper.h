// TaskHelper and RunTask: run one child process to completion and gather its
// standard output and standard error as text.
//
// The child runs with the null device as standard input and one pipe per
// output stream. A worker thread reads both pipes in 0.1 s slices while the
// calling thread polls the worker's done flag every 0.1 s, so `run` blocks
// its caller (the user interface too, when called there) until the child has
// ended and both pipes are drained. Output is decoded as UTF-8 chunk by
// chunk (see Utf8ChunkDecoder).

#ifndef VELMAR_APP_TASK_HELPER_H_
#define VELMAR_APP_TASK_HELPER_H_

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "app/child_stop.h"
#include "app/utf8_text.h"

namespace velmar::app {

// What to run. An empty current directory keeps the caller's.
struct Task {
  std::string launchPath;
  std::vector<std::string> arguments;
  std::string currentDirectory;
};

// Where the verbose echo and the launch errors go; the process's own
// streams unless a test redirects them.
struct EchoStreams {
  FILE* out = stdout;
  FILE* err = stderr;
};

class TaskHelper {
 public:
  explicit TaskHelper(Task task);  // initWithTask
  TaskHelper(const TaskHelper&) = delete;
  TaskHelper& operator=(const TaskHelper&) = delete;

  // Runs the task once and answers `result`: 1 when it could not be
  // launched, otherwise its termination status (the signal number for a
  // child killed by a signal).
  int run();

  const Task& task() const { return task_; }
  const std::string& stdoutOutput() const { return stdoutOutput_; }
  const std::string& stderrOutput() const { return stderrOutput_; }
  bool verbose() const { return verbose_; }
  void setVerbose(bool on) { verbose_ = on; }
  int result() const { return result_; }
  bool threadDone() const { return threadDone_.load(std::memory_order_acquire); }
  void setEchoStreams(const EchoStreams& streams) { echo_ = streams; }
  // When `cancel` is requested the child is stopped (SIGTERM, then SIGKILL
  // after its grace); a task cancelled before launch is not launched.
  void setCancel(const TaskCancel* cancel) { cancel_ = cancel; }
  // Whether the run ended because it was cancelled.
  bool cancelled() const { return cancelled_; }

 private:
  void taskThread();
  // Reads what the pipe holds now, without waiting; false at end of file.
  bool dataAvail(int fd, Utf8ChunkDecoder& decoder, std::string& output, FILE* echo);

  Task task_;
  std::string stderrOutput_;
  std::string stdoutOutput_;
  bool verbose_ = false;
  int result_ = 0;
  std::atomic<bool> threadDone_{false};
  EchoStreams echo_;
  const TaskCancel* cancel_ = nullptr;
  bool cancelled_ = false;
  Utf8ChunkDecoder stdoutDecoder_;
  Utf8ChunkDecoder stderrDecoder_;
};

// Runs `launchPath` with `arguments` (and `workingDirectory` unless empty)
// and answers its status. An empty launch path is refused with
// "ERROR: no task path specified.\n" on standard error and status 1. When
// `verbose`, the command line is echoed first as ">>> path arg1 arg2 \n"
// (each word followed by one space) and the child's output as it arrives.
// The gathered outputs are stored through the pointers that are not null.
// A `cancel` request stops the child; `cancelled` (when given) tells whether
// that is how it ended.
int RunTask(const std::string& launchPath, const std::vector<std::string>& arguments,
            const std::string& workingDirectory, std::string* standardOutput,
            std::string* standardError, bool verbose, const EchoStreams& echo = {},
            const TaskCancel* cancel = nullptr, bool* cancelled = nullptr);

// The echo line without ">>> " and line break: the launch path, one space,
// then each argument followed by one space.
std::string commandEchoLine(const std::string& launchPath, const std::vector<std::string>& arguments);

}  // namespace velmar::app

#endif  // VELMAR_APP_TASK_HELPER_H_
