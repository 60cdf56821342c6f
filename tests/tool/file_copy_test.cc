#include "tool/file_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"
#include "base/unique_fd.h"

namespace velmar::tool {
namespace {

using testing::readText;
using testing::writeText;


TEST(CopyProgress, LineShowsFilesAndBytesOfTheTotal) {
  EXPECT_EQ(byteCount(0), "0 B");
  EXPECT_EQ(byteCount(1023), "1023 B");
  EXPECT_EQ(byteCount(1536), "1.5 KB");
  EXPECT_EQ(byteCount(uint64_t{5} << 30), "5.0 GB");
  EXPECT_EQ(progressLine(3, 10, 1536, uint64_t{20} << 20), "copying 3/10 files, 1.5 KB/20.0 MB");
}

TEST(CopyProgress, DrawsInPlaceOnlyWhenEnabled) {
  char* text = nullptr;
  size_t size = 0;
  FILE* stream = ::open_memstream(&text, &size);
  {
    CopyProgress progress(true, 2, 100, stream);
    progress.addBytes(50);
    progress.fileDone();  // within 0.1 s of the first draw: not drawn
    progress.finish();
  }
  CopyProgress silent(false, 2, 100, stream);
  silent.addBytes(100);
  silent.finish();
  ::fclose(stream);
  std::string out(text, size);
  ::free(text);
  EXPECT_EQ(out, "\rcopying 0/2 files, 50 B/100 B\33[K\rcopying 1/2 files, 50 B/100 B\33[K\n");
}

}  // namespace
}  // namespace velmar::tool
