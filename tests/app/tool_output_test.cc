#include "app/tool_output.h"

#include <gtest/gtest.h>

#include "base/plist_io.h"

namespace velmar::app {
namespace {

std::string xml(const Value& v) { return toXml(v); }

Value names(std::initializer_list<Value> items) { return Value::makeArray(items); }

TEST(PropertyListsFromOutputTest, IgnoresLogLinesAroundAndBetweenLists) {
  Value products = names({"r11", "r13"});
  Value valid = Value::makeDict();
  valid.set("validProducts", names({"r13"}));
  std::string text = ">>> ========== 1/ 1 ==========\n" + xml(products) + "+++ kept\n" + xml(valid) +
                     "trailing words\n";
  std::string error;
  Value lists = PropertyListsFromOutput(text, &error);
  EXPECT_EQ(error, "");
  ASSERT_EQ(lists.count(), 2u);
  EXPECT_EQ(lists.arr()[0], products);
  EXPECT_EQ(lists.arr()[1], valid);
}

TEST(PropertyListsFromOutputTest, EmptyOutputHasNoLeadingXml) {
  std::string error;
  EXPECT_EQ(PropertyListsFromOutput("", &error).count(), 0u);
  EXPECT_EQ(error, "cannot find leading <?xml .");
  PropertyListsFromOutput("just a log line\n", &error);
  EXPECT_EQ(error, "cannot find leading <?xml .");
}

TEST(PropertyListsFromOutputTest, UnclosedListKeepsWhatCameBefore) {
  std::string first = xml(names({"ss"}));
  std::string text = first + xml(names({"swdl"})).substr(0, 60);
  std::string error;
  Value lists = PropertyListsFromOutput(text, &error);
  EXPECT_EQ(error, "cannot find trailing <?plist>.");
  ASSERT_EQ(lists.count(), 1u);
  EXPECT_EQ(lists.arr()[0], names({"ss"}));
}

TEST(PropertyListsFromOutputTest, ClosingTagBeforeItsOpeningIsInterleaving) {
  std::string error;
  PropertyListsFromOutput("</plist>\n" + xml(names({"ss"})), &error);
  EXPECT_EQ(error, "interleaved plists detected.");

  // A stray closing tag between two lists: the first list stands.
  Value lists = PropertyListsFromOutput(xml(names({"a"})) + "</plist>" + xml(names({"b"})), &error);
  EXPECT_EQ(error, "interleaved plists detected.");
  EXPECT_EQ(lists.count(), 1u);
}

TEST(PropertyListsFromOutputTest, PieceThatDoesNotParseGivesTheParserText) {
  std::string error;
  Value lists = PropertyListsFromOutput(
      xml(names({"a"})) + "<?xml version=\"1.0\"?><plist><array><string>x</array></plist>", &error);
  EXPECT_EQ(error, kPropertyListParseError);
  EXPECT_EQ(lists.count(), 1u);
}

TEST(PropertyListsFromOutputTest, ErrorIsOptionalAndUntouchedOnSuccess) {
  EXPECT_EQ(PropertyListsFromOutput("", nullptr).count(), 0u);
  std::string error = "previous";
  PropertyListsFromOutput(xml(names({"a"})), &error);
  EXPECT_EQ(error, "previous");
}

TEST(ReplyReaderTest, TakesTheFirstMatchingReply) {
  Value other = Value::makeDict();
  other.set("something", 1);
  Value valid = Value::makeDict();
  valid.set("validVariants", names({"ss"}));
  Value later = Value::makeDict();
  later.set("validVariants", names({"swdl"}));
  Value replies = Value::makeArray({other, valid, names({"r2", "r11"}), later, names({"x"})});

  EXPECT_EQ(firstDictionaryWithKey(replies, "validVariants"), valid);
  EXPECT_TRUE(firstDictionaryWithKey(replies, "validProducts").isNull());
  EXPECT_EQ(firstArray(replies), names({"r2", "r11"}));
  EXPECT_EQ(sortedNamesFromFirstArray(replies), (std::vector<std::string>{"r11", "r2"}));
}

TEST(ReplyReaderTest, AFailedQueryReadsAsNoReply) {
  EXPECT_TRUE(firstArray(Value()).isNull());
  EXPECT_TRUE(firstDictionaryWithKey(Value(), "validProducts").isNull());
  EXPECT_TRUE(sortedNamesFromFirstArray(Value()).empty());
}

TEST(ToolFailureReasonTest, TheToolsErrorLineWithoutItsPrefix) {
  EXPECT_EQ(toolFailureReason("", "+++ note\nXXX ERROR: cannot read the source bundle \"/x\": No such file.\n", 3),
            "cannot read the source bundle \"/x\": No such file.");
  // Standard error first, then standard output.
  EXPECT_EQ(toolFailureReason("XXX ERROR: out\n", "XXX ERROR: err\n", 2), "err");
  EXPECT_EQ(toolFailureReason("XXX ERROR: the bundle has no manifest\r\n<?xml ", "", 0), "the bundle has no manifest");
}

TEST(ToolFailureReasonTest, ElseTheLastErrorLineOrTheStatus) {
  EXPECT_EQ(toolFailureReason("", "velmarbs: unknown word\nsee velmarbs --help\n\n", 2), "see velmarbs --help");
  EXPECT_EQ(toolFailureReason("", "", 9), "velmarbs ended with status 9.");
  EXPECT_EQ(toolFailureReason("<plist/>", "", 0), "");
}

}  // namespace
}  // namespace velmar::app
