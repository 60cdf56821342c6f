#include "app/task_helper.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include <filesystem>

#include "synth/temp_dir.h"
#include "tests/app/app_test_support.h"

namespace velmar::app {
namespace {

using testing::CapturedEcho;
using testing::writeScript;

class RunTaskTest : public ::testing::Test {
 protected:
  std::string script(const std::string& body) { return writeScript(dir_ / "tool", body); }
  int run(const std::string& path, const std::vector<std::string>& args = {}, bool verbose = false,
          const std::string& cwd = "") {
    return RunTask(path, args, cwd, &out_, &err_, verbose, echo_.streams());
  }

  synth::TempDir dir_{"velmar-task"};
  std::string out_, err_;
  CapturedEcho echo_;
};

TEST_F(RunTaskTest, GathersBothStreamsApartAndTheExitStatus) {
  std::string tool = script("echo out1; echo err1 >&2; echo out2; echo err2 >&2; exit 3");
  EXPECT_EQ(run(tool), 3);
  EXPECT_EQ(out_, "out1\nout2\n");
  EXPECT_EQ(err_, "err1\nerr2\n");
  EXPECT_EQ(echo_.out.text(), "");  // quiet unless verbose
}

TEST_F(RunTaskTest, PassesWordsUnsplitAndRunsInTheWorkingDirectory) {
  std::string tool = script("printf '[%s]' \"$@\"; pwd >&2");
  EXPECT_EQ(run(tool, {"--source", "/a b/c.dmg", ""}, false, "/tmp"), 0);
  EXPECT_EQ(out_, "[--source][/a b/c.dmg][]");
  EXPECT_EQ(err_, "/tmp\n");
}

TEST_F(RunTaskTest, StandardInputIsTheNullDevice) {
  // A tool that reads its input must see end of file at once, not hang.
  EXPECT_EQ(run(script("cat; echo done")), 0);
  EXPECT_EQ(out_, "done\n");
}

TEST_F(RunTaskTest, LargeOutputOnBothStreamsDoesNotDeadlock) {
  std::string tool = script(
      "head -c 300000 /dev/zero | tr '\\0' a >&2 & head -c 500000 /dev/zero | tr '\\0' b; wait");
  EXPECT_EQ(run(tool), 0);
  EXPECT_EQ(out_, std::string(500000, 'b'));
  EXPECT_EQ(err_, std::string(300000, 'a'));
}

TEST_F(RunTaskTest, ReturnsWhenTheToolEndsEvenIfAChildKeepsThePipeOpen) {
  std::string tool = script("sleep 3 & echo started");
  auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(run(tool), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(2500));
  EXPECT_EQ(out_, "started\n");
}

TEST_F(RunTaskTest, ASignalEndsWithItsNumberAsStatus) {
  EXPECT_EQ(run(script("kill -9 $$")), 9);
}

TEST_F(RunTaskTest, CharacterSplitAcrossWritesIsKeptAndBrokenBytesDropped) {
  std::string tool = script("printf 'caf\\303'; sleep 0.3; printf '\\251!'; sleep 0.3; "
                            "printf '\\377\\376' >&2; sleep 0.3; echo ok >&2");
  EXPECT_EQ(run(tool), 0);
  EXPECT_EQ(out_, "caf\xC3\xA9!");
  EXPECT_EQ(err_, "ok\n");
}

TEST_F(RunTaskTest, VerboseEchoesTheCommandLineAndEveryChunk) {
  std::string tool = script("echo reply; echo note >&2");
  EXPECT_EQ(run(tool, {"--knownvariants"}, true), 0);
  EXPECT_EQ(echo_.out.text(), ">>> " + tool + " --knownvariants \nreply\n");
  EXPECT_EQ(echo_.err.text(), "note\n");
}

TEST_F(RunTaskTest, MissingToolIsStatusOneWithTheLaunchError) {
  std::string missing = dir_ / "no-such-tool";
  EXPECT_EQ(run(missing), 1);
  EXPECT_EQ(echo_.err.text(), "ERROR: threw an exception launching " + missing);
  EXPECT_EQ(out_, "");
}

TEST_F(RunTaskTest, NotExecutableIsALaunchFailure) {
  std::string tool = script("echo hi");
  ::chmod(tool.c_str(), 0644);
  EXPECT_EQ(run(tool), 1);
}

TEST_F(RunTaskTest, NoLaunchPathIsRefused) {
  out_ = "stale";
  EXPECT_EQ(run(""), 1);
  EXPECT_EQ(echo_.err.text(), "ERROR: no task path specified.\n");
  EXPECT_EQ(out_, "");
}

// Cancelling: the request comes from another thread while the tool runs.
class CancelTest : public RunTaskTest {
 protected:
  int runCancelled(const std::string& tool, TaskCancel& cancel, std::chrono::milliseconds after) {
    std::thread requester([&] {
      std::this_thread::sleep_for(after);
      cancel.request();
    });
    int status = RunTask(tool, {}, "", &out_, &err_, false, echo_.streams(), &cancel, &cancelled_);
    requester.join();
    return status;
  }
  // Running, not merely waiting to be reaped by whoever inherited it.
  static bool alive(const std::string& pidFile) {
    std::ifstream in(pidFile);
    pid_t pid = 0;
    if (!(in >> pid) || pid <= 0 || ::kill(pid, 0) != 0) return false;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string pidText, name, state;
    stat >> pidText >> name >> state;
    return state != "Z";
  }
  bool cancelled_ = false;
};

TEST_F(CancelTest, TerminateEndsTheToolAndWhatItStarted) {
  std::string pidFile = dir_ / "sleeper.pid";
  std::string tool = script("sleep 30 & echo $! > " + pidFile + "; echo started; wait");
  TaskCancel cancel(std::chrono::seconds(10));
  auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(runCancelled(tool, cancel, std::chrono::milliseconds(300)), SIGTERM);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));  // no wait for the grace
  EXPECT_TRUE(cancelled_);
  EXPECT_EQ(out_, "started\n");
  EXPECT_FALSE(alive(pidFile));
}

TEST_F(CancelTest, AToolThatIgnoresTerminateIsKilledAfterTheGrace) {
  std::string tool = script("trap '' TERM; echo waiting; while :; do sleep 0.1; done");
  TaskCancel cancel(std::chrono::milliseconds(400));
  auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(runCancelled(tool, cancel, std::chrono::milliseconds(200)), SIGKILL);
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(600));
  EXPECT_TRUE(cancelled_);
}

TEST_F(CancelTest, ACancelledTaskIsNotLaunchedAndAnUncancelledOneRunsOn) {
  std::string marker = dir_ / "ran";
  TaskCancel cancel;
  cancel.request();
  EXPECT_EQ(RunTask(script("touch " + marker), {}, "", &out_, &err_, false, echo_.streams(), &cancel,
                    &cancelled_),
            1);
  EXPECT_TRUE(cancelled_);
  EXPECT_FALSE(std::filesystem::exists(marker));

  cancel.reset();
  EXPECT_EQ(RunTask(script("echo ok"), {}, "", &out_, &err_, false, echo_.streams(), &cancel, &cancelled_), 0);
  EXPECT_FALSE(cancelled_);
  EXPECT_EQ(out_, "ok\n");
}

TEST(TaskHelperTest, IsDoneWithFinalResultAfterRun) {
  TaskHelper helper(Task{"/bin/sh", {"-c", "echo x; exit 4"}, ""});
  EXPECT_EQ(helper.run(), 4);
  EXPECT_TRUE(helper.threadDone());
  EXPECT_EQ(helper.result(), 4);
  EXPECT_EQ(helper.stdoutOutput(), "x\n");
}

}  // namespace
}  // namespace velmar::app
