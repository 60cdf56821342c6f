// The image readers' listings as the image view understands them, and the
// choice of the bundle folder inside an image.

#include <gtest/gtest.h>
#include <time.h>

#include <iterator>
#include <string>

#include "tool/disk_image.h"
#include "tool/image_view.h"

namespace velmar::tool {
namespace {

const ImageEntry* find(const std::vector<ImageEntry>& entries, const std::string& path) {
  for (const ImageEntry& e : entries)
    if (e.path == path) return &e;
  return nullptr;
}

TEST(ImageListingTest, SevenZipTechnicalListing) {
  const std::string text =
      "Listing archive: B.dmg\n\n--\nPath = B.dmg\nType = HFS\nModified = 2020-01-01 00:00:00\n\n"
      "----------\n"
      "Path = Vol/Restore\nFolder = +\nSize = \nMode = drwxr-x---\n"
      "Modified = 2024-01-02 03:04:05.1234567\n\n"
      "Path = Vol/Restore/a = b.plist\nFolder = -\nSize = 12\nMode = -rw-r--r--\n"
      "Modified = 2024-01-02 03:04:05\nAccessed = 2024-02-03 04:05:06.5\nSymbolic Link = \n\n"
      "Path = Vol/Restore/link\nFolder = -\nSize = 7\nMode = lrwxrwxrwx\nSymbolic Link = a.plist\n\n"
      "Path = Vol/Restore/tool\nFolder = -\nSize = 3\nMode = -rwsr-xr-x\n\n"
      "Path = Vol/Restore/fifo\nFolder = -\nMode = prw-r--r--\n\n"
      // HFS+ links come without their targets, the target's length as size.
      "Path = Vol/Restore/hfs-link\nFolder = -\nSize = 7\nMode = lrwxrwxrwx\n\n"
      // Joliet trees give no modes; names that climb out are dropped.
      "Path = Vol/plain\nFolder = -\nSize = 1\nMode = \n\n"
      "Path = ../escape\nFolder = -\nSize = 1\n";
  std::vector<ImageEntry> entries = parseSevenZipListing(text);
  ASSERT_EQ(entries.size(), 7u);
  const ImageEntry* folder = find(entries, "Vol/Restore");
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->kind, EntryKind::Folder);
  EXPECT_EQ(folder->mode, 0750u);
  EXPECT_EQ(folder->modified.tv_sec, 1704164645);
  EXPECT_EQ(folder->modified.tv_nsec, 123456700);
  const ImageEntry* file = find(entries, "Vol/Restore/a = b.plist");
  ASSERT_TRUE(file);
  EXPECT_EQ(file->kind, EntryKind::File);
  EXPECT_EQ(file->size, 12u);
  EXPECT_EQ(file->accessed.tv_nsec, 500000000);
  const ImageEntry* link = find(entries, "Vol/Restore/link");
  ASSERT_TRUE(link);
  EXPECT_EQ(link->kind, EntryKind::Link);
  EXPECT_EQ(link->linkTarget, "a.plist");
  EXPECT_EQ(find(entries, "Vol/Restore/tool")->mode, 04755u);
  EXPECT_EQ(find(entries, "Vol/Restore/fifo")->kind, EntryKind::Other);
  EXPECT_FALSE(find(entries, "Vol/Restore/fifo")->isLinkWithoutTarget);
  const ImageEntry* hfsLink = find(entries, "Vol/Restore/hfs-link");
  ASSERT_TRUE(hfsLink);
  EXPECT_EQ(hfsLink->kind, EntryKind::Other);
  EXPECT_TRUE(hfsLink->isLinkWithoutTarget);
  EXPECT_EQ(hfsLink->size, 7u);
  EXPECT_EQ(find(entries, "Vol/plain")->mode, 0644u);
  EXPECT_FALSE(find(entries, "../escape"));
  EXPECT_TRUE(parseSevenZipListing("garbage without a listing").empty());
}

// Times read by hand agree with strptime and timegm, which read what does
// not have 7-Zip's exact shape.
TEST(ImageListingTest, SevenZipTimesAgreeWithTheCLibrary) {
  const char* const stamps[] = {
      "1970-01-01 00:00:00", "1969-12-31 23:59:59", "2000-02-29 12:00:00", "2024-02-30 00:00:00",
      "0001-01-01 00:00:00", "9999-12-31 23:59:60", "1900-03-01 01:02:03", "2024-1-2 3:04:05",
      "2024-13-01 00:00:00", "2024-01-00 00:00:00", "2024-01-01 24:00:00", "2024-01-01",
      "  2024-01-01 00:00:00", "2038-01-19 03:14:08.25"};
  std::string text = "----------\n";
  for (size_t i = 0; i < std::size(stamps); ++i)
    text += "Path = f" + std::to_string(i) + "\nSize = 1\nModified = " + stamps[i] + "\n\n";
  std::vector<ImageEntry> entries = parseSevenZipListing(text);
  ASSERT_EQ(entries.size(), std::size(stamps));
  for (size_t i = 0; i < std::size(stamps); ++i) {
    struct tm tm = {};
    const char* rest = ::strptime(stamps[i], "%Y-%m-%d %H:%M:%S", &tm);
    const time_t expected = rest ? ::timegm(&tm) : 0;
    EXPECT_EQ(entries[i].modified.tv_sec, expected) << stamps[i];
  }
  EXPECT_EQ(entries.back().modified.tv_nsec, 250000000);
}

TEST(ImageListingTest, XorrisoLsdlListing) {
  const time_t now = 1795430000;  // 2026-11-23 10:33
  const std::string text =
      "drwxr-xr-x    1 0        0               0 Nov 23 11:33 '/'\n"
      "drwxr-xr-x    1 0        0               0 Nov 20 11:33 '/Restore'\n"
      "-rw-r-----    1 0        0              60 Jan  2  2024 '/Restore/a.plist'\n"
      "lrwxrwxrwx    1 0        0               0 Dec 30 23:59 '/Restore/it'\"'\"'s' -> "
      "'../x y'\"'\"''\n"
      "-rw-r--r--    1 0        0               2 Nov 20 11:33 '/Restore/sp ace/f 1'\n"
      "this line is not a listing line\n";
  std::vector<ImageEntry> entries = parseXorrisoListing(text, now);
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].path, "Restore");
  EXPECT_EQ(entries[0].modified.tv_sec, 1795174380);  // this year: 2026-11-20 11:33
  EXPECT_EQ(entries[1].mode, 0640u);
  EXPECT_EQ(entries[1].size, 60u);
  EXPECT_EQ(entries[1].modified.tv_sec, 1704153600);
  // A day and time that would lie in the future is from last year.
  EXPECT_EQ(entries[2].path, "Restore/it's");
  EXPECT_EQ(entries[2].kind, EntryKind::Link);
  EXPECT_EQ(entries[2].linkTarget, "../x y'");
  EXPECT_EQ(entries[2].modified.tv_sec, 1767139140);  // 2025-12-30 23:59
  EXPECT_EQ(entries[3].path, "Restore/sp ace/f 1");
}

std::vector<ImageEntry> folders(const std::vector<std::string>& paths) {
  std::vector<ImageEntry> entries;
  for (const std::string& path : paths) {
    ImageEntry e;
    e.path = path;
    e.kind = EntryKind::Folder;
    entries.push_back(e);
  }
  return entries;
}

TEST(ImageListingTest, TheBundleIsTheOneFolderHoldingRestore) {
  std::string error;
  EXPECT_EQ(findImageBundle(folders({"Vol", "Vol/B", "Vol/B/Restore", "Vol/B/Restore/x/Restore"}),
                            &error),
            "Vol/B");
  EXPECT_EQ(findImageBundle(folders({"Restore", "Other"}), &error), "");
  EXPECT_EQ(findImageBundle(folders({"B", "B/restore"}), &error), "B");

  EXPECT_FALSE(findImageBundle(folders({"B", "B/Firmware"}), &error));
  EXPECT_EQ(error, "holds no bundle folder with Restore/");
  // Too deep to be a volume's bundle.
  EXPECT_FALSE(findImageBundle(folders({"a/b/c/d/Restore"}), &error));

  EXPECT_FALSE(findImageBundle(folders({"B1/Restore", "x/B2/Restore"}), &error));
  EXPECT_EQ(error,
            "holds 2 bundle folders with Restore/ (\"B1\", \"x/B2\"); it must hold exactly one");
  // A file called Restore does not make a bundle.
  std::vector<ImageEntry> entries = folders({"B/Restore"});
  ImageEntry file;
  file.path = "C/Restore";
  entries.push_back(file);
  EXPECT_EQ(findImageBundle(entries, &error), "B");
}

}  // namespace
}  // namespace velmar::tool
