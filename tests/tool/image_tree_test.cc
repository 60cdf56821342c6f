// The image's tree as the cache keeps it: what goes in comes out, and a
// block that is cut short, damaged or made to mislead is refused, or read
// without a read outside it or an index out of range.

#include <gtest/gtest.h>

#include <set>

#include "tool/image_tree.h"

namespace velmar::tool {
namespace {

ImageEntry entry(const std::string& path, EntryKind kind, uint64_t size = 0) {
  ImageEntry e;
  e.path = path;
  e.kind = kind;
  e.size = size;
  e.mode = kind == EntryKind::Folder ? 0755 : 0644;
  return e;
}

// A listing as readers give it: out of order, a folder missing, a path
// listed twice, names with odd bytes.
std::vector<ImageEntry> sampleListing() {
  std::vector<ImageEntry> entries;
  ImageEntry file = entry("Vol/B/Restore/a.plist", EntryKind::File, 12);
  file.mode = 04750;
  file.modified = {1700000000, 123456789};
  file.accessed = {1700000001, 5};
  file.extents = {{8192, 10}, {16384, 2}};
  entries.push_back(file);
  entries.push_back(entry("Vol", EntryKind::Folder));
  entries.push_back(entry("Vol/B", EntryKind::Folder));
  entries.push_back(entry("Vol/B/Restore", EntryKind::Folder));
  ImageEntry link = entry("Vol/B/Restore/link", EntryKind::Link);
  link.linkTarget = "../x/../a.plist";
  entries.push_back(link);
  ImageEntry hfsLink = entry("Vol/B/hfs-link", EntryKind::Other, 7);
  hfsLink.isLinkWithoutTarget = true;
  entries.push_back(hfsLink);
  entries.push_back(entry("Vol/B/Restore/a.plist", EntryKind::Folder));  // listed again
  entries.push_back(entry("Vol/B/odd\tname\n\xc3\xa9", EntryKind::File, 1));
  entries.push_back(entry("Vol/B/Z", EntryKind::File, 1));
  entries.push_back(entry("Vol/B/Firmware/deep/f", EntryKind::File, 3));  // folders made up
  return entries;
}

// Every node's path, by a walk from the root through the children, each
// node checked to be reached once and to name its parent.
std::vector<std::string> walk(const ImageTree& tree) {
  std::vector<std::string> paths;
  std::set<int> seen;
  std::vector<std::pair<int, std::string>> pending = {{0, ""}};
  while (!pending.empty()) {
    auto [node, path] = pending.back();
    pending.pop_back();
    EXPECT_TRUE(seen.insert(node).second) << node;
    if (node != 0) paths.push_back(path);
    for (int i = tree.childCount(node); i-- > 0;) {
      const int child = tree.child(node, i);
      EXPECT_EQ(tree.parent(child), node);
      EXPECT_EQ(tree.findChild(node, tree.name(child)), child);
      pending.emplace_back(child, (path.empty() ? "" : path + "/") + std::string(tree.name(child)));
    }
  }
  EXPECT_EQ(static_cast<int>(seen.size()), tree.count());
  return paths;
}

int nodeAt(const ImageTree& tree, const std::string& path) {
  int node = 0;
  for (size_t start = 0; node >= 0 && start <= path.size();) {
    size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    node = tree.findChild(node, std::string_view(path).substr(start, slash - start));
    start = slash + 1;
  }
  return node;
}

TEST(ImageTreeTest, AListingRoundTripsAsATree) {
  std::optional<std::string> bytes = encodeImageTree(sampleListing(), "Vol/B");
  ASSERT_TRUE(bytes);
  std::optional<ImageTree> tree = ImageTree::open(*bytes);
  ASSERT_TRUE(tree);
  EXPECT_EQ(walk(*tree), (std::vector<std::string>{
                             "Vol", "Vol/B", "Vol/B/Firmware", "Vol/B/Firmware/deep",
                             "Vol/B/Firmware/deep/f", "Vol/B/Restore", "Vol/B/Restore/a.plist",
                             "Vol/B/Restore/link", "Vol/B/Z", "Vol/B/hfs-link",
                             "Vol/B/odd\tname\n\xc3\xa9"}));
  EXPECT_EQ(tree->bundle(), nodeAt(*tree, "Vol/B"));
  EXPECT_EQ(tree->parent(0), -1);
  EXPECT_EQ(tree->kind(0), EntryKind::Folder);

  const int file = nodeAt(*tree, "Vol/B/Restore/a.plist");
  ASSERT_GT(file, 0);
  ImageEntry back = tree->entry(file, "the path");
  EXPECT_EQ(back.path, "the path");
  EXPECT_EQ(back.kind, EntryKind::File);  // the first of the two listed
  EXPECT_EQ(back.size, 12u);
  EXPECT_EQ(back.mode, 04750u);
  EXPECT_EQ(back.modified.tv_sec, 1700000000);
  EXPECT_EQ(back.modified.tv_nsec, 123456789);
  EXPECT_EQ(back.accessed.tv_nsec, 5);
  EXPECT_EQ(back.extents, (std::vector<ImageExtent>{{8192, 10}, {16384, 2}}));
  EntryInfo info = tree->info(file);
  EXPECT_EQ(info.size, 12u);
  EXPECT_EQ(info.mode, 04750u);

  const int link = nodeAt(*tree, "Vol/B/Restore/link");
  EXPECT_EQ(tree->kind(link), EntryKind::Link);
  EXPECT_EQ(tree->linkTarget(link), "../x/../a.plist");
  EXPECT_TRUE(tree->entry(nodeAt(*tree, "Vol/B/hfs-link"), "").isLinkWithoutTarget);
  const int madeUp = nodeAt(*tree, "Vol/B/Firmware/deep");
  EXPECT_EQ(tree->kind(madeUp), EntryKind::Folder);
  EXPECT_EQ(tree->info(madeUp).mode, 0755u);
  EXPECT_EQ(tree->findChild(0, "vol"), -1);  // exact names only
  EXPECT_EQ(tree->findChild(nodeAt(*tree, "Vol/B/Z"), "x"), -1);
}

TEST(ImageTreeTest, WhatCannotBeReachedOrReadIsLeftOut) {
  std::vector<ImageEntry> entries = {
      entry("B/Restore", EntryKind::Folder),
      entry("B/file", EntryKind::File, 4),
      entry("B/file/below", EntryKind::File, 1),  // under a file
      entry("B/./dot", EntryKind::File),
      entry("B/../up", EntryKind::File),
      entry("/B/absolute", EntryKind::File),
      entry("B//empty", EntryKind::File),
  };
  entries[1].extents = {{0, 3}};  // do not cover the file: it is extracted instead
  ImageEntry folderWithExtents = entry("B/folder", EntryKind::Folder, 2);
  folderWithExtents.extents = {{0, 2}};
  entries.push_back(folderWithExtents);
  std::optional<std::string> bytes = encodeImageTree(entries, "B");
  ASSERT_TRUE(bytes);
  std::optional<ImageTree> tree = ImageTree::open(*bytes);
  ASSERT_TRUE(tree);
  EXPECT_EQ(walk(*tree), (std::vector<std::string>{"B", "B/Restore", "B/file", "B/folder"}));
  EXPECT_TRUE(tree->entry(nodeAt(*tree, "B/file"), "").extents.empty());
  EXPECT_TRUE(tree->entry(nodeAt(*tree, "B/folder"), "").extents.empty());
  // The bundle must be a folder of the tree.
  EXPECT_FALSE(encodeImageTree(entries, "B/file"));
  EXPECT_FALSE(encodeImageTree(entries, "C"));
  EXPECT_TRUE(encodeImageTree(entries, ""));
}

// Whatever a damaged block lets open must still be one tree that reads
// inside itself.
void readAll(const ImageTree& tree) {
  walk(tree);
  for (int node = 0; node < tree.count(); ++node) {
    tree.entry(node, "");
    tree.info(node);
    tree.linkTarget(node);
  }
  EXPECT_EQ(tree.kind(tree.bundle()), EntryKind::Folder);
}

TEST(ImageTreeTest, EveryTruncationIsRefusedAndBitFlipsAreHarmless) {
  std::optional<std::string> bytes = encodeImageTree(sampleListing(), "Vol/B");
  ASSERT_TRUE(bytes);
  for (size_t length = 0; length < bytes->size(); ++length)
    EXPECT_FALSE(ImageTree::open(bytes->substr(0, length))) << length;
  int opened = 0;
  for (size_t at = 0; at < bytes->size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = *bytes;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
      std::optional<ImageTree> tree = ImageTree::open(std::move(damaged));
      if (!tree) continue;
      ++opened;
      readAll(*tree);
      if (::testing::Test::HasFailure()) FAIL() << "flipped bit " << bit << " of byte " << at;
    }
  }
  // Times, sizes, modes and text flip without harm; most of the rest is
  // caught.
  EXPECT_GT(opened, 0);
  EXPECT_LT(opened, static_cast<int>(bytes->size()) * 8);
}

// A small tree: the root, the bundle "B" with "Restore" and a file "f" in
// it; each test breaks it one way.
class HostileTreeTest : public ::testing::Test {
 protected:
  HostileTreeTest() {
    nodes_.resize(4);
    nodes_[0].entry = entry("", EntryKind::Folder);
    nodes_[0].children = {1};
    nodes_[1] = {entry("", EntryKind::Folder), 0, {2, 3}, "B"};
    nodes_[2] = {entry("", EntryKind::Folder), 1, {}, "Restore"};
    nodes_[3] = {entry("", EntryKind::File, 4), 1, {}, "f"};
  }

  bool opens(int bundle = 1) {
    std::optional<std::string> bytes = writeImageTree(nodes_, bundle);
    if (!bytes) return false;
    std::optional<ImageTree> tree = ImageTree::open(*bytes);
    if (tree) readAll(*tree);
    return tree.has_value();
  }

  std::vector<ImageTreeNode> nodes_;
};

TEST_F(HostileTreeTest, TheSoundTreeOpens) {
  EXPECT_TRUE(opens());
  EXPECT_TRUE(opens(0));
  EXPECT_TRUE(opens(2));
}

TEST_F(HostileTreeTest, TheBundleIsAFolderOfTheTree) {
  EXPECT_FALSE(opens(3));
  EXPECT_FALSE(opens(4));
  EXPECT_FALSE(opens(-1));
}

TEST_F(HostileTreeTest, CyclesAndParentsAfterChildrenAreRefused) {
  // "Restore" holding "B" again.
  nodes_[2].children = {1};
  EXPECT_FALSE(opens());
  nodes_[2].children = {};
  // A node its own child.
  nodes_[2].children = {2};
  EXPECT_FALSE(opens());
  nodes_[2].children = {};
  // The same tree with "B" numbered after its children.
  std::vector<ImageTreeNode> reordered = {nodes_[0], nodes_[2], nodes_[3], nodes_[1]};
  reordered[0].children = {3};
  reordered[1].parent = 3;
  reordered[2].parent = 3;
  reordered[3].children = {1, 2};
  nodes_ = reordered;
  EXPECT_FALSE(opens(3));
}

TEST_F(HostileTreeTest, EveryNodeHasExactlyOneParentThatListsIt) {
  ImageTreeNode orphan = {entry("", EntryKind::File), 1, {}, "orphan"};
  nodes_.push_back(orphan);
  EXPECT_FALSE(opens());  // not among its parent's children
  nodes_[1].children = {4, 2, 3};
  EXPECT_FALSE(opens());  // children out of order
  nodes_[1].children = {2, 3, 4};
  EXPECT_TRUE(opens());
  nodes_[4].parent = 2;
  EXPECT_FALSE(opens());  // names another parent than the one listing it
  nodes_[4].parent = 1;
  nodes_[1].children = {2, 3, 3};
  EXPECT_FALSE(opens());  // listed twice
  nodes_[1].children = {2, 3, 4, 0};
  EXPECT_FALSE(opens());  // the root as a child
  nodes_[1].children = {2, 3, 4, 5};
  EXPECT_FALSE(opens());  // out of range
  nodes_[1].children = {2, 3};
  nodes_[0].children = {1, 4};
  nodes_[4].parent = 0;
  nodes_[4].name = "B";
  EXPECT_FALSE(opens());  // two children of one name
}

TEST_F(HostileTreeTest, NamesAreSingleComponents) {
  for (const std::string& name : std::vector<std::string>{"", ".", "..", "a/b", "../up", std::string("a\0b", 3)}) {
    nodes_[3].name = name;
    EXPECT_FALSE(opens()) << name;
  }
  nodes_[3].name = "A";  // before "Restore" in byte order, after it in the list
  EXPECT_FALSE(opens());
  nodes_[3].name = "f";
  nodes_[0].name = "root";
  EXPECT_FALSE(opens());
  nodes_[0].name = "";
  nodes_[0].parent = 0;
  EXPECT_FALSE(opens());
}

TEST_F(HostileTreeTest, OnlyFoldersHoldChildrenAndOnlyFilesExtents) {
  nodes_[1].entry.kind = EntryKind::File;
  EXPECT_FALSE(opens(0));
  nodes_[1].entry.kind = EntryKind::Link;
  EXPECT_FALSE(opens(0));
  nodes_[1].entry.kind = static_cast<EntryKind>(0);
  EXPECT_FALSE(opens(0));
  nodes_[1].entry.kind = static_cast<EntryKind>(9);
  EXPECT_FALSE(opens(0));
  nodes_[1].entry.kind = EntryKind::Folder;
  nodes_[0].entry.kind = EntryKind::Other;
  EXPECT_FALSE(opens());
  nodes_[0].entry.kind = EntryKind::Folder;

  nodes_[3].entry.extents = {{0, 4}};
  EXPECT_TRUE(opens());
  nodes_[3].entry.extents = {{0, 3}};
  EXPECT_FALSE(opens());  // short of the size
  nodes_[3].entry.extents = {{0, 4}, {0, 1}};
  EXPECT_FALSE(opens());  // beyond it
  nodes_[3].entry.extents = {{0, uint64_t{1} << 63}, {0, (uint64_t{1} << 63) + 4}};
  EXPECT_FALSE(opens());  // adding up to it only by wrapping around
  nodes_[3].entry.extents = {};
  nodes_[2].entry.extents = {{0, 0}};
  EXPECT_FALSE(opens());  // on a folder
}

TEST_F(HostileTreeTest, HeaderAndLengthsStayInsideTheBlock) {
  std::string bytes = *writeImageTree(nodes_, 1);
  ASSERT_TRUE(ImageTree::open(bytes));
  const size_t magic = std::string_view("velmarbs image tree 1\n").size();
  auto withWord = [&](size_t at, uint32_t value) {
    std::string changed = bytes;
    memcpy(changed.data() + at, &value, sizeof value);
    return changed;
  };
  EXPECT_FALSE(ImageTree::open("velmarbs image tree 2\n" + bytes.substr(magic)));
  EXPECT_FALSE(ImageTree::open(withWord(magic, 0x04030201)));  // the other byte order
  EXPECT_FALSE(ImageTree::open(withWord(magic + 4, 0)));        // no nodes
  EXPECT_FALSE(ImageTree::open(withWord(magic + 4, 5)));        // more than there are
  EXPECT_FALSE(ImageTree::open(withWord(magic + 4, 0xffffffff)));
  const size_t table = magic + 12;
  EXPECT_FALSE(ImageTree::open(withWord(table + 4, 0xfffffff0)));  // a node beyond the end
  EXPECT_FALSE(ImageTree::open(withWord(table + 4, static_cast<uint32_t>(bytes.size()) - 10)));
  // Lengths in a record (name, link, extents, children) beyond the end.
  uint32_t first;
  memcpy(&first, bytes.data() + table + 12, sizeof first);
  for (size_t field = 48; field < 64; field += 4)
    EXPECT_FALSE(ImageTree::open(withWord(first + field, 0x7fffffff))) << field;
  // Two nodes sharing one record: two children of one name.
  uint32_t second;
  memcpy(&second, bytes.data() + table + 8, sizeof second);
  EXPECT_FALSE(ImageTree::open(withWord(table + 12, second)));
}

}  // namespace
}  // namespace velmar::tool
