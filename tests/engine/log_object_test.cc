#include "engine/log_object.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace velmar {
namespace {

// Captures what the shared logger prints into two memory streams.
class LogCapture {
 public:
  LogCapture() {
    out_ = open_memstream(&outBuf_, &outLen_);
    err_ = open_memstream(&errBuf_, &errLen_);
    LogObject& log = LogObject::sharedLogger();
    savedTTY_ = log.useTTY();
    savedVerbose_ = log.verbose();
    log.setStreams(out_, err_);
    log.setHistoricalLog("");
  }
  ~LogCapture() {
    LogObject& log = LogObject::sharedLogger();
    log.setStreams(stdout, stderr);
    log.setUseTTY(savedTTY_);
    log.setVerbose(savedVerbose_);
    fclose(out_);
    fclose(err_);
    free(outBuf_);
    free(errBuf_);
  }
  std::string out() {
    fflush(out_);
    return std::string(outBuf_, outLen_);
  }
  std::string err() {
    fflush(err_);
    return std::string(errBuf_, errLen_);
  }

 private:
  FILE* out_;
  FILE* err_;
  char* outBuf_ = nullptr;
  char* errBuf_ = nullptr;
  size_t outLen_ = 0;
  size_t errLen_ = 0;
  bool savedTTY_;
  bool savedVerbose_;
};

TEST(LogObjectTest, ClassifiesByWordsFirstMatchWins) {
  EXPECT_EQ(classifyMessage("XXX ERROR: a WARNING too"), LogKind::Error);
  EXPECT_EQ(classifyMessage("!!! WARNING: x"), LogKind::Warning);
  EXPECT_EQ(classifyMessage("+++ kept NOTES.txt"), LogKind::Note);
  EXPECT_EQ(classifyMessage("+++ error in lower case is plain"), LogKind::Plain);
}

TEST(LogObjectTest, PlainLinesPrintOnlyWhenVerboseButAlwaysEnterTheHistory) {
  LogCapture capture;
  LogObject& log = LogObject::sharedLogger();
  log.setUseTTY(false);
  log.setVerbose(false);
  log.Log("+++ kept %@", "a");
  log.MustLog("+++ must %d", 3);
  log.Log("+++ NOTES.txt kept");  // contains NOTE: printed even when quiet
  EXPECT_EQ(capture.out(), "+++ must 3\n+++ NOTES.txt kept\n");
  EXPECT_EQ(log.historicalLog(), "+++ kept a\n+++ must 3\n+++ NOTES.txt kept\n");
  log.setVerbose(true);
  log.Log("+++ now %@", "shown");
  EXPECT_EQ(capture.out(), "+++ must 3\n+++ NOTES.txt kept\n+++ now shown\n");
  EXPECT_EQ(capture.err(), "");
}

TEST(LogObjectTest, TerminalColoursErrorsWarningsAndNotesOnStandardError) {
  LogCapture capture;
  LogObject& log = LogObject::sharedLogger();
  log.setUseTTY(true);
  log.setVerbose(false);
  log.Log("XXX ERROR: bad WARNING");
  log.Log("!!! WARNING: careful");
  log.Log("!!! NOTE: by the way");
  log.MustLog("+++ plain");
  EXPECT_EQ(capture.err(),
            "\x1b[31mXXX ERROR: bad WARNING\n\x1b[0m"
            "\x1b[33m!!! WARNING: careful\n\x1b[0m"
            "\x1b[1m!!! NOTE: by the way\n\x1b[0m");
  EXPECT_EQ(capture.out(), "+++ plain\n");
}

TEST(LogObjectTest, WithoutTerminalErrorsGoToStandardOutputUncoloured) {
  LogCapture capture;
  LogObject& log = LogObject::sharedLogger();
  log.setUseTTY(false);
  log.Log("XXX ERROR: one");
  EXPECT_EQ(capture.out(), "XXX ERROR: one\n");
  EXPECT_EQ(capture.err(), "");
}

TEST(LogObjectTest, SharedLoggerIsOneInstance) {
  EXPECT_EQ(&LogObject::sharedLogger(), &LogObject::sharedLogger());
}

TEST(DumpTest, ArraysAreNumberedAndNestedContainersIndent) {
  EXPECT_EQ(dumpValueToString(Value::makeArray({"a", "b"}), "\t"), "0: a\n1: b\n");
  Value inner = Value::makeDict();
  inner.set("x", 1);
  Value outer = Value::makeDict();
  outer.set("k", inner);
  EXPECT_EQ(dumpValueToString(outer, "\t"), "k:\n\tx: 1\n");
  // Indices restart in every nested container.
  Value nested = Value::makeArray({Value::makeArray({"p", "q"}), "r"});
  EXPECT_EQ(dumpValueToString(nested, "  "), "0:\n  0: p\n  1: q\n1: r\n");
}

TEST(DumpTest, DataIsUpperCaseHexSetsHaveNoLabelsScalarsStandAlone) {
  Value d = Value::makeDict();
  d.set("bytes", Value::makeData("\x0a\xff"));
  d.set("set", Value::makeSet({"b", "a"}));
  EXPECT_EQ(dumpValueToString(d, "\t"), "bytes: 0x0AFF\nset:\n\ta\n\tb\n");
  EXPECT_EQ(dumpValueToString(Value("lone"), "\t"), "lone\n");
  EXPECT_EQ(dumpValueToString(Value(), "\t"), "(null)\n");
}

TEST(DumpTest, PrettyPrintWritesOnlyWhenVerboseAndStaysOutOfTheHistory) {
  LogCapture capture;
  LogObject& log = LogObject::sharedLogger();
  log.setVerbose(false);
  log.PrettyPrint(Value::makeArray({"a"}));
  EXPECT_EQ(capture.out(), "");
  log.setVerbose(true);
  log.PrettyPrint(Value::makeArray({"a"}));
  EXPECT_EQ(capture.out(), "0: a\n");
  EXPECT_EQ(log.historicalLog(), "");
}

}  // namespace
}  // namespace velmar
