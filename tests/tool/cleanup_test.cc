#include "tool/cleanup.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "base/child_process.h"
#include "synth/temp_dir.h"
#include "tests/tool/tool_test_support.h"

namespace velmar::tool {
namespace {

using testing::existsNoFollow;
using testing::processGone;
using testing::readText;
using testing::writeText;

TEST(RemoveTreeSignalSafe, RemovesDeepReadOnlyTreesAndNeverFollowsLinks) {
  synth::TempDir dir("velmar-cleanup");
  const std::string tree = dir / "staging";
  writeText(dir / "outside/keep", "keep");
  // Deep, wide, read-only and unreadable folders, as a copied bundle has.
  std::string deep = tree;
  for (int i = 0; i < 60; ++i) deep += "/d" + std::to_string(i);
  writeText(deep + "/leaf", "x");
  for (int i = 0; i < 300; ++i) writeText(tree + "/wide/f" + std::to_string(i), "x");
  writeText(tree + "/locked/inner/file", "x");
  ::chmod((tree + "/locked/inner").c_str(), 0);
  ::chmod((tree + "/locked").c_str(), 0500);
  ::symlink((dir / "outside").c_str(), (tree + "/link-out").c_str());
  ::symlink("../outside/keep", (tree + "/wide/link-file").c_str());

  EXPECT_EQ(removeTreeSignalSafe(tree.c_str()), 0);
  EXPECT_FALSE(existsNoFollow(tree));
  EXPECT_EQ(readText(dir / "outside/keep"), "keep");

  // A single file, a missing path, a path with trailing slashes.
  writeText(dir / "file", "x");
  EXPECT_EQ(removeTreeSignalSafe((dir / "file").c_str()), 0);
  EXPECT_FALSE(existsNoFollow(dir / "file"));
  EXPECT_EQ(removeTreeSignalSafe((dir / "missing").c_str()), 0);
  writeText(dir / "slashes/a", "x");
  EXPECT_EQ(removeTreeSignalSafe((dir / "slashes//").c_str()), 0);
  EXPECT_FALSE(existsNoFollow(dir / "slashes"));
}

TEST(CleanupPaths, RegisterAndUnregisterWithinTheTableSize) {
  std::vector<std::string> registered;
  for (int i = 0; registerCleanupPath("/tmp/velmar-cleanup-slot-" + std::to_string(i)); ++i) {
    registered.push_back("/tmp/velmar-cleanup-slot-" + std::to_string(i));
    ASSERT_LT(i, 1000);
  }
  EXPECT_GE(registered.size(), 2u);  // a staging folder and an unpack folder
  EXPECT_FALSE(registerCleanupPath(std::string(5000, 'x')));
  unregisterCleanupPath(registered.front());
  EXPECT_TRUE(registerCleanupPath("/tmp/velmar-cleanup-again"));
  unregisterCleanupPath("/tmp/velmar-cleanup-again");
  for (const std::string& path : registered) unregisterCleanupPath(path);
}

// A process that runs a child the way the tool runs its image readers and
// is stopped while the child runs: the child is killed and reaped, the
// registered folder removed, and the exit status says which signal it was.
TEST(CleanupChildren, AStopSignalEndsTheChildrenAndRemovesTheFolders) {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
    synth::TempDir dir("velmar-cleanup");
    const std::string folder = dir / "extracted";
    writeText(folder + "/part", "x");
    int pids[2];
    ASSERT_EQ(::pipe(pids), 0);
    pid_t tool = ::fork();
    ASSERT_GE(tool, 0);
    if (tool == 0) {
      ::close(pids[0]);
      installStopHandlers();
      registerCleanupPath(folder);
      ChildRequest request;
      request.program = "/bin/sleep";
      request.args = {"60"};
      request.started = [&](pid_t pid) {
        registerCleanupChild(pid);
        ssize_t ignored = ::write(pids[1], &pid, sizeof pid);
        (void)ignored;
      };
      request.ending = [](pid_t pid) { unregisterCleanupChild(pid); };
      runChild(request);
      ::_exit(0);
    }
    ::close(pids[1]);
    pid_t child = 0;
    ASSERT_EQ(::read(pids[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
    ::close(pids[0]);
    // The signal to the tool alone, as `kill PID` sends it.
    ::kill(tool, sig);
    int status = 0;
    ASSERT_EQ(::waitpid(tool, &status, 0), tool);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + sig) << sig << " " << status;
    EXPECT_TRUE(processGone(child)) << sig;
    EXPECT_FALSE(existsNoFollow(folder)) << sig;
  }
}

TEST(CleanupChildren, ARunChildIsForgottenOnceReaped) {
  // A child that ended normally is no longer in the table: the slots do
  // not fill up over a run that starts many.
  for (int i = 0; i < 50; ++i) {
    ChildRequest request;
    request.program = "/bin/true";
    request.started = [](pid_t pid) { EXPECT_TRUE(registerCleanupChild(pid)); };
    request.ending = [](pid_t pid) { unregisterCleanupChild(pid); };
    EXPECT_TRUE(runChild(request).succeeded());
  }
}

}  // namespace
}  // namespace velmar::tool
