#include "base/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace velmar {
namespace {

ChildRequest shell(const std::string& script) {
  ChildRequest request;
  request.program = "/bin/sh";
  request.args = {"-c", script};
  return request;
}

TEST(ChildProcessTest, CapturesBothStreamsAndTheExitStatus) {
  ChildResult r = runChild(shell("printf out; printf err >&2; exit 3"));
  EXPECT_TRUE(r.started);
  EXPECT_EQ(r.status, 3);
  EXPECT_FALSE(r.succeeded());
  EXPECT_EQ(r.out, "out");
  EXPECT_EQ(r.err, "err");

  // Arguments are words, never shell text; standard input is empty.
  ChildRequest request = shell("printf '%s|' \"$@\"; cat");
  request.args.push_back("name");
  request.args.push_back("a b; echo no");
  request.args.push_back("$HOME");
  r = runChild(request);
  EXPECT_TRUE(r.succeeded());
  EXPECT_EQ(r.out, "a b; echo no|$HOME|");
}

TEST(ChildProcessTest, SendsStreamsToADescriptorOrJoinsThem) {
  char path[] = "/tmp/velmar-child-XXXXXX";
  int fd = ::mkstemp(path);
  ASSERT_GE(fd, 0);
  ::unlink(path);
  ChildRequest request = shell("printf data; printf noise >&2");
  request.out = ChildStream::ToFd;
  request.outFd = fd;
  ChildResult r = runChild(request);
  EXPECT_TRUE(r.succeeded());
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "noise");
  char buffer[16] = {};
  EXPECT_EQ(::pread(fd, buffer, sizeof buffer, 0), 4);
  EXPECT_STREQ(buffer, "data");
  ::close(fd);

  request = shell("printf 1; printf 2 >&2; printf 3");
  request.err = ChildStream::ToStdout;
  r = runChild(request);
  EXPECT_EQ(r.out, "123");
  request.out = ChildStream::Discard;
  request.err = ChildStream::Discard;
  r = runChild(request);
  EXPECT_TRUE(r.succeeded());
  EXPECT_EQ(r.out + r.err, "");
}

TEST(ChildProcessTest, EnvironmentEntriesReplaceTheParents) {
  ::setenv("VELMAR_CHILD_TEST", "parent", 1);
  ChildRequest request = shell("printf '%s %s' \"$VELMAR_CHILD_TEST\" \"$TZ\"");
  request.environment = {"VELMAR_CHILD_TEST=child", "TZ=UTC0"};
  EXPECT_EQ(runChild(request).out, "child UTC0");
  ::unsetenv("VELMAR_CHILD_TEST");
}

TEST(ChildProcessTest, FailuresToStartSignalsAndTimeLimitsAreTold) {
  ChildRequest missing;
  missing.program = "/nonexistent/program";
  ChildResult r = runChild(missing);
  EXPECT_FALSE(r.started);
  EXPECT_NE(describeChildFailure(r, ""), "");

  r = runChild(shell("kill -9 $$"));
  EXPECT_TRUE(r.started);
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.signal, SIGKILL);
  EXPECT_EQ(describeChildFailure(r, ""), "was killed by signal 9");

  // A child that hangs is stopped, with or without its streams open.
  for (const char* script : {"sleep 30", "exec sleep 30 >/dev/null 2>&1"}) {
    ChildRequest request = shell(script);
    request.timeoutMs = 200;
    r = runChild(request);
    EXPECT_TRUE(r.timedOut) << script;
    EXPECT_FALSE(r.succeeded());
    EXPECT_EQ(describeChildFailure(r, ""), "took too long and was stopped");
  }
  EXPECT_EQ(describeChildFailure(runChild(shell("exit 2")), "it said so"),
            "failed with status 2: it said so");
}

TEST(ChildProcessTest, ACaptureLimitKeepsTheEnd) {
  ChildRequest request = shell("i=0; while [ $i -lt 2000 ]; do printf 0123456789; i=$((i+1)); done; printf END");
  request.captureLimit = 100;
  ChildResult r = runChild(request);
  EXPECT_TRUE(r.succeeded());
  EXPECT_TRUE(r.truncated);
  EXPECT_LE(r.out.size(), 200u);
  EXPECT_EQ(r.out.substr(r.out.size() - 3), "END");
}

// The children run at once: the writer of a named pipe blocks until its
// reader opens it, so run one after the other they would both run out of
// time. Each keeps its own output, however much of it there is, and one
// that cannot start leaves the others running.
TEST(ChildProcessTest, ChildrenRunTogetherEachWithItsOwnResult) {
  char folder[] = "/tmp/velmar-children-XXXXXX";
  ASSERT_NE(::mkdtemp(folder), nullptr);
  const std::string fifo = std::string(folder) + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::vector<ChildRequest> requests = {shell("printf handed > " + fifo + "; head -c 300000 /dev/zero"),
                                        shell("cat " + fifo + "; head -c 200000 /dev/zero >&2")};
  for (ChildRequest& request : requests) request.timeoutMs = 20000;
  ChildRequest missing;
  missing.program = std::string(folder) + "/no-such-program";
  requests.insert(requests.begin() + 1, missing);
  std::vector<ChildResult> results = runChildren(requests);
  ::unlink(fifo.c_str());
  ::rmdir(folder);
  ASSERT_EQ(results.size(), 3u);
  EXPECT_TRUE(results[0].succeeded());
  EXPECT_EQ(results[0].out, std::string(300000, '\0'));
  EXPECT_FALSE(results[1].started);
  EXPECT_EQ(results[1].startError, ENOENT);
  EXPECT_TRUE(results[2].succeeded());
  EXPECT_EQ(results[2].out, "handed");
  EXPECT_EQ(results[2].err.size(), 200000u);
}

}  // namespace
}  // namespace velmar
