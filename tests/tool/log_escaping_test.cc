// Log lines carry names from bundles; they must stay one honest line.

#include <gtest/gtest.h>

#include "base/bundle_view.h"
#include "engine/log_object.h"
#include "tool/reporting_view.h"

namespace velmar {
namespace {

TEST(EscapeForLog, ControlCharactersAndBrokenUtf8BecomeVisibleEscapes) {
  EXPECT_EQ(escapeForLog("plain \"text\" é ✓ 𝄞"), "plain \"text\" é ✓ 𝄞");
  EXPECT_EQ(escapeForLog("a\nb\rc\td"), "a\\nb\\rc\\td");
  EXPECT_EQ(escapeForLog("\x1b[31mred\x7f"), "\\x1B[31mred\\x7F");
  EXPECT_EQ(escapeForLog(std::string("nul\0x", 5)), "nul\\x00x");
  EXPECT_EQ(escapeForLog("\xff\xfe"), "\\xFF\\xFE");
  EXPECT_EQ(escapeForLog("cut \xe2\x9c"), "cut \\xE2\\x9C");       // truncated sequence
  EXPECT_EQ(escapeForLog("\xc0\xaf"), "\\xC0\\xAF");               // overlong "/"
  EXPECT_EQ(escapeForLog("\xed\xa0\x80"), "\\xED\\xA0\\x80");      // a surrogate
  EXPECT_EQ(escapeForLog("c1 \xc2\x9b" "1m"), "c1 \\xC2\\x9B1m");  // CSI in one character
}

TEST(EscapeForLog, TheLoggerPrintsAndKeepsEscapedLines) {
  LogObject& log = LogObject::sharedLogger();
  size_t logged = log.historicalLog().size();
  log.Log("XXX ERROR: cannot read \"%s\".", "a\n>>> forged");
  EXPECT_EQ(log.historicalLog().substr(logged), "XXX ERROR: cannot read \"a\\n>>> forged\".\n");
}

// A view whose folders answer as told.
class FakeView : public BundleView {
 public:
  const std::string& location() const override { return location_; }
  int entryInfo(std::string_view, EntryInfo*) override { return ENOENT; }
  int targetInfo(std::string_view, EntryInfo*) override { return ENOENT; }
  int listFolder(std::string_view path, std::vector<FolderEntry>* entries) override {
    if (path == "Debug/locked") return EACCES;
    if (path == "Missing") return ENOENT;
    entries->clear();
    return 0;
  }
  int readFile(std::string_view, size_t, std::string*, FileIdentity*) override { return ENOENT; }
  int openFile(std::string_view, UniqueFd*) override { return ENOENT; }

 private:
  std::string location_ = "fake";
};

TEST(ReportingView, WarnsOnceForEachFolderThatExistsButCannotBeRead) {
  tool::ReportingView view(std::make_shared<FakeView>());
  LogObject& log = LogObject::sharedLogger();
  size_t logged = log.historicalLog().size();
  std::vector<FolderEntry> entries;
  EXPECT_EQ(view.listFolder("Debug/locked", &entries), EACCES);
  EXPECT_EQ(view.listFolder("Debug/locked", &entries), EACCES);
  EXPECT_EQ(view.listFolder("Missing", &entries), ENOENT);
  EXPECT_EQ(view.listFolder("Restore", &entries), 0);
  EXPECT_EQ(log.historicalLog().substr(logged),
            "!!! WARNING: cannot read the folder \"Debug/locked\" of the bundle: permission "
            "denied; what it holds is left out.\n");
}

}  // namespace
}  // namespace velmar
