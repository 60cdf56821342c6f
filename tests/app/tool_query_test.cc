#include "app/tool_query.h"

#include <gtest/gtest.h>

#include <cstring>

#include "base/plist_io.h"
#include "synth/temp_dir.h"
#include "tests/app/app_test_support.h"

namespace velmar::app {
namespace {

using testing::CapturedEcho;
using testing::writeScript;

class ToolQueryTest : public ::testing::Test {
 protected:
  ToolQuery queryFor(const std::string& toolPath) {
    ToolQuery query(
        toolPath, [this](const std::string& t) { log_.push_back(t); },
        [this](const std::string& t) { systemLog_.push_back(t); });
    query.setEchoStreams(echo_.streams());
    return query;
  }
  std::string tool(const std::string& body) { return writeScript(dir_ / "velmarbs", body); }

  synth::TempDir dir_{"velmar-query"};
  std::vector<std::string> log_, systemLog_;
  CapturedEcho echo_;
};

TEST_F(ToolQueryTest, ReturnsEveryListTheToolPrints) {
  std::string first = toXml(Value::makeArray({"r13"}));
  std::string second = toXml(Value::makeArray({"ss", "swdl"}));
  std::string path = tool("cat <<'EOF'\n!!! NOTE: before\n" + first + "+++ between\n" + second +
                          "EOF");
  Value replies = queryFor(path).queryStripperWithArguments({"--knownProducts"});
  ASSERT_EQ(replies.count(), 2u);
  EXPECT_EQ(replies.arr()[1], Value::makeArray({"ss", "swdl"}));
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(systemLog_.empty());
}

TEST_F(ToolQueryTest, NonZeroExitLogsTheStatusAsAnErrorNumber) {
  std::string path = tool("echo partial; echo 'velmarbs: bad word' >&2; exit 2");
  Value replies = queryFor(path).queryStripperWithArguments({"--knownvariants", "--x"});
  EXPECT_TRUE(replies.isNull());
  std::vector<std::string> expected = {
      "ERROR: unable to launch velmarbs tool at " + path + " - (2 - " + std::strerror(2) + ")\n",
      "path: " + path + "\narguments: --knownvariants, --x",
      "stdout: partial\n\nstderr: velmarbs: bad word\n",
  };
  EXPECT_EQ(log_, expected);
  EXPECT_EQ(systemLog_, expected);
}

TEST_F(ToolQueryTest, MissingToolIsReportedWithStatusOne) {
  std::string path = dir_ / "absent";
  EXPECT_TRUE(queryFor(path).queryStripperWithArguments({"--knownvariants"}).isNull());
  ASSERT_EQ(log_.size(), 3u);
  EXPECT_EQ(log_[0], "ERROR: unable to launch velmarbs tool at " + path + " - (1 - " +
                         std::strerror(1) + ")\n");
}

TEST_F(ToolQueryTest, UnreadableOutputIsAFailure) {
  std::string path = tool("echo no property list here");
  EXPECT_TRUE(queryFor(path).queryStripperWithArguments({"--knownvariants"}).isNull());
  std::vector<std::string> expected = {
      "ERROR: velmarbs query failed - cannot decipher output - cannot find leading <?xml ..\n"};
  EXPECT_EQ(log_, expected);
  EXPECT_EQ(systemLog_, expected);
}

TEST_F(ToolQueryTest, ListsBeforeABrokenOneAreDroppedToo) {
  std::string path = tool("cat <<'EOF'\n" + toXml(Value::makeArray({"r13"})) + "<?xml version\nEOF");
  EXPECT_TRUE(queryFor(path).queryStripperWithArguments({"--knownProducts"}).isNull());
  ASSERT_EQ(log_.size(), 1u);
  EXPECT_NE(log_[0].find("cannot find trailing <?plist>."), std::string::npos);
}

TEST_F(ToolQueryTest, VerboseEchoesTheCommandLineWithItsTrailingSpace) {
  std::string path = tool("echo '<?xml version=\"1.0\"?><plist><array/></plist>'");
  ToolQuery query = queryFor(path);
  query.setVerbose(true);
  EXPECT_EQ(query.queryStripperWithArguments({"--knownvariants"}).count(), 1u);
  std::string echoLine = ">>> " + path + " --knownvariants \n";
  EXPECT_EQ(echo_.out.text().substr(0, echoLine.size()), echoLine);
}

}  // namespace
}  // namespace velmar::app
