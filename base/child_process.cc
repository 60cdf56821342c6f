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

#include <algorithm>
#include <string_view>
#include <utility>

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

namespace {

// A started child and the read ends of its captured streams.
struct Running {
  pid_t pid = -1;
  UniqueFd outRead, errRead;
  int64_t deadline = 0;  // 0: none
};

// Starts the child `request` asks for; false, with the reason in `result`,
// when it cannot.
bool start(const ChildRequest& request, ChildResult* result, Running* running) {
  UniqueFd outWrite, errWrite;
  auto makePipe = [&](UniqueFd* readEnd, UniqueFd* writeEnd) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    readEnd->reset(fds[0]);
    writeEnd->reset(fds[1]);
    return true;
  };
  if ((request.out == ChildStream::Capture && !makePipe(&running->outRead, &outWrite)) ||
      (request.err == ChildStream::Capture && !makePipe(&running->errRead, &errWrite))) {
    result->startError = errno;
    return false;
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

  sigset_t saved;
  ::sigprocmask(SIG_BLOCK, &all, &saved);
  int err = ::posix_spawn(&running->pid, request.program.c_str(), &actions, &attributes,
                          argv.data(), envp.data());
  if (err == 0 && request.started) request.started(running->pid);
  ::sigprocmask(SIG_SETMASK, &saved, nullptr);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (err != 0) {
    running->outRead.reset();
    running->errRead.reset();
    result->startError = err;
    return false;
  }
  result->started = true;
  running->deadline = request.timeoutMs > 0 ? nowMs() + request.timeoutMs : 0;
  return true;
}

// Reads what every started child writes to its captured streams until all
// of them are closed or their time is up. One loop for all, so that no
// child stalls on a full pipe while another one is read.
void drain(const std::vector<ChildRequest>& requests, std::vector<Running>& running,
           std::vector<ChildResult>& results) {
  char buffer[65536];
  std::vector<struct pollfd> fds;
  std::vector<std::pair<size_t, bool>> owners;  // child, whether standard output
  for (;;) {
    fds.clear();
    owners.clear();
    int wait = -1;
    const int64_t now = nowMs();
    for (size_t i = 0; i < running.size(); ++i) {
      Running& child = running[i];
      if (!child.outRead.valid() && !child.errRead.valid()) continue;
      if (child.deadline) {
        const int64_t left = child.deadline - now;
        if (left <= 0) {
          results[i].timedOut = true;
          child.outRead.reset();
          child.errRead.reset();
          continue;
        }
        wait = wait < 0 ? static_cast<int>(left) : std::min(wait, static_cast<int>(left));
      }
      if (child.outRead.valid()) {
        fds.push_back({child.outRead.get(), POLLIN, 0});
        owners.emplace_back(i, true);
      }
      if (child.errRead.valid()) {
        fds.push_back({child.errRead.get(), POLLIN, 0});
        owners.emplace_back(i, false);
      }
    }
    if (fds.empty()) return;
    int ready = ::poll(fds.data(), static_cast<nfds_t>(fds.size()), wait);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return;
    for (size_t f = 0; f < fds.size(); ++f) {
      if (!fds[f].revents) continue;
      const auto [i, isOut] = owners[f];
      ssize_t n = ::read(fds[f].fd, buffer, sizeof buffer);
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n <= 0) {
        (isOut ? running[i].outRead : running[i].errRead).reset();
        continue;
      }
      appendBounded(isOut ? &results[i].out : &results[i].err, buffer, static_cast<size_t>(n),
                    requests[i].captureLimit, &results[i].truncated);
    }
  }
}

// Waits for a started child to end, within its time limit, and reaps it.
void finish(const ChildRequest& request, const Running& child, ChildResult* result) {
  // Waited for without reaping it, so that it can be reaped and forgotten
  // in one step below.
  const pid_t pid = child.pid;
  for (;;) {
    if (result->timedOut) ::kill(pid, SIGKILL);
    siginfo_t info = {};
    const int flags = WEXITED | WNOWAIT | (child.deadline && !result->timedOut ? WNOHANG : 0);
    if (::waitid(P_PID, static_cast<id_t>(pid), &info, flags) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (info.si_pid == pid) break;
    // Streams closed but the child lives on: wait for it within the limit.
    if (nowMs() >= child.deadline) {
      result->timedOut = true;
      continue;
    }
    ::usleep(2000);
  }
  sigset_t all, saved;
  sigfillset(&all);
  ::sigprocmask(SIG_BLOCK, &all, &saved);
  if (request.ending) request.ending(pid);
  int wstatus = 0;
  while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
  }
  ::sigprocmask(SIG_SETMASK, &saved, nullptr);
  if (WIFEXITED(wstatus)) {
    result->status = WEXITSTATUS(wstatus);
  } else if (WIFSIGNALED(wstatus)) {
    result->signal = WTERMSIG(wstatus);
  }
}

}  // namespace

std::vector<ChildResult> runChildren(const std::vector<ChildRequest>& requests) {
  std::vector<ChildResult> results(requests.size());
  std::vector<Running> running(requests.size());
  for (size_t i = 0; i < requests.size(); ++i) start(requests[i], &results[i], &running[i]);
  drain(requests, running, results);
  for (size_t i = 0; i < requests.size(); ++i)
    if (results[i].started) finish(requests[i], running[i], &results[i]);
  return results;
}

ChildResult runChild(const ChildRequest& request) {
  return std::move(runChildren({request}).front());
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
