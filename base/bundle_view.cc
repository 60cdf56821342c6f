#include "base/bundle_view.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
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

namespace {

// Writes all of `n` bytes at `data` to `out`. A write the kernel could not
// read its bytes for (EFAULT: mapped source pages that vanished) is EIO.
int writeAll(int out, const char* data, size_t n) {
  for (size_t written = 0; written < n;) {
    ssize_t w = ::write(out, data + written, n - written);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0) return errno == EFAULT ? EIO : errno;
    written += static_cast<size_t>(w);
  }
  return 0;
}

// Small enough to stay in the processor's cache between the read and the
// write (1 MiB and more measured several times slower here).
constexpr size_t kBufferBytes = size_t{512} << 10;
constexpr uint64_t kPageBytes = 4096;

// Copies `n` bytes of `in` from `at` to `out` through `buffer`. A file that
// ends before is EIO.
int copyThroughBuffer(int in, uint64_t at, size_t n, int out, std::vector<char>& buffer) {
  buffer.resize(kBufferBytes);
  while (n > 0) {
    ssize_t got = ::pread(in, buffer.data(), std::min(n, buffer.size()), static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return EIO;
    if (int err = writeAll(out, buffer.data(), static_cast<size_t>(got))) return err;
    at += static_cast<uint64_t>(got);
    n -= static_cast<size_t>(got);
  }
  return 0;
}

// Copies [*from, *from + length) of a regular file `in` to `out` for a
// range that lies at another offset within its pages than it lands at (a
// file in an ISO 9660 image starts on a 2048-byte block): copy_file_range
// shifts such bytes piece by piece, about 1.6 times slower for a gigabyte
// than the ways below. A window whose pages are all in the page cache is
// written straight from a shared mapping of it, so that write() copies each
// byte once, as the kernel's own copy does; a buffer would cost a second
// copy, a third of the time. Any other window is read through a buffer:
// faults on a mapping wait for each read and cost twice the processor time,
// where sequential reads let the kernel read ahead. Only the kernel touches
// the mapping, so a source cut short under it makes write() fail (EIO)
// instead of raising SIGBUS.
int copyShifted(int in, loff_t* from, uint64_t length, int out,
                const std::function<void(uint64_t)>& progress) {
  // Measured fastest here between 2 and 64 MiB; small enough that the
  // mapping never strains the address space.
  constexpr uint64_t kWindowBytes = uint64_t{4} << 20;
  std::vector<unsigned char> resident(kWindowBytes / kPageBytes + 1);
  std::vector<char> buffer;
  while (length > 0) {
    const uint64_t base = static_cast<uint64_t>(*from) & ~(kPageBytes - 1);
    const uint64_t skip = static_cast<uint64_t>(*from) - base;
    const size_t n = static_cast<size_t>(std::min(length, kWindowBytes - skip));
    const size_t mapped = skip + n;
    void* map = ::mmap(nullptr, mapped, PROT_READ, MAP_SHARED, in, static_cast<off_t>(base));
    bool cached = map != MAP_FAILED && ::mincore(map, mapped, resident.data()) == 0;
    for (size_t page = 0; cached && page < (mapped + kPageBytes - 1) / kPageBytes; ++page)
      cached = resident[page] & 1;
    int err;
    if (cached) {
      // One call maps the window's pages instead of a fault for every few.
      ::madvise(map, mapped, MADV_POPULATE_READ);
      err = writeAll(out, static_cast<const char*>(map) + skip, n);
    } else {
      err = copyThroughBuffer(in, static_cast<uint64_t>(*from), n, out, buffer);
    }
    if (map != MAP_FAILED) ::munmap(map, mapped);
    if (err) return err;
    *from += static_cast<loff_t>(n);
    length -= n;
    if (progress) progress(n);
  }
  return 0;
}

}  // namespace

int copyBytes(int in, uint64_t offset, uint64_t length, int out,
              const std::function<void(uint64_t)>& progress, bool exact) {
  constexpr size_t kKernelChunk = size_t{1} << 30;
  const bool toEnd = length == UINT64_MAX;
  loff_t position = static_cast<loff_t>(offset);
  loff_t* from = toEnd ? nullptr : &position;
  // Small copies are not worth shifting by hand.
  const loff_t outAt = ::lseek(out, 0, SEEK_CUR);
  bool kernel = toEnd || length < kBufferBytes || outAt < 0 ||
                (position - outAt) % static_cast<loff_t>(kPageBytes) == 0;
  struct stat st;
  if (!kernel && ::fstat(in, &st) == 0 && S_ISREG(st.st_mode)) {
    // Only what the file holds is mapped: past its end a mapping reads
    // zeros to the end of the page, and then faults.
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    const uint64_t there = offset < size ? std::min(length, size - offset) : 0;
    if (int err = copyShifted(in, from, there, out, progress)) return err;
    return there == length || !exact ? 0 : EIO;  // the file ended early
  }
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
      if (n > 0) {
        if (int err = writeAll(out, buffer.data(), static_cast<size_t>(n))) return err;
        if (from) *from += n;
      }
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
