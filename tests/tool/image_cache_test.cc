#include "tool/image_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

namespace fs = std::filesystem;

FileIdentity identity(uint64_t inode, int64_t modifiedNs = 1) {
  FileIdentity id;
  id.device = 7;
  id.inode = inode;
  id.size = 1000;
  id.modifiedNs = modifiedNs;
  return id;
}

// An unnamed cache file holding `bytes`.
UniqueFd fileWith(ImageCache& cache, const std::string& bytes) {
  UniqueFd fd = cache.unnamedFile();
  EXPECT_TRUE(fd.valid());
  EXPECT_EQ(::write(fd.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  return fd;
}

std::string contents(int fd) {
  std::string bytes(4096, '\0');
  ssize_t n = ::pread(fd, bytes.data(), bytes.size(), 0);
  bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return bytes;
}

size_t entries(const std::string& root) {
  size_t count = 0;
  for (const auto& entry : fs::directory_iterator(root)) count += entry.is_directory();
  return count;
}

class ImageCacheTest : public ::testing::Test {
 protected:
  synth::TempDir dir_{"velmar-cache"};
  std::string root_ = dir_ / "home/.cache/velmarbs";
};

TEST_F(ImageCacheTest, KeepsListingsAndFilesPerImageIdentity) {
  {
    std::unique_ptr<ImageCache> cache = ImageCache::open(root_, "/images/a.dmg", identity(1));
    ASSERT_TRUE(cache);
    std::string text;
    EXPECT_FALSE(cache->loadListing(&text));
    cache->storeListing("the listing");
    UniqueFd fd = fileWith(*cache, "plist bytes");
    cache->storeFile("Restore/A.plist", fd.get(), 11);
    // Stored twice, as two processes would: both succeed.
    cache->storeFile("Restore/A.plist", fileWith(*cache, "plist bytes").get(), 11);
  }
  std::unique_ptr<ImageCache> again = ImageCache::open(root_, "/images/a.dmg", identity(1));
  std::string text;
  ASSERT_TRUE(again->loadListing(&text));
  EXPECT_EQ(text, "the listing");
  // One that could not be used is replaced.
  again->storeListing("a sound listing");
  ASSERT_TRUE(again->loadListing(&text));
  EXPECT_EQ(text, "a sound listing");
  UniqueFd fd = again->openFile("Restore/A.plist", 11);
  ASSERT_TRUE(fd.valid());
  EXPECT_EQ(contents(fd.get()), "plist bytes");
  // Another size is another file; another path too.
  EXPECT_FALSE(again->openFile("Restore/A.plist", 12).valid());
  EXPECT_FALSE(again->openFile("Restore/B.plist", 11).valid());
  // Another image knows none of it.
  std::unique_ptr<ImageCache> other = ImageCache::open(root_, "/images/b.dmg", identity(2));
  EXPECT_FALSE(other->loadListing(&text));
  EXPECT_FALSE(other->openFile("Restore/A.plist", 11).valid());
  EXPECT_EQ(entries(root_), 2u);
}

TEST_F(ImageCacheTest, AListingIsReadOnlyFromARegularFile) {
  std::unique_ptr<ImageCache> cache = ImageCache::open(root_, "/images/a.dmg", identity(1));
  ASSERT_TRUE(cache);
  const std::string listing = cache->folder() + "/tree";
  testing::writeText(dir_ / "elsewhere", "not the listing");
  fs::create_symlink(dir_ / "elsewhere", listing);
  std::string text;
  EXPECT_FALSE(cache->loadListing(&text));
  fs::remove(listing);
  ASSERT_EQ(::mkfifo(listing.c_str(), 0600), 0);
  EXPECT_FALSE(cache->loadListing(&text));  // and does not wait for a writer
  cache->storeListing("the listing");
  ASSERT_TRUE(cache->loadListing(&text));
  EXPECT_EQ(text, "the listing");
}

TEST_F(ImageCacheTest, AChangedImageDropsItsOldEntryOnceNobodyHoldsIt) {
  std::unique_ptr<ImageCache> old = ImageCache::open(root_, "/images/a.dmg", identity(1, 100));
  old->storeListing("old");
  // Held by a process still reading the old image: kept.
  std::unique_ptr<ImageCache> changed = ImageCache::open(root_, "/images/a.dmg", identity(1, 200));
  std::string text;
  EXPECT_FALSE(changed->loadListing(&text));
  EXPECT_EQ(entries(root_), 2u);
  old.reset();
  changed.reset();
  changed = ImageCache::open(root_, "/images/a.dmg", identity(1, 200));
  EXPECT_EQ(entries(root_), 1u);
  EXPECT_FALSE(changed->loadListing(&text));
}

TEST_F(ImageCacheTest, StaysWithinItsLimitsOldestFirst) {
  ImageCacheLimits limits;
  limits.totalBytes = 64 << 10;
  limits.fileBytes = 40 << 10;
  const std::string big(30 << 10, 'x');
  // The parsed property lists beside the entries keep to a bound of their
  // own: never counted, never evicted, however old.
  const std::string parsed = root_ + "/" + kParsedFilesFolder;
  fs::create_directories(parsed);
  testing::writeText(parsed + "/entry", std::string(60 << 10, 'p'));
  for (uint64_t inode : {1, 2}) {
    std::unique_ptr<ImageCache> cache =
        ImageCache::open(root_, "/images/" + std::to_string(inode), identity(inode), limits);
    cache->storeFile("f", fileWith(*cache, big).get(), big.size());
    ASSERT_TRUE(cache->openFile("f", big.size()).valid());
    ::usleep(20000);  // distinct last-use times
  }
  // A third image needs the room: the least recently used entry goes.
  std::unique_ptr<ImageCache> third = ImageCache::open(root_, "/images/3", identity(3), limits);
  third->storeFile("f", fileWith(*third, big).get(), big.size());
  EXPECT_TRUE(third->openFile("f", big.size()).valid());
  EXPECT_FALSE(ImageCache::open(root_, "/images/1", identity(1), limits)->openFile("f", big.size()).valid());
  EXPECT_TRUE(fs::exists(parsed + "/entry"));
  // A file over the per-file limit is not kept.
  const std::string huge(50 << 10, 'y');
  third->storeFile("g", fileWith(*third, huge).get(), huge.size());
  EXPECT_FALSE(third->openFile("g", huge.size()).valid());
}

TEST_F(ImageCacheTest, TemporaryFoldersGoWithTheirOwnerOrTheNextRun) {
  std::string mine;
  {
    std::unique_ptr<ImageCache> cache = ImageCache::open(root_, "/images/a.dmg", identity(1));
    mine = cache->temporaryFolder();
    ASSERT_FALSE(mine.empty());
    testing::writeText(mine + "/x/y", "partial");
    // As a process killed while extracting leaves it (no such process).
    fs::create_directories(cache->folder() + "/tmp-999999999-abcdef/deep");
  }
  EXPECT_FALSE(fs::exists(mine));
  std::unique_ptr<ImageCache> cache = ImageCache::open(root_, "/images/a.dmg", identity(1));
  EXPECT_FALSE(fs::exists(cache->folder() + "/tmp-999999999-abcdef"));
}

TEST_F(ImageCacheTest, NoUsableFolderMeansNoCache) {
  EXPECT_FALSE(ImageCache::open("", "/images/a.dmg", identity(1)));
  testing::writeText(dir_ / "file", "not a folder");
  EXPECT_FALSE(ImageCache::open(dir_ / "file/velmarbs", "/images/a.dmg", identity(1)));
}

}  // namespace
}  // namespace velmar::tool
