#include "base/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

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

}  // namespace
}  // namespace velmar
