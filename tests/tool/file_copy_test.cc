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

std::string patterned(size_t size) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) s[i] = static_cast<char>((i * 131 + i / 4096) & 0xff);
  return s;
}

TEST(CopyFileData, CopiesEverythingInTheKernelAndThroughTheFallback) {
  synth::TempDir dir("velmar-copy");
  const std::string data = patterned((size_t{3} << 20) + 17);  // more than one buffer
  writeText(dir / "in", data);
  for (bool append : {false, true}) {
    // O_APPEND makes copy_file_range refuse, so the read/write loop runs.
    UniqueFd in(::open((dir / "in").c_str(), O_RDONLY));
    UniqueFd out(::open((dir / "out").c_str(),
                        O_WRONLY | O_CREAT | O_TRUNC | (append ? O_APPEND : 0), 0600));
    CopyProgress progress(false, 1, data.size());
    EXPECT_EQ(copyFileData(in.get(), out.get(), &progress), 0);
    out.reset();
    EXPECT_TRUE(readText(dir / "out") == data) << "append " << append;
  }
}

TEST(CopyFileData, StopsOneBytePastTheLimitSoGrowthShows) {
  synth::TempDir dir("velmar-copy");
  const std::string data = patterned((size_t{2} << 20) + 5);
  writeText(dir / "in", data);
  for (bool append : {false, true}) {
    for (uint64_t limit : {uint64_t{0}, uint64_t{1000}, uint64_t{data.size()}}) {
      SCOPED_TRACE(std::to_string(limit) + (append ? " append" : ""));
      UniqueFd in(::open((dir / "in").c_str(), O_RDONLY));
      UniqueFd out(::open((dir / "out").c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC | (append ? O_APPEND : 0), 0600));
      uint64_t copied = 0;
      EXPECT_EQ(copyFileData(in.get(), out.get(), nullptr, &copied, limit), 0);
      // Exactly the expected size when the file holds it, one more when longer.
      EXPECT_EQ(copied, limit == data.size() ? limit : limit + 1);
      out.reset();
      EXPECT_EQ(readText(dir / "out").size(), copied);
    }
  }
}

TEST(CopyFileData, ReportsAWriteError) {
  UniqueFd in(::open("/dev/zero", O_RDONLY));
  UniqueFd out(::open("/dev/full", O_WRONLY));
  if (!out.valid()) GTEST_SKIP() << "no /dev/full";
  EXPECT_EQ(copyFileData(in.get(), out.get(), nullptr), ENOSPC);
}

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
