#include "fuzz/memory_view.h"

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "base/plist_io.h"
#include "base/safe_path.h"
#include "base/text.h"

namespace velmar::fuzz {

namespace {

constexpr int kMaxLinks = 40;

struct Node {
  EntryKind kind = EntryKind::Folder;
  std::string bytes;  // a file's contents, a link's target text
};

class MemoryView : public BundleView {
 public:
  MemoryView() { nodes_[""] = Node(); }

  void add(const std::string& path, Node node) {
    if (path.empty() || !relativePathProblem(path).empty()) return;
    // Folders on the way; an entry already there of another kind stays.
    std::string built;
    for (const std::string& part : splitPath(parentPath(path))) {
      built = appendingPathComponent(built, part);
      nodes_.emplace(built, Node());
    }
    nodes_.emplace(path, std::move(node));
  }

  const std::string& location() const override { return location_; }

  int entryInfo(std::string_view path, EntryInfo* info) override {
    std::string at;
    if (int err = resolve(path, false, &at)) return err;
    return describe(at, info);
  }

  int targetInfo(std::string_view path, EntryInfo* info) override {
    std::string at;
    if (int err = resolve(path, true, &at)) return err;
    return describe(at, info);
  }

  int listFolder(std::string_view path, std::vector<FolderEntry>* entries) override {
    std::string at;
    if (int err = resolve(path, true, &at)) return err;
    if (nodes_[at].kind != EntryKind::Folder) return ENOTDIR;
    entries->clear();
    const std::string prefix = at.empty() ? "" : at + "/";
    for (auto it = nodes_.lower_bound(prefix); it != nodes_.end(); ++it) {
      if (it->first.compare(0, prefix.size(), prefix) != 0) break;
      if (it->first.size() == prefix.size()) continue;
      std::string_view rest = std::string_view(it->first).substr(prefix.size());
      if (rest.find('/') != std::string_view::npos) continue;
      entries->push_back({std::string(rest), it->second.kind});
    }
    std::sort(entries->begin(), entries->end(),
              [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
    return 0;
  }

  int readFile(std::string_view path, size_t limit, std::string* bytes,
               FileIdentity* identity) override {
    std::string at;
    if (int err = resolve(path, true, &at)) return err;
    const Node& node = nodes_[at];
    if (node.kind != EntryKind::File) return EINVAL;
    if (node.bytes.size() > limit) return EFBIG;
    *bytes = node.bytes;
    if (identity) *identity = identityOf(at, node);
    return 0;
  }

  int openFile(std::string_view path, UniqueFd* fd) override {
    std::string at;
    if (int err = resolve(path, true, &at)) return err;
    const Node& node = nodes_[at];
    if (node.kind != EntryKind::File) return EINVAL;
    UniqueFd file(::memfd_create("fuzz-bundle-file", MFD_CLOEXEC));
    if (!file.valid()) return errno;
    if (::write(file.get(), node.bytes.data(), node.bytes.size()) !=
        static_cast<ssize_t>(node.bytes.size()))
      return EIO;
    ::lseek(file.get(), 0, SEEK_SET);
    *fd = std::move(file);
    return 0;
  }

 private:
  FileIdentity identityOf(const std::string& path, const Node& node) const {
    FileIdentity id;
    id.inode = std::hash<std::string>()(path);
    id.size = node.bytes.size();
    // Parsed files are cached by identity across runs of the target: the
    // contents must be part of it.
    id.modifiedNs = static_cast<int64_t>(std::hash<std::string>()(node.bytes));
    return id;
  }

  int describe(const std::string& at, EntryInfo* info) {
    const Node& node = nodes_[at];
    *info = EntryInfo();
    info->kind = node.kind;
    info->mode = node.kind == EntryKind::Folder ? 0755 : 0644;
    if (node.kind == EntryKind::File) info->size = node.bytes.size();
    if (node.kind == EntryKind::Link) info->linkTarget = node.bytes;
    info->identity = identityOf(at, node);
    return 0;
  }

  // The node `path` names, following links on the way (and in the last
  // component when `followLast`) while they stay inside.
  int resolve(std::string_view path, bool followLast, std::string* at) {
    if (path.empty()) {
      at->clear();
      return 0;
    }
    if (!relativePathProblem(path).empty())
      return path.front() == '/' || path.find("..") != std::string_view::npos ? EXDEV : EINVAL;
    std::vector<std::string> pending = splitPath(path);
    std::reverse(pending.begin(), pending.end());
    std::vector<std::string> done;
    int links = 0;
    while (!pending.empty()) {
      std::string part = std::move(pending.back());
      pending.pop_back();
      if (part.empty() || part == ".") continue;
      if (part == "..") {
        if (done.empty()) return EXDEV;
        done.pop_back();
        continue;
      }
      std::string here;
      for (const std::string& d : done) here = appendingPathComponent(here, d);
      auto it = nodes_.find(appendingPathComponent(here, part));
      if (it == nodes_.end()) return ENOENT;
      if (it->second.kind == EntryKind::Link && (!pending.empty() || followLast)) {
        if (++links > kMaxLinks) return ELOOP;
        const std::string& text = it->second.bytes;
        if (text.empty()) return ENOENT;
        if (text.front() == '/') return EXDEV;
        std::vector<std::string> parts = splitPath(text);
        for (auto p = parts.rbegin(); p != parts.rend(); ++p) pending.push_back(*p);
        continue;
      }
      if (!pending.empty() && it->second.kind != EntryKind::Folder) return ENOTDIR;
      done.push_back(std::move(part));
    }
    at->clear();
    for (const std::string& d : done) *at = appendingPathComponent(*at, d);
    return 0;
  }

  std::string location_ = "/fuzz/Bundle";
  std::map<std::string, Node> nodes_;
};

}  // namespace

FuzzBundle parseFuzzBundle(std::string_view bytes) {
  auto view = std::make_shared<MemoryView>();
  FuzzBundle bundle;
  constexpr std::string_view kSeparator = "\n%%\n";
  size_t start = 0;
  while (start <= bytes.size()) {
    size_t end = bytes.find(kSeparator, start);
    std::string_view record =
        bytes.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    start = end == std::string_view::npos ? bytes.size() + 1 : end + kSeparator.size();
    size_t lineEnd = record.find('\n');
    std::string_view header = record.substr(0, lineEnd);
    std::string_view body =
        lineEnd == std::string_view::npos ? std::string_view() : record.substr(lineEnd + 1);
    if (header.size() < 1) continue;
    const char kind = header[0];
    std::string_view rest = header.size() > 2 ? header.substr(2) : std::string_view();
    if (kind == 'F') {
      view->add(std::string(rest), Node{EntryKind::File, std::string(body)});
    } else if (kind == 'D') {
      view->add(std::string(rest), Node{EntryKind::Folder, ""});
    } else if (kind == 'L') {
      size_t tab = rest.find('\t');
      if (tab == std::string_view::npos) continue;
      view->add(std::string(rest.substr(0, tab)),
                Node{EntryKind::Link, std::string(rest.substr(tab + 1))});
    } else if (kind == 'Q') {
      bundle.request = parsePropertyList(body);
    }
  }
  bundle.view = view;
  return bundle;
}

}  // namespace velmar::fuzz
