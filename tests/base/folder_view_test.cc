#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/bundle_plist.h"
#include "base/bundle_view.h"
#include "base/plist_io.h"
#include "synth/temp_dir.h"

namespace velmar {
namespace {

namespace fs = std::filesystem;

class FolderViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(bundle_ + "/Restore/Firmware/dfu-real");
    write("Restore/Firmware/device_map.txt", "0x02 xr2120x Corvid2,1 r13 r13ap\n");
    write("Restore/Firmware/dfu-real/stage1.dfu", "dfu");
    fs::create_symlink("dfu-real", bundle_ + "/Restore/Firmware/dfu");
    std::ofstream(outside_.path() + "/secret") << "secret";
    fs::create_symlink(outside_.path() + "/secret", bundle_ + "/Restore/absolute");
    fs::create_symlink("../../outside", bundle_ + "/Restore/climbs");
    fs::create_symlink(outside_.path(), bundle_ + "/Debug");
    view_ = openFolderView(bundle_);
  }
  void write(const std::string& path, const std::string& text) {
    std::ofstream(bundle_ + "/" + path, std::ios::binary) << text;
  }

  synth::TempDir dir_;
  synth::TempDir outside_;
  std::string bundle_ = dir_ / "Bundle";
  std::unique_ptr<BundleView> view_;
};

TEST_F(FolderViewTest, ReadsInsideAndFollowsLinksThatStayInside) {
  std::string bytes;
  EXPECT_EQ(view_->readFile("Restore/Firmware/dfu/stage1.dfu", 100, &bytes), 0);
  EXPECT_EQ(bytes, "dfu");
  EntryInfo info;
  ASSERT_EQ(view_->entryInfo("Restore/Firmware/dfu", &info), 0);
  EXPECT_EQ(info.kind, EntryKind::Link);
  EXPECT_EQ(info.linkTarget, "dfu-real");
  ASSERT_EQ(view_->targetInfo("Restore/Firmware/dfu", &info), 0);
  EXPECT_EQ(info.kind, EntryKind::Folder);
}

TEST_F(FolderViewTest, RefusesEverythingThatLeavesTheBundle) {
  std::string bytes;
  EXPECT_EQ(view_->readFile("Restore/absolute", 100, &bytes), EXDEV);
  EXPECT_EQ(view_->readFile("../Bundle/Restore/Firmware/device_map.txt", 100, &bytes), EXDEV);
  EXPECT_EQ(view_->readFile("/etc/passwd", 100, &bytes), EXDEV);
  std::vector<FolderEntry> entries;
  EXPECT_EQ(view_->listFolder("Debug", &entries), EXDEV);
  EXPECT_FALSE(existsInView(*view_, "Restore/climbs"));
  // The links themselves are still there to be described.
  EntryInfo info;
  ASSERT_EQ(view_->entryInfo("Restore/climbs", &info), 0);
  EXPECT_EQ(info.linkTarget, "../../outside");
}

TEST_F(FolderViewTest, ReadsOnlyRegularFilesWithinTheLimit) {
  ASSERT_EQ(::mkfifo((bundle_ + "/Restore/fifo").c_str(), 0600), 0);
  std::string bytes;
  EXPECT_EQ(view_->readFile("Restore/fifo", 100, &bytes), EINVAL);
  EXPECT_EQ(view_->readFile("Restore/Firmware", 100, &bytes), EINVAL);
  EXPECT_EQ(view_->readFile("Restore/Firmware/device_map.txt", 4, &bytes), EFBIG);
  EXPECT_EQ(view_->readFile("Restore/missing", 100, &bytes), ENOENT);
}

TEST_F(FolderViewTest, MatchesNamesIgnoringCaseWhenNotExact) {
  std::string bytes;
  EXPECT_EQ(view_->readFile("restore/firmware/Device_map.txt", 100, &bytes), 0);
  EXPECT_EQ(bytes.substr(0, 4), "0x02");
  // Two spellings of one name: neither stands in for a third.
  write("Restore/Firmware/Target_map.txt", "a");
  write("Restore/Firmware/TARGET_map.txt", "b");
  EXPECT_EQ(view_->readFile("Restore/Firmware/target_map.txt", 100, &bytes), ENOENT);
  EXPECT_EQ(view_->caseConflicts().size(), 2u);
  // An exact match always wins.
  EXPECT_EQ(view_->readFile("Restore/Firmware/TARGET_map.txt", 100, &bytes), 0);
  EXPECT_EQ(bytes, "b");
}

TEST_F(FolderViewTest, ListsTheTreeFolderFirstWithoutDescendingLinks) {
  std::vector<std::string> unreadable;
  std::vector<std::string> paths = listTree(*view_, "Restore", &unreadable);
  EXPECT_EQ(paths, (std::vector<std::string>{
                       "Restore/Firmware", "Restore/Firmware/device_map.txt", "Restore/Firmware/dfu",
                       "Restore/Firmware/dfu-real", "Restore/Firmware/dfu-real/stage1.dfu",
                       "Restore/absolute", "Restore/climbs"}));
  EXPECT_TRUE(unreadable.empty());
}

TEST_F(FolderViewTest, ParsesEachUnchangedPropertyListOnce) {
  write("Restore/Restore.plist", toXml(Value::makeArray({"a"})));
  Value first, second;
  ASSERT_EQ(readBundlePropertyList(*view_, "Restore/Restore.plist", &first), 0);
  ASSERT_EQ(readBundlePropertyList(*view_, "Restore/Restore.plist", &second), 0);
  EXPECT_TRUE(first.sharesStorageWith(second));
  second.append("b");  // a reader's change stays its own
  EXPECT_EQ(first.count(), 1u);

  // A changed file is read afresh (a new inode through the rename).
  write("Restore/Restore.plist.new", toXml(Value::makeArray({"c"})));
  fs::rename(bundle_ + "/Restore/Restore.plist.new", bundle_ + "/Restore/Restore.plist");
  Value third;
  ASSERT_EQ(readBundlePropertyList(*view_, "Restore/Restore.plist", &third), 0);
  EXPECT_EQ(third, Value::makeArray({"c"}));
  write("Restore/Broken.plist", "<plist><dict>");
  EXPECT_EQ(readBundlePropertyList(*view_, "Restore/Broken.plist", &third), EBADMSG);
}

TEST(FolderViewOpen, AMissingFolderAnswersItsErrorToEveryQuestion) {
  int error = 0;
  auto view = openFolderView("/nonexistent/velmar-bundle", &error);
  EXPECT_EQ(error, ENOENT);
  std::string bytes;
  EXPECT_EQ(view->readFile("Restore/Restore.plist", 10, &bytes), ENOENT);
}

}  // namespace
}  // namespace velmar
