#include "base/bundle_view.h"

#include <errno.h>
#include <string.h>

#include <utility>

#include "base/text.h"

namespace velmar {

std::vector<std::string> listTree(BundleView& view, std::string_view folder,
                                  std::vector<std::string>* unreadable) {
  struct Frame {
    std::string folder;
    std::vector<FolderEntry> entries;
    size_t next = 0;
  };
  std::vector<std::string> paths;
  std::vector<Frame> stack;
  auto enter = [&](std::string path) {
    Frame frame{std::move(path), {}, 0};
    if (view.listFolder(frame.folder, &frame.entries) != 0) {
      if (unreadable) unreadable->push_back(frame.folder);
      return;
    }
    stack.push_back(std::move(frame));
  };
  enter(std::string(folder));
  while (!stack.empty()) {
    Frame& frame = stack.back();
    if (frame.next == frame.entries.size()) {
      stack.pop_back();
      continue;
    }
    const FolderEntry& entry = frame.entries[frame.next++];
    std::string path = appendingPathComponent(frame.folder, entry.name);
    paths.push_back(path);
    // Links are listed as themselves and never descended.
    if (entry.kind == EntryKind::Folder) enter(std::move(path));
  }
  return paths;
}

bool existsInView(BundleView& view, std::string_view path) {
  EntryInfo info;
  return view.targetInfo(path, &info) == 0;
}

std::string describeViewError(int error) {
  switch (error) {
    case ENOENT: return "it does not exist";
    case EXDEV: return "it leads out of the bundle";
    case ELOOP: return "it has too many symbolic links";
    case EINVAL: return "it is not a regular file";
    case EFBIG: return "it is too large";
    case ENOTDIR: return "a folder on its way is not a folder";
    case EACCES: return "permission denied";
    default: return strerror(error);
  }
}

}  // namespace velmar
