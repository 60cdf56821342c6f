#include "base/bundle_view.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

int BundleView::copyFile(std::string_view path, int out,
                         const std::function<void(uint64_t)>& progress) {
  UniqueFd in;
  if (int err = openFile(path, &in)) return err;
  struct stat st;
  if (::fstat(in.get(), &st) != 0) return errno;
  // One byte past the size seen at the open: a file that grows while it is
  // copied shows as a longer copy instead of being followed without end.
  return copyBytes(in.get(), 0, static_cast<uint64_t>(st.st_size) + 1, out, progress,
                   /*exact=*/false);
}

int copyBytes(int in, uint64_t offset, uint64_t length, int out,
              const std::function<void(uint64_t)>& progress, bool exact) {
  constexpr size_t kKernelChunk = size_t{1} << 30;
  // Small enough to stay in the processor's cache between the read and the
  // write (1 MiB and more measured several times slower here).
  constexpr size_t kBufferBytes = size_t{512} << 10;
  constexpr loff_t kPageBytes = 4096;
  const bool toEnd = length == UINT64_MAX;
  loff_t position = static_cast<loff_t>(offset);
  loff_t* from = toEnd ? nullptr : &position;
  // The kernel copies page by page: bytes that land at another offset
  // within their page than they are read from (a file in an ISO 9660 image
  // starts on a 2048-byte block) are shifted piece by piece, about 1.6
  // times slower for a gigabyte than through a buffer that fits the cache.
  // Small copies are not worth a buffer.
  const loff_t outAt = ::lseek(out, 0, SEEK_CUR);
  bool kernel = toEnd || length < kBufferBytes || outAt < 0 || (position - outAt) % kPageBytes == 0;
  std::vector<char> buffer;
  for (bool first = true; toEnd || length > 0; first = false) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(length, kKernelChunk));
    ssize_t n;
    if (kernel) {
      n = ::copy_file_range(in, from, out, nullptr, want, 0);
      // Across file systems, on file systems without it, or on kernels
      // without it; some pseudo file systems answer 0 at once.
      if ((n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                     errno == EOPNOTSUPP || (first && errno == EBADF))) ||
          (n == 0 && first)) {
        kernel = false;
        continue;
      }
    } else {
      if (buffer.empty())
        buffer.resize(static_cast<size_t>(std::min<uint64_t>(kBufferBytes, std::max<uint64_t>(length, 1))));
      const size_t chunk = std::min(buffer.size(), want);
      n = from ? ::pread(in, buffer.data(), chunk, *from) : ::read(in, buffer.data(), chunk);
      for (ssize_t written = 0; n > 0 && written < n;) {
        ssize_t w = ::write(out, buffer.data() + written, static_cast<size_t>(n - written));
        if (w < 0 && errno == EINTR) continue;
        if (w < 0) return errno;
        written += w;
      }
      if (n > 0 && from) *from += n;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return toEnd || !exact ? 0 : EIO;  // the file ended early
    if (!toEnd) length -= static_cast<uint64_t>(n);
    if (progress) progress(static_cast<uint64_t>(n));
  }
  return 0;
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
