// Helpers shared by the velmarbs tests: small files on disk, listings, and
// running the built tool as a child process.

#ifndef VELMAR_TESTS_TOOL_TOOL_TEST_SUPPORT_H_
#define VELMAR_TESTS_TOOL_TOOL_TEST_SUPPORT_H_

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/plist_io.h"
#include "base/value.h"

namespace velmar::tool::testing {

namespace fs = std::filesystem;

inline void writeText(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline bool existsNoFollow(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

inline std::string linkText(const std::string& path) {
  std::error_code ec;
  return fs::read_symlink(path, ec).string();
}

// Every path below `root`, relative to it; links are listed, not entered.
inline std::set<std::string> listTree(const std::string& root) {
  std::set<std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
    out.insert(it->path().lexically_relative(root).string());
  return out;
}

// Names directly in `folder` that begin with `prefix` (staging leftovers).
inline std::vector<std::string> namesStartingWith(const std::string& folder,
                                                  const std::string& prefix) {
  std::vector<std::string> out;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::string name = entry.path().filename().string();
    if (name.rfind(prefix, 0) == 0) out.push_back(name);
  }
  return out;
}

// Whether a process is gone within two seconds: not there at all, or a
// zombie waiting for whoever inherited it.
inline bool processGone(pid_t pid) {
  for (int i = 0; i < 200; ++i) {
    if (::kill(pid, 0) != 0 && errno == ESRCH) return true;
    std::string stat = readText("/proc/" + std::to_string(pid) + "/stat");
    size_t paren = stat.rfind(')');
    if (paren != std::string::npos && stat.size() > paren + 2 && stat[paren + 2] == 'Z') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

struct ToolRun {
  int status = -1;  // the exit status; -1 when a signal ended the child
  int signal = 0;   // the signal that ended it, if one did
  std::string out;
  std::string err;
};

inline std::string velmarbsPath() { return VELMAR_BINARY_DIR "/tool/velmarbs"; }

// How the child is started: a non-empty `path` replaces PATH; `beforeExec`
// runs in the child after its output files are open (to drop privileges or
// set a limit). Every child gets an alarm, so a run that hangs fails its
// test instead of stopping the suite.
struct ChildSetup {
  std::string path;
  std::function<void()> beforeExec;
  unsigned alarmSeconds = 120;
};

// Starts velmarbs with `args`, standard input the null device, both output
// streams going to files in `scratch` (so neither pipe can fill up).
inline pid_t startVelmarbs(const std::vector<std::string>& args, const std::string& scratch,
                           const ChildSetup& setup = ChildSetup()) {
  const std::string outPath = scratch + "/.stdout", errPath = scratch + "/.stderr";
  std::vector<std::string> argStrings = args;
  std::string program = velmarbsPath();
  std::vector<char*> argv;
  argv.push_back(program.data());
  for (std::string& arg : argStrings) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = ::fork();
  if (pid == 0) {
    int in = ::open("/dev/null", O_RDONLY);
    int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (in < 0 || out < 0 || err < 0) ::_exit(127);
    if (!setup.path.empty()) ::setenv("PATH", setup.path.c_str(), 1);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    if (setup.beforeExec) setup.beforeExec();
    ::alarm(setup.alarmSeconds);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
  }
  return pid;
}

// Waits for a child startVelmarbs started and collects what it printed.
inline ToolRun finishVelmarbs(pid_t pid, const std::string& scratch) {
  const std::string outPath = scratch + "/.stdout", errPath = scratch + "/.stderr";
  ToolRun run;
  int wstatus = 0;
  ::waitpid(pid, &wstatus, 0);
  run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  run.signal = WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : 0;
  run.out = readText(outPath);
  run.err = readText(errPath);
  ::unlink(outPath.c_str());
  ::unlink(errPath.c_str());
  return run;
}

// Runs velmarbs with `args` to the end (see startVelmarbs).
inline ToolRun runVelmarbs(const std::vector<std::string>& args, const std::string& scratch,
                           const std::string& path = "") {
  ChildSetup setup;
  setup.path = path;
  return finishVelmarbs(startVelmarbs(args, scratch, setup), scratch);
}

inline ToolRun runVelmarbs(const std::vector<std::string>& args, const std::string& scratch,
                           const ChildSetup& setup) {
  return finishVelmarbs(startVelmarbs(args, scratch, setup), scratch);
}

// The property lists in a tool's standard output, cut out the way the
// desktop application cuts them: from each "<?xml " through "</plist>".
inline std::vector<Value> propertyListsIn(const std::string& text) {
  std::vector<Value> lists;
  for (size_t start = text.find("<?xml "); start != std::string::npos;
       start = text.find("<?xml ", start)) {
    size_t end = text.find("</plist>", start);
    if (end == std::string::npos) break;
    end += std::string("</plist>").size();
    lists.push_back(parsePropertyList(text.substr(start, end - start)));
    start = end;
  }
  return lists;
}

}  // namespace velmar::tool::testing

#endif  // VELMAR_TESTS_TOOL_TOOL_TEST_SUPPORT_H_
