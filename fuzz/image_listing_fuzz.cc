// The image readers' listings and the tree built from them. A listing is
// shaped by the image: names, link targets, sizes and times come from a
// hostile bundle, and a cached tree block may be damaged. The first byte
// picks the input's kind; the rest is the text or the block.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tool/disk_image.h"
#include "tool/image_tree.h"
#include "tool/image_view.h"

namespace {

using velmar::tool::ImageEntry;
using velmar::tool::ImageTree;

// Every read a view makes of a tree, on every node: none may leave the
// block, and each node must be found again by its name under its parent.
void walk(const ImageTree& tree) {
  for (int node = 0; node < tree.count(); ++node) {
    const int parent = tree.parent(node);
    std::string_view name = tree.name(node);
    tree.kind(node);
    tree.size(node);
    tree.linkTarget(node);
    tree.info(node);
    tree.entry(node, std::string(name));
    for (int at = 0; at < tree.childCount(node); ++at)
      if (tree.parent(tree.child(node, at)) != node) __builtin_trap();
    if (parent >= 0 && tree.findChild(parent, name) != node) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::vector<ImageEntry> entries;
  switch (data[0] % 3) {
    case 0: entries = velmar::tool::parseSevenZipListing(text); break;
    case 1: entries = velmar::tool::parseXorrisoListing(text, 1795430000); break;
    default:
      if (auto tree = ImageTree::open(std::string(text))) walk(*tree);
      return 0;
  }
  std::string error;
  std::optional<std::string> bundle = velmar::tool::findImageBundle(entries, &error);
  std::optional<std::string> block = velmar::tool::encodeImageTree(entries, bundle ? *bundle : "");
  if (!block) return 0;
  // A tree the encoder made must pass the checks a cached one has to.
  std::optional<ImageTree> tree = ImageTree::open(*block);
  if (!tree) __builtin_trap();
  walk(*tree);
  return 0;
}
