#include "app/paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace velmar::app {

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::string expandTilde(std::string_view path) {
  if (path.empty() || path[0] != '~') return std::string(path);
  return expandTilde(path, homeFolder());
}

std::string expandTilde(std::string_view path, std::string_view home) {
  if (path.empty() || path[0] != '~') return std::string(path);
  size_t slash = path.find('/');
  std::string_view user = path.substr(1, slash == std::string_view::npos ? path.npos : slash - 1);
  std::string_view rest = slash == std::string_view::npos ? std::string_view() : path.substr(slash);
  std::string base;
  if (user.empty()) {
    base = home;
  } else {
    const passwd* pw = getpwnam(std::string(user).c_str());
    if (!pw || !pw->pw_dir) return std::string(path);
    base = pw->pw_dir;
  }
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  if (base == "/" && !rest.empty()) return std::string(rest);
  return base + std::string(rest);
}

std::string abbreviateTilde(std::string_view path, std::string_view home) {
  while (home.size() > 1 && home.back() == '/') home.remove_suffix(1);
  if (home.empty() || home == "/" || path.substr(0, home.size()) != home) return std::string(path);
  std::string_view rest = path.substr(home.size());
  if (!rest.empty() && rest[0] != '/') return std::string(path);  // "/home/annex" is not under "/home/ann"
  return "~" + std::string(rest);
}

std::string abbreviateTilde(std::string_view path) { return abbreviateTilde(path, homeFolder()); }

std::string lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return "/";
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string parentFolder(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return std::string();
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string pathFromPastedText(std::string_view text) {
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front())
    text = text.substr(1, text.size() - 2);
  constexpr std::string_view kFileScheme = "file://";
  if (text.substr(0, kFileScheme.size()) != kFileScheme) return std::string(text);
  text.remove_prefix(kFileScheme.size());
  // "file://localhost/x" and "file:///x" both name /x.
  if (!text.empty() && text.front() != '/') {
    size_t slash = text.find('/');
    text = slash == std::string_view::npos ? std::string_view() : text.substr(slash);
  }
  std::string path;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      path += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      path += text[i];
    }
  }
  return path;
}

bool itemExistsAtPath(std::string_view path) {
  struct stat st;
  return ::stat(expandTilde(path).c_str(), &st) == 0;
}

namespace {

bool isExecutableFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::string findTool(std::string_view executableFolder) {
  std::string folder(executableFolder);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  std::string prefix = parentFolder(folder);
  if (prefix == "/") prefix.clear();  // "/bin" gives "/libexec/..."
  std::vector<std::string> candidates = {
      prefix + "/libexec/" + kToolName + "/" + kToolName,
      folder + "/" + kToolName,
      prefix + "/libexec/" + kToolName,
  };
  for (const auto& candidate : candidates) {
    if (isExecutableFile(candidate)) return candidate;
  }
  return candidates.front();
}

}  // namespace velmar::app
