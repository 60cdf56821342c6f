#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "base/bundle_view.h"

namespace velmar {
namespace {

UniqueFd fileWith(const std::string& bytes) {
  char path[] = "/tmp/velmar-copy-XXXXXX";
  UniqueFd fd(::mkstemp(path));
  ::unlink(path);
  EXPECT_EQ(::write(fd.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  return fd;
}

std::string contents(int fd) {
  std::string bytes(1 << 16, '\0');
  ssize_t n = ::pread(fd, bytes.data(), bytes.size(), 0);
  bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return bytes;
}

TEST(CopyBytesTest, CopiesARangeOrTheRestAndCountsIt) {
  UniqueFd in = fileWith("0123456789");
  UniqueFd out = fileWith("");
  uint64_t reported = 0;
  auto progress = [&](uint64_t n) { reported += n; };
  EXPECT_EQ(copyBytes(in.get(), 2, 3, out.get(), progress), 0);
  EXPECT_EQ(copyBytes(in.get(), 8, 2, out.get(), progress), 0);
  EXPECT_EQ(contents(out.get()), "23489");
  EXPECT_EQ(reported, 5u);
  // From the descriptor's own offset to the end.
  ASSERT_EQ(::lseek(in.get(), 7, SEEK_SET), 7);
  EXPECT_EQ(copyBytes(in.get(), 0, UINT64_MAX, out.get(), nullptr), 0);
  EXPECT_EQ(contents(out.get()), "23489789");
  // A range past the end is a short file, unless the length is a bound.
  EXPECT_EQ(copyBytes(in.get(), 8, 5, out.get(), nullptr), EIO);
  EXPECT_EQ(copyBytes(in.get(), 8, 5, out.get(), nullptr, /*exact=*/false), 0);
  EXPECT_EQ(contents(out.get()), "234897898989");  // each call wrote the two bytes there are
}

TEST(CopyBytesTest, ReportsAWriteError) {
  UniqueFd in(::open("/dev/zero", O_RDONLY));
  UniqueFd out(::open("/dev/full", O_WRONLY));
  if (!out.valid()) GTEST_SKIP() << "no /dev/full";
  EXPECT_EQ(copyBytes(in.get(), 0, 1 << 20, out.get(), nullptr), ENOSPC);
}

TEST(CopyBytesTest, PipesGoThroughABuffer) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
  ASSERT_EQ(::write(writeEnd.get(), "piped", 5), 5);
  writeEnd.reset();
  UniqueFd out = fileWith("");
  EXPECT_EQ(copyBytes(readEnd.get(), 0, UINT64_MAX, out.get(), nullptr), 0);
  EXPECT_EQ(contents(out.get()), "piped");
}

// A large range read from the middle of a page (as a file in an ISO 9660
// image starts on a 2048-byte block) is copied by hand instead of by the
// kernel, from a mapping where the source is in the page cache and through
// a buffer where it is not: every byte still lands where it belongs, in
// pieces that add up.
TEST(CopyBytesTest, RangesShiftedWithinAPageCopyExactly) {
  std::string bytes(9 << 20, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 7919) >> 5);
  UniqueFd in = fileWith(bytes);
  for (uint64_t offset : {uint64_t{2048}, uint64_t{1}, uint64_t{4096}, uint64_t{2049}}) {
    if (offset == 2049) {
      // Out of the page cache, as far as the file system lets go of it.
      ::fdatasync(in.get());
      ::posix_fadvise(in.get(), 0, 0, POSIX_FADV_DONTNEED);
    }
    UniqueFd out = fileWith("");
    uint64_t reported = 0;
    const uint64_t length = (8 << 20) + 123;
    ASSERT_EQ(copyBytes(in.get(), offset, length, out.get(), [&](uint64_t n) { reported += n; }), 0);
    EXPECT_EQ(reported, length);
    std::string copied(length + 10, '\0');
    ssize_t n = ::pread(out.get(), copied.data(), copied.size(), 0);
    ASSERT_EQ(n, static_cast<ssize_t>(length)) << offset;
    copied.resize(static_cast<size_t>(n));
    EXPECT_TRUE(copied == bytes.substr(offset, length)) << offset;
    // Past the end: a short file.
    EXPECT_EQ(copyBytes(in.get(), bytes.size() - 1000, 1 << 20, out.get(), nullptr), EIO);
  }
}

// A source cut short while it is copied from the middle of a page (an image
// truncated by someone else during a strip) ends the copy with EIO: the
// bytes read through the mapping past the new end must not raise SIGBUS.
TEST(CopyBytesTest, ASourceCutShortDuringAShiftedCopyIsAnErrorNotACrash) {
  UniqueFd in = fileWith(std::string(12 << 20, 'x'));
  UniqueFd out = fileWith("");
  bool cut = false;
  auto truncateOnce = [&](uint64_t) {
    if (cut) return;
    cut = true;
    ASSERT_EQ(::ftruncate(in.get(), 5 << 20), 0);
  };
  EXPECT_EQ(copyBytes(in.get(), 2048, (12 << 20) - 4096, out.get(), truncateOnce), EIO);
  EXPECT_TRUE(cut);
}

}  // namespace
}  // namespace velmar
