// velmarbs on hostile bundles and interrupted runs, as a child process: the
// exit status, the message, nothing read from or written outside, nothing
// left behind.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "synth/bundle_builder.h"
#include "synth/sample_bundles.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

namespace fs = std::filesystem;
using testing::ChildSetup;
using testing::existsNoFollow;
using testing::finishVelmarbs;
using testing::listTree;
using testing::namesStartingWith;
using testing::propertyListsIn;
using testing::readText;
using testing::startVelmarbs;
using testing::ToolRun;
using testing::writeText;

bool hasLineStartingWith(const std::string& text, const std::string& prefix) {
  size_t start = 0;
  while (start < text.size()) {
    if (text.compare(start, prefix.size(), prefix) == 0) return true;
    size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return false;
}

// A sample bundle in work/Bundle, a secret file outside it, the target
// work/Stripped; everything below work/ is compared before and after.
class HostileBundleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(synth::writeBundle(synth::sampleBundle(), bundle_, &error)) << error;
    writeText(outside_ + "/secret.txt", "SECRET-OUTSIDE-CONTENTS\n");
    fs::create_directories(outside_ + "/folder");
    writeText(outside_ + "/folder/manifest.plist", "SECRET-OUTSIDE-CONTENTS\n");
  }

  ToolRun run(const std::vector<std::string>& args, const ChildSetup& setup = ChildSetup()) {
    return testing::runVelmarbs(args, scratch_.path(), setup);
  }
  ToolRun strip(std::vector<std::string> extra = {}, const ChildSetup& setup = ChildSetup()) {
    std::vector<std::string> args = {"--source", bundle_, "--target", target_, "--product", "r13"};
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args, setup);
  }

  // Nothing of the run left in work/: no target, no staging folder.
  void expectNothingWritten(const std::set<std::string>& before) {
    EXPECT_EQ(listTree(work_.path()), before);
    EXPECT_FALSE(existsNoFollow(target_));
    EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());
  }

  // No file of the target carries what lies outside the bundle.
  void expectNothingFromOutside() {
    for (const std::string& path : listTree(target_)) {
      struct stat st;
      if (::lstat((target_ + "/" + path).c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
        EXPECT_EQ(readText(target_ + "/" + path).find("SECRET-OUTSIDE"), std::string::npos)
            << path;
      }
    }
  }

  synth::TempDir work_{"velmar-hostile"};
  synth::TempDir scratch_{"velmar-scratch"};
  std::string bundle_ = work_ / "Bundle";
  std::string outside_ = work_ / "outside";
  std::string target_ = work_ / "Stripped";
};

// ---- reading ---------------------------------------------------------------

TEST_F(HostileBundleTest, OversizedFifoAndDeviceMapFilesNeitherHangNorLeak) {
  const std::string map = bundle_ + "/Restore/Firmware/device_map.txt";
  struct Case {
    const char* name;
    std::function<void()> make;
  };
  std::vector<Case> cases = {
      {"sparse map beyond the limit",
       [&] {
         fs::remove(map);
         writeText(map, "");
         ASSERT_EQ(::truncate(map.c_str(), off_t{6} << 30), 0);
       }},
      {"FIFO", [&] { fs::remove(map); ::mkfifo(map.c_str(), 0644); }},
      {"link to /dev/zero", [&] { fs::remove(map); ::symlink("/dev/zero", map.c_str()); }},
      {"link to a file outside",
       [&] { fs::remove(map); ::symlink((outside_ + "/secret.txt").c_str(), map.c_str()); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.make();
    auto started = std::chrono::steady_clock::now();
    ToolRun r = strip({"--ov"});
    EXPECT_EQ(r.signal, 0) << r.out;
    // The map is left as it is, with a warning naming it.
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("!!! WARNING: \"Restore/Firmware/device_map.txt\""), std::string::npos)
        << r.out;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
    expectNothingFromOutside();
    EXPECT_EQ(r.out.find("SECRET-OUTSIDE"), std::string::npos);
    EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());
  }
}

TEST_F(HostileBundleTest, ManifestsAndMapsLinkedOutsideAreNotRead) {
  // A manifest outside the bundle, reached through a link to its file and
  // through a link to its folder.
  const std::string targetMap = bundle_ + "/Restore/Firmware/target_map.txt";
  fs::remove(targetMap);
  ::symlink((outside_ + "/secret.txt").c_str(), targetMap.c_str());
  ToolRun r = strip();
  EXPECT_EQ(r.signal, 0);
  if (r.status == 0) expectNothingFromOutside();
  EXPECT_EQ(r.out.find("SECRET-OUTSIDE"), std::string::npos);

  fs::remove_all(target_);
  fs::rename(bundle_ + "/Restore/Firmware", outside_ + "/Firmware");
  ::symlink((outside_ + "/Firmware").c_str(), (bundle_ + "/Restore/Firmware").c_str());
  std::set<std::string> before = listTree(work_.path());
  r = strip();
  EXPECT_NE(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("ERROR"), std::string::npos) << r.out;
  expectNothingWritten(before);
}

TEST_F(HostileBundleTest, FolderLinksLeavingTheBundleAreNeverWalked) {
  // Kept folders that lead to the whole machine: the strip must not walk
  // them, and says it left them out.
  fs::remove_all(bundle_ + "/Debug");
  ::symlink("/", (bundle_ + "/Debug").c_str());
  fs::remove_all(bundle_ + "/Orrin RPKGs");
  ::symlink("/usr", (bundle_ + "/Orrin RPKGs").c_str());
  auto started = std::chrono::steady_clock::now();
  ToolRun r = strip({"--keepDebug", "--keepRPKGs", "--results"});
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_EQ(r.status, 0) << r.out;
  for (const char* folder : {"Debug", "Orrin RPKGs"})
    EXPECT_NE(r.out.find(std::string("!!! WARNING: cannot read the folder \"") + folder +
                         "\" of the bundle: it leads out of the bundle"),
              std::string::npos)
        << r.out;
  EXPECT_EQ(r.out.find("<string>Debug"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("<string>Orrin RPKGs"), std::string::npos) << r.out;
  EXPECT_FALSE(existsNoFollow(target_ + "/Debug"));
  EXPECT_FALSE(existsNoFollow(target_ + "/Orrin RPKGs"));
}

TEST_F(HostileBundleTest, MapsAreFoundWhateverTheCaseOfTheirNames) {
  // A bundle from a case-insensitive disk holds one of the two spellings.
  fs::remove(bundle_ + "/Restore/Firmware/Device_map.plist");
  ToolRun r = strip({"--results"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out.find("cannot be read"), std::string::npos) << r.out;
  // Stripping the stripped bundle works the same way.
  ToolRun again = run({"--source", target_, "--target", work_ / "Again", "--product", "r13"});
  EXPECT_EQ(again.status, 0) << again.out;
  EXPECT_EQ(again.out.find("cannot be read"), std::string::npos) << again.out;
}

TEST_F(HostileBundleTest, NamesMatchingOnlyIgnoringCaseTwiceAreNamedInAWarning) {
  fs::remove(bundle_ + "/Restore/Firmware/Device_map.plist");
  fs::copy_file(bundle_ + "/Restore/Firmware/device_map.plist",
                bundle_ + "/Restore/Firmware/DEVICE_MAP.plist");
  ToolRun r = strip();
  EXPECT_NE(r.out.find("!!! WARNING: the bundle holds \"Restore/Firmware/DEVICE_MAP.plist\", "
                       "\"Restore/Firmware/device_map.plist\", names that differ only in case"),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());
}

// ---- kept links and names ----------------------------------------------------

TEST_F(HostileBundleTest, KeptLinksLeavingTheBundleAreRefusedWithStatus3) {
  for (const std::string& text :
       {std::string("/etc/passwd"), std::string("../../outside/secret.txt"), outside_}) {
    SCOPED_TRACE(text);
    fs::remove(bundle_ + "/Debug/leak");
    ::symlink(text.c_str(), (bundle_ + "/Debug/leak").c_str());
    std::set<std::string> before = listTree(work_.path());
    ToolRun r = strip({"--keepDebug"});
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("XXX ERROR: refusing \"Debug/leak\": it is a symbolic link to \"" +
                         text + "\", outside the bundle."),
              std::string::npos)
        << r.out;
    expectNothingWritten(before);
  }
  // A link that stays inside is kept as it is.
  fs::remove(bundle_ + "/Debug/leak");
  ::symlink("../Restore/Restore.plist", (bundle_ + "/Debug/inside").c_str());
  ToolRun r = strip({"--keepDebug"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(testing::linkText(target_ + "/Debug/inside"), "../Restore/Restore.plist");
}

TEST_F(HostileBundleTest, NamesWithControlCharactersAreEscapedAndRefused) {
  struct Case {
    const char* name;
    std::string file;
    std::string shown;  // how the message shows it
  };
  std::vector<Case> cases = {
      {"line break", "x\n>>> stripped bundle written to \"/forged\".",
       "x\\n>>> stripped bundle written to"},
      {"escape sequence", "x\x1b[31mred", "x\\x1B[31mred"},
      {"invalid UTF-8", "x\xff\xfe", "x\\xFF\\xFE"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(bundle_ + "/Debug");
    writeText(bundle_ + "/Debug/" + c.file, "debug");
    std::set<std::string> before = listTree(work_.path());
    for (bool withTarget : {true, false}) {
      ToolRun r = withTarget ? strip({"--keepDebug", "--results"})
                             : run({"--source", bundle_, "--product", "r13", "--keepDebug",
                                    "--results"});
      EXPECT_EQ(r.status, 3) << r.out;
      EXPECT_NE(r.out.find("XXX ERROR: refusing \"Debug/" + c.shown), std::string::npos) << r.out;
      EXPECT_FALSE(hasLineStartingWith(r.out, ">>>")) << r.out;
      EXPECT_EQ(r.out.find('\x1b'), std::string::npos);
      EXPECT_EQ(r.out.find('\xff'), std::string::npos);
      // No results are printed: they could not be a well-formed list.
      EXPECT_EQ(r.out.find("<?xml"), std::string::npos) << r.out;
      expectNothingWritten(before);
    }
  }
}

TEST_F(HostileBundleTest, UnreadableFolderIsNamedInAWarning) {
  // The product's package folder, which --keepRPKGs walks.
  const std::string locked = bundle_ + "/Orrin RPKGs/r13_7A123.RPKG";
  ASSERT_TRUE(existsNoFollow(locked + "/Payload"));
  ::chmod(locked.c_str(), 0);
  ChildSetup setup;
  if (::geteuid() == 0) {
    // Root reads any folder: run the tool as nobody, which can read the
    // bundle and write beside it.
    ::chmod(work_.path().c_str(), 0777);
    ::chmod(scratch_.path().c_str(), 0777);
    setup.beforeExec = [] {
      if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(126);
    };
  }
  ToolRun r = strip({"--keepRPKGs"}, setup);
  ::chmod(locked.c_str(), 0755);
  EXPECT_NE(r.status, 126);
  EXPECT_NE(r.out.find("!!! WARNING: cannot read the folder \"Orrin RPKGs/r13_7A123.RPKG\""),
            std::string::npos)
      << r.out;
  EXPECT_TRUE(namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty());
}

// ---- the target --------------------------------------------------------------

TEST_F(HostileBundleTest, TargetInsideTheSourceIsStatus2EvenWhereItsFolderIsMissing) {
  std::set<std::string> before = listTree(work_.path());
  for (const std::string& target :
       {bundle_ + "/Restore/Stripped", bundle_ + "/missing/deeper/Stripped",
        bundle_ + "/missing/../Stripped", work_ / "Bundle/./x/y"}) {
    SCOPED_TRACE(target);
    ToolRun r = run({"--source", bundle_, "--target", target, "--product", "r13"});
    EXPECT_EQ(r.status, 2) << r.out;
    EXPECT_NE(r.out.find("overlap"), std::string::npos) << r.out;
    EXPECT_EQ(listTree(work_.path()), before);
  }
  // Outside, with a missing folder: a write error, as ever.
  ToolRun r = run({"--source", bundle_, "--target", work_ / "missing/Stripped"});
  EXPECT_EQ(r.status, 3) << r.out;
}

TEST_F(HostileBundleTest, FileSizeLimitIsAWriteErrorAndLeavesNothing) {
  std::set<std::string> before = listTree(work_.path());
  ChildSetup setup;
  setup.beforeExec = [] {
    struct rlimit limit = {4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  };
  ToolRun r = strip({}, setup);
  EXPECT_EQ(r.signal, 0);
  EXPECT_EQ(r.status, 3) << r.out;
  EXPECT_NE(r.out.find("File too large"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("XXX ERROR: the stripped bundle was not written"), std::string::npos);
  expectNothingWritten(before);
}

// ---- stopped runs ------------------------------------------------------------

// Enough small kept files that copying them takes a while.
void addManyDebugFiles(const std::string& bundle, int count) {
  fs::create_directories(bundle + "/Debug/many");
  for (int i = 0; i < count; ++i) {
    std::string path = bundle + "/Debug/many/f" + std::to_string(i);
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "0123456789", 10), 10);
    ::close(fd);
  }
}

TEST_F(HostileBundleTest, StopSignalsRemoveTheStagingFolderAndKeepAnExistingTarget) {
  addManyDebugFiles(bundle_, 6000);
  writeText(target_ + "/old-marker", "old");
  const std::set<std::string> before = listTree(work_.path());
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(strsignal(sig));
    // On a busy machine the run may finish before the signal lands; that
    // run proves nothing, so the target is put back and it goes again.
    bool interrupted = false;
    for (int attempt = 0; attempt < 5 && !interrupted; ++attempt) {
      pid_t pid = startVelmarbs(
          {"--source", bundle_, "--target", target_, "--product", "r13", "--keepDebug", "--ov"},
          scratch_.path());
      // Stop it once it has begun to write.
      bool staged = false;
      for (int i = 0; i < 600000 && !staged; ++i) {
        staged = !namesStartingWith(work_.path(), ".Stripped.velmarbs-").empty();
        if (!staged) std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
      ASSERT_TRUE(staged);
      ::kill(pid, sig);
      ToolRun r = finishVelmarbs(pid, scratch_.path());
      if (!existsNoFollow(target_ + "/old-marker")) {
        fs::remove_all(target_);
        writeText(target_ + "/old-marker", "old");
        continue;
      }
      interrupted = true;
      EXPECT_EQ(r.status, 128 + sig) << r.out;
      EXPECT_EQ(listTree(work_.path()), before);
      EXPECT_EQ(readText(target_ + "/old-marker"), "old");
    }
    EXPECT_TRUE(interrupted) << "every run finished before the signal";
  }
}

TEST_F(HostileBundleTest, StagingFoldersOfKilledRunsAreRemovedByTheNextRun) {
  // A process that is gone, and one that lives (this test).
  pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  const std::string stale = work_ / (".Stripped.velmarbs-" + std::to_string(gone) + "-AbC123");
  const std::string live = work_ / (".Stripped.velmarbs-" + std::to_string(::getpid()) + "-XyZ789");
  const std::string foreign = work_ / ".Stripped.velmarbs-notapid";
  for (const std::string& folder : {stale, live, foreign}) {
    writeText(folder + "/bundle/Restore/x.img", "partial");
    ::chmod((folder + "/bundle/Restore").c_str(), 0555);
  }
  ToolRun r = strip();
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(existsNoFollow(stale));
  EXPECT_TRUE(existsNoFollow(live + "/bundle/Restore/x.img"));
  EXPECT_TRUE(existsNoFollow(foreign + "/bundle/Restore/x.img"));
  EXPECT_EQ(namesStartingWith(work_.path(), ".Stripped.velmarbs-").size(), 2u);
}

}  // namespace
}  // namespace velmar::tool
