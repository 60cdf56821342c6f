#include "tool/image_view.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <deque>
#include <map>
#include <set>
#include <unordered_map>

#include "base/safe_path.h"
#include "base/text.h"
#include "engine/log_object.h"
#include "tool/cleanup.h"
#include "tool/staging_area.h"

namespace velmar::tool {

namespace {

// How deep the bundle folder may lie: images hold it at their root or in a
// volume folder.
constexpr int kBundleSearchDepth = 3;
// Links followed in one lookup before giving up, as the kernel does.
constexpr int kMaxLinks = 40;
// Below this many files, announced files are extracted one at a time.
constexpr size_t kBatchMinimum = 3;
// Larger files are not extracted in a batch: written to a file in between,
// they would be written twice.
constexpr uint64_t kBatchFileBytes = 4 << 20;
// What comes out with a file read from a 7-Zip image: its siblings of at
// most this size, up to this much in all.
constexpr uint64_t kReadAheadFileBytes = 256 << 10;
constexpr uint64_t kReadAheadBytes = 8 << 20;

constexpr std::string_view kListingHeader = "velmarbs image listing 2\n";

char kindLetter(EntryKind kind) {
  switch (kind) {
    case EntryKind::File: return 'f';
    case EntryKind::Folder: return 'd';
    case EntryKind::Link: return 'l';
    default: return 'o';
  }
}

EntryKind kindOfLetter(char c) {
  switch (c) {
    case 'f': return EntryKind::File;
    case 'd': return EntryKind::Folder;
    case 'l': return EntryKind::Link;
    default: return EntryKind::Other;
  }
}

// Names may hold tabs and newlines: those and "%" are written as %XX.
std::string escape(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '%' || c == '\t' || c == '\n' || c == '\r') {
      char code[4];
      std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
      out += code;
    } else {
      out.push_back(c);
    }
  }
  return out;
}

bool unescape(std::string_view text, std::string* out) {
  // Almost no name holds an escape.
  if (text.find('%') == std::string_view::npos) {
    out->assign(text);
    return true;
  }
  out->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out->push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return false;
    char hex[3] = {text[i + 1], text[i + 2], 0};
    char* end = nullptr;
    long value = std::strtol(hex, &end, 16);
    if (end != hex + 2) return false;
    out->push_back(static_cast<char>(value));
    i += 2;
  }
  return true;
}

// The listing's lines have exactly this many fields.
constexpr size_t kListingFields = 10;

// Splits a line of the listing at its tabs; false unless it has exactly
// kListingFields fields.
bool splitTabs(std::string_view line, std::array<std::string_view, kListingFields>* fields) {
  size_t count = 0, start = 0;
  for (;;) {
    size_t tab = line.find('\t', start);
    if (count == kListingFields) return false;
    (*fields)[count++] = line.substr(start, tab == std::string_view::npos ? tab : tab - start);
    if (tab == std::string_view::npos) return count == kListingFields;
    start = tab + 1;
  }
}

// A whole decimal number, or false: a listing that does not hold numbers
// where it should is damaged and listed again.
template <typename Int>
bool parseNumber(std::string_view text, Int* value) {
  int64_t parsed = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return false;
  *value = static_cast<Int>(parsed);
  return true;
}

// One entry of the image as a tree.
struct Node {
  ImageEntry entry;        // entry.path: the path in the image
  int parent = -1;
  std::vector<int> children;  // sorted by name bytes
  std::string name;
};

class ImageView : public BundleView {
 public:
  ImageView(std::string location, std::string image, FileIdentity identity, UniqueFd imageFd,
            ImageReader reader, std::unique_ptr<ImageCache> cache, std::vector<Node> nodes, int root)
      : location_(std::move(location)),
        image_(std::move(image)),
        identity_(identity),
        imageFd_(std::move(imageFd)),
        reader_(std::move(reader)),
        cache_(std::move(cache)),
        nodes_(std::move(nodes)),
        root_(root) {}

  ~ImageView() override {
    // Without a cache the scratch folder is ours to remove.
    if (ownScratch_) {
      removePath(scratch_);
      unregisterCleanupPath(scratch_);
    }
  }

  const std::string& location() const override { return location_; }

  int entryInfo(std::string_view path, EntryInfo* info) override {
    int node;
    if (int err = resolve(path, false, &node)) return err;
    fill(node, info);
    return 0;
  }

  int targetInfo(std::string_view path, EntryInfo* info) override {
    int node;
    if (int err = resolve(path, true, &node)) return err;
    fill(node, info);
    return 0;
  }

  int listFolder(std::string_view path, std::vector<FolderEntry>* entries) override {
    int node;
    if (int err = resolve(path, true, &node)) return err;
    if (nodes_[node].entry.kind != EntryKind::Folder) return ENOTDIR;
    entries->clear();
    for (int child : nodes_[node].children)
      entries->push_back({nodes_[child].name, nodes_[child].entry.kind});
    return 0;
  }

  int readFile(std::string_view path, size_t limit, std::string* bytes,
               FileIdentity* identity) override {
    int node;
    if (int err = regularFile(path, &node)) return err;
    const uint64_t size = nodes_[node].entry.size;
    if (size > limit) return EFBIG;
    if (!nodes_[node].entry.extents.empty()) {
      if (int err = readInPlace(node, bytes)) return err;
      if (identity) *identity = identityOf(node);
      return 0;
    }
    UniqueFd fd;
    if (int err = fetch(node, &fd)) return err;
    bytes->assign(static_cast<size_t>(size), '\0');
    size_t done = 0;
    while (done < bytes->size()) {
      ssize_t n = ::pread(fd.get(), bytes->data() + done, bytes->size() - done,
                          static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errno;
      if (n == 0) return EIO;
      done += static_cast<size_t>(n);
    }
    if (identity) *identity = identityOf(node);
    return 0;
  }

  int openFile(std::string_view path, UniqueFd* fd) override {
    int node;
    if (int err = regularFile(path, &node)) return err;
    return fetch(node, fd);
  }

  int copyFile(std::string_view path, int out,
               const std::function<void(uint64_t)>& progress) override {
    int node;
    if (int err = regularFile(path, &node)) return err;
    const ImageEntry& entry = nodes_[node].entry;
    if (entry.extents.empty()) {
      UniqueFd kept;
      if (openKept(node, &kept)) return copyBytes(kept.get(), 0, UINT64_MAX, out, progress);
      if (reader_.kind == ImageReader::Kind::SevenZip && streamInto(node, out)) {
        if (progress) progress(entry.size);
        return 0;
      }
      return BundleView::copyFile(path, out, progress);
    }
    // Straight from the image: one copy, in the kernel.
    if (int err = checkImage()) return err;
    if (!extentsInside(entry)) return EIO;
    for (const ImageExtent& extent : entry.extents)
      if (int err = copyBytes(imageFd_.get(), extent.offset, extent.length, out, progress))
        return err;
    return 0;
  }

  void prepareFiles(const std::vector<std::string>& paths) override {
    std::vector<int> wanted;
    std::set<int> seen;
    for (const std::string& path : paths) {
      int node;
      if (regularFile(path, &node) != 0 || nodes_[node].entry.size == 0) continue;
      if (!nodes_[node].entry.extents.empty()) continue;
      // Large files are streamed to their copies one by one instead.
      if (reader_.kind == ImageReader::Kind::SevenZip && nodes_[node].entry.size > kBatchFileBytes)
        continue;
      if (prefetched_.count(node) || !seen.insert(node).second) continue;
      if (cache_ && cache_->openFile(nodes_[node].entry.path, nodes_[node].entry.size).valid())
        continue;
      wanted.push_back(node);
    }
    if (wanted.size() < kBatchMinimum) return;
    std::vector<std::string> imagePaths;
    for (int node : wanted) imagePaths.push_back(nodes_[node].entry.path);
    std::string folder = temporaryFolder();
    if (folder.empty()) return;
    std::string error;
    // A failed batch is no failure yet: each file is then tried on its own.
    if (!extractImageFiles(reader_, image_, imagePaths, folder, &error)) return;
    for (int node : wanted) prefetched_[node] = folder;
  }

  std::vector<std::string> caseConflicts() const override {
    return std::vector<std::string>(conflicts_.begin(), conflicts_.end());
  }

 private:
  FileIdentity identityOf(int node) const {
    const ImageEntry& entry = nodes_[node].entry;
    FileIdentity id;
    id.device = identity_.device;
    // Unique within the image, and the image's own identity in the high
    // bits keeps two images apart.
    id.inode = (identity_.inode << 24) ^ static_cast<uint64_t>(node + 1);
    id.size = entry.size;
    id.modifiedNs = static_cast<int64_t>(entry.modified.tv_sec) * 1000000000 + entry.modified.tv_nsec;
    return id;
  }

  void fill(int node, EntryInfo* info) const {
    const ImageEntry& entry = nodes_[node].entry;
    *info = EntryInfo();
    info->kind = entry.kind;
    info->size = entry.size;
    info->mode = entry.mode;
    info->accessed = entry.accessed;
    info->modified = entry.modified;
    info->linkTarget = entry.linkTarget;
    info->identity = identityOf(node);
  }

  int regularFile(std::string_view path, int* node) {
    if (int err = resolve(path, true, node)) return err;
    return nodes_[*node].entry.kind == EntryKind::File ? 0 : EINVAL;
  }

  std::string bundlePath(int node) const {
    std::vector<const std::string*> names;
    for (int at = node; at != root_ && at >= 0; at = nodes_[at].parent) names.push_back(&nodes_[at].name);
    std::string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) path = appendingPathComponent(path, **it);
    return path;
  }

  // The child of `folder` called `name`: the exact name, else the one
  // name that matches ignoring case.
  int child(int folder, const std::string& name) {
    const std::vector<int>& children = nodes_[folder].children;
    auto it = std::lower_bound(children.begin(), children.end(), name,
                               [&](int node, const std::string& n) { return nodes_[node].name < n; });
    if (it != children.end() && nodes_[*it].name == name) return *it;
    std::vector<int> matches;
    for (int node : children)
      if (equalIgnoringCase(nodes_[node].name, name)) matches.push_back(node);
    if (matches.size() == 1) return matches.front();
    if (matches.size() > 1)
      for (int node : matches) conflicts_.insert(bundlePath(node));
    return -1;
  }

  // Walks `path` from the bundle root through the listing. Links on the
  // way (and the last one when `followLast`) are expanded in place, and
  // ".." is taken physically, so nothing above the bundle root is reached.
  int resolve(std::string_view path, bool followLast, int* out) {
    *out = root_;
    if (path.empty()) return 0;
    if (!relativePathProblem(path).empty())
      return path.front() == '/' || path.find("..") != std::string_view::npos ? EXDEV : EINVAL;
    std::deque<std::string> parts;
    for (std::string& part : splitPath(path)) parts.push_back(std::move(part));
    int at = root_;
    int links = 0;
    while (!parts.empty()) {
      std::string part = std::move(parts.front());
      parts.pop_front();
      if (part.empty() || part == ".") continue;
      if (nodes_[at].entry.kind != EntryKind::Folder) return ENOTDIR;
      if (part == "..") {
        if (at == root_) return EXDEV;
        at = nodes_[at].parent;
        continue;
      }
      int next = child(at, part);
      if (next < 0) return ENOENT;
      const ImageEntry& entry = nodes_[next].entry;
      if (entry.kind == EntryKind::Link && (!parts.empty() || followLast)) {
        if (++links > kMaxLinks) return ELOOP;
        if (entry.linkTarget.empty()) return ENOENT;
        if (entry.linkTarget.front() == '/') return EXDEV;
        std::vector<std::string> expanded = splitPath(entry.linkTarget);
        parts.insert(parts.begin(), expanded.begin(), expanded.end());
        continue;
      }
      at = next;
    }
    *out = at;
    return 0;
  }

  // A new empty folder for one batch of extracted files. All of them lie
  // in one scratch folder per view (the cache's, or one of our own in
  // $TMPDIR), so that the stop handler has one folder to remove however
  // many batches a run extracts; the list of names a batch's reader is
  // given lies beside its folder, inside the scratch folder too.
  std::string temporaryFolder() {
    if (scratch_.empty()) {
      if (cache_) {
        scratch_ = cache_->temporaryFolder();
      } else {
        const char* tmp = ::getenv("TMPDIR");
        const std::string folder = tmp && *tmp ? tmp : "/tmp";
        // The owner's pid in the name, as for staging folders: a run killed
        // outright leaves its folder to the next run that needs one.
        const std::string prefix = "velmarbs-image-";
        for (const std::string& stale : staleStagingAreas(folder, prefix))
          removePath(folder + "/" + stale);
        std::string templ = folder + "/" + prefix + std::to_string(::getpid()) + "-XXXXXX";
        // A stop signal between making the folder and registering it
        // would leave it behind.
        StopSignalsHeld held;
        if (::mkdtemp(templ.data())) {
          scratch_ = templ;
          ownScratch_ = true;
          registerCleanupPath(scratch_);
        }
      }
      if (scratch_.empty()) return std::string();
    }
    std::string folder = scratch_ + "/" + std::to_string(++batches_);
    if (::mkdir(folder.c_str(), 0700) != 0) return std::string();
    return folder;
  }

  UniqueFd unnamedFile() {
    if (cache_) return cache_->unnamedFile();
    const char* tmp = ::getenv("TMPDIR");
    std::string folder = tmp && *tmp ? tmp : "/tmp";
    UniqueFd fd(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (fd.valid()) return fd;
    std::string templ = folder + "/velmarbs-file-XXXXXX";
    fd.reset(::mkostemp(templ.data(), O_CLOEXEC));
    if (fd.valid()) ::unlink(templ.c_str());
    return fd;
  }

  static bool holds(int fd, uint64_t size) {
    struct stat st;
    return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && static_cast<uint64_t>(st.st_size) == size;
  }

  // A large file from a 7-Zip image, written by 7-Zip straight to `out`
  // rather than to a file in between. False, with `out` as it was, when
  // that did not work out.
  bool streamInto(int node, int out) {
    const ImageEntry& entry = nodes_[node].entry;
    if (reader_.program.empty()) return false;
    const off_t before = ::lseek(out, 0, SEEK_CUR);
    if (before < 0) return false;
    std::string error;
    if (extractImageFile(reader_, image_, entry.path, out, &error) &&
        ::lseek(out, 0, SEEK_CUR) == before + static_cast<off_t>(entry.size))
      return true;
    if (::ftruncate(out, before) != 0 || ::lseek(out, before, SEEK_SET) != before) return false;
    return false;
  }

  // The file from an earlier batch or the cache.
  bool openKept(int node, UniqueFd* fd) {
    const ImageEntry& entry = nodes_[node].entry;
    auto batch = prefetched_.find(node);
    if (batch != prefetched_.end()) {
      UniqueFd folder(::open(batch->second.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      UniqueFd file(folder.valid() ? openBeneath(folder.get(), entry.path, O_RDONLY | O_NONBLOCK) : -1);
      if (file.valid() && holds(file.get(), entry.size)) {
        *fd = std::move(file);
        return true;
      }
    }
    if (cache_) {
      UniqueFd cached = cache_->openFile(entry.path, entry.size);
      if (cached.valid()) {
        *fd = std::move(cached);
        return true;
      }
    }
    return false;
  }

  // Every run of 7-Zip opens the whole image again, which for a large
  // compressed image costs about as much as listing it. The engines read
  // a few small files from the same few folders, so the file asked for
  // comes out together with the small files beside it and in the folders
  // beside it, and all go to the cache.
  void readAhead(int node) {
    std::vector<int> batch = {node};
    uint64_t bytes = 0;
    auto consider = [&](int candidate) {
      const ImageEntry& entry = nodes_[candidate].entry;
      if (candidate == node || entry.kind != EntryKind::File || entry.size == 0 ||
          entry.size > kReadAheadFileBytes || prefetched_.count(candidate))
        return;
      if (bytes + entry.size > kReadAheadBytes) return;
      if (cache_ && cache_->openFile(entry.path, entry.size).valid()) return;
      bytes += entry.size;
      batch.push_back(candidate);
    };
    const std::vector<int>& siblings = nodes_[nodes_[node].parent].children;
    for (int sibling : siblings) consider(sibling);
    for (int sibling : siblings)
      if (nodes_[sibling].entry.kind == EntryKind::Folder)
        for (int inside : nodes_[sibling].children) consider(inside);
    std::string folder = temporaryFolder();
    std::vector<std::string> paths;
    for (int n : batch) paths.push_back(nodes_[n].entry.path);
    std::string error;
    if (folder.empty() || !extractImageFiles(reader_, image_, paths, folder, &error)) return;
    UniqueFd folderFd(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int n : batch) {
      const ImageEntry& entry = nodes_[n].entry;
      prefetched_[n] = folder;
      UniqueFd file(folderFd.valid() ? openBeneath(folderFd.get(), entry.path, O_RDONLY | O_NONBLOCK)
                                     : -1);
      if (cache_ && file.valid() && holds(file.get(), entry.size))
        cache_->storeFile(entry.path, file.get(), entry.size);
    }
  }

  // The image as it was listed: a changed image is never read in place.
  int checkImage() const {
    struct stat st;
    if (!imageFd_.valid() || ::fstat(imageFd_.get(), &st) != 0) return EIO;
    const int64_t modifiedNs =
        static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    if (static_cast<uint64_t>(st.st_size) != identity_.size || modifiedNs != identity_.modifiedNs) {
      LogObject::sharedLogger().Log("XXX ERROR: the disk image \"%s\" changed while it was read.",
                                    location_);
      return EIO;
    }
    return 0;
  }

  bool extentsInside(const ImageEntry& entry) const {
    for (const ImageExtent& extent : entry.extents)
      if (extent.offset > identity_.size || extent.length > identity_.size - extent.offset)
        return false;
    return true;
  }

  // A file stored plainly in the image, read straight from it.
  int readInPlace(int node, std::string* bytes) {
    const ImageEntry& entry = nodes_[node].entry;
    if (int err = checkImage()) return err;
    if (!extentsInside(entry)) return EIO;
    bytes->assign(static_cast<size_t>(entry.size), '\0');
    size_t done = 0;
    for (const ImageExtent& extent : entry.extents) {
      for (uint64_t got = 0; got < extent.length;) {
        ssize_t n = ::pread(imageFd_.get(), bytes->data() + done, extent.length - got,
                            static_cast<off_t>(extent.offset + got));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        got += static_cast<uint64_t>(n);
        done += static_cast<size_t>(n);
      }
    }
    return 0;
  }

  // The same into a file without a name, copied by the kernel.
  int copyInPlace(int node, UniqueFd* fd) {
    const ImageEntry& entry = nodes_[node].entry;
    if (int err = checkImage()) return err;
    if (!extentsInside(entry)) return EIO;
    UniqueFd out = unnamedFile();
    if (!out.valid()) return errno ? errno : EIO;
    for (const ImageExtent& extent : entry.extents)
      if (int err = copyBytes(imageFd_.get(), extent.offset, extent.length, out.get(), nullptr))
        return err;
    if (::lseek(out.get(), 0, SEEK_SET) != 0) return errno;
    *fd = std::move(out);
    return 0;
  }

  // A descriptor on the contents of the regular file `node`, read from
  // its start: copied from the image in place, from an announced batch,
  // the cache, or extracted now.
  int fetch(int node, UniqueFd* fd) {
    const ImageEntry& entry = nodes_[node].entry;
    if (!entry.extents.empty()) return copyInPlace(node, fd);
    if (openKept(node, fd)) return 0;
    if (reader_.kind == ImageReader::Kind::SevenZip && !reader_.program.empty()) {
      readAhead(node);
      if (openKept(node, fd)) return 0;
    }
    UniqueFd out = unnamedFile();
    if (!out.valid()) return errno ? errno : EIO;
    std::string error;
    bool ok = entry.size == 0 ||
              (extractImageFile(reader_, image_, entry.path, out.get(), &error) &&
               holds(out.get(), entry.size));
    if (!ok && reader_.kind == ImageReader::Kind::Xorriso) {
      // A name 7-Zip does not find in the Joliet tree, or no 7-Zip.
      std::string folder = temporaryFolder();
      if (!folder.empty() && extractImageFiles(reader_, image_, {entry.path}, folder, &error)) {
        UniqueFd folderFd(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        UniqueFd file(folderFd.valid() ? openBeneath(folderFd.get(), entry.path, O_RDONLY | O_NONBLOCK)
                                       : -1);
        if (file.valid() && holds(file.get(), entry.size)) {
          prefetched_[node] = folder;
          *fd = std::move(file);
          return 0;
        }
      }
    }
    if (!ok) {
      if (error.empty()) error = "what came out is not the size the image lists";
      LogObject::sharedLogger().Log("XXX ERROR: cannot extract \"%s\" from the disk image \"%s\": %s.",
                                    entry.path, location_, error);
      return EIO;
    }
    if (cache_) cache_->storeFile(entry.path, out.get(), entry.size);
    if (::lseek(out.get(), 0, SEEK_SET) != 0) return errno;
    *fd = std::move(out);
    return 0;
  }

  std::string location_;
  std::string image_;
  FileIdentity identity_;
  UniqueFd imageFd_;
  ImageReader reader_;
  std::unique_ptr<ImageCache> cache_;
  std::vector<Node> nodes_;
  int root_;
  std::map<int, std::string> prefetched_;  // node -> the folder it was extracted into
  std::string scratch_;  // where batches are extracted; empty until needed
  bool ownScratch_ = false;
  int batches_ = 0;
  std::set<std::string> conflicts_;
};

// The listing as a tree: node 0 is the image's root; folders missing from
// the listing are made up; a path listed twice keeps its first entry.
// Paths are looked up as views into the entries' own paths (a made-up
// folder's path is a prefix of one), which stay put until the entries move
// into their nodes at the end: a listing of many thousand entries is read
// by every query, so it is built without a copy of every path.
std::vector<Node> buildTree(std::vector<ImageEntry> entries) {
  std::vector<Node> nodes(1);
  nodes[0].entry.kind = EntryKind::Folder;
  nodes[0].entry.mode = 0755;
  std::vector<int> source(1, -1);  // node -> the entry it takes, -1: made up
  std::unordered_map<std::string_view, int> byPath;
  byPath.reserve(entries.size() + 1);
  byPath.emplace(std::string_view(), 0);
  auto addNode = [&](std::string_view path, int parent, int entry) {
    const size_t slash = path.rfind('/');
    Node node;
    node.name = std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
    node.parent = parent;
    nodes.push_back(std::move(node));
    source.push_back(entry);
    const int index = static_cast<int>(nodes.size() - 1);
    nodes[static_cast<size_t>(parent)].children.push_back(index);
    byPath.emplace(path, index);
    return index;
  };
  // The folder at `path`, made up (with the folders above it) when the
  // listing lacks it.
  auto folder = [&](std::string_view path) {
    auto it = byPath.find(path);
    if (it != byPath.end()) return it->second;
    int parent = 0;
    for (size_t end = 0; end != std::string_view::npos;) {
      end = path.find('/', end + 1);
      std::string_view prefix = path.substr(0, end);
      auto found = byPath.find(prefix);
      parent = found != byPath.end() ? found->second : addNode(prefix, parent, -1);
    }
    return parent;
  };
  // Parents before children, whatever order the reader listed in.
  std::vector<std::pair<size_t, size_t>> order;  // depth, index
  order.reserve(entries.size());
  for (size_t i = 0; i < entries.size(); ++i)
    order.emplace_back(std::count(entries[i].path.begin(), entries[i].path.end(), '/'), i);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  nodes.reserve(entries.size() + 1);
  source.reserve(entries.size() + 1);
  for (const auto& [depth, index] : order) {
    std::string_view path = entries[index].path;
    if (byPath.count(path)) continue;
    const size_t slash = path.rfind('/');
    const int parent = folder(slash == std::string_view::npos ? std::string_view() : path.substr(0, slash));
    addNode(path, parent, static_cast<int>(index));
  }
  byPath.clear();
  for (size_t i = 1; i < nodes.size(); ++i) {
    if (source[i] >= 0) {
      nodes[i].entry = std::move(entries[static_cast<size_t>(source[i])]);
      continue;
    }
    // A made-up folder: its path from its parent's, which is set by now
    // (parents come first).
    const Node& parent = nodes[static_cast<size_t>(nodes[i].parent)];
    nodes[i].entry.path = appendingPathComponent(parent.entry.path, nodes[i].name);
    nodes[i].entry.kind = EntryKind::Folder;
    nodes[i].entry.mode = 0755;
  }
  for (Node& node : nodes)
    std::sort(node.children.begin(), node.children.end(),
              [&](int a, int b) { return nodes[static_cast<size_t>(a)].name < nodes[static_cast<size_t>(b)].name; });
  return nodes;
}

}  // namespace

std::string encodeListing(const std::vector<ImageEntry>& entries) {
  std::string text(kListingHeader);
  for (const ImageEntry& e : entries) {
    text += kindLetter(e.kind);
    text += "\t" + std::to_string(e.mode) + "\t" + std::to_string(e.size) + "\t" +
            std::to_string(e.modified.tv_sec) + "\t" + std::to_string(e.modified.tv_nsec) + "\t" +
            std::to_string(e.accessed.tv_sec) + "\t" + std::to_string(e.accessed.tv_nsec) + "\t" +
            escape(e.path) + "\t" + escape(e.linkTarget) + "\t";
    for (size_t i = 0; i < e.extents.size(); ++i)
      text += (i ? "," : "") + std::to_string(e.extents[i].offset) + ":" +
              std::to_string(e.extents[i].length);
    text += "\n";
  }
  return text;
}

bool decodeListing(std::string_view text, std::vector<ImageEntry>* entries) {
  if (text.substr(0, kListingHeader.size()) != kListingHeader) return false;
  entries->clear();
  entries->reserve(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
  size_t pos = kListingHeader.size();
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) return false;  // a cut-off file
    std::array<std::string_view, kListingFields> f;
    if (!splitTabs(text.substr(pos, end - pos), &f)) return false;
    pos = end + 1;
    if (f[0].size() != 1) return false;
    ImageEntry e;
    e.kind = kindOfLetter(f[0][0]);
    int64_t mode = 0;
    if (!parseNumber(f[1], &mode) || !parseNumber(f[2], &e.size) ||
        !parseNumber(f[3], &e.modified.tv_sec) || !parseNumber(f[4], &e.modified.tv_nsec) ||
        !parseNumber(f[5], &e.accessed.tv_sec) || !parseNumber(f[6], &e.accessed.tv_nsec))
      return false;
    e.mode = static_cast<mode_t>(mode & 07777);
    if (!unescape(f[7], &e.path) || !unescape(f[8], &e.linkTarget)) return false;
    if (e.path.empty() || !relativePathProblem(e.path).empty()) return false;
    uint64_t total = 0;
    for (size_t start = 0; start < f[9].size();) {
      size_t comma = f[9].find(',', start);
      if (comma == std::string_view::npos) comma = f[9].size();
      std::string_view pair = f[9].substr(start, comma - start);
      size_t colon = pair.find(':');
      ImageExtent extent;
      if (colon == std::string_view::npos || !parseNumber(pair.substr(0, colon), &extent.offset) ||
          !parseNumber(pair.substr(colon + 1), &extent.length))
        return false;
      total += extent.length;
      e.extents.push_back(extent);
      start = comma + 1;
    }
    if (!e.extents.empty() && (e.kind != EntryKind::File || total != e.size)) return false;
    entries->push_back(std::move(e));
  }
  return true;
}

std::optional<std::string> findImageBundle(const std::vector<ImageEntry>& entries,
                                           std::string* error) {
  std::set<std::string> folders;
  for (const ImageEntry& entry : entries)
    if (entry.kind == EntryKind::Folder) folders.insert(entry.path);
  std::vector<std::string> found;
  for (const std::string& folder : folders) {
    if (!equalIgnoringCase(lastComponent(folder), "Restore")) continue;
    std::string bundle = parentPath(folder);
    int depth = bundle.empty() ? 0 : static_cast<int>(std::count(bundle.begin(), bundle.end(), '/')) + 1;
    if (depth > kBundleSearchDepth) continue;
    if (std::find(found.begin(), found.end(), bundle) == found.end()) found.push_back(bundle);
  }
  // A folder "Restore" inside a bundle is part of it, not another bundle.
  std::vector<std::string> outermost;
  for (const std::string& bundle : found) {
    bool inside = false;
    for (const std::string& other : found)
      if (other != bundle && (other.empty() || hasPrefix(bundle, other + "/", Compare::Literal)))
        inside = true;
    if (!inside) outermost.push_back(bundle);
  }
  if (outermost.size() == 1) return outermost.front();
  if (outermost.empty()) {
    *error = "holds no bundle folder with Restore/";
  } else {
    std::sort(outermost.begin(), outermost.end());
    std::string names;
    for (const std::string& bundle : outermost)
      names += (names.empty() ? "\"" : ", \"") + (bundle.empty() ? std::string("/") : bundle) + "\"";
    *error = "holds " + std::to_string(outermost.size()) +
             " bundle folders with Restore/ (" + names + "); it must hold exactly one";
  }
  return std::nullopt;
}

std::unique_ptr<BundleView> openImageView(const std::string& image, const ImageViewOptions& options,
                                          std::string* error) {
  UniqueFd* imageFdRef = nullptr;
  auto identify = [&](FileIdentity* id) {
    struct stat st;
    if (::fstat(imageFdRef->get(), &st) != 0) return errno;
    if (!S_ISREG(st.st_mode)) return EINVAL;
    id->device = st.st_dev;
    id->inode = st.st_ino;
    id->size = static_cast<uint64_t>(st.st_size);
    id->modifiedNs = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return 0;
  };
  const std::string quoted = "the disk image \"" + image + "\"";
  FileIdentity identity;
  UniqueFd imageFd(::open(image.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  imageFdRef = &imageFd;
  int openError = imageFd.valid() ? identify(&identity) : errno;
  if (openError) {
    *error = "cannot read " + quoted + ": " + strerror(openError);
    return nullptr;
  }
  // The reader is needed only for what the cache does not hold.
  std::string missing;
  std::optional<ImageReader> reader = chooseImageReader(image, &missing);
  const std::string noReader = missing + " is not on PATH; install the " +
                               (missing == "xorriso" ? "xorriso" : "7zip") + " package";
  std::string absolute = canonicalPath(image).value_or(image);
  std::unique_ptr<ImageCache> cache =
      ImageCache::open(options.cacheRoot, absolute, identity, options.cacheLimits);

  std::vector<ImageEntry> entries;
  std::string stored;
  if (!cache || !cache->loadListing(&stored) || !decodeListing(stored, &entries)) {
    std::string why = noReader;
    if (!reader || !listImage(*reader, image, &entries, &why)) {
      *error = "cannot read " + quoted + ": " + why;
      return nullptr;
    }
    // A listing is kept only when the image did not change while it was
    // read.
    // (By its path: the reader opened it by its path too.)
    UniqueFd again(::open(image.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    FileIdentity after;
    imageFdRef = &again;
    if (cache && again.valid() && identify(&after) == 0 && after == identity)
      cache->storeListing(encodeListing(entries));
  }

  std::string why;
  std::optional<std::string> bundle = findImageBundle(entries, &why);
  if (!bundle) {
    *error = quoted + " " + why;
    return nullptr;
  }
  std::vector<Node> nodes = buildTree(std::move(entries));
  int root = 0;
  for (size_t i = 0; i < nodes.size(); ++i)
    if (nodes[i].entry.path == *bundle) root = static_cast<int>(i);
  ImageReader none;
  none.missing = noReader;
  return std::make_unique<ImageView>(image, image, identity, std::move(imageFd),
                                     reader ? std::move(*reader) : none,
                                     std::move(cache), std::move(nodes), root);
}

}  // namespace velmar::tool
