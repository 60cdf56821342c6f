#include "app/child_stop.h"

#include <signal.h>

#include <cerrno>

namespace velmar::app {

void signalChild(pid_t pid, int signal) {
  if (pid <= 0) return;
  if (::kill(-pid, signal) != 0 && errno == ESRCH) ::kill(pid, signal);
}

void ChildStop::tick(Clock::time_point now) {
  if (!terminatedAt_) {
    signalChild(pid_, SIGTERM);
    terminatedAt_ = now;
    return;
  }
  if (!killed_ && now - *terminatedAt_ >= grace_) {
    signalChild(pid_, SIGKILL);
    killed_ = true;
  }
}

}  // namespace velmar::app
