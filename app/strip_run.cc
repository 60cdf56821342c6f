#include "app/strip_run.h"

#include "base/staging_name.h"

#include <algorithm>
#include <filesystem>

#include "app/log_text.h"
#include "app/paths.h"
#include "base/text.h"
#include "base/format.h"

namespace velmar::app {

std::string mainWindowTitle(const std::string& name, const std::string& version) {
  return format("%@ %@", name, version);
}

std::string scanningSheetText(const std::string& sourcePath) {
  return format("Scanning \"%@\"...\n\n(see Log Window for details)", lastPathComponent(sourcePath));
}

std::string processingSheetText(const std::string& sourcePath) {
  return format("Processing \"%@\"...\n\n(see Log Window for details)", lastPathComponent(sourcePath));
}

std::string defaultStripFileName(const std::vector<std::string>& products,
                                 const std::vector<std::string>& variants,
                                 const std::string& sourcePath) {
  std::string name;
  for (const auto& product : products) name += upper(product) + "-";
  for (const auto& variant : variants) name += upper(variant) + "-";
  return name + lastPathComponent(sourcePath);
}

namespace {

// Tokens joined by "-", each followed by one.
std::string dashed(const std::vector<std::string>& tokens, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += tokens[i] + "-";
  return text;
}

std::string leftOut(size_t count) { return count ? format("+%d-", static_cast<long long>(count)) : std::string(); }

std::vector<std::string> upperAll(const std::vector<std::string>& names) {
  std::vector<std::string> result;
  for (const auto& name : names) result.push_back(upper(name));
  return result;
}

// `name` cut to `maxBytes`, keeping its extension when it has one.
std::string cutName(const std::string& name, size_t maxBytes) {
  if (name.size() <= maxBytes) return name;
  size_t dot = name.rfind('.');
  std::string extension = dot != std::string::npos && dot > 0 && name.size() - dot <= 8 ? name.substr(dot) : "";
  if (extension.size() >= maxBytes) extension.clear();
  size_t keep = maxBytes - extension.size();
  // Back off to the start of a character.
  while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
  return name.substr(0, keep) + extension;
}


}  // namespace

std::string fittingStripFileName(const std::vector<std::string>& products,
                                 const std::vector<std::string>& variants,
                                 const std::string& sourcePath, size_t maxBytes) {
  const std::string name = defaultStripFileName(products, variants, sourcePath);
  if (name.size() <= maxBytes) return name;
  const std::vector<std::string> p = upperAll(products), v = upperAll(variants);
  const std::string source = lastPathComponent(sourcePath);
  // Fewest products left out first, with every variant.
  for (size_t kept = p.size(); kept-- > 0;) {
    std::string candidate = dashed(p, kept) + leftOut(p.size() - kept) + dashed(v, v.size()) + source;
    if (candidate.size() <= maxBytes) return candidate;
  }
  for (size_t kept = v.size(); kept-- > 0;) {
    std::string candidate = leftOut(p.size()) + dashed(v, kept) + leftOut(v.size() - kept) + source;
    if (candidate.size() <= maxBytes) return candidate;
  }
  std::string marks = leftOut(p.size()) + leftOut(v.size());
  if (marks.size() >= maxBytes) marks.clear();
  return marks + cutName(source, maxBytes - marks.size());
}

std::vector<std::string> stagingLeftovers(const std::string& targetPath) {
  std::vector<std::string> found;
  std::string target = targetPath;
  while (target.size() > 1 && target.back() == '/') target.pop_back();
  const std::string prefix = stagingPrefix(lastPathComponent(target));
  std::string folder = parentFolder(target);
  if (folder.empty()) folder = ".";
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (stagingOwner(name, prefix))
      found.push_back(entry.path().string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

size_t removeStagingLeftovers(const std::string& targetPath) {
  size_t removed = 0;
  for (const auto& path : stagingLeftovers(targetPath)) {
    std::error_code error;
    // A copied read-only folder must be writable to be emptied.
    for (auto it = std::filesystem::recursive_directory_iterator(path, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
      if (it->is_directory(error) && !it->is_symlink(error))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, error);
    }
    std::filesystem::permissions(path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                 error);
    if (std::filesystem::remove_all(path, error) != static_cast<std::uintmax_t>(-1) && !error) ++removed;
  }
  return removed;
}

StripRun::StripRun(std::string launchPath, Arguments arguments, std::string sourcePath)
    : launchPath_(std::move(launchPath)),
      arguments_(std::move(arguments)),
      sourcePath_(std::move(sourcePath)),
      sessionOutput_(commandLine(launchPath_, arguments_)) {}

std::string StripRun::commandLine(const std::string& launchPath, const Arguments& arguments) {
  std::string line = launchPath;
  for (const auto& argument : arguments) line += " " + argument;
  return line + "\n";
}

std::vector<std::string> StripRun::startLogTexts(const std::tm& localTime) const {
  return {"\n", "\n", "\n", generateString("", true, false, localTime),
          commandLine(launchPath_, arguments_)};
}

std::vector<std::string> StripRun::startLogTexts() const { return startLogTexts(localTimeNow()); }

std::string StripRun::appendOutput(std::string_view bytes) {
  std::string text = decoder_.decode(bytes);
  sessionOutput_ += text;
  return text;
}

std::string StripRun::verb() const {
  bool strip = std::find(arguments_.begin(), arguments_.end(), "--target") != arguments_.end();
  return strip ? "Stripping" : "Validating";
}

RunEnd StripRun::finish(int status, const std::tm& localTime) const {
  RunEnd end;
  end.finished = status == 0;
  std::string name = lastPathComponent(sourcePath_);
  if (end.finished) {
    end.logText = generateString(format("%@ FINISHED.", verb()), true, true, localTime);
    end.sheetText = format("%@ \"%@\" finished.", verb(), name);
  } else {
    end.logText = generateString(format("%@ FAILED.", verb()), true, true, localTime);
    end.sheetText = format("%@ \"%@\" FAILED.\n\nSee Log Window for details.", verb(), name);
  }
  return end;
}

RunEnd StripRun::finish(int status) const { return finish(status, localTimeNow()); }

RunEnd StripRun::cancelled(const std::tm& localTime) const {
  RunEnd end;
  end.cancelled = true;
  end.logText = generateString(format("%@ cancelled.", verb()), true, true, localTime);
  end.sheetText = format("%@ \"%@\" cancelled.", verb(), lastPathComponent(sourcePath_));
  return end;
}

RunEnd StripRun::cancelled() const { return cancelled(localTimeNow()); }

std::string StripRun::target() const {
  auto it = std::find(arguments_.begin(), arguments_.end(), "--target");
  return it != arguments_.end() && it + 1 != arguments_.end() ? *(it + 1) : std::string();
}

}  // namespace velmar::app
