#include "tool/file_copy.h"

#include <errno.h>
#include <unistd.h>

#include <vector>

namespace velmar::tool {

namespace {

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

}  // namespace

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
