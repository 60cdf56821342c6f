#include "tool/file_copy.h"

#include <errno.h>
#include <unistd.h>

#include <vector>

namespace velmar::tool {

namespace {

// Large enough to keep the kernel busy, small enough for a lively progress
// line.
constexpr size_t kKernelChunk = size_t{64} << 20;
constexpr size_t kBufferSize = size_t{1} << 20;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

int writeAll(int fd, const char* bytes, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, bytes, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

// How much more may be copied: up to one byte past the limit, which is
// enough to tell that the file is longer than expected.
size_t allowance(uint64_t done, uint64_t limit, size_t chunk) {
  if (limit == UINT64_MAX) return chunk;
  if (done > limit) return 0;
  uint64_t left = limit - done + 1;
  return left < chunk ? static_cast<size_t>(left) : chunk;
}

int copyByReading(int in, int out, CopyProgress* progress, uint64_t* done, uint64_t limit) {
  std::vector<char> buffer(kBufferSize);
  for (;;) {
    size_t want = allowance(*done, limit, buffer.size());
    if (want == 0) return 0;
    ssize_t n = ::read(in, buffer.data(), want);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) return 0;
    if (int err = writeAll(out, buffer.data(), static_cast<size_t>(n))) return err;
    *done += static_cast<uint64_t>(n);
    if (progress) progress->addBytes(static_cast<uint64_t>(n));
  }
}

}  // namespace

int copyFileData(int in, int out, CopyProgress* progress, uint64_t* copied, uint64_t limit) {
  uint64_t local = 0;
  uint64_t* done = copied ? copied : &local;
  *done = 0;
  for (bool first = true;; first = false) {
    size_t want = allowance(*done, limit, kKernelChunk);
    if (want == 0) return 0;
    ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, want, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      // Across file systems, on file systems without it, or on kernels
      // without it: copy through user space from where the kernel stopped.
      if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP ||
          (first && errno == EBADF))
        return copyByReading(in, out, progress, done, limit);
      return errno;
    }
    if (n == 0) {
      // Some pseudo file systems answer 0 at once; a read tells the truth.
      return first ? copyByReading(in, out, progress, done, limit) : 0;
    }
    *done += static_cast<uint64_t>(n);
    if (progress) progress->addBytes(static_cast<uint64_t>(n));
  }
}

CopyProgress::CopyProgress(bool enabled, uint64_t totalFiles, uint64_t totalBytes, FILE* stream)
    : enabled_(enabled), totalFiles_(totalFiles), totalBytes_(totalBytes), stream_(stream) {}

void CopyProgress::addBytes(uint64_t bytes) {
  bytesDone_ += bytes;
  draw(false);
}

void CopyProgress::fileDone() {
  ++filesDone_;
  draw(false);
}

void CopyProgress::finish() {
  if (!enabled_ || !drawn_ || finished_) return;
  draw(true);
  finished_ = true;
  std::fputc('\n', stream_);
  std::fflush(stream_);
}

void CopyProgress::draw(bool force) {
  if (!enabled_ || finished_) return;
  auto now = std::chrono::steady_clock::now();
  if (!force && drawn_ && now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  drawn_ = true;
  // "\33[K" clears what a longer earlier line left behind.
  std::fprintf(stream_, "\r%s\33[K",
               progressLine(filesDone_, totalFiles_, bytesDone_, totalBytes_).c_str());
  std::fflush(stream_);
}

std::string byteCount(uint64_t bytes) {
  static const char* const kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(kUnits)) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string progressLine(uint64_t filesDone, uint64_t filesTotal, uint64_t bytesDone,
                         uint64_t bytesTotal) {
  return "copying " + std::to_string(filesDone) + "/" + std::to_string(filesTotal) + " files, " +
         byteCount(bytesDone) + "/" + byteCount(bytesTotal);
}

}  // namespace velmar::tool
