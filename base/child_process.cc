#include "base/child_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string_view>

#include "base/unique_fd.h"

extern char** environ;

namespace velmar {

namespace {

int64_t nowMs() {
  struct timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The parent's environment with the request's entries replacing those of
// the same name.
std::vector<std::string> mergedEnvironment(const std::vector<std::string>& overrides) {
  auto nameOf = [](std::string_view entry) { return entry.substr(0, entry.find('=')); };
  std::vector<std::string> merged;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view name = nameOf(*entry);
    bool replaced = false;
    for (const std::string& o : overrides) replaced = replaced || nameOf(o) == name;
    if (!replaced) merged.emplace_back(*entry);
  }
  merged.insert(merged.end(), overrides.begin(), overrides.end());
  return merged;
}

void appendBounded(std::string* to, const char* bytes, size_t n, size_t limit, bool* truncated) {
  to->append(bytes, n);
  // Trimmed in chunks so a long stream is not shifted on every read.
  if (limit && to->size() > 2 * limit) {
    to->erase(0, to->size() - limit);
    *truncated = true;
  }
}

}  // namespace

ChildResult runChild(const ChildRequest& request) {
  ChildResult result;
  UniqueFd outRead, outWrite, errRead, errWrite;
  auto makePipe = [&](UniqueFd* readEnd, UniqueFd* writeEnd) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    readEnd->reset(fds[0]);
    writeEnd->reset(fds[1]);
    return true;
  };
  if ((request.out == ChildStream::Capture && !makePipe(&outRead, &outWrite)) ||
      (request.err == ChildStream::Capture && !makePipe(&errRead, &errWrite))) {
    result.startError = errno;
    return result;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  switch (request.out) {
    case ChildStream::Capture: posix_spawn_file_actions_adddup2(&actions, outWrite.get(), 1); break;
    case ChildStream::ToFd: posix_spawn_file_actions_adddup2(&actions, request.outFd, 1); break;
    default: posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0); break;
  }
  switch (request.err) {
    case ChildStream::Capture: posix_spawn_file_actions_adddup2(&actions, errWrite.get(), 2); break;
    case ChildStream::ToFd: posix_spawn_file_actions_adddup2(&actions, request.errFd, 2); break;
    case ChildStream::ToStdout: posix_spawn_file_actions_adddup2(&actions, 1, 2); break;
    default: posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0); break;
  }
  // The child starts with default signal handling and mask, whatever the
  // parent has set up for its own interruption.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(request.program.c_str()));
  for (const std::string& arg : request.args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> environment = mergedEnvironment(request.environment);
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);

  pid_t pid = -1;
  sigset_t saved;
  ::sigprocmask(SIG_BLOCK, &all, &saved);
  int err = ::posix_spawn(&pid, request.program.c_str(), &actions, &attributes, argv.data(),
                          envp.data());
  if (err == 0 && request.started) request.started(pid);
  ::sigprocmask(SIG_SETMASK, &saved, nullptr);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  outWrite.reset();
  errWrite.reset();
  if (err != 0) {
    result.startError = err;
    return result;
  }
  result.started = true;

  const int64_t deadline = request.timeoutMs > 0 ? nowMs() + request.timeoutMs : 0;
  char buffer[65536];
  while (outRead.valid() || errRead.valid()) {
    struct pollfd fds[2];
    int count = 0;
    if (outRead.valid()) fds[count++] = {outRead.get(), POLLIN, 0};
    if (errRead.valid()) fds[count++] = {errRead.get(), POLLIN, 0};
    int wait = -1;
    if (deadline) {
      int64_t left = deadline - nowMs();
      if (left <= 0) {
        result.timedOut = true;
        break;
      }
      wait = static_cast<int>(left);
    }
    int ready = ::poll(fds, static_cast<nfds_t>(count), wait);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) break;
    for (int i = 0; i < count; ++i) {
      if (!fds[i].revents) continue;
      const bool isOut = outRead.valid() && fds[i].fd == outRead.get();
      ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n <= 0) {
        (isOut ? outRead : errRead).reset();
        continue;
      }
      appendBounded(isOut ? &result.out : &result.err, buffer, static_cast<size_t>(n),
                    request.captureLimit, &result.truncated);
    }
  }

  // Waited for without reaping it, so that it can be reaped and forgotten
  // in one step below.
  int wstatus = 0;
  for (;;) {
    if (result.timedOut) ::kill(pid, SIGKILL);
    siginfo_t info = {};
    const int flags = WEXITED | WNOWAIT | (deadline && !result.timedOut ? WNOHANG : 0);
    if (::waitid(P_PID, static_cast<id_t>(pid), &info, flags) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (info.si_pid == pid) break;
    // Streams closed but the child lives on: wait for it within the limit.
    if (nowMs() >= deadline) {
      result.timedOut = true;
      continue;
    }
    ::usleep(2000);
  }
  ::sigprocmask(SIG_BLOCK, &all, &saved);
  if (request.ending) request.ending(pid);
  while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
  }
  ::sigprocmask(SIG_SETMASK, &saved, nullptr);
  if (WIFEXITED(wstatus)) {
    result.status = WEXITSTATUS(wstatus);
  } else if (WIFSIGNALED(wstatus)) {
    result.signal = WTERMSIG(wstatus);
  }
  return result;
}

std::string describeChildFailure(const ChildResult& result, const std::string& said) {
  if (!result.started) return std::string("could not be started: ") + strerror(result.startError);
  if (result.timedOut) return "took too long and was stopped";
  if (result.status < 0) return "was killed by signal " + std::to_string(result.signal);
  std::string text = "failed with status " + std::to_string(result.status);
  if (!said.empty()) text += ": " + said;
  return text;
}

}  // namespace velmar
