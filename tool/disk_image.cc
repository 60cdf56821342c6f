#include "tool/disk_image.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <utility>

#include "engine/collection_extras.h"
#include "engine/log_object.h"
#include "base/safe_path.h"

extern char** environ;

namespace velmar::tool {

namespace {

// How deep below the unpack folder a bundle folder is looked for: images
// hold the bundle at their root or inside a volume folder.
constexpr int kBundleSearchDepth = 3;
// How much of a failing program's output is worth showing.
constexpr size_t kOutputTail = 800;

bool isFolder(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> subfolders(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return names;
  while (struct dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (isFolder(folder + "/" + name)) names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

// A path as a program argument that cannot pass for an option.
std::string pathArgument(const std::string& path) {
  return !path.empty() && path.front() == '-' ? "./" + path : path;
}

// What a failing program said, as one line for the log: its error lines,
// or else its last line.
std::string summary(const std::string& output) {
  std::vector<std::string> lines, errors;
  size_t start = 0;
  while (start < output.size()) {
    size_t end = output.find('\n', start);
    if (end == std::string::npos) end = output.size();
    std::string line = output.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (line.empty()) continue;
    std::string folded = upper(line);
    if (folded.find("ERROR") != std::string::npos || folded.find("FAILURE") != std::string::npos)
      errors.push_back(line);
    lines.push_back(std::move(line));
  }
  const std::vector<std::string>& shown = errors.empty() ? lines : errors;
  std::string text;
  for (size_t i = shown.size() > 3 ? shown.size() - 3 : 0; i < shown.size(); ++i)
    text += (text.empty() ? "" : " | ") + shown[i];
  if (text.size() > kOutputTail) text = text.substr(0, kOutputTail) + "...";
  return text.empty() ? "no output" : text;
}

void logProgramFailure(const std::string& what, const std::string& program, const ProgramRun& run) {
  LogObject& log = LogObject::sharedLogger();
  if (!run.started) {
    log.Log("XXX ERROR: %s: cannot run %s.", what, program);
  } else if (run.status < 0) {
    log.Log("XXX ERROR: %s: %s was killed.", what, program);
  } else {
    log.Log("XXX ERROR: %s: %s failed with status %d: %s", what, program, run.status,
            summary(run.output));
  }
}

}  // namespace

bool isDiskImagePath(std::string_view path) {
  std::string_view p = path;
  while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
  return hasSuffix(p, ".dmg", Compare::CaseInsensitive);
}

std::optional<std::string> findProgram(std::string_view name) {
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string_view::npos) {
    std::string path(name);
    if (::access(path.c_str(), X_OK) == 0) return path;
    return std::nullopt;
  }
  const char* pathVariable = ::getenv("PATH");
  std::string_view dirs = pathVariable ? pathVariable : "/usr/local/bin:/usr/bin:/bin";
  for (size_t start = 0; start <= dirs.size();) {
    size_t colon = dirs.find(':', start);
    if (colon == std::string_view::npos) colon = dirs.size();
    std::string dir(dirs.substr(start, colon - start));
    start = colon + 1;
    std::string candidate = (dir.empty() ? "." : dir) + "/" + std::string(name);
    struct stat st;
    if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0)
      return candidate;
  }
  return std::nullopt;
}

std::optional<std::string> findSevenZip() {
  for (const char* name : {"7z", "7zz", "7za"})
    if (auto path = findProgram(name)) return path;
  return std::nullopt;
}

std::optional<std::string> findXorriso() { return findProgram("xorriso"); }

ProgramRun runProgram(const std::string& program, const std::vector<std::string>& args) {
  ProgramRun run;
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return run;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 2);

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);

  pid_t pid;
  int err = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (err != 0) {
    ::close(pipeFds[0]);
    return run;
  }
  run.started = true;
  char buffer[4096];
  for (;;) {
    ssize_t n = ::read(pipeFds[0], buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    run.output.append(buffer, static_cast<size_t>(n));
    // Only the end is ever shown; keep memory bounded for chatty programs.
    if (run.output.size() > 64 * kOutputTail) run.output.erase(0, run.output.size() - kOutputTail);
  }
  ::close(pipeFds[0]);
  int wstatus = 0;
  while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
  }
  run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  return run;
}

bool unpackImage(const std::string& sevenZip, const std::string& image, const std::string& into) {
  // -snl is not given: links in the image come out as links, and the
  // bundle writer never follows one out of the bundle.
  ProgramRun run = runProgram(sevenZip, {"x", "-y", "-bd", "-o" + into, "--", pathArgument(image)});
  if (run.started && run.status == 0) return true;
  logProgramFailure("cannot unpack \"" + image + "\"", sevenZip, run);
  return false;
}

bool isIsoImage(const std::string& path) {
  // The primary volume descriptor's signature sits at byte 32769.
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char magic[5] = {};
  ssize_t n = ::pread(fd, magic, sizeof magic, 32769);
  ::close(fd);
  return n == static_cast<ssize_t>(sizeof magic) && std::string_view(magic, sizeof magic) == "CD001";
}

namespace {

int makeOwnerWritable(const char* path, const struct stat* st, int type, struct FTW*) {
  if (type == FTW_D || type == FTW_DP) ::chmod(path, (st->st_mode & 07777) | S_IRWXU);
  return 0;
}

}  // namespace

bool unpackIsoImage(const std::string& xorriso, const std::string& image, const std::string& into) {
  ProgramRun run = runProgram(xorriso, {"-osirrox", "on", "-indev", pathArgument(image), "-extract",
                                        "/", pathArgument(into)});
  ::nftw(into.c_str(), makeOwnerWritable, 16, FTW_PHYS);
  if (run.started && run.status == 0) return true;
  logProgramFailure("cannot unpack \"" + image + "\"", xorriso, run);
  return false;
}

std::optional<std::string> findBundleFolder(const std::string& folder) {
  // Breadth first, so the shallowest bundle wins.
  std::deque<std::pair<std::string, int>> queue = {{folder, 0}};
  while (!queue.empty()) {
    auto [current, depth] = queue.front();
    queue.pop_front();
    if (isFolder(current + "/Restore")) return current;
    if (depth == kBundleSearchDepth) continue;
    for (const std::string& name : subfolders(current))
      queue.emplace_back(current + "/" + name, depth + 1);
  }
  return std::nullopt;
}

bool makeImage(const std::string& xorriso, const std::string& folder, const std::string& image) {
  // Level 3 for files of 4 GiB and more, which restore images often are;
  // long Joliet names (up to 103 characters) for readers without Rock Ridge.
  ProgramRun run = runProgram(xorriso, {"-as", "mkisofs", "-R", "-J", "-joliet-long", "-iso-level",
                                        "3", "-o", pathArgument(image), pathArgument(folder)});
  if (run.started && run.status == 0) return true;
  logProgramFailure("cannot make the disk image \"" + image + "\"", xorriso, run);
  return false;
}

}  // namespace velmar::tool
