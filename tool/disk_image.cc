#include "tool/disk_image.h"

#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "base/child_process.h"
#include "base/safe_path.h"
#include "base/text.h"
#include "base/unique_fd.h"
#include "engine/log_object.h"
#include "tool/cleanup.h"

namespace velmar::tool {

namespace {

// How much of a failing program's output is worth showing.
constexpr size_t kOutputTail = 800;
// What a listing may grow to: a few hundred bytes per entry, so room for
// far more entries than any bundle holds.
constexpr size_t kMaxListingBytes = size_t{256} << 20;
// Reading a listing of even a large image takes seconds; a reader that
// takes this long is stuck on a hostile image.
constexpr int kListingTimeoutMs = 10 * 60 * 1000;
constexpr int kExtractTimeoutMs = 60 * 60 * 1000;

// The readers print times in local time and names in the locale's
// encoding: make both predictable.
const std::vector<std::string> kReaderEnvironment = {"TZ=UTC0", "LC_ALL=C.UTF-8"};

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

std::string failure(const std::string& program, const ChildResult& run) {
  return lastPathComponent(program) + " " + describeChildFailure(run, summary(run.err + run.out));
}

// A reader or writer still running when a stop signal ends the tool goes
// with it: it would go on writing into the folders the handler removes, or
// hold a large image open for nobody.
ChildRequest tied(ChildRequest request) {
  request.started = [](pid_t pid) { registerCleanupChild(pid); };
  request.ending = [](pid_t pid) { unregisterCleanupChild(pid); };
  return request;
}

ChildResult runTied(ChildRequest request) { return runChild(tied(std::move(request))); }

ChildRequest readerRequest(const std::string& program, std::vector<std::string> args,
                           int timeoutMs, int outFd = -1) {
  ChildRequest request;
  request.program = program;
  request.args = std::move(args);
  request.environment = kReaderEnvironment;
  request.timeoutMs = timeoutMs;
  request.captureLimit = kMaxListingBytes;
  if (outFd >= 0) {
    request.out = ChildStream::ToFd;
    request.outFd = outFd;
  }
  return tied(std::move(request));
}

ChildResult runReader(const std::string& program, std::vector<std::string> args,
                      int timeoutMs, int outFd = -1) {
  return runChild(readerRequest(program, std::move(args), timeoutMs, outFd));
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

bool isUdifImage(const std::string& path) {
  // A UDIF image ends in a 512-byte trailer that begins "koly".
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 512)
    return false;
  char magic[4] = {};
  ssize_t n = ::pread(fd.get(), magic, sizeof magic, st.st_size - 512);
  return n == static_cast<ssize_t>(sizeof magic) && std::string_view(magic, sizeof magic) == "koly";
}

bool isIsoImage(const std::string& path) {
  // The primary volume descriptor's signature sits at byte 32769.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) return false;
  char magic[5] = {};
  ssize_t n = ::pread(fd.get(), magic, sizeof magic, 32769);
  if (n != static_cast<ssize_t>(sizeof magic) || std::string_view(magic, sizeof magic) != "CD001")
    return false;
  // A UDIF image of an ISO 9660 image stored uncompressed starts as that
  // image does, but its data is stored in chunks, runs of zeros left out:
  // the offsets xorriso would report are not where the bytes lie.
  return !isUdifImage(path);
}

bool makeImage(const std::string& xorriso, const std::string& folder, const std::string& image) {
  // Level 3 for files of 4 GiB and more, which restore images often are;
  // long Joliet names (up to 103 characters) for readers without Rock Ridge.
  ChildRequest request;
  request.program = xorriso;
  request.args = {"-as", "mkisofs", "-R", "-J", "-joliet-long", "-iso-level",
                  "3", "-o", pathArgument(image), pathArgument(folder)};
  request.captureLimit = 64 * kOutputTail;
  ChildResult run = runTied(std::move(request));
  if (run.succeeded()) return true;
  LogObject::sharedLogger().Log("XXX ERROR: cannot make the disk image \"%s\": %s.", image,
                                failure(xorriso, run));
  return false;
}

// ---- reading an image in place ---------------------------------------------

namespace {

mode_t permissionBits(std::string_view text) {
  // "drwxr-xr-x": the nine characters after the type, with set-id and
  // sticky bits in the execute places.
  if (text.size() < 10) return 0;
  mode_t mode = 0;
  static constexpr mode_t kBits[9] = {0400, 0200, 0100, 040, 020, 010, 04, 02, 01};
  for (int i = 0; i < 9; ++i) {
    char c = text[static_cast<size_t>(i) + 1];
    if (c != '-' && c != 'S' && c != 'T') mode |= kBits[i];
    if (i == 2 && (c == 's' || c == 'S')) mode |= 04000;
    if (i == 5 && (c == 's' || c == 'S')) mode |= 02000;
    if (i == 8 && (c == 't' || c == 'T')) mode |= 01000;
  }
  return mode;
}

EntryKind kindFromMode(std::string_view text) {
  switch (text.empty() ? '-' : text.front()) {
    case '-': return EntryKind::File;
    case 'd': return EntryKind::Folder;
    case 'l': return EntryKind::Link;
    default: return EntryKind::Other;
  }
}

uint64_t parseCount(std::string_view text) {
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    if (value > (UINT64_MAX - 9) / 10) return UINT64_MAX;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value;
}

// Days from 1970-01-01 to a day of the proleptic Gregorian calendar; a
// day past the end of its month runs on into the next, as with timegm.
int64_t daysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

// The seconds of "YYYY-MM-DD HH:MM:SS" exactly as 7-Zip prints them, in
// the ranges strptime accepts; false for anything else. A listing holds
// thousands of times, and strptime with timegm cost a fifth of reading it.
bool parsePlainStamp(std::string_view text, time_t* seconds) {
  static constexpr std::string_view kShape = "0000-00-00 00:00:00";
  if (text.size() < kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kShape[i] == '0' ? !digit : text[i] != kShape[i]) return false;
  }
  auto number = [&](size_t at, size_t digits) {
    int value = 0;
    for (size_t i = at; i < at + digits; ++i) value = value * 10 + (text[i] - '0');
    return value;
  };
  const int year = number(0, 4), month = number(5, 2), day = number(8, 2);
  const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 61)
    return false;
  *seconds = static_cast<time_t>(daysFromCivil(year, month, day) * 86400 + hour * 3600 +
                                 minute * 60 + second);
  return true;
}

// "2024-01-02 03:04:05" with an optional fraction of a second, in UTC.
struct timespec parseStampTime(std::string_view text) {
  struct timespec ts = {};
  size_t used = 19;
  if (!parsePlainStamp(text, &ts.tv_sec)) {
    struct tm tm = {};
    std::string copy(text);
    const char* rest = ::strptime(copy.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (!rest) return ts;
    ts.tv_sec = ::timegm(&tm);
    used = static_cast<size_t>(rest - copy.c_str());
  }
  std::string_view rest = text.substr(used);
  if (!rest.empty() && rest.front() == '.') {
    long nanos = 0;
    int digits = 0;
    for (rest.remove_prefix(1); !rest.empty() && rest.front() >= '0' && rest.front() <= '9';
         rest.remove_prefix(1))
      if (digits < 9) nanos = nanos * 10 + (rest.front() - '0'), ++digits;
    for (; digits < 9; ++digits) nanos *= 10;
    ts.tv_nsec = nanos;
  }
  return ts;
}

// A listed path as a plain relative path, or empty when it is not one
// (such an entry could never be part of a bundle and is left out).
std::string cleanListedPath(std::string_view path) {
  while (hasPrefix(path, "./", Compare::Literal)) path.remove_prefix(2);
  while (!path.empty() && path.front() == '/') path.remove_prefix(1);
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  if (path.empty() || !relativePathProblem(path).empty()) return std::string();
  return std::string(path);
}

std::string_view nextLine(std::string_view text, size_t* pos) {
  size_t end = text.find('\n', *pos);
  if (end == std::string_view::npos) end = text.size();
  std::string_view line = text.substr(*pos, end - *pos);
  *pos = end + 1;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

// One shell-quoted word as xorriso prints it: 'text', with a quote inside
// written as '"'"'. Answers false when the text is not such a word.
bool unquoteWord(std::string_view text, size_t* pos, std::string* word) {
  word->clear();
  if (*pos >= text.size() || text[*pos] != '\'') return false;
  for (;;) {
    size_t close = text.find('\'', *pos + 1);
    if (close == std::string_view::npos) return false;
    word->append(text.substr(*pos + 1, close - *pos - 1));
    *pos = close + 1;
    if (text.substr(*pos, 4) != "\"'\"'") return true;
    word->push_back('\'');
    *pos += 3;
  }
}

}  // namespace

std::vector<ImageEntry> parseSevenZipListing(std::string_view text) {
  std::vector<ImageEntry> entries;
  // The archive's own properties come first, up to a line of dashes.
  size_t pos = 0;
  while (pos < text.size() && nextLine(text, &pos) != "----------") {
  }
  // The properties the view uses, as views into `text`; the first line of
  // a name in an entry counts.
  static constexpr std::string_view kNames[] = {"Path",     "Mode",     "Symbolic Link", "Folder",
                                                "Size",     "Modified", "Accessed"};
  enum { kPath, kMode, kLink, kFolder, kSize, kModified, kAccessed, kCount };
  std::string_view fields[kCount];
  bool seen[kCount] = {};
  auto flush = [&] {
    ImageEntry entry;
    entry.path = cleanListedPath(fields[kPath]);
    if (!entry.path.empty()) {
      std::string_view mode = fields[kMode];
      entry.linkTarget = std::string(fields[kLink]);
      // A link to a folder is listed as a folder too: the link wins.
      if (!entry.linkTarget.empty() || hasPrefix(mode, "l", Compare::Literal)) {
        entry.kind = EntryKind::Link;
      } else if (fields[kFolder] == "+") {
        entry.kind = EntryKind::Folder;
      } else {
        entry.kind = kindFromMode(mode);
      }
      bool targetMissing = entry.kind == EntryKind::Link && entry.linkTarget.empty();
      entry.mode = permissionBits(mode);
      if (mode.empty()) entry.mode = entry.kind == EntryKind::Folder ? 0755 : 0644;
      entry.size = entry.kind == EntryKind::File ? parseCount(fields[kSize]) : 0;
      if (entry.kind == EntryKind::Link) entry.size = entry.linkTarget.size();
      if (targetMissing) {
        entry.kind = EntryKind::Other;
        entry.isLinkWithoutTarget = true;
        entry.size = parseCount(fields[kSize]);
      }
      entry.modified = parseStampTime(fields[kModified]);
      std::string_view accessed = fields[kAccessed];
      entry.accessed = accessed.empty() ? entry.modified : parseStampTime(accessed);
      entries.push_back(std::move(entry));
    }
    for (int i = 0; i < kCount; ++i) fields[i] = {}, seen[i] = false;
  };
  while (pos < text.size()) {
    std::string_view line = nextLine(text, &pos);
    if (line.empty()) {
      flush();
      continue;
    }
    size_t equals = line.find(" =");
    if (equals == std::string_view::npos) continue;
    std::string_view name = line.substr(0, equals);
    std::string_view value = line.substr(equals + 2);
    if (!value.empty() && value.front() == ' ') value.remove_prefix(1);
    for (int i = 0; i < kCount; ++i) {
      if (name != kNames[i]) continue;
      if (!seen[i]) fields[i] = value, seen[i] = true;
      break;
    }
  }
  flush();
  return entries;
}

namespace {

// "File data lba:  0 ,  37 ,  1 ,  6 , '/B/a.plist'": extent number, first
// 2048-byte block, blocks, bytes, path.
bool parseExtentLine(std::string_view line, std::string* path, uint64_t* index,
                     ImageExtent* extent) {
  static constexpr std::string_view kPrefix = "File data lba:";
  if (line.substr(0, kPrefix.size()) != kPrefix) return false;
  uint64_t numbers[4];
  size_t at = kPrefix.size();
  for (uint64_t& number : numbers) {
    while (at < line.size() && line[at] == ' ') ++at;
    size_t start = at;
    while (at < line.size() && line[at] >= '0' && line[at] <= '9') ++at;
    if (at == start) return false;
    number = parseCount(line.substr(start, at - start));
    while (at < line.size() && line[at] == ' ') ++at;
    if (at >= line.size() || line[at] != ',') return false;
    ++at;
  }
  while (at < line.size() && line[at] == ' ') ++at;
  std::string quoted;
  if (!unquoteWord(line, &at, &quoted)) return false;
  *path = cleanListedPath(quoted);
  *index = numbers[0];
  if (numbers[1] > (UINT64_MAX >> 12)) return false;
  extent->offset = numbers[1] * 2048;
  extent->length = numbers[3];
  return !path->empty();
}

}  // namespace

std::vector<ImageEntry> parseXorrisoListing(std::string_view text, time_t now) {
  static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  std::vector<ImageEntry> entries;
  std::map<std::string, std::map<uint64_t, ImageExtent>> extents;
  size_t pos = 0;
  while (pos < text.size()) {
    std::string_view line = nextLine(text, &pos);
    {
      std::string path;
      uint64_t index = 0;
      ImageExtent extent;
      if (parseExtentLine(line, &path, &index, &extent)) {
        extents[path][index] = extent;
        continue;
      }
    }
    // mode, links, owner, group, size, month, day, time or year, then the
    // quoted path and, for a link, " -> " and the quoted target.
    std::vector<std::string_view> words;
    size_t at = 0;
    while (words.size() < 8 && at < line.size()) {
      while (at < line.size() && line[at] == ' ') ++at;
      size_t end = line.find(' ', at);
      if (end == std::string_view::npos) end = line.size();
      words.push_back(line.substr(at, end - at));
      at = end;
    }
    while (at < line.size() && line[at] == ' ') ++at;
    std::string path;
    if (words.size() < 8 || !unquoteWord(line, &at, &path)) continue;
    ImageEntry entry;
    entry.path = cleanListedPath(path);
    if (entry.path.empty()) continue;
    entry.kind = kindFromMode(words[0]);
    entry.mode = permissionBits(words[0]);
    entry.size = entry.kind == EntryKind::File ? parseCount(words[4]) : 0;
    if (entry.kind == EntryKind::Link) {
      if (line.substr(at, 4) != " -> ") continue;
      at += 4;
      if (!unquoteWord(line, &at, &entry.linkTarget)) continue;
      entry.size = entry.linkTarget.size();
    }
    struct tm tm = {};
    size_t month = kMonths.find(words[5]);
    tm.tm_mon = month == std::string_view::npos || words[5].size() != 3 ? 0 : int(month / 3);
    tm.tm_mday = static_cast<int>(parseCount(words[6]));
    struct tm today;
    ::gmtime_r(&now, &today);
    if (words[7].find(':') != std::string_view::npos) {
      // Recent: no year, to the minute.
      tm.tm_year = today.tm_year;
      tm.tm_hour = static_cast<int>(parseCount(words[7]));
      tm.tm_min = static_cast<int>(parseCount(words[7].substr(words[7].find(':') + 1)));
      if (::timegm(&tm) > now + 86400) --tm.tm_year;
    } else {
      tm.tm_year = static_cast<int>(parseCount(words[7])) - 1900;
    }
    entry.modified.tv_sec = ::timegm(&tm);
    entry.accessed = entry.modified;
    entries.push_back(std::move(entry));
  }
  // Extents are used only when they account for the whole file: a file
  // stored compressed, or a layout not understood, goes through the reader.
  for (ImageEntry& entry : entries) {
    auto it = extents.find(entry.path);
    if (entry.kind != EntryKind::File || it == extents.end()) continue;
    uint64_t total = 0, expected = 0;
    bool ordered = true;
    for (const auto& [index, extent] : it->second) {
      ordered = ordered && index == expected++;
      total += extent.length;
      entry.extents.push_back(extent);
    }
    if (!ordered || total != entry.size) entry.extents.clear();
  }
  return entries;
}

std::optional<ImageReader> chooseImageReader(const std::string& image, std::string* missing) {
  ImageReader reader;
  std::optional<std::string> sevenZip = findSevenZip();
  if (isIsoImage(image)) {
    std::optional<std::string> xorriso = findXorriso();
    if (!xorriso) {
      *missing = "xorriso";
      return std::nullopt;
    }
    reader.kind = ImageReader::Kind::Xorriso;
    reader.program = *xorriso;
    reader.sevenZip = sevenZip.value_or("");
    return reader;
  }
  if (!sevenZip) {
    *missing = "7-Zip (7z)";
    return std::nullopt;
  }
  reader.program = *sevenZip;
  return reader;
}

namespace {

// HFS+ keeps a link's target as the link's contents, and 7-Zip lists such
// a link (mode "l...") without its target, but with the target's length as
// its size. Extracted to standard output, links come out as their targets,
// one after another in the listing's order: one run of 7-Zip reads them
// all, and the listed lengths cut them apart. Nothing is written to disk,
// so no link an image makes can lead 7-Zip anywhere. A link whose target
// cannot be had stays of kind Other: never followed, never copied.
void readLinkTargets(const std::string& sevenZip, const std::string& image,
                     std::vector<ImageEntry>* entries) {
  constexpr uint64_t kMaxTarget = 4096;  // PATH_MAX: no longer link is made
  constexpr size_t kLinksPerRun = 256;   // a command line's worth
  std::vector<ImageEntry*> pending;
  for (ImageEntry& entry : *entries)
    if (entry.isLinkWithoutTarget && entry.size > 0 && entry.size <= kMaxTarget)
      pending.push_back(&entry);
  for (size_t first = 0; first < pending.size(); first += kLinksPerRun) {
    const size_t last = std::min(pending.size(), first + kLinksPerRun);
    std::vector<std::string> args = {"e", "-so", "-bd", "-spd", "--", pathArgument(image)};
    uint64_t total = 0;
    for (size_t i = first; i < last; ++i) {
      args.push_back(pending[i]->path);
      total += pending[i]->size;
    }
    ChildResult run = runReader(sevenZip, std::move(args), kListingTimeoutMs);
    // Anything but the exact lengths listed, and the pieces cannot be told
    // apart.
    if (!run.succeeded() || run.truncated || run.out.size() != total) continue;
    size_t at = 0;
    for (size_t i = first; i < last; ++i) {
      ImageEntry& entry = *pending[i];
      std::string target = run.out.substr(at, entry.size);
      at += entry.size;
      if (target.find('\0') != std::string::npos) continue;
      entry.kind = EntryKind::Link;
      entry.linkTarget = std::move(target);
      entry.isLinkWithoutTarget = false;
    }
  }
}

ChildRequest sevenZipListing(const std::string& sevenZip, const std::string& image) {
  return readerRequest(sevenZip, {"l", "-slt", "-bd", "--", pathArgument(image)},
                       kListingTimeoutMs);
}

// The entries of 7-Zip's listing `run`, with the targets of the links in it.
bool takeSevenZipListing(const std::string& sevenZip, const std::string& image,
                         const ChildResult& run, std::vector<ImageEntry>* entries,
                         std::string* error) {
  if (!run.succeeded() || run.truncated) {
    *error = run.truncated ? "its listing is too large" : failure(sevenZip, run);
    return false;
  }
  *entries = parseSevenZipListing(run.out);
  readLinkTargets(sevenZip, image, entries);
  return true;
}

}  // namespace

bool listImage(const ImageReader& reader, const std::string& image,
               std::vector<ImageEntry>* entries, std::string* error) {
  if (reader.kind == ImageReader::Kind::SevenZip)
    return takeSevenZipListing(reader.program, image,
                               runChild(sevenZipListing(reader.program, image)), entries, error);

  // 7-Zip lists the Joliet tree (below) beside xorriso: it needs nothing
  // from xorriso's listing, and the two share the processors.
  std::vector<ChildRequest> requests = {readerRequest(
      reader.program,
      {"-indev", pathArgument(image), "-find", "/", "-exec", "lsdl", "--", "-find", "/", "-type",
       "f", "-exec", "report_lba", "--"},
      kListingTimeoutMs)};
  if (!reader.sevenZip.empty()) requests.push_back(sevenZipListing(reader.sevenZip, image));
  std::vector<ChildResult> runs = runChildren(requests);
  const ChildResult& run = runs.front();
  if (!run.succeeded() || run.truncated) {
    *error = run.truncated ? "its listing is too large" : failure(reader.program, run);
    return false;
  }
  *entries = parseXorrisoListing(run.out, ::time(nullptr));
  // xorriso shows recent times to the minute only and older ones to the
  // day; 7-Zip reads the same times to the second from the Joliet tree.
  std::vector<ImageEntry> joliet;
  std::string ignored;
  if (runs.size() > 1 && takeSevenZipListing(reader.sevenZip, image, runs[1], &joliet, &ignored)) {
    std::map<std::string_view, const ImageEntry*> byPath;
    for (const ImageEntry& entry : joliet) byPath.emplace(entry.path, &entry);
    for (ImageEntry& entry : *entries) {
      auto it = byPath.find(entry.path);
      if (it == byPath.end() || it->second->modified.tv_sec == 0) continue;
      // Only a time that agrees to the minute with what xorriso saw.
      if (std::llabs(static_cast<long long>(it->second->modified.tv_sec - entry.modified.tv_sec)) >=
          (entry.modified.tv_sec % 60 == 0 ? 86400 : 60))
        continue;
      entry.modified = it->second->modified;
      entry.accessed = entry.modified;
    }
  }
  return true;
}

bool extractImageFile(const ImageReader& reader, const std::string& image,
                      const std::string& path, int fd, std::string* error) {
  // ISO images: 7-Zip finds the file by its Joliet name, which is the same
  // name for everything this tool writes; the caller checks the size and
  // falls back to extractImageFiles.
  const std::string& sevenZip =
      reader.kind == ImageReader::Kind::SevenZip ? reader.program : reader.sevenZip;
  if (sevenZip.empty()) {
    *error = reader.program.empty() ? reader.missing : "7-Zip is not on PATH";
    return false;
  }
  ChildRequest request;
  request.program = sevenZip;
  // -spd: the name is a name, not a wildcard pattern.
  request.args = {"e", "-so", "-bd", "-spd", "--", pathArgument(image), path};
  request.environment = kReaderEnvironment;
  request.timeoutMs = kExtractTimeoutMs;
  request.out = ChildStream::ToFd;
  request.outFd = fd;
  request.captureLimit = 64 * kOutputTail;
  ChildResult run = runTied(std::move(request));
  if (run.succeeded()) return true;
  *error = failure(sevenZip, run);
  return false;
}

namespace {

int makeOwnerWritable(const char* path, const struct stat* st, int type, struct FTW*) {
  if (type == FTW_D || type == FTW_DP) ::chmod(path, (st->st_mode & 07777) | S_IRWXU);
  return 0;
}

}  // namespace

bool extractImageFiles(const ImageReader& reader, const std::string& image,
                       const std::vector<std::string>& paths, const std::string& into,
                       std::string* error) {
  if (paths.empty()) return true;
  if (reader.program.empty()) {
    *error = reader.missing;
    return false;
  }
  ChildResult run;
  if (reader.kind == ImageReader::Kind::SevenZip) {
    // The names go through a list file: there may be thousands.
    const std::string listFile = into + ".list";
    std::string list;
    for (const std::string& path : paths) list += path + "\n";
    {
      UniqueFd fd(::open(listFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
      if (!fd.valid() || ::write(fd.get(), list.data(), list.size()) !=
                             static_cast<ssize_t>(list.size())) {
        *error = std::string("cannot write a list of names: ") + strerror(errno);
        ::unlink(listFile.c_str());
        return false;
      }
    }
    run = runReader(reader.program,
                    {"x", "-y", "-bd", "-spd", "-scsUTF-8", "-o" + into, "-i@" + listFile, "--",
                     pathArgument(image)},
                    kExtractTimeoutMs);
    ::unlink(listFile.c_str());
  } else {
    std::vector<std::string> args = {"-osirrox", "on", "-indev", pathArgument(image), "-extract_l",
                                     "/", into};
    for (const std::string& path : paths) args.push_back("/" + path);
    args.push_back("--");
    run = runReader(reader.program, std::move(args), kExtractTimeoutMs);
    // Folders come out with the image's modes; the copy must stay removable.
    ::nftw(into.c_str(), makeOwnerWritable, 16, FTW_PHYS);
  }
  if (run.succeeded()) return true;
  *error = failure(reader.program, run);
  return false;
}

}  // namespace velmar::tool
