// Helpers for the widget tests: waiting on the event loop, a recorder for
// the system log, and reading a file back.

#ifndef VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_
#define VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_

#include <dirent.h>
#include <unistd.h>

#include <QTest>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "app/system_log.h"

namespace velmar::app::testing {

// Runs the event loop until `done` or 20 seconds have passed.
inline bool waitFor(const std::function<bool()>& done) { return QTest::qWaitFor(done, 20000); }

inline std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The test's own child processes, zombies included: what a stopped tool
// would leave behind.
inline std::vector<pid_t> childProcesses() {
  std::vector<pid_t> children;
  DIR* proc = ::opendir("/proc");
  if (!proc) return children;
  while (dirent* entry = ::readdir(proc)) {
    const pid_t pid = static_cast<pid_t>(std::atoi(entry->d_name));
    if (pid <= 0) continue;
    std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
    std::string line;
    std::getline(stat, line);
    // pid (name) state ppid ...; the name may hold spaces, the ")" ends it.
    const size_t close = line.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream rest(line.substr(close + 1));
    std::string state;
    pid_t parent = 0;
    rest >> state >> parent;
    if (parent == ::getpid()) children.push_back(pid);
  }
  ::closedir(proc);
  return children;
}

// Keeps what would have gone to the system log.
class SystemLogRecorder {
 public:
  TextSink sink() {
    return [this](const std::string& text) {
      std::lock_guard lock(mutex_);
      lines_.push_back(text);
    };
  }
  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace velmar::app::testing

#endif  // VELMAR_TESTS_UI_UI_TEST_SUPPORT_H_
