// UTF-8 chunk decoding and path helpers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "app/paths.h"
#include "app/utf8_text.h"
#include "synth/temp_dir.h"
#include "tests/app/app_test_support.h"

namespace velmar::app {
namespace {

TEST(Utf8Test, RefusesMalformedSequences) {
  EXPECT_TRUE(isValidUtf8("plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"));
  EXPECT_FALSE(isValidUtf8("\xC0\x80"));          // overlong
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));      // surrogate
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));  // above U+10FFFF
  EXPECT_FALSE(isValidUtf8("\xC3"));              // cut short
  EXPECT_FALSE(isValidUtf8("\x80"));
}

TEST(Utf8Test, IncompleteTailIsOnlyAPossibleCharacterStart) {
  EXPECT_EQ(incompleteUtf8Tail("ab\xE2\x82"), 2u);
  EXPECT_EQ(incompleteUtf8Tail("ab\xF0"), 1u);
  EXPECT_EQ(incompleteUtf8Tail("ab\xE2\x82\xAC"), 0u);
  EXPECT_EQ(incompleteUtf8Tail("ab\xED\xA0"), 0u);  // could only become a surrogate
  EXPECT_EQ(incompleteUtf8Tail("ab\x82"), 0u);
}

TEST(Utf8Test, DecoderCarriesSplitCharactersAndDropsBrokenChunks) {
  Utf8ChunkDecoder d;
  EXPECT_EQ(d.decode("\xF0\x9F"), "");
  EXPECT_TRUE(d.hasPendingBytes());
  EXPECT_EQ(d.decode("\x98\x80!"), "\xF0\x9F\x98\x80!");
  EXPECT_EQ(d.decode("ok\xFF"), "");
  EXPECT_EQ(d.decode("\xC3"), "");
  EXPECT_EQ(d.decode("x"), "");  // the held byte never became a character
  EXPECT_EQ(d.decode("fine"), "fine");
}

TEST(PathsTest, TildeBothWays) {
  EXPECT_EQ(expandTilde("~/Desktop", "/home/ann"), "/home/ann/Desktop");
  EXPECT_EQ(expandTilde("~", "/home/ann/"), "/home/ann");
  EXPECT_EQ(expandTilde("/abs/~x", "/home/ann"), "/abs/~x");
  EXPECT_EQ(expandTilde("~no-such-user-here/x", "/home/ann"), "~no-such-user-here/x");
  EXPECT_EQ(abbreviateTilde("/home/ann/Desktop/b.dmg", "/home/ann"), "~/Desktop/b.dmg");
  EXPECT_EQ(abbreviateTilde("/home/ann", "/home/ann"), "~");
  EXPECT_EQ(abbreviateTilde("/home/annex/b", "/home/ann"), "/home/annex/b");
}

TEST(PathsTest, PastedPathsLoseQuotesBlanksAndTheFileScheme) {
  EXPECT_EQ(pathFromPastedText("  /b/My Bundle.dmg\n"), "/b/My Bundle.dmg");
  EXPECT_EQ(pathFromPastedText("'/b/My Bundle'"), "/b/My Bundle");
  EXPECT_EQ(pathFromPastedText("\"~/b\""), "~/b");
  EXPECT_EQ(pathFromPastedText("\"/b'"), "\"/b'");  // not a pair
  EXPECT_EQ(pathFromPastedText("file:///b/My%20Bundle.dmg"), "/b/My Bundle.dmg");
  EXPECT_EQ(pathFromPastedText("file://localhost/b/x%2"), "/b/x%2");
}

TEST(PathsTest, ComponentsOfPaths) {
  EXPECT_EQ(lastPathComponent("/a/b/bundle.dmg"), "bundle.dmg");
  EXPECT_EQ(lastPathComponent("/a/Bundle/"), "Bundle");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(parentFolder("/a/b/bundle.dmg"), "/a/b");
  EXPECT_EQ(parentFolder("/x"), "/");
  EXPECT_EQ(parentFolder("x"), "");
}

TEST(PathsTest, ToolInLibexecThenBesideTheApp) {
  synth::TempDir prefix("velmar-prefix");
  std::string bin = prefix / "bin";
  ::mkdir(bin.c_str(), 0755);
  std::string libexec = prefix / "libexec/velmarbs";
  EXPECT_EQ(findTool(bin), libexec + "/velmarbs");  // nothing anywhere: the installed place

  // A build tree: the tool copied beside the application.
  testing::writeScript(bin + "/velmarbs", "exit 0");
  EXPECT_EQ(findTool(bin + "/"), bin + "/velmarbs");

  // Installed: /usr/bin holds the command-line velmarbs too, but the
  // application runs the copy in libexec.
  ::mkdir((prefix / "libexec").c_str(), 0755);
  ::mkdir(libexec.c_str(), 0755);
  testing::writeScript(libexec + "/velmarbs", "exit 0");
  EXPECT_EQ(findTool(bin), libexec + "/velmarbs");

  // A folder or a non-executable file there does not count.
  ::unlink((libexec + "/velmarbs").c_str());
  ::mkdir((libexec + "/velmarbs").c_str(), 0755);
  EXPECT_EQ(findTool(bin), bin + "/velmarbs");
}

TEST(PathsTest, ToolOfAnApplicationInSlashBin) {
  // "/bin" has the root as its prefix: "/libexec/...", not "//libexec/...".
  EXPECT_EQ(findTool("/nonexistent-velmar-bin"), "/libexec/velmarbs/velmarbs");
}

}  // namespace
}  // namespace velmar::app
