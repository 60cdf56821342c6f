#include "tool/cleanup.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmar::tool {

namespace {

// A run makes a staging folder and perhaps a folder for files extracted
// from an image, and runs one reader or writer at a time; a few more slots
// cost nothing.
constexpr int kSlots = 8;
constexpr int kChildSlots = 8;

struct Slot {
  volatile sig_atomic_t used;
  char path[PATH_MAX];
};

// The one piece of process-wide state here: a signal handler can reach
// nothing else. Changed only while the stop signals are held back, so the
// handler never sees a slot half written.
Slot slots[kSlots];
volatile sig_atomic_t children[kChildSlots];  // process ids; 0: free

const int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

void stopSignalSet(sigset_t* set) {
  sigemptyset(set);
  for (int sig : kStopSignals) sigaddset(set, sig);
}

struct Dirent64 {
  ino64_t d_ino;
  off64_t d_off;
  unsigned short d_reclen;
  unsigned char d_type;
  char d_name[];
};

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Opens the folder `name` below `dirFd` to empty it: never through a link,
// and made accessible first when it was copied read-only.
int openFolderToEmpty(int dirFd, const char* name) {
  struct stat st;
  if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) return -1;
  if ((st.st_mode & 0700) != 0700) ::fchmodat(dirFd, name, 0700, 0);
  return ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

void handleStop(int sig) {
  const int savedErrno = errno;
  // The children first: one still writing into a folder would refill it.
  for (volatile sig_atomic_t& child : children) {
    const pid_t pid = static_cast<pid_t>(child);
    if (pid <= 0) continue;
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  for (Slot& slot : slots)
    if (slot.used) removeTreeSignalSafe(slot.path);
  errno = savedErrno;
  ::_exit(128 + sig);
}

}  // namespace

// Without memory to hold a stack of folders, the walk keeps one descriptor:
// it descends into the first folder it cannot remove, and climbs back
// through ".." (the real parent, as it never entered a link) when a folder
// is empty or will not get emptier. Folders that would not empty are
// remembered by inode, a few of them, so they are not entered again; a
// budget bounds the walk whatever happens.
int removeTreeSignalSafe(const char* path) {
  char parent[PATH_MAX];
  size_t length = ::strlen(path);
  if (length == 0 || length >= sizeof parent) return ENAMETOOLONG;
  ::memcpy(parent, path, length + 1);
  while (length > 1 && parent[length - 1] == '/') parent[--length] = '\0';
  char* slash = ::strrchr(parent, '/');
  const char* name = parent;
  const char* folder = ".";
  if (slash) {
    *slash = '\0';
    name = slash + 1;
    folder = slash == parent ? "/" : parent;
  }
  if (*name == '\0' || isDotOrDotDot(name)) return EINVAL;

  int top = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (top < 0) return errno;
  struct stat st;
  if (::fstatat(top, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    int err = errno == ENOENT ? 0 : errno;
    ::close(top);
    return err;
  }
  if (!S_ISDIR(st.st_mode)) {
    int err = ::unlinkat(top, name, 0) == 0 ? 0 : errno;
    ::close(top);
    return err;
  }

  int fd = openFolderToEmpty(top, name);
  int depth = 0;
  ino_t stuck[64];
  int stuckCount = 0;
  for (long budget = 1000000; fd >= 0 && budget > 0; --budget) {
    alignas(8) char buffer[4096];
    bool progress = false, descended = false;
    ::lseek(fd, 0, SEEK_SET);
    for (;;) {
      long n = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
      if (n <= 0) break;
      for (long offset = 0; offset < n && !descended;) {
        const Dirent64* entry = reinterpret_cast<const Dirent64*>(buffer + offset);
        offset += entry->d_reclen;
        const char* child = entry->d_name;
        if (isDotOrDotDot(child)) continue;
        if (::unlinkat(fd, child, 0) == 0) {
          progress = true;
          continue;
        }
        if (errno != EISDIR && errno != EPERM) continue;
        if (::unlinkat(fd, child, AT_REMOVEDIR) == 0) {
          progress = true;
          continue;
        }
        bool known = false;
        for (int i = 0; i < stuckCount; ++i) known = known || stuck[i] == entry->d_ino;
        if (known) continue;
        int inner = openFolderToEmpty(fd, child);
        if (inner < 0) continue;
        ::close(fd);
        fd = inner;
        ++depth;
        descended = true;
      }
      if (descended) break;
    }
    if (descended) continue;
    // Removing entries while reading a folder may hide some from the
    // reading: look again until a pass removes nothing.
    if (progress) continue;
    if (depth == 0) break;
    struct stat here;
    if (stuckCount < 64 && ::fstat(fd, &here) == 0) {
      // Empty folders are removed from above; one still holding something
      // after a fruitless pass would not empty.
      alignas(8) char probe[4096];
      ::lseek(fd, 0, SEEK_SET);
      long n = ::syscall(SYS_getdents64, fd, probe, sizeof probe);
      bool empty = true;
      for (long offset = 0; offset < n;) {
        const Dirent64* entry = reinterpret_cast<const Dirent64*>(probe + offset);
        offset += entry->d_reclen;
        if (!isDotOrDotDot(entry->d_name)) empty = false;
      }
      if (!empty) stuck[stuckCount++] = here.st_ino;
    }
    int up = ::openat(fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    fd = up;
    --depth;
  }
  if (fd >= 0) ::close(fd);
  int err = ::unlinkat(top, name, AT_REMOVEDIR) == 0 ? 0 : errno;
  ::close(top);
  return err;
}

namespace {

// The handler cannot build paths, and the working folder may change: it
// gets absolute ones.
std::string absolute(const std::string& path) {
  if (path.empty() || path.front() == '/') return path;
  char cwd[PATH_MAX];
  if (!::getcwd(cwd, sizeof cwd)) return std::string();
  return std::string(cwd) + "/" + path;
}

}  // namespace

bool registerCleanupPath(const std::string& path) {
  const std::string full = absolute(path);
  if (full.empty() || full.size() >= PATH_MAX) return false;
  StopSignalsHeld held;
  for (Slot& slot : slots) {
    if (slot.used) continue;
    ::memcpy(slot.path, full.c_str(), full.size() + 1);
    slot.used = 1;
    return true;
  }
  return false;
}

void unregisterCleanupPath(const std::string& path) {
  const std::string full = absolute(path);
  StopSignalsHeld held;
  for (Slot& slot : slots)
    if (slot.used && full == slot.path) slot.used = 0;
}

bool registerCleanupChild(pid_t pid) {
  if (pid <= 0) return false;
  StopSignalsHeld held;
  for (volatile sig_atomic_t& child : children) {
    if (child != 0) continue;
    child = static_cast<sig_atomic_t>(pid);
    return true;
  }
  return false;
}

void unregisterCleanupChild(pid_t pid) {
  StopSignalsHeld held;
  for (volatile sig_atomic_t& child : children)
    if (child == static_cast<sig_atomic_t>(pid)) child = 0;
}

StopSignalsHeld::StopSignalsHeld() {
  sigset_t set;
  stopSignalSet(&set);
  ::sigprocmask(SIG_BLOCK, &set, &saved_);
}

StopSignalsHeld::~StopSignalsHeld() { ::sigprocmask(SIG_SETMASK, &saved_, nullptr); }

void installStopHandlers() {
  struct sigaction action = {};
  action.sa_handler = handleStop;
  // One stop at a time: a second signal waits for the first cleanup.
  stopSignalSet(&action.sa_mask);
  for (int sig : kStopSignals) {
    struct sigaction old;
    // A signal ignored by whoever started the tool (nohup) stays ignored.
    if (::sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
    ::sigaction(sig, &action, nullptr);
  }
  ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace velmar::tool
