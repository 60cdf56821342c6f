#include "engine/log_object.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/engine/test_support.h"

namespace velmar {
namespace {

// Points the shared logger at two memory streams and restores it after.
class LogObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    log.setStreams(out_.file, err_.file);
    log.setHistoricalLog("");
  }
  void TearDown() override {
    log.setStreams(stdout, stderr);
    log.setUseTTY(savedTTY_);
    log.setVerbose(savedVerbose_);
  }
  struct Memory {
    char* buffer = nullptr;
    size_t size = 0;
    FILE* file = open_memstream(&buffer, &size);
    ~Memory() { fclose(file), free(buffer); }
    std::string text() { return fflush(file), std::string(buffer, size); }
  };

  LogObject& log = LogObject::sharedLogger();
  Memory out_, err_;
  bool savedTTY_ = log.useTTY(), savedVerbose_ = log.verbose();
};

TEST_F(LogObjectTest, WordsDecideWhatPrintsWhereButEverythingEntersTheHistory) {
  log.setUseTTY(false);
  log.setVerbose(false);
  log.Log("+++ kept %@", "a");
  log.MustLog("+++ must %d", 3);
  log.Log("+++ NOTES.txt kept");  // contains NOTE: printed even when quiet
  log.Log("XXX ERROR: one");      // no terminal: standard output, uncoloured
  EXPECT_EQ(log.historicalLog(), "+++ kept a\n+++ must 3\n+++ NOTES.txt kept\nXXX ERROR: one\n");
  log.setUseTTY(true);
  log.setVerbose(true);
  log.Log("+++ now %@", "shown");
  log.Log("XXX ERROR: bad WARNING");
  log.Log("!!! WARNING: careful");
  log.Log("!!! NOTE: by the way");
  EXPECT_EQ(out_.text(), "+++ must 3\n+++ NOTES.txt kept\nXXX ERROR: one\n+++ now shown\n");
  EXPECT_EQ(err_.text(),
            "\x1b[31mXXX ERROR: bad WARNING\n\x1b[0m"
            "\x1b[33m!!! WARNING: careful\n\x1b[0m"
            "\x1b[1m!!! NOTE: by the way\n\x1b[0m");
}

TEST_F(LogObjectTest, DumpsNumberArraysIndentNestingAndPrintOnlyWhenVerbose) {
  EXPECT_EQ(dumpValueToString(Value::makeArray({"a", "b"}), "\t"), "0: a\n1: b\n");
  Value d = testing::dictOf({{"k", testing::dictOf({{"x", 1}})}, {"bytes", Value::makeData("\x0a\xff")},
                             {"set", Value::makeSet({"b", "a"})},
                             {"list", Value::makeArray({Value::makeArray({"p"}), "r"})}});
  EXPECT_EQ(dumpValueToString(d, "\t"),
            "k:\n\tx: 1\nbytes: 0x0AFF\nset:\n\ta\n\tb\nlist:\n\t0:\n\t\t0: p\n\t1: r\n");
  log.setVerbose(false);
  log.PrettyPrint(Value::makeArray({"a"}));
  EXPECT_EQ(out_.text(), "");
  log.setVerbose(true);
  log.PrettyPrint(Value::makeArray({"a"}));
  EXPECT_EQ(out_.text(), "0: a\n");
  EXPECT_EQ(log.historicalLog(), "");
}

}  // namespace
}  // namespace velmar
