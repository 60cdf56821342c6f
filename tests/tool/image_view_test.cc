// A bundle read from a disk image answers as the same bundle read from a
// folder: for every format this machine can make (ISO 9660 with xorriso,
// as the tool's own images; ext4 with mke2fs, which 7-Zip reads), through
// the view, through the cache, and through velmarbs itself.

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "base/child_process.h"
#include "base/plist_io.h"
#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"
#include "tool/disk_image.h"
#include "tool/image_view.h"

namespace velmar::tool {
namespace {

namespace fs = std::filesystem;
using testing::existsNoFollow;
using testing::namesStartingWith;
using testing::propertyListsIn;
using testing::readText;
using testing::runVelmarbs;
using testing::ToolRun;
using testing::writeText;

// Makes an image of `folder`'s contents in `format`; false when this
// machine lacks the program.
bool makeTestImage(const std::string& format, const std::string& folder, const std::string& image) {
  if (format == "iso") {
    std::optional<std::string> xorriso = findXorriso();
    return xorriso && findSevenZip() && makeImage(*xorriso, folder, image);
  }
  std::optional<std::string> mke2fs = findProgram("mke2fs");
  if (!mke2fs) mke2fs = findProgram("/usr/sbin/mke2fs");
  if (!mke2fs || !findSevenZip()) return false;
  ChildRequest request;
  request.program = *mke2fs;
  request.args = {"-q", "-F", "-t", "ext4", "-d", folder, image, "64M"};
  return runChild(request).succeeded();
}

// Everything about an entry that must be the same from a folder and an
// image. Times to the second: ISO 9660 keeps no more.
std::string describe(BundleView& view, const std::string& path, bool times) {
  EntryInfo info;
  std::string text = path + ": ";
  if (int err = view.entryInfo(path, &info)) return text + "error " + std::to_string(err);
  text += "kind " + std::to_string(static_cast<int>(info.kind));
  // A link's own mode and time are never copied.
  if (info.kind == EntryKind::Link) text += " -> " + info.linkTarget;
  else text += " mode " + std::to_string(info.mode);
  if (times && info.kind != EntryKind::Link) text += " time " + std::to_string(info.modified.tv_sec);
  if (info.kind == EntryKind::File) {
    std::string bytes;
    int err = view.readFile(path, size_t{1} << 30, &bytes);
    text += " size " + std::to_string(info.size) + " read " + std::to_string(err) + " " + bytes;
  }
  EntryInfo target;
  text += " target " + std::to_string(view.targetInfo(path, &target));
  if (info.kind == EntryKind::Folder) {
    std::vector<FolderEntry> entries;
    view.listFolder(path, &entries);
    for (const FolderEntry& e : entries) text += " " + e.name;
  }
  return text;
}

// A tree as a list of describe() lines, the cookie left out. Times are
// left out too when `times` is false: a stripped bundle's new files and
// the folders that hold them get the time they were written.
std::vector<std::string> describeTree(BundleView& view, bool times = true) {
  std::vector<std::string> lines;
  for (const std::string& path : listTree(view, ""))
    if (path != "VelmarBSCookie.plist") lines.push_back(describe(view, path, times));
  return lines;
}

class ImageSourceTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    ::setenv("XDG_CACHE_HOME", cacheHome_.c_str(), 1);
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle_, &error)) << error;
    // Links a hostile bundle may hold, which the view must not follow out.
    fs::create_directories(bundle_ + "/Extras");
    fs::create_symlink("../../outside", bundle_ + "/Extras/climbs");
    fs::create_symlink("/etc/passwd", bundle_ + "/Extras/absolute");
    fs::create_symlink("loop2", bundle_ + "/Extras/loop1");
    fs::create_symlink("loop1", bundle_ + "/Extras/loop2");
    fs::create_symlink("../Restore", bundle_ + "/Extras/restore-link");
    writeText(dir_ / "content/outside", "secret");
    // A kept file too large to be extracted with others: 7-Zip writes it
    // straight into its copy.
    std::string large;
    for (int i = 0; large.size() < (5u << 20); ++i) large += "block " + std::to_string(i) + "\n";
    writeText(bundle_ + "/Restore/038-1300-002.dmg", large);
    if (!makeTestImage(GetParam(), dir_ / "content", image_))
      GTEST_SKIP() << "cannot make a " << GetParam() << " image here";
  }
  void TearDown() override { ::unsetenv("XDG_CACHE_HOME"); }

  std::unique_ptr<BundleView> imageView(const std::string& image) {
    ImageViewOptions options;
    options.cacheRoot = cacheRoot_;
    std::string error;
    std::unique_ptr<BundleView> view = openImageView(image, options, &error);
    EXPECT_TRUE(view) << error;
    return view;
  }

  ToolRun run(const std::vector<std::string>& args, const std::string& path = "") {
    return runVelmarbs(args, scratch_.path(), path);
  }

  synth::TempDir dir_{"velmar-image"};
  synth::TempDir scratch_{"velmar-scratch"};
  std::string bundle_ = dir_ / "content/Bundle";
  std::string image_ = dir_ / "Bundle.dmg";
  std::string cacheHome_ = dir_ / "cache";
  std::string cacheRoot_ = cacheHome_ + "/velmarbs";
};

TEST_P(ImageSourceTest, TheViewAnswersAsTheFolderDoes) {
  std::unique_ptr<BundleView> folder = openFolderView(bundle_);
  std::unique_ptr<BundleView> image = imageView(image_);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->location(), image_);
  std::vector<std::string> fromImage = describeTree(*image), fromFolder = describeTree(*folder);
  ASSERT_EQ(fromImage.size(), fromFolder.size());
  for (size_t i = 0; i < fromImage.size(); ++i) EXPECT_EQ(fromImage[i], fromFolder[i]);

  // Links stay inside the bundle, however they try to leave.
  EntryInfo info;
  EXPECT_EQ(image->targetInfo("Extras/climbs", &info), EXDEV);
  EXPECT_EQ(image->targetInfo("Extras/absolute", &info), EXDEV);
  EXPECT_EQ(image->targetInfo("Extras/loop1", &info), ELOOP);
  EXPECT_EQ(image->targetInfo("../Bundle", &info), EXDEV);
  std::string bytes;
  EXPECT_EQ(image->readFile("Extras/climbs", 100, &bytes), EXDEV);
  // Through a link that stays inside, and ignoring case.
  ASSERT_EQ(image->targetInfo("Extras/restore-link/BuildManifest.plist", &info), 0);
  EXPECT_EQ(info.kind, EntryKind::File);
  EXPECT_EQ(image->readFile("extras/RESTORE-LINK/buildmanifest.PLIST", 1 << 26, &bytes), 0);
  EXPECT_EQ(bytes, readText(bundle_ + "/Restore/BuildManifest.plist"));
  // Only regular files, only within the limit.
  EXPECT_EQ(image->readFile("Restore", 100, &bytes), EINVAL);
  EXPECT_EQ(image->readFile("Restore/BuildManifest.plist", 10, &bytes), EFBIG);
  UniqueFd fd;
  EXPECT_EQ(image->openFile("Restore", &fd), EINVAL);
  EXPECT_EQ(image->openFile("Restore/Missing.plist", &fd), ENOENT);
}

TEST_P(ImageSourceTest, TheCacheServesAnUnchangedImageAndNeverAChangedOne) {
  const std::string before = readText(bundle_ + "/Restore/BuildManifest.plist");
  {
    std::unique_ptr<BundleView> view = imageView(image_);
    std::string bytes;
    ASSERT_EQ(view->readFile("Restore/BuildManifest.plist", 1 << 26, &bytes), 0);
  }
  // With no reader on PATH, the listing and the file read come from the
  // cache.
  const std::string noPrograms = dir_ / "empty-bin";
  fs::create_directories(noPrograms);
  const std::string path = ::getenv("PATH");
  ::setenv("PATH", noPrograms.c_str(), 1);
  {
    std::unique_ptr<BundleView> view = imageView(image_);
    ASSERT_TRUE(view);
    std::string bytes;
    EXPECT_EQ(view->readFile("Restore/BuildManifest.plist", 1 << 26, &bytes), 0);
    EXPECT_EQ(bytes, before);
    // Small files beside one read came out with it.
    EXPECT_EQ(view->readFile("Restore/Restore.plist", 1 << 26, &bytes), 0);
    // Anything else needs the reader, but for ISO 9660, whose files are
    // read in place.
    EXPECT_EQ(view->readFile("Orrin RPKGs/ReadMe.txt", 1 << 26, &bytes),
              GetParam() == "iso" ? 0 : EIO);
  }
  ::setenv("PATH", path.c_str(), 1);

  // The same path, new contents: read afresh, and the old entry goes.
  writeText(bundle_ + "/Restore/BuildManifest.plist", before + "<!-- changed -->\n");
  fs::remove(image_);
  ASSERT_TRUE(makeTestImage(GetParam(), dir_ / "content", image_));
  std::unique_ptr<BundleView> view = imageView(image_);
  std::string bytes;
  ASSERT_EQ(view->readFile("Restore/BuildManifest.plist", 1 << 26, &bytes), 0);
  EXPECT_EQ(bytes, before + "<!-- changed -->\n");
  size_t entries = 0;
  for (const auto& entry : fs::directory_iterator(cacheRoot_)) entries += entry.is_directory();
  EXPECT_EQ(entries, 1u);
}

TEST_P(ImageSourceTest, QueriesValidationAndStripsMatchTheFolder) {
  const std::vector<std::vector<std::string>> queries = {
      {"--validproducts"},
      {"--validvariants", "--product", "r13"},
      {"--knownProducts"},
      {"--validproducts", "--stripDevFirmware", "--engine", "legacy"},
  };
  for (const auto& query : queries) {
    std::vector<std::string> fromImage = query, fromFolder = query;
    fromImage.insert(fromImage.end(), {"--source", image_});
    fromFolder.insert(fromFolder.end(), {"--source", bundle_});
    ToolRun a = run(fromImage), b = run(fromFolder);
    EXPECT_EQ(a.status, b.status) << query[0];
    EXPECT_TRUE(a.out == b.out) << query[0] << "\n" << a.out.substr(0, 400) << "\n"
                                << b.out.substr(0, 400);
  }
  const std::vector<std::string> selection = {"--product", "r13", "--factory", "swdl", "--results"};
  auto strip = [&](const std::string& source, const std::string& target) {
    std::vector<std::string> args = {"--source", source};
    if (!target.empty()) args.insert(args.end(), {"--target", target});
    args.insert(args.end(), selection.begin(), selection.end());
    return run(args);
  };
  // Validate: the same results, but for the cookie's source.
  ToolRun a = strip(image_, ""), b = strip(bundle_, "");
  EXPECT_EQ(a.status, 0) << a.out;
  std::vector<Value> fromImageResults = propertyListsIn(a.out), fromFolderResults = propertyListsIn(b.out);
  ASSERT_EQ(fromImageResults.size(), 1u);
  ASSERT_EQ(fromFolderResults.size(), 1u);
  Value modified = fromImageResults[0].get("modifiedFiles");
  EXPECT_EQ(modified.get("VelmarBSCookie.plist").get("source"), Value(image_));
  for (Value* results : {&fromImageResults[0], &fromFolderResults[0]}) {
    Value files = results->get("modifiedFiles");
    files.remove("VelmarBSCookie.plist");
    results->set("modifiedFiles", files);
  }
  EXPECT_EQ(toXml(fromImageResults[0]), toXml(fromFolderResults[0]));

  const std::string fromImage = scratch_ / "FromImage", fromFolder = scratch_ / "FromFolder";
  a = strip(image_, fromImage);
  b = strip(bundle_, fromFolder);
  ASSERT_EQ(a.status, 0) << a.out;
  ASSERT_EQ(b.status, 0) << b.out;
  EXPECT_TRUE(describeTree(*openFolderView(fromImage), false) ==
              describeTree(*openFolderView(fromFolder), false));
  // Kept files keep their times.
  for (const Value& kept : fromFolderResults[0].get("strippedManifest").arr()) {
    EntryInfo source, copy;
    ASSERT_EQ(openFolderView(fromImage)->entryInfo(kept.str(), &copy), 0) << kept.str();
    ASSERT_EQ(openFolderView(bundle_)->entryInfo(kept.str(), &source), 0) << kept.str();
    if (source.kind == EntryKind::File) {
      EXPECT_EQ(copy.modified.tv_sec, source.modified.tv_sec) << kept.str();
    }
  }
  Value cookie = parsePropertyList(readText(fromImage + "/VelmarBSCookie.plist"));
  EXPECT_EQ(cookie.get("source"), Value(image_));

  // To an image: the same bundle inside.
  const std::string imageTarget = scratch_ / "Stripped.dmg";
  a = strip(image_, imageTarget);
  ASSERT_EQ(a.status, 0) << a.out;
  std::unique_ptr<BundleView> stripped = imageView(imageTarget);
  ASSERT_TRUE(stripped);
  EXPECT_TRUE(describeTree(*stripped, false) == describeTree(*openFolderView(fromFolder), false));
}

TEST_P(ImageSourceTest, AnImageChangedBetweenRunsIsReadAfresh) {
  Value before = propertyListsIn(run({"--validproducts", "--source", image_}).out).at(0);
  EXPECT_EQ(before.get("validProducts"), Value::stringArray({"r11", "r13"}));
  // Another bundle in an image at the same path, as a new download would be.
  fs::remove_all(bundle_);
  std::string error;
  ASSERT_TRUE(synth::writeBundle(synth::largeBundle(1), bundle_, &error)) << error;
  fs::remove(image_);
  ASSERT_TRUE(makeTestImage(GetParam(), dir_ / "content", image_));
  ToolRun r = run({"--validproducts", "--source", image_});
  ASSERT_EQ(r.status, 0) << r.out;
  Value after = propertyListsIn(r.out).at(0);
  EXPECT_EQ(after.get("validProducts"), Value::stringArray({"q0000", "r11", "r13"}));
}

TEST_P(ImageSourceTest, AnImageWithoutABundleOrWithTwoIsRefused) {
  writeText(dir_ / "none/Bundle/Firmware/x", "x");
  ASSERT_TRUE(makeTestImage(GetParam(), dir_ / "none", dir_ / "None.dmg"));
  ToolRun r = run({"--validproducts", "--source", dir_ / "None.dmg"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("XXX ERROR: the disk image \"" + (dir_ / "None.dmg") +
                       "\" holds no bundle folder with Restore/."),
            std::string::npos)
      << r.out;

  fs::create_directories(dir_ / "two");
  fs::copy(bundle_, dir_ / "two/One", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  fs::copy(bundle_, dir_ / "two/Two", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  ASSERT_TRUE(makeTestImage(GetParam(), dir_ / "two", dir_ / "Two.dmg"));
  r = run({"--source", dir_ / "Two.dmg", "--target", scratch_ / "T"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("holds 2 bundle folders with Restore/ (\"One\", \"Two\")"), std::string::npos)
      << r.out;
  EXPECT_FALSE(existsNoFollow(scratch_ / "T"));
}

// The reader stopped while it works, as a user's ^C stops the whole process
// group: no temporary folder is left anywhere once the next run has looked
// at the cache.
TEST_P(ImageSourceTest, AnInterruptedStripLeavesNoTemporaryFolder) {
  // A reader that works as the real one, but hangs on the batch extraction
  // of the kept files (7-Zip), or on the listing (xorriso: ISO 9660 files
  // are then copied in place, without the reader).
  const std::string bin = dir_ / "bin";
  fs::create_directories(bin);
  const std::string real = GetParam() == "iso" ? *findXorriso() : *findSevenZip();
  const std::string name = GetParam() == "iso" ? "xorriso" : "7zz";
  writeText(bin + "/" + name,
            "#!/bin/sh\n"
            "for a in \"$@\"; do case \"$a\" in x|-find) /usr/bin/touch \"" + bin + "/hung\"; "
            "exec /bin/sleep 60;; esac; done\n"
            "exec " + real + " \"$@\"\n");
  fs::permissions(bin + "/" + name, fs::perms::owner_all);
  if (GetParam() == "iso") fs::create_symlink(*findSevenZip(), bin + "/7zz");
  const std::string target = scratch_ / "T";
  const std::string tmp = dir_ / "tmp";
  fs::create_directories(tmp);

  pid_t pid = ::fork();
  if (pid == 0) {
    ::setpgid(0, 0);
    ::setenv("PATH", bin.c_str(), 1);
    ::setenv("TMPDIR", tmp.c_str(), 1);
    int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
    std::string program = testing::velmarbsPath();
    ::execl(program.c_str(), program.c_str(), "--source", image_.c_str(), "--target",
            target.c_str(), "--product", "r13", "--factory", "swdl", nullptr);
    ::_exit(127);
  }
  ::setpgid(pid, pid);
  for (int i = 0; i < 500 && !existsNoFollow(bin + "/hung"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_TRUE(existsNoFollow(bin + "/hung"));
  ::kill(-pid, SIGINT);
  int status = 0;
  ::waitpid(pid, &status, 0);
  // The stop handler cleans up and ends the run as the signal would.
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;

  EXPECT_FALSE(existsNoFollow(target));
  EXPECT_TRUE(namesStartingWith(scratch_.path(), ".T.velmarbs-").empty());
  EXPECT_TRUE(fs::is_empty(tmp));
  // The next run clears what the killed one left in the cache.
  ToolRun r = run({"--validproducts", "--source", image_});
  EXPECT_EQ(r.status, 0) << r.out;
  for (const auto& entry : fs::recursive_directory_iterator(cacheRoot_))
    EXPECT_EQ(entry.path().filename().string().rfind("tmp-", 0), std::string::npos) << entry.path();
}

INSTANTIATE_TEST_SUITE_P(Formats, ImageSourceTest, ::testing::Values("iso", "ext4"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace velmar::tool
