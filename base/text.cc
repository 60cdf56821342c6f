#include "base/text.h"

#include <algorithm>

namespace velmar {

namespace {

char fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameText(std::string_view a, std::string_view b, Compare how) {
  if (a.size() != b.size()) return false;
  if (how == Compare::Literal) return a == b;
  for (size_t i = 0; i < a.size(); ++i)
    if (fold(a[i]) != fold(b[i])) return false;
  return true;
}

}  // namespace

bool hasPrefix(std::string_view s, std::string_view affix, Compare how) {
  if (affix.empty() || affix.size() > s.size()) return false;
  return sameText(s.substr(0, affix.size()), affix, how);
}

bool hasSuffix(std::string_view s, std::string_view affix, Compare how) {
  if (affix.empty() || affix.size() > s.size()) return false;
  return sameText(s.substr(s.size() - affix.size()), affix, how);
}

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = fold(c);
  return out;
}

bool containsIgnoringCase(std::string_view s, std::string_view part) {
  if (part.empty() || part.size() > s.size()) return false;
  return lower(s).find(lower(part)) != std::string::npos;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return sameText(a, b, Compare::CaseInsensitive);
}

void sortIgnoringCase(std::vector<std::string>& names) {
  std::sort(names.begin(), names.end(),
            [](const std::string& a, const std::string& b) { return caseInsensitiveLess(a, b); });
}

std::string joinNames(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) {
    if (!joined.empty()) joined += ", ";
    joined += name;
  }
  return joined;
}

std::string joinSortedNames(std::vector<std::string> names) {
  sortIgnoringCase(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return joinNames(names);
}

std::string lastPathComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

std::string appendingPathComponent(std::string_view folder, std::string_view name) {
  if (folder.empty()) return std::string(name);
  std::string joined(folder);
  if (joined.back() != '/') joined += '/';
  return joined.append(name);
}

int caseInsensitiveCompare(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char x = fold(a[i]), y = fold(b[i]);
    if (x != y) return static_cast<unsigned char>(x) < static_cast<unsigned char>(y) ? -1 : 1;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return 0;
}

bool caseInsensitiveLess(std::string_view a, std::string_view b) {
  int c = caseInsensitiveCompare(a, b);
  return c != 0 ? c < 0 : a < b;
}

}  // namespace velmar
