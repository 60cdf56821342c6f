// A bundle read from a disk image answers as the same bundle read from a
// folder: for every format this machine can make (ISO 9660 with xorriso,
// as the tool's own images; ext4 with mke2fs, which 7-Zip reads, as it is
// and wrapped into UDIF images, the container real bundles come in; HFS+
// in UDIF, as real bundles are),
// through the view, through the cache, and through velmarbs itself.

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
using testing::processGone;
using testing::namesStartingWith;
using testing::propertyListsIn;
using testing::readText;
using testing::runVelmarbs;
using testing::ToolRun;
using testing::writeText;

// Wraps the raw image `raw` (removed after) into the UDIF image `image`.
bool wrapInUdif(const std::string& raw, const std::string& image,
                const std::vector<std::string>& options) {
  std::optional<std::string> python = findProgram("python3");
  if (!python) return false;
  ChildRequest request;
  request.program = *python;
  request.args = {VELMAR_SOURCE_DIR "/synth/make_udif.py", raw, image};
  request.args.insert(request.args.end(), options.begin(), options.end());
  const bool made = runChild(request).succeeded();
  ::unlink(raw.c_str());
  return made;
}

// Makes an image of `folder`'s contents in `format`; false when this
// machine lacks the program. "udif" and "udif-raw" are ext4 images wrapped
// into the UDIF container real bundles come in (zlib and uncompressed
// chunks), "udif-hfs" the HFS+ volume of an ISO 9660 / HFS+ hybrid so
// wrapped, by synth/make_udif.py: HFS+ in UDIF as real bundles are.
bool makeTestImage(const std::string& format, const std::string& folder, const std::string& image) {
  if (!findSevenZip()) return false;
  std::optional<std::string> xorriso = findXorriso();
  if (format == "iso") return xorriso && makeImage(*xorriso, folder, image);
  const std::string raw = image + ".raw";
  if (format == "udif-hfs") {
    if (!xorriso) return false;
    ChildRequest request;
    request.program = *xorriso;
    request.args = {"-as", "mkisofs", "-R", "-J", "-joliet-long", "-hfsplus", "-o", raw, folder};
    return runChild(request).succeeded() && wrapInUdif(raw, image, {"--hfs-of-hybrid"});
  }
  std::optional<std::string> mke2fs = findProgram("mke2fs");
  if (!mke2fs) mke2fs = findProgram("/usr/sbin/mke2fs");
  if (!mke2fs) return false;
  const bool udif = format.rfind("udif", 0) == 0;
  ChildRequest request;
  request.program = *mke2fs;
  request.args = {"-q", "-F", "-t", "ext4", "-d", folder, udif ? raw : image, "64M"};
  if (!runChild(request).succeeded()) return false;
  if (!udif) return true;
  return wrapInUdif(raw, image, {"--compression", format == "udif-raw" ? "raw" : "zlib"});
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
    // A bundle made on a file system that ignores case holds one of two
    // names that differ only in case, as HFS+ does.
    if (GetParam() == "udif-hfs") fs::remove(bundle_ + "/Restore/Firmware/device_map.plist");
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

TEST_P(ImageSourceTest, ADamagedKeptTreeIsListedAgainAndReplaced) {
  std::vector<std::string> paths;
  {
    std::unique_ptr<BundleView> view = imageView(image_);
    ASSERT_TRUE(view);
    paths = listTree(*view, "");
  }
  std::string kept;
  for (const auto& entry : fs::directory_iterator(cacheRoot_))
    if (existsNoFollow(entry.path() / "tree")) kept = entry.path() / "tree";
  ASSERT_FALSE(kept.empty());
  const std::string whole = readText(kept);
  writeText(kept, whole.substr(0, whole.size() / 2));
  std::unique_ptr<BundleView> view = imageView(image_);
  ASSERT_TRUE(view);
  EXPECT_EQ(listTree(*view, ""), paths);
  EXPECT_EQ(readText(kept), whole);
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
  // HFS+ volumes hold everything in the volume's own folder.
  const std::string volume = GetParam() == "udif-hfs" ? "ISOIMAGE/" : "";
  EXPECT_NE(r.out.find("holds 2 bundle folders with Restore/ (\"" + volume + "One\", \"" + volume +
                       "Two\")"),
            std::string::npos)
      << r.out;
  EXPECT_FALSE(existsNoFollow(scratch_ / "T"));
}

// A query or a strip stopped by a signal while an image reader (or the
// image writer) runs, at each moment one runs: listing the image,
// extracting files together, streaming a large kept file, writing the
// target image. The signal goes to velmarbs alone, as `kill PID` sends it,
// so nothing stops the child but velmarbs. Nothing may be left: no target,
// no staging folder, no temporary folder (in $TMPDIR when no cache is used,
// or in the cache), no child process; the status is 128 + the signal.
TEST_P(ImageSourceTest, StopSignalsAtEveryMomentLeaveNothingBehind) {
  struct Moment {
    std::string name;
    bool strip;       // else a query
    std::string word; // the reader's argument that makes it hang
    int signal;
    bool cache;
    std::string target = "T";
  };
  const bool iso = GetParam() == "iso";
  std::vector<Moment> moments;
  if (iso) {
    moments = {
        {"query while listing", false, "-find", SIGTERM, true},
        {"strip while listing", true, "-find", SIGINT, false},
        {"strip while writing an image", true, "mkisofs", SIGHUP, true, "T.dmg"},
    };
  } else {
    moments = {
        {"query while listing", false, "l", SIGTERM, true},
        {"query while extracting", false, "x", SIGHUP, false},
        {"strip while extracting", true, "x", SIGINT, true},
        {"strip while streaming", true, "e", SIGTERM, false},
        {"strip while writing an image", true, "mkisofs", SIGHUP, true, "T.dmg"},
    };
  }
  // Readers and writer that work as the real ones, but for the one
  // argument that makes them say their process id and hang.
  const std::string bin = dir_ / "bin";
  fs::create_directories(bin);
  auto wrap = [&](const std::string& name, const std::string& real) {
    writeText(bin + "/" + name,
              "#!/bin/sh\n"
              "for a in \"$@\"; do if [ \"$a\" = \"$HANG_ON\" ]; then "
              "echo $$ > \"" + bin + "/hung.tmp\"; /bin/mv \"" + bin + "/hung.tmp\" \"" + bin +
              "/hung\"; exec /bin/sleep 60; fi; done\n"
              "exec " + real + " \"$@\"\n");
    fs::permissions(bin + "/" + name, fs::perms::owner_all);
  };
  wrap("7zz", *findSevenZip());
  ASSERT_TRUE(findXorriso());
  wrap("xorriso", *findXorriso());

  for (size_t i = 0; i < moments.size(); ++i) {
    const Moment& moment = moments[i];
    SCOPED_TRACE(moment.name);
    const std::string tmp = dir_ / ("tmp-" + std::to_string(i));
    const std::string cache = dir_ / ("cache-" + std::to_string(i));
    const std::string target = scratch_ / moment.target;
    fs::create_directories(tmp);
    fs::remove(bin + "/hung");
    std::vector<std::string> args = {"--source", image_};
    if (moment.strip) {
      args.insert(args.end(), {"--target", target, "--product", "r13", "--factory", "swdl"});
    } else {
      args.insert(args.end(), {"--validvariants", "--product", "r13"});
    }
    testing::ChildSetup setup;
    setup.path = bin;
    setup.beforeExec = [&] {
      ::setenv("HANG_ON", moment.word.c_str(), 1);
      ::setenv("TMPDIR", tmp.c_str(), 1);
      // Without a cache, extracted files go to $TMPDIR.
      if (moment.cache) {
        ::setenv("XDG_CACHE_HOME", cache.c_str(), 1);
      } else {
        ::unsetenv("XDG_CACHE_HOME");
        ::unsetenv("HOME");
      }
    };
    pid_t tool = testing::startVelmarbs(args, scratch_.path(), setup);
    for (int wait = 0; wait < 1000 && !existsNoFollow(bin + "/hung"); ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::string hung = readText(bin + "/hung");
    if (hung.empty()) {
      ::kill(tool, SIGKILL);
      ToolRun run = testing::finishVelmarbs(tool, scratch_.path());
      ADD_FAILURE() << "the reader was never asked for \"" << moment.word << "\"\n" << run.out;
      continue;
    }
    const pid_t reader = static_cast<pid_t>(std::stol(hung));
    ::kill(tool, moment.signal);
    ToolRun run = testing::finishVelmarbs(tool, scratch_.path());
    EXPECT_EQ(run.status, 128 + moment.signal) << run.signal << "\n" << run.out;
    EXPECT_TRUE(processGone(reader));
    if (!processGone(reader)) ::kill(reader, SIGKILL);
    EXPECT_FALSE(existsNoFollow(target));
    EXPECT_TRUE(namesStartingWith(scratch_.path(), "." + moment.target + ".velmarbs-").empty());
    EXPECT_TRUE(fs::is_empty(tmp));
    if (fs::exists(cache)) {
      for (const auto& entry : fs::recursive_directory_iterator(cache))
        EXPECT_EQ(entry.path().filename().string().rfind("tmp-", 0), std::string::npos)
            << entry.path();
    }
  }
}

// SIGKILL cannot be handled: the scratch folder a killed run made in
// $TMPDIR (no cache) is removed by the next run that makes one; a live
// owner's is kept.
TEST_P(ImageSourceTest, ScratchFoldersOfKilledRunsAreRemovedByTheNextRun) {
  if (GetParam() == "iso") GTEST_SKIP() << "queries read an ISO image in place, with no scratch folder";
  const std::string tmp = dir_ / "tmp-killed";
  pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  const std::string dead = tmp + "/velmarbs-image-" + std::to_string(gone) + "-abcdef";
  const std::string live = tmp + "/velmarbs-image-" + std::to_string(::getpid()) + "-abcdef";
  fs::create_directories(dead + "/1");
  writeText(dead + "/1/BuildManifest.plist", "left by a killed run");
  fs::create_directories(live);
  testing::ChildSetup setup;
  setup.beforeExec = [&] {
    ::setenv("TMPDIR", tmp.c_str(), 1);
    ::unsetenv("XDG_CACHE_HOME");
    ::unsetenv("HOME");
  };
  ToolRun run = testing::runVelmarbs({"--validvariants", "--product", "r13", "--source", image_},
                                     scratch_.path(), setup);
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_FALSE(existsNoFollow(dead));
  EXPECT_TRUE(existsNoFollow(live));
  EXPECT_EQ(namesStartingWith(tmp, "velmarbs-image-").size(), 1u);
}

// An uncompressed UDIF image of an ISO 9660 image begins as that image
// does, but its bytes lie elsewhere: it is read through 7-Zip, never in
// place, and answers as the folder does.
TEST(UdifImageTest, AnUncompressedUdifImageOfAnIsoImageIsNotReadInPlace) {
  synth::TempDir dir("velmar-udif");
  synth::TempDir scratch("velmar-scratch");
  const std::string bundle = dir / "content/Bundle";
  std::string error;
  ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle, &error)) << error;
  // Zeros between the files, which the container leaves out.
  writeText(bundle + "/Restore/zeros.bin", std::string(3 << 20, '\0'));
  const std::string iso = dir / "Bundle.iso", image = dir / "Bundle.dmg";
  std::optional<std::string> xorriso = findXorriso();
  if (!xorriso || !findSevenZip() || !findProgram("python3"))
    GTEST_SKIP() << "xorriso, 7-Zip or python3 is not installed";
  ASSERT_TRUE(makeImage(*xorriso, dir / "content", iso));
  ASSERT_TRUE(wrapInUdif(iso, image, {"--compression", "raw"}));
  EXPECT_TRUE(isUdifImage(image));
  EXPECT_FALSE(isIsoImage(image));
  std::string missing;
  std::optional<ImageReader> reader = chooseImageReader(image, &missing);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->kind, ImageReader::Kind::SevenZip);

  ::setenv("XDG_CACHE_HOME", (dir / "cache").c_str(), 1);
  ToolRun a = runVelmarbs({"--validvariants", "--product", "r13", "--source", image}, scratch.path());
  ToolRun b = runVelmarbs({"--validvariants", "--product", "r13", "--source", bundle}, scratch.path());
  ::unsetenv("XDG_CACHE_HOME");
  EXPECT_EQ(a.status, 0) << a.out;
  EXPECT_EQ(a.out, b.out);
}

INSTANTIATE_TEST_SUITE_P(Formats, ImageSourceTest,
                         ::testing::Values("iso", "ext4", "udif", "udif-raw", "udif-hfs"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace velmar::tool
