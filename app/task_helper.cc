#include "app/task_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>

extern char** environ;

namespace velmar::app {

namespace {

constexpr int kSliceMilliseconds = 100;
constexpr useconds_t kPollMicroseconds = 100000;

// The end of a pipe, closed with its owner.
class PipeEnd {
 public:
  PipeEnd() = default;
  PipeEnd(const PipeEnd&) = delete;
  PipeEnd& operator=(const PipeEnd&) = delete;
  ~PipeEnd() { reset(); }
  int get() const { return fd_; }
  int* address() { return &fd_; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// Both ends close on exec, so the child keeps only what the spawn actions
// duplicate onto 1 and 2.
bool makePipe(PipeEnd& read, PipeEnd& write) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  *read.address() = fds[0];
  *write.address() = fds[1];
  // Only our end is non-blocking: the flag lives in the shared file
  // description, and the child's writes must still block on a full pipe.
  int flags = ::fcntl(fds[0], F_GETFL);
  return flags >= 0 && ::fcntl(fds[0], F_SETFL, flags | O_NONBLOCK) == 0;
}

// The spawn's error number, 0 on success.
int spawnChild(const Task& task, int stdoutFd, int stderrFd, pid_t* pid) {
  // A process group of its own, so that stopping it reaches what it runs.
  posix_spawnattr_t attributes;
  if (int err = posix_spawnattr_init(&attributes)) return err;
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawn_file_actions_t actions;
  if (int err = posix_spawn_file_actions_init(&actions)) {
    posix_spawnattr_destroy(&attributes);
    return err;
  }
  int err = posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (!err) err = posix_spawn_file_actions_adddup2(&actions, stdoutFd, 1);
  if (!err) err = posix_spawn_file_actions_adddup2(&actions, stderrFd, 2);
  if (!err && !task.currentDirectory.empty())
    err = posix_spawn_file_actions_addchdir_np(&actions, task.currentDirectory.c_str());
  if (!err) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(task.launchPath.c_str()));
    for (const auto& argument : task.arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    err = posix_spawn(pid, task.launchPath.c_str(), &actions, &attributes, argv.data(), environ);
  }
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return err;
}

int terminationStatus(int waitStatus) {
  if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
  if (WIFSIGNALED(waitStatus)) return WTERMSIG(waitStatus);
  return 1;
}

}  // namespace

TaskHelper::TaskHelper(Task task) : task_(std::move(task)) {}

int TaskHelper::run() {
  threadDone_.store(false, std::memory_order_release);
  try {
    std::thread worker(&TaskHelper::taskThread, this);
    while (!threadDone()) ::usleep(kPollMicroseconds);
    worker.join();
  } catch (const std::system_error&) {
    // No thread to be had: do the same work here rather than fail the run.
    taskThread();
  }
  return result_;
}

bool TaskHelper::dataAvail(int fd, Utf8ChunkDecoder& decoder, std::string& output, FILE* echo) {
  char buffer[65536];
  while (true) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    std::string text = decoder.decode(std::string_view(buffer, static_cast<size_t>(n)));
    if (text.empty()) continue;
    output += text;
    if (verbose_) {
      std::fputs(text.c_str(), echo);
      std::fflush(echo);
    }
  }
}

void TaskHelper::taskThread() {
  if (cancel_ && cancel_->requested()) {
    cancelled_ = true;
    result_ = 1;
    threadDone_.store(true, std::memory_order_release);
    return;
  }
  PipeEnd outRead, outWrite, errRead, errWrite;
  pid_t pid = -1;
  bool launched = makePipe(outRead, outWrite) && makePipe(errRead, errWrite) &&
                  spawnChild(task_, outWrite.get(), errWrite.get(), &pid) == 0;
  if (!launched) {
    std::fprintf(echo_.err, "ERROR: threw an exception launching %s", task_.launchPath.c_str());
    std::fflush(echo_.err);
    result_ = 1;
    threadDone_.store(true, std::memory_order_release);
    return;
  }
  // Our copies of the write ends would keep the pipes from ever ending.
  outWrite.reset();
  errWrite.reset();

  bool outOpen = true, errOpen = true;
  int waitStatus = 0;
  std::optional<ChildStop> stop;
  while (true) {
    if (cancel_ && cancel_->requested()) {
      if (!stop) stop.emplace(pid, cancel_->grace());
      stop->tick(ChildStop::Clock::now());
      cancelled_ = true;
    }
    pollfd fds[2];
    nfds_t count = 0;
    if (outOpen) fds[count++] = {outRead.get(), POLLIN, 0};
    if (errOpen) fds[count++] = {errRead.get(), POLLIN, 0};
    int ready = ::poll(fds, count, kSliceMilliseconds);
    if (ready > 0) {
      for (nfds_t i = 0; i < count; ++i) {
        if (!fds[i].revents) continue;
        if (fds[i].fd == outRead.get())
          outOpen = dataAvail(outRead.get(), stdoutDecoder_, stdoutOutput_, echo_.out);
        else
          errOpen = dataAvail(errRead.get(), stderrDecoder_, stderrOutput_, echo_.err);
      }
    }
    pid_t done = ::waitpid(pid, &waitStatus, WNOHANG);
    if (done == pid) break;
    if (done < 0 && errno != EINTR) {
      waitStatus = 0;
      break;
    }
  }
  result_ = terminationStatus(waitStatus);
  // Whatever the stopped tool had started itself goes too.
  if (stop) ::kill(-pid, SIGKILL);
  // What the child wrote just before it ended is still in the pipes. A
  // grandchild holding them open must not keep us here, so read only what
  // is there now.
  if (outOpen) dataAvail(outRead.get(), stdoutDecoder_, stdoutOutput_, echo_.out);
  if (errOpen) dataAvail(errRead.get(), stderrDecoder_, stderrOutput_, echo_.err);
  threadDone_.store(true, std::memory_order_release);
}

std::string commandEchoLine(const std::string& launchPath, const std::vector<std::string>& arguments) {
  std::string line = launchPath + " ";
  for (const auto& argument : arguments) line += argument + " ";
  return line;
}

int RunTask(const std::string& launchPath, const std::vector<std::string>& arguments,
            const std::string& workingDirectory, std::string* standardOutput,
            std::string* standardError, bool verbose, const EchoStreams& echo,
            const TaskCancel* cancel, bool* cancelled) {
  TaskHelper helper(Task{launchPath, arguments, workingDirectory});
  helper.setEchoStreams(echo);
  helper.setCancel(cancel);
  int status;
  if (launchPath.empty()) {
    std::fputs("ERROR: no task path specified.\n", echo.err);
    std::fflush(echo.err);
    status = 1;
  } else {
    if (verbose) {
      std::fprintf(echo.out, ">>> %s\n", commandEchoLine(launchPath, arguments).c_str());
      std::fflush(echo.out);
    }
    helper.setVerbose(verbose);
    status = helper.run();
  }
  if (standardOutput) *standardOutput = helper.stdoutOutput();
  if (standardError) *standardError = helper.stderrOutput();
  if (cancelled) *cancelled = helper.cancelled();
  return status;
}

}  // namespace velmar::app
