#include "base/safe_path.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <deque>

#include "base/plist_text.h"
#include "base/unique_fd.h"
#include "base/utf8.h"

namespace velmar {

namespace {

// As the kernel's own limit on links followed in one lookup.
constexpr int kMaxLinks = 40;


}  // namespace

std::string readLinkAt(int dirFd, const std::string& name) {
  std::string text(256, '\0');
  for (;;) {
    ssize_t n = ::readlinkat(dirFd, name.c_str(), text.data(), text.size());
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < text.size()) {
      text.resize(n);
      return text;
    }
    text.resize(text.size() * 2);
  }
}

std::vector<std::string> splitPath(std::string_view path) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t slash = path.find('/', start);
    parts.emplace_back(path.substr(start, slash == std::string_view::npos ? slash : slash - start));
    if (slash == std::string_view::npos) return parts;
    start = slash + 1;
  }
}

std::string parentPath(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

std::string lastComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string relativePathProblem(std::string_view path) {
  if (path.empty()) return "is empty";
  if (path.find('\0') != std::string_view::npos) return "holds a NUL character";
  if (path.front() == '/') return "is absolute";
  // Component by component without copies: an image's listing checks every
  // one of its paths this way each time it is read.
  for (size_t start = 0;;) {
    const size_t slash = path.find('/', start);
    const std::string_view part = path.substr(start, slash == std::string_view::npos ? slash : slash - start);
    if (part.empty()) return "has an empty component";
    if (part == "..") return "has a \"..\" component";
    if (part == ".") return "has a \".\" component";
    if (slash == std::string_view::npos) return std::string();
    start = slash + 1;
  }
}

std::string nameTextProblem(std::string_view name) {
  for (unsigned char c : name)
    if (c < 0x20 || c == 0x7f) return "holds a control character";
  if (!isValidUtf8(name)) return "is not valid UTF-8";
  if (!isPropertyListText(name)) return "holds a character a property list cannot hold";
  return std::string();
}

std::optional<std::string> resolveLinkText(std::string_view linkPath, std::string_view text) {
  if (text.empty() || text.front() == '/' || text.find('\0') != std::string_view::npos)
    return std::nullopt;
  std::vector<std::string> parts;
  std::string folder = parentPath(linkPath);
  if (!folder.empty()) parts = splitPath(folder);
  for (const std::string& part : splitPath(text)) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (parts.empty()) return std::nullopt;
      parts.pop_back();
    } else {
      parts.push_back(part);
    }
  }
  if (parts.empty()) return std::nullopt;
  std::string joined;
  for (const std::string& part : parts) joined += (joined.empty() ? "" : "/") + part;
  return joined;
}

int openBeneath(int rootFd, std::string_view path, int flags) {
  if (path.empty()) path = ".";
  std::string p(path);
  struct open_how how = {};
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  // EAGAIN: a rename raced with the lookup; the kernel asks for a retry.
  for (int attempt = 0; attempt < 8; ++attempt) {
    long fd = ::syscall(SYS_openat2, rootFd, p.c_str(), &how, sizeof(how));
    if (fd >= 0) return static_cast<int>(fd);
    if (errno == ENOSYS) return openBeneathByWalk(rootFd, path, flags);
    if (errno != EAGAIN) return -errno;
  }
  return -EAGAIN;
}

int openBeneathByWalk(int rootFd, std::string_view path, int flags) {
  std::deque<std::string> pending;
  for (std::string& part : splitPath(path)) pending.push_back(std::move(part));
  // The folders walked into below the root; ".." steps back out of them.
  std::vector<UniqueFd> folders;
  int links = 0;
  auto current = [&] { return folders.empty() ? rootFd : folders.back().get(); };

  while (!pending.empty()) {
    std::string part = std::move(pending.front());
    pending.pop_front();
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (folders.empty()) return -EXDEV;
      folders.pop_back();
      continue;
    }
    const bool last = pending.empty();
    struct stat st;
    if (::fstatat(current(), part.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    if (S_ISLNK(st.st_mode) && !(last && (flags & O_NOFOLLOW))) {
      if (++links > kMaxLinks) return -ELOOP;
      std::string text = readLinkAt(current(), part);
      if (text.empty()) return -ENOENT;
      if (text.front() == '/') return -EXDEV;
      std::vector<std::string> expansion = splitPath(text);
      pending.insert(pending.begin(), expansion.begin(), expansion.end());
      continue;
    }
    if (last) {
      int fd = ::openat(current(), part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
      return fd >= 0 ? fd : -errno;
    }
    int fd = ::openat(current(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return -errno;
    folders.emplace_back(fd);
  }
  // The path ended at a folder ("", "a/..", or a link to a folder).
  int fd = ::openat(current(), ".", flags | O_CLOEXEC);
  return fd >= 0 ? fd : -errno;
}

int makeFoldersBeneath(int rootFd, std::string_view path, unsigned mode) {
  UniqueFd folder(::openat(rootFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) return -errno;
  if (path.empty()) return folder.release();
  for (const std::string& part : splitPath(path)) {
    if (part.empty() || part == "." || part == "..") return -EINVAL;
    if (::mkdirat(folder.get(), part.c_str(), mode) != 0 && errno != EEXIST) return -errno;
    // O_NOFOLLOW: an existing link here fails (ELOOP) instead of leading out.
    int next =
        ::openat(folder.get(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) return -errno;
    folder.reset(next);
  }
  return folder.release();
}

namespace {

// The real path of the folder of `p` joined with its last component.
std::optional<std::string> realFolderPlusLeaf(const std::string& p) {
  char resolved[PATH_MAX];
  std::string leaf = lastComponent(p);
  if (leaf.empty() || leaf == "." || leaf == "..") return std::nullopt;
  // "name" lies in ".", "/name" in "/".
  std::string folder = p.find('/') == std::string::npos ? std::string(".") : parentPath(p);
  if (!::realpath(folder.empty() ? "/" : folder.c_str(), resolved)) return std::nullopt;
  std::string result(resolved);
  return result == "/" ? "/" + leaf : result + "/" + leaf;
}

std::string withoutTrailingSlashes(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return p;
}

}  // namespace

std::optional<std::string> canonicalPath(const std::string& path) {
  std::string p = withoutTrailingSlashes(path);
  char resolved[PATH_MAX];
  if (::realpath(p.c_str(), resolved)) return std::string(resolved);
  if (errno != ENOENT) return std::nullopt;
  return realFolderPlusLeaf(p);
}

std::optional<std::string> canonicalEntryPath(const std::string& path) {
  std::string p = withoutTrailingSlashes(path);
  std::string leaf = lastComponent(p);
  if (leaf.empty() || leaf == "." || leaf == "..") return canonicalPath(p);
  return realFolderPlusLeaf(p);
}

std::optional<std::string> anticipatedPath(const std::string& path) {
  std::string absolute = path;
  if (absolute.empty() || absolute.front() != '/') {
    char cwd[PATH_MAX];
    if (!::getcwd(cwd, sizeof cwd)) return std::nullopt;
    absolute = std::string(cwd) + "/" + absolute;
  }
  std::vector<std::string> parts;
  for (std::string& part : splitPath(absolute))
    if (!part.empty()) parts.push_back(std::move(part));
  // The longest prefix that exists is resolved by the kernel, links and all.
  for (size_t existing = parts.size() + 1; existing-- > 0;) {
    std::string prefix;
    for (size_t i = 0; i < existing; ++i) prefix += "/" + parts[i];
    char resolved[PATH_MAX];
    if (!::realpath(prefix.empty() ? "/" : prefix.c_str(), resolved)) continue;
    std::vector<std::string> result;
    for (std::string& part : splitPath(resolved))
      if (!part.empty()) result.push_back(std::move(part));
    for (size_t i = existing; i < parts.size(); ++i) {
      if (parts[i] == ".") continue;
      if (parts[i] == "..") {
        if (!result.empty()) result.pop_back();
        continue;
      }
      result.push_back(parts[i]);
    }
    std::string out;
    for (const std::string& part : result) out += "/" + part;
    return out.empty() ? "/" : out;
  }
  return std::nullopt;
}

bool pathsOverlap(const std::string& a, const std::string& b) {
  auto inside = [](const std::string& inner, const std::string& outer) {
    if (outer == "/") return true;
    return inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 &&
           inner[outer.size()] == '/';
  };
  return a == b || inside(a, b) || inside(b, a);
}

}  // namespace velmar
