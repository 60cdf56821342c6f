// ImageTree: an image's listing as a tree of nodes, kept in one block of
// bytes that is read in place.
//
// A listing has thousands of entries and a query looks at a few dozen, but
// every query of a cached image used to parse the whole listing and build a
// tree of it again. So the tree is built once, when the image is listed, and
// the cache keeps it in the form it is used in: a header, an offset per
// node, and per node a fixed record followed by its name, link target,
// extents and children (sorted by name bytes). Paths are not stored: a
// node's path is its parent's path joined with its name, and node 0, the
// image's root, has the path "". Opening a block is one pass of checks,
// without an allocation per node; after it every read stays inside the
// block and every index is in range, whatever the bytes were. A block that
// fails a check is refused, and the image is listed again.

#ifndef VELMAR_TOOL_IMAGE_TREE_H_
#define VELMAR_TOOL_IMAGE_TREE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/disk_image.h"

namespace velmar::tool {

class ImageTree {
 public:
  // The tree in `bytes`, or nothing when they are not a whole, sound tree
  // of this version.
  static std::optional<ImageTree> open(std::string bytes);

  const std::string& bytes() const { return bytes_; }
  int count() const { return count_; }
  // The bundle folder's node.
  int bundle() const { return bundle_; }

  // -1 for node 0.
  int parent(int node) const;
  std::string_view name(int node) const;
  EntryKind kind(int node) const;
  uint64_t size(int node) const;
  std::string_view linkTarget(int node) const;
  int childCount(int node) const;
  // The `at`th child, in name order.
  int child(int node, int at) const;
  // The child of `node` called exactly `name`, or -1.
  int findChild(int node, std::string_view name) const;
  // What a view answers about the node, all but its identity.
  EntryInfo info(int node) const;
  // Everything about the node, its path `path` as the caller made it.
  ImageEntry entry(int node, std::string path) const;

 private:
  ImageTree(std::string bytes, int count, int bundle)
      : bytes_(std::move(bytes)), count_(count), bundle_(bundle) {}
  size_t offset(int node) const;

  std::string bytes_;
  int count_ = 0;
  int bundle_ = 0;
};

// A node as it is written: its entry (whose path is not written), the
// index of its parent (-1 for none) and of its children, its name.
struct ImageTreeNode {
  ImageEntry entry;
  int parent = -1;
  std::vector<int> children;
  std::string name;
};

// The nodes as a block, exactly as given, `bundle` the bundle folder's
// index; whether they make a tree is for ImageTree::open to say. Nothing
// when the block would be too large to address.
std::optional<std::string> writeImageTree(const std::vector<ImageTreeNode>& nodes, int bundle);

// The listing as a tree block, with `bundle` (a folder's path, "" for the
// image's root) as its bundle folder. Folders missing from the listing are
// made up, a path listed twice keeps its first entry, and entries with a
// path that is not a plain relative one are left out. Nothing when the
// bundle folder is not among the folders.
std::optional<std::string> encodeImageTree(std::vector<ImageEntry> entries, std::string_view bundle);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_IMAGE_TREE_H_
