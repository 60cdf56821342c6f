// The copy phase's progress line.

#ifndef VELMAR_TOOL_FILE_COPY_H_
#define VELMAR_TOOL_FILE_COPY_H_

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace velmar::tool {

// The copy-phase progress line on standard error: files and bytes done of
// the total, redrawn in place at most ten times a second. Silent when not
// enabled (standard error is not a terminal).
class CopyProgress {
 public:
  CopyProgress(bool enabled, uint64_t totalFiles, uint64_t totalBytes, FILE* stream = stderr);

  void addBytes(uint64_t bytes);
  void fileDone();
  // Draws the final state and ends the line; nothing is drawn after it.
  void finish();

 private:
  void draw(bool force);

  bool enabled_;
  uint64_t totalFiles_;
  uint64_t totalBytes_;
  uint64_t filesDone_ = 0;
  uint64_t bytesDone_ = 0;
  FILE* stream_;
  bool drawn_ = false;
  bool finished_ = false;
  std::chrono::steady_clock::time_point lastDraw_;
};

// "copying 3/10 files, 1.5 MB/20.0 MB"
std::string progressLine(uint64_t filesDone, uint64_t filesTotal, uint64_t bytesDone,
                         uint64_t bytesTotal);
// "512 B", "1.5 KB", "20.0 MB", ... (powers of 1024)
std::string byteCount(uint64_t bytes);

}  // namespace velmar::tool

#endif  // VELMAR_TOOL_FILE_COPY_H_
