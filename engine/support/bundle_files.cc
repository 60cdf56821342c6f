#include "engine/support/bundle_files.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace velmar {

std::string bundlePath(const std::string& root, const std::string& relative) {
  if (relative.empty()) return root;
  if (root.empty()) return relative;
  if (root.back() == '/') return root + relative;
  return root + "/" + relative;
}

bool existsInBundle(const std::string& root, const std::string& relative) {
  struct stat info;
  return ::stat(bundlePath(root, relative).c_str(), &info) == 0;
}

std::optional<std::string> linkTargetInBundle(const std::string& root, const std::string& relative) {
  const std::string path = bundlePath(root, relative);
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return std::nullopt;
  // st_size is the target's length, but procfs-like files report 0; grow
  // until the target fits.
  std::string target(info.st_size > 0 ? static_cast<size_t>(info.st_size) + 1 : 256, '\0');
  for (;;) {
    ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n < 0) return std::nullopt;
    if (static_cast<size_t>(n) < target.size()) {
      target.resize(static_cast<size_t>(n));
      return target;
    }
    target.resize(target.size() * 2);
  }
}

std::vector<std::string> namesOnDisk(const std::string& root, const std::string& relative) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(bundlePath(root, relative).c_str());
  if (!dir) return names;
  while (struct dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}


}  // namespace velmar
