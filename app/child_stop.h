// Ending a child process the user no longer wants: SIGTERM first, so the
// tool can stop as it would at any other signal, then SIGKILL when it has
// not ended after a grace period. Children are started in a process group
// of their own and the whole group is signalled, so helpers the tool runs
// (the disk-image tool) end with it.

#ifndef VELMAR_APP_CHILD_STOP_H_
#define VELMAR_APP_CHILD_STOP_H_

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <optional>

namespace velmar::app {

using Milliseconds = std::chrono::milliseconds;

// Long enough for the tool to remove what it staged, short enough that
// Cancel feels like it works.
inline constexpr Milliseconds kStopGrace{3000};

// Sends `signal` to the process group led by `pid`, or to `pid` alone when
// it has no group of its own. Never signals anything for pid <= 0.
void signalChild(pid_t pid, int signal);

// A request, made on any thread, that the running task end. The task that
// is given it (TaskHelper) carries it out and reports that it was cancelled.
class TaskCancel {
 public:
  explicit TaskCancel(Milliseconds grace = kStopGrace) : grace_(grace) {}
  TaskCancel(const TaskCancel&) = delete;
  TaskCancel& operator=(const TaskCancel&) = delete;

  void request() { requested_.store(true, std::memory_order_release); }
  void reset() { requested_.store(false, std::memory_order_release); }
  bool requested() const { return requested_.load(std::memory_order_acquire); }
  Milliseconds grace() const { return grace_; }

 private:
  std::atomic<bool> requested_{false};
  Milliseconds grace_;
};

// The stopping of one child, driven by the loop that waits for it: `tick`
// sends SIGTERM on its first call and SIGKILL on the first call at least
// `grace` later.
class ChildStop {
 public:
  using Clock = std::chrono::steady_clock;
  ChildStop(pid_t pid, Milliseconds grace) : pid_(pid), grace_(grace) {}

  void tick(Clock::time_point now);
  bool terminated() const { return terminatedAt_.has_value(); }
  bool killed() const { return killed_; }

 private:
  pid_t pid_;
  Milliseconds grace_;
  std::optional<Clock::time_point> terminatedAt_;
  bool killed_ = false;
};

}  // namespace velmar::app

#endif  // VELMAR_APP_CHILD_STOP_H_
