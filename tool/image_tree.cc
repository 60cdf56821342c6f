#include "tool/image_tree.h"

#include <string.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <unordered_map>

#include "base/safe_path.h"
#include "base/text.h"

namespace velmar::tool {

namespace {

// The version is in the text: a block of another layout is refused, and
// the image listed again.
constexpr std::string_view kMagic = "velmarbs image tree 1\n";
// Numbers are kept in this machine's byte order; a cache folder shared with
// a machine of the other order is then refused rather than misread.
constexpr uint32_t kByteOrderMark = 0x01020304;
constexpr size_t kHeaderBytes = kMagic.size() + 3 * sizeof(uint32_t);  // mark, count, bundle
constexpr uint32_t kNoParent = std::numeric_limits<uint32_t>::max();
constexpr uint8_t kLinkWithoutTarget = 1;

// The fixed part of a node, copied in and out whole; its name, link
// target, extents (offset and length, 8 bytes each) and children (4 bytes
// each) follow it in that order.
struct Record {
  uint64_t size;
  int64_t modifiedSeconds;
  int64_t modifiedNanoseconds;
  int64_t accessedSeconds;
  int64_t accessedNanoseconds;
  uint32_t mode;
  uint32_t parent;
  uint32_t nameLength;
  uint32_t linkLength;
  uint32_t extentCount;
  uint32_t childCount;
  uint8_t kind;
  uint8_t flags;
  uint8_t reserved[6];
};
static_assert(std::is_trivially_copyable_v<Record>);
static_assert(sizeof(Record) == 72, "no padding: every byte of a record is written");

constexpr size_t kExtentBytes = 2 * sizeof(uint64_t);

template <typename T>
T load(const std::string& bytes, size_t at) {
  T value;
  memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

template <typename T>
void append(std::string* bytes, const T& value) {
  bytes->append(reinterpret_cast<const char*>(&value), sizeof value);
}

bool validKind(uint8_t kind) {
  switch (static_cast<EntryKind>(kind)) {
    case EntryKind::File:
    case EntryKind::Folder:
    case EntryKind::Link:
    case EntryKind::Other: return true;
    default: return false;
  }
}

bool validName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         memchr(name.data(), '/', name.size()) == nullptr &&
         memchr(name.data(), '\0', name.size()) == nullptr;
}

// Where a node's variable parts start, relative to its record.
size_t extentsAt(const Record& r) { return sizeof(Record) + size_t{r.nameLength} + r.linkLength; }
size_t childrenAt(const Record& r) { return extentsAt(r) + kExtentBytes * r.extentCount; }

// Extents are kept only when they describe the file whole.
bool extentsCover(const std::vector<ImageExtent>& extents, uint64_t size) {
  uint64_t total = 0;
  for (const ImageExtent& extent : extents) {
    if (extent.length > size - total) return false;
    total += extent.length;
  }
  return total == size;
}

// Node 0 is the image's root; folders missing from the listing are made
// up; a path listed twice keeps its first entry; parents come before their
// children. Paths are looked up as views into the entries' own paths (a
// made-up folder's path is a prefix of one), which stay put until the
// entries move into their nodes at the end.
std::vector<ImageTreeNode> buildTree(std::vector<ImageEntry> entries) {
  entries.erase(std::remove_if(entries.begin(), entries.end(),
                               [](const ImageEntry& e) { return !relativePathProblem(e.path).empty(); }),
                entries.end());
  std::vector<ImageTreeNode> nodes(1);
  nodes[0].entry.kind = EntryKind::Folder;
  nodes[0].entry.mode = 0755;
  std::vector<int> source(1, -1);  // node -> the entry it takes, -1: made up
  std::unordered_map<std::string_view, int> byPath;
  byPath.reserve(entries.size() + 1);
  byPath.emplace(std::string_view(), 0);
  auto addNode = [&](std::string_view path, int parent, int entry) {
    const size_t slash = path.rfind('/');
    ImageTreeNode node;
    node.name = std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
    node.parent = parent;
    nodes.push_back(std::move(node));
    source.push_back(entry);
    const int index = static_cast<int>(nodes.size() - 1);
    nodes[static_cast<size_t>(parent)].children.push_back(index);
    byPath.emplace(path, index);
    return index;
  };
  auto isFolder = [&](int node) {
    const int entry = source[static_cast<size_t>(node)];
    return entry < 0 || entries[static_cast<size_t>(entry)].kind == EntryKind::Folder;
  };
  // The folder at `path`, made up (with the folders above it) when the
  // listing lacks it; -1 when something on the way is listed as no folder
  // (what lies below it could never be reached).
  auto folder = [&](std::string_view path) {
    auto it = byPath.find(path);
    if (it != byPath.end()) return isFolder(it->second) ? it->second : -1;
    int parent = 0;
    for (size_t end = 0; end != std::string_view::npos;) {
      end = path.find('/', end + 1);
      std::string_view prefix = path.substr(0, end);
      auto found = byPath.find(prefix);
      parent = found != byPath.end() ? found->second : addNode(prefix, parent, -1);
      if (!isFolder(parent)) return -1;
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
    const int parent = slash == std::string_view::npos ? 0 : folder(path.substr(0, slash));
    if (parent >= 0) addNode(path, parent, static_cast<int>(index));
  }
  byPath.clear();
  for (size_t i = 1; i < nodes.size(); ++i) {
    ImageEntry& e = nodes[i].entry;
    if (source[i] >= 0) {
      e = std::move(entries[static_cast<size_t>(source[i])]);
      if (!validKind(static_cast<uint8_t>(e.kind))) e.kind = EntryKind::Other;
      continue;
    }
    // A made-up folder: its path from its parent's, which is set by now
    // (parents come first).
    e.path = appendingPathComponent(nodes[static_cast<size_t>(nodes[i].parent)].entry.path, nodes[i].name);
    e.kind = EntryKind::Folder;
    e.mode = 0755;
  }
  for (ImageTreeNode& node : nodes)
    std::sort(node.children.begin(), node.children.end(), [&](int a, int b) {
      return nodes[static_cast<size_t>(a)].name < nodes[static_cast<size_t>(b)].name;
    });
  return nodes;
}

}  // namespace

std::optional<ImageTree> ImageTree::open(std::string bytes) {
  const size_t total = bytes.size();
  if (total < kHeaderBytes || std::string_view(bytes).substr(0, kMagic.size()) != kMagic)
    return std::nullopt;
  const uint32_t mark = load<uint32_t>(bytes, kMagic.size());
  const uint32_t count = load<uint32_t>(bytes, kMagic.size() + 4);
  const uint32_t bundle = load<uint32_t>(bytes, kMagic.size() + 8);
  if (mark != kByteOrderMark || count == 0 || count > (total - kHeaderBytes) / sizeof(uint32_t) ||
      count > static_cast<uint32_t>(std::numeric_limits<int>::max()) || bundle >= count)
    return std::nullopt;
  // From the last node to the first, so that a node's children, which
  // come after it, are known to lie inside the block when it is checked.
  // Every child is checked to name its parent, children's names ascend
  // strictly (so none is listed twice), and the children add up to every
  // node but the root: every node but the root is then the child of
  // exactly one folder, below it in the order, and the nodes make one tree.
  uint64_t children = 0;
  for (uint32_t i = count; i-- > 0;) {
    const size_t at = load<uint32_t>(bytes, kHeaderBytes + sizeof(uint32_t) * i);
    if (at > total || total - at < sizeof(Record)) return std::nullopt;
    const Record r = load<Record>(bytes, at);
    if (!validKind(r.kind) || (r.flags & ~kLinkWithoutTarget) != 0) return std::nullopt;
    for (uint8_t b : r.reserved)
      if (b) return std::nullopt;
    const uint64_t variable = uint64_t{r.nameLength} + r.linkLength + kExtentBytes * uint64_t{r.extentCount} +
                              sizeof(uint32_t) * uint64_t{r.childCount};
    if (variable > total - at - sizeof(Record)) return std::nullopt;
    const std::string_view name(bytes.data() + at + sizeof(Record), r.nameLength);
    const EntryKind kind = static_cast<EntryKind>(r.kind);
    if (i == 0) {
      if (r.parent != kNoParent || !name.empty() || kind != EntryKind::Folder) return std::nullopt;
    } else if (r.parent >= i || !validName(name)) {
      return std::nullopt;
    }
    if (r.childCount != 0 && kind != EntryKind::Folder) return std::nullopt;
    if (r.extentCount != 0) {
      if (kind != EntryKind::File) return std::nullopt;
      uint64_t covered = 0;
      for (uint32_t e = 0; e < r.extentCount; ++e) {
        const uint64_t length = load<uint64_t>(bytes, at + extentsAt(r) + kExtentBytes * e + 8);
        if (length > r.size - covered) return std::nullopt;
        covered += length;
      }
      if (covered != r.size) return std::nullopt;
    }
    std::string_view previous;
    for (uint32_t k = 0; k < r.childCount; ++k) {
      const uint32_t c = load<uint32_t>(bytes, at + childrenAt(r) + sizeof(uint32_t) * k);
      if (c <= i || c >= count) return std::nullopt;
      const size_t childAt = load<uint32_t>(bytes, kHeaderBytes + sizeof(uint32_t) * c);
      if (load<uint32_t>(bytes, childAt + offsetof(Record, parent)) != i) return std::nullopt;
      const std::string_view childName(bytes.data() + childAt + sizeof(Record),
                                       load<uint32_t>(bytes, childAt + offsetof(Record, nameLength)));
      if (k > 0 && !(previous < childName)) return std::nullopt;
      previous = childName;
    }
    children += r.childCount;
  }
  if (children != count - 1) return std::nullopt;
  ImageTree tree(std::move(bytes), static_cast<int>(count), static_cast<int>(bundle));
  if (tree.kind(tree.bundle()) != EntryKind::Folder) return std::nullopt;
  return tree;
}

size_t ImageTree::offset(int node) const {
  return load<uint32_t>(bytes_, kHeaderBytes + sizeof(uint32_t) * static_cast<size_t>(node));
}

int ImageTree::parent(int node) const {
  if (node == 0) return -1;
  return static_cast<int>(load<uint32_t>(bytes_, offset(node) + offsetof(Record, parent)));
}

std::string_view ImageTree::name(int node) const {
  const size_t at = offset(node);
  return std::string_view(bytes_.data() + at + sizeof(Record),
                          load<uint32_t>(bytes_, at + offsetof(Record, nameLength)));
}

EntryKind ImageTree::kind(int node) const {
  return static_cast<EntryKind>(load<uint8_t>(bytes_, offset(node) + offsetof(Record, kind)));
}

uint64_t ImageTree::size(int node) const {
  return load<uint64_t>(bytes_, offset(node) + offsetof(Record, size));
}

std::string_view ImageTree::linkTarget(int node) const {
  const size_t at = offset(node);
  const Record r = load<Record>(bytes_, at);
  return std::string_view(bytes_.data() + at + sizeof(Record) + r.nameLength, r.linkLength);
}

int ImageTree::childCount(int node) const {
  return static_cast<int>(load<uint32_t>(bytes_, offset(node) + offsetof(Record, childCount)));
}

int ImageTree::child(int node, int at) const {
  const size_t start = offset(node);
  const Record r = load<Record>(bytes_, start);
  return static_cast<int>(
      load<uint32_t>(bytes_, start + childrenAt(r) + sizeof(uint32_t) * static_cast<size_t>(at)));
}

int ImageTree::findChild(int node, std::string_view wanted) const {
  const size_t start = offset(node);
  const Record r = load<Record>(bytes_, start);
  const size_t first = start + childrenAt(r);
  size_t low = 0, high = r.childCount;
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    const int c = static_cast<int>(load<uint32_t>(bytes_, first + sizeof(uint32_t) * middle));
    const std::string_view n = name(c);
    if (n == wanted) return c;
    if (n < wanted) low = middle + 1;
    else high = middle;
  }
  return -1;
}

namespace {

// The fields an EntryInfo and an ImageEntry share, from a node's record
// at `record` (which its name and link target follow).
template <typename Entry>
void fillFromRecord(const Record& r, const char* record, Entry* out) {
  out->kind = static_cast<EntryKind>(r.kind);
  out->size = r.size;
  out->mode = static_cast<mode_t>(r.mode & 07777);
  out->modified = {static_cast<time_t>(r.modifiedSeconds), static_cast<long>(r.modifiedNanoseconds)};
  out->accessed = {static_cast<time_t>(r.accessedSeconds), static_cast<long>(r.accessedNanoseconds)};
  out->linkTarget.assign(record + sizeof(Record) + r.nameLength, r.linkLength);
}

}  // namespace

EntryInfo ImageTree::info(int node) const {
  const size_t at = offset(node);
  const Record r = load<Record>(bytes_, at);
  EntryInfo info;
  fillFromRecord(r, bytes_.data() + at, &info);
  return info;
}

ImageEntry ImageTree::entry(int node, std::string path) const {
  const size_t at = offset(node);
  const Record r = load<Record>(bytes_, at);
  ImageEntry e;
  e.path = std::move(path);
  fillFromRecord(r, bytes_.data() + at, &e);
  e.extents.resize(r.extentCount);
  for (uint32_t i = 0; i < r.extentCount; ++i) {
    e.extents[i].offset = load<uint64_t>(bytes_, at + extentsAt(r) + kExtentBytes * i);
    e.extents[i].length = load<uint64_t>(bytes_, at + extentsAt(r) + kExtentBytes * i + 8);
  }
  e.isLinkWithoutTarget = (r.flags & kLinkWithoutTarget) != 0;
  return e;
}

std::optional<std::string> writeImageTree(const std::vector<ImageTreeNode>& nodes, int bundle) {
  std::string bytes(kMagic);
  append(&bytes, kByteOrderMark);
  append(&bytes, static_cast<uint32_t>(nodes.size()));
  append(&bytes, static_cast<uint32_t>(bundle));
  const size_t table = bytes.size();
  bytes.resize(table + sizeof(uint32_t) * nodes.size());
  for (size_t i = 0; i < nodes.size(); ++i) {
    const ImageTreeNode& node = nodes[i];
    const ImageEntry& e = node.entry;
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    const uint32_t at = static_cast<uint32_t>(bytes.size());
    memcpy(bytes.data() + table + sizeof(uint32_t) * i, &at, sizeof at);
    Record r = {};
    r.size = e.size;
    r.modifiedSeconds = e.modified.tv_sec;
    r.modifiedNanoseconds = e.modified.tv_nsec;
    r.accessedSeconds = e.accessed.tv_sec;
    r.accessedNanoseconds = e.accessed.tv_nsec;
    r.mode = static_cast<uint32_t>(e.mode & 07777);
    r.parent = node.parent < 0 ? kNoParent : static_cast<uint32_t>(node.parent);
    r.nameLength = static_cast<uint32_t>(node.name.size());
    r.linkLength = static_cast<uint32_t>(e.linkTarget.size());
    r.extentCount = static_cast<uint32_t>(e.extents.size());
    r.childCount = static_cast<uint32_t>(node.children.size());
    r.kind = static_cast<uint8_t>(e.kind);
    r.flags = e.isLinkWithoutTarget ? kLinkWithoutTarget : 0;
    append(&bytes, r);
    bytes += node.name;
    bytes += e.linkTarget;
    for (const ImageExtent& extent : e.extents) {
      append(&bytes, extent.offset);
      append(&bytes, extent.length);
    }
    for (int c : node.children) append(&bytes, static_cast<uint32_t>(c));
  }
  if (bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  return bytes;
}

std::optional<std::string> encodeImageTree(std::vector<ImageEntry> entries, std::string_view bundle) {
  std::vector<ImageTreeNode> nodes = buildTree(std::move(entries));
  int root = -1;
  for (size_t i = 0; i < nodes.size() && root < 0; ++i)
    if (nodes[i].entry.kind == EntryKind::Folder && nodes[i].entry.path == bundle)
      root = static_cast<int>(i);
  if (root < 0 || nodes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return std::nullopt;
  for (ImageTreeNode& node : nodes) {
    // Extents are kept only when they describe the file whole; without
    // them the reader extracts it.
    ImageEntry& e = node.entry;
    if (e.kind != EntryKind::File || !extentsCover(e.extents, e.size)) e.extents.clear();
  }
  return writeImageTree(nodes, root);
}

}  // namespace velmar::tool
