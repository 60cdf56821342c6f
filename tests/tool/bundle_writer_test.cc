#include "tool/bundle_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/log_object.h"
#include "base/plist_io.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"
#include "tool/disk_image.h"
#include "tool/exit_status.h"

namespace velmar::tool {
namespace {

namespace fs = std::filesystem;
using testing::existsNoFollow;
using testing::linkText;
using testing::listTree;
using testing::namesStartingWith;
using testing::readText;
using testing::writeText;

constexpr time_t kOldTime = 1000000000;  // 2001-09-09

void setTimeAndMode(const std::string& path, mode_t mode) {
  struct timespec times[2] = {{kOldTime, 0}, {kOldTime, 0}};
  ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  ::chmod(path.c_str(), mode);
}

struct stat lstatOf(const std::string& path) {
  struct stat st = {};
  ::lstat(path.c_str(), &st);
  return st;
}

// A small bundle in work/source, a folder beside it that must never be
// touched, and the target work/T.
class BundleWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeText(source_ + "/Restore/BuildManifest.plist", "old manifest");
    writeText(source_ + "/Restore/Firmware/a.img", "firmware a");
    writeText(source_ + "/Restore/Firmware/sub/b.img", std::string(100000, 'b'));
    writeText(source_ + "/Debug/x.log", "debug");
    writeText(source_ + "/038-9003-001.dmg", "restore tools");
    ::symlink("Restore/Firmware/a.img", (source_ + "/kept-link").c_str());
    ::symlink("Restore/Firmware", (source_ + "/fw").c_str());
    setTimeAndMode(source_ + "/Restore/Firmware/a.img", 0640);
    setTimeAndMode(source_ + "/Restore/Firmware/sub", 0750);
    writeText(outside_ + "/secret", "secret");
    before_ = listTree(work_.path());
  }

  int write(const Value& manifest, const Value& modified, bool noSymLinks = false,
            bool overwrite = false) {
    TargetOptions target;
    target.path = target_;
    target.overwrite = overwrite;
    BundleWriterOptions options;
    options.noSymLinks = noSymLinks;
    return writeStrippedBundle(source_, target, options, manifest, modified);
  }

  // Nothing new anywhere: no target, no staging folder, nothing outside.
  void expectNothingWritten() {
    EXPECT_EQ(listTree(work_.path()), before_);
    EXPECT_FALSE(existsNoFollow(work_ / "x"));
  }

  synth::TempDir work_{"velmar-writer"};
  std::string source_ = work_ / "source";
  std::string outside_ = work_ / "outside";
  std::string target_ = work_ / "T";
  std::set<std::string> before_;
};

Value paths(std::initializer_list<const char*> items) {
  Value a = Value::makeArray();
  for (const char* p : items) a.append(Value(p));
  return a;
}

TEST_F(BundleWriterTest, CopiesKeptFoldersFilesAndLinksFaithfully) {
  Value manifest =
      paths({"Restore", "Restore/Firmware", "Restore/Firmware/a.img", "Restore/Firmware/sub",
             "Restore/Firmware/sub/b.img", "Debug/x.log", "kept-link"});
  ASSERT_EQ(write(manifest, Value::makeDict()), kExitSuccess);

  EXPECT_EQ(listTree(target_),
            (std::set<std::string>{"Restore", "Restore/Firmware", "Restore/Firmware/a.img",
                                   "Restore/Firmware/sub", "Restore/Firmware/sub/b.img", "Debug",
                                   "Debug/x.log", "kept-link"}));
  EXPECT_EQ(readText(target_ + "/Restore/Firmware/a.img"), "firmware a");
  EXPECT_EQ(readText(target_ + "/Restore/Firmware/sub/b.img"), std::string(100000, 'b'));
  struct stat a = lstatOf(target_ + "/Restore/Firmware/a.img");
  EXPECT_EQ(a.st_mode & 07777, 0640u);
  EXPECT_EQ(a.st_mtim.tv_sec, kOldTime);
  struct stat sub = lstatOf(target_ + "/Restore/Firmware/sub");
  EXPECT_EQ(sub.st_mode & 07777, 0750u);
  EXPECT_EQ(sub.st_mtim.tv_sec, kOldTime);
  // A kept link keeps its text.
  EXPECT_EQ(linkText(target_ + "/kept-link"), "Restore/Firmware/a.img");
  EXPECT_TRUE(namesStartingWith(work_.path(), ".T.velmarbs-").empty());
  EXPECT_EQ(listTree(source_).count("Restore/Firmware/a.img"), 1u);
}

TEST_F(BundleWriterTest, ModifiedFilesAreWrittenByKindAndReplaceCopies) {
  Value manifestPlist = Value::makeDict();
  manifestPlist.set("BuildIdentities", Value::makeArray());
  manifestPlist.set("ProductVersion", "9.0");
  Value modified = Value::makeDict();
  modified.set("Restore/BuildManifest.plist", manifestPlist);
  modified.set("Restore/Firmware/device_map.txt", "r13ap line\n");
  modified.set("RestoreTools.dmg", Value::makeData("038-9003-001.dmg"));
  ASSERT_EQ(write(paths({"Restore", "Restore/BuildManifest.plist", "038-9003-001.dmg"}), modified),
            kExitSuccess);

  EXPECT_EQ(readPropertyListFile(target_ + "/Restore/BuildManifest.plist"), manifestPlist);
  EXPECT_EQ(readText(target_ + "/Restore/Firmware/device_map.txt"), "r13ap line\n");
  EXPECT_EQ(linkText(target_ + "/RestoreTools.dmg"), "038-9003-001.dmg");
  EXPECT_EQ(readText(source_ + "/Restore/BuildManifest.plist"), "old manifest");
}

TEST_F(BundleWriterTest, NoSymLinksWritesACopyOfTheNamedFile) {
  Value modified = Value::makeDict();
  modified.set("RestoreTools.dmg", Value::makeData("038-9003-001.dmg"));
  modified.set("Restore/ramdisk.dmg", Value::makeData("../fw/a.img"));  // through an inside link
  ASSERT_EQ(write(paths({"038-9003-001.dmg"}), modified, /*noSymLinks=*/true), kExitSuccess);
  EXPECT_TRUE(S_ISREG(lstatOf(target_ + "/RestoreTools.dmg").st_mode));
  EXPECT_EQ(readText(target_ + "/RestoreTools.dmg"), "restore tools");
  EXPECT_EQ(readText(target_ + "/Restore/ramdisk.dmg"), "firmware a");
  EXPECT_EQ(lstatOf(target_ + "/Restore/ramdisk.dmg").st_mode & 07777, 0640u);
}

TEST_F(BundleWriterTest, OverwriteReplacesAnExistingTargetOnlyWhenAsked) {
  writeText(target_ + "/old-marker", "old");
  before_ = listTree(work_.path());
  EXPECT_EQ(write(paths({"Debug/x.log"}), Value::makeDict()), kExitIO);
  expectNothingWritten();

  ASSERT_EQ(write(paths({"Debug/x.log"}), Value::makeDict(), false, /*overwrite=*/true),
            kExitSuccess);
  EXPECT_EQ(listTree(target_), (std::set<std::string>{"Debug", "Debug/x.log"}));
  EXPECT_TRUE(namesStartingWith(work_.path(), ".T.velmarbs-").empty());
}

TEST_F(BundleWriterTest, RefusesPathsThatLeaveTheBundleAndWritesNothing) {
  ::symlink(outside_.c_str(), (source_ + "/Restore/abs").c_str());
  ::symlink("../../outside", (source_ + "/Restore/rel").c_str());
  before_ = listTree(work_.path());
  const std::string absolute = outside_ + "/secret";

  struct Case {
    const char* name;
    Value manifest;
    Value modified;
    bool noSymLinks = false;
  };
  auto modifiedOf = [](const char* path, Value contents) {
    Value d = Value::makeDict();
    d.set(path, std::move(contents));
    return d;
  };
  std::vector<Case> cases = {
      {"dot-dot item", paths({"Debug/x.log", "../../x"}), Value::makeDict()},
      {"absolute item", Value::makeArray({Value(absolute)}), Value::makeDict()},
      {"empty component", paths({"Restore//BuildManifest.plist"}), Value::makeDict()},
      {"absolute link on the way", paths({"Restore/abs/secret"}), Value::makeDict()},
      {"relative link on the way", paths({"Restore", "Restore/rel", "Restore/rel/secret"}),
       Value::makeDict()},
      {"modified dot-dot", paths({"Debug/x.log"}), modifiedOf("../x", Value::makeDict())},
      {"modified absolute", Value::makeArray(), modifiedOf(absolute.c_str(), "text")},
      {"modified beneath a kept link", paths({"fw"}), modifiedOf("fw/x", "text")},
      {"kept beneath a kept link", paths({"fw", "fw/a.img"}), Value::makeDict()},
      {"copied link leaving", Value::makeArray(),
       modifiedOf("Restore/x", Value::makeData("../../outside/secret")), true},
      {"copied link absolute", Value::makeArray(), modifiedOf("x", Value::makeData(absolute)),
       true},
      {"copied link via outside link", Value::makeArray(),
       modifiedOf("Restore/x", Value::makeData("rel/secret")), true},
      {"not a path", Value::makeArray({Value(1)}), Value::makeDict()},
      {"contents of no kind", Value::makeArray(), modifiedOf("x", Value::makeArray())},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    size_t logged = LogObject::sharedLogger().historicalLog().size();
    EXPECT_EQ(write(c.manifest, c.modified, c.noSymLinks), kExitIO);
    EXPECT_NE(LogObject::sharedLogger().historicalLog().find("XXX ERROR: refusing", logged),
              std::string::npos);
    expectNothingWritten();
    EXPECT_EQ(readText(outside_ + "/secret"), "secret");
  }
}

TEST_F(BundleWriterTest, FirmwareFolderLinkedOutsideIsRefused) {
  // Restore/Firmware itself leads to a folder outside the bundle.
  fs::rename(source_ + "/Restore/Firmware", outside_ + "/Firmware");
  ::symlink((outside_ + "/Firmware").c_str(), (source_ + "/Restore/Firmware").c_str());
  before_ = listTree(work_.path());
  EXPECT_EQ(
      write(paths({"Restore", "Restore/Firmware", "Restore/Firmware/a.img"}), Value::makeDict()),
      kExitIO);
  expectNothingWritten();
  Value modified = Value::makeDict();
  modified.set("Restore/Firmware/device_map.txt", "x\n");
  EXPECT_EQ(write(paths({"Restore", "Restore/Firmware"}), modified), kExitIO);
  expectNothingWritten();
  EXPECT_EQ(readText(outside_ + "/Firmware/a.img"), "firmware a");
}

// Failures after the plan, while writing: the partial folder goes, an
// existing target stays.
class MidWriteFailure
    : public BundleWriterTest,
      public ::testing::WithParamInterface<std::function<void(const std::string&)>> {};

TEST_P(MidWriteFailure, LeavesNoPartialFolderAndTheOldTargetAlone) {
  for (bool existingTarget : {false, true}) {
    SCOPED_TRACE(existingTarget ? "over an existing target" : "new target");
    synth::TempDir work("velmar-midwrite");
    const std::string source = work / "source", target = work / "T";
    fs::copy(source_, source, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    if (existingTarget) writeText(target + "/old-marker", "old");
    std::set<std::string> expected = listTree(work.path());

    std::unique_ptr<BundleView> view = openFolderView(source);
    BundleWriter writer(*view, BundleWriterOptions());
    Value modified = Value::makeDict();
    modified.set("Restore/Firmware/device_map.txt", "x\n");
    ASSERT_TRUE(writer.plan(paths({"Debug/x.log", "Restore", "Restore/Firmware/a.img",
                                   "Restore/Firmware/sub", "Restore/Firmware/sub/b.img"}),
                            modified));
    GetParam()(source);  // the source changes under the writer
    expected = listTree(work.path());
    TargetOptions options;
    options.path = target;
    options.overwrite = true;
    EXPECT_EQ(installBundle(writer, options), kExitIO);
    EXPECT_EQ(listTree(work.path()), expected);
    EXPECT_TRUE(namesStartingWith(work.path(), ".T.velmarbs-").empty());
    if (existingTarget) {
      EXPECT_EQ(readText(target + "/old-marker"), "old");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(SourceChanges, MidWriteFailure,
                         ::testing::Values(
                             // A kept file vanishes.
                             [](const std::string& source) {
                               fs::remove(source + "/Restore/Firmware/sub/b.img");
                             },
                             // A kept file becomes a FIFO (a read would block forever).
                             [](const std::string& source) {
                               fs::remove(source + "/Restore/Firmware/sub/b.img");
                               ::mkfifo((source + "/Restore/Firmware/sub/b.img").c_str(), 0644);
                             },
                             // A kept folder becomes a dangling link.
                             [](const std::string& source) {
                               fs::remove_all(source + "/Restore/Firmware/sub");
                               ::symlink("nowhere", (source + "/Restore/Firmware/sub").c_str());
                             },
                             // A kept file becomes a link (not followed, even inside the bundle).
                             [](const std::string& source) {
                               fs::remove(source + "/Restore/Firmware/sub/b.img");
                               ::symlink("../a.img",
                                         (source + "/Restore/Firmware/sub/b.img").c_str());
                             }));

TEST_F(BundleWriterTest, KeptLinksMustStayInsideTheBundle) {
  ::symlink("/etc/passwd", (source_ + "/Debug/absolute").c_str());
  ::symlink("../../outside/secret", (source_ + "/Debug/climbing").c_str());
  ::symlink("../fw/../../outside/secret", (source_ + "/Debug/through-folder-link").c_str());
  ::symlink(outside_.c_str(), (source_ + "/Restore/out").c_str());
  ::symlink("../Restore/out/secret", (source_ + "/Debug/through-outside-link").c_str());
  ::symlink("../Restore/Firmware/missing", (source_ + "/Debug/dangling-inside").c_str());
  before_ = listTree(work_.path());
  for (const char* link :
       {"Debug/absolute", "Debug/climbing", "Debug/through-folder-link", "Debug/through-outside-link"}) {
    SCOPED_TRACE(link);
    size_t logged = LogObject::sharedLogger().historicalLog().size();
    EXPECT_EQ(write(paths({"Debug", link}), Value::makeDict()), kExitIO);
    EXPECT_NE(LogObject::sharedLogger().historicalLog().find(
                  std::string("XXX ERROR: refusing \"") + link + "\": it is a symbolic link to",
                  logged),
              std::string::npos);
    expectNothingWritten();
  }
  // Inside, even where it names nothing, it is kept as it stands.
  ASSERT_EQ(write(paths({"Debug", "Debug/dangling-inside", "kept-link"}), Value::makeDict()),
            kExitSuccess);
  EXPECT_EQ(linkText(target_ + "/Debug/dangling-inside"), "../Restore/Firmware/missing");
}

TEST_F(BundleWriterTest, NamesNoPropertyListCanHoldAreRefusedBeforeWriting) {
  for (const std::string& name : {std::string("Debug/a\nb"), std::string("Debug/a\x1b[0m"),
                                  std::string("Debug/\xc3\x28"), std::string("Debug/a\x7f")}) {
    writeText(source_ + "/" + name, "x");
    before_ = listTree(work_.path());
    EXPECT_EQ(write(paths({"Debug/x.log", name.c_str()}), Value::makeDict()), kExitIO);
    expectNothingWritten();
    Value modified = Value::makeDict();
    modified.set(name, "text");
    EXPECT_EQ(write(paths({"Debug/x.log"}), modified), kExitIO);
    expectNothingWritten();
  }
}

TEST_F(BundleWriterTest, PathsAreReadIgnoringCaseAndWrittenAsTheEngineSpeltThem) {
  // The disk says "device_map.plist"; the engine asks for "Device_map.plist".
  writeText(source_ + "/Restore/Firmware/device_map.plist", "map");
  ASSERT_EQ(write(paths({"Restore", "Restore/Firmware/Device_map.plist"}), Value::makeDict()),
            kExitSuccess);
  EXPECT_EQ(readText(target_ + "/Restore/Firmware/Device_map.plist"), "map");
  EXPECT_FALSE(existsNoFollow(target_ + "/Restore/Firmware/device_map.plist"));
}

// A kept file that changes size between the plan and its copy would be
// written torn, or differ from what the engine saw: refused.
TEST_F(BundleWriterTest, FilesThatChangeSizeAreRefused) {
  for (int delta : {-1, +1}) {
    SCOPED_TRACE(delta);
    std::unique_ptr<BundleView> view = openFolderView(source_);
    BundleWriter writer(*view, BundleWriterOptions());
    ASSERT_TRUE(writer.plan(paths({"Restore", "Restore/Firmware/sub/b.img"}), Value::makeDict()));
    ASSERT_EQ(::truncate((source_ + "/Restore/Firmware/sub/b.img").c_str(), 100000 + delta), 0);
    before_ = listTree(work_.path());
    TargetOptions options;
    options.path = target_;
    size_t logged = LogObject::sharedLogger().historicalLog().size();
    EXPECT_EQ(installBundle(writer, options), kExitIO);
    EXPECT_NE(LogObject::sharedLogger().historicalLog().find("changed size", logged),
              std::string::npos);
    expectNothingWritten();
    ASSERT_EQ(::truncate((source_ + "/Restore/Firmware/sub/b.img").c_str(), 100000), 0);
  }
}

// A folder view in which one empty file reads as more than it says: what a
// file growing while it is copied looks like (a /proc file does it at once).
class GrowingFileView : public BundleView {
 public:
  explicit GrowingFileView(const std::string& root) : inner_(openFolderView(root)) {}
  const std::string& location() const override { return inner_->location(); }
  int entryInfo(std::string_view p, EntryInfo* i) override { return inner_->entryInfo(p, i); }
  int targetInfo(std::string_view p, EntryInfo* i) override { return inner_->targetInfo(p, i); }
  int listFolder(std::string_view p, std::vector<FolderEntry>* e) override {
    return inner_->listFolder(p, e);
  }
  int readFile(std::string_view p, size_t l, std::string* b, FileIdentity* i) override {
    return inner_->readFile(p, l, b, i);
  }
  int openFile(std::string_view path, UniqueFd* fd) override {
    if (path != "Debug/growing") return inner_->openFile(path, fd);
    fd->reset(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    return fd->valid() ? 0 : errno;
  }

 private:
  std::unique_ptr<BundleView> inner_;
};

TEST_F(BundleWriterTest, AFileThatGrowsWhileCopiedIsRefused) {
  writeText(source_ + "/Debug/growing", "");
  before_ = listTree(work_.path());
  GrowingFileView view(source_);
  TargetOptions target;
  target.path = target_;
  size_t logged = LogObject::sharedLogger().historicalLog().size();
  EXPECT_EQ(writeStrippedBundle(view, target, BundleWriterOptions(),
                                paths({"Debug/x.log", "Debug/growing"}), Value::makeDict()),
            kExitIO);
  EXPECT_NE(LogObject::sharedLogger().historicalLog().find(
                "refusing \"Debug/growing\": it changed size while it was copied (0 bytes when "
                "the copy began, more copied)",
                logged),
            std::string::npos)
      << LogObject::sharedLogger().historicalLog().substr(logged);
  expectNothingWritten();
}

TEST_F(BundleWriterTest, DiskImageTargetIsMadeFromTheFinishedFolder) {
  std::optional<std::string> xorriso = findXorriso();
  if (!xorriso) GTEST_SKIP() << "xorriso is not installed";
  TargetOptions target;
  target.path = work_ / "T.dmg";
  target.imageTool = *xorriso;
  ASSERT_EQ(writeStrippedBundle(source_, target, BundleWriterOptions(),
                                paths({"Restore", "Restore/Firmware", "Restore/Firmware/a.img"}),
                                Value::makeDict()),
            kExitSuccess);
  std::string image = readText(target.path);
  ASSERT_GT(image.size(), 32774u);
  EXPECT_EQ(image.substr(32769, 5), "CD001");  // an ISO 9660 volume descriptor
  EXPECT_NE(image.find("firmware a"), std::string::npos);
  EXPECT_TRUE(namesStartingWith(work_.path(), ".T.dmg.velmarbs-").empty());
}

}  // namespace
}  // namespace velmar::tool
